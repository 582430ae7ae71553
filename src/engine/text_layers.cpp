#include "text_layers.h"

#include "pdf_page_libraries.h"

#include "backends/pdf_pages/pdf_pages.h"
#include "backends/pdf_render/pdf_render.h"
#include "failure.h"
#include "glyphless_font.h"
#include "pdf_writer.h"
#include "text_layer.h"

#include <QFile>
#include <QFileInfo>

#include <cstring>
#include <deque>
#include <future>
#include <vector>

namespace pw {

namespace {

// Pages are read at the resolution of a scan; a page beyond a poster's size is read at a lower
// one, which recognition hardly notices and memory does.
constexpr int kOcrDpi = 300;
constexpr double kMaxOcrPixels = 48e6;

// The EXIF/TIFF orientation code of a page that a viewer turns clockwise `quarterTurns` times.
int orientationOf(int quarterTurns)
{
    static constexpr int kCodes[] = {1, 6, 3, 8};
    return kCodes[quarterTurns & 3];
}

// A page on its way through recognition.
struct PageToRead {
    size_t file = 0;
    int page = 0;
    int width = 0, height = 0; // pixels of the page before a viewer turns it
    int orientation = 1;
    std::string placing; // from the unit square to the rendered area, in the page's own space
    std::future<std::vector<i2p::OcrWord>> words;
};

// An open document of the rendering module.
class RenderedPdf {
public:
    RenderedPdf(const QString &file, const QString &password)
    {
        const QByteArray path = QFile::encodeName(file), secret = password.toUtf8();
        pw_module_error error{};
        handle_ = moduleEntry<decltype(&::pw_render_open)>(render::kModule, "pw_render_open")(
            path.constData(), secret.constData(), secret.constData(), &error);
        if (handle_ <= 0)
            throw Failure(rte::kInvalidFileFormat, error.text);
    }
    ~RenderedPdf()
    {
        moduleEntry<decltype(&::pw_render_close)>(render::kModule, "pw_render_close")(handle_);
    }
    RenderedPdf(const RenderedPdf &) = delete;
    RenderedPdf &operator=(const RenderedPdf &) = delete;

    int pages() const
    {
        return moduleEntry<decltype(&::pw_render_page_count)>(render::kModule,
                                                              "pw_render_page_count")(handle_);
    }

    bool showsText(int page) const
    {
        pw_module_error error{};
        const int32_t shows = moduleEntry<decltype(&::pw_render_page_has_text)>(
            render::kModule, "pw_render_page_has_text")(handle_, page, &error);
        if (shows < 0)
            throw Failure(rte::kInvalidFileFormat, error.text);
        return shows == 1;
    }

    // Renders `page` for recognition and starts reading it.
    void read(PageToRead &page, const std::string &language) const
    {
        struct Rendered {
            PageToRead &page;
            i2p::OcrPage copy;
            bool outOfMemory = false;
        } rendered{page, {}};
        const auto take = [](void *context, const pw_render_grey *grey) {
            auto &r = *static_cast<Rendered *>(context);
            try {
                r.copy.width = grey->width;
                r.copy.height = grey->height;
                r.copy.dpi = grey->dpi;
                r.copy.rowBytes = size_t(grey->width);
                r.copy.pixels.resize(r.copy.rowBytes * size_t(grey->height));
                for (int y = 0; y < grey->height; ++y)
                    std::memcpy(r.copy.pixels.data() + size_t(y) * r.copy.rowBytes,
                                grey->pixels + size_t(y) * grey->row_bytes, r.copy.rowBytes);
            } catch (const std::bad_alloc &) {
                r.outOfMemory = true; // nothing may unwind through the module
                return;
            }
            const bool sideways = grey->quarter_turns % 2 != 0;
            r.page.width = sideways ? grey->height : grey->width;
            r.page.height = sideways ? grey->width : grey->height;
            r.page.orientation = orientationOf(grey->quarter_turns);
            // The pixel rows run down from the top of the area, and a pixel partly covered
            // counts whole, so the pixels span a little more than the area itself.
            const double across = r.page.width * 72.0 / grey->dpi;
            const double down = r.page.height * 72.0 / grey->dpi;
            r.page.placing = i2p::pdfNumber(across) + " 0 0 " + i2p::pdfNumber(down) + ' ' +
                             i2p::pdfNumber(grey->box[0]) + ' ' +
                             i2p::pdfNumber(grey->box[3] - down);
        };
        pw_module_error error{};
        if (moduleEntry<decltype(&::pw_render_grey_page)>(render::kModule, "pw_render_grey_page")(
                handle_, page.page, kOcrDpi, kMaxOcrPixels, take, &rendered, &error) != 0)
            throw Failure(rte::kInvalidFileFormat, error.text);
        if (rendered.outOfMemory)
            throw outOfMemory();
        page.words = i2p::readOnPool(std::move(rendered.copy), language);
    }

private:
    int32_t handle_ = 0;
};

struct FileState {
    TextLayerOutcome outcome;
    std::vector<int> pages;
    std::vector<std::string> layers;
    bool queued = false;
};

// Files are taken in turn and their pages handed to the recognisers as they are rendered; a
// file is written once its last page is read, while the next file's pages are being read.
class TextLayerRun {
public:
    TextLayerRun(const QStringList &files, const QString &language, const QString &password,
                 const std::function<void(const TextLayerOutcome &)> &done)
        : language_(language.toStdString()), password_(password), done_(done)
    {
        for (const QString &file : files) {
            files_.emplace_back();
            files_.back().outcome.file = file;
        }
    }

