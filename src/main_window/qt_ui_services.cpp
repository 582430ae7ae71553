#include "qt_ui_services.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QMessageBox>
#include <QProcess>
#include <QUrl>

namespace pw {

namespace {

QMessageBox::Icon iconFor(int flags)
{
    switch (flags & 0x70) {
    case vbCritical:
        return QMessageBox::Critical;
    case vbQuestion:
        return QMessageBox::Question;
    case vbExclamation:
        return QMessageBox::Warning;
    case vbInformation:
        return QMessageBox::Information;
    default:
        return QMessageBox::NoIcon;
    }
}

constexpr int shellSuccess = 42;
constexpr int shellNoAssociation = 31;

} // namespace

int QtUiServices::MessageBox(const QString &prompt, int flags, const QString &title)
{
    QMessageBox box(iconFor(flags), title, prompt, QMessageBox::NoButton,
                    QApplication::activeWindow());
    if ((flags & vbButtonsMask) == vbYesNo) {
        box.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
        return box.exec() == QMessageBox::Yes ? vbYes : vbNo;
    }
    box.setStandardButtons(QMessageBox::Ok);
    box.exec();
    return vbOK;
}

int QtUiServices::ShellExecute(const QString &verb, const QString &file, const QString &parameters,
                               const QString &)
{
    if (verb.compare("print", Qt::CaseInsensitive) == 0) {
        const QStringList printer =
            parameters.isEmpty() ? QStringList() : QStringList{"-d", parameters};
        return QProcess::startDetached("lp", printer + QStringList{file}) ? shellSuccess
                                                                          : shellNoAssociation;
    }
    const QString target =
        verb.compare("explore", Qt::CaseInsensitive) == 0 && !QFileInfo(file).isDir()
            ? QFileInfo(file).absolutePath()
            : file;
    const QUrl url = target.contains("://") || target.startsWith("mailto:")
                         ? QUrl(target)
                         : QUrl::fromLocalFile(target);
    return QDesktopServices::openUrl(url) ? shellSuccess : shellNoAssociation;
}

void QtUiServices::OpenWith(const QString &file)
{
    bool ok = false;
    const QString program = QInputDialog::getText(
        QApplication::activeWindow(), "Open With",
        "Program to open " + file + " with:", QLineEdit::Normal, QString(), &ok);
    if (ok && !program.trimmed().isEmpty())
        QProcess::startDetached(program.trimmed(), {file});
}

QString QtUiServices::BrowseForFolder(const QString &title, const QString &startPath,
                                      bool includeFiles)
{
    if (includeFiles)
        return QFileDialog::getOpenFileName(QApplication::activeWindow(), title, startPath);
    return QFileDialog::getExistingDirectory(QApplication::activeWindow(), title, startPath);
}

void QtUiServices::DoEvents()
{
    QCoreApplication::processEvents();
}

} // namespace pw
