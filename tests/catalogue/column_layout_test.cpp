#include "catalogue/column_layout.h"
#include "core/master_layout.h"

#include "sandbox.h"
#include "test_context.h"

#include <gtest/gtest.h>

using namespace pw;

namespace {

class ColumnLayout : public ::testing::Test {
protected:
    QStringList order() const
    {
        QStringList keys;
        for (const GridColumn &c : context.ColumnList)
            keys << c.ColumnKey + "@" + QString::number(c.ColumnIndex);
        return keys;
    }
    SandboxDir box;
    TestContext test{box};
    AppContext &context = test.context;
};

} // namespace

TEST_F(ColumnLayout, StoredOrderMovesColumnsWithTheirStoredWidths)
{
    context.settings().setColumnReOrder(
        "Location,Name,Selection,Pages,Size (In KB),Type,Created Date,Modified Date");
    context.settings().setLastGridColWidth("3000,1800,999,700,1000,1400,2000,2000");
    LoadGridColumns(context);
    EXPECT_EQ(order().mid(0, 4), QStringList({"Location@0", "Name@1", "Selection@2", "Pages@3"}));
    EXPECT_EQ(context.ColumnList.Item("Location")->ColumnWidth, 3000);
    EXPECT_EQ(context.ColumnList.Item("Selection")->ColumnWidth, 250) << "not configurable";
    EXPECT_EQ(context.ColumnList.Item("Type")->ColumnWidth, 1400) << "already in place: width kept";
}

TEST_F(ColumnLayout, DuplicatedOrMissingKeysMoveOnlyWhatIsNamed)
{
    context.settings().setColumnReOrder("Type,Type,Nonsense");
    LoadGridColumns(context);
    EXPECT_EQ(context.ColumnList.Count(), 8) << "nothing lost";
    EXPECT_EQ(context.ColumnList.Item("Type")->ColumnIndex, 1);
    context.settings().setColumnReOrder("");
    LoadGridColumns(context);
    EXPECT_EQ(context.ColumnList.Count(), 8);
}

TEST_F(ColumnLayout, AHeaderDragMovesAllThreeListsAlike)
{
    context.settings().setColumnVisibility("1,1,0,1,1,1,1,1");
    const QStringList headers = {"Name",         "Pages", "Location",     "Selection",
                                 "Size (In KB)", "Type",  "Created Date", "Modified Date"};
    StoreColumnMove(context, headers, 1, 3);
    EXPECT_EQ(context.settings().ColumnReOrder(), headers.join(","));
    EXPECT_EQ(context.settings().LastGridColWidth(), "1800,700,1800,250,1000,1400,2000,2000");
    EXPECT_EQ(context.settings().ColumnVisibility(), "1,0,1,1,1,1,1,1")
        << "a hidden column keeps its flag";
    EXPECT_EQ(context.ColumnList.Item("Selection")->ColumnIndex, 3);

    const QString before = context.settings().ColumnReOrder();
    StoreColumnMove(context, {"x"}, 2, 2);
    EXPECT_EQ(context.settings().ColumnReOrder(), before) << "a drop in place writes nothing";
}

TEST_F(ColumnLayout, SortRequestsStayInTheirColumnsFamily)
{
    const int name = 0, pages = 2, size = 4, type = 5;
    const struct {
        int col;
        int numeric;
        int asked;
        int sorted;
    } cases[] = {
        {name, 1, 2, 3},  {name, 1, 4, 4}, {name, 0, 4, 1}, {name, 0, 2, 2}, {pages, 0, 2, 3},
        {pages, 0, 4, 4}, {size, 0, 1, 3}, {size, 1, 3, 3}, {type, 1, 2, 2}, {type, 0, 4, 4},
    };
    for (const auto &c : cases) {
        context.settings().setSortbyNumeric(int16_t(c.numeric));
        EXPECT_EQ(SortOrderForColumn(context, c.col, c.asked), c.sorted)
            << c.col << " " << c.numeric << " " << c.asked;
    }
}
