// Photoshop files (PSD, and PSB for large documents). Photoshop saves a merged copy of the
// picture beside its layers; that copy is what every viewer shows, and it is what becomes the
// page. The layers themselves are never composed here.

#include "page_image.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

namespace pw::i2p {

namespace {

[[noreturn]] void damaged(const std::string &what)
{
    throw invalidFormat("PSD: " + what);
}

// Big-endian fields of the file in memory; running past the end is damage.
class Cursor {
public:
    Cursor(const std::vector<uint8_t> &data, uint64_t at = 0) : data_(data), at_(size_t(at))
    {
        if (at > data.size())
            damaged("the file is cut short");
    }

    const uint8_t *take(uint64_t n)
    {
        if (n > data_.size() - at_)
            damaged("the file is cut short");
        const uint8_t *p = data_.data() + at_;
        at_ += size_t(n);
        return p;
    }
    uint64_t number(int bytes)
    {
        const uint8_t *p = take(uint64_t(bytes));
        uint64_t v = 0;
        for (int i = 0; i < bytes; ++i)
            v = v << 8 | p[i];
        return v;
    }
    uint32_t u16() { return uint32_t(number(2)); }
    uint32_t u32() { return uint32_t(number(4)); }
    size_t position() const { return at_; }

private:
    const std::vector<uint8_t> &data_;
    size_t at_;
};

// The parts of a file that a page needs, read when needed: a layered document can be many
// times the size of its merged picture, and its layers are never read.
class PsdFile {
public:
    explicit PsdFile(const std::string &path) : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC))
    {
        struct stat st {};
        if (fd_ < 0 || ::fstat(fd_, &st) != 0)
            throw failure(rte::kPathFileAccessError, "cannot open " + path);
        size_ = uint64_t(st.st_size);
    }
    ~PsdFile() { ::close(fd_); }
    PsdFile(const PsdFile &) = delete;
    PsdFile &operator=(const PsdFile &) = delete;

    uint64_t size() const { return size_; }

    std::vector<uint8_t> read(uint64_t offset, uint64_t length) const
    {
        if (offset > size_ || length > size_ - offset)
            damaged("the file is cut short");
        std::vector<uint8_t> data(size_t(length), 0);
        for (size_t done = 0; done < data.size();) {
            const ssize_t n =
                ::pread(fd_, data.data() + done, data.size() - done, off_t(offset + done));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                damaged("the file is cut short");
            done += size_t(n);
        }
        return data;
    }

private:
    int fd_;
    uint64_t size_ = 0;
};

enum Mode : uint32_t {
    kBitmap = 0,
    kGrayscale = 1,
    kIndexed = 2,
    kRgb = 3,
    kCmyk = 4,
    kDuotone = 8,
};

constexpr uint32_t kResolutionInfo = 0x03ED;
constexpr uint32_t kIccProfile = 0x040F;

struct Header {
    bool large = false; // PSB: wider counts in a few places
    uint32_t channels = 0, height = 0, width = 0, depth = 0, mode = 0;
    std::string palette; // Indexed: RGB triplets
    std::string icc;
    double xdpi = 0, ydpi = 0; // none stated
    size_t imageData = 0;      // offset of the merged image's compression field
};

int colourChannels(uint32_t mode)
{
    switch (mode) {
    case kRgb:
        return 3;
    case kCmyk:
        return 4;
    default:
        return 1;
    }
}

// The image resources at the start of `data`, `length` bytes of them.
void readResources(const std::vector<uint8_t> &data, uint64_t length, Header &h)
{
    Cursor in(data);
    const size_t end = size_t(length);
    while (in.position() + 12 <= end) {
        if (std::memcmp(in.take(4), "8BIM", 4) != 0)
            return; // other signatures carry nothing a page needs
        const uint32_t id = in.u16();
        const uint32_t nameLength = in.number(1);
        in.take(nameLength + (nameLength % 2 == 0 ? 1 : 0)); // padded to an even total
        const uint32_t size = in.u32();
        const uint8_t *data = in.take(size + size % 2);
        if (id == kResolutionInfo && size >= 16) {
            // Always pixels per inch, as 16.16 fixed point; the units are only for display.
            const auto fixed = [&](int at) {
                return double(uint32_t(data[at]) << 24 | data[at + 1] << 16 | data[at + 2] << 8 |
                              data[at + 3]) /
                       65536.0;
            };
            // Below one pixel an inch the value is a writer's slip, not a resolution.
            if (fixed(0) >= 1 && fixed(8) >= 1) {
                h.xdpi = fixed(0);
                h.ydpi = fixed(8);
            }
        } else if (id == kIccProfile) {
            h.icc.assign(reinterpret_cast<const char *>(data), size);
        }
    }
}

