// JPEG-LS files through CharLS. The PDF has no filter for them, so they are decoded; samples
// keep their precision (up to 8 bits as 8, deeper ones as 16).

#include "byte_image.h"

#include <charls/charls.h>

#include <cstring>

namespace pw::i2p {

namespace {

// A decoder over `data` with its headers read.
charls::jpegls_decoder headerRead(const std::vector<uint8_t> &data)
{
    try {
        return charls::jpegls_decoder(data.data(), data.size(), true);
    } catch (const charls::jpegls_error &e) {
        throw invalidFormat(std::string("JPEG-LS: ") + e.what());
    }
}

class JpegLsImage {
public:
    explicit JpegLsImage(std::vector<uint8_t> data) : data_(std::move(data))
    {
        const charls::jpegls_decoder decoder = headerRead(data_);
        frame_ = decoder.frame_info();
        planar_ = frame_.component_count > 1 &&
                  decoder.interleave_mode() == charls::interleave_mode::none;
        const charls::frame_info &f = frame_;
        if (f.component_count != 1 && f.component_count != 3)
            throw invalidFormat("JPEG-LS: unsupported number of components");
        if (double(f.width) * f.height * f.component_count > double(1u << 31))
            throw outOfMemory();
    }
    JpegLsImage(const JpegLsImage &) = delete;
    JpegLsImage &operator=(const JpegLsImage &) = delete;

    int depth() const { return frame_.bits_per_sample * frame_.component_count; }

    Raster decode() const
    {
        const charls::frame_info &f = frame_;
        std::vector<uint8_t> samples;
        try {
            charls::jpegls_decoder decoder = headerRead(data_);
            samples.resize(decoder.destination_size());
            decoder.decode(samples);
        } catch (const charls::jpegls_error &e) {
            throw invalidFormat(std::string("JPEG-LS: ") + e.what());
        }
        const size_t comps = size_t(f.component_count);
        const size_t pixels = size_t(f.width) * f.height;
        const bool wide = f.bits_per_sample > 8;
        Raster r;
        r.width = int(f.width);
        r.height = int(f.height);
        r.bpc = wide ? 16 : 8;
        r.cs.model = comps == 1 ? ColourModel::Gray : ColourModel::Rgb;
        r.pixels.resize(pixels * comps * size_t(r.bpc / 8));
        const uint32_t top = (uint32_t(1) << f.bits_per_sample) - 1;
        for (size_t i = 0; i < pixels; ++i)
            for (size_t c = 0; c < comps; ++c) {
                // Without interleaving the decoder hands out one plane per component.
                const size_t from = planar_ ? c * pixels + i : i * comps + c;
                const size_t to = i * comps + c;
                if (!wide) {
                    r.pixels[to] = widen(samples[from], f.bits_per_sample);
                    continue;
                }
                uint16_t v;
                std::memcpy(&v, &samples[2 * from], 2);
                const uint32_t scaled = (v * 65535 + top / 2) / top;
                r.pixels[2 * to] = uint8_t(scaled >> 8);
                r.pixels[2 * to + 1] = uint8_t(scaled);
            }
        return r;
    }

private:
    std::vector<uint8_t> data_;
    charls::frame_info frame_{};
    bool planar_ = false;
};

} // namespace

void readJpegLs(std::vector<uint8_t> data, const PageSink &sink)
{
    JpegLsImage image(std::move(data));
    DecodedPage page(image.depth(), [&] { return image.decode(); });
    sink(page);
}

} // namespace pw::i2p
