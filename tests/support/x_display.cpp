#include "x_display.h"

#include <QGuiApplication>

XDisplay::XDisplay()
{
    // Xvfb chooses a free display number and prints it once it accepts connections, so tests
    // running side by side never race for one.
    server_.start("Xvfb", {"-displayfd", "1", "-screen", "0", "1280x1024x24", "-nolisten", "tcp"});
    if (!server_.waitForReadyRead(10000)) {
        whyNot = "Xvfb: " + server_.errorString();
        return;
    }
    qputenv("DISPLAY", ":" + server_.readLine().trimmed());
    // openbox runs its start-up command once it manages the screen.
    manager_.setProcessChannelMode(QProcess::MergedChannels);
    manager_.start("openbox", {"--startup", "echo managing"});
    QByteArray said;
    while (!said.contains("managing\n") && manager_.waitForReadyRead(10000))
        said += manager_.readAll();
    if (!said.contains("managing\n"))
        whyNot = "openbox: " + manager_.errorString();
}

XDisplay::~XDisplay()
{
    for (QProcess *child : {&manager_, &server_}) {
        child->terminate();
        child->waitForFinished();
    }
}

bool underWindowManager()
{
    return QGuiApplication::platformName() == "xcb";
}

QString xProperty(unsigned long id, const QString &name)
{
    QProcess xprop;
    xprop.start("xprop", {"-id", QString::number(id), name});
    xprop.waitForFinished();
    return xprop.readAllStandardOutput();
}
