#include "rename_by_pages.h"

#include "core/failure_log.h"
#include "core/grid_columns.h"
#include "core/path_helpers.h"
#include "core/runtime.h"
#include "grid/flex_grid_model.h"

#include <QFile>

namespace pw {

namespace {

const Unit form = Unit::form("frmRenameFiles");

constexpr int NewNameWidth = 1200;

QString inserted(const RenamePattern &pattern, const QString &number)
{
    const QString &separator = pattern.sepAtCharPos;
    if (pattern.prefix && pattern.suffix)
        return separator + number + separator;
    if (pattern.prefix)
        return separator + number;
    if (pattern.suffix)
        return number + separator;
    return number;
}

QString atCharPos(const QString &base, const QString &text, RenamePattern &pattern)
{
    if (pattern.charPos.isEmpty())
        pattern.charPos = "1";
    const int position = CInt(pattern.charPos);
    if (position > base.size())
        return base + text;
    if (position < 1)
        throw RuntimeError::fromNumber(5);
    return base.left(position - 1) + text + base.mid(position - 1);
}

} // namespace

QString GetInputMask(const QString &mask, int16_t pages)
{
    QString result;
    PW_PROCEDURE("GetInputMask", form);
    guarded(pwTail, [&] {
        PW_STEP;
        const QString count = QString::number(pages);
        result = QString(std::max<qsizetype>(0, mask.size() - count.size()), '0') + count;
    });
    return result;
}

QString NewFileName(const QString &name, const QString &pages, RenamePattern &pattern)
{
    const QString base = NameBeforeLastDot(name);
    const QString number = GetInputMask(pattern.paddingMask, CInt(pages));
    QString newBase = base;
    switch (pattern.option) {
    case RenamePattern::AtCharPos:
        newBase = atCharPos(base, inserted(pattern, number), pattern);
        break;
    case RenamePattern::PrefixAsPageCount:
        newBase = number + pattern.sepPrefix + base;
        break;
    case RenamePattern::SuffixAsPageCount:
        newBase = base + pattern.sepSuffix + number;
        break;
    case RenamePattern::NoOption:
        break;
    }
    return newBase + "." + GetFileExt(name);
}

bool RenameFile(const QString &from, const QString &to)
{
    bool result = false;
    PW_PROCEDURE("RenameFile", form);
    guarded(pwTail, [&] {
        PW_STEP;
        QFile file(from);
        if (!file.rename(to))
            throw RuntimeError(file.error() == QFileDevice::PermissionsError ? 70 : 75,
                               file.errorString());
        result = true;
    });
    return result;
}

RenameList::RenameList(FlexGridModel &grid, const GridColumns &columns)
    : grid_(grid), columns_(columns)
{
    cols_.refresh(columns);
    newName_ = columns.Count();
}

void RenameList::InitFiles()
{
    PW_PROCEDURE("InitFiles", form);
    guarded(pwTail, [&] {
        PW_STEP;
        grid_.setEditable(false);
        grid_.setRows(1);
        grid_.setCols(newName_ + 1);
        for (const GridColumn &column : columns_) {
            grid_.setText(0, column.ColumnIndex, column.ColumnName);
            grid_.setColumnKey(column.ColumnIndex, column.ColumnKey);
            ApplyColumnLook(grid_, column);
            grid_.setColumnHidden(column.ColumnIndex, column.ColumnIndex != cols_.name);
        }
        PW_STEP;
        grid_.setText(0, newName_, "New file name");
        grid_.setColumnWidth(newName_, NewNameWidth);
    });
}

void RenameList::FillGrid(const SelectedData &rows)
{
    PW_PROCEDURE("FillGrid", form);
    guarded(pwTail, [&] {
        PW_STEP;
        grid_.setRows(1 + int(rows.size()));
        int row = 1;
        for (const clsColSetOrderGrid &record : rows) {
            grid_.setText(row, cols_.name, record.filename());
            grid_.setText(row, cols_.location, record.FileLocation());
            grid_.setText(row, cols_.size, record.FileSize());
            grid_.setText(row, cols_.type, record.FileType());
            grid_.setText(row, cols_.created, record.FileCreDate());
            grid_.setText(row, cols_.modified, record.FileModDate());
            grid_.setText(row, cols_.pages, QString::number(record.PageCount()));
            ++row;
        }
    });
}

void RenameList::Preview(RenamePattern &pattern)
{
    PW_PROCEDURE("cmdPreview_Click", form);
    guarded(pwTail, [&] {
        for (int row = 1; row < grid_.rows(); ++row) {
            PW_STEP;
            const QString name =
                NewFileName(grid_.text(row, cols_.name), grid_.text(row, cols_.pages), pattern);
            grid_.setText(row, newName_, name);
            PW_STEP;
            grid_.setForeColor(row, newName_,
                               Dir(name).isEmpty() ? grid_.foreColor(row, cols_.name)
                                                   : ExistsColor);
        }
    });
}

bool RenameList::validateFilenames() const
{
    bool result = false;
    PW_PROCEDURE("validateFilenames", form);
    guarded(pwTail, [&] {
        PW_STEP;
        for (int row = 1; row < grid_.rows(); ++row) {
            if (grid_.text(row, newName_).isEmpty())
                return;
        }
        result = true;
    });
    return result;
}

std::optional<RenameOutcome> RenameList::Apply()
{
    std::optional<RenameOutcome> result;
    PW_PROCEDURE("cmdOk_Click", form);
    guarded(pwTail, [&] {
        RenameOutcome outcome;
        for (int row = 1; row < grid_.rows(); ++row) {
            PW_STEP;
            const QString folder = ValidateDir(grid_.text(row, cols_.location));
            const QString source = folder + grid_.text(row, cols_.name);
            const QString target = folder + grid_.text(row, newName_);
            if (Dir(source).isEmpty())
                outcome.notFound += source + "\r\n";
            else if (!Dir(target).isEmpty())
                outcome.alreadyExists += target + "\r\n";
            else if (!RenameFile(source, target))
                outcome.failed += source + "  To  " + target + "\r\n";
        }
        result = outcome;
    });
    return result;
}

} // namespace pw
