#include "core/failure_log.h"
#include "core/progress.h"
#include "engine/ap_pdf_to_image.h"
#include "engine/page_batch.h"
#include "engine/tiff_pdf_commands.h"

#include "page_command.h"
#include "pdf_probe.h"
#include "recording_ui.h"
#include "sample_images.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <tiffio.h>

using namespace pw;

namespace {

// Records every library call as one line of text, and answers as told.
struct CallLog {
    QStringList calls;
    void add(const QString &call) { calls << call; }
};

class RecordingRenderer final : public PdfToImageLibrary {
public:
    explicit RecordingRenderer(CallLog &log) : log_(log) {}
    int32_t openResult = 1;

    int32_t apOpen(const std::string &path, const std::string &a, const std::string &b) override
    {
        log_.add(QString("open %1|%2|%3").arg(path.c_str(), a.c_str(), b.c_str()));
        return openResult;
    }
    int32_t apSetProperty(int32_t, int32_t property, const std::string &text, int32_t n1,
                          int32_t n2) override
    {
        log_.add(QString("set %1 %2 %3 %4").arg(property).arg(text.c_str()).arg(n1).arg(n2));
        return 0;
    }
    int32_t apConvertPage(int32_t, int32_t page) override
    {
        log_.add(QString("page %1").arg(page));
        return 0;
    }
    int32_t apClose(int32_t handle) override
    {
        log_.add(QString("close %1").arg(handle));
        return 0;
    }

private:
    CallLog &log_;
};

class RecordingPages final : public PdfPagesLibrary {
public:
    explicit RecordingPages(CallLog &log) : log_(log) {}
    int32_t mergeHandle = 4;

    int32_t apCreateMerge(const std::string &) override { return mergeHandle; }
    int32_t apOpenSplit(const std::string &) override { return 5; }
    int32_t apSetFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2,
                          const std::string &text1, const std::string &text2) override
    {
        log_.add(QString("fn %1 %2 %3 %4 %5|%6")
                     .arg(handle)
                     .arg(code)
                     .arg(n1)
                     .arg(n2)
                     .arg(QFileInfo(text1.c_str()).fileName(), text2.c_str()));
        return 0;
    }
    int32_t apClose(int32_t handle) override
    {
        log_.add(QString("close %1").arg(handle));
        return 0;
    }

private:
    CallLog &log_;
};

// The status a caller hands to long work: what it was last told.
struct LastStatus final : Progress {
    void setValue(int done) override { value = done; }
    void setStatusText(const QString &status) override { text = status; }
    int value = -1;
    QString text = "untouched";
};

class Bindings : public ::testing::Test {
protected:
    void SetUp() override { SetErrorLogFolder(box.path()); }
    void TearDown() override { SetErrorLogFolder({}); }

    clsColSetOrderGrid row(const QString &path, const QString &range = {})
    {
        clsColSetOrderGrid r;
        r.setFilename(QFileInfo(path).fileName());
        r.setFileLocation(QFileInfo(path).absolutePath());
        r.setRange(range);
        return r;
    }
    // A TIFF of `pages` pages, each `width` pixels wide so that pages can be told apart.
    QString tiff(const QString &name, int width, int pages = 1)
    {
        TiffLayout layout;
        layout.width = width;
        layout.pages = pages;
        layout.compression = 5;
        EXPECT_TRUE(writeTiff(box.filePath(name), layout));
        return box.filePath(name);
    }
    static QList<int> pageWidths(const QString &path)
    {
        QList<int> widths;
        TIFF *tiff = TIFFOpen(QFile::encodeName(path).constData(), "r");
        if (!tiff)
            return widths;
        do {
            uint32_t width = 0;
            TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
            widths << int(width);
        } while (TIFFReadDirectory(tiff));
        TIFFClose(tiff);
        return widths;
    }
    QString log() const { return QString::fromUtf8(readFile(box.filePath("Errors.Log"))); }

    SandboxDir box;
    RecordingUi ui;
    CallLog calls;
    NoProgress quiet;
};

