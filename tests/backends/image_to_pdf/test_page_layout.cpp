// Pages the right way up and of the size asked for: photos and scans in each of the eight
// orientations (tests/data/orientation) against their upright picture, and the page boxes and
// placements that each size, fit, turn and resolution give.

#include "image_to_pdf.h"
#include "page_layout.h"
#include "pdf_probe.h"
#include "sample_images.h"
#include "sandbox.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <QBuffer>
#include <QImageReader>
#include <QtEndian>

namespace {

using pw::i2p::Fit;
using pw::i2p::PageLayout;
using pw::i2p::PageTurn;

const QString kData = QStringLiteral(PAGEWRIGHT_TEST_DATA_DIR) + "/orientation/";
constexpr double kMm = 72 / 25.4;

// The only page written from `input`, its size as shown (the box, turned) in `shown`.
ProbedPage onlyPage(const QString &input, const QString &pdf, QSizeF *shown = nullptr)
{
    const int32_t h = ApCreate(pdf.toStdString());
    EXPECT_EQ(ApAddImage(h, input.toStdString()), 0);
    EXPECT_EQ(ApClose(h), 0);
    const auto pages = probePdf(pdf);
    EXPECT_EQ(pages.size(), 1u);
    const ProbedPage page = pages.empty() ? ProbedPage{} : pages[0];
    if (shown)
        *shown =
            page.rotate % 180 ? QSizeF(page.height, page.width) : QSizeF(page.width, page.height);
    return page;
}

TEST(UprightPages, JpegAndFaxTiffInEveryOrientation)
{
    SandboxDir box;
    QSizeF shown;
    onlyPage(kData + "g4_orientation_1.tif", box.filePath("g4.pdf"));
    const QImage uprightScan = paintedPixels(box.filePath("g4.pdf"), 0, 590, 88);
    for (int orientation = 1; orientation <= 8; ++orientation) {
        SCOPED_TRACE(orientation);
        const QString photo =
            kData + (orientation == 1 ? QString("hopper.jpg")
                                      : QString("hopper_orientation_%1.jpg").arg(orientation));
        // Qt's own reading of the orientation gives the upright reference.
        QImageReader reader(photo);
        reader.setAutoTransform(true);
        const QImage upright = reader.read();
        const QString pdf = box.filePath("photo.pdf");
        const ProbedPage page = onlyPage(photo, pdf);
        ASSERT_EQ(page.images.size(), 1u);
        EXPECT_EQ(QByteArray::fromStdString(page.images[0].raw), readFile(photo));
        // poppler's and Qt's JPEG decoders may round a sample differently, nothing more.
        const int difference = maxChannelDifference(paintedPixels(pdf, 0, 128, 128), upright);
        EXPECT_TRUE(difference >= 0 && difference <= 2) << difference;

        const ProbedPage scan = onlyPage(kData + QString("g4_orientation_%1.tif").arg(orientation),
                                         box.filePath("scan.pdf"), &shown);
        EXPECT_EQ(scan.images.at(0).filter, "/CCITTFaxDecode") << "the fax data as stored";
        EXPECT_EQ(shown, QSizeF(442.5, 66)) << "590 x 88 pixels at 96 dpi, upright";
        // Each scan was drawn on its own: they differ from the first in about a hundred edge
        // pixels of 52,000 (a mean of 0.4 to 0.7), a page turned or mirrored wrongly in thousands.
        double mean = 0;
        EXPECT_GE(maxChannelDifference(paintedPixels(box.filePath("scan.pdf"), 0, 590, 88),
                                       uprightScan, &mean),
                  0);
        EXPECT_LT(mean, 1);
    }
}

TEST(UprightPages, PngExifChunk)
{
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    colourPattern(40, 24).save(&buffer, "PNG");
    // Big-endian TIFF structure: one directory holding orientation 6 (turned right).
    const QByteArray chunk("eXIfMM\0*\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0\x06\0\0\0\0\0\0",
                           30);
    QByteArray length(4, '\0'), crc(4, '\0');
    qToBigEndian<quint32>(quint32(chunk.size() - 4), length.data());
    qToBigEndian<quint32>(
        quint32(crc32(0, reinterpret_cast<const Bytef *>(chunk.data()), uInt(chunk.size()))),
        crc.data());
    png.insert(8 + 25, length + chunk + crc); // after the signature and the header chunk
    SandboxDir box;
    QSizeF shown;
    EXPECT_EQ(onlyPage(box.write("in.png", png), box.filePath("out.pdf"), &shown).rotate, 90);
    EXPECT_NEAR(shown.width(), 18, 0.01) << "40 x 24 pixels at 96 dpi, turned";
    EXPECT_NEAR(shown.height(), 30, 0.01);
}

TEST(PageLayout, PlacesTheImage)
{
    const auto layout = [](double w, double h, Fit fit, double margin = 0) {
        return PageLayout{w, h, fit, margin};
    };
    // clang-format off
    const struct {
        const char *what;
        PageLayout layout;
        int pixelsWide, pixelsHigh, orientation;
        double pageW, pageH;
        int rotate;
        std::array<double, 6> matrix;
        bool clipped;
    } rows[] = {
        {"margin around", {0, 0, Fit::Into, 10}, 200, 100, 1, 220, 120, 0, {200, 0, 0, 100, 10, 10}, false},
        {"into, margin inside", layout(400, 300, Fit::Into, 50), 200, 100, 1, 400, 300, 0, {300, 0, 0, 150, 50, 75}, false},
        {"fill", layout(400, 300, Fit::Fill), 200, 100, 1, 400, 300, 0, {600, 0, 0, 300, -100, 0}, true},
        {"exact", layout(400, 300, Fit::Exact), 200, 100, 1, 400, 300, 0, {400, 0, 0, 300, 0, 0}, false},
        {"shrink", layout(400, 300, Fit::Shrink), 200, 100, 1, 400, 300, 0, {200, 0, 0, 100, 100, 100}, false},
        {"shrink a large one", layout(400, 300, Fit::Shrink), 800, 200, 1, 400, 300, 0, {400, 0, 0, 100, 0, 100}, false},
        {"sideways photo, portrait page", layout(300, 400, Fit::Into), 200, 100, 6, 400, 300, 90, {400, 0, 0, 200, 0, 50}, false},
        {"mirrored", {}, 200, 100, 2, 200, 100, 0, {-200, 0, 0, 100, 200, 0}, false},
        {"transposed", {}, 200, 100, 5, 200, 100, 270, {-200, 0, 0, 100, 200, 0}, false},
    };
    // clang-format on
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const auto p =
            pw::i2p::placeImage(r.layout, r.pixelsWide, r.pixelsHigh, 0, 0, r.orientation);
        EXPECT_EQ(std::tuple(p.width, p.height, p.rotate, p.matrix, p.clip.has_value()),
                  std::tuple(r.pageW, r.pageH, r.rotate, r.matrix, r.clipped));
    }
}

