// Metafiles (EMF and WMF) written record by record: the page poppler paints from the PDF
// matches a picture Qt paints directly from the same shapes, the drawing stays vector
// graphics, and a metafile cut short fails.

#include "image_to_pdf.h"
#include "pdf_probe.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QPainter>
#include <QPainterPath>

#include <cmath>
#include <cstring>
#include <initializer_list>
#include <map>
#include <random>
#include <utility>
#include <vector>

namespace {

// An EMF of a 100 mm square page on a reference device of 4 pixels a millimetre, in device
// pixels (the default mapping).
class EmfWriter {
public:
    static constexpr int kDevice = 400;

    void add(uint32_t type, std::initializer_list<int32_t> fields)
    {
        QByteArray body;
        for (const int32_t f : fields)
            put(body, uint32_t(f));
        addRaw(type, body);
    }
    void addRaw(uint32_t type, QByteArray body)
    {
        while (body.size() % 4)
            body += '\0';
        QByteArray rec;
        put(rec, type);
        put(rec, uint32_t(body.size() + 8));
        records_ += rec + body;
        ++count_;
    }
    static void put(QByteArray &to, uint32_t v)
    {
        for (int i = 0; i < 4; ++i)
            to += char(v >> (8 * i));
    }
    static uint32_t rgb(QRgb c) { return uint32_t(qRed(c) | qGreen(c) << 8 | qBlue(c) << 16); }

