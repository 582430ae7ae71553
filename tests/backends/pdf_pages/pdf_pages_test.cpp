#include "module_loader.h"
#include "page_range.h"
#include "pdf_pages.h"
#include "pdf_probe.h"
#include "run_time_errors.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include <string>
#include <vector>

namespace {

using Pages = std::vector<int>;
using pw::pages::pagesOfRange;

TEST(PageRangeTest, SelectsPagesAtTheEdges)
{
    EXPECT_EQ(pagesOfRange("1", 5), Pages{1});
    EXPECT_EQ(pagesOfRange("5", 5), Pages{5});
    EXPECT_EQ(pagesOfRange("6", 5), Pages{});
    EXPECT_EQ(pagesOfRange("4-9", 5), (Pages{4, 5}));
    EXPECT_EQ(pagesOfRange("0", 3), (Pages{1, 2, 3}));
    EXPECT_EQ(pagesOfRange("", 3), (Pages{1, 2, 3}));
    EXPECT_EQ(pagesOfRange(" 0 ", 3), (Pages{1, 2, 3}));
    EXPECT_EQ(pagesOfRange("-2, 4 -", 5), (Pages{1, 2, 4, 5}));
    EXPECT_EQ(pagesOfRange("7-", 5), Pages{});
    EXPECT_EQ(pagesOfRange("3,1-2,3", 5), (Pages{3, 1, 2, 3}));
    EXPECT_EQ(pagesOfRange("1-99999999999999999999", 2), (Pages{1, 2}));
    EXPECT_EQ(pagesOfRange("", 0), Pages{});
}

TEST(PageRangeTest, SelectsNothingFromWhatItCannotRead)
{
    for (const char *range : {"a", "3-1", "1--2", "1,,2", "1,", "-", "0,2", "1-2-3", "+1", "1.5"})
        EXPECT_EQ(pagesOfRange(range, 5), Pages{}) << range;
}

// The module's entry points, as the engine finds them.
struct Module {
    template <typename F> static F *entry(const char *name)
    {
        auto *f = reinterpret_cast<F *>(pw::moduleSymbol(pw::pages::kModule, name));
        EXPECT_NE(f, nullptr) << name;
        return f;
    }
    decltype(&apCreateMerge) createMerge = entry<int32_t(const char *)>("apCreateMerge");
    decltype(&apOpenSplit) openSplit = entry<int32_t(const char *)>("apOpenSplit");
    decltype(&apSetFunction) setFunction =
        entry<int32_t(int32_t, int32_t, int32_t, int32_t, const char *, const char *)>(
            "apSetFunction");
    decltype(&apClose) close = entry<int32_t(int32_t)>("apClose");
    decltype(&apLastError) lastError = entry<const char *()>("apLastError");
    decltype(&pw_pages_count) count = entry<int32_t(const char *)>("pw_pages_count");
    decltype(&pw_pages_get_info) getInfo =
        entry<int32_t(const char *, const char *, char *, size_t)>("pw_pages_get_info");
    decltype(&pw_pages_set_info) setInfo =
        entry<int32_t(const char *, const char *, const char *, pw_module_error *)>(
            "pw_pages_set_info");
};

std::string utf8(const QString &path)
{
    return path.toUtf8().toStdString();
}

class PdfPagesTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(pdf.count, nullptr) << "module not found"; }

    // Three pages of different sizes, each with its own words.
    QString writeSource(const QString &name)
    {
        const char *const boxes[] = {"0 0 612 792", "0 0 842 595", "0 0 300 400"};
        std::vector<std::string> bodies = {
            "<< /Type /Catalog /Pages 2 0 R >>",
            "<< /Type /Pages /Kids [4 0 R 6 0 R 8 0 R] /Count 3 >>",
            "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"};
        for (int i = 0; i < 3; ++i) {
            bodies.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [" + std::string(boxes[i]) +
                             "] /Resources << /Font << /F1 3 0 R >> >> /Contents " +
                             std::to_string(5 + 2 * i) + " 0 R >>");
            bodies.push_back(pdfStream("", "BT /F1 18 Tf 20 100 Td (Words of page " +
                                               std::to_string(i + 1) + ") Tj ET"));
        }
        return sandbox.write(name, rawPdf(bodies));
    }

    int32_t merge(const QString &output, const std::vector<std::pair<QString, const char *>> &parts)
    {
        const int32_t handle = pdf.createMerge(utf8(output).c_str());
        EXPECT_GT(handle, 0);
        for (const auto &[file, range] : parts)
            EXPECT_EQ(pdf.setFunction(handle, PW_PAGES_ADD, 0, 0, utf8(file).c_str(), range), 0)
                << pdf.lastError();
        return pdf.close(handle);
    }

    int32_t split(const QString &source, int32_t which, const char *range, const QString &prefix)
    {
        const int32_t handle = pdf.openSplit(utf8(source).c_str());
        EXPECT_GT(handle, 0) << pdf.lastError();
        const int32_t result =
            pdf.setFunction(handle, PW_PAGES_SPLIT, 1, which, range, utf8(prefix).c_str());
        EXPECT_EQ(pdf.close(handle), 0);
        return result;
    }

    static std::vector<std::pair<double, double>> sizes(const QString &path)
    {
        std::vector<std::pair<double, double>> out;
        for (const ProbedPage &page : probePdf(path))
            out.emplace_back(page.width, page.height);
        return out;
    }

    static QString text(const QString &path)
    {
        QProcess process;
        process.start("pdftotext", {"-layout", path, "-"});
        process.waitForFinished();
        return QString::fromUtf8(process.readAllStandardOutput());
    }

    Module pdf;
    SandboxDir sandbox;
};

