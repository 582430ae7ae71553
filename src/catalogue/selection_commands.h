#pragma once
// The check marks of the "Selection" column and the commands that set them. Check marks
// decide what is converted and exported; the grid's highlighted block is only where the
// block commands and the Space bar act, and the window passes it in.

#include <QString>

namespace pw {

class CatalogueGrid;

// The highlighted rows, first to last; empty when first is below 0.
struct RowBlock {
    int first = -1;
    int last = -1;
};

// The row's "Location", a separator and its "Name", with doubled separators folded so that
// a root location gives one.
QString RowFullPath(CatalogueGrid &catalogue, int row);

// Checks every data row, then unchecks the rows whose page count failed.
void CheckAllRows(CatalogueGrid &catalogue);
void UncheckAllRows(CatalogueGrid &catalogue);
void UncheckErrorRows(CatalogueGrid &catalogue);
// Checked rows and "Error" rows end unchecked, the others checked.
void InvertAllChecks(CatalogueGrid &catalogue);

// Over the highlighted block: check, uncheck, or flip each row by its own state. Checking
// the block is the deliberate way to check an "Error" row.
void CheckSelectedBlock(CatalogueGrid &catalogue, RowBlock block);
void UncheckSelectedBlock(CatalogueGrid &catalogue, RowBlock block);
void InvertSelectedBlock(CatalogueGrid &catalogue, RowBlock block);
// The Space bar: flips each row of the block by its own state.
void ToggleSelectedBlock(CatalogueGrid &catalogue, RowBlock block);

} // namespace pw
