#include "page_rules.h"

#include <gtest/gtest.h>

using namespace pw;

TEST(PageRules, KindsComeFromTheLastExtensionAndZeroPagesAreAnErrorOnlyForPdf)
{
    const struct {
        const char *name;
        PageKind kind;
    } cases[] = {
        {"scan.tif", PageKind::Tiff}, {"SCAN.TIFF", PageKind::Tiff},
        {"a.b.Pdf", PageKind::Pdf},   {"report.pdf.txt", PageKind::None},
        {"pdf", PageKind::None},      {"photo.jpg", PageKind::None},
    };
    for (const auto &c : cases)
        EXPECT_EQ(PageKindOf(c.name), c.kind) << c.name;

    // TIFF and PDF fail differently on zero pages.
    EXPECT_EQ(PagesCellText(PageKind::Tiff, 0), "0");
    EXPECT_EQ(PagesCellText(PageKind::Tiff, -1), "Error");
    EXPECT_EQ(PagesCellText(PageKind::Tiff, 12), "12");
    EXPECT_EQ(PagesCellText(PageKind::Pdf, 0), "Error");
    EXPECT_EQ(PagesCellText(PageKind::Pdf, -3), "Error");
    EXPECT_EQ(PagesCellText(PageKind::Pdf, 1), "1");
}
