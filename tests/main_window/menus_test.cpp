// The Edit and Help menus driven from the main window through their real dialogs, with
// every message box answered by the recorder.
#include "main_window/dlg_save.h"
#include "main_window/folder_tree_model.h"
#include "main_window/frm_about.h"
#include "main_window/frm_main.h"
#include "main_window/frm_preferences.h"

#include "backends/image_to_pdf/page_layout.h"
#include "core/failure_log.h"
#include "engine/image_to_pdf_library.h"
#include "widgets/flex_grid.h"

#include "modal_script.h"
#include "test_context.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <QTreeView>

using namespace pw;

namespace {

class Menus : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const char *name : {"a.tif", "b.png", "c.jpg", "d.gif", "e.bmp"})
            box.write(QString("disk/") + name, "x");
        t.context.settings().setStartupFolder(disk);
        t.context.settings().setWindowStateFlag(0);
    }
    frmMain &start()
    {
        w = std::make_unique<frmMain>(t.context);
        w->Form_Load();
        return *w;
    }
    QStringList headers() const
    {
        QStringList shown;
        for (int col = 0; col < w->grdSearchList->Cols(); ++col)
            if (!w->grdSearchList->ColHidden(col))
                shown << w->grdSearchList->TextMatrix(0, col);
        return shown;
    }
    QStringList boxes()
    {
        QStringList prompts;
        for (const RecordingUi::Box &shown : t.ui.boxes)
            prompts << shown.prompt;
        t.ui.boxes.clear();
        return prompts;
    }
    // Exports through the dialog into `folder` as `name`, typed `type`, after `adjust`.
    void exportAs(const QString &folder, const QString &name, int type,
                  const std::function<void(dlgSave &)> &adjust = {})
    {
        script.then<dlgSave>([&](dlgSave &d) {
            auto *tree = static_cast<FolderTreeModel *>(d.ftvFolder->model());
            d.ftvFolder->setCurrentIndex(tree->indexForPath(folder));
            d.txtFileName->setText(name);
            d.cboFileType->setCurrentIndex(type);
            if (adjust)
                adjust(d);
            d.cmdSave->click();
        });
        w->cmdExport->click();
    }

    SandboxDir box;
    TestContext t{box};
    QString disk = box.mkdir("disk");
    QString out = box.mkdir("out");
    ModalScript script;
    std::unique_ptr<frmMain> w;
};

enum FileType { Txt = 0, Xls = 1, Csv = 2, Doc = 3 };

} // namespace

TEST_F(Menus, ExportWritesTheCheckedRowsInTheShownColumnsAsTheTypeAsks)
{
    EXPECT_EQ(DefaultExportName(QDate(2026, 2, 3)), "2026_02_03_Data");
    t.context.settings().setColumnVisibility("1,1,0,1,1,1,1,1"); // "Pages" hidden
    start();
    w->cmdExport->click();
    EXPECT_EQ(boxes(), QStringList{"No files selected"});
    const ColumnIndices &columns = w->catalogue().columns();
    w->grdSearchList->setCellChecked(3, columns.selection, 1);
    QStringList row3;
    for (const QString &header : headers())
        if (header != "Selection")
            row3 << w->grdSearchList->TextMatrix(3, w->grdSearchList->ColIndex(header));
    QStringList header = headers();
    header.removeAll("Selection");
    const auto expected = [&](const QString &sep) {
        return (header.join(sep) + "\r\n" + row3.join(sep) + "\r\n").toUtf8();
    };

    exportAs(out, "list", Csv, [](dlgSave &d) { EXPECT_TRUE(d.txtColSaperator->isHidden()); });
    EXPECT_EQ(readFile(out + "/list.csv"), expected("\t"));
    EXPECT_FALSE(header.contains("Pages"));
    EXPECT_EQ(boxes(), QStringList{out + "/list.csvExported successfully"});
    exportAs(out, "semi", Txt, [](dlgSave &d) { d.txtColSaperator->setText(";"); });
    EXPECT_EQ(readFile(out + "/semi.txt"), expected(";"));
    exportAs(out, "switched", Txt, [](dlgSave &d) {
        d.txtColSaperator->setText(";");
        d.cboFileType->setCurrentIndex(Csv);
    });
    EXPECT_EQ(readFile(out + "/switched.csv"), expected("\t"));
    // A name with another type's extension keeps it; an existing file is replaced unasked.
    box.write("out/a.doc.txt", "old");
    exportAs(out, "a.doc", Txt);
    EXPECT_EQ(readFile(out + "/a.doc.txt"), expected(","));
    exportAs(out, "b.doc", Doc);
    EXPECT_TRUE(QFile::exists(out + "/b.doc"));
    EXPECT_EQ(boxes().size(), 4);

    // Cancel writes nothing but keeps the open-after-export box; the temporary copy is gone.
    script.then<dlgSave>([](dlgSave &d) {
        d.ChkOpenFile->setChecked(true);
        d.cmdCancel->click();
    });
    w->cmdExport->click();
    EXPECT_EQ(t.context.settings().IsOpenFileAfterExport(), 1);
    exportAs(out, "opened", Xls);
    EXPECT_EQ(t.ui.shell, QStringList{"open " + out + "/opened.xls"});
    EXPECT_TRUE(boxes().isEmpty());
    EXPECT_FALSE(QFile::exists(box.filePath("Temp.xls")));

    // A folder that refuses the file: no box, the failure is in the log.
    const QString gone = box.mkdir("out/gone");
    exportAs(gone, "lost", Xls, [&](dlgSave &) { QDir(gone).removeRecursively(); });
    EXPECT_TRUE(boxes().isEmpty());
    const QByteArray log = readFile(box.filePath("Errors.Log"));
    EXPECT_TRUE(log.contains("cmdExport_Click") && log.contains("Type mismatch")) << log.data();
}

