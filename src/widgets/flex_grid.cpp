#include "flex_grid.h"

#include "flex_grid_sort.h"
#include "key_codes.h"

#include <QHash>
#include <QHeaderView>
#include <QHelpEvent>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QStyledItemDelegate>
#include <QToolTip>

#include <algorithm>

namespace {

int ShiftState(Qt::KeyboardModifiers modifiers)
{
    return (modifiers & Qt::ShiftModifier ? FlexGrid::kShiftMask : 0) |
           (modifiers & Qt::ControlModifier ? FlexGrid::kCtrlMask : 0) |
           (modifiers & Qt::AltModifier ? FlexGrid::kAltMask : 0);
}

int ButtonCode(Qt::MouseButton button)
{
    switch (button) {
    case Qt::LeftButton:
        return FlexGrid::kLeftButton;
    case Qt::RightButton:
        return FlexGrid::kRightButton;
    case Qt::MiddleButton:
        return FlexGrid::kMiddleButton;
    default:
        return 0;
    }
}

// The virtual-key numbers the program's handlers compare with. Letters, digits and Space
// already agree with Qt's codes.
int KeyCode(int qtKey)
{
    if ((qtKey >= Qt::Key_A && qtKey <= Qt::Key_Z) || (qtKey >= Qt::Key_0 && qtKey <= Qt::Key_9) ||
        qtKey == Qt::Key_Space)
        return qtKey;
    if (qtKey >= Qt::Key_F1 && qtKey <= Qt::Key_F12)
        return vk::kF1 + (qtKey - Qt::Key_F1);
    static const QHash<int, int> special = {
        {Qt::Key_Backspace, vk::kBack},
        {Qt::Key_Tab, vk::kTab},
        {Qt::Key_Return, vk::kReturn},
        {Qt::Key_Enter, vk::kReturn},
        {Qt::Key_Escape, vk::kEscape},
        {Qt::Key_PageUp, vk::kPageUp},
        {Qt::Key_PageDown, vk::kPageDown},
        {Qt::Key_End, vk::kEnd},
        {Qt::Key_Home, vk::kHome},
        {Qt::Key_Left, vk::kLeft},
        {Qt::Key_Up, vk::kUp},
        {Qt::Key_Right, vk::kRight},
        {Qt::Key_Down, vk::kDown},
        {Qt::Key_Insert, vk::kInsert},
        {Qt::Key_Delete, vk::kDelete},
        {Qt::Key_Shift, vk::kShift},
        {Qt::Key_Control, vk::kControl},
        {Qt::Key_Alt, vk::kMenu},
    };
    // Other special keys have no classic number; masking them would alias printable codes
    // (Shift would read as Space).
    return special.value(qtKey, qtKey > 0xffff ? int(vk::kUnknown) : qtKey);
}

// Draws a cell's picture key as the icon the grid's resolver gives for it, and its text in the
// cell's own colour when it has one.
class PictureDelegate : public QStyledItemDelegate {
public:
    PictureDelegate(const FlexGrid::PictureResolver &resolver, QObject *parent)
        : QStyledItemDelegate(parent), resolver_(resolver)
    {
    }

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override
    {
        QStyledItemDelegate::initStyleOption(option, index);
        if (const QVariant bgr = index.data(FlexGridModel::ForeColorRole); bgr.isValid()) {
            const int value = bgr.toInt();
            option->palette.setColor(
                QPalette::Text, QColor(value & 0xff, (value >> 8) & 0xff, (value >> 16) & 0xff));
        }
        const QString key = index.data(FlexGridModel::PictureKeyRole).toString();
        if (key.isEmpty() || !resolver_)
            return;
        option->icon = resolver_(key);
        if (option->icon.isNull())
            return;
        option->features |= QStyleOptionViewItem::HasDecoration;
        option->decorationSize =
            option->icon.actualSize(option->decorationSize, QIcon::Normal, QIcon::Off);
    }

