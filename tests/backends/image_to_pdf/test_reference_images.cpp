// Pictures with a known right answer: files from the public test suites of image libraries
// against the suites' own reference PNGs (tests/data/README.md), PCX files written here from a
// picture, and every format cut short, which must fail rather than give part of a document.

#include "fax_decoder.h"
#include "image_to_pdf.h"
#include "pdf_probe.h"
#include "sample_images.h"
#include "sandbox.h"

#include <charls/charls.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <tiffio.h>
#include <unistd.h>
#include <zlib.h>

#include <QBuffer>
#include <QFile>
#include <QPainter>
#include <QtEndian>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>

namespace {

const QString kData = QStringLiteral(PAGEWRIGHT_TEST_DATA_DIR);

// The reference as it shows on white paper.
QImage onWhite(const QImage &reference)
{
    QImage out(reference.size(), QImage::Format_RGB32);
    out.fill(Qt::white);
    QPainter(&out).drawImage(0, 0, reference);
    return out;
}

// Converts `input` alone; the failure number, 0 when it converted.
int convert(const QString &input, const QString &pdf)
{
    const int32_t h = ApCreate(pdf.toStdString());
    if (const pw::Result<int32_t> added = ApAddImage(h, input.toStdString()); !added) {
        ApDiscard(h);
        return added.failure().number;
    }
    return ApClose(h) == 0 ? 0 : -1;
}

void expectPicture(const QString &input, const QImage &expected, int tolerance)
{
    SCOPED_TRACE(input.toStdString());
    SandboxDir box;
    const QString pdf = box.filePath("out.pdf");
    ASSERT_EQ(convert(input, pdf), 0);
    const QImage painted = paintedPixels(pdf, 0, expected.width(), expected.height());
    EXPECT_LE(maxChannelDifference(painted, expected), tolerance);
}

TEST(ReferenceImages, TargaInEveryOriginAndCompression)
{
    for (const char *mode : {"l", "la", "p", "rgb", "rgba"}) {
        const QImage reference = onWhite(QImage(kData + "/tga/200x32_" + mode + ".png"));
        ASSERT_FALSE(reference.isNull()) << mode;
        for (const char *origin : {"bl", "tl"})
            for (const char *packing : {"raw", "rle"}) {
                const QString name = QString("/tga/200x32_%1_%2_%3.tga").arg(mode, origin, packing);
                if (QFile::exists(kData + name))
                    // Blending a half-transparent pixel over the paper may round either way.
                    expectPicture(kData + name, reference, QString(mode).endsWith('a') ? 1 : 0);
            }
    }
}

TEST(ReferenceImages, BmpInEveryLayout)
{
    // The suite's reference rounds its 8-bit palette's 43 to 42, and its 10- and 11-bit samples
    // are finer than the reference's 8 bits: those are within one step of it.
    const struct {
        const char *file, *reference;
        int tolerance;
    } rows[] = {{"pal1", "pal1", 0},           {"pal1wb", "pal1", 0},
                {"pal1bg", "pal1bg", 0},       {"pal4", "pal4", 0},
                {"pal4rle", "pal4", 0},        {"pal8", "pal8", 1},
                {"pal8-0", "pal8", 1},         {"pal8os2", "pal8", 1},
                {"pal8rle", "pal8", 1},        {"pal8topdown", "pal8", 1},
                {"pal8v4", "pal8", 1},         {"pal8v5", "pal8", 1},
                {"pal8w124", "pal8w124", 1},   {"pal8w125", "pal8w125", 1},
                {"pal8w126", "pal8w126", 1},   {"rgb16", "rgb16", 0},
                {"rgb16-565", "rgb16-565", 0}, {"rgb16-565pal", "rgb16-565", 0},
                {"rgb24", "rgb24", 0},         {"rgb24pal", "rgb24", 0},
                {"rgb32", "rgb24", 0},         {"rgb32bf", "rgb24", 0},
                {"rgb32bf-xbgr", "rgb24", 0},  {"rgb24png", "rgb24", 0},
                {"rgb32-111110", "rgb24", 1}};
    for (const auto &r : rows)
        expectPicture(kData + "/bmp/" + r.file + ".bmp",
                      QImage(kData + "/bmp/ref_" + r.reference + ".png")
                          .convertToFormat(QImage::Format_RGB32),
                      r.tolerance);
    // A BMP wrapping a JPEG keeps the JPEG as it is.
    SandboxDir box;
    const QString pdf = box.filePath("jpeg.pdf");
    ASSERT_EQ(convert(kData + "/bmp/rgb24jpeg.bmp", pdf), 0);
    EXPECT_EQ(firstImageFilter(pdf), "/DCTDecode");
}

// A PCX of `picture`, run-length encoded: 8-bit with the palette at the end when `palette`
// holds colours, else 24-bit in three planes.
QByteArray pcx(const QImage &picture, const QVector<QRgb> &palette)
{
    const bool indexed = !palette.isEmpty();
    const int w = picture.width(), h = picture.height(), lineBytes = w + (w & 1);
    QByteArray out(128, '\0');
    const auto le16 = [&](int at, int v) {
        out[at] = char(v & 0xFF);
        out[at + 1] = char(v >> 8);
    };
    out[0] = 0x0A, out[1] = 5, out[2] = 1, out[3] = 8;
    le16(8, w - 1);
    le16(10, h - 1);
    le16(12, 300);
    le16(14, 300);
    out[65] = char(indexed ? 1 : 3);
    le16(66, lineBytes);
    const QImage rgb = picture.convertToFormat(QImage::Format_RGB32);
    for (int y = 0; y < h; ++y) {
        QByteArray line;
        for (int plane = 0; plane < (indexed ? 1 : 3); ++plane)
            for (int x = 0; x < lineBytes; ++x) {
                const QRgb c = rgb.pixel(std::min(x, w - 1), y);
                line += char(indexed      ? palette.indexOf(c)
                             : plane == 0 ? qRed(c)
                             : plane == 1 ? qGreen(c)
                                          : qBlue(c));
            }
        for (int i = 0; i < line.size();) {
            int run = 1;
            while (i + run < line.size() && run < 63 && line[i + run] == line[i])
                ++run;
            if (run > 1 || (uint8_t(line[i]) & 0xC0) == 0xC0)
                out += char(0xC0 | run);
            out += line[i];
            i += run;
        }
    }
    if (indexed) {
        out += char(0x0C);
        for (int i = 0; i < 256; ++i) {
            const QRgb c = palette.value(i);
            out += char(qRed(c)), out += char(qGreen(c)), out += char(qBlue(c));
        }
    }
    return out;
}

TEST(ReferenceImages, PcxPalettedAndTrueColour)
{
    SandboxDir box;
    const QImage picture = colourPattern(61, 37);
    const QImage reduced = picture.convertToFormat(QImage::Format_Indexed8, Qt::ThresholdDither);
    const QImage expected = reduced.convertToFormat(QImage::Format_RGB32);
    expectPicture(box.write("256.pcx", pcx(expected, reduced.colorTable())), expected, 0);
    expectPicture(box.write("24bit.pcx", pcx(picture, {})),
                  picture.convertToFormat(QImage::Format_RGB32), 0);
}

// A one-strip uncompressed TIFF of `spp` samples of `bits` bits (floats when `floating`),
// each sample's value given as a fraction by `value(x, y, sample)`; `expected` receives the
// picture on white.
QString deepTiff(const SandboxDir &box, const QString &name, int bits, int spp, bool floating,
                 const std::function<double(int, int, int)> &value, QImage &expected)
{
    const int w = 40, h = 24;
    const QString path = box.filePath(name);
    TIFF *t = TIFFOpen(path.toLocal8Bit().constData(), "w");
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, h);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bits);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, spp);
    TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, floating ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, h);
    if (spp == 4) {
        const uint16_t extra[] = {EXTRASAMPLE_UNASSALPHA};
        TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    const uint32_t top = floating ? 1 : uint32_t((uint64_t(1) << bits) - 1);
    std::vector<uint8_t> row((size_t(w) * spp * bits + 7) / 8);
    expected = QImage(w, h, QImage::Format_RGB32);
    for (int y = 0; y < h; ++y) {
        std::fill(row.begin(), row.end(), 0);
        double px[4] = {0, 0, 0, 1};
        for (int x = 0; x < w; ++x) {
            for (int s = 0; s < spp; ++s) {
                const double f = value(x, y, s);
                const uint32_t v = uint32_t(std::lround(f * top));
                px[s] = floating ? f : double(v) / top;
                const size_t at = (size_t(x) * spp + s) * bits;
                if (floating) {
                    const float g = float(f);
                    std::memcpy(&row[at / 8], &g, 4);
                } else if (bits % 8 == 0) { // whole bytes go in the host's order
                    for (int k = 0; k < bits / 8; ++k)
                        row[at / 8 + size_t(k)] = uint8_t(
                            v >> (std::endian::native == std::endian::little ? 8 * k
                                                                             : bits - 8 - 8 * k));
                } else {
                    for (int b = 0; b < bits; ++b)
                        if (v >> (bits - 1 - b) & 1)
                            row[(at + b) / 8] |= uint8_t(0x80 >> ((at + b) % 8));
                }
            }
            const auto onWhite = [&](double c) {
                const double a = spp == 4 ? std::clamp(px[3], 0.0, 1.0) : 1.0;
                return int(std::lround((std::clamp(c, 0.0, 1.0) * a + (1 - a)) * 255));
            };
            const int grey = onWhite(px[0]);
            expected.setPixel(x, y,
                              spp >= 3 ? qRgb(onWhite(px[0]), onWhite(px[1]), onWhite(px[2]))
                                       : qRgb(grey, grey, grey));
        }
        TIFFWriteScanline(t, row.data(), uint32_t(y), 0);
    }
    TIFFClose(t);
    return path;
}

