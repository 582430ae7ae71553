#include "pdf_pages.h"

#include "block_input_source.h"
#include "glyphless_font.h"
#include "module_failure.h"
#include "output_file.h"
#include "page_range.h"
#include "quiet_qpdf.h"
#include "trusted_page_count.h"

#include <qpdf/ClosedFileInputSource.hh>
#include <qpdf/PDFVersion.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFAcroFormDocumentHelper.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFOutlineDocumentHelper.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace {

namespace rte = pw::rte;
using pw::failure;
using pw::invalidFormat;

// Tried on every encrypted PDF this thread opens; set through pw_pages_set_password.
thread_local std::string password;

// Beyond this many sources a merge reopens each file whenever it reads from it, as the qpdf
// tool does: a merge of thousands of scans must not run out of file descriptors.
constexpr size_t kSourcesKeptOpen = 200;
// Handles left open by a careless caller must not eat the process's memory.
constexpr size_t kMaxHandles = 1024;

// `writing` tells a missing folder for a new file from a missing file to read; `why` replaces
// the system's words for `error`.
pw::Failure systemFailure(int error, const std::string &path, bool writing = false,
                          const std::string &why = {})
{
    int number = rte::kDeviceIoError;
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        number = writing ? rte::kPathNotFound : rte::kFileNotFound;
        break;
    case EACCES:
    case EPERM:
    case EROFS:
        number = rte::kPermissionDenied;
        break;
    case ENOSPC:
    case EDQUOT:
        number = rte::kDiskFull;
        break;
    case EISDIR:
    case ENAMETOOLONG:
        number = rte::kPathFileAccessError;
        break;
    case EMFILE:
    case ENFILE:
        number = rte::kTooManyFiles;
        break;
    case ENOMEM:
        number = rte::kOutOfMemory;
        break;
    }
    return failure(number, path + ": " + (why.empty() ? std::strerror(error) : why));
}

pw::Failure invalidCall(const std::string &cause)
{
    return failure(rte::kInvalidCall, cause);
}

// The caller names the file; the reason is what the user can act on.
void rethrowPassword(const QPDFExc &e)
{
    if (e.getErrorCode() != qpdf_e_password)
        throw;
    // Without "Invalid file format" before it: the file is whole, only locked.
    throw pw::Failure(rte::kInvalidFileFormat, password.empty()
                                                   ? "needs a password"
                                                   : "the password given does not open it");
}

// Opened by us rather than by qpdf, so that a missing file is told from a damaged one.
std::unique_ptr<QPDF> openPdf(const std::string &path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw systemFailure(errno, path);
    const auto input = std::make_shared<pw::BlockInputSource>(path, fd);
    auto pdf = std::make_unique<QPDF>();
    pw::quieten(*pdf);
    pdf->setAttemptRecovery(true);
    try {
        pdf->processInputSource(input, password.c_str());
    } catch (const QPDFExc &e) {
        rethrowPassword(e);
    }
    return pdf;
}

// A source that holds no descriptor between reads.
std::unique_ptr<QPDF> openPdfClosed(const std::string &path)
{
    FILE *probe = std::fopen(path.c_str(), "rb");
    if (!probe)
        throw systemFailure(errno, path);
    std::fclose(probe);
    auto input = std::make_shared<ClosedFileInputSource>(path.c_str());
    auto pdf = std::make_unique<QPDF>();
    pw::quieten(*pdf);
    pdf->setAttemptRecovery(true);
    try {
        pdf->processInputSource(input, password.c_str());
    } catch (const QPDFExc &e) {
        rethrowPassword(e);
    }
    return pdf;
}

// What a page takes from the nodes above it when it does not say it itself.
constexpr const char *kInherited[] = {"/MediaBox", "/CropBox", "/Resources", "/Rotate"};

// qpdf gives up on a page tree that loops back on itself; the pages reachable without the
// loop are still the user's. When a node of the tree is met twice, the tree is rebuilt in
// memory as one node holding those pages, each with what it inherited.
void untanglePageTree(QPDF &pdf)
{
    QPDFObjectHandle root = pdf.getRoot().getKey("/Pages");
    if (!root.isDictionary())
        return;
    struct Node {
        QPDFObjectHandle oh;
        std::map<std::string, QPDFObjectHandle> inherited;
    };
    std::set<QPDFObjGen> nodes;
    std::vector<Node> pages;
    std::vector<Node> stack{{root, {}}};
    bool tangled = false;
    while (!stack.empty()) {
        Node node = std::move(stack.back());
        stack.pop_back();
        QPDFObjectHandle kids = node.oh.getKey("/Kids");
        if (!kids.isArray()) {
            pages.push_back(std::move(node));
            continue;
        }
        if (node.oh.isIndirect() && !nodes.insert(node.oh.getObjGen()).second) {
            tangled = true;
            continue;
        }
        for (const char *key : kInherited)
            if (node.oh.hasKey(key))
                node.inherited[key] = node.oh.getKey(key);
        const int count = kids.getArrayNItems();
        for (int i = count - 1; i >= 0; --i) {
            QPDFObjectHandle kid = kids.getArrayItem(i);
            if (kid.isDictionary())
                stack.push_back({kid, node.inherited});
        }
    }
    if (!tangled)
        return;
    QPDFObjectHandle flat = QPDFObjectHandle::newArray();
    for (Node &page : pages) {
        for (const auto &[key, value] : page.inherited)
            if (!page.oh.hasKey(key))
                page.oh.replaceKey(key, value);
        page.oh.replaceKey("/Parent", root);
        flat.appendItem(page.oh);
    }
    root.replaceKey("/Kids", flat);
    root.replaceKey("/Count", QPDFObjectHandle::newInteger(flat.getArrayNItems()));
}

