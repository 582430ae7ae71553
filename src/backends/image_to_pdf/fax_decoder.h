#pragma once

// Group 3 one-dimensional fax data (Modified Huffman), with or without end-of-line codes.
// libtiff expects the codes and cannot read the data that some fax software writes without
// them; this decoder takes both.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pw::i2p {

// `rows` rows of `width` pixels from the start of `data`, packed eight pixels to a byte from
// the most significant bit, 1 for black. Throws pw::Failure on a code that is not in the tables,
// a row that runs past the page, or data that ends before the last row does.
std::vector<uint8_t> decodeModifiedHuffman(const uint8_t *data, size_t size, int width, int rows);

} // namespace pw::i2p
