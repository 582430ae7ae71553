// Targa files: colour-mapped, true-colour and grey, raw or run-length encoded, in any of the
// four origins. A grey or colour-mapped picture keeps its 8-bit samples and its palette.

#include "byte_image.h"

#include <algorithm>

namespace pw::i2p {

namespace {

struct TgaHeader {
    int idLength, mapType, type, mapFirst, mapLength, mapEntryBits;
    int width, height, pixelBits, alphaBits;
    bool rightToLeft, topDown;

    explicit TgaHeader(const ByteView &b)
        : idLength(b.u8(0)), mapType(b.u8(1)), type(b.u8(2)), mapFirst(b.le16(3)),
          mapLength(b.le16(5)), mapEntryBits(b.u8(7)), width(b.le16(12)), height(b.le16(14)),
          pixelBits(b.u8(16)), alphaBits(b.u8(17) & 0x0F), rightToLeft(b.u8(17) & 0x10),
          topDown(b.u8(17) & 0x20)
    {
    }
    bool rle() const { return type >= 9; }
    int kind() const { return type & 7; } // 1 colour-mapped, 2 true colour, 3 grey
    int pixelBytes() const { return (pixelBits + 7) / 8; }
};

// One entry of a 15/16-, 24- or 32-bit colour: blue first, alpha last.
struct Bgra {
    uint8_t b, g, r, a;
};

Bgra colour(const uint8_t *p, int bits, bool useAlpha)
{
    if (bits <= 16) {
        const int v = p[0] | p[1] << 8;
        const bool on = !useAlpha || (v & 0x8000);
        return {widen(v & 31, 5), widen((v >> 5) & 31, 5), widen((v >> 10) & 31, 5),
                uint8_t(on ? 255 : 0)};
    }
    return {p[0], p[1], p[2], uint8_t(bits == 32 && useAlpha ? p[3] : 255)};
}

// The pixel values in file order, run-length packets expanded; packets may run across rows.
std::vector<uint8_t> pixelValues(const ByteView &b, size_t at, const TgaHeader &h)
{
    const size_t px = size_t(h.pixelBytes());
    const size_t total = size_t(h.width) * size_t(h.height) * px;
    if (!h.rle())
        return std::vector<uint8_t>(b.need(at, total), b.need(at, total) + total);
    std::vector<uint8_t> out;
    out.reserve(total);
    while (out.size() < total) {
        const uint8_t packet = b.u8(at++);
        const size_t count = size_t(packet & 0x7F) + 1;
        if (packet & 0x80) {
            const uint8_t *value = b.need(at, px);
            for (size_t i = 0; i < count; ++i)
                out.insert(out.end(), value, value + px);
            at += px;
        } else {
            const uint8_t *values = b.need(at, count * px);
            out.insert(out.end(), values, values + count * px);
            at += count * px;
        }
    }
    out.resize(total);
    return out;
}

class TgaImage {
public:
    explicit TgaImage(std::vector<uint8_t> data) : data_(std::move(data)), b_(data_, "TGA"), h_(b_)
    {
        const bool typeOk = h_.kind() >= 1 && h_.kind() <= 3 && (h_.type & ~8) == h_.kind();
        if (!typeOk || h_.width == 0 || h_.height == 0)
            throw b_.fail("unsupported image type");
        checkPageSize("TGA", h_.width, h_.height);
        const bool mapped = h_.kind() == 1;
        const bool depthOk = mapped           ? (h_.pixelBits == 8 || h_.pixelBits == 16)
                             : h_.kind() == 3 ? (h_.pixelBits == 8 || h_.pixelBits == 16)
                                              : (h_.pixelBits == 15 || h_.pixelBits == 16 ||
                                                 h_.pixelBits == 24 || h_.pixelBits == 32);
        if (!depthOk || (mapped && (h_.mapType != 1 || h_.mapLength == 0)))
            throw b_.fail("unsupported pixel depth");
        mapAt_ = 18 + size_t(h_.idLength);
        const size_t mapBytes =
            h_.mapType == 1 ? size_t(h_.mapLength) * size_t((h_.mapEntryBits + 7) / 8) : 0;
        pixelsAt_ = mapAt_ + mapBytes;
        b_.need(mapAt_, mapBytes);
    }

    TgaImage(const TgaImage &) = delete;
    TgaImage &operator=(const TgaImage &) = delete;

    int depth() const { return h_.pixelBits == 15 ? 16 : h_.pixelBits; }

    Raster decode() const
    {
        const std::vector<uint8_t> values = pixelValues(b_, pixelsAt_, h_);
        Raster r = h_.kind() == 1 ? mapped(values) : h_.kind() == 3 ? grey(values) : rgb(values);
        orient(r);
        dropOpaqueAlpha(r);
        return r;
    }

private:
    bool alphaWanted(int bits) const { return h_.alphaBits > 0 && (bits == 16 || bits == 32); }

    std::vector<Bgra> palette() const
    {
        const int bits = h_.mapEntryBits;
        if (bits != 15 && bits != 16 && bits != 24 && bits != 32)
            throw b_.fail("unsupported colour map");
        const size_t entry = size_t((bits + 7) / 8);
        std::vector<Bgra> map(size_t(h_.mapLength));
        for (size_t i = 0; i < map.size(); ++i)
            map[i] = colour(b_.need(mapAt_ + i * entry, entry), bits, alphaWanted(bits));
        return map;
    }

