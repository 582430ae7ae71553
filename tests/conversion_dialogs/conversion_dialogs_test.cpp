// The conversion commands driven from the main window, through their real dialogs, with
// every message box answered by the recorder.
#include "conversion_dialogs/frm_con_image_to_pdf.h"
#include "conversion_dialogs/frm_error_report_dialog.h"
#include "conversion_dialogs/frm_rename_files.h"
#include "conversion_dialogs/frm_set_order_m_con_tiff.h"
#include "folder_job/dialog/frm_clone_directory.h"
#include "main_window/frm_main.h"

#include "engine/ap_img_to_pdf.h"
#include "engine/image_to_pdf_library.h"
#include "widgets/flex_grid.h"

#include "modal_script.h"
#include "pdf_probe.h"
#include "sample_images.h"
#include "test_context.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QFont>
#include <QGuiApplication>
#include <QLineEdit>
#include <QPainter>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTest>
#include <QTextDocument>
#include <QTextEdit>

using namespace pw;

namespace {

const QString NoFolderQuestion = "There is no output folder selected so application will store "
                                 "files in source file folder.\nDo you want to continue without "
                                 "output folder?";
const QString Converted = "Successfully Converted all file(s).";
const QString Merged = "Successfully Converted tiff files to pdf.";

// The names in a dialog's file list, top to bottom.
QStringList listed(const QDialog &dialog)
{
    const FlexGrid *grid = dialog.findChild<FlexGrid *>();
    QStringList names;
    for (int row = 1; row < grid->Rows(); ++row)
        names << grid->TextMatrix(row, grid->ColIndex("Name"));
    return names;
}

// The highest value `bar` shows from now on.
std::shared_ptr<int> highest(QProgressBar *bar)
{
    auto top = std::make_shared<int>(0);
    QObject::connect(bar, &QProgressBar::valueChanged, [top](int v) { *top = std::max(*top, v); });
    return top;
}

class Conversions : public ::testing::Test {
protected:
    void SetUp() override
    {
        t.context.settings().setStartupFolder(disk);
        t.context.settings().setWindowStateFlag(0);
    }
    // The main window after its first search, over `disk`.
    frmMain &window()
    {
        w = std::make_unique<frmMain>(t.context);
        w->Form_Load();
        return *w;
    }
    // An image `width` points wide (72 dpi), in the format its extension names.
    QString image(const QString &relative, int width = 40)
    {
        QImage picture = colourPattern(width, 30);
        picture.setDotsPerMeterX(2835);
        picture.setDotsPerMeterY(2835);
        const QString path =
            box.mkdir("disk/" + QFileInfo(relative).path()) + "/" + QFileInfo(relative).fileName();
        EXPECT_TRUE(picture.save(path));
        return path;
    }
    // Checks exactly the rows named.
    void tick(const QStringList &names)
    {
        const ColumnIndices &columns = w->catalogue().columns();
        for (int row = 1; row < w->grdSearchList->Rows(); ++row)
            w->grdSearchList->setCellChecked(
                row, columns.selection,
                names.contains(w->grdSearchList->TextMatrix(row, columns.name)));
    }
    // The prompts of the boxes shown since the last call; none may appear under the busy
    // cursor of a run.
    QStringList boxes()
    {
        QStringList prompts;
        for (const RecordingUi::Box &shown : t.ui.boxes) {
            EXPECT_FALSE(shown.busy) << shown.prompt.toStdString();
            prompts << shown.prompt;
        }
        t.ui.boxes.clear();
        return prompts;
    }

    SandboxDir box;
    TestContext t{box};
    QString disk = box.mkdir("disk");
    QString out = box.mkdir("out");
    ModalScript script;
    std::unique_ptr<frmMain> w;
};

} // namespace

