#include "huffman_deflate.h"

#include <algorithm>
#include <array>
#include <queue>

namespace pw::i2p {

namespace {

// A page region of this size shares one code: large enough that the block's header (about
// 200 bytes) is lost in it, small enough that a band of text and one of bare paper get codes
// of their own.
constexpr size_t kBlockBytes = size_t(128) << 10;
constexpr int kEndOfBlock = 256;
constexpr int kLiterals = 257;

class BitWriter {
public:
    explicit BitWriter(std::vector<uint8_t> &out) : out_(out) {}
    // Deflate packs from the least significant bit up.
    void put(uint64_t bits, int count)
    {
        acc_ |= bits << used_;
        used_ += count;
        if (used_ >= 32) {
            for (int i = 0; i < 4; ++i)
                out_.push_back(uint8_t(acc_ >> (8 * i)));
            acc_ >>= 32;
            used_ -= 32;
        }
    }
    void alignToByte()
    {
        while (used_ > 0) {
            out_.push_back(uint8_t(acc_));
            acc_ >>= 8;
            used_ = std::max(used_ - 8, 0);
        }
        acc_ = 0;
    }

private:
    std::vector<uint8_t> &out_;
    uint64_t acc_ = 0;
    int used_ = 0;
};

// Huffman code lengths for `freq`, none longer than `limit`. When the tree comes out too deep
// the counts are halved (rare symbols kept above zero) until it fits: a little worse than an
// optimal length-limited code, and only for blocks that are almost all one value.
template <size_t N> std::array<uint8_t, N> codeLengths(std::array<uint32_t, N> freq, int limit)
{
    for (;;) {
        std::array<uint8_t, N> lengths{};
        using Node = std::pair<uint64_t, int>; // weight, index
        std::priority_queue<Node, std::vector<Node>, std::greater<>> heap;
        std::vector<int> parent(2 * N, -1);
        for (size_t s = 0; s < N; ++s)
            if (freq[s])
                heap.push({freq[s], int(s)});
        if (heap.size() == 1) { // one symbol still needs a one-bit code
            lengths[size_t(heap.top().second)] = 1;
            return lengths;
        }
        int next = int(N);
        while (heap.size() > 1) {
            const Node a = heap.top();
            heap.pop();
            const Node b = heap.top();
            heap.pop();
            parent[size_t(a.second)] = parent[size_t(b.second)] = next;
            heap.push({a.first + b.first, next++});
        }
        int deepest = 0;
        for (size_t s = 0; s < N; ++s) {
            if (!freq[s])
                continue;
            int depth = 0;
            for (int p = parent[s]; p >= 0; p = parent[size_t(p)])
                ++depth;
            lengths[s] = uint8_t(depth);
            deepest = std::max(deepest, depth);
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
    std::array<uint32_t, kLiterals> freq{};
    for (size_t i = 0; i < size; ++i)
        ++freq[data[i]];
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

    for (size_t i = 0; i < size; ++i)
        w.put(codes[data[i]], lengths[data[i]]);
    w.put(codes[kEndOfBlock], lengths[kEndOfBlock]);
}

} // namespace

void huffmanDeflate(const uint8_t *data, size_t size, bool last, std::vector<uint8_t> &out)
{
    out.reserve(out.size() + size + size / 8 + 64);
    BitWriter w(out);
    size_t at = 0;
    do {
        const size_t n = std::min(kBlockBytes, size - at);
        writeBlock(w, data + at, n, last && at + n == size);
        at += n;
    } while (at < size);
    if (!last) {
        w.put(0, 3); // an empty stored block, not final
        w.alignToByte();
        out.insert(out.end(), {0x00, 0x00, 0xFF, 0xFF});
        return;
    }
    w.alignToByte();
}

} // namespace pw::i2p
