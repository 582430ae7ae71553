#pragma once

// The records of an enhanced (EMF) or older Windows metafile (WMF) played with Qt's painter
// onto an image or a PDF page.

#include <QPaintDevice>
#include <QSizeF>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace pw::metafile {

// What a picture is painted on: a device as large as the picture, with `dotsPerMm` of its
// units to a millimetre of the picture.
struct Canvas {
    QPaintDevice *device = nullptr;
    double dotsPerMm = 0;
};
// Makes the canvas for a picture of the given size in millimetres; it must outlive the play.
using CanvasFor = std::function<Canvas(const QSizeF &mm)>;

// Plays the EMF in `data` onto the canvas `canvasFor` makes. Throws pw::Failure when the records
// are damaged or end before the end-of-file record.
void playEmf(const uint8_t *data, size_t size, const CanvasFor &canvasFor);
// The same for a Windows metafile (WMF), with or without its placeable header.
void playWmf(const uint8_t *data, size_t size, const CanvasFor &canvasFor);

} // namespace pw::metafile