TEST(ReferenceImages, TiffSamplesOfEveryWidth)
{
    SandboxDir box;
    const auto ramp = [](int x, int y, int s) {
        return std::fmod((x * 7 + y * 3 + s * 11) / 97.0, 1.0);
    };
    QImage expected;
    for (const int bits : {3, 5, 10, 12, 14, 24, 32}) {
        const QString in =
            deepTiff(box, QString("grey%1.tif").arg(bits), bits, 1, false, ramp, expected);
        expectPicture(in, expected, 1);
    }
    expectPicture(deepTiff(box, "rgb12.tif", 12, 3, false, ramp, expected), expected, 1);
    expectPicture(deepTiff(box, "rgba4.tif", 4, 4, false, ramp, expected), expected, 1);
    // Floats outside 0 to 1 are clipped to black and white.
    const auto beyond = [](int x, int, int) { return x / 20.0 - 0.5; };
    expectPicture(deepTiff(box, "float.tif", 32, 1, true, beyond, expected), expected, 1);
    expectPicture(deepTiff(box, "float_rgb.tif", 32, 3, true, ramp, expected), expected, 1);
}

// Fax rows whose runs take every length the one-dimensional codes have, in both colours,
// written by libtiff's coder and read back by ours.
TEST(ReferenceImages, FaxRunsOfEveryLength)
{
    const int w = 2600;
    std::vector<int> lengths;
    for (int run = 0; run < 64; ++run)
        lengths.push_back(run);
    for (int makeUp = 64; makeUp <= 2560; makeUp += 64)
        lengths.push_back(makeUp + makeUp / 64 % 64);
    std::vector<std::vector<uint8_t>> rows;
    size_t next = 0;
    for (int r = 0; r < 2 * int(lengths.size()); ++r) {
        std::vector<uint8_t> row((w + 7) / 8, 0);
        int x = 0;
        for (int colour = r % 2; x < w; colour ^= 1) {
            const int run = std::min(lengths[next++ % lengths.size()], w - x);
            for (int i = x; colour && i < x + run; ++i)
                row[size_t(i / 8)] |= uint8_t(0x80 >> (i % 8));
            x += run;
        }
        rows.push_back(row);
    }
    SandboxDir box;
    const QString path = box.filePath("g3.tif");
    TIFF *t = TIFFOpen(path.toLocal8Bit().constData(), "w");
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, int(rows.size()));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX3);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, int(rows.size()));
    for (size_t y = 0; y < rows.size(); ++y)
        TIFFWriteScanline(t, rows[y].data(), uint32_t(y), 0);
    TIFFClose(t);
    t = TIFFOpen(path.toLocal8Bit().constData(), "r");
    std::vector<uint8_t> raw(size_t(TIFFRawStripSize(t, 0)));
    TIFFReadRawStrip(t, 0, raw.data(), tmsize_t(raw.size()));
    TIFFClose(t);
    const std::vector<uint8_t> decoded =
        pw::i2p::decodeModifiedHuffman(raw.data(), raw.size(), w, int(rows.size()));
    for (size_t y = 0; y < rows.size(); ++y)
        ASSERT_TRUE(std::equal(rows[y].begin(), rows[y].end(),
                               decoded.begin() + ptrdiff_t(y * rows[y].size())))
            << "row " << y;
}

