#include "conversion_dialogs/logic/batch_rename.h"
#include "conversion_dialogs/logic/rename_by_pages.h"

#include "core/failure_log.h"
#include "core/master_layout.h"
#include "grid/flex_grid_model.h"

#include "sandbox.h"
#include "test_context.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace pw;

namespace {

RenamePattern at(const QString &position, bool prefix, bool suffix, const QString &mask = "00")
{
    RenamePattern p;
    p.option = RenamePattern::AtCharPos;
    p.charPos = position;
    p.sepAtCharPos = "_";
    p.prefix = prefix;
    p.suffix = suffix;
    p.paddingMask = mask;
    return p;
}

} // namespace

TEST(RenameByPages, TheMaskGivesOnlyItsLength)
{
    EXPECT_EQ(GetInputMask("9999", 7), "0007");
    EXPECT_EQ(GetInputMask("1234567890", 42), "0000000042");
    EXPECT_EQ(GetInputMask("00", 1234), "1234");
    EXPECT_EQ(GetInputMask("", 5), "5");
}

TEST(RenameByPages, NewNamesFollowTheChosenOption)
{
    RenamePattern prefix;
    prefix.option = RenamePattern::PrefixAsPageCount;
    prefix.sepPrefix = "-";
    prefix.paddingMask = "000";
    RenamePattern suffix = prefix;
    suffix.option = RenamePattern::SuffixAsPageCount;
    suffix.sepSuffix = "_";
    RenamePattern none;
    const struct {
        RenamePattern pattern;
        const char *name;
        const char *expected;
    } cases[] = {
        {prefix, "scan.v2.tif", "007-scan.v2.tif"},
        {suffix, "scan.tif", "scan_007.tif"},
        {none, "scan.tif", "scan.tif"},
        // The check boxes place the separator beside the number, not the number in the name.
        {at("1", true, true), "scan.tif", "_07_scan.tif"},
        {at("3", true, false), "scan.tif", "sc_07an.tif"},
        {at("4", false, true), "scan.tif", "sca07_n.tif"},
        {at("5", false, false), "scan.tif", "scan07.tif"},
        {at("", false, false), "scan.tif", "07scan.tif"},
    };
    for (auto c : cases)
        EXPECT_EQ(NewFileName(c.name, "7", c.pattern), c.expected) << c.name;

    RenamePattern empty = at("", false, false);
    NewFileName("a.tif", "1", empty);
    EXPECT_EQ(empty.charPos, "1");
    // Names the preview cannot make: no dot, no count, a count beyond 16 bits, position 0.
    RenamePattern zero = at("0", false, false);
    EXPECT_THROW(NewFileName("README", "7", prefix), RuntimeError);
    EXPECT_THROW(NewFileName("a.tif", "", prefix), RuntimeError);
    EXPECT_THROW(NewFileName("a.tif", "32768", prefix), RuntimeError);
    EXPECT_THROW(NewFileName("a.tif", "7", zero), RuntimeError);
}

class RenameRun : public ::testing::Test {
protected:
    void SetUp() override
    {
        SetErrorLogFolder(box.path());
        list.InitFiles();
    }
    void TearDown() override { SetErrorLogFolder({}); }
    void fill(const QStringList &names, int pages = 3)
    {
        SelectedData rows;
        for (const QString &name : names) {
            clsColSetOrderGrid row;
            row.setFilename(name);
            row.setFileLocation(box.path());
            row.setPageCount(pages);
            rows.push_back(row);
        }
        list.FillGrid(rows);
    }
    QString newName(int row) const { return grid.text(row, list.newNameColumn()); }

    SandboxDir box;
    GridColumns columns = MakeColumnList();
    FlexGridModel grid;
    RenameList list{grid, columns};
};

TEST_F(RenameRun, OnlyTheNameAndTheNewNameShow)
{
    fill({"a.tif"});
    int visible = 0;
    for (int col = 0; col < grid.cols(); ++col)
        visible += grid.column(col).hidden ? 0 : 1;
    EXPECT_EQ(visible, 2);
    EXPECT_EQ(grid.text(0, list.newNameColumn()), "New file name");
    EXPECT_EQ(grid.text(1, columns.GetColumnIndexByKey("Pages")), "3");
}

