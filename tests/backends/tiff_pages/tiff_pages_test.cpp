#include "tiff_pages.h"

#include "sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <tiffio.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using namespace pw::tiff;

namespace {

// Success, or the failure's text.
::testing::AssertionResult Done(const pw::Result<void> &result)
{
    if (result)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << result.failure().what();
}

enum class Kind { G4, LzwGrey, JpegYCbCr, TiledGrey, Grey16 };

// A page is told apart from the others by its width.
struct Page {
    Kind kind;
    uint32_t width;
};

void WritePages(const std::string &path, const std::vector<Page> &pages, const char *mode = "w")
{
    TIFF *tif = TIFFOpen(path.c_str(), mode);
    ASSERT_NE(tif, nullptr);
    const uint32_t height = 64;
    for (const Page &page : pages) {
        const bool colour = page.kind == Kind::JpegYCbCr;
        const uint16_t bits = page.kind == Kind::G4 ? 1 : page.kind == Kind::Grey16 ? 16 : 8;
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, page.width);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, bits);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, colour ? 3 : 1);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif, TIFFTAG_XRESOLUTION, 300.0);
        TIFFSetField(tif, TIFFTAG_YRESOLUTION, 200.0);
        TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        TIFFSetField(tif, TIFFTAG_ARTIST, ("artist " + std::to_string(page.width)).c_str());
        const uint8_t icc[] = {1, 2, 3, 4, 5, 6, 7};
        TIFFSetField(tif, TIFFTAG_ICCPROFILE, uint32_t{sizeof icc}, icc);
        switch (page.kind) {
        case Kind::G4:
            TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
            TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
            break;
        case Kind::JpegYCbCr:
            TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_JPEG);
            TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR);
            TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
            break;
        default:
            TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
            TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
            TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        }
        std::vector<uint8_t> row(page.width * (colour ? 3 : 1) * bits / 8 + 1);
        auto fill = [&](uint32_t y) {
            for (size_t x = 0; x < row.size(); ++x)
                row[x] = static_cast<uint8_t>((x * 7 + y * 13 + page.width) ^ (x * y >> 3));
        };
        if (page.kind == Kind::TiledGrey) {
            TIFFSetField(tif, TIFFTAG_TILEWIDTH, 16);
            TIFFSetField(tif, TIFFTAG_TILELENGTH, 16);
            std::vector<uint8_t> tile(16 * 16);
            for (uint32_t y = 0; y < height; y += 16)
                for (uint32_t x = 0; x < page.width; x += 16) {
                    fill(x + y);
                    std::copy(row.begin(), row.begin() + std::min(row.size(), tile.size()),
                              tile.begin());
                    ASSERT_GT(TIFFWriteTile(tif, tile.data(), x, y, 0, 0), 0);
                }
        } else {
            TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 16);
            for (uint32_t y = 0; y < height; ++y) {
                fill(y);
                ASSERT_EQ(TIFFWriteScanline(tif, row.data(), y, 0), 1);
            }
        }
        ASSERT_TRUE(TIFFWriteDirectory(tif));
    }
    TIFFClose(tif);
}

// Each page of `path` as its width and its compressed strips or tiles, as stored.
struct Stored {
    uint32_t width = 0;
    std::vector<std::vector<uint8_t>> data;
    bool operator==(const Stored &) const = default;
};

std::vector<Stored> ReadStored(const std::string &path)
{
    std::vector<Stored> pages;
    TIFF *tif = TIFFOpen(path.c_str(), "r");
    if (!tif)
        return pages;
    do {
        Stored page;
        TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &page.width);
        const bool tiled = TIFFIsTiled(tif);
        const uint32_t n = tiled ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
        for (uint32_t i = 0; i < n; ++i) {
            std::vector<uint8_t> bytes(TIFFGetStrileByteCount(tif, i));
            const tmsize_t size = static_cast<tmsize_t>(bytes.size());
            EXPECT_EQ(tiled ? TIFFReadRawTile(tif, i, bytes.data(), size)
                            : TIFFReadRawStrip(tif, i, bytes.data(), size),
                      size);
            page.data.push_back(bytes);
        }
        pages.push_back(page);
    } while (TIFFReadDirectory(tif));
    TIFFClose(tif);
    return pages;
}

std::vector<uint32_t> Widths(const std::string &path)
{
    std::vector<uint32_t> widths;
    for (const Stored &page : ReadStored(path))
        widths.push_back(page.width);
    return widths;
}

class TiffPagesTest : public ::testing::Test {
protected:
    std::string file(const char *name) const { return sandbox.filePath(name).toStdString(); }
    SandboxDir sandbox;
};