// The resource dictionaries, and their font and image dictionaries, that more than one page
// uses: many producers give every page the resources of the whole document, and a page copied
// alone would then carry all of them. Found from the page objects alone; no contents are read.
std::set<QPDFObjGen> sharedResources(QPDF &pdf)
{
    std::set<QPDFObjGen> seen, shared;
    const auto note = [&](QPDFObjectHandle oh) {
        if (oh.isIndirect() && !seen.insert(oh.getObjGen()).second)
            shared.insert(oh.getObjGen());
    };
    for (QPDFObjectHandle page : pdf.getAllPages()) {
        QPDFObjectHandle resources = page.getKey("/Resources");
        if (!resources.isDictionary())
            continue;
        note(resources);
        for (const char *kind : {"/Font", "/XObject"})
            note(resources.getKey(kind));
    }
    return shared;
}

// Trims the resources of one page to those its contents use; only then is a page's contents
// read. The page gets a copy of a shared dictionary first (qpdf does that), so the pages that
// share it keep theirs.
void trimResources(QPDFObjectHandle page)
{
    try {
        QPDFPageObjectHelper(page).removeUnreferencedResources();
    } catch (const std::bad_alloc &) {
        throw;
    } catch (...) {
        // A page whose contents cannot be parsed keeps its resources: larger, not wrong.
    }
}

// Page `number` (1-based) found through the counts of the page tree, reading only the nodes on
// the way down; the page gets what it inherits from them. A null handle when the counts do not
// lead to a page: the tree is then walked whole.
QPDFObjectHandle pageByCounts(QPDF &pdf, int number)
{
    std::map<std::string, QPDFObjectHandle> inherited;
    std::set<QPDFObjGen> path;
    QPDFObjectHandle node = pdf.getRoot().getKey("/Pages");
    long long left = number;
    while (node.isDictionary() && (!node.isIndirect() || path.insert(node.getObjGen()).second)) {
        QPDFObjectHandle kids = node.getKey("/Kids");
        if (!kids.isArray()) {
            if (left != 1)
                break;
            for (const auto &[key, value] : inherited)
                if (!node.hasKey(key))
                    node.replaceKey(key, value);
            return node;
        }
        for (const char *key : kInherited)
            if (node.hasKey(key))
                inherited[key] = node.getKey(key);
        const int n = kids.getArrayNItems();
        QPDFObjectHandle next;
        // Most trees are one node of pages: the page is found without reading its neighbours.
        if (node.getKey("/Count").isInteger() && node.getKey("/Count").getIntValue() == n &&
            left <= n) {
            next = kids.getArrayItem(int(left - 1));
            if (next.isDictionary() && !next.getKey("/Kids").isArray()) {
                node = next;
                left = 1;
                continue;
            }
        }
        // Elsewhere every kid of the node is counted, so that a count that does not add up
        // sends the lookup to the walk instead of to a wrong page.
        next = QPDFObjectHandle();
        long long total = 0, within = 0;
        for (int i = 0; i < n; ++i) {
            QPDFObjectHandle kid = kids.getArrayItem(i);
            if (!kid.isDictionary())
                continue;
            long long pages = 1;
            if (kid.getKey("/Kids").isArray()) {
                QPDFObjectHandle count = kid.getKey("/Count");
                if (!count.isInteger() || count.getIntValue() < 0)
                    return {};
                pages = count.getIntValue();
            }
            if (!next.isInitialized() && left <= total + pages) {
                next = kid;
                within = left - total;
            }
            total += pages;
        }
        QPDFObjectHandle count = node.getKey("/Count");
        if (!next.isInitialized() || !count.isInteger() || count.getIntValue() != total)
            break;
        left = within;
        node = next;
    }
    return {};
}

// The count of a page tree that is one node of pages, as most writers make them, when the
// node claims as many pages as it lists and its first and last kids are pages; -1 otherwise.
// Believed without reading the pages between, which is what a walk would cost: 3.5 KB of
// memory for every page of the file.
int64_t flatCount(QPDF &pdf)
{
    const int64_t claimed = pw::trustworthyCount(pdf);
    QPDFObjectHandle kids = pdf.getRoot().getKey("/Pages").getKey("/Kids");
    if (claimed < 1 || claimed != kids.getArrayNItems())
        return -1;
    for (QPDFObjectHandle kid : {kids.getArrayItem(0), kids.getArrayItem(int(claimed - 1))})
        if (!kid.isDictionary() || kid.hasKey("/Kids"))
            return -1;
    return claimed;
}

