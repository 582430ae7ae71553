#include "grid_columns.h"

#include <algorithm>

namespace pw {

GridColumn *GridColumns::Add(const QString &ColumnKey, float ColumnWidth, int ColumnIndex,
                             const QString &ColumnName, int ColumnDatatype, const QString &sKey,
                             int Before)
{
    if (Item(sKey))
        return nullptr;
    const auto where =
        Before >= 1 && Before <= Count() ? columns_.begin() + (Before - 1) : columns_.end();
    return &*columns_.insert(
        where, {ColumnKey, ColumnWidth, ColumnIndex, ColumnName, ColumnDatatype, sKey});
}

GridColumn *GridColumns::Item(const QString &key)
{
    const auto it = std::find_if(columns_.begin(), columns_.end(),
                                 [&](const GridColumn &c) { return c.sKey == key; });
    return it == columns_.end() ? nullptr : &*it;
}

GridColumn *GridColumns::Item(int position)
{
    if (position < 1 || position > Count())
        return nullptr;
    return &columns_[size_t(position - 1)];
}

void GridColumns::Remove(const QString &key)
{
    std::erase_if(columns_, [&](const GridColumn &c) { return c.sKey == key; });
}

int GridColumns::GetColumnIndexByKey(const QString &key) const
{
    for (const GridColumn &column : columns_)
        if (column.ColumnKey == key)
            return column.ColumnIndex;
    return 0;
}

} // namespace pw
