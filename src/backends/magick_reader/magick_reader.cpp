// The rarer formats (BMP, PCX, DCX, PCD, TGA, PNM, ICO, WMF ...) through GraphicsMagick.
// The format is always named explicitly, so a file is never read by a coder its content did
// not ask for (GraphicsMagick would otherwise happily render a text file as an image).

#include "page_image.h"

#include <magick/api.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>

namespace pw::i2p {

namespace {

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

class MagickPage : public PageSource {
public:
    explicit MagickPage(::Image *image) : image_(image)
    {
        if (image->x_resolution > 1 && image->y_resolution > 1) {
            const double scale = image->units == ::PixelsPerCentimeterResolution ? 2.54 : 1.0;
            if (image->units != ::UndefinedResolution) {
                xdpi = image->x_resolution * scale;
                ydpi = image->y_resolution * scale;
            }
        }
        MagickException e;
        type_ = ::GetImageType(image, &e.info);
        sixteen_ = image->depth > 8;
    }

    int depth() const override
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

    std::optional<EncodedImage> asIs(Filter) override { return std::nullopt; }

    Raster decode() override
    {
        Raster r;
        r.width = int(image_->columns);
        r.height = int(image_->rows);
        const bool cmyk = type_ == ::ColorSeparationType || type_ == ::ColorSeparationMatteType;
        const bool grey =
            type_ == ::BilevelType || type_ == ::GrayscaleType || type_ == ::GrayscaleMatteType;
        const bool alpha = image_->matte != 0;
        r.cs.model = cmyk ? ColourModel::Cmyk : (grey ? ColourModel::Gray : ColourModel::Rgb);
        size_t iccLen = 0;
        const unsigned char *icc = ::GetImageProfile(image_, "ICC", &iccLen);
        if (icc && iccLen > 0)
            r.cs.icc.assign(reinterpret_cast<const char *>(icc), iccLen);
        const bool wide = sixteen_ && type_ != ::BilevelType;
        r.bpc = wide ? 16 : 8;
        const char *map = cmyk ? "CMYK" : (grey ? "I" : "RGB");
        const int comps = r.cs.components();
        const size_t n = size_t(r.width) * r.height;
        const size_t bytes = wide ? 2 : 1;
        PixelBytes pix(n * comps * bytes, 0);
        MagickException e;
        const auto storage = wide ? ::ShortPixel : ::CharPixel;
        if (!::DispatchImage(image_, 0, 0, image_->columns, image_->rows, map, storage, pix.data(),
                             &e.info))
            throw invalidFormat(e.text());
        if (alpha) {
            PixelBytes a(n * bytes, 0);
            if (!::DispatchImage(image_, 0, 0, image_->columns, image_->rows, "A", storage,
                                 a.data(), &e.info))
                throw invalidFormat(e.text());
            const bool opaque = std::all_of(a.begin(), a.end(), [](uint8_t v) { return v == 255; });
            if (!opaque) {
                r.alpha = std::move(a);
                r.alphaBpc = r.bpc;
            }
        }
        if (wide) {
            // ShortPixel is in host order; PDF samples are big-endian.
            for (auto *buf : {&pix, &r.alpha})
                for (size_t i = 0; i + 1 < buf->size(); i += 2) {
                    const uint16_t v = uint16_t((*buf)[i] | (*buf)[i + 1] << 8);
                    (*buf)[i] = uint8_t(v >> 8);
                    (*buf)[i + 1] = uint8_t(v);
                }
        }
        if (type_ == ::BilevelType && !alpha) {
            r.bpc = 1;
            r.pixels.assign(r.rowBytes() * r.height, 0);
            for (int y = 0; y < r.height; ++y)
                for (int x = 0; x < r.width; ++x)
                    if (pix[size_t(y) * r.width + x] >= 128)
                        r.pixels[size_t(y) * r.rowBytes() + x / 8] |= uint8_t(0x80 >> (x % 8));
        } else {
            r.pixels = std::move(pix);
        }
        return r;
    }

private:
    ::Image *image_;
    ::ImageType type_ = ::TrueColorType;
    bool sixteen_ = false;
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

} // namespace

ReadOutcome readWithMagickDirect(const std::string &path, const std::string &format,
                                 const PageSink &sink, bool firstOnly)
{
    initialiseMagick();
    const std::vector<uint8_t> data = readWholeFile(path);
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
        images.reset(::BlobToImage(info.get(), data.data(), data.size(), &e.info));
    }
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
        sink(page);
        if (firstOnly)
            break;
    }
    return ReadOutcome::Complete;
}

} // namespace pw::i2p

// The entry point the library looks up when it loads this reader.
extern "C" pw::i2p::ReadOutcome pw_read_with_magick(const std::string &path,
                                                    const std::string &format,
                                                    const pw::i2p::PageSink &sink, bool firstOnly)
{
    return pw::i2p::readWithMagickDirect(path, format, sink, firstOnly);
}
