#include "core/failure_log.h"
#include "core/runtime.h"
#include "engine/ap_img_to_pdf.h"

#include "pdf_probe.h"
#include "recording_ui.h"
#include "sample_images.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>
#include <QImage>

using namespace pw;

namespace {

QList<int> widthsOf(const QString &pdf)
{
    QList<int> widths;
    for (const ProbedPage &page : probePdf(pdf))
        widths << qRound(page.width);
    return widths;
}

class Binding : public ::testing::Test {
protected:
    void SetUp() override { SetErrorLogFolder(box.path()); }
    void TearDown() override { SetErrorLogFolder({}); }

    QString image(const QString &name, int width = 40)
    {
        QImage img = colourPattern(width, 30);
        img.setDotsPerMeterX(2835); // 72 dpi: a page is as wide in points as the image in pixels
        img.setDotsPerMeterY(2835);
        EXPECT_TRUE(img.save(box.filePath(name)));
        return box.filePath(name);
    }
    // Adds a row of the merge list.
    void addRow(ApImgToPdf &merge, const QString &name, const QString &location)
    {
        clsColSetOrderGrid row;
        row.setFilename(name);
        row.setFileLocation(location);
        merge.colSelectedData.push_back(row);
    }
    QString log() const { return QString::fromUtf8(readFile(box.filePath("Errors.Log"))); }

    SandboxDir box;
    RecordingUi ui;
    ApImgToPdf binding{ui};
};

// Records the library calls the binding makes, and answers them as told.
class RecordingLibrary final : public ImageToPdfLibrary {
public:
    int32_t ApCreate(const std::string &) override
    {
        calls << "create";
        return createResult;
    }
    int32_t ApAddImage(int32_t handle, const std::string &path) override
    {
        calls << QString("add %1 %2").arg(handle).arg(name(path));
        if (name(path) == unreadable)
            throw RuntimeError(321, "Invalid file format");
        return 0;
    }
    int32_t ApSetFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2,
                          const std::string &text, int32_t n3) override
    {
        calls << QString::asprintf("set %d %d %d %d %s %d", handle, code, n1, n2, text.c_str(), n3);
        return 0;
    }
    int32_t ApGetFunction(int32_t handle, int32_t code, int32_t, int32_t, const std::string &text,
                          int32_t) override
    {
        calls << QString("get %1 %2 %3").arg(handle).arg(code).arg(name(text));
        return depth;
    }
    int32_t ApClose(int32_t handle) override
    {
        calls << QString("close %1").arg(handle);
        return 0;
    }
    int32_t ApDiscard(int32_t handle) override
    {
        calls << QString("discard %1").arg(handle);
        return 0;
    }

    static QString name(const std::string &path)
    {
        return QFileInfo(QString::fromStdString(path)).fileName();
    }

    QStringList calls;
    int32_t createResult = 7;
    int32_t depth = 24;
    QString unreadable;
};

} // namespace

TEST_F(Binding, CallsTheLibraryInItsFixedOrder)
{
    const QString in = box.filePath("in.tif"), out = box.filePath("out.pdf");
    const struct {
        int32_t depth;
        const char *colour, *grey, *bw;
        const char *set; // the one recompression call, or nothing
    } cases[] = {
        {1, "Jpeg", "", "CCITT-G4", "set 7 123 1 0 CCITT-G4 0"},
        {8, "", "Jpeg", "", "set 7 123 2 0 Jpeg 0"},
        {8, "Jpeg", "", "", nullptr}, // only the colour name: grey keeps the library's own
        {24, "Jpeg", "Lzw", "Zip", "set 7 123 3 0 Jpeg 0"},
        {24, "", "Jpeg", "CCITT-G4", nullptr},
        {32, "Jpeg", "Jpeg", "CCITT-G4", nullptr}, // 32 bits belong to no class
    };
    for (const auto &c : cases) {
        RecordingLibrary library;
        library.depth = c.depth;
        ApImgToPdf recorded(ui, library);
        ASSERT_TRUE(recorded.ConverImageToPdf(in, out, c.colour, c.grey, c.bw));
        // The depth query names the file and needs no document: handle 0 while 7 is open.
        QStringList expected = {"create", "get 0 211 in.tif"};
        if (c.set)
            expected << c.set;
        expected << "add 7 in.tif"
                 << "close 7";
        EXPECT_EQ(library.calls, expected) << c.depth << " " << c.colour << c.grey << c.bw;
    }

    RecordingLibrary refused;
    refused.createResult = -1;
    EXPECT_TRUE(ApImgToPdf(ui, refused).ConverImageToPdf(in, out, "Jpeg", "", ""));
    EXPECT_EQ(refused.calls, QStringList({"create"})) << "a refused create calls nothing more";

    RecordingLibrary failing;
    failing.unreadable = "in.tif";
    EXPECT_FALSE(ApImgToPdf(ui, failing).ConverImageToPdf(in, out, "", "", ""));
    EXPECT_EQ(failing.calls,
              QStringList({"create", "get 0 211 in.tif", "add 7 in.tif", "discard 7"}))
        << "a failed add drops the document unwritten";

    RecordingLibrary plain;
    EXPECT_TRUE(ApImgToPdf(ui, plain).Convert_EachTiffToPDFbyOne(in, out));
    EXPECT_EQ(plain.calls, QStringList({"create", "add 7 in.tif", "close 7"}));
}

