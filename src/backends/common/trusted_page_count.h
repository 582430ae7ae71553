#pragma once

// The page count a PDF's page tree claims, for the modules built on qpdf.

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include <cstdint>
#include <limits>

namespace pw {

// The page tree's own /Count, when it is plausible enough to believe without reading a
// single page object; -1 otherwise. Counting a long document's pages one by one costs a
// second where qpdf --show-npages and pdfinfo answer at once, but a forged or broken /Count
// (0, negative, absurdly large, or fewer than the root's own kids) must not be shown.
inline int64_t trustworthyCount(QPDF &pdf)
{
    QPDFObjectHandle pages = pdf.getRoot().getKey("/Pages");
    if (!pages.isDictionary())
        return -1;
    QPDFObjectHandle count = pages.getKey("/Count");
    QPDFObjectHandle kids = pages.getKey("/Kids");
    if (!count.isInteger() || !kids.isArray())
        return -1;
    const long long value = count.getIntValue();
    if (value < 1 || value > std::numeric_limits<int32_t>::max())
        return -1;
    const int kidCount = kids.getArrayNItems();
    if (kidCount < 1 || kidCount > value)
        return -1;
    return value;
}

} // namespace pw
