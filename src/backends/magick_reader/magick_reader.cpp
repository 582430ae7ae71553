// The format is always named explicitly, so a file is never read by a coder its content did
// not ask for (GraphicsMagick would otherwise happily render a text file as an image).

#include "magick_reader.h"

#include "module_failure.h"

#include <magick/api.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using pw::invalidFormat;

// Raised inside the module when the page callback stops the reading: the program keeps the
// cause, the module only has to stop.
struct StoppedByCaller {};

// Runs the work of one entry point: no exception may cross into the program, so whatever it
// throws becomes the error result (a stop asked for by the program's callback needs none).
template <typename Work> int32_t entryPoint(pw_module_error &error, const char *format, Work &&work)
{
    const auto describe = [&](const char *what) {
        return invalidFormat(what ? std::string(what) : std::string(format) + ": unreadable image");
    };
    return pw::contain(&error, PW_MODULE_FAILED, describe, [&] {
        try {
            work();
            return PW_MODULE_OK;
        } catch (const StoppedByCaller &) {
            return PW_MODULE_FAILED;
        }
    });
}

void silent(const ::ExceptionType, const char *, const char *) {}

void initialiseMagick()
{
    static const bool done = [] {
        ::InitializeMagick(nullptr);
        ::SetErrorHandler(silent);
        ::SetWarningHandler(silent);
        return true;
    }();
    (void)done;
}

struct ImageListFree {
    void operator()(::Image *i) const { ::DestroyImageList(i); }
};
struct ImageInfoFree {
    void operator()(::ImageInfo *i) const { ::DestroyImageInfo(i); }
};

struct MagickException {
    ::ExceptionInfo info;
    MagickException() { ::GetExceptionInfo(&info); }
    ~MagickException() { ::DestroyExceptionInfo(&info); }
    MagickException(const MagickException &) = delete;
    MagickException &operator=(const MagickException &) = delete;
    std::string text() const
    {
        std::string t = info.reason ? info.reason : "unreadable image";
        if (info.description)
            t += std::string(" (") + info.description + ")";
        return t;
    }
};

class MagickPage {
public:
    explicit MagickPage(::Image *image) : image_(image)
    {
        page_.xdpi = 0; // none stated
        page_.ydpi = 0;
        if (image->x_resolution > 1 && image->y_resolution > 1) {
            const double scale = image->units == ::PixelsPerCentimeterResolution ? 2.54 : 1.0;
            if (image->units != ::UndefinedResolution) {
                page_.xdpi = image->x_resolution * scale;
                page_.ydpi = image->y_resolution * scale;
            }
        }
        MagickException e;
        type_ = ::GetImageType(image, &e.info);
        sixteen_ = image->depth > 8;
        page_.depth = depth();
        page_.state = this;
        page_.decode = [](const pw_magick_page *page, pw_magick_raster *raster,
                          pw_module_error *error) {
            return entryPoint(*error, "page",
                              [&] { *raster = static_cast<MagickPage *>(page->state)->decode(); });
        };
    }
    MagickPage(const MagickPage &) = delete;
    MagickPage &operator=(const MagickPage &) = delete;

    const pw_magick_page &page() const { return page_; }

private:
    int depth() const
    {
        const int d = sixteen_ ? 16 : 8;
        switch (type_) {
        case ::BilevelType:
            return 1;
        case ::GrayscaleType:
            return d;
        case ::GrayscaleMatteType:
            return 2 * d;
        case ::PaletteType:
            return image_->colors <= 2 ? 1 : (image_->colors <= 16 ? 4 : 8);
        case ::ColorSeparationType:
            return 4 * d;
        case ::ColorSeparationMatteType:
            return 5 * d;
        case ::PaletteMatteType:
        case ::TrueColorMatteType:
            return 4 * d;
        default:
            return 3 * d;
        }
    }

    pw_magick_raster decode()
    {
        pw_magick_raster r{};
        r.width = int32_t(image_->columns);
        r.height = int32_t(image_->rows);
        const bool cmyk = type_ == ::ColorSeparationType || type_ == ::ColorSeparationMatteType;
        const bool grey =
            type_ == ::BilevelType || type_ == ::GrayscaleType || type_ == ::GrayscaleMatteType;
        const bool alpha = image_->matte != 0;
        r.colour_model = cmyk ? PW_MAGICK_CMYK : (grey ? PW_MAGICK_GRAY : PW_MAGICK_RGB);
        size_t iccLen = 0;
        const unsigned char *icc = ::GetImageProfile(image_, "ICC", &iccLen);
        if (icc && iccLen > 0) {
            r.icc = icc;
            r.icc_size = iccLen;
        }
        const bool wide = sixteen_ && type_ != ::BilevelType;
        r.bits_per_sample = wide ? 16 : 8;
        const char *map = cmyk ? "CMYK" : (grey ? "I" : "RGB");
        const size_t comps = cmyk ? 4 : (grey ? 1 : 3);
        const size_t n = size_t(r.width) * size_t(r.height);
        const size_t bytes = wide ? 2 : 1;
        pixels_.assign(n * comps * bytes, 0);
        alpha_.clear();
        MagickException e;
        const auto storage = wide ? ::ShortPixel : ::CharPixel;
        if (!::DispatchImage(image_, 0, 0, image_->columns, image_->rows, map, storage,
                             pixels_.data(), &e.info))
            throw invalidFormat(e.text());
        if (alpha) {
            alpha_.assign(n * bytes, 0);
            if (!::DispatchImage(image_, 0, 0, image_->columns, image_->rows, "A", storage,
                                 alpha_.data(), &e.info))
                throw invalidFormat(e.text());
            if (std::all_of(alpha_.begin(), alpha_.end(), [](uint8_t v) { return v == 255; }))
                alpha_.clear();
        }
        if (wide) {
            // ShortPixel is in host order; PDF samples are big-endian.
            for (auto *buf : {&pixels_, &alpha_})
                for (size_t i = 0; i + 1 < buf->size(); i += 2) {
                    const uint16_t v = uint16_t((*buf)[i] | (*buf)[i + 1] << 8);
                    (*buf)[i] = uint8_t(v >> 8);
                    (*buf)[i + 1] = uint8_t(v);
                }
        }
        if (type_ == ::BilevelType && !alpha) {
            r.bits_per_sample = 1;
            packBits(size_t(r.width), size_t(r.height));
        }
        r.pixels = pixels_.data();
        r.pixels_size = pixels_.size();
        if (!alpha_.empty()) {
            r.alpha = alpha_.data();
            r.alpha_size = alpha_.size();
        }
        return r;
    }

