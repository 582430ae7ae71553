#include "encoders.h"

#include "parallel_deflate.h"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <span>

namespace pw::i2p {

namespace {

struct DeflateCompressorFree {
    void operator()(libdeflate_compressor *c) const { libdeflate_free_compressor(c); }
};

// On 300 dpi grey scans libdeflate's level 5 is a fifth faster than 6 for 0.4 % more bytes;
// level 4 saves another fifth but costs 6 %, and from 7 on the time doubles for nothing.
constexpr int kDeflateLevel = 5;

} // namespace

std::vector<uint8_t> deflateBytes(const uint8_t *data, size_t size, int level)
{
    return deflateInPieces(data, size, level);
}

std::vector<uint8_t> deflateBytes(const uint8_t *data, size_t size)
{
    return deflateBytes(data, size, kDeflateLevel);
}

namespace {

class BitWriter {
public:
    explicit BitWriter(std::vector<uint8_t> &out) : out_(out) {}
    void put(unsigned code, int width)
    {
        acc_ = (acc_ << width) | code;
        bits_ += width;
        while (bits_ >= 8) {
            bits_ -= 8;
            out_.push_back(uint8_t(acc_ >> bits_));
        }
        acc_ &= (1u << bits_) - 1;
    }
    void flush()
    {
        if (bits_ > 0)
            out_.push_back(uint8_t(acc_ << (8 - bits_)));
        bits_ = 0;
        acc_ = 0;
    }

private:
    std::vector<uint8_t> &out_;
    uint32_t acc_ = 0;
    int bits_ = 0;
};

} // namespace

std::vector<uint8_t> lzwEncode(const uint8_t *data, size_t size)
{
    constexpr unsigned kClear = 256, kEod = 257, kFirst = 258, kMaxCode = 4094;
    // Open-addressing table keyed by (prefix code, next byte).
    constexpr size_t kTableSize = 1 << 14;
    std::vector<uint32_t> keys(kTableSize, 0xFFFFFFFFu);
    std::vector<uint16_t> codes(kTableSize);
    std::vector<uint8_t> out;
    out.reserve(size / 2 + 16);
    BitWriter bits(out);
    unsigned next = kFirst;
    int width = 9;
    bits.put(kClear, width);
    if (size == 0) {
        bits.put(kEod, width);
        bits.flush();
        return out;
    }
    unsigned prefix = data[0];
    for (size_t i = 1; i < size; ++i) {
        const uint8_t c = data[i];
        const uint32_t key = (uint32_t(prefix) << 8) | c;
        size_t h = (key * 2654435761u) & (kTableSize - 1);
        while (keys[h] != 0xFFFFFFFFu && keys[h] != key)
            h = (h + 1) & (kTableSize - 1);
        if (keys[h] == key) {
            prefix = codes[h];
            continue;
        }
        bits.put(prefix, width);
        keys[h] = key;
        codes[h] = uint16_t(next++);
        // EarlyChange 1: the decoder widens one code early, so the encoder does too.
        if (next + 1 > (1u << width) && width < 12)
            ++width;
        if (next >= kMaxCode) {
            bits.put(kClear, width);
            std::fill(keys.begin(), keys.end(), 0xFFFFFFFFu);
            next = kFirst;
            width = 9;
        }
        prefix = c;
    }
    bits.put(prefix, width);
    ++next;
    if (next + 1 > (1u << width) && width < 12)
        ++width;
    bits.put(kEod, width);
    bits.flush();
    return out;
}

std::vector<uint8_t> runLengthEncode(const uint8_t *data, size_t size)
{
    std::vector<uint8_t> out;
    out.reserve(size + size / 128 + 2);
    size_t i = 0;
    while (i < size) {
        size_t run = 1;
        while (i + run < size && run < 128 && data[i + run] == data[i])
            ++run;
        if (run >= 2) {
            out.push_back(uint8_t(257 - run));
            out.push_back(data[i]);
            i += run;
            continue;
        }
        // Literal block up to the next pair of equal bytes.
        size_t j = i + 1;
        while (j < size && j - i < 128 && !(j + 1 < size && data[j] == data[j + 1]))
            ++j;
        out.push_back(uint8_t(j - i - 1));
        out.insert(out.end(), data + i, data + j);
        i = j;
    }
    out.push_back(128);
    return out;
}

bool packBitsToRunLength(std::vector<uint8_t> &data, size_t expected)
{
    size_t produced = 0;
    size_t i = 0;
    while (i < data.size() && produced < expected) {
        const uint8_t n = data[i++];
        if (n < 128) {
            produced += n + 1u;
            i += n + 1u;
        } else if (n > 128) {
            produced += 257u - n;
            i += 1;
        } else {
            return false; // a PackBits no-op is the end of data for RunLengthDecode
        }
    }
    if (produced != expected || i > data.size())
        return false;
    data.resize(i);
    data.push_back(128);
    return true;
}

namespace {

inline uint8_t paeth(int a, int b, int c)
{
    const int p = a + b - c;
    const int pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    if (pa <= pb && pa <= pc)
        return uint8_t(a);
    return uint8_t(pb <= pc ? b : c);
}

// PNG row prediction, tagged on every row (Predictor 15 tells the reader each row has its tag).
enum class Prediction : uint8_t { None = 0, Sub = 1, Paeth = 4 };

std::vector<uint8_t> predictRows(std::span<const uint8_t> pix, size_t rowBytes, int height,
                                 int bytesPerPixel, Prediction kind)
{
    std::vector<uint8_t> out(size_t(height) * (rowBytes + 1));
    const size_t bpp = size_t(bytesPerPixel);
    const uint8_t *prev = nullptr;
    for (int y = 0; y < height; ++y) {
        const uint8_t *row = pix.data() + size_t(y) * rowBytes;
        uint8_t *o = out.data() + size_t(y) * (rowBytes + 1);
        o[0] = uint8_t(kind);
        const size_t head = std::min(bpp, rowBytes);
        std::copy(row, row + head, o + 1);
        if (kind == Prediction::Sub) {
            for (size_t x = head; x < rowBytes; ++x)
                o[x + 1] = uint8_t(row[x] - row[x - bpp]);
        } else {
            for (size_t x = 0; x < rowBytes; ++x) {
                const int a = x >= bpp ? row[x - bpp] : 0;
                const int b = prev ? prev[x] : 0;
                const int c = (prev && x >= bpp) ? prev[x - bpp] : 0;
                o[x + 1] = uint8_t(row[x] - paeth(a, b, c));
            }
        }
        prev = row;
    }
    return out;
}

struct FlateChoice {
    Prediction predict = Prediction::None;
    int level = kDeflateLevel;
};

// Photographs shrink with row prediction; scanned text and line art usually grow with it and
// cost the prediction pass for nothing. Paeth suits smooth tones; on a scan's sensor noise the
// left neighbour alone predicts as well or better, in a fraction of the time. On clean pages
// repeats are what deflate lives on; on noisy scans nothing repeats exactly, and
// Huffman-coding the bytes alone is smaller and many times faster. Bands spread over the page
// decide: each prediction Huffman-coded alone (fast), then deflate's search tried once, on the
// prediction that came out smallest.
FlateChoice chooseFlate(std::span<const uint8_t> pix, size_t rowBytes, int height,
                        int bytesPerPixel)
{
    constexpr int kBands = 4, kBandRows = 8;
    std::vector<uint8_t> sample;
    const int rows = std::min(height, kBandRows);
    for (int b = 0; b < kBands; ++b) {
        const size_t first = size_t(height - rows) * size_t(2 * b + 1) / (2 * kBands);
        const auto band = pix.subspan(first * rowBytes, size_t(rows) * rowBytes);
        sample.insert(sample.end(), band.begin(), band.end());
    }
    Prediction best = Prediction::None;
    std::vector<uint8_t> bestBytes = sample;
    size_t smallest = SIZE_MAX;
    for (const Prediction predict : {Prediction::None, Prediction::Sub, Prediction::Paeth}) {
        if (predict != Prediction::None && !bytesPerPixel)
            continue;
        std::vector<uint8_t> coded =
            predict == Prediction::None
                ? sample
                : predictRows(sample, rowBytes, rows * kBands, bytesPerPixel, predict);
        size_t n = deflateBytes(coded.data(), coded.size(), kHuffmanOnly).size();
        // Paeth takes several times Sub's time: it must save more than a percent to be worth
        // it. Ties go to the cheaper way.
        if (predict == Prediction::Paeth)
            n += n / 100;
        if (n < smallest) {
            smallest = n;
            best = predict;
            bestBytes = std::move(coded);
        }
    }
    const size_t searched = deflateBytes(bestBytes.data(), bestBytes.size(), 1).size();
    return {best, searched < smallest ? kDeflateLevel : kHuffmanOnly};
}

void encodeBytes(EncodedImage &img, std::span<const uint8_t> pix, size_t rowBytes, int components,
                 Filter filter)
{
    switch (filter) {
    case Filter::Lzw:
        img.filter = Filter::Lzw;
        img.bytes = lzwEncode(pix.data(), pix.size());
        return;
    case Filter::RunLength:
        img.filter = Filter::RunLength;
        img.bytes = runLengthEncode(pix.data(), pix.size());
        return;
    default:
        break;
    }
    img.filter = Filter::Flate;
    // Prediction is for continuous tone only: samples of whole bytes that are not indices.
    const int bytesPerPixel =
        img.bpc >= 8 && img.cs.model != ColourModel::Indexed ? components * img.bpc / 8 : 0;
    const FlateChoice choice = chooseFlate(pix, rowBytes, img.height, bytesPerPixel);
    if (choice.predict != Prediction::None) {
        const auto predicted =
            predictRows(pix, rowBytes, img.height, bytesPerPixel, choice.predict);
        img.bytes = deflateBytes(predicted.data(), predicted.size(), choice.level);
        img.parms.predictor = 15;
        img.parms.colors = components;
        img.parms.bitsPerComponent = img.bpc;
        img.parms.columns = img.width;
    } else {
        img.bytes = deflateBytes(pix.data(), pix.size(), choice.level);
    }
}

// Widens a raster to 8-bit grey, RGB or CMYK with the inversion applied, as DCT needs it.
Raster toEightBit(const Raster &r)
{
    Raster out;
    out.width = r.width;
    out.height = r.height;
    out.bpc = 8;
    out.cs.icc = r.cs.icc;
    const int comps = r.cs.components();
    const ColourModel model = r.cs.model == ColourModel::Indexed ? r.cs.base : r.cs.model;
    out.cs.model = model;
    if (r.cs.model == ColourModel::Indexed)
        out.cs.icc.clear();
    const int outComps = out.cs.components();
    out.pixels.resize(size_t(r.width) * r.height * outComps);
    const size_t rowBytes = r.rowBytes();
    const int maxSample = (1 << std::min(r.bpc, 8)) - 1;
    for (int y = 0; y < r.height; ++y) {
        const uint8_t *row = r.pixels.data() + size_t(y) * rowBytes;
        uint8_t *o = out.pixels.data() + size_t(y) * r.width * outComps;
        for (int x = 0; x < r.width; ++x) {
            for (int c = 0; c < comps; ++c) {
                const size_t idx = size_t(x) * comps + c;
                int v;
                if (r.bpc == 16)
                    v = row[idx * 2];
                else if (r.bpc == 8)
                    v = row[idx];
                else {
                    const size_t bit = idx * r.bpc;
                    v = (row[bit / 8] >> (8 - r.bpc - bit % 8)) & maxSample;
                }
                if (r.cs.model == ColourModel::Indexed) {
                    for (int k = 0; k < outComps; ++k) {
                        const size_t p = size_t(v) * outComps + k;
                        o[size_t(x) * outComps + k] =
                            p < r.cs.palette.size() ? uint8_t(r.cs.palette[p]) : 0;
                    }
                    continue;
                }
                if (r.bpc < 8)
                    v = v * 255 / maxSample;
                if (r.invert)
                    v = 255 - v;
                o[idx] = uint8_t(v);
            }
        }
    }
    return out;
}

std::unique_ptr<EncodedImage> encodeAlpha(const Raster &r)
{
    auto mask = std::make_unique<EncodedImage>();
    mask->width = r.width;
    mask->height = r.height;
    mask->bpc = r.alphaBpc;
    mask->cs.model = ColourModel::Gray;
    Raster a;
    a.width = r.width;
    a.height = r.height;
    a.bpc = r.alphaBpc;
    encodeBytes(*mask, r.alpha, a.rowBytes(), 1, Filter::Flate);
    return mask;
}

} // namespace

EncodedImage encodeRaster(Raster r, Filter wanted, bool &fellBack)
{
    fellBack = false;
    EncodedImage img;
    img.width = r.width;
    img.height = r.height;
    if (!r.alpha.empty())
        img.smask = encodeAlpha(r);

    if (wanted == Filter::CcittG3 || wanted == Filter::CcittG4) {
        if (r.bpc == 1 && r.cs.model == ColourModel::Gray) {
            img.bpc = 1;
            img.cs.model = ColourModel::Gray;
            img.cs.icc = r.cs.icc;
            img.filter = wanted;
            img.parms.k = wanted == Filter::CcittG4 ? -1 : 0;
            img.parms.columns = r.width;
            img.parms.rows = r.height;
            img.parms.blackIs1 = false;
            img.bytes = ccittEncode(r, wanted == Filter::CcittG4);
            return img;
        }
        fellBack = true;
        wanted = Filter::Flate;
    }
    if (wanted == Filter::Dct) {
        Raster eight = (r.bpc == 8 && r.cs.model != ColourModel::Indexed && !r.invert)
                           ? std::move(r)
                           : toEightBit(r);
        img.bpc = 8;
        img.cs = eight.cs;
        img.filter = Filter::Dct;
        img.bytes = jpegEncode(eight, 85);
        if (eight.cs.model == ColourModel::Cmyk)
            img.parms.colorTransform = 0;
        return img;
    }
    img.bpc = r.bpc;
    img.cs = r.cs;
    if (r.invert) {
        const int n = r.cs.components();
        for (int i = 0; i < n; ++i) {
            img.decode.push_back(1);
            img.decode.push_back(0);
        }
    }
    encodeBytes(img, r.pixels, r.rowBytes(), r.cs.components(), wanted);
    return img;
}

} // namespace pw::i2p