Header readHeader(const PsdFile &file)
{
    constexpr uint64_t kFixedHeader = 26 + 4; // up to the colour table's length
    const std::vector<uint8_t> head = file.read(0, kFixedHeader);
    Cursor in(head);
    Header h;
    if (std::memcmp(in.take(4), "8BPS", 4) != 0)
        damaged("not a Photoshop file");
    const uint32_t version = in.u16();
    if (version != 1 && version != 2)
        damaged("unknown version " + std::to_string(version));
    h.large = version == 2;
    in.take(6);
    h.channels = in.u16();
    h.height = in.u32();
    h.width = in.u32();
    h.depth = in.u16();
    h.mode = in.u16();
    if (h.channels < 1 || h.channels > 56 || h.width == 0 || h.height == 0)
        damaged("impossible dimensions");
    const bool floats = h.depth == 32 && (h.mode == kRgb || h.mode == kGrayscale);
    const bool depthFits =
        h.mode == kBitmap ? h.depth == 1 : (h.depth == 8 || h.depth == 16 || floats);
    const bool modeKnown = h.mode == kBitmap || h.mode == kGrayscale || h.mode == kIndexed ||
                           h.mode == kRgb || h.mode == kCmyk || h.mode == kDuotone;
    if (!modeKnown || !depthFits)
        damaged("colour mode " + std::to_string(h.mode) + " at " + std::to_string(h.depth) +
                " bits is not supported");
    if (h.channels < uint32_t(colourChannels(h.mode)))
        damaged("too few channels for the colour mode");

    const uint32_t colourData = in.u32();
    // The colour table and the length of the resources after it.
    const std::vector<uint8_t> tableAndLength = file.read(kFixedHeader, uint64_t(colourData) + 4);
    const uint8_t *table = tableAndLength.data();
    if (h.mode == kIndexed) {
        if (colourData < 768)
            damaged("indexed colours without a colour table");
        // Stored as all reds, all greens, all blues.
        for (int i = 0; i < 256; ++i)
            for (int c = 0; c < 3; ++c)
                h.palette.push_back(char(table[c * 256 + i]));
    }
    const uint32_t resources = Cursor(tableAndLength, colourData).u32();
    const uint64_t resourcesAt = kFixedHeader + uint64_t(colourData) + 4;
    const int layerLengthBytes = h.large ? 8 : 4;
    const std::vector<uint8_t> rest =
        file.read(resourcesAt, uint64_t(resources) + uint64_t(layerLengthBytes));
    readResources(rest, resources, h);
    // The layers are skipped: the merged picture follows them.
    const uint64_t layers = Cursor(rest, resources).number(layerLengthBytes);
    h.imageData = resourcesAt + resources + uint64_t(layerLengthBytes) + layers;
    if (h.imageData > file.size())
        damaged("the file is cut short");
    return h;
}

// One row of PackBits, exactly `out.size()` bytes of it.
void unpackRow(const uint8_t *in, size_t inSize, std::vector<uint8_t> &out)
{
    size_t i = 0, o = 0;
    while (o < out.size()) {
        if (i >= inSize)
            damaged("a compressed row is cut short");
        const int n = int8_t(in[i++]);
        if (n >= 0) {
            const size_t count = size_t(n) + 1;
            if (i + count > inSize || o + count > out.size())
                damaged("a compressed row does not fit");
            std::memcpy(out.data() + o, in + i, count);
            i += count;
            o += count;
        } else if (n != -128) {
            const size_t count = size_t(1 - n);
            if (i >= inSize || o + count > out.size())
                damaged("a compressed row does not fit");
            std::memset(out.data() + o, in[i++], count);
            o += count;
        }
    }
}

class PsdPage : public PageSource {
public:
    PsdPage(const PsdFile &file, Header header) : file_(file), h_(std::move(header))
    {
        xdpi = h_.xdpi;
        ydpi = h_.ydpi;
        checkPageSize("PSD", h_.width, h_.height);
        checkBacked();
    }

    int depth() const override
    {
        if (h_.mode == kBitmap)
            return 1;
        if (h_.mode == kIndexed)
            return 8;
        return (colourChannels(h_.mode) + (hasAlpha() ? 1 : 0)) * int(h_.depth);
    }

    std::optional<EncodedImage> asIs(Filter) override { return std::nullopt; }

