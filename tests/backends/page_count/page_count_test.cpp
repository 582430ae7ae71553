#include "page_count.h"

#include "sample_files.h"
#include "sandbox.h"

#include <gtest/gtest.h>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>
#include <tiffio.h>

#include <QDir>
#include <QFile>

#include <memory>
#include <string>
#include <vector>

namespace {

std::string Utf8(const QString &path)
{
    return path.toUtf8().toStdString();
}

QByteArray ReadAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A hand-made PDF with a correct cross-reference table around the given object bodies
// (object i+1 is bodies[i]); this is how page trees that no writer would produce are made.
QByteArray RawPdf(const std::vector<std::string> &bodies)
{
    std::string out = "%PDF-1.4\n";
    std::vector<size_t> offsets;
    for (size_t i = 0; i < bodies.size(); ++i) {
        offsets.push_back(out.size());
        out += std::to_string(i + 1) + " 0 obj\n" + bodies[i] + "\nendobj\n";
    }
    const size_t xref = out.size();
    out += "xref\n0 " + std::to_string(bodies.size() + 1) + "\n0000000000 65535 f \n";
    for (size_t offset : offsets) {
        char entry[21];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", offset);
        out += entry;
    }
    out += "trailer\n<< /Size " + std::to_string(bodies.size() + 1) + " /Root 1 0 R >>\n";
    out += "startxref\n" + std::to_string(xref) + "\n%%EOF\n";
    return QByteArray::fromStdString(out);
}

const char *const kPage = "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] >>";

class PageCountTest : public ::testing::Test {
protected:
    // Every call runs with stderr captured: a damaged file must leave no trace there.
    int32_t Tiff(const QString &path)
    {
        ::testing::internal::CaptureStderr();
        const int32_t count = TiffPageCounter().GetPageCount(Utf8(path));
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "") << path.toStdString();
        return count;
    }
    int32_t Pdf(const QString &path)
    {
        ::testing::internal::CaptureStderr();
        const int32_t count = PdfPageCounter().GetPageCount(Utf8(path));
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "") << path.toStdString();
        return count;
    }

    SandboxDir sandbox;
};

// Every directory of the chain is a page, a preview stored as its own directory too (the
// converter writes it as one); a PDF's pages come from its page tree. Paths are UTF-8.
TEST_F(PageCountTest, CountsWrittenFiles)
{
    const QString folder = sandbox.mkdir(QString::fromUtf8("Übersicht ñ"));
    WriteTiff(sandbox.filePath("one.tif"), 1);
    WriteTiff(sandbox.filePath("with_preview.tif"), 3, {1});
    WriteTiff(folder + "/Seite 2.tif", 2);
    WriteQpdfPdf(folder + "/Seite 2.pdf", 2);
    WriteQpdfPdf(sandbox.filePath("no_pages.pdf"), 0);
    EXPECT_EQ(Tiff(sandbox.filePath("one.tif")), 1);
    EXPECT_EQ(Tiff(sandbox.filePath("with_preview.tif")), 3);
    EXPECT_EQ(Tiff(folder + "/Seite 2.tif"), 2);
    EXPECT_EQ(Pdf(folder + "/Seite 2.pdf"), 2);
    EXPECT_EQ(Pdf(sandbox.filePath("no_pages.pdf")), 0);
}

// A /Count that contradicts the tree must not reach the grid: the counter walks the kids.
TEST_F(PageCountTest, PdfDistrustsAnImplausibleCount)
{
    struct Case {
        const char *name;
        std::string pagesNode;
        int32_t expected;
    };
    const std::vector<Case> cases = {
        {"plain.pdf", "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>", 2},
        {"count_zero.pdf", "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 0 >>", 2},
        {"count_too_small.pdf", "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 1 >>", 2},
        {"count_huge.pdf", "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 9999999999 >>", 2},
        {"count_negative.pdf", "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count -7 >>", 2},
        {"count_missing.pdf", "<< /Type /Pages /Kids [3 0 R 4 0 R] >>", 2},
        {"count_not_number.pdf", "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count (2) >>", 2},
        {"no_kids.pdf", "<< /Type /Pages /Kids [] /Count 0 >>", 0},
    };
    for (const Case &c : cases) {
        const QString path = sandbox.write(
            c.name, RawPdf({"<< /Type /Catalog /Pages 2 0 R >>", c.pagesNode, kPage, kPage}));
        EXPECT_EQ(Pdf(path), c.expected) << c.name;
    }
}

// Files that are no good to either counter: TIFF says so below 0, PDF at 0 or below.
TEST_F(PageCountTest, UnreadableFilesGiveTheFailureValue)
{
    WriteTiff(sandbox.filePath("five.tif"), 5);
    WriteQpdfPdf(sandbox.filePath("three.pdf"), 3);
    const QByteArray tiff = ReadAll(sandbox.filePath("five.tif"));
    const QByteArray pdf = ReadAll(sandbox.filePath("three.pdf"));
    ASSERT_FALSE(tiff.isEmpty());
    ASSERT_FALSE(pdf.isEmpty());

    const QString text = "These are not the pages you are looking for.\n";
    const std::vector<QString> badTiffs = {
        sandbox.write("zero.tif", {}),    sandbox.write("text_as.tif", text.toUtf8()),
        sandbox.write("pdf_as.tif", pdf), sandbox.write("header_only.tif", tiff.left(8)),
        sandbox.filePath("missing.tif"),  sandbox.mkdir("folder.tif"),
    };
    for (const QString &path : badTiffs)
        EXPECT_LT(Tiff(path), 0) << path.toStdString();

    const std::vector<QString> badPdfs = {
        sandbox.write("zero.pdf", {}),      sandbox.write("text_as.pdf", text.toUtf8()),
        sandbox.write("tiff_as.pdf", tiff), sandbox.write("header_only.pdf", pdf.left(9)),
        sandbox.filePath("missing.pdf"),    sandbox.mkdir("folder.pdf"),
    };
    for (const QString &path : badPdfs)
        EXPECT_LE(Pdf(path), 0) << path.toStdString();
}

