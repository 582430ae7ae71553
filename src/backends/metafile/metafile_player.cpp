#include "metafile_player.h"

#include "emf_player.h"
#include "module_failure.h"

#include <QBuffer>
#include <QImage>
#include <QPdfWriter>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace {

// Nothing may cross into the program but the error result.
template <typename Work> int32_t entryPoint(pw_module_error &error, Work &&work)
{
    const auto describe = [](const char *what) {
        return pw::invalidFormat(what ? what : "EMF: unreadable metafile");
    };
    return pw::contain(&error, PW_MODULE_FAILED, describe, work);
}

void play(const uint8_t *data, size_t size, const char *format,
          const pw::metafile::CanvasFor &canvasFor)
{
    if (std::strcmp(format, "EMF") == 0)
        return pw::metafile::playEmf(data, size, canvasFor);
    if (std::strcmp(format, "WMF") == 0)
        return pw::metafile::playWmf(data, size, canvasFor);
    throw pw::invalidFormat(std::string(format) + ": not a metafile this player knows");
}

// The played page: its pixels are made only when the program asks for them (a question about
// its depth never does), and kept as 8-bit RGB rows while the program copies them.
struct PlayedPage {
    const uint8_t *data;
    size_t size;
    const char *format;
    std::vector<uint8_t> pixels;
};

// 300 dpi, or less where a side would pass 10,000 pixels.
double rasterDpi(const QSizeF &mm)
{
    return std::min(300.0, 10000 / std::max(mm.width() / 25.4, mm.height() / 25.4));
}

// The picture's resolution as raster() makes it, its records played onto a canvas of a few
// pixels: damaged records fail here as they would at full size, for a fraction of the cost.
double checkedDpi(const uint8_t *data, size_t size, const char *format)
{
    double dpi = 300;
    QImage small(8, 8, QImage::Format_RGB32);
    small.fill(Qt::white);
    play(data, size, format, [&](const QSizeF &mm) {
        dpi = rasterDpi(mm);
        return pw::metafile::Canvas{&small, 8 / std::max({mm.width(), mm.height(), 1e-3})};
    });
    return dpi;
}

// The picture as an image at rasterDpi().
QImage raster(const uint8_t *data, size_t size, const char *format)
{
    QImage image;
    play(data, size, format, [&](const QSizeF &mm) {
        const double inchesW = mm.width() / 25.4, inchesH = mm.height() / 25.4;
        const double dpi = rasterDpi(mm);
        image = QImage(std::max(1, int(std::lround(inchesW * dpi))),
                       std::max(1, int(std::lround(inchesH * dpi))), QImage::Format_RGB32);
        if (image.isNull())
            throw pw::outOfMemory();
        image.fill(Qt::white);
        return pw::metafile::Canvas{&image, dpi / 25.4};
    });
    return image.convertToFormat(QImage::Format_RGB888);
}

} // namespace

extern "C" int32_t pw_play_metafile(const uint8_t *data, size_t size, const char *format, int32_t,
                                    pw_magick_page_fn on_page, void *context,
                                    pw_module_error *error)
{
    return entryPoint(*error, [&]() -> int32_t {
        PlayedPage played{data, size, format, {}};
        pw_magick_page page{};
        page.depth = 24;
        page.xdpi = page.ydpi = checkedDpi(data, size, format);
        page.state = &played;
        page.decode = [](const pw_magick_page *p, pw_magick_raster *out, pw_module_error *failed) {
            auto *pp = static_cast<PlayedPage *>(p->state);
            return entryPoint(*failed, [&]() -> int32_t {
                const QImage image = raster(pp->data, pp->size, pp->format);
                const size_t row = size_t(image.width()) * 3;
                pp->pixels.resize(row * size_t(image.height()));
                for (int y = 0; y < image.height(); ++y)
                    std::memcpy(pp->pixels.data() + row * size_t(y), image.constScanLine(y), row);
                *out = {};
                out->width = image.width();
                out->height = image.height();
                out->bits_per_sample = 8;
                out->colour_model = PW_MAGICK_RGB;
                out->pixels = pp->pixels.data();
                out->pixels_size = pp->pixels.size();
                return int32_t(PW_MODULE_OK);
            });
        };
        return on_page(context, &page);
    });
}

extern "C" int32_t pw_metafile_to_pdf(const uint8_t *data, size_t size, const char *format,
                                      pw_metafile_bytes_fn take, void *context,
                                      pw_module_error *error)
{
    return entryPoint(*error, [&]() -> int32_t {
        // Viewers refuse pages past 200 inches a side; a larger picture is shrunk to fit.
        constexpr double largestSideMm = 200 * 25.4;
        // Fine enough that no coordinate of a metafile loses a visible fraction.
        constexpr int dotsPerInch = 1200;
        QByteArray pdf;
        {
            QBuffer buffer(&pdf);
            buffer.open(QIODevice::WriteOnly);
            std::optional<QPdfWriter> writer;
            play(data, size, format, [&](const QSizeF &mm) {
                const double shrink =
                    std::min(1.0, largestSideMm / std::max(mm.width(), mm.height()));
                writer.emplace(&buffer);
                writer->setResolution(dotsPerInch);
                writer->setPageMargins({});
                // A page under a point a side is no page to a PDF writer; the picture then
                // keeps its size in the corner of the smallest page.
                const double point = 25.4 / 72;
                const QSizeF page(std::max(mm.width() * shrink, point),
                                  std::max(mm.height() * shrink, point));
                writer->setPageSize(
                    QPageSize(page, QPageSize::Millimeter, {}, QPageSize::ExactMatch));
                return pw::metafile::Canvas{&*writer, dotsPerInch / 25.4 * shrink};
            });
        }
        take(context, reinterpret_cast<const uint8_t *>(pdf.constData()), size_t(pdf.size()));
        return PW_MODULE_OK;
    });
}
