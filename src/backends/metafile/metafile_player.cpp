#include "metafile_player.h"

#include "emf_player.h"
#include "module_failure.h"

#include <cstring>
#include <string>
#include <vector>

namespace {

// Nothing may cross into the program but the error result.
template <typename Work> int32_t entryPoint(pw_module_error &error, Work &&work)
{
    try {
        return work();
    } catch (const ApFailure &f) {
        pw::report(error, f);
    } catch (const std::bad_alloc &) {
        pw::report(error, pw::outOfMemory());
    } catch (const std::exception &f) {
        pw::report(error, pw::invalidFormat(f.what()));
    } catch (...) {
        pw::report(error, pw::invalidFormat("EMF: unreadable metafile"));
    }
    return PW_MODULE_FAILED;
}

// The played page, packed as 8-bit RGB rows, while the program copies it.
struct PlayedPage {
    std::vector<uint8_t> pixels;
    int32_t width = 0, height = 0;
};

} // namespace

extern "C" int32_t pw_play_metafile(const uint8_t *data, size_t size, const char *format, int32_t,
                                    pw_magick_page_fn on_page, void *context,
                                    pw_module_error *error)
{
    return entryPoint(*error, [&]() -> int32_t {
        const bool emf = std::strcmp(format, "EMF") == 0;
        if (!emf && std::strcmp(format, "WMF") != 0)
            throw pw::invalidFormat(std::string(format) + ": not a metafile this player knows");
        double dpi = 300;
        const QImage image =
            (emf ? pw::metafile::playEmf(data, size, dpi) : pw::metafile::playWmf(data, size, dpi))
                .convertToFormat(QImage::Format_RGB888);
        PlayedPage played;
        played.width = image.width();
        played.height = image.height();
        const size_t row = size_t(image.width()) * 3;
        played.pixels.resize(row * size_t(image.height()));
        for (int y = 0; y < image.height(); ++y)
            std::memcpy(played.pixels.data() + row * size_t(y), image.constScanLine(y), row);
        pw_magick_page page{};
        page.depth = 24;
        page.xdpi = page.ydpi = dpi;
        page.state = &played;
        page.decode = [](const pw_magick_page *p, pw_magick_raster *raster, pw_module_error *) {
            const auto *pp = static_cast<const PlayedPage *>(p->state);
            *raster = {};
            raster->width = pp->width;
            raster->height = pp->height;
            raster->bits_per_sample = 8;
            raster->colour_model = PW_MAGICK_RGB;
            raster->pixels = pp->pixels.data();
            raster->pixels_size = pp->pixels.size();
            return int32_t(PW_MODULE_OK);
        };
        return on_page(context, &page);
    });
}