TEST_F(Bindings, PdfToImageMakesAFolderPerPdfUnlessStraightIntoTheFolder)
{
    RecordingRenderer renderer(calls);
    ApPdfToImage binding(ui, renderer);
    ASSERT_TRUE(
        binding.ConvertPDFToImage(box.filePath("report.v2.pdf"), box.path(), 2, "x", 1, quiet));
    EXPECT_TRUE(QFileInfo(box.filePath("report.v2")).isDir());
    EXPECT_EQ(calls.calls.mid(1),
              (QStringList{"set 1 " + box.filePath("report.v2") + " 0 0", "set 2 x 0 0",
                           "set 5  1 0", "page 1", "page 2", "close 1"}));

    calls.calls.clear();
    ASSERT_TRUE(binding.ConvertPDFToImage(box.filePath("other.pdf"), box.path(), 0, "", 7, quiet));
    EXPECT_FALSE(QFileInfo::exists(box.filePath("other")));
    EXPECT_EQ(calls.calls.mid(1),
              (QStringList{"set 1 " + box.path() + " 0 0", "set 2  0 0", "set 5  7 0",
                           "set 6  24 0", "set 10  1 0", "set 11  -1 0", "close 1"}));
}

TEST_F(Bindings, PdfToImageStopsOnTheFourOpenFailuresOnly)
{
    RecordingRenderer renderer(calls);
    ApPdfToImage binding(ui, renderer);
    EXPECT_FALSE(binding.ConvertPDFToImage({}, box.path(), 1, {}, 1, quiet));
    EXPECT_TRUE(calls.calls.isEmpty());
    for (int32_t failure : {-1, -2, -3, -4}) {
        renderer.openResult = failure;
        EXPECT_FALSE(binding.ConvertPDFToImage("a.pdf", box.path(), 1, {}, 7, quiet));
    }
    EXPECT_FALSE(calls.calls.join(",").contains("close"));
    renderer.openResult = -5;
    EXPECT_TRUE(binding.ConvertPDFToImage("a.pdf", box.path(), 1, {}, 7, quiet));
    // A name the folder cannot be cut from fails before any property is set.
    renderer.openResult = 1;
    calls.calls.clear();
    EXPECT_FALSE(binding.ConvertPDFToImage("README", box.path(), 1, {}, 1, quiet));
    EXPECT_EQ(calls.calls.size(), 1);
    EXPECT_TRUE(log().contains(") in procedure ConvertPDFToImage at Line No. "));
    EXPECT_TRUE(log().contains(" of Class Module ApPdfToImage at time"));
}

TEST_F(Bindings, PdfToImageReportsRoundedPercentsAndTheFileToItsStatus)
{
    RecordingRenderer renderer(calls);
    ApPdfToImage binding(ui, renderer);
    LastStatus status;
    QStringList seen;
    // Record each value as the page after it starts: the binding reports before it pumps events.
    ui.onDoEvents = [&] { seen << QString("%1 %2").arg(status.value).arg(status.text); };
    ASSERT_TRUE(binding.ConvertPDFToImage("/x/scan.pdf", box.path(), 3, {}, 7, status));
    EXPECT_EQ(seen, (QStringList{"33 scan.pdf", "67 scan.pdf", "100 scan.pdf"}));
    EXPECT_EQ(status.value, 0);
    EXPECT_EQ(status.text, "");

    seen.clear();
    ASSERT_TRUE(binding.ConvertPDFToImage("/x/scan.pdf", box.path(), 8, {}, 7, status));
    EXPECT_EQ(seen.first(), "12 scan.pdf"); // 12.5 goes to the even neighbour
}

