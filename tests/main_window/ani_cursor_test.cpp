#include "main_window/c_ani_cursor.h"
#include "main_window/frm_loading.h"

#include "core/runtime.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QTest>
#include <QTimer>
#include <QWidget>

#include <functional>
#include <random>

using namespace pw;

namespace {

QByteArray hourglassBytes()
{
    // Reading the resource through the loader first makes sure it is registered.
    cAniCursor probe;
    probe.LoadFromResource(101);
    QFile file(":/CUSTOM/2001");
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return file.readAll();
}

// Runs `load` and hands back the failure it raised; fails the test when it raised none.
RuntimeError raisedBy(const std::function<void()> &load)
{
    try {
        load();
    } catch (const RuntimeError &e) {
        return e;
    }
    ADD_FAILURE() << "no failure was raised";
    return RuntimeError(0, {});
}

void expectCursorFailure(const RuntimeError &e)
{
    EXPECT_EQ(e.number() & 10000, 10000) << e.number();
    EXPECT_GT(e.number(), 10000) << "the system's code is part of the number";
    EXPECT_FALSE(e.description().isEmpty());
    EXPECT_EQ(e.source(), QCoreApplication::applicationName() + ".cAniCursor");
}

// TMPDIR for the life of the object.
class TempDirOverride {
public:
    explicit TempDirOverride(const QString &path) : old_(qgetenv("TMPDIR"))
    {
        qputenv("TMPDIR", QFile::encodeName(path));
    }
    ~TempDirOverride()
    {
        if (old_.isEmpty())
            qunsetenv("TMPDIR");
        else
            qputenv("TMPDIR", old_);
    }

private:
    QByteArray old_;
};

int differingPixels(const QImage &a, const QImage &b)
{
    int count = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            count += a.pixel(x, y) != b.pixel(x, y);
    return count;
}

} // namespace

TEST(AniCursor, TheHourglassResourceReadsAsFifteenFramesOfItsOwnArt)
{
    cAniCursor cursor;
    EXPECT_EQ(cursor.hCursor(), 0u);
    ASSERT_TRUE(cursor.LoadFromResource(101, false, 0, false));
    EXPECT_NE(cursor.hCursor(), 0u);
    EXPECT_EQ(cursor.Title(), "Hourglass (White)");
    ASSERT_EQ(cursor.FrameCount(), 15);
    ASSERT_EQ(cursor.StepCount(), 15);
    for (int i = 0; i < 15; ++i) {
        SCOPED_TRACE(i);
        const QImage frame = cursor.FrameImage(i);
        EXPECT_EQ(frame.size(), QSize(32, 32));
        EXPECT_EQ(cursor.HotSpot(i), i == 14 ? QPoint(16, 16) : QPoint(16, 15));
        EXPECT_EQ(cursor.Rate(i), i < 11 ? 14 : (i == 11 ? 40 : 5));
        // The mask makes the corners clear.
        EXPECT_EQ(qAlpha(frame.pixel(0, 0)), 0);
        EXPECT_EQ(qAlpha(frame.pixel(31, 31)), 0);
        if (i > 0) {
            EXPECT_GT(differingPixels(frame, cursor.FrameImage(i - 1)), 0) << "sand stood still";
        }
    }
    // Upright with the sand above, the sand below, then turned over.
    const QImage full = cursor.FrameImage(0);
    EXPECT_EQ(full.pixel(16, 3) & 0xFFFFFF, 0x000000u) << "top cap outline";
    EXPECT_EQ(full.pixel(16, 4) & 0xFFFFFF, 0xFFFFFFu) << "top cap is white";
    EXPECT_NE(full.pixel(16, 9) & 0xFFFFFF, 0xFFFFFFu) << "sand in the upper bulb";
    EXPECT_EQ(full.pixel(16, 24) & 0xFFFFFF, 0xFFFFFFu) << "lower bulb still empty";
    const QImage run = cursor.FrameImage(11);
    EXPECT_EQ(run.pixel(16, 9) & 0xFFFFFF, 0xFFFFFFu);
    EXPECT_NE(run.pixel(16, 24) & 0xFFFFFF, 0xFFFFFFu);
    EXPECT_EQ(qAlpha(cursor.FrameImage(13).pixel(16, 3)), 0) << "lying on its side";
    EXPECT_NE(qAlpha(cursor.FrameImage(13).pixel(3, 16)), 0);

    cursor.Destroy();
    EXPECT_EQ(cursor.hCursor(), 0u);
    EXPECT_EQ(cursor.FrameCount(), 0);
    EXPECT_TRUE(cursor.FrameImage(0).isNull());
}

