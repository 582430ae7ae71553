// Photoshop files: the merged picture of each colour mode must paint as the pixels it holds,
// at the file's resolution, and damaged files must fail as unreadable.

#include "image_to_pdf.h"
#include "pdf_probe.h"
#include "sample_images.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

using Bytes = std::vector<uint8_t>;

void put(Bytes &out, uint64_t v, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i)
        out.push_back(uint8_t(v >> (8 * i)));
}

// A Photoshop file without layers: `planes` holds each channel's rows, packed as stored.
struct Psd {
    uint32_t width, height, depth, mode;
    std::vector<Bytes> planes;
    Bytes colourTable = {};
    double dpi = 0;
    bool rle = false;
    bool large = false; // PSB

    Bytes bytes() const
    {
        Bytes out{'8', 'B', 'P', 'S'};
        put(out, large ? 2 : 1, 2);
        put(out, 0, 6);
        put(out, planes.size(), 2);
        put(out, height, 4);
        put(out, width, 4);
        put(out, depth, 2);
        put(out, mode, 2);
        put(out, colourTable.size(), 4);
        out.insert(out.end(), colourTable.begin(), colourTable.end());
        Bytes resources;
        if (dpi > 0) {
            resources = {'8', 'B', 'I', 'M', 0x03, 0xED, 0, 0};
            put(resources, 16, 4);
            for (int axis = 0; axis < 2; ++axis) {
                put(resources, uint64_t(dpi * 65536), 4);
                put(resources, 1, 2);
                put(resources, 1, 2);
            }
        }
        put(out, resources.size(), 4);
        out.insert(out.end(), resources.begin(), resources.end());
        put(out, 0, large ? 8 : 4); // no layers
        put(out, rle ? 1 : 0, 2);
        const size_t rowBytes = (size_t(width) * depth + 7) / 8;
        if (!rle) {
            for (const Bytes &plane : planes)
                out.insert(out.end(), plane.begin(), plane.end());
            return out;
        }
        // PackBits: each byte with its repeats as one run; a run of one is a literal of one.
        std::vector<Bytes> rows;
        for (const Bytes &plane : planes)
            for (uint32_t y = 0; y < height; ++y) {
                Bytes packed;
                const uint8_t *row = plane.data() + y * rowBytes;
                for (size_t x = 0; x < rowBytes;) {
                    size_t run = 1;
                    while (x + run < rowBytes && run < 128 && row[x + run] == row[x])
                        ++run;
                    packed.push_back(uint8_t(1 - int(run)));
                    packed.push_back(row[x]);
                    x += run;
                }
                put(out, packed.size(), large ? 4 : 2);
                rows.push_back(packed);
            }
        for (const Bytes &row : rows)
            out.insert(out.end(), row.begin(), row.end());
        return out;
    }
};

// The first `channels` of red, green and blue of `img` as planes, each sample stored `width`
// times (both bytes of a 16-bit sample equal, so that any reading agrees).
std::vector<Bytes> planesOf(const QImage &img, int channels, int width = 1)
{
    auto planes = std::vector<Bytes>(size_t(channels));
    for (int c = 0; c < channels; ++c)
        for (int y = 0; y < img.height(); ++y)
            for (int x = 0; x < img.width(); ++x) {
                const QRgb p = img.pixel(x, y);
                const int sample = c == 0 ? qRed(p) : (c == 1 ? qGreen(p) : qBlue(p));
                planes[size_t(c)].insert(planes[size_t(c)].end(), size_t(width), uint8_t(sample));
            }
    return planes;
}

QString written(SandboxDir &box, const QString &name, const Bytes &data)
{
    return box.write(
        name, QByteArray(reinterpret_cast<const char *>(data.data()), qsizetype(data.size())));
}

struct Converted {
    int32_t depth = 0;
    std::vector<ProbedPage> pages;
    QImage painted;
};

// Writes `psd` as `name` and converts it on its own.
Converted convert(SandboxDir &box, const QString &name, const Psd &psd)
{
    const QString in = written(box, name, psd.bytes());
    Converted c;
    c.depth = ApGetFunction(0, 211, 0, 0, in.toStdString(), 0);
    const QString pdf = box.filePath(QFileInfo(in).baseName() + ".pdf");
    const int32_t h = ApCreate(pdf.toStdString());
    EXPECT_EQ(ApAddImage(h, in.toStdString()), 0);
    EXPECT_EQ(ApClose(h), 0);
    EXPECT_TRUE(qpdfChecks(pdf));
    c.pages = probePdf(pdf);
    c.painted = paintedPixels(pdf, 0, int(psd.width), int(psd.height));
    return c;
}

