#pragma once

#include "flex_grid_model.h"

#include <QIcon>
#include <QTableView>

#include <functional>

// FlexGrid: the grid control of the catalogue and of the dialogs, with the operations and
// events the program's algorithms are written against. Rows and columns are addressed by
// number, row 0 being the fixed header row (shown as the view's header) and data rows
// starting at 1. Properties come as Name()/setName() pairs; events are signals, with the
// arguments a handler may change passed by reference (connect them directly).
//
// Cells are stored compactly by FlexGridModel; a few hundred thousand rows load with Redraw
// off and sort by a precomputed key per cell.
class FlexGrid : public QTableView {
    Q_OBJECT

public:
    // SaveGrid/LoadGrid mode: delimited text with the separators of ClipSeparators.
    static constexpr int kFileCustomText = 5;
    // ExplorerBar bits: header click sorts (with the sort arrow), header drag moves columns.
    static constexpr int kExplorerSort = 1;
    static constexpr int kExplorerMove = 2;
    // Editable values: read-only, text cells by keyboard, and check boxes by click and Space.
    static constexpr int kEditNone = 0;
    static constexpr int kEditKeyboard = 1;
    static constexpr int kEditKeyboardAndChecks = 2;
    // Mouse buttons of MouseDown and MouseUp, and the shift bits of them and of KeyDown.
    static constexpr int kLeftButton = 1;
    static constexpr int kRightButton = 2;
    static constexpr int kMiddleButton = 4;
    static constexpr int kShiftMask = 1;
    static constexpr int kCtrlMask = 2;
    static constexpr int kAltMask = 4;
    // SelectionMode values.
    static constexpr int kSelectionFree = 0;
    static constexpr int kSelectionByRow = 1;

    explicit FlexGrid(QWidget *parent = nullptr);

    int Rows() const;
    void setRows(int rows);
    int Cols() const;
    void setCols(int cols);
    // One fixed row is what the header shows; the value is kept for the callers' arithmetic.
    int FixedRows() const { return 1; }
    void setFixedRows(int) {}
    int FixedCols() const { return fixedCols_; }
    void setFixedCols(int cols) { fixedCols_ = cols; }

    QString TextMatrix(int row, int col) const;
    // Writing "1"/"0" (or any number, or true/false) into a check cell sets its state.
    void setTextMatrix(int row, int col, const QString &text);

    // Check box of a cell: 1 checked, 2 unchecked, 0 no box. Every data cell of a boolean
    // column (ColDataType 11) has a box, unchecked until set.
    int cellChecked(int row, int col) const;
    void setCellChecked(int row, int col, int state);
    void setCellChecked(int row, int col, bool checked);
    // The same over the block between two corners, in any order.
    void setCellChecked(int row1, int col1, int row2, int col2, int state);

    // A cell's picture is a key that the resolver turns into an icon when the cell is drawn;
    // pass the same QString for every row of a kind.
    QString cellPicture(int row, int col) const;
    void setCellPicture(int row, int col, const QString &pictureKey);
    using PictureResolver = std::function<QIcon(const QString &pictureKey)>;
    void setPictureResolver(PictureResolver resolver);

    // Appends a row (or inserts it at `row`) with tab-separated cell texts.
    void AddItem(const QString &item, int row = -1);
    void RemoveItem(int row);
    // Empties every cell, header included; Rows, Cols and column properties stay.
    void Clear();

    bool ColHidden(int col) const;
    void setColHidden(int col, bool hidden);
    // Widths in twips (1440 to the inch) at the screen's logical resolution. A column is shown
    // at least as wide as its caption, whatever width it is given.
    int ColWidth(int col) const;
    void setColWidth(int col, int twips);
    // 7 date, 8 text, 11 boolean (check boxes), 14 decimal.
    int ColDataType(int col) const;
    void setColDataType(int col, int type);
    // For a date column, the format its cells are written in; sorting reads dates with it.
    QString ColFormat(int col) const;
    void setColFormat(int col, const QString &format);
    QString ColKey(int col) const;
    void setColKey(int col, const QString &key);
    // First column with the key, or -1.
    int ColIndex(const QString &key) const;
    // 0..8 as left/centre/right by top/centre/bottom: 1 left centre, 7 right centre.
    // Column -1 sets all columns.
    int ColAlignment(int col) const;
    void setColAlignment(int col, int alignment);
    // Moves column `col` to `position`; its cells and properties go with it.
    void setColPosition(int col, int position);
    void setRowPosition(int row, int position);