TEST(AniCursor, FrameIsCheckedAndStepWraps)
{
    cAniCursor cursor;
    // Nothing loaded: stepping stays on 0 and no frame may be chosen.
    cursor.Step();
    EXPECT_EQ(cursor.Frame(), 0);
    EXPECT_EQ(raisedBy([&] { cursor.Frame(0); }).number(), 9);

    ASSERT_TRUE(cursor.LoadFromResource(101));
    cursor.Frame(14);
    EXPECT_EQ(cursor.Frame(), 14);
    cursor.Step();
    EXPECT_EQ(cursor.Frame(), 0);
    for (int bad : {-1, 15, 1000}) {
        const RuntimeError e = raisedBy([&] { cursor.Frame(bad); });
        EXPECT_EQ(e.number(), 9);
        EXPECT_EQ(e.description(), "Subscript out of range");
        EXPECT_EQ(e.source(), QCoreApplication::applicationName() + ".cAniCursor");
        EXPECT_EQ(cursor.Frame(), 0) << "a refused frame changes nothing";
    }
    for (int i = 0; i < 15 * 2 + 3; ++i)
        cursor.Step();
    EXPECT_EQ(cursor.Frame(), 3);

    // Without counting there are no frames to step through.
    SandboxDir sandbox;
    const QString file = sandbox.write("h.ani", hourglassBytes());
    ASSERT_TRUE(cursor.LoadFromFile(file, false, true));
    EXPECT_EQ(cursor.FrameCount(), 0);
    cursor.Step();
    EXPECT_EQ(cursor.Frame(), 0);
}

TEST(AniCursor, DrawPaintsTheCurrentFrameWithOrWithoutBackground)
{
    QImage canvas(64, 64, QImage::Format_ARGB32_Premultiplied);
    const QRgb under = qRgb(10, 200, 30);
    canvas.fill(under);

    cAniCursor cursor;
    {
        QPainter painter(&canvas);
        cursor.Draw(painter, 0, 0, 64, 64, 0x0000FF); // before a load: nothing at all
    }
    cursor.Draw(&canvas, 0, 0); // the device form as well
    EXPECT_EQ(canvas, [&] {
        QImage clean(64, 64, QImage::Format_ARGB32_Premultiplied);
        clean.fill(under);
        return clean;
    }());

    ASSERT_TRUE(cursor.LoadFromResource(101));
    cursor.Frame(5);
    cursor.Draw(&canvas, 16, 16, 0, 0, cAniCursor::NoBackground);
    const QImage frame = cursor.FrameImage(5);
    EXPECT_EQ(canvas.pixel(16, 16), under) << "clear corner shows what was there";
    EXPECT_EQ(canvas.pixel(15, 15), under) << "nothing outside the frame";
    EXPECT_EQ(canvas.pixel(16 + 16, 16 + 3), frame.pixel(16, 3));
    EXPECT_EQ(canvas.pixel(16 + 16, 16 + 8), frame.pixel(16, 8));

    // A background colour (0x00BBGGRR) fills exactly the frame's square first.
    cursor.Draw(&canvas, 16, 16, 0, 0, 0x0000FF);
    EXPECT_EQ(canvas.pixel(16, 16), qRgb(255, 0, 0));
    EXPECT_EQ(canvas.pixel(47, 47), qRgb(255, 0, 0));
    EXPECT_EQ(canvas.pixel(48, 48), under);

    // A size stretches the frame.
    canvas.fill(under);
    cursor.Draw(&canvas, 0, 0, 64, 64, 0xFFFFFF);
    EXPECT_EQ(canvas.pixel(63, 63), qRgb(255, 255, 255));
    EXPECT_EQ(canvas.pixel(32, 6), frame.pixel(16, 3));

    EXPECT_EQ(cAniCursor::TranslateColour(static_cast<int32_t>(0x8000000F)),
              QGuiApplication::palette().color(QPalette::Window));
    EXPECT_FALSE(cAniCursor::TranslateColour(cAniCursor::NoBackground).isValid());
}

