// Searchable PDFs seen from outside: the words a reader extracts, where it finds them, and the
// image bytes, which must be those of a conversion without a text layer.

#include "glyphless_font.h"
#include "image_to_pdf.h"
#include "page_command.h"
#include "pdf_probe.h"
#include "sandbox.h"
#include "test_environment.h"
#include "text_layer.h"

#include <gtest/gtest.h>

#include <tiffio.h>

#include <QFile>
#include <QFont>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QRectF>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTransform>

#include <functional>
#include <vector>

namespace {

constexpr int kDpi = 300;

struct DrawnWord {
    QString text;
    QRectF box; // pixels
};

// A 300 dpi page of two lines of known words, and where each was drawn.
QImage textPage(std::vector<DrawnWord> &words)
{
    QImage page(1800, 520, QImage::Format_Grayscale8);
    page.fill(255);
    page.setDotsPerMeterX(qRound(kDpi / 0.0254));
    page.setDotsPerMeterY(qRound(kDpi / 0.0254));
    QPainter painter(&page);
    QFont font("DejaVu Sans");
    font.setPixelSize(80);
    painter.setFont(font);
    painter.setPen(Qt::black);
    const QFontMetrics metrics(font);
    const QStringList lines = {"Searchable invisible words", "copied from scanned paper"};
    for (int l = 0; l < lines.size(); ++l) {
        const int baseline = 180 + l * 200;
        int x = 100;
        for (const QString &word : lines[l].split(' ')) {
            painter.drawText(x, baseline, word);
            const int advance = metrics.horizontalAdvance(word);
            words.push_back({word, QRectF(x, baseline - metrics.ascent(), advance,
                                          metrics.ascent() + metrics.descent())});
            x += advance + metrics.horizontalAdvance(' ');
        }
    }
    return page;
}

bool writeG4(const QImage &page, const QString &path, uint16_t orientation = ORIENTATION_TOPLEFT)
{
    TIFF *t = TIFFOpen(path.toStdString().c_str(), "w");
    if (!t)
        return false;
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(page.width()));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(page.height()));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, uint32_t(page.height()));
    TIFFSetField(t, TIFFTAG_XRESOLUTION, float(kDpi));
    TIFFSetField(t, TIFFTAG_YRESOLUTION, float(kDpi));
    TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(t, TIFFTAG_ORIENTATION, orientation);
    std::vector<uint8_t> row(size_t(page.width() + 7) / 8);
    bool written = true;
    for (int y = 0; y < page.height() && written; ++y) {
        std::fill(row.begin(), row.end(), 0);
        const uchar *grey = page.constScanLine(y);
        for (int x = 0; x < page.width(); ++x)
            if (grey[x] < 128)
                row[size_t(x) / 8] |= uint8_t(0x80 >> (x % 8));
        written = TIFFWriteScanline(t, row.data(), uint32_t(y)) >= 0;
    }
    TIFFClose(t);
    return written;
}

int convert(const QString &image, const QString &pdf, const std::string &language)
{
    if (!::ApSetOcrLanguage(language))
        return -100;
    const int32_t h = ApCreate(pdf.toStdString());
    if (h <= 0)
        return -101;
    const pw::Result<int32_t> added = ApAddImage(h, image.toStdString());
    if (!added) {
        ApDiscard(h);
        return -102;
    }
    const pw::Result<int32_t> closed = ApClose(h);
    return *added != 0 ? *added : closed ? *closed : -3;
}

struct FoundWord {
    QString text;
    QRectF box; // points, from the page's top left
};

