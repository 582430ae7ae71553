#include "fax_decoder.h"

#include "failure.h"

#include <array>
#include <unordered_map>

namespace pw::i2p {

namespace {

struct Code {
    const char *bits;
    int run;
};

// The run-length codes of one colour: terminating codes 0 to 63, then make-up codes.
// clang-format off
constexpr Code kWhite[] = {
    {"00110101", 0}, {"000111", 1}, {"0111", 2}, {"1000", 3}, {"1011", 4}, {"1100", 5},
    {"1110", 6}, {"1111", 7}, {"10011", 8}, {"10100", 9}, {"00111", 10}, {"01000", 11},
    {"001000", 12}, {"000011", 13}, {"110100", 14}, {"110101", 15}, {"101010", 16},
    {"101011", 17}, {"0100111", 18}, {"0001100", 19}, {"0001000", 20}, {"0010111", 21},
    {"0000011", 22}, {"0000100", 23}, {"0101000", 24}, {"0101011", 25}, {"0010011", 26},
    {"0100100", 27}, {"0011000", 28}, {"00000010", 29}, {"00000011", 30}, {"00011010", 31},
    {"00011011", 32}, {"00010010", 33}, {"00010011", 34}, {"00010100", 35}, {"00010101", 36},
    {"00010110", 37}, {"00010111", 38}, {"00101000", 39}, {"00101001", 40}, {"00101010", 41},
    {"00101011", 42}, {"00101100", 43}, {"00101101", 44}, {"00000100", 45}, {"00000101", 46},
    {"00001010", 47}, {"00001011", 48}, {"01010010", 49}, {"01010011", 50}, {"01010100", 51},
    {"01010101", 52}, {"00100100", 53}, {"00100101", 54}, {"01011000", 55}, {"01011001", 56},
    {"01011010", 57}, {"01011011", 58}, {"01001010", 59}, {"01001011", 60}, {"00110010", 61},
    {"00110011", 62}, {"00110100", 63},
    {"11011", 64}, {"10010", 128}, {"010111", 192}, {"0110111", 256}, {"00110110", 320},
    {"00110111", 384}, {"01100100", 448}, {"01100101", 512}, {"01101000", 576},
    {"01100111", 640}, {"011001100", 704}, {"011001101", 768}, {"011010010", 832},
    {"011010011", 896}, {"011010100", 960}, {"011010101", 1024}, {"011010110", 1088},
    {"011010111", 1152}, {"011011000", 1216}, {"011011001", 1280}, {"011011010", 1344},
    {"011011011", 1408}, {"010011000", 1472}, {"010011001", 1536}, {"010011010", 1600},
    {"011000", 1664}, {"010011011", 1728}};

constexpr Code kBlack[] = {
    {"0000110111", 0}, {"010", 1}, {"11", 2}, {"10", 3}, {"011", 4}, {"0011", 5},
    {"0010", 6}, {"00011", 7}, {"000101", 8}, {"000100", 9}, {"0000100", 10},
    {"0000101", 11}, {"0000111", 12}, {"00000100", 13}, {"00000111", 14},
    {"000011000", 15}, {"0000010111", 16}, {"0000011000", 17}, {"0000001000", 18},
    {"00001100111", 19}, {"00001101000", 20}, {"00001101100", 21}, {"00000110111", 22},
    {"00000101000", 23}, {"00000010111", 24}, {"00000011000", 25}, {"000011001010", 26},
    {"000011001011", 27}, {"000011001100", 28}, {"000011001101", 29}, {"000001101000", 30},
    {"000001101001", 31}, {"000001101010", 32}, {"000001101011", 33}, {"000011010010", 34},
    {"000011010011", 35}, {"000011010100", 36}, {"000011010101", 37}, {"000011010110", 38},
    {"000011010111", 39}, {"000001101100", 40}, {"000001101101", 41}, {"000011011010", 42},
    {"000011011011", 43}, {"000001010100", 44}, {"000001010101", 45}, {"000001010110", 46},
    {"000001010111", 47}, {"000001100100", 48}, {"000001100101", 49}, {"000001010010", 50},
    {"000001010011", 51}, {"000000100100", 52}, {"000000110111", 53}, {"000000111000", 54},
    {"000000100111", 55}, {"000000101000", 56}, {"000001011000", 57}, {"000001011001", 58},
    {"000000101011", 59}, {"000000101100", 60}, {"000001011010", 61}, {"000001100110", 62},
    {"000001100111", 63},
    {"0000001111", 64}, {"000011001000", 128}, {"000011001001", 192}, {"000001011011", 256},
    {"000000110011", 320}, {"000000110100", 384}, {"000000110101", 448},
    {"0000001101100", 512}, {"0000001101101", 576}, {"0000001001010", 640},
    {"0000001001011", 704}, {"0000001001100", 768}, {"0000001001101", 832},
    {"0000001110010", 896}, {"0000001110011", 960}, {"0000001110100", 1024},
    {"0000001110101", 1088}, {"0000001110110", 1152}, {"0000001110111", 1216},
    {"0000001010010", 1280}, {"0000001010011", 1344}, {"0000001010100", 1408},
    {"0000001010101", 1472}, {"0000001011010", 1536}, {"0000001011011", 1600},
    {"0000001100100", 1664}, {"0000001100101", 1728}};

// Make-up codes for the widest pages, shared by both colours.
constexpr Code kWide[] = {
    {"00000001000", 1792}, {"00000001100", 1856}, {"00000001101", 1920},
    {"000000010010", 1984}, {"000000010011", 2048}, {"000000010100", 2112},
    {"000000010101", 2176}, {"000000010110", 2240}, {"000000010111", 2304},
    {"000000011100", 2368}, {"000000011101", 2432}, {"000000011110", 2496},
    {"000000011111", 2560}};
// clang-format on

using Table = std::unordered_map<uint32_t, int>; // (length << 16 | code) -> run

uint32_t key(int length, uint32_t code)
{
    return uint32_t(length) << 16 | code;
}

template <size_t N> void addCodes(Table &t, const Code (&codes)[N])
{
    for (const Code &c : codes) {
        uint32_t value = 0;
        int length = 0;
        for (const char *b = c.bits; *b; ++b, ++length)
            value = value << 1 | uint32_t(*b == '1');
        t.emplace(key(length, value), c.run);
    }
}

const std::array<Table, 2> &tables()
{
    static const std::array<Table, 2> t = [] {
        std::array<Table, 2> made;
        addCodes(made[0], kWhite);
        addCodes(made[0], kWide);
        addCodes(made[1], kBlack);
        addCodes(made[1], kWide);
        return made;
    }();
    return t;
}

class Bits {
public:
    Bits(const uint8_t *data, size_t size) : data_(data), size_(size * 8) {}
    bool done() const { return at_ >= size_; }
    int next()
    {
        if (done())
            throw invalidFormat("fax data: the data ends inside a row");
        const int bit = (data_[at_ / 8] >> (7 - at_ % 8)) & 1;
        ++at_;
        return bit;
    }
    // Steps over an end-of-line code and the fill before it, if one comes next: at least
    // eleven zero bits, then a one. No run code has that many zeros in a row.
    void skipLineEnd()
    {
        size_t zeros = 0;
        while (at_ + zeros < size_ && !bitAt(at_ + zeros))
            ++zeros;
        if (zeros >= 11 && at_ + zeros < size_)
            at_ += zeros + 1;
    }

private:
    int bitAt(size_t i) const { return (data_[i / 8] >> (7 - i % 8)) & 1; }

