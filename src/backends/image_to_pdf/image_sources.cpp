// Which reader takes a file is decided by its first bytes, never by its name: a PNG called
// ".tif" is read as the PNG it is.

#include "page_image.h"

#include "magick_reader.h"
#include "metafile_player.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace pw::i2p {

namespace {

// Throws the classic failure for a path that is no readable regular file.
struct stat checkedStat(const std::string &path)
{
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0)
        throw failure(rte::kFileNotFound, path);
    if (!S_ISREG(st.st_mode))
        throw failure(rte::kPathFileAccessError, "not a file: " + path);
    if (st.st_size == 0)
        throw invalidFormat("the file is empty: " + path);
    return st;
}

// Enough for every magic number looked at, the PCD one at 2048 included.
constexpr size_t kHeadBytes = 2048 + 16;

std::string head(const std::string &path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw failure(rte::kPathFileAccessError, "cannot open " + path);
    std::string data(kHeadBytes, '\0');
    size_t got = 0;
    while (got < data.size()) {
        const ssize_t n = ::read(fd, data.data() + got, data.size() - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += size_t(n);
    }
    ::close(fd);
    data.resize(got);
    return data;
}

bool startsWith(const std::string &s, const char *magic, size_t n, size_t at = 0)
{
    return s.size() >= at + n && std::memcmp(s.data() + at, magic, n) == 0;
}

std::string lowerExtension(const std::string &path)
{
    const auto slash = path.find_last_of('/');
    const auto dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return {};
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return ext;
}

// TGA has no magic number; its header fields have to look sane instead.
bool plausibleTga(const std::string &h)
{
    if (h.size() < 18)
        return false;
    const auto u = [&](size_t i) { return uint8_t(h[i]); };
    const int mapType = u(1), type = u(2), depth = u(16);
    const bool typeOk =
        type == 1 || type == 2 || type == 3 || type == 9 || type == 10 || type == 11;
    const bool depthOk = depth == 8 || depth == 15 || depth == 16 || depth == 24 || depth == 32;
    const int w = u(12) | u(13) << 8, hgt = u(14) | u(15) << 8;
    return mapType <= 1 && typeOk && depthOk && w > 0 && hgt > 0;
}

enum class Kind {
    Tiff,
    Jpeg,
    Png,
    Gif,
    Jp2,
    J2k,
    Psd,
    Pdf,
    Bmp,
    Pcx,
    Tga,
    Metafile,
    Magick,
    Unknown
};

Kind detect(const std::string &h, const std::string &path, std::string &magickFormat)
{
    if (startsWith(h, "II*\0", 4) || startsWith(h, "MM\0*", 4) || startsWith(h, "II+\0", 4) ||
        startsWith(h, "MM\0+", 4))
        return Kind::Tiff;
    if (startsWith(h, "\xFF\xD8\xFF", 3))
        return Kind::Jpeg;
    if (startsWith(h, "\x89PNG\r\n\x1A\n", 8))
        return Kind::Png;
    if (startsWith(h, "GIF87a", 6) || startsWith(h, "GIF89a", 6))
        return Kind::Gif;
    if (startsWith(h, "\0\0\0\x0CjP  \r\n\x87\n", 12))
        return Kind::Jp2;
    if (startsWith(h, "\xFF\x4F\xFF\x51", 4))
        return Kind::J2k;
    if (startsWith(h, "8BPS", 4))
        return Kind::Psd;
    if (h.find("%PDF-") != std::string::npos && h.find("%PDF-") < 1024)
        return Kind::Pdf;
    auto magick = [&](const char *f) {
        magickFormat = f;
        return Kind::Magick;
    };
    if (startsWith(h, "BM", 2))
        return Kind::Bmp;
    if (startsWith(h, "\xB1\x68\xDE\x3A", 4))
        return Kind::Pcx;
    if (startsWith(h, "PCD_IPI", 7, 2048))
        return magick("PCD");
    if (startsWith(h, "\xD7\xCD\xC6\x9A", 4) || startsWith(h, "\x01\x00\x09\x00", 4) ||
        startsWith(h, "\x02\x00\x09\x00", 4)) {
        magickFormat = "WMF";
        return Kind::Metafile;
    }
    if (startsWith(h, "\x01\x00\x00\x00", 4) && startsWith(h, " EMF", 4, 40)) {
        magickFormat = "EMF";
        return Kind::Metafile;
    }
    // A true-colour Targa starts as a cursor file does; its name tells them apart.
    const std::string ext = lowerExtension(path);
    if ((ext == "tga" || ext == "targa" || ext == "icb" || ext == "vda" || ext == "vst") &&
        plausibleTga(h))
        return Kind::Tga;
    if (startsWith(h, "\0\0\1\0", 4) || startsWith(h, "\0\0\2\0", 4))
        return magick("ICO");
    if (h.size() >= 3 && h[0] == 'P' && h[1] >= '1' && h[1] <= '7' && std::isspace(uint8_t(h[2])))
        return magick("PNM");
    if (h.size() >= 128 && uint8_t(h[0]) == 0x0A && uint8_t(h[1]) <= 5 && uint8_t(h[2]) <= 1)
        return Kind::Pcx;
    return Kind::Unknown;
}

std::atomic<uint64_t> pagePixelLimit{kDefaultMaxPagePixels};

} // namespace