TEST_F(Menus, PreferencesTakeEffectAtOnceAndAtTheNextStart)
{
    start();
    const QStringList defaults = headers();
    script.then<frmPreferences>([](frmPreferences &d) {
        FlexGrid &grid = *d.vsColumnSettings;
        const int pages = grid.FindRow("Pages", 1, 1);
        grid.setRow(pages);
        d.cmdUp->click();
        EXPECT_EQ(grid.TextMatrix(pages - 1, 1), "Pages");
        EXPECT_EQ(grid.TextMatrix(pages - 1, 0), QString::number(pages - 1));
        grid.setCellChecked(grid.FindRow("Type", 1, 1), 2, 2);
        // The width is typed: the first key opens the cell's editor, Return commits it.
        grid.setRow(1);
        grid.setCol(3);
        QTest::keyClick(&grid, Qt::Key_2);
        QLineEdit *editor = grid.findChild<QLineEdit *>();
        ASSERT_NE(editor, nullptr);
        QTest::keyClicks(editor, "400");
        QTest::keyClick(editor, Qt::Key_Return);
        // The editor commits through a queued call.
        EXPECT_TRUE(QTest::qWaitFor([&] { return grid.TextMatrix(1, 3) == "2400"; }));
        d.chkDefaultWindowState->click();
        d.cmbDefaultWindowState->setCurrentIndex(0);
        d.cmdOK->click();
    });
    w->mnupreferances->trigger();
    QStringList moved = defaults;
    moved.removeAll("Type");
    moved.move(moved.indexOf("Pages"), defaults.indexOf("Pages") - 1);
    EXPECT_EQ(headers(), moved);
    EXPECT_EQ(w->grdSearchList->Rows(), 6) << "the startup folder was searched again";
    start();
    EXPECT_EQ(headers(), moved) << "after a restart";
    EXPECT_EQ(w->grdSearchList->ColWidth(0), 2400);
    EXPECT_TRUE(w->windowState() & Qt::WindowMaximized);

    // Set Default, then Cancel: the defaults stand and the catalogue shows them.
    script.then<frmPreferences>([](frmPreferences &d) {
        d.cmdSetDefault->click();
        d.cmdCancel->click();
    });
    w->mnupreferances->trigger();
    EXPECT_EQ(headers(), defaults);
}

// The page settings reach the library the windows convert with, at Save and at the next start.
TEST_F(Menus, PreferencesSetThePagesMadeFromImages)
{
    start();
    script.then<frmPreferences>([](frmPreferences &d) {
        EXPECT_EQ(d.cmbPageSize->currentText(), "As the image");
        d.cmbPageSize->setCurrentIndex(d.cmbPageSize->findText("Letter"));
        d.spnImageResolution->setValue(300);
        d.cmdOK->click();
    });
    w->mnupreferances->trigger();
    for (const char *when : {"at Save", "after a restart"}) {
        const i2p::PageLayout layout = i2p::pageLayout();
        EXPECT_EQ(std::tuple(layout.width, layout.height, layout.dpi), std::tuple(612, 792, 300))
            << when;
        i2p::setPageLayout({});
        start();
    }
    i2p::setPageLayout({});
}

// The language is checked on Save: one that is not installed keeps the dialog open, naming
// the package to install; an installed one makes every later PDF from images searchable.
TEST_F(Menus, PreferencesMakePdfsSearchableOnlyInAnInstalledLanguage)
{
    ImageToPdfLibrary &library = ImageToPdfLibrary::ours();
    if (!library.setOcrLanguage("eng").empty())
        GTEST_SKIP() << "no English text recognition data";
    library.setOcrLanguage("");
    start();
    script.then<frmPreferences>([&](frmPreferences &d) {
        EXPECT_FALSE(d.chkSearchablePdf->isChecked());
        EXPECT_EQ(d.txtOcrLanguage->text(), "eng");
        d.chkSearchablePdf->click();
        d.txtOcrLanguage->setText("qqq");
        d.cmdOK->click();
        const QStringList said = boxes();
        ASSERT_EQ(said.size(), 1);
        EXPECT_TRUE(said[0].contains("tesseract-ocr-qqq")) << said[0].toStdString();
        EXPECT_TRUE(d.isVisible());
        EXPECT_EQ(library.ocrLanguage(), "");
        d.txtOcrLanguage->setText(" eng ");
        d.cmdOK->click();
    });
    w->mnupreferances->trigger();
    EXPECT_TRUE(boxes().isEmpty());
    EXPECT_EQ(library.ocrLanguage(), "eng");
    EXPECT_EQ(t.context.settings().OcrLanguage(), "eng");
    script.then<frmPreferences>([](frmPreferences &d) {
        d.chkSearchablePdf->click();
        d.cmdOK->click();
    });
    w->mnupreferances->trigger();
    EXPECT_EQ(library.ocrLanguage(), "");
}