// A lossless JPEG (SOF3) of `picture`'s grey or RGB samples, with predictor `predictor` and a
// restart every `restart` pixels (0: none). Its one Huffman table gives every difference size
// a 5-bit code equal to the size.
QByteArray losslessJpeg(const QImage &picture, bool colour, int predictor, int restart)
{
    const int w = picture.width(), h = picture.height(), comps = colour ? 3 : 1;
    QByteArray out("\xFF\xD8", 2);
    const auto segment = [&](int marker, const QByteArray &body) {
        out += char(0xFF), out += char(marker);
        out += char((body.size() + 2) >> 8), out += char((body.size() + 2) & 0xFF);
        out += body;
    };
    QByteArray sof(1, char(8)); // precision
    sof += char(h >> 8), sof += char(h), sof += char(w >> 8), sof += char(w), sof += char(comps);
    for (int c = 0; c < comps; ++c)
        sof += char(c + 1), sof += char(0x11), sof += char(0);
    QByteArray dht(17, '\0');
    dht[5] = 17;
    for (int s = 0; s <= 16; ++s)
        dht += char(s);
    QByteArray sos(1, char(comps));
    for (int c = 0; c < comps; ++c)
        sos += char(c + 1), sos += char(0);
    sos += char(predictor), sos += char(0), sos += char(0);
    segment(0xC3, sof);
    segment(0xC4, dht);
    if (restart)
        segment(0xDD, QByteArray(1, char(restart >> 8)) + char(restart & 0xFF));
    segment(0xDA, sos);
    QByteArray bits;
    const auto flush = [&] {
        while (bits.size() % 8)
            bits += '1';
        for (int i = 0; i < bits.size(); i += 8) {
            const char byte = char(bits.mid(i, 8).toInt(nullptr, 2));
            out += byte;
            if (uint8_t(byte) == 0xFF)
                out += '\0';
        }
        bits.clear();
    };
    const auto sample = [&](int x, int y, int c) {
        const QRgb p = picture.pixel(x, y);
        return colour ? (c == 0 ? qRed(p) : c == 1 ? qGreen(p) : qBlue(p)) : qGray(p);
    };
    int sinceRestart = 0, marker = 0;
    bool first = true, firstRow = true;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            if (restart && sinceRestart == restart) {
                flush();
                out += char(0xFF), out += char(0xD0 + marker++ % 8);
                sinceRestart = 0;
                first = firstRow = true;
            }
            for (int c = 0; c < comps; ++c) {
                int guess = 128;
                if (!first) {
                    const int a = x ? sample(x - 1, y, c) : 0, b = y ? sample(x, y - 1, c) : 0,
                              d = x && y ? sample(x - 1, y - 1, c) : 0;
                    const int predictions[] = {
                        a, b, d, a + b - d, a + ((b - d) >> 1), b + ((a - d) >> 1), (a + b) / 2};
                    guess = firstRow ? a : x == 0 ? b : predictions[predictor - 1];
                }
                const int diff = sample(x, y, c) - guess;
                const int size = diff == 0 ? 0 : int(std::bit_width(unsigned(std::abs(diff))));
                bits += QByteArray::number(size, 2).rightJustified(5, '0');
                if (size)
                    bits += QByteArray::number(diff > 0 ? diff : diff + (1 << size) - 1, 2)
                                .rightJustified(size, '0');
            }
            first = false;
            ++sinceRestart;
            if (x == w - 1)
                firstRow = false;
        }
    flush();
    out += "\xFF\xD9";
    return out;
}