    QByteArray bytes() const
    {
        QByteArray header;
        for (const int32_t v : {0, 0, kDevice - 1, kDevice - 1, 0, 0, 10000, 10000})
            put(header, uint32_t(v)); // bounds in pixels, frame in 0.01 mm
        put(header, 0x464D4520);      // " EMF"
        put(header, 0x10000);
        put(header, 0); // file size, not checked
        put(header, uint32_t(count_ + 2));
        put(header, 16); // handles
        put(header, 0);
        put(header, 0);
        put(header, 0);
        for (const int32_t v : {kDevice, kDevice, 100, 100})
            put(header, uint32_t(v));
        QByteArray out;
        put(out, 1);
        put(out, uint32_t(header.size() + 8));
        out += header + records_;
        put(out, 14); // the end-of-file record
        put(out, 20);
        put(out, 0), put(out, 16), put(out, 20);
        return out;
    }

private:
    QByteArray records_;
    int count_ = 0;
};

enum : uint32_t {
    kPolygon16 = 86,
    kSelectObject = 37,
    kCreatePen = 38,
    kCreateBrush = 39,
    kRectangle = 43,
    kEllipse = 42,
    kMoveTo = 27,
    kLineTo = 54,
    kBeginPath = 59,
    kEndPath = 60,
    kCloseFigure = 61,
    kFillPath = 62,
    kIntersectClipRect = 30,
    kSaveDc = 33,
    kRestoreDc = 34,
    kModifyWorldTransform = 36,
    kStretchDiBits = 81,
    kCreateDibPatternBrush = 94,
    kExtCreateFont = 82,
    kExtTextOutW = 84,
    kSetBkMode = 18
};
constexpr int32_t kNullPen = int32_t(0x80000008);

void brush(EmfWriter &w, int index, QRgb colour)
{
    w.add(kCreateBrush, {index, 0, int32_t(EmfWriter::rgb(colour)), 0});
    w.add(kSelectObject, {index});
}

// Every drawing record kind once, with the picture Qt paints from the same shapes.
QByteArray drawing(QImage &expected)
{
    EmfWriter w;
    const double scale = 300 / 25.4 / 4; // device pixels to page pixels
    const int side = int(std::lround(100 / 25.4 * 300));
    expected = QImage(side, side, QImage::Format_RGB32);
    expected.fill(Qt::white);
    QPainter p(&expected);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(scale, scale);

    w.add(kSetBkMode, {1});
    brush(w, 1, qRgb(220, 30, 30));
    w.add(kCreatePen, {2, 0, 8, 0, int32_t(EmfWriter::rgb(qRgb(20, 20, 200)))});
    w.add(kSelectObject, {2});
    w.add(kRectangle, {20, 20, 160, 120});
    p.setPen(QPen(QColor(20, 20, 200), 8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(QColor(220, 30, 30));
    p.drawRect(QRectF(20, 20, 140, 100));

    w.add(kSelectObject, {kNullPen});
    p.setPen(Qt::NoPen);
    brush(w, 3, qRgb(30, 160, 60));
    w.add(kEllipse, {200, 20, 380, 160});
    p.setBrush(QColor(30, 160, 60));
    p.drawEllipse(QRectF(200, 20, 180, 140));

    brush(w, 4, qRgb(240, 200, 20));
    QByteArray poly;
    for (const int32_t v : {0, 0, 0, 0, 3})
        EmfWriter::put(poly, uint32_t(v));
    for (const int16_t v : {20, 380, 100, 200, 180, 380})
        poly += char(v & 0xFF), poly += char(v >> 8);
    w.addRaw(kPolygon16, poly);
    p.setBrush(QColor(240, 200, 20));
    p.drawPolygon(QPolygonF({QPointF(20, 380), QPointF(100, 200), QPointF(180, 380)}));

    // A path, filled, moved by the world transform and clipped to its upper half.
    brush(w, 5, qRgb(160, 40, 160));
    w.add(kSaveDc, {});
    QByteArray shift;
    for (const float f : {1.0f, 0.0f, 0.0f, 1.0f, 10.0f, 0.0f}) {
        uint32_t bits;
        std::memcpy(&bits, &f, 4);
        EmfWriter::put(shift, bits);
    }
    EmfWriter::put(shift, 2); // left-multiply
    w.addRaw(kModifyWorldTransform, shift);
    w.add(kIntersectClipRect, {200, 200, 380, 290});
    w.add(kBeginPath, {});
    w.add(kMoveTo, {200, 200});
    w.add(kLineTo, {360, 200});
    w.add(kLineTo, {360, 380});
    w.add(kLineTo, {200, 380});
    w.add(kCloseFigure, {});
    w.add(kEndPath, {});
    w.add(kFillPath, {0, 0, 0, 0});
    w.add(kRestoreDc, {-1});
    p.setBrush(QColor(160, 40, 160));
    p.drawRect(QRectF(210, 200, 160, 90));
    p.end();
    return w.bytes();
}

TEST(Metafile, ShapesPaintAsQtPaintsThem)
{
    SandboxDir box;
    QImage expected;
    const QString emf = box.write("drawing.emf", drawing(expected));
    const QString pdf = box.filePath("out.pdf");
    const int32_t h = ApCreate(pdf.toStdString());
    ASSERT_EQ(ApAddImage(h, emf.toStdString()), 0);
    ASSERT_EQ(ApClose(h), 0);
    const QImage painted = paintedPixels(pdf, 0, expected.width(), expected.height());
    double mean = 0;
    maxChannelDifference(painted, expected, &mean);
    // Edges may be smoothed differently; the shapes, colours and places must agree.
    EXPECT_LT(mean, 1.5);
    int far = 0;
    for (int y = 0; y < expected.height(); y += 3)
        for (int x = 0; x < expected.width(); x += 3)
            far += std::abs(qRed(painted.pixel(x, y)) - qRed(expected.pixel(x, y))) > 80;
    EXPECT_LT(far, expected.width() * expected.height() / 9 / 200);
    // It stays a drawing, on a page of the picture's size.
    const std::vector<ProbedPage> pages = probePdf(pdf);
    ASSERT_EQ(pages.size(), 1u);
    EXPECT_TRUE(pages[0].images.empty());
    EXPECT_NEAR(pages[0].width, 100 / 25.4 * 72, 1);
    EXPECT_TRUE(qpdfChecks(pdf));
}

TEST(Metafile, TextAndBitmapsAreDrawnAndCutFilesFail)
{
    SandboxDir box;
    EmfWriter w;
    // Text: Arial at an em of 40 device pixels, black, at (20, 60) on its baseline.
    QByteArray font;
    for (const int32_t v : {1, -40, 0, 0, 0, 400, 0, 0})
        EmfWriter::put(font, uint32_t(v));
    for (const char c : QByteArray("DejaVu Sans"))
        font += c, font += '\0';
    font.resize(12 + 28 + 64 - 8 + 8, '\0');
    w.addRaw(kExtCreateFont, font);
    w.add(kSelectObject, {1});
    w.add(22, {24}); // SETTEXTALIGN baseline
    QByteArray text;
    for (const int32_t v : {0, 0, 0, 0, 1, 0, 0, 20, 60, 4, 76, 0, 0, 0, 0, 0, 0})
        EmfWriter::put(text, uint32_t(v));
    for (const char c : QByteArray("Text"))
        text += c, text += '\0';
    w.addRaw(kExtTextOutW, text);
    // A 2 x 2 bitmap, bottom row first, stretched over (200, 200)-(380, 380).
    QByteArray dib;
    for (const int32_t v : {40, 2, 2})
        EmfWriter::put(dib, uint32_t(v));
    dib += QByteArray("\x01\x00\x18\x00", 4);
    dib += QByteArray(24, '\0');
    const QByteArray bits("\x00\x00\xFF\x00\xFF\x00\x00\x00"  // red, green
                          "\xFF\x00\x00\xFF\xFF\xFF\x00\x00", // blue, white
                          16);
    QByteArray blit;
    for (const int32_t v : {0, 0, 0, 0, 200, 200, 0, 0, 2, 2, 80, int32_t(dib.size()),
                            80 + int32_t(dib.size()), 16, 0, 0x00CC0020, 180, 180})
        EmfWriter::put(blit, uint32_t(v));
    w.addRaw(kStretchDiBits, blit + dib + bits);
    // The same bitmap as the tile of a brush filling (20, 200)-(180, 380).
    QByteArray pattern;
    for (const int32_t v : {7, 0, 32, int32_t(dib.size()), 32 + int32_t(dib.size()), 16})
        EmfWriter::put(pattern, uint32_t(v));
    w.addRaw(kCreateDibPatternBrush, pattern + dib + bits);
    w.add(kSelectObject, {7});
    w.add(kSelectObject, {kNullPen});
    w.add(kRectangle, {20, 200, 180, 380});
    const QByteArray whole = w.bytes();
    const QString pdf = box.filePath("out.pdf");
    const int32_t h = ApCreate(pdf.toStdString());
    ASSERT_EQ(ApAddImage(h, box.write("text.emf", whole).toStdString()), 0);
    ASSERT_EQ(ApClose(h), 0);
    const double scale = 300 / 25.4 / 4;
    const QImage painted = paintedPixels(pdf, 0, 1181, 1181);
    int ink = 0;
    for (int y = int(25 * scale); y < int(60 * scale); ++y)
        for (int x = int(20 * scale); x < int(100 * scale); ++x)
            ink += qGray(painted.pixel(x, y)) < 100;
    EXPECT_GT(ink, 200) << "the word is drawn";
    // The bitmap's rows run bottom up: blue and white on top, red and green below.
    const auto near = [&](double x, double y, QRgb want) {
        const QRgb got = painted.pixel(int(x * scale), int(y * scale));
        return std::abs(qRed(got) - qRed(want)) + std::abs(qGreen(got) - qGreen(want)) +
                   std::abs(qBlue(got) - qBlue(want)) <
               24;
    };
    EXPECT_TRUE(near(245, 245, qRgb(0, 0, 255)));
    EXPECT_TRUE(near(335, 245, qRgb(255, 255, 255)));
    EXPECT_TRUE(near(245, 335, qRgb(255, 0, 0)));
    EXPECT_TRUE(near(335, 335, qRgb(0, 255, 0)));
    std::map<QRgb, int> tiles;
    for (int y = int(210 * scale); y < int(370 * scale); ++y)
        for (int x = int(30 * scale); x < int(170 * scale); ++x)
            ++tiles[painted.pixel(x, y)];
    for (const QRgb colour :
         {qRgb(255, 0, 0), qRgb(0, 255, 0), qRgb(0, 0, 255), qRgb(255, 255, 255)})
        EXPECT_GT(tiles[colour], 1000) << "the tiles of the pattern brush";

    for (const int percent : {30, 50, 70, 90}) {
        QFile::remove(pdf);
        const QString cut = box.write("cut.emf", whole.left(whole.size() * percent / 100));
        const int32_t c = ApCreate(pdf.toStdString());
        EXPECT_FALSE(ApAddImage(c, cut.toStdString())) << percent;
        EXPECT_EQ(ApClose(c), -2);
        EXPECT_FALSE(QFile::exists(pdf));
    }
}

// A placeable WMF of a 1,000 x 1,000 box at 1,000 units an inch, its records given as the
// function and the 16-bit parameters in the order the file stores them.
QByteArray wmf(const std::vector<std::pair<uint16_t, std::vector<int16_t>>> &records)
{
    QByteArray out;
    const auto word = [&](int v) { out += char(v & 0xFF), out += char((v >> 8) & 0xFF); };
    EmfWriter::put(out, 0x9AC6CDD7);
    for (const int v : {0, 0, 0, 1000, 1000, 1000})
        word(v);
    EmfWriter::put(out, 0);
    word(0);                          // checksum, not checked
    for (const int v : {1, 9, 0x300}) // type, header words, version
        word(v);
    EmfWriter::put(out, 0);
    word(8); // objects
    EmfWriter::put(out, 0);
    word(0);
    for (const auto &[function, params] : records) {
        EmfWriter::put(out, uint32_t(3 + params.size()));
        word(function);
        for (const int16_t p : params)
            word(p);
    }
    EmfWriter::put(out, 3); // the end-of-file record
    word(0);
    return out;
}

std::vector<std::pair<uint16_t, std::vector<int16_t>>> wmfShapes()
{
    const int16_t red0 = 0x1EDC, red1 = 0x001E; // COLORREF 0x001E1EDC: (220, 30, 30)
    return {
        {0x020C, {1000, 1000}},                      // window extent
        {0x020B, {0, 0}},                            // window origin
        {0x02FC, {0, red0, red1, 0}},                // solid red brush: object 0
        {0x012D, {0}},                               // select it
        {0x02FA, {5, 0, 0, 0, 0}},                   // null pen: object 1
        {0x012D, {1}},                               // select it
        {0x041B, {500, 600, 100, 100}},              // rectangle: bottom, right, top, left
        {0x0418, {900, 900, 600, 500}},              // ellipse
        {0x0324, {3, 100, 900, 300, 600, 500, 900}}, // triangle
    };
}

// A Windows 3.0 blit under the raster operation `rop`: a 2 x 2 device bitmap of 24 bits whose
// two rows (B, G, R bytes, as little-endian words) are `rows`, stretched over
// (700, 700)-(900, 900).
std::pair<uint16_t, std::vector<int16_t>> stretchBlt(uint32_t rop,
                                                     std::initializer_list<int16_t> rows)
{
    // The operation, the source box, the target box; then type, size, bytes a row and one
    // plane of 24 bits.
    std::vector<int16_t> params = {int16_t(rop & 0xFFFF), int16_t(rop >> 16)};
    params.insert(params.end(), {2, 2, 0, 0, 200, 200, 700, 700, 0, 2, 2, 6, 0x1801});
    params.insert(params.end(), rows);
    return {0x0B23, params};
}

// Red, green; blue, white, copied.
QByteArray deviceBlit()
{
    return wmf({stretchBlt(0x00CC0020, {0, 0xFF, 0xFF, 0xFF, -256, -1})});
}

TEST(Metafile, WmfShapesPaintAsQtPaintsThemAndCutFilesFail)
{
    const std::vector<std::pair<uint16_t, std::vector<int16_t>>> records = wmfShapes();
    SandboxDir box;
    const QString pdf = box.filePath("wmf.pdf");
    int32_t h = ApCreate(pdf.toStdString());
    ASSERT_EQ(ApAddImage(h, box.write("shapes.wmf", wmf(records)).toStdString()), 0);
    ASSERT_EQ(ApClose(h), 0);
    const int side = 300; // 1,000 units of 1/1,000 inch at 300 dpi
    QImage expected(side, side, QImage::Format_RGB32);
    expected.fill(Qt::white);
    QPainter p(&expected);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(0.3, 0.3);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(220, 30, 30));
    p.drawRect(QRectF(100, 100, 500, 400));
    p.drawEllipse(QRectF(500, 600, 400, 300));
    p.drawPolygon(QPolygonF({QPointF(100, 900), QPointF(300, 600), QPointF(500, 900)}));
    p.end();
    double mean = 0;
    maxChannelDifference(paintedPixels(pdf, 0, side, side), expected, &mean);
    EXPECT_LT(mean, 1.5);

    h = ApCreate(pdf.toStdString());
    const QString blit = box.write("blit.wmf", deviceBlit());
    ASSERT_EQ(ApAddImage(h, blit.toStdString()), 0);
    ASSERT_EQ(ApClose(h), 0);
    const QImage blitted = paintedPixels(pdf, 0, side, side);
    EXPECT_EQ(blitted.pixel(225, 225), qRgb(255, 0, 0));
    EXPECT_EQ(blitted.pixel(255, 225), qRgb(0, 255, 0));
    EXPECT_EQ(blitted.pixel(225, 255), qRgb(0, 0, 255));
    EXPECT_EQ(blitted.pixel(255, 255), qRgb(255, 255, 255));
    EXPECT_EQ(blitted.pixel(150, 150), qRgb(255, 255, 255));

    // A sprite on a blue page: a mask ANDed (white, black; white, white), then the picture
    // ORed (black, red; black, black) leave red in one corner and the page elsewhere.
    h = ApCreate(pdf.toStdString());
    const QString sprite =
        box.write("sprite.wmf", wmf({{0x02FC, {0, 0, 0xFF, 0}},
                                     {0x012D, {0}},
                                     {0x02FA, {5, 0, 0, 0, 0}},
                                     {0x012D, {1}},
                                     {0x041B, {1000, 1000, 0, 0}},
                                     stretchBlt(0x008800C6, {-1, 0xFF, 0, -1, -1, -1}),
                                     stretchBlt(0x00EE0086, {0, 0, -256, 0, 0, 0})}));
    ASSERT_EQ(ApAddImage(h, sprite.toStdString()), 0);
    ASSERT_EQ(ApClose(h), 0);
    const QImage sprited = paintedPixels(pdf, 0, side, side);
    EXPECT_EQ(sprited.pixel(255, 225), qRgb(255, 0, 0));
    for (const QPoint at : {QPoint(225, 225), QPoint(225, 255), QPoint(255, 255), QPoint(45, 45)})
        EXPECT_EQ(sprited.pixel(at), qRgb(0, 0, 255)) << at.x() << "," << at.y();

    const QByteArray whole = wmf(records);
    for (const int percent : {30, 50, 70, 90}) {
        QFile::remove(pdf);
        const QString cut = box.write("cut.wmf", whole.left(whole.size() * percent / 100));
        h = ApCreate(pdf.toStdString());
        EXPECT_FALSE(ApAddImage(h, cut.toStdString())) << percent;
        EXPECT_EQ(ApClose(h), -2);
        EXPECT_FALSE(QFile::exists(pdf));
    }
}

// Metafiles mutated a few bytes at a time convert or fail as unreadable, and never read outside
// their records (the sanitizer build runs this too).
TEST(Metafile, MutatedFilesConvertOrFailCleanly)
{
    SandboxDir box;
    QImage unused;
    const QByteArray files[] = {drawing(unused), wmf(wmfShapes()), deviceBlit()};
    std::mt19937 random(2611);
    const QString pdf = box.filePath("out.pdf");
    for (const QByteArray &file : files)
        for (int round = 0; round < 300; ++round) {
            QByteArray mutated = file;
            for (int n = 1 + int(random() % 4); n > 0; --n)
                mutated[qsizetype(random() % uint32_t(mutated.size()))] = char(random());
            const int32_t h = ApCreate(pdf.toStdString());
            const pw::Result<int32_t> added =
                ApAddImage(h, box.write("mutated.emf", mutated).toStdString());
            EXPECT_TRUE(added || added.failure().number == 321 || added.failure().number == 7)
                << added.failure().what();
            (void)ApClose(h);
        }
}

} // namespace
