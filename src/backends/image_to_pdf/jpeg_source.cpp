// JPEG files: embedded as they are (DCTDecode) after their headers are checked and their
// entropy-coded data is read through; decoded for a recompression.

#include "encoders.h"
#include "page_image.h"

#include <jpeglib.h>
// jerror.h names the messages; without JMESSAGE defined it declares only the codes.
#include <jerror.h>

#include <sys/stat.h>

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>

namespace pw::i2p {

namespace {

struct FileClose {
    void operator()(std::FILE *f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<std::FILE, FileClose>;

// libjpeg reports fatal errors by longjmp. This is the only place that jumps land: each
// step given to jpegTry keeps nothing with a destructor on its own frame.
struct JpegErrors {
    jpeg_error_mgr pub{};
    std::jmp_buf jump{};
    char message[JMSG_LENGTH_MAX] = {};
    // libjpeg only warns when the data ends or breaks before the picture does, and fills the
    // rest with grey: for us that is a file that cannot be read.
    bool dataLost = false;
};

extern "C" void jpegErrorExit(j_common_ptr cinfo)
{
    auto *err = reinterpret_cast<JpegErrors *>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, err->message);
    std::longjmp(err->jump, 1);
}

extern "C" void jpegEmitMessage(j_common_ptr cinfo, int level)
{
    const int code = cinfo->err->msg_code;
    if (level < 0 && (code == JWRN_HIT_MARKER || code == JWRN_JPEG_EOF ||
                      code == JWRN_HUFF_BAD_CODE || code == JWRN_MUST_RESYNC))
        reinterpret_cast<JpegErrors *>(cinfo->err)->dataLost = true;
}

extern "C" void jpegOutputMessage(j_common_ptr) {}

void installErrors(JpegErrors &err)
{
    jpeg_std_error(&err.pub);
    err.pub.error_exit = jpegErrorExit;
    err.pub.emit_message = jpegEmitMessage;
    err.pub.output_message = jpegOutputMessage;
}

template <typename Step> [[gnu::noinline]] bool jpegTry(JpegErrors &err, Step step)
{
    if (setjmp(err.jump))
        return false;
    step();
    return true;
}

struct Decompressor {
    jpeg_decompress_struct cinfo{};
    JpegErrors err;
    Decompressor()
    {
        installErrors(err);
        cinfo.err = &err.pub;
        jpeg_create_decompress(&cinfo);
    }
    ~Decompressor() { jpeg_destroy_decompress(&cinfo); }
    Decompressor(const Decompressor &) = delete;
    Decompressor &operator=(const Decompressor &) = delete;
};

struct Compressor {
    jpeg_compress_struct cinfo{};
    JpegErrors err;
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    Compressor()
    {
        installErrors(err);
        cinfo.err = &err.pub;
        jpeg_create_compress(&cinfo);
    }
    ~Compressor()
    {
        jpeg_destroy_compress(&cinfo);
        std::free(buffer);
    }
    Compressor(const Compressor &) = delete;
    Compressor &operator=(const Compressor &) = delete;
};

// The file, positioned where the JPEG data starts.
FilePtr openAt(const std::string &path, long offset)
{
    FilePtr f(std::fopen(path.c_str(), "rb"));
    if (!f || std::fseek(f.get(), offset, SEEK_SET) != 0)
        throw failure(rte::kPathFileAccessError, "cannot open " + path);
    return f;
}

// The frame marker of the JPEG data where `f` stands (0xC0 to 0xCF for the JPEG processes,
// 0xF7 for JPEG-LS), 0 when the data ends first. Leaves the file where it found it.
int frameMarker(std::FILE *f)
{
    const long start = std::ftell(f);
    int frame = 0;
    unsigned char m[4];
    if (std::fread(m, 1, 2, f) == 2 && m[0] == 0xFF && m[1] == 0xD8) {
        while (std::fread(m, 1, 4, f) == 4 && m[0] == 0xFF) {
            const int code = m[1];
            if (code == 0xF7 ||
                (code >= 0xC0 && code <= 0xCF && code != 0xC4 && code != 0xC8 && code != 0xCC)) {
                frame = code;
                break;
            }
            const long length = m[2] << 8 | m[3];
            if (length < 2 || std::fseek(f, length - 2, SEEK_CUR) != 0)
                break;
        }
    }
    std::fseek(f, start, SEEK_SET);
    return frame;
}

// Every Huffman-coded block takes at least one bit: a frame of more blocks than the data has
// bits is a forged size, refused before anything of that size is made.
void checkFrameBacked(const jpeg_decompress_struct &c, uint64_t dataBytes)
{
    if (c.arith_code)
        return;
    uint64_t blocks = 0;
    for (int i = 0; i < c.num_components; ++i)
        blocks += uint64_t(c.comp_info[i].width_in_blocks) * c.comp_info[i].height_in_blocks;
    if (blocks / 8 > dataBytes)
        throw invalidFormat("JPEG: the frame is larger than its data can hold");
}

// Reads the entropy-coded data through to the last row, decoded at an eighth of the size: the
// Huffman decoding that finds data cut short or broken is all done, the rest mostly skipped.
void checkScans(const std::string &path, long offset)
{
    FilePtr f = openAt(path, offset);
    Decompressor d;
    std::vector<JSAMPLE> row;
    JSAMPROW rows[1] = {nullptr};
    const bool read = jpegTry(d.err, [&] {
        jpeg_stdio_src(&d.cinfo, f.get());
        jpeg_read_header(&d.cinfo, TRUE);
        d.cinfo.scale_num = 1;
        d.cinfo.scale_denom = 8;
        d.cinfo.dct_method = JDCT_IFAST;
        d.cinfo.do_fancy_upsampling = FALSE;
        d.cinfo.do_block_smoothing = FALSE;
        jpeg_calc_output_dimensions(&d.cinfo);
    });
    if (read) {
        row.resize(size_t(d.cinfo.output_width) * size_t(d.cinfo.output_components));
        rows[0] = row.data();
    }
    const bool scanned =
        read && jpegTry(d.err, [&] {
            jpeg_start_decompress(&d.cinfo);
            while (d.cinfo.output_scanline < d.cinfo.output_height && !d.err.dataLost)
                jpeg_read_scanlines(&d.cinfo, rows, 1);
        });
    if (!scanned || d.err.dataLost)
        throw invalidFormat("JPEG: the data is damaged or cut short");
}

class JpegPage : public PageSource {
public:
    // The JPEG data from `offset`, `length` bytes long (0: to the end of the file).
    JpegPage(const std::string &path, long offset, long length)
        : path_(path), offset_(offset), length_(length)
    {
        FilePtr f = openAt(path, offset);
        Decompressor d;
        JOCTET *icc = nullptr;
        unsigned int iccLen = 0;
        const bool ok = jpegTry(d.err, [&] {
            jpeg_stdio_src(&d.cinfo, f.get());
            jpeg_save_markers(&d.cinfo, JPEG_APP0 + 1, 0xFFFF);
            jpeg_save_markers(&d.cinfo, JPEG_APP0 + 2, 0xFFFF);
            jpeg_read_header(&d.cinfo, TRUE);
            jpeg_read_icc_profile(&d.cinfo, &icc, &iccLen);
        });
        if (!ok)
            throw invalidFormat(std::string("JPEG: ") + d.err.message);
        if (icc) {
            icc_.assign(reinterpret_cast<const char *>(icc), iccLen);
            std::free(icc);
        }
        const auto &c = d.cinfo;
        for (auto *m = c.marker_list; m; m = m->next)
            if (m->marker == JPEG_APP0 + 1 && m->data_length >= 6 &&
                std::memcmp(m->data, "Exif\0", 6) == 0) {
                orientation = exifOrientation(m->data, m->data_length);
                break;
            }
        width_ = int(c.image_width);
        height_ = int(c.image_height);
        comps_ = c.num_components;
        if (comps_ != 1 && comps_ != 3 && comps_ != 4)
            throw invalidFormat("JPEG: unsupported layout");
        adobe_ = c.saw_Adobe_marker;
        rgbNoTransform_ = comps_ == 3 && c.jpeg_color_space == JCS_RGB;
        embeddable_ = c.data_precision == 8 && !c.arith_code;
        if (c.saw_JFIF_marker && c.X_density > 0 && c.Y_density > 0 && c.density_unit != 0) {
            const double scale = c.density_unit == 2 ? 2.54 : 1.0;
            xdpi = c.X_density * scale;
            ydpi = c.Y_density * scale;
        }
        checkPageSize("JPEG", c.image_width, c.image_height);
        checkFrameBacked(c, dataBytes(f.get()));
    }

