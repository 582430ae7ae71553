#pragma once

// Deflate data that codes every byte as a literal, with a Huffman code fitted to each block
// of input: what noisy scans compress to best, since nothing in them repeats exactly, written
// at memory speed where a general compressor spends its time looking for repeats.

#include "pixel_bytes.h"

#include <cstddef>
#include <cstdint>

namespace pw::i2p {

// Appends raw deflate blocks for `data` to `out`. With `last` the final block is marked so;
// otherwise the data ends with an empty stored block, on a byte boundary, so that more deflate
// data can follow it directly.
void huffmanDeflate(const uint8_t *data, size_t size, bool last, PixelBytes &out);

} // namespace pw::i2p