TEST(Psd, EveryColourModePaintsItsPixels)
{
    SandboxDir box;
    const int w = 40, h = 30;
    const size_t n = size_t(w) * h;
    const QImage colour = colourPattern(w, h);

    Psd rgb{w, h, 8, 3, planesOf(colour, 3)};
    rgb.rle = true;
    rgb.dpi = 300;
    const Converted c = convert(box, "rgb.psd", rgb);
    EXPECT_EQ(c.depth, 24);
    EXPECT_EQ(maxChannelDifference(c.painted, colour), 0);
    ASSERT_EQ(c.pages.size(), 1u);
    EXPECT_NEAR(c.pages[0].width, w * 72.0 / 300, 0.01);

    const QImage grey = colour.convertToFormat(QImage::Format_Grayscale8);
    Psd grey16{w, h, 16, 1, planesOf(grey, 1, 2)};
    grey16.large = true;
    const Converted g = convert(box, "grey16.psb", grey16);
    EXPECT_EQ(g.depth, 16);
    EXPECT_EQ(maxChannelDifference(g.painted, grey.convertToFormat(QImage::Format_RGB32)), 0);

    // 32 bits: floating-point linear light, which paints as the sRGB picture it came from.
    Psd linear{w, h, 32, 3, std::vector<Bytes>(3)};
    for (int c = 0; c < 3; ++c)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const QRgb px = colour.pixel(x, y);
                const double v = (c == 0 ? qRed(px) : c == 1 ? qGreen(px) : qBlue(px)) / 255.0;
                const auto f = float(v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4));
                uint32_t bits;
                std::memcpy(&bits, &f, 4);
                put(linear.planes[size_t(c)], bits, 4);
            }
    const Converted f = convert(box, "float.psd", linear);
    EXPECT_LE(maxChannelDifference(f.painted, colour), 1);

    // Bitmap: a set bit is black.
    const QImage strokes = bilevelPattern(w, h).convertToFormat(QImage::Format_RGB32);
    Psd bitmap{w, h, 1, 0, {Bytes(size_t((w + 7) / 8) * h, 0)}};
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (qGray(strokes.pixel(x, y)) < 128)
                bitmap.planes[0][size_t(y) * ((w + 7) / 8) + x / 8] |= uint8_t(0x80 >> (x % 8));
    bitmap.rle = true;
    const Converted b = convert(box, "bitmap.psd", bitmap);
    EXPECT_EQ(b.depth, 1);
    EXPECT_EQ(maxChannelDifference(b.painted, strokes), 0);

    // Indexed: the table is stored as all reds, then all greens, then all blues.
    const QImage indexed = colour.convertToFormat(QImage::Format_Indexed8);
    Psd pal{w, h, 8, 2, {Bytes()}};
    pal.colourTable.assign(768, 0);
    for (int i = 0; i < indexed.colorCount(); ++i) {
        pal.colourTable[size_t(i)] = uint8_t(qRed(indexed.color(i)));
        pal.colourTable[size_t(256 + i)] = uint8_t(qGreen(indexed.color(i)));
        pal.colourTable[size_t(512 + i)] = uint8_t(qBlue(indexed.color(i)));
    }
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            pal.planes[0].push_back(uint8_t(indexed.pixelIndex(x, y)));
    const Converted p = convert(box, "indexed.psd", pal);
    EXPECT_EQ(maxChannelDifference(p.painted, indexed.convertToFormat(QImage::Format_RGB32)), 0);

    // CMYK holds ink amounts inverted: 255 is no ink. The top half is full black ink on paper.
    Psd cmyk{w, h, 8, 4, std::vector<Bytes>(4, Bytes(n, 255))};
    std::fill_n(cmyk.planes[3].begin(), n / 2, 0);
    const Converted k = convert(box, "cmyk.psd", cmyk);
    EXPECT_EQ(k.depth, 32);
    EXPECT_LT(qGray(k.painted.pixel(w / 2, 2)), 60) << "black ink paints dark";
    EXPECT_EQ(k.painted.pixel(w / 2, h - 2), qRgb(255, 255, 255)) << "no ink leaves paper";

    // A fourth channel in RGB is transparency: a soft mask, the left half clear to the paper.
    Psd withAlpha{w, h, 8, 3, {Bytes(n, 200), Bytes(n, 30), Bytes(n, 30), Bytes()}};
    for (size_t i = 0; i < n; ++i)
        withAlpha.planes[3].push_back(i % w < size_t(w) / 2 ? 0 : 255);
    const Converted a = convert(box, "rgba.psd", withAlpha);
    EXPECT_EQ(a.depth, 32);
    ASSERT_EQ(a.pages.at(0).images.size(), 1u);
    EXPECT_TRUE(a.pages[0].images[0].hasSMask);
    EXPECT_EQ(a.painted.pixel(2, 5), qRgb(255, 255, 255));
    EXPECT_EQ(a.painted.pixel(w - 2, 5), qRgb(200, 30, 30));
}

TEST(Psd, DamagedFilesAreUnreadable)
{
    SandboxDir box;
    const QImage colour = colourPattern(16, 16);
    Psd good{16, 16, 8, 3, planesOf(colour, 3)};
    good.rle = true;
    const Bytes bytes = good.bytes();
    Psd lab = good;
    lab.mode = 9;
    Psd fewChannels = good;
    fewChannels.planes.resize(2);
    Bytes overlong = bytes;
    overlong[overlong.size() - 40] = 0x7F; // a literal run longer than its row
    const struct {
        const char *name;
        Bytes data;
    } rows[] = {
        {"cut.psd", Bytes(bytes.begin(), bytes.begin() + std::ptrdiff_t(bytes.size() / 2))},
        {"header.psd", Bytes(bytes.begin(), bytes.begin() + 20)},
        {"lab.psd", lab.bytes()},
        {"two_channels.psd", fewChannels.bytes()},
        {"overlong.psd", overlong},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        const QString in = written(box, r.name, r.data);
        const int32_t h = ApCreate(box.filePath("out.pdf").toStdString());
        const pw::Result<int32_t> added = ApAddImage(h, in.toStdString());
        ASSERT_FALSE(added) << "no failure";
        const pw::Failure &f = added.failure();
        EXPECT_EQ(f.number, 321) << f.what();
        EXPECT_NE(std::string(f.what()).find("PSD"), std::string::npos) << f.what();
        EXPECT_EQ(ApClose(h), -2);
    }
}

} // namespace
