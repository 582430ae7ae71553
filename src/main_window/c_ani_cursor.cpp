#include "c_ani_cursor.h"

#include "program_resources.h"

#include "core/path_helpers.h"
#include "core/runtime.h"

#include <QCoreApplication>
#include <QFile>
#include <QGuiApplication>
#include <QPainter>
#include <QPalette>
#include <QPixmap>
#include <QTimer>
#include <QWidget>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <variant>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pw {

namespace {

// Real cursor themes stay far below this; the cap keeps a stray huge file from being read
// into memory whole.
constexpr qint64 MaxFileSize = 16 * 1024 * 1024;
// Windows only ever draws cursors up to this size.
constexpr int32_t MaxImageSide = 256;
constexpr int32_t FramesCountedAtMost = 1024;
constexpr uint32_t AniFramesAreIcons = 1;

QString cursorSource()
{
    return QCoreApplication::applicationName() + ".cAniCursor";
}

[[noreturn]] void raiseSystemError(int code)
{
    throw RuntimeError(10000 | code, SystemErrorText(code), cursorSource());
}

// Little-endian fields of a byte range that knows its bounds; every read is checked.
class Bytes {
public:
    Bytes(const char *data, qint64 size) : data_(data), size_(size) {}
    qint64 size() const { return size_; }
    const char *data() const { return data_; }
    bool has(qint64 offset, qint64 length) const
    {
        return offset >= 0 && length >= 0 && offset <= size_ && length <= size_ - offset;
    }
    uint32_t u8(qint64 at) const { return static_cast<uint8_t>(data_[at]); }
    uint32_t u16(qint64 at) const { return u8(at) | u8(at + 1) << 8; }
    uint32_t u32(qint64 at) const { return u16(at) | u16(at + 2) << 16; }
    bool tagIs(qint64 at, const char *tag) const
    {
        return has(at, 4) && std::memcmp(data_ + at, tag, 4) == 0;
    }
    Bytes slice(qint64 offset, qint64 length) const { return {data_ + offset, length}; }

private:
    const char *data_;
    qint64 size_;
};

// Calls `visit(tag, body)` for each chunk of a RIFF chunk list; false when one runs past
// the list's end. A missing pad byte after the last chunk is forgiven.
template <typename Visit> bool forEachChunk(const Bytes &list, Visit &&visit)
{
    qint64 pos = 0;
    while (list.has(pos, 8)) {
        const qint64 length = list.u32(pos + 4);
        if (!list.has(pos + 8, length))
            return false;
        if (!visit(list.data() + pos, list.slice(pos + 8, length)))
            return false;
        pos += 8 + length + (length & 1);
    }
    return true;
}

bool isTag(const char *at, const char *tag)
{
    return std::memcmp(at, tag, 4) == 0;
}

QString zeroTerminated(const Bytes &text)
{
    const QByteArray raw(text.data(), text.size());
    const qsizetype end = raw.indexOf('\0');
    return QString::fromLatin1(end < 0 ? raw : raw.left(end));
}

// What loading with mapped colours does: the three greys of classic 3D art take the
// colours of the desktop in use.
QRgb mappedColour(QRgb colour)
{
    const QPalette palette = QGuiApplication::palette();
    switch (colour & RGB_MASK) {
    case 0x808080:
        return palette.color(QPalette::Dark).rgb();
    case 0xC0C0C0:
        return palette.color(QPalette::Window).rgb();
    case 0xDFDFDF:
        return palette.color(QPalette::Midlight).rgb();
    default:
        return colour;
    }
}

// A device-independent bitmap as icons keep it: the colour rows, then the AND mask rows,
// both bottom-up, under a header whose height counts both.
std::optional<QImage> decodeDib(const Bytes &dib, bool mappedColours)
{
    if (!dib.has(0, 40))
        return std::nullopt;
    const qint64 headerSize = dib.u32(0);
    const auto width = static_cast<int32_t>(dib.u32(4));
    const auto doubledHeight = static_cast<int32_t>(dib.u32(8));
    const uint32_t bitCount = dib.u16(14);
    const uint32_t compression = dib.u32(16);
    const uint32_t coloursUsed = dib.u32(32);
    if (headerSize < 40 || !dib.has(0, headerSize) || compression != 0)
        return std::nullopt;
    if (width <= 0 || width > MaxImageSide || doubledHeight < 2 || doubledHeight > 2 * MaxImageSide)
        return std::nullopt;
    if (bitCount != 1 && bitCount != 4 && bitCount != 8 && bitCount != 24 && bitCount != 32)
        return std::nullopt;
    const int32_t height = doubledHeight / 2;
    const uint32_t paletteSize =
        bitCount > 8 ? 0 : (coloursUsed != 0 ? coloursUsed : 1u << bitCount);
    if (paletteSize > 256)
        return std::nullopt;
    const qint64 paletteAt = headerSize;
    const qint64 colourAt = paletteAt + 4 * qint64(paletteSize);
    const qint64 colourStride = (qint64(width) * bitCount + 31) / 32 * 4;
    const qint64 maskAt = colourAt + colourStride * height;
    const qint64 maskStride = (qint64(width) + 31) / 32 * 4;
    if (!dib.has(maskAt, maskStride * height))
        return std::nullopt;

    auto paletteEntry = [&](uint32_t index) -> QRgb {
        if (index >= paletteSize)
            return qRgb(0, 0, 0);
        const qint64 at = paletteAt + 4 * qint64(index);
        return qRgb(dib.u8(at + 2), dib.u8(at + 1), dib.u8(at));
    };
    auto colourOf = [&](int32_t x, int32_t row) -> QRgb {
        const qint64 line = colourAt + colourStride * row;
        switch (bitCount) {
        case 1:
            return paletteEntry(dib.u8(line + x / 8) >> (7 - x % 8) & 1);
        case 4:
            return paletteEntry(dib.u8(line + x / 2) >> (x % 2 == 0 ? 4 : 0) & 0xF);
        case 8:
            return paletteEntry(dib.u8(line + x));
        case 24:
            return qRgb(dib.u8(line + 3 * x + 2), dib.u8(line + 3 * x + 1), dib.u8(line + 3 * x));
        default:
            return qRgba(dib.u8(line + 4 * x + 2), dib.u8(line + 4 * x + 1), dib.u8(line + 4 * x),
                         dib.u8(line + 4 * x + 3));
        }
    };
    auto masked = [&](int32_t x, int32_t row) {
        return (dib.u8(maskAt + maskStride * row + x / 8) >> (7 - x % 8) & 1) != 0;
    };

    // Newer 32-bit art carries its own alpha and keeps the mask only for old systems.
    bool ownAlpha = false;
    for (int32_t row = 0; bitCount == 32 && row < height && !ownAlpha; ++row)
        for (int32_t x = 0; x < width && !ownAlpha; ++x)
            ownAlpha = qAlpha(colourOf(x, row)) != 0;

    QImage image(width, height, QImage::Format_ARGB32);
    for (int32_t y = 0; y < height; ++y) {
        const int32_t row = height - 1 - y;
        auto *out = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int32_t x = 0; x < width; ++x) {
            QRgb colour = colourOf(x, row);
            if (ownAlpha) {
                out[x] = colour;
                continue;
            }
            colour |= 0xFF000000u;
            if (masked(x, row)) {
                // A masked pixel with colour inverts the screen, which a picture cannot
                // do; it is shown as the inversion would look on a light window.
                out[x] = (colour & RGB_MASK) == 0 ? 0u : (~colour & RGB_MASK) | 0xFF000000u;
            } else {
                out[x] = mappedColours ? mappedColour(colour) : colour;
            }
        }
    }
    return image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

// One frame: an icon or cursor file. Of several images the one closest to the usual
// cursor size is taken, as the system does when no size is asked for.
std::optional<QImage> decodeFrame(const Bytes &file, bool mappedColours, QPoint &hotSpot)
{
    if (!file.has(0, 6) || file.u16(0) != 0)
        return std::nullopt;
    const uint32_t type = file.u16(2);
    const uint32_t count = file.u16(4);
    if ((type != 1 && type != 2) || count == 0 || !file.has(6, 16 * qint64(count)))
        return std::nullopt;
    qint64 best = -1;
    int bestDistance = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const qint64 entry = 6 + 16 * qint64(i);
        const int w = file.u8(entry) == 0 ? 256 : int(file.u8(entry));
        const int h = file.u8(entry + 1) == 0 ? 256 : int(file.u8(entry + 1));
        const int distance = std::abs(w - 32) + std::abs(h - 32);
        if (best < 0 || distance < bestDistance) {
            best = entry;
            bestDistance = distance;
        }
    }
    const qint64 length = file.u32(best + 8);
    const qint64 offset = file.u32(best + 12);
    if (!file.has(offset, length))
        return std::nullopt;
    const Bytes data = file.slice(offset, length);

