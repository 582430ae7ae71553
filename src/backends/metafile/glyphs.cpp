#include "glyphs.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

#include <map>
#include <memory>
#include <string>
#include <type_traits>

namespace pw::metafile {

namespace {

struct FaceClose {
    void operator()(FT_Face f) const { FT_Done_Face(f); }
};
using FacePtr = std::unique_ptr<std::remove_pointer_t<FT_Face>, FaceClose>;

// The font file fontconfig picks for `font`, with the face's index in it.
std::pair<std::string, int> fontFile(const Typeface &font)
{
    FcPattern *pattern = FcPatternCreate();
    const QByteArray family = font.family.toUtf8();
    if (!family.isEmpty())
        FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8 *>(family.data()));
    FcPatternAddInteger(pattern, FC_WEIGHT,
                        font.weight >= 600 ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
    FcPatternAddInteger(pattern, FC_SLANT, font.italic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern *match = FcFontMatch(nullptr, pattern, &result);
    FcPatternDestroy(pattern);
    std::pair<std::string, int> found;
    FcChar8 *file = nullptr;
    if (match && FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch) {
        found.first = reinterpret_cast<const char *>(file);
        FcPatternGetInteger(match, FC_INDEX, 0, &found.second);
    }
    if (match)
        FcPatternDestroy(match);
    return found;
}

// FreeType's outline walk, into a path in font units with y turned down.
struct PathBuilder {
    QPainterPath *path;
    double x;
    double scale;
    QPointF at(const FT_Vector *v) const { return {x + v->x * scale, -v->y * scale}; }
};

int moveTo(const FT_Vector *to, void *user)
{
    auto *b = static_cast<PathBuilder *>(user);
    b->path->closeSubpath();
    b->path->moveTo(b->at(to));
    return 0;
}
int lineTo(const FT_Vector *to, void *user)
{
    auto *b = static_cast<PathBuilder *>(user);
    b->path->lineTo(b->at(to));
    return 0;
}
int conicTo(const FT_Vector *control, const FT_Vector *to, void *user)
{
    auto *b = static_cast<PathBuilder *>(user);
    b->path->quadTo(b->at(control), b->at(to));
    return 0;
}
int cubicTo(const FT_Vector *c1, const FT_Vector *c2, const FT_Vector *to, void *user)
{
    auto *b = static_cast<PathBuilder *>(user);
    b->path->cubicTo(b->at(c1), b->at(c2), b->at(to));
    return 0;
}

} // namespace

struct Glyphs::Library {
    FT_Library ft = nullptr;
    std::map<std::pair<std::string, int>, FacePtr> faces;
    Library() { FT_Init_FreeType(&ft); }
    ~Library()
    {
        faces.clear();
        FT_Done_FreeType(ft);
    }
    FT_Face face(const Typeface &font)
    {
        const auto file = fontFile(font);
        if (file.first.empty() || !ft)
            return nullptr;
        auto found = faces.find(file);
        if (found == faces.end()) {
            FT_Face f = nullptr;
            if (FT_New_Face(ft, file.first.c_str(), file.second, &f) != 0)
                f = nullptr;
            found = faces.emplace(file, FacePtr(f)).first;
        }
        return found->second.get();
    }
};

Glyphs::Glyphs() : library_(std::make_unique<Library>()) {}
Glyphs::~Glyphs() = default;

QPainterPath Glyphs::outline(const QString &text, const Typeface &font, double em,
                             const std::vector<double> &advances, double *width)
{
    QPainterPath path;
    FT_Face face = library_->face(font);
    if (!face || face->units_per_EM == 0)
        return path;
    const double scale = em / face->units_per_EM;
    static const FT_Outline_Funcs funcs = {moveTo, lineTo, conicTo, cubicTo, 0, 0};
    double x = 0;
    const std::u32string chars = text.toStdU32String();
    for (size_t i = 0; i < chars.size(); ++i) {
        const FT_UInt glyph = FT_Get_Char_Index(face, FT_ULong(chars[i]));
        const bool loaded = FT_Load_Glyph(face, glyph, FT_LOAD_NO_SCALE | FT_LOAD_NO_BITMAP) == 0;
        if (loaded && face->glyph->format == FT_GLYPH_FORMAT_OUTLINE) {
            PathBuilder builder{&path, x, scale};
            FT_Outline_Decompose(&face->glyph->outline, &funcs, &builder);
            path.closeSubpath();
        }
        const double own = loaded ? face->glyph->advance.x * scale : em / 2;
        x += advances.size() == chars.size() ? advances[i] : own;
    }
    if (width)
        *width = x;
    return path;
}

FontMetrics Glyphs::metrics(const Typeface &font)
{
    FT_Face face = library_->face(font);
    if (!face || face->units_per_EM == 0)
        return {};
    return {double(face->ascender) / face->units_per_EM,
            -double(face->descender) / face->units_per_EM};
}

} // namespace pw::metafile
