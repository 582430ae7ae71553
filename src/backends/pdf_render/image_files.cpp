#include "image_files.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>
#include <vector>

namespace pw::render {

namespace {

// libpng and libjpeg report errors by longjmp: the functions that set the jump point hold no
// object with a destructor, so the jump skips nothing that needs running.

[[noreturn]] void pngError(png_structp png, png_const_charp)
{
    png_longjmp(png, 1);
}

void pngWarning(png_structp, png_const_charp) {}

bool pngBody(png_structp png, png_infop info, FILE *file, const Raster &raster)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_init_io(png, file);
    const int type = raster.depth == 24 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY;
    png_set_IHDR(png, info, png_uint_32(raster.width), png_uint_32(raster.height),
                 raster.depth == 1 ? 1 : 8, type, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    const auto perMetre = png_uint_32(raster.dpi / 0.0254 + 0.5);
    png_set_pHYs(png, info, perMetre, perMetre, PNG_RESOLUTION_METER);
    // Rendered pages are mostly flat paper: the fastest deflate level loses a few percent of
    // size and saves most of the time the file takes.
    png_set_compression_level(png, 1);
    png_write_info(png, info);
    if (raster.depth == 1)
        png_set_invert_mono(png); // PNG grey has 0 for black, our bits 1
    for (int y = 0; y < raster.height; ++y) {
        const unsigned char *row = raster.row(y);
        if (!row)
            return false;
        png_write_row(png, row);
    }
    png_write_end(png, info);
    return true;
}

struct JpegError {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
};

[[noreturn]] void jpegError(j_common_ptr info)
{
    std::longjmp(reinterpret_cast<JpegError *>(info->err)->jump, 1);
}

void jpegMessage(j_common_ptr) {}

// `expanded` holds one row of grey for a black-and-white page, which JPEG cannot store as bits.
bool jpegBody(jpeg_compress_struct &jpeg, FILE *file, const Raster &raster, int quality,
              unsigned char *expanded)
{
    if (setjmp(reinterpret_cast<JpegError *>(jpeg.err)->jump))
        return false;
    jpeg_create_compress(&jpeg);
    jpeg_stdio_dest(&jpeg, file);
    jpeg.image_width = JDIMENSION(raster.width);
    jpeg.image_height = JDIMENSION(raster.height);
    jpeg.input_components = raster.depth == 24 ? 3 : 1;
    jpeg.in_color_space = raster.depth == 24 ? JCS_RGB : JCS_GRAYSCALE;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, quality, TRUE);
    jpeg.density_unit = 1; // dots per inch
    jpeg.X_density = UINT16(raster.dpi);
    jpeg.Y_density = UINT16(raster.dpi);
    jpeg_start_compress(&jpeg, TRUE);
    for (int y = 0; y < raster.height; ++y) {
        JSAMPROW row = const_cast<JSAMPROW>(raster.row(y));
        if (!row)
            return false;
        if (raster.depth == 1) {
            for (int x = 0; x < raster.width; ++x)
                expanded[x] = (row[x >> 3] & (0x80 >> (x & 7))) ? 0 : 255;
            row = expanded;
        }
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    return true;
}

bool isPredictable(int compression)
{
    return compression == COMPRESSION_LZW || compression == COMPRESSION_ADOBE_DEFLATE ||
           compression == COMPRESSION_DEFLATE || compression == COMPRESSION_ZSTD ||
           compression == COMPRESSION_LZMA;
}

bool isBilevelOnly(int compression)
{
    return compression == COMPRESSION_CCITTRLE || compression == COMPRESSION_CCITTFAX3 ||
           compression == COMPRESSION_CCITTFAX4 || compression == COMPRESSION_CCITTRLEW ||
           compression == COMPRESSION_JBIG;
}

} // namespace

bool writePng(const std::filesystem::path &path, const Raster &raster)
{
    OutputFile file(path.string());
    if (!file.stream())
        return false;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, pngError, pngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    const bool ok = info && pngBody(png, info, file.stream(), raster);
    png_destroy_write_struct(&png, &info);
    return ok && file.commit();
}

bool writeJpeg(const std::filesystem::path &path, const Raster &raster, int quality)
{
    OutputFile file(path.string());
    if (!file.stream())
        return false;
    std::vector<unsigned char> expanded(raster.depth == 1 ? size_t(raster.width) : 0);
    jpeg_compress_struct jpeg{};
    JpegError error{};
    jpeg.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = jpegError;
    error.manager.output_message = jpegMessage;
    const bool ok = jpegBody(jpeg, file.stream(), raster, quality, expanded.data());
    jpeg_destroy_compress(&jpeg);
    return ok && file.commit();
}

int defaultTiffCompression(int depth)
{
    return depth == 1 ? COMPRESSION_CCITTFAX4 : COMPRESSION_LZW;
}

bool tiffCompressionAvailable(int compression)
{
    return compression > 0 && compression <= 0xFFFF && TIFFIsCODECConfigured(uint16_t(compression));
}

TiffFile::~TiffFile()
{
    close();
}

bool TiffFile::open(const std::filesystem::path &path)
{
    close();
    file_ = std::make_unique<OutputFile>(path.string());
    // libtiff closes the descriptor it is given: it gets one of its own.
    tiff_ = TiffHandle::open(file_->share(), path.string(), "w");
    failed_ = false;
    return bool(tiff_);
}

bool TiffFile::addPage(const Raster &raster, int compression, int quality)
{
    // After a page that failed half-way the file's state is unknown: it takes no more pages.
    if (!tiff_ || failed_)
        return false;
    if (compression <= 0)
        compression = defaultTiffCompression(raster.depth);
    // Fax codings hold only bits, JPEG never holds bits: a page that does not fit its
    // compression is refused before it leaves a broken directory in the file.
    if (isBilevelOnly(compression) != (raster.depth == 1) ||
        (compression == COMPRESSION_JPEG && raster.depth == 1))
        return false;
    if (!tiffCompressionAvailable(compression))
        return false;

    TIFF *t = tiff_.get();
    const int samples = raster.depth == 24 ? 3 : 1;
    bool ok = TIFFSetField(t, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE) &&
              TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(raster.width)) &&
              TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(raster.height)) &&
              TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, uint16_t(raster.depth == 1 ? 1 : 8)) &&
              TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, uint16_t(samples)) &&
              TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
              TIFFSetField(t, TIFFTAG_COMPRESSION, uint16_t(compression)) &&
              TIFFSetField(t, TIFFTAG_XRESOLUTION, float(raster.dpi)) &&
              TIFFSetField(t, TIFFTAG_YRESOLUTION, float(raster.dpi)) &&
              TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    uint16_t photometric = raster.depth == 24  ? PHOTOMETRIC_RGB
                           : raster.depth == 8 ? PHOTOMETRIC_MINISBLACK
                                               : PHOTOMETRIC_MINISWHITE;
    if (ok && compression == COMPRESSION_JPEG) {
        ok = TIFFSetField(t, TIFFTAG_JPEGQUALITY, quality);
        // YCbCr keeps colour pages at the size a JPEG file would have; libtiff converts.
        if (ok && samples == 3) {
            photometric = PHOTOMETRIC_YCBCR;
            ok = TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric) &&
                 TIFFSetField(t, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        }
    }
    ok = ok && TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
    if (ok && raster.depth != 1 && isPredictable(compression))
        ok = TIFFSetField(t, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    // A bilevel page in one strip is what fax readers and PDF makers take as is.
    const uint32_t rowsPerStrip =
        raster.depth == 1 ? uint32_t(raster.height) : TIFFDefaultStripSize(t, 0);
    ok = ok && TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
    // libtiff may encode the row buffer in place (the predictor does): hand it a copy.
    std::vector<unsigned char> row(raster.stride);
    for (int y = 0; ok && y < raster.height; ++y) {
        const unsigned char *source = raster.row(y);
        ok = source != nullptr;
        if (ok) {
            std::copy_n(source, raster.stride, row.data());
            ok = TIFFWriteScanline(t, row.data(), uint32_t(y), 0) == 1;
        }
    }
    ok = ok && TIFFWriteDirectory(t);
    failed_ = failed_ || !ok;
    return ok;
}

void TiffFile::abandon()
{
    failed_ = true;
    close();
}

bool TiffFile::close()
{
    if (!tiff_)
        return !failed_;
    failed_ = failed_ || !tiff_.close() || !file_->commit();
    file_.reset();
    return !failed_;
}

bool writeTiff(const std::filesystem::path &path, const Raster &raster, int compression,
               int quality)
{
    TiffFile file;
    if (!file.open(path))
        return false;
    // A refused page still leaves a file without pages to take away.
    if (!file.addPage(raster, compression, quality)) {
        file.abandon();
        return false;
    }
    return file.close();
}

} // namespace pw::render
