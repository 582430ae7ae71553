#pragma once
// Renaming files so that each new name carries the file's page count, padded with zeros: at a
// character position, as a prefix or as a suffix. The list is a grid laid out like the
// catalogue plus a column of new names; the rename window and the batch tool both work on it.

#include "catalogue/catalogue_grid.h"
#include "engine/conversion_row.h"

#include <QString>

#include <cstdint>
#include <optional>

class FlexGridModel;

namespace pw {

class GridColumns;

// The rename window's choices as its fields hold them.
struct RenamePattern {
    enum Option { NoOption, AtCharPos, PrefixAsPageCount, SuffixAsPageCount };
    Option option = NoOption;
    QString paddingMask;
    // A text as typed: a position from 1. An empty one becomes "1" when names are made.
    QString charPos;
    QString sepAtCharPos;
    // Where the separator stands beside the number at a character position.
    bool prefix = false;
    bool suffix = false;
    QString sepPrefix;
    QString sepSuffix;
};

// The page count padded with a "0" for each place of the mask beyond its digits. Only the
// mask's length counts; a count wider than the mask is kept whole.
QString GetInputMask(const QString &mask, int16_t pages);

// The new name of `name` for a file of `pages` ("Pages" as the grid shows it). Raises 5 for a
// name without a dot or a position below 1, 13 for pages that are no number and 6 above 32767.
QString NewFileName(const QString &name, const QString &pages, RenamePattern &pattern);

// Renames `from` to `to`; false (logged) when the file system refuses.
bool RenameFile(const QString &from, const QString &to);

// The files that a rename left as they were, each line ending in CR LF.
struct RenameOutcome {
    QString notFound;
    QString alreadyExists;
    QString failed;
    bool clean() const { return notFound.isEmpty() && alreadyExists.isEmpty() && failed.isEmpty(); }
};

class RenameList {
public:
    // Names the cells of the new names red when a file of that name exists.
    static constexpr int32_t ExistsColor = 255;

    RenameList(FlexGridModel &grid, const GridColumns &columns);

    // The catalogue's columns, all hidden but "Name", and the new names' column after them.
    void InitFiles();
    // One row per record, "Pages" holding its count.
    void FillGrid(const SelectedData &rows);
    // New names by `pattern`, from the first row to the last; ends at a row it cannot name.
    // Marks a name red when it exists in the current folder: a hint only, for Apply tests the
    // file's own folder.
    void Preview(RenamePattern &pattern);
    // False at the first row without a new name.
    bool validateFilenames() const;
    // Renames every row in its folder; nothing when the run failed (logged).
    std::optional<RenameOutcome> Apply();

    int newNameColumn() const { return newName_; }

private:
    FlexGridModel &grid_;
    const GridColumns &columns_;
    ColumnIndices cols_;
    int newName_ = 0;
};

} // namespace pw
