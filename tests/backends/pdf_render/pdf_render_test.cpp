#include "pdf_render.h"

#include "module_loader.h"
#include "pdf_probe.h"
#include "sandbox.h"

#include <gtest/gtest.h>
#include <tiffio.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QStandardPaths>

#include <string>
#include <thread>
#include <vector>

namespace {

// Pages poppler must anti-alias and size with care: fills in black, blue and light grey, a
// slanted stroke, text, and a height of 792 pt, which at 150 dpi is exactly 1650 pixels (a
// scale factor rounded first makes it 1651).
QByteArray drawnPdf(int pages)
{
    std::string kids;
    for (int i = 0; i < pages; ++i)
        kids += "3 0 R ";
    return rawPdf({"<< /Type /Catalog /Pages 2 0 R >>",
                   "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages) + " >>",
                   "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 210.5 792] /Contents 4 0 R"
                   " /Resources << /Font << /F1 5 0 R >> >> >>",
                   pdfStream("", "0 0 0 rg 20 20 120 60 re f 0.2 0.5 0.9 rg 30 700 100 40 re f "
                                 "0.6 g 150 20 50 60 re f 1 0 0 RG 3 w 10 150 m 200 690 l S "
                                 "BT /F1 24 Tf 20 400 Td (Pagewright) Tj ET"),
                   "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"});
}

class PdfRenderTest : public ::testing::Test {
protected:
    template <typename F> F entry(const char *name)
    {
        return reinterpret_cast<F>(pw::moduleSymbol(pw::render::kModule, name));
    }
    void SetUp() override
    {
        ASSERT_TRUE(open_ && set && convert_ && count && close) << "module not found";
    }

    // A handle on `pdf` writing into `folder` with the given (property, number) settings.
    int32_t openFor(const QString &pdf, const QString &folder,
                    std::vector<std::pair<int32_t, int32_t>> settings = {})
    {
        const int32_t handle = open(pdf.toUtf8().constData(), nullptr, nullptr);
        EXPECT_GT(handle, 0) << pdf.toStdString();
        EXPECT_EQ(set(handle, PW_RENDER_FOLDER, folder.toUtf8().constData(), 0, 0), 0);
        for (const auto &[property, number] : settings)
            EXPECT_EQ(set(handle, property, nullptr, number, 0), 0) << property;
        return handle;
    }

    // Page 1 as pdftoppm renders it (its crop box, like ours), or a null image without pdftoppm.
    QImage pdftoppm(const QString &pdf, int dpi, bool grey)
    {
        if (QStandardPaths::findExecutable("pdftoppm").isEmpty())
            return {};
        const QString out = sandbox.filePath("pdftoppm");
        QStringList arguments = QString("-png -cropbox -singlefile -f 1 -l 1 -r %1%2")
                                    .arg(dpi)
                                    .arg(grey ? " -gray" : "")
                                    .split(' ');
        EXPECT_EQ(QProcess::execute("pdftoppm", arguments << pdf << out), 0);
        return QImage(out + ".png");
    }

    SandboxDir sandbox;
    // The calls that can fail keep why in `error`.
    int32_t open(const char *path, const char *user, const char *owner)
    {
        error = {};
        return open_(path, user, owner, &error);
    }
    int32_t convert(int32_t handle, int32_t page)
    {
        error = {};
        return convert_(handle, page, &error);
    }