// After a click in "Visible" opened the grid to typing, the number and the name refuse it: a
// typed name would be saved as a column that does not exist.
TEST_F(Menus, PreferencesTakeTypingOnlyInVisibleAndWidth)
{
    start();
    const QString order = t.context.settings().ColumnReOrder();
    script.then<frmPreferences>([](frmPreferences &d) {
        FlexGrid &grid = *d.vsColumnSettings;
        const QModelIndex visible = grid.model()->index(0, 2);
        QTest::mouseClick(grid.viewport(), Qt::LeftButton, {}, grid.visualRect(visible).center());
        EXPECT_EQ(grid.cellChecked(1, 2), 2) << "the click unticked the first column";
        const struct {
            int col;
            bool takesTyping;
        } cells[] = {{0, false}, {1, false}, {3, true}};
        for (const auto &cell : cells) {
            const QString before = grid.TextMatrix(1, cell.col);
            grid.Select(1, cell.col); // a refused key may have searched its way to another row
            QTest::keyClick(&grid, Qt::Key_7);
            QLineEdit *editor = grid.findChild<QLineEdit *>();
            EXPECT_EQ(editor != nullptr, cell.takesTyping) << cell.col;
            if (!editor)
                continue;
            QTest::keyClick(editor, Qt::Key_Return);
            EXPECT_TRUE(QTest::qWaitFor([&] { return grid.TextMatrix(1, cell.col) == "7"; }))
                << before.toStdString();
        }
        d.cmdOK->click();
    });
    w->mnupreferances->trigger();
    EXPECT_EQ(t.context.settings().ColumnReOrder(), order);
    EXPECT_TRUE(t.context.settings().ColumnVisibility().startsWith("0,"));
    EXPECT_TRUE(t.context.settings().LastGridColWidth().startsWith("7,"));
}

TEST_F(Menus, HelpOpensTheGuideBesideTheProgramAndAboutShowsTheIconAnewEachTime)
{
    start();
    const QString guide = QCoreApplication::applicationDirPath() + "/help.html";
    QFile::remove(guide);
    w->mnuShowHelp->trigger();
    EXPECT_EQ(boxes(), QStringList{"Help Not Found."});
    EXPECT_TRUE(t.ui.shell.isEmpty());
    box.write("guide.html", "<html></html>");
    ASSERT_TRUE(QFile::copy(box.filePath("guide.html"), guide));
    w->mnuShowHelp->trigger();
    QFile::remove(guide);
    w->mnuWebsite->trigger();
    EXPECT_EQ(t.ui.shell, QStringList({"open " + guide, "open https://pagewright.example.org"}));

    for (int opening = 0; opening < 2; ++opening) {
        script.then<frmAbout>([](frmAbout &d) {
            EXPECT_EQ(d.windowTitle(), "About Pagewright 3.1");
            EXPECT_EQ(d.lblProductName->text(), "Pagewright 3.1");
            EXPECT_EQ(d.lblSupportEmail->text(), "Support at: support@pagewright.example.org");
            EXPECT_EQ(d.lblWebsite->text(), "Website:https://pagewright.example.org");
            // The program's own icon, large beside the name and small in the button row.
            for (const auto &[label, size] : {std::pair{d.Picture1, 64}, {d.Picture2, 24}}) {
                const QImage shown = label->pixmap().toImage();
                const QImage drawn(QString(":/icons/pagewright-%1.png").arg(size));
                EXPECT_EQ(shown.size(), drawn.size()) << size;
                EXPECT_EQ(shown.convertToFormat(QImage::Format_ARGB32).pixel(size / 2, size / 2),
                          drawn.convertToFormat(QImage::Format_ARGB32).pixel(size / 2, size / 2))
                    << size;
            }
            d.lblProductName->setText("changed");
            QMouseEvent release(QEvent::MouseButtonRelease, QPointF(1, 1), QPointF(1, 1),
                                Qt::LeftButton, Qt::NoButton, Qt::NoModifier);
            QCoreApplication::sendEvent(d.lblSupportEmail, &release);
            d.cmdQuit->click();
        });
        w->mnuAbout->trigger();
    }
    EXPECT_EQ(t.ui.shell.mid(2), QStringList(2, "open mailto:support@pagewright.example.org"
                                                "?subject=Pagewright 3.1"));
}
