#pragma once

/* Text recognition on tesseract, a module of its own (pw_ocr.so): its language models weigh
   tens of megabytes and only a run that asks for searchable PDFs needs them. The image-to-PDF
   library looks the entry points up by name with pw::moduleSymbol; only C types cross. */

#include "module_abi.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One page to read, as it is shown: 8-bit grey (0 black) or 1-bit (1 white, first pixel in
   the byte's high bit), rows `row_bytes` apart. */
typedef struct pw_ocr_page {
    const uint8_t *pixels;
    int32_t width;
    int32_t height;
    int32_t bits; /* 1 or 8 */
    size_t row_bytes;
    double dpi;
} pw_ocr_page;

/* One recognised word, in pixels of the page as given, origin at its top left. */
typedef struct pw_ocr_word {
    const char *text; /* UTF-8, valid during the callback */
    double left;
    double top;
    double right;
    double bottom;
    /* The baseline runs through (baseline_x1, baseline_y1) and (baseline_x2, baseline_y2). */
    double baseline_x1;
    double baseline_y1;
    double baseline_x2;
    double baseline_y2;
    double font_size;  /* estimated em size */
    int32_t ends_line; /* 1 for the last word of its line */
} pw_ocr_word;

typedef void (*pw_ocr_word_fn)(void *context, const pw_ocr_word *word);

/* PW_MODULE_OK when every language of `language` ("eng", "deu+eng") is installed; otherwise
   PW_MODULE_FAILED with `error` naming the first missing one and the Debian package that
   brings it. */
PW_MODULE_EXPORT int32_t pw_ocr_check_language(const char *language, pw_module_error *error);

/* Reads the page in `language` and offers each word, in reading order, to `on_word`. Pages
   of more than about 300 dpi are read from a scaled-down copy; the words come back in the
   page's own pixels all the same. Returns PW_MODULE_OK, or PW_MODULE_FAILED with `error`
   set. May be called on several threads at once. */
PW_MODULE_EXPORT int32_t pw_ocr_read_page(const pw_ocr_page *page, const char *language,
                                          pw_ocr_word_fn on_word, void *context,
                                          pw_module_error *error);

#ifdef __cplusplus
}

namespace pw::ocr {

inline constexpr char kModule[] = "pw_ocr.so";
inline constexpr char kCheckLanguage[] = "pw_ocr_check_language";
using CheckLanguage = decltype(&pw_ocr_check_language);
inline constexpr char kReadPage[] = "pw_ocr_read_page";
using ReadPage = decltype(&pw_ocr_read_page);

} // namespace pw::ocr
#endif
