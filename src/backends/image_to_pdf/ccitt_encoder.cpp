// CCITT G3/G4 data made by libtiff's fax coder: the page goes into a one-strip TIFF in
// memory and its strip is the stream.

#include "encoders.h"
#include "tiff_handle.h"

namespace pw::i2p {

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
        TiffHandle h = TiffHandle::openMemory(buffer, "w");
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
            throw invalidFormat("CCITT encoder: " + h.errorWithSource());
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