    void run(Progress &progress)
    {
        progress.setMaximum(int(files_.size()));
        for (size_t i = 0; i < files_.size() && !progress.cancelRequested(); ++i) {
            progress.setStatusText(files_[i].outcome.file);
            try {
                // A file is read before the one ahead of it is written: named twice, it would
                // get two layers.
                if (files_[i].outcome.sameAs = earlierName(i); files_[i].outcome.sameAs.isEmpty())
                    queue(i);
            } catch (const Failure &failure) {
                files_[i].outcome.failure = QString::fromUtf8(failure.what());
            }
            files_[i].queued = true;
            finishReady(progress);
        }
        while (!pending_.empty() && !progress.cancelRequested()) {
            settleFirst();
            finishReady(progress);
        }
    }

private:
    // The name an earlier input gave the file `file` names, "" when none did.
    QString earlierName(size_t file) const
    {
        const QString real = QFileInfo(files_[file].outcome.file).canonicalFilePath();
        for (size_t i = 0; i < file && !real.isEmpty(); ++i)
            if (QFileInfo(files_[i].outcome.file).canonicalFilePath() == real)
                return files_[i].outcome.file;
        return {};
    }

    void queue(size_t file)
    {
        const RenderedPdf pdf(files_[file].outcome.file, password_);
        const int pages = pdf.pages();
        for (int page = 1; page <= pages; ++page) {
            if (pdf.showsText(page)) {
                ++files_[file].outcome.pagesShown;
                continue;
            }
            // Each waiting page holds its rendering: a few more than the recognisers take.
            while (pending_.size() > i2p::PageText::readers())
                settleFirst();
            if (!files_[file].outcome.failure.isEmpty())
                return;
            PageToRead next;
            next.file = file;
            next.page = page;
            pdf.read(next, language_);
            pending_.push_back(std::move(next));
        }
    }

    void settleFirst()
    {
        PageToRead page = std::move(pending_.front());
        pending_.pop_front();
        FileState &file = files_[page.file];
        try {
            const std::string layer = i2p::textLayer(page.words.get(), kOcrFont, page.width,
                                                     page.height, page.orientation);
            if (layer.empty())
                return;
            file.pages.push_back(page.page);
            file.layers.push_back("q " + page.placing + " cm " + layer + "Q\n");
        } catch (const Failure &failure) {
            if (file.outcome.failure.isEmpty())
                file.outcome.failure =
                    "page " + QString::number(page.page) + ": " + QString::fromUtf8(failure.what());
        }
    }

    // Writes and reports the files whose pages have all been read, in the order given.
    void finishReady(Progress &progress)
    {
        while (next_ < files_.size() && files_[next_].queued &&
               (pending_.empty() || pending_.front().file > next_)) {
            FileState &file = files_[next_++];
            if (file.outcome.failure.isEmpty())
                write(file);
            file.outcome.pagesRead = file.outcome.failure.isEmpty() ? int(file.layers.size()) : 0;
            done_(file.outcome);
            file.layers.clear();
            progress.setValue(int(next_));
        }
    }

    static void write(FileState &file)
    {
        if (file.layers.empty())
            return;
        std::vector<pw_pages_layer> layers;
        for (size_t i = 0; i < file.layers.size(); ++i)
            layers.push_back({file.pages[i], file.layers[i].c_str()});
        pw_module_error error{};
        if (moduleEntry<decltype(&::pw_pages_add_layers)>(pages::kModule, "pw_pages_add_layers")(
                QFile::encodeName(file.outcome.file).constData(), layers.data(),
                int32_t(layers.size()), &error) != 0)
            file.outcome.failure = QString::fromUtf8(error.text);
    }

    std::string language_;
    QString password_;
    const std::function<void(const TextLayerOutcome &)> &done_;
    std::vector<FileState> files_;
    std::deque<PageToRead> pending_;
    size_t next_ = 0;
};

} // namespace

QString CheckOcrLanguage(const QString &language)
{
    try {
        i2p::setOcrLanguage(language.toStdString());
        i2p::setOcrLanguage("");
    } catch (const Failure &failure) {
        return QString::fromUtf8(failure.what());
    }
    return {};
}

void AddTextLayers(const QStringList &files, const QString &language, const QString &password,
                   Progress &progress, const std::function<void(const TextLayerOutcome &)> &done)
{
    TextLayerRun(files, language, password, done).run(progress);
}

} // namespace pw
