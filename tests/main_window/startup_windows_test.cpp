#include "main_window/frm_progress_dialog.h"

#include "x_display.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QProgressBar>
#include <QTest>
#include <QTimer>

using namespace pw;

TEST(ProgressDialog, RunsFiftyTicksThenClosesItselfAndNothingCutsItShort)
{
    frmProgressDialog running;
    EXPECT_EQ(running.exec(), QDialog::Accepted);
    EXPECT_EQ(running.ProgressBar1->value(), 50);

    frmProgressDialog dialog;
    dialog.show();
    dialog.Timer1->stop();
    dialog.ProgressBar1->setValue(10);
    QTest::keyClick(&dialog, Qt::Key_Escape);
    dialog.close();
    QTest::mouseClick(dialog.Label1, Qt::LeftButton);
    QTest::mouseClick(&dialog, Qt::LeftButton);
    EXPECT_TRUE(dialog.isVisible()) << "neither Escape nor the close box cancels it";
    dialog.ProgressBar1->setValue(50);
    QTest::mouseClick(dialog.ProgressBar1, Qt::LeftButton);
    EXPECT_FALSE(dialog.isVisible());
}

TEST(ProgressDialogUnderX11, HasNoTitleBar)
{
    if (!underWindowManager())
        GTEST_SKIP() << "needs Xvfb and openbox";
    frmProgressDialog dialog;
    dialog.Timer1->stop();
    dialog.show();
    QString frame; // left, right, top, bottom
    ASSERT_TRUE(QTest::qWaitFor([&] {
        frame = xProperty(dialog.winId(), "_NET_FRAME_EXTENTS");
        return frame.contains('=');
    }));
    const QStringList sides = frame.section('=', 1).split(',');
    EXPECT_EQ(sides[2].trimmed(), sides[3].trimmed()) << "a title bar: " << frame.toStdString();
}
