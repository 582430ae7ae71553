// CCITT G3/G4 data made by libtiff's fax coder: the page goes into a one-strip TIFF in
// memory and its strip is the stream.

#include "encoders.h"
#include "tiff_handle.h"

#include <algorithm>
#include <cstring>

namespace pw::i2p {

namespace {

struct MemoryFile {
    std::string *data;
    toff_t pos = 0;
};

tmsize_t memRead(thandle_t h, void *buf, tmsize_t n)
{
    auto *m = static_cast<MemoryFile *>(h);
    if (m->pos >= m->data->size())
        return 0;
    const tmsize_t avail = tmsize_t(m->data->size() - m->pos);
    n = std::min(n, avail);
    std::memcpy(buf, m->data->data() + m->pos, size_t(n));
    m->pos += toff_t(n);
    return n;
}

tmsize_t memWrite(thandle_t h, void *buf, tmsize_t n)
{
    auto *m = static_cast<MemoryFile *>(h);
    if (m->pos + toff_t(n) > m->data->size())
        m->data->resize(size_t(m->pos + toff_t(n)));
    std::memcpy(m->data->data() + m->pos, buf, size_t(n));
    m->pos += toff_t(n);
    return n;
}

toff_t memSeek(thandle_t h, toff_t off, int whence)
{
    auto *m = static_cast<MemoryFile *>(h);
    toff_t base = whence == SEEK_CUR ? m->pos : (whence == SEEK_END ? m->data->size() : 0);
    m->pos = base + off;
    return m->pos;
}

int memClose(thandle_t)
{
    return 0;
}

toff_t memSize(thandle_t h)
{
    return static_cast<MemoryFile *>(h)->data->size();
}

int memMap(thandle_t, void **, toff_t *)
{
    return 0;
}
void memUnmap(thandle_t, void *, toff_t) {}

int dropMessage(TIFF *, void *, const char *, const char *, va_list)
{
    return 1;
}

int keepError(TIFF *, void *user, const char *module, const char *fmt, va_list ap)
{
    auto *m = static_cast<TiffMessages *>(user);
    if (m->firstError.empty()) {
        char text[512];
        std::vsnprintf(text, sizeof text, fmt, ap);
        m->firstError = std::string(module ? module : "TIFF") + ": " + text;
    }
    return 1;
}

struct OptionsFree {
    void operator()(TIFFOpenOptions *o) const { TIFFOpenOptionsFree(o); }
};

std::unique_ptr<TIFFOpenOptions, OptionsFree> makeOptions(TiffMessages *messages)
{
    std::unique_ptr<TIFFOpenOptions, OptionsFree> opts(TIFFOpenOptionsAlloc());
    TIFFOpenOptionsSetErrorHandlerExtR(opts.get(), keepError, messages);
    TIFFOpenOptionsSetWarningHandlerExtR(opts.get(), dropMessage, nullptr);
    // A damaged header must not make libtiff ask for gigabytes.
    TIFFOpenOptionsSetMaxSingleMemAlloc(opts.get(), tmsize_t(1) << 30);
    return opts;
}

} // namespace

TiffHandle openTiff(const std::string &path, const char *mode)
{
    TiffHandle h;
    auto opts = makeOptions(h.messages.get());
    h.tif.reset(TIFFOpenExt(path.c_str(), mode, opts.get()));
    return h;
}

TiffHandle openMemoryTiff(std::string &buffer, const char *mode)
{
    TiffHandle h;
    auto opts = makeOptions(h.messages.get());
    auto file = std::make_shared<MemoryFile>();
    file->data = &buffer;
    h.memory = file;
    h.tif.reset(TIFFClientOpenExt("memory", mode, file.get(), memRead, memWrite, memSeek, memClose,
                                  memSize, memMap, memUnmap, opts.get()));
    return h;
}

std::vector<uint8_t> ccittEncode(const Raster &raster, bool g4)
{
    // The fax coder takes 0 as white; our grey has 0 as black unless the raster is inverted.
    std::vector<uint8_t> bits(raster.pixels.begin(), raster.pixels.end());
    if (!raster.invert)
        for (auto &b : bits)
            b = uint8_t(~b);
    std::string buffer;
    std::vector<uint8_t> out;
    {
        TiffHandle h = openMemoryTiff(buffer, "w");
        TIFF *t = h.get();
        if (!t)
            throw outOfMemory();
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(raster.width));
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(raster.height));
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 1);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
        TIFFSetField(t, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, uint32_t(raster.height));
        TIFFSetField(t, TIFFTAG_COMPRESSION, g4 ? COMPRESSION_CCITTFAX4 : COMPRESSION_CCITTFAX3);
        if (!g4)
            TIFFSetField(t, TIFFTAG_GROUP3OPTIONS, 0);
        if (TIFFWriteEncodedStrip(t, 0, bits.data(), tmsize_t(bits.size())) < 0)
            throw invalidFormat("CCITT encoder: " + h.messages->firstError);
        uint64_t *offsets = nullptr;
        uint64_t *counts = nullptr;
        if (!TIFFGetField(t, TIFFTAG_STRIPOFFSETS, &offsets) ||
            !TIFFGetField(t, TIFFTAG_STRIPBYTECOUNTS, &counts) || !offsets || !counts ||
            offsets[0] + counts[0] > buffer.size())
            throw invalidFormat("CCITT encoder: no strip written");
        out.assign(buffer.begin() + std::ptrdiff_t(offsets[0]),
                   buffer.begin() + std::ptrdiff_t(offsets[0] + counts[0]));
    }
    return out;
}

} // namespace pw::i2p
