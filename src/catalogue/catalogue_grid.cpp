#include "catalogue_grid.h"

#include "column_layout.h"
#include "page_rules.h"
#include "search_criteria.h"

#include "core/failure_log.h"
#include "core/globals.h"
#include "core/path_helpers.h"
#include "core/runtime.h"
#include "core/ui_services.h"
#include "widgets/flex_grid.h"

#include <QFileIconProvider>
#include <QFileInfo>
#include <QMimeDatabase>

namespace pw {

namespace {

const Unit mainForm = Unit::form("frmMain");

constexpr int AlignLeftCentre = 1;
constexpr int AlignRightCentre = 7;

void applyColumnLook(FlexGrid &grid, const GridColumn &column)
{
    grid.setColWidth(column.ColumnIndex, int(column.ColumnWidth));
    if (column.ColumnDatatype == DataTypeDate)
        grid.setColFormat(column.ColumnIndex, CatalogueDateFormat);
    if (column.ColumnDatatype == DataTypeDecimal)
        grid.setColAlignment(column.ColumnIndex, AlignRightCentre);
}

void applyVisibility(FlexGrid &grid)
{
    ColumnVisibilityList = Split(AppSettings->ColumnVisibility(), ",");
    for (int i = 0; i < ColumnVisibilityList.size() && i < grid.Cols(); ++i)
        grid.setColHidden(i, ColumnVisibilityList[i] != "1");
}

QDateTime createdTime(const QFileInfo &info)
{
    // Not every file system records a birth time; the last status change stands in.
    const QDateTime birth = info.birthTime();
    return birth.isValid() ? birth : info.metadataChangeTime();
}

} // namespace

void ColumnIndices::refresh()
{
    name = GetColumnIndexByKey("Name");
    selection = GetColumnIndexByKey("Selection");
    location = GetColumnIndexByKey("Location");
    size = GetColumnIndexByKey("Size (In KB)");
    type = GetColumnIndexByKey("Type");
    created = GetColumnIndexByKey("Created Date");
    modified = GetColumnIndexByKey("Modified Date");
    pages = GetColumnIndexByKey("Pages");
}

void CatalogueGrid::InitFiles()
{
    PW_PROCEDURE("InitFiles", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        LoadGridColumns();
        PW_STEP;
        grid_.setExplorerBar(FlexGrid::kExplorerSort | FlexGrid::kExplorerMove);
        grid_.setEditable(0);
        grid_.setFixedCols(0);
        grid_.setFixedRows(1);
        grid_.setRows(1);
        grid_.setCols(ColumnList->Count());
        grid_.setColAlignment(-1, AlignLeftCentre);
        PW_STEP;
        for (const GridColumn &column : *ColumnList) {
            grid_.setTextMatrix(0, column.ColumnIndex, column.ColumnName);
            grid_.setColKey(column.ColumnIndex, column.ColumnKey);
            grid_.setColDataType(column.ColumnIndex, column.ColumnDatatype);
            applyColumnLook(grid_, column);
        }
        PW_STEP;
        grid_.setSort(SortGenericDescending);
        PW_STEP;
        applyVisibility(grid_);
        columns_.refresh();
    });
}

void CatalogueGrid::RefreshGrid()
{
    PW_PROCEDURE("RefreshGrid", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        LoadGridColumns();
        ColumnWidths = Split(AppSettings->LastGridColWidth(), ",");
        ColumnOrderList = Split(AppSettings->ColumnReOrder(), ",");
        int i = 0;
        for (GridColumn &column : *ColumnList)
            if (i < ColumnWidths.size())
                column.ColumnWidth = CSng(ColumnWidths[i++]);
        PW_STEP;
        for (const GridColumn &column : *ColumnList) {
            for (int col = 0; col < grid_.Cols(); ++col) {
                if (grid_.TextMatrix(0, col) == column.ColumnName) {
                    grid_.setColPosition(col, column.ColumnIndex);
                    break;
                }
            }
            applyColumnLook(grid_, column);
        }
        PW_STEP;
        applyVisibility(grid_);
        columns_.refresh();
    });
}

void CatalogueGrid::StoreColumnWidths()
{
    if (AppSettings->LastGridColWidthFlag() != 1)
        return;
    QStringList widths;
    for (int col = 0; col < grid_.Cols(); ++col)
        widths << QString::number(grid_.ColWidth(col));
    AppSettings->setLastGridColWidth(widths.join(","));
}

