#pragma once

// Encoders for the PDF filters, and the choice of encoding for a decoded page.

#include "page_image.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pw::i2p {

// zlib data at our default level, or at `level` (parallel_deflate.h's kHuffmanOnly included).
std::vector<uint8_t> deflateBytes(const uint8_t *data, size_t size);
std::vector<uint8_t> deflateBytes(const uint8_t *data, size_t size, int level);
// LZWDecode data with the PDF default EarlyChange 1.
std::vector<uint8_t> lzwEncode(const uint8_t *data, size_t size);
// RunLengthDecode data, closed by the end-of-data byte.
std::vector<uint8_t> runLengthEncode(const uint8_t *data, size_t size);
// TIFF PackBits strips as one RunLengthDecode stream: checks that the runs decode to exactly
// `expected` bytes and appends the end-of-data byte. False when the data does not fit.
bool packBitsToRunLength(std::vector<uint8_t> &data, size_t expected);

// DCTDecode data of an 8-bit grey, RGB or CMYK raster (jpeg_codec.cpp).
std::vector<uint8_t> jpegEncode(const Raster &raster, int quality);
// CCITTFaxDecode data of a 1-bit raster, G4 or one-dimensional G3 (ccitt_encoder.cpp).
std::vector<uint8_t> ccittEncode(const Raster &raster, bool g4);

// Encodes a decoded page with `wanted` (Filter::None: Flate, with a predictor for continuous
// tone). When the wanted filter cannot carry the page, Flate is used and `fellBack` is set.
EncodedImage encodeRaster(Raster raster, Filter wanted, bool &fellBack);

} // namespace pw::i2p
