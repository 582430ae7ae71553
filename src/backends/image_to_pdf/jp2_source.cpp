// JPEG 2000 files: embedded as they are (JPXDecode) once openjpeg has read the codestream
// through; decoded in full only for a recompression.

#include "page_image.h"

#include <openjpeg.h>

#include <algorithm>
#include <memory>

namespace pw::i2p {

namespace {

void quiet(const char *, void *) {}

struct CodecFree {
    void operator()(opj_codec_t *c) const { opj_destroy_codec(c); }
};
struct StreamFree {
    void operator()(opj_stream_t *s) const { opj_stream_destroy(s); }
};
struct ImageFree {
    void operator()(opj_image_t *i) const { opj_image_destroy(i); }
};

struct Jp2Decoder {
    std::unique_ptr<opj_stream_t, StreamFree> stream;
    std::unique_ptr<opj_codec_t, CodecFree> codec;
    std::unique_ptr<opj_image_t, ImageFree> image;

    Jp2Decoder(const std::string &path, bool raw)
    {
        stream.reset(opj_stream_create_default_file_stream(path.c_str(), OPJ_TRUE));
        codec.reset(opj_create_decompress(raw ? OPJ_CODEC_J2K : OPJ_CODEC_JP2));
        if (!stream || !codec)
            throw failure(rte::kPathFileAccessError, "cannot open " + path);
        opj_set_info_handler(codec.get(), quiet, nullptr);
        opj_set_warning_handler(codec.get(), quiet, nullptr);
        opj_set_error_handler(codec.get(), quiet, nullptr);
        opj_dparameters_t params;
        opj_set_default_decoder_parameters(&params);
        opj_image_t *img = nullptr;
        if (!opj_setup_decoder(codec.get(), &params) ||
            !opj_read_header(stream.get(), codec.get(), &img)) {
            image.reset(img);
            throw invalidFormat("JPEG 2000: unreadable header");
        }
        image.reset(img);
        if (!image || image->numcomps == 0 || image->x1 <= image->x0 || image->y1 <= image->y0)
            throw invalidFormat("JPEG 2000: no image");
    }

    // Every tile part and packet header is still read; only the finer wavelet levels are not
    // computed, which makes the check cheap in time and memory.
    void decodeLowestResolution()
    {
        std::unique_ptr<opj_codestream_info_v2_t, void (*)(opj_codestream_info_v2_t *)> info(
            opj_get_cstr_info(codec.get()),
            [](opj_codestream_info_v2_t *i) { opj_destroy_cstr_info(&i); });
        OPJ_UINT32 levels = 1;
        if (info && info->m_default_tile_info.tccp_info)
            levels = info->m_default_tile_info.tccp_info[0].numresolutions;
        for (OPJ_UINT32 c = 0; info && info->m_default_tile_info.tccp_info && c < info->nbcomps;
             ++c)
            levels = std::min(levels, info->m_default_tile_info.tccp_info[c].numresolutions);
        if (levels > 1)
            opj_set_decoded_resolution_factor(codec.get(), levels - 1);
        decodeAll();
    }

    void decodeAll()
    {
        opj_decoder_set_strict_mode(codec.get(), OPJ_TRUE);
        if (!opj_decode(codec.get(), stream.get(), image.get()) ||
            !opj_end_decompress(codec.get(), stream.get()))
            throw invalidFormat("JPEG 2000: the data is damaged or cut short");
    }
};

class Jp2Page : public PageSource {
public:
    Jp2Page(const std::string &path, bool raw) : path_(path), raw_(raw)
    {
        Jp2Decoder d(path, raw);
        const opj_image_t *im = d.image.get();
        checkPageSize("JPEG 2000", im->x1 - im->x0, im->y1 - im->y0);
        width_ = int(im->x1 - im->x0);
        height_ = int(im->y1 - im->y0);
        comps_ = int(im->numcomps);
        for (int i = 0; i < comps_; ++i) {
            depth_ += int(im->comps[i].prec);
            alpha_ = alpha_ || im->comps[i].alpha != 0;
        }
    }