TEST_F(Bindings, CombineOrderPdfPassesRangesAndRunsWithoutAMerge)
{
    RecordingPages pages(calls);
    TiffPdfCommands commands(ui, pages);
    LastStatus status;
    EXPECT_FALSE(commands.CombineOrderPdf(status)); // no output file
    commands.OutputFile = box.filePath("out.pdf");
    commands.colSelectedData = {row("/a/one.pdf", "2-3, 7"), row("/a/two.pdf", "0"),
                                row("/a/three.pdf")};
    ASSERT_TRUE(commands.CombineOrderPdf(status));
    EXPECT_EQ(calls.calls, (QStringList{"fn 4 175 0 0 one.pdf|2-3, 7", "fn 4 175 0 0 two.pdf|0",
                                        "fn 4 175 0 0 three.pdf|0", "close 4"}));
    EXPECT_EQ(status.value, 3);

    calls.calls.clear();
    status.value = -1;
    pages.mergeHandle = 0;
    EXPECT_TRUE(commands.CombineOrderPdf(status));
    EXPECT_EQ(calls.calls, QStringList{"close 0"});
    EXPECT_EQ(status.value, 3);

    calls.calls.clear();
    pages.mergeHandle = 4;
    EXPECT_TRUE(commands.SplitPDFFiles(box.filePath("in.pdf"), {}, box.path(), "p"));
    EXPECT_TRUE(commands.SplitPDFFiles(box.filePath("in.pdf"), "4-", box.path(), "p"));
    const QString target = box.filePath("in") + "/p";
    EXPECT_EQ(calls.calls, (QStringList{"fn 5 170 1 1 |" + target, "close 5",
                                        "fn 5 170 1 2 4-|" + target, "close 5"}));
}

TEST_F(Bindings, TiffCommandsWriteIntoAFolderNamedAfterTheSource)
{
    TiffPdfCommands commands(ui);
    const QString scan = tiff("scan.tif", 10, 3);
    ASSERT_TRUE(commands.SplitTiffFiles(scan, 1, box.filePath("out"), "p"));
    EXPECT_EQ(pageWidths(box.filePath("out/scan/p1.tif")).size(), 1);
    EXPECT_EQ(pageWidths(box.filePath("out/scan/p2.tif")).size(), 2);
    ASSERT_TRUE(commands.ExtractAllTIFFpages(scan, box.filePath("all")));
    EXPECT_EQ(QDir(box.filePath("all/scan")).entryList(QDir::Files).size(), 3);

    EXPECT_FALSE(commands.AppendFileTiffFile(scan, scan, -1));
    ASSERT_TRUE(commands.AppendFileTiffFile(scan, tiff("b.tif", 77), 1));
    EXPECT_EQ(pageWidths(scan), (QList<int>{10, 77, 10, 10}));
    ASSERT_TRUE(commands.DeleteTiffPage(scan, 2));
    EXPECT_EQ(pageWidths(scan).size(), 3);

    // The PDF name is cut at the first dot and takes a capital P.
    commands.colSelectedData = {row(tiff("a.b.tif", 16))};
    QDir().mkpath(box.filePath("pdfs"));
    ASSERT_TRUE(commands.Convert_EachTiffToPDFx(box.filePath("pdfs")));
    EXPECT_TRUE(QFileInfo::exists(box.filePath("pdfs/a.Pdf")));
}

} // namespace