    // Sorts the data rows on the columns Col..ColSel with an order code: 1/2 generic
    // ascending/descending, 3/4 numeric (2.tif before 10.tif), 5/6 text without case, 7/8
    // text with case. Date columns sort as dates in both the generic and numeric orders.
    // BeforeSort is raised first, for this call as for a header click.
    void setSort(int order);

    // Next row from `startRow` (default: the first data row) whose text in `col` (default:
    // Col) matches; -1 when there is none.
    int FindRow(const QString &text, int startRow = -1, int col = -1, bool caseSensitive = false,
                bool fullMatch = true) const;

    // Current cell (Row, Col) and the opposite corner of the selected block (RowSel, ColSel).
    int Row() const;
    void setRow(int row);
    int Col() const;
    void setCol(int col);
    int RowSel() const;
    void setRowSel(int row);
    int ColSel() const;
    void setColSel(int col);
    // The selected block with row1 <= row2 and col1 <= col2.
    void GetSelection(int &row1, int &col1, int &row2, int &col2) const;
    void Select(int row1, int col1, int row2 = -1, int col2 = -1);
    void ShowCell(int row, int col);
    int SelectionMode() const { return selectionMode_; }
    void setSelectionMode(int mode);

    // Cell under the mouse at its last press, release or move; -1 outside the cells.
    int MouseRow() const { return mouseRow_; }
    int MouseCol() const { return mouseCol_; }

    // Off: no repaint and no view updates until it is turned on again, which then shows the
    // whole change at once. The way to fill or rearrange many rows.
    bool Redraw() const { return redraw_; }
    void setRedraw(bool redraw);
    bool Visible() const { return !isHidden(); }

    // kEditNone, kEditKeyboard (text cells), or kEditKeyboardAndChecks (check boxes toggle by
    // click and Space too).
    int Editable() const { return editable_; }
    void setEditable(int editable);
    int ExplorerBar() const { return explorerBar_; }
    void setExplorerBar(int bar);

    // Empty means tab between cells and CR between rows; else the first character separates
    // cells and the second, if any, rows.
    QString ClipSeparators() const { return clipSeparators_; }
    void setClipSeparators(const QString &separators) { clipSeparators_ = separators; }
    // Only kFileCustomText is supported; `fixedCells` includes the header row.
    bool SaveGrid(const QString &file, int mode = kFileCustomText, bool fixedCells = true) const;
    bool LoadGrid(const QString &file, int mode = kFileCustomText, bool fixedCells = true);

    FlexGridModel *gridModel() const { return model_; }

signals:
    void BeforeSort(int col, int &order);
    void AfterSort(int col, int order);
    // After the user dragged a header from `col` to `position`.
    void AfterMoveColumn(int col, int &position);
    // Before a cell is edited or its check box toggled; set `cancel` to refuse.
    void BeforeEdit(int row, int col, bool &cancel);
    void AfterEdit(int row, int col);
    // keyCode uses the classic virtual-key numbers (key_codes.h); set it to 0 to swallow the key.
    // shift: the k...Mask bits.
    void KeyDown(int &keyCode, int shift);
    // button: a k...Button value; x, y in pixels of the cell area.
    void MouseDown(int button, int shift, int x, int y);
    void MouseUp(int button, int shift, int x, int y);
    void DblClick();
    void SelChange();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    bool edit(const QModelIndex &index, EditTrigger trigger, QEvent *event) override;

private:
    int dpi() const;
    int clampRow(int row) const;
    int clampCol(int col) const;
    void syncColumns();
    // A shown column is never narrower than its caption: `pixels`, or the caption's width.
    int fittedWidth(int col, int pixels) const;
    void pushSelection();
    void readSelection();
    void sortBy(int firstCol, int lastCol, int order);
    void headerClicked(int section);
    void headerMoved(int logical, int oldVisual, int newVisual);
    void headerResized(int logical, int oldSize, int newSize);
    void toggleCheck(int row, int col);
    void trackMouse(const QPoint &pos);

    FlexGridModel *model_;
    int row_ = 1, col_ = 0, rowSel_ = 1, colSel_ = 0;
    int mouseRow_ = -1, mouseCol_ = -1;
    int fixedCols_ = 0;
    int editable_ = kEditNone;
    int explorerBar_ = 0;
    int selectionMode_ = kSelectionFree;
    int lastHeaderSortCol_ = -1;
    int lastHeaderSortOrder_ = 0;
    bool redraw_ = true;
    bool syncing_ = false; // set while the grid itself moves the view's selection or header
    QString clipSeparators_;
    PictureResolver resolver_;
};
