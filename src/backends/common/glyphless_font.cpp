#include "glyphless_font.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace pw {

namespace {

class Bytes {
public:
    Bytes &u16(int v)
    {
        data.push_back(uint8_t(v >> 8));
        data.push_back(uint8_t(v));
        return *this;
    }
    Bytes &u32(uint32_t v) { return u16(int(v >> 16)).u16(int(v & 0xFFFF)); }
    Bytes &zeros(size_t n)
    {
        data.insert(data.end(), n, 0);
        return *this;
    }
    std::vector<uint8_t> data;
};

constexpr int kUnitsPerEm = 1000;
constexpr int kAscent = 800;
constexpr int kDescent = -200;
constexpr int kGlyphs = 2;

uint32_t checksum(const std::vector<uint8_t> &bytes)
{
    uint32_t sum = 0;
    for (size_t i = 0; i < bytes.size(); i += 4) {
        uint32_t word = 0;
        for (size_t k = 0; k < 4; ++k)
            word = (word << 8) | (i + k < bytes.size() ? bytes[i + k] : 0);
        sum += word;
    }
    return sum;
}

struct Table {
    const char *tag;
    std::vector<uint8_t> data;
};

std::vector<uint8_t> head()
{
    return Bytes()
        .u32(0x00010000)
        .u32(0x00010000)
        .u32(0) // checkSumAdjustment, set once the whole font is known
        .u32(0x5F0F3CF5)
        .u16(0x000B)
        .u16(kUnitsPerEm)
        .zeros(16) // created, modified
        .u16(0)
        .u16(kDescent)
        .u16(kGlyphlessAdvance)
        .u16(kAscent)
        .u16(0) // macStyle
        .u16(3)
        .u16(2)
        .u16(0) // short loca offsets
        .u16(0)
        .data;
}

std::vector<uint8_t> hhea()
{
    return Bytes()
        .u32(0x00010000)
        .u16(kAscent)
        .u16(kDescent)
        .u16(0)
        .u16(kGlyphlessAdvance)
        .zeros(6) // minLeftSideBearing, minRightSideBearing, xMaxExtent
        .u16(1)   // caret slope rise: upright
        .zeros(14)
        .u16(kGlyphs)
        .data;
}

std::vector<uint8_t> maxp()
{
    return Bytes().u32(0x00010000).u16(kGlyphs).zeros(8).u16(2).zeros(16).data;
}

std::vector<uint8_t> hmtx()
{
    Bytes b;
    for (int g = 0; g < kGlyphs; ++g)
        b.u16(kGlyphlessAdvance).u16(0);
    return b.data;
}

// Every character code reaches glyph 1; the PDF font maps codes itself, but some readers
// insist on a cmap all the same.
std::vector<uint8_t> cmap()
{
    return Bytes()
        .u16(0)
        .u16(1)
        .u16(3)
        .u16(1)
        .u32(12)
        // format 4, one segment: the closing 0xFFFF one, mapped to glyph 0
        .u16(4)
        .u16(24)
        .u16(0)
        .u16(2)
        .u16(2)
        .u16(0)
        .u16(0)
        .u16(0xFFFF)
        .u16(0)
        .u16(0xFFFF)
        .u16(1)
        .u16(0)
        .data;
}

std::vector<uint8_t> post()
{
    return Bytes().u32(0x00030000).u32(0).u16(-100).u16(50).u32(1).zeros(16).data;
}

} // namespace

std::vector<uint8_t> glyphlessTrueType()
{
    // Sorted by tag, as the table directory must be. Both glyphs are empty: glyf holds nothing.
    std::array<Table, 9> tables{{{"cmap", cmap()},
                                 {"glyf", {}},
                                 {"head", head()},
                                 {"hhea", hhea()},
                                 {"hmtx", hmtx()},
                                 {"loca", Bytes().zeros(2 * (kGlyphs + 1)).data},
                                 {"maxp", maxp()},
                                 {"name", Bytes().u16(0).u16(0).u16(6).data},
                                 {"post", post()}}};
    Bytes font;
    font.u32(0x00010000).u16(int(tables.size())).u16(128).u16(3).u16(int(tables.size()) * 16 - 128);
    size_t offset = 12 + 16 * tables.size();
    size_t headOffset = 0;
    for (const Table &t : tables) {
        for (int k = 0; k < 4; ++k)
            font.data.push_back(uint8_t(t.tag[k]));
        font.u32(checksum(t.data)).u32(uint32_t(offset)).u32(uint32_t(t.data.size()));
        if (std::string_view(t.tag) == "head")
            headOffset = offset;
        offset += (t.data.size() + 3) / 4 * 4;
    }
    for (const Table &t : tables) {
        font.data.insert(font.data.end(), t.data.begin(), t.data.end());
        font.zeros((4 - t.data.size() % 4) % 4);
    }
    const uint32_t adjustment = 0xB1B0AFBA - checksum(font.data);
    for (int k = 0; k < 4; ++k)
        font.data[headOffset + 8 + size_t(k)] = uint8_t(adjustment >> (24 - 8 * k));
    return font.data;
}

