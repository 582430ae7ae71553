#include "conversion_list.h"

#include "catalogue/catalogue_grid.h"
#include "core/app_context.h"
#include "core/runtime.h"
#include "grid/flex_grid_model.h"

namespace pw {

void InitFileList(FlexGridModel &list, AppContext &context, const QStringList &hiddenKeys)
{
    list.setEditable(false);
    list.setRows(1);
    list.setCols(context.ColumnList.Count());
    const QStringList visibility = Split(context.settings().ColumnVisibility(), ",");
    for (int col = 0; col < visibility.size() && col < list.cols(); ++col)
        list.setColumnHidden(col, visibility[col] != "1");
    for (const GridColumn &column : context.ColumnList) {
        list.setText(0, column.ColumnIndex, column.ColumnName);
        list.setColumnKey(column.ColumnIndex, column.ColumnKey);
        list.setColumnDataType(column.ColumnIndex, column.ColumnDatatype);
        ApplyColumnLook(list, column);
        if (hiddenKeys.contains(column.ColumnKey))
            list.setColumnHidden(column.ColumnIndex, true);
    }
}

void FillFileList(FlexGridModel &list, const ColumnIndices &columns, const SelectedData &rows)
{
    list.setRows(1 + int(rows.size()));
    int row = 1;
    for (const clsColSetOrderGrid &record : rows) {
        list.setText(row, columns.name, record.filename());
        list.setCheck(row, columns.selection, flexgrid::kChecked);
        list.setText(row, columns.location, record.FileLocation());
        list.setText(row, columns.size, record.FileSize());
        list.setText(row, columns.type, record.FileType());
        list.setText(row, columns.created, record.FileCreDate());
        list.setText(row, columns.modified, record.FileModDate());
        list.setText(row, columns.pages, QString());
        ++row;
    }
}

clsColSetOrderGrid RecordFromRow(const FlexGridModel &grid, const ColumnIndices &columns, int row)
{
    clsColSetOrderGrid record;
    record.setFilename(grid.text(row, columns.name));
    record.setFileLocation(grid.text(row, columns.location));
    record.setFileSize(grid.text(row, columns.size));
    record.setFileType(grid.text(row, columns.type));
    record.setFileCreDate(grid.text(row, columns.created));
    record.setFileModDate(grid.text(row, columns.modified));
    const QString pages = grid.text(row, columns.pages);
    record.setPageCount(IsNumeric(pages) ? CLng(pages) : 0);
    return record;
}

} // namespace pw
