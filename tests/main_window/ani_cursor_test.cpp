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
#include <QScopeGuard>
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
    return readFile(":/CUSTOM/2001");
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

// The callers tell a cursor failure from others by the 10000 bit and the source.
void expectCursorFailure(const RuntimeError &e)
{
    EXPECT_EQ(e.number() & 10000, 10000) << e.number();
    EXPECT_GT(e.number(), 10000) << "the system's code is part of the number";
    EXPECT_FALSE(e.description().isEmpty());
    EXPECT_EQ(e.source(), QCoreApplication::applicationName() + ".cAniCursor");
}

} // namespace

TEST(AniCursor, TheShippedHourglassReadsAsFifteenMaskedFramesThatStepAndWrap)
{
    cAniCursor cursor;
    ASSERT_TRUE(cursor.LoadFromResource(101, false, 0, false));
    ASSERT_EQ(cursor.FrameCount(), 15);
    for (int i = 0; i < 15; ++i) {
        SCOPED_TRACE(i);
        const QImage frame = cursor.FrameImage(i);
        EXPECT_EQ(frame.size(), QSize(32, 32));
        EXPECT_EQ(qAlpha(frame.pixel(0, 0)), 0) << "the mask clears the corners";
        if (i > 0) {
            EXPECT_NE(frame, cursor.FrameImage(i - 1)) << "each step shows its own picture";
        }
    }

    // A frame is checked; stepping wraps.
    cursor.Frame(12);
    for (int bad : {-1, 15}) {
        EXPECT_EQ(raisedBy([&] { cursor.Frame(bad); }).number(), 9) << bad;
        EXPECT_EQ(cursor.Frame(), 12) << "a refused frame changes nothing";
    }
    for (int i = 0; i < 15 * 2 + 6; ++i)
        cursor.Step();
    EXPECT_EQ(cursor.Frame(), 3);

    cursor.Destroy();
    cursor.Step(); // nothing loaded: stays on 0, and no frame may be chosen
    EXPECT_EQ(cursor.Frame(), 0);
    EXPECT_EQ(raisedBy([&] { cursor.Frame(0); }).number(), 9);
}

TEST(AniCursor, DrawPaintsTheCurrentFrameOverItsBackgroundSquare)
{
    const QRgb under = qRgb(10, 200, 30);
    QImage canvas(64, 64, QImage::Format_ARGB32_Premultiplied);
    canvas.fill(under);
    const QImage clean = canvas;
    cAniCursor cursor;
    cursor.Draw(&canvas, 0, 0, 64, 64, 0x0000FF);
    EXPECT_EQ(canvas, clean) << "nothing loaded, nothing drawn";

    // A background colour (0x00BBGGRR) fills exactly the frame's square, then the current
    // frame is drawn over it.
    ASSERT_TRUE(cursor.LoadFromResource(101));
    cursor.Frame(5);
    cursor.Draw(&canvas, 16, 16, 0, 0, 0x0000FF);
    QImage expected(32, 32, canvas.format());
    expected.fill(qRgb(255, 0, 0));
    QPainter(&expected).drawImage(0, 0, cursor.FrameImage(5));
    EXPECT_EQ(canvas.copy(16, 16, 32, 32), expected);
    EXPECT_EQ(canvas.pixel(48, 48), under);
    EXPECT_EQ(canvas.pixel(15, 15), under);
}

