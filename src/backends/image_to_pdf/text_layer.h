#pragma once

// Searchable pages: the words that text recognition finds on a page, laid over its image as
// invisible text. The image itself is never touched; recognition reads a grey copy of it.

#include "page_image.h"

#include <cstddef>
#include <future>
#include <string>
#include <vector>

namespace pw::i2p {

// A grey (8-bit, 0 black) or black-and-white (1-bit, 1 white) copy of a page for recognition.
struct OcrPage {
    PixelBytes pixels;
    int width = 0;
    int height = 0;
    int bits = 8;
    size_t rowBytes = 0;
    double dpi = 300;
};

// A recognised word, in pixels of the page, origin at its top left.
struct OcrWord {
    std::string text;
    double left = 0, top = 0, right = 0, bottom = 0;
    double baselineX1 = 0, baselineY1 = 0, baselineX2 = 0, baselineY2 = 0;
    double fontSize = 0;
    bool endsLine = true;
};

// The language the text layer is read in, for every document of the process ("" for no text
// layer). Throws pw::Failure, naming the package to install, when a language is not installed;
// the setting is then unchanged.
void setOcrLanguage(const std::string &language);
std::string ocrLanguage();

OcrPage ocrCopy(const Raster &raster, double dpi);
// Throws pw::Failure when recognition fails.
std::vector<OcrWord> recognise(const OcrPage &page, const std::string &language);

// Reads `page`, given as it is shown, on the pool of recognisers that PageText reads on, beside
// the caller. The future throws pw::Failure when recognition fails.
std::future<std::vector<OcrWord>> readOnPool(OcrPage page, const std::string &language);

// Content-stream operators that draw `words`, read on the page as shown upright after its
// EXIF/TIFF `orientation` code, invisibly in the font named `font` over an image of `width` x
// `height` pixels as stored. They follow the image's drawing while its unit square is the
// current space. "" when there are no words.
std::string textLayer(const std::vector<OcrWord> &words, const std::string &font, int width,
                      int height, int orientation = 1);

// The text of one page, read by the pool of recognisers beside the writing of the document,
// when a language is set (ocrLanguage()) as the page is met.
class PageText {
public:
    PageText() : language_(ocrLanguage()) {}
    // True once reading has started, or when there is nothing to read.
    bool started() const { return language_.empty() || words_.valid(); }
    // True when the page gets a text layer.
    bool wanted() const { return words_.valid(); }
    // Starts reading a copy of the decoded `page`, turned upright as it is shown.
    void read(const Raster &raster, const PageSource &page);
    // Starts reading a decoded copy of a page whose stored data is written as it is. A page
    // that cannot be decoded gets no text: its image is still whole.
    void read(PageSource &page);
    // textLayer() of the words found, once they are; "" when not wanted(). Throws pw::Failure
    // when the reading failed.
    std::string layer(int width, int height);

    // Pages of one document read at once: as many as there are recognisers.
    static size_t readers();

private:
    std::string language_;
    int orientation_ = 1;
    std::future<std::vector<OcrWord>> words_;
};

} // namespace pw::i2p