    Raster decode() override
    {
        Raster r;
        r.width = int(h_.width);
        r.height = int(h_.height);
        // 32-bit documents hold floating-point light, which the PDF gets as 16-bit samples.
        const int bpc = h_.depth == 32 ? 16 : int(h_.depth);
        r.bpc = bpc;
        switch (h_.mode) {
        case kRgb:
            r.cs.model = ColourModel::Rgb;
            break;
        case kCmyk:
            r.cs.model = ColourModel::Cmyk;
            r.invert = true; // Photoshop stores ink amounts with 0 as full ink
            break;
        case kIndexed:
            r.cs.model = ColourModel::Indexed;
            r.cs.base = ColourModel::Rgb;
            r.cs.palette = h_.palette;
            break;
        default:
            r.cs.model = ColourModel::Gray;
            r.invert = h_.mode == kBitmap; // a set bit is black
            break;
        }
        if (h_.mode != kIndexed)
            r.cs.icc = h_.icc;
        const int colours = colourChannels(h_.mode);
        const size_t sample = size_t(bpc / 8);
        r.pixels.resize(r.rowBytes() * h_.height);
        if (hasAlpha()) {
            r.alpha.resize(size_t(h_.width) * h_.height * sample);
            r.alphaBpc = bpc;
        }
        const int wanted = wantedChannels();
        std::vector<uint8_t> narrowed(size_t(h_.width) * 2);
        readChannels(wanted, [&](int channel, uint32_t y, const uint8_t *row) {
            if (h_.depth == 32)
                row = toSixteenBits(row, channel < colours, narrowed);
            if (channel == colours) {
                std::memcpy(r.alpha.data() + size_t(y) * h_.width * sample, row,
                            size_t(h_.width) * sample);
                return;
            }
            uint8_t *out = r.pixels.data() + size_t(y) * r.rowBytes();
            if (colours == 1) {
                std::memcpy(out, row, r.rowBytes());
                return;
            }
            for (uint32_t x = 0; x < h_.width; ++x)
                std::memcpy(out + (size_t(x) * colours + channel) * sample, row + x * sample,
                            sample);
        });
        if (std::all_of(r.alpha.begin(), r.alpha.end(), [](uint8_t a) { return a == 0xFF; }))
            r.alpha.clear();
        return r;
    }

private:
    // The merged picture's data must be able to hold every row the header promises, stored
    // (a row's bytes) or packed (two bytes for each 128 of a row at best), before a page of the
    // header's size is made.
    void checkBacked() const
    {
        const std::vector<uint8_t> head = file_.read(h_.imageData, 2);
        const uint32_t compression = Cursor(head).u16();
        const uint64_t rowBytes = (uint64_t(h_.width) * h_.depth + 7) / 8;
        const uint64_t rows = uint64_t(h_.height) * uint64_t(wantedChannels());
        const uint64_t needed = compression == 1
                                    ? uint64_t(h_.channels) * h_.height * (h_.large ? 4 : 2) +
                                          rows * 2 * ((rowBytes + 127) / 128)
                                    : rows * rowBytes;
        if (compression <= 1 && needed > file_.size() - h_.imageData - 2)
            damaged("the file is cut short");
    }

    int wantedChannels() const { return colourChannels(h_.mode) + (hasAlpha() ? 1 : 0); }

    // A row of big-endian floats as 16-bit samples. Colour is stored as linear light and is
    // given the sRGB curve that 8- and 16-bit documents carry; transparency stays linear.
    const uint8_t *toSixteenBits(const uint8_t *row, bool colour, std::vector<uint8_t> &out) const
    {
        for (uint32_t x = 0; x < h_.width; ++x) {
            const uint32_t bits = uint32_t(row[4 * x]) << 24 | uint32_t(row[4 * x + 1]) << 16 |
                                  uint32_t(row[4 * x + 2]) << 8 | row[4 * x + 3];
            float f;
            std::memcpy(&f, &bits, 4);
            double v = std::isfinite(f) ? std::clamp(double(f), 0.0, 1.0) : 0.0;
            if (colour)
                v = v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
            const auto s = uint16_t(std::lround(v * 65535));
            out[2 * x] = uint8_t(s >> 8);
            out[2 * x + 1] = uint8_t(s);
        }
        return out.data();
    }

    // The first channel past the colours is the document's transparency, as Photoshop saves
    // it for a layered picture; CMYK, indexed and bitmap pictures are shown without one.
    bool hasAlpha() const
    {
        const bool canCarry = h_.mode == kRgb || h_.mode == kGrayscale || h_.mode == kDuotone;
        return canCarry && h_.channels > uint32_t(colourChannels(h_.mode));
    }

    template <typename RowSink> void readChannels(int wanted, RowSink &&sink)
    {
        const std::vector<uint8_t> data = file_.read(h_.imageData, file_.size() - h_.imageData);
        Cursor in(data);
        const uint32_t compression = in.u16();
        const size_t rowBytes = (size_t(h_.width) * h_.depth + 7) / 8;
        std::vector<uint8_t> row(rowBytes);
        if (compression == 0) {
            for (int c = 0; c < wanted; ++c)
                for (uint32_t y = 0; y < h_.height; ++y)
                    sink(c, y, in.take(rowBytes));
            return;
        }
        if (compression != 1)
            damaged("merged image compressed with ZIP, which is not supported");
        // Byte counts of every row of every channel come first, then the rows in that order.
        const size_t rows = size_t(h_.channels) * h_.height;
        const int countBytes = h_.large ? 4 : 2;
        Cursor counts(data, in.position());
        in.take(uint64_t(rows) * countBytes);
        for (int c = 0; c < wanted; ++c)
            for (uint32_t y = 0; y < h_.height; ++y) {
                const uint64_t size = counts.number(countBytes);
                unpackRow(in.take(size), size_t(size), row);
                sink(c, y, row.data());
            }
    }

    const PsdFile &file_;
    Header h_;
};

} // namespace

void readPsd(const std::string &path, const PageSink &sink)
{
    const PsdFile file(path);
    PsdPage page(file, readHeader(file));
    sink(page);
}

} // namespace pw::i2p
