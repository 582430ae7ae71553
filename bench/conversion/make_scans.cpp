// Writes a batch of synthetic A4 scans at 300 dpi (2480 x 3508) that look like what office
// scanners produce: lines of text-like strokes with a heading, a ruled table and a signature,
// fed a little askew (up to 0.8 degrees), with the sensor's Gaussian noise on the paper and
// ink (sigma 4 levels), ragged edges on bilevel strokes and dust speckle, so that every
// compressor has the work real scans give it.
//
//   make_scans OUT_DIR COUNT_BW COUNT_GREY COUNT_COLOUR [COUNT_MULTI]
//
// bw_NNNN.tif     bilevel, CCITT Group 4, one strip, min-is-white
// grey_NNNN.tif   8-bit grey, LZW, default strips, paper shading
// colour_NNNN.jpg RGB JPEG, quality 85, 4:2:0, a photo-like block beside the text
// multi_NNNN.tif  ten bilevel G4 pages, as a document feeder writes them
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

// An approximately normal sample of mean 0 and deviation `sigma` (four uniform bytes summed).
double noise(Rng &rng, double sigma)
{
    const uint64_t v = rng.next();
    const int sum = int(v & 255) + int(v >> 8 & 255) + int(v >> 16 & 255) + int(v >> 24 & 255);
    return (sum - 510) * (sigma / 147.8);
}

// The page as the scanner saw it: the ink turned by the page's skew about its centre.
struct Skewed {
    const Canvas &c;
    double cosA, sinA;
    Skewed(const Canvas &canvas, Rng &rng) : c(canvas)
    {
        const double degrees = (rng.unit() - 0.5) * 1.6;
        cosA = std::cos(degrees * M_PI / 180);
        sinA = std::sin(degrees * M_PI / 180);
    }
    int ink(int x, int y) const
    {
        const double dx = x - W / 2.0, dy = y - H / 2.0;
        const int sx = int(std::lround(W / 2.0 + dx * cosA - dy * sinA));
        const int sy = int(std::lround(H / 2.0 + dx * sinA + dy * cosA));
        return sx < 0 || sy < 0 || sx >= W || sy >= H ? 0 : c.ink[size_t(sy) * W + size_t(sx)];
    }
};

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
    // Dust speckle.
    for (int i = 0; i < 6000; ++i) {
        const int sx = rng.range(0, W - 1), sy = rng.range(0, H - 1), sz = rng.range(1, 3);
        for (int dy = 0; dy < sz; ++dy)
            for (int dx = 0; dx < sz; ++dx)
                c.put(sx + dx, sy + dy, 255);
    }
}

// The fields of a one-sample A4 page at Dpi, for the directory `t` is writing.
void describePage(TIFF *t, int bits, uint16_t photometric, uint16_t compression)
{
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, W);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, H);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bits);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
    TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
    TIFFSetField(t, TIFFTAG_XRESOLUTION, Dpi);
    TIFFSetField(t, TIFFTAG_YRESOLUTION, Dpi);
    TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
}

// A one-sample A4 page at Dpi, open for its scanlines; null when it cannot be created.
TIFF *openPage(const std::string &path, int bits, uint16_t photometric, uint16_t compression)
{
    TIFF *t = TIFFOpen(path.c_str(), "w");
    if (t)
        describePage(t, bits, photometric, compression);
    return t;
}

// Writes one bilevel page into `t`: the skewed ink thresholded through the sensor's noise, so
// that stroke edges come out ragged as they do from a real scanner.
bool writeBilevelPage(TIFF *t, const Canvas &c, Rng &rng)
{
    TIFFSetField(t, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, H);
    const Skewed page(c, rng);
    std::vector<uint8_t> row((W + 7) / 8);
    bool ok = true;
    for (int y = 0; y < H && ok; ++y) {
        std::fill(row.begin(), row.end(), 0);
        for (int x = 0; x < W; ++x) {
            const int ink = page.ink(x, y);
            if (ink > 0 && ink + noise(rng, 60) >= 128)
                row[x >> 3] |= uint8_t(0x80 >> (x & 7));
        }
        ok = TIFFWriteScanline(t, row.data(), uint32_t(y), 0) == 1;
    }
    return ok;
}

