// Writes a batch of synthetic A4 scans at 300 dpi (2480 x 3508) that look like office pages:
// lines of text-like strokes with a heading, a ruled table, a signature and a little scanner
// speckle, so that every compressor has real work to do.
//
//   make_scans OUT_DIR COUNT_BW COUNT_GREY COUNT_COLOUR
//
// bw_NNNN.tif     bilevel, CCITT Group 4, one strip, min-is-white
// grey_NNNN.tif   8-bit grey, LZW, default strips, light paper shading
// colour_NNNN.jpg RGB JPEG, quality 85, 4:2:0, a photo-like block beside the text
//
// The content depends only on the file's number, so a batch is the same on every run.

#include <cstddef>
#include <cstdio>

#include <jpeglib.h>
#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr int W = 2480;
constexpr int H = 3508;
constexpr double Dpi = 300.0;

struct Rng {
    uint64_t s;
    explicit Rng(uint64_t seed) : s(seed * 0x9E3779B97F4A7C15ull + 0x1234567ull) { next(); }
    uint64_t next()
    {
        s ^= s << 13;
        s ^= s >> 7;
        s ^= s << 17;
        return s;
    }
    int range(int lo, int hi) { return lo + int(next() % uint64_t(hi - lo + 1)); }
    double unit() { return double(next() >> 11) / double(1ull << 53); }
};

// Ink coverage 0..255 per pixel (255 = full ink); rendered per page, then mapped per format.
struct Canvas {
    std::vector<uint8_t> ink = std::vector<uint8_t>(size_t(W) * H, 0);
    void put(int x, int y, uint8_t v)
    {
        if (x >= 0 && x < W && y >= 0 && y < H) {
            uint8_t &p = ink[size_t(y) * W + x];
            p = std::max(p, v);
        }
    }
    // A thick line with a soft edge (anti-aliased by distance).
    void stroke(double x0, double y0, double x1, double y1, double width)
    {
        const double r = width / 2.0;
        const int minX = int(std::floor(std::min(x0, x1) - r - 1));
        const int maxX = int(std::ceil(std::max(x0, x1) + r + 1));
        const int minY = int(std::floor(std::min(y0, y1) - r - 1));
        const int maxY = int(std::ceil(std::max(y0, y1) + r + 1));
        const double dx = x1 - x0, dy = y1 - y0;
        const double len2 = std::max(dx * dx + dy * dy, 1e-9);
        for (int y = minY; y <= maxY; ++y)
            for (int x = minX; x <= maxX; ++x) {
                double t = ((x - x0) * dx + (y - y0) * dy) / len2;
                t = std::clamp(t, 0.0, 1.0);
                const double ex = x0 + t * dx - x, ey = y0 + t * dy - y;
                const double d = std::sqrt(ex * ex + ey * ey) - r;
                if (d < 1.0)
                    put(x, y, uint8_t(d <= 0 ? 255 : 255 * (1.0 - d)));
            }
    }
};

// One glyph: 1 to 3 strokes inside a box, sometimes with an ascender or descender.
double glyph(Canvas &c, Rng &rng, double x, double base, double xh, double pen)
{
    const double w = xh * (0.55 + 0.35 * rng.unit());
    const int kind = rng.range(0, 9);
    const double top = base - xh;
    switch (kind) {
    case 0: // o-like
        for (int i = 0; i < 12; ++i) {
            const double a0 = i * M_PI / 6, a1 = (i + 1) * M_PI / 6;
            c.stroke(x + w / 2 + std::cos(a0) * w / 2, base - xh / 2 + std::sin(a0) * xh / 2,
                     x + w / 2 + std::cos(a1) * w / 2, base - xh / 2 + std::sin(a1) * xh / 2, pen);
        }
        break;
    case 1: // l, d, b: ascender
        c.stroke(x + w * 0.2, base - xh * 1.6, x + w * 0.2, base, pen);
        c.stroke(x + w * 0.2, base - xh / 2, x + w, base - xh / 2, pen);
        break;
    case 2: // p, g: descender
        c.stroke(x + w * 0.2, top, x + w * 0.2, base + xh * 0.6, pen);
        c.stroke(x + w * 0.2, top, x + w, base - xh / 3, pen);
        break;
    case 3: // v, w
        c.stroke(x, top, x + w / 2, base, pen);
        c.stroke(x + w / 2, base, x + w, top, pen);
        break;
    case 4: // n, m
        c.stroke(x, top, x, base, pen);
        c.stroke(x, top + pen, x + w, top + pen, pen);
        c.stroke(x + w, top, x + w, base, pen);
        break;
    case 5: // e, c
        c.stroke(x, base - xh / 2, x + w, base - xh / 2, pen);
        c.stroke(x, top, x, base, pen);
        c.stroke(x, base, x + w, base, pen);
        break;
    case 6: // i, t
        c.stroke(x + w / 2, top - xh * 0.4, x + w / 2, base, pen);
        c.stroke(x, top, x + w, top, pen * 0.8);
        break;
    case 7: // s, z
        c.stroke(x + w, top, x, base - xh / 2, pen);
        c.stroke(x, base - xh / 2, x + w, base - xh / 2, pen);
        c.stroke(x + w, base - xh / 2, x, base, pen);
        break;
    default: // a, u
        c.stroke(x, top, x, base, pen);
        c.stroke(x, base, x + w, base, pen);
        c.stroke(x + w, top, x + w, base, pen);
        break;
    }
    return w;
}

