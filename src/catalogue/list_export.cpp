#include "list_export.h"

#include "catalogue_grid.h"

#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/globals.h"
#include "core/path_helpers.h"
#include "core/runtime.h"
#include "core/ui_services.h"
#include "grid/flex_grid_model.h"

#include <QDate>
#include <QFile>

namespace pw {

namespace {

const Unit mainForm = Unit::form("frmMain");
const QChar Tab = '\t';
const QChar Cr = '\r';

// The grid with the columns of the file only: the check column and the hidden columns go to
// the end and are cut off; the rest keep their places. From the last column back, so that a
// column moved away never moves one not yet looked at.
void dropUnexportedColumns(const FlexGridModel &grid, FlexGridModel &copy)
{
    for (int col = grid.cols() - 1; col >= 0; --col) {
        if (grid.text(0, col) != "Selection" && !grid.column(col).hidden)
            continue;
        copy.moveColumn(col, copy.cols() - 1);
        copy.setCols(copy.cols() - 1);
    }
}

void save(const FlexGridModel &copy, const QString &path, QChar colSep)
{
    // The system's 8-bit encoding, which is UTF-8 here.
    if (!copy.saveText(path, colSep, Cr, true))
        throw RuntimeError::fromNumber(75);
}

} // namespace

QString DefaultExportName(const QDate &date)
{
    return date.toString("yyyy_MM_dd") + "_Data";
}

void cmdExport_Click(CatalogueGrid &catalogue, const AskExportTarget &askTarget)
{
    PW_PROCEDURE("cmdExport_Click", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        FlexGridModel &grid = catalogue.model();
        UiServices &ui = catalogue.context().ui;
        if (grid.rows() < 2) {
            ui.MsgBox("No Files Found", vbInformation, AppTitle);
            return;
        }
        PW_STEP;
        const int selection = catalogue.columns().selection;
        bool anyChecked = false;
        for (int row = 1; row < grid.rows() && !anyChecked; ++row)
            anyChecked = grid.check(row, selection) == flexgrid::kChecked;
        if (!anyChecked) {
            ui.MsgBox("No files selected", vbInformation, AppTitle);
            return;
        }
        PW_STEP;
        ExportCheckedRows(grid, catalogue.context(), askTarget);
    });
}

bool ExportCheckedRows(FlexGridModel &grid, AppContext &context, const AskExportTarget &askTarget)
{
    ExportTarget target;
    try {
        // The copy goes through a file, as the grid's own save and load make it.
        const QString temp = context.FileStoragePath + separator() + "Temp.xls";
        save(grid, temp, Tab);
        FlexGridModel copy;
        copy.setRows(1);
        copy.setCols(grid.cols());
        copy.suspend();
        if (!copy.loadText(temp, Tab, Cr, true))
            throw RuntimeError::fromNumber(75);
        int selection = -1;
        for (int col = 0; col < grid.cols() && selection < 0; ++col)
            selection = grid.text(0, col) == "Selection" ? col : -1;
        int removed = 0;
        for (int row = 1; row < grid.rows(); ++row) {
            if (grid.check(row, selection) == flexgrid::kUnchecked)
                copy.removeItem(row - removed++);
        }
        QFile::remove(temp);
        target = askTarget();
        if (target.filename == ExportCancelled)
            return false;
        dropUnexportedColumns(grid, copy);
        save(copy, target.filename,
             target.ColumnSaperator.isEmpty() ? Tab : target.ColumnSaperator.at(0));
        if (target.OpenFile)
            context.ui.ShellOpenFile("open", target.filename);
        else
            context.ui.MsgBox(target.filename + "Exported successfully", vbInformation, AppTitle);
        return true;
    } catch (const RuntimeError &) {
        // The recovery's box passes the title where its style belongs: the conversion fails
        // before any box shows, and the type mismatch is what reaches the log.
        context.ui.MsgBox("Unable to export! & vbCrLf & vbCrLf & Err.Description, vbInformation",
                          CInt(QString(AppTitle)));
        return false;
    }
}

} // namespace pw
