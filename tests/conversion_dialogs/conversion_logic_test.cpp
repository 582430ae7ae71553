#include "conversion_dialogs/logic/conversion_list.h"
#include "conversion_dialogs/logic/error_report.h"
#include "conversion_dialogs/logic/merge_run.h"
#include "conversion_dialogs/logic/row_order.h"

#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "core/runtime.h"
#include "grid/flex_grid_model.h"

#include "sandbox.h"

#include <gtest/gtest.h>

using namespace pw;

TEST(RowOrder, ABlockMovesOneRowAtATimeAndStopsAtTheEdges)
{
    SandboxDir box;
    SetErrorLogFolder(box.path());
    // `to`: 'u' Up, 'd' Down, or a row number: a drag until the block starts there.
    const struct {
        int to;
        GridBlock from;
        const char *order;
        int firstRow;
    } cases[] = {
        {'d', {1, 1, 3}, "dabce", 2},
        {'d', {4, 4, 5}, "abcde", 4}, // the block ends at the last row
        {'d', {5, 3, 5}, "abcde", 3}, // the current row is the last row
        {'u', {3, 3, 4}, "acdbe", 2},
        {'u', {1, 2, 3}, "abcde", 2}, // the current row is row 1, whatever is highlighted
        {'u', {3, 1, 3}, "abcde", 1}, // a row cannot take the header's place: logged
        {1, {4, 4, 5}, "deabc", 1},
        {5, {1, 1, 2}, "cdeab", 4}, // a drag past the end stops at the last row
    };
    for (const auto &c : cases) {
        FlexGridModel list;
        list.setCols(1);
        for (const char *name : {"a", "b", "c", "d", "e"})
            list.addItem(name);
        GridBlock block = c.from;
        if (c.to == 'u' || c.to == 'd')
            block = (c.to == 'u' ? MoveBlockUp(list, block) : MoveBlockDown(list, block))
                        .value_or(block);
        else
            block = DragBlock(list, block, c.to);
        QString order;
        for (int row = 1; row < list.rows(); ++row)
            order += list.text(row, 0);
        EXPECT_EQ(order, c.order) << c.to << " from " << c.from.firstRow;
        EXPECT_EQ(block.firstRow, c.firstRow);
        EXPECT_EQ(block.lastRow - block.firstRow, c.from.lastRow - c.from.firstRow);
    }
    EXPECT_TRUE(QString(readFile(box.filePath("Errors.Log")))
                    .startsWith("Error 380 (Invalid property value) in procedure cmdUp_Click"));
    SetErrorLogFolder({});
}

TEST(OutputNames, AMergeWithoutFolderLandsAtTheRootAndANameWithoutDotFails)
{
    EXPECT_EQ(MergeOutputPath("", "report"), "/report.pdf");
    EXPECT_EQ(MergeOutputPath("/out/", "a.b"), "/out/a.pdf");
    EXPECT_THROW(NameBeforeLastDot("README"), RuntimeError);
}

TEST(ErrorReport, RichTextEscapesWhatRtfReservesAndWritesOtherCharactersAsUnicode)
{
    const QByteArray rtf =
        RichTextDocument(QString::fromUtf8("C:\\{x}\r\n\t\xC3\xA4\xF0\x9F\x98\x80"));
    EXPECT_TRUE(rtf.startsWith("{\\rtf1\\ansi"));
    EXPECT_TRUE(
        rtf.endsWith("\nC:\\\\\\{x\\}\\par\n\\tab \\u228\\'3f\\u-10179\\'3f\\u-8704\\'3f}\n"))
        << rtf.data();
}
