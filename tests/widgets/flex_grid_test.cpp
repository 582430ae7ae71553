#include "flex_grid.h"

#include "sandbox.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QHeaderView>
#include <QHelpEvent>
#include <QMouseEvent>
#include <QToolTip>

#include <vector>

namespace {

QStringList Column(const FlexGrid &grid, int col)
{
    QStringList cells;
    for (int row = 1; row < grid.Rows(); ++row)
        cells.push_back(grid.TextMatrix(row, col));
    return cells;
}

// A grid with a header row and the given data rows, one tab-separated text per row.
void Fill(FlexGrid &grid, const QStringList &header, const QStringList &rows)
{
    grid.setCols(int(header.size()));
    grid.setRows(1);
    for (int col = 0; col < header.size(); ++col) {
        grid.setTextMatrix(0, col, header[col]);
        grid.setColKey(col, header[col]);
    }
    for (const QString &row : rows)
        grid.AddItem(row);
}

TEST(FlexGridTest, RowsAndColsGrowAndShrinkKeepingCells)
{
    FlexGrid grid;
    grid.setCols(3);
    grid.setRows(4);
    grid.setTextMatrix(0, 1, "Name");
    grid.setTextMatrix(2, 1, "b.tif");
    grid.setTextMatrix(3, 2, "last");
    // The view sees data rows only; row 0 is its header.
    EXPECT_EQ(grid.model()->rowCount(), 3);
    EXPECT_EQ(grid.model()->headerData(1, Qt::Horizontal, Qt::DisplayRole).toString(), "Name");

    grid.setRows(3);
    grid.setCols(2);
    grid.setRows(4);
    grid.setCols(3);
    EXPECT_EQ(grid.TextMatrix(2, 1), "b.tif");
    EXPECT_EQ(grid.TextMatrix(3, 2), "") << "regrown cells start empty, not with what was cut";
    // Out of range reads and writes are ignored rather than fatal.
    grid.setTextMatrix(99, 0, "x");
    EXPECT_EQ(grid.TextMatrix(99, 0), "");
}

TEST(FlexGridTest, CheckCellsHoldOneAndTwo)
{
    FlexGrid grid;
    Fill(grid, {"Name", "Selection"}, {"a", "b", "c", "d"});
    grid.setColDataType(1, flexgrid::kBoolean);
    EXPECT_EQ(grid.cellChecked(1, 1), 2);             // a boolean column starts unchecked
    EXPECT_EQ(grid.cellChecked(0, 1), 0);             // the header has no box
    EXPECT_EQ(grid.cellChecked(1, 0), 0);             // nor has a text column
    grid.setCellChecked(grid.Rows() - 1, 1, 1, 1, 1); // a block, corners in any order
    for (int row = 1; row < grid.Rows(); ++row)
        EXPECT_EQ(grid.cellChecked(row, 1), 1) << row;

    // Text written into a check cell sets the state, as the invert command does.
    grid.setTextMatrix(2, 1, "0");
    EXPECT_EQ(grid.cellChecked(2, 1), 2);
    EXPECT_EQ(grid.model()->index(1, 1).data(Qt::CheckStateRole).toInt(), int(Qt::Unchecked));
    grid.setTextMatrix(2, 1, "-1");
    EXPECT_EQ(grid.model()->index(1, 1).data(Qt::CheckStateRole).toInt(), int(Qt::Checked));
}

TEST(FlexGridTest, ColumnMovesCarryCellsAndProperties)
{
    const struct {
        int from, to;
        const char *order;
    } cases[] = {{0, 2, "BCAD"}, {3, 0, "DABC"}, {2, 2, "ABCD"}};
    for (const auto &c : cases) {
        FlexGrid grid;
        Fill(grid, {"A", "B", "C", "D"}, {"a1\tb1\tc1\td1", "a2\tb2\tc2\td2"});
        grid.setCellChecked(2, 1, 1);
        grid.setColWidth(1, 2000);
        grid.setColHidden(1, true);
        grid.setColPosition(c.from, c.to);
        for (int col = 0; col < 4; ++col) {
            const QString name = QChar(c.order[col]);
            EXPECT_EQ(grid.TextMatrix(0, col), name) << c.from << "->" << c.to;
            EXPECT_EQ(grid.TextMatrix(2, col), name.toLower() + "2");
            EXPECT_EQ(grid.ColKey(col), name);
            EXPECT_EQ(grid.ColHidden(col), name == "B");
            EXPECT_EQ(grid.isColumnHidden(col), name == "B") << "view out of step";
            EXPECT_EQ(grid.cellChecked(2, col), name == "B" ? 1 : 0);
        }
        EXPECT_EQ(grid.ColWidth(grid.ColIndex("B")), 2000);
    }
}

TEST(FlexGridTest, HeaderDragMovesTheColumnAndReportsIt)
{
    FlexGrid grid;
    grid.setExplorerBar(7);
    Fill(grid, {"A", "B", "C"}, {"a\tb\tc"});
    std::vector<std::pair<int, int>> moves;
    QObject::connect(&grid, &FlexGrid::AfterMoveColumn,
                     [&](int col, int &position) { moves.emplace_back(col, position); });
    grid.horizontalHeader()->moveSection(0, 2);
    ASSERT_EQ(moves.size(), 1u);
    EXPECT_EQ(moves[0], std::make_pair(0, 2));
    EXPECT_EQ(grid.TextMatrix(0, 2), "A");
    EXPECT_EQ(grid.TextMatrix(1, 2), "a");
    // Visual and logical order stay the same, so column numbers mean screen positions.
    for (int col = 0; col < 3; ++col)
        EXPECT_EQ(grid.horizontalHeader()->visualIndex(col), col);
}

// The order itself is the model's (tests/grid); the view is rebuilt around it, and must keep
// what the user set on its columns.
TEST(FlexGridTest, SortKeepsHiddenColumnsAndWidths)
{
    FlexGrid grid;
    Fill(grid, {"Key", "Other"}, {"10.tif\tx", "2.tif\ty"});
    grid.setColHidden(1, true);
    grid.setColWidth(0, 2880);
    grid.setCol(0);
    grid.setSort(flexgrid::kNumericAscending);
    EXPECT_EQ(Column(grid, 0), QStringList({"2.tif", "10.tif"}));
    EXPECT_TRUE(grid.isColumnHidden(1));
    EXPECT_EQ(grid.columnWidth(0), flexgrid::TwipsToPixels(2880, grid.logicalDpiX()));
}

TEST(FlexGridTest, BeforeSortMayRewriteTheOrder)
{
    FlexGrid grid;
    grid.setExplorerBar(7);
    Fill(grid, {"Name", "Size"}, {"10.tif\t1", "2.tif\t2"});
    std::vector<std::pair<int, int>> asked;
    QObject::connect(&grid, &FlexGrid::BeforeSort, [&](int col, int &order) {
        asked.emplace_back(col, order);
        if (col == 0 && order != 3 && order != 4)
            order = 3; // the program's numeric file-name rule
    });
    grid.setCol(0);
    grid.setSort(flexgrid::kGenericAscending);
    EXPECT_EQ(Column(grid, 0), QStringList({"2.tif", "10.tif"}));

    // Header clicks raise the same event, ascending first and then descending.
    emit grid.horizontalHeader()->sectionClicked(1);
    emit grid.horizontalHeader()->sectionClicked(1);
    ASSERT_EQ(asked.size(), 3u);
    EXPECT_EQ(asked[1], std::make_pair(1, 1));
    EXPECT_EQ(asked[2], std::make_pair(1, 2));
    EXPECT_EQ(Column(grid, 1), QStringList({"2", "1"}));
    EXPECT_EQ(grid.Col(), 1);

    // Order 0 from the handler cancels the sort.
    QObject::connect(&grid, &FlexGrid::BeforeSort, [](int, int &order) { order = 0; });
    grid.setCol(0);
    grid.setSort(flexgrid::kGenericDescending);
    EXPECT_EQ(Column(grid, 0), QStringList({"2.tif", "10.tif"}));
}

TEST(FlexGridTest, SelectionCornersAndBlock)
{
    FlexGrid grid;
    Fill(grid, {"A", "B", "C", "D"}, {"1", "2", "3", "4", "5", "6"});
    grid.Select(5, 3, 2, 1);
    int r1 = 0, c1 = 0, r2 = 0, c2 = 0;
    grid.GetSelection(r1, c1, r2, c2);
    EXPECT_EQ(std::vector<int>({r1, c1, r2, c2}), std::vector<int>({2, 1, 5, 3}));
    EXPECT_EQ(grid.Row(), 5) << "the first corner is the current cell";
    EXPECT_EQ(grid.selectionModel()->selectedIndexes().size(), 4 * 3);
    // Rows removed under the current row pull it back into the grid.
    grid.setRows(3);
    EXPECT_EQ(grid.Row(), 2);
    grid.setRows(1);
    EXPECT_EQ(grid.Row(), 0);
}

// Sends a press and a release to the cell area, as the user's click would arrive.
void Click(FlexGrid &grid, int row, int col, Qt::MouseButton button = Qt::LeftButton)
{
    const QRect cell = grid.visualRect(grid.model()->index(row - 1, col));
    const QPointF at = cell.center();
    QMouseEvent press(QEvent::MouseButtonPress, at, grid.viewport()->mapToGlobal(at), button,
                      button, Qt::NoModifier);
    QApplication::sendEvent(grid.viewport(), &press);
    QMouseEvent release(QEvent::MouseButtonRelease, at, grid.viewport()->mapToGlobal(at), button,
                        Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(grid.viewport(), &release);
}

TEST(FlexGridTest, ClickTogglesTheCheckOnlyWhereMouseDownAllowsIt)
{
    FlexGrid grid;
    Fill(grid, {"Name", "Selection"}, {"a", "b", "c"});
    grid.setColDataType(1, flexgrid::kBoolean);
    grid.resize(400, 300);
    grid.show();
    // The catalogue's rule: only a left click in the check column may toggle.
    std::vector<int> order, mouseRows;
    QObject::connect(&grid, &FlexGrid::MouseDown, [&](int button, int, int, int) {
        order.push_back(1);
        mouseRows.push_back(grid.MouseRow());
        grid.setEditable(grid.Col() == 1 && button == 1 ? 2 : 0);
    });
    QObject::connect(&grid, &FlexGrid::MouseUp, [&](int, int, int, int) { order.push_back(2); });
    Click(grid, 2, 1);
    EXPECT_EQ(grid.cellChecked(2, 1), 1);
    EXPECT_EQ(grid.Row(), 2);
    Click(grid, 2, 1);
    EXPECT_EQ(grid.cellChecked(2, 1), 2);
    Click(grid, 2, 0);
    Click(grid, 2, 1, Qt::RightButton);
    EXPECT_EQ(grid.cellChecked(2, 1), 2);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 1, 2, 1, 2, 1, 2}));
    EXPECT_EQ(mouseRows, (std::vector<int>{2, 2, 2, 2}));

    // BeforeEdit can refuse the toggle.
    QObject::connect(&grid, &FlexGrid::BeforeEdit, [](int, int, bool &cancel) { cancel = true; });
    Click(grid, 3, 1);
    EXPECT_EQ(grid.cellChecked(3, 1), 2);

    // A right click inside the block keeps it, for the context menu; outside it moves it.
    grid.Select(1, 0, 2, 0);
    Click(grid, 2, 0, Qt::RightButton);
    int r1 = 0, c1 = 0, r2 = 0, c2 = 0;
    grid.GetSelection(r1, c1, r2, c2);
    EXPECT_EQ(std::make_pair(r1, r2), std::make_pair(1, 2));
    Click(grid, 3, 0, Qt::RightButton);
    grid.GetSelection(r1, c1, r2, c2);
    EXPECT_EQ(std::make_pair(r1, r2), std::make_pair(3, 3));
}

