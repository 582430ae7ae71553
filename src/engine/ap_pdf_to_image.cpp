#include "ap_pdf_to_image.h"

#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "core/progress.h"
#include "core/ui_services.h"

#include <QDir>
#include <QFile>

#include <cmath>

namespace pw {

namespace {

const Unit binding = Unit::classModule("ApPdfToImage");

enum Property : int32_t {
    OutputFolder = 1,
    PassThrough = 2,
    ImageFormat = 5,
    ColourDepth = 6,
    OneFile = 10,
    Compression = 11
};

} // namespace

bool ApPdfToImage::ConvertPDFToImage(const QString &pdf, const QString &outputFolder,
                                     int32_t pageCount, const QString &passThrough, int32_t format,
                                     Progress &status)
{
    std::vector<int> pages;
    for (int32_t page = 1; page <= pageCount; ++page)
        pages.push_back(page);
    return ConvertPages(pdf, outputFolder, pages, passThrough, format, status);
}

bool ApPdfToImage::ConvertPages(const QString &pdf, const QString &outputFolder,
                                const std::vector<int> &pages, const QString &passThrough,
                                int32_t format, Progress &status)
{
    bool result = false;
    PW_PROCEDURE("ConvertPDFToImage", binding);
    guarded(pwTail, [&] {
        PW_STEP;
        if (pdf.isEmpty())
            return;
        PW_STEP;
        const std::string password = password_.toStdString();
        const int32_t handle =
            library_.apOpen(QFile::encodeName(pdf).toStdString(), password, password);
        if (handle == -1 || handle == -2 || handle == -3 || handle == -4)
            return;
        PW_STEP;
        const QString fileName = GetFileName(pdf.trimmed());
        QString folder = outputFolder;
        if (format != StraightIntoFolder) {
            folder = FolderNamedAfter(pdf, outputFolder);
            QDir().mkdir(folder); // an existing folder is no failure
        }
        PW_STEP;
        const auto set = [&](int32_t property, const QString &text, int32_t number) {
            library_.apSetProperty(handle, property, QFile::encodeName(text).toStdString(), number,
                                   0);
        };
        set(OutputFolder, folder, 0);
        set(PassThrough, passThrough, 0);
        set(ImageFormat, {}, format);
        if (format == StraightIntoFolder) {
            set(ColourDepth, {}, 24);
            set(OneFile, {}, 1);
            set(Compression, {}, -1);
        }
        for (size_t done = 1; done <= pages.size(); ++done) {
            PW_STEP;
            library_.apConvertPage(handle, pages[done - 1]);
            // nearbyint rounds halves to the even neighbour, as the percent always has.
            status.setValue(static_cast<int>(
                std::nearbyint(static_cast<double>(done) / double(pages.size()) * 100.0)));
            status.setStatusText(fileName);
            ui_.DoEvents();
        }
        PW_STEP;
        status.setValue(0);
        status.setStatusText({});
        library_.apClose(handle);
        result = true;
    });
    return result;
}

} // namespace pw
