#include "text_layer.h"

#include "glyphless_font.h"
#include "module_failure.h"
#include "module_loader.h"
#include "ocr.h"
#include "pdf_writer.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace pw::i2p {

namespace {

std::mutex &languageLock()
{
    static std::mutex lock;
    return lock;
}

std::string &language()
{
    static std::string chosen;
    return chosen;
}

template <typename Entry> Entry ocrEntry(const char *name)
{
    const auto entry = reinterpret_cast<Entry>(moduleSymbol(ocr::kModule, name));
    if (!entry)
        throw failure(rte::kFileNotFound, "OCR: the text recognition module is not installed");
    return entry;
}

// One sample of `raster` as 0..255, where 255 is the largest value of its bit depth.
struct SampleReader {
    const Raster &r;
    int comps = r.cs.components();
    unsigned maxValue = (1u << std::min(r.bpc, 8)) - 1;

    int at(const uint8_t *row, size_t index) const
    {
        if (r.bpc == 16)
            return row[index * 2];
        if (r.bpc == 8)
            return row[index];
        const size_t bit = index * size_t(r.bpc);
        const unsigned v = (row[bit / 8] >> (8 - r.bpc - bit % 8)) & maxValue;
        return int(v * 255 / maxValue);
    }
};

int luminance(ColourModel model, const int *c)
{
    switch (model) {
    case ColourModel::Rgb:
        return (299 * c[0] + 587 * c[1] + 114 * c[2]) / 1000;
    case ColourModel::Cmyk:
        return 255 - std::min(255, (30 * c[0] + 59 * c[1] + 11 * c[2]) / 100 + c[3]);
    default:
        return c[0];
    }
}

int greyOf(const SampleReader &s, const uint8_t *row, int x)
{
    const Raster &r = s.r;
    int c[4] = {0, 0, 0, 0};
    if (r.cs.model != ColourModel::Indexed) {
        for (int k = 0; k < s.comps; ++k)
            c[k] = s.at(row, size_t(x) * size_t(s.comps) + size_t(k));
        const int grey = luminance(r.cs.model, c);
        return r.invert ? 255 - grey : grey;
    }
    const int baseComps = r.cs.base == ColourModel::Gray ? 1 : 3;
    const size_t entry = size_t(s.at(row, size_t(x)) * int(s.maxValue) / 255);
    for (int k = 0; k < baseComps; ++k) {
        const size_t at = entry * size_t(baseComps) + size_t(k);
        c[k] = at < r.cs.palette.size() ? uint8_t(r.cs.palette[at]) : 0;
    }
    return luminance(r.cs.base, c);
}

// Transparent parts read as white paper, whatever colour their pixels hold.
int overWhite(const Raster &r, int grey, size_t pixel)
{
    if (r.alpha.empty())
        return grey;
    const size_t at = r.alphaBpc == 16 ? pixel * 2 : pixel;
    if (r.alphaBpc < 8 || at >= r.alpha.size())
        return grey;
    const int alpha = r.alpha[at];
    return (grey * alpha + 255 * (255 - alpha)) / 255;
}

// How a page shown upright maps back onto its pixels as stored, for each EXIF/TIFF
// orientation code: stored x = a x' + c y' + e, stored y = b x' + d y' + f, where e and f
// count in stored widths (W) and heights (H).
struct ShownToStored {
    int a, b, c, d, eW, eH, fW, fH;
};
constexpr ShownToStored kOrientations[] = {
    {1, 0, 0, 1, 0, 0, 0, 0},   {1, 0, 0, 1, 0, 0, 0, 0},   {-1, 0, 0, 1, 1, 0, 0, 0},
    {-1, 0, 0, -1, 1, 0, 0, 1}, {1, 0, 0, -1, 0, 0, 0, 1},  {0, 1, 1, 0, 0, 0, 0, 0},
    {0, -1, 1, 0, 0, 0, 0, 1},  {0, -1, -1, 0, 1, 0, 0, 1}, {0, 1, -1, 0, 1, 0, 0, 0}};

const ShownToStored &orientationOf(int code)
{
    return kOrientations[code >= 1 && code <= 8 ? code : 1];
}

bool turnsSideways(int code)
{
    return orientationOf(code).a == 0;
}

int pixelOf(const OcrPage &page, int x, int y)
{
    const uint8_t *row = page.pixels.data() + size_t(y) * page.rowBytes;
    if (page.bits == 8)
        return row[x];
    return (row[x >> 3] >> (7 - (x & 7))) & 1 ? 255 : 0;
}

// The copy turned as the page is shown, so that its lines run across as the reader sees them.
OcrPage shownUpright(OcrPage stored, int orientation)
{
    if (orientationOf(orientation).a == 1 && orientationOf(orientation).d == 1)
        return stored;
    const ShownToStored &m = orientationOf(orientation);
    OcrPage shown;
    shown.dpi = stored.dpi;
    shown.width = turnsSideways(orientation) ? stored.height : stored.width;
    shown.height = turnsSideways(orientation) ? stored.width : stored.height;
    shown.rowBytes = size_t(shown.width);
    shown.pixels.resize(shown.rowBytes * size_t(shown.height));
    const double e = m.eW * stored.width + m.eH * stored.height;
    const double f = m.fW * stored.width + m.fH * stored.height;
    for (int y = 0; y < shown.height; ++y) {
        uint8_t *out = shown.pixels.data() + size_t(y) * shown.rowBytes;
        for (int x = 0; x < shown.width; ++x) {
            // Pixel centres land on pixel centres.
            const int sx = int(std::floor(m.a * (x + 0.5) + m.c * (y + 0.5) + e));
            const int sy = int(std::floor(m.b * (x + 0.5) + m.d * (y + 0.5) + f));
            out[x] = uint8_t(pixelOf(stored, sx, sy));
        }
    }
    return shown;
}

} // namespace

