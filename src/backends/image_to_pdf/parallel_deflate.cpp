#include "parallel_deflate.h"

#include "huffman_deflate.h"
#include "image_to_pdf.h"

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <system_error>
#include <thread>

namespace pw::i2p {

namespace {

// Deflate bits come least significant first.
class BitReader {
public:
    BitReader(const uint8_t *data, size_t size) : data_(data), size_(size) {}

    // The next `n` (at most 32) bits; bits past the end read as zero.
    uint32_t peek(int n) const
    {
        const size_t byte = pos_ >> 3;
        uint64_t v = 0;
        if (std::endian::native == std::endian::little && byte + 8 <= size_) {
            std::memcpy(&v, data_ + byte, 8);
        } else {
            for (size_t i = 0; byte + i < size_ && i < 8; ++i)
                v |= uint64_t(data_[byte + i]) << (8 * i);
        }
        return uint32_t(v >> (pos_ & 7)) & uint32_t((uint64_t(1) << n) - 1);
    }
    uint32_t take(int n)
    {
        const uint32_t v = peek(n);
        pos_ += size_t(n);
        return v;
    }
    void skip(size_t n) { pos_ += n; }
    void alignToByte() { pos_ = (pos_ + 7) & ~size_t(7); }
    size_t position() const { return pos_; }
    bool overrun() const { return pos_ > size_ * 8; }

private:
    const uint8_t *data_;
    size_t size_;
    size_t pos_ = 0;
};

// A canonical Huffman code: a lookup table for the short codes, the counting method for the
// rare long ones.
class Huffman {
public:
    static constexpr int kMaxBits = 15;
    static constexpr int kTableBits = 12;

    bool build(const uint8_t *lengths, int n)
    {
        count_.fill(0);
        for (int s = 0; s < n; ++s)
            ++count_[lengths[s]];
        count_[0] = 0;
        int left = 1;
        for (int len = 1; len <= kMaxBits; ++len) {
            left = (left << 1) - count_[len];
            if (left < 0)
                return false; // over-subscribed
        }
        std::array<int, kMaxBits + 2> offset{};
        for (int len = 1; len <= kMaxBits; ++len)
            offset[len + 1] = offset[len] + count_[len];
        symbols_.assign(size_t(n), 0);
        for (int s = 0; s < n; ++s)
            if (lengths[s])
                symbols_[size_t(offset[lengths[s]]++)] = uint16_t(s);
        // The table is no longer than the longest code, so small codes build small tables.
        bits_ = 1;
        for (int len = 1; len <= kMaxBits; ++len)
            if (count_[len])
                bits_ = std::min(len, kTableBits);
        table_.assign(size_t(1) << bits_, 0);
        uint32_t code = 0;
        size_t index = 0;
        for (int len = 1; len <= kMaxBits; ++len, code <<= 1) {
            for (int i = 0; i < count_[len]; ++i, ++code, ++index) {
                if (len > bits_)
                    continue;
                const uint32_t reversed = reverse(code, len);
                const uint16_t entry = uint16_t(symbols_[index] << 4 | len);
                for (uint32_t k = reversed; k < table_.size(); k += 1u << len)
                    table_[k] = entry;
            }
        }
        return true;
    }

    // The next symbol, or -1 for a code that is not in the table.
    int decode(BitReader &in) const
    {
        const uint16_t entry = table_[in.peek(bits_)];
        if (entry) {
            in.skip(entry & 15);
            return entry >> 4;
        }
        int code = 0, first = 0, index = 0;
        for (int len = 1; len <= kMaxBits; ++len) {
            code |= int(in.take(1));
            const int count = count_[len];
            if (code - count < first)
                return symbols_[size_t(index + (code - first))];
            index += count;
            first = (first + count) << 1;
            code <<= 1;
        }
        return -1;
    }

private:
    static uint32_t reverse(uint32_t code, int len)
    {
        uint32_t r = 0;
        for (int i = 0; i < len; ++i, code >>= 1)
            r = (r << 1) | (code & 1);
        return r;
    }

