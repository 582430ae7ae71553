// BMP files of every header generation (OS/2 1.x to version 5): palettes of 1 to 8 bits kept
// as they are, 16- and 32-bit pixels through their bit masks, RLE4 and RLE8, and the JPEG or
// PNG that a BMP may wrap, handed on as that format.

#include "byte_image.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

namespace pw::i2p {

namespace {

enum Compression {
    kRgb = 0,
    kRle8 = 1,
    kRle4 = 2,
    kBitfields = 3,
    kJpeg = 4,
    kPng = 5,
    kAlphaBitfields = 6
};

struct Mask {
    uint32_t bits = 0;
    uint8_t take(uint32_t v) const
    {
        if (!bits)
            return 255;
        return widen((v & bits) >> std::countr_zero(bits), std::popcount(bits));
    }
};

struct BmpHeader {
    size_t dataAt = 0;
    uint32_t headerSize = 0;
    int width = 0, height = 0, bpp = 0;
    uint32_t compression = kRgb, dataSize = 0;
    bool topDown = false;
    Mask r, g, b, a;
    std::string palette; // RGB entries, padded to the whole index range
    double xdpi = 0, ydpi = 0;

    explicit BmpHeader(const ByteView &v)
    {
        dataAt = v.le32(10);
        headerSize = v.le32(14);
        const bool core = headerSize == 12;
        if (!core && (headerSize < 16 || headerSize > 124))
            throw v.fail("unknown header");
        width = core ? v.le16(18) : int32_t(v.le32(18));
        const int32_t h = core ? int16_t(v.le16(20)) : int32_t(v.le32(22));
        bpp = core ? v.le16(24) : v.le16(28);
        if (headerSize >= 20)
            compression = v.le32(30);
        const bool os2v2 = headerSize == 16 || headerSize == 64;
        if (os2v2 && (compression == kBitfields || compression == kJpeg))
            throw v.fail("OS/2 Huffman and RLE24 data are not supported");
        if (headerSize >= 24)
            dataSize = v.le32(34);
        if (headerSize >= 32 && v.le32(38) > 0 && v.le32(42) > 0) {
            xdpi = v.le32(38) * 0.0254;
            ydpi = v.le32(42) * 0.0254;
        }
        topDown = h < 0;
        height = int(std::abs(int64_t(h)));
        if (width <= 0 || height <= 0 || int64_t(width) * height > (int64_t(1) << 31))
            throw v.fail("bad image size");
        checkPageSize("BMP", uint64_t(width), uint64_t(height));
        size_t at = 14 + headerSize;
        readMasks(v, at);
        readPalette(v, at, core ? 3 : 4);
    }

    void readMasks(const ByteView &v, size_t &at)
    {
        if (compression == kBitfields || compression == kAlphaBitfields) {
            // A version 1 header is followed by the masks; later ones hold them.
            const size_t from = headerSize >= 52 ? 54 : at;
            r.bits = v.le32(from);
            g.bits = v.le32(from + 4);
            b.bits = v.le32(from + 8);
            if (compression == kAlphaBitfields || headerSize >= 56)
                a.bits = v.le32(from + 12);
            if (headerSize < 52)
                at += compression == kAlphaBitfields ? 16 : 12;
        } else if (bpp == 16) {
            r.bits = 0x7C00, g.bits = 0x03E0, b.bits = 0x001F;
        } else if (bpp == 32) {
            r.bits = 0xFF0000, g.bits = 0xFF00, b.bits = 0xFF;
        }
        if ((r.bits | g.bits | b.bits) == 0 && (bpp == 16 || bpp == 32))
            throw v.fail("empty colour masks");
    }

