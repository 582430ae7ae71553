#include "flex_grid_model.h"

#include "flex_grid_sort.h"

#include <QFile>
#include <QLocale>
#include <QSaveFile>

#include <algorithm>
#include <numeric>

namespace {

template <typename T> void MoveElement(std::vector<T> &items, int from, int to)
{
    if (from < 0 || to < 0 || size_t(from) >= items.size() || size_t(to) >= items.size())
        return;
    if (from < to)
        std::rotate(items.begin() + from, items.begin() + from + 1, items.begin() + to + 1);
    else
        std::rotate(items.begin() + to, items.begin() + from, items.begin() + from + 1);
}

// Texts that a check cell takes as a state: what the program writes there by text ("1",
// "0", and the -1 of a true boolean) or a spelled-out truth value.
bool CheckFromText(const QString &text, int &state)
{
    const QString t = text.trimmed();
    if (t.compare(u"true", Qt::CaseInsensitive) == 0) {
        state = flexgrid::kChecked;
        return true;
    }
    if (t.compare(u"false", Qt::CaseInsensitive) == 0) {
        state = flexgrid::kUnchecked;
        return true;
    }
    bool ok = false;
    const double value = t.toDouble(&ok);
    if (!ok)
        return false;
    state = value != 0 ? flexgrid::kChecked : flexgrid::kUnchecked;
    return true;
}

int ViewRows(int gridRows)
{
    return std::max(0, gridRows - 1);
}

} // namespace

FlexGridModel::FlexGridModel(QObject *parent) : QAbstractTableModel(parent), slots_{0}, capacity_(1)
{
}

uint32_t FlexGridModel::takeSlot()
{
    if (!freeSlots_.empty()) {
        const uint32_t slot = freeSlots_.back();
        freeSlots_.pop_back();
        return slot;
    }
    for (Column &c : columns_) {
        c.text.emplace_back();
        if (!c.check.empty())
            c.check.push_back(flexgrid::kNoCheck);
        if (!c.picture.empty())
            c.picture.emplace_back();
        if (!c.foreColor.empty())
            c.foreColor.push_back(kDefaultColor);
    }
    return uint32_t(capacity_++);
}

void FlexGridModel::releaseSlot(uint32_t slot)
{
    for (Column &c : columns_) {
        c.text[slot] = QString();
        if (!c.check.empty())
            c.check[slot] = flexgrid::kNoCheck;
        if (!c.picture.empty())
            c.picture[slot] = QString();
        if (!c.foreColor.empty())
            c.foreColor[slot] = kDefaultColor;
    }
    freeSlots_.push_back(slot);
}

bool FlexGridModel::validCell(int row, int col) const
{
    return row >= 0 && row < rows_ && col >= 0 && col < cols();
}

void FlexGridModel::changeStructure(const std::function<void()> &change)
{
    if (suspended_) {
        change();
        dirty_ = true;
        return;
    }
    beginResetModel();
    change();
    publishedRows_ = rows_;
    publishedCols_ = cols();
    endResetModel();
    emit columnsChanged();
}

void FlexGridModel::cellChanged(int row, int col)
{
    if (suspended_) {
        dirty_ = true;
        return;
    }
    if (row == 0) {
        emit headerDataChanged(Qt::Horizontal, col, col);
    } else {
        const QModelIndex at = index(row - 1, col);
        emit dataChanged(at, at);
    }
}

void FlexGridModel::setRows(int rows)
{
    rows = std::max(0, rows);
    if (rows == rows_)
        return;
    auto resize = [this, rows] {
        while (int(slots_.size()) < rows)
            slots_.push_back(takeSlot());
        while (int(slots_.size()) > rows) {
            releaseSlot(slots_.back());
            slots_.pop_back();
        }
        rows_ = rows;
    };
    if (suspended_) {
        resize();
        dirty_ = true;
        return;
    }
    const int oldView = ViewRows(rows_), newView = ViewRows(rows);
    if (newView > oldView)
        beginInsertRows({}, oldView, newView - 1);
    else if (newView < oldView)
        beginRemoveRows({}, newView, oldView - 1);
    resize();
    publishedRows_ = rows_;
    if (newView > oldView)
        endInsertRows();
    else if (newView < oldView)
        endRemoveRows();
    if (cols() > 0)
        emit headerDataChanged(Qt::Horizontal, 0, cols() - 1);
}

void FlexGridModel::setCols(int cols)
{
    cols = std::max(0, cols);
    if (cols == this->cols())
        return;
    changeStructure([this, cols] {
        const size_t old = columns_.size();
        columns_.resize(size_t(cols));
        for (size_t c = old; c < columns_.size(); ++c)
            columns_[c].text.resize(capacity_);
    });
}

