// The image-to-PDF library seen from its contract: what lands in the PDF for each kind of
// input, what each recompression name gives, and how unreadable input and targets fail.

#include "image_to_pdf.h"
#include "pdf_probe.h"
#include "sample_images.h"
#include "sandbox.h"
#include "stderr_capture.h"

#include <gtest/gtest.h>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>
#include <tiffio.h>

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstring>
#include <functional>
#include <map>
#include <set>

#include <malloc.h>
#include <unistd.h>

namespace {

// Runs one conversion the way the binding does; returns ApClose's status.
int convertFiles(const std::vector<QString> &inputs, const QString &pdf)
{
    const int32_t h = ApCreate(pdf.toStdString());
    if (h <= 0)
        return -100;
    for (const QString &in : inputs)
        ApAddImage(h, in.toStdString());
    return ApClose(h);
}

std::string s(const QString &q)
{
    return q.toStdString();
}

QByteArray fileBytes(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
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

TiffLayout g4Layout(uint16_t photometric = PHOTOMETRIC_MINISWHITE)
{
    TiffLayout t;
    t.width = 300;
    t.height = 120;
    t.bps = 1;
    t.spp = 1;
    t.photometric = photometric;
    t.compression = COMPRESSION_CCITTFAX4;
    return t;
}

// --- Lossless paths: what poppler paints is exactly the source -------------------------------

struct LosslessCase {
    const char *name;
    // Writes the input into the sandbox; returns its path and the expected picture.
    std::function<QString(const SandboxDir &, QImage &)> make;
    const char *filter; // expected filter of the page image
    int blendTolerance = 0;
};

class LosslessTest : public testing::TestWithParam<LosslessCase> {};

TEST_P(LosslessTest, PaintsTheSourcePixels)
{
    SandboxDir box;
    QImage expected;
    const QString input = GetParam().make(box, expected);
    const QString pdf = box.filePath("out.pdf");
    ASSERT_EQ(convertFiles({input}, pdf), 0);
    ASSERT_TRUE(qpdfChecks(pdf));
    const auto pages = probePdf(pdf);
    ASSERT_EQ(pages.size(), 1u);
    ASSERT_FALSE(pages[0].images.empty());
    EXPECT_EQ(pages[0].images[0].filter, GetParam().filter);
    const QImage painted = paintedPixels(pdf, 0, expected.width(), expected.height());
    // Blending a half-transparent pixel over the paper may round either way.
    EXPECT_LE(maxChannelDifference(painted, expected), GetParam().blendTolerance);
}

TiffLayout rgb(uint16_t compression, int rowsPerStrip = 0, uint16_t predictor = 1)
{
    TiffLayout t;
    t.compression = compression;
    t.rowsPerStrip = rowsPerStrip;
    t.predictor = predictor;
    return t;
}

// Uncompressed RGB; `extraSamples` 1 associated alpha, 2 unassociated.
TiffLayout plainRgb(int bps, int extraSamples)
{
    TiffLayout t = rgb(COMPRESSION_NONE);
    t.bps = bps;
    t.extraSamples = extraSamples;
    return t;
}

TiffLayout grey(int bps, uint16_t photometric, uint16_t compression = COMPRESSION_NONE)
{
    TiffLayout t;
    t.bps = bps;
    t.spp = 1;
    t.photometric = photometric;
    t.compression = compression;
    return t;
}

TiffLayout palette(int bps)
{
    return grey(bps, PHOTOMETRIC_PALETTE, COMPRESSION_LZW);
}

// A PNG of the colour pattern stored in `format`; painted as that format shows it.
LosslessCase pngCase(const char *name, QImage::Format format, const char *fileName = "in.png")
{
    return {name,
            [format, fileName](const SandboxDir &b, QImage &e) {
                const QImage stored = colourPattern(70, 50).convertToFormat(
                    format, Qt::ThresholdDither | Qt::AvoidDither);
                e = stored.convertToFormat(QImage::Format_RGB32);
                return savedImage(b, fileName, stored, "PNG");
            },
            "/FlateDecode"};
}

LosslessCase tiffCase(const char *name, TiffLayout layout, const char *filter)
{
    const int tolerance = layout.extraSamples ? 1 : 0;
    return {name,
            [layout](const SandboxDir &box, QImage &expected) {
                return tiff(box, "in.tif", layout, &expected);
            },
            filter, tolerance};
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, LosslessTest,
    testing::Values(
        pngCase("png_rgb", QImage::Format_RGB888), pngCase("png_grey", QImage::Format_Grayscale8),
        pngCase("png_palette", QImage::Format_Indexed8),
        pngCase("png_named_tif", QImage::Format_RGB888, "really_png.tif"),
        LosslessCase{"png_rgba_over_white",
                     [](const SandboxDir &b, QImage &e) {
                         QImage a = colourPattern(40, 30).convertToFormat(QImage::Format_ARGB32);
                         for (int y = 0; y < 30; ++y)
                             for (int x = 20; x < 40; ++x)
                                 a.setPixel(x, y, qRgba(0, 0, 0, 0));
                         e = a.copy();
                         e.fill(Qt::white);
                         for (int y = 0; y < 30; ++y)
                             for (int x = 0; x < 20; ++x)
                                 e.setPixel(x, y, a.pixel(x, y));
                         e = e.convertToFormat(QImage::Format_RGB32);
                         return savedImage(b, "in.png", a, "PNG");
                     },
                     "/FlateDecode"},
        LosslessCase{"bmp_through_magick",
                     [](const SandboxDir &b, QImage &e) {
                         e = colourPattern(33, 21);
                         return savedImage(b, "in.bmp", e, "BMP");
                     },
                     "/FlateDecode"},
        tiffCase("tiff_lzw_one_strip", rgb(COMPRESSION_LZW), "/LZWDecode"),
        tiffCase("tiff_lzw_predictor", rgb(COMPRESSION_LZW, 0, PREDICTOR_HORIZONTAL), "/LZWDecode"),
        tiffCase("tiff_lzw_many_strips", rgb(COMPRESSION_LZW, 7), "/FlateDecode"),
        tiffCase("tiff_packbits_strips", rgb(COMPRESSION_PACKBITS, 5), "/RunLengthDecode"),
        tiffCase("tiff_deflate", rgb(COMPRESSION_ADOBE_DEFLATE), "/FlateDecode"),
        tiffCase("tiff_g4_min_is_white", g4Layout(), "/CCITTFaxDecode"),
        tiffCase("tiff_g4_min_is_black", g4Layout(PHOTOMETRIC_MINISBLACK), "/CCITTFaxDecode"),
        tiffCase(
            "tiff_g3",
            [] {
                auto t = g4Layout();
                t.compression = COMPRESSION_CCITTFAX3;
                return t;
            }(),
            "/CCITTFaxDecode"),
        tiffCase(
            "tiff_g4_many_strips",
            [] {
                auto t = g4Layout();
                t.rowsPerStrip = 16;
                return t;
            }(),
            "/FlateDecode"),
        tiffCase("tiff_grey8", grey(8, PHOTOMETRIC_MINISBLACK), "/FlateDecode"),
        tiffCase("tiff_grey8_min_is_white", grey(8, PHOTOMETRIC_MINISWHITE, COMPRESSION_LZW),
                 "/LZWDecode"),
        tiffCase("tiff_grey4", grey(4, PHOTOMETRIC_MINISBLACK), "/FlateDecode"),
        tiffCase("tiff_grey16", grey(16, PHOTOMETRIC_MINISBLACK), "/FlateDecode"),
        tiffCase("tiff_palette4", palette(4), "/LZWDecode"),
        tiffCase("tiff_palette8", palette(8), "/LZWDecode"),
        tiffCase("tiff_rgb16", plainRgb(16, 0), "/FlateDecode"),
        tiffCase("tiff_rgba_unassociated", plainRgb(8, 2), "/FlateDecode"),
        tiffCase("tiff_rgba_associated", plainRgb(8, 1), "/FlateDecode"),
        tiffCase("tiff_rgba16", plainRgb(16, 2), "/FlateDecode")),
    [](const auto &info) { return std::string(info.param.name); });

// --- Data kept as stored ---------------------------------------------------------------------

TEST(StoredData, JpegIsEmbeddedByteForByte)
{
    SandboxDir box;
    const QString jpg = savedImage(box, "photo.jpg", colourPattern(120, 80), "JPEG", 90);
    const QString pdf = box.filePath("out.pdf");
    ASSERT_EQ(convertFiles({jpg}, pdf), 0);
    const auto pages = probePdf(pdf);
    ASSERT_EQ(pages.size(), 1u);
    EXPECT_EQ(pages[0].images[0].filter, "/DCTDecode");
    EXPECT_EQ(QByteArray::fromStdString(pages[0].images[0].raw), fileBytes(jpg));
    EXPECT_EQ(pages[0].images[0].colourSpace, "/DeviceRGB");
}

TEST(StoredData, G4StripIsEmbeddedAsStored)
{
    SandboxDir box;
    for (uint16_t photometric : {PHOTOMETRIC_MINISWHITE, PHOTOMETRIC_MINISBLACK}) {
        const QString path = tiff(box, "fax.tif", g4Layout(photometric));
        std::string strip;
        {
            TIFF *t = TIFFOpen(s(path).c_str(), "r");
            ASSERT_NE(t, nullptr);
            strip.resize(size_t(TIFFRawStripSize(t, 0)));
            TIFFReadRawStrip(t, 0, strip.data(), tmsize_t(strip.size()));
            TIFFClose(t);
        }
        const QString pdf = box.filePath("out.pdf");
        ASSERT_EQ(convertFiles({path}, pdf), 0);
        const auto img = probePdf(pdf).at(0).images.at(0);
        EXPECT_EQ(img.filter, "/CCITTFaxDecode");
        EXPECT_EQ(img.raw, strip);
        EXPECT_NE(img.decodeParms.find("/K -1"), std::string::npos) << img.decodeParms;
        EXPECT_NE(img.decodeParms.find("/Columns 300"), std::string::npos) << img.decodeParms;
        EXPECT_NE(img.decodeParms.find("/Rows 120"), std::string::npos) << img.decodeParms;
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
    EXPECT_DOUBLE_EQ(pages[0].width, 144);
    EXPECT_DOUBLE_EQ(pages[0].height, 72);
    EXPECT_DOUBLE_EQ(pages[1].width, 300);
    EXPECT_DOUBLE_EQ(pages[1].height, 150);
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
    TiffLayout cmyk = rgb(COMPRESSION_NONE);
    cmyk.spp = 4;
    cmyk.photometric = PHOTOMETRIC_SEPARATED;
    TiffLayout cmyk16 = cmyk;
    cmyk16.bps = 16;
    const TiffLayout rgba16 = plainRgb(16, 2);
    const Case cases[] = {
        {"cmyk", cmyk, "/DeviceCMYK", 8, false},
        {"cmyk16", cmyk16, "/DeviceCMYK", 16, false},
        {"palette", palette(8), "/Indexed", 8, false},
        {"grey16", grey(16, PHOTOMETRIC_MINISBLACK), "/DeviceGray", 16, false},
        {"rgba16", rgba16, "/DeviceRGB", 16, true},
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

// --- Pages -------------------------------------------------------------------------------------

TEST(Pages, EveryTiffPageButNoReducedCopies)
{
    SandboxDir box;
    TiffLayout layout = g4Layout();
    layout.pages = 5;
    layout.reducedCopy = true;
    const QString in = tiff(box, "five.tif", layout);
    const QString pdf = box.filePath("out.pdf");
    ASSERT_EQ(convertFiles({in}, pdf), 0);
    EXPECT_EQ(probePdf(pdf).size(), 5u);
    EXPECT_TRUE(qpdfChecks(pdf));
}

TEST(Pages, MergeOfImagesAndPdfsKeepsOrder)
{
    SandboxDir box;
    TiffLayout two = rgb(COMPRESSION_LZW);
    two.pages = 2;
    const QString tif = tiff(box, "two.tif", two);
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
    QPDF pdf;
    pdf.emptyPDF();
    auto form = QPDFObjectHandle::newStream(&pdf, "0 0 50 50 re f\n");
    form.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
    form.getDict().replaceKey("/Subtype", QPDFObjectHandle::newName("/Form"));
    form.getDict().replaceKey("/BBox", QPDFObjectHandle::parse("[0 0 50 50]"));
    auto pagesNode = pdf.getRoot().getKey("/Pages");
    pagesNode.replaceKey("/MediaBox", QPDFObjectHandle::parse("[0 0 200 120]"));
    std::vector<QPDFObjectHandle> pages;
    const char *colours[] = {"1 0 0", "0 1 0", "0 0 1"};
    for (const char *rgb : colours) {
        auto resources = QPDFObjectHandle::newDictionary();
        resources.replaceKey("/XObject", QPDFObjectHandle::newDictionary());
        resources.getKey("/XObject").replaceKey("/F", form);
        auto page = pdf.makeIndirectObject(QPDFObjectHandle::parse("<< /Type /Page >>"));
        page.replaceKey("/Parent", pagesNode);
        page.replaceKey("/Resources", resources);
        page.replaceKey("/Contents",
                        QPDFObjectHandle::newStream(&pdf, std::string(rgb) +
                                                              " rg q 1 0 0 1 20 20 cm /F Do Q\n"));
        pages.push_back(page);
    }
    auto kids = QPDFObjectHandle::newArray();
    for (auto &page : pages)
        kids.appendItem(page);
    pagesNode.replaceKey("/Kids", kids);
    pagesNode.replaceKey("/Count", QPDFObjectHandle::newInteger(3));
    auto link = QPDFObjectHandle::parse("<< /Type /Annot /Subtype /Link /Rect [0 0 50 50] >>");
    auto dest = QPDFObjectHandle::newArray();
    dest.appendItem(pages[2]);
    dest.appendItem(QPDFObjectHandle::newName("/Fit"));
    link.replaceKey("/Dest", dest);
    auto annots = QPDFObjectHandle::newArray();
    annots.appendItem(pdf.makeIndirectObject(link));
    pages[0].replaceKey("/Annots", annots);
    const QString path = box.filePath("linked.pdf");
    const std::string file = s(path); // the writer keeps the name until it has written
    QPDFWriter writer(pdf, file.c_str());
    writer.write();
    return path;
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

// --- Recompression --------------------------------------------------------------------------

struct RecompressionCase {
    int selector;
    const char *name;
    const char *filter;
    const char *parm; // expected in /DecodeParms, "" for none
    bool lossless;
};

class RecompressionTest : public testing::TestWithParam<RecompressionCase> {};

TEST_P(RecompressionTest, NameGivesItsFilter)
{
    const auto &c = GetParam();
    SandboxDir box;
    QImage expected;
    QString in;
    if (c.selector == 1)
        in = tiff(box, "in.tif", g4Layout(), &expected);
    else if (c.selector == 2)
        in = tiff(box, "in.tif", grey(8, PHOTOMETRIC_MINISBLACK, COMPRESSION_LZW), &expected);
    else
        in = tiff(box, "in.tif", rgb(COMPRESSION_LZW), &expected);
    const QString pdf = box.filePath("out.pdf");
    const int32_t h = ApCreate(s(pdf));
    ASSERT_GT(h, 0);
    ASSERT_EQ(ApGetFunction(0, 211, 0, 0, s(in), 0),
              c.selector == 1 ? 1 : (c.selector == 2 ? 8 : 24));
    ASSERT_EQ(ApSetFunction(h, 123, c.selector, 0, c.name, 0), 0);
    ASSERT_EQ(ApAddImage(h, s(in)), 0);
    ASSERT_EQ(ApClose(h), 0);
    ASSERT_TRUE(qpdfChecks(pdf));
    const auto img = probePdf(pdf).at(0).images.at(0);
    EXPECT_EQ(img.filter, c.filter);
    if (*c.parm) {
        EXPECT_NE(img.decodeParms.find(c.parm), std::string::npos) << img.decodeParms;
    }
    const QImage painted = paintedPixels(pdf, 0, expected.width(), expected.height());
    if (c.lossless) {
        EXPECT_EQ(maxChannelDifference(painted, expected), 0);
    } else {
        const double mean = meanChannelDifference(painted, expected);
        // Sharp synthetic stripes are JPEG's worst case (about 18 here); swapped or
        // untransformed colour channels come out far above 40.
        EXPECT_TRUE(mean >= 0 && mean < 30) << mean;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Names, RecompressionTest,
    testing::Values(RecompressionCase{1, "Lzw", "/LZWDecode", "", true},
                    RecompressionCase{1, "Zip", "/FlateDecode", "", true},
                    RecompressionCase{1, "CCITT-G3", "/CCITTFaxDecode", "/K 0", true},
                    RecompressionCase{1, "CCITT-G4", "/CCITTFaxDecode", "/K -1", true},
                    RecompressionCase{2, "Lzw", "/LZWDecode", "", true},
                    RecompressionCase{2, "Zip", "/FlateDecode", "", true},
                    RecompressionCase{2, "Packbits", "/RunLengthDecode", "", true},
                    RecompressionCase{2, "Jpeg", "/DCTDecode", "", false},
                    RecompressionCase{3, "Lzw", "/LZWDecode", "", true},
                    RecompressionCase{3, "Zip", "/FlateDecode", "", true},
                    RecompressionCase{3, "Packbits", "/RunLengthDecode", "", true},
                    RecompressionCase{3, "Jpeg", "/DCTDecode", "", false}),
    [](const auto &info) {
        std::string n =
            std::string(info.param.name) + "_class" + std::to_string(info.param.selector);
        for (auto &ch : n)
            if (!std::isalnum(static_cast<unsigned char>(ch)))
                ch = '_';
        return n;
    });

TEST(Recompression, AppliesOnlyToItsClass)
{
    SandboxDir box;
    const QString colour = tiff(box, "rgb.tif", rgb(COMPRESSION_LZW));
    const QString fax = tiff(box, "fax.tif", g4Layout());
    const QString pdf = box.filePath("out.pdf");
    const int32_t h = ApCreate(s(pdf));
    ASSERT_EQ(ApSetFunction(h, 123, 2, 0, "Jpeg", 0), 0); // greyscale only
    ASSERT_EQ(ApAddImage(h, s(colour)), 0);
    ASSERT_EQ(ApAddImage(h, s(fax)), 0);
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

// --- Depth query -----------------------------------------------------------------------------

TEST(DepthQuery, BitsPerPixelOfTheFirstPage)
{
    SandboxDir box;
    TiffLayout cmyk = rgb(COMPRESSION_NONE);
    cmyk.spp = 4;
    cmyk.photometric = PHOTOMETRIC_SEPARATED;
    const struct {
        QString path;
        int32_t depth;
    } rows[] = {
        {tiff(box, "1.tif", g4Layout()), 1},
        {tiff(box, "4.tif", palette(4)), 4},
        {tiff(box, "8.tif", grey(8, PHOTOMETRIC_MINISBLACK)), 8},
        {tiff(box, "16.tif", grey(16, PHOTOMETRIC_MINISBLACK)), 16},
        {tiff(box, "24.tif", rgb(COMPRESSION_LZW)), 24},
        {tiff(box, "32.tif", plainRgb(8, 2)), 32},
        {tiff(box, "32cmyk.tif", cmyk), 32},
        {tiff(box, "48.tif", plainRgb(16, 0)), 48},
        {tiff(box, "64.tif", plainRgb(16, 2)), 64},
        {savedImage(box, "24.jpg", colourPattern(10, 10), "JPEG"), 24},
        {savedImage(box, "8.jpg", colourPattern(10, 10).convertToFormat(QImage::Format_Grayscale8),
                    "JPEG"),
         8},
        {savedImage(box, "32.png", colourPattern(10, 10).convertToFormat(QImage::Format_ARGB32),
                    "PNG"),
         32},
        {savedImage(box, "1.png", bilevelPattern(10, 10).convertToFormat(QImage::Format_Mono),
                    "PNG"),
         1},
        {box.filePath("missing.tif"), -53},
        {box.write("empty.tif", {}), -321},
        {box.write("text.jpg", "just some words, not a picture"), -321},
    };
    for (const auto &r : rows)
        EXPECT_EQ(ApGetFunction(0, 211, 0, 0, s(r.path), 0), r.depth) << s(r.path);
    EXPECT_EQ(ApGetFunction(0, 999, 0, 0, s(rows[0].path), 0), -2);
}

// --- Failures --------------------------------------------------------------------------------

TEST(Failures, UnreadableImagesThrowAndLeaveTheDocumentAsItWas)
{
    SandboxDir box;
    const QString good = savedImage(box, "good.png", colourPattern(16, 16), "PNG");
    const QByteArray jpg = fileBytes(savedImage(box, "full.jpg", colourPattern(200, 200), "JPEG"));
    QByteArray tif = fileBytes(tiff(box, "full.tif", rgb(COMPRESSION_LZW)));
    const QByteArray bmp = fileBytes(savedImage(box, "full.bmp", colourPattern(60, 60), "BMP"));
    const QByteArray pdf = fileBytes(linkedPdf(box));
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
        {box.write("cut.png", fileBytes(good).left(60)), 321},
        {box.write("words.tga", "not a targa"), 321},
        // Failures inside the loaded modules arrive with their own numbers and texts.
        {box.write("cut.bmp", bmp.left(bmp.size() / 3)), 321},
        {box.write("cut.pdf", pdf.left(pdf.size() / 2)), 321},
    };
    const QString out = box.filePath("out.pdf");
    const int32_t h = ApCreate(s(out));
    ASSERT_EQ(ApAddImage(h, s(good)), 0);
    StderrCapture capture;
    for (const auto &r : rows) {
        try {
            ApAddImage(h, s(r.path));
            ADD_FAILURE() << "no failure for " << s(r.path);
        } catch (const ApFailure &f) {
            EXPECT_EQ(f.number, r.number) << s(r.path) << ": " << f.what();
            EXPECT_GT(std::string(f.what()).size(), 10u);
        }
    }
    EXPECT_EQ(capture.text(), "");
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
    EXPECT_EQ(fileBytes(pdf), "old contents");
    ASSERT_EQ(ApClose(first), 0);
    EXPECT_EQ(ApClose(second), -2);
    EXPECT_EQ(probePdf(pdf).size(), 1u);
    // No temporary file stays behind, and a document with nothing added leaves no file.
    EXPECT_EQ(QDir(box.path()).entryList(QDir::Files | QDir::Hidden),
              QStringList({"in.png", "out.pdf"}));
    EXPECT_EQ(ApCreate(s(box.filePath("third.pdf"))), first); // small numbers come back
    ApClose(first);
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
        const QByteArray original = fileBytes(in);
        // Codes past the end of the LZW table, in the first half of the strips or the second.
        QByteArray damaged = original;
        damaged.replace(int(damaged.size() * at), 64, QByteArray(64, '\xFF'));
        ASSERT_TRUE(file.seek(0) && file.write(damaged) == damaged.size() && file.flush());
        const int32_t h = ApCreate(s(box.filePath("damaged.pdf")));
        StderrCapture capture;
        EXPECT_THROW(ApAddImage(h, s(in)), ApFailure);
        EXPECT_EQ(capture.text(), "");
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
    TiffLayout fax = g4Layout();
    fax.width = 301; // rows end in padding bits
    fax.rowsPerStrip = 50;
    TiffLayout big = grey(8, PHOTOMETRIC_MINISBLACK, COMPRESSION_LZW);
    big.width = 1801;
    big.height = 1200;
    big.rowsPerStrip = 16;
    TiffLayout deep = rgb(COMPRESSION_DEFLATE, 8);
    deep.bps = 16;
    deep.extraSamples = 2;
    TiffLayout nibbles = palette(4);
    nibbles.width = 63;
    const std::vector<QString> inputs = {
        tiff(box, "fax.tif", fax), tiff(box, "big.tif", big), tiff(box, "deep.tif", deep),
        tiff(box, "nibbles.tif", nibbles), savedImage(box, "in.png", colourPattern(33, 17), "PNG")};
    ApSetDeterministic(true);
    ASSERT_EQ(convertFiles(inputs, box.filePath("plain.pdf")), 0);
    mallopt(M_PERTURB, 0xA5);
    const int perturbed = convertFiles(inputs, box.filePath("perturbed.pdf"));
    mallopt(M_PERTURB, 0);
    ApSetDeterministic(false);
    ASSERT_EQ(perturbed, 0);
    EXPECT_EQ(fileBytes(box.filePath("plain.pdf")), fileBytes(box.filePath("perturbed.pdf")));
}

} // namespace
