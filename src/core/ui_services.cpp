#include "ui_services.h"

#include "globals.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QThread>

namespace pw {

int UiServices::MsgBox(const QString &prompt, int flags, const QString &title)
{
    return MessageBox(prompt, flags, title.isEmpty() ? QString(AppTitle) : title);
}

void UiServices::ShellOpenFile(const QString &verb, const QString &file, const QString &parameters,
                               const QString &folder)
{
    if (ShellExecute(verb, file, parameters, folder) == 0)
        OpenWith(file);
}

QString UiServices::ShowFolderSelectionDialog(const QString &startPath, const QString &title,
                                              bool includeFiles, bool newStyle)
{
    const int flags = includeFiles ? BifBrowseIncludeFiles | BifStatusText | BifReturnOnlyFsDirs
                                   : BifStatusText | BifReturnOnlyFsDirs;
    return BrowseForFolder(title, startPath, newStyle ? flags | BifNewDialogStyle : flags);
}

QString UiServices::SaveFilePrompt(const QString &title, const QString &filter, int filterIndex,
                                   int flags)
{
    for (;;) {
        const QString name = AskSaveFileName(title, filter, filterIndex);
        if (name.isEmpty() || !(flags & OfnOverwritePrompt) || !QFileInfo::exists(name))
            return name;
        if (MsgBox(name + " already exists.\nDo you want to replace it?", vbYesNo | vbExclamation,
                   title) == vbYes)
            return name;
    }
}

int QuietUi::MessageBox(const QString &, int flags, const QString &)
{
    return (flags & vbButtonsMask) == vbYesNo ? vbYes : vbOK;
}

int QuietUi::ShellExecute(const QString &, const QString &, const QString &, const QString &)
{
    return 31;
}

void QuietUi::DoEvents()
{
    // A conversion on a worker thread has no events of its own to run.
    if (const QCoreApplication *app = QCoreApplication::instance();
        app && QThread::currentThread() == app->thread())
        QCoreApplication::processEvents();
}

} // namespace pw
