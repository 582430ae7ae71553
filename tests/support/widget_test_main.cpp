// Every test executable runs with a QApplication, with QStandardPaths in test mode and with a
// home folder of its own, so no test can touch, or search, the real user's files. The platform
// is offscreen; a test that asks for xcb gets a private X server, never the developer's own
// display, or offscreen when none starts. Modules load from this build's output folder unless
// the environment names another.
#include "x_display.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <iostream>
#include <optional>

int main(int argc, char **argv)
{
    std::optional<XDisplay> display;
    if (qgetenv("QT_QPA_PLATFORM") == "xcb" && !display.emplace().whyNot.isEmpty()) {
        std::cerr << "No X display: " << display->whyNot.toStdString() << '\n';
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("PAGEWRIGHT_MODULE_DIR"))
        qputenv("PAGEWRIGHT_MODULE_DIR", PAGEWRIGHT_TEST_MODULE_DIR);
    QStandardPaths::setTestModeEnabled(true);
    const QTemporaryDir home(QDir::tempPath() + "/pw-home-XXXXXX");
    qputenv("HOME", QFile::encodeName(home.path()));
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
