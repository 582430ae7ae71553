#include "column_layout.h"

#include "core/failure_log.h"
#include "core/globals.h"
#include "core/runtime.h"

namespace pw {

void LoadGridColumns()
{
    PW_PROCEDURE("LoadGridColumns", Unit::form("frmMain"));
    guarded(pwTail, [&] {
        PW_STEP;
        ColumnOrderList = Split(AppSettings->ColumnReOrder(), ",");
        const QStringList widths = Split(AppSettings->LastGridColWidth(), ",");
        for (int i = 0; i < ColumnOrderList.size(); ++i) {
            PW_STEP;
            const QString key = ColumnOrderList[i].trimmed();
            const GridColumn *found = ColumnList->Item(key);
            if (!found || found->ColumnIndex == i)
                continue;
            GridColumn column = *found;
            ColumnList->Remove(key);
            PW_STEP;
            if (column.ColumnName == "Selection")
                column.ColumnWidth = 250; // the check column's width is not configurable
            else if (Val(widths.value(i)) >= 0)
                column.ColumnWidth = float(CLng(widths.value(i)));
            const bool last = i == ColumnOrderList.size() - 1;
            ColumnList->Add(column.ColumnKey, column.ColumnWidth, i, column.ColumnName,
                            column.ColumnDatatype, key, last ? 0 : i + 1);
        }
    });
}

QStringList MoveListElement(const QStringList &list, int from, int to)
{
    QStringList out(list.size());
    int j = 0;
    for (int i = 0; i < list.size(); ++i) {
        if (i == from) {
            if (to >= 0 && to < out.size())
                out[to] = list[i];
            continue;
        }
        if (j == to)
            ++j;
        if (j < out.size())
            out[j] = list[i];
        ++j;
    }
    return out;
}

void StoreColumnMove(const QStringList &headers, int col, int position)
{
    PW_PROCEDURE("grdSearchList_AfterMoveColumn", Unit::form("frmMain"));
    guarded(pwTail, [&] {
        PW_STEP;
        if (col == position)
            return;
        PW_STEP;
        AppSettings->setColumnReOrder(headers.join(","));
        PW_STEP;
        ColumnWidths = MoveListElement(Split(AppSettings->LastGridColWidth(), ","), col, position);
        AppSettings->setLastGridColWidth(ColumnWidths.join(","));
        int i = 0;
        for (GridColumn &column : *ColumnList)
            if (i < ColumnWidths.size())
                column.ColumnWidth = CSng(ColumnWidths[i++]);
        PW_STEP;
        AppSettings->setColumnVisibility(
            MoveListElement(Split(AppSettings->ColumnVisibility(), ","), col, position).join(","));
        ColumnVisibilityList = Split(AppSettings->ColumnVisibility(), ",");
        PW_STEP;
        LoadGridColumns();
    });
}

int SortOrderForColumn(int col, int order)
{
    const bool numericFamily = order == SortNumericAscending || order == SortNumericDescending;
    const bool genericFamily = order == SortGenericAscending || order == SortGenericDescending;
    if (col == GetColumnIndexByKey("Name")) {
        if (AppSettings->SortbyNumeric() != 0)
            return numericFamily ? order : SortNumericAscending;
        return genericFamily ? order : SortGenericAscending;
    }
    if (col == GetColumnIndexByKey("Pages") || col == GetColumnIndexByKey("Size (In KB)"))
        return numericFamily ? order : SortNumericAscending;
    return order;
}

} // namespace pw
