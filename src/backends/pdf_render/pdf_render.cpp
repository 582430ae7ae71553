#include "pdf_render.h"

#include "image_files.h"
#include "module_failure.h"
#include "page_range.h"

#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-image.h>
#include <poppler-page-renderer.h>
#include <poppler-page.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace pw::render;

// Beyond these an image is more than any viewer opens (a hostile file asks for them with a few
// bytes); refusing it early keeps the pixel arithmetic far from int limits.
constexpr double kMaxSide = 1 << 20;
constexpr double kMaxPixels = double(1 << 30);
// A page is rendered in bands of at most this many pixels and written as they come, so that a
// poster-sized page costs tens of megabytes, not gigabytes. An ordinary page is one band.
constexpr size_t kBandPixels = size_t(1) << 23;

struct Settings {
    std::string folder; // empty: the PDF's own
    std::string base;   // empty: the PDF's name without its extension
    int dpi = 150;
    int quality = 90;
    int format = PW_RENDER_PNG;
    int depth = 24;
    bool oneFile = false;
    int compression = 0; // 0: ours, by depth
};

struct Document {
    // One caller at a time per document: a poppler document is not safe to share between
    // threads, while separate documents render side by side.
    std::mutex mutex;
    std::unique_ptr<poppler::document> pdf;
    fs::path source;
    int pages = 0;
    Settings settings;
    TiffFile book; // the one-file TIFF, open from its first page until apClose
};

std::mutex tableMutex;
std::map<int32_t, std::shared_ptr<Document>> documents;
int32_t lastHandle = 0;

// Handles are never reused while the module is loaded: a stale handle a caller keeps after
// apClose then fails instead of reaching someone else's document.
int32_t addDocument(std::shared_ptr<Document> document)
{
    std::lock_guard lock(tableMutex);
    if (lastHandle == INT32_MAX)
        return PW_RENDER_CANNOT_OPEN;
    documents.emplace(++lastHandle, std::move(document));
    return lastHandle;
}

std::shared_ptr<Document> findDocument(int32_t handle)
{
    std::lock_guard lock(tableMutex);
    const auto found = documents.find(handle);
    return found == documents.end() ? nullptr : found->second;
}

std::shared_ptr<Document> takeDocument(int32_t handle)
{
    std::lock_guard lock(tableMutex);
    const auto found = documents.find(handle);
    if (found == documents.end())
        return nullptr;
    std::shared_ptr<Document> document = std::move(found->second);
    documents.erase(found);
    return document;
}

void quietPoppler(const std::string &, void *) {}

// poppler writes every complaint about a damaged file to stderr unless told otherwise. The
// setting is the process's; nothing else in the program renders through poppler-cpp.
void silencePoppler()
{
    static std::once_flag once;
    std::call_once(once, [] { poppler::set_debug_error_function(quietPoppler, nullptr); });
}

bool isReadableFile(const char *path)
{
    std::error_code error;
    if (!fs::is_regular_file(fs::path(path), error))
        return false;
    FILE *file = std::fopen(path, "rb");
    if (!file)
        return false;
    std::fclose(file);
    return true;
}

// The page as a viewer shows it, its crop box turned by its rotation, in pixels: a pixel
// partly covered counts whole, which is how pdftoppm sizes its images.
// "" when the page can be drawn, else why not.
std::string pageSize(const poppler::page &page, int dpi, int &width, int &height)
{
    const poppler::rectf box = page.page_rect(poppler::crop_box);
    double across = std::abs(box.width()), down = std::abs(box.height());
    const poppler::page::orientation_enum turn = page.orientation();
    if (turn == poppler::page::landscape || turn == poppler::page::seascape)
        std::swap(across, down);
    // Multiplied before the division: 792 pt at 150 dpi is 1650 pixels, where a scale factor
    // rounded to a double first would make it 1650.0000000000002 and so 1651.
    const double w = std::ceil(across * dpi / 72.0), h = std::ceil(down * dpi / 72.0);
    if (!(w >= 1 && h >= 1 && w <= kMaxSide && h <= kMaxSide && w * h <= kMaxPixels)) {
        return "a page of " + std::to_string(long(across)) + " x " + std::to_string(long(down)) +
               " points would be " + std::to_string(long(w)) + " x " + std::to_string(long(h)) +
               " pixels at " + std::to_string(dpi) + " dpi, more than the " +
               std::to_string(long(kMaxPixels)) +
               " pixels a page may have; choose a lower resolution";
    }
    width = int(w);
    height = int(h);
    return {};
}

