#include "tiff_pages.h"

#include "output_file.h"
#include "tiff_handle.h"

#include <tiffio.h>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <deque>
#include <filesystem>
#include <memory>
#include <vector>

namespace pw::tiff {
namespace {

namespace rte = pw::rte;

namespace fs = std::filesystem;

// Keeps the first-listed pages safely below the classic 4 GiB offset limit: tags, directories
// and padding come on top of the image data we can count.
constexpr uint64_t kClassicLimit = (uint64_t{1} << 32) - (uint64_t{64} << 20);

// What an operation answers: a source that cannot be read, an output that cannot be written, a
// request that cannot be met.
Failure Unreadable(const std::string &text)
{
    return Failure(rte::kInvalidFileFormat, text);
}

Failure Unwritable(const std::string &text)
{
    return Failure(rte::kPathFileAccessError, text);
}

Failure Refused(const std::string &text)
{
    return Failure(rte::kInvalidCall, text);
}

// libtiff starts most messages with the file name, which `what` already gives.
std::string WithReason(const std::string &what, const std::string &why)
{
    if (why.empty())
        return what;
    const size_t colon = why.find(": ");
    const bool named =
        colon != std::string::npos && what.find(why.substr(0, colon)) != std::string::npos;
    return what + ": " + (named ? why.substr(colon + 2) : why);
}

// One source file, open for reading.
class Source {
public:
    Source() = default;
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    // `strict` also refuses a file whose chain of pages breaks off (a next page past the end,
    // a loop): copying it would drop pages without a word.
    Result<void> open(const std::string &path, bool strict = true)
    {
        path_ = path;
        struct stat st {};
        if (::stat(path.c_str(), &st) != 0)
            return Unreadable("cannot open " + path + ": " + std::strerror(errno));
        if (!S_ISREG(st.st_mode))
            return Unreadable(path + " is not a file");
        size_ = static_cast<uint64_t>(st.st_size);
        // No memory-mapping ("m"): a file cut short under us would raise SIGBUS instead of an
        // error. No strip chopping ("c"): libtiff would present one large uncompressed strip
        // as many small ones, and the copy would store them as such.
        tif_ = TiffHandle::open(path, "rmc");
        if (!tif_)
            return Unreadable(WithReason(path + " is not a readable TIFF", tif_.error()));
        // TIFFNumberOfDirectories only follows the chain of directory offsets and stops at one
        // it has seen, so a looping file can't hang us; each page is read in full later.
        tif_.clearError();
        pages_ = TIFFNumberOfDirectories(tif_.get());
        if (strict && !tif_.error().empty())
            return Unreadable(WithReason(path + " is damaged", tif_.error()));
        if (pages_ < 1)
            return Unreadable(path + " has no pages libtiff can list");
        return {};
    }

    // Makes page `dir` (0-based) current, walking forward when that is the next one.
    Result<void> seek(tdir_t dir)
    {
        tif_.clearError();
        TIFF *tif = tif_.get();
        const tdir_t current = TIFFCurrentDirectory(tif);
        bool ok = true;
        if (dir == current + 1)
            ok = TIFFReadDirectory(tif) == 1;
        else if (dir != current)
            ok = TIFFSetDirectory(tif, dir) == 1;
        if (!ok || TIFFCurrentDirectory(tif) != dir)
            return Unreadable(WithReason(
                "cannot read page " + std::to_string(dir + 1) + " of " + path_, tif_.error()));
        return {};
    }