    // A text cut short by its column shows whole in a tool tip; one that fits shows none.
    bool helpEvent(QHelpEvent *event, QAbstractItemView *view, const QStyleOptionViewItem &option,
                   const QModelIndex &index) override
    {
        if (event->type() != QEvent::ToolTip || !index.isValid())
            return QStyledItemDelegate::helpEvent(event, view, option, index);
        QStyleOptionViewItem cell = option;
        initStyleOption(&cell, index);
        if (cell.text.isEmpty() || sizeHint(option, index).width() <= option.rect.width())
            QToolTip::hideText();
        else
            QToolTip::showText(event->globalPos(), cell.text, view, option.rect);
        return true;
    }

private:
    const FlexGrid::PictureResolver &resolver_;
};

} // namespace

FlexGrid::FlexGrid(QWidget *parent) : QTableView(parent), model_(new FlexGridModel(this))
{
    model_->setRows(1);
    setModel(model_);
    QTableView::setSelectionMode(QAbstractItemView::ContiguousSelection);
    setSelectionBehavior(QAbstractItemView::SelectItems);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setWordWrap(false);
    setCornerButtonEnabled(false);
    // Per-row heights would cost a pass over every row on each reset; one fixed height keeps
    // resets of a few hundred thousand rows cheap.
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
    horizontalHeader()->setHighlightSections(false);

    connect(model_, &FlexGridModel::columnsChanged, this, [this] {
        syncColumns();
        pushSelection();
    });
    connect(model_, &FlexGridModel::cellEdited, this, &FlexGrid::AfterEdit);
    // A new caption may need a wider column.
    connect(model_, &QAbstractItemModel::headerDataChanged, this, &FlexGrid::syncColumns);
    // Sorts made on the model by the program's logic show on the header as the user's do.
    connect(model_, &FlexGridModel::rowsSorted, this, [this](int col, int order) {
        if (explorerBar_ & kExplorerSort)
            horizontalHeader()->setSortIndicator(
                col, flexsort::IsDescending(order) ? Qt::DescendingOrder : Qt::AscendingOrder);
    });
    setItemDelegate(new PictureDelegate(resolver_, this));
    connect(model_, &QAbstractItemModel::modelAboutToBeReset, this, [this] { syncing_ = true; });
    connect(model_, &QAbstractItemModel::modelReset, this, [this] { syncing_ = false; });
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &FlexGrid::readSelection);
    connect(selectionModel(), &QItemSelectionModel::currentChanged, this, &FlexGrid::readSelection);
    connect(horizontalHeader(), &QHeaderView::sectionClicked, this, &FlexGrid::headerClicked);
    connect(horizontalHeader(), &QHeaderView::sectionMoved, this, &FlexGrid::headerMoved);
    connect(horizontalHeader(), &QHeaderView::sectionResized, this, &FlexGrid::headerResized);
}

int FlexGrid::dpi() const
{
    return logicalDpiX() > 0 ? logicalDpiX() : 96;
}

int FlexGrid::Rows() const
{
    return model_->rows();
}

void FlexGrid::setRows(int rows)
{
    model_->setRows(rows);
}

int FlexGrid::Cols() const
{
    return model_->cols();
}

void FlexGrid::setCols(int cols)
{
    model_->setCols(cols);
}

QString FlexGrid::TextMatrix(int row, int col) const
{
    return model_->text(row, col);
}

void FlexGrid::setTextMatrix(int row, int col, const QString &text)
{
    model_->setText(row, col, text);
}

int FlexGrid::cellChecked(int row, int col) const
{
    return model_->check(row, col);
}

void FlexGrid::setCellChecked(int row, int col, int state)
{
    model_->setCheck(row, col, state);
}

void FlexGrid::setCellChecked(int row, int col, bool checked)
{
    model_->setCheck(row, col, checked ? flexgrid::kChecked : flexgrid::kUnchecked);
}

