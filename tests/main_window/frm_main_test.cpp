#include "main_window/folder_tree_model.h"
#include "main_window/frm_main.h"
#include "main_window/qt_ui_services.h"
#include "main_window/window_startup.h"

#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/master_layout.h"
#include "widgets/flex_grid.h"

#include "pdf_probe.h"
#include "recording_ui.h"
#include "sample_images.h"
#include "sandbox.h"
#include "test_context.h"
#include "x_display.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QDockWidget>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScreen>
#include <QStandardPaths>
#include <QTabBar>
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

// The same window on a real X server, whose window manager frames, places and minimises it;
// a first start stores a normal place and the start state `value`.
class MainWindowUnderX11 : public MainWindow {
protected:
    frmMain &restart(int value)
    {
        start();
        Settings &settings = context->settings();
        settings.setWindowStateFlag(1);
        settings.setWindowStateValue(value);
        settings.setLastWindowLeft(stored.x() * 15);
        settings.setLastWindowTop(stored.y() * 15);
        settings.setLastWindowWidth(stored.width() * 15);
        settings.setLastWindowHeight(stored.height() * 15);
        return start();
    }
    const QRect stored{100, 150, 800, 560};
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

    // A click in the check column lets the check box change, and no other cell.
    w.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&w));
    const QModelIndex check = w.grdSearchList->model()->index(2, w.catalogue().columns().selection);
    QTest::mouseClick(w.grdSearchList->viewport(), Qt::LeftButton, {},
                      w.grdSearchList->visualRect(check).center());
    EXPECT_EQ(checks(w), QList<int>({1, 1, 1}));
    for (const Qt::Key key : {Qt::Key_Left, Qt::Key_Z, Qt::Key_Z, Qt::Key_Return})
        QTest::keyClick(QApplication::focusWidget(), key);
    QApplication::processEvents(); // an editor hands its text over after the key
    EXPECT_EQ(names(w), QStringList({"a.tif", "b.tif", "c.tif"}));
}

// The filter box is a text box: what is typed is the pattern searched for, and its keys are its
// own; the grid's Ctrl+A checks rows only while the grid has the focus.
TEST_F(MainWindow, TheFilterBoxSearchesWhatIsTypedAndKeepsItsKeys)
{
    for (const char *name : {"a.tif", "b.tiff", "c.jpg", "d.jp2"})
        file(name);
    frmMain &w = start();
    QLineEdit *typed = w.cboFilterPattern->lineEdit();
    const struct {
        QString pattern;
        QStringList found;
    } cases[] = {
        {"*", {"a.tif", "b.tiff", "c.jpg", "d.jp2"}},
        {"*.jpg", {"c.jpg"}},
        {"*.ti", {}},
    };
    for (const auto &c : cases) {
        // A box completes only what is typed into it with the focus; a search's loading
        // window takes the focus away.
        w.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&w));
        typed->setFocus();
        typed->clear();
        QTest::keyClicks(typed, c.pattern);
        EXPECT_EQ(w.cboFilterPattern->currentText(), c.pattern);
        w.cmdSearch->click();
        EXPECT_EQ(names(w), c.found) << c.pattern.toStdString();
    }
    typed->setText("*.jp*");
    w.cmdSearch->click();
    QTest::keyClick(typed, Qt::Key_A, Qt::ControlModifier);
    EXPECT_EQ(typed->selectedText(), "*.jp*");
    EXPECT_EQ(checks(w), QList<int>({2, 2}));
    QTest::keyClick(w.grdSearchList, Qt::Key_A, Qt::ControlModifier);
    EXPECT_EQ(checks(w), QList<int>({1, 1}));
}

TEST_F(MainWindow, ASearchEndsSortedOnTheColumnTheUserSortedBy)
{
    file("a.png", QByteArray(10 * 1024, 'x'));
    file("b.png", QByteArray(9 * 1024, 'x'));
    file("c.png");
    frmMain &w = start();
    w.show();
    QHeaderView *header = w.grdSearchList->horizontalHeader();
    const int size = header->sectionViewportPosition(w.catalogue().columns().size) + 5;
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, QPoint(size, header->height() / 2));
    ASSERT_EQ(names(w), QStringList({"c.png", "b.png", "a.png"}));
    w.cmdSearch->click();
    EXPECT_EQ(names(w), QStringList({"c.png", "b.png", "a.png"})) << "sizes as numbers still";
}

