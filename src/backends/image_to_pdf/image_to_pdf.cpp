#include "image_to_pdf.h"

#include "page_image.h"
#include "pdf_document.h"
#include "text_layer.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <map>
#include <memory>
#include <mutex>

namespace {

using pw::i2p::Filter;
using pw::i2p::PdfDocument;

constexpr int32_t kSetRecompression = 123;
constexpr int32_t kBitsPerPixel = 211;

// At normal process end every handle never closed drops its output, so that an abandoned
// document leaves nothing behind, even where its file had to have a name. The documents
// themselves are not destroyed then: qpdf's own static objects may already be gone.
struct DocumentTable {
    std::map<int32_t, std::unique_ptr<PdfDocument>> docs;
    ~DocumentTable()
    {
        for (auto &entry : docs) {
            entry.second->discardOutput();
            (void)entry.second.release();
        }
    }
};

std::map<int32_t, std::unique_ptr<PdfDocument>> &documents()
{
    static DocumentTable table;
    return table.docs;
}

// Documents are made, looked up and closed from several threads at once (one per file of a
// batch); each document itself is used by the one thread that made it.
std::mutex &tableLock()
{
    static std::mutex lock;
    return lock;
}

std::atomic<bool> deterministicOutput = false;

PdfDocument *find(int32_t handle)
{
    const std::lock_guard hold(tableLock());
    auto it = documents().find(handle);
    return it == documents().end() ? nullptr : it->second.get();
}

std::string lower(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

} // namespace

int32_t ApCreate(const std::string &pdfPath)
{
    try {
        auto doc = PdfDocument::create(pdfPath);
        if (!doc)
            return -1;
        const std::lock_guard hold(tableLock());
        int32_t handle = 1;
        auto &table = documents();
        while (table.count(handle))
            ++handle;
        table.emplace(handle, std::move(doc));
        return handle;
    } catch (const std::exception &) {
        return -1;
    }
}

pw::Result<int32_t> ApAddImage(int32_t handle, const std::string &imagePath)
{
    PdfDocument *doc = find(handle);
    if (!doc)
        return -1;
    return doc->addFile(imagePath);
}

int32_t ApSetFunction(int32_t handle, int32_t code, int32_t n1, int32_t, const std::string &text,
                      int32_t)
{
    PdfDocument *doc = find(handle);
    if (!doc)
        return -1;
    if (code != kSetRecompression)
        return -2;
    if (n1 < 1 || n1 > 3)
        return -3;
    static const std::map<std::string, Filter> names = {
        {"", Filter::None},           {"lzw", Filter::Lzw},
        {"zip", Filter::Flate},       {"packbits", Filter::RunLength},
        {"jpeg", Filter::Dct},        {"ccitt-g3", Filter::CcittG3},
        {"ccitt-g4", Filter::CcittG4}};
    const auto it = names.find(lower(text));
    if (it == names.end())
        return -4;
    const bool fax = it->second == Filter::CcittG3 || it->second == Filter::CcittG4;
    const bool blackAndWhite = n1 == 1;
    if ((fax && !blackAndWhite) || (it->second == Filter::Dct && blackAndWhite))
        return -5;
    doc->setRecompression(n1 - 1, it->second);
    return 0;
}

int32_t ApGetFunction(int32_t, int32_t code, int32_t, int32_t, const std::string &text, int32_t)
{
    if (code != kBitsPerPixel)
        return -2;
    try {
        const pw::i2p::FileHead file(text);
        if (file.isPdf())
            return 0;
        int32_t depth = -pw::rte::kInvalidFileFormat;
        pw::i2p::readImageFile(
            file, [&](pw::i2p::PageSource &page) { depth = page.depth(); }, true);
        return depth;
    } catch (const pw::Failure &f) {
        return -std::abs(f.number);
    } catch (...) {
        return -pw::rte::kInvalidFileFormat;
    }
}

namespace {

// The document of `handle`, taken out of the table; null when there is none.
std::unique_ptr<PdfDocument> release(int32_t handle)
{
    const std::lock_guard hold(tableLock());
    auto &table = documents();
    auto it = table.find(handle);
    if (it == table.end())
        return nullptr;
    std::unique_ptr<PdfDocument> doc = std::move(it->second);
    table.erase(it);
    return doc;
}

} // namespace

pw::Result<int32_t> ApClose(int32_t handle)
{
    const std::unique_ptr<PdfDocument> doc = release(handle);
    if (!doc)
        return -1;
    return doc->close(deterministicOutput);
}

int32_t ApDiscard(int32_t handle)
{
    const std::unique_ptr<PdfDocument> doc = release(handle);
    if (!doc)
        return -1;
    doc->discardOutput();
    return 0;
}

void ApSetDeterministic(bool on)
{
    deterministicOutput = on;
}

void ApSetPageLayout(const pw::i2p::PageLayout &layout)
{
    pw::i2p::setPageLayout(layout);
}

void ApSetMaxPixels(uint64_t pixels)
{
    pw::i2p::setMaxPagePixels(pixels);
}

std::string ApOcrLanguage()
{
    return pw::i2p::ocrLanguage();
}

pw::Result<void> ApSetOcrLanguage(const std::string &language)
{
    return pw::attempt([&] { pw::i2p::setOcrLanguage(language); });
}
