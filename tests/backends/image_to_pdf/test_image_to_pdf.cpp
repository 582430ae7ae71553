// The image-to-PDF library seen from its contract: what lands in the PDF for each kind of
// input, what each recompression name gives, and how unreadable input and targets fail.

#include "image_to_pdf.h"
#include "pdf_probe.h"
#include "sample_images.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <tiffio.h>

#include <QDir>
#include <QFile>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <set>

#include <malloc.h>
#include <unistd.h>

namespace {

// Runs one conversion the way the binding does; returns ApClose's status, or -101 when an
// input could not be read.
int convertFiles(const std::vector<QString> &inputs, const QString &pdf)
{
    const int32_t h = ApCreate(pdf.toStdString());
    if (h <= 0)
        return -100;
    for (const QString &in : inputs)
        if (!ApAddImage(h, in.toStdString())) {
            ApDiscard(h);
            return -101;
        }
    const pw::Result<int32_t> closed = ApClose(h);
    return closed ? *closed : -3;
}

std::string s(const QString &q)
{
    return q.toStdString();
}

QString savedImage(const SandboxDir &box, const QString &name, const QImage &img,
                   const char *format, int quality = -1)
{
    const QString path = box.filePath(name);
    img.save(path, format, quality);
    return path;
}

QString tiff(const SandboxDir &box, const QString &name, const TiffLayout &layout,
             QImage *expected = nullptr)
{
    const QString path = box.filePath(name);
    EXPECT_TRUE(writeTiff(path, layout, expected)) << s(name);
    return path;
}

TiffLayout grey(int bps, uint16_t photometric, uint16_t compression = COMPRESSION_NONE)
{
    return {.bps = bps, .spp = 1, .photometric = photometric, .compression = compression};
}

TiffLayout fax(uint16_t photometric = PHOTOMETRIC_MINISWHITE,
               uint16_t compression = COMPRESSION_CCITTFAX4, int rowsPerStrip = 0)
{
    TiffLayout t = grey(1, photometric, compression);
    t.width = 300;
    t.height = 120;
    t.rowsPerStrip = rowsPerStrip;
    return t;
}

struct LosslessCase {
    const char *name;
    TiffLayout tiff;    // the input, unless `make` writes another kind
    const char *filter; // expected filter of the page image
    // Writes the input into the sandbox; returns its path and the expected picture.
    std::function<QString(const SandboxDir &, QImage &)> make = {};
};

// Lossless paths: what poppler paints is exactly the source.
class LosslessTest : public testing::TestWithParam<LosslessCase> {};

TEST_P(LosslessTest, PaintsTheSourcePixels)
{
    const LosslessCase &c = GetParam();
    SandboxDir box;
    QImage expected;
    const QString input = c.make ? c.make(box, expected) : tiff(box, "in.tif", c.tiff, &expected);
    const QString pdf = box.filePath("out.pdf");
    ASSERT_EQ(convertFiles({input}, pdf), 0);
    ASSERT_TRUE(qpdfChecks(pdf));
    const auto pages = probePdf(pdf);
    ASSERT_EQ(pages.size(), 1u);
    ASSERT_FALSE(pages[0].images.empty());
    EXPECT_EQ(pages[0].images[0].filter, c.filter);
    const QImage painted = paintedPixels(pdf, 0, expected.width(), expected.height());
    // Blending a half-transparent pixel over the paper may round either way.
    EXPECT_LE(maxChannelDifference(painted, expected), c.tiff.extraSamples ? 1 : 0);
}

TiffLayout rgb(uint16_t compression, int rowsPerStrip = 0, uint16_t predictor = 1)
{
    return {.compression = compression, .predictor = predictor, .rowsPerStrip = rowsPerStrip};
}

TiffLayout palette(int bps)
{
    return grey(bps, PHOTOMETRIC_PALETTE, COMPRESSION_LZW);
}

TiffLayout cmyk(int bps = 8)
{
    return {.bps = bps, .spp = 4, .photometric = PHOTOMETRIC_SEPARATED};
}

// An input that is not a TIFF; every such kind is stored deflated.
LosslessCase made(const char *name, std::function<QString(const SandboxDir &, QImage &)> make)
{
    return {name, {}, "/FlateDecode", std::move(make)};
}

// A PNG of the colour pattern stored in `format`; painted as that format shows it.
LosslessCase pngCase(const char *name, QImage::Format format, const char *fileName = "in.png")
{
    return made(name, [format, fileName](const SandboxDir &b, QImage &e) {
        const QImage stored =
            colourPattern(70, 50).convertToFormat(format, Qt::ThresholdDither | Qt::AvoidDither);
        e = stored.convertToFormat(QImage::Format_RGB32);
        return savedImage(b, fileName, stored, "PNG");
    });
}

const LosslessCase kLossless[] = {
    pngCase("png_rgb", QImage::Format_RGB888),
    pngCase("png_grey", QImage::Format_Grayscale8),
    pngCase("png_palette", QImage::Format_Indexed8),
    pngCase("png_named_tif", QImage::Format_RGB888, "really_png.tif"),
    made("png_rgba_over_white",
         [](const SandboxDir &b, QImage &e) {
             e = colourPattern(40, 30);
             QImage a = e.convertToFormat(QImage::Format_ARGB32);
             for (int y = 0; y < 30; ++y)
                 for (int x = 20; x < 40; ++x) {
                     a.setPixel(x, y, qRgba(0, 0, 0, 0));
                     e.setPixel(x, y, qRgb(255, 255, 255));
                 }
             return savedImage(b, "in.png", a, "PNG");
         }),
    // A scan's sensor noise on paper makes the coder predict each byte from its left
    // neighbour.
    made("bmp_noisy",
         [](const SandboxDir &b, QImage &e) {
             e = QImage(120, 60, QImage::Format_RGB32);
             std::mt19937 rng(7);
             std::normal_distribution<double> noise(0, 4);
             for (int y = 0; y < e.height(); ++y)
                 for (int x = 0; x < e.width(); ++x) {
                     const auto n = [&](int v) { return std::clamp(int(v + noise(rng)), 0, 255); };
                     e.setPixel(x, y, qRgb(n(2 * x), n(x + 60), n(250 - x)));
                 }
             return savedImage(b, "in.bmp", e.convertToFormat(QImage::Format_RGB888), "BMP");
         }),
    made("bmp",
         [](const SandboxDir &b, QImage &e) {
             e = colourPattern(33, 21);
             return savedImage(b, "in.bmp", e, "BMP");
         }),
    {"tiff_lzw_one_strip", rgb(COMPRESSION_LZW), "/LZWDecode"},
    {"tiff_lzw_predictor", rgb(COMPRESSION_LZW, 0, PREDICTOR_HORIZONTAL), "/LZWDecode"},
    {"tiff_lzw_many_strips", rgb(COMPRESSION_LZW, 7), "/FlateDecode"},
    {"tiff_lzw_predictor_strips", rgb(COMPRESSION_LZW, 7, PREDICTOR_HORIZONTAL), "/FlateDecode"},
    {"tiff_packbits_strips", rgb(COMPRESSION_PACKBITS, 5), "/RunLengthDecode"},
    {"tiff_deflate", rgb(COMPRESSION_ADOBE_DEFLATE), "/FlateDecode"},
    {"tiff_g4_min_is_white", fax(), "/CCITTFaxDecode"},
    {"tiff_g4_min_is_black", fax(PHOTOMETRIC_MINISBLACK), "/CCITTFaxDecode"},
    {"tiff_g3", fax(PHOTOMETRIC_MINISWHITE, COMPRESSION_CCITTFAX3), "/CCITTFaxDecode"},
    {"tiff_g4_many_strips", fax(PHOTOMETRIC_MINISWHITE, COMPRESSION_CCITTFAX4, 16), "/FlateDecode"},
    {"tiff_grey8", grey(8, PHOTOMETRIC_MINISBLACK), "/FlateDecode"},
    {"tiff_grey8_min_is_white", grey(8, PHOTOMETRIC_MINISWHITE, COMPRESSION_LZW), "/LZWDecode"},
    {"tiff_grey4", grey(4, PHOTOMETRIC_MINISBLACK), "/FlateDecode"},
    {"tiff_grey16", grey(16, PHOTOMETRIC_MINISBLACK), "/FlateDecode"},
    {"tiff_palette4", palette(4), "/LZWDecode"},
    {"tiff_palette8", palette(8), "/LZWDecode"},
    {"tiff_rgb16", {.bps = 16}, "/FlateDecode"},
    {"tiff_rgba_unassociated", {.extraSamples = 2}, "/FlateDecode"},
    {"tiff_rgba_associated", {.extraSamples = 1}, "/FlateDecode"},
    {"tiff_rgba16", {.bps = 16, .extraSamples = 2}, "/FlateDecode"}};

INSTANTIATE_TEST_SUITE_P(Inputs, LosslessTest, testing::ValuesIn(kLossless),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(StoredData, JpegIsEmbeddedByteForByte)
{
    SandboxDir box;
    const QString jpg = savedImage(box, "photo.jpg", colourPattern(120, 80), "JPEG", 90);
    const QString pdf = box.filePath("out.pdf");
    ASSERT_EQ(convertFiles({jpg}, pdf), 0);
    const auto pages = probePdf(pdf);
    ASSERT_EQ(pages.size(), 1u);
    EXPECT_EQ(pages[0].images[0].filter, "/DCTDecode");
    EXPECT_EQ(QByteArray::fromStdString(pages[0].images[0].raw), readFile(jpg));
    EXPECT_EQ(pages[0].images[0].colourSpace, "/DeviceRGB");
}

TEST(StoredData, G4StripIsEmbeddedAsStored)
{
    SandboxDir box;
    for (uint16_t photometric : {PHOTOMETRIC_MINISWHITE, PHOTOMETRIC_MINISBLACK}) {
        const QString path = tiff(box, "fax.tif", fax(photometric));
        TIFF *t = TIFFOpen(s(path).c_str(), "r");
        ASSERT_NE(t, nullptr);
        std::string strip(size_t(TIFFRawStripSize(t, 0)), '\0');
        TIFFReadRawStrip(t, 0, strip.data(), tmsize_t(strip.size()));
        TIFFClose(t);
        const QString pdf = box.filePath("out.pdf");
        ASSERT_EQ(convertFiles({path}, pdf), 0);
        const auto img = probePdf(pdf).at(0).images.at(0);
        EXPECT_EQ(img.filter, "/CCITTFaxDecode");
        EXPECT_EQ(img.raw, strip);
        for (const char *parm : {"/K -1", "/Columns 300", "/Rows 120"})
            EXPECT_NE(img.decodeParms.find(parm), std::string::npos) << img.decodeParms;
        EXPECT_EQ(img.decodeParms.find("/BlackIs1 true") != std::string::npos,
                  photometric == PHOTOMETRIC_MINISBLACK)
            << img.decodeParms;
    }
}

TEST(StoredData, PageSizeFollowsResolution)
{
    SandboxDir box;
    TiffLayout layout = grey(8, PHOTOMETRIC_MINISBLACK);
    layout.width = 300;
    layout.height = 150;
    layout.dpi = 150;
    const QString at150 = tiff(box, "a.tif", layout);
    layout.dpi = 0;
    const QString none = tiff(box, "b.tif", layout);
    const QString pdf = box.filePath("out.pdf");
    ASSERT_EQ(convertFiles({at150, none}, pdf), 0);
    const auto pages = probePdf(pdf);
    ASSERT_EQ(pages.size(), 2u);
    // 300 by 150 pixels at 150 dpi are 2 by 1 inches; without a resolution, 72 dpi.
    EXPECT_EQ(std::pair(pages[0].width, pages[0].height), std::pair(144.0, 72.0));
    EXPECT_EQ(std::pair(pages[1].width, pages[1].height), std::pair(300.0, 150.0));
}

// Poppler paints CMYK its own way, so the colour spaces are checked in the PDF itself.
TEST(StoredData, ColourModelsAreKept)
{
    SandboxDir box;
    struct Case {
        const char *name;
        TiffLayout layout;
        const char *colourSpace; // a part of the unparsed colour space
        int bpc;
        bool smask;
    };
    const Case cases[] = {
        {"cmyk", cmyk(), "/DeviceCMYK", 8, false},
        {"cmyk16", cmyk(16), "/DeviceCMYK", 16, false},
        {"palette", palette(8), "/Indexed", 8, false},
        {"grey16", grey(16, PHOTOMETRIC_MINISBLACK), "/DeviceGray", 16, false},
        {"rgba16", {.bps = 16, .extraSamples = 2}, "/DeviceRGB", 16, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QString pdf = box.filePath(QString(c.name) + ".pdf");
        ASSERT_EQ(convertFiles({tiff(box, QString(c.name) + ".tif", c.layout)}, pdf), 0);
        const auto img = probePdf(pdf).at(0).images.at(0);
        EXPECT_NE(img.colourSpace.find(c.colourSpace), std::string::npos) << img.colourSpace;
        EXPECT_EQ(img.bpc, c.bpc);
        EXPECT_EQ(img.hasSMask, c.smask);
    }
}

// Every page of a TIFF, but none of the reduced copies stored after each.
TEST(Pages, MergeOfImagesAndPdfsKeepsOrderAndSkipsReducedCopies)
{
    SandboxDir box;
    const QString tif =
        tiff(box, "two.tif", {.compression = COMPRESSION_LZW, .pages = 2, .reducedCopy = true});
    const QString jpg = savedImage(box, "one.jpg", colourPattern(50, 40), "JPEG");
    const QString first = box.filePath("first.pdf");
    ASSERT_EQ(convertFiles({tif, jpg}, first), 0);
    const QString merged = box.filePath("merged.pdf");
    ASSERT_EQ(convertFiles({jpg, first, tif}, merged), 0);
    const auto pages = probePdf(merged);
    ASSERT_EQ(pages.size(), 6u);
    const char *filters[] = {"/DCTDecode", "/LZWDecode", "/LZWDecode",
                             "/DCTDecode", "/LZWDecode", "/LZWDecode"};
    for (size_t i = 0; i < pages.size(); ++i)
        EXPECT_EQ(pages[i].images.at(0).filter, filters[i]) << i;
    EXPECT_TRUE(qpdfChecks(merged));
}

// A 3-page PDF as other programs write them: the page size inherited from the page tree, one
// form drawn on every page with a colour of its own, and a link on the first page to the last.
QString linkedPdf(SandboxDir &box)
{
    const std::string page = "<< /Type /Page /Parent 2 0 R /Resources << /XObject << /F 9 0 R >> "
                             ">> /Contents ";
    return box.write(
        "linked.pdf",
        rawPdf({"<< /Type /Catalog /Pages 2 0 R >>",
                "<< /Type /Pages /Kids [3 0 R 4 0 R 5 0 R] /Count 3 /MediaBox [0 0 200 120] >>",
                page + "6 0 R /Annots [10 0 R] >>", page + "7 0 R >>", page + "8 0 R >>",
                pdfStream("", "1 0 0 rg q 1 0 0 1 20 20 cm /F Do Q"),
                pdfStream("", "0 1 0 rg q 1 0 0 1 20 20 cm /F Do Q"),
                pdfStream("", "0 0 1 rg q 1 0 0 1 20 20 cm /F Do Q"),
                pdfStream("/Type /XObject /Subtype /Form /BBox [0 0 50 50]", "0 0 50 50 re f"),
                "<< /Type /Annot /Subtype /Link /Rect [0 0 50 50] /Dest [5 0 R /Fit] >>"}));
}

TEST(Pages, PdfPagesAreCopiedWithWhatTheyUse)
{
    SandboxDir box;
    const QString source = linkedPdf(box);
    const QString merged = box.filePath("merged.pdf");
    ASSERT_EQ(
        convertFiles({savedImage(box, "one.png", colourPattern(30, 20), "PNG"), source}, merged),
        0);
    ASSERT_TRUE(qpdfChecks(merged));
    QPDF out;
    out.processFile(s(merged).c_str());
    auto pages = QPDFPageDocumentHelper(out).getAllPages();
    ASSERT_EQ(pages.size(), 4u);
    std::set<QPDFObjGen> forms;
    for (size_t i = 1; i < 4; ++i) {
        SCOPED_TRACE(i);
        auto page = pages[i].getObjectHandle();
        // What the page inherited travels with it, drawn exactly as in the source.
        EXPECT_EQ(page.getKey("/MediaBox").unparseResolved(), "[ 0 0 200 120 ]");
        EXPECT_EQ(renderPage(merged, int(i)), renderPage(source, int(i) - 1));
        forms.insert(page.getKey("/Resources").getKey("/XObject").getKey("/F").getObjGen());
    }
    EXPECT_EQ(forms.size(), 1u) << "a resource shared by the pages is written once";
    // The link leads to the copy of the last page, not to a stray copy of the source's.
    auto dest = pages[1].getObjectHandle().getKey("/Annots").getArrayItem(0).getKey("/Dest");
    EXPECT_EQ(dest.getArrayItem(0).getObjGen(), pages[3].getObjectHandle().getObjGen());
    // Nothing of the source's page tree came along.
    std::map<std::string, int> types;
    for (auto &object : out.getAllObjects())
        if (object.isDictionary() && object.getKey("/Type").isName())
            ++types[object.getKey("/Type").getName()];
    EXPECT_EQ(types["/Page"], 4);
    EXPECT_EQ(types["/Pages"], 1);
    EXPECT_EQ(types["/Catalog"], 1);
}

struct RecompressionCase {
    int selector; // 1 takes bilevel pages, 2 greyscale and 3 colour
    const char *name;
};

// What each name writes: its filter and a mark of its /DecodeParms. Only Jpeg loses detail.
const std::map<std::string, std::pair<std::string, std::string>> kWritten = {
    {"Lzw", {"/LZWDecode", ""}},
    {"Zip", {"/FlateDecode", ""}},
    {"Packbits", {"/RunLengthDecode", ""}},
    {"Jpeg", {"/DCTDecode", ""}},
    {"CCITT-G3", {"/CCITTFaxDecode", "/K 0"}},
    {"CCITT-G4", {"/CCITTFaxDecode", "/K -1"}}};

class RecompressionTest : public testing::TestWithParam<RecompressionCase> {};

TEST_P(RecompressionTest, NameGivesItsFilter)
{
    const auto &c = GetParam();
    const auto &[filter, parm] = kWritten.at(c.name);
    SandboxDir box;
    const TiffLayout inputs[] = {fax(), grey(8, PHOTOMETRIC_MINISBLACK, COMPRESSION_LZW),
                                 rgb(COMPRESSION_LZW)};
    QImage expected;
    const QString in = tiff(box, "in.tif", inputs[c.selector - 1], &expected);
    const QString pdf = box.filePath("out.pdf");
    const int32_t h = ApCreate(s(pdf));
    ASSERT_GT(h, 0);
    ASSERT_EQ(ApSetFunction(h, 123, c.selector, 0, c.name, 0), 0);
    ASSERT_EQ(ApAddImage(h, s(in)), 0);
    ASSERT_EQ(ApClose(h), 0);
    ASSERT_TRUE(qpdfChecks(pdf));
    const auto img = probePdf(pdf).at(0).images.at(0);
    EXPECT_EQ(img.filter, filter);
    EXPECT_NE(img.decodeParms.find(parm), std::string::npos) << img.decodeParms;
    const QImage painted = paintedPixels(pdf, 0, expected.width(), expected.height());
    if (std::string(c.name) != "Jpeg") {
        EXPECT_EQ(maxChannelDifference(painted, expected), 0);
    } else {
        double mean = -1;
        ASSERT_GE(maxChannelDifference(painted, expected, &mean), 0);
        // Sharp synthetic stripes are JPEG's worst case (about 18 here); swapped or
        // untransformed colour channels come out far above 40.
        EXPECT_TRUE(mean >= 0 && mean < 30) << mean;
    }
}

const RecompressionCase kRecompressions[] = {
    {1, "Lzw"},      {1, "Zip"},  {1, "CCITT-G3"}, {1, "CCITT-G4"}, {2, "Lzw"},      {2, "Zip"},
    {2, "Packbits"}, {2, "Jpeg"}, {3, "Lzw"},      {3, "Zip"},      {3, "Packbits"}, {3, "Jpeg"}};

INSTANTIATE_TEST_SUITE_P(Names, RecompressionTest, testing::ValuesIn(kRecompressions),
                         [](const auto &info) {
                             std::string n = std::string(info.param.name) + "_class" +
                                             std::to_string(info.param.selector);
                             std::replace(n.begin(), n.end(), '-', '_');
                             return n;
                         });

TEST(Recompression, AppliesOnlyToItsClass)
{
    SandboxDir box;
    const QString colour = tiff(box, "rgb.tif", rgb(COMPRESSION_LZW));
    const QString bilevel = tiff(box, "fax.tif", fax());
    const QString pdf = box.filePath("out.pdf");
    const int32_t h = ApCreate(s(pdf));
    ASSERT_EQ(ApSetFunction(h, 123, 2, 0, "Jpeg", 0), 0); // greyscale only
    ASSERT_EQ(ApAddImage(h, s(colour)), 0);
    ASSERT_EQ(ApAddImage(h, s(bilevel)), 0);
    ASSERT_EQ(ApClose(h), 0);
    const auto pages = probePdf(pdf);
    ASSERT_EQ(pages.size(), 2u);
    EXPECT_EQ(pages[0].images[0].filter, "/LZWDecode");
    EXPECT_EQ(pages[1].images[0].filter, "/CCITTFaxDecode");
}

TEST(Recompression, RefusedSettings)
{
    SandboxDir box;
    const int32_t h = ApCreate(s(box.filePath("out.pdf")));
    ASSERT_GT(h, 0);
    struct Row {
        int32_t handle, code, selector;
        const char *name;
        int32_t status;
    } rows[] = {
        {h, 123, 1, "CCITT-G4", 0}, {h, 123, 2, "", 0},          {h, 123, 3, "Jpeg", 0},
        {h, 999, 1, "Lzw", -2},     {h, 123, 0, "Lzw", -3},      {h, 123, 4, "Lzw", -3},
        {h, 123, 3, "Gif", -4},     {h, 123, 2, "CCITT-G3", -5}, {h, 123, 3, "CCITT-G4", -5},
        {h, 123, 1, "Jpeg", -5},    {h + 7, 123, 1, "Lzw", -1},
    };
    for (const auto &r : rows)
        EXPECT_EQ(ApSetFunction(r.handle, r.code, r.selector, 0, r.name, 0), r.status)
            << r.code << " " << r.selector << " " << r.name;
    EXPECT_EQ(ApClose(h), -2); // nothing added
}

TEST(DepthQuery, BitsPerPixelOfTheFirstPage)
{
    SandboxDir box;
    const auto saved = [&](const char *name, QImage::Format format, const char *kind) {
        return savedImage(box, name, colourPattern(10, 10).convertToFormat(format), kind);
    };
    const struct {
        QString path;
        int32_t depth;
    } rows[] = {
        {tiff(box, "1.tif", fax()), 1},
        {tiff(box, "4.tif", palette(4)), 4},
        {tiff(box, "8.tif", grey(8, PHOTOMETRIC_MINISBLACK)), 8},
        {tiff(box, "16.tif", grey(16, PHOTOMETRIC_MINISBLACK)), 16},
        {tiff(box, "24.tif", rgb(COMPRESSION_LZW)), 24},
        {tiff(box, "32.tif", {.extraSamples = 2}), 32},
        {tiff(box, "32cmyk.tif", cmyk()), 32},
        {tiff(box, "48.tif", {.bps = 16}), 48},
        {tiff(box, "64.tif", {.bps = 16, .extraSamples = 2}), 64},
        {saved("24.jpg", QImage::Format_RGB32, "JPEG"), 24},
        {saved("8.jpg", QImage::Format_Grayscale8, "JPEG"), 8},
        {saved("32.png", QImage::Format_ARGB32, "PNG"), 32},
        {saved("1.png", QImage::Format_Mono, "PNG"), 1},
        {box.filePath("missing.tif"), -53},
        {box.write("empty.tif", {}), -321},
        {box.write("text.jpg", "just some words, not a picture"), -321},
    };
    for (const auto &r : rows)
        EXPECT_EQ(ApGetFunction(0, 211, 0, 0, s(r.path), 0), r.depth) << s(r.path);
    EXPECT_EQ(ApGetFunction(0, 999, 0, 0, s(rows[0].path), 0), -2);
}

TEST(Failures, UnreadableImagesThrowAndLeaveTheDocumentAsItWas)
{
    SandboxDir box;
    const QString good = savedImage(box, "good.png", colourPattern(16, 16), "PNG");
    const QByteArray jpg = readFile(savedImage(box, "full.jpg", colourPattern(200, 200), "JPEG"));
    QByteArray tif = readFile(tiff(box, "full.tif", rgb(COMPRESSION_LZW)));
    const QByteArray bmp = readFile(savedImage(box, "full.bmp", colourPattern(60, 60), "BMP"));
    const QByteArray pdf = readFile(linkedPdf(box));
    QByteArray headless = tif;
    headless.replace(0, 4, QByteArray(4, '\0'));
    const struct {
        QString path;
        int32_t number;
    } rows[] = {
        {box.filePath("missing.png"), 53},
        {box.mkdir("a_folder.png"), 75},
        {box.write("zero.jpg", {}), 321},
        {box.write("words.jpg", "not an image at all"), 321},
        {box.write("cut.jpg", jpg.left(jpg.size() / 2)), 321},
        {box.write("cut.tif", tif.left(200)), 321},
        {box.write("headless.tif", headless), 321},
        {box.write("cut.png", readFile(good).left(60)), 321},
        {box.write("words.tga", "not a targa"), 321},
        // Failures inside the loaded modules arrive with their own numbers and texts.
        {box.write("cut.bmp", bmp.left(bmp.size() / 3)), 321},
        {box.write("cut.pdf", pdf.left(pdf.size() / 2)), 321},
    };
    const QString out = box.filePath("out.pdf");
    const int32_t h = ApCreate(s(out));
    ASSERT_EQ(ApAddImage(h, s(good)), 0);
    testing::internal::CaptureStderr();
    for (const auto &r : rows) {
        const pw::Result<int32_t> added = ApAddImage(h, s(r.path));
        ASSERT_FALSE(added) << "no failure for " << s(r.path);
        EXPECT_EQ(added.failure().number, r.number) << s(r.path) << ": " << added.failure().what();
        EXPECT_GT(std::string(added.failure().what()).size(), 10u);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_EQ(ApClose(h), 0);
    EXPECT_EQ(probePdf(out).size(), 1u);
}

TEST(Failures, UnwritableTargetsAreRefusedAtCreate)
{
    SandboxDir box;
    const QString locked = box.mkdir("locked");
    QFile::setPermissions(locked, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    const QString readOnlyFile = box.write("ro.pdf", "x");
    QFile::setPermissions(readOnlyFile, QFileDevice::ReadOwner);
    const bool root = ::geteuid() == 0;
    if (!root) {
        EXPECT_EQ(ApCreate(s(locked + "/out.pdf")), -1);
        EXPECT_EQ(ApCreate(s(readOnlyFile)), -1);
    }
    EXPECT_EQ(ApCreate(s(box.filePath("no/such/folder/out.pdf"))), -1);
    EXPECT_EQ(ApCreate(s(box.mkdir("is_a_folder.pdf"))), -1);
    EXPECT_EQ(ApCreate(""), -1);
    QFile::setPermissions(locked,
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

TEST(Lifecycle, TargetIsReplacedOnlyAtCloseAndHandlesComeBack)
{
    SandboxDir box;
    const QString pdf = box.write("out.pdf", "old contents");
    const QString png = savedImage(box, "in.png", colourPattern(16, 16), "PNG");
    const int32_t first = ApCreate(s(pdf));
    const int32_t second = ApCreate(s(box.filePath("other.pdf")));
    EXPECT_GT(first, 0);
    EXPECT_NE(first, second);
    ASSERT_EQ(ApAddImage(first, s(png)), 0);
    EXPECT_EQ(readFile(pdf), "old contents");
    ASSERT_EQ(ApClose(first), 0);
    EXPECT_EQ(ApClose(second), -2);
    EXPECT_EQ(probePdf(pdf).size(), 1u);
    // No temporary file stays behind, and a document with nothing added leaves no file.
    EXPECT_EQ(QDir(box.path()).entryList(QDir::Files | QDir::Hidden),
              QStringList({"in.png", "out.pdf"}));
    EXPECT_EQ(ApCreate(s(box.filePath("third.pdf"))), first); // small numbers come back
    EXPECT_EQ(ApDiscard(first), 0);
    EXPECT_EQ(ApDiscard(first), -1);
    EXPECT_EQ(ApAddImage(9999, "/nonexistent.png"), -1);
    EXPECT_EQ(ApClose(9999), -1);
    EXPECT_EQ(ApClose(0), -1);
}

// Pages of several megabytes decode their strips on several handles at once (two on a 2-core
// machine); every share must land where it belongs, and damage in any share must fail the
// page cleanly.
TEST(LargePages, StripsDecodedSideBySideKeepEveryRow)
{
    SandboxDir box;
    TiffLayout layout = grey(8, PHOTOMETRIC_MINISBLACK, COMPRESSION_LZW);
    layout.width = 1800;
    layout.height = 1300; // 2.3 MB decoded
    layout.rowsPerStrip = 8;
    layout.predictor = 2;
    QImage expected;
    const QString in = tiff(box, "big.tif", layout, &expected);
    const QString pdf = box.filePath("big.pdf");
    ASSERT_EQ(convertFiles({in}, pdf), 0);
    QPDF out;
    out.processFile(s(pdf).c_str());
    auto page = QPDFPageDocumentHelper(out).getAllPages().at(0);
    const auto data = page.getImages().begin()->second.getStreamData(qpdf_dl_generalized);
    const QImage grey = expected.convertToFormat(QImage::Format_Grayscale8);
    ASSERT_EQ(data->getSize(), size_t(layout.width) * layout.height);
    for (int y = 0; y < layout.height; ++y)
        ASSERT_EQ(std::memcmp(data->getBuffer() + size_t(y) * layout.width, grey.constScanLine(y),
                              size_t(layout.width)),
                  0)
            << "row " << y;

    QFile file(in);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    for (double at : {0.25, 0.75}) {
        SCOPED_TRACE(at);
        const QByteArray original = readFile(in);
        // Codes past the end of the LZW table, in the first half of the strips or the second.
        QByteArray damaged = original;
        damaged.replace(int(damaged.size() * at), 64, QByteArray(64, '\xFF'));
        ASSERT_TRUE(file.seek(0) && file.write(damaged) == damaged.size() && file.flush());
        const int32_t h = ApCreate(s(box.filePath("damaged.pdf")));
        testing::internal::CaptureStderr();
        EXPECT_FALSE(ApAddImage(h, s(in)));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(ApClose(h), -2);
        ASSERT_TRUE(file.seek(0) && file.write(original) == original.size() && file.flush());
    }
}

// Decoders write into buffers that are not cleared first; a byte they leave alone (the padding
// bits of a row, a short strip) would make the PDF depend on what the memory held before.
// glibc's perturb setting fills every fresh allocation with a pattern to show it.
TEST(Lifecycle, OutputDoesNotDependOnWhatMemoryHeld)
{
    SandboxDir box;
    TiffLayout padded = fax(PHOTOMETRIC_MINISWHITE, COMPRESSION_CCITTFAX4, 50);
    padded.width = 301; // rows end in padding bits
    TiffLayout big = grey(8, PHOTOMETRIC_MINISBLACK, COMPRESSION_LZW);
    big.width = 1801;
    big.height = 1200;
    big.rowsPerStrip = 16;
    TiffLayout nibbles = palette(4);
    nibbles.width = 63;
    const TiffLayout deep = {
        .bps = 16, .compression = COMPRESSION_DEFLATE, .rowsPerStrip = 8, .extraSamples = 2};
    const std::vector<QString> inputs = {
        tiff(box, "fax.tif", padded), tiff(box, "big.tif", big), tiff(box, "deep.tif", deep),
        tiff(box, "nibbles.tif", nibbles), savedImage(box, "in.png", colourPattern(33, 17), "PNG")};
    ApSetDeterministic(true);
    ASSERT_EQ(convertFiles(inputs, box.filePath("plain.pdf")), 0);
    mallopt(M_PERTURB, 0xA5);
    const int perturbed = convertFiles(inputs, box.filePath("perturbed.pdf"));
    mallopt(M_PERTURB, 0);
    ApSetDeterministic(false);
    ASSERT_EQ(perturbed, 0);
    EXPECT_EQ(readFile(box.filePath("plain.pdf")), readFile(box.filePath("perturbed.pdf")));
}

} // namespace