// Black where the grey is below the middle; bits packed for the writers (1 is black).
void threshold(const poppler::image &grey, size_t stride, std::vector<unsigned char> &bits)
{
    bits.assign(stride * size_t(grey.height()), 0);
    const auto *pixels = reinterpret_cast<const unsigned char *>(grey.const_data());
    for (int y = 0; y < grey.height(); ++y) {
        const unsigned char *in = pixels + size_t(grey.bytes_per_row()) * size_t(y);
        unsigned char *out = bits.data() + stride * size_t(y);
        for (int x = 0; x < grey.width(); ++x)
            if (in[x] < 128)
                out[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
    }
}

// Renders the page band by band as the writer asks for its rows.
class Bands {
public:
    // `across` times as many pixels across as down, for a page rendered finer across; turned
    // `more` on top of the page's own rotation.
    Bands(poppler::page &page, const Settings &s, int width, int height, int across = 1,
          poppler::rotation_enum more = poppler::rotate_0)
        : page_(page), s_(s), across_(across), more_(more), width_(width), height_(height),
          rowsPerBand_(int(std::max<size_t>(1, kBandPixels / size_t(width))))
    {
        // With both kinds of antialiasing on, the pixels are pdftoppm's at the same resolution.
        renderer_.set_render_hints(poppler::page_renderer::antialiasing |
                                   poppler::page_renderer::text_antialiasing);
        renderer_.set_image_format(s.depth == 24 ? poppler::image::format_rgb24
                                                 : poppler::image::format_gray8);
    }

    size_t stride() const { return s_.depth == 1 ? (size_t(width_) + 7) / 8 : stride_; }

    // Renders the band holding row `y` when it is not the current one; false when poppler
    // could not.
    bool reach(int y)
    {
        if (image_.is_valid() && y >= top_ && y < top_ + image_.height())
            return true;
        top_ = y - y % rowsPerBand_;
        const int rows = std::min(rowsPerBand_, height_ - top_);
        image_ =
            renderer_.render_page(&page_, s_.dpi * across_, s_.dpi, 0, top_, width_, rows, more_);
        if (!image_.is_valid() || image_.width() != width_ || image_.height() != rows)
            return false;
        stride_ = size_t(image_.bytes_per_row());
        if (s_.depth == 1)
            threshold(image_, stride(), bits_);
        return true;
    }

    const unsigned char *row(int y)
    {
        if (!reach(y))
            return nullptr;
        const size_t offset = stride() * size_t(y - top_);
        if (s_.depth == 1)
            return bits_.data() + offset;
        return reinterpret_cast<const unsigned char *>(image_.const_data()) + offset;
    }

private:
    poppler::page &page_;
    const Settings &s_;
    int across_;
    poppler::rotation_enum more_;
    int width_, height_, rowsPerBand_;
    poppler::page_renderer renderer_;
    poppler::image image_;
    int top_ = 0;
    size_t stride_ = 0;
    std::vector<unsigned char> bits_;
};

// Page `page` of `document`, which the caller holds locked.
std::unique_ptr<poppler::page> openPage(Document &document, int32_t page)
{
    if (page < 1 || page > document.pages)
        throw pw::Failure(pw::rte::kInvalidCall, "no page " + std::to_string(page));
    std::unique_ptr<poppler::page> source(document.pdf->create_page(page - 1));
    if (!source)
        throw pw::Failure(pw::rte::kInvalidFileFormat,
                          "page " + std::to_string(page) + " cannot be read");
    return source;
}

bool writePage(Document &document, const Raster &raster, int page)
{
    const Settings &s = document.settings;
    fs::path folder = s.folder.empty() ? document.source.parent_path() : fs::path(s.folder);
    if (folder.empty())
        folder = ".";
    const std::string base = s.base.empty() ? document.source.stem().string() : s.base;
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        return false;

    if (s.format == PW_RENDER_TIFF_ALL && s.oneFile) {
        if (!document.book.isOpen() && !document.book.open(folder / (base + ".tif")))
            return false;
        return document.book.addPage(raster, s.compression, s.quality);
    }
    const std::string stem = base + "-" + pw::pages::pageLabel(page, document.pages);
    switch (s.format) {
    case PW_RENDER_PNG:
        return writePng(folder / (stem + ".png"), raster);
    case PW_RENDER_JPEG:
        return writeJpeg(folder / (stem + ".jpg"), raster, s.quality);
    default:
        return writeTiff(folder / (stem + ".tif"), raster, s.compression, s.quality);
    }
}

// Renders page `page` and writes its image; a page that cannot be raises why.
void convertPage(Document &document, int32_t page)
{
    const std::string which = "page " + std::to_string(page);
    const std::unique_ptr<poppler::page> source = openPage(document, page);
    const Settings &s = document.settings;
    int width = 0, height = 0;
    if (const std::string why = pageSize(*source, s.dpi, width, height); !why.empty())
        throw pw::Failure(pw::rte::kInvalidCall, which + ": " + why);
    // The first band is rendered before any file is made: a page poppler cannot draw leaves
    // nothing behind.
    Bands bands(*source, s, width, height);
    if (!bands.reach(0))
        throw pw::Failure(pw::rte::kInvalidFileFormat, which + " cannot be rendered");
    Raster raster;
    raster.width = width;
    raster.height = height;
    raster.depth = s.depth;
    raster.dpi = s.dpi;
    raster.stride = bands.stride();
    raster.rows = [&bands](int y) { return bands.row(y); };
    if (!writePage(document, raster, page))
        throw pw::Failure(pw::rte::kPathFileAccessError,
                          which + ": the image could not be written");
}

bool setProperty(Settings &s, int32_t property, const char *text, int32_t number)
{
    const std::string value = text ? text : "";
    switch (property) {
    case PW_RENDER_FOLDER:
        s.folder = value;
        return true;
    case PW_RENDER_BASE:
        // A separator would write outside the folder the caller chose.
        if (value.find('/') != std::string::npos)
            return false;
        s.base = value;
        return true;
    case PW_RENDER_DPI_TEXT:
        // The text form lets a caller that passes a text through choose the resolution.
        if (value.empty())
            return true;
        if (value.find_first_not_of("0123456789") != std::string::npos || value.size() > 4)
            return false;
        return setProperty(s, PW_RENDER_RESOLUTION, "", std::stoi(value));
    case PW_RENDER_RESOLUTION:
        if (number < 1 || number > 2400)
            return false;
        s.dpi = number;
        return true;
    case PW_RENDER_QUALITY:
        if (number < 1 || number > 100)
            return false;
        s.quality = number;
        return true;
    case PW_RENDER_FORMAT:
        if (number != PW_RENDER_PNG && number != PW_RENDER_JPEG && number != PW_RENDER_TIFF &&
            number != PW_RENDER_TIFF_ALL)
            return false;
        s.format = number;
        return true;
    case PW_RENDER_DEPTH:
        if (number != 1 && number != 8 && number != 24)
            return false;
        s.depth = number;
        return true;
    case PW_RENDER_ONE_FILE:
        if (number != 0 && number != 1)
            return false;
        s.oneFile = number == 1;
        return true;
    case PW_RENDER_COMPRESSION:
        if (number == -1 || number == 0) {
            s.compression = 0;
            return true;
        }
        if (!tiffCompressionAvailable(number))
            return false;
        s.compression = number;
        return true;
    default:
        return false;
    }
}

// Why an open failed, with the result that tells its kind.
struct Refusal {
    int32_t result;
    pw::Failure failure;
};

bool showsText(poppler::page &page)
{
    const std::vector<char> text = page.text().to_utf8();
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return !std::isspace(static_cast<unsigned char>(c)); });
}

