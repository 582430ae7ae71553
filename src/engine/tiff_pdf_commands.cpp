#include "tiff_pdf_commands.h"

#include "tiff_pdf_components.h"

#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "core/progress.h"
#include "core/ui_services.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace pw {

namespace {

const Unit commands = Unit::classModule("TiffPdfCommands");

constexpr int32_t AddToMerge = 175;
constexpr int32_t SplitPages = 170;

std::string libraryPath(const QString &path)
{
    return QFile::encodeName(path).toStdString();
}

// The folder named after `source` inside `outputFolder`, made when missing.
QString folderFor(const QString &source, const QString &outputFolder)
{
    const QString folder = FolderNamedAfter(source, outputFolder);
    if (!QFileInfo(folder).isDir() && !QDir().mkpath(folder))
        throw RuntimeError(76, errorDescription(76) + ": " + folder);
    return folder;
}

QString rowPath(const clsColSetOrderGrid &row)
{
    return ValidateDir(row.FileLocation()) + row.filename();
}

} // namespace

template <typename Body> bool TiffPdfCommands::run(FailureTail &tail, Body &&body)
{
    lastError_.clear();
    if (guarded(tail, std::forward<Body>(body)))
        return true;
    lastError_ = tail.failure;
    return false;
}

bool TiffPdfCommands::ConverImageToTiff(const QString &source, const QString &target,
                                        int32_t format)
{
    bool result = false;
    PW_PROCEDURE("ConverImageToTiff", commands);
    run(pwTail, [&] {
        PW_STEP;
        if (source.isEmpty() || target.isEmpty())
            return;
        PW_STEP;
        Tiff2Pdf().ConvertImageToTiff(source, target, format);
        result = true;
    });
    return result;
}

bool TiffPdfCommands::Convert_EachTiffToPDFx(const QString &outputFolder)
{
    bool result = false;
    PW_PROCEDURE("Convert_EachTiffToPDFx", commands);
    run(pwTail, [&] {
        PW_STEP;
        if (outputFolder.isEmpty())
            return;
        Tiff2Pdf converter;
        for (const clsColSetOrderGrid &row : colSelectedData) {
            PW_STEP;
            // Cut at the first dot, unlike every other name the program makes: a.b.tif gives a.
            const int dot = row.filename().indexOf('.');
            if (dot < 0)
                throw RuntimeError::fromNumber(5);
            const QString pdf = ValidateDir(outputFolder) + row.filename().left(dot) + ".Pdf";
            ui_.DoEvents();
            PW_STEP;
            converter.ConvertTiffToPDF(rowPath(row), pdf);
        }
        result = true;
    });
    return result;
}

bool TiffPdfCommands::UpdatePdfMetaData(const QString &file, const QString &text1,
                                        const QString &text2, const QString &text3)
{
    bool result = false;
    PW_PROCEDURE("UpdatePdfMetaData", commands);
    run(pwTail, [&] {
        PW_STEP;
        if (text2.isEmpty())
            return;
        PW_STEP;
        PdfStamper().UpdatePDFInfo(file, text1, text2, text3);
        result = true;
    });
    return result;
}

QString TiffPdfCommands::GetPdfMetaData(const QString &file, const QString &text)
{
    QString result;
    PW_PROCEDURE("GetPdfMetaData", commands);
    if (!run(pwTail, [&] {
            PW_STEP;
            result = PdfStamper().UpdatePDFInfo(file, text);
        }))
        result = QStringLiteral("False");
    return result;
}

int16_t TiffPdfCommands::GetNoOfPagesFromPDF(const QString &file)
{
    int16_t result = 0;
    PW_PROCEDURE("GetNoOfPagesFromPDF", commands);
    run(pwTail, [&] {
        PW_STEP;
        result = CInt(PdfSplitMerge().GetNumberOfPages(file, {}));
    });
    return result;
}

bool TiffPdfCommands::CombineOrderPdf(Progress &status)
{
    bool result = false;
    PW_PROCEDURE("CombineOrderPdf", commands);
    run(pwTail, [&] {
        PW_STEP;
        if (OutputFile.isEmpty())
            return;
        int counter = 0;
        const int32_t handle = pages_.apCreateMerge(libraryPath(OutputFile));
        for (const clsColSetOrderGrid &row : colSelectedData) {
            PW_STEP;
            if (handle > 0) {
                const QString range = row.Range();
                pages_.apSetFunction(handle, AddToMerge, 0, 0, libraryPath(rowPath(row)),
                                     range.isEmpty() || range == "0" ? "0" : range.toStdString());
            }
            PW_STEP;
            ui_.DoEvents();
            status.setValue(++counter);
        }
        PW_STEP;
        pages_.apClose(handle);
        result = true;
    });
    return result;
}

