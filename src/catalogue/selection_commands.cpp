#include "selection_commands.h"

#include "catalogue_grid.h"

#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "widgets/flex_grid.h"

namespace pw {

namespace {

const Unit mainForm = Unit::form("frmMain");
constexpr int Checked = 1;
constexpr int Unchecked = 2;

void setAllChecks(CatalogueGrid &catalogue, int state)
{
    FlexGrid &grid = catalogue.grid();
    if (grid.Rows() < 2)
        return;
    const int sel = catalogue.columns().selection;
    grid.setCellChecked(1, sel, grid.Rows() - 1, sel, state);
}

// Runs `body` for each row of the highlighted block, when there is one.
template <typename Body> void forBlock(CatalogueGrid &catalogue, Body &&body)
{
    int row1 = 0, col1 = 0, row2 = 0, col2 = 0;
    catalogue.grid().GetSelection(row1, col1, row2, col2);
    if (row1 < 0 || row2 < 0)
        return;
    for (int row = row1; row <= row2; ++row)
        body(row);
}

template <typename Body> void command(const char *name, Body &&body)
{
    FailureTail tail{QString::fromLatin1(name), mainForm};
    guarded(tail, std::forward<Body>(body));
}

} // namespace

QString RowFullPath(CatalogueGrid &catalogue, int row)
{
    const FlexGrid &grid = catalogue.grid();
    QString path = grid.TextMatrix(row, catalogue.columns().location) + separator() +
                   grid.TextMatrix(row, catalogue.columns().name);
    return path.replace(separator() + separator(), separator());
}

void CheckAllRows(CatalogueGrid &catalogue)
{
    command("mnuCtxSelectAll_Click", [&] {
        if (catalogue.grid().Rows() < 2)
            return;
        setAllChecks(catalogue, Checked);
        UncheckErrorRows(catalogue);
    });
}

void UncheckAllRows(CatalogueGrid &catalogue)
{
    command("mnuCtxDeSelectAll_Click", [&] { setAllChecks(catalogue, Unchecked); });
}

void UncheckErrorRows(CatalogueGrid &catalogue)
{
    command("UncheckErrorRows", [&] {
        catalogue.columns().refresh();
        FlexGrid &grid = catalogue.grid();
        const bool redraw = grid.Redraw();
        grid.setRedraw(false);
        for (int row = grid.FindRow("Error", 1, catalogue.columns().pages, false, true); row >= 0;
             row = grid.FindRow("Error", row + 1, catalogue.columns().pages, false, true))
            grid.setCellChecked(row, catalogue.columns().selection, false);
        grid.setRedraw(redraw);
    });
}

void InvertAllChecks(CatalogueGrid &catalogue)
{
    command("mnuInvSelect_Click", [&] {
        FlexGrid &grid = catalogue.grid();
        if (grid.Rows() < 2)
            return;
        catalogue.columns().refresh();
        const int sel = catalogue.columns().selection;
        const int pages = catalogue.columns().pages;
        for (int row = 1; row < grid.Rows(); ++row) {
            const bool off = grid.cellChecked(row, sel) == Checked ||
                             grid.TextMatrix(row, pages) == "Error";
            grid.setCellChecked(row, sel, off ? Unchecked : Checked);
        }
    });
}

void CheckSelectedBlock(CatalogueGrid &catalogue)
{
    command("mnuCtxCheckSelection_Click", [&] {
        forBlock(catalogue, [&](int row) {
            catalogue.grid().setCellChecked(row, catalogue.columns().selection, Checked);
        });
    });
}

void UncheckSelectedBlock(CatalogueGrid &catalogue)
{
    command("mnuCtxUnCheckSelection_Click", [&] {
        forBlock(catalogue, [&](int row) {
            catalogue.grid().setCellChecked(row, catalogue.columns().selection, Unchecked);
        });
    });
}

void InvertSelectedBlock(CatalogueGrid &catalogue)
{
    command("mnuCtxCheckInvertSelection_Click", [&] {
        const int sel = catalogue.columns().selection;
        forBlock(catalogue, [&](int row) {
            FlexGrid &grid = catalogue.grid();
            grid.setTextMatrix(row, sel, grid.cellChecked(row, sel) == Checked ? "0" : "1");
        });
    });
}

void ToggleSelectedBlock(CatalogueGrid &catalogue)
{
    command("grdSearchList_KeyDown", [&] {
        const int sel = catalogue.columns().selection;
        forBlock(catalogue, [&](int row) {
            FlexGrid &grid = catalogue.grid();
            grid.setCellChecked(row, sel, grid.cellChecked(row, sel) != Checked);
        });
    });
}

} // namespace pw