int quarterTurns(const poppler::page &page)
{
    switch (page.orientation()) {
    case poppler::page::landscape:
        return 1;
    case poppler::page::upside_down:
        return 2;
    case poppler::page::seascape:
        return 3;
    default:
        return 0;
    }
}

// Rendered at this many times the resolution asked for across, and averaged back. poppler
// draws an image at less than four times its own resolution, both ways, by bilinear
// interpolation, which smooths a scan drawn at its own resolution by half a pixel (and costs
// recognition words); four times across is enough for it to copy each pixel instead, and the
// average of the copies is the pixel again. A turned image is sampled another way: the page is
// rendered as stored and turned here.
constexpr int kOversampling = 4;

// `stored` (width x height) turned clockwise `turns` quarter turns.
std::vector<uint8_t> turned(const std::vector<uint8_t> &stored, int width, int height, int turns)
{
    if (turns == 0)
        return stored;
    const bool sideways = turns % 2 != 0;
    const int shownWidth = sideways ? height : width, shownHeight = sideways ? width : height;
    std::vector<uint8_t> shown(stored.size());
    for (int y = 0; y < shownHeight; ++y)
        for (int x = 0; x < shownWidth; ++x) {
            const int sx = turns == 1 ? y : turns == 2 ? width - 1 - x : width - 1 - y;
            const int sy = turns == 1 ? height - 1 - x : turns == 2 ? height - 1 - y : x;
            shown[size_t(y) * size_t(shownWidth) + size_t(x)] =
                stored[size_t(sy) * size_t(width) + size_t(sx)];
        }
    return shown;
}

