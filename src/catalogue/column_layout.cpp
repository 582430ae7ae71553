#include "column_layout.h"

#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/runtime.h"

namespace pw {

void LoadGridColumns(AppContext &context)
{
    PW_PROCEDURE("LoadGridColumns", Unit::form("frmMain"));
    guarded(pwTail, [&] {
        PW_STEP;
        QStringList &order = context.ColumnOrderList;
        GridColumns &columns = context.ColumnList;
        order = Split(context.settings().ColumnReOrder(), ",");
        const QStringList widths = Split(context.settings().LastGridColWidth(), ",");
        for (int i = 0; i < order.size(); ++i) {
            PW_STEP;
            const QString key = order[i].trimmed();
            const GridColumn *found = columns.Item(key);
            if (!found || found->ColumnIndex == i)
                continue;
            GridColumn column = *found;
            columns.Remove(key);
            PW_STEP;
            if (column.ColumnName == "Selection")
                column.ColumnWidth = 250; // the check column's width is not configurable
            else if (Val(widths.value(i)) >= 0)
                column.ColumnWidth = float(CLng(widths.value(i)));
            const bool last = i == order.size() - 1;
            columns.Add(column.ColumnKey, column.ColumnWidth, i, column.ColumnName,
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

void StoreColumnMove(AppContext &context, const QStringList &headers, int col, int position)
{
    PW_PROCEDURE("grdSearchList_AfterMoveColumn", Unit::form("frmMain"));
    guarded(pwTail, [&] {
        PW_STEP;
        if (col == position)
            return;
        PW_STEP;
        Settings &settings = context.settings();
        settings.setColumnReOrder(headers.join(","));
        PW_STEP;
        QStringList &widths = context.ColumnWidths;
        widths = MoveListElement(Split(settings.LastGridColWidth(), ","), col, position);
        settings.setLastGridColWidth(widths.join(","));
        int i = 0;
        for (GridColumn &column : context.ColumnList)
            if (i < widths.size())
                column.ColumnWidth = CSng(widths[i++]);
        PW_STEP;
        settings.setColumnVisibility(
            MoveListElement(Split(settings.ColumnVisibility(), ","), col, position).join(","));
        context.ColumnVisibilityList = Split(settings.ColumnVisibility(), ",");
        PW_STEP;
        LoadGridColumns(context);
    });
}

int SortOrderForColumn(AppContext &context, int col, int order)
{
    using namespace flexgrid;
    const bool numericFamily = order == kNumericAscending || order == kNumericDescending;
    const bool genericFamily = order == kGenericAscending || order == kGenericDescending;
    const GridColumns &columns = context.ColumnList;
    if (col == columns.GetColumnIndexByKey("Name")) {
        if (context.settings().SortbyNumeric() != 0)
            return numericFamily ? order : kNumericAscending;
        return genericFamily ? order : kGenericAscending;
    }
    if (col == columns.GetColumnIndexByKey("Pages") ||
        col == columns.GetColumnIndexByKey("Size (In KB)"))
        return numericFamily ? order : kNumericAscending;
    return order;
}

} // namespace pw