// Split into single pages and joined again, a document comes back page for page.
TEST_F(PdfPagesTest, SplitThenJoinGivesTheDocumentBack)
{
    const QString source = writeSource(QString::fromUtf8("Quelle ü.pdf"));
    const QString folder = sandbox.mkdir(QString::fromUtf8("Seiten ñ"));
    ASSERT_EQ(split(source, 1, "", folder + "/p"), 0) << pdf.lastError();
    std::vector<std::pair<QString, const char *>> parts;
    for (int page = 1; page <= 3; ++page) {
        const QString single = folder + QString("/p%1.pdf").arg(page);
        EXPECT_EQ(pdf.count(utf8(single).c_str()), 1);
        EXPECT_TRUE(qpdfChecks(single));
        parts.emplace_back(single, "");
    }
    EXPECT_EQ(QDir(folder).entryList(QDir::Files).size(), 3) << "no temporary file left";

    const QString joined = sandbox.filePath("joined.pdf");
    ASSERT_EQ(merge(joined, parts), 0) << pdf.lastError();
    EXPECT_TRUE(qpdfChecks(joined));
    EXPECT_EQ(pdf.count(utf8(joined).c_str()), 3);
    EXPECT_EQ(sizes(joined), sizes(source));
    if (QStandardPaths::findExecutable("pdftotext").isEmpty())
        GTEST_SKIP() << "pdftotext missing";
    EXPECT_EQ(text(joined), text(source));
    EXPECT_TRUE(text(joined).contains("Words of page 3"));
}

// Ranges pick pages in their order, the same file may come twice, and a merge may replace
// one of its own sources.
TEST_F(PdfPagesTest, RangesPickThePagesOfSplitsAndMerges)
{
    const QString source = writeSource("source.pdf");
    const auto all = sizes(source);
    ASSERT_EQ(split(source, 2, "3,1, 9", sandbox.filePath("q")), 0) << pdf.lastError();
    EXPECT_TRUE(QFile::exists(sandbox.filePath("q1.pdf")));
    EXPECT_FALSE(QFile::exists(sandbox.filePath("q2.pdf")));
    EXPECT_EQ(sizes(sandbox.filePath("q3.pdf")), decltype(all){all[2]});

    ASSERT_EQ(merge(source, {{source, "3"}, {source, "-2"}, {source, "2"}}), 0);
    EXPECT_EQ(sizes(source), (decltype(all){all[2], all[0], all[1], all[1]}));
    EXPECT_TRUE(qpdfChecks(source));

    // Nothing to write is no failure, and leaves no file.
    EXPECT_EQ(merge(sandbox.filePath("none.pdf"), {{source, "a"}}), 0);
    EXPECT_FALSE(QFile::exists(sandbox.filePath("none.pdf")));
}