    decltype(&pw_render_open) open_ = entry<decltype(&pw_render_open)>("pw_render_open");
    decltype(&pw_render_set_property) set =
        entry<decltype(&pw_render_set_property)>("pw_render_set_property");
    decltype(&pw_render_convert_page) convert_ =
        entry<decltype(&pw_render_convert_page)>("pw_render_convert_page");
    decltype(&pw_render_page_count) count =
        entry<decltype(&pw_render_page_count)>("pw_render_page_count");
    decltype(&pw_render_close) close = entry<decltype(&pw_render_close)>("pw_render_close");
    pw_module_error error{};
};

// Exact pixels, colour and grey, for a page we draw and a real paper at its own size.
TEST_F(PdfRenderTest, PixelsEqualPdftoppm)
{
    struct Case {
        QString pdf;
        int dpi, depth;
    };
    // At 600 dpi the page takes two bands.
    std::vector<Case> cases = {{sandbox.write("drawn.pdf", drawnPdf(1)), 150, 24},
                               {sandbox.filePath("drawn.pdf"), 97, 8},
                               {sandbox.filePath("drawn.pdf"), 600, 24}};
    if (!corpusDir().isEmpty())
        cases.push_back({corpusDir() + "/pdfs/pdfjs__tracemonkey.pdf", 72, 24});
    for (const Case &c : cases) {
        const QImage expected = pdftoppm(c.pdf, c.dpi, c.depth == 8);
        if (expected.isNull())
            GTEST_SKIP() << "pdftoppm is not installed";
        const int32_t handle = openFor(c.pdf, sandbox.filePath("ours"),
                                       {{PW_RENDER_RESOLUTION, c.dpi}, {PW_RENDER_DEPTH, c.depth}});
        ASSERT_EQ(convert(handle, 1), 0);
        EXPECT_EQ(close(handle), 0);
        const QString base = QFileInfo(c.pdf).completeBaseName();
        // Page numbers are padded to the width of the page count: "-1", or "-01" of 14.
        const QString page = QDir(sandbox.filePath("ours")).entryList({base + "-*1.png"}).value(0);
        const QImage ours(sandbox.filePath("ours/" + page));
        EXPECT_EQ(ours.format(), c.depth == 8 ? QImage::Format_Grayscale8 : QImage::Format_RGB32);
        EXPECT_EQ(ours.convertToFormat(expected.format()), expected) << c.pdf.toStdString();
    }
}

// The grey page read by text recognition: a scan drawn at its own resolution keeps its
// pixels (poppler would smooth them by half a pixel), a turned page comes as it is shown, and a
// page with text says so.
TEST_F(PdfRenderTest, GreyPagesForRecognitionKeepAScansPixelsAndShowThePageAsShown)
{
    constexpr int kWidth = 40, kHeight = 30;
    std::string noise;
    for (int i = 0; i < kWidth * kHeight; ++i)
        noise += char((i * 7919 + i / kWidth * 104729) % 251);
    const std::string image =
        pdfStream("/Type /XObject /Subtype /Image /Width 40 /Height 30 /ColorSpace /DeviceGray "
                  "/BitsPerComponent 8",
                  noise);
    const auto scan = [&](const char *name, const std::string &rotate) {
        return sandbox.write(
            name, rawPdf({"<< /Type /Catalog /Pages 2 0 R >>",
                          "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
                          "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 9.6 7.2]" + rotate +
                              " /Contents 4 0 R /Resources << /XObject << /Im 5 0 R >> >> >>",
                          pdfStream("", "q 9.6 0 0 7.2 0 0 cm /Im Do Q"), image}));
    };
    const auto hasText = entry<decltype(&pw_render_page_has_text)>("pw_render_page_has_text");
    const auto greyPage = entry<decltype(&pw_render_grey_page)>("pw_render_grey_page");
    struct Seen {
        std::vector<uint8_t> pixels;
        pw_render_grey page{};
    };
    for (const int turns : {0, 1, 3}) {
        SCOPED_TRACE(turns);
        const int32_t handle = openFor(scan("scan.pdf", " /Rotate " + std::to_string(turns * 90)),
                                       sandbox.filePath("ours"));
        EXPECT_EQ(hasText(handle, 1, &error), 0);
        Seen seen;
        ASSERT_EQ(greyPage(
                      handle, 1, 300, 1e6,
                      [](void *context, const pw_render_grey *page) {
                          auto &s = *static_cast<Seen *>(context);
                          s.page = *page;
                          for (int y = 0; y < page->height; ++y)
                              s.pixels.insert(s.pixels.end(), page->pixels + y * page->row_bytes,
                                              page->pixels + y * page->row_bytes + page->width);
                      },
                      &seen, &error),
                  0)
            << error.text;
        EXPECT_EQ(close(handle), 0);
        EXPECT_EQ(seen.page.quarter_turns, turns);
        EXPECT_EQ(seen.page.dpi, 300);
        ASSERT_EQ(seen.page.width, turns ? kHeight : kWidth);
        ASSERT_EQ(seen.page.height, turns ? kWidth : kHeight);
        EXPECT_EQ(std::vector<double>(seen.page.box, seen.page.box + 4),
                  (std::vector<double>{0, 0, 9.6, 7.2}));
        size_t differ = 0;
        for (int y = 0; y < seen.page.height; ++y)
            for (int x = 0; x < seen.page.width; ++x) {
                // A quarter turn clockwise shows the stored column x from the bottom up, three
                // show the last column first, from the top down.
                const int sx = turns == 0 ? x : turns == 1 ? y : kWidth - 1 - y;
                const int sy = turns == 0 ? y : turns == 1 ? kHeight - 1 - x : x;
                differ += seen.pixels[size_t(y * seen.page.width + x)] !=
                          uint8_t(noise[size_t(sy * kWidth + sx)]);
            }
        EXPECT_EQ(differ, 0u);
    }
    const int32_t text = openFor(sandbox.write("text.pdf", drawnPdf(1)), sandbox.filePath("ours"));
    EXPECT_EQ(hasText(text, 1, &error), 1);
    EXPECT_EQ(hasText(text, 2, &error), -1);
    EXPECT_EQ(close(text), 0);
}

// A page larger than any image a viewer opens is refused before a pixel is drawn, saying why.
TEST_F(PdfRenderTest, RefusesPagesBeyondTheLimitWithTheReason)
{
    const QString poster = sandbox.write(
        "poster.pdf",
        rawPdf({"<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
                "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 14400 14400] >>"}));
    const int32_t handle = openFor(poster, sandbox.filePath("out"), {{PW_RENDER_RESOLUTION, 300}});
    EXPECT_EQ(convert(handle, 1), -1);
    const std::string why = error.text;
    EXPECT_NE(why.find("60000 x 60000 pixels at 300 dpi"), std::string::npos) << why;
    EXPECT_NE(why.find("choose a lower resolution"), std::string::npos) << why;
    EXPECT_EQ(close(handle), 0);
    EXPECT_FALSE(QFileInfo::exists(sandbox.filePath("out/poster-1.png")));
}

// What a caller learns from apOpen, and that damaged files leave nothing on stderr.
TEST_F(PdfRenderTest, OpenResults)
{
    const std::vector<std::pair<QString, int32_t>> cases = {
        {sandbox.filePath("missing.pdf"), PW_RENDER_CANNOT_OPEN},
        {sandbox.mkdir("folder.pdf"), PW_RENDER_CANNOT_OPEN},
        {sandbox.write("zero.pdf", {}), PW_RENDER_DAMAGED},
        {sandbox.write("text.pdf", "Not a PDF at all.\n"), PW_RENDER_DAMAGED},
        {sandbox.write("cut.pdf", drawnPdf(2).left(200)), PW_RENDER_DAMAGED},
        {sandbox.write("empty.pdf", rawPdf({"<< /Type /Catalog /Pages 2 0 R >>",
                                            "<< /Type /Pages /Kids [] /Count 0 >>"})),
         PW_RENDER_NO_PAGES},
        {sandbox.write("two.pdf", drawnPdf(2)), 2},
    };
    for (const auto &[path, expected] : cases) {
        ::testing::internal::CaptureStderr();
        const int32_t handle = open(path.toUtf8().constData(), "", nullptr);
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "") << path.toStdString();
        EXPECT_EQ(handle > 0 ? count(handle) : handle, expected) << path.toStdString();
        EXPECT_EQ(handle > 0, error.text[0] == '\0') << path.toStdString() << ": " << error.text;
        if (handle > 0) {
            EXPECT_EQ(close(handle), 0);
            EXPECT_EQ(close(handle), -1) << "a closed handle is gone";
            EXPECT_EQ(count(handle), -1);
            EXPECT_EQ(convert(handle, 1), -1);
        }
    }
    const QString locked = corpusDir() + "/pdfs/pypdf__libreoffice-writer-password.pdf";
    if (QFile::exists(locked)) {
        EXPECT_EQ(open(locked.toUtf8().constData(), nullptr, nullptr), PW_RENDER_LOCKED);
        EXPECT_STREQ(error.text, "needs a password");
        const int32_t handle = open(locked.toUtf8().constData(), "openpassword", nullptr);
        EXPECT_EQ(count(handle), 1);
        close(handle);
    }
}