QString FlexGridModel::text(int row, int col) const
{
    return validCell(row, col) ? columns_[size_t(col)].text[slot(row)] : QString();
}

void FlexGridModel::setText(int row, int col, const QString &text)
{
    if (!validCell(row, col))
        return;
    Column &c = columns_[size_t(col)];
    int state = flexgrid::kNoCheck;
    if (row > 0 && (c.dataType == flexgrid::kBoolean || check(row, col) != flexgrid::kNoCheck) &&
        CheckFromText(text, state)) {
        setCheck(row, col, state);
        return;
    }
    c.text[slot(row)] = text;
    cellChanged(row, col);
}

int FlexGridModel::check(int row, int col) const
{
    if (!validCell(row, col))
        return flexgrid::kNoCheck;
    const Column &c = columns_[size_t(col)];
    const int state = c.check.empty() ? int(flexgrid::kNoCheck) : int(c.check[slot(row)]);
    if (state == flexgrid::kNoCheck && row > 0 && c.dataType == flexgrid::kBoolean)
        return flexgrid::kUnchecked;
    return state;
}

void FlexGridModel::setCheck(int row, int col, int state)
{
    if (!validCell(row, col) || state < flexgrid::kNoCheck || state > flexgrid::kUnchecked)
        return;
    Column &c = columns_[size_t(col)];
    if (c.check.empty()) {
        if (state == flexgrid::kNoCheck)
            return;
        c.check.resize(capacity_, flexgrid::kNoCheck);
    }
    c.check[slot(row)] = uint8_t(state);
    cellChanged(row, col);
}

int32_t FlexGridModel::foreColor(int row, int col) const
{
    if (!validCell(row, col))
        return kDefaultColor;
    const Column &c = columns_[size_t(col)];
    return c.foreColor.empty() ? kDefaultColor : c.foreColor[slot(row)];
}

void FlexGridModel::setForeColor(int row, int col, int32_t bgr)
{
    if (!validCell(row, col))
        return;
    Column &c = columns_[size_t(col)];
    if (c.foreColor.empty()) {
        if (bgr == kDefaultColor)
            return;
        c.foreColor.resize(capacity_, kDefaultColor);
    }
    c.foreColor[slot(row)] = bgr;
    cellChanged(row, col);
}

QString FlexGridModel::picture(int row, int col) const
{
    if (!validCell(row, col) || columns_[size_t(col)].picture.empty())
        return {};
    return columns_[size_t(col)].picture[slot(row)];
}

void FlexGridModel::setPicture(int row, int col, const QString &picture)
{
    if (!validCell(row, col))
        return;
    Column &c = columns_[size_t(col)];
    if (c.picture.empty()) {
        if (picture.isEmpty())
            return;
        c.picture.resize(capacity_);
    }
    c.picture[slot(row)] = picture;
    cellChanged(row, col);
}

void FlexGridModel::addItem(const QString &cells, int row)
{
    const int at = (row < 0 || row > rows_) ? rows_ : row;
    const QStringList parts = cells.split(u'\t');
    auto insert = [this, at, &parts] {
        const uint32_t slot = takeSlot();
        for (size_t c = 0; c < columns_.size() && c < size_t(parts.size()); ++c)
            columns_[c].text[slot] = parts[qsizetype(c)];
        slots_.insert(slots_.begin() + at, slot);
        ++rows_;
    };
    if (suspended_ || at == 0) {
        // Inserting before the header row reshapes the header as well.
        changeStructure(insert);
        return;
    }
    beginInsertRows({}, at - 1, at - 1);
    insert();
    publishedRows_ = rows_;
    endInsertRows();
}

void FlexGridModel::removeItem(int row)
{
    if (row < 0 || row >= rows_)
        return;
    auto remove = [this, row] {
        const uint32_t slot = slots_[size_t(row)];
        slots_.erase(slots_.begin() + row);
        releaseSlot(slot);
        --rows_;
    };
    if (suspended_ || row == 0) {
        changeStructure(remove);
        return;
    }
    beginRemoveRows({}, row - 1, row - 1);
    remove();
    publishedRows_ = rows_;
    endRemoveRows();
}

void FlexGridModel::clearCells()
{
    changeStructure([this] {
        for (Column &c : columns_) {
            std::fill(c.text.begin(), c.text.end(), QString());
            c.check.clear();
            c.picture.clear();
            c.foreColor.clear();
        }
    });
}

void FlexGridModel::moveColumn(int from, int to)
{
    if (from == to || from < 0 || to < 0 || from >= cols() || to >= cols())
        return;
    changeStructure([this, from, to] { MoveElement(columns_, from, to); });
}

void FlexGridModel::moveRow(int from, int to)
{
    if (from == to || from < 0 || to < 0 || from >= rows_ || to >= rows_)
        return;
    changeStructure([this, from, to] { MoveElement(slots_, from, to); });
}

