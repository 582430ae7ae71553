#include "image_to_pdf_library.h"

#include "backends/common/output_file.h"
#include "backends/image_to_pdf/image_to_pdf.h"
#include "core/runtime.h"
#include "core/settings.h"

#include <QCoreApplication>
#include <QString>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <stop_token>
#include <thread>
#include <utility>

namespace pw {

namespace {

// Why the last ApClose on this thread could not put the PDF in place.
thread_local std::string lastCloseFailure;

class OurLibrary final : public ImageToPdfLibrary {
public:
    int32_t ApCreate(const std::string &pdfPath) override { return ::ApCreate(pdfPath); }
    int32_t ApAddImage(int32_t handle, const std::string &imagePath) override
    {
        // The binding sees an unreadable image as a run-time failure with the library's number
        // and text.
        const Result<int32_t> added = ::ApAddImage(handle, imagePath);
        if (!added)
            throw RuntimeError(added.failure().number, QString::fromUtf8(added.failure().what()),
                               "imagetopdf");
        return *added;
    }
    int32_t ApSetFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2,
                          const std::string &text, int32_t n3) override
    {
        return ::ApSetFunction(handle, code, n1, n2, text, n3);
    }
    int32_t ApGetFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2,
                          const std::string &text, int32_t n3) override
    {
        return ::ApGetFunction(handle, code, n1, n2, text, n3);
    }
    int32_t ApClose(int32_t handle) override
    {
        const Result<int32_t> closed = ::ApClose(handle);
        lastCloseFailure = closed ? std::string() : closed.failure().what();
        return closed ? *closed : kCloseFailed;
    }
    int32_t ApDiscard(int32_t handle) override { return ::ApDiscard(handle); }
};

// Every call runs on one worker thread while the caller's event loop keeps turning, so that a
// window stays answering through a page that takes long to decode and encode. Creating and
// closing go there too: the library keeps what it knows of a document's last close on the
// thread that closed it, and a document is one thread's from its creation to its close.
class ResponsiveLibrary final : public ImageToPdfLibrary {
public:
    int32_t ApCreate(const std::string &pdfPath) override
    {
        return worker_.run([&] { return ours_.ApCreate(pdfPath); });
    }
    int32_t ApAddImage(int32_t handle, const std::string &imagePath) override
    {
        return worker_.run([&] { return ours_.ApAddImage(handle, imagePath); });
    }
    int32_t ApSetFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2,
                          const std::string &text, int32_t n3) override
    {
        return worker_.run([&] { return ours_.ApSetFunction(handle, code, n1, n2, text, n3); });
    }
    int32_t ApGetFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2,
                          const std::string &text, int32_t n3) override
    {
        return worker_.run([&] { return ours_.ApGetFunction(handle, code, n1, n2, text, n3); });
    }
    int32_t ApClose(int32_t handle) override
    {
        return worker_.run([&] { return ours_.ApClose(handle); });
    }
    std::string closeFailure() const override
    {
        std::string why;
        worker_.run([&] {
            why = ours_.closeFailure();
            return 0;
        });
        return why;
    }
    int32_t ApDiscard(int32_t handle) override
    {
        return worker_.run([&] { return ours_.ApDiscard(handle); });
    }

private:
    // One thread for the program's life: a thread made per call would start cold and hand each
    // page's buffers to a fresh allocator arena that must be faulted in again.
    class Worker {
    public:
        // Runs `call` on the worker, after any call already waiting there, and processes this
        // thread's events until it has returned; what it throws is thrown here.
        int32_t run(const std::function<int32_t()> &call)
        {
            std::packaged_task<int32_t()> task(call);
            std::future<int32_t> result = task.get_future();
            {
                std::lock_guard lock(mutex_);
                tasks_.push_back(&task);
            }
            wake_.notify_one();
            // Waiting on the result itself, not on the event loop, lets the worker wake this
            // thread directly; the slices keep the window answering within a few milliseconds.
            while (result.wait_for(kSlice) != std::future_status::ready)
                QCoreApplication::processEvents();
            return result.get();
        }

    private:
        static constexpr std::chrono::milliseconds kSlice{10};

        void serve(std::stop_token stop)
        {
            for (;;) {
                std::packaged_task<int32_t()> *task = nullptr;
                {
                    std::unique_lock lock(mutex_);
                    if (!wake_.wait(lock, stop, [this] { return !tasks_.empty(); }))
                        return;
                    task = tasks_.front();
                    tasks_.pop_front();
                }
                (*task)();
            }
        }

        std::mutex mutex_;
        std::condition_variable_any wake_;
        std::deque<std::packaged_task<int32_t()> *> tasks_;
        std::jthread thread_{[this](std::stop_token stop) { serve(stop); }};
    };
    mutable Worker worker_;
    ImageToPdfLibrary &ours_ = ours();
};

} // namespace

std::string ImageToPdfLibrary::closeFailure() const
{
    return lastCloseFailure;
}

int32_t ImageToPdfLibrary::ApDiscard(int32_t)
{
    return 0;
}

OpenDocument::OpenDocument(ImageToPdfLibrary &library, const std::string &pdfPath)
    : library_(library), handle_(library.ApCreate(pdfPath))
{
}

