#pragma once

// One PDF being written: pages go to a file with no name yet in the target's folder as they
// are added, with the recompression chosen per colour class; the file takes the target's
// place at the end.

#include "module_abi.h"
#include "output_file.h"
#include "page_image.h"
#include "page_layout.h"
#include "pdf_sink.h"
#include "pdf_writer.h"
#include "text_layer.h"

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace pw::i2p {

class PdfDocument {
public:
    // Null when the target cannot be written (folder missing or read-only, target a folder or
    // a read-only file).
    static std::unique_ptr<PdfDocument> create(const std::string &target);
    PdfDocument() = default;
    // Drops what was written so far and closes the file; the target stays as it was.
    void discardOutput();
    PdfDocument(const PdfDocument &) = delete;
    PdfDocument &operator=(const PdfDocument &) = delete;

    // Status as ApAddImage returns it, or why the file cannot be read; the document is then as
    // it was before the call.
    Result<int> addFile(const std::string &path);
    // `colourClass` 0 black and white, 1 greyscale, 2 colour.
    void setRecompression(int colourClass, Filter filter) { recompression_[colourClass] = filter; }
    // Status as ApClose returns it, or why the PDF could not be written or put in place.
    Result<int> close(bool deterministic);

private:
    bool openOutput();
    int addImageFile(const FileHead &file);
    int addPdfFile(const std::string &path);
    int addMetafile(const std::string &path, const std::string &format);
    // Adds the pages `copy` writes into the sink it is given, as the PDF reader's entries do.
    void addPdfPages(
        const std::function<int32_t(const pw_pdf_sink *, char *, size_t, pw_module_error *)> &copy);
    Filter wantedFor(int depth) const;
    int writeImage(const EncodedImage &img);
    std::string colourSpace(const ColourSpace &cs, int bpc);
    void writePage(const EncodedImage &img, const PageSource &page, PageText *text = nullptr);
    // Writes the text layers of earlier pages, oldest first, until `waiting` are left.
    void writeText(size_t waiting);
    void needVersion(const std::string &version);

    std::string target_;
    std::unique_ptr<OutputFile> file_;
    std::unique_ptr<PdfWriter> out_; // writes to file_
    int pagesObject_ = 0;
    std::vector<int> pages_;
    std::array<Filter, 3> recompression_{Filter::None, Filter::None, Filter::None};
    std::map<std::string, int> iccProfiles_;
    std::string version_ = "1.4";
    PageLayout layout_ = pageLayout();
    int ocrFont_ = 0; // the text layer's font, written with the first page that has words
    // A page's text layer, still being read.
    struct PendingText {
        int object;
        std::string placed; // the image's matrix on the page
        int width;
        int height;
        PageText text;
    };
    std::deque<PendingText> pendingText_;
};

} // namespace pw::i2p
