#pragma once
// The merge dialog's reordering: the highlighted block of rows moves one row at a time and
// stays highlighted, so that repeated presses carry it along. A drag is made of the same steps.

#include <optional>

class FlexGridModel;

namespace pw {

// The current row and the bounds of the highlighted block of a file list.
struct GridBlock {
    int row = 1;
    int firstRow = 1, lastRow = 1;
    int firstCol = 0, lastCol = 0;
};

// cmdUp_Click: the block one row up, and the block to highlight now. Nothing moves when the
// current row is the first data row, whatever else is highlighted; a block that starts there
// while the current row is lower fails and is logged, as a row cannot take the header's place.
std::optional<GridBlock> MoveBlockUp(FlexGridModel &list, const GridBlock &block);
// cmdDown_Click: the block one row down. Nothing moves when the current row is the last row or
// the block already ends there.
std::optional<GridBlock> MoveBlockDown(FlexGridModel &list, const GridBlock &block);
// A drag: Up or Down step by step until the block starts at `firstRow` or cannot go further.
GridBlock DragBlock(FlexGridModel &list, GridBlock block, int firstRow);

} // namespace pw