void setMaxPagePixels(uint64_t pixels)
{
    pagePixelLimit = pixels ? pixels : kDefaultMaxPagePixels;
}

uint64_t maxPagePixels()
{
    return pagePixelLimit;
}

void checkPageSize(const char *format, uint64_t width, uint64_t height)
{
    if (width == 0 || height == 0)
        throw invalidFormat(std::string(format) + ": a page without pixels");
    const uint64_t limit = pagePixelLimit;
    // Compared by division: the product of two forged sizes may not fit in 64 bits.
    if (width > limit / height)
        throw failure(rte::kOutOfMemory,
                      std::string(format) + ": a page of " + std::to_string(width) + " x " +
                          std::to_string(height) + " pixels is over the limit of " +
                          std::to_string(limit) + " pixels");
}

std::vector<uint8_t> readWholeFile(const std::string &path)
{
    const struct stat st = checkedStat(path);
    std::ifstream f(path, std::ios::binary);
    if (!f)
        throw failure(rte::kPathFileAccessError, "cannot open " + path);
    std::vector<uint8_t> data(size_t(st.st_size));
    f.read(reinterpret_cast<char *>(data.data()), std::streamsize(data.size()));
    data.resize(size_t(f.gcount()));
    return data;
}

FileRanges wholeFileRanges(const std::string &path, uint64_t offset, uint64_t length)
{
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0)
        throw failure(rte::kFileNotFound, path);
    FileRanges r;
    r.path = path;
    r.fileSize = int64_t(st.st_size);
    r.modified = int64_t(st.st_mtime);
    if (length == 0 && offset == 0)
        length = uint64_t(st.st_size);
    r.ranges.emplace_back(offset, length);
    return r;
}

FileHead::FileHead(const std::string &file) : path(file)
{
    checkedStat(path);
    bytes = head(path);
}

bool FileHead::isPdf() const
{
    std::string format;
    return detect(bytes.substr(0, 1024), path, format) == Kind::Pdf;
}

std::string FileHead::metafileFormat() const
{
    std::string format;
    return detect(bytes, path, format) == Kind::Metafile ? format : std::string();
}

void readImageFile(const FileHead &file, const PageSink &sink, bool firstOnly)
{
    const std::string &path = file.path;
    std::string format;
    try {
        switch (detect(file.bytes, path, format)) {
        case Kind::Tiff:
            return readTiff(path, sink, firstOnly);
        case Kind::Jpeg:
            return readJpeg(path, sink);
        case Kind::Png:
            return readPng(path, sink);
        case Kind::Gif:
            return readGif(path, sink, firstOnly);
        case Kind::Jp2:
            return readJp2(path, sink, false);
        case Kind::J2k:
            return readJp2(path, sink, true);
        case Kind::Psd:
            return readPsd(path, sink);
        case Kind::Bmp:
            return readBmp(path, sink);
        case Kind::Pcx:
            return readPcx(path, sink, firstOnly);
        case Kind::Tga:
            return readTga(path, sink);
        case Kind::Metafile:
            return readWithModule(metafile::kModule, metafile::kPlay, path, format, sink,
                                  firstOnly);
        case Kind::Magick:
            return readWithModule(magick::kModule, magick::kRead, path, format, sink, firstOnly);
        case Kind::Pdf:
            throw invalidFormat("a PDF is not an image: " + path);
        case Kind::Unknown:
            break;
        }
    } catch (const std::bad_alloc &) {
        throw outOfMemory();
    } catch (const std::length_error &) {
        throw outOfMemory();
    }
    throw invalidFormat("unknown or unsupported image type: " + path);
}

} // namespace pw::i2p