// The words pdftotext reads on the first page, and that page's width in points.
std::vector<FoundWord> extractedWords(const QString &pdf, double &pageWidth)
{
    QProcess process;
    process.start("pdftotext", {"-bbox", "-f", "1", "-l", "1", pdf, "-"});
    process.waitForFinished(-1);
    const QString html = QString::fromUtf8(process.readAllStandardOutput());
    const QRegularExpression page(R"re(<page width="([\d.]+)")re");
    pageWidth = page.match(html).captured(1).toDouble();
    const QRegularExpression word(
        R"re(<word xMin="([\d.]+)" yMin="([\d.]+)" xMax="([\d.]+)" yMax="([\d.]+)">([^<]*)</word>)re");
    std::vector<FoundWord> found;
    for (auto it = word.globalMatch(html); it.hasNext();) {
        const auto m = it.next();
        const QPointF topLeft(m.captured(1).toDouble(), m.captured(2).toDouble());
        const QPointF bottomRight(m.captured(3).toDouble(), m.captured(4).toDouble());
        found.push_back({m.captured(5), QRectF(topLeft, bottomRight)});
    }
    return found;
}

// Checks that pdftotext reads each of the `drawn` words (pixels of a 300 dpi page) on the first
// page of `pdf`, in order and inside the box it was drawn in on the page as shown.
void expectWordsInTheirBoxes(const QString &pdf, const std::vector<DrawnWord> &drawn)
{
    double pageWidth = 0;
    const std::vector<FoundWord> found = extractedWords(pdf, pageWidth);
    ASSERT_EQ(found.size(), drawn.size());
    constexpr double toPoints = 72.0 / kDpi;
    for (size_t i = 0; i < drawn.size(); ++i) {
        EXPECT_EQ(found[i].text, drawn[i].text);
        const QRectF box(drawn[i].box.topLeft() * toPoints, drawn[i].box.size() * toPoints);
        EXPECT_TRUE(box.contains(found[i].box.center()))
            << found[i].text.toStdString() << " found off its box";
    }
}

class Ocr : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (QStandardPaths::findExecutable("pdftotext").isEmpty())
            GTEST_SKIP() << "pdftotext missing";
        if (const pw::Result<void> set = ::ApSetOcrLanguage("eng"); !set)
            GTEST_SKIP() << set.failure().what();
    }
    void TearDown() override { (void)::ApSetOcrLanguage(""); }

    SandboxDir sandbox;
};

// What recognition is given of each kind of decoded page: grey with 0 black, as the page shows
// it on white paper, or its own bits when it is black and white.
TEST(OcrCopy, EveryPageKindReadsAsTheGreyItShows)
{
    using namespace pw::i2p;
    struct Case {
        const char *name;
        Raster raster;
        std::vector<uint8_t> expected;
        int bits;
    };
    const auto raster = [](ColourModel model, int bpc, std::vector<uint8_t> pixels) {
        Raster r;
        r.width = 2;
        r.height = 1;
        r.bpc = bpc;
        r.cs.model = model;
        r.pixels.assign(pixels.begin(), pixels.end());
        return r;
    };
    Raster inverted = raster(ColourModel::Gray, 8, {0, 255});
    inverted.invert = true;
    Raster indexed = raster(ColourModel::Indexed, 1, {0x40});
    indexed.cs.palette = std::string("\0\0\0\xff\xff\xff", 6);
    Raster transparent = raster(ColourModel::Gray, 8, {0, 0});
    transparent.alpha = {255, 0};
    Raster faxWhiteIsZero = raster(ColourModel::Gray, 1, {0x40});
    faxWhiteIsZero.invert = true;
    const Case cases[] = {
        {"grey", raster(ColourModel::Gray, 8, {0, 255}), {0, 255}, 8},
        {"min-is-white grey", inverted, {255, 0}, 8},
        {"red and blue", raster(ColourModel::Rgb, 8, {255, 0, 0, 0, 0, 255}), {76, 29}, 8},
        {"CMYK black and paper",
         raster(ColourModel::Cmyk, 8, {0, 0, 0, 255, 0, 0, 0, 0}),
         {0, 255},
         8},
        {"palette", indexed, {0, 255}, 8},
        {"16-bit grey", raster(ColourModel::Gray, 16, {0x12, 0x34, 0xFF, 0xFF}), {0x12, 0xFF}, 8},
        {"transparent ink", transparent, {0, 255}, 8},
        {"black and white", raster(ColourModel::Gray, 1, {0x40}), {0x40}, 1},
        {"fax, 0 white", faxWhiteIsZero, {0xBF}, 1},
    };
    for (const Case &c : cases) {
        const OcrPage page = ocrCopy(c.raster, 300);
        EXPECT_EQ(page.bits, c.bits) << c.name;
        EXPECT_EQ(std::vector<uint8_t>(page.pixels.begin(), page.pixels.end()), c.expected)
            << c.name;
    }
}