void FlexGridModel::setColumnWidth(int col, int twips)
{
    if (col < 0 || col >= cols() || columns_[size_t(col)].widthTwips == twips)
        return;
    columns_[size_t(col)].widthTwips = twips;
    columnLookChanged();
}

void FlexGridModel::setColumnHidden(int col, bool hidden)
{
    if (col < 0 || col >= cols() || columns_[size_t(col)].hidden == hidden)
        return;
    columns_[size_t(col)].hidden = hidden;
    columnLookChanged();
}

void FlexGridModel::columnLookChanged()
{
    if (suspended_)
        dirty_ = true;
    else
        emit columnsChanged();
}

void FlexGridModel::setColumnDataType(int col, int type)
{
    if (col < 0 || col >= cols())
        return;
    columns_[size_t(col)].dataType = type;
    // Check boxes appear or go with the boolean type.
    if (!suspended_ && rows_ > 1)
        emit dataChanged(index(0, col), index(rows_ - 2, col));
}

void FlexGridModel::setColumnFormat(int col, const QString &format)
{
    if (col >= 0 && col < cols())
        columns_[size_t(col)].format = format;
}

void FlexGridModel::setColumnKey(int col, const QString &key)
{
    if (col >= 0 && col < cols())
        columns_[size_t(col)].key = key;
}

void FlexGridModel::setColumnAlignment(int col, int alignment)
{
    if (col < 0 || col >= cols())
        return;
    columns_[size_t(col)].alignment = alignment;
    if (!suspended_ && rows_ > 1)
        emit dataChanged(index(0, col), index(rows_ - 2, col), {Qt::TextAlignmentRole});
}

int FlexGridModel::findRow(const QString &text, int startRow, int col, bool caseSensitive,
                           bool fullMatch) const
{
    if (col < 0 || col >= cols())
        return -1;
    const Qt::CaseSensitivity cs = caseSensitive ? Qt::CaseSensitive : Qt::CaseInsensitive;
    const std::vector<QString> &cells = columns_[size_t(col)].text;
    for (int row = std::max(0, startRow); row < rows_; ++row) {
        const QString &cell = cells[slot(row)];
        if (fullMatch ? cell.compare(text, cs) == 0 : cell.contains(text, cs))
            return row;
    }
    return -1;
}

void FlexGridModel::sortRows(int firstCol, int lastCol, int order)
{
    if (firstCol > lastCol)
        std::swap(firstCol, lastCol);
    firstCol = std::max(0, firstCol);
    lastCol = std::min(cols() - 1, lastCol);
    const int dataRows = rows_ - 1;
    if (order == flexgrid::kSortNone || firstCol > lastCol)
        return;
    if (dataRows < 2) {
        emit rowsSorted(firstCol, order);
        return;
    }
    const QLocale locale;
    const int keysPerRow = lastCol - firstCol + 1;
    // Keys are made once per cell, so the comparisons of the sort only compare.
    std::vector<flexsort::SortKey> keys(size_t(dataRows) * size_t(keysPerRow));
    for (int k = 0; k < keysPerRow; ++k) {
        const Column &c = columns_[size_t(firstCol + k)];
        flexsort::ColumnSortInfo info;
        info.isDate = c.dataType == flexgrid::kDate;
        info.dateFormat = c.format;
        info.group = locale.groupSeparator().size() == 1 ? locale.groupSeparator()[0] : u',';
        info.point = locale.decimalPoint().size() == 1 ? locale.decimalPoint()[0] : u'.';
        info.amText = locale.amText();
        info.pmText = locale.pmText();
        for (int r = 0; r < dataRows; ++r)
            keys[size_t(r) * keysPerRow + k] = flexsort::MakeKey(c.text[slot(r + 1)], order, info);
    }
    const std::vector<int> permutation =
        flexsort::SortPermutation(keys, dataRows, keysPerRow, order);
    keys.clear();
    changeStructure([this, &permutation] {
        // Only the data rows move; row 0 stays the header.
        std::vector<uint32_t> sorted;
        sorted.reserve(slots_.size());
        sorted.push_back(slots_[0]);
        for (int from : permutation)
            sorted.push_back(slots_[size_t(from) + 1]);
        slots_.swap(sorted);
    });
    emit rowsSorted(firstCol, order);
}

