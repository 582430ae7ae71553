// An EMF is a list of GDI calls. Each record is checked against its own size before a field of
// it is read; the state GDI keeps between calls (mapping, objects, colours, the path, the clip)
// lives in Dc, and every drawing goes through one painter on the page image.

#include "emf_player.h"

#include "failure.h"
#include "glyphs.h"

#include <QPainter>
#include <QPainterPath>
#include <QTransform>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

namespace pw::metafile {

namespace {

enum RecordType : uint32_t {
    kHeader = 1,
    kPolyBezier = 2,
    kPolygon = 3,
    kPolyline = 4,
    kPolyBezierTo = 5,
    kPolylineTo = 6,
    kPolyPolyline = 7,
    kPolyPolygon = 8,
    kSetWindowExt = 9,
    kSetWindowOrg = 10,
    kSetViewportExt = 11,
    kSetViewportOrg = 12,
    kEof = 14,
    kSetMapMode = 17,
    kSetBkMode = 18,
    kSetPolyFillMode = 19,
    kSetTextAlign = 22,
    kSetTextColor = 24,
    kSetBkColor = 25,
    kMoveTo = 27,
    kExcludeClipRect = 29,
    kIntersectClipRect = 30,
    kSaveDc = 33,
    kRestoreDc = 34,
    kSetWorldTransform = 35,
    kModifyWorldTransform = 36,
    kSelectObject = 37,
    kCreatePen = 38,
    kCreateBrush = 39,
    kDeleteObject = 40,
    kEllipse = 42,
    kRectangle = 43,
    kRoundRect = 44,
    kArc = 45,
    kChord = 46,
    kPie = 47,
    kLineTo = 54,
    kBeginPath = 59,
    kEndPath = 60,
    kCloseFigure = 61,
    kFillPath = 62,
    kStrokeAndFillPath = 63,
    kStrokePath = 64,
    kSelectClipPath = 67,
    kAbortPath = 68,
    kExtSelectClipRgn = 75,
    kBitBlt = 76,
    kStretchBlt = 77,
    kStretchDiBits = 81,
    kExtCreateFont = 82,
    kExtTextOutA = 83,
    kExtTextOutW = 84,
    kPolyBezier16 = 85,
    kPolygon16 = 86,
    kPolyline16 = 87,
    kPolyBezierTo16 = 88,
    kPolylineTo16 = 89,
    kPolyPolyline16 = 90,
    kPolyPolygon16 = 91,
    kCreateMonoBrush = 93,
    kCreateDibPatternBrush = 94,
    kExtCreatePen = 95
};

// One record's bytes; reading past them is the file's damage, never ours.
class Record {
public:
    Record(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    uint32_t type() const { return u32(0); }
    size_t size() const { return size_; }
    const uint8_t *need(size_t at, size_t n) const
    {
        if (at > size_ || n > size_ - at)
            throw invalidFormat("metafile: a record shorter than its contents");
        return data_ + at;
    }
    uint32_t u32(size_t at) const
    {
        const uint8_t *p = need(at, 4);
        return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
    }
    int32_t i32(size_t at) const { return int32_t(u32(at)); }
    int16_t i16(size_t at) const
    {
        const uint8_t *p = need(at, 2);
        return int16_t(p[0] | p[1] << 8);
    }
    float f32(size_t at) const
    {
        const uint32_t bits = u32(at);
        float f;
        std::memcpy(&f, &bits, 4);
        return std::isfinite(f) ? f : 0.0f;
    }
    QPointF point(size_t at) const { return QPointF(i32(at), i32(at + 4)); }
    QRectF rect(size_t at) const
    {
        return QRectF(QPointF(i32(at), i32(at + 4)), QPointF(i32(at + 8), i32(at + 12)));
    }
    QColor colour(size_t at) const
    {
        const uint32_t c = u32(at);
        return QColor(int(c & 0xFF), int(c >> 8 & 0xFF), int(c >> 16 & 0xFF));
    }
    // `count` points of 32-bit (or 16-bit when `small`) coordinates from `at`.
    QPolygonF points(size_t at, uint32_t count, bool small) const
    {
        const size_t each = small ? 4 : 8;
        need(at, size_t(count) * each);
        QPolygonF out;
        out.reserve(int(count));
        for (uint32_t i = 0; i < count; ++i, at += each)
            out << (small ? QPointF(i16(at), i16(at + 2)) : point(at));
        return out;
    }

private:
    const uint8_t *data_;
    size_t size_;
};

struct Pen {
    QColor colour = Qt::black;
    double width = 0; // logical units; 0: one device pixel
    Qt::PenStyle style = Qt::SolidLine;
};
struct Brush {
    QColor colour = Qt::white;
    Qt::BrushStyle style = Qt::SolidPattern;
    QImage pattern; // a pattern brush's tile, in pixels of the reference device
};
struct Font {
    Typeface typeface;
    double height = 0; // negative: the em; positive: the cell
    double escapement = 0;
};
struct Kept {}; // an object that takes a place in the table and draws nothing: a palette, a region
using Object = std::variant<std::monostate, Pen, Brush, Font, Kept>;

// What GDI keeps between calls.
struct Dc {
    int mapMode = 1;
    QPointF windowOrg, viewportOrg;
    QSizeF windowExt{1, 1}, viewportExt{1, 1};
    QTransform world;
    Pen pen;
    Brush brush;
    Font font;
    QColor text = Qt::black, background = Qt::white;
    bool opaqueBackground = true;
    uint32_t align = 0;
    Qt::FillRule fill = Qt::OddEvenFill;
    QPointF position;
    std::optional<QPainterPath> clip; // page pixels; none: the whole page
};

Pen stockPen(uint32_t n)
{
    Pen p;
    p.colour = n == 6 ? Qt::white : Qt::black;
    p.style = n == 8 ? Qt::NoPen : Qt::SolidLine;
    return p;
}

Brush stockBrush(uint32_t n)
{
    static const int greys[] = {255, 192, 128, 64, 0};
    Brush b;
    b.style = n == 5 ? Qt::NoBrush : Qt::SolidPattern;
    b.colour = n < 5 ? QColor(greys[n], greys[n], greys[n]) : Qt::white;
    return b;
}

Qt::PenStyle penStyle(uint32_t style)
{
    switch (style & 0x0F) {
    case 1:
        return Qt::DashLine;
    case 2:
        return Qt::DotLine;
    case 3:
        return Qt::DashDotLine;
    case 4:
        return Qt::DashDotDotLine;
    case 5:
        return Qt::NoPen;
    default:
        return Qt::SolidLine;
    }
}

Qt::BrushStyle hatch(uint32_t h)
{
    static const Qt::BrushStyle styles[] = {Qt::HorPattern,   Qt::VerPattern,
                                            Qt::BDiagPattern, Qt::FDiagPattern,
                                            Qt::CrossPattern, Qt::DiagCrossPattern};
    return h < 6 ? styles[h] : Qt::SolidPattern;
}

class Player {
public:
    // A page showing `mm` of a device with `pixelsPerMm`, on the canvas `canvasFor` gives.
    Player(const QRectF &mm, QPointF pixelsPerMm, size_t handles, const CanvasFor &canvasFor)
        : pixelsPerMm_(pixelsPerMm), handles_(std::clamp<size_t>(handles, 1, 65535))
    {
        if (!(mm.width() > 0 && mm.height() > 0) || pixelsPerMm.x() <= 0 || pixelsPerMm.y() <= 0)
            throw invalidFormat("metafile: a picture without size");
        const Canvas canvas = canvasFor(mm.size());
        page_ = QRectF(0, 0, canvas.device->width(), canvas.device->height());
        // Device units to the canvas's, the picture's corner at the page's.
        toPage_ =
            QTransform::fromTranslate(-mm.x() * pixelsPerMm_.x(), -mm.y() * pixelsPerMm_.y()) *
            QTransform::fromScale(canvas.dotsPerMm / pixelsPerMm_.x(),
                                  canvas.dotsPerMm / pixelsPerMm_.y());
        if (!painter_.begin(canvas.device))
            throw outOfMemory();
        painter_.setRenderHint(QPainter::Antialiasing);
        painter_.setRenderHint(QPainter::SmoothPixmapTransform);
        // A PDF canvas would otherwise store bitmaps as JPEG, losing their exact pixels.
        painter_.setRenderHint(QPainter::LosslessImageRendering);
    }

