#pragma once
// The catalogue: its columns, its rows (one per hit), page counts and the summary of checked
// rows. The grid's model is the catalogue's only store; windows show it through a FlexGrid.

#include <QString>

#include <cstdint>

class FlexGridModel;
class QFileInfo;

namespace pw {

struct AppContext;
class GridColumns;
struct GridColumn;

// Cached positions of the eight column keys, refreshed at the start of each search.
struct ColumnIndices {
    int name = 0, selection = 0, location = 0, size = 0, type = 0, created = 0, modified = 0,
        pages = 0;
    void refresh(const GridColumns &columns);
};

// The date format of the two date columns.
inline constexpr const char *CatalogueDateFormat = "dd/mm/yyyy hh:mm ampm";

// A column's width, date format and alignment as its descriptor gives them; the dialogs' file
// lists look like the catalogue through it.
void ApplyColumnLook(FlexGridModel &model, const GridColumn &column);

// A file's type as the catalogue shows it: the shell's name in lower case ("png image";
// executables read "application" and desktop launchers "shortcut"), and the key of its picture
// (a MIME type name, or a launcher's own path), which a view turns into an icon.
struct FileType {
    QString name;
    QString pictureKey;
};
FileType FileTypeOf(const QFileInfo &file);

class CatalogueGrid {
public:
    CatalogueGrid(FlexGridModel &model, AppContext &context) : model_(model), context_(context) {}

    FlexGridModel &model() { return model_; }
    AppContext &context() { return context_; }
    ColumnIndices &columns() { return columns_; }

    // Builds the grid from the column descriptors, once, at the window's load.
    void InitFiles();
    // Applies changed column settings to a grid that already has rows.
    void RefreshGrid();
    // Stores the current column widths when the window closes, if so set.
    void StoreColumnWidths();
    // Sorts at the end of a search on `col`, the grid's current column, as writing an order to
    // the grid's Sort does: ascending, numerically when the user's setting says so, and
    // within the rules of that column.
    void SortSearchResult(int col);

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

private:
    bool pagesVisible() const;
    void writePageCount(int row, const QString &path, const QString &name, bool addToTotals);
    void applyVisibility();
    // Sorts the data rows by `col`, in the order the column's rules make of `order`.
    void sortColumn(int col, int order);

    FlexGridModel &model_;
    AppContext &context_;
    ColumnIndices columns_;
};

} // namespace pw