// Cut anywhere, a file may lose pages but never gains any, and the call stays quiet.
TEST_F(PageCountTest, TruncatedFilesNeverOvercount)
{
    WriteTiff(sandbox.filePath("five.tif"), 5);
    WriteQpdfPdf(sandbox.filePath("three.pdf"), 3);
    ASSERT_EQ(Tiff(sandbox.filePath("five.tif")), 5);
    ASSERT_EQ(Pdf(sandbox.filePath("three.pdf")), 3);
    const QByteArray tiff = ReadAll(sandbox.filePath("five.tif"));
    const QByteArray pdf = ReadAll(sandbox.filePath("three.pdf"));
    for (int percent : {10, 25, 50, 75, 90, 99}) {
        const QString cutTiff = sandbox.write(QString("cut%1.tif").arg(percent),
                                              tiff.left(tiff.size() * percent / 100));
        const QString cutPdf =
            sandbox.write(QString("cut%1.pdf").arg(percent), pdf.left(pdf.size() * percent / 100));
        EXPECT_LT(Tiff(cutTiff), 5) << percent;
        EXPECT_LE(Pdf(cutPdf), 3) << percent;
    }
}

struct CorpusCase {
    const char *path;
    bool pdf;
    int32_t expected; // kFailure: any failure value of that counter
};
constexpr int32_t kFailure = -1000;

class PageCountCorpusTest : public PageCountTest,
                            public ::testing::WithParamInterface<CorpusCase> {};

TEST_P(PageCountCorpusTest, MatchesKnownCount)
{
    const QString root = corpusDir();
    if (root.isEmpty())
        GTEST_SKIP() << "no sample corpus beside the checkout";
    const QString path = QDir(root).filePath(GetParam().path);
    if (!QFile::exists(path))
        GTEST_SKIP() << "sample not in this corpus: " << GetParam().path;
    const int32_t count = GetParam().pdf ? Pdf(path) : Tiff(path);
    if (GetParam().expected != kFailure)
        EXPECT_EQ(count, GetParam().expected);
    else if (GetParam().pdf)
        EXPECT_LE(count, 0);
    else
        EXPECT_LT(count, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Samples, PageCountCorpusTest,
    ::testing::Values(CorpusCase{"formats/tiff/pil__multipage.tiff", false, 3},
                      CorpusCase{"formats/tiff/pil__g4-multi.tiff", false, 3},
                      CorpusCase{"formats/tif/tm__fivepages-scan-causingerrors.tif", false, 5},
                      CorpusCase{"formats/tif/pil__hopper_bigtiff.tif", false, 1},
                      // The EXIF sub-directory is not a page.
                      CorpusCase{"formats/tif/pil__tiff_adobe_deflate.tif", false, 1},
                      CorpusCase{"scans/multi/multi_g4_01.tif", false, 10},
                      CorpusCase{"damaged/real/tif__test_ifd_loop_to_self.tif", false, 1},
                      CorpusCase{"damaged/real/pil__total-pages-zero.tif", false, 3},
                      CorpusCase{"damaged/made/trunc60__g4-multi.tiff", false, 2},
                      CorpusCase{"damaged/made/zero.tif", false, kFailure},
                      CorpusCase{"damaged/made/hdr0__hopper_lzw.tif", false, kFailure},
                      CorpusCase{"damaged/made/ifdoff__pport_g4.tif", false, kFailure},
                      CorpusCase{"damaged/made/trunc50__pport_g4.tif", false, kFailure},
                      CorpusCase{"damaged/made/png_as__hopper.tif", false, kFailure},
                      CorpusCase{"pdfs/pdfjs__tracemonkey.pdf", true, 14},
                      CorpusCase{"pdfs/pypdf__pdflatex-4-pages.pdf", true, 4},
                      CorpusCase{"pdfs/pdfjs__Pages-tree-refs.pdf", true, 2},
                      CorpusCase{"pdfs/pdfjs__xref_command_missing.pdf", true, 1},
                      CorpusCase{"pdfs/pdfjs__helloworld-bad.pdf", true, 1},
                      CorpusCase{"pdfs/pdfjs__empty_protected.pdf", true, 1},
                      // /Count claims ten thousand million pages over a single kid.
                      CorpusCase{"pdfs/pdfjs__poppler-67295-0.pdf", true, 1},
                      CorpusCase{"pdfs/pypdf__libreoffice-writer-password.pdf", true, kFailure},
                      CorpusCase{"pdfs/made/trunc50__tracemonkey.pdf", true, kFailure}));

} // namespace
