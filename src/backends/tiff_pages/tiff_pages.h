#pragma once

// Page operations on TIFF files that copy each page as it is stored: its strips or tiles,
// compression and tags are copied byte for byte, never decoded and encoded again, so that a
// G4, LZW or JPEG page keeps its exact data and any page libtiff can list can be moved.
// Pages count from 1. Every output is written whole before it takes its place (see
// output_file.h), so a failure never leaves half a file and an input may also be the output.
// Each operation succeeds when it wrote every output, or fails saying why.
// A source that can't be read in full (a page, its data or the chain of pages broken off)
// fails the operation and no output is written. Old-style JPEG pages (compression 6) are
// refused; EXIF and GPS sub-directories of a page are left out, since they point into the
// source file. Nothing is printed to stderr.

#include "failure.h"

#include <string>
#include <vector>

namespace pw::tiff {

// Pages of `path`; fails when it cannot be read as a TIFF.
Result<int> PageCount(const std::string &path);

// The pages of every file of `inputs` in turn, into `output`, in one pass. A page number tag
// tells each page its new place. Refuses a page with samples wider than a byte whose byte order
// differs from the first input's, since its bytes can't be copied as they are.
Result<void> MergeTIFFs(const std::vector<std::string> &inputs, const std::string &output);
// Puts the pages of `second` into `first` after its first `index` pages: 0 puts them in front,
// an index at or past the page count appends them; a negative one is refused.
Result<void> AddTIFFPages(const std::string &first, int index, const std::string &second);
// Removes page `page` of `path`. Refuses to remove the only page.
Result<void> DeleteTIFFPages(const std::string &path, int page);
// Pages 1 to `page` into `firstOutput`, the rest into `secondOutput`; with no pages after
// `page` the second output is not written.
Result<void> SplitTIFF(const std::string &source, int page, const std::string &firstOutput,
                       const std::string &secondOutput);
// Pages `firstPage` to `lastPage` each into a file of its own in `folder`, which must exist:
// "<source name without its extension>-<page>.tif". Refuses a range outside the pages.
Result<void> ExtractPages(const std::string &source, int firstPage, int lastPage,
                          const std::string &folder);
// Every page into a file of its own in `folder`, named as by ExtractPages.
Result<void> ExtractAllTIFFpages(const std::string &source, const std::string &folder);

} // namespace pw::tiff
