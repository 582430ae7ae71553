#include "ap_img_to_pdf.h"

#include "backends/image_to_pdf/image_to_pdf.h"
#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "core/ui_services.h"

#include <QFile>
#include <QObject>

namespace pw {

QPointer<QObject> gfrmSetOrder;

const QStringList RecompressionNames = {"Lzw", "Zip", "Packbits", "Jpeg", "CCITT-G3", "CCITT-G4"};

namespace {

constexpr int32_t SetRecompression = 123;
constexpr int32_t GetBitDepth = 211;

const Unit binding = Unit::classModule("ApImgToPdf");

// Paths reach the library as the file system spells them.
std::string libraryPath(const QString &path) { return QFile::encodeName(path).toStdString(); }

// The library reports an unreadable image by raising; the binding sees that as a run-time
// failure with the library's number and text.
template <typename Call> int32_t library(Call &&call)
{
    try {
        return call();
    } catch (const ApFailure &e) {
        throw RuntimeError(e.number, QString::fromUtf8(e.what()), "imagetopdf");
    }
}

// Appends the image and finishes the document, letting window events run in between.
void addAndClose(int32_t handle, const QString &source, FailureTail &pwTail)
{
    PW_STEP;
    library([&] { return ApAddImage(handle, libraryPath(source)); });
    PW_STEP;
    DoEvents();
    PW_STEP;
    ApClose(handle);
}

void reportProgress(int counter)
{
    QObject *bar = gfrmSetOrder ? gfrmSetOrder->findChild<QObject *>("ProgressBar1") : nullptr;
    if (!bar)
        throw RuntimeError::fromNumber(91);
    bar->setProperty("value", counter);
}

} // namespace

bool ApImgToPdf::MergeConvert_TiffToPdfx()
{
    bool result = false;
    PW_PROCEDURE("MergeConvert_TiffToPdfx", binding);
    guarded(pwTail, [&] {
        PW_STEP;
        if (OutputPdfFile.isEmpty()) {
            result = true;
            return;
        }
        PW_STEP;
        int counter = 0;
        const int32_t handle = ApCreate(libraryPath(OutputPdfFile));
        for (const clsColSetOrderGrid &row : colSelectedData) {
            PW_STEP;
            DoEvents();
            const QString source = ValidateDir(row.FileLocation()) + row.filename();
            PW_STEP;
            library([&] { return ApAddImage(handle, libraryPath(source)); });
            ++counter;
            PW_STEP;
            reportProgress(counter);
        }
        PW_STEP;
        ApClose(handle);
        result = true;
    });
    return result;
}

bool ApImgToPdf::Convert_EachTiffToPDFbyOne(const QString &source, const QString &pdf)
{
    bool result = false;
    PW_PROCEDURE("Convert_EachTiffToPDFbyOne", binding);
    guarded(pwTail, [&] {
        PW_STEP;
        if (pdf.isEmpty() || source.isEmpty())
            return;
        PW_STEP;
        const int32_t handle = ApCreate(libraryPath(pdf));
        addAndClose(handle, source, pwTail);
        result = true;
    });
    return result;
}

bool ApImgToPdf::ConverImageToPdf(const QString &source, const QString &pdf,
                                  const QString &colour, const QString &grey,
                                  const QString &blackWhite)
{
    bool result = false;
    PW_PROCEDURE("ConverImageToPdf", binding);
    guarded(pwTail, [&] {
        PW_STEP;
        if (pdf.isEmpty() || source.isEmpty())
            return;
        PW_STEP;
        const int32_t handle = ApCreate(libraryPath(pdf));
        if (!(handle > 0)) {
            result = true;
            return;
        }
        PW_STEP;
        // The depth query names the file and needs no document: handle 0 on purpose.
        const int32_t depth = ApGetFunction(0, GetBitDepth, 0, 0, libraryPath(source), 0);
        PW_STEP;
        if (!blackWhite.isEmpty() && depth == 1)
            ApSetFunction(handle, SetRecompression, ClassBlackWhite, 0, blackWhite.toStdString(), 0);
        else if (!grey.isEmpty() && depth == 8)
            ApSetFunction(handle, SetRecompression, ClassGreyscale, 0, grey.toStdString(), 0);
        else if (!colour.isEmpty() && depth == 24)
            ApSetFunction(handle, SetRecompression, ClassColour, 0, colour.toStdString(), 0);
        addAndClose(handle, source, pwTail);
        PW_STEP;
        DoEvents();
        result = true;
    });
    return result;
}

} // namespace pw
