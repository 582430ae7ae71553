#include "core/globals.h"
#include "engine/ap_img_to_pdf.h"

#include "pdf_probe.h"
#include "recording_ui.h"
#include "sample_images.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QImage>
#include <QPointer>


using namespace pw;

namespace {

QStringList filtersOf(const QString &pdf)
{
    QStringList filters;
    for (const ProbedPage &page : probePdf(pdf))
        for (const ProbedImage &image : page.images)
            filters << QString::fromStdString(image.filter);
    return filters;
}

QList<int> widthsOf(const QString &pdf)
{
    QList<int> widths;
    for (const ProbedPage &page : probePdf(pdf))
        widths << qRound(page.width);
    return widths;
}

class Binding : public ::testing::Test {
protected:
    void SetUp() override { FileStoragePath = box.path(); }
    void TearDown() override { FileStoragePath.clear(); }

    QString image(const QString &name, QImage::Format format, int width = 40)
    {
        QImage img(width, 30, format);
        img.fill(Qt::white);
        img.setDotsPerMeterX(2835); // 72 dpi: a page is as wide in points as the image in pixels
        img.setDotsPerMeterY(2835);
        for (int x = 0; x < width; ++x)
            img.setPixel(x, x % 30, format == QImage::Format_Mono ? 0 : qRgb(x * 6, 40, 200));
        const QString path = box.filePath(name);
        EXPECT_TRUE(img.save(path));
        return path;
    }
    QString log() const
    {
        QFile f(box.filePath("Errors.Log"));
        return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
    }

    SandboxDir box;
    RecordingUi ui;
    ApImgToPdf binding;
};

} // namespace

TEST_F(Binding, RecompressionFollowsTheImagesColourClassOnly)
{
    TiffLayout bilevel;
    bilevel.bps = 1;
    bilevel.spp = 1;
    bilevel.photometric = 0; // white is zero, as scanners write
    const QString bw = box.filePath("bw.tif");
    ASSERT_TRUE(writeTiff(bw, bilevel));
    const QString grey = image("grey.png", QImage::Format_Grayscale8);
    const QString colour = image("colour.png", QImage::Format_RGB888);
    const QString rgba = image("rgba.png", QImage::Format_ARGB32);
    const struct {
        QString source;
        const char *colour, *grey, *bw;
        const char *filter;
    } cases[] = {
        {bw, "Jpeg", "", "CCITT-G4", "/CCITTFaxDecode"},
        {grey, "", "Jpeg", "", "/DCTDecode"},
        {grey, "Jpeg", "", "", "/FlateDecode"},   // only the colour name: grey keeps its own
        {colour, "Jpeg", "Lzw", "Zip", "/DCTDecode"},
        {colour, "", "Jpeg", "CCITT-G4", "/FlateDecode"},
        {colour, "Packbits", "", "", "/RunLengthDecode"},
        {colour, "Lzw", "", "", "/LZWDecode"},
        {rgba, "Jpeg", "Jpeg", "CCITT-G4", "/FlateDecode"}, // 32 bits belong to no class
    };
    int n = 0;
    for (const auto &c : cases) {
        const QString pdf = box.filePath(QString("out%1.pdf").arg(n++));
        ASSERT_TRUE(binding.ConverImageToPdf(c.source, pdf, c.colour, c.grey, c.bw));
        EXPECT_TRUE(qpdfChecks(pdf));
        const QStringList filters = filtersOf(pdf);
        ASSERT_FALSE(filters.isEmpty()) << pdf.toStdString();
        EXPECT_EQ(filters.first(), c.filter) << c.source.toStdString() << " " << c.colour
                                                   << "/" << c.grey << "/" << c.bw;
    }
    EXPECT_TRUE(log().isEmpty());
}

TEST_F(Binding, ResultTableHoldsCaseByCase)
{
    const QString colour = image("c.png", QImage::Format_RGB888);
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

TEST_F(Binding, MergeKeepsRowOrderAndReportsProgress)
{
    QObject dialog;
    QObject bar(&dialog);
    bar.setObjectName("ProgressBar1");
    gfrmSetOrder = &dialog;
    const int widths[] = {40, 72, 20};
    for (int w : widths) {
        clsColSetOrderGrid row;
        row.setFilename(QString("w%1.png").arg(w));
        row.setFileLocation(box.path() + "/"); // a trailing separator is fine
        image(row.filename(), QImage::Format_RGB888, w);
        binding.colSelectedData.push_back(row);
    }
    binding.OutputPdfFile = box.filePath("merged.pdf");
    EXPECT_TRUE(binding.MergeConvert_TiffToPdfx());
    EXPECT_EQ(widthsOf(binding.OutputPdfFile), QList<int>({40, 72, 20}));
    EXPECT_EQ(bar.property("value").toInt(), 3);

    // A damaged file in the middle stops the merge: False, logged, no merged file.
    binding.colSelectedData.insert(binding.colSelectedData.begin() + 1, clsColSetOrderGrid());
    binding.colSelectedData[1].setFilename("bad.tif");
    binding.colSelectedData[1].setFileLocation(box.path());
    box.write("bad.tif", "II*\0garbage");
    binding.OutputPdfFile = box.filePath("broken.pdf");
    EXPECT_FALSE(binding.MergeConvert_TiffToPdfx());
    EXPECT_EQ(bar.property("value").toInt(), 1);
    EXPECT_FALSE(QFile::exists(binding.OutputPdfFile));
    EXPECT_TRUE(log().contains("in procedure MergeConvert_TiffToPdfx"));
    gfrmSetOrder = nullptr;
}

TEST_F(Binding, MergeEdges)
{
    binding.OutputPdfFile.clear();
    EXPECT_TRUE(binding.MergeConvert_TiffToPdfx()) << "no output path: success, nothing written";

    binding.OutputPdfFile = box.filePath("empty.pdf");
    EXPECT_TRUE(binding.MergeConvert_TiffToPdfx()) << "no rows: create and close only";

    // Without an open dialog the progress write fails after the first file.
    clsColSetOrderGrid row;
    row.setFilename("a.png");
    row.setFileLocation(box.path());
    image("a.png", QImage::Format_RGB888);
    binding.colSelectedData.push_back(row);
    gfrmSetOrder = nullptr;
    EXPECT_FALSE(binding.MergeConvert_TiffToPdfx());
    EXPECT_TRUE(log().startsWith("Error 91 (Object variable or With block variable not set)"));
}
