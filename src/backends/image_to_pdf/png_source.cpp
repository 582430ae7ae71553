// PNG files. Non-interlaced images without alpha keep their IDAT data: the PNG predictors are
// the ones FlateDecode knows. Everything else goes through libpng.

#include "encoders.h"
#include "page_image.h"

#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>

namespace pw::i2p {

namespace {

uint32_t be32(const uint8_t *p)
{
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

struct PngChunks {
    uint32_t width = 0, height = 0;
    int bitDepth = 0, colourType = 0, interlace = 0;
    std::string palette;
    std::string trns;
    std::string icc;
    double xdpi = 0, ydpi = 0;
    int orientation = 1;
    std::vector<std::pair<uint64_t, uint64_t>> idat;
};

std::string inflateProfile(const uint8_t *data, size_t size)
{
    z_stream z{};
    if (inflateInit(&z) != Z_OK)
        return {};
    std::string out;
    char buf[16384];
    z.next_in = const_cast<Bytef *>(data);
    z.avail_in = uInt(size);
    int rc = Z_OK;
    while (rc == Z_OK && out.size() < (16u << 20)) {
        z.next_out = reinterpret_cast<Bytef *>(buf);
        z.avail_out = sizeof buf;
        rc = inflate(&z, Z_NO_FLUSH);
        out.append(buf, sizeof buf - z.avail_out);
    }
    inflateEnd(&z);
    return rc == Z_STREAM_END ? out : std::string();
}

// Walks the chunks, checking every CRC so that damaged data is never passed on as it is.
PngChunks parseChunks(const std::vector<uint8_t> &f)
{
    static const uint8_t sig[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    if (f.size() < 8 || std::memcmp(f.data(), sig, 8) != 0)
        throw invalidFormat("PNG: bad signature");
    PngChunks c;
    size_t pos = 8;
    bool end = false;
    while (!end) {
        if (pos + 12 > f.size())
            throw invalidFormat("PNG: the file is cut short");
        const uint32_t len = be32(&f[pos]);
        if (len > f.size() - pos - 12)
            throw invalidFormat("PNG: the file is cut short");
        const uint8_t *type = &f[pos + 4];
        const uint8_t *data = &f[pos + 8];
        const uint32_t crc = be32(&f[pos + 8 + len]);
        if (crc32(0, type, len + 4) != crc)
            throw invalidFormat("PNG: damaged chunk");
        const std::string name(reinterpret_cast<const char *>(type), 4);
        if (name == "IHDR" && len >= 13) {
            c.width = be32(data);
            c.height = be32(data + 4);
            c.bitDepth = data[8];
            c.colourType = data[9];
            c.interlace = data[12];
        } else if (name == "PLTE") {
            c.palette.assign(reinterpret_cast<const char *>(data), len);
        } else if (name == "tRNS") {
            c.trns.assign(reinterpret_cast<const char *>(data), len);
        } else if (name == "iCCP") {
            const void *nul = std::memchr(data, 0, std::min<size_t>(len, 80));
            if (nul) {
                const size_t at = static_cast<const uint8_t *>(nul) - data + 2;
                if (at < len)
                    c.icc = inflateProfile(data + at, len - at);
            }
        } else if (name == "pHYs" && len >= 9 && data[8] == 1) {
            c.xdpi = be32(data) * 0.0254;
            c.ydpi = be32(data + 4) * 0.0254;
        } else if (name == "eXIf") {
            // The chunk holds what a JPEG's EXIF segment holds after its "Exif" header.
            std::vector<uint8_t> exif{'E', 'x', 'i', 'f', 0, 0};
            exif.insert(exif.end(), data, data + len);
            c.orientation = exifOrientation(exif.data(), exif.size());
        } else if (name == "IDAT") {
            c.idat.emplace_back(pos + 8, len);
        } else if (name == "IEND") {
            end = true;
        }
        pos += 12 + size_t(len);
    }
    if (c.width == 0 || c.height == 0 || c.idat.empty())
        throw invalidFormat("PNG: no image data");
    return c;
}

// The bit depths each colour type allows, as a mask of depths 1, 2, 4, 8 and 16.
bool validDepth(int colourType, int bitDepth)
{
    const int all = 1 << 1 | 1 << 2 | 1 << 4 | 1 << 8 | 1 << 16;
    const int wide = 1 << 8 | 1 << 16;
    const int allowed[] = {all, 0, wide, all & ~(1 << 16), wide, 0, wide};
    return colourType >= 0 && colourType <= 6 && bitDepth >= 1 && bitDepth <= 16 &&
           (allowed[colourType] >> bitDepth & 1) != 0;
}

int channelCount(int colourType)
{
    static const int channels[] = {1, 0, 3, 1, 2, 0, 4};
    return channels[colourType];
}

// Bytes of one filtered row of `width` pixels: the filter type and the packed samples.
uint64_t filteredRowBytes(const PngChunks &c, uint64_t width)
{
    return width == 0 ? 0 : 1 + (width * channelCount(c.colourType) * c.bitDepth + 7) / 8;
}

// What the image data inflates to: every row of every pass.
uint64_t inflatedSize(const PngChunks &c)
{
    if (c.interlace == 0)
        return c.height * filteredRowBytes(c, c.width);
    // Adam7: each pass's first column and row, and its steps.
    static const int x0[] = {0, 4, 0, 2, 0, 1, 0}, dx[] = {8, 8, 4, 4, 2, 2, 1};
    static const int y0[] = {0, 0, 4, 0, 2, 0, 1}, dy[] = {8, 8, 8, 4, 4, 2, 2};
    uint64_t total = 0;
    for (int p = 0; p < 7; ++p) {
        const uint64_t cols = (c.width + dx[p] - 1 - x0[p]) / dx[p];
        const uint64_t rows = (c.height + dy[p] - 1 - y0[p]) / dy[p];
        total += rows * filteredRowBytes(c, cols);
    }
    return total;
}

// Checks the header against what the data can hold before anything of the page's size is
// made: deflate expands by at most 1032 to 1, so fewer IDAT bytes cannot hold the rows.
void checkHeader(const PngChunks &c)
{
    if (!validDepth(c.colourType, c.bitDepth))
        throw invalidFormat("PNG: bit depth " + std::to_string(c.bitDepth) + " of colour type " +
                            std::to_string(c.colourType) + " does not exist");
    if (c.interlace > 1 || c.width > 0x7FFFFFFF || c.height > 0x7FFFFFFF)
        throw invalidFormat("PNG: bad header");
    checkPageSize("PNG", c.width, c.height);
    uint64_t stored = 0;
    for (const auto &range : c.idat)
        stored += range.second;
    if (inflatedSize(c) / 1032 > stored + 1)
        throw invalidFormat("PNG: the image data is cut short");
}

// Inflates the image data of non-interlaced rows and checks that it holds every row, each
// with a filter type PNG defines. Nothing is kept: it is read through in a small window.
void checkRows(const std::vector<uint8_t> &file, const PngChunks &c)
{
    z_stream z{};
    if (inflateInit(&z) != Z_OK)
        throw outOfMemory();
    const uint64_t row = filteredRowBytes(c, c.width);
    const uint64_t wanted = c.height * row;
    uint64_t got = 0;
    uint8_t window[65536];
    int rc = Z_OK;
    for (size_t part = 0; part < c.idat.size() && rc == Z_OK && got < wanted; ++part) {
        z.next_in = const_cast<Bytef *>(file.data() + c.idat[part].first);
        z.avail_in = uInt(c.idat[part].second);
        while (rc == Z_OK && z.avail_in > 0 && got < wanted) {
            z.next_out = window;
            z.avail_out = uInt(std::min<uint64_t>(sizeof window, wanted - got));
            rc = inflate(&z, Z_NO_FLUSH);
            const uint64_t n = uint64_t(z.next_out - window);
            // The filter type bytes in this window.
            for (uint64_t at = (row - got % row) % row; at < n && rc >= 0; at += row)
                if (window[at] > 4)
                    rc = Z_DATA_ERROR;
            got += n;
            if (rc == Z_BUF_ERROR && n > 0)
                rc = Z_OK;
        }
    }
    inflateEnd(&z);
    if (rc < 0 && rc != Z_BUF_ERROR)
        throw invalidFormat("PNG: the image data is damaged");
    if (got < wanted)
        throw invalidFormat("PNG: the image data is cut short");
}

// libpng reports fatal errors by longjmp to png_jmpbuf; pngTry is the only landing place, and
// its steps hold nothing with a destructor.
struct PngErrors {
    char message[256] = {};
};

extern "C" void pngError(png_structp png, png_const_charp msg)
{
    auto *e = static_cast<PngErrors *>(png_get_error_ptr(png));
    std::snprintf(e->message, sizeof e->message, "%s", msg);
    png_longjmp(png, 1);
}

extern "C" void pngWarning(png_structp, png_const_charp) {}

struct PngMemory {
    const std::vector<uint8_t> *data;
    size_t pos = 0;
};

extern "C" void pngReadMemory(png_structp png, png_bytep out, png_size_t n)
{
    auto *m = static_cast<PngMemory *>(png_get_io_ptr(png));
    if (m->pos + n > m->data->size())
        png_error(png, "unexpected end of file");
    std::memcpy(out, m->data->data() + m->pos, n);
    m->pos += n;
}

struct PngReader {
    PngErrors errors;
    png_structp png = nullptr;
    png_infop info = nullptr;
    PngReader()
    {
        png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &errors, pngError, pngWarning);
        if (png)
            info = png_create_info_struct(png);
    }
    ~PngReader() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
    PngReader(const PngReader &) = delete;
    PngReader &operator=(const PngReader &) = delete;
};

template <typename Step> [[gnu::noinline]] bool pngTry(PngReader &r, Step step)
{
    if (setjmp(png_jmpbuf(r.png)))
        return false;
    step();
    return true;
}

class PngPage : public PageSource {
public:
    PngPage(const std::string &path, std::vector<uint8_t> bytes, uint64_t offset)
        : path_(path), file_(std::move(bytes)), offset_(offset)
    {
        c_ = parseChunks(file_);
        if (c_.xdpi > 1 && c_.ydpi > 1) {
            xdpi = c_.xdpi;
            ydpi = c_.ydpi;
        }
        orientation = c_.orientation;
        if (c_.colourType == 3 && c_.palette.size() < 3)
            throw invalidFormat("PNG: palette missing");
        checkHeader(c_);
    }

    int depth() const override { return c_.bitDepth * channelCount(c_.colourType); }

    std::optional<EncodedImage> asIs(Filter wanted) override
    {
        const int t = c_.colourType;
        if ((wanted != Filter::None && wanted != Filter::Flate) || c_.interlace != 0 ||
            (t != 0 && t != 2 && t != 3) || (t == 3 && !c_.trns.empty()))
            return std::nullopt;
        EncodedImage img;
        img.width = int(c_.width);
        img.height = int(c_.height);
        img.bpc = c_.bitDepth;
        img.cs = colourSpace();
        img.filter = Filter::Flate;
        img.parms.predictor = 15;
        img.parms.colors = t == 2 ? 3 : 1;
        img.parms.bitsPerComponent = c_.bitDepth;
        img.parms.columns = int(c_.width);
        if (!c_.trns.empty()) {
            // One transparent colour: a colour-key mask does it without an alpha channel.
            const auto *d = reinterpret_cast<const uint8_t *>(c_.trns.data());
            const size_t n = t == 2 ? 3 : 1;
            if (c_.trns.size() < n * 2)
                return std::nullopt;
            for (size_t i = 0; i < n; ++i) {
                const int v = (d[i * 2] << 8 | d[i * 2 + 1]) & ((1 << c_.bitDepth) - 1);
                img.colourKey.push_back(v);
                img.colourKey.push_back(v);
            }
        }
        img.source = wholeFileRanges(path_);
        img.source.ranges = c_.idat;
        for (auto &range : img.source.ranges)
            range.first += offset_;
        img.verify = [this] { checkRows(file_, c_); };
        return img;
    }

    Raster decode() override
    {
        PngReader r;
        if (!r.png || !r.info)
            throw outOfMemory();
        PngMemory mem{&file_, 0};
        Raster out;
        int channels = 0;
        const bool ok = pngTry(r, [&] {
            png_set_read_fn(r.png, &mem, pngReadMemory);
            png_read_info(r.png, r.info);
            const int t = png_get_color_type(r.png, r.info);
            if (t == PNG_COLOR_TYPE_PALETTE && png_get_valid(r.png, r.info, PNG_INFO_tRNS)) {
                png_set_palette_to_rgb(r.png);
                png_set_tRNS_to_alpha(r.png);
            }
            png_set_interlace_handling(r.png);
            png_read_update_info(r.png, r.info);
            channels = png_get_channels(r.png, r.info);
        });
        if (!ok)
            throw invalidFormat(std::string("PNG: ") + r.errors.message);
        const int t = png_get_color_type(r.png, r.info);
        out.width = int(png_get_image_width(r.png, r.info));
        out.height = int(png_get_image_height(r.png, r.info));
        out.bpc = png_get_bit_depth(r.png, r.info);
        const bool hasAlpha = (t & PNG_COLOR_MASK_ALPHA) != 0;
        out.cs = colourSpace();
        if (t != PNG_COLOR_TYPE_PALETTE) {
            out.cs.model = (t & PNG_COLOR_MASK_COLOR) ? ColourModel::Rgb : ColourModel::Gray;
            out.cs.palette.clear();
        }
        const size_t rowBytes = png_get_rowbytes(r.png, r.info);
        PixelBytes all(rowBytes * size_t(out.height), 0);
        std::vector<png_bytep> rows(size_t(out.height));
        for (int y = 0; y < out.height; ++y)
            rows[size_t(y)] = all.data() + size_t(y) * rowBytes;
        png_bytepp rowPointers = rows.data();
        if (!pngTry(r, [&] {
                png_read_image(r.png, rowPointers);
                png_read_end(r.png, nullptr);
            }))
            throw invalidFormat(std::string("PNG: ") + r.errors.message);
        if (!hasAlpha) {
            out.pixels = std::move(all);
            return out;
        }
        const int colour = channels - 1;
        const size_t bytes = size_t(out.bpc) / 8;
        const size_t n = size_t(out.width) * out.height;
        out.pixels.resize(n * colour * bytes);
        out.alpha.resize(n * bytes);
        out.alphaBpc = out.bpc;
        bool opaque = true;
        for (size_t i = 0; i < n; ++i) {
            const uint8_t *src = &all[i * channels * bytes];
            std::memcpy(&out.pixels[i * colour * bytes], src, colour * bytes);
            std::memcpy(&out.alpha[i * bytes], src + colour * bytes, bytes);
            for (size_t b = 0; b < bytes; ++b)
                opaque = opaque && src[colour * bytes + b] == 0xFF;
        }
        if (opaque)
            out.alpha.clear();
        return out;
    }

private:
    ColourSpace colourSpace() const
    {
        ColourSpace cs;
        switch (c_.colourType) {
        case 3:
            cs.model = ColourModel::Indexed;
            cs.base = ColourModel::Rgb;
            cs.palette = c_.palette.substr(0, std::min<size_t>(c_.palette.size() / 3, 256) * 3);
            return cs;
        case 2:
        case 6:
            cs.model = ColourModel::Rgb;
            break;
        default:
            cs.model = ColourModel::Gray;
        }
        cs.icc = c_.icc;
        return cs;
    }

    std::string path_;
    std::vector<uint8_t> file_;
    uint64_t offset_; // where the PNG starts in the file
    PngChunks c_;
};

} // namespace

void readPng(const std::string &path, const PageSink &sink)
{
    PngPage page(path, readWholeFile(path), 0);
    sink(page);
}

void readPngAt(const std::string &path, std::vector<uint8_t> bytes, uint64_t offset,
               const PageSink &sink)
{
    PngPage page(path, std::move(bytes), offset);
    sink(page);
}

} // namespace pw::i2p
