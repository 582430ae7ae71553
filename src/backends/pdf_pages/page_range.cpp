#include "page_range.h"

#include <algorithm>
#include <optional>
#include <string>

namespace pw::pages {

namespace {

// Larger than any page count, so that an absurd number is merely past the end.
constexpr long long kBeyond = 1LL << 40;

// A page number of digits only; 0 is not a page.
std::optional<long long> pageNumber(std::string_view digits)
{
    if (digits.empty())
        return std::nullopt;
    long long value = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9')
            return std::nullopt;
        value = std::min(value * 10 + (c - '0'), kBeyond);
    }
    if (value == 0)
        return std::nullopt;
    return value;
}

struct Span {
    long long first, last;
};

std::optional<Span> span(std::string_view item, long long pageCount)
{
    const size_t dash = item.find('-');
    if (dash == std::string_view::npos) {
        const auto page = pageNumber(item);
        if (!page)
            return std::nullopt;
        return Span{*page, *page};
    }
    const std::string_view from = item.substr(0, dash);
    const std::string_view to = item.substr(dash + 1);
    // "-" alone names no end at all; the user meant something we cannot guess.
    if (from.empty() && to.empty())
        return std::nullopt;
    const auto first = from.empty() ? std::optional<long long>(1) : pageNumber(from);
    if (!first)
        return std::nullopt;
    const auto last =
        to.empty() ? std::optional<long long>(std::max(pageCount, *first)) : pageNumber(to);
    if (!last || *last < *first)
        return std::nullopt;
    return Span{*first, *last};
}

} // namespace

std::vector<int> pagesOfRange(std::string_view range, int pageCount)
{
    std::string text;
    for (const char c : range)
        if (c != ' ' && c != '\t')
            text += c;
    std::vector<int> pages;
    if (pageCount <= 0)
        return pages;
    if (text.empty() || text == "0") {
        pages.reserve(size_t(pageCount));
        for (int page = 1; page <= pageCount; ++page)
            pages.push_back(page);
        return pages;
    }

    std::vector<Span> spans;
    for (size_t start = 0;;) {
        const size_t comma = text.find(',', start);
        const auto item = std::string_view(text).substr(start, comma - start);
        const auto found = span(item, pageCount);
        if (!found)
            return {};
        spans.push_back(*found);
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    for (const Span &s : spans)
        for (long long page = s.first; page <= std::min<long long>(s.last, pageCount); ++page)
            pages.push_back(int(page));
    return pages;
}

} // namespace pw::pages