// A PDF whose pages are copied out, opened once for every copy. Nothing here reads more of
// the file than it must: a page's contents are read only when that page is copied, and a
// source asked for some of its pages reads only the nodes of its page tree that lead to them,
// so that one page of a 30,000-page file costs about what one page of a short one does.
class Source {
public:
    explicit Source(std::unique_ptr<QPDF> opened) : pdf(std::move(opened))
    {
        QPDFObjectHandle acroForm = pdf->getRoot().getKey("/AcroForm");
        if (acroForm.isDictionary() && acroForm.getKey("/Fields").isArray()) {
            // Fields are linked to their pages across the whole document.
            readWhole();
            forms = std::make_unique<QPDFAcroFormDocumentHelper>(*pdf);
        }
    }

    // For every page in turn: the true count, not the one the tree claims.
    void readWhole()
    {
        if (whole_)
            return;
        whole_ = true;
        untanglePageTree(*pdf);
        // Pages copied before were found through the counts, behind qpdf's cache of pages.
        pdf->updateAllPagesCache();
        // Copied pages leave the source's page tree behind, and with it what they inherit.
        QPDFPageDocumentHelper(*pdf).pushInheritedAttributesToPage();
    }

    // The pages of `range`, all of them for "". A few are found through the tree's counts; for
    // more, the tree is read whole, which costs less than trimming the resources of every page
    // found by counts, and for all, the pages are those the tree really holds.
    std::vector<int> pagesOf(const std::string &range)
    {
        if (range.empty())
            readWhole();
        std::vector<int> numbers = pw::pages::pagesOfRange(range, pageCount());
        if (!whole_ && numbers.size() > kFewPages) {
            readWhole();
            numbers = pw::pages::pagesOfRange(range, pageCount());
        }
        return numbers;
    }

    bool whole() const { return whole_; }

    int pageCount()
    {
        if (!whole_) {
            const int64_t claimed = pw::trustworthyCount(*pdf);
            if (claimed > 0)
                return int(std::min<int64_t>(claimed, INT_MAX));
            readWhole();
        }
        return int(std::min<size_t>(pdf->getAllPages().size(), INT_MAX));
    }

    // Page `number` (1-based), ready to be copied alone.
    QPDFObjectHandle page(int number)
    {
        QPDFObjectHandle oh;
        if (!whole_)
            oh = pageByCounts(*pdf, number);
        if (!oh.isInitialized()) {
            readWhole();
            oh = pdf->getAllPages().at(size_t(number - 1));
        }
        if (sharesResources(oh))
            trimResources(oh);
        return oh;
    }

    // Lets `out` take the page through qpdf, which first pushes what every page of its source
    // inherits down to the pages, and copies the page with the tree above it. Read by counts,
    // the source's tree is shown to qpdf as this page alone.
    void addTo(QPDF &out, QPDFObjectHandle page)
    {
        if (whole_) {
            QPDFPageDocumentHelper(out).addPage(QPDFPageObjectHelper(page), false);
            return;
        }
        QPDFObjectHandle root = pdf->getRoot().getKey("/Pages");
        const QPDFObjectHandle parent = page.getKey("/Parent");
        std::map<std::string, QPDFObjectHandle> kept;
        for (const char *key :
             {"/Kids", "/Count", "/MediaBox", "/CropBox", "/Resources", "/Rotate"})
            if (root.hasKey(key))
                kept[key] = root.getKey(key);
        const auto restore = [&] {
            for (const char *key : kInherited)
                root.removeKey(key);
            for (const auto &[key, value] : kept)
                root.replaceKey(key, value);
            page.replaceKey("/Parent", parent);
        };
        // The page holds what it inherits already; left on the root, a direct value would have
        // qpdf number every object of the file to make it indirect.
        for (const char *key : kInherited)
            root.removeKey(key);
        root.replaceKey("/Kids", QPDFObjectHandle::newArray({page}));
        root.replaceKey("/Count", QPDFObjectHandle::newInteger(1));
        page.replaceKey("/Parent", root);
        try {
            QPDFPageDocumentHelper(out).addPage(QPDFPageObjectHelper(page), false);
        } catch (...) {
            restore();
            throw;
        }
        restore();
    }

    std::unique_ptr<QPDF> pdf;
    // Only for sources with form fields: their widgets need fixing on every copy.
    std::unique_ptr<QPDFAcroFormDocumentHelper> forms;

private:
    // Whether a resource dictionary the page uses is another page's too, so that copying the
    // page alone would carry all of it. Read whole, that is found from the page objects; read
    // by counts, any resource held apart from the page is taken to be shared, which costs
    // reading this one page's contents.
    bool sharesResources(QPDFObjectHandle page)
    {
        QPDFObjectHandle resources = page.getKey("/Resources");
        if (!resources.isDictionary())
            return false;
        if (whole_ && !shared)
            shared = sharedResources(*pdf);
        for (QPDFObjectHandle oh :
             {resources, resources.getKey("/Font"), resources.getKey("/XObject")})
            if (oh.isIndirect() && (!whole_ || shared->count(oh.getObjGen())))
                return true;
        return false;
    }

    static constexpr size_t kFewPages = 32;

    bool whole_ = false;
    std::optional<std::set<QPDFObjGen>> shared;
};

