#pragma once

// The page ranges users type ("1-3,7,10-", "z-1", "r3-z:odd"), read the same way wherever a
// page range is asked for. No PDF library here: the engine checks a range before any file is
// opened.

#include <string>
#include <string_view>
#include <vector>

namespace pw::pages {

// The 1-based pages `range` selects in a document of `pageCount` pages, in the order and with
// the repeats the text gives. "z" is the last page, "rN" the Nth from the end, a span may run
// backwards ("5-1"), and ":odd" or ":even" after a range (or alone) keeps every other page of
// what it selects. Every page for "0" or an empty text; pages outside the document are skipped;
// nothing for a range that cannot be read ("a", "1--2", "1,,2").
std::vector<int> pagesOfRange(std::string_view range, int pageCount);

// `page` padded with zeros to the width of `pageCount` ("007" of 120), as pdftoppm and qpdf
// number their files: the names of a document's pages then sort in page order.
std::string pageLabel(int page, int pageCount);

} // namespace pw::pages
