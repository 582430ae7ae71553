#include "window_startup.h"

#include "frm_main.h"
#include "frm_progress_dialog.h"
#include "frm_vista_err_dlg.h"

#include "engine/image_to_pdf_library.h"

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
    // A language removed since it was chosen leaves the PDFs without text until Preferences
    // names one that is installed; the program starts all the same.
    ApplySearchablePdfSetting(context.settings());
    mainWindow_ = std::make_unique<frmMain>(context);
    mainWindow_->Form_Load();
    mainWindow_->show();
}

} // namespace pw