// A JPEG-LS file of `picture` in colour, its components interleaved by `mode`.
QByteArray jpegLs(const QImage &picture, charls::interleave_mode mode)
{
    const int w = picture.width(), h = picture.height();
    std::vector<uint8_t> pixels, planes;
    for (int c = 0; c < 3; ++c)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const QRgb p = picture.pixel(x, y);
                planes.push_back(uint8_t(c == 0 ? qRed(p) : c == 1 ? qGreen(p) : qBlue(p)));
            }
    for (int i = 0; i < w * h; ++i)
        for (int c = 0; c < 3; ++c)
            pixels.push_back(planes[size_t(c * w * h + i)]);
    charls::jpegls_encoder encoder;
    encoder.frame_info({uint32_t(w), uint32_t(h), 8, 3}).interleave_mode(mode);
    std::vector<uint8_t> encoded(encoder.estimated_destination_size());
    encoder.destination(encoded);
    encoded.resize(encoder.encode(mode == charls::interleave_mode::none ? planes : pixels));
    return QByteArray(reinterpret_cast<const char *>(encoded.data()), qsizetype(encoded.size()));
}

TEST(ReferenceImages, LosslessJpegAndJpegLs)
{
    SandboxDir box;
    const QImage picture = colourPattern(45, 31).convertToFormat(QImage::Format_RGB32);
    const QImage grey =
        picture.convertToFormat(QImage::Format_Grayscale8).convertToFormat(QImage::Format_RGB32);
    for (int predictor = 1; predictor <= 7; ++predictor) {
        const QString name = QString("sof3_%1.jpg").arg(predictor);
        expectPicture(box.write(name, losslessJpeg(picture, true, predictor, 0)), picture, 0);
    }
    // Restarts within a row and at its end.
    expectPicture(box.write("restart17.jpg", losslessJpeg(grey, false, 4, 17)), grey, 0);
    expectPicture(box.write("restart45.jpg", losslessJpeg(picture, true, 7, 45)), picture, 0);
    expectPicture(box.write("ls_planes.jpg", jpegLs(picture, charls::interleave_mode::none)),
                  picture, 0);
    expectPicture(box.write("ls_pixels.jpg", jpegLs(picture, charls::interleave_mode::sample)),
                  picture, 0);
}

