#pragma once

// The in-between forms of one page: a decoded raster, an image stream ready for the PDF, and
// the interface through which each file reader offers its pages.

#include "failure.h"
#include "file_ranges.h"
#include "pixel_bytes.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace pw::i2p {

enum class Filter { None, Flate, Lzw, RunLength, Dct, CcittG3, CcittG4, Jpx };

enum class ColourModel { Gray, Rgb, Cmyk, Indexed };

struct ColourSpace {
    ColourModel model = ColourModel::Gray;
    ColourModel base = ColourModel::Rgb; // of an Indexed space
    std::string palette;                 // Indexed: base-space samples of each entry, 8 bit
    std::string icc;                     // embedded profile, empty when none
    int components() const
    {
        switch (model) {
        case ColourModel::Gray:
        case ColourModel::Indexed:
            return 1;
        case ColourModel::Rgb:
            return 3;
        case ColourModel::Cmyk:
            return 4;
        }
        return 1;
    }
};

// Decoded pixels of one page, rows packed as PDF wants them: samples big-endian, rows padded
// to whole bytes.
struct Raster {
    int width = 0;
    int height = 0;
    int bpc = 8;
    ColourSpace cs;
    bool invert = false; // samples run from white to black (min-is-white grey)
    PixelBytes pixels;
    PixelBytes alpha; // one sample per pixel at alphaBpc, empty when opaque
    int alphaBpc = 8;

    size_t rowBytes() const
    {
        return (size_t(width) * size_t(cs.components()) * size_t(bpc) + 7) / 8;
    }
};

struct DecodeParms {
    int predictor = 1;
    int colors = 1;
    int bitsPerComponent = 8;
    int columns = 0;
    // CCITT
    int k = 0;
    int rows = 0;
    bool blackIs1 = false;
    bool encodedByteAlign = false;
    // DCT: -1 leaves the decoder's own choice
    int colorTransform = -1;
};

// One image XObject as it will be written.
struct EncodedImage {
    int width = 0;
    int height = 0;
    int bpc = 8;                   // 0: not stated (JPX carries its own)
    bool statesColourSpace = true; // false: JPX carries its own
    ColourSpace cs;
    std::vector<double> decode;
    std::vector<int> colourKey; // /Mask ranges
    Filter filter = Filter::None;
    DecodeParms parms;
    bool smaskInData = false;
    std::vector<uint8_t> bytes; // data made here ...
    FileRanges source;          // ... or taken from the input file as it is
    std::unique_ptr<EncodedImage> smask;
    // For data taken as it is: reads it through and throws pw::Failure when it cannot back the
    // page (cut short, damaged). The writer runs it beside the writing of the page.
    std::function<void()> verify;
};

// One page of an input file. The writer asks for the page as it is stored first and decodes
// it only when that is not possible with the wanted filter.
class PageSource {
public:
    virtual ~PageSource() = default;
    // Bits per pixel of the page as stored; decides the recompression class.
    virtual int depth() const = 0;
    // The stored data as a PDF image when the PDF can carry it without decoding and its filter
    // suits `wanted` (Filter::None: the default, lossless encoding).
    virtual std::optional<EncodedImage> asIs(Filter wanted) = 0;
    virtual Raster decode() = 0;

    // The resolution the file states; 0 when it states none, and the page's layout decides.
    double xdpi = 0;
    double ydpi = 0;
    // EXIF / TIFF orientation code: how the stored picture is shown upright. The page writer
    // turns and mirrors the page, never the data, so that data kept as it is stays so.
    int orientation = 1;
};

using PageSink = std::function<void(PageSource &)>;

// The first bytes of a file, read once for every decision taken on them: PDF or image, and
// which reader. Throws pw::Failure for a path that is no readable, non-empty regular file.
struct FileHead {
    explicit FileHead(const std::string &path);
    bool isPdf() const;
    // "EMF" or "WMF" for a metafile, else "".
    std::string metafileFormat() const;

    std::string path;
    std::string bytes;
};

// The most pixels a page may have, settable for the whole library (0 restores the default).
inline constexpr uint64_t kDefaultMaxPagePixels = uint64_t(1) << 30;
void setMaxPagePixels(uint64_t pixels);
uint64_t maxPagePixels();
// Throws pw::Failure, naming `format`, for a page of `width` x `height` pixels that is empty or
// over the limit: readers call it before they allocate anything of the page's size.
void checkPageSize(const char *format, uint64_t width, uint64_t height);

// Feeds every page of an image file to `sink`, in order; with `firstOnly` it stops after the
// first page. Throws pw::Failure when any page cannot be read, the file's data stopping short of
// what its own headers promise included: a document missing pages must not pass for whole.
void readImageFile(const FileHead &file, const PageSink &sink, bool firstOnly = false);

// The orientation code (1 to 8) of an EXIF block as a JPEG's APP1 segment holds it ("Exif", two
// zero bytes, then the TIFF-structured data); 1 when it names none or cannot be read.
int exifOrientation(const uint8_t *data, size_t size);

// Reads a whole file (bounded by one input, never the document). Throws pw::Failure.
std::vector<uint8_t> readWholeFile(const std::string &path);
FileRanges wholeFileRanges(const std::string &path, uint64_t offset = 0, uint64_t length = 0);

// Readers, one per family of formats.
void readTiff(const std::string &path, const PageSink &sink, bool firstOnly);
// The JPEG from `offset`, `length` bytes long (0: to the end of the file).
void readJpeg(const std::string &path, const PageSink &sink, long offset = 0, long length = 0);
void readJpegLs(std::vector<uint8_t> data, const PageSink &sink);
void readLosslessJpeg(std::vector<uint8_t> data, const PageSink &sink);
Raster decodeLosslessJpeg(std::vector<uint8_t> data);
void readPng(const std::string &path, const PageSink &sink);
// The PNG held in `bytes`, found at `offset` in the file.
void readPngAt(const std::string &path, std::vector<uint8_t> bytes, uint64_t offset,
               const PageSink &sink);
void readTga(const std::string &path, const PageSink &sink);
void readBmp(const std::string &path, const PageSink &sink);
// PCX, and DCX (a PCX per page) with `firstOnly` stopping after the first page.
void readPcx(const std::string &path, const PageSink &sink, bool firstOnly);
void readGif(const std::string &path, const PageSink &sink, bool firstOnly);
void readPsd(const std::string &path, const PageSink &sink);
void readJp2(const std::string &path, const PageSink &sink, bool rawCodestream);
// The rarer formats go through a module loaded at its first use: GraphicsMagick's
// (magick_reader.h) or the metafile player (metafile_player.h), both entered as `entry` of
// `module` with the signature of magick::Read.
void readWithModule(const char *module, const char *entry, const std::string &path,
                    const std::string &format, const PageSink &sink, bool firstOnly);

} // namespace pw::i2p