bool TiffPdfCommands::SplitPDFFiles(const QString &source, const QString &range,
                                    const QString &outputFolder, const QString &prefix)
{
    bool result = false;
    PW_PROCEDURE("SplitPDFFiles", commands);
    run(pwTail, [&] {
        PW_STEP;
        const QString target = ValidateDir(folderFor(source, outputFolder)) + prefix;
        PW_STEP;
        const int32_t handle = pages_.apOpenSplit(libraryPath(source));
        if (!(handle > 0))
            return;
        PW_STEP;
        ui_.DoEvents();
        pages_.apSetFunction(handle, SplitPages, 1, range.isEmpty() ? 1 : 2, range.toStdString(),
                             libraryPath(target));
        PW_STEP;
        pages_.apClose(handle);
        result = true;
    });
    return result;
}

bool TiffPdfCommands::AppendFileTiffFile(const QString &first, const QString &second, int16_t index)
{
    bool result = false;
    PW_PROCEDURE("AppendFileTiffFile", commands);
    run(pwTail, [&] {
        PW_STEP;
        if (first.isEmpty() || second.isEmpty() || index < 0)
            return;
        PW_STEP;
        result =
            withTiff([&](TiffMergeSplit &tiff) { return tiff.AddTIFFPages(first, index, second); });
    });
    return result;
}

bool TiffPdfCommands::DeleteTiffPage(const QString &file, int16_t page)
{
    bool result = false;
    PW_PROCEDURE("DeleteTiffPage", commands);
    run(pwTail, [&] {
        PW_STEP;
        result = withTiff([&](TiffMergeSplit &tiff) { return tiff.DeleteTIFFPages(file, page); });
    });
    return result;
}

bool TiffPdfCommands::SplitTiffFiles(const QString &source, int16_t page,
                                     const QString &outputFolder, const QString &prefix)
{
    bool result = false;
    PW_PROCEDURE("SplitTiffFiles", commands);
    run(pwTail, [&] {
        PW_STEP;
        const QString target = ValidateDir(folderFor(source, outputFolder)) + prefix;
        PW_STEP;
        ui_.DoEvents();
        result = withTiff([&](TiffMergeSplit &tiff) {
            return tiff.SplitTIFF(source, page, target + "1.tif", target + "2.tif");
        });
        ui_.DoEvents();
    });
    return result;
}

bool TiffPdfCommands::ExtractTIFFpagesbyRange(const QString &source, int16_t firstPage,
                                              int16_t lastPage, const QString &outputFolder)
{
    bool result = false;
    PW_PROCEDURE("ExtractTIFFpagesbyRange", commands);
    run(pwTail, [&] {
        PW_STEP;
        const QString folder = folderFor(source, outputFolder);
        PW_STEP;
        ui_.DoEvents();
        result = withTiff([&](TiffMergeSplit &tiff) {
            return tiff.ExtractPages(source, firstPage, lastPage, folder);
        });
        ui_.DoEvents();
    });
    return result;
}

bool TiffPdfCommands::ExtractAllTIFFpages(const QString &source, const QString &outputFolder)
{
    bool result = false;
    PW_PROCEDURE("ExtractAllTIFFpages", commands);
    run(pwTail, [&] {
        PW_STEP;
        const QString folder = folderFor(source, outputFolder);
        PW_STEP;
        ui_.DoEvents();
        result = withTiff(
            [&](TiffMergeSplit &tiff) { return tiff.ExtractAllTIFFpages(source, folder); });
        ui_.DoEvents();
    });
    return result;
}

bool TiffPdfCommands::withTiff(const std::function<bool(TiffMergeSplit &)> &call)
{
    TiffMergeSplit component;
    const bool done = call(component);
    lastError_ = component.lastError();
    return done;
}

bool TiffPdfCommands::FileExists(const QString &path)
{
    bool result = false;
    PW_PROCEDURE("FileExists", commands);
    run(pwTail, [&] {
        PW_STEP;
        result = !Dir(path).isEmpty();
    });
    return result;
}

} // namespace pw
