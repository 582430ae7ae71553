// The page deflate that runs on every core: joined pieces must inflate, with zlib's own checks,
// to exactly the input, whatever kinds of deflate block each piece happened to end with, and
// whether repeats were looked for or the bytes only Huffman-coded.

#include "parallel_deflate.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <bit>
#include <random>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes inflateAll(const Bytes &z, size_t expected)
{
    Bytes out(expected + 1);
    uLongf n = uLongf(out.size());
    if (uncompress(out.data(), &n, z.data(), uLong(z.size())) != Z_OK)
        return {};
    out.resize(n);
    return out;
}

// Raw deflate from zlib, so that each block type can be asked for.
Bytes rawDeflate(const Bytes &in, int level, int strategy)
{
    z_stream s{};
    deflateInit2(&s, level, Z_DEFLATED, -15, 8, strategy);
    Bytes out(deflateBound(&s, uLong(in.size())) + 16);
    s.next_in = const_cast<uint8_t *>(in.data());
    s.avail_in = uInt(in.size());
    s.next_out = out.data();
    s.avail_out = uInt(out.size());
    deflate(&s, Z_FINISH);
    out.resize(s.total_out);
    deflateEnd(&s);
    return out;
}

// A scanned-page-like mix: runs of paper, noisy text strokes, and stretches of pure noise.
Bytes sampleData(size_t size, unsigned seed)
{
    std::mt19937 rng(seed);
    Bytes d(size);
    for (size_t i = 0; i < size; ++i) {
        const size_t band = (i / 4096) % 5;
        if (band == 4)
            d[i] = uint8_t(rng());
        else if (band == 2)
            d[i] = uint8_t((i % 61 < 7) ? 20 + rng() % 8 : 240);
        else
            d[i] = uint8_t(235 + (rng() % 3));
    }
    return d;
}

// libdeflate picks each block's kind itself, so the joins below may never meet a fixed-code
// block at the end of a piece; zlib makes one of each kind on demand.
TEST(ParallelDeflate, FindsTheFinalBlockOfEveryBlockTypeAndRefusesCutStreams)
{
    const Bytes data = sampleData(300000, 1);
    for (const auto &[level, strategy] : {std::pair(0, Z_DEFAULT_STRATEGY), std::pair(6, Z_FIXED),
                                          std::pair(9, Z_DEFAULT_STRATEGY)}) {
        SCOPED_TRACE(testing::Message() << "level " << level << ", strategy " << strategy);
        const Bytes raw = rawDeflate(data, level, strategy);
        const auto fb = pw::i2p::findFinalBlock(raw.data(), raw.size());
        ASSERT_TRUE(fb.has_value());
        // The final block ends in the stream's last byte, and starts with its final mark set.
        EXPECT_EQ((fb->end + 7) / 8, raw.size());
        EXPECT_LT(fb->start, fb->end);
        EXPECT_TRUE(raw[fb->start / 8] >> (fb->start % 8) & 1);
    }
    // A cut stream is refused, never read past its end.
    const Bytes raw = rawDeflate(data, 6, Z_DEFAULT_STRATEGY);
    for (size_t keep : {size_t(0), size_t(1), raw.size() / 2, raw.size() - 1})
        EXPECT_FALSE(pw::i2p::findFinalBlock(raw.data(), keep).has_value()) << keep;
}

TEST(ParallelDeflate, JoinedPiecesInflateToTheInput)
{
    // Pure noise ends each piece in a stored block, the rest in dynamic ones.
    Bytes noiseThenUniform(600000, 0xFF);
    std::mt19937 rng(7);
    std::generate_n(noiseThenUniform.begin(), 300000, [&] { return uint8_t(rng()); });
    std::vector<Bytes> inputs{noiseThenUniform};
    for (size_t size : {size_t(0), size_t(1), size_t(70000), size_t(1000003)})
        inputs.push_back(sampleData(size, unsigned(size)));
    // One value throughout, and values whose counts halve from one to the next: the Huffman
    // codes of a single symbol and of a tree deeper than deflate allows.
    inputs.push_back(Bytes(300000, 0x42));
    Bytes halving(400000);
    std::generate(halving.begin(), halving.end(), [&] { return uint8_t(std::countr_zero(rng())); });
    inputs.push_back(halving);
    for (const Bytes &data : inputs) {
        for (size_t pieceBytes : {size_t(SIZE_MAX), size_t(65536), size_t(150001)}) {
            for (int level : {1, 6, 12, pw::i2p::kHuffmanOnly}) {
                SCOPED_TRACE(testing::Message() << data.size() << " bytes, pieces of " << pieceBytes
                                                << ", level " << level);
                const Bytes z =
                    pw::i2p::deflateInPieces(data.data(), data.size(), level, pieceBytes);
                EXPECT_EQ(inflateAll(z, data.size()), data);
                // More than one piece must really have been joined, not redone as one.
                if (data.size() / pieceBytes > 1) {
                    EXPECT_NE(z,
                              pw::i2p::deflateInPieces(data.data(), data.size(), level, SIZE_MAX));
                }
            }
        }
    }
}

} // namespace
