#pragma once
// One chosen file on its way from the catalogue to a conversion dialog: a copy of the row's
// cells, so that a dialog can reorder its list without touching the catalogue.

#include <QString>

#include <cstdint>
#include <vector>

namespace pw {

class clsColSetOrderGrid {
public:
    const QString &filename() const { return filename_; }
    void setFilename(const QString &v) { filename_ = v; }
    // Page range; read only by the page command set.
    const QString &Range() const { return Range_; }
    void setRange(const QString &v) { Range_ = v; }
    // The file's folder, with or without a trailing separator.
    const QString &FileLocation() const { return FileLocation_; }
    void setFileLocation(const QString &v) { FileLocation_ = v; }
    const QString &FileSize() const { return FileSize_; }
    void setFileSize(const QString &v) { FileSize_ = v; }
    const QString &FileType() const { return FileType_; }
    void setFileType(const QString &v) { FileType_ = v; }
    const QString &FileCreDate() const { return FileCreDate_; }
    void setFileCreDate(const QString &v) { FileCreDate_ = v; }
    const QString &FileModDate() const { return FileModDate_; }
    void setFileModDate(const QString &v) { FileModDate_ = v; }
    const QString &FileExt() const { return FileExt_; }
    void setFileExt(const QString &v) { FileExt_ = v; }
    // The "Pages" cell's number, 0 when the cell held no number.
    int32_t PageCount() const { return PageCount_; }
    void setPageCount(int32_t v) { PageCount_ = v; }

private:
    QString filename_;
    QString FileLocation_;
    QString FileSize_;
    QString FileType_;
    QString FileModDate_;
    QString FileCreDate_;
    QString FileExt_;
    QString Range_;
    int32_t PageCount_ = 0;
};

// The rows handed to a dialog, in catalogue order.
using SelectedData = std::vector<clsColSetOrderGrid>;

} // namespace pw