    int depth() const override { return 8 * comps_; }

    std::optional<EncodedImage> asIs(Filter wanted) override
    {
        if (!embeddable_ || (wanted != Filter::None && wanted != Filter::Dct))
            return std::nullopt;
        EncodedImage img;
        img.width = width_;
        img.height = height_;
        img.bpc = 8;
        img.cs = colourSpace();
        img.filter = Filter::Dct;
        // Adobe's CMYK JPEGs store inverted ink values.
        if (comps_ == 4 && adobe_)
            img.decode = {1, 0, 1, 0, 1, 0, 1, 0};
        if (rgbNoTransform_ && !adobe_)
            img.parms.colorTransform = 0;
        img.source = wholeFileRanges(path_, uint64_t(offset_), uint64_t(length_));
        img.verify = [path = path_, offset = offset_] { checkScans(path, offset); };
        return img;
    }

    Raster decode() override
    {
        FilePtr f = openAt(path_, offset_);
        Decompressor d;
        Raster r;
        r.width = width_;
        r.height = height_;
        r.cs = colourSpace();
        const bool started = jpegTry(d.err, [&] {
            jpeg_stdio_src(&d.cinfo, f.get());
            jpeg_read_header(&d.cinfo, TRUE);
            d.cinfo.out_color_space =
                comps_ == 1 ? JCS_GRAYSCALE : (comps_ == 3 ? JCS_RGB : JCS_CMYK);
            jpeg_start_decompress(&d.cinfo);
        });
        if (!started || int(d.cinfo.output_width) != width_ ||
            int(d.cinfo.output_height) != height_ || d.cinfo.output_components != comps_)
            throw invalidFormat(std::string("JPEG: ") + d.err.message);
        r.pixels.resize(r.rowBytes() * size_t(height_));
        uint8_t *base = r.pixels.data();
        const size_t stride = r.rowBytes();
        const bool read = jpegTry(d.err, [&] {
            while (d.cinfo.output_scanline < d.cinfo.output_height) {
                JSAMPROW row = base + stride * d.cinfo.output_scanline;
                jpeg_read_scanlines(&d.cinfo, &row, 1);
            }
            jpeg_finish_decompress(&d.cinfo);
        });
        if (!read)
            throw invalidFormat(std::string("JPEG: ") + d.err.message);
        if (d.err.dataLost)
            throw invalidFormat("JPEG: the data is damaged or cut short");
        if (comps_ == 4 && adobe_)
            for (auto &v : r.pixels)
                v = uint8_t(255 - v);
        return r;
    }

private:
    // Bytes of JPEG data from where `f` stands.
    uint64_t dataBytes(std::FILE *f) const
    {
        if (length_ > 0)
            return uint64_t(length_);
        struct stat st {};
        return ::fstat(fileno(f), &st) == 0 && st.st_size > offset_ ? uint64_t(st.st_size - offset_)
                                                                    : 0;
    }

