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

// Walks the markers from the start of image to its end: each segment inside the file, each
// scan's data running to a marker, and an end-of-image marker closing it all. CharLS 2.4.1
// spins for seconds on data that stops early, so it only ever sees a file that passed this.
// Returns the number of scans.
int checkStructure(const std::vector<uint8_t> &data)
{
    const ByteView v(data, "JPEG-LS");
    size_t at = 2; // past the start of image
    int scans = 0;
    for (;;) {
        const uint8_t code = jpegMarker(v, at);
        if (code == 0xD9)
            return scans;
        const size_t length = size_t(v.u8(at + 2)) << 8 | v.u8(at + 3);
        if (length < 2)
            throw v.fail("bad segment length");
        v.need(at + 2, length);
        at += 2 + length;
        if (code != 0xDA)
            continue;
        ++scans;
        // Coded data: a 0xFF is followed by a byte below 0x80, so a byte at 0x80 or above after
        // one starts a marker; restart markers stay inside the scan.
        for (;;) {
            const auto *ff =
                static_cast<const uint8_t *>(std::memchr(v.need(at, 0), 0xFF, v.size() - at));
            if (!ff)
                throw v.cutShort();
            at = size_t(ff - v.data());
            const uint8_t next = v.u8(at + 1);
            if (next < 0x80 || (next & 0xF8) == 0xD0)
                at += 2;
            else
                break;
        }
    }
}

class JpegLsImage {
public:
    explicit JpegLsImage(std::vector<uint8_t> data) : data_(std::move(data))
    {
        const int scans = checkStructure(data_);
        const charls::jpegls_decoder decoder = headerRead(data_);
        frame_ = decoder.frame_info();
        planar_ = frame_.component_count > 1 &&
                  decoder.interleave_mode() == charls::interleave_mode::none;
        const charls::frame_info &f = frame_;
        if (f.component_count != 1 && f.component_count != 3)
            throw invalidFormat("JPEG-LS: unsupported number of components");
        if (scans < (planar_ ? int(f.component_count) : 1))
            throw invalidFormat("JPEG-LS: a scan is missing");
        checkPageSize("JPEG-LS", f.width, f.height);
        // A bit codes at most a run of 2^15 samples: more samples than that are a forged size.
        if (uint64_t(f.width) * f.height * f.component_count / 262144 >= data_.size())
            throw invalidFormat("JPEG-LS: the frame is larger than its data can hold");
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