void FlexGrid::setCellChecked(int row1, int col1, int row2, int col2, int state)
{
    for (int row = std::min(row1, row2); row <= std::max(row1, row2); ++row) {
        for (int col = std::min(col1, col2); col <= std::max(col1, col2); ++col)
            model_->setCheck(row, col, state);
    }
}

QString FlexGrid::cellPicture(int row, int col) const
{
    return model_->picture(row, col);
}

void FlexGrid::setCellPicture(int row, int col, const QString &pictureKey)
{
    model_->setPicture(row, col, pictureKey);
}

void FlexGrid::setPictureResolver(PictureResolver resolver)
{
    resolver_ = std::move(resolver);
    viewport()->update();
}

void FlexGrid::AddItem(const QString &item, int row)
{
    model_->addItem(item, row);
}

void FlexGrid::RemoveItem(int row)
{
    model_->removeItem(row);
}

void FlexGrid::Clear()
{
    model_->clearCells();
}

bool FlexGrid::ColHidden(int col) const
{
    return col >= 0 && col < Cols() && model_->column(col).hidden;
}

void FlexGrid::setColHidden(int col, bool hidden)
{
    model_->setColumnHidden(col, hidden);
}

int FlexGrid::ColWidth(int col) const
{
    if (col < 0 || col >= Cols())
        return 0;
    const int twips = model_->column(col).widthTwips;
    return twips >= 0 ? twips
                      : flexgrid::PixelsToTwips(horizontalHeader()->defaultSectionSize(), dpi());
}

void FlexGrid::setColWidth(int col, int twips)
{
    model_->setColumnWidth(col, std::max(0, twips));
}

int FlexGrid::ColDataType(int col) const
{
    return col >= 0 && col < Cols() ? model_->column(col).dataType : 0;
}

void FlexGrid::setColDataType(int col, int type)
{
    model_->setColumnDataType(col, type);
}

QString FlexGrid::ColFormat(int col) const
{
    return col >= 0 && col < Cols() ? model_->column(col).format : QString();
}

void FlexGrid::setColFormat(int col, const QString &format)
{
    model_->setColumnFormat(col, format);
}

QString FlexGrid::ColKey(int col) const
{
    return col >= 0 && col < Cols() ? model_->column(col).key : QString();
}

void FlexGrid::setColKey(int col, const QString &key)
{
    model_->setColumnKey(col, key);
}

int FlexGrid::ColIndex(const QString &key) const
{
    for (int col = 0; col < Cols(); ++col) {
        if (model_->column(col).key == key)
            return col;
    }
    return -1;
}

int FlexGrid::ColAlignment(int col) const
{
    return col >= 0 && col < Cols() ? model_->column(col).alignment : 0;
}

void FlexGrid::setColAlignment(int col, int alignment)
{
    if (col == -1) {
        for (int c = 0; c < Cols(); ++c)
            model_->setColumnAlignment(c, alignment);
    } else {
        model_->setColumnAlignment(col, alignment);
    }
}

void FlexGrid::setColPosition(int col, int position)
{
    model_->moveColumn(col, position);
}

void FlexGrid::setRowPosition(int row, int position)
{
    model_->moveRow(row, position);
}

void FlexGrid::setSort(int order)
{
    const int first = Col(), last = ColSel();
    sortBy(std::min(first, last), std::max(first, last), order);
}

void FlexGrid::sortBy(int firstCol, int lastCol, int order)
{
    if (Cols() == 0)
        return;
    emit BeforeSort(firstCol, order);
    if (order == flexgrid::kSortNone)
        return;
    model_->sortRows(firstCol, lastCol, order);
    emit AfterSort(firstCol, order);
}

int FlexGrid::FindRow(const QString &text, int startRow, int col, bool caseSensitive,
                      bool fullMatch) const
{
    return model_->findRow(text, startRow < 0 ? FixedRows() : startRow, col < 0 ? Col() : col,
                           caseSensitive, fullMatch);
}