// Appends page `number` (1-based) of `source` to `out`.
void copyPage(QPDF &out, std::unique_ptr<QPDFAcroFormDocumentHelper> &outForms, Source &source,
              int number)
{
    QPDFObjectHandle page = source.page(number);
    source.addTo(out, page);
    if (!source.forms)
        return;
    if (!outForms)
        outForms = std::make_unique<QPDFAcroFormDocumentHelper>(out);
    try {
        outForms->fixCopiedAnnotations(out.getAllPages().back(), page, *source.forms);
    } catch (const std::bad_alloc &) {
        throw;
    } catch (...) {
        // The page is there; only its fields stay unlinked, as in the qpdf tool.
    }
}

// Writes `pdf` to `target` through the output file: neither a reader nor a crash ever meets a
// half-written PDF under the target's name, and a target that is one of the sources is read to
// the end before it is replaced. A file rewritten `inPlace` is the user's own: the write waits
// for the disk before it takes the old one's place, and its streams keep their bytes (qpdf
// would otherwise recode LZW and ASCII streams), so an edit changes only what it is about.
void writeReplacing(QPDF &pdf, const std::string &target, const PDFVersion &version, bool inPlace)
{
    pw::OutputFile output(target);
    std::FILE *file = output.stream();
    if (!file)
        throw systemFailure(output.error(), target, true, output.reason());
    QPDFWriter writer(pdf);
    writer.setOutputFile(target.c_str(), file, false);
    writer.setMinimumPDFVersion(version);
    if (inPlace)
        writer.setDecodeLevel(qpdf_dl_none);
    writer.write();
    if (!output.commit(inPlace))
        throw systemFailure(output.error(), target, true, output.reason());
}

class Job {
public:
    virtual ~Job() = default;
    // "" when done, else what was left undone though nothing failed.
    virtual std::string run(int32_t code, int32_t number1, int32_t number2, const char *text1,
                            const char *text2) = 0;
    virtual void close() = 0;

    std::mutex busy;
};

class Merge : public Job {
public:
    explicit Merge(std::string output) : output_(std::move(output)) { out_.emptyPDF(); }

    std::string run(int32_t code, int32_t, int32_t, const char *text1, const char *text2) override
    {
        if (code != PW_PAGES_ADD)
            throw invalidCall("code " + std::to_string(code) + " on a merge");
        if (!text1 || !*text1)
            throw invalidCall("no file to add");
        Source &source = sourceFor(text1);
        const std::string range = text2 ? text2 : "";
        const auto numbers = source.pagesOf(range);
        const size_t before = out_.getAllPages().size();
        try {
            for (const int number : numbers)
                copyPage(out_, outForms_, source, number);
        } catch (...) {
            // A file that fails halfway adds nothing; what was copied is left unreferenced
            // and never written.
            QPDFPageDocumentHelper pages(out_);
            while (out_.getAllPages().size() > before)
                pages.removePage(QPDFPageObjectHelper(out_.getAllPages().back()));
            throw;
        }
        // Not a failure of the merge, which goes on; a caller may still want to know.
        if (numbers.empty())
            return "no page in the range " + std::string(text2 ? text2 : "");
        version_.updateIfGreater(source.pdf->getVersionAsPDFVersion());
        if (firstPages_.emplace(text1, out_.getAllPages().at(before)).second)
            order_.push_back(text1);
        return {};
    }

    void close() override
    {
        if (out_.getAllPages().empty())
            return;
        for (const std::string &path : order_) {
            try {
                addOutline(path);
            } catch (const std::bad_alloc &) {
                throw;
            } catch (...) {
                // An outline beyond repair is left out; the pages are what the user asked for.
            }
        }
        // A merge makes a new file from files that stay: waiting for the disk would only slow
        // it down, as it would the qpdf tool.
        writeReplacing(out_, output_, version_, false);
    }

private:
    Source &sourceFor(const std::string &path)
    {
        auto &slot = sources_[path];
        if (!slot) {
            try {
                slot = std::make_unique<Source>(
                    sources_.size() > kSourcesKeptOpen ? openPdfClosed(path) : openPdf(path));
            } catch (...) {
                sources_.erase(path);
                throw;
            }
        }
        return *slot;
    }

