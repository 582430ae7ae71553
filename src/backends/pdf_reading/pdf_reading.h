#pragma once

/* The PDF reader, a module of its own (pw_pdf_reading.so): qpdf and the cryptography it brings
   cost every start of a program a few milliseconds, and most runs of the batch tool never open
   a PDF. Callers look the entry points up by name with pw::moduleSymbol; only C types cross. */

#include "module_abi.h"
#include "pdf_sink.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Pages of the PDF at `path` (UTF-8), or 0 when it cannot be opened (missing, not a PDF,
   encrypted with an unknown password, beyond repair) or has no pages. */
PW_MODULE_EXPORT int32_t pw_pdf_count_pages(const char *path);

/* Writes every page of the PDF at `path` into `sink`, with whatever the pages use, each page
   under /Parent `parent`, and adds the pages in order. Puts the file's PDF version ("1.7")
   into `version`. Returns PW_MODULE_OK, or PW_MODULE_FAILED when the file cannot be read or
   the sink failed; `error` then says why (unless the sink failed). What was written by then is
   for the caller to take back. */
PW_MODULE_EXPORT int32_t pw_pdf_copy_pages(const char *path, const pw_pdf_sink *sink,
                                           int32_t parent, char *version, size_t version_size,
                                           pw_module_error *error);

/* The same for the PDF held in `data`; `name` stands for it in failures. */
PW_MODULE_EXPORT int32_t pw_pdf_copy_pages_in_memory(const uint8_t *data, size_t size,
                                                     const char *name, const pw_pdf_sink *sink,
                                                     int32_t parent, char *version,
                                                     size_t version_size, pw_module_error *error);

#ifdef __cplusplus
}

namespace pw::pdf {

inline constexpr char kModule[] = "pw_pdf_reading.so";
inline constexpr char kCountPages[] = "pw_pdf_count_pages";
using CountPages = decltype(&pw_pdf_count_pages);
inline constexpr char kCopyPages[] = "pw_pdf_copy_pages";
using CopyPages = decltype(&pw_pdf_copy_pages);
inline constexpr char kCopyPagesInMemory[] = "pw_pdf_copy_pages_in_memory";
using CopyPagesInMemory = decltype(&pw_pdf_copy_pages_in_memory);

} // namespace pw::pdf
#endif
