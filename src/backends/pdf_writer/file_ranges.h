#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace pw::i2p {

// Byte ranges of an input file that form a stream's data as they are.
struct FileRanges {
    std::string path;
    int64_t fileSize = 0;
    int64_t modified = 0; // seconds; a source changed since it was read fails the copy
    std::vector<std::pair<uint64_t, uint64_t>> ranges; // offset, length
};

} // namespace pw::i2p
