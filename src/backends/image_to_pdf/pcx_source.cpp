// PCX files and DCX (a table of PCX pages): black and white, 16 colours in bit planes or
// packed, 256 colours with the palette at the end, and 24-bit colour in three planes.

#include "byte_image.h"

#include <algorithm>

namespace pw::i2p {

namespace {

struct PcxHeader {
    int version, encoding, bits, planes, lineBytes, width, height;
    double xdpi, ydpi;

    explicit PcxHeader(const ByteView &v)
        : version(v.u8(1)), encoding(v.u8(2)), bits(v.u8(3)), planes(v.u8(65)),
          lineBytes(v.le16(66)), width(int(v.le16(8)) - int(v.le16(4)) + 1),
          height(int(v.le16(10)) - int(v.le16(6)) + 1), xdpi(v.le16(12)), ydpi(v.le16(14))
    {
        if (v.u8(0) != 0x0A || encoding > 1 || width <= 0 || height <= 0 || planes == 0)
            throw v.fail("not a PCX page");
        checkPageSize("PCX", uint64_t(width), uint64_t(height));
        if (size_t(lineBytes) * 8 < size_t(width) * size_t(bits))
            throw v.fail("lines shorter than the picture");
        const bool known = (bits == 1 && planes <= 4) || (bits == 2 && planes == 1) ||
                           (bits == 4 && planes == 1) ||
                           (bits == 8 && (planes == 1 || planes == 3 || planes == 4));
        if (!known)
            throw v.fail("unsupported layout");
    }
    int depth() const { return bits * planes; }
    size_t scanline() const { return size_t(lineBytes) * size_t(planes); }
};

// All scan lines, run-length data expanded; runs may cross from one line to the next.
std::vector<uint8_t> scanLines(const ByteView &v, const PcxHeader &h)
{
    const size_t total = h.scanline() * size_t(h.height);
    if (h.encoding == 0)
        return std::vector<uint8_t>(v.need(128, total), v.need(128, total) + total);
    std::vector<uint8_t> out;
    out.reserve(total);
    size_t at = 128;
    while (out.size() < total) {
        const uint8_t b = v.u8(at++);
        if ((b & 0xC0) == 0xC0)
            out.insert(out.end(), size_t(b & 0x3F), v.u8(at++));
        else
            out.push_back(b);
    }
    out.resize(total);
    return out;
}

class PcxPage {
public:
    explicit PcxPage(const ByteView &v) : v_(v), h_(v) {}

    Raster decode() const
    {
        const std::vector<uint8_t> lines = scanLines(v_, h_);
        if (h_.bits == 8 && h_.planes >= 3)
            return colour(lines);
        Raster r;
        r.width = h_.width;
        r.height = h_.height;
        if (h_.bits == 1 && h_.planes == 1) {
            // Black and white: 0 black, 1 white, as grey.
            r.bpc = 1;
            r.cs.model = ColourModel::Gray;
            copyRows(r, lines);
            return r;
        }
        r.cs.model = ColourModel::Indexed;
        r.cs.palette = palette();
        if (h_.planes == 1) {
            r.bpc = h_.bits;
            copyRows(r, lines);
            return r;
        }
        // Bit planes: plane p gives bit p of each pixel's index.
        r.bpc = 4;
        r.pixels.assign(r.rowBytes() * size_t(h_.height), 0);
        for (int y = 0; y < h_.height; ++y) {
            const uint8_t *line = &lines[h_.scanline() * size_t(y)];
            for (int x = 0; x < h_.width; ++x) {
                int index = 0;
                for (int p = 0; p < h_.planes; ++p)
                    index |=
                        ((line[size_t(p) * size_t(h_.lineBytes) + size_t(x / 8)] >> (7 - x % 8)) &
                         1)
                        << p;
                r.pixels[r.rowBytes() * size_t(y) + size_t(x / 2)] |=
                    uint8_t(x % 2 ? index : index << 4);
            }
        }
        return r;
    }

    const PcxHeader &header() const { return h_; }

private:
    void copyRows(Raster &r, const std::vector<uint8_t> &lines) const
    {
        r.pixels.resize(r.rowBytes() * size_t(h_.height));
        for (int y = 0; y < h_.height; ++y)
            std::copy_n(&lines[h_.scanline() * size_t(y)], r.rowBytes(),
                        r.pixels.data() + r.rowBytes() * size_t(y));
    }

