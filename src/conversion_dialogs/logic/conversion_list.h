#pragma once
// The file list of the conversion dialogs: a grid laid out like the catalogue, filled from the
// rows the main window handed over, and read back into rows in the order it shows.

#include "engine/conversion_row.h"

#include <QString>
#include <QStringList>

class FlexGridModel;

namespace pw {

struct AppContext;
struct ColumnIndices;

// Lays `list` out like the catalogue: every column of ColumnList at its position with its
// caption, width, type and the visibility that ColumnVisibility gives it; the columns whose
// keys are in `hiddenKeys` are hidden whatever the setting says. No row below the header.
void InitFileList(FlexGridModel &list, AppContext &context, const QStringList &hiddenKeys);

// One row per record, in order, each ticked. "Pages" stays empty whatever the record holds:
// the dialogs show no counts, and the blank column is kept as users know it.
void FillFileList(FlexGridModel &list, const ColumnIndices &columns, const SelectedData &rows);

// The record of a row of the catalogue or of a dialog's list: the cells as displayed, and the
// page count when "Pages" holds a number (0 otherwise).
clsColSetOrderGrid RecordFromRow(const FlexGridModel &grid, const ColumnIndices &columns, int row);

} // namespace pw
