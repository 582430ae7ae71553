#include "page_count.h"

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFLogger.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <tiffio.h>

#include <limits>
#include <memory>

namespace {

// Returning 1 tells libtiff that the message was handled, so the process-wide handlers
// (which print to stderr by default, and which other parts of the program may own) are
// never reached for this handle.
int SwallowTiffMessage(TIFF *, void *, const char *, const char *, va_list) { return 1; }

struct TiffOpenOptionsDeleter {
    void operator()(TIFFOpenOptions *options) const { TIFFOpenOptionsFree(options); }
};
using TiffOpenOptions = std::unique_ptr<TIFFOpenOptions, TiffOpenOptionsDeleter>;

struct TiffCloser {
    void operator()(TIFF *tif) const { TIFFClose(tif); }
};
using TiffHandle = std::unique_ptr<TIFF, TiffCloser>;

TiffHandle OpenTiffQuietly(const std::string &path) {
    TiffOpenOptions options(TIFFOpenOptionsAlloc());
    if (!options)
        return nullptr;
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), SwallowTiffMessage, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), SwallowTiffMessage, nullptr);
    // Memory-mapping is off so that a file truncated under us can't raise SIGBUS.
    return TiffHandle(TIFFOpenExt(path.c_str(), "rm", options.get()));
}

} // namespace

int32_t TiffPageCounter::GetPageCount(const std::string &utf8Path) const {
    // Opening reads the first directory, so a file whose only directory is unreadable fails
    // here rather than passing as a TIFF of 0 pages.
    TiffHandle tif = OpenTiffQuietly(utf8Path);
    if (!tif)
        return -1;
    // Every directory of the main chain is a page, reduced-resolution ones included: the
    // image-to-PDF backend writes each of them as a page, and the count has to match what a
    // conversion produces. Sub-IFDs (EXIF, thumbnails hung off a page) are not in the chain.
    // TIFFNumberOfDirectories only follows the next-directory offsets (no tags, no pixels)
    // and stops at a directory it has already visited, so a loop can't hang us.
    const tdir_t count = TIFFNumberOfDirectories(tif.get());
    if (count > static_cast<tdir_t>(kMaxPages))
        return -1;
    return static_cast<int32_t>(count);
}

namespace {

// The page tree's own /Count, when it is plausible enough to believe without reading a
// single page object; -1 otherwise. The catalogue asks for every PDF of a scan, so the cheap
// answer matters, but a forged or broken /Count (0, negative, absurdly large, or fewer than
// the root's own kids) must not reach the grid.
int64_t TrustworthyCount(QPDF &pdf) {
    QPDFObjectHandle pages = pdf.getRoot().getKey("/Pages");
    if (!pages.isDictionary())
        return -1;
    QPDFObjectHandle count = pages.getKey("/Count");
    QPDFObjectHandle kids = pages.getKey("/Kids");
    if (!count.isInteger() || !kids.isArray())
        return -1;
    const long long value = count.getIntValue();
    if (value < 1 || value > std::numeric_limits<int32_t>::max())
        return -1;
    const int kidCount = kids.getArrayNItems();
    if (kidCount < 1 || kidCount > value)
        return -1;
    return value;
}

int32_t CountPages(const std::string &path) {
    QPDF pdf;
    std::shared_ptr<QPDFLogger> logger = QPDFLogger::create();
    logger->setInfo(logger->discard());
    logger->setWarn(logger->discard());
    logger->setError(logger->discard());
    pdf.setLogger(logger);
    pdf.setSuppressWarnings(true);
    pdf.setAttemptRecovery(true);
    pdf.processFile(path.c_str());

    const int64_t trusted = TrustworthyCount(pdf);
    if (trusted > 0)
        return static_cast<int32_t>(trusted);
    // Walking the tree loads every page object; qpdf repairs loops and missing /Type on the
    // way, which is what a damaged file needs.
    const size_t walked = QPDFPageDocumentHelper(pdf).getAllPages().size();
    if (walked > static_cast<size_t>(std::numeric_limits<int32_t>::max()))
        return 0;
    return static_cast<int32_t>(walked);
}

} // namespace

int32_t PdfPageCounter::GetPageCount(const std::string &utf8Path) const {
    try {
        return CountPages(utf8Path);
    } catch (...) {
        // qpdf reports unrecoverable damage, bad passwords and I/O failures by exceptions of
        // several types; to the catalogue they are all the same "Error".
        return 0;
    }
}
