#include "main_window/frm_progress_dialog.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QProgressBar>
#include <QTest>
#include <QTimer>

using namespace pw;

TEST(ProgressDialog, RunsFiftyTicksThenClosesItselfAndNoMouseActionCutsItShort)
{
    frmProgressDialog running;
    EXPECT_EQ(running.exec(), QDialog::Accepted);
    EXPECT_EQ(running.ProgressBar1->value(), 50);
    EXPECT_FALSE(running.Timer1->isActive());

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