    TIFF *tif() const { return tif_.get(); }
    const std::string &path() const { return path_; }
    // What libtiff last reported on this file, since clearLog().
    const std::string &log() const { return tif_.error(); }
    void clearLog() { tif_.clearError(); }
    int pages() const { return static_cast<int>(pages_); }
    uint64_t size() const { return size_; }
    bool isBig() const { return TIFFIsBigTIFF(tif_.get()) != 0; }
    bool isBigEndian() const { return TIFFIsBigEndian(tif_.get()) != 0; }

private:
    std::string path_;
    TiffHandle tif_;
    tdir_t pages_ = 0;
    uint64_t size_ = 0;
};

// What an output is made of: pages [first, first + count) of each source in turn.
struct Part {
    std::string path;
    int first = 0;
    int count = 0;
};

struct Plan {
    std::string target;
    std::vector<Part> parts;
};

// Facts about a source gathered before any output is opened, so that every range can be
// checked and the output format chosen up front.
struct Probe {
    int pages = 0;
    uint64_t size = 0;
    bool big = false;
    bool bigEndian = false;
};

Result<Probe> ProbeFile(const std::string &path, bool strict = true)
{
    Source source;
    if (auto opened = source.open(path, strict); !opened)
        return opened.failure();
    return Probe{source.pages(), source.size(), source.isBig(), source.isBigEndian()};
}

// Tags libtiff keeps outside its list of custom values: each needs its own call shape.
void CopyCoreTags(TIFF *in, TIFF *out)
{
    auto u16 = [&](ttag_t tag) {
        uint16_t v;
        if (TIFFGetField(in, tag, &v))
            TIFFSetField(out, tag, v);
    };
    auto u32 = [&](ttag_t tag) {
        uint32_t v;
        if (TIFFGetField(in, tag, &v))
            TIFFSetField(out, tag, v);
    };
    auto f32 = [&](ttag_t tag) {
        float v;
        if (TIFFGetField(in, tag, &v))
            TIFFSetField(out, tag, static_cast<double>(v));
    };
    auto f64 = [&](ttag_t tag) {
        double v;
        if (TIFFGetField(in, tag, &v))
            TIFFSetField(out, tag, v);
    };
    auto pair16 = [&](ttag_t tag) {
        uint16_t a, b;
        if (TIFFGetField(in, tag, &a, &b))
            TIFFSetField(out, tag, a, b);
    };

    // Image layout first: the strip or tile count, the colour map size and the codec all
    // follow from these. Compression comes before the codec's own tags, which only exist once
    // the codec is installed.
    for (ttag_t tag :
         {TIFFTAG_IMAGEWIDTH, TIFFTAG_IMAGELENGTH, TIFFTAG_IMAGEDEPTH, TIFFTAG_SUBFILETYPE})
        u32(tag);
    for (ttag_t tag : {TIFFTAG_BITSPERSAMPLE, TIFFTAG_SAMPLESPERPIXEL, TIFFTAG_COMPRESSION,
                       TIFFTAG_PHOTOMETRIC, TIFFTAG_PLANARCONFIG, TIFFTAG_SAMPLEFORMAT,
                       TIFFTAG_FILLORDER, TIFFTAG_ORIENTATION, TIFFTAG_THRESHHOLDING,
                       TIFFTAG_MINSAMPLEVALUE, TIFFTAG_MAXSAMPLEVALUE, TIFFTAG_RESOLUTIONUNIT,
                       TIFFTAG_YCBCRPOSITIONING, TIFFTAG_PREDICTOR, TIFFTAG_CLEANFAXDATA})
        u16(tag);
    if (TIFFIsTiled(in)) {
        for (ttag_t tag : {TIFFTAG_TILEWIDTH, TIFFTAG_TILELENGTH, TIFFTAG_TILEDEPTH})
            u32(tag);
    } else {
        // Always written: left out, libtiff would pick its own strip height when writing and
        // the strips would no longer line up with the ones we copy.
        uint32_t rows = 0;
        TIFFGetFieldDefaulted(in, TIFFTAG_ROWSPERSTRIP, &rows);
        TIFFSetField(out, TIFFTAG_ROWSPERSTRIP, rows);
    }
    for (ttag_t tag : {TIFFTAG_GROUP3OPTIONS, TIFFTAG_GROUP4OPTIONS, TIFFTAG_BADFAXLINES,
                       TIFFTAG_CONSECUTIVEBADFAXLINES})
        u32(tag);
    for (ttag_t tag :
         {TIFFTAG_XRESOLUTION, TIFFTAG_YRESOLUTION, TIFFTAG_XPOSITION, TIFFTAG_YPOSITION})
        f32(tag);
    for (ttag_t tag : {TIFFTAG_SMINSAMPLEVALUE, TIFFTAG_SMAXSAMPLEVALUE})
        f64(tag);
    for (ttag_t tag : {TIFFTAG_HALFTONEHINTS, TIFFTAG_YCBCRSUBSAMPLING})
        pair16(tag);

    uint16_t count = 0;
    uint16_t *extras = nullptr;
    if (TIFFGetField(in, TIFFTAG_EXTRASAMPLES, &count, &extras))
        TIFFSetField(out, TIFFTAG_EXTRASAMPLES, count, extras);
    uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
    if (TIFFGetField(in, TIFFTAG_COLORMAP, &r, &g, &b))
        TIFFSetField(out, TIFFTAG_COLORMAP, r, g, b);
    // One curve or three, by the same sample count on both sides.
    if (TIFFGetField(in, TIFFTAG_TRANSFERFUNCTION, &r, &g, &b))
        TIFFSetField(out, TIFFTAG_TRANSFERFUNCTION, r, g, b);
    float *blackWhite = nullptr;
    if (TIFFGetField(in, TIFFTAG_REFERENCEBLACKWHITE, &blackWhite))
        TIFFSetField(out, TIFFTAG_REFERENCEBLACKWHITE, blackWhite);
    // The shared quantisation and Huffman tables of JPEG strips: without them the copied
    // strips can't be decoded. The codec never runs on our side (we write raw), so it
    // neither replaces these nor converts colours.
    uint32_t tableSize = 0;
    void *tables = nullptr;
    if (TIFFGetField(in, TIFFTAG_JPEGTABLES, &tableSize, &tables))
        TIFFSetField(out, TIFFTAG_JPEGTABLES, tableSize, tables);
}

bool IsLayoutTag(ttag_t tag)
{
    switch (tag) {
    // Offsets into the source file: libtiff writes ours, and a sub-directory (EXIF, GPS, a
    // thumbnail) would point at bytes the output doesn't have.
    case TIFFTAG_STRIPOFFSETS:
    case TIFFTAG_STRIPBYTECOUNTS:
    case TIFFTAG_TILEOFFSETS:
    case TIFFTAG_TILEBYTECOUNTS:
    case TIFFTAG_FREEOFFSETS:
    case TIFFTAG_FREEBYTECOUNTS:
    case TIFFTAG_SUBIFD:
    case TIFFTAG_EXIFIFD:
    case TIFFTAG_GPSIFD:
    case TIFFTAG_INTEROPERABILITYIFD:
    // Rewritten for the new position.
    case TIFFTAG_PAGENUMBER:
    // libtiff hands this one back in a shape of its own; it only matters for CMYK separations.
    case TIFFTAG_DOTRANGE:
        return true;
    default:
        return false;
    }
}

// The output has to know a tag before it takes a value: tags libtiff has no name for were
// registered on the source when read, and are registered the same way on the output.
bool EnsureField(TIFF *out, const TIFFField *field, std::deque<std::string> &names)
{
    const ttag_t tag = TIFFFieldTag(field);
    if (const TIFFField *known = TIFFFindField(out, tag, TIFF_ANY))
        return TIFFFieldDataType(known) == TIFFFieldDataType(field) &&
               TIFFFieldPassCount(known) == TIFFFieldPassCount(field) &&
               TIFFFieldSetGetSize(known) == TIFFFieldSetGetSize(field);
    names.emplace_back(TIFFFieldName(field));
    TIFFFieldInfo info{};
    info.field_tag = tag;
    info.field_readcount = static_cast<short>(TIFFFieldReadCount(field));
    info.field_writecount = static_cast<short>(TIFFFieldWriteCount(field));
    info.field_type = TIFFFieldDataType(field);
    info.field_bit = FIELD_CUSTOM;
    info.field_oktochange = 1;
    info.field_passcount = static_cast<unsigned char>(TIFFFieldPassCount(field));
    info.field_name = names.back().data();
    return TIFFMergeFieldInfo(out, &info, 1) == 0;
}

// Everything libtiff stores as a custom value: names, dates, software, ICC profile, XMP,
// IPTC, and tags unknown to libtiff. Their call shapes follow the field description.
void CopyCustomTags(TIFF *in, TIFF *out, std::deque<std::string> &names)
{
    const int n = TIFFGetTagListCount(in);
    for (int i = 0; i < n; ++i) {
        const ttag_t tag = TIFFGetTagListEntry(in, i);
        const TIFFField *field = TIFFFindField(in, tag, TIFF_ANY);
        if (!field || IsLayoutTag(tag))
            continue;
        const TIFFDataType type = TIFFFieldDataType(field);
        if (type == TIFF_IFD || type == TIFF_IFD8 || !EnsureField(out, field, names))
            continue;
        if (TIFFFieldPassCount(field)) {
            void *data = nullptr;
            // An empty value has nothing to copy, and libtiff refuses to write one.
            if (TIFFFieldSetGetCountSize(field) == 4) {
                uint32_t count = 0;
                if (TIFFGetField(in, tag, &count, &data) && count > 0)
                    TIFFSetField(out, tag, count, data);
            } else {
                uint16_t count = 0;
                if (TIFFGetField(in, tag, &count, &data) && count > 0)
                    TIFFSetField(out, tag, static_cast<int>(count), data);
            }
        } else if (type == TIFF_ASCII || TIFFFieldWriteCount(field) != 1) {
            // Text, or a fixed number of values: both come as a pointer.
            void *data = nullptr;
            if (TIFFGetField(in, tag, &data) && data)
                TIFFSetField(out, tag, data);
        } else {
            union {
                uint8_t u8;
                uint16_t u16;
                uint32_t u32;
                uint64_t u64;
                float f;
                double d;
            } v{};
            if (!TIFFGetField(in, tag, &v))
                continue;
            const int size = TIFFFieldSetGetSize(field);
            switch (type) {
            case TIFF_FLOAT:
            case TIFF_RATIONAL:
            case TIFF_SRATIONAL:
            case TIFF_DOUBLE:
                TIFFSetField(out, tag, size == 4 ? static_cast<double>(v.f) : v.d);
                break;
            case TIFF_LONG8:
            case TIFF_SLONG8:
                TIFFSetField(out, tag, v.u64);
                break;
            default:
                TIFFSetField(out, tag,
                             size == 1   ? uint32_t{v.u8}
                             : size == 2 ? uint32_t{v.u16}
                                         : v.u32);
            }
        }
    }
}

// The output under construction, put in place of its target only when committed.
class Sink {
public:
    Sink() = default;
    Sink(const Sink &) = delete;
    Sink &operator=(const Sink &) = delete;