    std::optional<QImage> image;
    if (data.has(0, 8) && std::memcmp(data.data(), "\x89PNG\r\n\x1a\n", 8) == 0) {
        QImage png = QImage::fromData(
            QByteArray::fromRawData(data.data(), static_cast<qsizetype>(data.size())), "PNG");
        if (!png.isNull() && png.width() <= MaxImageSide && png.height() <= MaxImageSide)
            image = png.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    } else {
        image = decodeDib(data, mappedColours);
    }
    if (!image)
        return std::nullopt;
    hotSpot = type == 2 ? QPoint(int(file.u16(best + 4)), int(file.u16(best + 6)))
                        : QPoint(image->width() / 2, image->height() / 2);
    return image;
}

// The whole file, or an errno value.
std::variant<QByteArray, int> readWholeFile(const QString &fileName)
{
    const QByteArray path = QFile::encodeName(fileName);
    if (path.isEmpty())
        return ENOENT;
    struct Descriptor {
        int fd;
        ~Descriptor()
        {
            if (fd >= 0)
                ::close(fd);
        }
    } file{::open(path.constData(), O_RDONLY | O_CLOEXEC)};
    if (file.fd < 0)
        return errno;
    struct stat info {};
    if (::fstat(file.fd, &info) != 0)
        return errno;
    if (S_ISDIR(info.st_mode))
        return EISDIR;
    if (info.st_size > MaxFileSize)
        return EFBIG;
    QByteArray bytes;
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(file.fd, buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        if (got == 0)
            break;
        bytes.append(buffer, got);
        if (bytes.size() > MaxFileSize)
            return EFBIG;
    }
    return bytes;
}

