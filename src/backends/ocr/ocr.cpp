// Each thread keeps its own recogniser per language: tesseract's engine is not shared between
// threads, and loading a language model costs far more than reading a page.

#include "ocr.h"

#include "module_failure.h"

#include <omp.h>
#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

// Pages are read at about this resolution: finer scans cost time without gaining words.
constexpr double kReadingDpi = 300;
constexpr double kScaleAbove = 400;

template <typename Work> int32_t entryPoint(pw_module_error &error, Work &&work)
{
    const auto describe = [](const char *what) {
        return pw::failure(pw::rte::kInvalidCall,
                           what ? std::string("OCR: ") + what : "OCR: the page could not be read");
    };
    return pw::contain(&error, PW_MODULE_FAILED, describe, [&] {
        work();
        return PW_MODULE_OK;
    });
}

std::vector<std::string> languagesOf(const std::string &language)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t plus; (plus = language.find('+', start)) != std::string::npos; start = plus + 1)
        parts.push_back(language.substr(start, plus - start));
    parts.push_back(language.substr(start));
    return parts;
}

// Debian names the package of "chi_sim" tesseract-ocr-chi-sim.
std::string packageOf(std::string language)
{
    std::replace(language.begin(), language.end(), '_', '-');
    std::transform(language.begin(), language.end(), language.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return "tesseract-ocr-" + language;
}

// A language name is looked up as a file name: nothing in it may lead out of the data folder.
void checkName(const std::string &language)
{
    const bool plain = std::all_of(language.begin(), language.end(),
                                   [](unsigned char c) { return std::isalnum(c) || c == '_'; });
    if (language.empty() || !plain)
        throw pw::Failure(pw::rte::kInvalidPropertyValue,
                          "\"" + language + "\" is no OCR language (such as eng or deu+eng)");
}

[[noreturn]] void missingLanguage(const std::string &language)
{
    throw pw::Failure(pw::rte::kFileNotFound, "the OCR language \"" + language +
                                                  "\" is not installed (Debian package " +
                                                  packageOf(language) + ")");
}

// tesseract starts with the languages it could load and leaves the others out: each one asked
// for is checked, so that a page is never read without a language the user chose.
std::unique_ptr<tesseract::TessBaseAPI> started(const std::string &language)
{
    const std::vector<std::string> wanted = languagesOf(language);
    // tesseract would spread each page over four OpenMP threads that spin while they wait,
    // which on a busy machine costs ten times the work: the program reads pages in parallel
    // instead, one thread each. This holds for every OpenMP region of the process.
    omp_set_max_active_levels(0);
    auto api = std::make_unique<tesseract::TessBaseAPI>();
    // tesseract would otherwise print its complaints on our users' terminal.
    api->SetVariable("debug_file", "/dev/null");
    if (api->Init(nullptr, language.c_str(), tesseract::OEM_DEFAULT) != 0)
        missingLanguage(wanted.front());
    // The library reads a page as one block of text unless told otherwise; pages have
    // columns, captions and tables.
    api->SetPageSegMode(tesseract::PSM_AUTO);
    std::vector<std::string> loaded;
    api->GetLoadedLanguagesAsVector(&loaded);
    for (const std::string &one : wanted)
        if (std::find(loaded.begin(), loaded.end(), one) == loaded.end())
            missingLanguage(one);
    return api;
}

tesseract::TessBaseAPI &recogniser(const std::string &language)
{
    for (const std::string &one : languagesOf(language))
        checkName(one);
    thread_local std::map<std::string, std::unique_ptr<tesseract::TessBaseAPI>> loaded;
    std::unique_ptr<tesseract::TessBaseAPI> &api = loaded[language];
    if (!api)
        api = started(language);
    return *api;
}

// The page as tesseract is given it, and how many page pixels one of its pixels spans.
struct Reading {
    std::vector<uint8_t> scaled;
    const uint8_t *pixels;
    int width;
    int height;
    int bytesPerPixel; // 0: 1-bit
    size_t rowBytes;
    double factor = 1;
};

int sample(const pw_ocr_page &page, int x, int y)
{
    const uint8_t *row = page.pixels + size_t(y) * page.row_bytes;
    if (page.bits == 8)
        return row[x];
    return (row[x >> 3] >> (7 - (x & 7))) & 1 ? 255 : 0;
}

// Averages the page down to about kReadingDpi: grey even from a 1-bit page, so that thin
// strokes fade instead of breaking.
Reading scaledDown(const pw_ocr_page &page)
{
    Reading r;
    r.factor = page.dpi / kReadingDpi;
    r.width = std::max(1, int(page.width / r.factor));
    r.height = std::max(1, int(page.height / r.factor));
    r.bytesPerPixel = 1;
    r.rowBytes = size_t(r.width);
    r.scaled.resize(r.rowBytes * size_t(r.height));
    for (int y = 0; y < r.height; ++y) {
        const int y0 = int(y * r.factor);
        const int y1 = std::clamp(int((y + 1) * r.factor), y0 + 1, page.height);
        for (int x = 0; x < r.width; ++x) {
            const int x0 = int(x * r.factor);
            const int x1 = std::clamp(int((x + 1) * r.factor), x0 + 1, page.width);
            int sum = 0;
            for (int sy = y0; sy < y1; ++sy)
                for (int sx = x0; sx < x1; ++sx)
                    sum += sample(page, sx, sy);
            r.scaled[size_t(y) * r.rowBytes + size_t(x)] = uint8_t(sum / ((y1 - y0) * (x1 - x0)));
        }
    }
    r.pixels = r.scaled.data();
    return r;
}

Reading prepared(const pw_ocr_page &page)
{
    if (page.width < 1 || page.height < 1 || !page.pixels || (page.bits != 1 && page.bits != 8))
        throw pw::failure(pw::rte::kInvalidCall, "OCR: no page to read");
    if (page.dpi > kScaleAbove)
        return scaledDown(page);
    return {{}, page.pixels, page.width, page.height, page.bits / 8, page.row_bytes};
}

void offerWords(tesseract::TessBaseAPI &api, double factor, pw_ocr_word_fn onWord, void *context)
{
    std::unique_ptr<tesseract::ResultIterator> it(api.GetIterator());
    if (!it)
        return;
    using tesseract::RIL_WORD;
    do {
        const std::unique_ptr<char[]> text(it->GetUTF8Text(RIL_WORD));
        int left, top, right, bottom;
        if (!text || !text[0] || !it->BoundingBox(RIL_WORD, &left, &top, &right, &bottom))
            continue;
        pw_ocr_word w{};
        w.text = text.get();
        w.left = left * factor;
        w.top = top * factor;
        w.right = right * factor;
        w.bottom = bottom * factor;
        int x1, y1, x2, y2;
        if (!it->Baseline(RIL_WORD, &x1, &y1, &x2, &y2) || x2 <= x1)
            x1 = left, x2 = right, y1 = y2 = bottom;
        w.baseline_x1 = x1 * factor;
        w.baseline_y1 = y1 * factor;
        w.baseline_x2 = x2 * factor;
        w.baseline_y2 = y2 * factor;
        // The size of a row as tesseract fits it to the whole row, so that the lines of a
        // paragraph get one size (their boxes vary with the letters they hold), taken about as
        // large as the lines' pitch: its height with the ascenders counted once more. Readers
        // keep lines together in a paragraph when they are close for their size, and join a
        // word hyphenated at a line's end only there; this size read best on the benchmark's
        // pages (the row's height alone, or with its descenders, parted more paragraphs).
        float rowHeight = 0, descenders = 0, ascenders = 0;
        it->RowAttributes(&rowHeight, &descenders, &ascenders);
        w.font_size =
            rowHeight + ascenders > 0 ? (rowHeight + ascenders) * factor : w.bottom - w.top;
        w.ends_line = it->IsAtFinalElement(tesseract::RIL_TEXTLINE, RIL_WORD) ? 1 : 0;
        onWord(context, &w);
    } while (it->Next(RIL_WORD));
}

} // namespace

extern "C" {

int32_t pw_ocr_check_language(const char *language, pw_module_error *error)
{
    return entryPoint(*error, [&] { recogniser(language ? language : ""); });
}

int32_t pw_ocr_read_page(const pw_ocr_page *page, const char *language, pw_ocr_word_fn on_word,
                         void *context, pw_module_error *error)
{
    return entryPoint(*error, [&] {
        tesseract::TessBaseAPI &api = recogniser(language ? language : "");
        const Reading r = prepared(*page);
        api.SetImage(r.pixels, r.width, r.height, r.bytesPerPixel, int(r.rowBytes));
        api.SetSourceResolution(int(std::clamp(page->dpi / r.factor, 70.0, 2400.0)));
        const int status = api.Recognize(nullptr);
        struct Cleared {
            tesseract::TessBaseAPI &api;
            ~Cleared() { api.Clear(); }
        } cleared{api};
        if (status != 0)
            throw pw::failure(pw::rte::kInvalidCall, "OCR: tesseract could not read the page");
        offerWords(api, r.factor, on_word, context);
    });
}

} // extern "C"
