#include "flex_grid_model.h"
#include "flex_grid_sort.h"

#include <gtest/gtest.h>

#include <QLocale>
#include <QStringList>

#include <algorithm>
#include <string>
#include <utility>
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
        {"page10", "page2", 1},
        {"a007", "a7", 0}, // leading zeros don't make a number larger
        {"x99999999999999999999999", "x100000000000000000000000", -1}, // beyond 64 bits
        {"abc", "abcd", -1},
    };
    for (const Case &c : cases)
        EXPECT_EQ(Sign(flexsort::NaturalCompare(c.a, c.b)), c.expected) << c.a << " vs " << c.b;
}

QStringList Column(const FlexGridModel &grid, int col)
{
    QStringList cells;
    for (int row = 1; row < grid.rows(); ++row)
        cells.push_back(grid.text(row, col));
    return cells;
}

// Sets the locale that the grid reads its separators and day-half markers from, for one test.
class DefaultLocale {
public:
    explicit DefaultLocale(const QLocale &locale) { QLocale::setDefault(locale); }
    ~DefaultLocale() { QLocale::setDefault(previous_); }

private:
    QLocale previous_;
};

struct SortCase {
    const char *name;
    int dataType;
    const char *format;
    int order;
    const char *cells, *expected; // separated by "|"
    const char *locale = "C";
};

class FlexGridModelSortTest : public ::testing::TestWithParam<SortCase> {};

TEST_P(FlexGridModelSortTest, OrdersTheColumn)
{
    const SortCase &c = GetParam();
    const DefaultLocale locale{QLocale(QString(c.locale))};
    FlexGridModel grid;
    grid.setCols(1);
    grid.setText(0, 0, "Key");
    for (const QString &cell : QString(c.cells).split('|'))
        grid.addItem(cell);
    grid.setColumnDataType(0, c.dataType);
    grid.setColumnFormat(0, c.format);
    grid.sortRows(0, 0, c.order);
    EXPECT_EQ(Column(grid, 0), QString(c.expected).split('|'));
    EXPECT_EQ(grid.text(0, 0), "Key") << "the header row moved";
}

using namespace flexgrid;
const char *const kDayMonth = "dd/mm/yyyy hh:mm ampm";

const SortCase kSorts[] = {
    // Numeric order: the leading number of a cell, the rest breaking ties by its own digit runs.
    // Leading zeros don't make a number larger; digit runs may be longer than 64 bits.
    {"NumericNames", kText, "", kNumericAscending,
     "10.tif|2.tif|1.tif|b.tif|a10.tif|a9.tif|a09.tif|x100000000000000000000.tif|"
     "x99999999999999999999.tif",
     "1.tif|2.tif|10.tif|a09.tif|a9.tif|a10.tif|b.tif|x99999999999999999999.tif|"
     "x100000000000000000000.tif"},
    // Sizes: a group separator counts only before three digits.
    {"NumericSizes", kDecimal, "", kNumericAscending,
     "1,234 KB|999 KB|12 KB|1,000,001 KB|1,23 KB|-3 KB|2.5 KB|2.25 KB",
     "-3 KB|1,23 KB|2.25 KB|2.5 KB|12 KB|999 KB|1,234 KB|1,000,001 KB"},
    {"NumericSizesInTheUsersLocale", kDecimal, "", kNumericAscending,
     "1.234 KB|999 KB|2,5 KB|2,25 KB", "2,25 KB|2,5 KB|999 KB|1.234 KB", "de_DE"},
    // Blank cells come before everything ascending and after everything descending; a text
    // that is no number comes after the numbers.
    {"NumericPagesWithErrorAndBlank", kDecimal, "", kNumericAscending, "Error|12||3",
     "|3|12|Error"},
    {"NumericDescendingPagesWithErrorAndBlank", kDecimal, "", kNumericDescending, "Error|3||12",
     "Error|12|3|"},
    // Generic order takes a cell as a number only when it is one.
    {"GenericIsTextForNames", kText, "", kGenericAscending, "10.tif|2.tif|B.tif|a.tif",
     "10.tif|2.tif|a.tif|B.tif"},
    {"GenericNumbersAsNumbers", kDecimal, "", kGenericAscending, "10|9|100|-3|2.5|-10.5|x|",
     "|-10.5|-3|2.5|9|10|100|x"},
    {"GenericDescending", kText, "", kGenericDescending, "b|C|a", "C|b|a"},
    // Equal keys keep the order they had, in either direction.
    {"EqualNumbersKeepTheirOrder", kDecimal, "", kGenericAscending, "1.0|1|01|0", "0|1.0|1|01"},
    {"EqualNumbersKeepTheirOrderDescending", kDecimal, "", kGenericDescending, "1.0|1|01|2",
     "2|1.0|1|01"},
    // Text orders: without case, equal-looking texts still come in one order every time.
    {"StringNoCase", kText, "", kStringNoCaseAscending, "b|B|a|A", "A|a|B|b"},
    {"StringNoCaseDescending", kText, "", kStringNoCaseDescending, "b|A|B|a", "b|B|a|A"},
    {"StringWithCase", kText, "", kStringAscending, "b|B|a|A", "A|B|a|b"},
    {"StringWithCaseDescending", kText, "", kStringDescending, "a|B|b|A", "b|a|B|A"},
    {"StringOrderTakesNumbersAsText", kDecimal, "", kStringNoCaseAscending, "9|10|100", "10|100|9"},
    // Dates in the column's format: day before month, 12 AM is midnight and 12 PM noon; what is
    // no date comes after the dates.
    {"DatesAsDates", kDate, kDayMonth, kGenericAscending,
     "01/02/2024 09:00 AM|02/01/2024 09:00 AM|01/02/2024 01:00 PM|31/12/2023 11:59 PM|"
     "01/02/2024 12:00 PM|13/13/2023 10:00 AM|01/02/2024 12:30 AM",
     "31/12/2023 11:59 PM|02/01/2024 09:00 AM|01/02/2024 12:30 AM|01/02/2024 09:00 AM|"
     "01/02/2024 12:00 PM|01/02/2024 01:00 PM|13/13/2023 10:00 AM"},
    {"DatesDescendingNumericCode", kDate, kDayMonth, kNumericDescending,
     "02/01/2024 09:00 AM|01/02/2024 09:00 AM", "01/02/2024 09:00 AM|02/01/2024 09:00 AM"},
    {"TwoDigitYearsBeforeThirtyAreThisCentury", kDate, "dd/mm/yy", kGenericAscending,
     "01/01/99|01/01/05|01/01/29|01/01/30", "01/01/30|01/01/99|01/01/05|01/01/29"},
    // Without a format a date column reads ISO dates, their offsets from UTC included.
    {"IsoDatesWithoutFormat", kDate, "", kGenericAscending,
     "2024-01-01T06:00:00Z|2024-01-01T10:00:00+05:00|2023-12-31",
     "2023-12-31|2024-01-01T10:00:00+05:00|2024-01-01T06:00:00Z"},
    {"DatesByTextInATextOrder", kDate, "", kStringNoCaseAscending,
     "2024-01-01T10:00:00+05:00|2024-01-01T06:00:00Z",
     "2024-01-01T06:00:00Z|2024-01-01T10:00:00+05:00"},
};