TEST_F(PdfPagesTest, InfoRoundTripsUnicode)
{
    const QString path = writeSource("info.pdf");
    const std::string file = utf8(path);
    const std::string title = "Größe – 日本";
    pw_module_error error{};
    ASSERT_EQ(pdf.setInfo(file.c_str(), "Title", title.c_str(), &error), 0) << error.text;
    ASSERT_EQ(pdf.setInfo(file.c_str(), "Author", "A. Writer", &error), 0) << error.text;

    char value[64];
    EXPECT_EQ(pdf.getInfo(file.c_str(), "Title", value, sizeof value), int32_t(title.size()));
    EXPECT_EQ(std::string(value), title);
    // Cut to the buffer, never inside a character: "Gr" and half an "ö" fit, "Gr" is kept.
    EXPECT_EQ(pdf.getInfo(file.c_str(), "Title", value, 4), int32_t(title.size()));
    EXPECT_EQ(std::string(value), "Gr");
    EXPECT_EQ(pdf.getInfo(file.c_str(), "Author", value, sizeof value), 9);
    EXPECT_EQ(pdf.count(file.c_str()), 3);

    ASSERT_EQ(pdf.setInfo(file.c_str(), "Title", "", &error), 0) << error.text;
    EXPECT_EQ(pdf.getInfo(file.c_str(), "Title", value, sizeof value), 0);
    EXPECT_EQ(std::string(value), "");
    EXPECT_EQ(pdf.getInfo(file.c_str(), "Author", value, sizeof value), 9);
    EXPECT_TRUE(qpdfChecks(path));
    EXPECT_EQ(QDir(sandbox.path()).entryList(QDir::Files).size(), 1) << "no temporary file left";

    EXPECT_EQ(pdf.setInfo(utf8(sandbox.filePath("missing.pdf")).c_str(), "Title", "x", &error), -1);
    EXPECT_EQ(error.number, pw::rte::kFileNotFound);
}

// A file that is no PDF fails every call with a reason, and nothing is written.
TEST_F(PdfPagesTest, DamagedFilesFailWithoutHarm)
{
    const QByteArray whole = readFile(writeSource("whole.pdf"));
    const QString damaged[] = {
        sandbox.write("garbage.pdf", "%PDF-1.4\nnothing here"), sandbox.write("empty.pdf", ""),
        sandbox.write("half.pdf", whole.left(whole.size() / 3)), sandbox.filePath("missing.pdf")};
    for (const QString &path : damaged) {
        const std::string file = utf8(path);
        char value[8];
        EXPECT_EQ(pdf.count(file.c_str()), -1) << file;
        EXPECT_EQ(pdf.getInfo(file.c_str(), "Title", value, sizeof value), -1) << file;
        EXPECT_EQ(pdf.openSplit(file.c_str()), 0) << file;
        EXPECT_STRNE(pdf.lastError(), "") << file;
        const int32_t handle = pdf.createMerge(utf8(sandbox.filePath("out.pdf")).c_str());
        EXPECT_EQ(pdf.setFunction(handle, PW_PAGES_ADD, 0, 0, file.c_str(), ""), -1) << file;
        EXPECT_EQ(pdf.close(handle), 0);
    }
    EXPECT_FALSE(QFile::exists(sandbox.filePath("out.pdf")));
    EXPECT_EQ(pdf.setFunction(987654, PW_PAGES_ADD, 0, 0, "x", ""), -1);
    EXPECT_EQ(pdf.close(987654), -1);
}

class PdfPagesCorpusTest : public PdfPagesTest {};

// Real damaged files: counted or refused, and split whenever they are counted.
TEST_F(PdfPagesCorpusTest, SurvivesDamagedFiles)
{
    if (corpusDir().isEmpty())
        GTEST_SKIP() << "no sample corpus beside the checkout";
    for (const char *folder : {"pdfs", "pdfs/made", "damaged/made", "damaged/real"}) {
        const QDir dir(QDir(corpusDir()).filePath(folder));
        for (const QString &name : dir.entryList(QDir::Files)) {
            const std::string file = utf8(dir.filePath(name));
            const int32_t count = pdf.count(file.c_str());
            const int32_t handle = pdf.openSplit(file.c_str());
            EXPECT_EQ(handle > 0, count >= 0) << file;
            if (handle > 0) {
                EXPECT_EQ(pdf.setFunction(handle, PW_PAGES_SPLIT, 1, 1, "",
                                          utf8(sandbox.filePath("x")).c_str()),
                          0)
                    << file << ": " << pdf.lastError();
                pdf.close(handle);
            }
        }
    }
}

} // namespace