    std::array<int, kMaxBits + 1> count_{};
    int bits_ = 1;
    std::vector<uint16_t> symbols_;
    std::vector<uint16_t> table_;
};

constexpr std::array<uint8_t, 29> kLengthExtra{0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                               2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};

bool readDynamicCodes(BitReader &in, Huffman &lit, Huffman &dist)
{
    static constexpr std::array<uint8_t, 19> kOrder{16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                    11, 4,  12, 3, 13, 2, 14, 1, 15};
    const int nlit = int(in.take(5)) + 257;
    const int ndist = int(in.take(5)) + 1;
    const int ncode = int(in.take(4)) + 4;
    if (nlit > 286 || ndist > 30)
        return false;
    std::array<uint8_t, 19> codeLengths{};
    for (int i = 0; i < ncode; ++i)
        codeLengths[kOrder[size_t(i)]] = uint8_t(in.take(3));
    Huffman lengthCode;
    if (!lengthCode.build(codeLengths.data(), 19))
        return false;
    std::array<uint8_t, 286 + 30> lengths{};
    int i = 0;
    while (i < nlit + ndist) {
        const int sym = lengthCode.decode(in);
        if (sym < 0 || in.overrun())
            return false;
        if (sym < 16) {
            lengths[size_t(i++)] = uint8_t(sym);
            continue;
        }
        int repeat = 0;
        uint8_t value = 0;
        if (sym == 16) {
            if (i == 0)
                return false;
            value = lengths[size_t(i - 1)];
            repeat = 3 + int(in.take(2));
        } else if (sym == 17) {
            repeat = 3 + int(in.take(3));
        } else {
            repeat = 11 + int(in.take(7));
        }
        if (i + repeat > nlit + ndist)
            return false;
        std::fill_n(lengths.begin() + i, repeat, value);
        i += repeat;
    }
    return lengths[256] != 0 && lit.build(lengths.data(), nlit) &&
           dist.build(lengths.data() + nlit, ndist);
}

void fixedCodes(Huffman &lit, Huffman &dist)
{
    std::array<uint8_t, 288> lengths{};
    std::fill(lengths.begin(), lengths.begin() + 144, 8);
    std::fill(lengths.begin() + 144, lengths.begin() + 256, 9);
    std::fill(lengths.begin() + 256, lengths.begin() + 280, 7);
    std::fill(lengths.begin() + 280, lengths.end(), 8);
    lit.build(lengths.data(), 288);
    std::array<uint8_t, 30> distLengths{};
    distLengths.fill(5);
    dist.build(distLengths.data(), 30);
}

// Steps over the symbols of one compressed block, up to and including its end code.
bool skipSymbols(BitReader &in, const Huffman &lit, const Huffman &dist)
{
    for (;;) {
        const int sym = lit.decode(in);
        if (sym < 0 || sym > 285 || in.overrun())
            return false;
        if (sym < 256)
            continue;
        if (sym == 256)
            return true;
        in.skip(kLengthExtra[size_t(sym - 257)]);
        const int d = dist.decode(in);
        if (d < 0 || d > 29)
            return false;
        in.skip(d < 4 ? 0 : size_t(d / 2 - 1));
    }
}

struct CompressorFree {
    void operator()(libdeflate_compressor *c) const { libdeflate_free_compressor(c); }
};

struct Piece {
    const uint8_t *data = nullptr;
    size_t size = 0;
    PixelBytes deflated; // raw deflate
    uint32_t adler = 1;
    std::optional<FinalBlock> finalBlock;
    bool open = false; // ends on a byte boundary with no final block: joins as it is
};

void deflatePiece(Piece &piece, int level, bool last)
{
    if (level == kHuffmanOnly) {
        huffmanDeflate(piece.data, piece.size, last, piece.deflated);
        piece.adler = libdeflate_adler32(1, piece.data, piece.size);
        piece.open = !last;
        return;
    }
    std::unique_ptr<libdeflate_compressor, CompressorFree> c(libdeflate_alloc_compressor(level));
    if (!c)
        throw std::bad_alloc();
    const size_t bound = libdeflate_deflate_compress_bound(c.get(), piece.size);
    auto buffer = std::make_unique_for_overwrite<uint8_t[]>(bound);
    const size_t n =
        libdeflate_deflate_compress(c.get(), piece.data, piece.size, buffer.get(), bound);
    piece.deflated.assign(buffer.get(), buffer.get() + n);
    piece.adler = libdeflate_adler32(1, piece.data, piece.size);
    if (!last)
        piece.finalBlock = findFinalBlock(piece.deflated.data(), piece.deflated.size());
}

void runPieces(std::vector<Piece> &pieces, int level)
{
    std::atomic<size_t> next{0};
    std::exception_ptr failure;
    std::atomic_flag failed = ATOMIC_FLAG_INIT;
    auto worker = [&] {
        for (size_t i; (i = next++) < pieces.size();) {
            try {
                deflatePiece(pieces[i], level, i + 1 == pieces.size());
            } catch (...) {
                if (!failed.test_and_set())
                    failure = std::current_exception();
            }
        }
    };
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    std::vector<std::jthread> helpers;
    try {
        for (size_t t = 1; t < std::min<size_t>(cores, pieces.size()); ++t)
            helpers.emplace_back(worker);
    } catch (const std::system_error &) {
        // No thread to be had: the pieces left are deflated here.
    }
    worker();
    helpers.clear();
    if (failure)
        std::rethrow_exception(failure);
}

void appendBigEndian(std::vector<uint8_t> &out, uint32_t v)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(uint8_t(v >> shift));
}

} // namespace

