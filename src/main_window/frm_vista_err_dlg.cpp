#include "frm_vista_err_dlg.h"

#include "core/globals.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace pw {

FrmVistaErrDlg::FrmVistaErrDlg(QWidget *parent)
    : QDialog(parent),
      // The stray quote mark after the last word belongs to the label's text.
      Label1(new QLabel("Needed Admin Permission :Cann't run without adminstrator rights in "
                        "Vista\"",
                        this)),
      cmdOK(new QPushButton("OK", this))
{
    setWindowTitle(AppTitle);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    Label1->setWordWrap(true);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(Label1);
    layout->addWidget(cmdOK, 0, Qt::AlignHCenter);
    connect(cmdOK, &QPushButton::clicked, this, &QDialog::accept);
}

} // namespace pw
