#include "frm_main.h"

#include "core/globals.h"
#include "core/master_layout.h"

namespace pw {

frmMain::frmMain(QWidget *parent) : QMainWindow(parent)
{
    setWindowTitle(AppTitle);
    setMinimumSize(700, 403);
    resize(1000, 650);
    ApplyFormLanguage(this);
}

} // namespace pw