    // Puts the outline of the source `path` under an entry named after the file, which leads
    // to its first page in the merge. Its entries keep the pages that were merged; those that
    // lead to a page left out lead nowhere.
    void addOutline(const std::string &path)
    {
        QPDF &source = *sources_.at(path)->pdf;
        QPDFObjectHandle outlines = source.getRoot().getKey("/Outlines");
        if (!outlines.isDictionary() || !outlines.getKey("/First").isDictionary())
            return;
        explicitDestinations(QPDFOutlineDocumentHelper(source).getTopLevelOutlines());
        if (!outlines.isIndirect())
            outlines = source.makeIndirectObject(outlines);
        QPDFObjectHandle copied = out_.copyForeignObject(outlines);

        QPDFObjectHandle root = outlineRoot();
        QPDFObjectHandle entry = out_.makeIndirectObject(QPDFObjectHandle::newDictionary());
        entry.replaceKey("/Title", QPDFObjectHandle::newUnicodeString(
                                       std::filesystem::path(path).filename().string()));
        entry.replaceKey("/Parent", root);
        QPDFObjectHandle dest = QPDFObjectHandle::newArray();
        dest.appendItem(firstPages_.at(path));
        dest.appendItem(QPDFObjectHandle::newName("/Fit"));
        entry.replaceKey("/Dest", dest);
        entry.replaceKey("/First", copied.getKey("/First"));
        entry.replaceKey("/Last", copied.getKey("/Last"));
        std::set<QPDFObjGen> seen;
        for (QPDFObjectHandle kid = copied.getKey("/First");
             kid.isDictionary() && (!kid.isIndirect() || seen.insert(kid.getObjGen()).second);
             kid = kid.getKey("/Next"))
            kid.replaceKey("/Parent", entry);
        // Closed: the file's own entries show when the reader opens its entry.
        entry.replaceKey("/Count", QPDFObjectHandle::newInteger(-int(seen.size())));

        QPDFObjectHandle last = root.getKey("/Last");
        if (last.isDictionary()) {
            last.replaceKey("/Next", entry);
            entry.replaceKey("/Prev", last);
        } else {
            root.replaceKey("/First", entry);
        }
        root.replaceKey("/Last", entry);
        root.replaceKey("/Count",
                        QPDFObjectHandle::newInteger(root.getKey("/Count").getIntValueAsInt() + 1));
    }

    QPDFObjectHandle outlineRoot()
    {
        QPDFObjectHandle root = out_.getRoot().getKey("/Outlines");
        if (root.isDictionary())
            return root;
        root = out_.makeIndirectObject(QPDFObjectHandle::parse("<< /Type /Outlines /Count 0 >>"));
        out_.getRoot().replaceKey("/Outlines", root);
        return root;
    }

    // Named destinations live in the source's catalogue, which a merge leaves behind: each
    // entry gets the page it names written out.
    static void explicitDestinations(std::vector<QPDFOutlineObjectHelper> items)
    {
        while (!items.empty()) {
            QPDFOutlineObjectHelper item = items.back();
            items.pop_back();
            QPDFObjectHandle oh = item.getObjectHandle();
            QPDFObjectHandle dest = item.getDest();
            if (dest.isArray() && !oh.getKey("/Dest").isArray()) {
                oh.replaceKey("/Dest", dest);
                oh.removeKey("/A");
            }
            for (QPDFOutlineObjectHelper &kid : item.getKids())
                items.push_back(kid);
        }
    }

    std::string output_;
    // The files that gave pages, in the order they first did, and the first page each gave.
    std::vector<std::string> order_;
    std::map<std::string, QPDFObjectHandle> firstPages_;
    // Sources outlive the merge's writing: qpdf reads copied streams from them only then.
    std::map<std::string, std::unique_ptr<Source>> sources_;
    QPDF out_;
    std::unique_ptr<QPDFAcroFormDocumentHelper> outForms_;
    PDFVersion version_{1, 3};
};

// What a split may read of its source before it opens it afresh: reading the cross-reference
// table and page tree again costs a fraction of what copying this much does.
constexpr size_t kSplitHeld = size_t(64) << 20;

