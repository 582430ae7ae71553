#include "image_to_pdf_library.h"

#include "backends/image_to_pdf/image_to_pdf.h"
#include "core/runtime.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QString>
#include <QThreadPool>

#include <functional>
#include <future>

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

// Calls are still made one at a time, in the caller's order; only the thread differs.
class ResponsiveLibrary final : public ImageToPdfLibrary {
public:
    int32_t ApCreate(const std::string &pdfPath) override
    {
        return offThread([&] { return ours_.ApCreate(pdfPath); });
    }
    int32_t ApAddImage(int32_t handle, const std::string &imagePath) override
    {
        return offThread([&] { return ours_.ApAddImage(handle, imagePath); });
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
    int32_t ApClose(int32_t handle) override
    {
        return offThread([&] { return ours_.ApClose(handle); });
    }

private:
    // Runs `call` on the worker and turns this thread's event loop until it has returned; what
    // it throws is thrown here.
    int32_t offThread(const std::function<int32_t()> &call)
    {
        std::packaged_task<int32_t()> task(call);
        std::future<int32_t> result = task.get_future();
        QEventLoop loop;
        worker_.start([&] {
            task();
            QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
        });
        loop.exec();
        return result.get();
    }

    // One thread for the program's life: a thread made per call would cost its start and, worse,
    // hand each page's buffers to a fresh allocator arena that must be faulted in again.
    struct Worker : QThreadPool {
        Worker()
        {
            setMaxThreadCount(1);
            setExpiryTimeout(-1);
        }
    } worker_;
    ImageToPdfLibrary &ours_ = ours();
};

} // namespace

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

} // namespace pw