    // 256 colours follow the data after a 12; fewer colours sit in the header.
    std::string palette() const
    {
        if (h_.bits == 8) {
            const size_t at = v_.size() >= 769 ? v_.size() - 769 : 0;
            if (v_.size() < 128 + 769 || v_.u8(at) != 0x0C)
                throw v_.cutShort(); // the palette is the last thing written
            return std::string(reinterpret_cast<const char *>(v_.need(at + 1, 768)), 768);
        }
        const size_t entries = size_t(1) << (h_.bits * h_.planes);
        // Version 3 files carry no palette of their own: the card's default colours apply.
        static const uint8_t ega[48] = {0x00, 0x00, 0x00, 0x00, 0x00, 0xAA, 0x00, 0xAA, 0x00, 0x00,
                                        0xAA, 0xAA, 0xAA, 0x00, 0x00, 0xAA, 0x00, 0xAA, 0xAA, 0x55,
                                        0x00, 0xAA, 0xAA, 0xAA, 0x55, 0x55, 0x55, 0x55, 0x55, 0xFF,
                                        0x55, 0xFF, 0x55, 0x55, 0xFF, 0xFF, 0xFF, 0x55, 0x55, 0xFF,
                                        0x55, 0xFF, 0xFF, 0xFF, 0x55, 0xFF, 0xFF, 0xFF};
        const uint8_t *colours = h_.version == 3 ? ega : v_.need(16, 48);
        return std::string(reinterpret_cast<const char *>(colours), entries * 3);
    }

    Raster colour(const std::vector<uint8_t> &lines) const
    {
        Raster r = rgbRaster(h_.width, h_.height, h_.planes == 4);
        for (int y = 0; y < h_.height; ++y) {
            const uint8_t *line = &lines[h_.scanline() * size_t(y)];
            for (int x = 0; x < h_.width; ++x) {
                const size_t i = size_t(y) * size_t(h_.width) + size_t(x);
                for (int c = 0; c < 3; ++c)
                    r.pixels[3 * i + size_t(c)] =
                        line[size_t(c) * size_t(h_.lineBytes) + size_t(x)];
                if (h_.planes == 4)
                    r.alpha[i] = line[3 * size_t(h_.lineBytes) + size_t(x)];
            }
        }
        dropOpaqueAlpha(r);
        return r;
    }

    ByteView v_;
    PcxHeader h_;
};

void offer(const ByteView &v, const PageSink &sink)
{
    const PcxPage pcx(v);
    DecodedPage page(pcx.header().depth(), [&] { return pcx.decode(); });
    // Many writers put the screen's size (640 x 350, 640 x 200 ...) where the resolution
    // belongs; only a square one is taken as the paper's.
    if (pcx.header().xdpi > 1 && pcx.header().xdpi == pcx.header().ydpi) {
        page.xdpi = pcx.header().xdpi;
        page.ydpi = pcx.header().ydpi;
    }
    sink(page);
}

} // namespace

void readPcx(const std::string &path, const PageSink &sink, bool firstOnly)
{
    const std::vector<uint8_t> data = readWholeFile(path);
    const ByteView file(data, "PCX");
    if (file.le32(0) != 0x3ADE68B1) {
        offer(file, sink);
        return;
    }
    // DCX: up to 1023 page offsets, ended by a zero; each page runs to the next one.
    std::vector<size_t> offsets;
    for (size_t at = 4; offsets.size() < 1023; at += 4) {
        const uint32_t offset = file.le32(at);
        if (offset == 0)
            break;
        offsets.push_back(offset);
    }
    if (offsets.empty())
        throw file.fail("a DCX without pages");
    for (size_t i = 0; i < offsets.size(); ++i) {
        const size_t end = i + 1 < offsets.size() ? offsets[i + 1] : data.size();
        if (end <= offsets[i])
            throw file.fail("DCX pages out of order");
        offer(file.sub(offsets[i], end - offsets[i]), sink);
        if (firstOnly)
            return;
    }
}

} // namespace pw::i2p
