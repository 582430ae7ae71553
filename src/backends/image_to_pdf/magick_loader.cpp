// The library's side of the GraphicsMagick module: the file is read here, the module decodes
// it, and each page it offers is copied into a Raster while the module still holds it.

#include "page_image.h"

#include "magick_reader.h"
#include "module_failure.h"
#include "module_loader.h"

namespace pw::i2p {

namespace {

ColourModel colourModel(int32_t model)
{
    switch (model) {
    case PW_MAGICK_RGB:
        return ColourModel::Rgb;
    case PW_MAGICK_CMYK:
        return ColourModel::Cmyk;
    default:
        return ColourModel::Gray;
    }
}

PixelBytes copied(const uint8_t *data, size_t size)
{
    return data ? PixelBytes(data, data + size) : PixelBytes();
}

class ModulePage : public PageSource {
public:
    explicit ModulePage(const pw_magick_page &page) : page_(page)
    {
        xdpi = page.xdpi;
        ydpi = page.ydpi;
    }

    int depth() const override { return page_.depth; }
    std::optional<EncodedImage> asIs(Filter) override { return std::nullopt; }

    Raster decode() override
    {
        pw_magick_raster decoded{};
        pw_module_error error{};
        if (page_.decode(&page_, &decoded, &error) != PW_MODULE_OK)
            throw reported(error);
        Raster r;
        r.width = decoded.width;
        r.height = decoded.height;
        r.bpc = decoded.bits_per_sample;
        r.alphaBpc = decoded.bits_per_sample;
        r.cs.model = colourModel(decoded.colour_model);
        if (decoded.icc)
            r.cs.icc.assign(reinterpret_cast<const char *>(decoded.icc), decoded.icc_size);
        r.pixels = copied(decoded.pixels, decoded.pixels_size);
        r.alpha = copied(decoded.alpha, decoded.alpha_size);
        return r;
    }

private:
    const pw_magick_page &page_;
};

struct Reading {
    const PageSink &sink;
    CallbackFence fence;
};

int32_t offerPage(void *context, const pw_magick_page *page)
{
    auto *reading = static_cast<Reading *>(context);
    return reading->fence.run([&] {
        ModulePage source(*page);
        reading->sink(source);
    });
}

} // namespace

void readWithModule(const char *module, const char *entry, const std::string &path,
                    const std::string &format, const PageSink &sink, bool firstOnly)
{
    const auto read = reinterpret_cast<magick::Read>(moduleSymbol(module, entry));
    if (!read)
        throw invalidFormat(format + ": the reader for this format is not installed");
    // Only the general reader has a limit to be told; the metafile player bounds its own
    // raster.
    if (const auto limit =
            reinterpret_cast<magick::LimitPixels>(moduleSymbol(module, magick::kLimitPixels)))
        limit(maxPagePixels());
    const std::vector<uint8_t> data = readWholeFile(path);
    Reading reading{sink, {}};
    pw_module_error error{};
    if (read(data.data(), data.size(), format.c_str(), firstOnly, offerPage, &reading, &error) !=
        PW_MODULE_OK)
        reading.fence.rethrow(error);
}

} // namespace pw::i2p