void setOcrLanguage(const std::string &chosen)
{
    if (!chosen.empty()) {
        pw_module_error error{};
        if (ocrEntry<ocr::CheckLanguage>(ocr::kCheckLanguage)(chosen.c_str(), &error) !=
            PW_MODULE_OK)
            throw reported(error);
    }
    const std::lock_guard hold(languageLock());
    language() = chosen;
}

std::string ocrLanguage()
{
    const std::lock_guard hold(languageLock());
    return language();
}

OcrPage ocrCopy(const Raster &r, double dpi)
{
    OcrPage page;
    page.width = r.width;
    page.height = r.height;
    page.dpi = dpi;
    const size_t rowBytes = r.rowBytes();
    // Black and white stays one bit a pixel: recognition binarises anyway.
    if (r.bpc == 1 && r.cs.model == ColourModel::Gray && r.alpha.empty()) {
        page.bits = 1;
        page.rowBytes = rowBytes;
        page.pixels.assign(r.pixels.begin(), r.pixels.end());
        if (r.invert)
            for (uint8_t &b : page.pixels)
                b = uint8_t(~b);
        return page;
    }
    page.rowBytes = size_t(r.width);
    page.pixels.resize(page.rowBytes * size_t(r.height));
    const SampleReader reader{r};
    for (int y = 0; y < r.height; ++y) {
        const uint8_t *row = r.pixels.data() + size_t(y) * rowBytes;
        uint8_t *out = page.pixels.data() + size_t(y) * page.rowBytes;
        for (int x = 0; x < r.width; ++x)
            out[x] = uint8_t(
                overWhite(r, greyOf(reader, row, x), size_t(y) * size_t(r.width) + size_t(x)));
    }
    return page;
}

std::vector<OcrWord> recognise(const OcrPage &page, const std::string &lang)
{
    static const auto read = ocrEntry<ocr::ReadPage>(ocr::kReadPage);
    const pw_ocr_page given{page.pixels.data(), page.width,    page.height,
                            page.bits,          page.rowBytes, page.dpi};
    struct Collected {
        std::vector<OcrWord> words;
        bool outOfMemory = false;
    } collected;
    const auto take = [](void *context, const pw_ocr_word *w) {
        auto &c = *static_cast<Collected *>(context);
        try {
            c.words.push_back({w->text, w->left, w->top, w->right, w->bottom, w->baseline_x1,
                               w->baseline_y1, w->baseline_x2, w->baseline_y2, w->font_size,
                               w->ends_line != 0});
        } catch (const std::bad_alloc &) {
            c.outOfMemory = true; // nothing may unwind through the module
        }
    };
    pw_module_error error{};
    if (read(&given, lang.c_str(), take, &collected, &error) != PW_MODULE_OK)
        throw reported(error);
    if (collected.outOfMemory)
        throw outOfMemory();
    return std::move(collected.words);
}