TEST(GlyphlessCodes, TextBecomesUtf16CodeUnits)
{
    struct Case {
        std::string utf8;
        std::string codes;
        int units;
    };
    for (const Case &c : {Case{"Ab", "<00410062>", 2}, Case{"\xc3\xa9", "<00E9>", 1},
                          Case{"\xf0\x9f\x98\x80", "<D83DDE00>", 2},
                          Case{"\xff"
                               "a",
                               "<FFFD0061>", 2},
                          Case{"\xe2\x82", "<FFFD>", 1}}) {
        int units = 0;
        EXPECT_EQ(pw::glyphlessCodes(c.utf8, units), c.codes) << c.utf8;
        EXPECT_EQ(units, c.units) << c.utf8;
    }
}

TEST_F(Ocr, EveryWordReadsBackInsideItsBoxAndTheImageIsUntouched)
{
    std::vector<DrawnWord> drawn;
    const QImage page = textPage(drawn);
    const QString png = sandbox.filePath("grey.png");
    const QString jpeg = sandbox.filePath("scan.jpg");
    const QString g4 = sandbox.filePath("fax.tif");
    ASSERT_TRUE(page.save(png, "PNG"));
    ASSERT_TRUE(page.save(jpeg, "JPEG", 90));
    ASSERT_TRUE(writeG4(page, g4));
    // Stored a quarter turn back, with the tag that turns it upright to be shown.
    const QString sideways = sandbox.filePath("sideways.tif");
    ASSERT_TRUE(
        writeG4(page.transformed(QTransform().rotate(-90)), sideways, ORIENTATION_RIGHTTOP));
    // A finer scan of the same paper: read from a copy scaled down, its words land alike.
    const QString fine = sandbox.filePath("fine.png");
    QImage finer = page.scaled(page.size() * 2, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    finer.setDotsPerMeterX(page.dotsPerMeterX() * 2);
    finer.setDotsPerMeterY(page.dotsPerMeterY() * 2);
    ASSERT_TRUE(finer.save(fine, "PNG"));
    struct Case {
        QString image;
        std::string filter;
        bool storedAsIs; // the image stream is the file's own data
    };
    for (const Case &c : {Case{png, "/FlateDecode", false}, Case{jpeg, "/DCTDecode", true},
                          Case{g4, "/CCITTFaxDecode", false}, Case{fine, "/FlateDecode", false},
                          Case{sideways, "/CCITTFaxDecode", false}}) {
        SCOPED_TRACE(c.image.toStdString());
        const QString plain = c.image + ".plain.pdf";
        const QString searchable = c.image + ".pdf";
        ASSERT_EQ(convert(c.image, plain, ""), 0);
        ASSERT_EQ(convert(c.image, searchable, "eng"), 0);
        EXPECT_TRUE(qpdfChecks(searchable));
        const auto plainPages = probePdf(plain);
        const auto pages = probePdf(searchable);
        ASSERT_EQ(pages.size(), 1u);
        ASSERT_EQ(pages[0].images.size(), 1u);
        EXPECT_EQ(pages[0].images[0].filter, c.filter);
        EXPECT_EQ(pages[0].images[0].raw, plainPages[0].images[0].raw);
        if (c.storedAsIs) {
            EXPECT_EQ(QByteArray::fromStdString(pages[0].images[0].raw), readFile(c.image));
        }

        double pageWidth = 0;
        EXPECT_TRUE(extractedWords(plain, pageWidth).empty());
        expectWordsInTheirBoxes(searchable, drawn);
    }
}

// `pagewright-batch ocr` on PDFs made without text: the words land on the pages as a
// conversion with text would place them, the images keep their bytes, and a page that shows
// text already is left alone.
TEST_F(Ocr, TheOcrCommandMakesPdfsWithoutTextSearchable)
{
    std::vector<DrawnWord> drawn;
    const QImage page = textPage(drawn);
    const QString upright = sandbox.filePath("fax.tif"), sideways = sandbox.filePath("side.tif");
    ASSERT_TRUE(writeG4(page, upright));
    // Shown upright through the page's rotation.
    ASSERT_TRUE(
        writeG4(page.transformed(QTransform().rotate(-90)), sideways, ORIENTATION_RIGHTTOP));
    const QString plain = sandbox.filePath("fax.pdf"), turned = sandbox.filePath("side.pdf");
    const QString searchable = sandbox.filePath("searchable.pdf");
    ASSERT_EQ(convert(upright, plain, ""), 0);
    ASSERT_EQ(convert(sideways, turned, ""), 0);
    ASSERT_EQ(convert(upright, searchable, "eng"), 0);
    (void)::ApSetOcrLanguage("");
    const auto imagesBefore = probePdf(plain);
    const QByteArray searchableBefore = readFile(searchable);

    PageRun missing = pageCommand({"ocr", "--language", "qqq", plain});
    EXPECT_EQ(missing.status, 2);
    EXPECT_TRUE(missing.err.value(0).contains("tesseract-ocr-qqq"))
        << missing.err.value(0).toStdString();

    // Named twice, once through a link, the file still gets one layer.
    const QString link = sandbox.filePath("link.pdf");
    ASSERT_TRUE(QFile::link(plain, link));
    const PageRun run = pageCommand({"ocr", link, turned, searchable, plain});
    EXPECT_EQ(run.status, 0) << run.err.join('\n').toStdString();
    EXPECT_EQ(run.out, QStringList{searchable + ": every page shows text already; left as it was"});
    EXPECT_EQ(readFile(searchable), searchableBefore);
    EXPECT_TRUE(qpdfChecks(plain));
    const auto images = probePdf(plain);
    ASSERT_EQ(images.size(), 1u);
    ASSERT_EQ(images[0].images.size(), 1u);
    EXPECT_EQ(images[0].images[0].raw, imagesBefore[0].images[0].raw);
    expectWordsInTheirBoxes(plain, drawn);
    // pdftotext drops text drawn twice over itself; the layers are counted as written.
    EXPECT_EQ(readFile(plain).count("/Subtype /Form"), 1);
    expectWordsInTheirBoxes(turned, drawn);
}

TEST_F(Ocr, ALanguageThatIsNotInstalledIsRefusedNamingItsPackage)
{
    struct Case {
        std::string language;
        std::string reason;
    };
    for (const Case &c :
         {Case{"qqq", "\"qqq\" is not installed (Debian package tesseract-ocr-qqq)"},
          Case{"eng+chi_xx", "(Debian package tesseract-ocr-chi-xx)"},
          Case{"../eng", "\"../eng\" is no OCR language"}, Case{"eng+", "no OCR"}}) {
        const pw::Result<void> set = ::ApSetOcrLanguage(c.language);
        ASSERT_FALSE(set) << c.language;
        const std::string why = set.failure().what();
        EXPECT_NE(why.find(c.reason), std::string::npos) << c.language << ": " << why;
    }
}

} // namespace

// The pages are drawn with real fonts, which need a QGuiApplication.
int main(int argc, char **argv)
{
    return RunTests<QGuiApplication>(argc, argv);
}
