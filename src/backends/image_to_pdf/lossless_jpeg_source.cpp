// Lossless JPEG (the Huffman-coded predictive process, SOF3), as medical and scientific
// cameras write it. libjpeg does not decode it and the PDF has no filter for it, so it is
// decoded here; samples keep their precision (up to 8 bits as 8, deeper ones as 16).

#include "byte_image.h"

#include <array>

namespace pw::i2p {

namespace {

uint16_t be16(const ByteView &v, size_t at)
{
    return uint16_t(v.u8(at) << 8 | v.u8(at + 1));
}

// A DC Huffman table as codes of each length, looked up bit by bit (codes are at most 16
// bits and a page has few distinct ones).
struct HuffmanTable {
    std::array<int, 17> first{}; // first code of each length
    std::array<int, 17> count{};
    std::array<int, 17> index{}; // where that length's values start
    std::vector<uint8_t> values;
    bool defined = false;
};

class BitReader {
public:
    BitReader(const ByteView &v, size_t at) : v_(v), at_(at) {}

    int bit()
    {
        if (bits_ == 0)
            fill();
        --bits_;
        return (byte_ >> bits_) & 1;
    }
    int bits(int n)
    {
        int out = 0;
        for (int i = 0; i < n; ++i)
            out = out << 1 | bit();
        return out;
    }
    // Drops the bits left of the byte in hand and steps over the restart marker that follows.
    void restart()
    {
        bits_ = 0;
        if (v_.u8(at_) == 0xFF && (v_.u8(at_ + 1) & 0xF8) == 0xD0)
            at_ += 2;
        else
            throw v_.fail("restart marker missing");
    }

private:
    void fill()
    {
        byte_ = v_.u8(at_);
        if (byte_ == 0xFF) {
            // A stuffed zero follows a data byte of 0xFF; anything else is a marker, and a
            // marker here means the data stopped before the picture did.
            if (v_.u8(at_ + 1) != 0)
                throw v_.cutShort();
            ++at_;
        }
        ++at_;
        bits_ = 8;
    }

    const ByteView &v_;
    size_t at_;
    int byte_ = 0, bits_ = 0;
};

struct Component {
    int id = 0, table = 0;
};

class LosslessJpeg {
public:
    explicit LosslessJpeg(std::vector<uint8_t> data) : data_(std::move(data)), v_(data_, "JPEG")
    {
        size_t at = 2;
        while (scanAt_ == 0) {
            const int code = jpegMarker(v_, at);
            const size_t length = be16(v_, at + 2);
            const ByteView segment = v_.sub(at + 4, length < 2 ? 0 : length - 2);
            if (code == 0xC3)
                frame(segment);
            else if (code == 0xC4)
                huffman(segment);
            else if (code == 0xDD)
                restartInterval_ = be16(segment, 0);
            else if (code == 0xDA)
                scan(segment, at + 2 + length);
            else if (code >= 0xC0 && code <= 0xCF && code != 0xC8 && code != 0xCC)
                throw v_.fail("not a lossless Huffman JPEG");
            at += 2 + length;
        }
        if (precision_ == 0)
            throw v_.fail("no frame header");
        checkPageSize("JPEG", uint64_t(width_), uint64_t(height_));
        // Every sample takes a Huffman code of at least one bit.
        const uint64_t samples = uint64_t(width_) * uint64_t(height_) * components_.size();
        if (samples / 8 > data_.size() - scanAt_)
            throw v_.fail("the frame is larger than its data can hold");
    }
    LosslessJpeg(const LosslessJpeg &) = delete;
    LosslessJpeg &operator=(const LosslessJpeg &) = delete;

    int depth() const { return precision_ * int(components_.size()); }

    Raster decode() const
    {
        const size_t comps = components_.size();
        std::vector<int> samples(size_t(width_) * size_t(height_) * comps);
        BitReader in(v_, scanAt_);
        const int top = (1 << precision_) - 1;
        int sinceRestart = 0;
        // At the start and after each restart the first sample is predicted from nothing and
        // the rest of its row from the left only.
        bool first = true, firstRow = true;
        for (int y = 0; y < height_; ++y)
            for (int x = 0; x < width_; ++x) {
                if (restartInterval_ && sinceRestart == restartInterval_) {
                    in.restart();
                    sinceRestart = 0;
                    first = firstRow = true;
                }
                for (size_t c = 0; c < comps; ++c) {
                    const size_t i = (size_t(y) * size_t(width_) + size_t(x)) * comps + c;
                    const int diff = difference(in, tables_[size_t(components_[c].table)]);
                    const int guess = first ? 1 << (precision_ - pointTransform_ - 1)
                                            : predicted(samples, x, y, c, firstRow);
                    samples[i] = (guess + diff) & 0xFFFF;
                }
                first = false;
                ++sinceRestart;
                if (x == width_ - 1)
                    firstRow = false;
            }
        Raster r;
        r.width = width_;
        r.height = height_;
        r.bpc = precision_ > 8 ? 16 : 8;
        r.cs.model = comps == 1 ? ColourModel::Gray : ColourModel::Rgb;
        r.pixels.resize(samples.size() * size_t(r.bpc / 8));
        for (size_t i = 0; i < samples.size(); ++i) {
            const uint32_t v = uint32_t(std::min(samples[i] << pointTransform_, top));
            if (r.bpc == 8) {
                r.pixels[i] = widen(v, precision_);
            } else {
                const uint32_t wide = (v * 65535 + uint32_t(top) / 2) / uint32_t(top);
                r.pixels[2 * i] = uint8_t(wide >> 8);
                r.pixels[2 * i + 1] = uint8_t(wide);
            }
        }
        return r;
    }

private:
    void frame(const ByteView &s)
    {
        precision_ = s.u8(0);
        height_ = be16(s, 1);
        width_ = be16(s, 3);
        const int count = s.u8(5);
        if (precision_ < 2 || precision_ > 16 || width_ == 0 || height_ == 0 ||
            (count != 1 && count != 3))
            throw v_.fail("unsupported lossless frame");
        for (int i = 0; i < count; ++i) {
            if (s.u8(7 + 3 * size_t(i)) != 0x11)
                throw v_.fail("subsampled lossless data is not supported");
            components_.push_back({s.u8(6 + 3 * size_t(i)), 0});
        }
    }