TEST(AniCursor, BrokenFilesRaiseTheCursorFailureAndNeverCrash)
{
    SandboxDir sandbox;
    const QByteArray good = hourglassBytes();
    ASSERT_GT(good.size(), 1000);
    cAniCursor cursor;

    const RuntimeError missing =
        raisedBy([&] { cursor.LoadFromFile(sandbox.filePath("nothing.ani")); });
    expectCursorFailure(missing);
    EXPECT_EQ(missing.number(), 10000 | ENOENT);
    expectCursorFailure(raisedBy([&] { cursor.LoadFromFile(sandbox.path()); }));
    expectCursorFailure(raisedBy([&] { cursor.LoadFromFile(QString()); }));

    QByteArray garbage(4096, '\0');
    std::mt19937 random(2001);
    for (char &c : garbage)
        c = static_cast<char>(random());
    for (const QByteArray &bad : {QByteArray(), garbage, QByteArray("RIFF\x04\0\0\0ACON", 12),
                                  QByteArray("RIFF\xff\xff\xff\x7f"
                                             "ACON",
                                             12),
                                  good.left(good.size() / 2)}) {
        expectCursorFailure(raisedBy([&] { cursor.LoadFromFile(sandbox.write("bad.ani", bad)); }));
        EXPECT_EQ(cursor.hCursor(), 0u);
        EXPECT_EQ(cursor.FrameCount(), 0);
    }

    // Cut anywhere, the file is refused; a failed load leaves nothing half loaded.
    const QString cut = sandbox.filePath("cut.ani");
    for (int length = 0; length < good.size(); length += 37) {
        sandbox.write("cut.ani", good.left(length));
        cursor.LoadFromResource(101);
        const RuntimeError e = raisedBy([&] { cursor.LoadFromFile(cut); });
        ASSERT_EQ(e.number() & 10000, 10000) << "cut at " << length;
        ASSERT_EQ(cursor.hCursor(), 0u);
    }

    // Damaged bytes anywhere: loaded or refused, but never a crash or a wild frame.
    for (int round = 0; round < 300; ++round) {
        QByteArray damaged = good;
        for (int flips = 0; flips < 1 + round % 8; ++flips)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        const QString path = sandbox.write("damaged.ani", damaged);
        try {
            if (cursor.LoadFromFile(path)) {
                for (int i = 0; i < cursor.FrameCount(); ++i) {
                    EXPECT_LE(cursor.FrameImage(i).width(), 256);
                    QImage canvas(40, 40, QImage::Format_ARGB32_Premultiplied);
                    cursor.Frame(i);
                    cursor.Draw(&canvas, 0, 0, 0, 0, 0);
                }
            }
        } catch (const RuntimeError &e) {
            ASSERT_EQ(e.number() & 10000, 10000);
        }
    }
}

TEST(AniCursor, AnUnwritableTempFolderReachesTheCallerAndLeavesNoFile)
{
    SandboxDir sandbox;
    const QString plainFile = sandbox.write("plain", "not a folder");
    cAniCursor cursor;
    {
        // Qt only takes a temporary folder that exists, so the file itself stands in for
        // it; whatever is made there would lie under a plain file, which cannot be.
        TempDirOverride tmp(plainFile);
        ASSERT_EQ(QDir::tempPath(), plainFile);
        expectCursorFailure(raisedBy([&] { cursor.LoadFromResource(101, false, 0, false); }));
        EXPECT_EQ(cursor.hCursor(), 0u);
    }

    // A writable one is used and tidied up.
    const QString tmpDir = sandbox.mkdir("tmp");
    TempDirOverride tmp(tmpDir);
    ASSERT_TRUE(cursor.LoadFromResource(101));
    EXPECT_TRUE(QDir(tmpDir).entryList(QDir::Files | QDir::Hidden).isEmpty());
}

