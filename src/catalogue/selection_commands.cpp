#include "selection_commands.h"

#include "catalogue_grid.h"

#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "grid/flex_grid_model.h"

namespace pw {

namespace {

const Unit mainForm = Unit::form("frmMain");
using flexgrid::kChecked;
using flexgrid::kUnchecked;

void setAllChecks(CatalogueGrid &catalogue, int state)
{
    FlexGridModel &model = catalogue.model();
    const int sel = catalogue.columns().selection;
    for (int row = 1; row < model.rows(); ++row)
        model.setCheck(row, sel, state);
}

// Runs `body` for each row of the highlighted block, when there is one.
template <typename Body> void forBlock(RowBlock block, Body &&body)
{
    if (block.first < 0 || block.last < 0)
        return;
    for (int row = block.first; row <= block.last; ++row)
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
    const FlexGridModel &model = catalogue.model();
    QString path = model.text(row, catalogue.columns().location) + separator() +
                   model.text(row, catalogue.columns().name);
    return path.replace(separator() + separator(), separator());
}

void CheckAllRows(CatalogueGrid &catalogue)
{
    command("mnuCtxSelectAll_Click", [&] {
        if (catalogue.model().rows() < 2)
            return;
        setAllChecks(catalogue, kChecked);
        UncheckErrorRows(catalogue);
    });
}

void UncheckAllRows(CatalogueGrid &catalogue)
{
    command("mnuCtxDeSelectAll_Click", [&] { setAllChecks(catalogue, kUnchecked); });
}

void UncheckErrorRows(CatalogueGrid &catalogue)
{
    command("UncheckErrorRows", [&] {
        catalogue.columns().refresh(catalogue.context().ColumnList);
        FlexGridModel &model = catalogue.model();
        const bool suspended = model.isSuspended();
        model.suspend();
        const int pages = catalogue.columns().pages;
        for (int row = model.findRow("Error", 1, pages, false, true); row >= 0;
             row = model.findRow("Error", row + 1, pages, false, true))
            model.setCheck(row, catalogue.columns().selection, kUnchecked);
        if (!suspended)
            model.resume();
    });
}

void InvertAllChecks(CatalogueGrid &catalogue)
{
    command("mnuInvSelect_Click", [&] {
        FlexGridModel &model = catalogue.model();
        if (model.rows() < 2)
            return;
        catalogue.columns().refresh(catalogue.context().ColumnList);
        const int sel = catalogue.columns().selection;
        const int pages = catalogue.columns().pages;
        for (int row = 1; row < model.rows(); ++row) {
            const bool off = model.check(row, sel) == kChecked || model.text(row, pages) == "Error";
            model.setCheck(row, sel, off ? kUnchecked : kChecked);
        }
    });
}

void CheckSelectedBlock(CatalogueGrid &catalogue, RowBlock block)
{
    command("mnuCtxCheckSelection_Click", [&] {
        forBlock(block, [&](int row) {
            catalogue.model().setCheck(row, catalogue.columns().selection, kChecked);
        });
    });
}

void UncheckSelectedBlock(CatalogueGrid &catalogue, RowBlock block)
{
    command("mnuCtxUnCheckSelection_Click", [&] {
        forBlock(block, [&](int row) {
            catalogue.model().setCheck(row, catalogue.columns().selection, kUnchecked);
        });
    });
}

void InvertSelectedBlock(CatalogueGrid &catalogue, RowBlock block)
{
    command("mnuCtxCheckInvertSelection_Click", [&] {
        const int sel = catalogue.columns().selection;
        FlexGridModel &model = catalogue.model();
        forBlock(block, [&](int row) {
            model.setText(row, sel, model.check(row, sel) == kChecked ? "0" : "1");
        });
    });
}

void ToggleSelectedBlock(CatalogueGrid &catalogue, RowBlock block)
{
    command("grdSearchList_KeyDown", [&] {
        const int sel = catalogue.columns().selection;
        FlexGridModel &model = catalogue.model();
        forBlock(block, [&](int row) {
            model.setCheck(row, sel, model.check(row, sel) != kChecked ? kChecked : kUnchecked);
        });
    });
}

} // namespace pw
