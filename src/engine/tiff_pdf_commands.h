#pragma once
// The PDF and TIFF page commands beyond plain conversion: merge, split, extract, delete and
// append pages, read and write document information, an image to a TIFF. Each command is a
// thin call into a page component or the page library; what this class adds is the checks, the
// output names and the order of merging.

#include "conversion_row.h"
#include "pdf_page_libraries.h"
#include "tiff_pdf_components.h"

#include <QString>

#include <cstdint>
#include <functional>

namespace pw {

class Progress;
class UiServices;
struct FailureTail;

class TiffPdfCommands {
public:
    explicit TiffPdfCommands(UiServices &ui, PdfPagesLibrary &pages = PdfPagesLibrary::ours())
        : ui_(ui), pages_(pages)
    {
    }

    // The files of the list commands, in order, and the merged file's path.
    SelectedData colSelectedData;
    QString OutputFile;

    // The image into a one-page TIFF; `format` as Tiff2Pdf::ConvertImageToTiff takes it.
    bool ConverImageToTiff(const QString &source, const QString &target, int32_t format);
    // Every row to "<folder>/<name up to its first dot>.Pdf".
    bool Convert_EachTiffToPDFx(const QString &outputFolder);

    bool UpdatePdfMetaData(const QString &file, const QString &text1, const QString &text2,
                           const QString &text3);
    // The entry's text, or "False" after a failure.
    QString GetPdfMetaData(const QString &file, const QString &text);
    int16_t GetNoOfPagesFromPDF(const QString &file);

    // Every row's Range of its file ("" or "0": all of it) into OutputFile, in order, counting
    // the rows on `status`.
    bool CombineOrderPdf(Progress &status);
    // One PDF per page of `range` ("" for all) into "<folder>/<source name>/<prefix><page>.pdf".
    bool SplitPDFFiles(const QString &source, const QString &range, const QString &outputFolder,
                       const QString &prefix);

    bool AppendFileTiffFile(const QString &first, const QString &second, int16_t index);
    bool DeleteTiffPage(const QString &file, int16_t page);
    // Pages up to `page` into "<folder>/<source name>/<prefix>1.tif", the rest into "...2.tif".
    bool SplitTiffFiles(const QString &source, int16_t page, const QString &outputFolder,
                        const QString &prefix);
    bool ExtractTIFFpagesbyRange(const QString &source, int16_t firstPage, int16_t lastPage,
                                 const QString &outputFolder);
    bool ExtractAllTIFFpages(const QString &source, const QString &outputFolder);

    bool FileExists(const QString &path);

    // Why the last command answered false or empty: the failure it logged or the reason its
    // TIFF component gave; "" when there was none.
    const QString &LastError() const { return lastError_; }

private:
    // Runs a command's body as `guarded` does, keeping the description of its failure.
    template <typename Body> bool run(FailureTail &tail, Body &&body);
    // Runs `call` on a component made for it, keeping its answer's reason.
    bool withTiff(const std::function<bool(TiffMergeSplit &)> &call);

    UiServices &ui_;
    PdfPagesLibrary &pages_;
    QString lastError_;
};

} // namespace pw
