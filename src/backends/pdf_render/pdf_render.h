#pragma once

/* Our PDF rendering library, a module of its own (pw_pdf_render.so) on poppler: poppler and
   the fonts it loads cost a start more than most runs ever need. Callers look the entry points
   up by name with pw::moduleSymbol; only C types cross. Texts are UTF-8 paths or numbers.

   One handle renders one document. Pages are written as image files into the output folder,
   named "<base>-<page>.<ext>" (page 1 is the first), or, for a multi-page TIFF, "<base>.tif".
   The format numbers and properties are listed in docs/pdf_render.md. */

#include "module_abi.h"

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

#ifdef __cplusplus
}

namespace pw::render {

inline constexpr char kModule[] = "pw_pdf_render.so";

} // namespace pw::render
#endif
