#pragma once

// One zlib stream deflated on every core. libdeflate compresses a whole buffer on one thread
// and always closes its output with a final block, so the page is cut into pieces, each piece
// is deflated on its own thread, and the final-block mark of every piece but the last is found
// and cleared before the pieces are joined.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace pw::i2p {

// Where the last block of a raw deflate stream starts and where it ends, in bits from the
// start. Nullopt when the data is not a complete deflate stream.
struct FinalBlock {
    size_t start = 0;
    size_t end = 0;
};
std::optional<FinalBlock> findFinalBlock(const uint8_t *data, size_t size);

// zlib-wrapped deflate of `data` at `level`, in pieces of about `pieceBytes`. The pieces
// follow the size alone, so the bytes are the same on every machine. Each piece but the last
// costs a walk over its codes and a compressor of its own: on two cores, pieces of 2 MB made
// grey A4 pages 10 % slower than pieces of 4 MB (two per page).
inline constexpr size_t kDeflatePieceBytes = size_t(4) << 20;
// The level that looks for no repeats at all and only Huffman-codes the bytes
// (huffman_deflate.h). On noisy scans nothing repeats exactly, and this is both the smallest
// and by far the fastest coding.
inline constexpr int kHuffmanOnly = -1;
std::vector<uint8_t> deflateInPieces(const uint8_t *data, size_t size, int level,
                                     size_t pieceBytes = kDeflatePieceBytes);

} // namespace pw::i2p