    void finish() { painter_.end(); }

    // The window's mapping onto a viewport over `device`, as a program playing a WMF into a
    // rectangle sets it up.
    void viewport(const QRectF &device)
    {
        dc_.mapMode = 8;
        dc_.windowOrg = dc_.viewportOrg = device.topLeft();
        dc_.windowExt = dc_.viewportExt = device.size();
    }

private:
    // Logical units to reference-device pixels under the map mode.
    QTransform pageTransform() const
    {
        double sx = 1, sy = 1;
        const auto mm = [&](double millimetres, bool yUp) {
            sx = millimetres * pixelsPerMm_.x();
            sy = (yUp ? -1 : 1) * millimetres * pixelsPerMm_.y();
        };
        switch (dc_.mapMode) {
        case 2:
            mm(0.1, true);
            break;
        case 3:
            mm(0.01, true);
            break;
        case 4:
            mm(0.254, true);
            break;
        case 5:
            mm(0.0254, true);
            break;
        case 6:
            mm(25.4 / 1440, true);
            break;
        case 7:
        case 8:
            if (dc_.windowExt.width() != 0 && dc_.windowExt.height() != 0) {
                sx = dc_.viewportExt.width() / dc_.windowExt.width();
                sy = dc_.viewportExt.height() / dc_.windowExt.height();
                if (dc_.mapMode == 7) { // isotropic: the smaller scale both ways
                    const double s = std::min(std::abs(sx), std::abs(sy));
                    sx = std::copysign(s, sx);
                    sy = std::copysign(s, sy);
                }
            }
            break;
        default:
            break;
        }
        return QTransform(sx, 0, 0, sy, dc_.viewportOrg.x() - dc_.windowOrg.x() * sx,
                          dc_.viewportOrg.y() - dc_.windowOrg.y() * sy);
    }

    QTransform logicalToPage() const { return dc_.world * pageTransform() * toPage_; }

    // The painter set up for a drawing in logical units: the clip, then the mapping.
    void prepare()
    {
        painter_.resetTransform();
        if (dc_.clip)
            painter_.setClipPath(*dc_.clip);
        else
            painter_.setClipping(false);
        painter_.setTransform(logicalToPage());
    }

    QPen qpen() const
    {
        if (dc_.pen.style == Qt::NoPen)
            return Qt::NoPen;
        QPen p(dc_.pen.colour, dc_.pen.width, dc_.pen.style, Qt::RoundCap, Qt::RoundJoin);
        if (dc_.pen.width <= 0) { // one pixel of the reference device
            p.setCosmetic(true);
            p.setWidthF(toPage_.m11());
        }
        return p;
    }

    QBrush qbrush() const
    {
        if (dc_.brush.style == Qt::NoBrush)
            return {};
        if (dc_.brush.pattern.isNull())
            return QBrush(dc_.brush.colour, dc_.brush.style);
        // The tile repeats in pixels of the device, whatever the mapping of the drawing.
        QBrush tiled(dc_.brush.pattern);
        tiled.setTransform(toPage_ * logicalToPage().inverted());
        return tiled;
    }

    // A brush that tiles `image`; a black-and-white one takes the text and background colours.
    Brush patternBrush(const QImage &image, bool mono) const
    {
        Brush b{Qt::gray, Qt::SolidPattern, {}}; // for a tile that cannot be read
        if (image.isNull())
            return b;
        QImage tile = image;
        if (mono && tile.depth() == 1)
            tile.setColorTable({dc_.text.rgb(), dc_.background.rgb()});
        // Converted: a painter takes a black-and-white tile for a stencil in the brush's colour.
        b.pattern = tile.convertToFormat(QImage::Format_RGB32);
        return b;
    }

    // A figure: into the open path, or filled and outlined now.
    void draw(QPainterPath figure, bool fill)
    {
        if (bracket_) {
            bracket_->addPath(figure);
            return;
        }
        figure.setFillRule(dc_.fill);
        prepare();
        if (fill)
            painter_.fillPath(figure, qbrush());
        painter_.strokePath(figure, qpen());
    }

    void polyline(const QPolygonF &points, bool continuing)
    {
        if (points.isEmpty())
            return;
        if (bracket_) {
            if (!continuing)
                bracket_->moveTo(points.front());
            for (const QPointF &p : points)
                bracket_->lineTo(p);
            return;
        }
        QPainterPath figure(continuing ? dc_.position : points.front());
        for (const QPointF &p : points)
            figure.lineTo(p);
        draw(figure, false);
    }

