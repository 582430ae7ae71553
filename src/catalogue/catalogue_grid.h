#pragma once
// The catalogue grid: its columns, its rows (one per hit), page counts and the summary of
// checked rows. The grid's cells are the catalogue's only store.

#include <QHash>
#include <QIcon>
#include <QString>

#include <cstdint>

class FlexGrid;
class QFileInfo;

namespace pw {

// Cached positions of the eight column keys, refreshed at the start of each search.
struct ColumnIndices {
    int name = 0, selection = 0, location = 0, size = 0, type = 0, created = 0, modified = 0,
        pages = 0;
    void refresh();
};

// The date format of the two date columns.
inline constexpr const char *CatalogueDateFormat = "dd/mm/yyyy hh:mm ampm";

class CatalogueGrid {
public:
    explicit CatalogueGrid(FlexGrid &grid) : grid_(grid) {}

    FlexGrid &grid() { return grid_; }
    ColumnIndices &columns() { return columns_; }

    // Builds the grid from the column descriptors, once, at the window's load.
    void InitFiles();
    // Applies changed column settings to a grid that already has rows.
    void RefreshGrid();
    // Stores the current column widths when the window closes, if so set.
    void StoreColumnWidths();

    // Adds one row for `file`, found in `path`, with its page count when "Pages" shows
    // (as ColumnVisibilityList said when the search began).
    void AddFileToGrid(const QString &path, const QFileInfo &file);
    // Counts the pages of the checked rows when "Pages" is hidden (nothing was counted during
    // the search); run before every conversion.
    void GetPageCount();
    // "N file selected; Total Page count of selected Tiff files: M" over the checked rows.
    QString getSelectedFileinfo();

    // Running sums of the page counts of one search; only counts of 1 or more add.
    int32_t PdfPageTotal = 0;
    int32_t TiffPageTotal = 0;

    // The shared picture of each file type, gathered for the whole run.
    QIcon iconFor(const QFileInfo &file, const QString &type);

private:
    bool pagesVisible() const;
    void writePageCount(int row, const QString &path, const QString &name, bool addToTotals);

    FlexGrid &grid_;
    ColumnIndices columns_;
    QHash<QString, QIcon> imlFile_;
};

// The shell's type name of a file, in lower case ("png image"); executables read
// "application" and desktop launchers "shortcut".
QString FileTypeName(const QFileInfo &file);

} // namespace pw