TEST(AniCursor, MissingDamagedOrTruncatedFilesRaiseTheCursorFailureAndNeverCrash)
{
    SandboxDir sandbox;
    const QByteArray good = hourglassBytes();
    QByteArray noise(4096, '\0');
    std::mt19937 random(2001);
    for (char &c : noise)
        c = static_cast<char>(random());
    const QString broken[] = {
        sandbox.filePath("missing.ani"),
        sandbox.path(),
        QString(),
        sandbox.write("noise.ani", noise),
        sandbox.write("riff-without-header.ani", QByteArray("RIFF\x04\0\0\0ACON", 12)),
    };
    cAniCursor cursor;
    for (const QString &path : broken) {
        SCOPED_TRACE(path.toStdString());
        cursor.LoadFromResource(101);
        expectCursorFailure(raisedBy([&] { cursor.LoadFromFile(path); }));
        EXPECT_EQ(cursor.hCursor(), 0u) << "a failed load leaves nothing half loaded";
        EXPECT_EQ(cursor.FrameCount(), 0);
    }
    EXPECT_EQ(raisedBy([&] { cursor.LoadFromFile(broken[0]); }).number(), 10000 | ENOENT);

    // Cut anywhere, even to nothing, the file is refused.
    for (int length = 0; length < good.size(); length += 37) {
        const QString cut = sandbox.write("cut.ani", good.left(length));
        ASSERT_EQ(raisedBy([&] { cursor.LoadFromFile(cut); }).number() & 10000, 10000) << length;
    }

    // Damaged bytes anywhere: loaded or refused, but never a crash or a wild frame.
    for (int round = 0; round < 300; ++round) {
        QByteArray damaged = good;
        for (int flips = 0; flips < 1 + round % 8; ++flips)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        try {
            if (cursor.LoadFromFile(sandbox.write("damaged.ani", damaged))) {
                QImage canvas(40, 40, QImage::Format_ARGB32_Premultiplied);
                for (int i = 0; i < cursor.FrameCount(); ++i) {
                    EXPECT_LE(cursor.FrameImage(i).width(), 256);
                    cursor.Frame(i);
                    cursor.Draw(&canvas, 0, 0, 0, 0, 0);
                }
            }
        } catch (const RuntimeError &e) {
            ASSERT_EQ(e.number() & 10000, 10000);
        }
    }
}

TEST(AniCursor, AnUnusableTempFolderReachesTheCallerAndAUsableOneIsLeftTidy)
{
    SandboxDir sandbox;
    const QByteArray oldTmp = qgetenv("TMPDIR");
    const auto restore =
        qScopeGuard([&] { oldTmp.isEmpty() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", oldTmp); });
    // Qt only takes a temporary folder that exists, so a plain file stands in for one that
    // cannot hold anything.
    qputenv("TMPDIR", QFile::encodeName(sandbox.write("plain", "not a folder")));
    cAniCursor cursor;
    expectCursorFailure(raisedBy([&] { cursor.LoadFromResource(101, false, 0, false); }));
    EXPECT_EQ(cursor.hCursor(), 0u);

    const QString tmpDir = sandbox.mkdir("tmp");
    qputenv("TMPDIR", QFile::encodeName(tmpDir));
    ASSERT_TRUE(cursor.LoadFromResource(101));
    EXPECT_TRUE(QDir(tmpDir).entryList(QDir::Files | QDir::Hidden).isEmpty());
}

TEST(Loading, TheHitCountStartsAtTheTopLeftAndTheTimerTurnsTheHourglass)
{
    QWidget mainWindow;
    frmLoading loading(&mainWindow);
    loading.Timer1->stop();
    loading.UpdateStatus(37);
    EXPECT_EQ(loading.pnlStatus->Text(), "Please wait.Loading...files (37)") << "cleared first";
    loading.show();

    // The ink starts at the panel's left edge and top, not in its middle.
    const QImage panel = loading.pnlStatus->grab().toImage();
    const QRgb paper = panel.pixel(panel.width() - 1, panel.height() - 1);
    QPoint first(panel.width(), panel.height());
    for (int y = 0; y < panel.height(); ++y)
        for (int x = 0; x < panel.width(); ++x)
            if (panel.pixel(x, y) != paper)
                first = QPoint(std::min(first.x(), x), std::min(first.y(), y));
    EXPECT_LT(first.x(), 4);
    EXPECT_LT(first.y(), loading.pnlStatus->TextHeight("P") / 2);

    cAniCursor &cursor = loading.AniCursor();
    ASSERT_EQ(cursor.FrameCount(), 15);
    for (int i = 0; i < 4; ++i)
        loading.Timer1_Timer();
    EXPECT_EQ(cursor.Frame(), 4);
    // Where the frame is clear the form's own background shows.
    QImage expected(32, 32, QImage::Format_ARGB32_Premultiplied);
    expected.fill(loading.palette().color(QPalette::Window));
    cursor.Draw(&expected, 0, 0);
    EXPECT_EQ(loading.grab(QRect(16, 16, 32, 32)).toImage().convertToFormat(expected.format()),
              expected);

    // Left to itself, the timer keeps it turning while events are let through.
    loading.Timer1->start();
    EXPECT_TRUE(QTest::qWaitFor([&] { return cursor.Frame() >= 6; }, 5000));
}
