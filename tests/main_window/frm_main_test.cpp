#include "main_window/folder_tree_model.h"
#include "main_window/frm_main.h"
#include "main_window/window_startup.h"

#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/master_layout.h"
#include "widgets/flex_grid.h"

#include "recording_ui.h"
#include "sample_images.h"
#include "sandbox.h"
#include "test_context.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QStandardPaths>
#include <QTest>
#include <QTimer>
#include <QTreeView>

using namespace pw;

namespace {

class MainWindow : public ::testing::Test {
protected:
    void SetUp() override
    {
        oldHome = qgetenv("HOME");
        qputenv("HOME", box.path().toUtf8());
        disk = box.mkdir("disk");
        // A settings file from an earlier start, pointing at the test tree.
        AppContext first(ui);
        ASSERT_TRUE(EnsureFileStoragePath(first));
        Settings settings(first.FileStoragePath, ui);
        settings.LoadDefaultSettings();
        settings.setStartupFolder(disk);
        settings.setWindowStateFlag(0);
    }
    void TearDown() override
    {
        startup.reset();
        qputenv("HOME", oldHome);
        SetErrorLogFolder({});
    }
    frmMain &start(const QString &cmdLine = {})
    {
        startup.reset(); // the window goes before the context it uses
        context = std::make_unique<AppContext>(ui);
        startup = std::make_unique<WindowStartup>();
        Main(cmdLine, *startup, *context);
        EXPECT_TRUE(startup->mainWindowShown());
        return *startup->mainWindow();
    }
    QString file(const QString &relative, const QByteArray &bytes = "x")
    {
        return box.write("disk/" + relative, bytes);
    }
    QStringList names(frmMain &w)
    {
        QStringList out;
        for (int row = 1; row < w.grdSearchList->Rows(); ++row)
            out << w.grdSearchList->TextMatrix(row, w.catalogue().columns().name);
        return out;
    }
    QList<int> checks(frmMain &w)
    {
        QList<int> out;
        for (int row = 1; row < w.grdSearchList->Rows(); ++row)
            out << w.grdSearchList->cellChecked(row, w.catalogue().columns().selection);
        return out;
    }

    SandboxDir box;
    RecordingUi ui;
    QByteArray oldHome;
    QString disk;
    std::unique_ptr<AppContext> context;
    std::unique_ptr<WindowStartup> startup;
};

} // namespace

TEST_F(MainWindow, FirstSearchRunsAtLoadTheCommandLineChecksItsFilesAndRowsHaveMenus)
{
    file("x.tif");
    file("Y.PNG");
    file("z.jpg");
    frmMain &w = start(disk + "/x.tif|" + box.path() + "/elsewhere/y.png");
    EXPECT_EQ(names(w), QStringList({"x.tif", "Y.PNG", "z.jpg"}));
    EXPECT_EQ(checks(w), QList<int>({1, 1, 2})) << "names compared without case or folder";
    EXPECT_TRUE(context->CommandLineFolder.isEmpty());
    // The summary was made by the tree's selection event, before the command line's checks.
    EXPECT_EQ(w.sbStatusBar->text(), "0 file selected; Total Page count of selected Tiff files: 0");
    w.grdSearchList_MouseUp();
    EXPECT_EQ(w.sbStatusBar->text(), "2 file selected; Total Page count of selected Tiff files: 0");

    // The context commands use the current row; the menu opens on rows, not on the header.
    w.grdSearchList->setRow(1);
    w.mnuCtxOpen_Click();
    w.mnuCtxOpenFolder_Click();
    EXPECT_EQ(ui.shell, QStringList({"open " + disk + "/x.tif", "Open " + disk}));
    w.show();
    QTest::mouseClick(w.grdSearchList->horizontalHeader()->viewport(), Qt::RightButton);
    EXPECT_FALSE(w.mnuCtxMenu->isVisible());
    const QRect cell = w.grdSearchList->visualRect(w.grdSearchList->model()->index(0, 0));
    QTest::mouseClick(w.grdSearchList->viewport(), Qt::RightButton, {}, cell.center());
    EXPECT_TRUE(w.mnuCtxMenu->isVisible());
    w.mnuCtxMenu->close();
}

TEST_F(MainWindow, CancelAnswersWithinAFileAndKeepsTheRows)
{
    for (int i = 0; i < 200; ++i)
        file(QString("deep/%1/%2/f%3.png").arg(i % 4).arg(i % 7).arg(i));
    frmMain &w = start();
    ASSERT_EQ(w.grdSearchList->Rows() - 1, 200);
    QTimer::singleShot(0, w.cmdSearch, [&] {
        EXPECT_EQ(w.cmdSearch->text(), "&Cancel");
        w.cmdSearch->click();
    });
    w.cmdSearch->click();
    EXPECT_LE(w.grdSearchList->Rows() - 1, 2);
    ASSERT_EQ(ui.boxes.size(), 1u);
    EXPECT_EQ(ui.boxes[0].prompt, "Process is terminated.");
    EXPECT_EQ(w.cmdSearch->text(), "&Search");
    EXPECT_TRUE(w.ftvFolder->isEnabled());
}