    ColourSpace colourSpace() const
    {
        ColourSpace cs;
        cs.model =
            comps_ == 1 ? ColourModel::Gray : (comps_ == 3 ? ColourModel::Rgb : ColourModel::Cmyk);
        cs.icc = icc_;
        return cs;
    }

    std::string path_;
    long offset_, length_;
    std::string icc_;
    int width_ = 0, height_ = 0, comps_ = 0;
    bool adobe_ = false;
    bool rgbNoTransform_ = false;
    bool embeddable_ = true;
};

} // namespace

void readJpeg(const std::string &path, const PageSink &sink, long offset, long length)
{
    // JPEG-LS and lossless JPEG share the JPEG file's first marker; libjpeg-turbo decodes
    // neither.
    const int frame = offset == 0 ? frameMarker(openAt(path, 0).get()) : 0;
    if (frame == 0xF7)
        return readJpegLs(readWholeFile(path), sink);
    if (frame == 0xC3)
        return readLosslessJpeg(readWholeFile(path), sink);
    JpegPage page(path, offset, length);
    sink(page);
}

std::vector<uint8_t> jpegEncode(const Raster &raster, int quality)
{
    Compressor c;
    const int comps = raster.cs.components();
    const uint8_t *base = raster.pixels.data();
    const size_t stride = raster.rowBytes();
    const bool ok = jpegTry(c.err, [&] {
        jpeg_mem_dest(&c.cinfo, &c.buffer, &c.size);
        c.cinfo.image_width = JDIMENSION(raster.width);
        c.cinfo.image_height = JDIMENSION(raster.height);
        c.cinfo.input_components = comps;
        c.cinfo.in_color_space = comps == 1 ? JCS_GRAYSCALE : (comps == 3 ? JCS_RGB : JCS_CMYK);
        jpeg_set_defaults(&c.cinfo);
        // No JFIF/Adobe markers: the PDF dictionary states the colour space, and a CMYK
        // stream stays uninverted.
        c.cinfo.write_JFIF_header = FALSE;
        c.cinfo.write_Adobe_marker = FALSE;
        jpeg_set_quality(&c.cinfo, quality, TRUE);
        jpeg_start_compress(&c.cinfo, TRUE);
        while (c.cinfo.next_scanline < c.cinfo.image_height) {
            JSAMPROW row = const_cast<JSAMPROW>(base + stride * c.cinfo.next_scanline);
            jpeg_write_scanlines(&c.cinfo, &row, 1);
        }
        jpeg_finish_compress(&c.cinfo);
    });
    if (!ok)
        throw invalidFormat(std::string("JPEG encoder: ") + c.err.message);
    return std::vector<uint8_t>(c.buffer, c.buffer + c.size);
}

} // namespace pw::i2p