TEST_F(Bindings, BatchPageCommandsCheckTheirArgumentsAndKeepOutputsWhole)
{
    EXPECT_EQ(pageCommand({"split", "a.pdf"}).status, 2); // no -o
    EXPECT_EQ(pageCommand({"tiff-split", "-o", box.path(), "--page", "x", "a.tif"}).status, 2);
    EXPECT_EQ(pageCommand({"render", "--format", "gif", "-o", box.path(), "a.pdf"}).status, 2);
    EXPECT_EQ(pageCommand({"tiff-append", "a.tif"}).status, 2);

    // A join with a file it cannot read leaves the output as it was; every command names the
    // file with its reason.
    const QString output = box.write("out.pdf", "old");
    const QString junk = box.write("junk.pdf", "not a PDF");
    EXPECT_EQ(pageCommand({"join", "-o", output, junk}).status, 1);
    EXPECT_EQ(readFile(output), "old");
    EXPECT_EQ(QDir(box.path()).entryList(QDir::Hidden | QDir::Files).size(), 2);
    for (const QStringList &args : {QStringList{"join", "-o", output},
                                    {"render", "-o", box.path()},
                                    {"split", "-o", box.path()},
                                    {"info"}}) {
        const PageRun refused = pageCommand(args + QStringList{junk});
        EXPECT_EQ(refused.status, 1);
        ASSERT_EQ(refused.err.size(), 1) << args[0].toStdString();
        EXPECT_TRUE(refused.err[0].startsWith(junk + ": ")) << refused.err[0].toStdString();
        EXPECT_GT(refused.err[0].size(), junk.size() + 10) << refused.err[0].toStdString();
    }

    // Appended files keep their order when put into the middle.
    const QString target = tiff("t.tif", 10, 2);
    ASSERT_EQ(
        pageCommand({"tiff-append", "--at", "1", target, tiff("b.tif", 20, 2), tiff("c.tif", 30)})
            .status,
        0);
    EXPECT_EQ(pageWidths(target), (QList<int>{10, 20, 20, 30, 10}));
    const PageRun joined = pageCommand({"tiff-join", "-o", box.filePath("j.tif"), target, target});
    EXPECT_EQ(joined.status, 0);
    EXPECT_EQ(pageWidths(box.filePath("j.tif")).size(), 10);
}

namespace {

// `count` pages, each with its own words and width, so that order and text can be checked;
// the page tree claims `claimed` pages when that is given.
QString textPdf(const SandboxDir &box, const QString &name, int count, int claimed = -1)
{
    std::vector<std::string> bodies = {"<< /Type /Catalog /Pages 2 0 R >>", "",
                                       "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"};
    std::string kids;
    for (int i = 1; i <= count; ++i) {
        const int page = int(bodies.size()) + 1;
        kids += std::to_string(page) + " 0 R ";
        bodies.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 " + std::to_string(200 + i) +
                         " 100] /Resources << /Font << /F 3 0 R >> >> /Contents " +
                         std::to_string(page + 1) + " 0 R >>");
        bodies.push_back(
            pdfStream("", "BT /F 12 Tf 10 50 Td (Words of page " + std::to_string(i) + ") Tj ET"));
    }
    bodies[1] = "<< /Type /Pages /Kids [" + kids + "] /Count " +
                std::to_string(claimed < 0 ? count : claimed) + " >>";
    return box.write(name, rawPdf(bodies));
}

QString pdfText(const QString &path)
{
    QProcess process;
    process.start("pdftotext", {path, "-"});
    process.waitForFinished(-1);
    return QString::fromUtf8(process.readAllStandardOutput());
}

} // namespace

// Split pages sort in page order, so that a glob joins them back into the document; render
// takes a range as split does.
TEST_F(Bindings, PageNumbersArePaddedSoThatAGlobRejoins)
{
    if (QStandardPaths::findExecutable("pdftotext").isEmpty())
        GTEST_SKIP() << "pdftotext missing";
    const QString source = textPdf(box, "book.pdf", 12);
    ASSERT_EQ(pageCommand({"split", "-o", box.filePath("out"), source}).status, 0);
    const QDir pages(box.filePath("out/book"));
    const QStringList names = pages.entryList(QDir::Files, QDir::Name);
    ASSERT_EQ(names.size(), 12);
    EXPECT_EQ(names.first(), "book-01.pdf");
    EXPECT_EQ(names.last(), "book-12.pdf");
    QStringList join{"join", "-o", box.filePath("joined.pdf")};
    for (const QString &name : names)
        join << pages.filePath(name);
    ASSERT_EQ(pageCommand(join).status, 0);
    EXPECT_EQ(pdfText(box.filePath("joined.pdf")), pdfText(source));
    EXPECT_TRUE(pdfText(source).contains("Words of page 12"));

    const PageRun rendered = pageCommand(
        {"render", "--range", "z-11", "--resolution", "20", "-o", box.filePath("img"), source});
    ASSERT_EQ(rendered.status, 0) << rendered.err.join('\n').toStdString();
    EXPECT_EQ(QDir(box.filePath("img/book")).entryList(QDir::Files),
              (QStringList{"book-11.png", "book-12.png"}));

    // A tree that claims one page of its three renders all three, and leaves nothing else.
    ASSERT_EQ(pageCommand({"render", "--resolution", "20", "-o", box.filePath("img"),
                           textPdf(box, "claims.pdf", 3, 1)})
                  .status,
              0);
    EXPECT_EQ(QDir(box.filePath("img/claims")).entryList(QDir::Files).size(), 3);
    EXPECT_EQ(QDir(box.filePath("img")).entryList(QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot),
              (QStringList{"book", "claims"}));
}

