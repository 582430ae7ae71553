#include "core/failure_log.h"

#include "sandbox.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QLocale>
#include <QRegularExpression>

#include <functional>
#include <new>

using namespace pw;

namespace {

class FailureLog : public ::testing::Test {
protected:
    void SetUp() override
    {
        // The time stamp follows the user's locale; a fixed one makes it matchable.
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        SetErrorLogFolder(box.path());
    }
    void TearDown() override
    {
        QLocale::setDefault(QLocale::system());
        SetErrorLogFolder({});
    }
    // The log's bytes with each time stamp replaced by "<date>".
    QString log() const
    {
        static const QRegularExpression stamp(R"(\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d\r\n)");
        return QString::fromUtf8(readFile(box.filePath("Errors.Log"))).replace(stamp, "<date>\r\n");
    }
    SandboxDir box;
};

int lastStepLine = 0;

// A procedure in the idiom: sets its result, then fails at its second step.
int failingProcedure(const Unit &unit, const std::function<void()> &fail)
{
    int result = 0;
    PW_PROCEDURE("DoWork", unit);
    guarded(pwTail, [&] {
        PW_STEP;
        result = 7;
        PW_STEP, lastStepLine = __LINE__; // one line, so both read the same number
        fail();
    });
    return result;
}

} // namespace

// Other tools parse these lines, so each is pinned whole, wording and line ending included.
TEST_F(FailureLog, EachUnitAndFailureKindGivesTheLineTheLogReadersParse)
{
    const struct {
        Unit unit;
        std::function<void()> fail;
        const char *line; // %1 is the line number of the last step reached
    } cases[] = {
        {Unit::form("frmMain"), [] { throw RuntimeError::fromNumber(5); },
         "Error 5 (Invalid procedure call or argument) in procedure DoWork at Line No. %1 of "
         "Form frmMain at time- <date>\r\n"},
        {Unit::classModule("Settings"), [] { throw RuntimeError(10000, ""); },
         "Error 10000 () in procedure DoWork at Line No. %1 of Class Module Settings at time- "
         "<date>\r\n"},
        // The units without " at time" keep their mixed wording; the readers expect it.
        {Unit::formWithoutTime("dlgSave"), [] { throw std::bad_alloc(); },
         "Error 7 (Out of memory) in procedure DoWork at Line No. %1 of Form dlgSave- <date>\r\n"},
        {Unit::module("modGeneral"), [] { throw std::runtime_error("qpdf: damaged file"); },
         "Error 5 (qpdf: damaged file) in procedure DoWork at Line No. %1 of Module modGeneral "
         "at time- <date>\r\n"},
        {Unit::module("modGeneral"), [] { throw 42; },
         "Error 5 (Invalid procedure call or argument) in procedure DoWork at Line No. %1 of "
         "Module modGeneral at time- <date>\r\n"},
    };
    QString expected;
    for (const auto &c : cases) {
        EXPECT_EQ(failingProcedure(c.unit, c.fail), 7) << "a result set before the failure stays";
        expected += QString::fromUtf8(c.line).arg(lastStepLine);
        EXPECT_EQ(log(), expected) << "each failure appends exactly one line";
    }
}

TEST_F(FailureLog, SuccessWritesNothingAndAnUnwritableLogLosesTheLineSilently)
{
    PW_PROCEDURE("Quiet", Unit::module("modGeneral"));
    EXPECT_TRUE(guarded(pwTail, [] {}));
    EXPECT_FALSE(QFile::exists(box.filePath("Errors.Log")));

    SetErrorLogFolder(box.filePath("no/such/folder"));
    EXPECT_FALSE(guarded(pwTail, [] { throw RuntimeError::fromNumber(6); }));
    EXPECT_FALSE(QFile::exists(box.filePath("no/such/folder/Errors.Log")));
}