int FlexGrid::clampRow(int row) const
{
    return std::clamp(row, 0, std::max(0, Rows() - 1));
}

int FlexGrid::clampCol(int col) const
{
    return std::clamp(col, 0, std::max(0, Cols() - 1));
}

int FlexGrid::Row() const
{
    return clampRow(row_);
}

int FlexGrid::Col() const
{
    return clampCol(col_);
}

int FlexGrid::RowSel() const
{
    return clampRow(rowSel_);
}

int FlexGrid::ColSel() const
{
    return clampCol(colSel_);
}

void FlexGrid::setRow(int row)
{
    row_ = rowSel_ = row;
    pushSelection();
}

void FlexGrid::setCol(int col)
{
    col_ = colSel_ = col;
    pushSelection();
}

void FlexGrid::setRowSel(int row)
{
    rowSel_ = row;
    pushSelection();
}

void FlexGrid::setColSel(int col)
{
    colSel_ = col;
    pushSelection();
}

void FlexGrid::GetSelection(int &row1, int &col1, int &row2, int &col2) const
{
    row1 = std::min(Row(), RowSel());
    row2 = std::max(Row(), RowSel());
    col1 = std::min(Col(), ColSel());
    col2 = std::max(Col(), ColSel());
    if (selectionMode_ == kSelectionByRow) {
        col1 = 0;
        col2 = std::max(0, Cols() - 1);
    }
}

void FlexGrid::Select(int row1, int col1, int row2, int col2)
{
    row_ = row1;
    col_ = col1;
    rowSel_ = row2 < 0 ? row1 : row2;
    colSel_ = col2 < 0 ? col1 : col2;
    pushSelection();
}

void FlexGrid::ShowCell(int row, int col)
{
    if (row >= 1 && row - 1 < model_->rowCount() && col >= 0 && col < model_->columnCount())
        scrollTo(model_->index(row - 1, col));
}

void FlexGrid::setSelectionMode(int mode)
{
    selectionMode_ = mode;
    setSelectionBehavior(mode == kSelectionByRow ? QAbstractItemView::SelectRows
                                                 : QAbstractItemView::SelectItems);
    pushSelection();
}

// The view's selection follows the grid's numbers, never the other way round while the grid
// is changing it; the header row has no cells in the view, so only data rows are selected.
void FlexGrid::pushSelection()
{
    if (syncing_ || model_->isSuspended() || !selectionModel())
        return;
    const int viewRows = model_->rowCount(), viewCols = model_->columnCount();
    if (viewRows == 0 || viewCols == 0)
        return;
    auto viewRow = [viewRows](int row) { return std::clamp(row - 1, 0, viewRows - 1); };
    auto viewCol = [viewCols](int col) { return std::clamp(col, 0, viewCols - 1); };
    syncing_ = true;
    const QModelIndex corner = model_->index(viewRow(Row()), viewCol(Col()));
    const QModelIndex current = model_->index(viewRow(RowSel()), viewCol(ColSel()));
    const QItemSelection block(corner, current);
    const auto rows = selectionMode_ == kSelectionByRow ? QItemSelectionModel::Rows
                                                        : QItemSelectionModel::NoUpdate;
    selectionModel()->setCurrentIndex(current, QItemSelectionModel::NoUpdate);
    selectionModel()->select(block, QItemSelectionModel::ClearAndSelect | rows);
    syncing_ = false;
}

// After the user moved the current cell or the block: Qt's current index is the corner that
// moved (RowSel, ColSel); the opposite corner of the block is where it started (Row, Col).
void FlexGrid::readSelection()
{
    if (syncing_)
        return;
    const QModelIndex current = selectionModel()->currentIndex();
    if (!current.isValid())
        return;
    const int curRow = current.row() + 1, curCol = current.column();
    int anchorRow = curRow, anchorCol = curCol;
    const QItemSelection selection = selectionModel()->selection();
    if (!selection.isEmpty()) {
        const QItemSelectionRange &range = selection.first();
        const int top = range.top() + 1, bottom = range.bottom() + 1;
        if (curRow >= top && curRow <= bottom) {
            anchorRow = curRow == top ? bottom : top;
            if (selectionMode_ != kSelectionByRow && curCol >= range.left() &&
                curCol <= range.right())
                anchorCol = curCol == range.left() ? range.right() : range.left();
        }
    }
    row_ = anchorRow;
    col_ = anchorCol;
    rowSel_ = curRow;
    colSel_ = curCol;
    emit SelChange();
}