INSTANTIATE_TEST_SUITE_P(Orders, FlexGridModelSortTest, ::testing::ValuesIn(kSorts),
                         [](const auto &info) { return std::string(info.param.name); });

// Cells live in slots that removals free and later rows reuse: a sort must move every part of a
// row, whatever slot it sits in.
TEST(FlexGridModelSort, RowsMoveWholeAfterRemovalsAndMoves)
{
    FlexGridModel grid;
    grid.setCols(3);
    grid.setColumnDataType(2, kBoolean);
    for (const char *key : {"5", "gone", "3", "1", "gone too"})
        grid.addItem(QString("%1\tother of %1").arg(key));
    grid.removeItem(2);
    grid.removeItem(4);
    for (const char *key : {"4", "2"}) // into the freed slots
        grid.addItem(QString("%1\tother of %1").arg(key));
    grid.moveRow(4, 1);
    const auto markRow = [&](int row) {
        grid.setCheck(row, 2, kChecked);
        grid.setPicture(row, 0, "image/tiff");
        grid.setForeColor(row, 1, 255);
    };
    markRow(1);
    const QString marked = grid.text(1, 0);

    grid.sortRows(0, 0, kGenericAscending);
    EXPECT_EQ(Column(grid, 0), QStringList({"1", "2", "3", "4", "5"}));
    for (int row = 1; row < grid.rows(); ++row) {
        const QString key = grid.text(row, 0);
        const bool isMarked = key == marked;
        EXPECT_EQ(grid.text(row, 1), "other of " + key);
        EXPECT_EQ(grid.check(row, 2), isMarked ? kChecked : kUnchecked) << key.toStdString();
        EXPECT_EQ(grid.picture(row, 0).isEmpty(), !isMarked) << key.toStdString();
        EXPECT_EQ(grid.foreColor(row, 1), isMarked ? 255 : FlexGridModel::kDefaultColor);
    }
}

// Later columns of a multi-column sort break the ties of earlier ones; the columns may be
// given in either order and beyond the grid, and "no order" leaves the rows alone.
TEST(FlexGridModelSort, LaterColumnsBreakTiesOfEarlierOnes)
{
    const struct {
        int firstCol, lastCol, order;
        const char *expected;
    } cases[] = {
        {0, 1, kGenericAscending, "a 2|a 10|b 1|b 2"},
        {1, 0, kGenericAscending, "a 2|a 10|b 1|b 2"},
        {0, 9, kGenericDescending, "b 2|b 1|a 10|a 2"},
        {0, 0, kGenericAscending, "a 2|a 10|b 2|b 1"},
        {0, 1, kSortNone, "b 2|a 2|b 1|a 10"},
    };
    for (const auto &c : cases) {
        FlexGridModel grid;
        grid.setCols(2);
        for (const char *row : {"b\t2", "a\t2", "b\t1", "a\t10"})
            grid.addItem(row);
        std::vector<std::pair<int, int>> sorted;
        QObject::connect(&grid, &FlexGridModel::rowsSorted,
                         [&](int col, int order) { sorted.emplace_back(col, order); });
        grid.sortRows(c.firstCol, c.lastCol, c.order);
        QStringList rows;
        for (int row = 1; row < grid.rows(); ++row)
            rows << grid.text(row, 0) + " " + grid.text(row, 1);
        EXPECT_EQ(rows, QString(c.expected).split('|')) << c.firstCol << ".." << c.lastCol;
        // Views show the order on the first column's header; no order, nothing to show.
        std::vector<std::pair<int, int>> expected;
        if (c.order != kSortNone)
            expected.emplace_back(std::min(c.firstCol, c.lastCol), c.order);
        EXPECT_EQ(sorted, expected);
    }
}

} // namespace