    void bezier(const QPolygonF &points, bool continuing)
    {
        if (bracket_ && continuing) { // the figure being recorded goes on
            for (int i = 0; i + 2 < points.size(); i += 3)
                bracket_->cubicTo(points[i], points[i + 1], points[i + 2]);
            return;
        }
        QPainterPath figure;
        int i = 0;
        if (continuing) {
            figure.moveTo(dc_.position);
        } else if (!points.isEmpty()) {
            figure.moveTo(points[0]);
            i = 1;
        }
        for (; i + 2 < points.size(); i += 3)
            figure.cubicTo(points[i], points[i + 1], points[i + 2]);
        if (bracket_) {
            bracket_->addPath(figure);
            return;
        }
        draw(figure, false);
    }

    void polyPoly(const Record &r, bool small, bool closed)
    {
        const uint32_t polys = r.u32(24), total = r.u32(28);
        if (polys > r.size() / 4 || total > r.size() / 4)
            throw invalidFormat("EMF: polygon counts larger than their record");
        const QPolygonF points = r.points(32 + size_t(polys) * 4, total, small);
        QPainterPath figure;
        int at = 0;
        for (uint32_t i = 0; i < polys; ++i) {
            const int n = int(r.u32(32 + size_t(i) * 4));
            if (n < 0 || at + n > points.size())
                throw invalidFormat("EMF: polygon counts larger than their record");
            QPolygonF one = points.mid(at, n);
            if (closed && !one.isEmpty())
                one << one.front();
            figure.addPolygon(one);
            at += n;
        }
        draw(figure, closed);
    }

    // Arc, chord and pie: an ellipse's outline from where the line to `s` crosses it,
    // anticlockwise to the line to `e`.
    void arc(const QRectF &box, QPointF s, QPointF e, int kind)
    {
        const QPointF c = box.center();
        const double a0 = std::atan2(-(s.y() - c.y()), s.x() - c.x()) * 180 / M_PI;
        const double a1 = std::atan2(-(e.y() - c.y()), e.x() - c.x()) * 180 / M_PI;
        double sweep = a1 - a0;
        while (sweep <= 0)
            sweep += 360;
        QPainterPath figure;
        if (kind == kPie)
            figure.moveTo(c);
        else
            figure.arcMoveTo(box, a0);
        figure.arcTo(box, a0, sweep);
        if (kind != kArc)
            figure.closeSubpath();
        draw(figure, kind != kArc);
    }

    void setClip(const QPainterPath &pagePath, uint32_t mode)
    {
        const QPainterPath whole = [&] {
            QPainterPath p;
            p.addRect(page_);
            return p;
        }();
        const QPainterPath current = dc_.clip ? *dc_.clip : whole;
        switch (mode) {
        case 1:
            dc_.clip = current.intersected(pagePath);
            break;
        case 2:
            dc_.clip = current.united(pagePath);
            break;
        case 3:
            dc_.clip = current.united(pagePath).subtracted(current.intersected(pagePath));
            break;
        case 4:
            dc_.clip = current.subtracted(pagePath);
            break;
        default:
            dc_.clip = pagePath;
            break;
        }
    }

    void clipRegion(const Record &r)
    {
        const uint32_t bytes = r.u32(8), mode = r.u32(12);
        if (bytes == 0) {
            if (mode == 5)
                dc_.clip.reset();
            return;
        }
        const uint32_t count = r.u32(16 + 8);
        QPainterPath region;
        r.need(16 + 32, size_t(count) * 16);
        for (uint32_t i = 0; i < count; ++i)
            region.addRect(r.rect(16 + 32 + size_t(i) * 16));
        setClip(toPage_.map(region), mode);
    }

    void text(const Record &r, bool wide)
    {
        const QPointF reference = r.point(36);
        const uint32_t chars = r.u32(44), offString = r.u32(48), options = r.u32(52);
        const uint32_t offDx = r.u32(72);
        if (chars > r.size())
            throw invalidFormat("EMF: text longer than its record");
        QString s;
        const uint8_t *p = r.need(offString, size_t(chars) * (wide ? 2 : 1));
        for (uint32_t i = 0; i < chars; ++i)
            s += wide ? QChar(char16_t(p[2 * i] | p[2 * i + 1] << 8)) : QChar(char16_t(p[i]));
        std::vector<double> advances;
        if (offDx) {
            const size_t step = (options & 0x2000) ? 8 : 4; // ETO_PDY: x and y per character
            r.need(offDx, size_t(chars) * step);
            for (uint32_t i = 0; i < chars; ++i)
                advances.push_back(r.i32(offDx + i * step));
        }
        text(s, reference, advances,
             (options & 2) ? std::optional(r.rect(56).normalized()) : std::nullopt);
    }

    // `s` at `reference` under the text alignment; `opaque`, when given, is filled with the
    // background first.
    void text(const QString &s, QPointF reference, const std::vector<double> &advances,
              std::optional<QRectF> opaque)
    {
        const Font &f = dc_.font;
        const FontMetrics m = glyphs_.metrics(f.typeface);
        const double em = f.height < 0   ? -f.height
                          : f.height > 0 ? f.height / (m.ascent + m.descent)
                                         : 12;
        double width = 0;
        QPainterPath outline = glyphs_.outline(s, f.typeface, em, advances, &width);
        const bool updateCp = dc_.align & 1;
        QPointF origin = updateCp ? dc_.position : reference;
        const uint32_t horizontal = dc_.align & 6, vertical = dc_.align & 24;
        double dx = horizontal == 6 ? -width / 2 : horizontal == 2 ? -width : 0;
        double baseline = vertical == 24 ? 0 : vertical == 8 ? -m.descent * em : m.ascent * em;
        // Text stands upright on the page whichever way the logical y axis runs.
        const QTransform mapping = logicalToPage();
        const double ySign = mapping.m22() < 0 ? -1 : 1;
        QTransform place = QTransform::fromTranslate(dx, baseline * ySign);
        if (ySign < 0)
            place = QTransform::fromScale(1, -1) * place;
        place = place * QTransform().rotate(-f.escapement / 10 * ySign) *
                QTransform::fromTranslate(origin.x(), origin.y());
        prepare();
        if (opaque) {
            painter_.fillRect(*opaque, dc_.background);
        } else if (dc_.opaqueBackground && !outline.isEmpty()) {
            QPainterPath cell;
            cell.addRect(QRectF(0, -m.ascent * em, width, (m.ascent + m.descent) * em));
            painter_.fillPath(place.map(cell), dc_.background);
        }
        outline.setFillRule(Qt::WindingFill);
        painter_.fillPath(place.map(outline), dc_.text);
        if (updateCp)
            dc_.position = origin + QPointF(width, 0);
    }