    void readPalette(const ByteView &v, size_t at, size_t entryBytes)
    {
        if (bpp > 8 || compression == kJpeg || compression == kPng)
            return;
        if (bpp != 1 && bpp != 2 && bpp != 4 && bpp != 8)
            throw v.fail("unsupported bit count");
        const size_t range = size_t(1) << bpp;
        size_t entries = headerSize >= 36 ? v.le32(46) : 0;
        if (entries == 0 || entries > range)
            entries = range;
        // Some writers give fewer entries than they count, ending the table at the pixels.
        if (dataAt > at)
            entries = std::min(entries, (dataAt - at) / entryBytes);
        const uint8_t *p = v.need(at, entries * entryBytes);
        for (size_t i = 0; i < entries; ++i, p += entryBytes)
            palette += {char(p[2]), char(p[1]), char(p[0])};
        palette.resize(range * 3, '\0');
    }
};

// RLE8 and RLE4 expanded to one index per pixel, bottom row first; pixels the data skips
// stay at index 0.
std::vector<uint8_t> runLengthIndices(const ByteView &v, const BmpHeader &h)
{
    std::vector<uint8_t> out(size_t(h.width) * size_t(h.height), 0);
    const bool four = h.compression == kRle4;
    size_t at = h.dataAt;
    int x = 0, y = 0;
    const auto put = [&](uint8_t index) {
        if (x < h.width && y < h.height)
            out[size_t(y) * size_t(h.width) + size_t(x)] = index;
        ++x;
    };
    while (true) {
        const uint8_t count = v.u8(at), value = v.u8(at + 1);
        at += 2;
        if (count > 0) {
            for (int i = 0; i < count; ++i)
                put(four ? uint8_t(i % 2 ? value & 15 : value >> 4) : value);
            continue;
        }
        if (value == 0) { // end of line
            x = 0;
            ++y;
        } else if (value == 1) { // end of bitmap
            return out;
        } else if (value == 2) { // delta
            x += v.u8(at);
            y += v.u8(at + 1);
            at += 2;
        } else { // absolute run, padded to a whole word
            const size_t bytes = four ? (value + 1) / 2 : value;
            const uint8_t *p = v.need(at, bytes);
            for (int i = 0; i < value; ++i)
                put(four ? uint8_t(i % 2 ? p[i / 2] & 15 : p[i / 2] >> 4) : p[i]);
            at += bytes + (bytes & 1);
        }
        if (y >= h.height)
            return out;
    }
}

// A two-colour palette of black and white is plain bilevel grey, which the fax codes can carry.
void blackAndWhiteAsGrey(Raster &r)
{
    static const std::string blackWhite("\0\0\0\xFF\xFF\xFF", 6);
    static const std::string whiteBlack("\xFF\xFF\xFF\0\0\0", 6);
    if (r.bpc != 1 || (r.cs.palette != blackWhite && r.cs.palette != whiteBlack))
        return;
    r.invert = r.cs.palette == whiteBlack;
    r.cs.model = ColourModel::Gray;
    r.cs.palette.clear();
}

Raster indexedRaster(const BmpHeader &h, int bpc)
{
    Raster r;
    r.width = h.width;
    r.height = h.height;
    r.bpc = bpc;
    r.cs.model = ColourModel::Indexed;
    r.cs.palette = h.palette;
    r.pixels.resize(r.rowBytes() * size_t(h.height));
    return r;
}

class BmpImage {
public:
    explicit BmpImage(std::vector<uint8_t> data) : data_(std::move(data)), v_(data_, "BMP"), h_(v_)
    {
    }
    BmpImage(const BmpImage &) = delete;
    BmpImage &operator=(const BmpImage &) = delete;

    const BmpHeader &header() const { return h_; }
    const std::vector<uint8_t> &data() const { return data_; }