// Every kind of file the tests can make, cut at 30, 50, 70 and 90 % of its length: each fails
// as unreadable and leaves no PDF behind.
TEST(CutShort, EveryFormatFailsAndWritesNothing)
{
    SandboxDir box;
    const QImage picture = colourPattern(120, 90);
    const auto saved = [&](const char *name, const char *format) {
        picture.save(box.filePath(name), format);
        return box.filePath(name);
    };
    TiffLayout lzw{.compression = COMPRESSION_LZW, .pages = 5};
    TiffLayout g4{.width = 300,
                  .height = 200,
                  .bps = 1,
                  .spp = 1,
                  .photometric = 0,
                  .compression = COMPRESSION_CCITTFAX4,
                  .pages = 2};
    writeTiff(box.filePath("five.tif"), lzw);
    writeTiff(box.filePath("two_g4.tif"), g4);
    QStringList files = {saved("a.jpg", "JPEG"),
                         saved("a.png", "PNG"),
                         box.filePath("five.tif"),
                         box.filePath("two_g4.tif"),
                         kData + "/bmp/rgb24.bmp",
                         kData + "/bmp/pal8rle.bmp",
                         kData + "/tga/200x32_rgb_bl_rle.tga",
                         kData + "/tga/200x32_p_tl_raw.tga",
                         box.write("a.pcx", pcx(picture, {})),
                         box.write("sof3.jpg", losslessJpeg(picture, true, 1, 0)),
                         box.write("ls.jpg", jpegLs(picture, charls::interleave_mode::sample))};
    if (!corpusDir().isEmpty())
        files << corpusDir() + "/formats/gif/pil__chi.gif"
              << corpusDir() + "/formats/jp2/pil__test-card-lossless.jp2"
              << corpusDir() + "/formats/dcx/derived__3pages_from_pcx.dcx";
    const QString pdf = box.filePath("out.pdf");
    for (const QString &file : files) {
        QFile in(file);
        ASSERT_TRUE(in.open(QIODevice::ReadOnly)) << file.toStdString();
        const QByteArray whole = in.readAll();
        ASSERT_EQ(convert(file, pdf), 0) << file.toStdString();
        for (const int percent : {30, 50, 70, 90}) {
            SCOPED_TRACE((file + " at " + QString::number(percent) + "%").toStdString());
            QFile::remove(pdf);
            const QString cut =
                box.write("cut." + file.section('.', -1), whole.left(whole.size() * percent / 100));
            EXPECT_EQ(convert(cut, pdf), 321);
            EXPECT_FALSE(QFile::exists(pdf));
        }
    }
}

// PNG chunks as (type, data), and a PNG file made of them with their CRCs.
using PngChunkList = std::vector<std::pair<QByteArray, QByteArray>>;

PngChunkList pngChunks(const QByteArray &png)
{
    PngChunkList chunks;
    for (qsizetype at = 8; at + 12 <= png.size();) {
        const auto *p = reinterpret_cast<const uint8_t *>(png.constData() + at);
        const qsizetype length = qsizetype(uint32_t(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3]);
        chunks.emplace_back(png.mid(at + 4, 4), png.mid(at + 8, length));
        at += 12 + length;
    }
    return chunks;
}

QByteArray be32(uint32_t v)
{
    const char b[4] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
    return QByteArray(b, 4);
}

QByteArray pngFile(const PngChunkList &chunks)
{
    QByteArray out("\x89PNG\r\n\x1A\n", 8);
    for (const auto &[type, data] : chunks) {
        const QByteArray body = type + data;
        out += be32(uint32_t(data.size())) + body +
               be32(uint32_t(
                   crc32(0, reinterpret_cast<const Bytef *>(body.constData()), uInt(body.size()))));
    }
    return out;
}

QByteArray deflated(const QByteArray &raw)
{
    uLongf size = compressBound(uLong(raw.size()));
    QByteArray out(qsizetype(size), '\0');
    compress(reinterpret_cast<Bytef *>(out.data()), &size,
             reinterpret_cast<const Bytef *>(raw.constData()), uLong(raw.size()));
    return out.left(qsizetype(size));
}