std::optional<FinalBlock> findFinalBlock(const uint8_t *data, size_t size)
{
    BitReader in(data, size);
    Huffman lit, dist;
    for (;;) {
        const size_t start = in.position();
        const bool final = in.take(1) != 0;
        const uint32_t type = in.take(2);
        if (type == 0) {
            in.alignToByte();
            const uint32_t len = in.take(16);
            if ((in.take(16) ^ 0xFFFF) != len)
                return std::nullopt;
            in.skip(size_t(len) * 8);
        } else if (type == 1) {
            fixedCodes(lit, dist);
        } else if (type == 2) {
            if (!readDynamicCodes(in, lit, dist))
                return std::nullopt;
        } else {
            return std::nullopt;
        }
        if (type != 0 && !skipSymbols(in, lit, dist))
            return std::nullopt;
        if (in.overrun())
            return std::nullopt;
        if (final)
            return FinalBlock{start, in.position()};
    }
}

std::vector<uint8_t> deflateInPieces(const uint8_t *data, size_t size, int level, size_t pieceBytes)
{
    const size_t piece = std::max<size_t>(pieceBytes, 1);
    const size_t rounded = size / piece + (size % piece >= piece - piece / 2 ? 1 : 0);
    const size_t count = std::clamp<size_t>(rounded, 1, 64);
    std::vector<Piece> parts(count);
    // Every piece but the last is also searched for its final block, about an eighth of its
    // deflate time, so those pieces get an eighth less data and all finish together; Huffman
    // pieces need no search.
    const size_t share = level == kHuffmanOnly ? 8 : 7;
    const size_t units = share * (count - 1) + 8;
    auto boundary = [&](size_t i) { return i == count ? size : size / units * share * i; };
    for (size_t i = 0; i < count; ++i) {
        parts[i].data = data + boundary(i);
        parts[i].size = boundary(i + 1) - boundary(i);
    }
    runPieces(parts, level);
    const bool joinable = std::all_of(parts.begin(), parts.end() - 1, [](const Piece &p) {
        return p.open || p.finalBlock.has_value();
    });
    if (!joinable)
        return deflateInPieces(data, size, level, SIZE_MAX);

    // Room for the whole stream at once, and each piece let go once copied: a page's output
    // is held about once, not twice.
    size_t total = 2 + 4;
    for (const Piece &p : parts)
        total += p.deflated.size() + 5;
    std::vector<uint8_t> out{0x78, 0x9C};
    out.reserve(total);
    uLong adler = 1;
    for (size_t i = 0; i < count; ++i) {
        Piece &p = parts[i];
        adler = adler32_combine(adler, p.adler, z_off_t(p.size));
        if (i + 1 == count || p.open) {
            out.insert(out.end(), p.deflated.begin(), p.deflated.end());
            PixelBytes().swap(p.deflated);
            continue;
        }
        // Clear the final mark, then close the piece with an empty stored block, which leaves
        // the stream on a byte boundary for the next piece.
        const FinalBlock fb = *p.finalBlock;
        p.deflated[fb.start / 8] &= uint8_t(~(1u << (fb.start % 8)));
        const size_t endByte = fb.end / 8;
        p.deflated.resize(endByte + 1);
        p.deflated[endByte] &= uint8_t((1u << (fb.end % 8)) - 1);
        const size_t used = (fb.end + 3 + 7) / 8; // the stored block's three header bits
        p.deflated.resize(used, 0);
        out.insert(out.end(), p.deflated.begin(), p.deflated.end());
        out.insert(out.end(), {0x00, 0x00, 0xFF, 0xFF});
        PixelBytes().swap(p.deflated);
    }
    appendBigEndian(out, uint32_t(adler));
    return out;
}

} // namespace pw::i2p
