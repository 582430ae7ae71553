#pragma once

// The font of the invisible text layer: every character has the same width and draws
// nothing, so the words can be stretched over the scanned ones while copying, searching and
// text extraction still see Unicode.

#include "pdf_writer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace pw::i2p {

// Advance of every character, in thousandths of the font size.
inline constexpr int kGlyphlessAdvance = 500;

// A TrueType program of one empty glyph (besides .notdef), advance kGlyphlessAdvance.
std::vector<uint8_t> glyphlessTrueType();

// Writes the font's objects (an Identity-H Type0 font over the TrueType program, whose codes
// are UTF-16 code units) and returns the number of the font object to name in /Resources.
int writeGlyphlessFont(PdfWriter &out);

// The text as the font's codes: a PDF hexadecimal string of UTF-16 code units. Bytes that are
// no UTF-8 become U+FFFD. `units` is set to the number of characters drawn.
std::string glyphlessCodes(const std::string &utf8, int &units);

} // namespace pw::i2p
