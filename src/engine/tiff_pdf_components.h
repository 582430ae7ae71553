#pragma once
// The page components the PDF and TIFF commands create for each command: TIFF and image
// conversion, document information, page counting, and TIFF page surgery. Each is a thin layer
// over our libraries; a command makes the one it needs and drops it at its end. A failure
// inside a conversion raises a RuntimeError; the TIFF operations answer false and keep the
// reason in lastError().

#include <QString>
#include <QStringList>

#include <cstdint>

namespace pw {

template <typename T> class Result;

class Tiff2Pdf {
public:
    // Every page of the TIFF (or any image our image-to-PDF library reads) into one PDF.
    void ConvertTiffToPDF(const QString &source, const QString &pdf);
    // The image into a one-page TIFF. `format` is the TIFF compression number (1 none, 4 G4,
    // 5 LZW, 7 JPEG, 8 Deflate); 0 chooses by the image: G4 for black and white, else LZW.
    void ConvertImageToTiff(const QString &source, const QString &target, int32_t format);
};

class PdfStamper {
public:
    // Sets the information entry `key` ("Title", "Subject", "Author", "Keywords" ...) of `file`
    // to `value`, in the file itself, or in a copy at `copyTo` when that is not empty.
    void UpdatePDFInfo(const QString &file, const QString &key, const QString &value,
                       const QString &copyTo);
    // The information entry `key` of `file`; "" when it has none.
    QString UpdatePDFInfo(const QString &file, const QString &key);
};

class PdfSplitMerge {
public:
    // Pages of `file`; `password` opens an encrypted one ("" for none). A file that cannot be
    // counted raises 321 with the page library's reason ("...: needs a password").
    int32_t GetNumberOfPages(const QString &file, const QString &password);
};

class TiffMergeSplit {
public:
    bool AddTIFFPages(const QString &first, int16_t index, const QString &second);
    bool DeleteTIFFPages(const QString &file, int16_t page);
    bool SplitTIFF(const QString &source, int16_t page, const QString &firstOutput,
                   const QString &secondOutput);
    bool ExtractPages(const QString &source, int16_t firstPage, int16_t lastPage,
                      const QString &folder);
    bool ExtractAllTIFFpages(const QString &source, const QString &folder);
    // Every page of `inputs`, in order, into `output` in one pass.
    bool MergeTIFFs(const QStringList &inputs, const QString &output);
    // Pages of `file`, 0 when it cannot be read.
    int PageCount(const QString &file);

    // Why the last operation answered false.
    const QString &lastError() const { return lastError_; }

private:
    bool answer(const Result<void> &done);
    QString lastError_;
};

} // namespace pw