TEST_F(Conversions, TheTwoCommandsChooseTheirRowsDifferently)
{
    // Pages hidden during the search: only the count before the copy can find the damage.
    t.context.settings().setColumnVisibility("1,1,0,1,1,1,1,1");
    writeTiff(disk + "/a.tif", {});
    WriteQpdfPdf(disk + "/b.pdf", 1);
    box.write("disk/c.tif", "II*\0broken");
    image("d.png");
    box.mkdir("disk/empty/none");
    window();
    // A search that finds the PDF too; the pattern box then goes back to "Image files".
    w->cboFilterPattern->setEditText("*.tif,*.pdf,*.png");
    w->cmdSearch->click();
    const QString selectFiles = "Please Select Files.";
    const QString imagesOnly = "Please select image files only.";
    const QString twoOrMore = "Please select two or more Files.";
    const QString damaged =
        "You have selected damaged or corrupted file(s). Please de-select file(s)";
    const struct {
        bool merge;
        QStringList ticked;
        QString filter; // typed into the pattern box; "" keeps "Image files"
        QString message;
        QStringList listed;
    } cases[] = {
        {false, {}, "", imagesOnly, {}},
        {true, {}, "", twoOrMore, {}},
        {false, {"a.tif"}, "", "", {"a.tif"}},
        {true, {"a.tif"}, "", twoOrMore, {}},
        {false, {"b.pdf"}, "", imagesOnly, {}},
        {false, {"a.tif", "b.pdf", "c.tif"}, "", "", {"a.tif", "c.tif"}},
        {true, {"a.tif", "b.pdf"}, "", "", {"a.tif", "b.pdf"}},
        {true, {"a.tif", "b.pdf", "c.tif", "d.png"}, "", damaged, {}},
        {false, {"a.tif", "d.png"}, "*.png", "", {"d.png"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.ticked.join(",").toStdString() + (c.merge ? " merge" : " image"));
        tick(c.ticked);
        if (c.filter.isEmpty())
            w->cboFilterPattern->setCurrentIndex(0);
        else
            w->cboFilterPattern->setEditText(c.filter);
        if (!c.listed.isEmpty())
            script.then<QDialog>([&](QDialog &dialog) {
                EXPECT_EQ(listed(dialog), c.listed);
                const FlexGrid *list = dialog.findChild<FlexGrid *>();
                EXPECT_TRUE(list->TextMatrix(1, list->ColIndex("Pages")).isEmpty());
                EXPECT_TRUE(list->ColHidden(list->ColIndex("Selection")));
                EXPECT_EQ(list->ColHidden(list->ColIndex("Modified Date")), !c.merge);
            });
        (c.merge ? w->cmdConverttiffToPdf : w->cmdConImageToPdf)->click();
        EXPECT_EQ(boxes(), c.message.isEmpty() ? QStringList() : QStringList{c.message});
    }
    w->setTreeFolder(disk + "/empty");
    w->cmdConImageToPdf->click();
    w->cmdConverttiffToPdf->click();
    EXPECT_EQ(boxes(), QStringList({selectFiles, selectFiles}));
}

TEST_F(Conversions, ImageToPdfWithoutFolderWritesToTheFirstFilesFolderAndRunsAgain)
{
    image("one/p.png");
    image("two/q.jpg");
    box.mkdir("disk/three");
    writeTiff(disk + "/three/r.tif", {});
    window();
    tick({"p.png", "q.jpg", "r.tif"});
    const QStringList pdfs = {disk + "/one/p.pdf", disk + "/one/q.pdf", disk + "/one/r.pdf"};
    script.then<frmConImageToPdf>([&](frmConImageToPdf &d) {
        const struct {
            QCheckBox *check;
            const char *caption;
            QComboBox *names;
            const char *items;
        } rows[] = {
            {d.chkEncodColor, "Color I&mage Files", d.cboEncodTrueColor, "Lzw,Zip,Packbits,Jpeg"},
            {d.chkEncodGraycale, "&Graycale Image files", d.cboEncodGraycale,
             "Lzw,Zip,Packbits,Jpeg"},
            {d.chkEncodBW, "Black and &Whilt Image Files", d.cboEncodBW,
             "Lzw,Zip,CCITT-G3,CCITT-G4"},
        };
        for (const auto &row : rows) {
            EXPECT_EQ(row.check->text(), row.caption);
            EXPECT_FALSE(row.check->isChecked() || row.names->isEnabled());
            QStringList items;
            for (int i = 0; i < row.names->count(); ++i)
                items << row.names->itemText(i);
            EXPECT_EQ(items.join(","), row.items);
            EXPECT_EQ(row.names->currentText(), items.value(3));
        }
        QTest::mouseClick(d.chkEncodBW, Qt::LeftButton);
        EXPECT_TRUE(d.cboEncodBW->isEnabled());
        QTest::mouseClick(d.chkEncodBW, Qt::LeftButton);
        EXPECT_FALSE(d.cboEncodBW->isEnabled());

        const auto top = highest(d.ProgressBar1);
        d.txtOutputFolder->setText("  "); // blanks count as no folder
        d.cmdBrowseFolder->click();       // cancelled: the text stays
        d.ChkDefaultPathConImgTiff->setChecked(true);
        d.ChkOpenFolderConImgTiff->setChecked(true);
        d.cmdConvert->click();
        EXPECT_EQ(d.txtOutputFolder->text(), disk + "/one");
        EXPECT_EQ(*top, 3);
        EXPECT_EQ(t.context.settings().DefaultPathConImgTiff(), disk + "/one");
        EXPECT_TRUE(d.cmdConvert->isEnabled());
        EXPECT_EQ(d.ProgressBar1->value(), 0);

        // Every output exists now: nothing is written again, and the bar still runs through.
        for (const QString &pdf : pdfs) {
            EXPECT_TRUE(qpdfChecks(pdf)) << pdf.toStdString();
            QFile::resize(pdf, 10);
        }
        *top = 0;
        d.ChkOpenFolderConImgTiff->setChecked(false);
        d.cmdConvert->click();
        EXPECT_EQ(*top, 3);
        for (const QString &pdf : pdfs)
            EXPECT_EQ(QFileInfo(pdf).size(), 10);

        d.txtOutputFolder->setText(disk + "/missing");
        d.cmdConvert->click();
        EXPECT_TRUE(d.txtOutputFolder->hasFocus());
    });
    w->cmdConImageToPdf->click();
    EXPECT_EQ(boxes(), QStringList({NoFolderQuestion, Converted, Converted,
                                    "Please enter Valid folder Name"}));
    EXPECT_EQ(t.ui.shell, QStringList({"Explore " + disk + "/one"}));
    EXPECT_EQ(t.ui.prompts, QStringList({"Set Folder 3"}));
    // Closing stores a folder that was typed and never used.
    EXPECT_EQ(t.context.settings().DefaultPathConImgTiff(), disk + "/missing");
    EXPECT_EQ(t.context.settings().IsOpenFolderConImgTiff(), 0);
}

TEST_F(Conversions, ImageToPdfNamesReplacesRecompressesAndReportsTheFailedFile)
{
    writeTiff(disk + "/a.b.tif", {});
    const QString bad = box.write("disk/bad.jpg", "\xFF\xD8 damaged");
    image("x.jpg", 30);
    writeTiff(disk + "/x.tif", {.width = 64});
    window();
    tick({"a.b.tif", "bad.jpg", "x.jpg", "x.tif"});
    const QString saved = box.filePath("report.rtf");
    t.ui.saveAnswers = QStringList{saved, saved, "", saved};
    t.ui.answers = {vbNo, vbYes};
    const auto report = [&](frmErrorReportDialog &r) {
        EXPECT_EQ(r.windowTitle(), "Reporting Errors");
        EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr) << "over the report and its prompt";
        const QString equals(51, '='), dashes(51, '-');
        EXPECT_EQ(r.RtxtError->toPlainText(),
                  QStringList({equals, "Image To Pdf Converesion error", equals, dashes,
                               "Following file(s) couldn't Converted", dashes, "", bad, "", "", ""})
                      .join("\n"));
        r.AddError("{Second}", "C:\\ 100 %", QString::fromUtf8("d\xC3\xA9j\xC3\xA0 \xE2\x82\xAC"));
        r.cmdSave->click(); // writes
        r.cmdSave->click(); // asks: No, then the prompt is cancelled
        r.cmdSave->click(); // asks: Yes
        EXPECT_TRUE(r.isVisible());
        QProcess unrtf;
        unrtf.start("unrtf", {"--html", saved});
        if (!unrtf.waitForFinished())
            return; // unrtf is not installed: the round trip is not checked here
        QTextDocument read;
        read.setHtml(QString::fromUtf8(unrtf.readAllStandardOutput()));
        EXPECT_EQ(read.toPlainText().trimmed(), r.RtxtError->toPlainText().trimmed());
    };
    script.then<frmConImageToPdf>([&](frmConImageToPdf &d) {
        script.then<frmErrorReportDialog>(report);
        script.then<frmErrorReportDialog>([](frmErrorReportDialog &) {});
        d.txtOutputFolder->setText(out);
        d.cmdConvert->click();
        EXPECT_EQ(pageWidths(out + "/x.pdf"), QList<int>({30})) << "x.tif was skipped";
        EXPECT_EQ(firstImageFilter(out + "/a.b.pdf"), "/FlateDecode");
        d.chkReplace->setChecked(true);
        QTest::mouseClick(d.chkEncodColor, Qt::LeftButton);
        d.cmdConvert->click();
        EXPECT_EQ(pageWidths(out + "/x.pdf"), QList<int>({64})) << "x.tif replaced x.jpg's";
        EXPECT_EQ(firstImageFilter(out + "/a.b.pdf"), "/DCTDecode");
    });
    w->cmdConImageToPdf->click();
    EXPECT_EQ(QDir(out).entryList(QDir::Files), QStringList({"a.b.pdf", "x.pdf"}));
    for (const QString &pdf : QDir(out).entryList(QDir::Files))
        EXPECT_TRUE(qpdfChecks(out + "/" + pdf)) << pdf.toStdString();
    EXPECT_EQ(t.ui.prompts, QStringList(4, "Save File Rich Text Files (*.rtf)|*.rtf 1"));
    EXPECT_EQ(boxes(), QStringList(2, saved + " already exists.\nDo you want to replace it?"));
}

