#include "ap_img_to_pdf.h"

#include "core/failure_log.h"
#include "core/file_names.h"
#include "core/path_helpers.h"
#include "core/ui_services.h"

#include <QFile>

namespace pw {

const QStringList RecompressionNames = {"Lzw", "Zip", "Packbits", "Jpeg", "CCITT-G3", "CCITT-G4"};

QStringList RecompressionItems(ColourClass colourClass)
{
    if (colourClass != ClassBlackWhite)
        return RecompressionNames.first(RecompressionNames.size() - 2);
    QStringList items = RecompressionNames;
    items.remove(2, 2);
    return items;
}

namespace {

constexpr int32_t SetRecompression = 123;
constexpr int32_t GetBitDepth = 211;

const Unit binding = Unit::classModule("ApImgToPdf");

// Paths reach the library as the file system spells them, bytes that are not UTF-8 included.
std::string libraryPath(const QString &path)
{
    return EncodeFileName(path).toStdString();
}

} // namespace

// Appends the image and finishes the document, letting window events run in between.
void ApImgToPdf::addAndClose(OpenDocument &document, const QString &source, FailureTail &pwTail)
{
    PW_STEP;
    library_.ApAddImage(document.handle(), libraryPath(source));
    PW_STEP;
    ui_.DoEvents();
    PW_STEP;
    Written = document.close() == 0;
    NotWrittenWhy = Written ? QString() : QString::fromStdString(library_.closeFailure());
}

bool ApImgToPdf::MergeConvert_TiffToPdfx(Progress &status)
{
    bool result = false;
    PW_PROCEDURE("MergeConvert_TiffToPdfx", binding);
    guarded(pwTail, [&] {
        PW_STEP;
        FailedFile.clear();
        Written = false;
        if (OutputPdfFile.isEmpty()) {
            result = true;
            return;
        }
        PW_STEP;
        int counter = 0;
        OpenDocument document(library_, libraryPath(OutputPdfFile));
        for (const clsColSetOrderGrid &row : colSelectedData) {
            PW_STEP;
            ui_.DoEvents();
            const QString source = ValidateDir(row.FileLocation()) + row.filename();
            PW_STEP;
            FailedFile = source;
            library_.ApAddImage(document.handle(), libraryPath(source));
            FailedFile.clear();
            ++counter;
            PW_STEP;
            status.setValue(counter);
        }
        PW_STEP;
        Written = document.close() == 0;
        NotWrittenWhy = QString::fromStdString(library_.closeFailure());
        result = true;
    });
    LastFailureNumber = pwTail.failureNumber;
    LastFailureText = pwTail.failure;
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
        OpenDocument document(library_, libraryPath(pdf));
        addAndClose(document, source, pwTail);
        result = true;
    });
    return result;
}

bool ApImgToPdf::ConverImageToPdf(const QString &source, const QString &pdf, const QString &colour,
                                  const QString &grey, const QString &blackWhite)
{
    bool result = false;
    LastFailureNumber = 0;
    CreateRefused = false;
    Written = false;
    PW_PROCEDURE("ConverImageToPdf", binding);
    guarded(pwTail, [&] {
        PW_STEP;
        if (pdf.isEmpty() || source.isEmpty())
            return;
        PW_STEP;
        OpenDocument document(library_, libraryPath(pdf));
        const int32_t handle = document.handle();
        if (!(handle > 0)) {
            CreateRefused = true;
            result = true;
            return;
        }
        PW_STEP;
        // The depth query names the file and needs no document: handle 0 on purpose.
        const int32_t depth = library_.ApGetFunction(0, GetBitDepth, 0, 0, libraryPath(source), 0);
        PW_STEP;
        const auto recompress = [&](int32_t colourClass, const QString &name) {
            library_.ApSetFunction(handle, SetRecompression, colourClass, 0, name.toStdString(), 0);
        };
        if (!blackWhite.isEmpty() && depth == 1)
            recompress(ClassBlackWhite, blackWhite);
        else if (!grey.isEmpty() && depth == 8)
            recompress(ClassGreyscale, grey);
        else if (!colour.isEmpty() && depth == 24)
            recompress(ClassColour, colour);
        addAndClose(document, source, pwTail);
        PW_STEP;
        ui_.DoEvents();
        result = true;
    });
    LastFailureNumber = pwTail.failureNumber;
    LastFailureText = pwTail.failure;
    return result;
}

} // namespace pw