TEST(FlexGridTest, RedrawOffHoldsTheViewUntilTurnedOn)
{
    FlexGrid grid;
    Fill(grid, {"Name", "Pages"}, {"a"});
    grid.setColHidden(1, true);
    grid.setRedraw(false);
    for (int i = 0; i < 100; ++i)
        grid.setRows(grid.Rows() + 1);
    grid.RemoveItem(1);
    grid.setColPosition(0, 0);
    EXPECT_EQ(grid.Rows(), 101);
    EXPECT_EQ(grid.model()->rowCount(), 1);                     // the view still sees the old shape
    EXPECT_EQ(grid.model()->index(0, 0).data().toString(), ""); // but never stale cells
    grid.setRedraw(true);
    EXPECT_EQ(grid.model()->rowCount(), 100);
    EXPECT_TRUE(grid.isColumnHidden(1)) << "the rebuilt view keeps hidden columns";
}

} // namespace

// A caption is never clipped, whatever width its column is given or dragged to, and a cell whose
// text its column cuts shows the whole text in a tool tip.
TEST(FlexGridTest, CaptionsFitAndCutTextsHaveToolTips)
{
    FlexGrid grid;
    Fill(grid, {"Size (In KB)", "Location", "Gone"},
         {"1\t/a/folder/deep/below/others/with/a/long/name\tx", "2\t/a\tx"});
    grid.setExplorerBar(FlexGrid::kExplorerSort);
    const struct {
        int col, twips;
        bool fitsCaption; // else the width given holds
    } widths[] = {{0, 300, true}, {1, 3000, false}, {2, 0, false}};
    grid.resize(700, 200);
    grid.show();
    for (const auto &w : widths)
        grid.setColWidth(w.col, w.twips);
    QHeaderView *header = grid.horizontalHeader();
    for (const auto &w : widths) {
        const int given = flexgrid::TwipsToPixels(w.twips, grid.logicalDpiX());
        EXPECT_EQ(grid.columnWidth(w.col), w.fitsCaption ? header->sectionSizeHint(w.col) : given)
            << w.col;
    }
    EXPECT_GT(header->sectionSizeHint(0), flexgrid::TwipsToPixels(300, grid.logicalDpiX()));
    header->resizeSection(0, 5); // as a drag would
    EXPECT_EQ(grid.columnWidth(0), header->sectionSizeHint(0));

    grid.setColWidth(1, 600);
    const auto tipAt = [&](int row) {
        const QRect cell = grid.visualRect(grid.model()->index(row - 1, 1));
        QHelpEvent help(QEvent::ToolTip, cell.center(),
                        grid.viewport()->mapToGlobal(cell.center()));
        QApplication::sendEvent(grid.viewport(), &help);
        return QToolTip::text();
    };
    EXPECT_EQ(tipAt(2), "") << "a text that fits";
    EXPECT_EQ(tipAt(1), grid.TextMatrix(1, 1));
}
