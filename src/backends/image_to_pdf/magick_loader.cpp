#include "page_image.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>

namespace pw::i2p {

namespace {

using MagickReader = ReadOutcome (*)(const std::string &, const std::string &, const PageSink &,
                                     bool);

// Beside the running program first (an installed copy), then where the build put it.
std::string besideProgram()
{
    char exe[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0)
        return {};
    const std::string path(exe, size_t(n));
    return path.substr(0, path.rfind('/') + 1) + PW_MAGICK_MODULE_NAME;
}

MagickReader loadReader()
{
    for (const std::string &candidate : {besideProgram(), std::string(PW_MAGICK_MODULE_PATH)}) {
        if (candidate.empty())
            continue;
        // Never unloaded: GraphicsMagick keeps state for the rest of the process.
        if (void *module = ::dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL))
            return reinterpret_cast<MagickReader>(::dlsym(module, "pw_read_with_magick"));
    }
    return nullptr;
}

} // namespace

ReadOutcome readWithMagick(const std::string &path, const std::string &format, const PageSink &sink,
                           bool firstOnly)
{
    static const MagickReader reader = loadReader();
    if (!reader)
        throw invalidFormat(format + ": the reader for this format is not installed");
    return reader(path, format, sink, firstOnly);
}

} // namespace pw::i2p
