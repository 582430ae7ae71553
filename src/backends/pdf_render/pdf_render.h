#pragma once

/* Our PDF rendering library, a module of its own (pw_pdf_render.so) on poppler: poppler and
   the fonts it loads cost a start more than most runs ever need. Callers look the entry points
   up by name with pw::moduleSymbol; only C types cross. Texts are UTF-8 paths or numbers.

   One handle renders one document. Pages are written as image files into the output folder,
   named "<base>-<page>.<ext>" (page 1 is the first), or, for a multi-page TIFF, "<base>.tif".
   The format numbers and properties are listed in docs/pdf_render.md. */

#include "module_abi.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Open results below 0. */
enum {
    PW_RENDER_CANNOT_OPEN = -1, /* missing or unreadable file */
    PW_RENDER_DAMAGED = -2,     /* not a PDF, or beyond repair */
    PW_RENDER_LOCKED = -3,      /* encrypted, and the password given does not open it */
    PW_RENDER_NO_PAGES = -4     /* a PDF without a page */
};

/* Image formats (property 5). */
enum {
    PW_RENDER_PNG = 1,
    PW_RENDER_JPEG = 2,
    PW_RENDER_TIFF = 3,    /* one TIFF per page */
    PW_RENDER_TIFF_ALL = 7 /* like 3; with property 10 set to 1 all pages go into "<base>.tif" */
};

/* Properties: the text and first number that apSetProperty reads for each. */
enum {
    PW_RENDER_FOLDER = 1,       /* text: output folder (made if missing). Default: the PDF's */
    PW_RENDER_DPI_TEXT = 2,     /* text: dots per inch as digits ("300"); empty keeps the
                                   resolution as it is */
    PW_RENDER_RESOLUTION = 3,   /* number: dots per inch, 1 to 2400. Default 150 */
    PW_RENDER_QUALITY = 4,      /* number: JPEG quality 1 to 100. Default 90 */
    PW_RENDER_FORMAT = 5,       /* number: image format above. Default PNG */
    PW_RENDER_DEPTH = 6,        /* number: bits per pixel, 1 (black and white), 8 (grey) or 24.
                                   Default 24 */
    PW_RENDER_ONE_FILE = 10,    /* number: 1 puts every page of a multi-page format in one file */
    PW_RENDER_COMPRESSION = 11, /* number: TIFF compression tag value; -1 or 0: the library's
                                   choice (G4 for 1 bit, LZW with predictor otherwise) */
    PW_RENDER_BASE = 12         /* text: base of the image names; empty: the PDF's name without
                                   its extension */
};

/* A handle above 0 for the PDF at `path`, or one of the open results above with `error`
   saying why. The passwords may be empty or null. */
PW_MODULE_EXPORT int32_t pw_render_open(const char *path, const char *userPassword,
                                        const char *ownerPassword, pw_module_error *error);
/* Sets `property` from `text` or `number1`; `number2` is reserved. 0, or -1 for an unknown
   handle, property or value out of range. */
PW_MODULE_EXPORT int32_t pw_render_set_property(int32_t handle, int32_t property, const char *text,
                                                int32_t number1, int32_t number2);
/* Renders page `page` (1 is the first) and writes its image. 0, or -1 with `error` saying why
   (an unknown handle or page, a page too large to draw, an image that cannot be written). */
PW_MODULE_EXPORT int32_t pw_render_convert_page(int32_t handle, int32_t page,
                                                pw_module_error *error);
/* Pages of the open document, or -1 for an unknown handle. */
PW_MODULE_EXPORT int32_t pw_render_page_count(int32_t handle);
/* Finishes a multi-page file and releases the handle. 0, or -1 for an unknown handle. */
PW_MODULE_EXPORT int32_t pw_render_close(int32_t handle);

/* A page as a viewer shows it, in 8-bit grey (0 black), rows `row_bytes` apart. */
typedef struct pw_render_grey {
    const uint8_t *pixels;
    int32_t width;
    int32_t height;
    size_t row_bytes;
    int32_t dpi;
    int32_t quarter_turns; /* clockwise quarter turns a viewer gives the page as stored */
    double box[4];         /* the area drawn (x1 y1 x2 y2), in the page's own space */
} pw_render_grey;

typedef void (*pw_render_grey_fn)(void *context, const pw_render_grey *page);

/* 1 when page `page` (1 is the first) shows text, 0 when it does not; -1 with `error` set
   for an unknown handle or page. */
PW_MODULE_EXPORT int32_t pw_render_page_has_text(int32_t handle, int32_t page,
                                                 pw_module_error *error);
/* Renders page `page` in grey at `dpi`, or at the highest resolution that keeps it within
   `max_pixels`, and hands it to `on_page`; the pixels are valid during that call. Leaves the
   settings and files of the handle alone. 0, or -1 with `error` set. */
PW_MODULE_EXPORT int32_t pw_render_grey_page(int32_t handle, int32_t page, int32_t dpi,
                                             double max_pixels, pw_render_grey_fn on_page,
                                             void *context, pw_module_error *error);

#ifdef __cplusplus
}

namespace pw::render {

inline constexpr char kModule[] = "pw_pdf_render.so";

} // namespace pw::render
#endif