// Preferences' "Make PDFs searchable (OCR)" reaches each of the window's conversions: its PDF
// of a page with known words reads back as those words, and as nothing with the setting off.
TEST_F(Conversions, EveryConversionHonoursTheSearchablePdfSetting)
{
    const auto guard = qScopeGuard([&] {
        t.context.settings().setIsSearchablePdf(0);
        ApplySearchablePdfSetting(t.context.settings());
    });
    t.context.settings().setIsSearchablePdf(1);
    t.context.settings().setOcrLanguage("eng");
    if (!ApplySearchablePdfSetting(t.context.settings()).isEmpty() ||
        QStandardPaths::findExecutable("pdftotext").isEmpty())
        GTEST_SKIP() << "no English text recognition data or no pdftotext";
    // A merge needs two files: the second page is blank, so the words are the first page's.
    for (const QString &words : {QString("Searchable dialogs"), QString()}) {
        QImage page(900, 200, QImage::Format_Grayscale8);
        page.fill(255);
        page.setDotsPerMeterX(11811); // 300 dpi
        page.setDotsPerMeterY(11811);
        QPainter painter(&page);
        QFont font("DejaVu Sans");
        font.setPixelSize(70);
        painter.setFont(font);
        painter.drawText(40, 130, words);
        painter.end();
        ASSERT_TRUE(page.save(disk + (words.isEmpty() ? "/blank.png" : "/words.png")));
    }
    window();
    tick({"words.png", "blank.png"});
    const struct {
        const char *dialog;
        QString pdf;                              // under the output folder
        std::function<void(const QString &)> run; // into an output folder
    } cases[] = {
        {"Image to PDF", "words.pdf",
         [&](const QString &folder) {
             script.then<frmConImageToPdf>([folder](frmConImageToPdf &d) {
                 d.txtOutputFolder->setText(folder);
                 d.cmdConvert->click();
             });
             w->cmdConImageToPdf->click();
         }},
        {"Merge", "joined.pdf",
         [&](const QString &folder) {
             script.then<frmSetOrder_MConTiff>([folder](frmSetOrder_MConTiff &d) {
                 d.txtmanualfilename->setText("joined");
                 d.txtOutputFolder->setText(folder);
                 d.cmdOK->click();
             });
             w->cmdConverttiffToPdf->click();
         }},
        {"Folder Conversion", "disk/words.pdf",
         [&](const QString &folder) {
             script.then<frmCloneDirectory>([folder](frmCloneDirectory &d) {
                 settle(d);
                 d.txtoutputFld->setText(folder);
                 d.cmdOk->click();
             });
             w->cmdCloneDir->click();
         }},
    };
    for (const auto &c : cases)
        for (const bool searchable : {true, false}) {
            SCOPED_TRACE(std::string(c.dialog) + (searchable ? " searchable" : " plain"));
            t.context.settings().setIsSearchablePdf(searchable ? 1 : 0);
            ASSERT_TRUE(ApplySearchablePdfSetting(t.context.settings()).isEmpty());
            const QString folder =
                box.mkdir(QString("out/%1-%2").arg(c.dialog).arg(searchable ? "on" : "off"));
            c.run(folder);
            const QString pdf = folder + "/" + c.pdf;
            ASSERT_TRUE(qpdfChecks(pdf));
            QProcess text;
            text.start("pdftotext", {pdf, "-"});
            ASSERT_TRUE(text.waitForFinished(-1));
            EXPECT_EQ(QString::fromUtf8(text.readAllStandardOutput()).simplified(),
                      QString(searchable ? "Searchable dialogs" : ""));
        }
}