bool writeBilevel(const std::string &path, const Canvas &c, Rng &rng)
{
    TIFF *t = openPage(path, 1, PHOTOMETRIC_MINISWHITE, COMPRESSION_CCITTFAX4);
    if (!t)
        return false;
    const bool ok = writeBilevelPage(t, c, rng);
    TIFFClose(t);
    return ok;
}

// Ten bilevel pages, each with content of its own.
bool writeMulti(const std::string &path, uint64_t seed)
{
    TIFF *t = TIFFOpen(path.c_str(), "w");
    bool ok = t != nullptr;
    for (int page = 0; page < 10 && ok; ++page) {
        Rng rng(seed * 16 + uint64_t(page));
        Canvas c;
        renderPage(c, rng, 240);
        describePage(t, 1, PHOTOMETRIC_MINISWHITE, COMPRESSION_CCITTFAX4);
        TIFFSetField(t, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
        TIFFSetField(t, TIFFTAG_PAGENUMBER, page, 10);
        ok = writeBilevelPage(t, c, rng) && TIFFWriteDirectory(t);
    }
    if (t)
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
    const Skewed page(c, rng);
    bool ok = true;
    for (int y = 0; y < H && ok; ++y) {
        for (int x = 0; x < W; ++x) {
            // Paper: a slow illumination gradient, then the ink, then the sensor's noise.
            const int paper = 246 - int((x * tilt + y * 0.4) / 600.0);
            const int ink = page.ink(x, y);
            const double v = paper - (paper - 28) * ink / 255.0 + noise(rng, 4);
            row[x] = uint8_t(std::clamp(int(std::lround(v)), 0, 255));
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
    const Skewed page(c, rng);
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
            const int ink = page.ink(x, y);
            const int ir = y < 400 ? 170 : 20, ig = y < 400 ? 20 : 30, ib = y < 400 ? 30 : 90;
            const int mixed[3] = {r + (ir - r) * ink / 255, g + (ig - g) * ink / 255,
                                  b + (ib - b) * ink / 255};
            for (int k = 0; k < 3; ++k)
                row[size_t(x) * 3 + size_t(k)] =
                    uint8_t(std::clamp(int(std::lround(mixed[k] + noise(rng, 4))), 0, 255));
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
    if (argc != 5 && argc != 6) {
        std::fprintf(stderr,
                     "usage: make_scans OUT_DIR COUNT_BW COUNT_GREY COUNT_COLOUR [COUNT_MULTI]\n");
        return 2;
    }
    const std::string dir = argv[1];
    const int counts[4] = {std::atoi(argv[2]), std::atoi(argv[3]), std::atoi(argv[4]),
                           argc == 6 ? std::atoi(argv[5]) : 0};
    TIFFSetWarningHandler(nullptr);
    int failures = 0;
    for (int kind = 0; kind < 4; ++kind)
        for (int i = 0; i < counts[kind]; ++i) {
            const uint64_t seed = uint64_t(kind) * 100000 + uint64_t(i) + 1;
            char name[64];
            if (kind == 3) {
                std::snprintf(name, sizeof name, "/multi_%04d.tif", i);
                if (!writeMulti(dir + name, seed)) {
                    std::fprintf(stderr, "make_scans: could not write %s%s\n", dir.c_str(), name);
                    ++failures;
                }
                continue;
            }
            Rng rng(seed);
            Canvas c;
            renderPage(c, rng, kind == 2 ? 900 : 240);
            bool ok = false;
            if (kind == 0) {
                std::snprintf(name, sizeof name, "/bw_%04d.tif", i);
                ok = writeBilevel(dir + name, c, rng);
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
