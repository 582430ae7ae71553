#pragma once
// Which files have a page count, and how a count becomes the text of a "Pages" cell.

#include <QString>

#include <cstdint>

namespace pw {

enum class PageKind { None, Tiff, Pdf };

// By the text after the last dot, without regard to case: TIF and TIFF, or PDF.
PageKind PageKindOf(const QString &name);

// The page count of a file of `kind`, from the program's counters; 0 for other kinds.
int32_t CountPages(PageKind kind, const QString &path);

// "Error" for a failed count, else the number. The two kinds differ on purpose: a TIFF
// fails only below 0, so 0 pages shows "0"; a PDF with 0 pages is "Error".
QString PagesCellText(PageKind kind, int32_t count);

} // namespace pw