TEST_F(Conversions, ImageToPdfEndsARunSilentlyOnANameWithoutDot)
{
    image("README.png");
    QFile::rename(disk + "/README.png", disk + "/README");
    window();
    w->cboFilterPattern->setEditText("READ*");
    w->cmdSearch->click();
    tick({"README"});
    script.then<frmConImageToPdf>([&](frmConImageToPdf &d) {
        d.txtOutputFolder->setText(out);
        d.cmdConvert->click();
        EXPECT_TRUE(d.cmdConvert->isEnabled());
    });
    w->cmdConImageToPdf->click();
    EXPECT_EQ(boxes(), QStringList());
    EXPECT_TRUE(QString(readFile(box.filePath("Errors.Log")))
                    .contains("in procedure cmdconvert_Click at Line No. "));
}

// Each file is converted with the choices the dialog shows when its turn comes, and closing the
// dialog ends the run after the file under way, also while later files convert ahead (one per
// core).
TEST_F(Conversions, ImageToPdfTakesChoicesFileByFileAndStopsWhenClosed)
{
    for (const char *name : {"c1.png", "c2.png", "c3.png", "c4.png"})
        image(name);
    window();
    tick({"c1.png", "c2.png", "c3.png", "c4.png"});
    script.then<frmConImageToPdf>([&](frmConImageToPdf &d) {
        QObject::connect(d.ProgressBar1, &QProgressBar::valueChanged, &d, [&d](int done) {
            if (done == 1)
                QTest::mouseClick(d.chkEncodColor, Qt::LeftButton);
            if (done == 2)
                d.close();
        });
        d.txtOutputFolder->setText(out);
        // What a killed run had converted ahead of its turn.
        box.write("out/.c9.pdf.pw-Ab12Cd", "%PDF-");
        d.cmdConvert->click();
        EXPECT_TRUE(d.cmdConvert->isEnabled());
    });
    w->cmdConImageToPdf->click();
    // Nothing of the files converted ahead of their turn is left, hidden or not, by this run
    // or a killed one.
    EXPECT_EQ(QDir(out).entryList(QDir::Files | QDir::Hidden), QStringList({"c1.pdf", "c2.pdf"}));
    EXPECT_EQ(firstImageFilter(out + "/c1.pdf"), "/FlateDecode");
    EXPECT_EQ(firstImageFilter(out + "/c2.pdf"), "/DCTDecode");
    EXPECT_EQ(boxes(), QStringList());
}

