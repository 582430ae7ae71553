#include "window_startup.h"

#include "frm_main.h"
#include "frm_progress_dialog.h"
#include "frm_vista_err_dlg.h"

namespace pw {

WindowStartup::WindowStartup() = default;
WindowStartup::~WindowStartup() = default;

void WindowStartup::ShowVistaErrDlg()
{
    FrmVistaErrDlg dialog;
    dialog.exec();
}

void WindowStartup::ShowProgressDialog()
{
    frmProgressDialog dialog;
    dialog.exec();
}

void WindowStartup::ShowMainWindow(AppContext &context)
{
    mainWindow_ = std::make_unique<frmMain>(context);
    mainWindow_->Form_Load();
    mainWindow_->show();
}

} // namespace pw
