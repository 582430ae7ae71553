#include "tiff_handle.h"

#include "sandbox.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <functional>
#include <string>

using pw::TiffHandle;

namespace {

// A one-page, 8 x 2 grey TIFF written through a handle on memory.
std::string smallTiff()
{
    std::string bytes;
    TiffHandle h = TiffHandle::openMemory(bytes, "w");
    TIFF *t = h.get();
    EXPECT_TRUE(t);
    if (!t)
        return {};
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 8);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, 2);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    unsigned char row[8] = {0, 1, 2, 3, 4, 5, 6, 7};
    for (uint32_t y = 0; y < 2; ++y)
        EXPECT_EQ(TIFFWriteScanline(t, row, y, 0), 1);
    EXPECT_TRUE(h.close());
    return bytes;
}

bool isOpen(int fd)
{
    return ::fcntl(fd, F_GETFD) != -1;
}

} // namespace

// Every way in reads the same file; a failed open says why and never leaks the descriptor it
// was given; a handle replaced or closed lets go of its file; errors stay with their handle.
TEST(TiffHandle, OpensEveryWayReportsWhyAndOwnsItsDescriptor)
{
    SandboxDir box;
    std::string bytes = smallTiff();
    ASSERT_FALSE(bytes.empty());
    const std::string good = box.write("good.tif", QByteArray::fromStdString(bytes)).toStdString();
    const std::string bad = box.write("bad.tif", "II* and then no TIFF").toStdString();

    const std::function<TiffHandle(const std::string &)> opens[] = {
        [](const std::string &path) { return TiffHandle::open(path, "r"); },
        [](const std::string &path) {
            return TiffHandle::open(::open(path.c_str(), O_RDONLY), path, "r");
        },
    };
    for (const auto &open : opens) {
        const TiffHandle h = open(good);
        ASSERT_TRUE(h);
        EXPECT_EQ(TIFFNumberOfDirectories(h.get()), 1);
        EXPECT_EQ(h.error(), "");
        for (const std::string &path : {bad, box.filePath("missing.tif").toStdString()}) {
            const TiffHandle failed = open(path);
            EXPECT_FALSE(failed) << path;
            EXPECT_NE(failed.error(), "") << path;
        }
    }
    const TiffHandle memory = TiffHandle::openMemory(bytes, "r");
    ASSERT_TRUE(memory);
    uint32_t width = 0;
    EXPECT_TRUE(TIFFGetField(memory.get(), TIFFTAG_IMAGEWIDTH, &width));
    EXPECT_EQ(width, 8u);

    const int refused = ::open(bad.c_str(), O_RDONLY);
    EXPECT_FALSE(TiffHandle::open(refused, bad, "r"));
    EXPECT_FALSE(isOpen(refused)) << "a failed open closes the descriptor it took";

    const int first = ::open(good.c_str(), O_RDONLY);
    const int second = ::open(good.c_str(), O_RDONLY);
    TiffHandle h = TiffHandle::open(first, good, "r");
    h = TiffHandle::open(second, good, "r");
    EXPECT_FALSE(isOpen(first)) << "the replaced handle's file is closed";
    EXPECT_TRUE(isOpen(second));
    EXPECT_TRUE(h.close());
    EXPECT_FALSE(isOpen(second));
    EXPECT_FALSE(h);

    // An error stays with its handle until cleared.
    TiffHandle reading = TiffHandle::open(good, "r");
    unsigned char row[8];
    EXPECT_EQ(TIFFReadScanline(reading.get(), row, 10, 0), -1) << "a row past the end";
    EXPECT_NE(reading.error(), "");
    EXPECT_NE(reading.errorWithSource().find(reading.error()), std::string::npos);
    reading.clearError();
    EXPECT_EQ(reading.error(), "");
}
