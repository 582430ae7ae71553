// TIFF files through libtiff. Fax, LZW and PackBits data go into the PDF as stored when the
// PDF filters can carry them; anything else is decoded once and encoded again.

#include "encoders.h"
#include "fax_decoder.h"
#include "lzw_decoder.h"
#include "page_image.h"
#include "tiff_handle.h"

#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>
#include <optional>
#include <span>
#include <system_error>
#include <thread>

namespace pw::i2p {

namespace {

constexpr uint16_t kPackBits = 32773;

bool hostIsBigEndian()
{
    return std::endian::native == std::endian::big;
}

void swap16(std::span<uint8_t> buf)
{
    for (size_t i = 0; i + 1 < buf.size(); i += 2)
        std::swap(buf[i], buf[i + 1]);
}

float halfToFloat(uint16_t h)
{
    const int exponent = (h >> 10) & 31, mantissa = h & 1023;
    const float sign = (h & 0x8000) ? -1.0f : 1.0f;
    if (exponent == 0)
        return sign * std::ldexp(float(mantissa), -24);
    if (exponent == 31)
        return mantissa ? 0.0f : sign * 65504.0f;
    return sign * std::ldexp(float(mantissa + 1024), exponent - 25);
}

// Samples of a width the PDF cannot carry (3, 5, 12, 24 ... bits, or floating point) as
// 8-bit (`outBits` 8) or big-endian 16-bit ones, the top value staying the top value. Samples
// of whole bytes and floats arrive in the host's order from libtiff; the others are packed
// from the most significant bit, each row starting on a byte.
struct SampleWidener {
    int bits;
    bool floating;
    double low = 0, high = 1; // the range of floating-point samples
    int outBits;

    PixelBytes operator()(const PixelBytes &packed, size_t samplesPerRow, size_t rows) const
    {
        const size_t inRow = (samplesPerRow * size_t(bits) + 7) / 8;
        const size_t outBytes = size_t(outBits / 8);
        PixelBytes out(samplesPerRow * rows * outBytes);
        const uint32_t top = outBits == 8 ? 255 : 65535;
        for (size_t y = 0; y < rows; ++y) {
            const uint8_t *row = packed.data() + y * inRow;
            uint8_t *to = out.data() + y * samplesPerRow * outBytes;
            for (size_t i = 0; i < samplesPerRow; ++i) {
                const uint32_t v = uint32_t(std::lround(std::clamp(unit(row, i), 0.0, 1.0) * top));
                if (outBits == 16)
                    *to++ = uint8_t(v >> 8);
                *to++ = uint8_t(v);
            }
        }
        return out;
    }

