#pragma once

// One PDF being written: the pages added so far, the recompression chosen per colour class,
// the temporary file beside the target and the spool that holds encoded page data until the
// write, so memory stays bounded by the page in hand.

#include "page_image.h"

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace pw::i2p {

class Spool;

class PdfDocument {
public:
    // Null when the target cannot be written (folder missing or read-only, target a folder or
    // a read-only file).
    static std::unique_ptr<PdfDocument> create(const std::string &target);
    PdfDocument() = default;
    ~PdfDocument();
    // Removes the temporary output of a document that will never be finished.
    void discardOutput();
    PdfDocument(const PdfDocument &) = delete;
    PdfDocument &operator=(const PdfDocument &) = delete;

    // Status as ApAddImage returns it; throws ApFailure for an unreadable file.
    int addFile(const std::string &path);
    // `colourClass` 0 black and white, 1 greyscale, 2 colour.
    void setRecompression(int colourClass, Filter filter) { recompression_[colourClass] = filter; }
    // Status as ApClose returns it.
    int close(bool deterministic);

private:
    int addImageFile(const std::string &path);
    int addPdfFile(const std::string &path);
    Filter wantedFor(int depth) const;
    QPDFObjectHandle makeImage(const EncodedImage &img);
    QPDFObjectHandle colourSpace(const ColourSpace &cs, int bpc);
    QPDFObjectHandle makePage(const EncodedImage &img, double xdpi, double ydpi);

    std::string target_;
    std::string temp_;
    bool finished_ = false;
    std::shared_ptr<QPDF> pdf_;
    std::vector<std::shared_ptr<QPDF>> sources_;
    std::shared_ptr<Spool> spool_;
    std::array<Filter, 3> recompression_{Filter::None, Filter::None, Filter::None};
    std::map<std::string, QPDFObjectHandle> iccProfiles_;
    int pageCount_ = 0;
    std::string version_ = "1.4";
};

} // namespace pw::i2p