TEST(AniCursor, SetAsDefaultCursorGivesEachWidgetBackItsOwnCursor)
{
    // Children: a window never quite forgets that it was given a cursor.
    QWidget window;
    QWidget &plain = *new QWidget(&window);
    QWidget &pointing = *new QWidget(&window);
    pointing.setCursor(Qt::PointingHandCursor);
    cAniCursor cursor;
    cursor.SetAsDefaultCursor(&plain, true); // nothing loaded: nothing to wear
    EXPECT_FALSE(plain.testAttribute(Qt::WA_SetCursor));

    ASSERT_TRUE(cursor.LoadFromResource(101));
    cursor.SetAsDefaultCursor(&plain, true);
    cursor.SetAsDefaultCursor(&pointing, true);
    cursor.SetAsDefaultCursor(&pointing, true); // twice must not forget the first cursor
    EXPECT_EQ(plain.cursor().shape(), Qt::BitmapCursor);
    EXPECT_EQ(plain.cursor().hotSpot(), QPoint(16, 15));
    EXPECT_EQ(pointing.cursor().shape(), Qt::BitmapCursor);

    cursor.SetAsDefaultCursor(&pointing, false);
    EXPECT_EQ(pointing.cursor().shape(), Qt::PointingHandCursor);
    cursor.SetAsDefaultCursor(&pointing, false); // nothing left to give back
    EXPECT_EQ(pointing.cursor().shape(), Qt::PointingHandCursor);

    {
        QWidget shortLived;
        cursor.SetAsDefaultCursor(&shortLived, true);
    }
    cursor.Destroy(); // gives back what is still out, skipping the widget that is gone
    EXPECT_FALSE(plain.testAttribute(Qt::WA_SetCursor));
}

TEST(Loading, ShowsTheHitCountAtTheTopLeftOfTheStatusPanel)
{
    QWidget mainWindow;
    frmLoading loading(&mainWindow);
    EXPECT_EQ(loading.parentWidget(), &mainWindow);
    EXPECT_FALSE(loading.isModal());
    EXPECT_EQ(loading.font().family(), "Arial");
    EXPECT_EQ(loading.pnlStatus->Text(), "Please wait.Loading...files (0)");

    loading.UpdateStatus(37);
    EXPECT_EQ(loading.pnlStatus->Text(), "Please wait.Loading...files (37)") << "cleared first";
    EXPECT_EQ(loading.pnlStatus->CurrentX(), 0);
    EXPECT_EQ(loading.pnlStatus->CurrentY(),
              loading.pnlStatus->TextHeight(loading.pnlStatus->Text()));

    // The ink starts at the panel's left edge and top, not in its middle.
    loading.show();
    const QImage panel = loading.pnlStatus->grab().toImage();
    const QRgb paper = panel.pixel(panel.width() - 1, panel.height() - 1);
    int left = panel.width();
    int top = panel.height();
    for (int y = 0; y < panel.height(); ++y)
        for (int x = 0; x < panel.width(); ++x)
            if (panel.pixel(x, y) != paper) {
                left = std::min(left, x);
                top = std::min(top, y);
            }
    EXPECT_LT(left, 4);
    EXPECT_LT(top, loading.pnlStatus->TextHeight("P") / 2);
}

TEST(Loading, TheTimerTurnsTheHourglassOnTheForm)
{
    QWidget mainWindow;
    frmLoading loading(&mainWindow);
    EXPECT_EQ(loading.Timer1->interval(), 100);
    EXPECT_TRUE(loading.Timer1->isActive());
    cAniCursor &cursor = loading.AniCursor();
    EXPECT_EQ(&cursor, &loading.AniCursor()) << "one cursor for the form's life";
    ASSERT_EQ(cursor.FrameCount(), 15);
    EXPECT_EQ(cursor.Frame(), 0);

    loading.Timer1->stop();
    loading.show();
    for (int i = 0; i < 4; ++i)
        loading.Timer1_Timer();
    EXPECT_EQ(cursor.Frame(), 4);
    const QImage shown = loading.grab(QRect(16, 16, 32, 32)).toImage();
    const QImage frame = cursor.FrameImage(4);
    const QRgb background = loading.palette().color(QPalette::Window).rgb();
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 32; ++x)
            ASSERT_EQ(shown.pixel(x, y),
                      qAlpha(frame.pixel(x, y)) == 0 ? background : frame.pixel(x, y))
                << x << "," << y;

    // Left to itself, the timer keeps it turning while events are let through.
    loading.Timer1->start();
    EXPECT_TRUE(QTest::qWaitFor([&] { return cursor.Frame() >= 6; }, 5000));
}
