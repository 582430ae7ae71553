#include "page_range.h"

#include <algorithm>
#include <optional>
#include <string>

namespace pw::pages {

namespace {

// Larger than any page count, so that an absurd number is merely past the end.
constexpr long long kBeyond = 1LL << 40;

// A page number of digits only; 0 is not a page.
std::optional<long long> digitsValue(std::string_view digits)
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

// "7", "z" (the last page) or "r2" (the second from the end), as qpdf reads them. A page
// counted from the end may fall before the first page: it is then merely outside the document.
std::optional<long long> pageNumber(std::string_view text, long long pageCount)
{
    if (text == "z")
        return pageCount;
    if (!text.empty() && text.front() == 'r') {
        const auto back = digitsValue(text.substr(1));
        if (!back)
            return std::nullopt;
        return pageCount + 1 - *back;
    }
    return digitsValue(text);
}

// From `first` to `last`, either way round.
struct Span {
    long long first, last;
};

std::optional<Span> span(std::string_view item, long long pageCount)
{
    const size_t dash = item.find('-');
    if (dash == std::string_view::npos) {
        const auto page = pageNumber(item, pageCount);
        if (!page)
            return std::nullopt;
        return Span{*page, *page};
    }
    const std::string_view from = item.substr(0, dash);
    const std::string_view to = item.substr(dash + 1);
    // "-" alone names no end at all; the user meant something we cannot guess.
    if (from.empty() && to.empty())
        return std::nullopt;
    const auto first = from.empty() ? std::optional<long long>(1) : pageNumber(from, pageCount);
    const auto last = to.empty() ? std::optional<long long>(std::max(pageCount, first.value_or(0)))
                                 : pageNumber(to, pageCount);
    if (!first || !last)
        return std::nullopt;
    return Span{*first, *last};
}

// The pages of `s` inside the document, in the span's direction.
void addPages(const Span &s, long long pageCount, std::vector<int> &pages)
{
    const long long step = s.first <= s.last ? 1 : -1;
    const long long low = std::max(1LL, std::min(s.first, s.last));
    const long long high = std::min(pageCount, std::max(s.first, s.last));
    if (low > high)
        return;
    for (long long page = step > 0 ? low : high; page >= low && page <= high; page += step)
        pages.push_back(int(page));
}

// Keeps the first, third ... (`odd`) or second, fourth ... of `pages`.
std::vector<int> everyOther(const std::vector<int> &pages, bool odd)
{
    std::vector<int> kept;
    for (size_t i = odd ? 0 : 1; i < pages.size(); i += 2)
        kept.push_back(pages[i]);
    return kept;
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

    // "1-9:odd" takes every other page of what the range selects; "odd" alone, of all pages.
    std::optional<bool> odd;
    const size_t colon = text.find(':');
    const std::string qualifier = colon == std::string::npos ? text : text.substr(colon + 1);
    if (qualifier == "odd" || qualifier == "even") {
        odd = qualifier == "odd";
        text = colon == std::string::npos ? "" : text.substr(0, colon);
    } else if (colon != std::string::npos) {
        return {};
    }

    if (text.empty() || text == "0") {
        addPages({1, pageCount}, pageCount, pages);
        return odd ? everyOther(pages, *odd) : pages;
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
        addPages(s, pageCount, pages);
    return odd ? everyOther(pages, *odd) : pages;
}

std::string pageLabel(int page, int pageCount)
{
    const std::string digits = std::to_string(page);
    const size_t width = std::to_string(std::max(pageCount, page)).size();
    return std::string(width - digits.size(), '0') + digits;
}

} // namespace pw::pages