uint32_t nextHandle()
{
    static uint32_t last = 0;
    if (++last == 0)
        ++last;
    return last;
}

} // namespace

cAniCursor::cAniCursor() = default;

cAniCursor::~cAniCursor()
{
    Destroy();
}

bool cAniCursor::LoadFromResource(const QVariant &resource, bool mappedColours, intptr_t instance,
                                  bool noCount)
{
    // The cursor is never asked of the system by its resource number: the route through a
    // temporary file is the one always taken, and it loads with both flags clear.
    Q_UNUSED(resource);
    Q_UNUSED(mappedColours);
    Q_UNUSED(instance);
    Q_UNUSED(noCount);
    Destroy();

    RegisterProgramResources();
    QFile resourceFile(QStringLiteral(":/CUSTOM/2001"));
    if (!resourceFile.open(QIODevice::ReadOnly))
        throw RuntimeError(326, "Resource with identifier '2001' not found", cursorSource());
    const QByteArray bytes = resourceFile.readAll();

    const QString name = TempFileName(QStringLiteral("ANI"), QString());
    QFile::remove(name);
    {
        QFile out(name);
        if (out.open(QIODevice::WriteOnly))
            out.write(bytes);
    }
    bool loaded = false;
    try {
        loaded = LoadFromFile(name, false, false);
    } catch (...) {
        QFile::remove(name);
        throw;
    }
    QFile::remove(name);
    return loaded;
}

