#pragma once

#include "grid_codes.h"

#include <QAbstractTableModel>
#include <QString>

#include <cstdint>
#include <functional>
#include <vector>

// The store behind FlexGrid, addressed as the grid is: row 0 is the fixed header row, data
// rows start at 1, columns at 0. Storage is by column (one vector of texts per column, check
// states and pictures only for columns that use them), so a catalogue row of eight columns
// costs a few hundred bytes. Rows reach their cells through a slot number: removing, moving
// or sorting rows shifts only those numbers, which keeps the export's row-by-row removals on
// a large list from moving every cell below each removed row.
//
// To Qt views it is a table of the data rows with row 0 as the horizontal header. While
// suspended (the grid's Redraw off) it changes silently and the views keep seeing the shape
// they were last told about; resume() then publishes everything in one reset.
class FlexGridModel : public QAbstractTableModel {
    Q_OBJECT

public:
    // Cells may name a picture; only a view knows how to draw it, so the model hands out the
    // name under this role and nothing under Qt::DecorationRole.
    static constexpr int PictureKeyRole = Qt::UserRole + 1;
    // A cell's own text colour, as foreColor gives it; the model stays free of Qt's GUI types.
    static constexpr int ForeColorRole = Qt::UserRole + 2;

    struct Column {
        // Cells by slot, not by row.
        std::vector<QString> text;
        std::vector<uint8_t> check;     // empty until a cell of the column gets a state
        std::vector<QString> picture;   // keys; empty until a cell of the column gets one
        std::vector<int32_t> foreColor; // BGR or kDefaultColor; empty until a cell gets one
        int widthTwips = -1;            // -1: the view's default width
        bool hidden = false;
        int dataType = flexgrid::kText;
        QString format;
        QString key;
        int alignment = 1; // 0..8: left/centre/right by top/centre/bottom, 1 is left centre
    };

    explicit FlexGridModel(QObject *parent = nullptr);

    int rows() const { return rows_; }
    int cols() const { return int(columns_.size()); }
    void setRows(int rows);
    void setCols(int cols);

    QString text(int row, int col) const;
    void setText(int row, int col, const QString &text);
    // kChecked, kUnchecked, or kNoCheck; cells of a boolean column read kUnchecked until set.
    int check(int row, int col) const;
    void setCheck(int row, int col, int state);
    // Pass the same QString for every row of a kind, so that the rows share its storage.
    QString picture(int row, int col) const;
    // A cell's text colour as a BGR number (255 is red), or kDefaultColor for the view's own.
    static constexpr int32_t kDefaultColor = -1;
    int32_t foreColor(int row, int col) const;
    void setForeColor(int row, int col, int32_t bgr);
    void setPicture(int row, int col, const QString &pictureKey);

    // Appends (row < 0) or inserts a row; `cells` holds the texts of consecutive columns
    // separated by tabs.
    void addItem(const QString &cells, int row = -1);
    void removeItem(int row);
    // Empties every cell, header included; sizes and column properties stay.
    void clearCells();
    // Removal at `from`, insertion at `to`: the column takes its cells and properties along.
    void moveColumn(int from, int to);
    void moveRow(int from, int to);

    const Column &column(int col) const { return columns_[size_t(col)]; }
    // Column properties; a change is published to the views by columnsChanged().
    void setColumnWidth(int col, int twips);
    void setColumnHidden(int col, bool hidden);
    void setColumnDataType(int col, int type);
    void setColumnFormat(int col, const QString &format);
    void setColumnKey(int col, const QString &key);
    void setColumnAlignment(int col, int alignment);

    // First row from `startRow` on whose cell in `col` equals (or, without fullMatch,
    // contains) `text`; -1 when none does.
    int findRow(const QString &text, int startRow, int col, bool caseSensitive,
                bool fullMatch) const;

    // Sorts the data rows by the columns `firstCol`..`lastCol` with a flexgrid::SortOrder.
    void sortRows(int firstCol, int lastCol, int order);

    // Delimited text: one line per row, cells joined by `colSep`, each line ended by
    // `rowSep` (a lone CR is written as CR LF so the file reads as lines everywhere).
    bool saveText(const QString &path, QChar colSep, QChar rowSep, bool withFixedRows) const;
    bool loadText(const QString &path, QChar colSep, QChar rowSep, bool withFixedRows);

    // Bulk updates: while suspended the model changes silently and views keep what they were
    // last told; resume() publishes everything in one reset.
    void suspend();
    void resume();
    bool isSuspended() const { return suspended_; }

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    void setEditable(bool editable) { editable_ = editable; }

signals:
    // Column properties (widths, hidden state, order) need applying to the views.
    void columnsChanged();
    // A data cell changed from a view's editor.
    void cellEdited(int row, int col);
    // The data rows were sorted; views show the order on their header.
    void rowsSorted(int firstCol, int order);

private:
    bool validCell(int row, int col) const;
    size_t slot(int row) const { return slots_[size_t(row)]; }
    uint32_t takeSlot();
    void releaseSlot(uint32_t slot);
    void changeStructure(const std::function<void()> &change);
    void cellChanged(int row, int col);
    void columnLookChanged();

    std::vector<Column> columns_;
    std::vector<uint32_t> slots_; // row -> slot of its cells
    std::vector<uint32_t> freeSlots_;
    size_t capacity_ = 0; // slots allocated in every column's text
    int rows_ = 1;
    int publishedRows_ = 1;
    int publishedCols_ = 0;
    bool suspended_ = false;
    bool dirty_ = false;
    bool editable_ = false;
};