TEST_F(Conversions, MergeTakesTheGridsOrderNamesItsFileAndAsksBeforeReplacing)
{
    for (const int width : {40, 50, 60, 70})
        image(QString("m%1.png").arg(width), width);
    box.write("disk/m99.png", "\x89PNG damaged");
    window();
    tick({"m40.png", "m50.png", "m60.png", "m70.png"});
    t.ui.answers = {vbNo};
    script.then<frmSetOrder_MConTiff>([&](frmSetOrder_MConTiff &d) {
        EXPECT_EQ(d.windowTitle(), "Set File Order");
        d.vsFilesSetOrder->Select(1, 0, 3, 0);
        d.cmdDown->click();
        d.cmdDown->click(); // the block already ends at the last row
        EXPECT_EQ(listed(d), QStringList({"m70.png", "m40.png", "m50.png", "m60.png"}));
        d.cmdUp->click();
        d.cmdUp->click(); // the current row is row 1
        EXPECT_EQ(listed(d), QStringList({"m40.png", "m50.png", "m60.png", "m70.png"}));
        QWidget *cells = d.vsFilesSetOrder->viewport();
        const auto at = [&](int row) {
            return d.vsFilesSetOrder->visualRect(d.vsFilesSetOrder->model()->index(row - 1, 0))
                .center();
        };
        int first, col1, last, col2;
        // A click inside the block, with no move, selects the clicked row alone.
        d.vsFilesSetOrder->Select(1, 0, 3, 0);
        QTest::mouseClick(cells, Qt::LeftButton, {}, at(2));
        d.vsFilesSetOrder->GetSelection(first, col1, last, col2);
        EXPECT_EQ(QList<int>({first, last}), QList<int>({2, 2}));
        // Rows 3 and 4 dragged by their second row to the top.
        d.vsFilesSetOrder->Select(3, 0, 4, 0);
        QTest::mousePress(cells, Qt::LeftButton, {}, at(4));
        QTest::mouseMove(cells, at(2));
        QTest::mouseRelease(cells, Qt::LeftButton, {}, at(2));
        EXPECT_EQ(listed(d), QStringList({"m60.png", "m70.png", "m40.png", "m50.png"}));
        d.vsFilesSetOrder->GetSelection(first, col1, last, col2);
        EXPECT_EQ(QList<int>({first, last}), QList<int>({1, 2}));

        d.cmdOK->click();
        QTest::keyClicks(d.txtmanualfilename, "re|po\\r/t*:?\"<>.tif");
        EXPECT_EQ(d.txtmanualfilename->text(), "report.tif");
        EXPECT_EQ(d.txtmanualfilename->toolTip(),
                  "A filename can not contain any of the following character.\\n \\/*:''<>|");
        d.cmdOK->click();
        d.txtOutputFolder->setText(out + "/missing");
        d.cmdOK->click();
        t.ui.folderAnswer = out;
        d.cmdBrowse->click();
        QFile::copy(disk + "/m40.png", out + "/report.pdf");
        d.cmdOK->click(); // No: nothing happens
        EXPECT_TRUE(d.isVisible());
        d.ChkOpenFileMConvToPDF->setChecked(true);
        d.ChkDefaultPathMConvToPDF->setChecked(true);
        const auto top = highest(d.ProgressBar1);
        d.cmdOK->click(); // Yes
        EXPECT_FALSE(d.isVisible()) << "the dialog closes itself after a run";
        EXPECT_EQ(*top, 4) << "the bar counts the files merged";
    });
    w->cmdConverttiffToPdf->click();
    EXPECT_EQ(boxes(), QStringList({"Please provide valid file name.", "Invalid Output Folder Path",
                                    "Please enter Valid folder Name",
                                    out + "/report.pdf Already exists. Do you Wants to Replace it?",
                                    out + "/report.pdf Already exists. Do you Wants to Replace it?",
                                    Merged}));
    EXPECT_EQ(pageWidths(out + "/report.pdf"), QList<int>({60, 70, 40, 50}));
    EXPECT_TRUE(qpdfChecks(out + "/report.pdf"));
    EXPECT_EQ(t.ui.shell, QStringList({"Open " + out + "/report.pdf"}));
    EXPECT_EQ(t.ui.prompts, QStringList({"Set Folder 0"}));
    EXPECT_EQ(t.context.settings().DefaultPathMConvToPDF(), out);

    // The typed extension always goes; a name of only a dot leaves the extension alone.
    // A file the merge cannot read fails it as a whole, and the dialog closes all the same.
    const struct {
        QString typed, written;
        bool damaged;
    } runs[] = {{"a.b", "a.pdf", false}, {".", ".pdf", false}, {"c", "c.pdf", true}};
    for (const auto &run : runs) {
        tick({"m40.png", "m50.png", "m60.png", "m70.png", run.damaged ? "m99.png" : ""});
        script.then<frmSetOrder_MConTiff>([&](frmSetOrder_MConTiff &d) {
            EXPECT_EQ(d.txtOutputFolder->text(), out) << "the stored default folder";
            d.txtmanualfilename->setText(run.typed);
            d.cmdOK->click();
        });
        w->cmdConverttiffToPdf->click();
        EXPECT_EQ(boxes(), QStringList(run.damaged ? "Error: in Converting files" : Merged));
        EXPECT_EQ(pageWidths(out + "/" + run.written),
                  run.damaged ? QList<int>() : QList<int>({40, 50, 60, 70}));
        EXPECT_TRUE(run.damaged || qpdfChecks(out + "/" + run.written));
    }
}