// `png` (8-bit RGB, one IDAT) with its header's size and depth replaced and its image data
// being `rows` rows of the new width, taken from the old rows and padded with black.
QByteArray reshapedPng(const QByteArray &png, uint32_t width, uint32_t height, int rows,
                       uint8_t bitDepth = 8)
{
    PngChunkList chunks = pngChunks(png);
    QByteArray &header = chunks.front().second;
    const uint32_t oldWidth = uint32_t(qFromBigEndian<quint32>(header.constData()));
    header.replace(0, 8, be32(width) + be32(height));
    header[8] = char(bitDepth);
    QByteArray old(qsizetype(oldWidth * 3 + 1) * 1000, '\0');
    uLongf size = uLongf(old.size());
    for (const auto &[type, data] : chunks)
        if (type == "IDAT")
            uncompress(reinterpret_cast<Bytef *>(old.data()), &size,
                       reinterpret_cast<const Bytef *>(data.constData()), uLong(data.size()));
    QByteArray raw;
    for (int y = 0; y < rows; ++y)
        raw += old.mid(qsizetype(y) * (oldWidth * 3 + 1), oldWidth * 3 + 1)
                   .leftJustified(qsizetype(width) * 3 + 1, '\0', true);
    std::erase_if(chunks, [](const auto &c) { return c.first == "IDAT" || c.first == "IEND"; });
    chunks.emplace_back("IDAT", deflated(raw));
    chunks.emplace_back("IEND", QByteArray());
    return pngFile(chunks);
}

// `jpeg` with the frame header that `marker` starts claiming `width` x `height`.
QByteArray withFrameSize(QByteArray jpeg, char marker, int width, int height)
{
    const qsizetype at = jpeg.indexOf(QByteArray("\xFF") + marker);
    jpeg[at + 5] = char(height >> 8), jpeg[at + 6] = char(height);
    jpeg[at + 7] = char(width >> 8), jpeg[at + 8] = char(width);
    return jpeg;
}

// The first `percent` of `data`, closed again by the end marker `end`.
QByteArray cutAndClosed(const QByteArray &data, int percent, const QByteArray &end)
{
    return data.left(data.size() * percent / 100) + end;
}

// Files cut short and then made to look whole (an end marker added, the CRCs made right), and
// headers forged over real data: none converts, as none has the data of the page it claims.
TEST(CutShort, EndsRepairedAndSizesForgedFail)
{
    SandboxDir box;
    const QImage picture = colourPattern(120, 90).convertToFormat(QImage::Format_RGB888);
    QByteArray png, jpeg;
    {
        QBuffer pngBuffer(&png), jpegBuffer(&jpeg);
        ASSERT_TRUE(picture.save(&pngBuffer, "PNG") && picture.save(&jpegBuffer, "JPEG"));
    }
    const QByteArray eoi("\xFF\xD9", 2);
    struct Row {
        const char *name;
        QByteArray bytes;
        int number;
    };
    std::vector<Row> rows = {
        {"half_rows.png", reshapedPng(png, 120, 90, 45), 321},
        {"four_rows.png", reshapedPng(png, 2000, 2000, 4), 321},
        {"four_rows_huge.png", reshapedPng(png, 100000, 100000, 4), 7},
        {"depth3.png", reshapedPng(png, 120, 90, 90, 3), 321},
        {"scan_cut.jpg", cutAndClosed(jpeg, 60, eoi), 321},
        {"frame_40000.jpg", withFrameSize(jpeg, '\xC0', 40000, 40000), 7},
        {"frame_20000.jpg", withFrameSize(jpeg, '\xC0', 20000, 20000), 321},
        {"sof3_cut.jpg", cutAndClosed(losslessJpeg(picture, true, 1, 0), 60, eoi), 321},
        {"ls_cut.jpg", cutAndClosed(jpegLs(picture, charls::interleave_mode::sample), 60, eoi),
         321},
        {"ls_planes_cut.jpg", cutAndClosed(jpegLs(picture, charls::interleave_mode::none), 50, eoi),
         321},
    };
    if (!corpusDir().isEmpty()) {
        const QByteArray jp2 = readFile(corpusDir() + "/formats/jp2/pil__test-card-lossless.jp2");
        const QByteArray codestream = jp2.mid(jp2.indexOf("jp2c") + 4);
        rows.push_back({"half.jp2", cutAndClosed(jp2, 50, eoi), 321});
        rows.push_back({"half.j2k", cutAndClosed(codestream, 50, eoi), 321});
        rows.push_back({"cut.gif",
                        cutAndClosed(readFile(corpusDir() + "/formats/gif/pil__chi.gif"), 60,
                                     QByteArray("\0;", 2)),
                        321});
    }
    const QString pdf = box.filePath("out.pdf");
    ASSERT_EQ(convert(box.write("whole.png", png), pdf), 0);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        QFile::remove(pdf);
        EXPECT_EQ(convert(box.write(row.name, row.bytes), pdf), row.number);
        EXPECT_FALSE(QFile::exists(pdf));
    }
}