    Raster decode() const
    {
        if (h_.compression == kRle8 || h_.compression == kRle4)
            return runLength();
        if (h_.compression != kRgb && h_.compression != kBitfields &&
            h_.compression != kAlphaBitfields)
            throw v_.fail("unsupported compression");
        const size_t stride = (size_t(h_.width) * size_t(h_.bpp) + 31) / 32 * 4;
        const ByteView rows = v_.sub(h_.dataAt, stride * size_t(h_.height));
        const auto row = [&](int y) {
            return rows.data() + stride * size_t(h_.topDown ? y : h_.height - 1 - y);
        };
        if (h_.bpp <= 8) {
            Raster r = indexedRaster(h_, h_.bpp);
            for (int y = 0; y < h_.height; ++y)
                std::copy_n(row(y), r.rowBytes(), r.pixels.data() + r.rowBytes() * size_t(y));
            blackAndWhiteAsGrey(r);
            return r;
        }
        if (h_.bpp != 16 && h_.bpp != 24 && h_.bpp != 32)
            throw v_.fail("unsupported bit count");
        Raster r = rgbRaster(h_.width, h_.height, h_.a.bits != 0);
        for (int y = 0; y < h_.height; ++y) {
            const uint8_t *p = row(y);
            for (int x = 0; x < h_.width; ++x) {
                const size_t i = size_t(y) * size_t(h_.width) + size_t(x);
                uint8_t *out = &r.pixels[3 * i];
                if (h_.bpp == 24) {
                    out[0] = p[3 * x + 2], out[1] = p[3 * x + 1], out[2] = p[3 * x];
                    continue;
                }
                const uint8_t *q = p + size_t(x) * size_t(h_.bpp / 8);
                uint32_t value = uint32_t(q[0] | q[1] << 8);
                if (h_.bpp == 32)
                    value |= uint32_t(q[2]) << 16 | uint32_t(q[3]) << 24;
                out[0] = h_.r.take(value), out[1] = h_.g.take(value), out[2] = h_.b.take(value);
                if (!r.alpha.empty())
                    r.alpha[i] = h_.a.take(value);
            }
        }
        // An alpha mask over samples that are all zero is a writer's leftover, not a picture
        // that shows nothing.
        if (std::all_of(r.alpha.begin(), r.alpha.end(), [](uint8_t a) { return a == 0; }))
            r.alpha.clear();
        dropOpaqueAlpha(r);
        return r;
    }

private:
    Raster runLength() const
    {
        const int expected = h_.compression == kRle8 ? 8 : 4;
        if (h_.bpp != expected || h_.topDown)
            throw v_.fail("run-length data of the wrong depth");
        const std::vector<uint8_t> indices = runLengthIndices(v_, h_);
        Raster r = indexedRaster(h_, 8);
        for (int y = 0; y < h_.height; ++y)
            std::copy_n(&indices[size_t(h_.height - 1 - y) * size_t(h_.width)], h_.width,
                        r.pixels.data() + size_t(y) * size_t(h_.width));
        return r;
    }

    std::vector<uint8_t> data_;
    ByteView v_;
    BmpHeader h_;
};

} // namespace

void readBmp(const std::string &path, const PageSink &sink)
{
    const BmpImage image(readWholeFile(path));
    const BmpHeader &h = image.header();
    // The wrapped data is the picture; the BMP header around it adds nothing to keep.
    if (h.compression == kJpeg || h.compression == kPng) {
        const size_t size =
            h.dataSize ? h.dataSize : image.data().size() - std::min(h.dataAt, image.data().size());
        const ByteView wrapped = ByteView(image.data(), "BMP").sub(h.dataAt, size);
        if (h.compression == kJpeg)
            return readJpeg(path, sink, long(h.dataAt), long(size));
        return readPngAt(path, std::vector<uint8_t>(wrapped.data(), wrapped.data() + size),
                         h.dataAt, sink);
    }
    DecodedPage page(h.bpp, [&] { return image.decode(); });
    if (h.xdpi > 1 && h.ydpi > 1) {
        page.xdpi = h.xdpi;
        page.ydpi = h.ydpi;
    }
    sink(page);
}

} // namespace pw::i2p
