#pragma once
// The PDF and TIFF page commands beyond plain conversion: merge, split, extract, delete and
// append pages, read and write document information. Each command is a thin call into a page
// component or the page library; what this class adds is the checks, the output names, the
// order of merging and the handling of the temporary files.

#include "conversion_row.h"
#include "pdf_page_libraries.h"
#include "tiff_pdf_components.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <utility>

namespace pw {

class UiServices;
struct FailureTail;

class TiffPdfCommands {
public:
    // The list merge of TIFF files passes its growing result between two files of these names in
    // `programFolder`.
    static constexpr char TempMerge1[] = "test_merge_split1.tif";
    static constexpr char TempMerge2[] = "test_merge_split2.tif";

    TiffPdfCommands(UiServices &ui, QString programFolder,
                    PdfPagesLibrary &pages = PdfPagesLibrary::ours())
        : ui_(ui), pages_(pages), programFolder_(std::move(programFolder))
    {
    }

    // The files of the list commands, in order, and the merged file's path.
    SelectedData colSelectedData;
    QString OutputFile;

    bool ConvertPDFToImage(const QString &source, const QString &output, int32_t format);
    bool ConverImageToTiff(const QString &source, const QString &target, int32_t format);
    bool Convert_EachTiffToPDFbyOne(const QString &source, const QString &pdf);
    // Every row to "<folder>/<name up to its first dot>.Pdf".
    bool Convert_EachTiffToPDFx(const QString &outputFolder);

    bool UpdatePdfMetaData(const QString &file, const QString &text1, const QString &text2,
                           const QString &text3);
    // The entry's text, or "False" after a failure.
    QString GetPdfMetaData(const QString &file, const QString &text);
    int16_t GetNoOfPagesFromPDF(const QString &file);

    // The whole first PDF, then `range` of the second ("" or "0": all of it), into `output`.
    bool AppendPdfFile(const QString &first, const QString &second, const QString &range,
                       const QString &output);
    // Every row's Range of its file into OutputFile, in order.
    bool CombineOrderPdf();
    // One PDF per page of `range` ("" for all) into "<folder>/<source name>/<prefix><page>.pdf".
    bool SplitPDFFiles(const QString &source, const QString &range, const QString &outputFolder,
                       const QString &prefix);

    bool AppendFileTiffFile(const QString &first, const QString &second, int16_t index);
    bool DeleteTiffPage(const QString &file, int16_t page);
    // Every row's file into OutputFile, in order, two at a time. One row writes nothing.
    bool CombineOrderTiff();
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
    QString programFolder_;
    int16_t fileCounter_ = 0;
    QString lastError_;
};

} // namespace pw
