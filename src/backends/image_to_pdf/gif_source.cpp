// GIF files through giflib. A still image without transparency stays Indexed; frames of an
// animation are composed as a browser shows them, one page each.

#include "page_image.h"

#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace pw::i2p {

namespace {

struct GifClose {
    void operator()(GifFileType *g) const
    {
        int error = 0;
        DGifCloseFile(g, &error);
    }
};

int roundedBits(int bits)
{
    return bits <= 1 ? 1 : (bits <= 4 ? 4 : 8);
}

class GifFrame : public PageSource {
public:
    GifFrame(GifFileType *gif, int index, int frames, std::vector<uint8_t> &canvas)
        : gif_(gif), index_(index), frames_(frames), canvas_(canvas)
    {
    }

    int depth() const override
    {
        const SavedImage &im = gif_->SavedImages[index_];
        const ColorMapObject *map = im.ImageDesc.ColorMap ? im.ImageDesc.ColorMap : gif_->SColorMap;
        return roundedBits(map ? map->BitsPerPixel : 8);
    }

    std::optional<EncodedImage> asIs(Filter) override { return std::nullopt; }

    Raster decode() override
    {
        const SavedImage &im = gif_->SavedImages[index_];
        const ColorMapObject *map = im.ImageDesc.ColorMap ? im.ImageDesc.ColorMap : gif_->SColorMap;
        if (!map || !im.RasterBits)
            throw invalidFormat("GIF: frame without colours");
        GraphicsControlBlock gcb{};
        gcb.TransparentColor = NO_TRANSPARENT_COLOR;
        DGifSavedExtensionToGCB(gif_, index_, &gcb);
        const int W = gif_->SWidth, H = gif_->SHeight;
        const auto &d = im.ImageDesc;
        Raster r;
        r.width = W;
        r.height = H;
        const bool whole = d.Left == 0 && d.Top == 0 && d.Width == W && d.Height == H;
        if (frames_ == 1 && whole && gcb.TransparentColor == NO_TRANSPARENT_COLOR) {
            // A still picture keeps its palette at its own depth.
            r.bpc = roundedBits(map->BitsPerPixel);
            r.cs.model = ColourModel::Indexed;
            r.cs.base = ColourModel::Rgb;
            for (int i = 0; i < map->ColorCount; ++i) {
                r.cs.palette.push_back(char(map->Colors[i].Red));
                r.cs.palette.push_back(char(map->Colors[i].Green));
                r.cs.palette.push_back(char(map->Colors[i].Blue));
            }
            r.pixels.assign(r.rowBytes() * H, 0);
            const int per = 8 / r.bpc;
            for (int y = 0; y < H; ++y)
                for (int x = 0; x < W; ++x) {
                    const int v = im.RasterBits[size_t(y) * W + x] & ((1 << r.bpc) - 1);
                    r.pixels[size_t(y) * r.rowBytes() + x / per] |=
                        uint8_t(v << (8 - r.bpc * (x % per + 1)));
                }
            return r;
        }
        // Compose this frame onto the canvas (RGBA), then hand out a copy.
        std::vector<uint8_t> before;
        if (gcb.DisposalMode == DISPOSE_PREVIOUS)
            before = canvas_;
        for (int y = 0; y < d.Height; ++y)
            for (int x = 0; x < d.Width; ++x) {
                const int cx = d.Left + x, cy = d.Top + y;
                if (cx < 0 || cy < 0 || cx >= W || cy >= H)
                    continue;
                const int v = im.RasterBits[size_t(y) * d.Width + x];
                if (v == gcb.TransparentColor || v >= map->ColorCount)
                    continue;
                uint8_t *p = &canvas_[(size_t(cy) * W + cx) * 4];
                p[0] = map->Colors[v].Red;
                p[1] = map->Colors[v].Green;
                p[2] = map->Colors[v].Blue;
                p[3] = 255;
            }
        r.bpc = 8;
        r.cs.model = ColourModel::Rgb;
        r.pixels.resize(size_t(W) * H * 3, 0);
        r.alpha.resize(size_t(W) * H, 0);
        bool opaque = true;
        for (size_t i = 0; i < size_t(W) * H; ++i) {
            std::memcpy(&r.pixels[i * 3], &canvas_[i * 4], 3);
            r.alpha[i] = canvas_[i * 4 + 3];
            opaque = opaque && r.alpha[i] == 255;
        }
        if (opaque)
            r.alpha.clear();
        if (gcb.DisposalMode == DISPOSE_BACKGROUND) {
            for (int y = std::max(0, d.Top); y < std::min(H, d.Top + d.Height); ++y)
                for (int x = std::max(0, d.Left); x < std::min(W, d.Left + d.Width); ++x)
                    std::memset(&canvas_[(size_t(y) * W + x) * 4], 0, 4);
        } else if (gcb.DisposalMode == DISPOSE_PREVIOUS) {
            canvas_ = std::move(before);
        }
        return r;
    }

private:
    GifFileType *gif_;
    int index_;
    int frames_;
    std::vector<uint8_t> &canvas_;
};

struct MemoryInput {
    const std::vector<uint8_t> &data;
    size_t at = 0;
};

int readFromMemory(GifFileType *gif, GifByteType *to, int wanted)
{
    auto &in = *static_cast<MemoryInput *>(gif->UserData);
    const size_t n = std::min(size_t(std::max(wanted, 0)), in.data.size() - in.at);
    std::memcpy(to, in.data.data() + in.at, n);
    in.at += n;
    return int(n);
}

// The records as they lie in the file, walked before giflib allocates anything for them.
struct GifLayout {
    // The data stops inside a record. A file that ends between records has lost at most its
    // trailer, which many writers leave out; one that stops inside an image's data is cut
    // short, and its first frames alone would pass for the whole animation.
    bool cut = false;
    struct Frame {
        uint64_t width = 0, height = 0, codeBytes = 0;
    };
    std::vector<Frame> frames;
};

GifLayout walkRecords(const std::vector<uint8_t> &d)
{
    GifLayout layout;
    size_t at = 13;
    const auto colourTable = [&](uint8_t flags) {
        if (flags & 0x80)
            at += size_t(3) << ((flags & 7) + 1);
    };
    // The sub-blocks' payload bytes.
    const auto subBlocks = [&] {
        uint64_t bytes = 0;
        while (at < d.size() && d[at] != 0) {
            bytes += d[at];
            at += size_t(d[at]) + 1;
        }
        ++at;
        return bytes;
    };
    if (d.size() < at) {
        layout.cut = true;
        return layout;
    }
    colourTable(d[10]);
    while (at < d.size()) {
        const uint8_t kind = d[at++];
        if (kind == 0x3B)
            return layout;
        if (kind == 0x21) {
            ++at; // label
            subBlocks();
        } else if (kind == 0x2C) {
            if (at + 9 > d.size()) {
                layout.cut = true;
                return layout;
            }
            GifLayout::Frame frame;
            frame.width = d[at + 4] | d[at + 5] << 8;
            frame.height = d[at + 6] | d[at + 7] << 8;
            const uint8_t flags = d[at + 8];
            at += 9;
            colourTable(flags);
            ++at; // LZW code size
            frame.codeBytes = subBlocks();
            layout.frames.push_back(frame);
        } else {
            return layout; // not ours to judge: giflib names the fault
        }
    }
    layout.cut = at > d.size();
    return layout;
}

// What the file may cost, checked before giflib allocates a frame of the size its descriptor
// claims. An LZW code of w bits stands for at most 2^w pixels, so a bit of data holds at most
// 4096 / 12 of them. Every frame becomes a page of the whole screen, and together they count
// against the limit of a page: 300 one-pixel frames on a large screen are 300 large pages.
void checkCost(const std::vector<uint8_t> &data, const GifLayout &layout, bool firstOnly)
{
    const uint64_t width = data[6] | data[7] << 8, height = data[8] | data[9] << 8;
    checkPageSize("GIF", width, height);
    for (const GifLayout::Frame &frame : layout.frames) {
        checkPageSize("GIF", frame.width, frame.height);
        if (frame.width * frame.height / 2731 > frame.codeBytes + 1)
            throw invalidFormat("GIF: a frame is larger than its data can hold");
    }
    const uint64_t pages = firstOnly ? 1 : layout.frames.size();
    if (pages > 1 && pages * width * height > maxPagePixels())
        throw failure(rte::kOutOfMemory,
                      "GIF: " + std::to_string(pages) + " frames of " + std::to_string(width) +
                          " x " + std::to_string(height) + " pixels are over the limit of " +
                          std::to_string(maxPagePixels()) + " pixels");
}

} // namespace

