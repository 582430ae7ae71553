#pragma once
// Turns the pages of one PDF into image files through the rendering library, reporting each
// page to the caller's status.

#include "pdf_page_libraries.h"

#include <QString>

#include <cstdint>
#include <vector>

namespace pw {

class Progress;
class UiServices;

class ApPdfToImage {
public:
    // The format whose pages go straight into the output folder; every other format gets a
    // folder named after the PDF inside it.
    static constexpr int32_t StraightIntoFolder = 7;

    explicit ApPdfToImage(UiServices &ui, PdfToImageLibrary &library = PdfToImageLibrary::ours())
        : ui_(ui), library_(library)
    {
    }

    // Renders pages 1 to `pageCount` of `pdf`; `passThrough` reaches the library unchanged as
    // its property 2. The count is the caller's: it is not checked against the document.
    // After each page `status` gets the percent done (rounded, halves to even) and the PDF's
    // file name; at the end 0 and "".
    bool ConvertPDFToImage(const QString &pdf, const QString &outputFolder, int32_t pageCount,
                           const QString &passThrough, int32_t format, Progress &status);
    // The same for the `pages` given (1 is the first), in their order.
    bool ConvertPages(const QString &pdf, const QString &outputFolder,
                      const std::vector<int> &pages, const QString &passThrough, int32_t format,
                      Progress &status);

    // Opens encrypted PDFs from now on; "" (the default) opens only those without a password.
    void setPassword(const QString &password) { password_ = password; }

private:
    UiServices &ui_;
    QString password_;
    PdfToImageLibrary &library_;
};

} // namespace pw
