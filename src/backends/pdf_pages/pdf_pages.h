#pragma once

/* Our PDF page library, a module of its own (pw_pdf_pages.so) on qpdf: merge files or page
   ranges of them into one PDF, split a PDF into one PDF per page, read and write the document
   information. Callers look the entry points up by name with pw::moduleSymbol; only C types
   cross. Paths and texts are UTF-8.

   Page ranges: comma-separated pages and spans, "1-3,7,10-". Pages count from 1, a span may
   leave its end open ("10-": to the last page) or its start ("-3": from the first), spaces are
   ignored, pages past the end are skipped, "0" or the empty text is every page; "z", "r2",
   "5-1" and ":odd" read as in qpdf. A range that cannot be read ("a", "1--2") selects no page.
   The syntax is in docs/pdf_pages.md.

   Encrypted PDFs open with the password set by pw_pages_set_password; without the right one
   they fail, saying that they need a password. */

#include "module_abi.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* pw_pages_set_function codes. */
enum {
    PW_PAGES_ADD = 175,  /* merge handle: number1 0, number2 0, text1 the file to add, text2
                            its page range */
    PW_PAGES_SPLIT = 170 /* split handle: number1 1; number2 1 for every page, 2 for the pages
                            of the range in text1; text2 the output path and prefix: page N
                            is written to "<text2>N.pdf", N padded with zeros to the width
                            of the page count ("<text2>007.pdf" of 120 pages) */
};

/* Every entry point that can fail takes `error` last: when it fails, the run-time error number
   and text of the failure go there (`error` may be null). */

/* A handle above 0 for a merge into `outputPath`, which pw_pages_close writes; 0 when no more
   handles can be had. */
PW_MODULE_EXPORT int32_t pw_pages_create_merge(const char *outputPath, pw_module_error *error);
/* A handle above 0 for splitting `sourcePath`; 0 when it cannot be read as a PDF. */
PW_MODULE_EXPORT int32_t pw_pages_open_split(const char *sourcePath, pw_module_error *error);
/* Pages of the PDF a split handle opened, or -1 for a handle that is no split: counted once
   with the split, where a separate count would read the page tree a second time. */
PW_MODULE_EXPORT int32_t pw_pages_split_count(int32_t handle, pw_module_error *error);
/* 0 when done; -1 for an unknown handle or code, or a file that cannot be read or written. An
   add whose range selects no page of the file adds nothing and is no failure of the merge: it
   returns PW_PAGES_NOTHING_ADDED, and `error` says so. */
enum { PW_PAGES_NOTHING_ADDED = 1 };
PW_MODULE_EXPORT int32_t pw_pages_set_function(int32_t handle, int32_t code, int32_t number1,
                                               int32_t number2, const char *text1,
                                               const char *text2, pw_module_error *error);
/* Writes a merge (one with no pages writes nothing) and releases the handle. 0, or -1 when
   the handle is unknown or the merged file cannot be written. */
PW_MODULE_EXPORT int32_t pw_pages_close(int32_t handle, pw_module_error *error);
/* Releases the handle without writing anything: a merge that lost an input is not wanted. 0, or
   -1 when the handle is unknown. */
PW_MODULE_EXPORT int32_t pw_pages_abandon(int32_t handle, pw_module_error *error);

/* The password tried on every encrypted PDF that this thread opens from now on ("" or null:
   none). An unencrypted PDF ignores it. */
PW_MODULE_EXPORT void pw_pages_set_password(const char *password);

/* Pages of `path`, or -1 when it cannot be read as a PDF. */
PW_MODULE_EXPORT int32_t pw_pages_count(const char *path, pw_module_error *error);
/* The same, and in `declared` the count the page tree's root claims (-1 when it claims none):
   readers that trust the claim (poppler) see other pages than there are when they differ. */
PW_MODULE_EXPORT int32_t pw_pages_count_checked(const char *path, int32_t *declared,
                                                pw_module_error *error);
/* Copies the document information entry `key` ("Title", "Subject", "Author", "Keywords",
   "Creator", "Producer" or any other) of `path` into `value` as UTF-8, NUL-terminated and
   cut to `size`. Returns the full length in bytes (0 when the entry is missing), or -1 when the
   file cannot be read. */
PW_MODULE_EXPORT int32_t pw_pages_get_info(const char *path, const char *key, char *value,
                                           size_t size, pw_module_error *error);
/* Sets entry `key` of `path` to the UTF-8 `value` (the empty text removes it) and rewrites
   the file in place through a temporary file beside it. 0, or -1. */
PW_MODULE_EXPORT int32_t pw_pages_set_info(const char *path, const char *key, const char *value,
                                           pw_module_error *error);

/* The page count and the standard document information entries of `path`, read in one
   opening, as UTF-8 lines "Key\tvalue\n": "Pages" first, then Title, Subject, Author,
   Keywords, Creator, Producer, CreationDate and ModDate, each present even when empty (line
   breaks and tabs in values become spaces). Copied into `text` as pw_pages_get_info does;
   returns the full length, or -1 when the file cannot be read. */
PW_MODULE_EXPORT int32_t pw_pages_describe(const char *path, char *text, size_t size,
                                           pw_module_error *error);
/* Turns the pages of `range` (see above) of `path` by `angle` degrees clockwise (90, 180 or
   270) more than they are, and rewrites the file in place as pw_pages_set_info does. 0, or
   -1; a range without a page of the file is a failure. */
PW_MODULE_EXPORT int32_t pw_pages_rotate(const char *path, int32_t angle, const char *range,
                                         pw_module_error *error);

/* A text layer: operators drawing in the page's own space, with the glyph-less text font
   under the name "Ocr". */
typedef struct pw_pages_layer {
    int32_t page; /* 1 is the first */
    const char *content;
} pw_pages_layer;

/* Lays each of `layers` over its page of `path`, the page's own content untouched, and
   rewrites the file in place as pw_pages_set_info does. 0, or -1. */
PW_MODULE_EXPORT int32_t pw_pages_add_layers(const char *path, const pw_pages_layer *layers,
                                             int32_t count, pw_module_error *error);

#ifdef __cplusplus
}

namespace pw::pages {

inline constexpr char kModule[] = "pw_pdf_pages.so";

} // namespace pw::pages
#endif