size_t heapInUse()
{
    const struct mallinfo2 heap = ::mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

class Split : public Job {
public:
    explicit Split(const std::string &path) : path_(path), source_(openPdf(path))
    {
        version_ = source_.pdf->getVersionAsPDFVersion();
    }

    std::string run(int32_t code, int32_t number1, int32_t number2, const char *text1,
                    const char *text2) override
    {
        if (code != PW_PAGES_SPLIT)
            throw invalidCall("code " + std::to_string(code) + " on a split");
        if (number1 != 1 || (number2 != 1 && number2 != 2))
            throw invalidCall("split " + std::to_string(number1) + ", " + std::to_string(number2));
        if (!text2 || !*text2)
            throw invalidCall("no output path for the pages");
        const std::string range = number2 == 2 && text1 ? text1 : "";
        const std::string prefix = text2;
        std::optional<pw::Failure> first;
        // A damaged page must not cost the user the pages after it: they are all written,
        // and the first failure is reported.
        const std::vector<int> numbers = source_.pagesOf(range);
        const int pages = source_.pageCount();
        size_t opened = heapInUse();
        for (const int number : numbers) {
            // qpdf keeps every object it has read until its document goes, so a long split
            // would end up holding the whole source: past a bound it is opened afresh.
            if (heapInUse() > opened + kSplitHeld) {
                const bool whole = source_.whole();
                source_ = Source(openPdf(path_));
                if (whole)
                    source_.readWhole();
                opened = heapInUse();
            }
            try {
                writePage(number, prefix + pw::pages::pageLabel(number, pages) + ".pdf");
            } catch (const std::bad_alloc &) {
                throw;
            } catch (const pw::Failure &e) {
                if (!first)
                    first = e;
            } catch (const std::exception &e) {
                if (!first)
                    first = invalidFormat("PDF: " + path_ + ": page " + std::to_string(number) +
                                          ": " + e.what());
            }
        }
        if (first)
            throw *first;
        return {};
    }

    void close() override {}

    int pageCount() { return source_.pageCount(); }

private:
    void writePage(int number, const std::string &target)
    {
        // A document of its own for every page, dropped once written: nothing of one page
        // stays behind for the next.
        QPDF out;
        pw::quieten(out);
        out.emptyPDF();
        std::unique_ptr<QPDFAcroFormDocumentHelper> forms;
        copyPage(out, forms, source_, number);
        writeReplacing(out, target, version_, false);
    }

    std::string path_;
    Source source_;
    PDFVersion version_;
};

struct Registry {
    std::mutex lock;
    std::map<int32_t, std::shared_ptr<Job>> jobs;
    int32_t next = 1;

    int32_t add(std::shared_ptr<Job> job)
    {
        std::lock_guard guard(lock);
        if (jobs.size() >= kMaxHandles)
            return 0;
        while (jobs.count(next))
            next = next == INT32_MAX ? 1 : next + 1;
        const int32_t handle = next;
        next = next == INT32_MAX ? 1 : next + 1;
        jobs.emplace(handle, std::move(job));
        return handle;
    }

    std::shared_ptr<Job> find(int32_t handle, bool release)
    {
        std::lock_guard guard(lock);
        const auto it = jobs.find(handle);
        if (it == jobs.end())
            throw failure(rte::kBadFileNameOrNumber, "handle " + std::to_string(handle));
        auto job = it->second;
        if (release)
            jobs.erase(it);
        return job;
    }
};

Registry &registry()
{
    static Registry registry;
    return registry;
}

// Runs the work of an entry point: no exception may leave the module. qpdf reports damage
// beyond repair by QPDFExc and by plain run-time errors alike.
template <typename Call>
int32_t entryPoint(int32_t failed, pw_module_error *error, Call &&call) noexcept
{
    const auto describe = [](const char *what) {
        return invalidFormat(what ? std::string("PDF: ") + what : "PDF: unreadable");
    };
    return pw::contain(error, failed, describe, call);
}

std::string infoKey(const char *key)
{
    if (!key || !*key)
        throw invalidCall("no document information key");
    return *key == '/' ? key : std::string("/") + key;
}

// `text` into `value` as the getters promise: cut to `size` at a character, never inside one.
int32_t copyOut(const std::string &text, char *value, size_t size)
{
    if (value && size > 0) {
        size_t n = std::min(text.size(), size - 1);
        while (n > 0 && n < text.size() && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80)
            --n;
        std::memcpy(value, text.data(), n);
        value[n] = '\0';
    }
    return int32_t(std::min<size_t>(text.size(), INT32_MAX));
}

std::string infoText(QPDF &pdf, const std::string &name)
{
    QPDFObjectHandle info = pdf.getTrailer().getKey("/Info");
    if (!info.isDictionary())
        return {};
    QPDFObjectHandle entry = info.getKey(name);
    if (entry.isString())
        return entry.getUTF8Value();
    if (entry.isName())
        return entry.getName().substr(1);
    if (entry.isInteger() || entry.isReal() || entry.isBool())
        return entry.unparse();
    return {};
}

int32_t getInfo(const char *path, const char *key, char *value, size_t size)
{
    if (value && size > 0)
        *value = '\0';
    const std::string name = infoKey(key);
    return copyOut(infoText(*openPdf(path), name), value, size);
}

int32_t describe(const char *path, char *value, size_t size)
{
    if (value && size > 0)
        *value = '\0';
    auto pdf = openPdf(path);
    // A plausible count is shown as it stands, as the catalogue, qpdf and pdfinfo show it;
    // only an implausible one costs a walk over every page.
    int64_t pages = pw::trustworthyCount(*pdf);
    if (pages < 0) {
        untanglePageTree(*pdf);
        pages = int64_t(pdf->getAllPages().size());
    }
    std::string text = "Pages\t" + std::to_string(pages) + "\n";
    for (const char *key : {"Title", "Subject", "Author", "Keywords", "Creator", "Producer",
                            "CreationDate", "ModDate"}) {
        std::string entry = infoText(*pdf, std::string("/") + key);
        for (char &c : entry)
            if (c == '\n' || c == '\r' || c == '\t')
                c = ' ';
        text.append(key).append("\t").append(entry).append("\n");
    }
    return copyOut(text, value, size);
}

// Opens `path`, lets `edit` change it, and rewrites the file in place when `edit` says it
// changed something: through a link, the file it names is rewritten, keeping its permissions.
template <typename Edit> int32_t rewriteInPlace(const char *path, Edit &&edit)
{
    auto pdf = openPdf(path);
    if (edit(*pdf))
        writeReplacing(*pdf, path, pdf->getVersionAsPDFVersion(), true);
    return PW_MODULE_OK;
}

int32_t setInfo(const char *path, const char *key, const char *value)
{
    const std::string name = infoKey(key);
    const std::string text = value ? value : "";
    return rewriteInPlace(path, [&](QPDF &pdf) {
        QPDFObjectHandle trailer = pdf.getTrailer();
        QPDFObjectHandle info = trailer.getKey("/Info");
        if (!info.isDictionary()) {
            if (text.empty())
                return false;
            info = QPDFObjectHandle::newDictionary();
        }
        if (!info.isIndirect()) {
            info = pdf.makeIndirectObject(info);
            trailer.replaceKey("/Info", info);
        }
        if (text.empty()) {
            if (!info.hasKey(name))
                return false;
            info.removeKey(name);
        } else {
            info.replaceKey(name, QPDFObjectHandle::newUnicodeString(text));
        }
        return true;
    });
}

int32_t rotate(const char *path, int32_t angle, const char *range)
{
    if (angle != 90 && angle != 180 && angle != 270)
        throw invalidCall("a rotation of " + std::to_string(angle) +
                          " degrees; use 90, 180 or 270");
    return rewriteInPlace(path, [&](QPDF &pdf) {
        untanglePageTree(pdf);
        const std::vector<QPDFObjectHandle> &all = pdf.getAllPages();
        const std::string text = range ? range : "";
        const auto numbers =
            pw::pages::pagesOfRange(text, int(std::min<size_t>(all.size(), INT_MAX)));
        if (numbers.empty())
            throw pw::Failure(rte::kInvalidCall, "no page in the range " + text);
        // A page named twice in the range turns once: the range says which pages, not how often.
        std::set<int> turned(numbers.begin(), numbers.end());
        for (const int number : turned)
            QPDFPageObjectHelper(all[size_t(number - 1)]).rotatePage(angle, true);
        return true;
    });
}

// The glyph-less font of text layers, made once per document.
QPDFObjectHandle glyphlessFont(QPDF &pdf)
{
    const auto stream = [&pdf](const auto &data) {
        return QPDFObjectHandle::newStream(&pdf, std::string(data.begin(), data.end()));
    };
    const auto object = [&pdf](const std::string &text) {
        return pdf.makeIndirectObject(QPDFObjectHandle::parse(&pdf, text));
    };
    const auto ref = [](const QPDFObjectHandle &o) { return o.getObjGen().unparse(' ') + " R"; };
    const std::vector<uint8_t> truetype = pw::glyphlessTrueType();
    QPDFObjectHandle program = stream(truetype);
    program.getDict().replaceKey("/Length1",
                                 QPDFObjectHandle::newInteger(int64_t(truetype.size())));
    const QPDFObjectHandle cidFont = object(pw::glyphlessCidFont(
        ref(object(pw::glyphlessDescriptor(ref(program)))), ref(stream(pw::glyphlessCidToGid()))));
    return object(pw::glyphlessType0(ref(cidFont), ref(stream(pw::glyphlessToUnicode()))));
}

// `dict`'s entry `key` as a dictionary of this holder's own, so that a change to it reaches no
// other page that shared it.
QPDFObjectHandle ownDictionary(QPDFObjectHandle dict, const std::string &key)
{
    QPDFObjectHandle entry = dict.getKey(key);
    entry = entry.isDictionary() ? entry.shallowCopy() : QPDFObjectHandle::newDictionary();
    dict.replaceKey(key, entry);
    return entry;
}

// Lays `content` (operators in the page's own space that draw in the font kOcrFont) over
// `page`, as a form of its own: its font needs no name in the page's resources, and what the
// page's own content leaves of the graphics state does not reach it.
void layOver(QPDF &pdf, QPDFPageObjectHelper page, const std::string &content,
             const QPDFObjectHandle &font)
{
    QPDFObjectHandle form = QPDFObjectHandle::newStream(&pdf, content);
    QPDFObjectHandle dict = form.getDict();
    dict.replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
    dict.replaceKey("/Subtype", QPDFObjectHandle::newName("/Form"));
    dict.replaceKey("/BBox", page.getMediaBox().shallowCopy());
    QPDFObjectHandle fonts = QPDFObjectHandle::newDictionary();
    fonts.replaceKey(std::string("/") + pw::kOcrFont, font);
    QPDFObjectHandle resources = QPDFObjectHandle::newDictionary();
    resources.replaceKey("/Font", fonts);
    dict.replaceKey("/Resources", resources);

    QPDFObjectHandle pageObject = page.getObjectHandle();
    pageObject.replaceKey("/Resources", page.getAttribute("/Resources", true).isDictionary()
                                            ? page.getAttribute("/Resources", true).shallowCopy()
                                            : QPDFObjectHandle::newDictionary());
    QPDFObjectHandle forms = ownDictionary(pageObject.getKey("/Resources"), "/XObject");
    int suffix = 1;
    const std::string name =
        pageObject.getKey("/Resources").getUniqueResourceName("/PwText", suffix);
    forms.replaceKey(name, form);
    page.addPageContents(QPDFObjectHandle::newStream(&pdf, "q\n"), true);
    page.addPageContents(QPDFObjectHandle::newStream(&pdf, "\nQ\nq " + name + " Do Q\n"), false);
}

int32_t addLayers(const char *path, const pw_pages_layer *layers, int32_t count)
{
    return rewriteInPlace(path, [&](QPDF &pdf) {
        untanglePageTree(pdf);
        const std::vector<QPDFObjectHandle> &all = pdf.getAllPages();
        QPDFObjectHandle font;
        for (int32_t i = 0; i < count; ++i) {
            const pw_pages_layer &layer = layers[i];
            if (layer.page < 1 || size_t(layer.page) > all.size() || !layer.content)
                throw invalidCall("no page " + std::to_string(layer.page));
            if (!font.isInitialized())
                font = glyphlessFont(pdf);
            layOver(pdf, QPDFPageObjectHelper(all[size_t(layer.page - 1)]), layer.content, font);
        }
        return count > 0;
    });
}

} // namespace