void renderGrey(Document &document, int32_t page, int dpi, double maxPixels,
                pw_render_grey_fn onPage, void *context)
{
    const std::unique_ptr<poppler::page> source = openPage(document, page);
    int width = 0, height = 0;
    const std::string which = "page " + std::to_string(page);
    if (const std::string why = pageSize(*source, dpi, width, height); !why.empty())
        throw pw::Failure(pw::rte::kInvalidCall, which + ": " + why);
    if (double(width) * height > maxPixels)
        dpi = std::max(1, int(dpi * std::sqrt(maxPixels / (double(width) * height))));
    Settings settings;
    settings.depth = 8;
    settings.dpi = dpi;
    int fineWidth = 0, fineHeight = 0;
    for (const std::string &why : {pageSize(*source, dpi * kOversampling, fineWidth, fineHeight),
                                   pageSize(*source, dpi, width, height)})
        if (!why.empty())
            throw pw::Failure(pw::rte::kInvalidCall, which + ": " + why);
    // The sizes as stored, before the page's turn.
    const int turns = quarterTurns(*source);
    if (turns % 2 != 0) {
        std::swap(width, height);
        fineWidth = fineHeight;
    }
    Bands bands(*source, settings, fineWidth, height, kOversampling,
                poppler::rotation_enum((4 - turns) % 4));
    std::vector<uint8_t> pixels(size_t(width) * size_t(height));
    for (int y = 0; y < height; ++y) {
        const unsigned char *row = bands.row(y);
        if (!row)
            throw pw::Failure(pw::rte::kInvalidFileFormat, which + " cannot be rendered");
        uint8_t *out = pixels.data() + size_t(y) * size_t(width);
        for (int x = 0; x < width; ++x) {
            const int first = x * kOversampling;
            const int count = std::min(kOversampling, fineWidth - first);
            int sum = 0;
            for (int k = 0; k < count; ++k)
                sum += row[first + k];
            out[x] = uint8_t((sum + count / 2) / std::max(count, 1));
        }
    }
    pixels = turned(pixels, width, height, turns);
    if (turns % 2 != 0)
        std::swap(width, height);
    const poppler::rectf box = source->page_rect(poppler::crop_box);
    const pw_render_grey grey{pixels.data(),
                              width,
                              height,
                              size_t(width),
                              dpi,
                              quarterTurns(*source),
                              {box.left(), box.top(), box.right(), box.bottom()}};
    onPage(context, &grey);
}

// The document of `handle`; throws for an unknown one.
std::shared_ptr<Document> documentOf(int32_t handle)
{
    std::shared_ptr<Document> document = findDocument(handle);
    if (!document)
        throw pw::Failure(pw::rte::kInvalidCall, "handle " + std::to_string(handle));
    return document;
}

int32_t openDocument(const char *path, const char *userPassword, const char *ownerPassword)
{
    silencePoppler();
    if (!path || !isReadableFile(path))
        throw Refusal{PW_RENDER_CANNOT_OPEN,
                      pw::Failure(pw::rte::kFileNotFound, "cannot be opened")};
    auto document = std::make_shared<Document>();
    document->source = fs::path(path);
    document->pdf.reset(poppler::document::load_from_file(path, ownerPassword ? ownerPassword : "",
                                                          userPassword ? userPassword : ""));
    if (!document->pdf)
        throw Refusal{PW_RENDER_DAMAGED,
                      pw::Failure(pw::rte::kInvalidFileFormat, "cannot be read as a PDF")};
    // A locked document answers nothing else: poppler would crash on its page count.
    if (document->pdf->is_locked())
        throw Refusal{PW_RENDER_LOCKED, pw::Failure(pw::rte::kInvalidFileFormat,
                                                    userPassword && *userPassword
                                                        ? "the password given does not open it"
                                                        : "needs a password")};
    document->pages = document->pdf->pages();
    if (document->pages < 1)
        throw Refusal{PW_RENDER_NO_PAGES, pw::Failure(pw::rte::kInvalidFileFormat, "no pages")};
    return addDocument(std::move(document));
}

} // namespace

