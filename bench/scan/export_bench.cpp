// The export of a large catalogue, on the program's code: a grid of ROWS rows in the
// catalogue's eight columns, nine rows in ten checked, written as OUT by the export (the copy
// through the temporary file, the removal of the unchecked rows, the columns of the file).
//
//   export_bench ROWS OUT STORAGE_DIR
//
// OUT's extension picks the separator: .txt and .doc take ";", .xls and .csv tabs. Prints one
// line: "rows N seconds S".

#include "catalogue/catalogue_grid.h"
#include "catalogue/list_export.h"
#include "core/app_context.h"
#include "core/master_layout.h"
#include "core/settings.h"
#include "core/ui_services.h"
#include "grid/flex_grid_model.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>

#include <cstdio>

using namespace pw;

namespace {

// Cells as a search of a scan archive fills them.
void fill(FlexGridModel &model, const ColumnIndices &c, int rows)
{
    model.suspend();
    model.setRows(rows + 1);
    for (int row = 1; row <= rows; ++row) {
        const int n = row - 1;
        model.setText(row, c.name, QString("scan_%1.tif").arg(n, 6, 10, QChar('0')));
        model.setText(row, c.location,
                      QString("/home/user/Archive/%1/batch %2")
                          .arg(2010 + n % 15)
                          .arg(n % 400, 3, 10, QChar('0')));
        model.setText(row, c.size, QString("%L1 KB").arg(40 + n % 9000));
        model.setText(row, c.type, "tiff image");
        model.setText(row, c.created, "09/05/2026 07:37 AM");
        model.setText(row, c.modified, "10/05/2026 11:02 PM");
        model.setText(row, c.pages, QString::number(1 + n % 12));
        model.setCheck(row, c.selection, n % 10 == 9 ? flexgrid::kUnchecked : flexgrid::kChecked);
    }
    model.resume();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    if (args.size() != 3) {
        std::fputs("usage: export_bench ROWS OUT STORAGE_DIR\n", stderr);
        return 2;
    }
    QuietUi ui;
    AppContext context(ui);
    context.FileStoragePath = args[2];
    QDir().mkpath(args[2]);
    context.AppSettings = std::make_unique<Settings>(context.FileStoragePath, ui);
    context.settings().LoadDefaultSettings();
    context.ColumnList = MakeColumnList();
    FlexGridModel model;
    CatalogueGrid catalogue(model, context);
    catalogue.InitFiles();
    const int rows = args[0].toInt();
    fill(model, catalogue.columns(), rows);

    const QString out = QDir().absoluteFilePath(args[1]);
    const bool typed = out.endsWith(".txt") || out.endsWith(".doc");
    QElapsedTimer clock;
    clock.start();
    const bool written = ExportCheckedRows(model, context, [&] {
        return ExportTarget{out, true, typed ? ";" : ""};
    });
    const double seconds = double(clock.nsecsElapsed()) / 1e9;
    std::printf("rows %d seconds %.3f\n", rows, seconds);
    return written ? 0 : 1;
}
