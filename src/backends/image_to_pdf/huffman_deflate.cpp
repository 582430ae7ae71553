#include "huffman_deflate.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <vector>

namespace pw::i2p {

namespace {

// A page region of this size shares one code: large enough that the block's header (about
// 200 bytes) is lost in it, small enough that a band of text and one of bare paper get codes
// of their own.
constexpr size_t kBlockBytes = size_t(128) << 10;
constexpr int kEndOfBlock = 256;
constexpr int kLiterals = 257;

// Writes into room reserved beforehand: at most 15 bits a symbol, so a block never needs more
// than twice its input plus its header.
class BitWriter {
public:
    explicit BitWriter(uint8_t *to) : to_(to) {}
    // Deflate packs from the least significant bit up.
    void put(uint64_t bits, int count)
    {
        acc_ |= bits << used_;
        used_ += count;
        if (used_ >= 32) {
            to_[0] = uint8_t(acc_), to_[1] = uint8_t(acc_ >> 8);
            to_[2] = uint8_t(acc_ >> 16), to_[3] = uint8_t(acc_ >> 24);
            to_ += 4;
            acc_ >>= 32;
            used_ -= 32;
        }
    }
    // The codes of `size` bytes through `entry` (code | length << 16): three codes of at most
    // 15 bits go into the accumulator at a time and leave it as whole bytes in one store,
    // which is most of the coder's speed. Needs eight bytes of room past the output.
    void literals(const uint32_t *entry, const uint8_t *data, size_t size)
    {
        static_assert(std::endian::native == std::endian::little, "the store is little-endian");
        // The accumulator holds whole bytes now; what is left of them goes first.
        for (; used_ >= 8; used_ -= 8, acc_ >>= 8)
            *to_++ = uint8_t(acc_);
        size_t i = 0;
        for (; i + 3 <= size; i += 3) {
            const uint32_t a = entry[data[i]], b = entry[data[i + 1]], c = entry[data[i + 2]];
            acc_ |= uint64_t(a & 0xFFFF) << used_;
            used_ += int(a >> 16);
            acc_ |= uint64_t(b & 0xFFFF) << used_;
            used_ += int(b >> 16);
            acc_ |= uint64_t(c & 0xFFFF) << used_;
            used_ += int(c >> 16);
            std::memcpy(to_, &acc_, sizeof acc_);
            const int bytes = used_ >> 3;
            to_ += bytes;
            acc_ = bytes == 8 ? 0 : acc_ >> (8 * bytes);
            used_ &= 7;
        }
        for (; i < size; ++i)
            put(entry[data[i]] & 0xFFFF, int(entry[data[i]] >> 16));
    }
    // Pads the last byte; returns where the written data ends.
    uint8_t *alignToByte()
    {
        for (; used_ > 0; used_ -= 8, acc_ >>= 8)
            *to_++ = uint8_t(acc_);
        used_ = 0;
        acc_ = 0;
        return to_;
    }

private:
    uint8_t *to_;
    uint64_t acc_ = 0;
    int used_ = 0;
};

// Huffman code lengths for `freq`, none longer than `limit`. When the tree comes out too deep
// the counts are halved (rare symbols kept above zero) until it fits: a little worse than an
// optimal length-limited code, and only for blocks that are almost all one value.
template <size_t N> std::array<uint8_t, N> codeLengths(std::array<uint32_t, N> freq, int limit)
{
    for (;;) {
        // Leaves in order of weight, then the merged nodes, which come out in order of weight
        // too: the two lightest are always at the front of one list or the other.
        std::vector<int> symbols;
        for (size_t s = 0; s < N; ++s)
            if (freq[s])
                symbols.push_back(int(s));
        std::stable_sort(symbols.begin(), symbols.end(),
                         [&](int a, int b) { return freq[size_t(a)] < freq[size_t(b)]; });
        std::array<uint8_t, N> lengths{};
        const size_t leaves = symbols.size();
        if (leaves == 1) { // one symbol still needs a one-bit code
            lengths[size_t(symbols[0])] = 1;
            return lengths;
        }
        std::vector<uint64_t> weight(2 * leaves - 1);
        std::vector<size_t> parent(2 * leaves - 1, 0);
        for (size_t i = 0; i < leaves; ++i)
            weight[i] = freq[size_t(symbols[i])];
        size_t leaf = 0, merged = leaves, made = leaves;
        const auto lightest = [&] {
            return leaf < leaves && (merged == made || weight[leaf] <= weight[merged]) ? leaf++
                                                                                       : merged++;
        };
        for (; made < 2 * leaves - 1; ++made) {
            const size_t a = lightest(), b = lightest();
            weight[made] = weight[a] + weight[b];
            parent[a] = parent[b] = made;
        }
        // Every node's parent comes after it: depths fill in from the root down.
        std::vector<int> depth(2 * leaves - 1, 0);
        int deepest = 0;
        for (size_t k = 2 * leaves - 1; k-- > 0;)
            if (k != 2 * leaves - 2)
                depth[k] = depth[parent[k]] + 1;
        for (size_t i = 0; i < leaves; ++i) {
            lengths[size_t(symbols[i])] = uint8_t(depth[i]);
            deepest = std::max(deepest, depth[i]);
        }
        if (deepest <= limit)
            return lengths;
        for (auto &f : freq)
            f = f ? (f + 1) / 2 : 0;
    }
}

// Canonical codes for `lengths`, bit-reversed as deflate sends them.
template <size_t N> std::array<uint16_t, N> canonicalCodes(const std::array<uint8_t, N> &lengths)
{
    std::array<int, 16> count{}, next{};
    for (const uint8_t l : lengths)
        ++count[l];
    count[0] = 0;
    for (int bits = 1, code = 0; bits < 16; ++bits) {
        code = (code + count[size_t(bits - 1)]) << 1;
        next[size_t(bits)] = code;
    }
    std::array<uint16_t, N> codes{};
    for (size_t s = 0; s < N; ++s) {
        const int l = lengths[s];
        if (!l)
            continue;
        const int code = next[size_t(l)]++;
        int reversed = 0;
        for (int i = 0; i < l; ++i)
            reversed |= ((code >> i) & 1) << (l - 1 - i);
        codes[s] = uint16_t(reversed);
    }
    return codes;
}

void writeBlock(BitWriter &w, const uint8_t *data, size_t size, bool final)
{
    // Four counts side by side, so that a run of one value does not wait on its own count.
    std::array<std::array<uint32_t, kLiterals>, 4> counts{};
    size_t i = 0;
    for (; i + 4 <= size; i += 4) {
        ++counts[0][data[i]];
        ++counts[1][data[i + 1]];
        ++counts[2][data[i + 2]];
        ++counts[3][data[i + 3]];
    }
    for (; i < size; ++i)
        ++counts[0][data[i]];
    std::array<uint32_t, kLiterals> freq{};
    for (size_t sym = 0; sym < 256; ++sym)
        freq[sym] = counts[0][sym] + counts[1][sym] + counts[2][sym] + counts[3][sym];
    freq[kEndOfBlock] = 1;
    const auto lengths = codeLengths(freq, 15);
    const auto codes = canonicalCodes(lengths);

    // The lengths themselves go out in the code-length alphabet (0 to 15, no runs), with the
    // one distance code unused: a length of zero.
    std::array<uint32_t, 19> lengthFreq{};
    for (const uint8_t l : lengths)
        ++lengthFreq[l];
    ++lengthFreq[0];
    const auto lengthLengths = codeLengths(lengthFreq, 7);
    const auto lengthCodes = canonicalCodes(lengthLengths);
    static constexpr uint8_t kOrder[19] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                           11, 4,  12, 3, 13, 2, 14, 1, 15};
    int sent = 19;
    while (sent > 4 && lengthLengths[kOrder[sent - 1]] == 0)
        --sent;
    w.put(final ? 1 : 0, 1);
    w.put(2, 2); // dynamic Huffman codes
    w.put(kLiterals - 257, 5);
    w.put(0, 5); // one distance code
    w.put(uint64_t(sent - 4), 4);
    for (int i = 0; i < sent; ++i)
        w.put(lengthLengths[kOrder[i]], 3);
    const auto sendLength = [&](uint8_t l) { w.put(lengthCodes[l], lengthLengths[l]); };
    for (const uint8_t l : lengths)
        sendLength(l);
    sendLength(0);

    // Code and length in one entry: one load a byte in the loop that is all of the work.
    std::array<uint32_t, kLiterals> entry{};
    for (size_t sym = 0; sym < entry.size(); ++sym)
        entry[sym] = uint32_t(codes[sym]) | uint32_t(lengths[sym]) << 16;
    w.literals(entry.data(), data, size);
    w.put(codes[kEndOfBlock], lengths[kEndOfBlock]);
}

} // namespace

void huffmanDeflate(const uint8_t *data, size_t size, bool last, PixelBytes &out)
{
    // Room for the worst case, grown without being written: pages of it that are never
    // written cost nothing.
    const size_t start = out.size();
    out.resize(start + 2 * size + (size / kBlockBytes + 1) * 512 + 16);
    BitWriter w(out.data() + start);
    size_t at = 0;
    do {
        const size_t n = std::min(kBlockBytes, size - at);
        writeBlock(w, data + at, n, last && at + n == size);
        at += n;
    } while (at < size);
    if (!last)
        w.put(0, 3); // an empty stored block, not final
    out.resize(size_t(w.alignToByte() - out.data()));
    if (!last)
        out.insert(out.end(), {0x00, 0x00, 0xFF, 0xFF});
}

} // namespace pw::i2p
