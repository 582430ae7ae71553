#include "sample_images.h"

#include <tiffio.h>

#include <vector>

namespace {

// Qt gives a new image the screen's resolution, or 100 dpi where there is no screen: the
// pictures are made at 96 dpi, so that what they convert to is the same under any application.
QImage newPicture(int width, int height)
{
    QImage img(width, height, QImage::Format_RGB32);
    img.setDotsPerMeterX(qRound(96 / 0.0254));
    img.setDotsPerMeterY(qRound(96 / 0.0254));
    return img;
}

} // namespace

QImage colourPattern(int width, int height)
{
    QImage img = newPicture(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int r = (x * 255) / std::max(1, width - 1);
            const int g = (y * 255) / std::max(1, height - 1);
            const int b = ((x / 8 + y / 8) % 2) ? 200 : 30;
            img.setPixel(x, y, qRgb(r, g, b));
        }
    return img;
}

QImage bilevelPattern(int width, int height)
{
    QImage img = newPicture(width, height);
    img.fill(Qt::white);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            if ((y % 11 < 3 && x % 17 < 12) || (x * 3 + y) % 29 == 0)
                img.setPixel(x, y, qRgb(0, 0, 0));
    return img;
}

namespace {

int sampleValue(int x, int y, int c, int page, int bps)
{
    const int max = (1 << bps) - 1;
    if (bps == 1)
        return ((y % 11 < 3 && x % 17 < 12) || (x * 3 + y + page) % 29 == 0) ? 1 : 0;
    const long v = (long(x) * 7 + long(y) * 13 + c * 50 + page * 40) % 256;
    return int(v * max / 255);
}

} // namespace

bool writeTiff(const QString &path, const TiffLayout &s, QImage *expected)
{
    TIFF *t = TIFFOpen(path.toStdString().c_str(), "w");
    if (!t)
        return false;
    const int extra = s.extraSamples ? 1 : 0;
    const int spp = s.spp + extra;
    if (expected)
        *expected = QImage(s.width, s.height, QImage::Format_RGB32);
    auto writePage = [&](int page, bool reduced) {
        const int w = reduced ? std::max(1, s.width / 4) : s.width;
        const int h = reduced ? std::max(1, s.height / 4) : s.height;
        const size_t rb = (size_t(w) * spp * s.bps + 7) / 8;
        TIFFSetField(t, TIFFTAG_SUBFILETYPE,
                     reduced ? FILETYPE_REDUCEDIMAGE : (s.pages > 1 ? FILETYPE_PAGE : 0));
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(w));
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(h));
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, uint16_t(s.bps));
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, uint16_t(spp));
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, s.photometric);
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(t, TIFFTAG_COMPRESSION, s.compression);
        if (s.predictor != 1)
            TIFFSetField(t, TIFFTAG_PREDICTOR, s.predictor);
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, uint32_t(s.rowsPerStrip ? s.rowsPerStrip : h));
        if (s.photometric == PHOTOMETRIC_SEPARATED)
            TIFFSetField(t, TIFFTAG_INKSET, INKSET_CMYK);
        if (extra) {
            uint16_t type = s.extraSamples == 1 ? EXTRASAMPLE_ASSOCALPHA : EXTRASAMPLE_UNASSALPHA;
            TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &type);
        }
        if (s.dpi > 0) {
            TIFFSetField(t, TIFFTAG_XRESOLUTION, s.dpi);
            TIFFSetField(t, TIFFTAG_YRESOLUTION, s.dpi);
            TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        }
        std::vector<uint16_t> map[3];
        if (s.photometric == PHOTOMETRIC_PALETTE) {
            const int n = 1 << s.bps;
            for (int c = 0; c < 3; ++c) {
                map[c].resize(size_t(n));
                for (int i = 0; i < n; ++i)
                    map[c][size_t(i)] = uint16_t(((i * (c + 3) * 37) % 256) * 257);
            }
            TIFFSetField(t, TIFFTAG_COLORMAP, map[0].data(), map[1].data(), map[2].data());
        }
        std::vector<uint8_t> row(rb);
        for (int y = 0; y < h; ++y) {
            std::fill(row.begin(), row.end(), 0);
            for (int x = 0; x < w; ++x) {
                int v[5] = {0, 0, 0, 0, 0};
                for (int c = 0; c < spp; ++c) {
                    v[c] = sampleValue(x, y, c, page, s.bps);
                    if (extra && c == spp - 1)
                        v[c] = x < w / 2 ? (1 << s.bps) - 1 : ((1 << s.bps) - 1) / 2;
                    const size_t idx = size_t(x) * spp + c;
                    if (s.bps == 16) {
                        reinterpret_cast<uint16_t *>(row.data())[idx] = uint16_t(v[c]);
                    } else if (s.bps == 8) {
                        row[idx] = uint8_t(v[c]);
                    } else {
                        const size_t bit = idx * s.bps;
                        row[bit / 8] |= uint8_t(v[c] << (8 - s.bps - bit % 8));
                    }
                }
                if (expected && page == 0 && !reduced) {
                    const int max = (1 << s.bps) - 1;
                    auto to8 = [&](int value) { return value * 255 / max; };
                    QRgb px = 0;
                    switch (s.photometric) {
                    case PHOTOMETRIC_MINISWHITE:
                        px = qRgb(255 - to8(v[0]), 255 - to8(v[0]), 255 - to8(v[0]));
                        break;
                    case PHOTOMETRIC_MINISBLACK:
                        px = qRgb(to8(v[0]), to8(v[0]), to8(v[0]));
                        break;
                    case PHOTOMETRIC_PALETTE:
                        px = qRgb(map[0][size_t(v[0])] >> 8, map[1][size_t(v[0])] >> 8,
                                  map[2][size_t(v[0])] >> 8);
                        break;
                    case PHOTOMETRIC_SEPARATED: {
                        auto ink = [&](int c) { return std::max(0, 255 - to8(v[c]) - to8(v[3])); };
                        px = qRgb(ink(0), ink(1), ink(2));
                        break;
                    }
                    default:
                        px = qRgb(to8(v[0]), to8(v[1]), to8(v[2]));
                    }
                    if (extra) {
                        // Unpremultiplied colour over white paper.
                        const double a = double(v[spp - 1]) / max;
                        auto over = [&](int c) {
                            int colour = c;
                            if (s.extraSamples == 1 && a > 0)
                                colour = std::min(255, int(c / a + 0.5));
                            return int(colour * a + 255 * (1 - a) + 0.5);
                        };
                        px = qRgb(over(qRed(px)), over(qGreen(px)), over(qBlue(px)));
                    }
                    expected->setPixel(x, y, px);
                }
            }
            if (TIFFWriteScanline(t, row.data(), uint32_t(y), 0) < 0)
                return false;
        }
        return TIFFWriteDirectory(t) != 0;
    };
    bool ok = true;
    for (int p = 0; p < s.pages && ok; ++p) {
        ok = writePage(p, false);
        if (ok && s.reducedCopy)
            ok = writePage(p, true);
    }
    TIFFClose(t);
    return ok;
}
