// Pages the right way up and of the size asked for: photos and scans that carry each of the
// eight orientations (tests/data/orientation) against their upright picture, and the page
// boxes and placements that each size, fit, turn and resolution give.

#include "image_to_pdf.h"
#include "page_layout.h"
#include "pdf_probe.h"
#include "sample_images.h"
#include "sandbox.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <QBuffer>
#include <QImageReader>
#include <QTransform>
#include <QtEndian>

#include <cmath>

namespace {

using pw::i2p::Fit;
using pw::i2p::PageLayout;
using pw::i2p::PageTurn;

const QString kData = QStringLiteral(PAGEWRIGHT_TEST_DATA_DIR) + "/orientation/";
constexpr double kMm = 72 / 25.4;

// The library's page layout for one test; the default again after it.
struct LayoutFor {
    explicit LayoutFor(const PageLayout &layout) { ApSetPageLayout(layout); }
    ~LayoutFor() { ApSetPageLayout({}); }
    LayoutFor(const LayoutFor &) = delete;
    LayoutFor &operator=(const LayoutFor &) = delete;
};

bool convert(const QString &input, const QString &pdf)
{
    const int32_t h = ApCreate(pdf.toStdString());
    try {
        ApAddImage(h, input.toStdString());
    } catch (const ApFailure &) {
        ApClose(h);
        return false;
    }
    return ApClose(h) == 0;
}

// The page as it is shown: its box, turned.
QSizeF shownSize(const ProbedPage &page)
{
    return page.rotate % 180 ? QSizeF(page.height, page.width) : QSizeF(page.width, page.height);
}

// The only page of `pdf`, written from `input`.
ProbedPage onlyPage(const QString &input, const QString &pdf)
{
    EXPECT_TRUE(convert(input, pdf));
    const auto pages = probePdf(pdf);
    EXPECT_EQ(pages.size(), 1u);
    return pages.empty() ? ProbedPage{} : pages[0];
}

TEST(UprightPages, JpegInEveryOrientationKeepsItsBytes)
{
    for (int orientation = 1; orientation <= 8; ++orientation) {
        const QString file =
            kData + (orientation == 1 ? QString("hopper.jpg")
                                      : QString("hopper_orientation_%1.jpg").arg(orientation));
        SCOPED_TRACE(file.toStdString());
        // Qt's own reading of the orientation gives the upright reference.
        QImageReader reader(file);
        reader.setAutoTransform(true);
        const QImage upright = reader.read();
        ASSERT_FALSE(upright.isNull());
        SandboxDir box;
        const QString pdf = box.filePath("out.pdf");
        const ProbedPage page = onlyPage(file, pdf);
        ASSERT_EQ(page.images.size(), 1u);
        EXPECT_EQ(QByteArray::fromStdString(page.images[0].raw), readFile(file));
        // poppler's and Qt's JPEG decoders may round a sample differently, nothing more.
        EXPECT_LE(
            maxChannelDifference(paintedPixels(pdf, 0, upright.width(), upright.height()), upright),
            2);
    }
}

TEST(UprightPages, FaxTiffInEveryOrientationIsItsUprightSize)
{
    SandboxDir box;
    const ProbedPage straight = onlyPage(kData + "g4_orientation_1.tif", box.filePath("1.pdf"));
    // 590 x 88 pixels at 96 dpi.
    EXPECT_EQ(shownSize(straight), QSizeF(442.5, 66));
    const QImage upright = paintedPixels(box.filePath("1.pdf"), 0, 590, 88);
    for (int orientation = 2; orientation <= 8; ++orientation) {
        SCOPED_TRACE(orientation);
        const QString pdf = box.filePath(QString("%1.pdf").arg(orientation));
        const ProbedPage page =
            onlyPage(kData + QString("g4_orientation_%1.tif").arg(orientation), pdf);
        ASSERT_EQ(page.images.size(), 1u);
        EXPECT_EQ(page.images[0].filter, "/CCITTFaxDecode") << "the fax data as stored";
        EXPECT_EQ(shownSize(page), QSizeF(442.5, 66));
        // Each file was drawn on its own: they differ from the first in about a hundred edge
        // pixels of 52,000 (a mean of 0.4 to 0.7), a page turned or mirrored wrongly in thousands.
        double mean = 0;
        maxChannelDifference(paintedPixels(pdf, 0, 590, 88), upright, &mean);
        EXPECT_LT(mean, 1);
    }
}

// A PNG of `picture` with an eXIf chunk naming `orientation`.
QByteArray pngWithOrientation(const QImage &picture, int orientation)
{
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    picture.save(&buffer, "PNG");
    // Big-endian TIFF structure: one directory of one SHORT entry, tag 274.
    QByteArray exif("MM\0*\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0", 19);
    exif += char(orientation);
    exif += QByteArray(6, '\0');
    const QByteArray chunk = "eXIf" + exif;
    QByteArray length(4, '\0'), crc(4, '\0');
    qToBigEndian<quint32>(quint32(exif.size()), length.data());
    qToBigEndian<quint32>(
        quint32(crc32(0, reinterpret_cast<const Bytef *>(chunk.data()), uInt(chunk.size()))),
        crc.data());
    png.insert(8 + 25, length + chunk + crc); // after the signature and the header chunk
    return png;
}

TEST(UprightPages, PngExifTurnsAndMirrors)
{
    const QImage picture = colourPattern(40, 24).convertToFormat(QImage::Format_RGB32);
    const QImage turned = picture.transformed(QTransform().rotate(90));
    const struct {
        int orientation;
        QImage upright;
    } rows[] = {{6, turned},
                {7, picture.mirrored(true, false).transformed(QTransform().rotate(90))}};
    SandboxDir box;
    for (const auto &r : rows) {
        SCOPED_TRACE(r.orientation);
        const QString png = box.write("in.png", pngWithOrientation(picture, r.orientation));
        const QString pdf = box.filePath("out.pdf");
        const ProbedPage page = onlyPage(png, pdf);
        EXPECT_EQ(page.images.at(0).filter, "/FlateDecode") << "the image data as stored";
        EXPECT_EQ(maxChannelDifference(paintedPixels(pdf, 0, 24, 40), r.upright), 0);
    }
}

TEST(PageLayout, PlacesTheImage)
{
    const auto layout = [](double w, double h, Fit fit = Fit::Into, double margin = 0,
                           PageTurn turn = PageTurn::FollowImage) {
        PageLayout l;
        l.width = w, l.height = h, l.fit = fit, l.margin = margin, l.turn = turn;
        return l;
    };
    PageLayout dpi144;
    dpi144.dpi = 144;
    PageLayout forced = dpi144;
    forced.forceDpi = true;
    PageLayout bordered;
    bordered.margin = 10;
    using M = std::array<double, 6>;
    const struct {
        const char *what;
        PageLayout layout;
        int pixelsWide, pixelsHigh;
        double dpi;
        int orientation;
        double pageW, pageH;
        int rotate;
        M matrix;
        bool clipped;
    } rows[] = {
        {"no resolution: 72 dpi", {}, 200, 100, 0, 1, 200, 100, 0, {200, 0, 0, 100, 0, 0}, false},
        {"--dpi for none", dpi144, 200, 100, 0, 1, 100, 50, 0, {100, 0, 0, 50, 0, 0}, false},
        {"--dpi leaves the file's",
         dpi144,
         600,
         300,
         300,
         1,
         144,
         72,
         0,
         {144, 0, 0, 72, 0, 0},
         false},
        {"--force-dpi", forced, 600, 300, 300, 1, 300, 150, 0, {300, 0, 0, 150, 0, 0}, false},
        {"margin around", bordered, 200, 100, 0, 1, 220, 120, 0, {200, 0, 0, 100, 10, 10}, false},
        {"into", layout(400, 300), 200, 100, 0, 1, 400, 300, 0, {400, 0, 0, 200, 0, 50}, false},
        {"fill",
         layout(400, 300, Fit::Fill),
         200,
         100,
         0,
         1,
         400,
         300,
         0,
         {600, 0, 0, 300, -100, 0},
         true},
        {"exact",
         layout(400, 300, Fit::Exact),
         200,
         100,
         0,
         1,
         400,
         300,
         0,
         {400, 0, 0, 300, 0, 0},
         false},
        {"shrink",
         layout(400, 300, Fit::Shrink),
         200,
         100,
         0,
         1,
         400,
         300,
         0,
         {200, 0, 0, 100, 100, 100},
         false},
        {"shrink a large one",
         layout(400, 300, Fit::Shrink),
         800,
         200,
         0,
         1,
         400,
         300,
         0,
         {400, 0, 0, 100, 0, 100},
         false},
        {"page follows a wide image",
         layout(300, 400),
         200,
         100,
         0,
         1,
         400,
         300,
         0,
         {400, 0, 0, 200, 0, 50},
         false},
        {"portrait asked",
         layout(400, 300, Fit::Into, 0, PageTurn::Portrait),
         200,
         100,
         0,
         1,
         300,
         400,
         0,
         {300, 0, 0, 150, 0, 125},
         false},
        {"margin inside",
         layout(400, 300, Fit::Into, 50),
         200,
         100,
         0,
         1,
         400,
         300,
         0,
         {300, 0, 0, 150, 50, 75},
         false},
        {"sideways photo, portrait page",
         layout(300, 400),
         200,
         100,
         0,
         6,
         400,
         300,
         90,
         {400, 0, 0, 200, 0, 50},
         false},
        {"mirrored", {}, 200, 100, 0, 2, 200, 100, 0, {-200, 0, 0, 100, 200, 0}, false},
        {"transposed", {}, 200, 100, 0, 5, 200, 100, 270, {-200, 0, 0, 100, 200, 0}, false},
        {"upside down", {}, 200, 100, 0, 3, 200, 100, 180, {200, 0, 0, 100, 0, 0}, false},
        {"unknown code", {}, 200, 100, 0, 9, 200, 100, 0, {200, 0, 0, 100, 0, 0}, false},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const auto p =
            pw::i2p::placeImage(r.layout, r.pixelsWide, r.pixelsHigh, r.dpi, r.dpi, r.orientation);
        EXPECT_DOUBLE_EQ(p.width, r.pageW);
        EXPECT_DOUBLE_EQ(p.height, r.pageH);
        EXPECT_EQ(p.rotate, r.rotate);
        for (size_t i = 0; i < 6; ++i)
            EXPECT_NEAR(p.matrix[i], r.matrix[i], 1e-9) << i;
        EXPECT_EQ(p.clip.has_value(), r.clipped);
    }
}

TEST(PageLayout, ReadsSizesAndLengths)
{
    const struct {
        const char *text;
        double w, h; // 0: refused
    } sizes[] = {{"A4", 210 * kMm, 297 * kMm},
                 {"letter", 612, 792},
                 {"LEGAL", 612, 1008},
                 {"A3", 297 * kMm, 420 * kMm},
                 {"a5", 148 * kMm, 210 * kMm},
                 {"210x297mm", 210 * kMm, 297 * kMm},
                 {"8.5x11in", 612, 792},
                 {"100x200", 100, 200},
                 {"100X200PT", 100, 200},
                 {"", 0, 0},
                 {"A6", 0, 0},
                 {"10x", 0, 0},
                 {"0x10", 0, 0},
                 {"-5x10", 0, 0},
                 {"10x10cm", 0, 0},
                 {"10mm", 0, 0}};
    for (const auto &s : sizes) {
        SCOPED_TRACE(s.text);
        const auto size = pw::i2p::parsePageSize(s.text);
        ASSERT_EQ(size.has_value(), s.w > 0);
        if (size) {
            EXPECT_NEAR(size->first, s.w, 1e-9);
            EXPECT_NEAR(size->second, s.h, 1e-9);
        }
    }
    EXPECT_EQ(pw::i2p::parseLength("10"), 10);
    EXPECT_EQ(pw::i2p::parseLength("1in"), 72);
    EXPECT_NEAR(*pw::i2p::parseLength("25.4mm"), 72, 1e-9);
    EXPECT_FALSE(pw::i2p::parseLength("-1"));
    EXPECT_FALSE(pw::i2p::parseLength("mm"));
}

// The boxes qpdf reads from written files: scans that state 72, 300 or no resolution under
// each resolution setting, and sizes that follow the image or the user.
TEST(PageLayout, PageBoxesOfWrittenFiles)
{
    SandboxDir box;
    QString scans[3];
    const float dpis[] = {72, 300, 0};
    for (int i = 0; i < 3; ++i) {
        TiffLayout t;
        t.width = 600, t.height = 300, t.dpi = dpis[i];
        scans[i] = box.filePath(QString("scan%1.tif").arg(i));
        ASSERT_TRUE(writeTiff(scans[i], t));
    }
    PageLayout none, dpi200, force200, a4, letterPortrait, a5Margin;
    dpi200.dpi = 200;
    force200 = dpi200;
    force200.forceDpi = true;
    std::tie(a4.width, a4.height) = *pw::i2p::parsePageSize("A4");
    std::tie(letterPortrait.width, letterPortrait.height) = *pw::i2p::parsePageSize("Letter");
    letterPortrait.turn = PageTurn::Portrait;
    std::tie(a5Margin.width, a5Margin.height) = *pw::i2p::parsePageSize("A5");
    a5Margin.margin = 36;
    const struct {
        const char *what;
        PageLayout layout;
        QSizeF at72, at300, atNone;
    } rows[] = {
        {"as today", none, {600, 300}, {144, 72}, {600, 300}},
        {"--dpi 200", dpi200, {600, 300}, {144, 72}, {216, 108}},
        {"--force-dpi 200", force200, {216, 108}, {216, 108}, {216, 108}},
        {"A4 follows the image",
         a4,
         {297 * kMm, 210 * kMm},
         {297 * kMm, 210 * kMm},
         {297 * kMm, 210 * kMm}},
        {"Letter portrait", letterPortrait, {612, 792}, {612, 792}, {612, 792}},
        {"A5 with margin",
         a5Margin,
         {210 * kMm, 148 * kMm},
         {210 * kMm, 148 * kMm},
         {210 * kMm, 148 * kMm}},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const LayoutFor set(r.layout);
        const QSizeF expected[] = {r.at72, r.at300, r.atNone};
        for (int i = 0; i < 3; ++i) {
            const QSizeF size = shownSize(onlyPage(scans[i], box.filePath("out.pdf")));
            EXPECT_NEAR(size.width(), expected[i].width(), 0.01) << dpis[i];
            EXPECT_NEAR(size.height(), expected[i].height(), 0.01) << dpis[i];
        }
    }
}

} // namespace
