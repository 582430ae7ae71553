#pragma once

// Test images made in code, each with the picture a faithful PDF must show. The patterns are
// 96 dpi.

#include <QImage>
#include <QString>

#include <cstdint>

// A colourful, non-trivial picture: gradients, edges and a few flat areas.
QImage colourPattern(int width, int height);
// Black text-like strokes on white, as a scanner produces.
QImage bilevelPattern(int width, int height);

struct TiffLayout {
    int width = 64;
    int height = 48;
    int bps = 8;
    int spp = 3;
    uint16_t photometric = 2; // PHOTOMETRIC_RGB
    uint16_t compression = 1;
    uint16_t predictor = 1;
    int rowsPerStrip = 0; // 0: one strip
    int extraSamples = 0; // 0 none, 1 associated alpha, 2 unassociated alpha
    int pages = 1;
    bool reducedCopy = false; // adds a thumbnail directory after each page
    float dpi = 0;            // 0: no resolution tags
};

// Writes a TIFF of `layout` to `path`; `expected` receives page 0 as it should look on white.
bool writeTiff(const QString &path, const TiffLayout &layout, QImage *expected = nullptr);
