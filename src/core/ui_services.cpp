#include "ui_services.h"

#include "globals.h"

#include <QCoreApplication>

namespace pw {

namespace {

class QuietUi final : public UiServices {
public:
    int MsgBox(const QString &, int flags, const QString &) override
    {
        return (flags & 7) == vbYesNo ? vbYes : vbOK;
    }
    int ShellExecute(const QString &, const QString &, const QString &,
                     const QString &) override
    {
        return 31;
    }
    void OpenWith(const QString &) override {}
    QString BrowseForFolder(const QString &, const QString &, bool) override { return {}; }
    void DoEvents() override { QCoreApplication::processEvents(); }
};

QuietUi quietUi;
UiServices *current = &quietUi;

} // namespace

UiServices &ui() { return *current; }

void setUi(UiServices *services) { current = services ? services : &quietUi; }

int MsgBox(const QString &prompt, int flags, const QString &title)
{
    return ui().MsgBox(prompt, flags, title.isEmpty() ? QString(AppTitle) : title);
}

void DoEvents() { ui().DoEvents(); }

void ShellOpenFile(const QString &verb, const QString &file, const QString &parameters,
                   const QString &folder)
{
    if (ui().ShellExecute(verb, file, parameters, folder) == 0)
        ui().OpenWith(file);
}

QString ShowFolderSelectionDialog(const QString &startPath, const QString &title,
                                  bool includeFiles)
{
    return ui().BrowseForFolder(title, startPath, includeFiles);
}

} // namespace pw