bool cAniCursor::LoadFromFile(const QString &fileName, bool mappedColours, bool noCount)
{
    Destroy();

    auto read = readWholeFile(fileName);
    if (const int *error = std::get_if<int>(&read))
        raiseSystemError(*error);
    const QByteArray &raw = std::get<QByteArray>(read);
    const Bytes file(raw.constData(), raw.size());

    // RIFF "ACON". A file shorter than its RIFF header claims is a broken copy, not a
    // cursor with a few frames missing.
    if (!file.tagIs(0, "RIFF") || !file.tagIs(8, "ACON"))
        raiseSystemError(EINVAL);
    const qint64 riffLength = file.u32(4);
    if (riffLength < 4 || !file.has(8, riffLength))
        raiseSystemError(EINVAL);

    std::optional<Bytes> header;
    std::vector<uint32_t> rates;
    std::vector<uint32_t> sequence;
    bool hasSequence = false;
    std::vector<Bytes> icons;
    QString title;
    QString artist;
    auto readDwords = [](const Bytes &body, std::vector<uint32_t> &into) {
        into.clear();
        for (qint64 at = 0; body.has(at, 4); at += 4)
            into.push_back(body.u32(at));
    };
    const bool wellFormed = forEachChunk(file.slice(12, riffLength - 4), [&](const char *tag,
                                                                             const Bytes &body) {
        if (isTag(tag, "anih")) {
            if (!header)
                header = body;
        } else if (isTag(tag, "rate")) {
            readDwords(body, rates);
        } else if (isTag(tag, "seq ")) {
            readDwords(body, sequence);
            hasSequence = true;
        } else if (isTag(tag, "LIST") && body.tagIs(0, "fram")) {
            return forEachChunk(body.slice(4, body.size() - 4), [&](const char *t, const Bytes &b) {
                if (isTag(t, "icon"))
                    icons.push_back(b);
                return true;
            });
        } else if (isTag(tag, "LIST") && body.tagIs(0, "INFO")) {
            return forEachChunk(body.slice(4, body.size() - 4), [&](const char *t, const Bytes &b) {
                if (isTag(t, "INAM"))
                    title = zeroTerminated(b);
                else if (isTag(t, "IART"))
                    artist = zeroTerminated(b);
                return true;
            });
        }
        return true;
    });
    if (!wellFormed || !header || !header->has(0, 36))
        raiseSystemError(EINVAL);

    const uint32_t frames = header->u32(4);
    const uint32_t stepsInHeader = header->u32(8);
    const uint32_t defaultRate = header->u32(28);
    const uint32_t flags = header->u32(32);
    // Frames kept as bare bitmaps, without an icon file around each, are refused; no
    // cursor tool in use writes them.
    if ((flags & AniFramesAreIcons) == 0 || frames == 0 || icons.size() < frames)
        raiseSystemError(EINVAL);

    std::vector<Picture> pictures;
    pictures.reserve(frames);
    for (uint32_t i = 0; i < frames; ++i) {
        QPoint hotSpot;
        std::optional<QImage> image = decodeFrame(icons[i], mappedColours, hotSpot);
        if (!image)
            raiseSystemError(EINVAL);
        pictures.push_back({std::move(*image), hotSpot});
    }

    std::vector<AniStep> steps;
    const uint32_t stepCount = hasSequence ? stepsInHeader : frames;
    if (hasSequence && (stepCount == 0 || sequence.size() < stepCount))
        raiseSystemError(EINVAL);
    steps.reserve(stepCount);
    for (uint32_t i = 0; i < stepCount; ++i) {
        const uint32_t picture = hasSequence ? sequence[i] : i;
        if (picture >= frames)
            raiseSystemError(EINVAL);
        const uint32_t rate = i < rates.size() ? rates[i] : defaultRate;
        steps.push_back({static_cast<int32_t>(picture), static_cast<int32_t>(rate)});
    }

    pictures_ = std::move(pictures);
    steps_ = std::move(steps);
    title_ = title;
    artist_ = artist;
    handle_ = nextHandle();

    if (!noCount) {
        // The count is the first frame that cannot be drawn; a cursor that can be drawn at
        // every index tried keeps the count it had, which after loading is none.
        for (int32_t i = 0; i < FramesCountedAtMost; ++i) {
            if (!stepIsDrawable(i)) {
                frameCount_ = i;
                break;
            }
        }
    }
    return true;
}

void cAniCursor::Frame(int32_t frame)
{
    if (frame < 0 || frame >= frameCount_)
        throw RuntimeError(9, errorDescription(9), cursorSource());
    frame_ = frame;
}

void cAniCursor::Step()
{
    ++frame_;
    if (frame_ < 0 || frame_ >= frameCount_)
        frame_ = 0;
}

void cAniCursor::Draw(QPainter &painter, int32_t x, int32_t y, int32_t width, int32_t height,
                      int32_t backgroundColour) const
{
    if (handle_ == 0 || !stepIsDrawable(frame_))
        return;
    const QImage &image = pictures_[steps_[frame_].picture].image;
    const QRect target =
        width == 0 || height == 0 ? QRect(QPoint(x, y), image.size()) : QRect(x, y, width, height);
    const QColor background = TranslateColour(backgroundColour);
    if (background.isValid())
        painter.fillRect(target, background);
    painter.drawImage(target, image);
}

void cAniCursor::Draw(QPaintDevice *device, int32_t x, int32_t y, int32_t width, int32_t height,
                      int32_t backgroundColour) const
{
    if (device == nullptr || handle_ == 0)
        return;
    QPainter painter(device);
    if (painter.isActive())
        Draw(painter, x, y, width, height, backgroundColour);
}

void cAniCursor::Destroy()
{
    if (handle_ == 0)
        return;
    for (WindowRow &row : windows_)
        restoreWindow(row);
    windows_.clear();
    animation_.reset();
    pictures_.clear();
    steps_.clear();
    title_.clear();
    artist_.clear();
    handle_ = 0;
    frame_ = 0;
    frameCount_ = 0;
    cursorStep_ = 0;
}

