#pragma once

// Writers for the rendered pages: PNG and JPEG one page a file, TIFF one page a file or many
// pages appended to one. No Qt here: the module stays loadable without the program's toolkit.
// They report failure by their result and leave nothing on stderr (a batch run's log is the
// program's, not the libraries').

#include "output_file.h"
#include "tiff_handle.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>

namespace pw::render {

// A rendered page. Depth 24: RGB bytes; 8: grey bytes; 1: bits packed from the most
// significant, 1 for black (the fax convention), rows padded to whole bytes.
struct Raster {
    // Row `y`, asked for once each from the top down and valid until the next is asked for, so
    // that a large page can be rendered a band at a time; null when it could not be made, and
    // the writer then fails.
    std::function<const unsigned char *(int y)> rows;
    size_t stride = 0;
    int width = 0;
    int height = 0;
    int depth = 24;
    int dpi = 150;

    const unsigned char *row(int y) const { return rows(y); }
};

// Each writes the whole file before it takes its name (see output_file.h), or returns false and
// leaves nothing.
bool writePng(const std::filesystem::path &path, const Raster &raster);
bool writeJpeg(const std::filesystem::path &path, const Raster &raster, int quality);

// TIFF compression when the caller leaves it to us: G4 for black and white, LZW otherwise.
int defaultTiffCompression(int depth);
// Whether libtiff here can write `compression` (a TIFF tag value) at all.
bool tiffCompressionAvailable(int compression);

// One TIFF file receiving pages as directories; closed (and so finished) with the object.
class TiffFile {
public:
    TiffFile() = default;
    ~TiffFile();
    TiffFile(const TiffFile &) = delete;
    TiffFile &operator=(const TiffFile &) = delete;

    bool open(const std::filesystem::path &path);
    // `compression` 0 or below: defaultTiffCompression. `quality` serves JPEG compression. A
    // page refused for a compression that cannot hold it leaves the file as it was; any other
    // failure ends the file's use.
    bool addPage(const Raster &raster, int compression, int quality);
    // Finishes the file and gives it its name; false when a page failed half-way or the file
    // could not be placed, and then no file is left.
    bool close();
    // Closes the file and leaves nothing.
    void abandon();
    bool isOpen() const { return bool(tiff_); }

private:
    std::unique_ptr<OutputFile> file_;
    TiffHandle tiff_;
    bool failed_ = false;
};

// One page in a file of its own.
bool writeTiff(const std::filesystem::path &path, const Raster &raster, int compression,
               int quality);

} // namespace pw::render
