#include "flex_grid_sort.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

int Sign(int v)
{
    return (v > 0) - (v < 0);
}

TEST(FlexSortTest, NaturalCompareTakesDigitRunsAsNumbers)
{
    struct Case {
        const char *a, *b;
        int expected;
    } cases[] = {
        {"2.tif", "10.tif", -1},
        {"page2", "page10", -1},
        {"page10", "page2", 1},
        {"a007", "a7", 0}, // leading zeros don't make a number larger
        {"a7b", "a7c", -1},
        {"x99999999999999999999999", "x100000000000000000000000", -1}, // beyond 64 bits
        {"abc", "abcd", -1},
        {"", "", 0},
    };
    for (const Case &c : cases)
        EXPECT_EQ(Sign(flexsort::NaturalCompare(c.a, c.b)), c.expected) << c.a << " vs " << c.b;
}

TEST(FlexSortTest, LeadingNumberReadsSizesAndNames)
{
    struct Case {
        const char *text;
        double value;
        int consumed;
    } cases[] = {
        {"1,234 KB", 1234, 5}, {"12,345,678 KB", 12345678, 10},
        {"2.tif", 2, 1},       {"2.5.tif", 2.5, 3},
        {"1,23", 1, 1},        {"  -3 x", -3, 4},
        {"Error", 0, 0},       {"", 0, 0},
        {"10", 10, 2},
    };
    for (const Case &c : cases) {
        int consumed = -1;
        EXPECT_DOUBLE_EQ(flexsort::LeadingNumber(c.text, consumed), c.value) << c.text;
        EXPECT_EQ(consumed, c.consumed) << c.text;
    }
}

TEST(FlexSortTest, DatesParseWithTheColumnFormat)
{
    const QString format = "dd/mm/yyyy hh:mm ampm";
    auto key = [&](const QString &text) {
        int64_t k = -1;
        EXPECT_TRUE(flexsort::ParseDateKey(text, format, "AM", "PM", k)) << text.toStdString();
        return k;
    };
    // Day before month, a 12-hour clock: text order would get all of these wrong.
    EXPECT_LT(key("02/01/2024 09:00 AM"), key("01/02/2024 09:00 AM"));
    EXPECT_LT(key("31/12/2023 11:59 PM"), key("01/01/2024 12:00 AM"));
    EXPECT_LT(key("05/03/2024 12:30 AM"), key("05/03/2024 01:00 AM")); // 12 AM is midnight
    EXPECT_LT(key("05/03/2024 11:00 AM"), key("05/03/2024 12:00 PM")); // 12 PM is noon
    EXPECT_LT(key("05/03/2024 12:00 PM"), key("05/03/2024 01:00 PM"));

    int64_t k = 0;
    EXPECT_FALSE(flexsort::ParseDateKey("not a date", format, "AM", "PM", k));
    EXPECT_FALSE(flexsort::ParseDateKey("13/13/2024 10:00 AM", format, "AM", "PM", k));
    // Qt-style formats read the same way.
    EXPECT_TRUE(flexsort::ParseDateKey("2024-03-05 17:45", "yyyy-MM-dd HH:mm", "AM", "PM", k));
}

} // namespace