void cAniCursor::SetAsDefaultCursor(QWidget *window, bool set)
{
    if (window == nullptr)
        return;
    auto found = std::find_if(windows_.begin(), windows_.end(),
                              [&](const WindowRow &row) { return row.window == window; });
    if (!set) {
        if (found != windows_.end())
            restoreWindow(*found);
        const bool anyLeft = std::any_of(windows_.begin(), windows_.end(),
                                         [](const WindowRow &row) { return row.hasOld; });
        if (!anyLeft && animation_)
            animation_->stop();
        return;
    }
    if (handle_ == 0)
        return;
    if (found == windows_.end())
        found = std::find_if(windows_.begin(), windows_.end(),
                             [](const WindowRow &row) { return row.window.isNull(); });
    if (found == windows_.end())
        found = windows_.insert(windows_.end(), WindowRow{});
    if (found->hasOld && found->window == window)
        return;
    *found = WindowRow{window, true, window->testAttribute(Qt::WA_SetCursor), window->cursor()};
    window->setCursor(cursorFor(cursorStep_));

    // A widget's cursor is a still picture; the frames are turned at the file's own rates,
    // as the system would turn them.
    if (steps_.size() > 1) {
        if (!animation_) {
            animation_ = std::make_unique<QTimer>();
            animation_->setSingleShot(true);
            QObject::connect(animation_.get(), &QTimer::timeout, [this] { animateWindows(); });
        }
        if (!animation_->isActive())
            animation_->start(Rate(cursorStep_) * 1000 / 60);
    }
}

void cAniCursor::animateWindows()
{
    if (steps_.empty())
        return;
    cursorStep_ = (cursorStep_ + 1) % StepCount();
    const QCursor cursor = cursorFor(cursorStep_);
    bool anyLeft = false;
    for (WindowRow &row : windows_) {
        if (row.hasOld && row.window) {
            row.window->setCursor(cursor);
            anyLeft = true;
        }
    }
    if (anyLeft)
        animation_->start(Rate(cursorStep_) * 1000 / 60);
}

void cAniCursor::restoreWindow(WindowRow &row)
{
    if (row.hasOld && row.window) {
        if (row.oldWasOwn)
            row.window->setCursor(row.old);
        else
            row.window->unsetCursor();
    }
    row = WindowRow{};
}

bool cAniCursor::stepIsDrawable(int32_t step) const
{
    return step >= 0 && step < StepCount();
}

QCursor cAniCursor::cursorFor(int32_t step) const
{
    if (!stepIsDrawable(step))
        return QCursor();
    const Picture &picture = pictures_[steps_[step].picture];
    return QCursor(QPixmap::fromImage(picture.image), picture.hotSpot.x(), picture.hotSpot.y());
}

QImage cAniCursor::FrameImage(int32_t step) const
{
    return stepIsDrawable(step) ? pictures_[steps_[step].picture].image : QImage();
}

QPoint cAniCursor::HotSpot(int32_t step) const
{
    return stepIsDrawable(step) ? pictures_[steps_[step].picture].hotSpot : QPoint();
}

int32_t cAniCursor::Rate(int32_t step) const
{
    // A rate of 0 would spin the animation timer; one sixtieth is the shortest turn.
    return stepIsDrawable(step) ? std::max(steps_[step].rate, 1) : 0;
}

QColor cAniCursor::TranslateColour(int32_t colour)
{
    if (colour == NoBackground)
        return QColor();
    const auto value = static_cast<uint32_t>(colour);
    if ((value & 0x80000000u) == 0)
        return QColor(int(value & 0xFF), int(value >> 8 & 0xFF), int(value >> 16 & 0xFF));
    const QPalette palette = QGuiApplication::palette();
    switch (value & 0xFF) {
    case 5: // window
        return palette.color(QPalette::Base);
    case 8: // window text
        return palette.color(QPalette::Text);
    case 13: // highlight
        return palette.color(QPalette::Highlight);
    case 14: // highlighted text
        return palette.color(QPalette::HighlightedText);
    case 16: // button shadow
        return palette.color(QPalette::Dark);
    case 18: // button text
        return palette.color(QPalette::ButtonText);
    case 20: // button highlight
        return palette.color(QPalette::Light);
    case 21: // dark shadow
        return palette.color(QPalette::Shadow);
    case 22: // 3D light
        return palette.color(QPalette::Midlight);
    case 23: // tooltip text
        return palette.color(QPalette::ToolTipText);
    case 24: // tooltip background
        return palette.color(QPalette::ToolTipBase);
    default: // button face and the rest: the colour dialogs are painted with
        return palette.color(QPalette::Window);
    }
}

} // namespace pw
