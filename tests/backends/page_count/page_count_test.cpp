#include "page_count.h"

#include "pdf_probe.h"
#include "sample_images.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

#include <string>

namespace {

class PageCountTest : public ::testing::Test {
protected:
    // Every call runs with stderr captured: a damaged file must leave no trace there.
    template <typename Counter> int32_t Count(const QString &path)
    {
        ::testing::internal::CaptureStderr();
        const int32_t count = Counter().GetPageCount(path.toUtf8().toStdString());
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "") << path.toStdString();
        return count;
    }
    int32_t Tiff(const QString &path) { return Count<TiffPageCounter>(path); }
    int32_t Pdf(const QString &path) { return Count<PdfPageCounter>(path); }

    SandboxDir sandbox;
};

// Every directory of the chain is a page, a preview stored as its own directory too (the
// converter writes it as one); a PDF's pages come from its page tree. Paths are UTF-8.
TEST_F(PageCountTest, CountsWrittenFiles)
{
    const QString folder = sandbox.mkdir(QString::fromUtf8("Übersicht ñ"));
    writeTiff(sandbox.filePath("with_previews.tif"), {.pages = 2, .reducedCopy = true});
    writeTiff(folder + "/Seite 2.tif", {.pages = 2});
    WriteQpdfPdf(folder + "/Seite 2.pdf", 2);
    EXPECT_EQ(Tiff(sandbox.filePath("with_previews.tif")), 4);
    EXPECT_EQ(Tiff(folder + "/Seite 2.tif"), 2);
    EXPECT_EQ(Pdf(folder + "/Seite 2.pdf"), 2);
}

// A /Count that contradicts the tree must not reach the grid: the counter walks the kids.
TEST_F(PageCountTest, PdfDistrustsAnImplausibleCount)
{
    const char *const page = "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] >>";
    const std::pair<const char *, int32_t> cases[] = {
        {"[3 0 R 4 0 R] /Count 2", 2},  {"[3 0 R 4 0 R] /Count 0", 2},
        {"[3 0 R 4 0 R] /Count 1", 2},  {"[3 0 R 4 0 R] /Count 9999999999", 2},
        {"[3 0 R 4 0 R] /Count -7", 2}, {"[3 0 R 4 0 R] /Count (2)", 2},
        {"[3 0 R 4 0 R]", 2},           {"[] /Count 0", 0},
    };
    for (const auto &[tail, expected] : cases) {
        const std::string pages = std::string("<< /Type /Pages /Kids ") + tail + " >>";
        const QString path = sandbox.write(
            "tree.pdf", rawPdf({"<< /Type /Catalog /Pages 2 0 R >>", pages, page, page}));
        EXPECT_EQ(Pdf(path), expected) << tail;
    }
}

// Files that are no good to either counter: TIFF says so below 0, PDF at 0 or below; cut
// anywhere, a file may lose pages but never gains any.
TEST_F(PageCountTest, UnreadableOrTruncatedFilesNeverOvercount)
{
    writeTiff(sandbox.filePath("five.tif"), {.pages = 5});
    WriteQpdfPdf(sandbox.filePath("three.pdf"), 3);
    const QByteArray tiff = readFile(sandbox.filePath("five.tif"));
    const QByteArray pdf = readFile(sandbox.filePath("three.pdf"));
    ASSERT_EQ(Tiff(sandbox.filePath("five.tif")), 5);
    ASSERT_EQ(Pdf(sandbox.filePath("three.pdf")), 3);

    const QByteArray text = "These are not the pages you are looking for.\n";
    for (const QString &path :
         {sandbox.write("zero.tif", {}), sandbox.write("text_as.tif", text),
          sandbox.write("pdf_as.tif", pdf), sandbox.write("header_only.tif", tiff.left(8)),
          sandbox.filePath("missing.tif"), sandbox.mkdir("folder.tif")})
        EXPECT_LT(Tiff(path), 0) << path.toStdString();
    for (const QString &path :
         {sandbox.write("zero.pdf", {}), sandbox.write("text_as.pdf", text),
          sandbox.write("tiff_as.pdf", tiff), sandbox.write("header_only.pdf", pdf.left(9)),
          sandbox.filePath("missing.pdf"), sandbox.mkdir("folder.pdf")})
        EXPECT_LE(Pdf(path), 0) << path.toStdString();

    for (int percent : {10, 25, 50, 75, 90, 99}) {
        EXPECT_LT(Tiff(sandbox.write("cut.tif", tiff.left(tiff.size() * percent / 100))), 5)
            << percent;
        EXPECT_LE(Pdf(sandbox.write("cut.pdf", pdf.left(pdf.size() * percent / 100))), 3)
            << percent;
    }
}

// Real files, damaged ones included. kFailure stands for any failure value of the counter.
class PageCountCorpusTest : public PageCountTest {};

TEST_F(PageCountCorpusTest, MatchesKnownCounts)
{
    if (corpusDir().isEmpty())
        GTEST_SKIP() << "no sample corpus beside the checkout";
    constexpr int32_t kFailure = -1000;
    const std::pair<const char *, int32_t> cases[] = {
        {"formats/tiff/pil__g4-multi.tiff", 3},
        {"formats/tif/pil__hopper_bigtiff.tif", 1},
        {"formats/tif/pil__tiff_adobe_deflate.tif", 1}, // the EXIF sub-directory is no page
        {"damaged/real/tif__test_ifd_loop_to_self.tif", 1},
        {"damaged/real/pil__total-pages-zero.tif", 3},
        {"damaged/made/trunc60__g4-multi.tiff", 2},
        {"damaged/made/hdr0__hopper_lzw.tif", kFailure},
        {"damaged/made/ifdoff__pport_g4.tif", kFailure},
        {"damaged/made/png_as__hopper.tif", kFailure},
        {"pdfs/pdfjs__tracemonkey.pdf", 14},
        {"pdfs/pdfjs__Pages-tree-refs.pdf", 2},
        {"pdfs/pdfjs__xref_command_missing.pdf", 1},
        {"pdfs/pdfjs__helloworld-bad.pdf", 1},
        {"pdfs/pdfjs__empty_protected.pdf", 1},
        // /Count claims ten thousand million pages over a single kid.
        {"pdfs/pdfjs__poppler-67295-0.pdf", 1},
        {"pdfs/pypdf__libreoffice-writer-password.pdf", kFailure},
        {"pdfs/made/trunc50__tracemonkey.pdf", kFailure},
    };
    for (const auto &[file, expected] : cases) {
        const QString path = QDir(corpusDir()).filePath(file);
        if (!QFile::exists(path))
            continue; // not in this corpus
        const bool pdf = path.endsWith(".pdf");
        const int32_t count = pdf ? Pdf(path) : Tiff(path);
        if (expected == kFailure)
            EXPECT_LE(count, pdf ? 0 : -1) << file;
        else
            EXPECT_EQ(count, expected) << file;
    }
}

} // namespace