void FlexGrid::setRedraw(bool redraw)
{
    if (redraw == redraw_)
        return;
    redraw_ = redraw;
    if (!redraw) {
        setUpdatesEnabled(false);
        model_->suspend();
        return;
    }
    model_->resume();
    syncColumns();
    pushSelection();
    setUpdatesEnabled(true);
}

void FlexGrid::setEditable(int editable)
{
    editable_ = editable;
    model_->setEditable(editable != kEditNone);
    setEditTriggers(editable != kEditNone
                        ? QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                              QAbstractItemView::AnyKeyPressed
                        : QAbstractItemView::NoEditTriggers);
}

void FlexGrid::setExplorerBar(int bar)
{
    explorerBar_ = bar;
    horizontalHeader()->setSectionsClickable(bar & kExplorerSort);
    horizontalHeader()->setSortIndicatorShown(bar & kExplorerSort);
    horizontalHeader()->setSectionsMovable(bar & kExplorerMove);
}

bool FlexGrid::SaveGrid(const QString &file, int mode, bool fixedCells) const
{
    if (mode != kFileCustomText)
        return false;
    const QChar colSep = clipSeparators_.size() >= 1 ? clipSeparators_[0] : QChar(u'\t');
    const QChar rowSep = clipSeparators_.size() >= 2 ? clipSeparators_[1] : QChar(u'\r');
    return model_->saveText(file, colSep, rowSep, fixedCells);
}

bool FlexGrid::LoadGrid(const QString &file, int mode, bool fixedCells)
{
    if (mode != kFileCustomText)
        return false;
    const QChar colSep = clipSeparators_.size() >= 1 ? clipSeparators_[0] : QChar(u'\t');
    const QChar rowSep = clipSeparators_.size() >= 2 ? clipSeparators_[1] : QChar(u'\r');
    return model_->loadText(file, colSep, rowSep, fixedCells);
}

// A model reset forgets the view's per-column state, so it is applied again from the store.
void FlexGrid::syncColumns()
{
    if (model_->isSuspended())
        return;
    syncing_ = true;
    const int cols = std::min(Cols(), model_->columnCount());
    for (int col = 0; col < cols; ++col) {
        const FlexGridModel::Column &c = model_->column(col);
        setColumnHidden(col, c.hidden);
        if (c.widthTwips >= 0)
            setColumnWidth(col, fittedWidth(col, flexgrid::TwipsToPixels(c.widthTwips, dpi())));
    }
    syncing_ = false;
}

int FlexGrid::fittedWidth(int col, int pixels) const
{
    return pixels > 0 ? std::max(pixels, horizontalHeader()->sectionSizeHint(col)) : pixels;
}

void FlexGrid::headerClicked(int section)
{
    if (!(explorerBar_ & kExplorerSort) || section < 0 || section >= Cols())
        return;
    // A second click on the same header turns the direction round.
    const int order =
        section == lastHeaderSortCol_ && lastHeaderSortOrder_ == flexgrid::kGenericAscending
            ? flexgrid::kGenericDescending
            : flexgrid::kGenericAscending;
    lastHeaderSortCol_ = section;
    lastHeaderSortOrder_ = order;
    col_ = colSel_ = section;
    sortBy(section, section, order);
}