// A GIF of `frames` frames of one pixel each on a screen of `width` x `height`, each frame
// claiming `frameSide` pixels a side.
QByteArray gifOfPixels(int width, int height, int frames, int frameSide = 1)
{
    const auto le16 = [](int v) { return QByteArray(1, char(v)) + char(v >> 8); };
    QByteArray gif = "GIF89a" + le16(width) + le16(height) + QByteArray("\x80\0\0", 3) +
                     QByteArray("\0\0\0\xFF\xFF\xFF", 6);
    for (int i = 0; i < frames; ++i)
        // Clear, pixel 0, end of data: three 3-bit codes.
        gif += ',' + le16(0) + le16(0) + le16(frameSide) + le16(frameSide) +
               QByteArray("\0\x02\x02\x44\x01\0", 6);
    return gif + ';';
}

// A Photoshop file's header and an RGB picture's few stored bytes, `width` pixels wide.
QByteArray psdOfWidth(uint32_t width)
{
    return "8BPS" + QByteArray("\0\x01\0\0\0\0\0\0\0\x03", 10) + be32(1) + be32(width) +
           QByteArray("\0\x08\0\x03", 4) + QByteArray(12, '\0') + QByteArray(2 + 64, '\0');
}

// Little-endian fields, as the BMP, PCX, TGA and TIFF headers below store them.
QByteArray le(std::initializer_list<std::pair<uint64_t, int>> fields)
{
    QByteArray bytes;
    for (const auto &[value, size] : fields)
        for (int i = 0; i < size; ++i)
            bytes += char(i < 8 ? value >> (8 * i) : 0);
    return bytes;
}

// Headers of a `side` x `side` picture in the formats our own readers decode, with a few
// bytes of data behind them.
QByteArray bmpOfSide(uint32_t side)
{
    return "BM" + le({{0, 4}, {0, 4}, {54, 4}, {40, 4}, {side, 4}, {side, 4}, {1, 2}, {24, 2}}) +
           QByteArray(24 + 64, '\0');
}

QByteArray tgaOfSide(uint16_t side)
{
    return le({{0, 1}, {0, 1}, {2, 1}, {0, 5}, {0, 4}, {side, 2}, {side, 2}, {24, 1}, {0, 1}}) +
           QByteArray(64, '\0');
}

QByteArray pcxOfSide(uint16_t side)
{
    const QByteArray head = le({{0x0A, 1},
                                {5, 1},
                                {1, 1},
                                {8, 1},
                                {0, 4},
                                {side - 1u, 2},
                                {side - 1u, 2},
                                {300, 2},
                                {300, 2}});
    return head + QByteArray(65 - head.size(), '\0') + le({{1, 1}, {side, 2}}) +
           QByteArray(128 - 68 + 64, '\0');
}

QByteArray tiffOfSide(uint32_t side)
{
    QByteArray ifd = le({{8, 2}});
    // Width, length, 8 bits, no compression, grey, one strip at 8 + IFD, all rows, its bytes.
    const uint32_t tags[][3] = {{256, 4, side}, {257, 4, side}, {258, 3, 8},    {259, 3, 1},
                                {262, 3, 1},    {273, 4, 110},  {278, 4, side}, {279, 4, 64}};
    for (const auto &tag : tags)
        ifd += le({{tag[0], 2}, {tag[1], 2}, {1, 4}, {tag[2], 4}});
    return QByteArray("II*\0", 4) + le({{8, 4}}) + ifd + le({{0, 4}}) + QByteArray(64, '\0');
}

// The address space of this process limited to what it has plus `extra` bytes.
void limitAddressSpace(uint64_t extra)
{
#if !defined(__SANITIZE_ADDRESS__)
    std::FILE *status = std::fopen("/proc/self/statm", "r");
    unsigned long pages = 0;
    if (status && std::fscanf(status, "%lu", &pages) == 1) {
        const rlim_t limit = rlim_t(pages) * rlim_t(sysconf(_SC_PAGESIZE)) + extra;
        const rlimit bound{limit, limit};
        setrlimit(RLIMIT_AS, &bound);
    }
    if (status)
        std::fclose(status);
#else
    (void)extra; // the sanitizer's shadow memory takes terabytes of address space
#endif
}