    // Grey samples of a two-colour page to one bit per pixel, 1 for white.
    void packBits(size_t width, size_t height)
    {
        const size_t rowBytes = (width + 7) / 8;
        std::vector<uint8_t> packed(rowBytes * height, 0);
        for (size_t y = 0; y < height; ++y)
            for (size_t x = 0; x < width; ++x)
                if (pixels_[y * width + x] >= 128)
                    packed[y * rowBytes + x / 8] |= uint8_t(0x80 >> (x % 8));
        pixels_ = std::move(packed);
    }

    ::Image *image_;
    ::ImageType type_ = ::TrueColorType;
    bool sixteen_ = false;
    std::vector<uint8_t> pixels_;
    std::vector<uint8_t> alpha_;
    pw_magick_page page_{};
};

// libwmf prints its complaints straight to stderr; while it reads, stderr goes nowhere.
class QuietStderr {
public:
    QuietStderr()
    {
        std::fflush(stderr);
        saved_ = ::dup(2);
        const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (null >= 0) {
            ::dup2(null, 2);
            ::close(null);
        }
    }
    ~QuietStderr()
    {
        std::fflush(stderr);
        if (saved_ >= 0) {
            ::dup2(saved_, 2);
            ::close(saved_);
        }
    }
    QuietStderr(const QuietStderr &) = delete;
    QuietStderr &operator=(const QuietStderr &) = delete;

private:
    int saved_ = -1;
};

void readPages(const uint8_t *data, size_t size, const std::string &format, bool firstOnly,
               pw_magick_page_fn onPage, void *context)
{
    initialiseMagick();
    std::unique_ptr<::ImageInfo, ImageInfoFree> info(::CloneImageInfo(nullptr));
    const std::string magickName = format + ":image";
    std::snprintf(info->filename, sizeof info->filename, "%s", magickName.c_str());
    std::snprintf(info->magick, sizeof info->magick, "%s", format.c_str());
    info->affirm = MagickTrue;
    MagickException e;
    std::unique_ptr<::Image, ImageListFree> images;
    {
        std::optional<QuietStderr> quiet;
        if (format == "WMF")
            quiet.emplace();
        images.reset(::BlobToImage(info.get(), data, size, &e.info));
    }
    // A page over the pixel limit is refused for its size, as our own readers refuse one.
    if (!images && e.info.severity == ::ResourceLimitError)
        throw pw::failure(pw::rte::kOutOfMemory, format + ": " + e.text());
    if (!images)
        throw invalidFormat(format + ": " + e.text());
    if (e.info.severity >= ::ErrorException && images->columns == 0)
        throw invalidFormat(format + ": " + e.text());
    std::vector<::Image *> frames;
    for (::Image *i = images.get(); i; i = i->next)
        if (i->columns > 0 && i->rows > 0)
            frames.push_back(i);
    if (frames.empty())
        throw invalidFormat(format + ": no image");
    if (format == "ICO") {
        // The entries are one icon at several sizes: the largest stands for it.
        auto largest = std::max_element(frames.begin(), frames.end(), [](auto *a, auto *b) {
            return a->columns * a->rows < b->columns * b->rows;
        });
        std::iter_swap(frames.begin(), largest);
        frames.erase(frames.begin() + 1, frames.end());
    }
    for (::Image *frame : frames) {
        MagickPage page(frame);
        if (onPage(context, &page.page()) != PW_MODULE_OK)
            throw StoppedByCaller{};
        if (firstOnly)
            break;
    }
}

} // namespace

extern "C" void pw_magick_limit_pixels(uint64_t pixels)
{
    initialiseMagick();
    ::SetMagickResourceLimit(::PixelsResource, magick_int64_t(pixels));
}

extern "C" int32_t pw_read_with_magick(const uint8_t *data, size_t size, const char *format,
                                       int32_t first_only, pw_magick_page_fn on_page, void *context,
                                       pw_module_error *error)
{
    return entryPoint(*error, format,
                      [&] { readPages(data, size, format, first_only != 0, on_page, context); });
}
