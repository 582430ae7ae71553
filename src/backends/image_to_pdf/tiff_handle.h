#pragma once

// libtiff handles that close themselves and keep their messages to themselves: warnings are
// dropped and the first error is kept to name the cause of a failure.

#include <tiffio.h>

#include <memory>
#include <string>

namespace pw::i2p {

struct TiffMessages {
    std::string firstError;
};

struct TiffClose {
    void operator()(TIFF *t) const { TIFFClose(t); }
};

// The messages live beside the handle because libtiff calls back into them until it closes.
struct TiffHandle {
    std::unique_ptr<TiffMessages> messages = std::make_unique<TiffMessages>();
    std::shared_ptr<void> memory; // the in-memory file behind a client-opened handle
    std::unique_ptr<TIFF, TiffClose> tif;
    TIFF *get() const { return tif.get(); }
};

// Opens `path` with `mode` ("r", "w"); the handle's tif is null on failure.
TiffHandle openTiff(const std::string &path, const char *mode);

// Opens a TIFF held in `buffer` (grown on writes).
TiffHandle openMemoryTiff(std::string &buffer, const char *mode);

} // namespace pw::i2p