TEST_F(RenameRun, PreviewStopsAtARowItCannotNameAndApplyRefusesThen)
{
    fill({"a.tif", "README", "c.tif"});
    RenamePattern pattern = at("1", false, false);
    list.Preview(pattern);
    EXPECT_EQ(newName(1), "03a.tif");
    EXPECT_EQ(newName(2), "");
    EXPECT_EQ(newName(3), "");
    EXPECT_FALSE(list.validateFilenames());
    EXPECT_TRUE(QString(readFile(box.filePath("Errors.Log")))
                    .contains("in procedure cmdPreview_Click at Line No. "));
}

TEST_F(RenameRun, ApplyRenamesAndListsWhatItLeft)
{
    // A name the file system takes, whose new name it cannot take (even from root).
    const QString longest = QString(250, 'n') + ".tif";
    for (const QString &name : {QString("a.tif"), QString("b.tif"), QString("taken.tif"),
                                QString("03-taken.tif"), longest})
        box.write(name, "x");
    // Two files that come to the same name: the second finds the first's new name there.
    fill({"a.tif", "b.tif", "gone.tif", "taken.tif", longest});
    RenamePattern pattern;
    pattern.option = RenamePattern::PrefixAsPageCount;
    pattern.sepPrefix = "-";
    pattern.paddingMask = "00";
    list.Preview(pattern);
    grid.setText(2, list.newNameColumn(), "03-a.tif");
    // Marked red only when the bare name exists in the current folder.
    const QString previous = QDir::currentPath();
    QDir::setCurrent(box.path());
    list.Preview(pattern);
    QDir::setCurrent(previous);
    EXPECT_EQ(grid.foreColor(4, list.newNameColumn()), RenameList::ExistsColor);
    EXPECT_EQ(grid.foreColor(1, list.newNameColumn()), FlexGridModel::kDefaultColor);
    grid.setText(2, list.newNameColumn(), "03-a.tif");

    const std::optional<RenameOutcome> outcome = list.Apply();
    ASSERT_TRUE(outcome);
    EXPECT_TRUE(QFileInfo::exists(box.filePath("03-a.tif")));
    EXPECT_TRUE(QFileInfo::exists(box.filePath("b.tif")));
    EXPECT_EQ(outcome->notFound, box.filePath("gone.tif") + "\r\n");
    EXPECT_EQ(outcome->alreadyExists,
              box.filePath("03-a.tif") + "\r\n" + box.filePath("03-taken.tif") + "\r\n");
    EXPECT_EQ(outcome->failed,
              box.filePath(longest) + "  To  " + box.filePath("03-" + longest) + "\r\n");
    EXPECT_TRUE(QString(readFile(box.filePath("Errors.Log")))
                    .contains("in procedure RenameFile at Line No. "));
    // The grid keeps the old names: a second run finds none of the renamed files.
    EXPECT_TRUE(list.Apply()->notFound.contains(box.filePath("a.tif")));
}

// The command line names each file it leaves alone with the reason, after the program's name.
TEST(RenameCommand, EveryFileLeftAloneIsNamedWithTheReason)
{
    SandboxDir box;
    TestContext test(box);
    box.write("note.txt", "x");
    box.write("junk.pdf", "not a PDF");
    QStringList err;
    const auto run = [&](const QStringList &files) {
        err.clear();
        return RunBatchRename(
            test.context, QStringList{"rename-by-pages", "--prefix"} + files,
            [](const QString &) {}, [&](const QString &line) { err << line; });
    };
    EXPECT_EQ(run({box.filePath("note.txt"), box.filePath("junk.pdf")}), 1);
    EXPECT_EQ(err, (QStringList{"pagewright-batch: " + box.filePath("note.txt") +
                                    ": not a PDF or TIFF file",
                                "pagewright-batch: " + box.filePath("junk.pdf") +
                                    ": its pages cannot be counted"}));
}