    // An opaque map keeps its indices; one with transparent entries is spelt out as colour.
    Raster mapped(const std::vector<uint8_t> &values) const
    {
        const std::vector<Bgra> map = palette();
        const size_t n = size_t(h_.width) * size_t(h_.height);
        const auto index = [&](size_t i) {
            const size_t v =
                h_.pixelBits == 8 ? values[i] : size_t(values[2 * i] | values[2 * i + 1] << 8);
            if (v < size_t(h_.mapFirst) || v - size_t(h_.mapFirst) >= map.size())
                throw b_.fail("a colour index outside the map");
            return v - size_t(h_.mapFirst);
        };
        const bool opaque =
            std::all_of(map.begin(), map.end(), [](const Bgra &c) { return c.a == 255; });
        if (opaque && h_.pixelBits == 8 && map.size() <= 256) {
            Raster r;
            r.width = h_.width;
            r.height = h_.height;
            r.cs.model = ColourModel::Indexed;
            for (const Bgra &c : map)
                r.cs.palette += {char(c.r), char(c.g), char(c.b)};
            r.pixels.resize(n);
            for (size_t i = 0; i < n; ++i)
                r.pixels[i] = uint8_t(index(i));
            return r;
        }
        Raster r = rgbRaster(h_.width, h_.height, true);
        for (size_t i = 0; i < n; ++i) {
            const Bgra &c = map[index(i)];
            r.pixels[3 * i] = c.r;
            r.pixels[3 * i + 1] = c.g;
            r.pixels[3 * i + 2] = c.b;
            r.alpha[i] = c.a;
        }
        return r;
    }

    Raster grey(const std::vector<uint8_t> &values) const
    {
        Raster r;
        r.width = h_.width;
        r.height = h_.height;
        r.cs.model = ColourModel::Gray;
        const size_t n = size_t(h_.width) * size_t(h_.height);
        if (h_.pixelBits == 8) {
            r.pixels.assign(values.begin(), values.end());
            return r;
        }
        r.pixels.resize(n);
        r.alpha.resize(n);
        for (size_t i = 0; i < n; ++i) {
            r.pixels[i] = values[2 * i];
            r.alpha[i] = h_.alphaBits > 0 ? values[2 * i + 1] : 255;
        }
        return r;
    }

    Raster rgb(const std::vector<uint8_t> &values) const
    {
        Raster r = rgbRaster(h_.width, h_.height, true);
        const size_t n = size_t(h_.width) * size_t(h_.height);
        const size_t px = size_t(h_.pixelBytes());
        const bool useAlpha = alphaWanted(h_.pixelBits);
        bool anyAlpha = false;
        for (size_t i = 0; i < n; ++i) {
            const Bgra c = colour(&values[i * px], h_.pixelBits, useAlpha);
            r.pixels[3 * i] = c.r;
            r.pixels[3 * i + 1] = c.g;
            r.pixels[3 * i + 2] = c.b;
            r.alpha[i] = c.a;
            anyAlpha = anyAlpha || c.a != 0;
        }
        // Writers that mark an alpha channel and leave it all zero mean an opaque picture.
        if (!anyAlpha)
            r.alpha.clear();
        return r;
    }

    // Rows are stored bottom-up unless the descriptor says otherwise, and right to left when
    // it says so; the raster runs top-down, left to right.
    void orient(Raster &r) const
    {
        const size_t comps = size_t(r.cs.components());
        const size_t rowBytes = size_t(r.width) * comps;
        const auto flipRows = [&](auto &plane, size_t bytes) {
            for (int y = 0; y < r.height / 2; ++y)
                std::swap_ranges(plane.begin() + ptrdiff_t(y * bytes),
                                 plane.begin() + ptrdiff_t((y + 1) * bytes),
                                 plane.begin() + ptrdiff_t((r.height - 1 - y) * bytes));
        };
        const auto mirror = [&](auto &plane, size_t per) {
            for (int y = 0; y < r.height; ++y)
                for (int x = 0; x < r.width / 2; ++x)
                    std::swap_ranges(plane.begin() + ptrdiff_t((size_t(y) * r.width + x) * per),
                                     plane.begin() + ptrdiff_t((size_t(y) * r.width + x + 1) * per),
                                     plane.begin() +
                                         ptrdiff_t((size_t(y) * r.width + r.width - 1 - x) * per));
        };
        if (!h_.topDown) {
            flipRows(r.pixels, rowBytes);
            if (!r.alpha.empty())
                flipRows(r.alpha, size_t(r.width));
        }
        if (h_.rightToLeft) {
            mirror(r.pixels, comps);
            if (!r.alpha.empty())
                mirror(r.alpha, 1);
        }
    }

    std::vector<uint8_t> data_;
    ByteView b_;
    TgaHeader h_;
    size_t mapAt_ = 0;
    size_t pixelsAt_ = 0;
};

} // namespace

void readTga(const std::string &path, const PageSink &sink)
{
    const TgaImage image(readWholeFile(path));
    DecodedPage page(image.depth(), [&] { return image.decode(); });
    sink(page);
}

} // namespace pw::i2p
