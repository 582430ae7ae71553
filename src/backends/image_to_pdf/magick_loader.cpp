#include "page_image.h"

#include "module_loader.h"

namespace pw::i2p {

ReadOutcome readWithMagick(const std::string &path, const std::string &format, const PageSink &sink,
                           bool firstOnly)
{
    using Reader =
        ReadOutcome (*)(const std::string &, const std::string &, const PageSink &, bool);
    static const auto reader =
        reinterpret_cast<Reader>(moduleSymbol("pw_magick_reader.so", "pw_read_with_magick"));
    if (!reader)
        throw invalidFormat(format + ": the reader for this format is not installed");
    return reader(path, format, sink, firstOnly);
}

} // namespace pw::i2p
