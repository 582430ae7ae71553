#include "core/app_context.h"
#include "core/failure_log.h"
#include "engine/batch_job.h"

#include "sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QImage>

using namespace pw;

namespace {

struct BatchRun {
    int status = -1;
    QStringList out, err;
    QString error;
};

BatchRun batch(const QStringList &args)
{
    BatchRun r;
    QuietUi ui;
    AppContext context(ui);
    BatchJob job(context);
    if (!job.initializeFromArgs(args, r.error))
        return r;
    r.status =
        job.run([&](const QString &l) { r.out << l; }, [&](const QString &l) { r.err << l; });
    return r;
}

} // namespace

TEST(BatchJob, ArgumentsAreCheckedBeforeAnyWork)
{
    const struct {
        QStringList args;
        const char *error;
    } cases[] = {
        {{}, "Usage:"},
        {{"--help"}, "Usage:"},
        {{"shrink", "a.tif"}, "Unknown command \"shrink\""},
        {{"convert", "a.tif"}, "The convert command needs -o."},
        {{"convert", "-o"}, "Option -o needs a value."},
        {{"convert", "--color", "Gif", "-o", "x", "a.tif"}, "Unknown recompression \"Gif\""},
        {{"merge", "-o", "x.pdf"}, "No files given."},
        {{"pages", "--fast", "a.pdf"}, "Unknown option --fast."},
        {{"convert", "--max-pixels", "0", "-o", "x", "a.tif"}, "Option --max-pixels needs"},
        {{"merge", "-o", "x.pdf", "a.tif", "--max-pixels"}, "Option --max-pixels needs"},
        // Refused before any file is touched; the reason names what to install.
        {{"convert", "--ocr", "qqq", "-o", "x", "a.tif"}, "Option --ocr qqq: "},
        {{"merge", "-o", "x.pdf", "a.tif", "--ocr"}, "Option --ocr needs"},
        // The default limit, taken with its value.
        {{"convert", "--max-pixels", "1073741824", "--fast"}, "Unknown option --fast."},
    };
    for (const auto &c : cases) {
        const BatchRun r = batch(c.args);
        EXPECT_EQ(r.status, -1);
        EXPECT_TRUE(r.error.startsWith(c.error)) << r.error.toStdString();
    }
}

TEST(BatchJob, ConvertSkipsExistingUnlessToldAndNamesEveryFailure)
{
    // Output names follow the dialog: the last extension goes, any folder separator is kept.
    EXPECT_EQ(PdfPathFor("/out", "a.b.tif"), "/out/a.b.pdf");
    EXPECT_EQ(PdfPathFor("/out/", "x.jpg"), "/out/x.pdf");
    EXPECT_EQ(PdfPathFor("/out", "README"), "/out/README.pdf");

    SandboxDir box;
    SetErrorLogFolder(box.path());
    QImage img(10, 10, QImage::Format_RGB888);
    img.fill(Qt::blue);
    const QString good = box.filePath("in/x.png");
    box.mkdir("in");
    ASSERT_TRUE(img.save(good));
    const QString bad = box.write("in/y.jpg", "garbage");
    const QString out = box.filePath("out");

    const auto openFiles = [] { return QDir("/proc/self/fd").count(); };
    const auto before = openFiles();
    BatchRun r = batch({"convert", "-o", out, good, bad, box.filePath("in/missing.tif")});
    EXPECT_EQ(r.status, 1);
    ASSERT_EQ(r.err.size(), 2);
    EXPECT_TRUE(r.err[0].startsWith("pagewright-batch: " + bad + ": Invalid file format"))
        << r.err[0].toStdString();
    EXPECT_EQ(r.err[1], "pagewright-batch: " + box.filePath("in/missing.tif") + ": File not found");
    // The failed image's document is never closed; it leaves no file, visible or open.
    EXPECT_EQ(QDir(out).entryList(QDir::Files | QDir::Hidden), QStringList{"x.pdf"});
    EXPECT_EQ(openFiles(), before);

    // An existing PDF counts as done without --replace; with it, it is written again.
    QFile::resize(out + "/x.pdf", 3);
    EXPECT_EQ(batch({"convert", "-o", out, good}).status, 0);
    EXPECT_EQ(QFileInfo(out + "/x.pdf").size(), 3);
    EXPECT_EQ(batch({"convert", "--replace", "-o", out, good}).status, 0);
    EXPECT_GT(QFileInfo(out + "/x.pdf").size(), 3);

    r = batch({"merge", "-o", box.filePath("m.pdf"), good, bad});
    EXPECT_EQ(r.status, 1);
    ASSERT_EQ(r.err.size(), 1);
    EXPECT_TRUE(r.err[0].startsWith("pagewright-batch: " + bad + ": "))
        << "the file that stopped it";
    EXPECT_EQ(batch({"merge", "-o", box.filePath("m.pdf"), good, out + "/x.pdf"}).status, 0);

    // No false success: a folder in the output's place, a file named like an option after "--".
    box.mkdir("taken.pdf");
    r = batch({"merge", "-o", box.filePath("taken.pdf"), good});
    EXPECT_EQ(r.err,
              QStringList{"pagewright-batch: " + box.filePath("taken.pdf") + ": Is a folder"});
    const QString optionLike = box.write("--replace", "not an image");
    QFile::resize(out + "/x.pdf", 3);
    r = batch({"convert", "-o", out, "--", optionLike, good});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(QFileInfo(out + "/x.pdf").size(), 3) << "--replace after -- is a file, no option";

    r = batch({"pages", box.filePath("m.pdf"), good, bad + ".pdf"});
    EXPECT_EQ(r.out,
              QStringList({box.filePath("m.pdf") + "\t2", good + "\t", bad + ".pdf\tError"}));
    EXPECT_EQ(r.status, 1);
    SetErrorLogFolder({});
}