    // A device-independent bitmap, handed to Qt's BMP reader behind a file header of its own.
    static QImage dib(const uint8_t *info, size_t infoSize, const uint8_t *bits, size_t bitsSize)
    {
        // A JPEG or a PNG may stand in for the pixels.
        const uint32_t compression =
            infoSize >= 20 ? uint32_t(info[16] | info[17] << 8 | info[18] << 16 | info[19] << 24)
                           : 0;
        if (compression == 4 || compression == 5)
            return QImage::fromData(QByteArrayView(bits, qsizetype(bitsSize)),
                                    compression == 4 ? "JPEG" : "PNG");
        QByteArray bmp("BM");
        const uint32_t total = uint32_t(14 + infoSize + bitsSize), start = uint32_t(14 + infoSize);
        for (const uint32_t v : {total, 0u, start})
            for (int i = 0; i < 4; ++i)
                bmp += char(v >> (8 * i));
        bmp.append(reinterpret_cast<const char *>(info), qsizetype(infoSize));
        bmp.append(reinterpret_cast<const char *>(bits), qsizetype(bitsSize));
        return QImage::fromData(bmp, "BMP");
    }

    static QImage dib(const Record &r, size_t offBmi, size_t cbBmi, size_t offBits, size_t cbBits)
    {
        return dib(r.need(offBmi, cbBmi), cbBmi, r.need(offBits, cbBits), cbBits);
    }

    // The source of a raster operation as painted over the page. Paint is all a PDF knows, so
    // the operations that draw sprites keep their look on a plain page: AND leaves the page
    // where the source is white, OR where it is black. NOTSRCCOPY paints the inverse; any
    // other operation paints the source.
    static QImage paintable(const QImage &image, uint32_t rop)
    {
        constexpr uint32_t srcAnd = 0x008800C6, srcPaint = 0x00EE0086, notSrcCopy = 0x00330008;
        if (rop == notSrcCopy) {
            QImage inverse = image.convertToFormat(QImage::Format_RGB32);
            inverse.invertPixels();
            return inverse;
        }
        // A PDF canvas takes a black-and-white image for a stencil painted in the brush's
        // colour; with a palette of eight bits it keeps its own two colours.
        if (rop != srcAnd && rop != srcPaint)
            return image.depth() == 1 ? image.convertToFormat(QImage::Format_Indexed8) : image;
        const QRgb clear = rop == srcAnd ? 0xFFFFFF : 0x000000;
        QImage holed = image.convertToFormat(QImage::Format_ARGB32);
        for (int y = 0; y < holed.height(); ++y) {
            auto *line = reinterpret_cast<QRgb *>(holed.scanLine(y));
            for (int x = 0; x < holed.width(); ++x)
                if ((line[x] & 0xFFFFFF) == clear)
                    line[x] = 0;
        }
        return holed;
    }

    void blit(const QRectF &target, const QImage &image, const QRectF &source, uint32_t rop)
    {
        prepare();
        if (!image.isNull()) {
            const QImage drawn = paintable(image, rop);
            // A source reaching past the bitmap paints nothing there, on every canvas (a PDF
            // one would paint it black).
            const QRectF from = source.isEmpty() ? QRectF(image.rect()) : source;
            const QRectF inside = from.intersected(QRectF(image.rect()));
            if (inside.isEmpty())
                return;
            const double sx = target.width() / from.width(), sy = target.height() / from.height();
            const QRectF to(target.x() + (inside.x() - from.x()) * sx,
                            target.y() + (inside.y() - from.y()) * sy, inside.width() * sx,
                            inside.height() * sy);
            painter_.drawImage(to, drawn, inside);
            return;
        }
        // No source: the operation paints the brush, or plain white or black.
        if (rop == 0x00FF0062)
            painter_.fillRect(target, Qt::white);
        else if (rop == 0x00000042)
            painter_.fillRect(target, Qt::black);
        else
            painter_.fillRect(target, qbrush());
    }

    void bitBlt(const Record &r, bool stretch)
    {
        const QRectF target(r.i32(24), r.i32(28), r.i32(32), r.i32(36));
        const uint32_t rop = r.u32(40);
        const QPointF src(r.i32(44), r.i32(48));
        const size_t offBmi = r.u32(84), cbBmi = r.u32(88), offBits = r.u32(92), cbBits = r.u32(96);
        const QSizeF srcSize = stretch ? QSizeF(r.i32(100), r.i32(104)) : target.size();
        const QImage image = cbBmi ? dib(r, offBmi, cbBmi, offBits, cbBits) : QImage();
        blit(target, image, QRectF(src, srcSize), rop);
    }

    void stretchDiBits(const Record &r)
    {
        const QRectF source(r.i32(32), r.i32(36), r.i32(40), r.i32(44));
        const size_t offBmi = r.u32(48), cbBmi = r.u32(52), offBits = r.u32(56), cbBits = r.u32(60);
        const uint32_t rop = r.u32(68);
        const QRectF target(r.i32(24), r.i32(28), r.i32(72), r.i32(76));
        const QImage image = cbBmi ? dib(r, offBmi, cbBmi, offBits, cbBits) : QImage();
        if (cbBmi && image.isNull())
            throw invalidFormat("EMF: an unreadable bitmap");
        blit(target, image, source, rop);
    }

    Object &slot(uint32_t index)
    {
        if ((index == 0 && !wmf_) || index >= handles_.size())
            throw invalidFormat("EMF: an object index outside the table");
        return handles_[index];
    }

    void select(uint32_t index)
    {
        if (index & 0x80000000) {
            const uint32_t n = index & 0x7FFFFFFF;
            if (n <= 5)
                dc_.brush = stockBrush(n);
            else if (n <= 8)
                dc_.pen = stockPen(n);
            else if (n >= 10 && n <= 17 && n != 15)
                dc_.font = Font{};
            return;
        }
        const Object &o = slot(index);
        if (const auto *p = std::get_if<Pen>(&o))
            dc_.pen = *p;
        else if (const auto *b = std::get_if<Brush>(&o))
            dc_.brush = *b;
        else if (const auto *f = std::get_if<Font>(&o))
            dc_.font = *f;
    }