// Encrypted files need their password in every command; info shows and removes entries.
TEST_F(Bindings, PdfCommandsTakeAPasswordAndSayWhenOneIsNeeded)
{
    if (QStandardPaths::findExecutable("qpdf").isEmpty())
        GTEST_SKIP() << "qpdf missing";
    const QString locked = box.filePath("locked.pdf");
    QProcess::execute("qpdf", {"--encrypt", "secret", "owner", "256", "--",
                               textPdf(box, "plain.pdf", 3), locked});
    const QString out = box.filePath("out");
    const QList<QStringList> commands = {{"render", "--resolution", "20", "-o", out},
                                         {"split", "-o", out},
                                         {"extract", "--range", "2", "-o", out},
                                         {"join", "-o", box.filePath("j.pdf")},
                                         {"info"},
                                         {"rotate", "--angle", "90"}};
    for (const QStringList &command : commands) {
        const PageRun refused = pageCommand(command + QStringList{locked});
        EXPECT_EQ(refused.status, 1) << command[0].toStdString();
        EXPECT_EQ(refused.err, QStringList{locked + ": needs a password"})
            << command[0].toStdString();
        const PageRun done = pageCommand(command + QStringList{"--password", "secret", locked});
        EXPECT_EQ(done.status, 0) << command[0].toStdString() << done.err.join('\n').toStdString();
    }
    EXPECT_TRUE(QFileInfo::exists(box.filePath("out/locked/locked-3.png")));
    EXPECT_TRUE(QFileInfo::exists(box.filePath("out/locked/locked-2.pdf")));

    const QString plain = box.filePath("plain.pdf");
    ASSERT_EQ(pageCommand({"info", "--title", "False", "--author", "Me", plain}).status, 0);
    PageRun shown = pageCommand({"info", plain});
    EXPECT_EQ(shown.status, 0);
    EXPECT_TRUE(shown.out.contains("  Pages: 3"));
    EXPECT_TRUE(shown.out.contains("  Title: False"));
    ASSERT_EQ(pageCommand({"info", "--title", "", plain}).status, 0);
    shown = pageCommand({"info", plain});
    EXPECT_TRUE(shown.out.contains("  Title: "));
    EXPECT_TRUE(shown.out.contains("  Author: Me"));
}