TEST_F(MainWindow, PrintGoesToThePrinterChosen)
{
    const QString tif = file("scan.tif");
    writeTiff(tif, {.pages = 2});
    // lp is a script here that writes down its arguments.
    const QString args = box.filePath("lp-args");
    const QString lp = box.write("bin/lp", ("#!/bin/sh\necho \"$@\" >" + args).toUtf8());
    QFile::setPermissions(lp, QFile::permissions(lp) | QFile::ExeOwner);
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(box.filePath("bin")) + ":" + path);
    QtUiServices().ShellExecute("Print", tif, "Office", {});
    qputenv("PATH", path);
    ASSERT_TRUE(QTest::qWaitFor([&] { return readFile(args).endsWith('\n'); }));
    EXPECT_EQ(readFile(args), ("-d Office " + tif + "\n").toUtf8());

    // "Print to File (PDF)", which lp cannot reach, writes the file's pages as a PDF.
    frmMain &w = start();
    w.grdSearchList->setRow(1);
    const QString pdf = box.filePath("printed.pdf");
    QTimer::singleShot(0, [&] {
        QWidget *dialog = QApplication::activeModalWidget();
        ASSERT_NE(dialog, nullptr);
        // The names of the dialog's own controls.
        QComboBox *printers = dialog->findChild<QComboBox *>("printers");
        printers->setCurrentIndex(printers->count() - 1);
        dialog->findChild<QLineEdit *>("filename")->setText(pdf);
        QMetaObject::invokeMethod(dialog, "accept");
    });
    w.mnuCtxPrintFile_Click();
    EXPECT_EQ(probePdf(pdf).size(), 2u);
}

TEST_F(MainWindow, PlaceIsStoredOnlyOnceReadyAndRestoredAtTheNextStart)
{
    frmMain &w = start();
    w.show();
    w.resize(900, 600);
    QTest::qWait(400); // longer than the pause that ends a move
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

    context->settings().setLastWindowLeft(100000);
    frmMain &lost = start();
    EXPECT_TRUE(lost.screen()->availableGeometry().contains(lost.geometry().topLeft()))
        << "a place on no screen is not restored";
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

TEST_F(MainWindow, AFirstStartSearchesTheHomeFolderNotTheWholeSystem)
{
    AppContext earlier(ui);
    ASSERT_TRUE(EnsureFileStoragePath(earlier));
    ASSERT_TRUE(QFile::remove(earlier.FileStoragePath + "/Settings/settings.ini"));
    file("a.tif");
    frmMain &w = start();
    EXPECT_EQ(context->settings().StartupFolder(), box.path());
    EXPECT_EQ(w.selectedFolder(), box.path());
    EXPECT_TRUE(names(w).contains("a.tif")) << "the home folder's files were searched";
}

TEST_F(MainWindow, PanesKeepTheirSizeThroughASearchAndFitTheWindowAtItsMinimum)
{
    file("a.tif"); // the search lets events through after each file, with the grid hidden
    frmMain &w = start();
    w.show();
    QCoreApplication::processEvents();
    const int width = w.paneSearchList->width();
    w.cmdSearch_Click();
    QCoreApplication::processEvents();
    EXPECT_EQ(w.paneSearchList->width(), width) << "the list gave its width away";

    w.resize(1, 1);
    QCoreApplication::processEvents();
    const QTabBar *tabs = w.findChild<QTabBar *>();
    ASSERT_TRUE(tabs);
    const QRect button(w.cmdCloneDir->mapTo(&w, QPoint()), w.cmdCloneDir->size());
    EXPECT_LT(button.bottom(), tabs->mapTo(&w, QPoint()).y()) << "a button covers the tabs";
}

TEST_F(MainWindowUnderX11, ThePlaceComesBackAsItWasStored)
{
    if (!underWindowManager())
        GTEST_SKIP() << "needs Xvfb and openbox";
    frmMain &w = restart(2);
    ASSERT_TRUE(QTest::qWaitFor([&] { return w.geometry() == stored; }));
    // Moved somewhere else, by the window manager, it is stored where it went.
    const QRect moved = stored.translated(40, 30);
    w.setGeometry(moved);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return w.geometry() == moved && w.frameGeometry() != moved; })); // and framed
    w.close();
    EXPECT_EQ(context->settings().LastWindowLeft(), moved.x() * 15);
    EXPECT_EQ(context->settings().LastWindowTop(), moved.y() * 15) << "the title bar's height";
}

TEST_F(MainWindowUnderX11, AMinimumStartMinimisesAndStoresNothing)
{
    if (!underWindowManager())
        GTEST_SKIP() << "needs Xvfb and openbox";
    frmMain &w = restart(1);
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return xProperty(w.winId(), "WM_STATE").contains("Iconic"); }));
    QTest::qWait(500); // longer than the pause that ends a move
    EXPECT_EQ(context->settings().LastWindowTop(), stored.y() * 15);
}