// Headers that claim far more than their data holds are refused with the reason, in a process
// given 512 MB beyond what it holds at the start: before they were checked, each of these took
// gigabytes (or minutes) before failing or converting.
TEST(HostileFiles, RefusedBeforeTheyCostMemory)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    SandboxDir box;
    const QImage picture = colourPattern(45, 31).convertToFormat(QImage::Format_RGB32);
    const struct {
        const char *name;
        QByteArray bytes;
        int number;
        const char *reason;
    } rows[] = {
        {"sof3_65535.jpg", withFrameSize(losslessJpeg(picture, true, 1, 0), '\xC3', 65535, 65535),
         7, "over the limit"},
        {"sof3_30000.jpg", withFrameSize(losslessJpeg(picture, true, 1, 0), '\xC3', 30000, 30000),
         321, "larger than its data"},
        {"ls_46340.jpg",
         withFrameSize(jpegLs(picture, charls::interleave_mode::sample), '\xF7', 46340, 46340), 7,
         "over the limit"},
        {"wide.psd", psdOfWidth(0xFFFFFFFF), 7, "over the limit"},
        {"narrow_uncut.psd", psdOfWidth(30000), 321, "cut short"},
        {"bomb.gif", gifOfPixels(10, 10, 1, 30000), 321, "larger than its data"},
        {"frames.gif", gifOfPixels(4000, 4000, 300), 7, "300 frames .* over the limit"},
        {"wide.bmp", bmpOfSide(40000), 7, "over the limit"},
        {"wide.tga", tgaOfSide(65535), 7, "over the limit"},
        {"wide.pcx", pcxOfSide(65535), 7, "over the limit"},
        {"wide.tif", tiffOfSide(100000), 7, "over the limit"},
        {"wide.pgm", "P5 60000 60000 255\n" + QByteArray(64, '\0'), 7, "pixel limit"},
    };
    const std::string pdf = box.filePath("out.pdf").toStdString();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const std::string file = box.write(row.name, row.bytes).toStdString();
        // The child re-runs the test up to here with a sandbox of its own, which it removes
        // before it leaves without running destructors.
        const auto leave = [&box](int status) {
            QDir(box.path()).removeRecursively();
            std::_Exit(status);
        };
        EXPECT_EXIT(
            {
                limitAddressSpace(uint64_t(512) << 20);
                const int32_t h = ApCreate(pdf);
                if (const pw::Result<int32_t> added = ApAddImage(h, file); !added) {
                    std::fprintf(stderr, "%s\n", added.failure().what());
                    leave(added.failure().number % 256);
                }
                leave(0);
            },
            testing::ExitedWithCode(row.number % 256), row.reason);
    }
    // Asking for the depth reads the first frame alone.
    EXPECT_EQ(ApGetFunction(0, 211, 0, 0, box.filePath("frames.gif").toStdString(), 0), 1);
    // The limit is a setting: a smaller one refuses an everyday picture, 0 restores it.
    const QString png = box.filePath("small.png");
    ASSERT_TRUE(picture.save(png, "PNG"));
    ApSetMaxPixels(1000);
    EXPECT_EQ(convert(png, box.filePath("small.pdf")), 7);
    ApSetMaxPixels(0);
    EXPECT_EQ(convert(png, box.filePath("small.pdf")), 0);
}

// Files of each format with a reader of our own, mutated a few bytes at a time: each either
// converts or fails as unreadable, and never reads outside its data (the sanitizer build runs
// this too).
TEST(Damaged, MutatedFilesConvertOrFailCleanly)
{
    SandboxDir box;
    const QImage picture = colourPattern(48, 32);
    QImage expected;
    // LZW in strips with the predictor, decoded by our own LZW decoder.
    const QString lzwStrips = box.filePath("lzw.tif");
    writeTiff(lzwStrips, {.compression = COMPRESSION_LZW, .predictor = 2, .rowsPerStrip = 5});
    const QByteArray files[] = {
        readFile(kData + "/tga/200x32_rgba_bl_rle.tga"),
        readFile(kData + "/tga/200x32_p_tl_rle.tga"),
        readFile(kData + "/bmp/pal4rle.bmp"),
        readFile(kData + "/bmp/pal8rle.bmp"),
        readFile(kData + "/bmp/rgb32bf.bmp"),
        readFile(kData + "/bmp/pal8os2.bmp"),
        pcx(picture, {}),
        losslessJpeg(picture, true, 4, 40),
        jpegLs(picture, charls::interleave_mode::none),
        readFile(deepTiff(
            box, "deep.tif", 12, 3, false, [](int x, int, int) { return x / 40.0; }, expected)),
        readFile(lzwStrips),
    };
    const char *names[] = {"a.tga", "b.tga", "a.bmp", "b.bmp", "c.bmp", "d.bmp",
                           "a.pcx", "a.jpg", "b.jpg", "a.tif", "b.tif"};
    std::mt19937 random(20261125);
    const QString pdf = box.filePath("out.pdf");
    for (size_t f = 0; f < std::size(files); ++f) {
        SCOPED_TRACE(names[f]);
        ASSERT_FALSE(files[f].isEmpty());
        for (int round = 0; round < 300; ++round) {
            QByteArray mutated = files[f];
            for (int n = 1 + int(random() % 4); n > 0; --n)
                mutated[qsizetype(random() % uint32_t(mutated.size()))] = char(random());
            const int outcome = convert(box.write(names[f], mutated), pdf);
            EXPECT_TRUE(outcome == 0 || outcome == 321 || outcome == 7) << outcome;
        }
    }
}

} // namespace
