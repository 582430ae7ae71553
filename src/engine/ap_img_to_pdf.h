#pragma once
// The one class through which the program writes PDF files. It decides which library calls
// are made, in which order and with which constants; the library does the writing.

#include "conversion_row.h"
#include "image_to_pdf_library.h"

#include "core/progress.h"

#include <QString>
#include <QStringList>

namespace pw {

struct FailureTail;
class UiServices;

// The recompression names in their fixed order, and the class selectors they apply to.
extern const QStringList
    RecompressionNames; // "Lzw", "Zip", "Packbits", "Jpeg", "CCITT-G3", "CCITT-G4"
enum ColourClass : int { ClassBlackWhite = 1, ClassGreyscale = 2, ClassColour = 3 };
// The items of a class's recompression box: colour and grey take the names up to "Jpeg",
// black and white all but "Packbits" and "Jpeg". Every box starts at its fourth item.
QStringList RecompressionItems(ColourClass colourClass);
inline constexpr int RecompressionStartIndex = 3;

class ApImgToPdf {
public:
    // `ui` lets window events run between library calls.
    explicit ApImgToPdf(UiServices &ui, ImageToPdfLibrary &library = ImageToPdfLibrary::ours())
        : ui_(ui), library_(library)
    {
    }

    // Files to merge, in merge order, and the merged PDF's path: read by the merge alone.
    SelectedData colSelectedData;
    QString OutputPdfFile;
    // After a merge that failed: the file it was adding, "" when the failure was elsewhere.
    QString FailedFile;
    // After a merge or a conversion: whether the library put the PDF in place (a device or pipe
    // leaves no file to look for), and why not. A conversion whose PDF the library could not
    // finish (a disk that filled up as it was written out) still reads as success.
    bool Written = false;
    QString NotWrittenWhy;

    // Writes every row of colSelectedData into OutputPdfFile, in order, with the library's own
    // encoding, counting the files added on `status`. An empty output path succeeds without
    // writing anything. A merge cannot be stopped: the status is never asked.
    bool MergeConvert_TiffToPdfx(Progress &status);
    // One image to one PDF, with the library's own encoding and no depth query.
    bool Convert_EachTiffToPDFbyOne(const QString &source, const QString &pdf);
    // One image to one PDF. At most one recompression name applies: the one for the image's
    // colour class (1, 8 or 24 bits per pixel), tested black and white, grey, colour.
    // A target the library refuses to create reads as success, deliberately.
    bool ConverImageToPdf(const QString &source, const QString &pdf, const QString &colour,
                          const QString &grey, const QString &blackWhite);
    // After a conversion or a merge: the number and text of the failure it logged (0 and ""
    // for none), and whether its success was a create the library refused, so that a caller
    // can say why, and tell a full or read-only disk from a damaged image.
    int LastFailureNumber = 0;
    QString LastFailureText;
    bool CreateRefused = false;

private:
    void addAndClose(OpenDocument &document, const QString &source, FailureTail &pwTail);

    UiServices &ui_;
    ImageToPdfLibrary &library_;
};

} // namespace pw