// Enter in a text box presses the dialog's action, whichever button comes first in the dialog:
// it neither moves the merge's rows nor opens the folder prompt.
TEST_F(Conversions, EnterInATextBoxRunsTheDialogsAction)
{
    for (const char *name : {"e1.png", "e2.png", "e3.png"})
        image(name);
    window();
    tick({"e1.png", "e2.png", "e3.png"});
    const QStringList order = {"e1.png", "e2.png", "e3.png"};
    script.then<frmSetOrder_MConTiff>([&](frmSetOrder_MConTiff &d) {
        d.vsFilesSetOrder->Select(2, 0, 3, 0);
        QTest::keyClicks(d.txtmanualfilename, "joined");
        QTest::keyClick(d.txtmanualfilename, Qt::Key_Return);
        EXPECT_EQ(listed(d), order);
        d.txtOutputFolder->setText(out);
        QTest::keyClick(d.txtOutputFolder, Qt::Key_Enter);
    });
    w->cmdConverttiffToPdf->click();
    script.then<frmConImageToPdf>([&](frmConImageToPdf &d) {
        QTest::keyClicks(d.txtOutputFolder, out + "/missing");
        QTest::keyClick(d.txtOutputFolder, Qt::Key_Return);
    });
    w->cmdConImageToPdf->click();
    EXPECT_EQ(boxes(), QStringList({"Invalid Output Folder Path", Merged,
                                    "Please enter Valid folder Name"}));
    EXPECT_EQ(pageWidths(out + "/joined.pdf"), QList<int>({40, 40, 40}));
    EXPECT_TRUE(t.ui.prompts.isEmpty()) << "a folder prompt opened";
}

