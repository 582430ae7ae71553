#include "catalogue_grid.h"

#include "column_layout.h"
#include "search_criteria.h"

#include "backends/page_count/page_rules.h"
#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "core/runtime.h"
#include "grid/flex_grid_model.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMimeDatabase>

namespace pw {

namespace {

const Unit mainForm = Unit::form("frmMain");

constexpr int AlignLeftCentre = 1;
constexpr int AlignRightCentre = 7;

} // namespace

void ApplyColumnLook(FlexGridModel &model, const GridColumn &column)
{
    model.setColumnWidth(column.ColumnIndex, std::max(0, int(column.ColumnWidth)));
    if (column.ColumnDatatype == flexgrid::kDate)
        model.setColumnFormat(column.ColumnIndex, CatalogueDateFormat);
    if (column.ColumnDatatype == flexgrid::kDecimal)
        model.setColumnAlignment(column.ColumnIndex, AlignRightCentre);
}

void ColumnIndices::refresh(const GridColumns &columns)
{
    name = columns.GetColumnIndexByKey("Name");
    selection = columns.GetColumnIndexByKey("Selection");
    location = columns.GetColumnIndexByKey("Location");
    size = columns.GetColumnIndexByKey("Size (In KB)");
    type = columns.GetColumnIndexByKey("Type");
    created = columns.GetColumnIndexByKey("Created Date");
    modified = columns.GetColumnIndexByKey("Modified Date");
    pages = columns.GetColumnIndexByKey("Pages");
}

void CatalogueGrid::applyVisibility()
{
    context_.ColumnVisibilityList = Split(context_.settings().ColumnVisibility(), ",");
    for (int i = 0; i < context_.ColumnVisibilityList.size() && i < model_.cols(); ++i)
        model_.setColumnHidden(i, context_.ColumnVisibilityList[i] != "1");
}

void CatalogueGrid::sortColumn(int col, int order)
{
    model_.sortRows(col, col, SortOrderForColumn(context_, col, order));
}

void CatalogueGrid::InitFiles()
{
    PW_PROCEDURE("InitFiles", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        LoadGridColumns(context_);
        PW_STEP;
        model_.setRows(1);
        model_.setCols(context_.ColumnList.Count());
        for (int col = 0; col < model_.cols(); ++col)
            model_.setColumnAlignment(col, AlignLeftCentre);
        PW_STEP;
        for (const GridColumn &column : context_.ColumnList) {
            model_.setText(0, column.ColumnIndex, column.ColumnName);
            model_.setColumnKey(column.ColumnIndex, column.ColumnKey);
            model_.setColumnDataType(column.ColumnIndex, column.ColumnDatatype);
            ApplyColumnLook(model_, column);
        }
        PW_STEP;
        sortColumn(0, flexgrid::kGenericDescending);
        PW_STEP;
        applyVisibility();
        columns_.refresh(context_.ColumnList);
    });
}

void CatalogueGrid::RefreshGrid()
{
    PW_PROCEDURE("RefreshGrid", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        LoadGridColumns(context_);
        context_.ColumnWidths = Split(context_.settings().LastGridColWidth(), ",");
        context_.ColumnOrderList = Split(context_.settings().ColumnReOrder(), ",");
        int i = 0;
        for (GridColumn &column : context_.ColumnList)
            if (i < context_.ColumnWidths.size())
                column.ColumnWidth = CSng(context_.ColumnWidths[i++]);
        PW_STEP;
        for (const GridColumn &column : context_.ColumnList) {
            for (int col = 0; col < model_.cols(); ++col) {
                if (model_.text(0, col) == column.ColumnName) {
                    model_.moveColumn(col, column.ColumnIndex);
                    break;
                }
            }
            ApplyColumnLook(model_, column);
        }
        PW_STEP;
        applyVisibility();
        columns_.refresh(context_.ColumnList);
    });
}

void CatalogueGrid::StoreColumnWidths()
{
    if (context_.settings().LastGridColWidthFlag() != 1)
        return;
    QStringList widths;
    for (int col = 0; col < model_.cols(); ++col)
        widths << QString::number(model_.column(col).widthTwips);
    context_.settings().setLastGridColWidth(widths.join(","));
}

void CatalogueGrid::SortSearchResult(int col)
{
    sortColumn(col, context_.settings().SortbyNumeric() != 0 ? flexgrid::kNumericAscending
                                                             : flexgrid::kGenericAscending);
}