// The header only shows where the user dropped the column; the grid then moves the column
// itself, so that column numbers keep meaning screen positions as the program expects.
void FlexGrid::headerMoved(int, int oldVisual, int newVisual)
{
    if (syncing_)
        return;
    syncing_ = true;
    horizontalHeader()->moveSection(newVisual, oldVisual);
    syncing_ = false;
    model_->moveColumn(oldVisual, newVisual);
    int position = newVisual;
    emit AfterMoveColumn(oldVisual, position);
}

void FlexGrid::headerResized(int logical, int, int newSize)
{
    if (syncing_ || newSize <= 0 || logical < 0 || logical >= Cols())
        return;
    model_->setColumnWidth(logical, flexgrid::PixelsToTwips(fittedWidth(logical, newSize), dpi()));
}

void FlexGrid::toggleCheck(int row, int col)
{
    const int state = model_->check(row, col);
    if (state == flexgrid::kNoCheck)
        return;
    bool cancel = false;
    emit BeforeEdit(row, col, cancel);
    if (cancel)
        return;
    model_->setCheck(row, col,
                     state == flexgrid::kChecked ? flexgrid::kUnchecked : flexgrid::kChecked);
    emit AfterEdit(row, col);
}

void FlexGrid::trackMouse(const QPoint &pos)
{
    const int row = rowAt(pos.y()), col = columnAt(pos.x());
    mouseRow_ = row < 0 ? -1 : row + 1;
    mouseCol_ = col;
}

void FlexGrid::mousePressEvent(QMouseEvent *event)
{
    const QPoint pos = event->position().toPoint();
    trackMouse(pos);
    const QModelIndex hit = indexAt(pos);
    // A right click inside the block keeps it, so a context command can act on all of it.
    const bool keepBlock =
        event->button() == Qt::RightButton && hit.isValid() && selectionModel()->isSelected(hit);
    if (!keepBlock)
        QTableView::mousePressEvent(event);
    const int shift = ShiftState(event->modifiers());
    emit MouseDown(ButtonCode(event->button()), shift, pos.x(), pos.y());
    // The handler of MouseDown decides by Editable whether this very click toggles.
    if (event->button() == Qt::LeftButton && editable_ == kEditKeyboardAndChecks && hit.isValid() &&
        !(shift & (kShiftMask | kCtrlMask)))
        toggleCheck(hit.row() + 1, hit.column());
}

void FlexGrid::mouseReleaseEvent(QMouseEvent *event)
{
    const QPoint pos = event->position().toPoint();
    trackMouse(pos);
    QTableView::mouseReleaseEvent(event);
    emit MouseUp(ButtonCode(event->button()), ShiftState(event->modifiers()), pos.x(), pos.y());
}

void FlexGrid::mouseMoveEvent(QMouseEvent *event)
{
    trackMouse(event->position().toPoint());
    QTableView::mouseMoveEvent(event);
}

void FlexGrid::mouseDoubleClickEvent(QMouseEvent *event)
{
    QTableView::mouseDoubleClickEvent(event);
    emit DblClick();
}

void FlexGrid::keyPressEvent(QKeyEvent *event)
{
    int keyCode = KeyCode(event->key());
    emit KeyDown(keyCode, ShiftState(event->modifiers()));
    if (keyCode == 0) {
        event->accept();
        return;
    }
    if (event->key() == Qt::Key_Space && editable_ != kEditNone &&
        cellChecked(Row(), Col()) != flexgrid::kNoCheck && Row() >= 1) {
        toggleCheck(Row(), Col());
        event->accept();
        return;
    }
    QTableView::keyPressEvent(event);
}

bool FlexGrid::edit(const QModelIndex &index, EditTrigger trigger, QEvent *event)
{
    if (editable_ != kEditNone && index.isValid() && (editTriggers() & trigger) &&
        (model_->flags(index) & Qt::ItemIsEditable)) {
        bool cancel = false;
        emit BeforeEdit(index.row() + 1, index.column(), cancel);
        if (cancel)
            return false;
    }
    return QTableView::edit(index, trigger, event);
}
