#include "pdf_document.h"

#include "encoders.h"
#include "glyphless_font.h"
#include "metafile_player.h"
#include "module_failure.h"
#include "module_loader.h"
#include "output_file.h"
#include "pdf_reading.h"
#include "writer_sink.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <future>

namespace pw::i2p {

namespace {

std::string reference(int object)
{
    return std::to_string(object) + " 0 R";
}

std::vector<uint8_t> flate(const std::string &text)
{
    return deflateBytes(reinterpret_cast<const uint8_t *>(text.data()), text.size());
}

// Writes the text layer's font and returns the number of the object to name in /Resources.
int writeGlyphlessFont(PdfWriter &out)
{
    const std::vector<uint8_t> program = glyphlessTrueType();
    const int file = out.reserve();
    out.writeStream(file, " /Length1 " + std::to_string(program.size()) + " /Filter /FlateDecode",
                    deflateBytes(program.data(), program.size()));
    const int descriptor = out.reserve();
    out.beginObject(descriptor);
    out.write(glyphlessDescriptor(reference(file)));
    out.endObject();
    const std::vector<uint8_t> glyphs = glyphlessCidToGid();
    const int cidToGid = out.reserve();
    out.writeStream(cidToGid, " /Filter /FlateDecode", deflateBytes(glyphs.data(), glyphs.size()));
    const int cidFont = out.reserve();
    out.beginObject(cidFont);
    out.write(glyphlessCidFont(reference(descriptor), reference(cidToGid)));
    out.endObject();
    const int toUnicode = out.reserve();
    out.writeStream(toUnicode, " /Filter /FlateDecode", flate(glyphlessToUnicode()));
    const int type0 = out.reserve();
    out.beginObject(type0);
    out.write(glyphlessType0(reference(cidFont), reference(toUnicode)));
    out.endObject();
    return type0;
}

int iccComponents(const std::string &icc)
{
    if (icc.size() < 132 || icc.compare(36, 4, "acsp") != 0)
        return 0;
    const std::string space = icc.substr(16, 4);
    if (space == "GRAY")
        return 1;
    if (space == "RGB ")
        return 3;
    if (space == "CMYK")
        return 4;
    return 0;
}

const char *deviceName(ColourModel m)
{
    switch (m) {
    case ColourModel::Rgb:
        return "/DeviceRGB";
    case ColourModel::Cmyk:
        return "/DeviceCMYK";
    default:
        return "/DeviceGray";
    }
}

const char *filterName(Filter f)
{
    switch (f) {
    case Filter::Flate:
        return "/FlateDecode";
    case Filter::Lzw:
        return "/LZWDecode";
    case Filter::RunLength:
        return "/RunLengthDecode";
    case Filter::Dct:
        return "/DCTDecode";
    case Filter::CcittG3:
    case Filter::CcittG4:
        return "/CCITTFaxDecode";
    case Filter::Jpx:
        return "/JPXDecode";
    case Filter::None:
        break;
    }
    return nullptr;
}

constexpr int kCatalog = 1;
constexpr int kPages = 2;

} // namespace

std::unique_ptr<PdfDocument> PdfDocument::create(const std::string &target)
{
    if (target.empty() || target.back() == '/')
        return nullptr;
    // A file the user made read-only is not ours to replace; what else the name may hold is for
    // the output file to judge.
    struct stat st {};
    if (::stat(target.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
        ::access(target.c_str(), W_OK) != 0)
        return nullptr;
    auto doc = std::make_unique<PdfDocument>();
    doc->target_ = target;
    if (!doc->openOutput())
        return nullptr;
    return doc;
}

bool PdfDocument::openOutput()
{
    auto file = std::make_unique<OutputFile>(target_);
    if (file->fd() < 0)
        return false;
    file_ = std::move(file);
    out_ = std::make_unique<PdfWriter>(file_->fd());
    out_->reserve(); // kCatalog
    out_->reserve(); // kPages
    return true;
}

void PdfDocument::discardOutput()
{
    out_.reset();
    file_.reset();
}

Filter PdfDocument::wantedFor(int depth) const
{
    switch (depth) {
    case 1:
        return recompression_[0];
    case 8:
        return recompression_[1];
    case 24:
        return recompression_[2];
    default:
        return Filter::None;
    }
}

void PdfDocument::needVersion(const std::string &version)
{
    version_ = std::max(version_, version);
}

Result<int> PdfDocument::addFile(const std::string &path)
{
    if (!out_ && !openOutput())
        return failure(rte::kPathFileAccessError, "cannot write the PDF: " + target_);
    const PdfWriter::Mark mark = out_->mark();
    const size_t pages = pages_.size();
    const std::string version = version_;
    auto rollback = [&] {
        pages_.resize(pages);
        version_ = version;
        std::erase_if(iccProfiles_, [&](const auto &e) { return size_t(e.second) > mark.objects; });
        if (size_t(ocrFont_) > mark.objects)
            ocrFont_ = 0;
        pendingText_.clear();
        // A caller may abandon a document whose file failed without closing it; one with no
        // page keeps no file open until it is given another.
        if (pages_.empty())
            discardOutput();
        else
            out_->rollback(mark);
    };
    try {
        const FileHead file(path);
        if (file.isPdf())
            return addPdfFile(path);
        const std::string metafile = file.metafileFormat();
        return metafile.empty() ? addImageFile(file) : addMetafile(path, metafile);
    } catch (const pw::Failure &f) {
        rollback();
        return f;
    } catch (const std::bad_alloc &) {
        rollback();
        return outOfMemory();
    } catch (const std::exception &e) {
        rollback();
        return invalidFormat(e.what());
    }
}

int PdfDocument::addImageFile(const FileHead &file)
{
    bool fellBack = false;
    readImageFile(file, [&](PageSource &page) {
        const Filter wanted = wantedFor(page.depth());
        std::optional<EncodedImage> img = page.asIs(wanted);
        PageText text;
        if (!img) {
            try {
                bool fb = false;
                Raster raster = page.decode();
                text.read(raster, page);
                img = encodeRaster(std::move(raster), wanted, fb);
                fellBack = fellBack || fb;
            } catch (const pw::Failure &) {
                // A page that only its stored form can carry keeps it.
                if (wanted == Filter::None || !(img = page.asIs(Filter::None)))
                    throw;
                fellBack = true;
            }
        }
        // Stored data is read through on another core while its copy is written; a page it
        // cannot back is then rolled back with the rest of the file.
        if (!text.started())
            text.read(page);
        std::future<void> verified;
        if (img->verify)
            verified = std::async(std::launch::async, std::move(img->verify));
        writePage(*img, page, &text);
        if (verified.valid())
            verified.get();
        writeText(PageText::readers());
    });
    writeText(0);
    return fellBack ? -3 : 0;
}

int PdfDocument::addPdfFile(const std::string &path)
{
    static const auto copyPages =
        reinterpret_cast<pdf::CopyPages>(moduleSymbol(pdf::kModule, pdf::kCopyPages));
    if (!copyPages)
        throw invalidFormat("PDF: the PDF reader is not installed");
    addPdfPages([&](const pw_pdf_sink *sink, char *version, size_t size, pw_module_error *error) {
        return copyPages(path.c_str(), sink, kPages, version, size, error);
    });
    return 0;
}

// A drawing stays a drawing: the player paints it onto a PDF page of its own, whose paths and
// fills are then copied in as any PDF's pages are. Being no image, it takes no recompression.
int PdfDocument::addMetafile(const std::string &path, const std::string &format)
{
    static const auto toPdf =
        reinterpret_cast<metafile::ToPdf>(moduleSymbol(metafile::kModule, metafile::kToPdf));
    static const auto copyPages = reinterpret_cast<pdf::CopyPagesInMemory>(
        moduleSymbol(pdf::kModule, pdf::kCopyPagesInMemory));
    if (!toPdf || !copyPages)
        throw invalidFormat(format + ": the metafile player is not installed");
    const std::vector<uint8_t> data = readWholeFile(path);
    std::string drawn;
    const auto take = [](void *context, const uint8_t *bytes, size_t size) {
        static_cast<std::string *>(context)->assign(reinterpret_cast<const char *>(bytes), size);
    };
    pw_module_error error{};
    if (toPdf(data.data(), data.size(), format.c_str(), take, &drawn, &error) != PW_MODULE_OK)
        throw reported(error);
    addPdfPages([&](const pw_pdf_sink *sink, char *version, size_t size, pw_module_error *failed) {
        return copyPages(reinterpret_cast<const uint8_t *>(drawn.data()), drawn.size(),
                         path.c_str(), sink, kPages, version, size, failed);
    });
    return 0;
}

void PdfDocument::addPdfPages(
    const std::function<int32_t(const pw_pdf_sink *, char *, size_t, pw_module_error *)> &copy)
{
    WriterSink sink(*out_, pages_);
    char version[16] = "";
    pw_module_error error{};
    if (copy(sink.sink(), version, sizeof version, &error) != PW_MODULE_OK)
        sink.rethrow(error);
    needVersion(version);
}

std::string PdfDocument::colourSpace(const ColourSpace &cs, int bpc)
{
    if (cs.model == ColourModel::Indexed) {
        const int baseComps = cs.base == ColourModel::Gray ? 1 : 3;
        std::string palette = cs.palette;
        const size_t maxEntries = size_t(1) << std::min(bpc, 8);
        size_t entries = std::clamp<size_t>(palette.size() / baseComps, 1, maxEntries);
        palette.resize(entries * baseComps, '\0');
        return std::string("[/Indexed ") + deviceName(cs.base) + ' ' + std::to_string(entries - 1) +
               ' ' + pdfHexString(palette) + ']';
    }
    const int comps = cs.components();
    if (cs.icc.empty() || iccComponents(cs.icc) != comps)
        return deviceName(cs.model);
    auto found = iccProfiles_.find(cs.icc);
    if (found == iccProfiles_.end()) {
        const int number = out_->reserve();
        const auto packed =
            deflateBytes(reinterpret_cast<const uint8_t *>(cs.icc.data()), cs.icc.size());
        out_->writeStream(number,
                          " /N " + std::to_string(comps) + " /Alternate " + deviceName(cs.model) +
                              " /Filter /FlateDecode",
                          packed);
        found = iccProfiles_.emplace(cs.icc, number).first;
    }
    return "[/ICCBased " + std::to_string(found->second) + " 0 R]";
}

namespace {

std::string decodeParms(const EncodedImage &img)
{
    const DecodeParms &p = img.parms;
    auto entry = [](const char *key, int v) {
        return std::string(" /") + key + ' ' + std::to_string(v);
    };
    if ((img.filter == Filter::Flate || img.filter == Filter::Lzw) && p.predictor > 1)
        return entry("Predictor", p.predictor) + entry("Colors", p.colors) +
               entry("BitsPerComponent", p.bitsPerComponent) + entry("Columns", p.columns);
    if (img.filter == Filter::CcittG3 || img.filter == Filter::CcittG4)
        return entry("K", p.k) + entry("Columns", p.columns) + entry("Rows", p.rows) +
               (p.blackIs1 ? " /BlackIs1 true" : "") +
               (p.encodedByteAlign ? " /EncodedByteAlign true" : "");
    if (img.filter == Filter::Dct && p.colorTransform >= 0)
        return entry("ColorTransform", p.colorTransform);
    return {};
}

// "1 2.5 3" of {1, 2.5, 3}.
std::string numberList(const auto &values)
{
    std::string text;
    for (auto v : values)
        text += pdfNumber(double(v)) + ' ';
    if (!text.empty())
        text.pop_back();
    return text;
}

std::string numberArray(const auto &values)
{
    return '[' + numberList(values) + ']';
}

} // namespace

int PdfDocument::writeImage(const EncodedImage &img)
{
    std::string dict = " /Type /XObject /Subtype /Image /Width " + std::to_string(img.width) +
                       " /Height " + std::to_string(img.height);
    if (img.bpc > 0)
        dict += " /BitsPerComponent " + std::to_string(img.bpc);
    if (img.statesColourSpace)
        dict += " /ColorSpace " + colourSpace(img.cs, img.bpc);
    if (!img.decode.empty())
        dict += " /Decode " + numberArray(img.decode);
    if (!img.colourKey.empty())
        dict += " /Mask " + numberArray(img.colourKey);
    if (img.smask)
        dict += " /SMask " + std::to_string(writeImage(*img.smask)) + " 0 R";
    if (img.smaskInData)
        dict += " /SMaskInData 1";
    if (const char *name = filterName(img.filter))
        dict += std::string(" /Filter ") + name;
    if (const std::string parms = decodeParms(img); !parms.empty())
        dict += " /DecodeParms <<" + parms + " >>";
    if (img.filter == Filter::Jpx || img.bpc == 16)
        needVersion("1.5");
    const int number = out_->reserve();
    if (!img.bytes.empty() || img.source.path.empty())
        out_->writeStream(number, dict, img.bytes);
    else
        out_->writeStream(number, dict, img.source);
    return number;
}

void PdfDocument::writePage(const EncodedImage &img, const PageSource &page, PageText *text)
{
    const Placement place =
        placeImage(layout_, img.width, img.height, page.xdpi, page.ydpi, page.orientation);
    const std::string placed = numberList(place.matrix);
    const int image = writeImage(img);
    const int content = out_->reserve();
    std::string drawing = "q ";
    if (place.clip)
        drawing += numberList(*place.clip) + " re W n ";
    drawing += placed + " cm /Im0 Do Q\n";
    out_->writeStream(content, "", std::vector<uint8_t>(drawing.begin(), drawing.end()));
    std::string contents = std::to_string(content) + " 0 R";
    std::string fonts;
    if (text && text->wanted()) {
        // The words follow in a stream of their own, written once they are read, so that the
        // next pages are decoded and read meanwhile. They lie in the image's own space, so they
        // follow it however it is turned, mirrored or fitted.
        const int words = out_->reserve();
        pendingText_.push_back({words, placed, img.width, img.height, std::move(*text)});
        contents = '[' + contents + ' ' + std::to_string(words) + " 0 R]";
        if (!ocrFont_)
            ocrFont_ = writeGlyphlessFont(*out_);
        fonts = " /Font << /" + std::string(kOcrFont) + ' ' + std::to_string(ocrFont_) + " 0 R >>";
    }
    const int pageObject = out_->reserve();
    out_->beginObject(pageObject);
    out_->write("<< /Type /Page /Parent " + std::to_string(kPages) + " 0 R /MediaBox [0 0 " +
                pdfNumber(place.width) + ' ' + pdfNumber(place.height) + ']' +
                (place.rotate ? " /Rotate " + std::to_string(place.rotate) : std::string()) +
                " /Resources << /XObject << /Im0 " + std::to_string(image) + " 0 R >>" + fonts +
                " >> /Contents " + contents + " >>");
    out_->endObject();
    pages_.push_back(pageObject);
}

void PdfDocument::writeText(size_t waiting)
{
    while (pendingText_.size() > waiting) {
        PendingText &next = pendingText_.front();
        const std::string layer =
            "q " + next.placed + " cm " + next.text.layer(next.width, next.height) + "Q\n";
        out_->writeStream(next.object, " /Filter /FlateDecode", flate(layer));
        pendingText_.pop_front();
    }
}

Result<int> PdfDocument::close(bool deterministic)
{
    if (pages_.empty()) {
        discardOutput();
        return -2;
    }
    Result<int> status = 0;
    try {
        std::string kids;
        for (int page : pages_)
            kids += std::to_string(page) + " 0 R ";
        out_->beginObject(kPages);
        out_->write("<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages_.size()) +
                    " >>");
        out_->endObject();
        out_->beginObject(kCatalog);
        out_->write("<< /Type /Catalog /Pages " + std::to_string(kPages) + " 0 R >>");
        out_->endObject();
        out_->finish(kCatalog, version_, deterministic);
        if (!file_->commit())
            status = Failure(rte::kPathFileAccessError, file_->reason());
    } catch (const std::exception &e) {
        status = Failure(rte::kPathFileAccessError, e.what());
    }
    discardOutput();
    return status;
}

} // namespace pw::i2p