std::string glyphlessDescriptor(const std::string &program)
{
    return "<< /Type /FontDescriptor /FontName /GlyphLessFont /Flags 5 /FontBBox [0 " +
           std::to_string(kDescent) + ' ' + std::to_string(kGlyphlessAdvance) + ' ' +
           std::to_string(kAscent) + "] /ItalicAngle 0 /Ascent " + std::to_string(kAscent) +
           " /Descent " + std::to_string(kDescent) + " /CapHeight " + std::to_string(kAscent) +
           " /StemV 80 /FontFile2 " + program + " >>";
}

std::vector<uint8_t> glyphlessCidToGid()
{
    // Every code, a UTF-16 unit, draws glyph 1.
    Bytes glyphs;
    for (int code = 0; code < 0x10000; ++code)
        glyphs.u16(1);
    return glyphs.data;
}

std::string glyphlessCidFont(const std::string &descriptor, const std::string &cidToGid)
{
    return "<< /Type /Font /Subtype /CIDFontType2 /BaseFont /GlyphLessFont /CIDSystemInfo "
           "<< /Registry (Adobe) /Ordering (Identity) /Supplement 0 >> /FontDescriptor " +
           descriptor + " /DW " + std::to_string(kGlyphlessAdvance) + " /CIDToGIDMap " + cidToGid +
           " >>";
}

std::string glyphlessToUnicode()
{
    std::string map = "/CIDInit /ProcSet findresource begin\n12 dict begin\nbegincmap\n"
                      "/CIDSystemInfo << /Registry (Adobe) /Ordering (UCS) /Supplement 0 >> def\n"
                      "/CMapName /Adobe-Identity-UCS def\n/CMapType 2 def\n"
                      "1 begincodespacerange\n<0000> <FFFF>\nendcodespacerange\n";
    // A range may not cross a change of its first byte: one per high byte.
    for (int block = 0; block < 256; block += 100) {
        const int count = std::min(100, 256 - block);
        map += std::to_string(count) + " beginbfrange\n";
        for (int high = block; high < block + count; ++high) {
            char line[32];
            std::snprintf(line, sizeof line, "<%02X00> <%02XFF> <%02X00>\n", high, high, high);
            map += line;
        }
        map += "endbfrange\n";
    }
    return map + "endcmap\nCMapName currentdict /CMap defineresource pop\nend\nend\n";
}

std::string glyphlessType0(const std::string &cidFont, const std::string &toUnicode)
{
    return "<< /Type /Font /Subtype /Type0 /BaseFont /GlyphLessFont /Encoding /Identity-H "
           "/DescendantFonts [" +
           cidFont + "] /ToUnicode " + toUnicode + " >>";
}

namespace {

// The next code point of `s` from `i`, U+FFFD for a byte that starts no valid sequence.
char32_t nextCodePoint(const std::string &s, size_t &i)
{
    const auto byte = [&](size_t k) { return k < s.size() ? uint8_t(s[k]) : 0; };
    const uint8_t lead = byte(i);
    const int length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
    if (length == 0) {
        ++i;
        return 0xFFFD;
    }
    char32_t c = length == 1 ? lead : lead & (0x7F >> length);
    for (int k = 1; k < length; ++k) {
        if ((byte(i + size_t(k)) & 0xC0) != 0x80) {
            i += size_t(k);
            return 0xFFFD;
        }
        c = (c << 6) | (byte(i + size_t(k)) & 0x3F);
    }
    i += size_t(length);
    return c > 0x10FFFF || (c >= 0xD800 && c < 0xE000) ? 0xFFFD : c;
}

} // namespace

std::string glyphlessCodes(const std::string &utf8, int &units)
{
    std::string hex = "<";
    units = 0;
    const auto unit = [&](unsigned v) {
        char four[8];
        std::snprintf(four, sizeof four, "%04X", v & 0xFFFF);
        hex += four;
        ++units;
    };
    for (size_t i = 0; i < utf8.size();) {
        const char32_t c = nextCodePoint(utf8, i);
        if (c < 0x10000) {
            unit(unsigned(c));
            continue;
        }
        unit(0xD800 + ((c - 0x10000) >> 10));
        unit(0xDC00 + ((c - 0x10000) & 0x3FF));
    }
    return hex + '>';
}

} // namespace pw
