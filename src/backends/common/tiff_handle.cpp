#include "tiff_handle.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace pw {

struct TiffHandle::State {
    std::string source;
    std::string error;
    // Behind a handle opened on memory: the buffer and where libtiff reads or writes in it.
    std::string *memory = nullptr;
    toff_t position = 0;
};

namespace {

int keepFirstError(TIFF *, void *user, const char *module, const char *fmt, va_list ap)
{
    auto *state = static_cast<TiffHandle::State *>(user);
    if (state->error.empty()) {
        char text[512];
        std::vsnprintf(text, sizeof text, fmt, ap);
        state->source = module ? module : "TIFF";
        state->error = text;
    }
    return 1;
}

// Returning 1 tells libtiff that the message was handled, so it goes no further.
int dropMessage(TIFF *, void *, const char *, const char *, va_list)
{
    return 1;
}

struct OptionsFree {
    void operator()(TIFFOpenOptions *options) const { TIFFOpenOptionsFree(options); }
};
using Options = std::unique_ptr<TIFFOpenOptions, OptionsFree>;

Options quietOptions(TiffHandle::State *state)
{
    Options options(TIFFOpenOptionsAlloc());
    if (!options)
        return options;
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepFirstError, state);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), dropMessage, nullptr);
    // A damaged header must not make libtiff ask for gigabytes.
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), tmsize_t(1) << 30);
    return options;
}

TiffHandle::State &memoryOf(thandle_t h)
{
    return *static_cast<TiffHandle::State *>(h);
}

tmsize_t memoryRead(thandle_t h, void *buffer, tmsize_t n)
{
    auto &m = memoryOf(h);
    if (m.position >= m.memory->size())
        return 0;
    n = std::min(n, tmsize_t(m.memory->size() - m.position));
    std::memcpy(buffer, m.memory->data() + m.position, size_t(n));
    m.position += toff_t(n);
    return n;
}

tmsize_t memoryWrite(thandle_t h, void *buffer, tmsize_t n)
{
    auto &m = memoryOf(h);
    if (m.position + toff_t(n) > m.memory->size())
        m.memory->resize(size_t(m.position + toff_t(n)));
    std::memcpy(m.memory->data() + m.position, buffer, size_t(n));
    m.position += toff_t(n);
    return n;
}

toff_t memorySeek(thandle_t h, toff_t offset, int whence)
{
    auto &m = memoryOf(h);
    const toff_t base = whence == SEEK_CUR   ? m.position
                        : whence == SEEK_END ? toff_t(m.memory->size())
                                             : 0;
    m.position = base + offset;
    return m.position;
}

toff_t memorySize(thandle_t h)
{
    return memoryOf(h).memory->size();
}

int memoryClose(thandle_t)
{
    return 0;
}

int memoryMap(thandle_t, void **, toff_t *)
{
    return 0;
}

void memoryUnmap(thandle_t, void *, toff_t) {}

} // namespace

TiffHandle::TiffHandle() = default;

TiffHandle::TiffHandle(TiffHandle &&other) noexcept
    : state_(std::move(other.state_)), tif_(std::exchange(other.tif_, nullptr))
{
}

TiffHandle &TiffHandle::operator=(TiffHandle &&other) noexcept
{
    if (this != &other) {
        close();
        state_ = std::move(other.state_);
        tif_ = std::exchange(other.tif_, nullptr);
    }
    return *this;
}

TiffHandle::~TiffHandle()
{
    close();
}

TiffHandle TiffHandle::make()
{
    TiffHandle h;
    h.state_ = std::make_unique<State>();
    return h;
}

TiffHandle TiffHandle::open(const std::string &path, const char *mode)
{
    TiffHandle h = make();
    if (const Options options = quietOptions(h.state_.get()))
        h.tif_ = TIFFOpenExt(path.c_str(), mode, options.get());
    return h;
}

TiffHandle TiffHandle::open(int fd, const std::string &name, const char *mode)
{
    TiffHandle h = make();
    if (fd < 0) {
        h.state_->source = name;
        h.state_->error = "Cannot open";
        return h;
    }
    if (const Options options = quietOptions(h.state_.get()))
        h.tif_ = TIFFFdOpenExt(fd, name.c_str(), mode, options.get());
    if (!h.tif_)
        ::close(fd);
    return h;
}

TiffHandle TiffHandle::openMemory(std::string &buffer, const char *mode)
{
    TiffHandle h = make();
    h.state_->memory = &buffer;
    if (const Options options = quietOptions(h.state_.get()))
        h.tif_ =
            TIFFClientOpenExt("memory", mode, h.state_.get(), memoryRead, memoryWrite, memorySeek,
                              memoryClose, memorySize, memoryMap, memoryUnmap, options.get());
    return h;
}

const std::string &TiffHandle::error() const
{
    static const std::string none;
    return state_ ? state_->error : none;
}

std::string TiffHandle::errorWithSource() const
{
    if (!state_ || state_->error.empty())
        return {};
    return state_->source + ": " + state_->error;
}

void TiffHandle::clearError()
{
    if (state_)
        state_->error.clear();
}

bool TiffHandle::close()
{
    if (!tif_)
        return true;
    const bool flushed = TIFFFlush(tif_) == 1;
    TIFFClose(std::exchange(tif_, nullptr));
    return flushed;
}

} // namespace pw