void readGif(const std::string &path, const PageSink &sink, bool firstOnly)
{
    const std::vector<uint8_t> data = readWholeFile(path);
    const GifLayout layout = walkRecords(data);
    if (layout.cut)
        throw invalidFormat("GIF: the data is cut short");
    checkCost(data, layout, firstOnly);
    MemoryInput input{data};
    int error = 0;
    std::unique_ptr<GifFileType, GifClose> gif(DGifOpen(&input, readFromMemory, &error));
    if (!gif)
        throw invalidFormat(std::string("GIF: ") +
                            (GifErrorString(error) ? GifErrorString(error) : "cannot open"));
    // A file without its trailer fails here after its last whole frame, and keeps it; a frame
    // whose own data stops early would come out in part.
    const int slurpError = DGifSlurp(gif.get()) == GIF_OK ? 0 : gif->Error;
    if (slurpError == D_GIF_ERR_IMAGE_DEFECT || slurpError == D_GIF_ERR_EOF_TOO_SOON ||
        slurpError == D_GIF_ERR_DATA_TOO_BIG)
        throw invalidFormat("GIF: the image data is damaged or cut short");
    int frames = 0;
    while (frames < gif->ImageCount && gif->SavedImages[frames].RasterBits)
        ++frames;
    if (frames == 0)
        throw invalidFormat(std::string("GIF: ") +
                            (GifErrorString(gif->Error) ? GifErrorString(gif->Error) : "no image"));
    std::vector<uint8_t> canvas(size_t(gif->SWidth) * gif->SHeight * 4, 0);
    for (int i = 0; i < frames; ++i) {
        GifFrame frame(gif.get(), i, frames, canvas);
        sink(frame);
        if (firstOnly)
            break;
    }
}

} // namespace pw::i2p
