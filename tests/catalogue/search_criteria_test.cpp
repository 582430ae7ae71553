#include "catalogue/search_criteria.h"
#include "core/failure_log.h"

#include "sandbox.h"

#include <gtest/gtest.h>

using namespace pw;

TEST(SearchCriteria, WildcardsMatchWithoutRegardToCase)
{
    for (const auto &[name, pattern, match] : {std::tuple("scan.TIF", "*.tif", true),
                                               {"a.b.tif", "*.tif", true},
                                               {"x1.png", "x?.png", true},
                                               {"README", "*.*", true},
                                               {"README", "*.", true},
                                               {"scan.tif", " *.tif", true},
                                               {"scan.tif", "*.jpg;*.tif", true},
                                               {"Ünïcode.JPG", "ü*.jpg", true},
                                               {"scan.tiff", "*.tif", false},
                                               {"x12.png", "x?.png", false},
                                               {"scan.tif", "", false},
                                               {"report.pdf", "*.tif *.pdf", false}})
        EXPECT_EQ(PathMatchSpec(QString::fromUtf8(name), QString::fromUtf8(pattern)), match)
            << name << " ~ " << pattern;
}

TEST(SearchCriteria, PatternTextsSplitAtSemicolonBeforeComma)
{
    EXPECT_EQ(*GenerateFilterPatternArray("*.tif,*.pdf"), QStringList({"*.tif", "*.pdf"}));
    EXPECT_EQ(*GenerateFilterPatternArray("*.tif; *.pdf,*.jpg"),
              QStringList({"*.tif", " *.pdf,*.jpg"}));
    EXPECT_FALSE(GenerateFilterPatternArray(" *.* ").has_value());

    // A blank after ";" stays in the second pattern, and the match skips it.
    EXPECT_TRUE(IsFileMatchWithFilterPattern("a.pdf", GenerateFilterPatternArray("*.tif; *.pdf")));
}

TEST(SearchCriteria, StarDotStarFindsNothingAndLogsOncePerFile)
{
    SandboxDir box;
    SetErrorLogFolder(box.path());
    const auto none = GenerateFilterPatternArray("*.*");
    EXPECT_FALSE(IsFileMatchWithFilterPattern("a.tif", none));
    EXPECT_FALSE(IsFileMatchWithFilterPattern("b.tif", none));
    const QByteArray text = readFile(box.filePath("Errors.Log"));
    EXPECT_EQ(text.count("\r\n"), 2);
    EXPECT_TRUE(text.startsWith("Error 9 (Subscript out of range) in procedure "
                                "IsFileMatchWithFilterPattern at Line No. "));
    SetErrorLogFolder({});
}

namespace {

const QDate today(2026, 3, 31);

QDateTime at(int y, int m, int d, int h = 12)
{
    return QDateTime(QDate(y, m, d), QTime(h, 0));
}

bool passes(const AdvanceOptions &o, const QDateTime &when, qint64 size = 100)
{
    return IsFileMatchWithAdvanceOptions({when, when, when, size}, o, today);
}

AdvanceOptions dateOptions()
{
    AdvanceOptions o;
    o.useAdvOpt = true;
    o.searchByDate = 1;
    o.inPeriod = true;
    o.inPeriodText = "1";
    o.dateInPeriodText = "Month(s)";
    o.dateRangeTypeText = "Files Modified";
    return o;
}

AdvanceOptions sizeOptions(const QString &leastMost, const QString &limit)
{
    AdvanceOptions o;
    o.useAdvOpt = true;
    o.searchBySize = 1;
    o.sizeAt = true;
    o.leastMostText = leastMost;
    o.sizeLeastMostText = limit;
    return o;
}

} // namespace

TEST(AdvanceOptions, InTheLastPeriodUsesCalendarArithmetic)
{
    // Today is 31 March: a month back is 28 February, "0" is today alone, and a span that
    // overflows a 16-bit number lets nothing through.
    const struct {
        const char *span, *unit;
        QDateTime modified;
        bool pass;
    } cases[] = {
        {"1", "Month(s)", at(2026, 2, 28, 0), true}, {"1", "Month(s)", at(2026, 2, 27, 23), false},
        {"1", "Month(s)", at(2026, 4, 1), false},    {"0", "Month(s)", at(2026, 3, 31, 23), true},
        {"0", "Month(s)", at(2026, 3, 30), false},   {"3", "Day(s)", at(2026, 3, 28), true},
        {"3", "Day(s)", at(2026, 3, 27), false},     {"40000", "Month(s)", at(2026, 3, 31), false},
    };
    for (const auto &c : cases) {
        AdvanceOptions o = dateOptions();
        o.inPeriodText = c.span;
        o.dateInPeriodText = c.unit;
        EXPECT_EQ(passes(o, c.modified), c.pass)
            << c.span << " " << c.unit << " " << c.modified.toString().toStdString();
    }
}

TEST(AdvanceOptions, BetweenIsInclusiveByWholeDaysAndNeverSwapped)
{
    AdvanceOptions o = dateOptions();
    o.inPeriod = false;
    o.dateFrom = at(2026, 1, 10, 18);
    o.dateTo = at(2026, 1, 10, 6);
    EXPECT_TRUE(passes(o, at(2026, 1, 10, 0)));
    EXPECT_TRUE(passes(o, at(2026, 1, 10, 23)));
    o.dateFrom = at(2026, 2, 1);
    o.dateTo = at(2026, 1, 1);
    EXPECT_FALSE(passes(o, at(2026, 1, 15)));
}

TEST(AdvanceOptions, WhichDateCountsAndTypedKindsSkipTheTest)
{
    AdvanceOptions o = dateOptions();
    const FileFacts f{at(2020, 1, 1), at(2026, 3, 30), at(2019, 1, 1), 10};
    for (const auto &[kind, pass] : {std::pair("Files Created", false),
                                     {"Files Modified", true},
                                     {"Files Last Accessed", false},
                                     {"whatever was typed", true}}) {
        o.dateRangeTypeText = kind;
        EXPECT_EQ(IsFileMatchWithAdvanceOptions(f, o, today), pass) << kind;
    }
}

// A limit that is no number, or overflows, silently lets nothing through.
TEST(AdvanceOptions, SizesInRoundedUpKilobytesAndBadNumbersFailSilently)
{
    const struct {
        const char *leastMost;
        const char *limit;
        qint64 size;
        bool pass;
    } cases[] = {
        {"Most", "0", 0, true},     {"Most", "0", 1, false},
        {"Least", "2", 1025, true}, {"Least", "3", 2049, true},
        {"Most", "1", 1024, true},  {"Most", "1", 1025, false},
        {"Least", "abc", 0, false}, {"Least", "99999999999", 0, false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(passes(sizeOptions(c.leastMost, c.limit), {}, c.size), c.pass)
            << c.leastMost << " " << c.limit << " " << c.size;

    AdvanceOptions between = sizeOptions("Least", "0");
    between.sizeAt = false;
    between.sizeFromText = "2";
    between.sizeToText = "3";
    EXPECT_TRUE(passes(between, {}, 3072));
    EXPECT_FALSE(passes(between, {}, 3073));
    between.sizeFromText = "5"; // low above high: nothing passes
    EXPECT_FALSE(passes(between, {}, 4096));
    between.useAdvOpt = false; // switched off, every file passes
    EXPECT_TRUE(passes(between, {}, 4096));
}
