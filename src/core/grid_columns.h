#pragma once
// The catalogue's column descriptors: an ordered collection keyed by column key.

#include "grid/grid_codes.h"

#include <QString>

#include <vector>

namespace pw {

struct GridColumn {
    QString ColumnKey;
    float ColumnWidth = 0; // twips
    int ColumnIndex = 0;   // display position from 0
    QString ColumnName;
    int ColumnDatatype = flexgrid::kText; // a flexgrid::DataType
    QString sKey;
};

// Lookups and removals never fail: a missing key gives nothing.
class GridColumns {
public:
    // Stores a descriptor under `sKey`, before the 1-based position `Before` (0: at the end).
    // A key already present is refused (returns nullptr).
    GridColumn *Add(const QString &ColumnKey, float ColumnWidth, int ColumnIndex,
                    const QString &ColumnName, int ColumnDatatype, const QString &sKey,
                    int Before = 0);
    GridColumn *Item(const QString &key); // nullptr when absent
    GridColumn *Item(int position);       // 1-based, nullptr when out of range
    void Remove(const QString &key);
    int Count() const { return int(columns_.size()); }
    // The display position of the column with exactly this key; an unknown key gives 0.
    int GetColumnIndexByKey(const QString &key) const;

    auto begin() { return columns_.begin(); }
    auto end() { return columns_.end(); }
    auto begin() const { return columns_.begin(); }
    auto end() const { return columns_.end(); }

private:
    std::vector<GridColumn> columns_;
};

} // namespace pw