void textBlock(Canvas &c, Rng &rng, int left, int right, int top, int bottom, double xh, double pen,
               double lead)
{
    for (double base = top + xh * 1.6; base < bottom; base += lead) {
        double x = left;
        // Ragged right, and sometimes a short last line of a paragraph.
        const double lineEnd = rng.range(0, 6) == 0
                                   ? left + (right - left) * (0.3 + 0.5 * rng.unit())
                                   : right - rng.range(0, int(xh * 3));
        while (x < lineEnd - xh * 2) {
            const int letters = rng.range(1, 10);
            for (int i = 0; i < letters && x < lineEnd; ++i)
                x += glyph(c, rng, x, base, xh, pen) + xh * 0.22;
            x += xh * 0.7;
        }
        if (rng.range(0, 7) == 0)
            base += lead * 0.6; // paragraph gap
    }
}

void renderPage(Canvas &c, Rng &rng, int textLeft)
{
    // Heading in a heavier pen.
    textBlock(c, rng, 240, 1700, 220, 360, 52, 9, 90);
    // A short address block, right aligned region.
    textBlock(c, rng, 1500, 2240, 420, 700, 26, 4, 44);
    // Body text.
    textBlock(c, rng, textLeft, 2240, 760, 2300, 28, 4, 50);
    // A ruled table.
    const int tTop = 2380, tBottom = 3000, rows = 8, cols = 4;
    for (int r = 0; r <= rows; ++r)
        c.stroke(240, tTop + r * (tBottom - tTop) / rows, 2240, tTop + r * (tBottom - tTop) / rows,
                 3);
    for (int k = 0; k <= cols; ++k)
        c.stroke(240 + k * 2000 / cols, tTop, 240 + k * 2000 / cols, tBottom, 3);
    for (int r = 0; r < rows; ++r)
        for (int k = 0; k < cols; ++k) {
            const int y = tTop + r * (tBottom - tTop) / rows;
            textBlock(c, rng, 260 + k * 500, 200 + (k + 1) * 500 - rng.range(0, 250), y, y + 60, 24,
                      3, 40);
        }
    // A signature: a wandering curve.
    double x = 1600, y = 3200;
    for (int i = 0; i < 120; ++i) {
        const double nx = x + rng.range(2, 9), ny = 3200 + 60 * std::sin(i * 0.45) * rng.unit();
        c.stroke(x, y, nx, ny, 4);
        x = nx;
        y = ny;
    }
    // Scanner speckle.
    for (int i = 0; i < 2500; ++i) {
        const int sx = rng.range(0, W - 1), sy = rng.range(0, H - 1), sz = rng.range(1, 3);
        for (int dy = 0; dy < sz; ++dy)
            for (int dx = 0; dx < sz; ++dx)
                c.put(sx + dx, sy + dy, 255);
    }
}

// A one-sample A4 page at Dpi, open for its scanlines; null when it cannot be created.
TIFF *openPage(const std::string &path, int bits, uint16_t photometric, uint16_t compression)
{
    TIFF *t = TIFFOpen(path.c_str(), "w");
    if (!t)
        return nullptr;
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, W);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, H);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bits);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
    TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
    TIFFSetField(t, TIFFTAG_XRESOLUTION, Dpi);
    TIFFSetField(t, TIFFTAG_YRESOLUTION, Dpi);
    TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    return t;
}

bool writeBilevel(const std::string &path, const Canvas &c)
{
    TIFF *t = openPage(path, 1, PHOTOMETRIC_MINISWHITE, COMPRESSION_CCITTFAX4);
    if (!t)
        return false;
    TIFFSetField(t, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, H);
    std::vector<uint8_t> row((W + 7) / 8);
    bool ok = true;
    for (int y = 0; y < H && ok; ++y) {
        std::fill(row.begin(), row.end(), 0);
        for (int x = 0; x < W; ++x)
            if (c.ink[size_t(y) * W + x] >= 128)
                row[x >> 3] |= uint8_t(0x80 >> (x & 7));
        ok = TIFFWriteScanline(t, row.data(), uint32_t(y), 0) == 1;
    }
    TIFFClose(t);
    return ok;
}

