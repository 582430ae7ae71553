#include "page_layout.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <mutex>

namespace pw::i2p {

namespace {

// What an orientation code asks: mirror the stored picture left to right, then turn it
// clockwise by `degrees`. Every one of the eight is one of these pairs.
struct Turn {
    bool mirror = false;
    int degrees = 0;
};

Turn turnOf(int orientation)
{
    static const Turn turns[] = {{false, 0},  {true, 0},   {false, 180}, {true, 180},
                                 {true, 270}, {false, 90}, {true, 90},   {false, 270}};
    return orientation >= 1 && orientation <= 8 ? turns[orientation - 1] : Turn{};
}

struct Box {
    double x = 0, y = 0, width = 0, height = 0;
};

// Scale factors across and down that `fit` gives an image of `w` x `h` in an area `aw` x `ah`.
std::pair<double, double> scaleFor(Fit fit, double w, double h, double aw, double ah)
{
    const double into = std::min(aw / w, ah / h);
    switch (fit) {
    case Fit::Fill: {
        const double fill = std::max(aw / w, ah / h);
        return {fill, fill};
    }
    case Fit::Exact:
        return {aw / w, ah / h};
    case Fit::Shrink:
        return {std::min(1.0, into), std::min(1.0, into)};
    case Fit::Into:
        break;
    }
    return {into, into};
}

std::string lower(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

// Points per unit of the unit that ends `text`, which loses it; 1 when none is named.
double takeUnit(std::string &text)
{
    static const std::pair<const char *, double> units[] = {
        {"mm", 72 / 25.4}, {"in", 72}, {"pt", 1}};
    for (const auto &[name, points] : units)
        if (text.size() > 2 && text.ends_with(name)) {
            text.resize(text.size() - 2);
            return points;
        }
    return 1;
}

std::optional<double> number(const std::string &text)
{
    double v = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, v);
    if (error != std::errc() || stop != end || !(v >= 0) || v > 1e6)
        return std::nullopt;
    return v;
}

std::mutex layoutLock;
PageLayout currentLayout;

} // namespace

void setPageLayout(const PageLayout &layout)
{
    const std::lock_guard hold(layoutLock);
    currentLayout = layout;
}

PageLayout pageLayout()
{
    const std::lock_guard hold(layoutLock);
    return currentLayout;
}

Placement placeImage(const PageLayout &layout, int pixelsWide, int pixelsHigh, double xdpi,
                     double ydpi, int orientation)
{
    const Turn turn = turnOf(orientation);
    const bool ownResolution = !layout.forceDpi && xdpi > 0 && ydpi > 0;
    const double fallback = layout.dpi > 0 ? layout.dpi : 72;
    const double w = pixelsWide * 72.0 / (ownResolution ? xdpi : fallback);
    const double h = pixelsHigh * 72.0 / (ownResolution ? ydpi : fallback);
    const double m = layout.margin;
    Placement p;
    p.rotate = turn.degrees;
    Box image{m, m, w, h};
    if (layout.width > 0 && layout.height > 0) {
        // Everything is laid out before the page's turn, where the image lies as stored: a
        // sideways picture takes the page sideways too.
        const bool sideways = turn.degrees % 180 != 0;
        const bool landscape = layout.turn == PageTurn::FollowImage
                                   ? (sideways ? h > w : w > h)
                                   : layout.turn == PageTurn::Landscape;
        p.width = layout.width;
        p.height = layout.height;
        if ((p.width > p.height) != landscape)
            std::swap(p.width, p.height);
        if (sideways)
            std::swap(p.width, p.height);
        const double areaW = p.width - 2 * m, areaH = p.height - 2 * m;
        const auto [sx, sy] = scaleFor(layout.fit, w, h, areaW, areaH);
        image = {(p.width - w * sx) / 2, (p.height - h * sy) / 2, w * sx, h * sy};
        constexpr double kRounding = 1e-6;
        if (image.width > areaW + kRounding || image.height > areaH + kRounding)
            p.clip = std::array<double, 4>{m, m, areaW, areaH};
    } else {
        p.width = w + 2 * m;
        p.height = h + 2 * m;
    }
    if (turn.mirror)
        p.matrix = {-image.width, 0, 0, image.height, image.x + image.width, image.y};
    else
        p.matrix = {image.width, 0, 0, image.height, image.x, image.y};
    return p;
}

std::optional<std::pair<double, double>> parsePageSize(const std::string &text)
{
    static const std::pair<const char *, std::pair<double, double>> named[] = {
        {"a4", {210 * 72 / 25.4, 297 * 72 / 25.4}},
        {"letter", {612, 792}},
        {"legal", {612, 1008}},
        {"a3", {297 * 72 / 25.4, 420 * 72 / 25.4}},
        {"a5", {148 * 72 / 25.4, 210 * 72 / 25.4}}};
    std::string size = lower(text);
    for (const auto &[name, points] : named)
        if (size == name)
            return points;
    const double unit = takeUnit(size);
    const size_t x = size.find('x');
    if (x == std::string::npos)
        return std::nullopt;
    const auto w = number(size.substr(0, x)), h = number(size.substr(x + 1));
    if (!w || !h || *w <= 0 || *h <= 0)
        return std::nullopt;
    return std::pair{*w * unit, *h * unit};
}

std::optional<double> parseLength(const std::string &text)
{
    std::string length = lower(text);
    const double unit = takeUnit(length);
    const auto v = number(length);
    if (!v)
        return std::nullopt;
    return *v * unit;
}

} // namespace pw::i2p
