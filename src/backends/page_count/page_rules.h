#pragma once
// Which files have a page count, how it is counted, and how a count becomes the text of a
// "Pages" cell.

#include "page_count.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace pw {

enum class PageKind { None, Tiff, Pdf };

// By the text after the last dot, without regard to case: TIF and TIFF, or PDF.
PageKind PageKindOf(std::string_view name);

// The two counters, made once at start and shared by everything that counts pages.
struct PageCounters {
    TiffPageCounter tiff;
    PdfPageCounter pdf;

    // The page count of a file of `kind` at `utf8Path`; 0 for other kinds.
    int32_t CountPages(PageKind kind, const std::string &utf8Path) const;
};

// "Error" for a failed count, else the number. The two kinds differ on purpose: a TIFF
// fails only below 0, so 0 pages shows "0"; a PDF with 0 pages is "Error".
std::string PagesCellText(PageKind kind, int32_t count);

} // namespace pw