    static Font font(const Record &r)
    {
        Font f;
        f.height = r.i32(12);
        f.escapement = r.i32(20);
        f.typeface.weight = r.i32(28);
        f.typeface.italic = r.need(32, 1)[0] != 0;
        const uint8_t *name = r.need(40, 64);
        for (int i = 0; i < 32 && (name[2 * i] | name[2 * i + 1]); ++i)
            f.typeface.family += QChar(char16_t(name[2 * i] | name[2 * i + 1] << 8));
        return f;
    }

public:
    void playEmf(const Record &r)
    {
        const auto type = RecordType(r.type());
        switch (type) {
        case kSetWindowExt:
            dc_.windowExt = QSizeF(r.i32(8), r.i32(12));
            break;
        case kSetWindowOrg:
            dc_.windowOrg = r.point(8);
            break;
        case kSetViewportExt:
            dc_.viewportExt = QSizeF(r.i32(8), r.i32(12));
            break;
        case kSetViewportOrg:
            dc_.viewportOrg = r.point(8);
            break;
        case kSetMapMode:
            dc_.mapMode = r.i32(8);
            break;
        case kSetBkMode:
            dc_.opaqueBackground = r.u32(8) == 2;
            break;
        case kSetPolyFillMode:
            dc_.fill = r.u32(8) == 2 ? Qt::WindingFill : Qt::OddEvenFill;
            break;
        case kSetTextAlign:
            dc_.align = r.u32(8);
            break;
        case kSetTextColor:
            dc_.text = r.colour(8);
            break;
        case kSetBkColor:
            dc_.background = r.colour(8);
            break;
        case kMoveTo:
            dc_.position = r.point(8);
            if (bracket_)
                bracket_->moveTo(dc_.position);
            break;
        case kLineTo:
            polyline({r.point(8)}, true);
            dc_.position = r.point(8);
            break;
        case kSaveDc:
            saved_.push_back(dc_);
            break;
        case kRestoreDc: {
            const int n = r.i32(8);
            const size_t back = n < 0 ? size_t(-int64_t(n)) : 0;
            if (back == 0 || back > saved_.size())
                break;
            dc_ = saved_[saved_.size() - back];
            saved_.resize(saved_.size() - back);
            break;
        }
        case kSetWorldTransform:
            dc_.world = QTransform(r.f32(8), r.f32(12), r.f32(16), r.f32(20), r.f32(24), r.f32(28));
            break;
        case kModifyWorldTransform: {
            const QTransform x(r.f32(8), r.f32(12), r.f32(16), r.f32(20), r.f32(24), r.f32(28));
            const uint32_t mode = r.u32(32);
            dc_.world = mode == 1   ? QTransform()
                        : mode == 2 ? x * dc_.world
                        : mode == 3 ? dc_.world * x
                                    : x;
            break;
        }
        case kCreatePen: {
            Pen p;
            p.style = penStyle(r.u32(12));
            p.width = r.i32(16);
            p.colour = r.colour(24);
            slot(r.u32(8)) = p;
            break;
        }
        case kExtCreatePen: {
            Pen p;
            const uint32_t style = r.u32(28);
            p.style = penStyle(style);
            p.width = (style & 0x10000) ? double(r.u32(32)) : 0; // cosmetic pens are one pixel
            p.colour = r.colour(40);
            if (r.u32(36) == 1) // a hollow brush draws nothing
                p.style = Qt::NoPen;
            slot(r.u32(8)) = p;
            break;
        }
        case kCreateBrush: {
            Brush b;
            const uint32_t style = r.u32(12);
            b.colour = r.colour(16);
            b.style = style == 1 ? Qt::NoBrush : style == 2 ? hatch(r.u32(20)) : Qt::SolidPattern;
            slot(r.u32(8)) = b;
            break;
        }
        case kCreateMonoBrush:
        case kCreateDibPatternBrush: {
            const size_t offBmi = r.u32(16), cbBmi = r.u32(20), offBits = r.u32(24);
            const size_t cbBits = r.u32(28);
            slot(r.u32(8)) =
                patternBrush(dib(r, offBmi, cbBmi, offBits, cbBits), r.type() == kCreateMonoBrush);
            break;
        }
        case kExtCreateFont:
            slot(r.u32(8)) = font(r);
            break;
        case kSelectObject:
            select(r.u32(8));
            break;
        case kDeleteObject:
            slot(r.u32(8)) = std::monostate{};
            break;
        case kRectangle:
        case kEllipse:
        case kRoundRect: {
            QPainterPath figure;
            const QRectF box = r.rect(8).normalized();
            if (type == kRectangle)
                figure.addRect(box);
            else if (type == kEllipse)
                figure.addEllipse(box);
            else
                figure.addRoundedRect(box, r.i32(24) / 2.0, r.i32(28) / 2.0);
            draw(figure, true);
            break;
        }
        case kArc:
        case kChord:
        case kPie:
            arc(r.rect(8).normalized(), r.point(24), r.point(32), type);
            break;
        case kPolygon:
        case kPolygon16: {
            QPolygonF points = r.points(28, r.u32(24), type == kPolygon16);
            if (!points.isEmpty())
                points << points.front();
            QPainterPath figure;
            figure.addPolygon(points);
            draw(figure, true);
            break;
        }
        case kPolyline:
        case kPolyline16:
        case kPolylineTo:
        case kPolylineTo16: {
            const QPolygonF points =
                r.points(28, r.u32(24), type == kPolyline16 || type == kPolylineTo16);
            const bool to = type == kPolylineTo || type == kPolylineTo16;
            polyline(points, to);
            if (to && !points.isEmpty())
                dc_.position = points.back();
            break;
        }
        case kPolyBezier:
        case kPolyBezier16:
        case kPolyBezierTo:
        case kPolyBezierTo16: {
            const QPolygonF points =
                r.points(28, r.u32(24), type == kPolyBezier16 || type == kPolyBezierTo16);
            const bool to = type == kPolyBezierTo || type == kPolyBezierTo16;
            bezier(points, to);
            if (to && !points.isEmpty())
                dc_.position = points.back();
            break;
        }
        case kPolyPolyline:
        case kPolyPolyline16:
            polyPoly(r, type == kPolyPolyline16, false);
            break;
        case kPolyPolygon:
        case kPolyPolygon16:
            polyPoly(r, type == kPolyPolygon16, true);
            break;
        case kBeginPath:
            bracket_ = QPainterPath();
            break;
        case kEndPath:
            if (bracket_)
                path_ = std::exchange(*bracket_, QPainterPath());
            bracket_.reset();
            break;
        case kAbortPath:
            bracket_.reset();
            path_ = QPainterPath();
            break;
        case kCloseFigure:
            if (bracket_)
                bracket_->closeSubpath();
            break;
        case kFillPath:
        case kStrokeAndFillPath:
        case kStrokePath: {
            QPainterPath figure = std::exchange(path_, QPainterPath());
            figure.setFillRule(dc_.fill);
            prepare();
            if (type != kStrokePath)
                painter_.fillPath(figure, qbrush());
            if (type != kFillPath)
                painter_.strokePath(figure, qpen());
            break;
        }
        case kSelectClipPath:
            setClip(logicalToPage().map(std::exchange(path_, QPainterPath())), r.u32(8));
            break;
        case kIntersectClipRect:
        case kExcludeClipRect: {
            QPainterPath box;
            box.addRect(r.rect(8).normalized());
            setClip(logicalToPage().map(box), type == kIntersectClipRect ? 1 : 4);
            break;
        }
        case kExtSelectClipRgn:
            clipRegion(r);
            break;
        case kExtTextOutW:
        case kExtTextOutA:
            text(r, type == kExtTextOutW);
            break;
        case kBitBlt:
        case kStretchBlt:
            bitBlt(r, type == kStretchBlt);
            break;
        case kStretchDiBits:
            stretchDiBits(r);
            break;
        default:
            break; // comments, palettes, modes that change nothing on white paper
        }
    }