    const uint8_t *data_;
    size_t size_;
    size_t at_ = 0;
};

// One run of `colour`: make-up codes, then the terminating code.
int readRun(Bits &in, int colour)
{
    const Table &t = tables()[size_t(colour)];
    int total = 0;
    for (;;) {
        uint32_t code = 0;
        int run = -1;
        for (int length = 1; length <= 13 && run < 0; ++length) {
            code = code << 1 | uint32_t(in.next());
            const auto found = t.find(key(length, code));
            if (found != t.end())
                run = found->second;
        }
        if (run < 0)
            throw invalidFormat("fax data: an unknown run code");
        total += run;
        if (run < 64)
            return total;
    }
}

} // namespace

std::vector<uint8_t> decodeModifiedHuffman(const uint8_t *data, size_t size, int width, int rows)
{
    const size_t rowBytes = (size_t(width) + 7) / 8;
    std::vector<uint8_t> out(rowBytes * size_t(rows), 0);
    Bits in(data, size);
    for (int y = 0; y < rows; ++y) {
        in.skipLineEnd();
        uint8_t *row = out.data() + rowBytes * size_t(y);
        int x = 0;
        for (int colour = 0; x < width; colour ^= 1) {
            const int run = readRun(in, colour);
            if (run > width - x)
                throw invalidFormat("fax data: a row longer than the page");
            if (colour == 1)
                for (int i = x; i < x + run; ++i)
                    row[i / 8] |= uint8_t(0x80 >> (i % 8));
            x += run;
        }
    }
    return out;
}

} // namespace pw::i2p