// Names and folders, refused settings and pages, black-and-white bits the right way round, and
// one TIFF holding every page.
TEST_F(PdfRenderTest, WritesNamedFilesAndOneTiff)
{
    const QString pdf = sandbox.write("in/report.v2.pdf", drawnPdf(3));
    const QString out = sandbox.filePath("out/made/here");
    const int32_t handle = openFor(pdf, out, {{PW_RENDER_RESOLUTION, 36}, {PW_RENDER_DEPTH, 1}});
    const std::pair<int32_t, int32_t> refused[] = {
        {PW_RENDER_RESOLUTION, 0}, {PW_RENDER_RESOLUTION, 2401},   {PW_RENDER_DEPTH, 16},
        {PW_RENDER_FORMAT, 4},     {PW_RENDER_COMPRESSION, 12345}, {9, 1}};
    for (const auto &[property, number] : refused)
        EXPECT_EQ(set(handle, property, nullptr, number, 0), -1) << property << " " << number;
    EXPECT_EQ(convert(handle, 0), -1);
    EXPECT_EQ(convert(handle, 4), -1);
    ASSERT_EQ(convert(handle, 3), 0);
    const QImage bits(out + "/report.v2-3.png");
    ASSERT_EQ(bits.size(), QSize(106, 396));
    EXPECT_EQ(bits.pixel(20, 370), qRgb(0, 0, 0)) << "inside the black box";
    EXPECT_EQ(bits.pixel(40, 36), qRgb(0, 0, 0)) << "the blue box is darker than mid-grey";
    EXPECT_EQ(bits.pixel(87, 370), qRgb(255, 255, 255)) << "the grey box is lighter";
    EXPECT_EQ(bits.pixel(100, 100), qRgb(255, 255, 255));

    set(handle, PW_RENDER_BASE, "scan", 0, 0);
    set(handle, PW_RENDER_FORMAT, nullptr, PW_RENDER_JPEG, 0);
    EXPECT_EQ(convert(handle, 2), 0);
    EXPECT_FALSE(QImage(out + "/scan-2.jpg").isNull());
    set(handle, PW_RENDER_FORMAT, nullptr, PW_RENDER_TIFF_ALL, 0);
    set(handle, PW_RENDER_ONE_FILE, nullptr, 1, 0);
    for (int page = 1; page <= 3; ++page)
        EXPECT_EQ(convert(handle, page), 0);
    EXPECT_EQ(close(handle), 0);
    EXPECT_FALSE(QFile::exists(out + "/scan-1.tif"));

    TIFF *tiff = TIFFOpen(QFile::encodeName(out + "/scan.tif").constData(), "r");
    ASSERT_TRUE(tiff);
    EXPECT_EQ(TIFFNumberOfDirectories(tiff), 3);
    uint16_t compression = 0, photometric = 0;
    TIFFGetField(tiff, TIFFTAG_COMPRESSION, &compression);
    TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
    EXPECT_EQ(compression, COMPRESSION_CCITTFAX4);
    std::vector<uint32_t> rgba(106 * 396);
    ASSERT_TRUE(TIFFReadRGBAImageOriented(tiff, 106, 396, rgba.data(), ORIENTATION_TOPLEFT, 0));
    EXPECT_EQ(TIFFGetR(rgba[370 * 106 + 20]), 0u) << "photometric " << photometric;
    EXPECT_EQ(TIFFGetR(rgba[100 * 106 + 100]), 255u);
    TIFFClose(tiff);
}

