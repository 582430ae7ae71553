#pragma once

// The PDF reader, a module of its own (pw_pdf_reading.so): qpdf and the cryptography it brings
// cost every start of a program a few milliseconds, and most runs of the batch tool never open
// a PDF. Callers look the entry points up by these names with pw::moduleSymbol.

#include <cstdint>
#include <string>
#include <vector>

namespace pw::i2p {
class PdfWriter;
}

namespace pw::pdf {

inline constexpr char kModule[] = "pw_pdf_reading.so";

// Pages of the PDF at `path` (UTF-8), or 0 when it cannot be opened (missing, not a PDF,
// encrypted with an unknown password, beyond repair) or has no pages. Never throws.
inline constexpr char kCountPages[] = "pw_pdf_count_pages";
using CountPages = int32_t (*)(const std::string &path);

// Writes every page of the PDF at `path` into `out`, with whatever the pages use, each page
// under /Parent `parent`; appends the pages' object numbers to `pages` and raises `version`
// to the file's. Throws ApFailure for a file that cannot be read; what was written by then is
// for the caller to take back.
inline constexpr char kCopyPages[] = "pw_pdf_copy_pages";
using CopyPages = void (*)(const std::string &path, i2p::PdfWriter &out, int parent,
                           std::vector<int> &pages, std::string &version);

} // namespace pw::pdf
