#include "tiff_pdf_components.h"

#include "image_to_pdf_library.h"
#include "pdf_page_libraries.h"

#include "backends/image_to_tiff/image_to_tiff.h"
#include "backends/pdf_pages/pdf_pages.h"
#include "backends/tiff_pages/tiff_pages.h"
#include "core/runtime.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <vector>

namespace pw {

namespace {

std::string encoded(const QString &path)
{
    return QFile::encodeName(path).toStdString();
}

[[noreturn]] void fail(int number, const QString &what)
{
    throw RuntimeError(number, errorDescription(number) + ": " + what);
}

// A missing file would otherwise read as a damaged one.
void requireFile(const QString &file)
{
    if (!QFileInfo(file).isFile())
        fail(53, file);
}

} // namespace

void Tiff2Pdf::ConvertTiffToPDF(const QString &source, const QString &pdf)
{
    ImageToPdfLibrary &library = ImageToPdfLibrary::ours();
    OpenDocument document(library, encoded(pdf));
    if (document.handle() <= 0)
        fail(75, pdf);
    library.ApAddImage(document.handle(), encoded(source));
    if (document.close() != 0)
        fail(75, pdf);
}

void Tiff2Pdf::ConvertImageToTiff(const QString &source, const QString &target, int32_t format)
{
    pw_module_error error{};
    if (moduleEntry<decltype(&::pw_image_to_tiff)>(image_tiff::kModule, "pw_image_to_tiff")(
            encoded(source).c_str(), encoded(target).c_str(), format, &error) != PW_MODULE_OK)
        throw RuntimeError(error.number, QString::fromUtf8(error.text));
}

void PdfStamper::UpdatePDFInfo(const QString &file, const QString &key, const QString &value,
                               const QString &copyTo)
{
    requireFile(file);
    QString target = file;
    if (!copyTo.isEmpty()) {
        QFile::remove(copyTo);
        if (!QFile::copy(file, copyTo))
            fail(75, copyTo);
        target = copyTo;
    }
    pw_module_error error{};
    if (moduleEntry<decltype(&::pw_pages_set_info)>(pages::kModule, "pw_pages_set_info")(
            encoded(target).c_str(), key.toUtf8().constData(), value.toUtf8().constData(),
            &error) != 0)
        throw RuntimeError(error.number ? error.number : 75, QString::fromUtf8(error.text));
}

QString PdfStamper::UpdatePDFInfo(const QString &file, const QString &key)
{
    const auto get =
        moduleEntry<decltype(&::pw_pages_get_info)>(pages::kModule, "pw_pages_get_info");
    requireFile(file);
    const std::string path = encoded(file);
    const std::string name = key.toUtf8().toStdString();
    const int32_t length = get(path.c_str(), name.c_str(), nullptr, 0, nullptr);
    if (length < 0)
        fail(321, file);
    QByteArray value(length + 1, '\0');
    get(path.c_str(), name.c_str(), value.data(), static_cast<size_t>(value.size()), nullptr);
    value.chop(1);
    return QString::fromUtf8(value);
}

int32_t PdfSplitMerge::GetNumberOfPages(const QString &file, const QString &password)
{
    requireFile(file);
    moduleEntry<decltype(&::pw_pages_set_password)>(pages::kModule, "pw_pages_set_password")(
        password.toUtf8().constData());
    pw_module_error error{};
    const int32_t pages = moduleEntry<decltype(&::pw_pages_count)>(
        pages::kModule, "pw_pages_count")(encoded(file).c_str(), &error);
    if (pages < 0)
        throw RuntimeError(321, QString::fromUtf8(error.text));
    return pages;
}

bool TiffMergeSplit::answer(const Result<void> &done)
{
    lastError_ = done ? QString() : QString::fromUtf8(done.failure().what());
    return bool(done);
}

bool TiffMergeSplit::AddTIFFPages(const QString &first, int16_t index, const QString &second)
{
    return answer(tiff::AddTIFFPages(encoded(first), index, encoded(second)));
}

bool TiffMergeSplit::DeleteTIFFPages(const QString &file, int16_t page)
{
    return answer(tiff::DeleteTIFFPages(encoded(file), page));
}

bool TiffMergeSplit::SplitTIFF(const QString &source, int16_t page, const QString &firstOutput,
                               const QString &secondOutput)
{
    return answer(
        tiff::SplitTIFF(encoded(source), page, encoded(firstOutput), encoded(secondOutput)));
}

bool TiffMergeSplit::ExtractPages(const QString &source, int16_t firstPage, int16_t lastPage,
                                  const QString &folder)
{
    return answer(tiff::ExtractPages(encoded(source), firstPage, lastPage, encoded(folder)));
}

bool TiffMergeSplit::ExtractAllTIFFpages(const QString &source, const QString &folder)
{
    return answer(tiff::ExtractAllTIFFpages(encoded(source), encoded(folder)));
}

bool TiffMergeSplit::MergeTIFFs(const QStringList &inputs, const QString &output)
{
    std::vector<std::string> paths;
    for (const QString &input : inputs)
        paths.push_back(encoded(input));
    return answer(tiff::MergeTIFFs(paths, encoded(output)));
}

int TiffMergeSplit::PageCount(const QString &file)
{
    const auto pages = tiff::PageCount(encoded(file));
    return pages ? *pages : 0;
}

} // namespace pw