// The boxes of written files that state 72, 300 or no resolution, under each setting.
TEST(PageLayout, PageBoxesOfWrittenFiles)
{
    SandboxDir box;
    const float dpis[] = {72, 300, 0};
    const QSizeF a4(297 * kMm, 210 * kMm), letter(612, 792);
    // clang-format off
    const struct {
        PageLayout layout;
        QSizeF at72, at300, atNone;
    } rows[] = {
        {{}, {600, 300}, {144, 72}, {600, 300}},
        {{0, 0, Fit::Into, 0, PageTurn::FollowImage, 200}, {600, 300}, {144, 72}, {216, 108}},
        {{0, 0, Fit::Into, 0, PageTurn::FollowImage, 200, true}, {216, 108}, {216, 108}, {216, 108}},
        {{210 * kMm, 297 * kMm}, a4, a4, a4},
        {{612, 792, Fit::Into, 36, PageTurn::Portrait}, letter, letter, letter},
    };
    // clang-format on
    for (const auto &r : rows) {
        ApSetPageLayout(r.layout);
        const QSizeF expected[] = {r.at72, r.at300, r.atNone};
        for (int i = 0; i < 3; ++i) {
            TiffLayout scan;
            scan.width = 600, scan.height = 300, scan.dpi = dpis[i];
            ASSERT_TRUE(writeTiff(box.filePath("scan.tif"), scan));
            QSizeF shown;
            onlyPage(box.filePath("scan.tif"), box.filePath("out.pdf"), &shown);
            EXPECT_NEAR(shown.width(), expected[i].width(), 0.01) << dpis[i];
            EXPECT_NEAR(shown.height(), expected[i].height(), 0.01) << dpis[i];
        }
    }
    ApSetPageLayout({});
}

} // namespace