// A merge cannot be stopped: the dialog stays up, busy, until it ends and then closes itself.
TEST_F(Conversions, AMergeKeepsItsDialogUpUntilItEnds)
{
    for (const char *name : {"k1.png", "k2.png"})
        image(name);
    window();
    tick({"k1.png", "k2.png"});
    int turns = 0;
    script.then<frmSetOrder_MConTiff>([&](frmSetOrder_MConTiff &d) {
        t.ui.onDoEvents = [&] {
            ++turns;
            EXPECT_NE(QGuiApplication::overrideCursor(), nullptr);
            EXPECT_TRUE(d.cmdCancel->isEnabled());
            d.cmdCancel->click();
            QTest::keyClick(&d, Qt::Key_Escape);
            d.close();
            EXPECT_TRUE(d.isVisible()) << "closed in mid-merge";
            EXPECT_FALSE(d.cmdCancel->toolTip().isEmpty());
        };
        d.txtmanualfilename->setText("kept");
        d.txtOutputFolder->setText(out);
        d.cmdOK->click();
        t.ui.onDoEvents = nullptr;
        EXPECT_FALSE(d.isVisible());
    });
    w->cmdConverttiffToPdf->click();
    EXPECT_GT(turns, 0);
    EXPECT_EQ(boxes(), QStringList{Merged});
    EXPECT_EQ(pageWidths(out + "/kept.pdf"), QList<int>({40, 40}));
    EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
}

