#include "page_count.h"

#include "module_loader.h"
#include "pdf_reading.h"
#include "tiff_handle.h"

int32_t TiffPageCounter::GetPageCount(const std::string &utf8Path) const
{
    // Opening reads the first directory, so a file whose only directory is unreadable fails
    // here rather than passing as a TIFF of 0 pages. Memory-mapping is off so that a file truncated
    // under us can't raise SIGBUS.
    const pw::TiffHandle tif = pw::TiffHandle::open(utf8Path, "rm");
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

int32_t PdfPageCounter::GetPageCount(const std::string &utf8Path) const
{
    static const auto count = reinterpret_cast<pw::pdf::CountPages>(
        pw::moduleSymbol(pw::pdf::kModule, pw::pdf::kCountPages));
    return count ? count(utf8Path.c_str()) : 0;
}
