// Loads, sorts and exports a catalogue-sized FlexGrid and prints how long each step took.
// Usage: flex_grid_bench [rows]   (default 200000; run with QT_QPA_PLATFORM=offscreen
// where there is no display)

#include "flex_grid.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <malloc.h>

#include <cstdio>

namespace {

void Report(const char *step, QElapsedTimer &timer)
{
    std::printf("%-38s %8.1f ms\n", step, timer.nsecsElapsed() / 1e6);
    timer.restart();
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const int rows = argc > 1 ? std::atoi(argv[1]) : 200000;
    const QStringList keys = {"Name",         "Selection", "Pages",        "Location",
                              "Size (In KB)", "Type",      "Created Date", "Modified Date"};
    FlexGrid grid;
    grid.resize(1000, 700);
    grid.show();
    grid.setExplorerBar(7);
    grid.setCols(int(keys.size()));
    for (int col = 0; col < keys.size(); ++col) {
        grid.setTextMatrix(0, col, keys[col]);
        grid.setColKey(col, keys[col]);
    }
    grid.setColDataType(1, 11);
    grid.setColDataType(6, 7);
    grid.setColFormat(6, "dd/mm/yyyy hh:mm ampm");
    const QString icon = "image/tiff";

    const size_t heapBefore = mallinfo2().uordblks;
    QElapsedTimer timer;
    timer.start();
    grid.setRedraw(false);
    grid.setVisible(false);
    // Row by row, as the scan adds its hits.
    for (int i = 0; i < rows; ++i) {
        const int row = grid.Rows();
        grid.setRows(row + 1);
        grid.setTextMatrix(row, 0, QString("scan_%1.tif").arg((i * 7919) % rows));
        grid.setCellPicture(row, 0, icon);
        grid.setTextMatrix(row, 2, QString::number(i % 40));
        grid.setTextMatrix(row, 3, QString("/home/user/Scans/box_%1").arg(i / 500));
        grid.setTextMatrix(row, 4, QString("%L1 KB").arg((i * 31) % 90000));
        grid.setTextMatrix(row, 5, "tiff image");
        grid.setTextMatrix(row, 6,
                           QString("%1/%2/20%3 %4:15 %5")
                               .arg(1 + i % 28, 2, 10, QChar('0'))
                               .arg(1 + i % 12, 2, 10, QChar('0'))
                               .arg(10 + i % 15)
                               .arg(1 + i % 12, 2, 10, QChar('0'))
                               .arg(i % 2 ? "PM" : "AM"));
        grid.setTextMatrix(row, 7, "03/02/2026 10:16 AM");
    }
    Report("fill (Redraw off, hidden)", timer);
    const size_t heapAfter = mallinfo2().uordblks;
    grid.setRedraw(true);
    grid.setVisible(true);
    app.processEvents();
    Report("Redraw on + show + first paint", timer);

    auto sortOn = [&](int col, int order, const char *label) {
        grid.setCol(col);
        grid.setSort(order);
        app.processEvents();
        Report(label, timer);
    };
    sortOn(0, 3, "sort Name numeric ascending (3)");
    sortOn(0, 4, "sort Name numeric descending (4)");
    sortOn(0, 1, "sort Name generic ascending (1)");
    sortOn(4, 3, "sort Size numeric ascending (3)");
    sortOn(6, 1, "sort Created Date as dates (1)");
    grid.setColPosition(0, 5);
    app.processEvents();
    Report("move column 0 to 5", timer);
    grid.setCellChecked(1, 1, grid.Rows() - 1, 1, 1);
    app.processEvents();
    Report("check all rows (block)", timer);
    const int found = grid.FindRow("Error", 1, 2);
    Report("FindRow over Pages (no hit)", timer);

    QTemporaryDir dir;
    grid.SaveGrid(dir.filePath("grid.txt"));
    Report("SaveGrid text", timer);
    FlexGrid copy;
    copy.setCols(grid.Cols());
    copy.setRedraw(false);
    copy.LoadGrid(dir.filePath("grid.txt"));
    copy.setRedraw(true);
    Report("LoadGrid text into a second grid", timer);
    // The export's pattern: the hidden copy loses every other row, top to bottom.
    copy.setRedraw(false);
    const int before = copy.Rows();
    for (int row = 1, removed = 0; row < before; row += 2, ++removed)
        copy.RemoveItem(row - removed);
    copy.setRedraw(true);
    Report("RemoveItem of every other row (off)", timer);
    const int visibleRemovals = 200;
    for (int i = 0; i < visibleRemovals; ++i)
        copy.RemoveItem(1);
    Report("RemoveItem x200 with Redraw on", timer);

    std::printf("rows %d, heap per row %.0f bytes, FindRow %d\n", rows,
                double(heapAfter - heapBefore) / rows, found);
    return 0;
}
