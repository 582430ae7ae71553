#include "image_to_pdf_library.h"

#include "backends/image_to_pdf/image_to_pdf.h"
#include "backends/image_to_pdf/output_file.h"
#include "core/runtime.h"

#include <QCoreApplication>
#include <QString>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <stop_token>
#include <thread>

namespace pw {

namespace {
class OurLibrary final : public ImageToPdfLibrary {
public:
    int32_t ApCreate(const std::string &pdfPath) override { return ::ApCreate(pdfPath); }
    int32_t ApAddImage(int32_t handle, const std::string &imagePath) override
    {
        // The library reports an unreadable image by raising; the binding sees that as a
        // run-time failure with the library's number and text.
        try {
            return ::ApAddImage(handle, imagePath);
        } catch (const ApFailure &e) {
            throw RuntimeError(e.number, QString::fromUtf8(e.what()), "imagetopdf");
        }
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
    int32_t ApClose(int32_t handle) override { return ::ApClose(handle); }
};

// The page itself is decoded and encoded on a worker thread while the caller's event loop keeps
// turning. Creating, closing and the small calls stay on the caller's thread: each hand-over
// wakes two sleeping threads, which costs a tenth of a millisecond or more on a virtual machine,
// while a create or a close takes about as long as the hand-over would.
class ResponsiveLibrary final : public ImageToPdfLibrary {
public:
    int32_t ApCreate(const std::string &pdfPath) override { return ours_.ApCreate(pdfPath); }
    int32_t ApAddImage(int32_t handle, const std::string &imagePath) override
    {
        return worker_.run([&] { return ours_.ApAddImage(handle, imagePath); });
    }
    int32_t ApSetFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2,
                          const std::string &text, int32_t n3) override
    {
        return ours_.ApSetFunction(handle, code, n1, n2, text, n3);
    }
    int32_t ApGetFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2,
                          const std::string &text, int32_t n3) override
    {
        return ours_.ApGetFunction(handle, code, n1, n2, text, n3);
    }
    int32_t ApClose(int32_t handle) override { return ours_.ApClose(handle); }

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
    } worker_;
    ImageToPdfLibrary &ours_ = ours();
};

} // namespace

void ImageToPdfLibrary::removeLeftovers(const std::string &folder)
{
    i2p::RemoveLeftovers(folder);
}

std::string ImageToPdfLibrary::ocrLanguage()
{
    return ::ApOcrLanguage();
}

std::string ImageToPdfLibrary::setOcrLanguage(const std::string &language)
{
    return ::ApSetOcrLanguage(language);
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

QString ApplyMaxPixelsOption(const QStringList &args, int &i)
{
    bool number = false;
    const qulonglong pixels = ++i < args.size() ? args[i].toULongLong(&number) : 0;
    if (!number || pixels == 0)
        return "Option --max-pixels needs a number of pixels above 0.";
    ::ApSetMaxPixels(pixels);
    return {};
}

QString ApplySearchablePdfSetting(const Settings &settings)
{
    const std::string language =
        settings.IsSearchablePdf() ? settings.OcrLanguage().trimmed().toStdString() : "";
    if (const std::string why = ::ApSetOcrLanguage(language); !why.empty()) {
        ::ApSetOcrLanguage("");
        return QString::fromStdString(why);
    }
    return {};
}

QString ApplyOcrOption(const QStringList &args, int &i)
{
    if (++i >= args.size() || args[i].isEmpty())
        return "Option --ocr needs a language, such as eng or deu+eng.";
    const std::string why = ::ApSetOcrLanguage(args[i].toStdString());
    return why.empty() ? QString()
                       : "Option --ocr " + args[i] + ": " + QString::fromStdString(why) + ".";
}

} // namespace pw
