#include "flex_grid_sort.h"

#include <gtest/gtest.h>

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
        {"page10", "page2", 1},
        {"a007", "a7", 0}, // leading zeros don't make a number larger
        {"x99999999999999999999999", "x100000000000000000000000", -1}, // beyond 64 bits
        {"abc", "abcd", -1},
    };
    for (const Case &c : cases)
        EXPECT_EQ(Sign(flexsort::NaturalCompare(c.a, c.b)), c.expected) << c.a << " vs " << c.b;
}

} // namespace