extern "C" int32_t pw_pages_create_merge(const char *outputPath, pw_module_error *error)
{
    return entryPoint(0, error, [&] {
        if (!outputPath || !*outputPath)
            throw invalidCall("no output path for the merge");
        return registry().add(std::make_shared<Merge>(outputPath));
    });
}

extern "C" int32_t pw_pages_open_split(const char *sourcePath, pw_module_error *error)
{
    return entryPoint(0, error, [&] {
        if (!sourcePath || !*sourcePath)
            throw invalidCall("no PDF to split");
        return registry().add(std::make_shared<Split>(sourcePath));
    });
}

extern "C" int32_t pw_pages_split_count(int32_t handle, pw_module_error *error)
{
    return entryPoint(PW_MODULE_FAILED, error, [&] {
        auto job = std::dynamic_pointer_cast<Split>(registry().find(handle, false));
        if (!job)
            throw invalidCall("handle " + std::to_string(handle) + " is no split");
        std::lock_guard guard(job->busy);
        return job->pageCount();
    });
}

extern "C" int32_t pw_pages_set_function(int32_t handle, int32_t code, int32_t number1,
                                         int32_t number2, const char *text1, const char *text2,
                                         pw_module_error *error)
{
    return entryPoint(PW_MODULE_FAILED, error, [&]() -> int32_t {
        auto job = registry().find(handle, false);
        std::lock_guard guard(job->busy);
        const std::string undone = job->run(code, number1, number2, text1, text2);
        if (undone.empty())
            return PW_MODULE_OK;
        if (error)
            pw::report(*error, pw::Failure(rte::kInvalidCall, undone));
        return PW_PAGES_NOTHING_ADDED;
    });
}

