#include "core/failure_log.h"
#include "core/globals.h"

#include "sandbox.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QLocale>
#include <QRegularExpression>

using namespace pw;

namespace {

class FailureLog : public ::testing::Test {
protected:
    void SetUp() override
    {
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        FileStoragePath = box.path();
    }
    void TearDown() override
    {
        QLocale::setDefault(QLocale::system());
        FileStoragePath.clear();
    }
    QStringList lines() const
    {
        QFile f(box.filePath("Errors.Log"));
        if (!f.open(QIODevice::ReadOnly))
            return {};
        QStringList out = QString::fromUtf8(f.readAll()).split("\r\n");
        out.removeLast(); // every line ends in CR LF
        return out;
    }
    SandboxDir box;
};

int lastStepLine = 0;

// A procedure in the idiom: sets its result, then fails at its second step.
int failingProcedure(const Unit &unit, const RuntimeError &error)
{
    int result = 0;
    PW_PROCEDURE("DoWork", unit);
    guarded(pwTail, [&] {
        PW_STEP;
        result = 7;
        PW_STEP; lastStepLine = __LINE__;
        throw error;
    });
    return result;
}

const QRegularExpression stamp(R"(- \d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d$)");

} // namespace

TEST_F(FailureLog, LineCarriesNumberTextProcedureStepAndUnit)
{
    const int result = failingProcedure(Unit::module("modMasterLayout"), RuntimeError::fromNumber(5));
    EXPECT_EQ(result, 7) << "a result set before the failure stays";
    const QStringList log = lines();
    ASSERT_EQ(log.size(), 1);
    EXPECT_TRUE(log[0].startsWith("Error 5 (Invalid procedure call or argument) in procedure "
                                  "DoWork at Line No. " +
                                  QString::number(lastStepLine) + " of"));
    EXPECT_TRUE(log[0].contains(" of Module modMasterLayout at time- ")) << log[0].toStdString();
    EXPECT_TRUE(stamp.match(log[0]).hasMatch()) << log[0].toStdString();
}

TEST_F(FailureLog, UnitSuffixesIncludingThoseWithoutAtTime)
{
    const struct {
        Unit unit;
        const char *tail;
    } cases[] = {
        {Unit::module("modGeneral"), " of Module modGeneral at time- "},
        {Unit::classModule("Settings"), " of Class Module Settings at time- "},
        {Unit::form("frmMain"), " of Form frmMain at time- "},
        {Unit::formWithoutTime("dlgSave"), " of Form dlgSave- "},
        {Unit::formWithoutTime("frmCloneDirectory"), " of Form frmCloneDirectory- "},
    };
    for (const auto &c : cases)
        failingProcedure(c.unit, RuntimeError::fromNumber(53));
    const QStringList log = lines();
    ASSERT_EQ(log.size(), int(std::size(cases)));
    for (size_t i = 0; i < std::size(cases); ++i)
        EXPECT_TRUE(log[int(i)].contains(cases[i].tail)) << log[int(i)].toStdString();
}

TEST_F(FailureLog, EmptyDescriptionKeepsTheBrackets)
{
    failingProcedure(Unit::module("modGeneral"), RuntimeError(10000, ""));
    ASSERT_EQ(lines().size(), 1);
    EXPECT_TRUE(lines()[0].startsWith("Error 10000 () in procedure DoWork at Line No. "));
}

TEST_F(FailureLog, StepNumberIsTheLastStatementReached)
{
    FailureTail tail{"Main", Unit::module("modMasterLayout")};
    tail.line = 70;
    EXPECT_EQ(tail.message(5, "Invalid procedure call or argument"),
              "Error 5 (Invalid procedure call or argument) in procedure Main at Line No. 70 of "
              "Module modMasterLayout at time");
}

TEST_F(FailureLog, ForeignExceptionsAreLoggedToo)
{
    int result = 1;
    PW_PROCEDURE("Foreign", Unit::module("modGeneral"));
    EXPECT_FALSE(guarded(pwTail, [&] {
        result = 0;
        throw std::runtime_error("qpdf: damaged file");
    }));
    ASSERT_EQ(lines().size(), 1);
    EXPECT_TRUE(lines()[0].startsWith("Error 5 (qpdf: damaged file) in procedure Foreign"));
}

TEST_F(FailureLog, TwoFailuresInOneSecondGiveTwoLinesAndAMissingFolderLosesTheLine)
{
    failingProcedure(Unit::module("modGeneral"), RuntimeError::fromNumber(6));
    failingProcedure(Unit::module("modGeneral"), RuntimeError::fromNumber(6));
    EXPECT_EQ(lines().size(), 2);

    FileStoragePath = box.filePath("no/such/folder");
    failingProcedure(Unit::module("modGeneral"), RuntimeError::fromNumber(6));
    EXPECT_FALSE(QFile::exists(box.filePath("no/such/folder/Errors.Log")));
}