    // A WMF record: its parameters are 16-bit words from byte 6, most given last first.
    void playWmf(const Record &r)
    {
        const auto w = [&](size_t i) { return r.i16(6 + 2 * i); };
        const auto u = [&](size_t i) { return uint16_t(w(i)); };
        const auto colour = [&](size_t i) { return r.colour(6 + 2 * i); };
        const auto box = [&](size_t i) {
            return QRectF(QPointF(w(i + 3), w(i + 2)), QPointF(w(i + 1), w(i))).normalized();
        };
        const auto points = [&](size_t at, uint32_t n) { return r.points(at, n, true); };
        const uint16_t function = uint16_t(r.need(4, 2)[0] | r.need(4, 2)[1] << 8);
        switch (function) {
        case 0x0201:
            dc_.background = colour(0);
            break;
        case 0x0209:
            dc_.text = colour(0);
            break;
        case 0x0102:
            dc_.opaqueBackground = u(0) == 2;
            break;
        case 0x0106:
            dc_.fill = u(0) == 2 ? Qt::WindingFill : Qt::OddEvenFill;
            break;
        case 0x012E:
            dc_.align = u(0);
            break;
        case 0x020B:
            dc_.windowOrg = QPointF(w(1), w(0));
            break;
        case 0x020C:
            dc_.windowExt = QSizeF(w(1), w(0));
            break;
        case 0x001E:
            saved_.push_back(dc_);
            break;
        case 0x0127:
            if (w(0) < 0 && size_t(-w(0)) <= saved_.size()) {
                dc_ = saved_[saved_.size() - size_t(-w(0))];
                saved_.resize(saved_.size() - size_t(-w(0)));
            }
            break;
        case 0x0214:
            dc_.position = QPointF(w(1), w(0));
            break;
        case 0x0213:
            polyline({QPointF(w(1), w(0))}, true);
            dc_.position = QPointF(w(1), w(0));
            break;
        case 0x041B:
        case 0x0418:
        case 0x061C: {
            QPainterPath figure;
            if (function == 0x041B)
                figure.addRect(box(0));
            else if (function == 0x0418)
                figure.addEllipse(box(0));
            else
                figure.addRoundedRect(box(2), w(1) / 2.0, w(0) / 2.0);
            draw(figure, true);
            break;
        }
        case 0x0817:
        case 0x081A:
        case 0x0830:
            arc(box(4), QPointF(w(3), w(2)), QPointF(w(1), w(0)),
                function == 0x0817   ? kArc
                : function == 0x081A ? kPie
                                     : kChord);
            break;
        case 0x0324:
        case 0x0325: {
            QPolygonF shape = points(8, u(0));
            if (function == 0x0325) {
                polyline(shape, false);
                break;
            }
            if (!shape.isEmpty())
                shape << shape.front();
            QPainterPath figure;
            figure.addPolygon(shape);
            draw(figure, true);
            break;
        }
        case 0x0538: {
            const uint16_t polys = u(0);
            size_t at = 8 + size_t(polys) * 2;
            QPainterPath figure;
            for (uint16_t i = 0; i < polys; ++i) {
                QPolygonF shape = points(at, u(1 + i));
                at += size_t(u(1 + i)) * 4;
                if (!shape.isEmpty())
                    shape << shape.front();
                figure.addPolygon(shape);
            }
            draw(figure, true);
            break;
        }
        case 0x0521: { // TEXTOUT: length, string, y, x
            const uint16_t n = u(0);
            const uint8_t *chars = r.need(8, n);
            const size_t after = 8 + (size_t(n) + 1) / 2 * 2;
            text(QString::fromLatin1(reinterpret_cast<const char *>(chars), n),
                 QPointF(r.i16(after + 2), r.i16(after)), {}, std::nullopt);
            break;
        }
        case 0x0A32: { // EXTTEXTOUT: y, x, length, options, [rectangle], string, [advances]
            const uint16_t n = u(2), options = u(3);
            size_t at = 14;
            std::optional<QRectF> opaque;
            if (options & 6) {
                const QRectF rect(QPointF(r.i16(at), r.i16(at + 2)),
                                  QPointF(r.i16(at + 4), r.i16(at + 6)));
                if (options & 2)
                    opaque = rect.normalized();
                at += 8;
            }
            const uint8_t *chars = r.need(at, n);
            at += (size_t(n) + 1) / 2 * 2;
            std::vector<double> advances;
            if (at + size_t(n) * 2 <= r.size())
                for (uint16_t i = 0; i < n; ++i)
                    advances.push_back(r.i16(at + 2 * size_t(i)));
            text(QString::fromLatin1(reinterpret_cast<const char *>(chars), n), QPointF(w(1), w(0)),
                 advances, opaque);
            break;
        }
        case 0x02FA: { // CREATEPENINDIRECT: style, width (x, y), colour
            Pen p;
            p.style = penStyle(u(0));
            p.width = w(1);
            p.colour = colour(3);
            place(p);
            break;
        }
        case 0x02FC: { // CREATEBRUSHINDIRECT: style, colour, hatch
            Brush b;
            b.colour = colour(1);
            b.style = u(0) == 1 ? Qt::NoBrush : u(0) == 2 ? hatch(u(3)) : Qt::SolidPattern;
            place(b);
            break;
        }
        case 0x02FB: { // CREATEFONTINDIRECT
            Font f;
            f.height = w(0);
            f.escapement = w(2);
            f.typeface.weight = w(4);
            f.typeface.italic = r.need(16, 1)[0] != 0;
            const uint8_t *name = r.need(24, 0);
            for (size_t i = 0; 24 + i < r.size() && i < 32 && name[i]; ++i)
                f.typeface.family += QChar(char16_t(name[i]));
            place(f);
            break;
        }
        case 0x01F9: // CREATEPATTERNBRUSH: a device bitmap whose rows follow 18 unused bytes
            place(patternBrush(deviceBitmap(r, 6, 34), true));
            break;
        case 0x0142: // DIBCREATEPATTERNBRUSH: style, colour usage, the bitmap
            place(patternBrush(u(0) == 3 ? deviceBitmap(r, 10, 20) : packedDib(r, 10), false));
            break;
        case 0x00F7: // palettes and regions take a place too
        case 0x06FF:
            place(Kept{});
            break;
        case 0x012D:
            select(u(0));
            break;
        case 0x01F0:
            slot(u(0)) = std::monostate{};
            break;
        case 0x0416:
        case 0x0415: {
            QPainterPath clipBox;
            clipBox.addRect(box(0));
            setClip(logicalToPage().map(clipBox), function == 0x0416 ? 1 : 4);
            break;
        }
        case 0x0F43: { // STRETCHDIB: rop, usage, source and target boxes, then the bitmap
            const QRectF source(w(6), w(5), w(4), w(3));
            const QRectF target(w(10), w(9), w(8), w(7));
            blit(target, packedDib(r, 28), source, r.u32(6));
            break;
        }
        case 0x0B41:
        case 0x0940: // DIBSTRETCHBLT, DIBBITBLT: rop, [reserved,] boxes, [bitmap]
        case 0x0B23: // STRETCHBLT and BITBLT: the same with a device bitmap of Windows 3.0
        case 0x0922: {
            const bool stretch = function == 0x0B41 || function == 0x0B23;
            const bool bitmap = r.size() != (size_t(function >> 8) + 3) * 2;
            const size_t o = bitmap ? 2 : 3;
            const QRectF source = stretch ? QRectF(w(o + 3), w(o + 2), w(o + 1), w(o))
                                          : QRectF(w(o + 1), w(o), w(o + 3), w(o + 2));
            const QRectF target = stretch ? QRectF(w(o + 7), w(o + 6), w(o + 5), w(o + 4))
                                          : QRectF(w(o + 5), w(o + 4), w(o + 3), w(o + 2));
            const size_t dibAt = 6 + 2 * (o + (stretch ? 8 : 6));
            QImage image;
            if (bitmap)
                image =
                    function & 0x0040 ? packedDib(r, dibAt) : deviceBitmap(r, dibAt, dibAt + 10);
            // A device bitmap of a depth without colours of its own is left out.
            if (!bitmap || !image.isNull())
                blit(target, image, source, r.u32(6));
            break;
        }
        }
    }