FileType FileTypeOf(const QFileInfo &file)
{
    if (file.suffix().compare("desktop", Qt::CaseInsensitive) == 0 || file.isSymLink())
        return {QStringLiteral("shortcut"), file.absoluteFilePath()};
    static const QMimeDatabase mimes;
    // The whole name decides, not only the extension: "CMakeLists.txt", "README", "Makefile".
    QMimeType mime = mimes.mimeTypeForFile(file.fileName(), QMimeDatabase::MatchExtension);
    // A name that tells nothing leaves a program to be recognised by its content, and only a
    // file that may run is read for that.
    if (mime.isDefault() && file.isFile() && file.isExecutable())
        mime = mimes.mimeTypeForFile(file.absoluteFilePath(), QMimeDatabase::MatchContent);
    // Looking a type's description up costs far more than matching the name; every row of a
    // type shares one copy of its texts.
    static QHash<QString, FileType> byMimeType;
    const auto known = byMimeType.constFind(mime.name());
    if (known != byMimeType.constEnd())
        return *known;
    const bool program =
        mime.inherits("application/x-executable") || mime.inherits("application/x-sharedlib");
    // All programs share one picture.
    const FileType type = program ? FileType{QStringLiteral("application"),
                                             QStringLiteral("application/x-executable")}
                                  : FileType{mime.comment().toLower(), mime.name()};
    return byMimeType.insert(mime.name(), type).value();
}

bool CatalogueGrid::pagesVisible() const
{
    const QString flag = context_.ColumnVisibilityList.value(columns_.pages);
    return IsNumeric(flag) ? Val(flag) != 0 : flag.compare("True", Qt::CaseInsensitive) == 0;
}

void CatalogueGrid::writePageCount(int row, const QString &path, const QString &name,
                                   bool addToTotals)
{
    const PageKind kind = PageKindOf(name.toStdString());
    if (kind == PageKind::None)
        return;
    const int32_t count = context_.pageCounters.CountPages(
        kind, QFile::encodeName(ValidateDir(path) + name).toStdString());
    model_.setText(row, columns_.pages, QString::fromStdString(PagesCellText(kind, count)));
    if (!addToTotals || count < 1)
        return;
    const int32_t value = int32_t(Val(model_.text(row, columns_.pages)));
    (kind == PageKind::Pdf ? PdfPageTotal : TiffPageTotal) += value;
}

void CatalogueGrid::AddFileToGrid(const QString &path, const QFileInfo &info)
{
    const QString name = TrimNull(info.fileName());
    if (name == "." || name == "..")
        return;
    const FileType type = FileTypeOf(info);
    const int row = model_.rows();
    model_.setRows(row + 1);
    model_.setText(row, columns_.name, name);
    model_.setPicture(row, columns_.name, type.pictureKey);
    model_.setText(row, columns_.location, path);
    model_.setText(row, columns_.size,
                   FormatNumber(RoundUpToWhole(double(info.size()) / 1024.0), "###,###,##0") +
                       " KB");
    model_.setText(row, columns_.type, type.name);
    model_.setText(row, columns_.created, FormatDate(CreatedTime(info), CatalogueDateFormat));
    model_.setText(row, columns_.modified, FormatDate(info.lastModified(), CatalogueDateFormat));
    if (pagesVisible())
        writePageCount(row, path, name, true);
    context_.ui.DoEvents();
}

void CatalogueGrid::GetPageCount()
{
    PW_PROCEDURE("GetPageCount", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        columns_.refresh(context_.ColumnList);
        if (Val(context_.ColumnVisibilityList.value(columns_.pages)) != 0)
            return;
        for (int row = 1; row < model_.rows(); ++row) {
            PW_STEP;
            if (model_.check(row, columns_.selection) != flexgrid::kChecked)
                continue;
            writePageCount(row, model_.text(row, columns_.location),
                           model_.text(row, columns_.name), false);
        }
    });
}

QString CatalogueGrid::getSelectedFileinfo()
{
    QString result;
    PW_PROCEDURE("getSelectedFileinfo", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        columns_.refresh(context_.ColumnList);
        int selected = 0;
        long long tiffSum = 0;
        long long pdfSum = 0;
        for (int row = 1; row < model_.rows(); ++row) {
            if (model_.check(row, columns_.selection) != flexgrid::kChecked)
                continue;
            const QString name = model_.text(row, columns_.name);
            const QString ext = name.mid(name.lastIndexOf('.')).toLower();
            const QString pages = model_.text(row, columns_.pages);
            const long long value = IsNumeric(pages) ? (long long)Val(pages) : 0;
            // Every file that is not a PDF adds to the sum shown as TIFF pages; the PDF sum
            // is kept and not shown.
            (ext == ".pdf" ? pdfSum : tiffSum) += value;
            ++selected;
        }
        result =
            QString::number(selected) +
            " file selected; Total Page count of selected Tiff files: " + QString::number(tiffSum);
    });
    return result;
}

} // namespace pw