extern "C" int32_t pw_pages_close(int32_t handle, pw_module_error *error)
{
    return entryPoint(PW_MODULE_FAILED, error, [&] {
        auto job = registry().find(handle, true);
        std::lock_guard guard(job->busy);
        job->close();
        return PW_MODULE_OK;
    });
}

extern "C" int32_t pw_pages_abandon(int32_t handle, pw_module_error *error)
{
    return entryPoint(PW_MODULE_FAILED, error, [&] {
        registry().find(handle, true);
        return PW_MODULE_OK;
    });
}

extern "C" int32_t pw_pages_count_checked(const char *path, int32_t *declared,
                                          pw_module_error *error)
{
    return entryPoint(PW_MODULE_FAILED, error, [&] {
        if (!path)
            throw invalidCall("no PDF");
        // The page tree alone: no page is read, nothing is prepared for copying.
        auto pdf = openPdf(path);
        if (declared) {
            QPDFObjectHandle count = pdf->getRoot().getKey("/Pages").getKey("/Count");
            *declared = count.isInteger() ? count.getIntValueAsInt() : -1;
        }
        if (const int64_t flat = flatCount(*pdf); flat > 0)
            return int32_t(flat);
        untanglePageTree(*pdf);
        return int32_t(std::min<size_t>(pdf->getAllPages().size(), INT32_MAX));
    });
}

extern "C" int32_t pw_pages_count(const char *path, pw_module_error *error)
{
    return pw_pages_count_checked(path, nullptr, error);
}

extern "C" void pw_pages_set_password(const char *text)
{
    entryPoint(PW_MODULE_FAILED, nullptr, [&] {
        password = text ? text : "";
        return PW_MODULE_OK;
    });
}

extern "C" int32_t pw_pages_describe(const char *path, char *text, size_t size,
                                     pw_module_error *error)
{
    return entryPoint(PW_MODULE_FAILED, error, [&] {
        if (!path)
            throw invalidCall("no PDF");
        return describe(path, text, size);
    });
}

extern "C" int32_t pw_pages_rotate(const char *path, int32_t angle, const char *range,
                                   pw_module_error *error)
{
    return entryPoint(PW_MODULE_FAILED, error, [&] {
        if (!path)
            throw invalidCall("no PDF");
        return rotate(path, angle, range);
    });
}

extern "C" int32_t pw_pages_add_layers(const char *path, const pw_pages_layer *layers,
                                       int32_t count, pw_module_error *error)
{
    return entryPoint(PW_MODULE_FAILED, error, [&] {
        if (!path || (count > 0 && !layers))
            throw invalidCall("no PDF");
        return addLayers(path, layers, count);
    });
}

extern "C" int32_t pw_pages_get_info(const char *path, const char *key, char *value, size_t size,
                                     pw_module_error *error)
{
    return entryPoint(PW_MODULE_FAILED, error, [&] {
        if (!path)
            throw invalidCall("no PDF");
        return getInfo(path, key, value, size);
    });
}

extern "C" int32_t pw_pages_set_info(const char *path, const char *key, const char *value,
                                     pw_module_error *error)
{
    return entryPoint(PW_MODULE_FAILED, error, [&] {
        if (!path)
            throw invalidCall("no PDF");
        return setInfo(path, key, value);
    });
}
