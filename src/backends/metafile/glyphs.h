#pragma once

// Text as outlines, from the fonts fontconfig finds, through FreeType: the painter's own text
// needs a QGuiApplication, which pagewright-batch does not start (it would cost every start
// several milliseconds), and outlines draw the same in both programs.

#include <QPainterPath>
#include <QString>

#include <memory>
#include <vector>

namespace pw::metafile {

struct Typeface {
    QString family;
    int weight = 400;
    bool italic = false;
};

// One face's vertical metrics as fractions of its em.
struct FontMetrics {
    double ascent = 0.8;
    double descent = 0.2;
};

class Glyphs {
public:
    Glyphs();
    ~Glyphs();
    Glyphs(const Glyphs &) = delete;
    Glyphs &operator=(const Glyphs &) = delete;

    // The outline of `text` at an em of `em` units, the baseline's start at the origin and y
    // running down. `advances`, when it holds an entry per character, places each character
    // after the one before; otherwise the font's own advances do. Empty when no font is found.
    QPainterPath outline(const QString &text, const Typeface &font, double em,
                         const std::vector<double> &advances, double *width = nullptr);
    FontMetrics metrics(const Typeface &font);

private:
    struct Library;
    std::unique_ptr<Library> library_;
};

} // namespace pw::metafile