    Result<void> open(const std::string &target, bool big, bool bigEndian)
    {
        target_ = target;
        bigEndian_ = bigEndian;
        file_ = std::make_unique<pw::OutputFile>(target);
        if (file_->fd() < 0)
            return Unwritable("cannot write " + target + ": " + file_->reason());
        const std::string mode = std::string("w") + (big ? "8" : "") + (bigEndian ? "b" : "l");
        // libtiff closes the descriptor it is given: it gets one of its own.
        tif_ = TiffHandle::open(file_->share(), target, mode.c_str());
        if (!tif_)
            return Unwritable(WithReason("cannot write " + target, tif_.error()));
        return {};
    }

    Result<void> copyPage(Source &source, int pageNumber, int pageTotal)
    {
        TIFF *in = source.tif();
        TIFF *out = tif_.get();
        const std::string where =
            "page " + std::to_string(TIFFCurrentDirectory(in) + 1) + " of " + source.path();
        uint16_t compression = COMPRESSION_NONE, bits = 1;
        TIFFGetFieldDefaulted(in, TIFFTAG_COMPRESSION, &compression);
        TIFFGetFieldDefaulted(in, TIFFTAG_BITSPERSAMPLE, &bits);
        if (compression == COMPRESSION_OJPEG)
            return Refused(where + " uses old-style JPEG compression (6), which cannot be copied; "
                                   "convert it to new-style JPEG first");
        // Samples wider than a byte are stored in the file's byte order, which the copied
        // bytes can't change; a JPEG stream is the same in either order.
        if (bits > 8 && compression != COMPRESSION_JPEG && source.isBigEndian() != bigEndian_)
            return Refused(where + " has " + std::to_string(bits) + "-bit samples in " +
                           (source.isBigEndian() ? "big" : "little") +
                           "-endian order and cannot join a file of the other order");

        source.clearLog();
        tif_.clearError();
        CopyCoreTags(in, out);
        TIFFSetField(out, TIFFTAG_PAGENUMBER, static_cast<uint16_t>(pageNumber),
                     static_cast<uint16_t>(pageTotal));
        // The image can't be described without these, so a page missing one is not written.
        if (!tif_.error().empty())
            return Unreadable(WithReason("cannot copy the tags of " + where, tif_.error()));
        // Metadata libtiff refuses to write (a private tag in a shape it rejects) is left
        // behind rather than cost the user the page.
        CopyCustomTags(in, out, names_);
        tif_.clearError();
        if (auto copied = copyData(source, where); !copied)
            return copied;
        if (!TIFFWriteDirectory(out))
            return Unwritable(WithReason("cannot write " + where + " to " + target_, tif_.error()));
        return {};
    }