    // Sample `i` of a row as a fraction of its range.
    double unit(const uint8_t *row, size_t i) const
    {
        if (floating) {
            double f = 0;
            if (bits == 16) {
                uint16_t h;
                std::memcpy(&h, row + 2 * i, 2);
                f = halfToFloat(h);
            } else if (bits == 32) {
                float g;
                std::memcpy(&g, row + 4 * i, 4);
                f = g;
            } else {
                std::memcpy(&f, row + 8 * i, 8);
            }
            return std::isfinite(f) ? (f - low) / (high - low) : 0.0;
        }
        const double top = double((uint64_t(1) << bits) - 1);
        if (bits % 8 == 0) {
            const uint8_t *p = row + i * size_t(bits / 8);
            uint32_t v = 0;
            for (int k = 0; k < bits / 8; ++k)
                v |= uint32_t(p[k])
                     << (std::endian::native == std::endian::little ? 8 * k : bits - 8 - 8 * k);
            return v / top;
        }
        uint32_t v = 0;
        for (size_t bit = i * size_t(bits), end = bit + size_t(bits); bit < end; ++bit)
            v = v << 1 | ((row[bit / 8] >> (7 - bit % 8)) & 1);
        return v / top;
    }
};

class TiffPage : public PageSource {
public:
    TiffPage(TiffHandle &h, const std::string &path) : h_(h), t_(h.get()), path_(path)
    {
        if (!TIFFGetField(t_, TIFFTAG_IMAGEWIDTH, &width_) ||
            !TIFFGetField(t_, TIFFTAG_IMAGELENGTH, &height_) || width_ == 0 || height_ == 0)
            throw invalidFormat("TIFF: a page without size");
        checkPageSize("TIFF", width_, height_);
        TIFFGetFieldDefaulted(t_, TIFFTAG_BITSPERSAMPLE, &bps_);
        TIFFGetFieldDefaulted(t_, TIFFTAG_SAMPLESPERPIXEL, &spp_);
        TIFFGetFieldDefaulted(t_, TIFFTAG_COMPRESSION, &compression_);
        TIFFGetFieldDefaulted(t_, TIFFTAG_PLANARCONFIG, &planar_);
        TIFFGetFieldDefaulted(t_, TIFFTAG_FILLORDER, &fillOrder_);
        // Only the codecs with a predictor know the tag; asking another codec for its
        // default reads that codec's private state.
        if (compression_ == COMPRESSION_LZW || compression_ == COMPRESSION_ADOBE_DEFLATE ||
            compression_ == COMPRESSION_DEFLATE)
            TIFFGetField(t_, TIFFTAG_PREDICTOR, &predictor_);
        TIFFGetFieldDefaulted(t_, TIFFTAG_SAMPLEFORMAT, &sampleFormat_);
        TIFFGetFieldDefaulted(t_, TIFFTAG_INKSET, &inkSet_);
        uint16_t *types = nullptr;
        TIFFGetFieldDefaulted(t_, TIFFTAG_EXTRASAMPLES, &extraCount_, &types);
        if (types && extraCount_ > 0)
            extraTypes_.assign(types, types + extraCount_);
        if (!TIFFGetField(t_, TIFFTAG_PHOTOMETRIC, &photometric_))
            photometric_ = (bps_ == 1 && spp_ == 1)
                               ? PHOTOMETRIC_MINISWHITE
                               : (spp_ >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
        tiled_ = TIFFIsTiled(t_);
        if (spp_ == 0 || extraCount_ >= spp_)
            throw invalidFormat("TIFF: inconsistent samples per pixel");
        colourSamples_ = spp_ - extraCount_;
        uint32_t iccLen = 0;
        void *icc = nullptr;
        if (TIFFGetField(t_, TIFFTAG_ICCPROFILE, &iccLen, &icc) && icc && iccLen > 0)
            icc_.assign(static_cast<const char *>(icc), iccLen);
        readResolution();
        uint16_t orientation = 1;
        TIFFGetFieldDefaulted(t_, TIFFTAG_ORIENTATION, &orientation);
        this->orientation = orientation;
        const double bytes = double(width_) * height_ * spp_ * std::max<int>(bps_, 8) / 8;
        if (bytes > double(1u << 31) * 2)
            throw outOfMemory();
    }

    int depth() const override { return photometric_ == PHOTOMETRIC_PALETTE ? bps_ : bps_ * spp_; }

    std::optional<EncodedImage> asIs(Filter wanted) override
    {
        if (tiled_ || (planar_ == PLANARCONFIG_SEPARATE && spp_ > 1))
            return std::nullopt;
        if (compression_ == COMPRESSION_CCITTFAX4 || compression_ == COMPRESSION_CCITTFAX3 ||
            compression_ == COMPRESSION_CCITTRLE)
            return faxAsIs(wanted);
        if (compression_ == COMPRESSION_LZW && (wanted == Filter::None || wanted == Filter::Lzw))
            return lzwAsIs();
        if (compression_ == kPackBits && (wanted == Filter::None || wanted == Filter::RunLength))
            return packBitsAsIs();
        return std::nullopt;
    }

    Raster decode() override
    {
        if (!directDecodable())
            return decodeRgba();
        try {
            return decodeDirect();
        } catch (const pw::Failure &) {
            // libtiff wants line ends in one-dimensional fax data; some writers leave them out.
            if (oneDimensionalFax())
                return decodeFaxRows();
            // libjpeg-turbo has no lossless JPEG; a page stored as one lossless stream is ours.
            if (compression_ == COMPRESSION_JPEG && TIFFNumberOfStrips(t_) == 1 && spp_ == 1)
                return losslessJpegPage();
            throw;
        }
    }

private:
    void readResolution()
    {
        float xr = 0, yr = 0;
        uint16_t unit = RESUNIT_INCH;
        TIFFGetFieldDefaulted(t_, TIFFTAG_RESOLUTIONUNIT, &unit);
        if (unit == RESUNIT_NONE || !TIFFGetField(t_, TIFFTAG_XRESOLUTION, &xr) ||
            !TIFFGetField(t_, TIFFTAG_YRESOLUTION, &yr))
            return;
        const double scale = unit == RESUNIT_CENTIMETER ? 2.54 : 1.0;
        if (xr > 0 && yr > 0 && xr * scale < 1e6 && yr * scale < 1e6) {
            xdpi = xr * scale;
            ydpi = yr * scale;
        }
    }

    // Colour space of the stored samples, alpha left out.
    std::optional<ColourSpace> colourSpace() const
    {
        ColourSpace cs;
        cs.icc = icc_;
        switch (photometric_) {
        case PHOTOMETRIC_MINISBLACK:
        case PHOTOMETRIC_MINISWHITE:
            if (colourSamples_ != 1)
                return std::nullopt;
            cs.model = ColourModel::Gray;
            return cs;
        case PHOTOMETRIC_RGB:
            if (colourSamples_ != 3)
                return std::nullopt;
            cs.model = ColourModel::Rgb;
            return cs;
        case PHOTOMETRIC_SEPARATED:
            if (colourSamples_ != 4 || inkSet_ != INKSET_CMYK)
                return std::nullopt;
            cs.model = ColourModel::Cmyk;
            return cs;
        case PHOTOMETRIC_PALETTE: {
            if (colourSamples_ != 1 || bps_ > 8)
                return std::nullopt;
            uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
            if (!TIFFGetField(t_, TIFFTAG_COLORMAP, &r, &g, &b))
                return std::nullopt;
            const size_t n = size_t(1) << bps_;
            // Some writers store 8-bit values in the 16-bit map.
            bool eightBit = true;
            for (size_t i = 0; i < n; ++i)
                if (r[i] > 255 || g[i] > 255 || b[i] > 255)
                    eightBit = false;
            const int shift = eightBit ? 0 : 8;
            cs.model = ColourModel::Indexed;
            cs.base = ColourModel::Rgb;
            cs.icc.clear();
            for (size_t i = 0; i < n; ++i) {
                cs.palette.push_back(char(r[i] >> shift));
                cs.palette.push_back(char(g[i] >> shift));
                cs.palette.push_back(char(b[i] >> shift));
            }
            return cs;
        }
        default:
            return std::nullopt;
        }
    }

    bool stripInFile(uint64_t offset, uint64_t count) const
    {
        return count > 0 && offset + count <= uint64_t(fileSize());
    }

    int64_t fileSize() const
    {
        if (fileSize_ < 0) {
            struct stat st {};
            fileSize_ = ::stat(path_.c_str(), &st) == 0 ? int64_t(st.st_size) : 0;
        }
        return fileSize_;
    }

    bool singleStrip(uint64_t &offset, uint64_t &count) const
    {
        if (TIFFNumberOfStrips(t_) != 1)
            return false;
        uint64_t *offs = nullptr, *counts = nullptr;
        if (!TIFFGetField(t_, TIFFTAG_STRIPOFFSETS, &offs) ||
            !TIFFGetField(t_, TIFFTAG_STRIPBYTECOUNTS, &counts) || !offs || !counts)
            return false;
        offset = offs[0];
        count = counts[0];
        return stripInFile(offset, count);
    }

    std::optional<EncodedImage> faxAsIs(Filter wanted)
    {
        const bool g4 = compression_ == COMPRESSION_CCITTFAX4;
        const bool fits = wanted == Filter::None || (g4 && wanted == Filter::CcittG4) ||
                          (!g4 && wanted == Filter::CcittG3);
        uint64_t offset = 0, count = 0;
        if (!fits || bps_ != 1 || spp_ != 1 || fillOrder_ != FILLORDER_MSB2LSB ||
            (photometric_ != PHOTOMETRIC_MINISWHITE && photometric_ != PHOTOMETRIC_MINISBLACK) ||
            !singleStrip(offset, count))
            return std::nullopt;
        uint32_t t4 = 0;
        if (compression_ == COMPRESSION_CCITTFAX3)
            TIFFGetField(t_, TIFFTAG_GROUP3OPTIONS, &t4);
        if (t4 & GROUP3OPT_UNCOMPRESSED)
            return std::nullopt;
        EncodedImage img;
        img.width = int(width_);
        img.height = int(height_);
        img.bpc = 1;
        img.cs.model = ColourModel::Gray;
        img.cs.icc = icc_;
        img.filter = g4 ? Filter::CcittG4 : Filter::CcittG3;
        img.parms.k = g4 ? -1 : ((t4 & GROUP3OPT_2DENCODING) ? 1 : 0);
        img.parms.columns = int(width_);
        img.parms.rows = int(height_);
        // The fax codes tell white runs from black ones; min-is-black turns that round.
        img.parms.blackIs1 = photometric_ == PHOTOMETRIC_MINISBLACK;
        img.parms.encodedByteAlign =
            compression_ == COMPRESSION_CCITTRLE || (t4 & GROUP3OPT_FILLBITS);
        img.source = wholeFileRanges(path_, offset, count);
        return img;
    }

    bool plainLayout() const
    {
        if (extraCount_ != 0 || sampleFormat_ != SAMPLEFORMAT_UINT ||
            fillOrder_ != FILLORDER_MSB2LSB || !colourSpace())
            return false;
        if (bps_ == 16)
            return TIFFIsBigEndian(t_) && predictor_ == PREDICTOR_NONE;
        return bps_ == 1 || bps_ == 2 || bps_ == 4 || bps_ == 8;
    }

    EncodedImage plainImage() const
    {
        EncodedImage img;
        img.width = int(width_);
        img.height = int(height_);
        img.bpc = bps_;
        img.cs = *colourSpace();
        if (photometric_ == PHOTOMETRIC_MINISWHITE)
            img.decode = {1, 0};
        return img;
    }

    std::optional<EncodedImage> lzwAsIs()
    {
        uint64_t offset = 0, count = 0;
        if (!plainLayout() || !singleStrip(offset, count) || count < 2)
            return std::nullopt;
        if (predictor_ != PREDICTOR_NONE && !(predictor_ == PREDICTOR_HORIZONTAL && bps_ == 8))
            return std::nullopt;
        // Old-style (pre-6.0) LZW codes are bit-reversed and not what LZWDecode reads.
        unsigned char head[2] = {0, 0};
        std::ifstream f(path_, std::ios::binary);
        f.seekg(std::streamoff(offset));
        f.read(reinterpret_cast<char *>(head), 2);
        if (!f || (head[0] == 0 && (head[1] & 1)))
            return std::nullopt;
        EncodedImage img = plainImage();
        img.filter = Filter::Lzw;
        if (predictor_ == PREDICTOR_HORIZONTAL) {
            img.parms.predictor = 2;
            img.parms.colors = spp_;
            img.parms.bitsPerComponent = bps_;
            img.parms.columns = int(width_);
        }
        img.source = wholeFileRanges(path_, offset, count);
        return img;
    }

    std::optional<EncodedImage> packBitsAsIs()
    {
        if (!plainLayout() || predictor_ != PREDICTOR_NONE)
            return std::nullopt;
        const uint32_t strips = TIFFNumberOfStrips(t_);
        uint64_t *counts = nullptr;
        if (!TIFFGetField(t_, TIFFTAG_STRIPBYTECOUNTS, &counts) || !counts)
            return std::nullopt;
        std::vector<uint8_t> data;
        for (uint32_t s = 0; s < strips; ++s) {
            if (counts[s] > (uint64_t(1) << 31))
                return std::nullopt;
            const size_t at = data.size();
            data.resize(at + counts[s]);
            const tmsize_t n = TIFFReadRawStrip(t_, s, data.data() + at, tmsize_t(counts[s]));
            if (n < 0)
                return std::nullopt;
            data.resize(at + size_t(n));
        }
        const size_t rowBytes = (size_t(width_) * spp_ * bps_ + 7) / 8;
        if (!packBitsToRunLength(data, rowBytes * height_))
            return std::nullopt;
        EncodedImage img = plainImage();
        img.filter = Filter::RunLength;
        img.bytes = std::move(data);
        return img;
    }

    // How stored samples the PDF cannot carry become ones it can; none when they already fit.
    std::optional<SampleWidener> widener() const
    {
        const bool floating = sampleFormat_ == SAMPLEFORMAT_IEEEFP;
        const bool fits =
            !floating && (bps_ == 1 || bps_ == 2 || bps_ == 4 || bps_ == 8 || bps_ == 16);
        // Samples packed below a byte cannot be told apart from their alpha or joined from
        // planes where they lie.
        const bool packedWithOthers =
            bps_ < 8 && (extraCount_ > 0 || (planar_ == PLANARCONFIG_SEPARATE && spp_ > 1));
        if (fits && !packedWithOthers)
            return std::nullopt;
        SampleWidener w{bps_, floating, 0, 1, bps_ > 8 || floating ? 16 : 8};
        double low = 0, high = 0;
        if (floating && TIFFGetField(t_, TIFFTAG_SMINSAMPLEVALUE, &low) &&
            TIFFGetField(t_, TIFFTAG_SMAXSAMPLEVALUE, &high) && high > low) {
            w.low = low;
            w.high = high;
        }
        return w;
    }

    bool directDecodable()
    {
        const bool floating = sampleFormat_ == SAMPLEFORMAT_IEEEFP;
        if (sampleFormat_ != SAMPLEFORMAT_UINT && sampleFormat_ != SAMPLEFORMAT_VOID && !floating)
            return false;
        if (floating ? (bps_ != 16 && bps_ != 32 && bps_ != 64) : (bps_ == 0 || bps_ > 32))
            return false;
        // A palette index keeps its value; only whole-byte and packed widths carry one.
        if (photometric_ == PHOTOMETRIC_PALETTE && widener())
            return false;
        if (compression_ == COMPRESSION_OJPEG)
            return false;
        if (photometric_ == PHOTOMETRIC_YCBCR && compression_ == COMPRESSION_JPEG) {
            // libjpeg converts to RGB for us.
            TIFFSetField(t_, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
            photometric_ = PHOTOMETRIC_RGB;
        }
        return colourSpace().has_value();
    }

    Raster losslessJpegPage()
    {
        uint64_t *counts = nullptr;
        const bool found =
            TIFFGetField(t_, tiled_ ? TIFFTAG_TILEBYTECOUNTS : TIFFTAG_STRIPBYTECOUNTS, &counts);
        if (!found || !counts || counts[0] > (uint64_t(1) << 30))
            fail("no stored data");
        std::vector<uint8_t> data(static_cast<size_t>(counts[0]));
        const tmsize_t n = tiled_ ? TIFFReadRawTile(t_, 0, data.data(), tmsize_t(data.size()))
                                  : TIFFReadRawStrip(t_, 0, data.data(), tmsize_t(data.size()));
        if (n < 0 || size_t(n) != data.size())
            fail("unreadable data");
        Raster r = decodeLosslessJpeg(std::move(data));
        if (r.width < int(width_) || r.height < int(height_) || r.cs.model != ColourModel::Gray)
            fail("lossless JPEG data that does not fit the page");
        // A tile may be larger than the page it holds.
        const size_t from = r.rowBytes(), to = (size_t(width_) * size_t(r.bpc) + 7) / 8;
        for (uint32_t y = 0; y < height_; ++y)
            std::memmove(r.pixels.data() + y * to, r.pixels.data() + y * from, to);
        r.width = int(width_);
        r.height = int(height_);
        r.pixels.resize(to * height_);
        r.invert = photometric_ == PHOTOMETRIC_MINISWHITE;
        return r;
    }

    bool oneDimensionalFax() const
    {
        uint32_t t4 = 0;
        if (compression_ != COMPRESSION_CCITTFAX3 || bps_ != 1 || spp_ != 1)
            return false;
        TIFFGetField(t_, TIFFTAG_GROUP3OPTIONS, &t4);
        return !(t4 & (GROUP3OPT_2DENCODING | GROUP3OPT_UNCOMPRESSED));
    }

    Raster decodeFaxRows()
    {
        Raster r;
        r.width = int(width_);
        r.height = int(height_);
        r.bpc = 1;
        r.cs.model = ColourModel::Gray;
        r.invert = photometric_ == PHOTOMETRIC_MINISWHITE;
        const size_t rowBytes = r.rowBytes();
        r.pixels.resize(rowBytes * height_);
        uint32_t rps = height_;
        TIFFGetFieldDefaulted(t_, TIFFTAG_ROWSPERSTRIP, &rps);
        rps = std::clamp<uint32_t>(rps, 1, height_);
        uint64_t *counts = nullptr;
        if (!TIFFGetField(t_, TIFFTAG_STRIPBYTECOUNTS, &counts) || !counts)
            fail("no strip sizes");
        const uint32_t strips = (height_ + rps - 1) / rps;
        std::vector<uint8_t> raw;
        for (uint32_t s = 0; s < strips; ++s) {
            if (counts[s] > (uint64_t(1) << 30))
                fail("a strip too large");
            raw.resize(size_t(counts[s]));
            const tmsize_t n = TIFFReadRawStrip(t_, s, raw.data(), tmsize_t(raw.size()));
            if (n < 0 || size_t(n) != raw.size())
                fail("unreadable strip");
            if (fillOrder_ == FILLORDER_LSB2MSB)
                TIFFReverseBits(raw.data(), n);
            const uint32_t rows = std::min(rps, height_ - s * rps);
            const auto decoded = decodeModifiedHuffman(raw.data(), raw.size(), r.width, int(rows));
            std::copy(decoded.begin(), decoded.end(),
                      r.pixels.begin() + ptrdiff_t(rowBytes * s * rps));
        }
        return r;
    }

    // `fallback` names the cause when this page's handle has none to give.
    [[noreturn]] void fail(const char *what, const std::string &fallback = {}) const
    {
        std::string why = h_.errorWithSource();
        if (why.empty())
            why = fallback.empty() ? what : fallback;
        throw invalidFormat("TIFF: " + why);
    }

    // All rows of one plane (`samples` samples per pixel), as libtiff decodes them.
    PixelBytes readPlane(uint16_t plane, int samples)
    {
        const size_t rowBytes = (size_t(width_) * samples * bps_ + 7) / 8;
        // The plain codecs write every byte of whole-byte samples; the fax decoder leaves the
        // padding bits of each row as it found them, and those must not vary from run to run.
        PixelBytes out;
        if (plainCodec() && bps_ >= 8)
            out.resize(rowBytes * height_);
        else
            out.resize(rowBytes * height_, 0);
        if (tiled_) {
            uint32_t tw = 0, th = 0;
            TIFFGetField(t_, TIFFTAG_TILEWIDTH, &tw);
            TIFFGetField(t_, TIFFTAG_TILELENGTH, &th);
            if (tw == 0 || th == 0)
                fail("bad tile size");
            const tmsize_t tileSize = TIFFTileSize(t_);
            const size_t tileRow = (size_t(tw) * samples * bps_ + 7) / 8;
            if (tileSize <= 0 || size_t(tileSize) < tileRow * th)
                fail("bad tile size");
            std::vector<uint8_t> tile(static_cast<size_t>(tileSize));
            for (uint32_t ty = 0; ty < height_; ty += th)
                for (uint32_t tx = 0; tx < width_; tx += tw) {
                    const uint32_t idx = TIFFComputeTile(t_, tx, ty, 0, plane);
                    if (TIFFReadEncodedTile(t_, idx, tile.data(), tileSize) < 0)
                        fail("unreadable tile");
                    const size_t x0 = size_t(tx) * samples * bps_ / 8;
                    const size_t n = std::min(tileRow, rowBytes - x0);
                    for (uint32_t r = 0; r < th && ty + r < height_; ++r)
                        std::memcpy(out.data() + (ty + r) * rowBytes + x0,
                                    tile.data() + r * tileRow, n);
                }
            return out;
        }
        uint32_t rps = height_;
        TIFFGetFieldDefaulted(t_, TIFFTAG_ROWSPERSTRIP, &rps);
        rps = std::clamp<uint32_t>(rps, 1, height_);
        const Strips strips{plane, (height_ + rps - 1) / rps, rps, rowBytes, out.data()};
        // Strips decode independently: on a large page every further core decodes a share of
        // them on a handle of its own while this handle decodes the first share.
        std::vector<TiffHandle> helpers;
        for (uint32_t i = 1; i < decodeShares(out.size(), strips.perPlane); ++i) {
            std::optional<TiffHandle> h = extraHandle();
            if (!h)
                break;
            helpers.push_back(std::move(*h));
        }
        const uint32_t shares = uint32_t(helpers.size()) + 1;
        auto first = [&](uint32_t share) { return strips.perPlane * share / shares; };
        std::vector<char> read(shares, 0);
        {
            std::vector<std::jthread> threads;
            uint32_t started = 1;
            try {
                for (; started < shares; ++started)
                    threads.emplace_back([&, i = started] {
                        read[i] = readStrips(helpers[i - 1].get(), strips, first(i), first(i + 1));
                    });
            } catch (const std::system_error &) {
                // No thread to be had: this handle reads the shares left over as well.
            }
            read[0] = readStrips(t_, strips, 0, first(1));
            for (uint32_t i = started; i < shares; ++i)
                read[i] = readStrips(t_, strips, first(i), first(i + 1));
        }
        std::string helperWhy;
        for (uint32_t i = 1; i < shares; ++i)
            if (!read[i] && helperWhy.empty())
                helperWhy = helpers[i - 1].errorWithSource();
        if (std::count(read.begin(), read.end(), 0) > 0)
            fail("unreadable strip", helperWhy);
        return out;
    }

    static constexpr size_t kParallelDecodeBytes = size_t(2) << 20;

    struct Strips {
        uint16_t plane;
        uint32_t perPlane;
        uint32_t rowsPerStrip;
        size_t rowBytes;
        uint8_t *out;
    };

    bool readStrips(TIFF *t, const Strips &s, uint32_t first, uint32_t end) const
    {
        for (uint32_t i = first; i < end; ++i) {
            const uint32_t rows = std::min(s.rowsPerStrip, height_ - i * s.rowsPerStrip);
            uint8_t *at = s.out + size_t(i) * s.rowsPerStrip * s.rowBytes;
            const tmsize_t wanted = tmsize_t(rows * s.rowBytes);
            const uint32_t strip = s.plane * s.perPlane + i;
            const tmsize_t got = ownLzw() ? lzwStrip(t, strip, at, wanted, s.rowBytes)
                                          : TIFFReadEncodedStrip(t, strip, at, wanted);
            if (got < 0)
                return false;
            // A strip shorter than its rows leaves zeros, never what the memory held before.
            if (got < wanted)
                std::memset(at + got, 0, size_t(wanted - got));
        }
        return true;
    }

    // LZW strips we decode ourselves (lzw_decoder.h): the common layouts, with no predictor or
    // the horizontal one on bytes.
    bool ownLzw() const
    {
        return compression_ == COMPRESSION_LZW && fillOrder_ == FILLORDER_MSB2LSB &&
               (predictor_ == PREDICTOR_NONE || (predictor_ == PREDICTOR_HORIZONTAL && bps_ == 8));
    }

    tmsize_t lzwStrip(TIFF *t, uint32_t strip, uint8_t *at, tmsize_t wanted, size_t rowBytes) const
    {
        uint64_t *counts = nullptr;
        if (!TIFFGetField(t, TIFFTAG_STRIPBYTECOUNTS, &counts) || !counts ||
            counts[strip] > (uint64_t(1) << 30))
            return -1;
        std::vector<uint8_t> raw(static_cast<size_t>(counts[strip]));
        const tmsize_t n = TIFFReadRawStrip(t, strip, raw.data(), tmsize_t(raw.size()));
        const long got = n < 0 ? -1 : decodeTiffLzw(raw.data(), size_t(n), at, size_t(wanted));
        if (got < 0) // libtiff names the fault
            return TIFFReadEncodedStrip(t, strip, at, wanted);
        if (predictor_ == PREDICTOR_HORIZONTAL) {
            const size_t step = planar_ == PLANARCONFIG_SEPARATE ? 1 : spp_;
            for (size_t row = 0; row + rowBytes <= size_t(got); row += rowBytes)
                for (size_t x = row + step; x < row + rowBytes; ++x)
                    at[x] = uint8_t(at[x] + at[x - step]);
        }
        return tmsize_t(got);
    }

    // The codecs that need nothing set on a handle beyond what the file says.
    bool plainCodec() const
    {
        return compression_ == COMPRESSION_NONE || compression_ == COMPRESSION_LZW ||
               compression_ == COMPRESSION_ADOBE_DEFLATE || compression_ == COMPRESSION_DEFLATE ||
               compression_ == COMPRESSION_PACKBITS;
    }

    // How many handles decode a page's strips: one per core up to four, for pages large enough
    // to repay opening the file again, and only for the plain codecs (JPEG-in-TIFF needs
    // settings on its handle).
    uint32_t decodeShares(size_t bytes, uint32_t strips) const
    {
        if (!plainCodec() || bytes < kParallelDecodeBytes)
            return 1;
        return std::min({std::max(1u, std::thread::hardware_concurrency()), 4u, strips});
    }

    std::optional<TiffHandle> extraHandle() const
    {
        TiffHandle h = TiffHandle::open(path_, "r");
        if (!h.get() || !TIFFSetDirectory(h.get(), TIFFCurrentDirectory(t_)))
            return std::nullopt;
        uint32_t width = 0, height = 0;
        TIFFGetField(h.get(), TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(h.get(), TIFFTAG_IMAGELENGTH, &height);
        if (width != width_ || height != height_)
            return std::nullopt;
        return h;
    }

    Raster decodeDirect()
    {
        Raster r;
        r.width = int(width_);
        r.height = int(height_);
        const std::optional<SampleWidener> widen = widener();
        r.bpc = widen ? widen->outBits : bps_;
        r.cs = *colourSpace();
        r.invert = photometric_ == PHOTOMETRIC_MINISWHITE;
        const auto samples = [&](uint16_t plane, int perPixel) {
            PixelBytes stored = readPlane(plane, perPixel);
            // Returned by name, so that the page's bytes move rather than copy.
            if (widen)
                return (*widen)(stored, size_t(width_) * size_t(perPixel), height_);
            return stored;
        };
        PixelBytes all;
        if (planar_ == PLANARCONFIG_SEPARATE && spp_ > 1) {
            const size_t bytes = size_t(r.bpc / 8);
            all.resize(size_t(width_) * height_ * spp_ * bytes);
            for (uint16_t p = 0; p < spp_; ++p) {
                const auto plane = samples(p, 1);
                for (size_t i = 0; i < size_t(width_) * height_; ++i)
                    std::memcpy(&all[(i * spp_ + p) * bytes], &plane[i * bytes], bytes);
            }
        } else {
            all = samples(0, spp_);
        }
        if (!widen && bps_ == 16 && !hostIsBigEndian())
            swap16(all);
        if (extraCount_ == 0) {
            r.pixels = std::move(all);
            return r;
        }
        // Split colour and the first alpha sample; other extra samples are dropped.
        int alphaIndex = -1;
        bool premultiplied = false;
        for (size_t i = 0; i < extraTypes_.size(); ++i)
            if (extraTypes_[i] == EXTRASAMPLE_ASSOCALPHA ||
                extraTypes_[i] == EXTRASAMPLE_UNASSALPHA) {
                alphaIndex = colourSamples_ + int(i);
                premultiplied = extraTypes_[i] == EXTRASAMPLE_ASSOCALPHA;
                break;
            }
        const size_t bytes = size_t(r.bpc / 8);
        const size_t pixels = size_t(width_) * height_;
        r.pixels.resize(pixels * colourSamples_ * bytes);
        if (alphaIndex >= 0) {
            r.alpha.resize(pixels * bytes);
            r.alphaBpc = r.bpc;
        }
        bool opaque = true;
        const uint32_t maxValue = bytes == 2 ? 65535 : 255;
        for (size_t i = 0; i < pixels; ++i) {
            const uint8_t *src = &all[i * spp_ * bytes];
            uint8_t *dst = &r.pixels[i * colourSamples_ * bytes];
            std::memcpy(dst, src, colourSamples_ * bytes);
            if (alphaIndex < 0)
                continue;
            const uint8_t *a = src + alphaIndex * bytes;
            std::memcpy(&r.alpha[i * bytes], a, bytes);
            const uint32_t av = bytes == 2 ? (uint32_t(a[0]) << 8 | a[1]) : a[0];
            if (av != maxValue)
                opaque = false;
            if (premultiplied && av != maxValue)
                for (int c = 0; c < colourSamples_; ++c) {
                    uint8_t *s = dst + c * bytes;
                    uint32_t v = bytes == 2 ? (uint32_t(s[0]) << 8 | s[1]) : s[0];
                    v = av == 0 ? 0 : std::min(maxValue, (v * maxValue + av / 2) / av);
                    if (bytes == 2) {
                        s[0] = uint8_t(v >> 8);
                        s[1] = uint8_t(v);
                    } else {
                        s[0] = uint8_t(v);
                    }
                }
        }
        if (opaque)
            r.alpha.clear();
        return r;
    }

    Raster decodeRgba()
    {
        char message[1024] = {};
        if (!TIFFRGBAImageOK(t_, message))
            throw invalidFormat(std::string("TIFF: ") + message);
        std::vector<uint32_t> rgba(size_t(width_) * height_);
        // Rows as stored: the page writer shows them upright, as for every other page.
        if (!TIFFReadRGBAImageOriented(t_, width_, height_, rgba.data(), orientation, 0))
            fail("unreadable image data");
        Raster r;
        r.width = int(width_);
        r.height = int(height_);
        r.cs.model = ColourModel::Rgb;
        r.pixels.resize(rgba.size() * 3);
        const bool hasAlpha = extraCount_ > 0;
        if (hasAlpha)
            r.alpha.resize(rgba.size());
        bool opaque = true;
        for (size_t i = 0; i < rgba.size(); ++i) {
            const uint32_t p = rgba[i];
            uint8_t a = uint8_t(TIFFGetA(p));
            uint32_t rgb[3] = {TIFFGetR(p), TIFFGetG(p), TIFFGetB(p)};
            // libtiff hands out premultiplied colour.
            for (int c = 0; c < 3; ++c) {
                uint32_t v = rgb[c];
                if (hasAlpha && a != 255)
                    v = a == 0 ? 0 : std::min<uint32_t>(255, (v * 255 + a / 2) / a);
                r.pixels[i * 3 + c] = uint8_t(v);
            }
            if (hasAlpha) {
                r.alpha[i] = a;
                opaque = opaque && a == 255;
            }
        }
        if (opaque)
            r.alpha.clear();
        return r;
    }

    TiffHandle &h_;
    TIFF *t_;
    std::string path_;
    std::string icc_;
    mutable int64_t fileSize_ = -1;
    uint32_t width_ = 0, height_ = 0;
    uint16_t bps_ = 1, spp_ = 1, compression_ = 1, planar_ = 1, fillOrder_ = 1;
    uint16_t predictor_ = 1, sampleFormat_ = 1, inkSet_ = 1, photometric_ = 0;
    uint16_t extraCount_ = 0;
    std::vector<uint16_t> extraTypes_;
    int colourSamples_ = 1;
    bool tiled_ = false;
};

} // namespace

void readTiff(const std::string &path, const PageSink &sink, bool firstOnly)
{
    TiffHandle h = TiffHandle::open(path, "r");
    if (!h.get())
        throw invalidFormat("TIFF: " + (h.error().empty() ? "cannot open" : h.errorWithSource()));
    int delivered = 0;
    bool more = true;
    while (more) {
        uint32_t subfile = 0;
        TIFFGetField(h.get(), TIFFTAG_SUBFILETYPE, &subfile);
        // Reduced-resolution copies (thumbnails, pyramids) are not pages.
        if (!(subfile & FILETYPE_REDUCEDIMAGE)) {
            TiffPage page(h, path);
            sink(page);
            ++delivered;
            if (firstOnly)
                return;
        }
        h.clearError();
        more = TIFFReadDirectory(h.get()) != 0;
    }
    // A directory that cannot be read means pages are missing: the file is cut short or
    // broken, and half a document would pass for the whole one.
    if (!h.error().empty())
        throw invalidFormat("TIFF: " + h.errorWithSource());
    if (delivered == 0)
        throw invalidFormat("TIFF: no page");
}

} // namespace pw::i2p
