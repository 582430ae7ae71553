#pragma once

#include <cstdint>
#include <string>

// Page counters for the "Pages" column. Each has the one call the catalogue makes: a UTF-8
// path in, a signed count out. Neither prints anything, throws, or hangs on a damaged file;
// the catalogue turns a bad answer into "Error" (a TIFF below 0, a PDF at 0 or below).

// Pages of a TIFF file, counted from the chain of image directories without decoding pixels.
class TiffPageCounter {
public:
    // Directories can't exceed this; a longer chain is treated as damage, not as pages.
    static constexpr int32_t kMaxPages = 65536;

    // The number of directories in the main chain, or -1 when the file is missing, is not a
    // TIFF, or its first directory can't be read. A chain that breaks after the first
    // directory gives the pages read up to the break.
    int32_t GetPageCount(const std::string &utf8Path) const;
};

// Pages of a PDF file, read from the page tree with qpdf's recovery of damaged files.
class PdfPageCounter {
public:
    // The page count, or 0 when the file can't be opened (missing, not a PDF, encrypted with
    // an unknown password, beyond repair) or has no pages.
    int32_t GetPageCount(const std::string &utf8Path) const;
};