// Every kind of page survives a merge byte for byte, with what a reader needs to decode it:
// JPEG tables, YCbCr layout, colour and resolution tags; the page numbers are renumbered.
TEST_F(TiffPagesTest, MergeKeepsEveryPageAsStored)
{
    const std::string a = file("a.tif"), b = file("b.tif"), out = file("out.tif");
    WritePages(a, {{Kind::G4, 101}, {Kind::JpegYCbCr, 102}});
    WritePages(b, {{Kind::LzwGrey, 103}, {Kind::TiledGrey, 104}}, "w8");
    ASSERT_TRUE(Done(MergeTIFFs({a, b}, out)));
    std::vector<Stored> expected = ReadStored(a), b2 = ReadStored(b);
    expected.insert(expected.end(), b2.begin(), b2.end());
    EXPECT_EQ(ReadStored(out), expected);

    TIFF *tif = TIFFOpen(out.c_str(), "r");
    ASSERT_NE(tif, nullptr);
    EXPECT_TRUE(TIFFIsBigTIFF(tif)) << "a BigTIFF input keeps the output BigTIFF";
    for (uint16_t page = 0; page < 4; ++page) {
        ASSERT_TRUE(TIFFSetDirectory(tif, page));
        uint16_t number = 0, total = 0;
        float xres = 0;
        char *artist = nullptr;
        uint32_t iccSize = 0;
        void *icc = nullptr;
        ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_PAGENUMBER, &number, &total));
        EXPECT_EQ(number, page);
        EXPECT_EQ(total, 4);
        ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_XRESOLUTION, &xres));
        EXPECT_EQ(xres, 300.0f);
        ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_ARTIST, &artist));
        EXPECT_EQ(std::string(artist), "artist " + std::to_string(expected[page].width));
        ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_ICCPROFILE, &iccSize, &icc));
        EXPECT_EQ(iccSize, 7u);
        // Decoding proves the copied tables, predictor and fax options fit the data.
        std::vector<uint32_t> rgba(expected[page].width * 64);
        EXPECT_TRUE(TIFFReadRGBAImage(tif, expected[page].width, 64, rgba.data(), 0)) << page;
    }
    ASSERT_TRUE(TIFFSetDirectory(tif, 1));
    uint32_t tableSize = 0;
    void *tables = nullptr;
    uint16_t photometric = 0;
    EXPECT_TRUE(TIFFGetField(tif, TIFFTAG_JPEGTABLES, &tableSize, &tables));
    EXPECT_GT(tableSize, 0u);
    TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric);
    EXPECT_EQ(photometric, PHOTOMETRIC_YCBCR);
    TIFFClose(tif);

    const QString tiffinfo = QStandardPaths::findExecutable("tiffinfo");
    if (!tiffinfo.isEmpty()) {
        const std::string command = tiffinfo.toStdString() + " -D '" + out + "' >/dev/null 2>&1";
        EXPECT_EQ(std::system(command.c_str()), 0);
    }

    // Wide samples keep their byte order when their file is the first one...
    const std::string wide = file("wide.tif");
    WritePages(wide, {{Kind::Grey16, 105}}, "wb");
    ASSERT_TRUE(Done(MergeTIFFs({wide, a}, out)));
    EXPECT_EQ(ReadStored(out).front(), ReadStored(wide).front());
    // ...and are refused where their bytes would be read in the other order.
    const QByteArray before = readFile(QString::fromStdString(out));
    const auto refused = MergeTIFFs({a, wide}, out);
    ASSERT_FALSE(refused);
    EXPECT_NE(std::string(refused.failure().what()).find("order"), std::string::npos)
        << refused.failure().what();
    EXPECT_EQ(readFile(QString::fromStdString(out)), before);
    EXPECT_EQ(QDir(sandbox.path()).entryList(QDir::Hidden | QDir::Files).filter(".tmp"),
              QStringList());
}