TEST_F(MainWindow, CheckCommandsAndKeysRespectErrorRows)
{
    writeTiff(file("a.tif"), {.pages = 2});
    file("b.tif", "II*\0broken");
    writeTiff(file("c.tif"), {.pages = 3});
    frmMain &w = start();
    ASSERT_EQ(names(w), QStringList({"a.tif", "b.tif", "c.tif"}));

    w.mnuCtxSelectAll_Click();
    EXPECT_EQ(checks(w), QList<int>({1, 2, 1})) << "the damaged file stays unchecked";
    EXPECT_EQ(w.sbStatusBar->text(), "2 file selected; Total Page count of selected Tiff files: 5");
    w.mnuInvSelect_Click();
    EXPECT_EQ(checks(w), QList<int>({2, 2, 2}));
    w.grdSearchList->Select(1, 0, 3, 0);
    w.mnuCtxCheckSelection_Click();
    EXPECT_EQ(checks(w), QList<int>({1, 1, 1})) << "the block command checks error rows too";
    w.mnuInvSelect_Click();
    w.mnuInvSelect_Click();
    EXPECT_EQ(checks(w), QList<int>({1, 2, 1})) << "inverting twice never restores an error row";
    w.mnuCtxCheckInvertSelection_Click();
    EXPECT_EQ(checks(w), QList<int>({2, 1, 2}));
    w.mnuCtxUnCheckSelection_Click();
    EXPECT_EQ(checks(w), QList<int>({2, 2, 2}));

    w.show();
    w.grdSearchList->setFocus();
    QTest::keyClick(w.grdSearchList, Qt::Key_A, Qt::ControlModifier);
    EXPECT_EQ(checks(w), QList<int>({1, 2, 1}));
    QTest::keyClick(w.grdSearchList, Qt::Key_D, Qt::ControlModifier);
    EXPECT_EQ(checks(w), QList<int>({2, 2, 2}));
    QTest::keyClick(w.grdSearchList, Qt::Key_A, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(checks(w), QList<int>({2, 2, 2})) << "Ctrl+Shift+A does nothing";

    w.grdSearchList->Select(1, 0, 2, 0);
    const QString before = w.sbStatusBar->text();
    QTest::keyClick(w.grdSearchList, Qt::Key_Space);
    EXPECT_EQ(checks(w), QList<int>({1, 1, 2})) << "Space flips each row of the block";
    EXPECT_EQ(w.sbStatusBar->text(), before) << "and leaves the status line behind";
}

TEST_F(MainWindow, PlaceIsStoredOnlyOnceReadyAndRestoredAtTheNextStart)
{
    frmMain &w = start();
    w.show();
    w.resize(900, 600);
    EXPECT_EQ(context->settings().LastWindowWidth(), 0) << "not before the second activation";
    w.Form_Activate();
    w.Form_Activate();
    ASSERT_TRUE(w.windowReady());
    w.resize(910, 610);
    EXPECT_EQ(context->settings().LastWindowWidth(), 910 * 15);
    EXPECT_EQ(context->settings().LastWindowHeight(), 610 * 15);
    EXPECT_EQ(context->settings().LastWindowState(), 0);

    w.showMinimized();
    w.resize(800, 500);
    EXPECT_EQ(context->settings().LastWindowWidth(), 910 * 15)
        << "a minimised window stores nothing";
    w.showNormal();
    w.resize(920, 620);

    // Column widths go to the settings at close when so set.
    w.grdSearchList->setColWidth(0, 3000);
    w.close();
    EXPECT_TRUE(context->settings().LastGridColWidth().startsWith("3000,"));
    EXPECT_EQ(context->settings().LastWindowWidth(), 920 * 15);

    context->settings().setWindowStateFlag(1);
    context->settings().setWindowStateValue(2);
    frmMain &again = start();
    EXPECT_EQ(again.size(), QSize(920, 620));
    EXPECT_EQ(context->ColumnList.Item("Name")->ColumnWidth, 3000);

    context->settings().setLastGridColWidthFlag(0);
    again.grdSearchList->setColWidth(0, 1500);
    again.close();
    EXPECT_TRUE(context->settings().LastGridColWidth().startsWith("3000,"))
        << "flag 0 stores nothing";
}

TEST_F(MainWindow, ACloseWhoseSavesAllFailIsLoggedAndEndsNothing)
{
    frmMain &w = start();
    auto failing = std::make_unique<FailingWriteSettings>(context->FileStoragePath, ui);
    ASSERT_TRUE(failing->LoadSettings());
    failing->failures = 100; // the recovery's own save fails too
    context->AppSettings = std::move(failing);
    w.close();
    const QString log = readFile(context->FileStoragePath + "/Errors.Log");
    EXPECT_EQ(log.count("in procedure Form_Unload "), 1) << log.toStdString();
}

TEST_F(MainWindow, TheTreesDesktopRootSearchesTheDesktopFolder)
{
    frmMain &w = start();
    const QString desktop = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    QDir().mkpath(desktop + "/letters");
    box.write(QDir(box.path()).relativeFilePath(desktop + "/letters/scan.tif"), "x");

    w.ftvFolder->setCurrentIndex(w.folderModel->index(0, 0));
    EXPECT_EQ(w.selectedFolder(), "Desktop");
    EXPECT_EQ(names(w), QStringList({"scan.tif"}));

    // Deep folders are found level by level; a folder that is not there is not chosen.
    w.setTreeFolder(disk);
    EXPECT_EQ(w.selectedFolder(), disk);
    w.setTreeFolder(disk + "/missing");
    EXPECT_EQ(w.selectedFolder(), disk);
}