    Result<void> commitReady()
    {
        if (!tif_.close())
            return Unwritable(WithReason("cannot write " + target_, tif_.error()));
        return {};
    }

    Result<void> commit()
    {
        if (!file_->commit())
            return Unwritable("cannot write " + target_ + ": " + file_->reason());
        return {};
    }

private:
    Result<void> copyData(Source &source, const std::string &where)
    {
        TIFF *in = source.tif();
        TIFF *out = tif_.get();
        const bool tiled = TIFFIsTiled(in) != 0;
        const uint32_t n = tiled ? TIFFNumberOfTiles(in) : TIFFNumberOfStrips(in);
        if (n == 0 || n != (tiled ? TIFFNumberOfTiles(out) : TIFFNumberOfStrips(out)))
            return Unreadable(WithReason(
                "cannot lay out the " + std::string(tiled ? "tiles" : "strips") + " of " + where,
                source.log()));
        for (uint32_t i = 0; i < n; ++i) {
            int failed = 0;
            const uint64_t offset = TIFFGetStrileOffsetWithErr(in, i, &failed);
            const uint64_t size = failed ? 0 : TIFFGetStrileByteCountWithErr(in, i, &failed);
            // Never allocate on the word of a damaged file: the data must lie inside it.
            if (failed || offset > source.size() || size > source.size() - offset)
                return Unreadable(WithReason(where + " is damaged: its data lies outside the file",
                                             source.log()));
            // A strip never written (a sparse file) stays unwritten in the copy.
            if (size == 0)
                continue;
            if (buffer_.size() < size)
                buffer_.resize(size);
            const auto want = static_cast<tmsize_t>(size);
            const tmsize_t got = tiled ? TIFFReadRawTile(in, i, buffer_.data(), want)
                                       : TIFFReadRawStrip(in, i, buffer_.data(), want);
            if (got != want)
                return Unreadable(WithReason(where + " is cut short or damaged", source.log()));
            const tmsize_t put = tiled ? TIFFWriteRawTile(out, i, buffer_.data(), want)
                                       : TIFFWriteRawStrip(out, i, buffer_.data(), want);
            if (put != want)
                return Unwritable(
                    WithReason("cannot write " + where + " to " + target_, tif_.error()));
        }
        return {};
    }