    int depth() const override { return depth_; }

    std::optional<EncodedImage> asIs(Filter wanted) override
    {
        if (wanted != Filter::None)
            return std::nullopt;
        EncodedImage img;
        img.width = width_;
        img.height = height_;
        img.bpc = 0;
        img.filter = Filter::Jpx;
        img.smaskInData = alpha_;
        const int colour = comps_ - (alpha_ ? 1 : 0);
        // A bare codestream says nothing of colour; a JP2 file does, and the PDF defers to it.
        img.statesColourSpace = raw_ && (colour == 1 || colour == 3 || colour == 4);
        img.cs.model =
            colour == 1 ? ColourModel::Gray : (colour == 3 ? ColourModel::Rgb : ColourModel::Cmyk);
        if (img.statesColourSpace)
            img.bpc = 8;
        img.source = wholeFileRanges(path_);
        img.verify = [path = path_, raw = raw_] { Jp2Decoder(path, raw).decodeLowestResolution(); };
        return img;
    }

    Raster decode() override
    {
        Jp2Decoder d(path_, raw_);
        d.decodeAll();
        const opj_image_t *im = d.image.get();
        const int colour = comps_ - (alpha_ ? 1 : 0);
        if (colour != 1 && colour != 3)
            throw invalidFormat("JPEG 2000: unsupported colour layout");
        int prec = 0;
        for (int c = 0; c < comps_; ++c) {
            const auto &cp = im->comps[c];
            if (cp.dx != 1 || cp.dy != 1 || int(cp.w) != width_ || int(cp.h) != height_ || !cp.data)
                throw invalidFormat("JPEG 2000: subsampled components");
            prec = std::max<int>(prec, int(cp.prec));
        }
        Raster r;
        r.width = width_;
        r.height = height_;
        r.bpc = prec > 8 ? 16 : 8;
        r.cs.model = colour == 1 ? ColourModel::Gray : ColourModel::Rgb;
        if (im->icc_profile_buf && im->icc_profile_len > 0)
            r.cs.icc.assign(reinterpret_cast<const char *>(im->icc_profile_buf),
                            im->icc_profile_len);
        const size_t n = size_t(width_) * height_;
        const size_t bytes = size_t(r.bpc) / 8;
        r.pixels.resize(n * colour * bytes, 0);
        if (alpha_) {
            r.alpha.resize(n * bytes, 0);
            r.alphaBpc = r.bpc;
        }
        const int outMax = r.bpc == 16 ? 65535 : 255;
        for (int c = 0; c < comps_; ++c) {
            const auto &cp = im->comps[c];
            const int maxIn = (1 << cp.prec) - 1;
            const int offset = cp.sgnd ? (1 << (cp.prec - 1)) : 0;
            const bool isAlpha = alpha_ && c == comps_ - 1;
            for (size_t i = 0; i < n; ++i) {
                long v = long(cp.data[i]) + offset;
                v = std::clamp<long>(v, 0, maxIn);
                const uint32_t s = uint32_t(maxIn == outMax ? v : (v * outMax + maxIn / 2) / maxIn);
                uint8_t *dst = isAlpha ? &r.alpha[i * bytes] : &r.pixels[(i * colour + c) * bytes];
                if (bytes == 2) {
                    dst[0] = uint8_t(s >> 8);
                    dst[1] = uint8_t(s);
                } else {
                    dst[0] = uint8_t(s);
                }
            }
        }
        return r;
    }

private:
    std::string path_;
    bool raw_;
    int width_ = 0, height_ = 0, comps_ = 0, depth_ = 0;
    bool alpha_ = false;
};

} // namespace

void readJp2(const std::string &path, const PageSink &sink, bool rawCodestream)
{
    Jp2Page page(path, rawCodestream);
    sink(page);
}

} // namespace pw::i2p