bool writeGrey(const std::string &path, const Canvas &c, Rng &rng)
{
    TIFF *t = openPage(path, 8, PHOTOMETRIC_MINISBLACK, COMPRESSION_LZW);
    if (!t)
        return false;
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
    std::vector<uint8_t> row(W);
    const double tilt = 0.6 * rng.unit();
    bool ok = true;
    for (int y = 0; y < H && ok; ++y) {
        for (int x = 0; x < W; ++x) {
            // Paper: a slow illumination gradient in steps of one level, then the ink.
            const int paper = 246 - int((x * tilt + y * 0.4) / 600.0);
            const int ink = c.ink[size_t(y) * W + x];
            row[x] = uint8_t(paper - (paper - 28) * ink / 255);
        }
        ok = TIFFWriteScanline(t, row.data(), uint32_t(y), 0) == 1;
    }
    TIFFClose(t);
    return ok;
}

bool writeColour(const std::string &path, const Canvas &c, Rng &rng)
{
    FILE *f = std::fopen(path.c_str(), "wb");
    if (!f)
        return false;
    jpeg_compress_struct cinfo;
    jpeg_error_mgr jerr;
    cinfo.err = jpeg_std_error(&jerr);
    jpeg_create_compress(&cinfo);
    jpeg_stdio_dest(&cinfo, f);
    cinfo.image_width = W;
    cinfo.image_height = H;
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, 85, TRUE);
    cinfo.density_unit = 1;
    cinfo.X_density = 300;
    cinfo.Y_density = 300;
    jpeg_start_compress(&cinfo, TRUE);
    std::vector<uint8_t> row(size_t(W) * 3);
    // Ink colour: dark blue body, a red heading, and a photo-like block at the left.
    const double fx = 0.004 + 0.004 * rng.unit(), fy = 0.003 + 0.004 * rng.unit();
    while (cinfo.next_scanline < cinfo.image_height) {
        const int y = int(cinfo.next_scanline);
        for (int x = 0; x < W; ++x) {
            int r = 250, g = 248, b = 240; // cream paper
            if (x >= 240 && x < 840 && y >= 760 && y < 1660) {
                // Photo: smooth colour fields with texture.
                const double v = std::sin(x * fx) * std::cos(y * fy);
                const int n = int(rng.next() % 23) - 11;
                r = std::clamp(int(140 + 90 * v) + n, 0, 255);
                g = std::clamp(int(120 + 70 * std::sin((x + y) * 0.003)) + n, 0, 255);
                b = std::clamp(int(90 + 80 * std::cos(x * 0.002 - y * 0.005)) + n, 0, 255);
            }
            const int ink = c.ink[size_t(y) * W + x];
            const int ir = y < 400 ? 170 : 20, ig = y < 400 ? 20 : 30, ib = y < 400 ? 30 : 90;
            row[size_t(x) * 3 + 0] = uint8_t(r + (ir - r) * ink / 255);
            row[size_t(x) * 3 + 1] = uint8_t(g + (ig - g) * ink / 255);
            row[size_t(x) * 3 + 2] = uint8_t(b + (ib - b) * ink / 255);
        }
        JSAMPROW p = row.data();
        jpeg_write_scanlines(&cinfo, &p, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    return std::fclose(f) == 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "usage: make_scans OUT_DIR COUNT_BW COUNT_GREY COUNT_COLOUR\n");
        return 2;
    }
    const std::string dir = argv[1];
    const int counts[3] = {std::atoi(argv[2]), std::atoi(argv[3]), std::atoi(argv[4])};
    TIFFSetWarningHandler(nullptr);
    int failures = 0;
    for (int kind = 0; kind < 3; ++kind)
        for (int i = 0; i < counts[kind]; ++i) {
            const uint64_t seed = uint64_t(kind) * 100000 + uint64_t(i) + 1;
            Rng rng(seed);
            Canvas c;
            renderPage(c, rng, kind == 2 ? 900 : 240);
            char name[64];
            bool ok = false;
            if (kind == 0) {
                std::snprintf(name, sizeof name, "/bw_%04d.tif", i);
                ok = writeBilevel(dir + name, c);
            } else if (kind == 1) {
                std::snprintf(name, sizeof name, "/grey_%04d.tif", i);
                ok = writeGrey(dir + name, c, rng);
            } else {
                std::snprintf(name, sizeof name, "/colour_%04d.jpg", i);
                ok = writeColour(dir + name, c, rng);
            }
            if (!ok) {
                std::fprintf(stderr, "make_scans: could not write %s%s\n", dir.c_str(), name);
                ++failures;
            }
        }
    return failures ? 1 : 0;
}
