#include "lzw_decoder.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace pw::i2p {

namespace {

constexpr int kClear = 256;
constexpr int kEnd = 257;
constexpr int kFirstFree = 258;
constexpr int kCodes = 4096;

class CodeReader {
public:
    CodeReader(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    // The next code of `width` bits, or kEnd once the data runs out.
    int next(int width)
    {
        if (bits_ < width) {
            // Top up with whole bytes while they fit: one refill serves several codes.
            while (bits_ <= 56 && at_ < size_) {
                acc_ = acc_ << 8 | data_[at_++];
                bits_ += 8;
            }
            if (bits_ < width)
                return kEnd;
        }
        bits_ -= width;
        return int((acc_ >> bits_) & ((1u << width) - 1));
    }

private:
    const uint8_t *data_;
    size_t size_;
    size_t at_ = 0;
    uint64_t acc_ = 0;
    int bits_ = 0;
};

// Where a code's string first appeared in the output, and its length: eight bytes, so that
// the whole table stays in the first-level cache.
struct Entry {
    uint32_t at = 0;
    uint32_t length = 0;
};

} // namespace

long decodeTiffLzw(const uint8_t *data, size_t size, uint8_t *out, size_t capacity)
{
    if (capacity > UINT32_MAX)
        return -1;
    // Old-style data starts with a clear code written from the least significant bit.
    if (size >= 2 && data[0] == 0 && (data[1] & 1))
        return -1;
    std::array<Entry, kCodes> table;
    CodeReader in(data, size);
    size_t written = 0;
    int width = 9, next = kFirstFree;
    Entry previous;
    bool cleared = false;
    while (written < capacity) {
        const int code = in.next(width);
        if (code == kEnd)
            break;
        if (code == kClear) {
            width = 9;
            next = kFirstFree;
            cleared = true;
            previous = {};
            continue;
        }
        if (!cleared)
            return -1;
        Entry current;
        if (code < 256) {
            out[written] = uint8_t(code);
            current = {uint32_t(written), 1};
        } else if (code < next && previous.length > 0) {
            const Entry &known = table[size_t(code)];
            current = {uint32_t(written),
                       uint32_t(std::min<size_t>(known.length, capacity - written))};
            // Most strings of a scan are a few bytes: a fixed eight-byte move is one load and
            // one store, and the bytes past the string are written over next.
            if (known.length <= 8 && capacity - written >= 8)
                std::memmove(out + written, out + known.at, 8);
            else
                std::memcpy(out + written, out + known.at, current.length);
        } else if (code == next && previous.length > 0) {
            // The string being defined by this very code: the previous one and its first byte.
            current = {uint32_t(written),
                       uint32_t(std::min<size_t>(previous.length + 1, capacity - written))};
            std::memcpy(out + written, out + previous.at,
                        std::min(previous.length, current.length));
            if (current.length > previous.length)
                out[written + previous.length] = out[previous.at];
        } else {
            return -1;
        }
        // The previous string and this one's first byte stand side by side in the output.
        if (previous.length > 0 && next < kCodes) {
            table[size_t(next++)] = {previous.at, previous.length + 1};
            if (next == (1 << width) - 1 && width < 12)
                ++width;
        }
        written += current.length;
        previous = current;
    }
    return long(written);
}

} // namespace pw::i2p