extern "C" {

int32_t pw_render_open(const char *path, const char *userPassword, const char *ownerPassword,
                       pw_module_error *error)
{
    int32_t result = PW_RENDER_CANNOT_OPEN;
    const auto describe = [](const char *) {
        return pw::Failure(pw::rte::kFileNotFound, "cannot be opened");
    };
    pw::contain(error, PW_RENDER_CANNOT_OPEN, describe, [&] {
        try {
            result = openDocument(path, userPassword, ownerPassword);
        } catch (const Refusal &refusal) {
            result = refusal.result;
            throw refusal.failure;
        }
        return result;
    });
    return result;
}

int32_t pw_render_set_property(int32_t handle, int32_t property, const char *text, int32_t number1,
                               int32_t /*number2*/)
{
    try {
        const std::shared_ptr<Document> document = findDocument(handle);
        if (!document)
            return PW_MODULE_FAILED;
        std::lock_guard lock(document->mutex);
        return setProperty(document->settings, property, text, number1) ? PW_MODULE_OK
                                                                        : PW_MODULE_FAILED;
    } catch (...) {
        return PW_MODULE_FAILED;
    }
}

int32_t pw_render_convert_page(int32_t handle, int32_t page, pw_module_error *error)
{
    const auto describe = [page](const char *) {
        return pw::Failure(pw::rte::kInvalidFileFormat,
                           "page " + std::to_string(page) + " cannot be rendered");
    };
    return pw::contain(error, PW_MODULE_FAILED, describe, [&] {
        const std::shared_ptr<Document> document = documentOf(handle);
        std::lock_guard lock(document->mutex);
        convertPage(*document, page);
        return PW_MODULE_OK;
    });
}

int32_t pw_render_page_has_text(int32_t handle, int32_t page, pw_module_error *error)
{
    const auto describe = [page](const char *) {
        return pw::Failure(pw::rte::kInvalidFileFormat,
                           "the text of page " + std::to_string(page) + " cannot be read");
    };
    return pw::contain(error, PW_MODULE_FAILED, describe, [&] {
        const std::shared_ptr<Document> document = documentOf(handle);
        std::lock_guard lock(document->mutex);
        return showsText(*openPage(*document, page)) ? 1 : 0;
    });
}

int32_t pw_render_grey_page(int32_t handle, int32_t page, int32_t dpi, double max_pixels,
                            pw_render_grey_fn on_page, void *context, pw_module_error *error)
{
    const auto describe = [page](const char *) {
        return pw::Failure(pw::rte::kInvalidFileFormat,
                           "page " + std::to_string(page) + " cannot be rendered");
    };
    return pw::contain(error, PW_MODULE_FAILED, describe, [&] {
        if (dpi < 1 || dpi > 2400 || !(max_pixels >= 1) || !on_page)
            throw pw::Failure(pw::rte::kInvalidCall, "a resolution of " + std::to_string(dpi));
        const std::shared_ptr<Document> document = documentOf(handle);
        std::lock_guard lock(document->mutex);
        renderGrey(*document, page, dpi, max_pixels, on_page, context);
        return PW_MODULE_OK;
    });
}

int32_t pw_render_page_count(int32_t handle)
{
    try {
        const std::shared_ptr<Document> document = findDocument(handle);
        return document ? document->pages : PW_MODULE_FAILED;
    } catch (...) {
        return PW_MODULE_FAILED;
    }
}

int32_t pw_render_close(int32_t handle)
{
    try {
        const std::shared_ptr<Document> document = takeDocument(handle);
        if (!document)
            return PW_MODULE_FAILED;
        // Waits for a page another thread is still converting, then finishes the file.
        std::lock_guard lock(document->mutex);
        document->book.close();
        return PW_MODULE_OK;
    } catch (...) {
        return PW_MODULE_FAILED;
    }
}

} // extern "C"
