#pragma once

// Image-to-PDF library: writes PDF documents from image files and PDFs behind a small C-style
// contract of integer handles and numbered functions, so the binding that drives it can stay a
// thin sequence of calls.
//
// Threads: any number of documents may be made at once, each on a thread of its own. All the
// calls that name a document, from its ApCreate to its ApClose and the ApCloseFailure after
// it, come from the one thread that created it. ApGetFunction and the process-wide settings
// (ApSetMaxPixels, ApSetPageLayout, ApSetOcrLanguage) may be called from any thread; a setting
// applies to the pages added after it. The library sets no allocator options: page buffers
// come and go in megabytes, and a program that makes many documents should have glibc map
// large blocks on their own (M_MMAP_THRESHOLD), as ours do in main.

#include "failure.h"
#include "page_layout.h"

#include <cstdint>
#include <string>

// Opens a document for `pdfPath` (UTF-8): pages go to a file that has no name yet, in the
// same folder, as they are added, and ApClose puts it in place of any file of that name, so
// that nothing shows before and nothing stays after a failure or a killed process. Returns a
// handle > 0, or -1 at once when the target cannot be written.
int32_t ApCreate(const std::string &pdfPath);

// Appends every page of the image (every directory of a TIFF, frame of a GIF, page of a DCX or
// PDF). Returns 0, or a negative status for lesser problems: -1 unknown handle, -3 a
// recompression could not be applied and the default encoding was used. Fails when any page of
// the file cannot be read, a file cut short included; the document is then left as it was
// before the call, and one still without pages holds no open file.
pw::Result<int32_t> ApAddImage(int32_t handle, const std::string &imagePath);

// Code 123: n1 selects the class (1 black and white, 2 greyscale, 3 colour) and `text` names
// the recompression for that class's next images: "Lzw", "Zip", "Packbits", "Jpeg",
// "CCITT-G3", "CCITT-G4", or "" for the default (lossless, as stored where possible).
// Returns 0, -1 unknown handle, -2 unknown code, -3 unknown selector, -4 unknown name,
// -5 a name that does not fit the class (CCITT for grey or colour, Jpeg for black and white).
int32_t ApSetFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2, const std::string &text,
                      int32_t n3);

// Code 211 (handle 0 is enough): bits per pixel of the first page of the file named in `text`
// (1, 4, 8, 16, 24, 32, 48, 64 ...), 0 for a PDF, or the negated error number when the file
// cannot be read (-53 missing, -321 not a readable image). Never throws. Other codes: -2.
int32_t ApGetFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2, const std::string &text,
                      int32_t n3);

// Finishes the document and puts it in place of the target in one step. Returns 0, -1 unknown
// handle, -2 nothing was added (no file is written), or fails when the write or the placing
// failed (the target is left untouched). The handle is released in every case.
pw::Result<int32_t> ApClose(int32_t handle);
// Releases the handle writing nothing: the target stays as it was. Returns 0, -1 unknown handle.
int32_t ApDiscard(int32_t handle);

// Pages of more pixels than `pixels` are refused before they are decoded, as files whose
// headers claim them (0: the default, 2^30). For the whole process; call it before converting.
void ApSetMaxPixels(uint64_t pixels);

// Size, fit, margin and resolution of the pages made from images in the documents created from
// now on (the default: each page is its image at its resolution, 72 dpi when it states none).
// For the whole process.
void ApSetPageLayout(const pw::i2p::PageLayout &layout);

// Every image page added from now on gets an invisible text layer of the words read on it in
// `language` ("eng", "deu+eng"; "" for none); its image stays as it would be without. Fails
// when the language cannot be used (one not installed names the package to install). For the
// whole process; call it before converting.
pw::Result<void> ApSetOcrLanguage(const std::string &language);
std::string ApOcrLanguage();

// Test helper: output that is byte for byte the same from run to run (fixed document ID).
void ApSetDeterministic(bool on);
