#pragma once

// What the readers of the simple formats (Targa, BMP, PCX/DCX) share: bounded little-endian
// reads over the whole file, where running off the end is the file being cut short, and a page
// that decodes on demand.

#include "page_image.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace pw::i2p {

class ByteView {
public:
    ByteView(const uint8_t *data, size_t size, const char *format)
        : data_(data), size_(size), format_(format)
    {
    }
    explicit ByteView(const std::vector<uint8_t> &d, const char *format)
        : ByteView(d.data(), d.size(), format)
    {
    }

    size_t size() const { return size_; }
    const uint8_t *data() const { return data_; }
    const char *format() const { return format_; }

    // `n` bytes from `at`, or the failure of a file that ends before its data does.
    const uint8_t *need(size_t at, size_t n) const
    {
        if (at > size_ || n > size_ - at)
            throw cutShort();
        return data_ + at;
    }
    uint8_t u8(size_t at) const { return *need(at, 1); }
    uint16_t le16(size_t at) const
    {
        const uint8_t *p = need(at, 2);
        return uint16_t(p[0] | p[1] << 8);
    }
    uint32_t le32(size_t at) const
    {
        const uint8_t *p = need(at, 4);
        return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
    }
    ByteView sub(size_t at, size_t n) const { return ByteView(need(at, n), n, format_); }

    pw::Failure cutShort() const { return fail("the data is cut short"); }
    pw::Failure fail(const std::string &why) const
    {
        return invalidFormat(std::string(format_) + ": " + why);
    }

private:
    const uint8_t *data_;
    size_t size_;
    const char *format_;
};

// The code of the marker at `at` in JPEG-family data, with `at` moved past any fill bytes to
// it. Throws for data that starts no marker there.
inline uint8_t jpegMarker(const ByteView &v, size_t &at)
{
    while (v.u8(at) == 0xFF && v.u8(at + 1) == 0xFF)
        ++at;
    if (v.u8(at) != 0xFF)
        throw v.fail("marker expected");
    return v.u8(at + 1);
}

// A page of a format with no stored form the PDF can carry: decoded when the writer asks.
class DecodedPage : public PageSource {
public:
    DecodedPage(int depth, std::function<Raster()> decoder)
        : depth_(depth), decoder_(std::move(decoder))
    {
    }
    int depth() const override { return depth_; }
    std::optional<EncodedImage> asIs(Filter) override { return std::nullopt; }
    Raster decode() override { return decoder_(); }

private:
    int depth_;
    std::function<Raster()> decoder_;
};

// An 8-bit RGB raster of `width` x `height`, its pixels sized and its alpha empty.
inline Raster rgbRaster(int width, int height, bool withAlpha)
{
    Raster r;
    r.width = width;
    r.height = height;
    r.cs.model = ColourModel::Rgb;
    r.pixels.resize(size_t(width) * size_t(height) * 3);
    if (withAlpha)
        r.alpha.resize(size_t(width) * size_t(height));
    return r;
}

// Drops an alpha channel that hides nothing.
inline void dropOpaqueAlpha(Raster &r)
{
    for (const uint8_t a : r.alpha)
        if (a != 255)
            return;
    r.alpha.clear();
}

// A sample of `bits` bits widened to 8, the top value staying the top value.
inline uint8_t widen(uint32_t v, int bits)
{
    if (bits <= 0)
        return 255;
    if (bits == 8)
        return uint8_t(v);
    const uint32_t top = (uint32_t(1) << bits) - 1;
    return uint8_t((v * 255 + top / 2) / top);
}

} // namespace pw::i2p
