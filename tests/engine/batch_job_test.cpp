#include "core/app_context.h"
#include "core/failure_log.h"
#include "engine/batch_job.h"
#include "engine/image_to_pdf_library.h"

#include "pdf_probe.h"
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
    NoProgress progress;
    r.status = job.run({[&](const QString &l) { r.out << l; },
                        [&](const QString &l) { r.err << l; }, [](const QString &) {}, progress});
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
        {{"merge", "-o", "x.pdf", "a.tif", "--page-size"}, "Option --page-size needs"},
        {{"convert", "--page-size", "10x10cm", "-o", "x", "a.tif"}, "Option --page-size needs"},
        {{"convert", "--fit", "stretch", "-o", "x", "a.tif"}, "Option --fit needs"},
        {{"convert", "--force-dpi", "300dpi", "-o", "x", "a.tif"}, "Option --force-dpi needs"},
        {{"convert", "--page-size", "A5", "--margin", "3in", "-o", "x", "a.tif"},
         "Option --margin leaves no room"},
    };
    for (const auto &c : cases) {
        const BatchRun r = batch(c.args);
        EXPECT_EQ(r.status, -1);
        EXPECT_TRUE(r.error.startsWith(c.error)) << r.error.toStdString();
    }
}

TEST(BatchJob, PageOptionsShapeEveryImagePage)
{
    SandboxDir box;
    const QString wide = box.filePath("wide.png"), out = box.filePath("out");
    QImage img(40, 10, QImage::Format_RGB888);
    img.fill(Qt::red);
    ASSERT_TRUE(img.save(wide));
    // The paper turned to follow the wide image unless asked otherwise, or none at a forced
    // resolution.
    const std::pair<QStringList, QSizeF> rows[] = {
        {{"--page-size", "a5", "--margin", "1in"}, {595.276, 419.528}},
        {{"--page-size", "A5", "--orientation", "portrait"}, {419.528, 595.276}},
        {{"--page-size", "8.5x11in", "--fit", "fill"}, {792, 612}},
        {{"--force-dpi", "144"}, {20, 5}}};
    for (const auto &[options, size] : rows) {
        EXPECT_EQ(batch(QStringList{"convert", "--replace", "-o", out, wide} + options).status, 0);
        const auto pages = probePdf(out + "/wide.pdf");
        ASSERT_EQ(pages.size(), 1u);
        EXPECT_NEAR(pages[0].width, size.width(), 0.001) << options.join(' ').toStdString();
        EXPECT_NEAR(pages[0].height, size.height(), 0.001) << options.join(' ').toStdString();
    }
    ApplyPageLayout({});
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

// Several files at once tell the same story as one at a time: failures in the order given,
// and of two images that make one PDF name, the first given is the one kept.
TEST(BatchJob, SeveralWorkersConvertAsOneDoes)
{
    SandboxDir box;
    SetErrorLogFolder(box.path());
    QStringList files;
    for (int i = 0; i < 8; ++i) {
        QImage img(10 + i, 10, QImage::Format_RGB888);
        img.fill(Qt::darkGreen);
        box.mkdir(QString("in%1").arg(i % 2));
        files << box.filePath(QString("in%1/p%2.png").arg(i % 2).arg(i));
        ASSERT_TRUE(img.save(files.back()));
    }
    files.insert(3, box.write("in0/bad.jpg", "garbage"));
    files.insert(1, box.write("in1/p0.jpg", "garbage but never read: p0.pdf is there by then"));
    QList<BatchRun> runs;
    for (const char *workers : {"1", "4"}) {
        const QString out = box.filePath(QString("out%1").arg(workers));
        runs << batch(QStringList{"convert", "--jobs", workers, "-o", out} + files);
        EXPECT_EQ(QDir(out).entryList(QDir::Files | QDir::Hidden).size(), 8) << workers;
    }
    EXPECT_EQ(runs[0].status, 1);
    ASSERT_EQ(runs[0].err.size(), 1) << "in1/p0.jpg was read";
    EXPECT_TRUE(runs[0].err[0].contains("bad.jpg"));
    EXPECT_EQ(runs[1].status, runs[0].status);
    EXPECT_EQ(runs[1].err, runs[0].err);
    EXPECT_EQ(batch({"convert", "--jobs", "0", "-o", "x", "a.png"}).error.left(13),
              "Option --jobs");
    SetErrorLogFolder({});
}