    std::string target_;
    // Declared before the TIFF handle, which is closed first.
    std::unique_ptr<pw::OutputFile> file_;
    TiffHandle tif_;
    bool bigEndian_ = false;
    std::vector<uint8_t> buffer_;
    // Names of fields registered on the output; libtiff keeps pointers to them.
    std::deque<std::string> names_;
};

// Writes every plan to its temporary file, then renames them all into place, so that a
// failure anywhere leaves none of the outputs behind (and every input untouched).
Result<void> Run(const std::vector<Plan> &plans,
                 const std::vector<std::pair<std::string, Probe>> &probes)
{
    auto probeOf = [&](const std::string &path) -> const Probe & {
        for (const auto &[p, probe] : probes)
            if (p == path)
                return probe;
        return probes.front().second;
    };
    std::vector<std::unique_ptr<Sink>> sinks;
    std::unique_ptr<Source> source;
    for (const Plan &plan : plans) {
        int total = 0;
        bool big = false;
        std::vector<std::pair<std::string, int>> taken; // pages taken from each source
        for (const Part &part : plan.parts) {
            total += part.count;
            big = big || probeOf(part.path).big;
            auto it = std::find_if(taken.begin(), taken.end(),
                                   [&](const auto &t) { return t.first == part.path; });
            if (it == taken.end())
                taken.emplace_back(part.path, part.count);
            else
                it->second += part.count;
        }
        // An upper bound of the output's size: pages of one source are distinct unless the
        // source is taken whole more than once, so each source adds its size once per round.
        uint64_t bytes = 0;
        for (const auto &[path, count] : taken) {
            const Probe &probe = probeOf(path);
            bytes += probe.size * static_cast<uint64_t>((count + probe.pages - 1) / probe.pages);
        }
        if (total > 65535)
            return Refused("more than 65535 pages for " + plan.target);
        // The first page decides the byte order, so that a single-source output keeps its
        // own and its wide samples stay copyable.
        const bool bigEndian = probeOf(plan.parts.front().path).bigEndian;
        auto sink = std::make_unique<Sink>();
        if (auto opened = sink->open(plan.target, big || bytes > kClassicLimit, bigEndian); !opened)
            return opened;
        int number = 0;
        for (const Part &part : plan.parts) {
            // Reused while consecutive parts come from the same file, as when splitting.
            if (!source || source->path() != part.path) {
                source.reset();
                source = std::make_unique<Source>();
                if (auto opened = source->open(part.path); !opened)
                    return opened;
            }
            for (int dir = part.first; dir < part.first + part.count; ++dir) {
                if (auto found = source->seek(static_cast<tdir_t>(dir)); !found)
                    return found;
                if (auto copied = sink->copyPage(*source, number++, total); !copied)
                    return copied;
            }
        }
        if (auto ready = sink->commitReady(); !ready)
            return ready;
        sinks.push_back(std::move(sink));
    }
    source.reset();
    for (auto &sink : sinks)
        if (auto committed = sink->commit(); !committed)
            return committed;
    return {};
}

// Probes each distinct path once.
Result<void> ProbeAll(const std::vector<std::string> &paths,
                      std::vector<std::pair<std::string, Probe>> *probes)
{
    for (const std::string &path : paths) {
        bool seen = false;
        for (const auto &entry : *probes)
            seen = seen || entry.first == path;
        if (seen)
            continue;
        auto probe = ProbeFile(path);
        if (!probe)
            return probe.failure();
        probes->emplace_back(path, *probe);
    }
    return {};
}

std::string PageFileName(const std::string &source, const std::string &folder, int page)
{
    return (fs::path(folder) /
            (fs::path(source).stem().string() + "-" + std::to_string(page) + ".tif"))
        .string();
}

Result<void> IsFolder(const std::string &folder)
{
    struct stat st {};
    if (::stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        return {};
    return Failure(rte::kPathNotFound, "no such folder: " + folder);
}

} // namespace

Result<int> PageCount(const std::string &path)
{
    // Counted as the page grid counts, a broken chain giving the pages before the break.
    auto probe = ProbeFile(path, false);
    if (!probe)
        return probe.failure();
    return probe->pages;
}

Result<void> MergeTIFFs(const std::vector<std::string> &inputs, const std::string &output)
{
    if (inputs.empty())
        return Refused("no files to merge");
    std::vector<std::pair<std::string, Probe>> probes;
    if (auto probed = ProbeAll(inputs, &probes); !probed)
        return probed;
    Plan plan{output, {}};
    for (const std::string &path : inputs)
        for (const auto &[p, probe] : probes)
            if (p == path) {
                plan.parts.push_back({path, 0, probe.pages});
                break;
            }
    return Run({plan}, probes);
}

Result<void> AddTIFFPages(const std::string &first, int index, const std::string &second)
{
    if (index < 0)
        return Refused("page index " + std::to_string(index) + " is negative");
    std::vector<std::pair<std::string, Probe>> probes;
    if (auto probed = ProbeAll({first, second}, &probes); !probed)
        return probed;
    const int firstPages = probes.front().second.pages;
    const int secondPages = probes.back().second.pages;
    const int split = index < firstPages ? index : firstPages;
    Plan plan{first, {}};
    if (split > 0)
        plan.parts.push_back({first, 0, split});
    plan.parts.push_back({second, 0, secondPages});
    if (split < firstPages)
        plan.parts.push_back({first, split, firstPages - split});
    return Run({plan}, probes);
}

Result<void> DeleteTIFFPages(const std::string &path, int page)
{
    const auto probed = ProbeFile(path);
    if (!probed)
        return probed.failure();
    const Probe &probe = *probed;
    if (probe.pages == 1)
        return Refused("cannot delete the only page of " + path);
    if (page < 1 || page > probe.pages)
        return Refused("no page " + std::to_string(page) + " in " + path + " (" +
                       std::to_string(probe.pages) + " pages)");
    Plan plan{path, {}};
    if (page > 1)
        plan.parts.push_back({path, 0, page - 1});
    if (page < probe.pages)
        plan.parts.push_back({path, page, probe.pages - page});
    return Run({plan}, {{path, probe}});
}

Result<void> SplitTIFF(const std::string &source, int page, const std::string &firstOutput,
                       const std::string &secondOutput)
{
    const auto probed = ProbeFile(source);
    if (!probed)
        return probed.failure();
    const Probe &probe = *probed;
    if (page < 1 || page > probe.pages)
        return Refused("no page " + std::to_string(page) + " in " + source + " (" +
                       std::to_string(probe.pages) + " pages)");
    std::vector<Plan> plans{{firstOutput, {{source, 0, page}}}};
    if (page < probe.pages)
        plans.push_back({secondOutput, {{source, page, probe.pages - page}}});
    return Run(plans, {{source, probe}});
}

Result<void> ExtractPages(const std::string &source, int firstPage, int lastPage,
                          const std::string &folder)
{
    if (auto folderFound = IsFolder(folder); !folderFound)
        return folderFound;
    const auto probed = ProbeFile(source);
    if (!probed)
        return probed.failure();
    const Probe &probe = *probed;
    if (firstPage < 1 || lastPage < firstPage || lastPage > probe.pages)
        return Refused("pages " + std::to_string(firstPage) + " to " + std::to_string(lastPage) +
                       " are not within the " + std::to_string(probe.pages) + " pages of " +
                       source);
    std::vector<Plan> plans;
    for (int page = firstPage; page <= lastPage; ++page)
        plans.push_back({PageFileName(source, folder, page), {{source, page - 1, 1}}});
    return Run(plans, {{source, probe}});
}

Result<void> ExtractAllTIFFpages(const std::string &source, const std::string &folder)
{
    const auto pages = PageCount(source);
    if (!pages)
        return pages.failure();
    return ExtractPages(source, 1, *pages, folder);
}

} // namespace pw::tiff