    void huffman(const ByteView &s)
    {
        for (size_t at = 0; at < s.size();) {
            const int slot = s.u8(at) & 15;
            if ((s.u8(at) >> 4) != 0 || slot > 3)
                throw v_.fail("bad Huffman table");
            HuffmanTable &t = tables_[size_t(slot)];
            t = HuffmanTable{};
            int code = 0, total = 0;
            for (int length = 1; length <= 16; ++length) {
                t.count[size_t(length)] = s.u8(at + size_t(length));
                t.first[size_t(length)] = code;
                t.index[size_t(length)] = total;
                code = (code + t.count[size_t(length)]) << 1;
                total += t.count[size_t(length)];
            }
            const uint8_t *values = s.need(at + 17, size_t(total));
            t.values.assign(values, values + total);
            t.defined = true;
            at += 17 + size_t(total);
        }
    }

    void scan(const ByteView &s, size_t dataAt)
    {
        const size_t count = s.u8(0);
        if (count != components_.size())
            throw v_.fail("a scan of only some components");
        for (size_t i = 0; i < count; ++i) {
            const int id = s.u8(1 + 2 * i), table = s.u8(2 + 2 * i) >> 4;
            if (components_[i].id != id || table > 3 || !tables_[size_t(table)].defined)
                throw v_.fail("scan components out of order or without tables");
            components_[i].table = table;
        }
        predictor_ = s.u8(1 + 2 * count);
        pointTransform_ = s.u8(3 + 2 * count) & 15;
        if (predictor_ < 1 || predictor_ > 7 || pointTransform_ >= precision_)
            throw v_.fail("bad predictor");
        scanAt_ = dataAt;
    }

    int difference(BitReader &in, const HuffmanTable &t) const
    {
        int code = 0;
        for (int length = 1; length <= 16; ++length) {
            code = code << 1 | in.bit();
            const int offset = code - t.first[size_t(length)];
            if (offset >= 0 && offset < t.count[size_t(length)]) {
                const int size = t.values[size_t(t.index[size_t(length)] + offset)];
                if (size == 16)
                    return 32768;
                if (size > 16)
                    throw v_.fail("bad difference size");
                const int bits = in.bits(size);
                return size == 0 || bits >= (1 << (size - 1)) ? bits : bits - (1 << size) + 1;
            }
        }
        throw v_.fail("bad Huffman code");
    }

    int predicted(const std::vector<int> &s, int x, int y, size_t c, bool firstRow) const
    {
        const size_t comps = components_.size();
        const auto at = [&](int px, int py) {
            return s[(size_t(py) * size_t(width_) + size_t(px)) * comps + c];
        };
        if (firstRow && x > 0)
            return at(x - 1, y);
        if (x == 0)
            return at(x, y - 1);
        const int a = at(x - 1, y), b = at(x, y - 1), d = at(x - 1, y - 1);
        switch (predictor_) {
        case 1:
            return a;
        case 2:
            return b;
        case 3:
            return d;
        case 4:
            return a + b - d;
        case 5:
            return a + ((b - d) >> 1);
        case 6:
            return b + ((a - d) >> 1);
        default:
            return (a + b) / 2;
        }
    }

    std::vector<uint8_t> data_;
    ByteView v_;
    int precision_ = 0, width_ = 0, height_ = 0;
    std::vector<Component> components_;
    std::array<HuffmanTable, 4> tables_;
    int restartInterval_ = 0, predictor_ = 1, pointTransform_ = 0;
    size_t scanAt_ = 0;
};

} // namespace

Raster decodeLosslessJpeg(std::vector<uint8_t> data)
{
    return LosslessJpeg(std::move(data)).decode();
}

void readLosslessJpeg(std::vector<uint8_t> data, const PageSink &sink)
{
    const LosslessJpeg image(std::move(data));
    DecodedPage page(image.depth(), [&] { return image.decode(); });
    sink(page);
}

} // namespace pw::i2p