std::string textLayer(const std::vector<OcrWord> &words, const std::string &font, int width,
                      int height, int orientation)
{
    if (words.empty() || width < 1 || height < 1)
        return {};
    const ShownToStored &m = orientationOf(orientation);
    char spaces[192];
    // From the image's unit square to its pixels as stored (y down), then to the page as shown:
    // the words are placed where they were read, wherever and however the image is drawn.
    std::snprintf(spaces, sizeof spaces, "%.9g 0 0 %.9g 0 1 cm %d %d %d %d %d %d cm", 1.0 / width,
                  -1.0 / height, m.a, m.b, m.c, m.d, m.eW * width + m.eH * height,
                  m.fW * width + m.fH * height);
    // Render mode 3 draws nothing: the words are there to be found, selected and copied.
    std::string ops = std::string("q ") + spaces + " BT 3 Tr\n";
    // Whole pixels are finer than any reader selects. The text matrix is set again only where
    // the baseline's slope changes; every other word moves from where the last one started,
    // in the lines' own space, which costs a few bytes a word where a matrix cost twenty.
    const auto whole = [](double v) { return std::to_string(std::lround(v)); };
    struct Line {
        bool set = false;
        double c = 0, s = 0, x = 0, y = 0; // x, y: where the last word started
    } line;
    double lastSize = 0;
    for (const OcrWord &w : words) {
        int units = 0;
        const std::string codes = glyphlessCodes(w.text, units);
        const double dx = w.baselineX2 - w.baselineX1;
        const double dy = w.baselineY2 - w.baselineY1;
        if (units == 0 || dx <= 0 || w.right <= w.left)
            continue;
        // Along the baseline, and up from it (y runs down here, so text space flips).
        const double c = dx / std::hypot(dx, dy), s = dy / std::hypot(dx, dy);
        const double baseY = w.baselineY1 + (w.left - w.baselineX1) * dy / dx;
        const double size = std::max(1.0, std::round(w.fontSize));
        if (size != lastSize)
            ops += "/" + font + ' ' + pdfNumber(size) + " Tf ";
        lastSize = size;
        // A slope within a hundredth of the last keeps a word within a few pixels of its own.
        if (line.set && std::abs(s - line.s) <= 0.01) {
            const long along = std::lround((w.left - line.x) * line.c + (baseY - line.y) * line.s);
            const long up = std::lround((w.left - line.x) * line.s - (baseY - line.y) * line.c);
            ops += std::to_string(along) + ' ' + std::to_string(up) + " Td ";
            line.x += along * line.c + up * line.s;
            line.y += along * line.s - up * line.c;
        } else {
            const double c3 = std::round(c * 1000) / 1000, s3 = std::round(s * 1000) / 1000;
            ops += pdfNumber(c3) + ' ' + pdfNumber(s3) + ' ' + pdfNumber(s3) + ' ' +
                   pdfNumber(-c3) + ' ' + whole(w.left) + ' ' + whole(baseY) + " Tm ";
            line = {true, c3, s3, double(std::lround(w.left)), double(std::lround(baseY))};
        }
        const double advance = units * size * kGlyphlessAdvance / 1000.0;
        // The letters span the word's box. A space follows a word that does not end its line,
        // so that readers part words whose ink nearly touches, and copied text has its spaces;
        // a line's last word gets none, so that a word hyphenated there is joined again.
        const std::string spaced = w.endsLine ? codes : codes.substr(0, codes.size() - 1) + "0020>";
        ops += whole(100 * (w.right - w.left) / line.c / advance) + " Tz " + spaced + " Tj\n";
    }
    return ops + "ET Q ";
}

namespace {

// Recognisers on threads of their own that live as long as the process: each keeps its loaded
// languages from page to page, and however many documents are written at once, no more pages
// are read at a time than there are cores.
class ReaderPool {
public:
    ReaderPool()
    {
        for (size_t i = 0; i < size(); ++i)
            threads_.emplace_back([this] { serve(); });
    }
    ~ReaderPool()
    {
        {
            const std::lock_guard hold(lock_);
            stopping_ = true;
        }
        wake_.notify_all();
        for (std::thread &t : threads_)
            t.join();
    }
    ReaderPool(const ReaderPool &) = delete;
    ReaderPool &operator=(const ReaderPool &) = delete;

    static size_t size() { return std::max(1u, std::thread::hardware_concurrency()); }

    std::future<std::vector<OcrWord>> read(std::function<std::vector<OcrWord>()> work)
    {
        std::packaged_task<std::vector<OcrWord>()> task(std::move(work));
        auto words = task.get_future();
        {
            const std::lock_guard hold(lock_);
            tasks_.push_back(std::move(task));
        }
        wake_.notify_one();
        return words;
    }

private:
    void serve()
    {
        for (;;) {
            std::unique_lock hold(lock_);
            wake_.wait(hold, [&] { return stopping_ || !tasks_.empty(); });
            if (tasks_.empty())
                return;
            auto task = std::move(tasks_.front());
            tasks_.pop_front();
            hold.unlock();
            task();
        }
    }

    std::mutex lock_;
    std::condition_variable wake_;
    std::deque<std::packaged_task<std::vector<OcrWord>()>> tasks_;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

ReaderPool &readerPool()
{
    static ReaderPool pool;
    return pool;
}

} // namespace

size_t PageText::readers()
{
    return ReaderPool::size();
}

std::future<std::vector<OcrWord>> readOnPool(OcrPage page, const std::string &language)
{
    return readerPool().read([copy = std::make_shared<OcrPage>(std::move(page)), language] {
        return recognise(*copy, language);
    });
}

void PageText::read(const Raster &raster, const PageSource &page)
{
    if (language_.empty())
        return;
    orientation_ = page.orientation;
    words_ = readerPool().read([copy = std::make_shared<OcrPage>(ocrCopy(raster, page.ydpi)),
                                orientation = orientation_, language = language_] {
        return recognise(shownUpright(std::move(*copy), orientation), language);
    });
}

void PageText::read(PageSource &page)
{
    if (language_.empty())
        return;
    try {
        read(page.decode(), page);
    } catch (const pw::Failure &) {
    }
}

std::string PageText::layer(int width, int height)
{
    if (!words_.valid())
        return {};
    return textLayer(words_.get(), kOcrFont, width, height, orientation_);
}

} // namespace pw::i2p
