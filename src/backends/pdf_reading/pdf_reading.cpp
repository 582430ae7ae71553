#include "pdf_reading.h"

#include "block_input_source.h"
#include "module_failure.h"
#include "quiet_qpdf.h"
#include "trusted_page_count.h"

#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

#include <cstdio>
#include <deque>
#include <limits>
#include <map>
#include <set>
#include <string_view>

namespace {

using pw::invalidFormat;

// Raised inside the module when a sink callback reports a failure: the program keeps the
// cause, the module only has to stop.
struct SinkFailed {};

// Our document as the copier writes into it.
class Sink {
public:
    explicit Sink(const pw_pdf_sink &sink) : sink_(sink) {}

    int reserve()
    {
        int32_t number = 0;
        check(sink_.reserve(sink_.context, &number));
        return number;
    }
    void beginObject(int number) { check(sink_.begin_object(sink_.context, number)); }
    void endObject() { check(sink_.end_object(sink_.context)); }
    void addPage(int number) { check(sink_.add_page(sink_.context, number)); }
    void write(const unsigned char *data, size_t size)
    {
        check(sink_.write(sink_.context, data, size));
    }
    void write(std::string_view text)
    {
        write(reinterpret_cast<const unsigned char *>(text.data()), text.size());
    }

private:
    static void check(int32_t status)
    {
        if (status != PW_MODULE_OK)
            throw SinkFailed{};
    }

    const pw_pdf_sink &sink_;
};

void openQuietly(QPDF &pdf, const std::string &path)
{
    pw::quieten(pdf);
    pdf.setAttemptRecovery(true);
    pdf.processInputSource(pw::openBlockSource(path));
}

int32_t CountPages(const std::string &path)
{
    QPDF pdf;
    openQuietly(pdf, path);

    const int64_t trusted = pw::trustworthyCount(pdf);
    if (trusted > 0)
        return static_cast<int32_t>(trusted);
    // Walking the tree loads every page object; qpdf repairs loops and missing /Type on the
    // way, which is what a damaged file needs.
    const size_t walked = QPDFPageDocumentHelper(pdf).getAllPages().size();
    if (walked > static_cast<size_t>(std::numeric_limits<int32_t>::max()))
        return 0;
    return static_cast<int32_t>(walked);
}

// Copies the pages of another PDF, and whatever they use, object by object into ours. qpdf
// reads the source; every reference is renumbered into our file as it is met.
class ForeignCopier {
public:
    ForeignCopier(Sink &out, int parent) : out_(out), parent_(parent) {}

    void copyPages(const std::vector<QPDFPageObjectHelper> &pages)
    {
        std::vector<int> numbers;
        // Pages first, so that links and annotations between them land on our copies.
        for (const auto &page : pages) {
            QPDFObjectHandle oh = page.getObjectHandle();
            pages_.insert(oh.getObjGen());
            numbers.push_back(numberOf(oh));
        }
        while (!queue_.empty()) {
            auto [oh, number] = queue_.front();
            queue_.pop_front();
            writeObject(oh, number);
        }
        for (int number : numbers)
            out_.addPage(number);
    }

private:
    int numberOf(QPDFObjectHandle oh)
    {
        const auto [it, fresh] = numbers_.emplace(oh.getObjGen(), 0);
        if (fresh) {
            it->second = out_.reserve();
            queue_.emplace_back(oh, it->second);
        }
        return it->second;
    }

    void value(QPDFObjectHandle oh, std::string &text)
    {
        if (oh.isIndirect()) {
            text += std::to_string(numberOf(oh)) + " 0 R";
            return;
        }
        if (oh.isArray()) {
            text += '[';
            for (auto &item : oh.getArrayAsVector()) {
                value(item, text);
                text += ' ';
            }
            text += ']';
            return;
        }
        if (oh.isDictionary()) {
            text += "<<";
            entries(oh, text, {});
            text += ">>";
            return;
        }
        text += oh.unparse();
    }

    void entries(QPDFObjectHandle dict, std::string &text, const std::set<std::string> &skip)
    {
        for (auto &[key, item] : dict.getDictAsMap()) {
            if (skip.count(key) || item.isNull())
                continue;
            text += ' ' + QPDFObjectHandle::newName(key).unparse() + ' ';
            value(item, text);
        }
    }

