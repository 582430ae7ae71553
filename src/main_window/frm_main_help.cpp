// The Help menu: the user guide (beside the program or installed), the web site, and About.
#include "frm_main.h"

#include "frm_about.h"

#include "core/app_context.h"
#include "core/globals.h"
#include "core/path_helpers.h"

#include <QCoreApplication>

namespace pw {

void frmMain::mnuShowHelp_Click()
{
    // An HTML guide, opened by the desktop's browser.
    const QString guide = FindUserGuide(QCoreApplication::applicationDirPath());
    if (guide.isEmpty()) {
        context_.ui.MsgBox("Help Not Found.", vbInformation, AppTitle);
        return;
    }
    context_.ui.ShellOpenFile("open", guide);
}

void frmMain::mnuWebsite_Click()
{
    OpenWebsite(context_, "mnuWebsite_Click", Unit::form("frmMain"));
}

void frmMain::mnuAbout_Click()
{
    frmAbout dialog(context_, this);
    dialog.exec();
}

} // namespace pw
