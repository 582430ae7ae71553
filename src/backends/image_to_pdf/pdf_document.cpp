#include "pdf_document.h"

#include "encoders.h"

#include <qpdf/Pipeline.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFLogger.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace pw::i2p {

namespace {

class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

std::string folderOf(const std::string &path) {
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string &path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// A fresh file beside `target`; returns its path and leaves it open in `fd`.
std::string makeTempBeside(const std::string &target, const char *tag, int &fd) {
    std::string pattern = folderOf(target) + "/." + nameOf(target) + tag + "XXXXXX";
    fd = ::mkstemp(pattern.data());
    return fd >= 0 ? pattern : std::string();
}

std::shared_ptr<QPDFLogger> silentLogger() {
    auto logger = QPDFLogger::create();
    logger->setInfo(logger->discard());
    logger->setWarn(logger->discard());
    logger->setError(logger->discard());
    return logger;
}

bool preadAll(int fd, uint64_t offset, uint64_t length, Pipeline *out) {
    std::vector<unsigned char> buf(std::min<uint64_t>(length, 1u << 20));
    while (length > 0) {
        const ssize_t n =
            ::pread(fd, buf.data(), std::min<uint64_t>(length, buf.size()), off_t(offset));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        out->write(buf.data(), size_t(n));
        offset += uint64_t(n);
        length -= uint64_t(n);
    }
    return true;
}

std::string number(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4f", v);
    std::string s = text;
    s.erase(s.find_last_not_of('0') + 1);
    if (s.back() == '.')
        s.pop_back();
    return s;
}

int iccComponents(const std::string &icc) {
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

const char *deviceName(ColourModel m) {
    switch (m) {
    case ColourModel::Rgb:
        return "/DeviceRGB";
    case ColourModel::Cmyk:
        return "/DeviceCMYK";
    default:
        return "/DeviceGray";
    }
}

const char *filterName(Filter f) {
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

} // namespace

// Encoded page data waiting for the write, in an unlinked file beside the target.
class Spool {
public:
    explicit Spool(int fd) : fd_(fd) {}
    int fd() const { return fd_.get(); }
    uint64_t append(const std::vector<uint8_t> &bytes) {
        const uint64_t at = size_;
        size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n =
                ::pwrite(fd(), bytes.data() + done, bytes.size() - done, off_t(at + done));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                throw ApFailure(75, "Path/File access error: cannot write the page data");
            done += size_t(n);
        }
        size_ += bytes.size();
        return at;
    }

private:
    Fd fd_;
    uint64_t size_ = 0;
};

namespace {

// Pulls a stream's data from the spool or from the input file at write time.
class RangeProvider : public QPDFObjectHandle::StreamDataProvider {
public:
    RangeProvider(std::shared_ptr<Spool> spool, uint64_t offset, uint64_t length)
        : spool_(std::move(spool)) {
        source_.ranges.emplace_back(offset, length);
    }
    explicit RangeProvider(FileRanges source) : source_(std::move(source)) {}

    void provideStreamData(QPDFObjGen const &, Pipeline *pipeline) override {
        Fd own(spool_ ? -1 : ::open(source_.path.c_str(), O_RDONLY | O_CLOEXEC));
        const int fd = spool_ ? spool_->fd() : own.get();
        if (fd < 0)
            throw std::runtime_error("input file gone: " + source_.path);
        if (!spool_) {
            struct stat st {};
            if (::fstat(fd, &st) != 0 || int64_t(st.st_size) != source_.fileSize ||
                int64_t(st.st_mtime) != source_.modified)
                throw std::runtime_error("input file changed: " + source_.path);
        }
        for (const auto &[offset, length] : source_.ranges)
            if (!preadAll(fd, offset, length, pipeline))
                throw std::runtime_error("input file cut short: " + source_.path);
        pipeline->finish();
    }

private:
    std::shared_ptr<Spool> spool_;
    FileRanges source_;
};

} // namespace

std::unique_ptr<PdfDocument> PdfDocument::create(const std::string &target) {
    if (target.empty() || target.back() == '/')
        return nullptr;
    struct stat st {};
    if (::stat(target.c_str(), &st) == 0 &&
        (!S_ISREG(st.st_mode) || ::access(target.c_str(), W_OK) != 0))
        return nullptr;
    auto doc = std::make_unique<PdfDocument>();
    doc->target_ = target;
    int fd = -1;
    doc->temp_ = makeTempBeside(target, ".pw-", fd);
    if (fd < 0)
        return nullptr;
    // mkstemp makes owner-only files; a finished PDF gets the usual permissions.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
    ::close(fd);
    int spoolFd = -1;
    const std::string spoolPath = makeTempBeside(target, ".pw-spool-", spoolFd);
    if (spoolFd < 0)
        return nullptr; // the destructor removes the temporary file
    ::unlink(spoolPath.c_str());
    doc->spool_ = std::make_shared<Spool>(spoolFd);
    doc->pdf_ = std::make_shared<QPDF>();
    doc->pdf_->setLogger(silentLogger());
    doc->pdf_->setSuppressWarnings(true);
    doc->pdf_->emptyPDF();
    return doc;
}

PdfDocument::~PdfDocument() { discardOutput(); }

void PdfDocument::discardOutput() {
    if (!finished_ && !temp_.empty())
        ::unlink(temp_.c_str());
    temp_.clear();
}

Filter PdfDocument::wantedFor(int depth) const {
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

int PdfDocument::addFile(const std::string &path) {
    try {
        return isPdfFile(path) ? addPdfFile(path) : addImageFile(path);
    } catch (const ApFailure &) {
        throw;
    } catch (const std::bad_alloc &) {
        throw outOfMemory();
    } catch (const QPDFExc &e) {
        throw invalidFormat(std::string("PDF: ") + e.getMessageDetail());
    } catch (const std::exception &e) {
        throw invalidFormat(e.what());
    }
}

int PdfDocument::addImageFile(const std::string &path) {
    std::vector<QPDFObjectHandle> pages;
    bool fellBack = false;
    const ReadOutcome outcome = readImageFile(path, [&](PageSource &page) {
        const Filter wanted = wantedFor(page.depth());
        std::optional<EncodedImage> img = page.asIs(wanted);
        if (!img) {
            try {
                bool fb = false;
                img = encodeRaster(page.decode(), wanted, fb);
                fellBack = fellBack || fb;
            } catch (const ApFailure &) {
                // A page that only its stored form can carry keeps it.
                if (wanted == Filter::None || !(img = page.asIs(Filter::None)))
                    throw;
                fellBack = true;
            }
        }
        pages.push_back(makePage(*img, page.xdpi, page.ydpi));
    });
    QPDFPageDocumentHelper helper(*pdf_);
    for (auto &p : pages)
        helper.addPage(QPDFPageObjectHelper(p), false);
    pageCount_ += int(pages.size());
    if (outcome == ReadOutcome::Partial)
        return -2;
    return fellBack ? -3 : 0;
}

int PdfDocument::addPdfFile(const std::string &path) {
    auto src = std::make_shared<QPDF>();
    src->setLogger(silentLogger());
    src->setSuppressWarnings(true);
    src->setAttemptRecovery(true);
    try {
        src->processFile(path.c_str());
    } catch (const QPDFExc &e) {
        if (e.getErrorCode() == qpdf_e_password)
            throw invalidFormat("PDF: protected by a password: " + path);
        throw invalidFormat("PDF: " + e.getMessageDetail());
    }
    QPDFPageDocumentHelper srcPages(*src);
    // Copied pages leave the source's page tree behind, and with it what they inherit.
    srcPages.pushInheritedAttributesToPage();
    const auto pages = srcPages.getAllPages();
    if (pages.empty())
        throw invalidFormat("PDF: no pages: " + path);
    QPDFPageDocumentHelper dest(*pdf_);
    size_t added = 0;
    try {
        for (const auto &page : pages) {
            dest.addPage(page, false);
            ++added;
        }
    } catch (...) {
        auto all = dest.getAllPages();
        for (size_t i = 0; i < added && !all.empty(); ++i) {
            dest.removePage(all.back());
            all.pop_back();
        }
        throw;
    }
    pageCount_ += int(added);
    sources_.push_back(src);
    if (src->getPDFVersion() > version_)
        version_ = src->getPDFVersion();
    return 0;
}

QPDFObjectHandle PdfDocument::colourSpace(const ColourSpace &cs, int bpc) {
    if (cs.model == ColourModel::Indexed) {
        const int baseComps = cs.base == ColourModel::Gray ? 1 : 3;
        std::string palette = cs.palette;
        const size_t maxEntries = size_t(1) << std::min(bpc, 8);
        size_t entries = std::clamp<size_t>(palette.size() / baseComps, 1, maxEntries);
        palette.resize(entries * baseComps, '\0');
        auto arr = QPDFObjectHandle::newArray();
        arr.appendItem(QPDFObjectHandle::newName("/Indexed"));
        arr.appendItem(QPDFObjectHandle::newName(deviceName(cs.base)));
        arr.appendItem(QPDFObjectHandle::newInteger(int64_t(entries) - 1));
        arr.appendItem(QPDFObjectHandle::newString(palette));
        return arr;
    }
    const int comps = cs.components();
    if (!cs.icc.empty() && iccComponents(cs.icc) == comps) {
        auto found = iccProfiles_.find(cs.icc);
        if (found == iccProfiles_.end()) {
            auto stream = QPDFObjectHandle::newStream(pdf_.get());
            const auto packed =
                deflateBytes(reinterpret_cast<const uint8_t *>(cs.icc.data()), cs.icc.size());
            stream.replaceStreamData(std::string(packed.begin(), packed.end()),
                                     QPDFObjectHandle::newName("/FlateDecode"),
                                     QPDFObjectHandle::newNull());
            stream.getDict().replaceKey("/N", QPDFObjectHandle::newInteger(comps));
            stream.getDict().replaceKey("/Alternate",
                                        QPDFObjectHandle::newName(deviceName(cs.model)));
            auto arr = QPDFObjectHandle::newArray();
            arr.appendItem(QPDFObjectHandle::newName("/ICCBased"));
            arr.appendItem(stream);
            found = iccProfiles_.emplace(cs.icc, pdf_->makeIndirectObject(arr)).first;
        }
        return found->second;
    }
    return QPDFObjectHandle::newName(deviceName(cs.model));
}

QPDFObjectHandle PdfDocument::makeImage(const EncodedImage &img) {
    auto stream = QPDFObjectHandle::newStream(pdf_.get());
    auto dict = stream.getDict();
    dict.replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
    dict.replaceKey("/Subtype", QPDFObjectHandle::newName("/Image"));
    dict.replaceKey("/Width", QPDFObjectHandle::newInteger(img.width));
    dict.replaceKey("/Height", QPDFObjectHandle::newInteger(img.height));
    if (img.bpc > 0)
        dict.replaceKey("/BitsPerComponent", QPDFObjectHandle::newInteger(img.bpc));
    if (img.statesColourSpace)
        dict.replaceKey("/ColorSpace", colourSpace(img.cs, img.bpc));
    if (!img.decode.empty()) {
        auto arr = QPDFObjectHandle::newArray();
        for (double v : img.decode)
            arr.appendItem(QPDFObjectHandle::newInteger(int64_t(v)));
        dict.replaceKey("/Decode", arr);
    }
    if (!img.colourKey.empty()) {
        auto arr = QPDFObjectHandle::newArray();
        for (int v : img.colourKey)
            arr.appendItem(QPDFObjectHandle::newInteger(v));
        dict.replaceKey("/Mask", arr);
    }
    if (img.smask)
        dict.replaceKey("/SMask", makeImage(*img.smask));
    if (img.smaskInData)
        dict.replaceKey("/SMaskInData", QPDFObjectHandle::newInteger(1));

    auto parms = QPDFObjectHandle::newNull();
    const DecodeParms &p = img.parms;
    if ((img.filter == Filter::Flate || img.filter == Filter::Lzw) && p.predictor > 1) {
        parms = QPDFObjectHandle::newDictionary();
        parms.replaceKey("/Predictor", QPDFObjectHandle::newInteger(p.predictor));
        parms.replaceKey("/Colors", QPDFObjectHandle::newInteger(p.colors));
        parms.replaceKey("/BitsPerComponent", QPDFObjectHandle::newInteger(p.bitsPerComponent));
        parms.replaceKey("/Columns", QPDFObjectHandle::newInteger(p.columns));
    } else if (img.filter == Filter::CcittG3 || img.filter == Filter::CcittG4) {
        parms = QPDFObjectHandle::newDictionary();
        parms.replaceKey("/K", QPDFObjectHandle::newInteger(p.k));
        parms.replaceKey("/Columns", QPDFObjectHandle::newInteger(p.columns));
        parms.replaceKey("/Rows", QPDFObjectHandle::newInteger(p.rows));
        if (p.blackIs1)
            parms.replaceKey("/BlackIs1", QPDFObjectHandle::newBool(true));
        if (p.encodedByteAlign)
            parms.replaceKey("/EncodedByteAlign", QPDFObjectHandle::newBool(true));
    } else if (img.filter == Filter::Dct && p.colorTransform >= 0) {
        parms = QPDFObjectHandle::newDictionary();
        parms.replaceKey("/ColorTransform", QPDFObjectHandle::newInteger(p.colorTransform));
    }
    const char *name = filterName(img.filter);
    auto filter = name ? QPDFObjectHandle::newName(name) : QPDFObjectHandle::newNull();
    std::shared_ptr<QPDFObjectHandle::StreamDataProvider> provider;
    if (!img.bytes.empty() || img.source.path.empty()) {
        const uint64_t at = spool_->append(img.bytes);
        provider = std::make_shared<RangeProvider>(spool_, at, img.bytes.size());
    } else {
        provider = std::make_shared<RangeProvider>(img.source);
    }
    stream.replaceStreamData(provider, filter, parms);
    if (img.filter == Filter::Jpx || img.bpc == 16)
        version_ = std::max(version_, std::string("1.5"));
    return stream;
}

QPDFObjectHandle PdfDocument::makePage(const EncodedImage &img, double xdpi, double ydpi) {
    const double w = img.width * 72.0 / xdpi;
    const double h = img.height * 72.0 / ydpi;
    auto image = makeImage(img);
    auto xobjects = QPDFObjectHandle::newDictionary();
    xobjects.replaceKey("/Im0", image);
    auto resources = QPDFObjectHandle::newDictionary();
    resources.replaceKey("/XObject", xobjects);
    const std::string content = "q " + number(w) + " 0 0 " + number(h) + " 0 0 cm /Im0 Do Q\n";
    auto page = QPDFObjectHandle::newDictionary();
    page.replaceKey("/Type", QPDFObjectHandle::newName("/Page"));
    auto box = QPDFObjectHandle::newArray();
    box.appendItem(QPDFObjectHandle::newInteger(0));
    box.appendItem(QPDFObjectHandle::newInteger(0));
    box.appendItem(QPDFObjectHandle::newReal(w, 4));
    box.appendItem(QPDFObjectHandle::newReal(h, 4));
    page.replaceKey("/MediaBox", box);
    page.replaceKey("/Resources", resources);
    page.replaceKey("/Contents", QPDFObjectHandle::newStream(pdf_.get(), content));
    return pdf_->makeIndirectObject(page);
}

int PdfDocument::close(bool deterministic) {
    if (pageCount_ == 0) {
        ::unlink(temp_.c_str());
        finished_ = true;
        return -2;
    }
    try {
        QPDFWriter writer(*pdf_, temp_.c_str());
        writer.setStaticID(deterministic);
        // Our streams are encoded as they should stay; left to itself the writer would turn
        // LZW and RunLength data into Flate. Content streams are a few bytes.
        writer.setCompressStreams(false);
        writer.setDecodeLevel(qpdf_dl_none);
        writer.setObjectStreamMode(qpdf_o_generate);
        writer.setMinimumPDFVersion(std::max(version_, std::string("1.5")));
        writer.write();
    } catch (const std::exception &) {
        ::unlink(temp_.c_str());
        finished_ = true;
        return -3;
    }
    if (std::rename(temp_.c_str(), target_.c_str()) != 0) {
        ::unlink(temp_.c_str());
        finished_ = true;
        return -3;
    }
    finished_ = true;
    return 0;
}

} // namespace pw::i2p
