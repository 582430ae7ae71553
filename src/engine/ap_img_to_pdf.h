#pragma once
// The one class through which the program writes PDF files. It decides which library calls
// are made, in which order and with which constants; the library does the writing.

#include "conversion_row.h"

#include <QPointer>
#include <QString>
#include <QStringList>

class QObject;

namespace pw {

// The open merge dialog; the merge reports its progress to that window's "ProgressBar1".
extern QPointer<QObject> gfrmSetOrder;

// The recompression names in their fixed order, and the class selectors they apply to.
extern const QStringList RecompressionNames; // "Lzw", "Zip", "Packbits", "Jpeg", "CCITT-G3", "CCITT-G4"
enum ColourClass : int { ClassBlackWhite = 1, ClassGreyscale = 2, ClassColour = 3 };

class ApImgToPdf {
public:
    // Files to merge, in merge order, and the merged PDF's path: read by the merge alone.
    SelectedData colSelectedData;
    QString OutputPdfFile;

    // Writes every row of colSelectedData into OutputPdfFile, in order, with the library's own
    // encoding. An empty output path succeeds without writing anything.
    bool MergeConvert_TiffToPdfx();
    // One image to one PDF, with the library's own encoding and no depth query.
    bool Convert_EachTiffToPDFbyOne(const QString &source, const QString &pdf);
    // One image to one PDF. At most one recompression name applies: the one for the image's
    // colour class (1, 8 or 24 bits per pixel), tested black and white, grey, colour.
    // A target the library refuses to create reads as success, deliberately.
    bool ConverImageToPdf(const QString &source, const QString &pdf, const QString &colour,
                          const QString &grey, const QString &blackWhite);
};

} // namespace pw
