#pragma once
// The export of the checked rows as delimited text: the header and the checked rows, the
// visible columns in the order of the screen, cells as they stand.

#include <QDate>
#include <QString>

#include <functional>

class FlexGridModel;

namespace pw {

struct AppContext;
class CatalogueGrid;

// The file name the export dialog gives back when it was cancelled or closed.
inline const QString ExportCancelled = QStringLiteral("//Cancelled//");

// What the export dialog answers.
struct ExportTarget {
    QString filename = ExportCancelled;
    bool OpenFile = false;
    QString ColumnSaperator; // one character; "" gives tabs
};

using AskExportTarget = std::function<ExportTarget()>;

// The Export button: refuses an empty catalogue or one without checks, else exports. A
// failed export ends in the failure log, without a box.
void cmdExport_Click(CatalogueGrid &catalogue, const AskExportTarget &askTarget);

// Copies the grid, drops the unchecked rows, asks for the target and writes it. True after a
// finished export; false when cancelled. Any other failure is raised.
bool ExportCheckedRows(FlexGridModel &grid, AppContext &context, const AskExportTarget &askTarget);

// The default file name on `date`: "yyyy_MM_dd_Data".
QString DefaultExportName(const QDate &date);

} // namespace pw
