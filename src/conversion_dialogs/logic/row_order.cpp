#include "row_order.h"

#include "backends/common/run_time_errors.h"
#include "core/failure_log.h"
#include "grid/flex_grid_model.h"

namespace pw {

namespace {

const Unit setOrderForm = Unit::form("frmSetOrder_MConTiff");

GridBlock shifted(const GridBlock &block, int by)
{
    return {block.firstRow + by, block.firstRow + by, block.lastRow + by, block.firstCol,
            block.lastCol};
}

} // namespace

std::optional<GridBlock> MoveBlockUp(FlexGridModel &list, const GridBlock &block)
{
    std::optional<GridBlock> moved;
    PW_PROCEDURE("cmdUp_Click", setOrderForm);
    guarded(pwTail, [&] {
        PW_STEP;
        if (block.row == 1)
            return;
        PW_STEP;
        if (block.firstRow <= 1)
            throw RuntimeError::fromNumber(rte::kInvalidPropertyValue);
        // Top row first: each row takes the place of the one above, which ends below the block.
        for (int row = block.firstRow; row <= block.lastRow; ++row)
            list.moveRow(row, row - 1);
        moved = shifted(block, -1);
    });
    return moved;
}

std::optional<GridBlock> MoveBlockDown(FlexGridModel &list, const GridBlock &block)
{
    std::optional<GridBlock> moved;
    PW_PROCEDURE("cmdDown_Click", setOrderForm);
    guarded(pwTail, [&] {
        PW_STEP;
        const int lastRow = list.rows() - 1;
        if (block.row >= lastRow || block.lastRow >= lastRow)
            return;
        PW_STEP;
        for (int row = block.lastRow; row >= block.firstRow; --row)
            list.moveRow(row, row + 1);
        moved = shifted(block, 1);
    });
    return moved;
}

GridBlock DragBlock(FlexGridModel &list, GridBlock block, int firstRow)
{
    while (block.firstRow != firstRow) {
        const std::optional<GridBlock> moved =
            block.firstRow > firstRow ? MoveBlockUp(list, block) : MoveBlockDown(list, block);
        if (!moved)
            break;
        block = *moved;
    }
    return block;
}

} // namespace pw
