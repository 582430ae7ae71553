#pragma once

// The font of the invisible text layer: every character has the same width and draws
// nothing, so the words can be stretched over the scanned ones while copying, searching and
// text extraction still see Unicode. Its objects are given as data and dictionary texts, so
// that our own PDF writer and qpdf both write them.
//
// The objects: a Type0 font (glyphlessType0) whose codes are UTF-16 code units (Identity-H),
// over a CIDFontType2 (glyphlessCidFont) that draws every code with glyph 1 (the stream
// glyphlessCidToGid) of the TrueType program glyphlessTrueType, described by
// glyphlessDescriptor; glyphlessToUnicode maps the codes back to text.

#include <cstdint>
#include <string>
#include <vector>

namespace pw {

// Advance of every character, in thousandths of the font size.
inline constexpr int kGlyphlessAdvance = 500;

// The name the resources of a text layer give the font.
inline constexpr char kOcrFont[] = "Ocr";

// A TrueType program of one empty glyph (besides .notdef), advance kGlyphlessAdvance.
std::vector<uint8_t> glyphlessTrueType();
std::vector<uint8_t> glyphlessCidToGid();
std::string glyphlessToUnicode();

// The dictionaries, given the references ("12 0 R") of the objects they name.
std::string glyphlessDescriptor(const std::string &program);
std::string glyphlessCidFont(const std::string &descriptor, const std::string &cidToGid);
std::string glyphlessType0(const std::string &cidFont, const std::string &toUnicode);

// The text as the font's codes: a PDF hexadecimal string of UTF-16 code units. Bytes that are
// no UTF-8 become U+FFFD. `units` is set to the number of characters drawn.
std::string glyphlessCodes(const std::string &utf8, int &units);

} // namespace pw