    void setWmf() { wmf_ = true; }

private:
    // A WMF object goes to the first free place of the table.
    void place(Object o)
    {
        for (Object &slot : handles_)
            if (std::holds_alternative<std::monostate>(slot)) {
                slot = std::move(o);
                return;
            }
        throw invalidFormat("WMF: more objects than the header allows");
    }

    // A Windows 3.0 device bitmap: size, bytes a row and depth at `at`, its top-down rows at
    // `bitsAt`. Its colours are the device's; those of 1, 16, 24 and 32 bits are read as a
    // display reads them, a black and white one taking the text and background colours as a
    // blit onto colour does.
    QImage deviceBitmap(const Record &r, size_t at, size_t bitsAt) const
    {
        const int width = r.i16(at + 2), height = r.i16(at + 4), stride = r.i16(at + 6);
        const int bits = r.need(at + 9, 1)[0];
        if (width <= 0 || height <= 0 || stride < (width * bits + 7) / 8)
            throw invalidFormat("WMF: a bitmap of no size");
        const std::map<int, QImage::Format> formats = {{1, QImage::Format_Mono},
                                                       {16, QImage::Format_RGB555},
                                                       {24, QImage::Format_BGR888},
                                                       {32, QImage::Format_RGB32}};
        const auto format = formats.find(bits);
        if (format == formats.end())
            return {};
        // Some writers store fewer rows than the bitmap has; the rest stay zero.
        const size_t stored =
            std::min(size_t(stride) * size_t(height), r.size() - std::min(r.size(), bitsAt));
        const uint8_t *rows = r.need(bitsAt, stored);
        QImage image(width, height, format->second);
        if (image.isNull())
            throw outOfMemory();
        image.fill(0);
        const size_t row = std::min<size_t>(size_t(stride), size_t(image.bytesPerLine()));
        for (size_t y = 0; y * size_t(stride) < stored; ++y)
            std::memcpy(image.scanLine(int(y)), rows + y * size_t(stride),
                        std::min(row, stored - y * size_t(stride)));
        if (bits == 1)
            image.setColorTable({dc_.text.rgb(), dc_.background.rgb()});
        return image;
    }

