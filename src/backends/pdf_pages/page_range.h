#pragma once

// The page ranges users type ("1-3,7,10-"), read the same way wherever a page range is asked
// for. No PDF library here: the engine checks a range before any file is opened.

#include <string_view>
#include <vector>

namespace pw::pages {

// The 1-based pages `range` selects in a document of `pageCount` pages, in the order and with
// the repeats the text gives. Every page for "0" or an empty text; pages past the end are
// skipped; nothing for a range that cannot be read ("a", "3-1", "1--2", "1,,2").
std::vector<int> pagesOfRange(std::string_view range, int pageCount);

} // namespace pw::pages
