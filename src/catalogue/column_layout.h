#pragma once
// The catalogue's column order, widths and visibility, kept in three parallel settings
// lists, and the sort-order rules of its columns.

#include <QStringList>

namespace pw {

struct AppContext;

// Brings ColumnList into the order stored in ColumnReOrder, taking the stored widths of the
// columns that move. Unknown keys are skipped; a column already in place keeps its width.
void LoadGridColumns(AppContext &context);

// Removes the element at `from` and inserts it at `to`, so that lists stay aligned with the
// columns after a header drag.
QStringList MoveListElement(const QStringList &list, int from, int to);

// Stores a header drag: the new caption order, and the width and visibility lists moved the
// same way, then reloads the column order. `headers` are the captions in their new order.
void StoreColumnMove(AppContext &context, const QStringList &headers, int col, int position);

// The order the grid really sorts `col` by: names follow the numeric-sort setting, pages
// and sizes always sort numerically; only the direction inside a family survives.
int SortOrderForColumn(AppContext &context, int col, int order);

} // namespace pw
