#include "ap_pdf_to_image.h"

#include "ap_img_to_pdf.h"

#include "core/failure_log.h"
#include "core/path_helpers.h"
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

// Writes `value` to the property of the member `name` of the window in gfrmSetOrder. A window
// without that member fails as an object without the property would.
void setMember(const char *name, const char *property, const QVariant &value)
{
    QObject *member = gfrmSetOrder->findChild<QObject *>(QString::fromLatin1(name));
    if (!member)
        throw RuntimeError::fromNumber(438);
    member->setProperty(property, value);
}

void showProgress(int percent, const QString &fileName)
{
    setMember("m_ProgressBar", "value", percent);
    setMember("lblProgFilename", "text", fileName);
    setMember("lblProgNo", "text", QString::number(percent));
}

} // namespace

bool ApPdfToImage::ConvertPDFToImage(const QString &pdf, const QString &outputFolder,
                                     int32_t pageCount, const QString &passThrough, int32_t format)
{
    std::vector<int> pages;
    for (int32_t page = 1; page <= pageCount; ++page)
        pages.push_back(page);
    return ConvertPages(pdf, outputFolder, pages, passThrough, format);
}

bool ApPdfToImage::ConvertPages(const QString &pdf, const QString &outputFolder,
                                const std::vector<int> &pages, const QString &passThrough,
                                int32_t format)
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
            if (gfrmSetOrder) {
                // nearbyint rounds halves to the even neighbour, as the percent always has.
                const int percent = static_cast<int>(
                    std::nearbyint(static_cast<double>(done) / double(pages.size()) * 100.0));
                showProgress(percent, fileName);
            }
            ui_.DoEvents();
        }
        PW_STEP;
        if (gfrmSetOrder)
            showProgress(0, {});
        library_.apClose(handle);
        result = true;
    });
    return result;
}

} // namespace pw