TEST_F(Binding, MergeAddsRowsInOrderAndNamesTheFileThatStoppedIt)
{
    RecordingLibrary library;
    library.unreadable = "b.tif";
    ApImgToPdf merge(ui, library);
    struct Counter final : Progress {
        void setValue(int done) override { values << done; }
        QList<int> values;
    } progress;
    for (const char *name : {"a.tif", "b.tif", "c.tif"})
        addRow(merge, name, box.path());
    merge.OutputPdfFile = box.filePath("m.pdf");
    EXPECT_FALSE(merge.MergeConvert_TiffToPdfx(progress));
    EXPECT_EQ(library.calls, QStringList({"create", "add 7 a.tif", "add 7 b.tif", "discard 7"}));
    EXPECT_EQ(progress.values, QList<int>({1}));
    EXPECT_EQ(merge.FailedFile, box.filePath("b.tif"));
    EXPECT_TRUE(log().contains("in procedure MergeConvert_TiffToPdfx"));

    library.unreadable.clear();
    library.calls.clear();
    progress.values.clear();
    EXPECT_TRUE(merge.MergeConvert_TiffToPdfx(progress));
    EXPECT_EQ(library.calls.size(), 5) << "no recompression call in a merge";
    EXPECT_EQ(progress.values, QList<int>({1, 2, 3}));
    EXPECT_TRUE(merge.FailedFile.isEmpty());
}

TEST_F(Binding, ResultTableHoldsCaseByCase)
{
    const QString colour = image("c.png");
    // Empty paths: False, nothing written.
    EXPECT_FALSE(binding.ConverImageToPdf("", box.filePath("a.pdf"), "", "", ""));
    EXPECT_FALSE(binding.ConverImageToPdf(colour, "", "", "", ""));
    EXPECT_FALSE(binding.Convert_EachTiffToPDFbyOne("", box.filePath("a.pdf")));
    EXPECT_FALSE(QFile::exists(box.filePath("a.pdf")));

    // A target the library refuses to create reads as success, and nothing appears.
    const QString refused = box.filePath("no/such/folder/x.pdf");
    EXPECT_TRUE(binding.ConverImageToPdf(colour, refused, "", "", ""));
    EXPECT_FALSE(QFile::exists(refused));
    EXPECT_TRUE(log().isEmpty());

    // An unreadable image: False, one log line naming the binding, no PDF left behind.
    const QString damaged = box.write("damaged.jpg", "not a picture at all");
    const QString out = box.filePath("damaged.pdf");
    EXPECT_FALSE(binding.ConverImageToPdf(damaged, out, "", "", ""));
    EXPECT_FALSE(binding.Convert_EachTiffToPDFbyOne(damaged, out));
    EXPECT_FALSE(QFile::exists(out));
    const QStringList lines = log().split("\r\n", Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].startsWith("Error 321 (")) << lines[0].toStdString();
    EXPECT_TRUE(lines[0].contains(") in procedure ConverImageToPdf at Line No. "));
    EXPECT_TRUE(lines[0].contains(" of Class Module ApImgToPdf at time- "));
    EXPECT_TRUE(lines[1].contains(") in procedure Convert_EachTiffToPDFbyOne at Line No. "));

    // The plain conversion works too.
    EXPECT_TRUE(binding.Convert_EachTiffToPDFbyOne(colour, out));
    EXPECT_EQ(widthsOf(out).size(), 1);
}

TEST_F(Binding, MergeKeepsRowOrder)
{
    NoProgress quiet;
    for (int w : {40, 72, 20})
        addRow(binding, QFileInfo(image(QString("w%1.png").arg(w), w)).fileName(),
               box.path() + "/"); // a trailing separator is fine
    binding.OutputPdfFile = box.filePath("merged.pdf");
    EXPECT_TRUE(binding.MergeConvert_TiffToPdfx(quiet));
    EXPECT_EQ(widthsOf(binding.OutputPdfFile), QList<int>({40, 72, 20}));

    binding.colSelectedData.clear();
    EXPECT_TRUE(binding.MergeConvert_TiffToPdfx(quiet)) << "no rows: create and close only";
    binding.OutputPdfFile.clear();
    EXPECT_TRUE(binding.MergeConvert_TiffToPdfx(quiet))
        << "no output path: success, nothing written";
}