// Mistakes are named for what they are.
TEST_F(Bindings, PageCommandsSayWhatWentWrong)
{
    const QString bare = box.write("report", readFile(textPdf(box, "report.pdf", 2)));
    PageRun run = pageCommand({"split", "-o", box.filePath("out"), bare});
    EXPECT_EQ(run.status, 1);
    ASSERT_EQ(run.err.size(), 1);
    EXPECT_TRUE(run.err[0].contains("no extension")) << run.err[0].toStdString();
    run = pageCommand({"join", "-o", box.filePath("missing/j.pdf"), box.filePath("report.pdf")});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, QStringList{box.filePath("missing/j.pdf") + ": the folder " +
                                   box.filePath("missing") + " does not exist"});
    run = pageCommand({"tiff-split", "--page", "-1", "-o", box.path(), "a.tif"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, QStringList{"--page takes a page number from 1."});
    run = pageCommand(
        {"extract", "--range", "7", "-o", box.filePath("out"), box.filePath("report.pdf")});
    EXPECT_EQ(run.err, QStringList{box.filePath("report.pdf") + ": no page in the range 7"});
    const QString report = box.filePath("report.pdf");
    run = pageCommand({"join", "-o", box.filePath("j.pdf"), report, report + ":7"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, QStringList{report + ": no page in the range 7"});
    EXPECT_FALSE(QFileInfo::exists(box.filePath("j.pdf")));
    run = pageCommand({"rotate", "--angle", "90", "--range", "7", report});
    EXPECT_EQ(run.err, QStringList{report + ": no page in the range 7"});
    // Two inputs of one name would put their pages into one folder: refused before anything
    // is made.
    const QString twin = box.write("b/report.pdf", readFile(report));
    for (const char *command : {"render", "split", "tiff-extract", "image-to-tiff"}) {
        run = pageCommand({command, "-o", box.filePath("twins"), report, twin});
        EXPECT_EQ(run.status, 2) << command;
        ASSERT_EQ(run.err.size(), 1) << command;
        EXPECT_TRUE(run.err[0].startsWith(twin + ": its pages would go to")) << command;
        EXPECT_FALSE(QFileInfo::exists(box.filePath("twins"))) << command;
    }
    run = pageCommand({"tiff-delete", "--page", "40000", "a.tif"});
    EXPECT_EQ(run.err, QStringList{"--page takes a TIFF page number up to 32767."});
}

// Each image becomes a one-page TIFF named after it, in the compression asked for or the one
// that fits it; what cannot be done is named, and an image never replaces itself.
TEST_F(Bindings, ImageToTiffWritesOnePageEachAndRefusesWhatItCannotDo)
{
    const QString photo = box.filePath("photo.v1.png");
    ASSERT_TRUE(colourPattern(30, 20).save(photo));
    const QString scan = box.filePath("scan.bmp");
    ASSERT_TRUE(bilevelPattern(64, 16).convertToFormat(QImage::Format_Mono).save(scan));
    const QString out = box.filePath("out");
    const auto compression = [](const QString &path) {
        uint16_t value = 0;
        TIFF *tiff = TIFFOpen(QFile::encodeName(path).constData(), "r");
        if (tiff) {
            TIFFGetField(tiff, TIFFTAG_COMPRESSION, &value);
            TIFFClose(tiff);
        }
        return int(value);
    };
    const struct {
        QStringList options;
        int status;
        int photoCompression, scanCompression; // 0: not written
    } cases[] = {
        {{"--compression", "gif"}, 2, 0, 0},
        {{}, 0, COMPRESSION_LZW, COMPRESSION_CCITTFAX4},
        {{"--compression", "deflate"}, 0, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_ADOBE_DEFLATE},
        {{"--compression=g4"}, 1, 0, COMPRESSION_CCITTFAX4}, // no fax coding of colour
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.options.join(" ").toStdString());
        QDir(out).removeRecursively();
        const PageRun run = pageCommand(QStringList{"image-to-tiff"} + c.options +
                                        QStringList{"-o", out, photo, scan});
        EXPECT_EQ(run.status, c.status);
        EXPECT_EQ(compression(out + "/photo.v1.tif"), c.photoCompression);
        EXPECT_EQ(compression(out + "/scan.tif"), c.scanCompression);
        if (c.status == 1) {
            ASSERT_EQ(run.err.size(), 1);
            EXPECT_TRUE(run.err[0].startsWith(photo + ": ")) << run.err[0].toStdString();
        }
    }
    EXPECT_EQ(pageWidths(out + "/scan.tif"), QList<int>{64});

    const QString tiffScan = tiff("page.tif", 10);
    const QByteArray before = readFile(tiffScan);
    const PageRun itself = pageCommand({"image-to-tiff", "-o", box.path(), tiffScan});
    EXPECT_EQ(itself.status, 1);
    EXPECT_EQ(readFile(tiffScan), before);
}