bool FlexGridModel::saveText(const QString &path, QChar colSep, QChar rowSep,
                             bool withFixedRows) const
{
    const QString lineEnd = rowSep == u'\r' ? QStringLiteral("\r\n") : QString(rowSep);
    QString out;
    for (int row = withFixedRows ? 0 : 1; row < rows_; ++row) {
        for (int col = 0; col < cols(); ++col) {
            if (col > 0)
                out += colSep;
            out += columns_[size_t(col)].text[slot(row)];
        }
        out += lineEnd;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    const QByteArray bytes = out.toUtf8();
    return file.write(bytes) == bytes.size() && file.commit();
}

bool FlexGridModel::loadText(const QString &path, QChar colSep, QChar rowSep, bool withFixedRows)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QString content = QString::fromUtf8(file.readAll());
    QStringList lines;
    if (rowSep == u'\r') {
        content.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
        content.replace(u'\r', u'\n');
        lines = content.split(u'\n');
    } else {
        lines = content.split(rowSep);
    }
    // The separator ends every line, so the piece after the last one is not a row.
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    std::vector<QStringList> cells;
    cells.reserve(size_t(lines.size()));
    int widest = cols();
    for (const QString &line : lines) {
        cells.push_back(line.split(colSep));
        widest = std::max(widest, int(cells.back().size()));
    }
    const int first = withFixedRows ? 0 : 1;
    changeStructure([this, &cells, widest, first] {
        std::vector<QString> header(static_cast<size_t>(widest));
        for (size_t c = 0; c < columns_.size() && first == 1; ++c)
            header[c] = rows_ > 0 ? columns_[c].text[slot(0)] : QString();
        columns_.resize(size_t(widest));
        rows_ = std::max(1, first + int(cells.size()));
        capacity_ = size_t(rows_);
        slots_.resize(capacity_);
        std::iota(slots_.begin(), slots_.end(), 0u);
        freeSlots_.clear();
        for (size_t c = 0; c < columns_.size(); ++c) {
            Column &column = columns_[c];
            // Fresh vectors, so the memory of a larger earlier load is given back.
            std::vector<QString>(capacity_).swap(column.text);
            std::vector<uint8_t>().swap(column.check);
            std::vector<QString>().swap(column.picture);
            std::vector<int32_t>().swap(column.foreColor);
            if (first == 1)
                column.text[0] = header[c];
            for (size_t r = 0; r < cells.size(); ++r) {
                if (c < size_t(cells[r].size()))
                    column.text[r + size_t(first)] = cells[r][qsizetype(c)];
            }
        }
    });
    return true;
}

void FlexGridModel::suspend()
{
    suspended_ = true;
}

void FlexGridModel::resume()
{
    if (!suspended_)
        return;
    suspended_ = false;
    if (!dirty_ && publishedRows_ == rows_ && publishedCols_ == cols())
        return;
    dirty_ = false;
    changeStructure([] {});
}

int FlexGridModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ViewRows(publishedRows_);
}

int FlexGridModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : publishedCols_;
}

QVariant FlexGridModel::data(const QModelIndex &index, int role) const
{
    const int row = index.row() + 1, col = index.column();
    if (!index.isValid() || !validCell(row, col))
        return {};
    const Column &c = columns_[size_t(col)];
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return c.text[slot(row)];
    case Qt::CheckStateRole: {
        const int state = check(row, col);
        if (state == flexgrid::kNoCheck)
            return {};
        return state == flexgrid::kChecked ? Qt::Checked : Qt::Unchecked;
    }
    case ForeColorRole: {
        const int32_t bgr = foreColor(row, col);
        return bgr == kDefaultColor ? QVariant() : QVariant(bgr);
    }
    case PictureKeyRole:
        return c.picture.empty() || c.picture[slot(row)].isEmpty() ? QVariant()
                                                                   : c.picture[slot(row)];
    case Qt::TextAlignmentRole: {
        static constexpr Qt::Alignment horizontal[] = {Qt::AlignLeft, Qt::AlignHCenter,
                                                       Qt::AlignRight};
        static constexpr Qt::Alignment vertical[] = {Qt::AlignTop, Qt::AlignVCenter,
                                                     Qt::AlignBottom};
        const int a = std::clamp(c.alignment, 0, 8);
        return QVariant::fromValue(horizontal[a / 3] | vertical[a % 3]);
    }
    default:
        return {};
    }
}

bool FlexGridModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    const int row = index.row() + 1, col = index.column();
    if (!index.isValid() || !validCell(row, col) || role != Qt::EditRole)
        return false;
    setText(row, col, value.toString());
    emit cellEdited(row, col);
    return true;
}

QVariant FlexGridModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole || rows_ < 1 || section < 0 ||
        section >= cols())
        return {};
    return columns_[size_t(section)].text[slot(0)];
}

Qt::ItemFlags FlexGridModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    // Check boxes are toggled by the grid itself, so that the program can allow it per click.
    if (editable_ && check(index.row() + 1, index.column()) == flexgrid::kNoCheck)
        f |= Qt::ItemIsEditable;
    return f;
}
