#pragma once
// An animated cursor read from a RIFF "ACON" file: its frames as pictures that a window can
// draw one after another, and a cursor that a widget can wear while work is going on.

#include <QCursor>
#include <QImage>
#include <QPoint>
#include <QPointer>
#include <QString>
#include <QVariant>

#include <cstdint>
#include <memory>
#include <vector>

class QPaintDevice;
class QPainter;
class QTimer;
class QWidget;

namespace pw {

class cAniCursor {
public:
    // The background colour that leaves what is under a frame in place.
    static constexpr int32_t NoBackground = -1;

    cAniCursor();
    ~cAniCursor();
    cAniCursor(const cAniCursor &) = delete;
    cAniCursor &operator=(const cAniCursor &) = delete;

    // Loads the program's own hourglass. The cursor always comes from the compiled-in
    // resource, so `resource` and `instance` are accepted for the callers' sake only.
    // Raises the temporary file's failure or the load's failure to the caller.
    bool LoadFromResource(const QVariant &resource, bool mappedColours = false,
                          intptr_t instance = 0, bool noCount = false);
    // Raises 10000 | errno with the system's text when the file cannot be read or is no
    // animated cursor. With `noCount` the frames are not counted and FrameCount stays 0.
    bool LoadFromFile(const QString &fileName, bool mappedColours = false, bool noCount = false);

    uint32_t hCursor() const { return handle_; }
    int32_t Frame() const { return frame_; }
    // Raises 9 when `frame` is not a frame of the loaded cursor.
    void Frame(int32_t frame);
    int32_t FrameCount() const { return frameCount_; }
    void Step();

    // Draws the current frame with its top left corner at (x, y). A width or height of 0
    // means the frame's own size. `backgroundColour` is a classic colour value (0x00BBGGRR,
    // or 0x800000nn for a system colour); unless it is NoBackground the frame's rectangle
    // is filled with it first, which wipes what the previous frame left.
    void Draw(QPainter &painter, int32_t x, int32_t y, int32_t width = 0, int32_t height = 0,
              int32_t backgroundColour = NoBackground) const;
    void Draw(QPaintDevice *device, int32_t x, int32_t y, int32_t width = 0, int32_t height = 0,
              int32_t backgroundColour = NoBackground) const;

    void Destroy();

    // With true the widget wears the animated cursor; with false it gets back the cursor it
    // had before. Each widget's earlier cursor is remembered until it is given back.
    void SetAsDefaultCursor(QWidget *window, bool set);

    // What was read, for the windows that show it. `step` counts like Frame.
    int32_t StepCount() const { return static_cast<int32_t>(steps_.size()); }
    QImage FrameImage(int32_t step) const;
    QPoint HotSpot(int32_t step) const;
    int32_t Rate(int32_t step) const; // in sixtieths of a second
    const QString &Title() const { return title_; }
    const QString &Artist() const { return artist_; }

    // The colour that a classic colour value stands for; invalid for NoBackground.
    static QColor TranslateColour(int32_t colour);

private:
    struct Picture {
        QImage image; // premultiplied ARGB; the mask is its transparency
        QPoint hotSpot;
    };
    struct AniStep {
        int32_t picture;
        int32_t rate;
    };
    struct WindowRow {
        QPointer<QWidget> window;
        bool hasOld = false;
        bool oldWasOwn = false; // the widget had a cursor of its own, not its parent's
        QCursor old;
    };

    bool stepIsDrawable(int32_t step) const;
    QCursor cursorFor(int32_t step) const;
    void animateWindows();
    void restoreWindow(WindowRow &row);

    uint32_t handle_ = 0;
    int32_t frame_ = 0;
    int32_t frameCount_ = 0;
    std::vector<Picture> pictures_;
    std::vector<AniStep> steps_;
    QString title_;
    QString artist_;

    std::vector<WindowRow> windows_;
    std::unique_ptr<QTimer> animation_;
    int32_t cursorStep_ = 0;
};

} // namespace pw
