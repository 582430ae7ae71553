#include "core/runtime.h"

#include "sandbox.h"

#include <gtest/gtest.h>

#include <QLocale>

using namespace pw;

namespace {

// Runs `f` and returns the run-time error number it raised, or 0.
template <typename F> int raisedNumber(F &&f)
{
    try {
        f();
    } catch (const RuntimeError &e) {
        return e.number();
    }
    return 0;
}

class EnglishLocale : public ::testing::Test {
protected:
    void SetUp() override { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }
    void TearDown() override { QLocale::setDefault(QLocale::system()); }
};

} // namespace

TEST(Runtime, ValReadsTheLeadingNumberWhileIsNumericNeedsTheWholeText)
{
    const struct {
        const char *text;
        double value;
    } cases[] = {
        {"", 0},        {"abc", 0},    {"12abc", 12}, {"  42 ", 42}, {"1 2 3", 123},
        {"-3.5", -3.5}, {"1e3", 1000}, {"1e", 1},     {"&H1F", 31},  {"&O17", 15},
        {"2.tif", 2},   {"1,5", 1},    {".5", 0.5},   {"+7x", 7},
    };
    for (const auto &c : cases)
        EXPECT_DOUBLE_EQ(Val(c.text), c.value) << c.text;
    for (const char *numeric : {"12", " -1.5 "})
        EXPECT_TRUE(IsNumeric(numeric)) << numeric;
    for (const char *text : {"", "Error", "12 KB"})
        EXPECT_FALSE(IsNumeric(text)) << text;
}

TEST(Runtime, IntegerConversionsRoundToEvenAndRaiseOverflowOrTypeMismatch)
{
    EXPECT_EQ(CInt(QString("2.5")), 2);
    EXPECT_EQ(CInt(QString("3.5")), 4);
    EXPECT_EQ(CInt(QString(" -7 ")), -7);
    EXPECT_EQ(CInt(QVariant()), 0);
    EXPECT_EQ(CLng(QString("70000")), 70000);

    EXPECT_EQ(raisedNumber([] { CInt(QString("32768")); }), 6);
    EXPECT_EQ(raisedNumber([] { CLng(QString("3000000000")); }), 6);
    EXPECT_EQ(raisedNumber([] { CInt(QString("abc")); }), 13);
    EXPECT_EQ(raisedNumber([] { CInt(QString("")); }), 13);
}

TEST_F(EnglishLocale, DatesAndNumbersFormatByTheClassicPatterns)
{
    const QDateTime afternoon(QDate(2026, 3, 7), QTime(15, 4, 9));
    const QDateTime midnight(QDate(2026, 3, 7), QTime(0, 30));
    EXPECT_EQ(FormatDate(afternoon, "dd/mm/yyyy hh:mm ampm"), "07/03/2026 03:04 PM")
        << "mm after an hour token means minutes";
    EXPECT_EQ(FormatDate(midnight, "hh:mm ampm"), "12:30 AM");
    EXPECT_EQ(FormatNumber(0, "###,###,##0"), "0");
    EXPECT_EQ(FormatNumber(999, "###,###,##0"), "999");
    EXPECT_EQ(FormatNumber(1234567, "###,###,##0"), "1,234,567");

    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(FormatDate(afternoon, "dd/mm/yyyy"), "07.03.2026") << "the locale's date separator";
    EXPECT_EQ(GeneralDate(QDateTime(QDate(2026, 11, 16), QTime(6, 17, 32))), "16.11.2026 06:17:32");
}

TEST(Runtime, DateAddKeepsTheCalendar)
{
    const QDateTime march31(QDate(2026, 3, 31), QTime(0, 0));
    EXPECT_EQ(DateAdd("m", -1, march31).date(), QDate(2026, 2, 28));
    EXPECT_EQ(DateAdd("m", -1, QDateTime(QDate(2024, 3, 31), QTime())).date(), QDate(2024, 2, 29));
    EXPECT_EQ(DateAdd("d", -31, march31).date(), QDate(2026, 2, 28));
    EXPECT_EQ(raisedNumber([&] { DateAdd("x", 1, march31); }), 5);
}

TEST(Runtime, TextHelpersFollowTheClassicEdges)
{
    EXPECT_EQ(InStrRev("a.b.tif", "."), 4);
    EXPECT_EQ(InStrRev("abc", "."), 0);
    EXPECT_TRUE(Split("", ",").isEmpty()) << "an empty text has no element at all";
    EXPECT_EQ(Split("a,,b", ","), QStringList({"a", "", "b"}));
    EXPECT_EQ(Split("a;b", ","), QStringList({"a;b"}));
}
