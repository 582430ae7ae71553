#include "main_window/frm_progress_dialog.h"
#include "main_window/frm_vista_err_dlg.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QMouseEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>

using namespace pw;

TEST(ProgressDialog, RunsFiftyTicksThenClosesItself)
{
    frmProgressDialog dialog;
    EXPECT_EQ(dialog.Label1->text(), "Loading With Default Settings");
    EXPECT_EQ(dialog.exec(), QDialog::Accepted);
    EXPECT_EQ(dialog.ProgressBar1->value(), 50);
    EXPECT_FALSE(dialog.Timer1->isActive());
}

TEST(ProgressDialog, AMouseActionNeverCutsTheBarShort)
{
    frmProgressDialog dialog;
    dialog.show();
    dialog.Timer1->stop();
    dialog.ProgressBar1->setValue(10);
    QTest::mouseClick(dialog.Label1, Qt::LeftButton);
    QTest::mouseClick(&dialog, Qt::LeftButton);
    EXPECT_TRUE(dialog.isVisible());
    dialog.ProgressBar1->setValue(50);
    QTest::mouseClick(dialog.ProgressBar1, Qt::LeftButton);
    EXPECT_FALSE(dialog.isVisible());
}

TEST(StartupWindows, CaptionsReadAsTheUserExpects)
{
    FrmVistaErrDlg vista;
    EXPECT_EQ(vista.windowTitle(), "Pagewright 3.1");
    EXPECT_EQ(vista.Label1->text(),
              "Needed Admin Permission :Cann't run without adminstrator rights in Vista\"");
    QTimer::singleShot(0, vista.cmdOK, &QPushButton::click);
    EXPECT_EQ(vista.exec(), QDialog::Accepted);
}
