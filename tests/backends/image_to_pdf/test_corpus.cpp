// Real files from other projects, damaged ones included: each converts to a PDF that qpdf
// accepts, or fails with pw::Failure, and never writes to stderr.

#include "image_to_pdf.h"
#include "pdf_probe.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QRegularExpression>

namespace {

QStringList filesUnder(const QString &folder)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << it.next();
    files.sort();
    return files;
}

struct Outcome {
    int status = 0;
    int failure = 0; // pw::Failure number, 0 when none
    std::string why;
    int closeStatus = 0;
};

// Converts one file afresh and expects nothing on stderr, whatever the outcome.
Outcome convert(const QString &input, const QString &pdf)
{
    QFile::remove(pdf);
    testing::internal::CaptureStderr();
    Outcome o;
    const int32_t h = ApCreate(pdf.toStdString());
    if (const pw::Result<int32_t> added = ApAddImage(h, input.toStdString())) {
        o.status = *added;
    } else {
        o.failure = added.failure().number;
        o.why = added.failure().what();
    }
    const pw::Result<int32_t> closed = ApClose(h);
    o.closeStatus = closed ? *closed : -3;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    return o;
}

// Formats our libraries cannot read on this platform; these must fail cleanly.
bool unsupportedHere(const QString &path)
{
    // This JPEG 2000 file stops 140 bytes into its codestream (7 KB for 2717 x 3701 pixels), so
    // it is refused as cut short.
    static const QRegularExpression names(R"(balloon_eciRGBv2_aware\.jp2)");
    return names.match(path).hasMatch();
}

class Corpus : public testing::Test {
protected:
    void SetUp() override
    {
        if (corpusDir().isEmpty())
            GTEST_SKIP() << "no sample corpus beside the checkout";
    }
    SandboxDir box;
    const QString pdf = box.filePath("out.pdf");
};

TEST_F(Corpus, EveryValidFileConverts)
{
    int converted = 0;
    for (const QString &file :
         filesUnder(corpusDir() + "/formats") + filesUnder(corpusDir() + "/scans")) {
        SCOPED_TRACE(file.toStdString());
        const Outcome o = convert(file, pdf);
        if (unsupportedHere(file)) {
            EXPECT_TRUE(o.failure == 321 || o.status == 0) << o.why;
            continue;
        }
        EXPECT_EQ(o.failure, 0) << o.why;
        EXPECT_EQ(o.closeStatus, 0);
        if (o.closeStatus == 0) {
            EXPECT_TRUE(qpdfChecks(pdf));
            EXPECT_FALSE(probePdf(pdf).empty());
            ++converted;
        }
    }
    EXPECT_GT(converted, 85);
}

// Every page of a multi-page file; the single-page rows are fax scans, embedded as stored
// (their data is all but the file's header and directory).
TEST_F(Corpus, PagesAndStoredFaxData)
{
    const std::pair<const char *, size_t> rows[] = {
        {"formats/tif/tm__fivepages-scan-causingerrors.tif", 5},
        {"formats/dcx/derived__3pages_from_pcx.dcx", 3},
        {"pdfs/pdfjs__tracemonkey.pdf", 14},
        {"scans/g4/scan_g4_084.tif", 1},
        {"formats/tif/pil__pport_g4.tif", 1},
        {"formats/tiff/tif__testfax4.tiff", 1},
    };
    for (const auto &[file, count] : rows) {
        SCOPED_TRACE(file);
        const QString in = corpusDir() + "/" + file;
        const Outcome o = convert(in, pdf);
        ASSERT_EQ(o.failure, 0) << o.why;
        const auto pages = probePdf(pdf);
        ASSERT_EQ(pages.size(), count);
        if (count == 1) {
            EXPECT_EQ(pages[0].images.at(0).filter, "/CCITTFaxDecode");
            EXPECT_GT(pages[0].images[0].raw.size() + 4096, size_t(QFileInfo(in).size()));
        }
    }
}

TEST_F(Corpus, DamagedFilesFailCleanly)
{
    for (const QString &file :
         filesUnder(corpusDir() + "/damaged") + filesUnder(corpusDir() + "/pdfs")) {
        SCOPED_TRACE(file.toStdString());
        const Outcome o = convert(file, pdf);
        if (o.failure != 0) {
            EXPECT_TRUE(o.failure == 321 || o.failure == 7) << o.why;
        } else if (o.closeStatus == 0) {
            EXPECT_TRUE(qpdfChecks(pdf)) << "what was read is a valid PDF";
        }
    }
    // A PNG named .tif is read as the PNG it is; a cut fax, an empty file and a locked PDF fail.
    const Outcome png = convert(corpusDir() + "/damaged/made/png_as__hopper.tif", pdf);
    EXPECT_EQ(png.failure, 0) << png.why;
    for (const char *bad : {"damaged/made/trunc50__pport_g4.tif", "damaged/made/zero.tif",
                            "pdfs/pypdf__libreoffice-writer-password.pdf"})
        EXPECT_EQ(convert(corpusDir() + "/" + bad, pdf).failure, 321) << bad;
}

} // namespace