    // A bitmap stored as its header, colour table and pixels in a row.
    static QImage packedDib(const Record &r, size_t at)
    {
        const uint32_t header = r.u32(at);
        if (header != 40 && header != 12 && header < 40)
            return {};
        const bool core = header == 12;
        const int bits = core ? r.i16(at + 10) : r.i16(at + 14);
        const uint32_t compression = core ? 0 : r.u32(at + 16);
        uint32_t colours = core ? 0 : r.u32(at + 32);
        if (colours == 0 && bits <= 8)
            colours = 1u << bits;
        const size_t masks = compression == 3 && header == 40 ? 12 : 0;
        size_t table = size_t(colours) * (core ? 3 : 4) + masks;
        // Some writers store fewer colours than the header counts: the pixels, whose size the
        // header tells, come last.
        const int32_t width = core ? r.i16(at + 4) : r.i32(at + 4);
        const int64_t height = core ? r.i16(at + 6) : r.i32(at + 8);
        const size_t stride =
            (size_t(std::max(width, 0)) * size_t(std::max(bits, 0)) + 31) / 32 * 4;
        const size_t pixels = stride * size_t(std::abs(height));
        const size_t rest = r.size() - std::min(r.size(), at + header);
        if ((compression == 0 || compression == 3) && pixels > 0 && pixels <= rest)
            table = std::min(table, rest - pixels);
        const size_t info = header + table;
        return dib(r.need(at, info), info, r.need(at + info, r.size() - at - info),
                   r.size() - at - info);
    }

    QPointF pixelsPerMm_;
    QTransform toPage_;
    QRectF page_;
    QPainter painter_;
    Dc dc_;
    std::vector<Dc> saved_;
    std::vector<Object> handles_;
    bool wmf_ = false;                    // WMF objects count from 0 and take the first free place
    std::optional<QPainterPath> bracket_; // the path being recorded
    QPainterPath path_;                   // the path last closed, for filling or clipping
    Glyphs glyphs_;
};

// Plays one record; a failure names the record's kind, which is what a reader of the error
// report can look up.
template <typename Play> void named(const Record &, uint32_t kind, Play &&play)
{
    try {
        play();
    } catch (const pw::Failure &f) {
        throw invalidFormat(std::string(f.what()) + " (record type " + std::to_string(kind) + ")");
    }
}

} // namespace

void playEmf(const uint8_t *data, size_t size, const CanvasFor &canvasFor)
{
    // One record from `at`, within the file.
    const auto record = [&](size_t at) {
        if (at + 8 > size)
            throw invalidFormat("EMF: the records end before the end-of-file record");
        const uint32_t n = Record(data + at, 8).u32(4);
        if (n < 8 || n % 4 != 0 || n > size - at)
            throw invalidFormat("EMF: a record runs past the end of the file");
        return Record(data + at, n);
    };
    const Record header = record(0);
    if (header.type() != kHeader || header.size() < 88 || header.u32(40) != 0x464D4520)
        throw invalidFormat("EMF: no header");
    const double devX = header.i32(72), devY = header.i32(76);
    const double mmX = header.i32(80), mmY = header.i32(84);
    if (devX <= 0 || devY <= 0 || mmX <= 0 || mmY <= 0)
        throw invalidFormat("EMF: no reference device");
    const QPointF perMm(devX / mmX, devY / mmY);
    const QRectF frame = header.rect(24).normalized(); // 0.01 mm
    QRectF mm(frame.x() / 100, frame.y() / 100, frame.width() / 100, frame.height() / 100);
    // Some writers give a frame that misses most of the drawing; the bounds, in device
    // pixels, then place the page.
    const QRectF bounds = header.rect(8).normalized().adjusted(0, 0, 1, 1);
    const QRectF boundsMm(bounds.x() / perMm.x(), bounds.y() / perMm.y(),
                          bounds.width() / perMm.x(), bounds.height() / perMm.y());
    const QRectF shared = mm.intersected(boundsMm);
    const bool frameMisses =
        shared.width() * shared.height() < boundsMm.width() * boundsMm.height() / 2;
    if (mm.width() <= 0 || mm.height() <= 0 || (frameMisses && bounds.width() > 1))
        mm = boundsMm;
    Player player(mm, perMm, header.u32(56) & 0xFFFF, canvasFor);
    for (size_t at = header.size();;) {
        const Record r = record(at);
        if (r.type() == kEof)
            break;
        named(r, r.type(), [&] { player.playEmf(r); });
        at += r.size();
    }
    player.finish();
}

void playWmf(const uint8_t *data, size_t size, const CanvasFor &canvasFor)
{
    // The placeable header gives the picture's box in units of which `inch` make an inch;
    // without it the box is the first window set, at 96 units an inch.
    const Record all(data, size);
    const bool placeable = size >= 22 && all.u32(0) == 0x9AC6CDD7;
    const size_t start = placeable ? 22 : 0;
    if (size < start + 18 || (all.i16(start) != 1 && all.i16(start) != 2) ||
        all.i16(start + 2) != 9)
        throw invalidFormat("WMF: no header");
    const uint16_t objects = uint16_t(all.i16(start + 10));
    const size_t first = start + size_t(uint16_t(all.i16(start + 2))) * 2;
    const auto record = [&](size_t at) {
        if (at + 6 > size)
            throw invalidFormat("WMF: the records end before the end-of-file record");
        const uint64_t n = uint64_t(Record(data + at, 4).u32(0)) * 2;
        if (n < 6 || n > size - at)
            throw invalidFormat("WMF: a record runs past the end of the file");
        return Record(data + at, size_t(n));
    };
    QRectF box;
    double unitsPerInch = 96;
    if (placeable) {
        box =
            QRectF(QPointF(all.i16(6), all.i16(8)), QPointF(all.i16(10), all.i16(12))).normalized();
        unitsPerInch = uint16_t(all.i16(14)) ? uint16_t(all.i16(14)) : 1440;
    } else {
        QPointF org;
        for (size_t at = first; at + 6 <= size && box.isEmpty();) {
            const Record r = record(at);
            const uint16_t f = uint16_t(r.i16(4));
            if (f == 0)
                break;
            if (f == 0x020B)
                org = QPointF(r.i16(8), r.i16(6));
            else if (f == 0x020C)
                box = QRectF(org, QSizeF(r.i16(8), r.i16(6))).normalized();
            at += r.size();
        }
    }
    const double perMm = unitsPerInch / 25.4;
    const QRectF mm(box.x() / perMm, box.y() / perMm, box.width() / perMm, box.height() / perMm);
    Player player(mm, QPointF(perMm, perMm), size_t(objects) + 1, canvasFor);
    player.setWmf();
    player.viewport(box);
    for (size_t at = first;;) {
        const Record r = record(at);
        if (r.i16(4) == 0)
            break;
        named(r, uint16_t(r.i16(4)), [&] { player.playWmf(r); });
        at += r.size();
    }
    player.finish();
}

} // namespace pw::metafile
