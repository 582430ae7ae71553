#pragma once

// The one way our code opens a libtiff handle. It closes itself, and keeps libtiff's messages
// to itself: nothing reaches stderr and the process-wide handlers (which other parts of the
// program, and the libraries we load, may own) are never touched. Warnings are about repairs
// libtiff made and are dropped; the first error is kept to name the cause of a failure.

#include <tiffio.h>

#include <memory>
#include <string>

namespace pw {

class TiffHandle {
public:
    TiffHandle(); // empty
    TiffHandle(TiffHandle &&other) noexcept;
    TiffHandle &operator=(TiffHandle &&other) noexcept;
    ~TiffHandle();

    // Opens `path` in `mode`, as TIFFOpen takes it ("r", "rmc", "w8b" ...). On failure the
    // handle is empty and error() says why.
    static TiffHandle open(const std::string &path, const char *mode);
    // The same on `fd`, which the handle owns from then on: libtiff closes it with the handle,
    // and it is closed at once when the open fails. `name` is the file's name in messages.
    static TiffHandle open(int fd, const std::string &name, const char *mode);
    // A TIFF held in `buffer`, which grows as pages are written and must outlive the handle.
    static TiffHandle openMemory(std::string &buffer, const char *mode);

    TIFF *get() const { return tif_; }
    explicit operator bool() const { return tif_ != nullptr; }

    // The first error libtiff reported since the open or the last clearError(), "" if none;
    // errorWithSource() puts the part of libtiff that reported it (often the file's name) in
    // front.
    const std::string &error() const;
    std::string errorWithSource() const;
    void clearError();

    // Writes what is still pending and closes; false when that write failed. Empty afterwards.
    bool close();

    // What libtiff's callbacks for this handle write into.
    struct State;

private:
    static TiffHandle make(); // with its message state, ready for an open

    // Declared first so that it outlives the handle: libtiff reports into it until it closes.
    std::unique_ptr<State> state_;
    TIFF *tif_ = nullptr;
};

} // namespace pw