OpenDocument::~OpenDocument()
{
    if (handle_ > 0)
        library_.ApDiscard(handle_);
}

int32_t OpenDocument::close()
{
    return library_.ApClose(std::exchange(handle_, 0));
}

void ImageToPdfLibrary::removeLeftovers(const std::string &folder)
{
    pw::RemoveLeftovers(folder);
}

std::string ImageToPdfLibrary::ocrLanguage()
{
    return ::ApOcrLanguage();
}

namespace {

// "" when `language` is set, else why not.
std::string useOcrLanguage(const std::string &language)
{
    const Result<void> set = ::ApSetOcrLanguage(language);
    return set ? std::string() : set.failure().what();
}

} // namespace

std::string ImageToPdfLibrary::setOcrLanguage(const std::string &language)
{
    return useOcrLanguage(language);
}

ImageToPdfLibrary &ImageToPdfLibrary::ours()
{
    static OurLibrary library;
    return library;
}

ImageToPdfLibrary &ImageToPdfLibrary::responsive()
{
    static ResponsiveLibrary library;
    return library;
}

namespace {

QString applyMaxPixels(const QString &value)
{
    bool number = false;
    const qulonglong pixels = value.toULongLong(&number);
    if (!number || pixels == 0)
        return "Option --max-pixels needs a number of pixels above 0.";
    ::ApSetMaxPixels(pixels);
    return {};
}

// `value` of the page option `option` into `layout`: "" when it reads, else what it needs.
QString takePageValue(const QString &option, const QString &value, i2p::PageLayout &layout)
{
    using i2p::Fit;
    using i2p::PageTurn;
    static const std::map<std::string, Fit> fits = {
        {"into", Fit::Into}, {"fill", Fit::Fill}, {"exact", Fit::Exact}, {"shrink", Fit::Shrink}};
    static const std::map<std::string, PageTurn> turns = {{"auto", PageTurn::FollowImage},
                                                          {"portrait", PageTurn::Portrait},
                                                          {"landscape", PageTurn::Landscape}};
    const std::string text = value.toLower().toStdString();
    if (option == "--page-size") {
        const auto size = i2p::parsePageSize(text);
        if (!size)
            return "Option --page-size needs A4, Letter, Legal, A3, A5 or WIDTHxHEIGHT followed"
                   " by mm, in or pt.";
        std::tie(layout.width, layout.height) = *size;
    } else if (option == "--fit") {
        const auto fit = fits.find(text);
        if (fit == fits.end())
            return "Option --fit needs into, fill, exact or shrink.";
        layout.fit = fit->second;
    } else if (option == "--orientation") {
        const auto turn = turns.find(text);
        if (turn == turns.end())
            return "Option --orientation needs auto, portrait or landscape.";
        layout.turn = turn->second;
    } else if (option == "--margin") {
        const auto margin = i2p::parseLength(text);
        if (!margin)
            return "Option --margin needs a length of 0 or more, followed by mm, in or pt.";
        layout.margin = *margin;
    } else {
        bool number = false;
        const double dpi = value.toDouble(&number);
        if (!number || !(dpi >= 1 && dpi <= 1e6))
            return "Option " + option + " needs a resolution in pixels per inch, 1 or more.";
        layout.dpi = dpi;
        layout.forceDpi = option == "--force-dpi";
    }
    return {};
}

} // namespace

const QStringList &PageOptionNames()
{
    static const QStringList names = {"--max-pixels",  "--page-size", "--fit",      "--margin",
                                      "--orientation", "--dpi",       "--force-dpi"};
    return names;
}

QString TakePageOption(const QString &option, const QString &value, i2p::PageLayout &layout)
{
    return option == "--max-pixels" ? applyMaxPixels(value) : takePageValue(option, value, layout);
}

QString ApplyPageLayout(const i2p::PageLayout &layout)
{
    if (layout.width > 0 && 2 * layout.margin >= std::min(layout.width, layout.height))
        return "Option --margin leaves no room for the image on a page of that size.";
    ::ApSetPageLayout(layout);
    return {};
}

void ApplyPageSettings(const Settings &settings)
{
    i2p::PageLayout layout;
    if (const auto size = i2p::parsePageSize(settings.PageSize().toStdString()))
        std::tie(layout.width, layout.height) = *size;
    layout.dpi = settings.ImageResolution();
    ::ApSetPageLayout(layout);
}

QString ApplySearchablePdfSetting(const Settings &settings)
{
    const std::string language =
        settings.IsSearchablePdf() ? settings.OcrLanguage().trimmed().toStdString() : "";
    if (const std::string why = useOcrLanguage(language); !why.empty()) {
        (void)::ApSetOcrLanguage("");
        return QString::fromStdString(why);
    }
    return {};
}

QString ApplyOcrOption(const QString &language)
{
    if (language.isEmpty())
        return "Option --ocr needs a language, such as eng or deu+eng.";
    const std::string why = useOcrLanguage(language.toStdString());
    return why.empty() ? QString()
                       : "Option --ocr " + language + ": " + QString::fromStdString(why) + ".";
}

} // namespace pw