// One handle per thread, as the batch converter runs them: the same files as one at a time.
TEST_F(PdfRenderTest, HandlesRenderSideBySide)
{
    const QString pdf = sandbox.write("pages.pdf", drawnPdf(4));
    const int32_t alone = openFor(pdf, sandbox.filePath("alone"), {{PW_RENDER_RESOLUTION, 50}});
    for (int page = 1; page <= 4; ++page)
        ASSERT_EQ(convert(alone, page), 0);
    close(alone);
    std::vector<int32_t> results(8, -9);
    auto run = [&](int first) {
        const int32_t handle = open(pdf.toUtf8().constData(), nullptr, nullptr);
        set(handle, PW_RENDER_FOLDER, sandbox.filePath("side").toUtf8().constData(), 0, 0);
        set(handle, PW_RENDER_RESOLUTION, nullptr, 50, 0);
        for (int page = first; page <= 4; page += 2)
            for (int round = 0; round < 2; ++round)
                results[size_t(page - 1) * 2 + size_t(round)] = convert(handle, page);
        close(handle);
    };
    std::thread one(run, 1), two(run, 2);
    one.join();
    two.join();
    EXPECT_EQ(results, std::vector<int32_t>(8, 0));
    for (int page = 1; page <= 4; ++page) {
        const QString name = "/pages-" + QString::number(page) + ".png";
        EXPECT_EQ(readFile(sandbox.filePath("side") + name),
                  readFile(sandbox.filePath("alone") + name))
            << page;
    }
}

} // namespace