    void writeObject(QPDFObjectHandle oh, int number)
    {
        std::string text;
        if (oh.isStream()) {
            entries(oh.getDict(), text, {"/Length"});
            const int length = out_.reserve();
            out_.beginObject(number);
            out_.write("<<" + text + " /Length " + std::to_string(length) + " 0 R >>\nstream\n");
            Counter data(out_);
            bool filtered = false;
            if (!oh.pipeStreamData(&data, &filtered, 0, qpdf_dl_none, true))
                throw invalidFormat("PDF: a stream cannot be read");
            out_.write("\nendstream");
            out_.endObject();
            out_.beginObject(length);
            out_.write(std::to_string(data.bytes()));
            out_.endObject();
            return;
        }
        if (pages_.count(oh.getObjGen())) {
            text = "<<";
            entries(oh, text, {"/Parent"});
            text += " /Parent " + std::to_string(parent_) + " 0 R>>";
        } else {
            value(oh.isIndirect() ? oh.shallowCopy() : oh, text);
        }
        out_.beginObject(number);
        out_.write(text);
        out_.endObject();
    }

    // Stream data on its way into our file, counted for its /Length.
    class Counter : public Pipeline {
    public:
        explicit Counter(Sink &out) : Pipeline("pdf copy", nullptr), out_(out) {}
        void write(unsigned char const *data, size_t len) override
        {
            out_.write(data, len);
            bytes_ += len;
        }
        void finish() override {}
        size_t bytes() const { return bytes_; }

    private:
        Sink &out_;
        size_t bytes_ = 0;
    };

    Sink &out_;
    int parent_;
    std::map<QPDFObjGen, int> numbers_;
    std::deque<std::pair<QPDFObjectHandle, int>> queue_;
    std::set<QPDFObjGen> pages_;
};

// Copies the pages of the PDF `open` reads into `src`; `name` says which PDF in a failure.
template <typename Open>
std::string copyPages(const std::string &name, Open &&open, const pw_pdf_sink &sink, int parent)
{
    QPDF src;
    try {
        open(src);
    } catch (const QPDFExc &e) {
        if (e.getErrorCode() == qpdf_e_password)
            throw invalidFormat("PDF: protected by a password: " + name);
        throw;
    }
    QPDFPageDocumentHelper srcPages(src);
    // Copied pages leave the source's page tree behind, and with it what they inherit.
    srcPages.pushInheritedAttributesToPage();
    const auto pages = srcPages.getAllPages();
    if (pages.empty())
        throw invalidFormat("PDF: no pages: " + name);
    Sink out(sink);
    ForeignCopier(out, parent).copyPages(pages);
    return src.getPDFVersion();
}

// Runs a copy and answers as the entry points do: PW_MODULE_OK with the version, or
// PW_MODULE_FAILED with the reason in `error`.
template <typename Copy>
int32_t answerCopy(Copy &&copy, char *version, size_t version_size, pw_module_error *error)
{
    const auto describe = [](const char *what) {
        return invalidFormat(what ? std::string("PDF: ") + what : "PDF: unreadable");
    };
    return pw::contain(error, PW_MODULE_FAILED, describe, [&] {
        try {
            const std::string found = copy();
            std::snprintf(version, version_size, "%s", found.c_str());
            return PW_MODULE_OK;
        } catch (const SinkFailed &) {
            // The program kept the writer's own failure.
            return PW_MODULE_FAILED;
        } catch (const QPDFExc &e) {
            throw invalidFormat("PDF: " + e.getMessageDetail());
        }
    });
}

} // namespace

extern "C" int32_t pw_pdf_count_pages(const char *path)
{
    try {
        return CountPages(path);
    } catch (...) {
        // qpdf reports unrecoverable damage, bad passwords and I/O failures by exceptions of
        // several types; to the catalogue they are all the same "Error".
        return 0;
    }
}

extern "C" int32_t pw_pdf_copy_pages(const char *path, const pw_pdf_sink *sink, int32_t parent,
                                     char *version, size_t version_size, pw_module_error *error)
{
    return answerCopy(
        [&] {
            return copyPages(
                path, [&](QPDF &src) { openQuietly(src, path); }, *sink, parent);
        },
        version, version_size, error);
}

extern "C" int32_t pw_pdf_copy_pages_in_memory(const uint8_t *data, size_t size, const char *name,
                                               const pw_pdf_sink *sink, int32_t parent,
                                               char *version, size_t version_size,
                                               pw_module_error *error)
{
    return answerCopy(
        [&] {
            return copyPages(
                name,
                [&](QPDF &src) {
                    pw::quieten(src);
                    src.processMemoryFile(name, reinterpret_cast<const char *>(data), size);
                },
                *sink, parent);
        },
        version, version_size, error);
}
