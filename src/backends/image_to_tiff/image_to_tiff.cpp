#include "image_to_tiff.h"

#include "module_failure.h"
#include "output_file.h"
#include "run_time_errors.h"
#include "tiff_handle.h"

#include <QFile>
#include <QImage>
#include <QImageReader>

#include <tiffio.h>

#include <cstdio>
#include <string>

namespace {

void write(QImage image, const std::string &target, int32_t compression)
{
    const bool bilevel = image.depth() == 1;
    const bool grey = !bilevel && image.isGrayscale();
    image = image.convertToFormat(bilevel ? QImage::Format_Mono
                                  : grey  ? QImage::Format_Grayscale8
                                          : QImage::Format_RGB888);
    if (compression <= 0)
        compression = bilevel ? COMPRESSION_CCITTFAX4 : COMPRESSION_LZW;
    const bool fax = compression == COMPRESSION_CCITTFAX3 || compression == COMPRESSION_CCITTFAX4;
    if (!TIFFIsCODECConfigured(static_cast<uint16_t>(compression)) || (fax && !bilevel) ||
        (compression == COMPRESSION_JPEG && bilevel))
        throw pw::failure(380, "TIFF compression " + std::to_string(compression));
    pw::OutputFile file(target);
    // libtiff closes the descriptor it is given: it gets one of its own.
    pw::TiffHandle tiff = pw::TiffHandle::open(file.share(), target, "w");
    if (!tiff)
        throw pw::failure(75, target + (file.reason().empty() ? "" : ": " + file.reason()));
    TIFF *t = tiff.get();
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, image.width());
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, image.height());
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bilevel ? 1 : 8);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, bilevel || grey ? 1 : 3);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC,
                 bilevel || grey ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
    if (!bilevel && (compression == COMPRESSION_LZW || compression == COMPRESSION_ADOBE_DEFLATE))
        TIFFSetField(t, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
    if (image.dotsPerMeterX() > 0 && image.dotsPerMeterY() > 0) {
        TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        TIFFSetField(t, TIFFTAG_XRESOLUTION, image.dotsPerMeterX() * 0.0254);
        TIFFSetField(t, TIFFTAG_YRESOLUTION, image.dotsPerMeterY() * 0.0254);
    }
    if (bilevel && qGray(image.color(0)) > qGray(image.color(1)))
        image.invertPixels(); // a set bit is the lighter colour in a min-is-black page
    for (int row = 0; row < image.height(); ++row) {
        if (TIFFWriteScanline(t, image.scanLine(row), static_cast<uint32_t>(row), 0) < 0)
            throw pw::failure(75, target);
    }
    if (!TIFFWriteDirectory(t))
        throw pw::failure(75, target);
    if (!tiff.close())
        throw pw::failure(75, target);
    if (!file.commit())
        throw pw::failure(75, target + ": " + file.reason());
}

} // namespace

int32_t pw_image_to_tiff(const char *source, const char *target, int32_t compression,
                         pw_module_error *error)
{
    // Whatever else goes wrong is taken for lack of memory, naming the file it was writing.
    const auto describe = [&](const char *) { return pw::failure(pw::rte::kOutOfMemory, target); };
    return pw::contain(error, PW_MODULE_FAILED, describe, [&] {
        try {
            QImageReader reader(QFile::decodeName(source));
            QImage image = reader.read();
            if (image.isNull())
                throw pw::failure(reader.error() == QImageReader::FileNotFoundError ? 53 : 321,
                                  source);
            write(std::move(image), target, compression);
            return PW_MODULE_OK;
        } catch (const std::bad_alloc &) {
            throw pw::failure(pw::rte::kOutOfMemory, target);
        }
    });
}