TEST_F(Conversions, RenameWindowFiltersKeysPreviewsInRedAndReportsWhatItLeft)
{
    for (const char *name : {"a.tif", "b.tif", "04-b.tif"})
        box.write(QString("disk/") + name, "x");
    frmRenameFiles rename(t.context);
    for (const char *name : {"a.tif", "b.tif", "gone.tif"}) {
        clsColSetOrderGrid row;
        row.setFilename(name);
        row.setFileLocation(disk);
        row.setPageCount(4);
        rename.colSelectedData.push_back(row);
    }
    rename.show();
    EXPECT_EQ(listed(rename), (QStringList{"a.tif", "b.tif", "gone.tif"}));

    QTest::keyClicks(rename.txtPaddingMask, "0a0-");
    QTest::keyClicks(rename.txtCharPos, "012");
    QTest::keyClicks(rename.txtSepPrefix, "*:-");
    EXPECT_EQ(rename.txtPaddingMask->text(), "00");
    EXPECT_EQ(rename.txtCharPos->text(), "12");
    EXPECT_EQ(rename.txtSepPrefix->text(), "-");
    rename.OptPreAsPageCnt->click();
    EXPECT_TRUE(rename.txtSepPrefix->isEnabled());
    EXPECT_FALSE(rename.txtSepSuffix->isEnabled());
    EXPECT_FALSE(rename.chkPrefix->isEnabled());

    // Apply without a preview is refused.
    rename.cmdOk->click();
    EXPECT_EQ(boxes(), QStringList{"Some files have bade names."});
    const QString previous = QDir::currentPath();
    QDir::setCurrent(disk);
    rename.cmdPreview->click();
    QDir::setCurrent(previous);
    FlexGridModel &grid = *rename.vsFilesSetOrder->gridModel();
    const int newName = grid.cols() - 1;
    EXPECT_EQ(grid.text(1, newName), "04-a.tif");
    EXPECT_EQ(grid.foreColor(2, newName), RenameList::ExistsColor);
    if (const QString shots = qEnvironmentVariable("PAGEWRIGHT_SCREENSHOTS"); !shots.isEmpty())
        rename.grab().save(shots + "/rename_preview.png");

    script.then<frmErrorReportDialog>([&](frmErrorReportDialog &report) {
        const QString text = report.RtxtError->toPlainText();
        EXPECT_TRUE(text.contains("RENAMING FILES"));
        EXPECT_TRUE(text.contains("FOLLOWING SOURCE FILES NOT FOUND"));
        EXPECT_TRUE(text.contains("FOLLOWING FILES ALREADY EXISTS"));
        EXPECT_FALSE(text.contains("FOLLOWING FILES GET ERROR WHILE RENAMING"));
    });
    rename.cmdOk->click();
    EXPECT_TRUE(QFileInfo::exists(disk + "/04-a.tif"));
    EXPECT_TRUE(rename.cmdOk->isEnabled());
}
