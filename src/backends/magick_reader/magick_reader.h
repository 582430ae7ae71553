#pragma once

/* The reader of the rarer image formats (PCD, PNM, ICO ...) on
   GraphicsMagick, a module of its own (pw_magick_reader.so): most runs never meet such a file,
   and linking it would cost every start the loading of its many codecs. The image-to-PDF
   library looks the entry point up by name with pw::moduleSymbol; only C types cross. */

#include "module_abi.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { PW_MAGICK_GRAY = 0, PW_MAGICK_RGB = 1, PW_MAGICK_CMYK = 2 };

/* Decoded pixels of one page, rows packed to whole bytes, 16-bit samples big-endian. The
   buffers belong to the module and stay valid until the page callback returns. */
typedef struct pw_magick_raster {
    int32_t width;
    int32_t height;
    int32_t bits_per_sample; /* 1, 8 or 16; the alpha samples have the same size */
    int32_t colour_model;    /* PW_MAGICK_GRAY, PW_MAGICK_RGB or PW_MAGICK_CMYK */
    const uint8_t *pixels;
    size_t pixels_size;
    const uint8_t *alpha; /* one sample per pixel; null when the page is opaque */
    size_t alpha_size;
    const uint8_t *icc; /* the embedded colour profile; null when there is none */
    size_t icc_size;
} pw_magick_raster;

/* One page as it is offered; decoding waits until decode() is called. */
typedef struct pw_magick_page {
    int32_t depth; /* bits per pixel as stored */
    double xdpi;   /* 0 when the file states no resolution */
    double ydpi;
    void *state;
    /* PW_MODULE_OK with *raster filled, or PW_MODULE_FAILED with *error set. */
    int32_t (*decode)(const struct pw_magick_page *page, pw_magick_raster *raster,
                      pw_module_error *error);
} pw_magick_page;

/* Called for each page in order; anything but PW_MODULE_OK stops the reading. */
typedef int32_t (*pw_magick_page_fn)(void *context, const pw_magick_page *page);

/* Reads the file's bytes as the named format ("PCD", "ICO" ...; never guessed from the
   content) and offers every page to `on_page`, only the first with `first_only`. Returns
   PW_MODULE_OK, or PW_MODULE_FAILED when the data gives no page or `on_page` stopped it;
   `error` then says why (unless `on_page` stopped it). */
PW_MODULE_EXPORT int32_t pw_read_with_magick(const uint8_t *data, size_t size, const char *format,
                                             int32_t first_only, pw_magick_page_fn on_page,
                                             void *context, pw_module_error *error);

/* The most pixels a page may have; a larger one is refused before its pixels are allocated.
   Holds for every later reading in the process. */
PW_MODULE_EXPORT void pw_magick_limit_pixels(uint64_t pixels);

#ifdef __cplusplus
}

namespace pw::magick {

inline constexpr char kModule[] = "pw_magick_reader.so";
inline constexpr char kRead[] = "pw_read_with_magick";
using Read = decltype(&pw_read_with_magick);
inline constexpr char kLimitPixels[] = "pw_magick_limit_pixels";
using LimitPixels = decltype(&pw_magick_limit_pixels);

} // namespace pw::magick
#endif
