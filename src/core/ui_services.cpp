#include "ui_services.h"

#include "globals.h"

#include <QCoreApplication>

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
                                              bool includeFiles)
{
    return BrowseForFolder(title, startPath, includeFiles);
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
    QCoreApplication::processEvents();
}

} // namespace pw
