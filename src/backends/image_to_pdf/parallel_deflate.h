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
// follow the size alone, so the bytes are the same on every machine. Pieces of 2 MB keep a
// desktop's cores busy on one 300 dpi page (four pieces for grey A4, thirteen for colour) and
// cost a 2-core machine about 3 % over two pieces, in finding final blocks.
inline constexpr size_t kDeflatePieceBytes = size_t(2) << 20;
std::vector<uint8_t> deflateInPieces(const uint8_t *data, size_t size, int level,
                                     size_t pieceBytes = kDeflatePieceBytes);

} // namespace pw::i2p
