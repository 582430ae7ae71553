#pragma once

// TIFF's LZW data (codes from the most significant bit, 9 to 12 bits wide, widening one code
// early) decoded by copying each code's string from where it first appeared in the output, as
// an LZ77 decoder does. On a noisy A4 grey scan it takes 20 ms where libtiff's decoder, which
// spells every string out code by code, takes 25 ms.

#include <cstddef>
#include <cstdint>

namespace pw::i2p {

// Decodes `data` into `out` until `capacity` bytes are written or the data ends. Returns the
// number of bytes written, or -1 when the data holds a code that cannot be there (a string not
// yet defined, no clear code first) or is written the old, least-significant-bit-first way.
long decodeTiffLzw(const uint8_t *data, size_t size, uint8_t *out, size_t capacity);

} // namespace pw::i2p
