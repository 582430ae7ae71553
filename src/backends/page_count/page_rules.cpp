#include "page_rules.h"

#include <algorithm>
#include <cctype>

namespace pw {

namespace {

bool SameNoCase(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::toupper(static_cast<unsigned char>(x)) ==
               std::toupper(static_cast<unsigned char>(y));
    });
}

} // namespace

PageKind PageKindOf(std::string_view name)
{
    const size_t dot = name.rfind('.');
    if (dot == std::string_view::npos)
        return PageKind::None;
    const std::string_view ext = name.substr(dot + 1);
    if (SameNoCase(ext, "TIF") || SameNoCase(ext, "TIFF"))
        return PageKind::Tiff;
    if (SameNoCase(ext, "PDF"))
        return PageKind::Pdf;
    return PageKind::None;
}

int32_t PageCounters::CountPages(PageKind kind, const std::string &utf8Path) const
{
    switch (kind) {
    case PageKind::Tiff:
        return tiff.GetPageCount(utf8Path);
    case PageKind::Pdf:
        return pdf.GetPageCount(utf8Path);
    case PageKind::None:
        break;
    }
    return 0;
}

std::string PagesCellText(PageKind kind, int32_t count)
{
    const bool failed = kind == PageKind::Pdf ? count <= 0 : count < 0;
    return failed ? "Error" : std::to_string(count);
}

} // namespace pw
