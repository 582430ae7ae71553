#pragma once

// The records of an enhanced (EMF) or older Windows metafile (WMF) played onto an image with
// Qt's painter.

#include <QImage>

#include <cstddef>
#include <cstdint>

namespace pw::metafile {

// The picture of the EMF in `data`, on white, at `dpi` or less when the picture would
// otherwise pass `maxSide` pixels; `dpi` receives the resolution used. Throws ApFailure when
// the records are damaged or end before the end-of-file record.
QImage playEmf(const uint8_t *data, size_t size, double &dpi, int maxSide = 10000);
// The same for a Windows metafile (WMF), with or without its placeable header.
QImage playWmf(const uint8_t *data, size_t size, double &dpi, int maxSide = 10000);

} // namespace pw::metafile