QString FileTypeName(const QFileInfo &file)
{
    if (file.suffix().compare("desktop", Qt::CaseInsensitive) == 0 || file.isSymLink())
        return "shortcut";
    // The name of a type depends only on the extension here; a search meets few of them.
    static QHash<QString, QString> byExtension;
    const QString ext = file.suffix().toLower();
    const auto known = byExtension.constFind(ext);
    if (known != byExtension.constEnd())
        return *known;
    static const QMimeDatabase mimes;
    const QMimeType mime = mimes.mimeTypeForFile(file, QMimeDatabase::MatchExtension);
    const QString type =
        mime.inherits("application/x-executable") || mime.inherits("application/x-sharedlib")
            ? QStringLiteral("application")
            : mime.comment().toLower();
    return byExtension.insert(ext, type).value();
}

QIcon CatalogueGrid::iconFor(const QFileInfo &file, const QString &type)
{
    // One picture per type name; launchers carry pictures of their own, and all programs
    // share one.
    const QString key = type == "shortcut" ? file.fileName()
                        : type == "application" ? QStringLiteral("DOSExeIcon")
                                                : type;
    auto it = imlFile_.find(key);
    if (it == imlFile_.end()) {
        static const QFileIconProvider provider;
        it = imlFile_.insert(key, provider.icon(file));
    }
    return *it;
}

bool CatalogueGrid::pagesVisible() const
{
    const QString flag = ColumnVisibilityList.value(columns_.pages);
    return IsNumeric(flag) ? Val(flag) != 0 : flag.compare("True", Qt::CaseInsensitive) == 0;
}

void CatalogueGrid::writePageCount(int row, const QString &path, const QString &name,
                                   bool addToTotals)
{
    const PageKind kind = PageKindOf(name);
    if (kind == PageKind::None)
        return;
    const int32_t count = CountPages(kind, ValidateDir(path) + name);
    grid_.setTextMatrix(row, columns_.pages, PagesCellText(kind, count));
    if (!addToTotals || count < 1)
        return;
    const int32_t value = int32_t(Val(grid_.TextMatrix(row, columns_.pages)));
    (kind == PageKind::Pdf ? PdfPageTotal : TiffPageTotal) += value;
}

void CatalogueGrid::AddFileToGrid(const QString &path, const QFileInfo &info)
{
    const QString name = TrimNull(info.fileName());
    if (name == "." || name == "..")
        return;
    const QString type = FileTypeName(info);
    const int row = grid_.Rows();
    grid_.setRows(row + 1);
    grid_.setTextMatrix(row, columns_.name, name);
    grid_.setCellPicture(row, columns_.name, iconFor(info, type));
    grid_.setTextMatrix(row, columns_.location, path);
    grid_.setTextMatrix(row, columns_.size,
                        FormatNumber(RoundUpToWhole(double(info.size()) / 1024.0), "###,###,##0") +
                            " KB");
    grid_.setTextMatrix(row, columns_.type, type);
    grid_.setTextMatrix(row, columns_.created, FormatDate(createdTime(info), CatalogueDateFormat));
    grid_.setTextMatrix(row, columns_.modified,
                        FormatDate(info.lastModified(), CatalogueDateFormat));
    if (pagesVisible())
        writePageCount(row, path, name, true);
    DoEvents();
}

void CatalogueGrid::GetPageCount()
{
    PW_PROCEDURE("GetPageCount", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        columns_.refresh();
        if (Val(ColumnVisibilityList.value(columns_.pages)) != 0)
            return;
        for (int row = 1; row < grid_.Rows(); ++row) {
            PW_STEP;
            if (grid_.cellChecked(row, columns_.selection) != 1)
                continue;
            writePageCount(row, grid_.TextMatrix(row, columns_.location),
                           grid_.TextMatrix(row, columns_.name), false);
        }
    });
}

QString CatalogueGrid::getSelectedFileinfo()
{
    QString result;
    PW_PROCEDURE("getSelectedFileinfo", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        columns_.refresh();
        int selected = 0;
        long long tiffSum = 0;
        long long pdfSum = 0;
        for (int row = 1; row < grid_.Rows(); ++row) {
            if (grid_.cellChecked(row, columns_.selection) != 1)
                continue;
            const QString name = grid_.TextMatrix(row, columns_.name);
            const QString ext = name.mid(name.lastIndexOf('.')).toLower();
            const QString pages = grid_.TextMatrix(row, columns_.pages);
            const long long value = IsNumeric(pages) ? (long long)Val(pages) : 0;
            // Every file that is not a PDF adds to the sum shown as TIFF pages; the PDF sum
            // is kept and not shown.
            (ext == ".pdf" ? pdfSum : tiffSum) += value;
            ++selected;
        }
        result = QString::number(selected) +
                 " file selected; Total Page count of selected Tiff files: " +
                 QString::number(tiffSum);
    });
    return result;
}

} // namespace pw