TEST_F(TiffPagesTest, CommandsPutPagesInOrder)
{
    const std::string doc = file("doc.tif"), add = file("add.tif"), out = file("out.tif");
    WritePages(add, {{Kind::G4, 91}, {Kind::G4, 92}});
    const std::vector<Page> three = {{Kind::G4, 1}, {Kind::LzwGrey, 2}, {Kind::JpegYCbCr, 3}};
    const struct {
        int index;
        std::vector<uint32_t> widths;
    } adds[] = {{0, {91, 92, 1, 2, 3}},
                {2, {1, 2, 91, 92, 3}},
                {3, {1, 2, 3, 91, 92}},
                {9, {1, 2, 3, 91, 92}}};
    for (const auto &c : adds) {
        WritePages(doc, three);
        ASSERT_TRUE(Done(AddTIFFPages(doc, c.index, add)));
        EXPECT_EQ(Widths(doc), c.widths) << c.index;
    }

    WritePages(doc, three);
    ASSERT_TRUE(Done(MergeTIFFs({doc, add, doc}, out)));
    EXPECT_EQ(Widths(out), (std::vector<uint32_t>{1, 2, 3, 91, 92, 1, 2, 3}));
    EXPECT_EQ(PageCount(out).value(), 8);
    ASSERT_TRUE(Done(DeleteTIFFPages(doc, 2)));
    EXPECT_EQ(Widths(doc), (std::vector<uint32_t>{1, 3}));
    EXPECT_FALSE(DeleteTIFFPages(doc, 3));
    ASSERT_TRUE(Done(DeleteTIFFPages(doc, 1)));
    EXPECT_FALSE(DeleteTIFFPages(doc, 1)) << "the only page stays";
    EXPECT_EQ(Widths(doc), (std::vector<uint32_t>{3}));

    WritePages(doc, three);
    const std::string left = file("left.tif"), right = file("right.tif");
    ASSERT_TRUE(Done(SplitTIFF(doc, 1, left, right)));
    EXPECT_EQ(Widths(left), (std::vector<uint32_t>{1}));
    EXPECT_EQ(Widths(right), (std::vector<uint32_t>{2, 3}));
    QFile::remove(QString::fromStdString(right));
    ASSERT_TRUE(Done(SplitTIFF(doc, 3, left, right)));
    EXPECT_EQ(Widths(left), (std::vector<uint32_t>{1, 2, 3}));
    EXPECT_FALSE(QFile::exists(QString::fromStdString(right)));

    const std::string folder = sandbox.mkdir("pages").toStdString();
    ASSERT_TRUE(Done(ExtractPages(doc, 2, 3, folder)));
    EXPECT_EQ(QDir(QString::fromStdString(folder)).entryList(QDir::Files),
              (QStringList{"doc-2.tif", "doc-3.tif"}));
    EXPECT_EQ(Widths(folder + "/doc-3.tif"), (std::vector<uint32_t>{3}));
    EXPECT_FALSE(ExtractPages(doc, 3, 4, folder));
    ASSERT_TRUE(Done(ExtractAllTIFFpages(doc, folder)));
    EXPECT_EQ(Widths(folder + "/doc-1.tif"), (std::vector<uint32_t>{1}));
    EXPECT_EQ(ReadStored(folder + "/doc-2.tif").front(), ReadStored(doc)[1]);
}

// A file that can't be read in full fails the command quietly, with a reason, and leaves no
// output behind (nor any temporary file) and its input as it was.
class TiffPagesRefusalTest : public TiffPagesTest {
protected:
    void expectRefused(const std::string &input)
    {
        const std::string good = file("good.tif"), out = file("out.tif");
        WritePages(good, {{Kind::G4, 10}, {Kind::LzwGrey, 11}, {Kind::LzwGrey, 12}});
        const QByteArray before = readFile(QString::fromStdString(input));
        ::testing::internal::CaptureStderr();
        const auto merged = MergeTIFFs({good, input}, out);
        EXPECT_FALSE(merged) << input;
        EXPECT_FALSE(SplitTIFF(input, 1, out, out + "2")) << input;
        EXPECT_FALSE(AddTIFFPages(input, 1, good)) << input;
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "") << input;
        EXPECT_STRNE(merged ? "" : merged.failure().what(), "") << input;
        EXPECT_EQ(readFile(QString::fromStdString(input)), before) << input;
        const QStringList left = QDir(sandbox.path()).entryList(QDir::Files | QDir::Hidden);
        EXPECT_FALSE(left.contains("out.tif") || left.contains("out.tif2") ||
                     left.filter(".tmp").size())
            << left.join(' ').toStdString();
    }
};

TEST_F(TiffPagesRefusalTest, MissingAndCutFiles)
{
    const std::string whole = file("whole.tif");
    WritePages(whole, {{Kind::G4, 20}, {Kind::LzwGrey, 21}, {Kind::JpegYCbCr, 22}});
    const QByteArray bytes = readFile(QString::fromStdString(whole));
    expectRefused(file("missing.tif"));
    expectRefused(sandbox.write("empty.tif", "").toStdString());
    expectRefused(sandbox.write("junk.tif", "II*\0no directory here").toStdString());
    // Cut inside the data of the first pages, then of the last one.
    for (qsizetype keep : {bytes.size() / 3, bytes.size() * 2 / 3})
        expectRefused(sandbox.write("cut.tif", bytes.left(keep)).toStdString());
}

// Reads ../shared/corpus, so ctest labels it apart.
using TiffPagesCorpusTest = TiffPagesRefusalTest;

TEST_F(TiffPagesCorpusTest, DamagedFiles)
{
    const QDir damaged(corpusDir() + "/damaged/made");
    const QStringList names = damaged.entryList({"*.tif", "*.tiff"}, QDir::Files);
    if (names.isEmpty())
        GTEST_SKIP() << "no damaged corpus";
    for (const QString &name : names)
        expectRefused(damaged.filePath(name).toStdString());
}

} // namespace
