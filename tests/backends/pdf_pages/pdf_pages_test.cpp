#include "module_loader.h"
#include "page_range.h"
#include "pdf_pages.h"
#include "pdf_probe.h"
#include "run_time_errors.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QStorageInfo>

#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>

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

// The forms qpdf reads, on a document of 5 pages.
TEST(PageRangeTest, ReadsQpdfsForms)
{
    const std::pair<const char *, Pages> cases[] = {{"z", {5}},
                                                    {"r1", {5}},
                                                    {"r2-z", {4, 5}},
                                                    {"5-1", {5, 4, 3, 2, 1}},
                                                    {"3-1,z", {3, 2, 1, 5}},
                                                    {"odd", {1, 3, 5}},
                                                    {"even", {2, 4}},
                                                    {"2-z:odd", {2, 4}},
                                                    {"z-1:even", {4, 2}},
                                                    {"r9-2", {1, 2}},
                                                    {"9-4", {5, 4}},
                                                    {"1-3: odd", {1, 3}}};
    for (const auto &[range, pages] : cases)
        EXPECT_EQ(pagesOfRange(range, 5), pages) << range;
    EXPECT_EQ(pw::pages::pageLabel(7, 120), "007");
    EXPECT_EQ(pw::pages::pageLabel(12, 12), "12");
    EXPECT_EQ(pw::pages::pageLabel(3, 9), "3");
}

TEST(PageRangeTest, SelectsNothingFromWhatItCannotRead)
{
    for (const char *range : {"a", "1--2", "1,,2", "1,", "-", "0,2", "1-2-3", "+1", "1.5", "r0",
                              "1:odd:even", "1:all", "zz", "r"})
        EXPECT_EQ(pagesOfRange(range, 5), Pages{}) << range;
}

// The module's entry points, as the engine finds them, each call keeping its failure.
struct Module {
    template <typename F> static F *entry(const char *name)
    {
        auto *f = reinterpret_cast<F *>(pw::moduleSymbol(pw::pages::kModule, name));
        EXPECT_NE(f, nullptr) << name;
        return f;
    }
    // Calls `function` with the failure of this call in `error`.
    template <typename F, typename... Args> int32_t call(F *function, Args... args)
    {
        error = {};
        return function(args..., &error);
    }

    int32_t createMerge(const char *output) { return call(createMerge_, output); }
    int32_t openSplit(const char *source) { return call(openSplit_, source); }
    int32_t setFunction(int32_t handle, int32_t code, int32_t n1, int32_t n2, const char *text1,
                        const char *text2)
    {
        return call(setFunction_, handle, code, n1, n2, text1, text2);
    }
    int32_t close(int32_t handle) { return call(close_, handle); }
    int32_t count(const char *path) { return call(count_, path); }
    int32_t getInfo(const char *path, const char *key, char *value, size_t size)
    {
        return call(getInfo_, path, key, value, size);
    }
    int32_t describe(const char *path, char *text, size_t size)
    {
        return call(describe_, path, text, size);
    }
    // Why the last call failed.
    const char *why() const { return error.text; }

    decltype(&pw_pages_create_merge) createMerge_ =
        entry<decltype(pw_pages_create_merge)>("pw_pages_create_merge");
    decltype(&pw_pages_open_split) openSplit_ =
        entry<decltype(pw_pages_open_split)>("pw_pages_open_split");
    decltype(&pw_pages_set_function) setFunction_ =
        entry<decltype(pw_pages_set_function)>("pw_pages_set_function");
    decltype(&pw_pages_close) close_ = entry<decltype(pw_pages_close)>("pw_pages_close");
    decltype(&pw_pages_count) count_ = entry<decltype(pw_pages_count)>("pw_pages_count");
    decltype(&pw_pages_get_info) getInfo_ = entry<decltype(pw_pages_get_info)>("pw_pages_get_info");
    decltype(&pw_pages_set_info) setInfo = entry<decltype(pw_pages_set_info)>("pw_pages_set_info");
    decltype(&pw_pages_set_password) setPassword =
        entry<decltype(pw_pages_set_password)>("pw_pages_set_password");
    decltype(&pw_pages_describe) describe_ =
        entry<decltype(pw_pages_describe)>("pw_pages_describe");
    decltype(&pw_pages_rotate) rotate = entry<decltype(pw_pages_rotate)>("pw_pages_rotate");
    pw_module_error error{};
};

bool hasTools(const QStringList &tools)
{
    return std::all_of(tools.begin(), tools.end(), [](const QString &tool) {
        return !QStandardPaths::findExecutable(tool).isEmpty();
    });
}

// Runs a tool and gives its standard output; "" when it is missing or fails.
QString run(const QString &program, const QStringList &args)
{
    QProcess process;
    process.start(program, args);
    if (!process.waitForFinished(-1) || process.exitCode() != 0)
        return {};
    return QString::fromUtf8(process.readAllStandardOutput());
}

std::string utf8(const QString &path)
{
    return path.toUtf8().toStdString();
}

class PdfPagesTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(pdf.count_, nullptr) << "module not found"; }

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

    // `count` pages `100 + page` points wide, all sharing one resource dictionary of a font
    // each: the pages of a merged paper. `contentSize` pads the contents of pages after the
    // first with that many bytes of no-op operators.
    QString writeShared(const QString &name, int count, size_t contentSize = 0)
    {
        std::string fonts;
        for (int i = 1; i <= count; ++i)
            fonts += "/F" + std::to_string(i) + " 3 0 R ";
        std::vector<std::string> bodies = {"<< /Type /Catalog /Pages 2 0 R >>",
                                           "", // the tree, once the pages are known
                                           "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>",
                                           "<< /Font << " + fonts + ">> >>"};
        std::string kids;
        for (int i = 1; i <= count; ++i) {
            const int page = int(bodies.size()) + 1;
            kids += std::to_string(page) + " 0 R ";
            std::string text = "BT /F" + std::to_string(i) + " 12 Tf 10 10 Td (Page " +
                               std::to_string(i) + ") Tj ET\n";
            if (i > 1)
                for (std::string pad = "q Q\n"; text.size() < contentSize;)
                    text += pad;
            bodies.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 " +
                             std::to_string(100 + i) + " 200] /Resources 4 0 R /Contents " +
                             std::to_string(page + 1) + " 0 R >>");
            bodies.push_back(pdfStream("", text));
        }
        bodies[1] = "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(count) + " >>";
        return sandbox.write(name, rawPdf(bodies));
    }

    // Each page's rotation as pdfinfo reads it.
    static QList<int> rotations(const QString &path)
    {
        QList<int> out;
        const QString info = run("pdfinfo", {"-f", "1", "-l", "999", path});
        for (const QString &line : info.split('\n'))
            if (line.startsWith("Page ") && line.contains(" rot:"))
                out << line.section(':', 1).trimmed().toInt();
        return out;
    }

    int32_t merge(const QString &output, const std::vector<std::pair<QString, const char *>> &parts)
    {
        const int32_t handle = pdf.createMerge(utf8(output).c_str());
        EXPECT_GT(handle, 0);
        for (const auto &[file, range] : parts)
            EXPECT_EQ(pdf.setFunction(handle, PW_PAGES_ADD, 0, 0, utf8(file).c_str(), range), 0)
                << pdf.why();
        return pdf.close(handle);
    }

    int32_t split(const QString &source, int32_t which, const char *range, const QString &prefix)
    {
        const int32_t handle = pdf.openSplit(utf8(source).c_str());
        EXPECT_GT(handle, 0) << pdf.why();
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
    ASSERT_EQ(split(source, 1, "", folder + "/p"), 0) << pdf.why();
    std::vector<std::pair<QString, const char *>> parts;
    for (int page = 1; page <= 3; ++page) {
        const QString single = folder + QString("/p%1.pdf").arg(page);
        EXPECT_EQ(pdf.count(utf8(single).c_str()), 1);
        EXPECT_TRUE(qpdfChecks(single));
        parts.emplace_back(single, "");
    }
    EXPECT_EQ(QDir(folder).entryList(QDir::Files).size(), 3) << "no temporary file left";

    const QString joined = sandbox.filePath("joined.pdf");
    ASSERT_EQ(merge(joined, parts), 0) << pdf.why();
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
    ASSERT_EQ(split(source, 2, "3,1, 9", sandbox.filePath("q")), 0) << pdf.why();
    EXPECT_TRUE(QFile::exists(sandbox.filePath("q1.pdf")));
    EXPECT_FALSE(QFile::exists(sandbox.filePath("q2.pdf")));
    EXPECT_EQ(sizes(sandbox.filePath("q3.pdf")), decltype(all){all[2]});

    ASSERT_EQ(merge(source, {{source, "3"}, {source, "-2"}, {source, "2"}}), 0);
    EXPECT_EQ(sizes(source), (decltype(all){all[2], all[0], all[1], all[1]}));
    EXPECT_TRUE(qpdfChecks(source));

    // A range without a page adds nothing and says so; nothing to write is no failure, and
    // leaves no file.
    const int32_t handle = pdf.createMerge(utf8(sandbox.filePath("none.pdf")).c_str());
    EXPECT_EQ(pdf.setFunction(handle, PW_PAGES_ADD, 0, 0, utf8(source).c_str(), "a"),
              PW_PAGES_NOTHING_ADDED);
    EXPECT_STREQ(pdf.why(), "no page in the range a");
    EXPECT_EQ(pdf.close(handle), 0);
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

    ASSERT_EQ(pdf.setInfo(file.c_str(), "Title", "False", &error), 0) << error.text;
    std::string described(512, '\0');
    described.resize(size_t(pdf.describe(file.c_str(), described.data(), described.size())));
    EXPECT_EQ(described, "Pages\t3\nTitle\tFalse\nSubject\t\nAuthor\tA. Writer\nKeywords\t\n"
                         "Creator\t\nProducer\t\nCreationDate\t\nModDate\t\n");

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
        EXPECT_STRNE(pdf.why(), "") << file;
        const int32_t handle = pdf.createMerge(utf8(sandbox.filePath("out.pdf")).c_str());
        EXPECT_EQ(pdf.setFunction(handle, PW_PAGES_ADD, 0, 0, file.c_str(), ""), -1) << file;
        EXPECT_EQ(pdf.close(handle), 0);
    }
    EXPECT_FALSE(QFile::exists(sandbox.filePath("out.pdf")));
    EXPECT_EQ(pdf.setFunction(987654, PW_PAGES_ADD, 0, 0, "x", ""), -1);
    EXPECT_EQ(pdf.close(987654), -1);
}

// Ranges pick the pages qpdf picks, and turns add up as qpdf's --rotate does.
TEST_F(PdfPagesTest, RangesAndRotationsReadAsQpdfReadsThem)
{
    if (!hasTools({"qpdf", "pdfinfo"}))
        GTEST_SKIP() << "qpdf or pdfinfo missing";
    const QString source = writeShared("six.pdf", 6);
    const QString ours = sandbox.filePath("ours.pdf"), theirs = sandbox.filePath("theirs.pdf");
    for (const char *range : {"z-1", "r3-z", "1-z:odd", "2-5:even", "5-2,z", "r1"}) {
        ASSERT_EQ(merge(ours, {{source, range}}), 0) << range << ": " << pdf.why();
        run("qpdf", {"--empty", "--pages", source, range, "--", theirs});
        EXPECT_EQ(sizes(ours), sizes(theirs)) << range;
    }

    for (const QString &copy : {ours, theirs})
        ASSERT_TRUE(QFile::remove(copy) && QFile::copy(source, copy));
    pw_module_error error{};
    for (const auto &[angle, range] :
         std::vector<std::pair<int, const char *>>{{90, "2-z:odd"}, {180, "1"}, {270, "r2-z"}}) {
        ASSERT_EQ(pdf.rotate(utf8(ours).c_str(), angle, range, &error), 0) << error.text;
        run("qpdf", {QString("--rotate=+%1:%2").arg(angle).arg(range), "--replace-input", theirs});
    }
    EXPECT_EQ(rotations(ours), (QList<int>{180, 90, 0, 90, 270, 0}));
    EXPECT_EQ(rotations(ours), rotations(theirs));
    EXPECT_TRUE(qpdfChecks(ours));
    EXPECT_EQ(pdf.rotate(utf8(ours).c_str(), 45, "", &error), -1);
    EXPECT_EQ(pdf.rotate(utf8(ours).c_str(), 90, "9", &error), -1);
    EXPECT_EQ(rotations(ours), (QList<int>{180, 90, 0, 90, 270, 0}));
    EXPECT_EQ(QDir(sandbox.path()).entryList(QDir::Files | QDir::Hidden).size(), 3)
        << "no temporary file left";
}

// Counting and extracting one page read the page tree and that page, never the contents of
// the pages that share its resources.
TEST_F(PdfPagesTest, ReadsOnlyThePagesAskedFor)
{
    const QString source = writeShared("heavy.pdf", 20, 1 << 20);
    const auto bytesRead = [] {
        const QString io = QString::fromUtf8(readFile("/proc/self/io"));
        return io.section("rchar:", 1).section('\n', 0, 0).trimmed().toLongLong();
    };
    const long long before = bytesRead();
    EXPECT_EQ(pdf.count(utf8(source).c_str()), 20);
    ASSERT_EQ(split(source, 2, "1", sandbox.filePath("p")), 0) << pdf.why();
    EXPECT_LT(bytesRead() - before, 4 << 20) << "the file has 20 MB of contents";

    // The page keeps the one font it uses of the twenty its resources name.
    const QByteArray page = readFile(sandbox.filePath("p01.pdf"));
    EXPECT_TRUE(page.contains("/F1 ")) << page.toStdString();
    EXPECT_FALSE(page.contains("/F2"));
    EXPECT_EQ(sizes(sandbox.filePath("p01.pdf")),
              (std::vector<std::pair<double, double>>{{101, 200}}));
}

// One page of a long document is found through the page tree's counts, reading the nodes on
// the way and not the neighbours; it keeps what it inherits from those nodes, and counts that
// do not add up are not believed.
TEST_F(PdfPagesTest, FindsAPageThroughTheTreesCounts)
{
    if (!hasTools({"pdftotext"}))
        GTEST_SKIP() << "pdftotext missing";
    // Two branches of 32 pages: the first gives its pages a size of its own, the second
    // inherits the root's. Every page object carries 64 KB, 4 MB in all.
    const auto write = [&](const QString &name, int firstBranchCount) {
        std::vector<std::string> bodies = {
            "<< /Type /Catalog /Pages 2 0 R >>",
            "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 64 /MediaBox [0 0 500 600] "
            "/Resources << /Font << /F1 5 0 R >> >> >>",
            "", "", "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"};
        std::string kids[2];
        const std::string pad(64 << 10, 'x');
        for (int i = 1; i <= 64; ++i) {
            const int page = int(bodies.size()) + 1;
            kids[i > 32] += std::to_string(page) + " 0 R ";
            bodies.push_back("<< /Type /Page /Parent " + std::to_string(i > 32 ? 4 : 3) +
                             " 0 R /Pad (" + pad + ") /Contents " + std::to_string(page + 1) +
                             " 0 R >>");
            bodies.push_back(
                pdfStream("", "BT /F1 12 Tf 10 10 Td (Page " + std::to_string(i) + ") Tj ET"));
        }
        bodies[2] = "<< /Type /Pages /Parent 2 0 R /Kids [" + kids[0] + "] /Count " +
                    std::to_string(firstBranchCount) + " /MediaBox [0 0 300 400] >>";
        bodies[3] = "<< /Type /Pages /Parent 2 0 R /Kids [" + kids[1] + "] /Count 32 >>";
        return sandbox.write(name, rawPdf(bodies));
    };
    const QString tree = write("tree.pdf", 32), miscounted = write("miscounted.pdf", 10);
    const auto bytesRead = [] {
        const QString io = QString::fromUtf8(readFile("/proc/self/io"));
        return io.section("rchar:", 1).section('\n', 0, 0).trimmed().toLongLong();
    };
    const struct {
        QString file;
        const char *range;
        QString text;
        std::pair<double, double> size;
        bool alone; // read without the other pages
    } cases[] = {
        {tree, "40", "Page 40", {500, 600}, true},
        {tree, "3", "Page 3", {300, 400}, true},
        {tree, "z", "Page 64", {500, 600}, true},
        {miscounted, "40", "Page 40", {500, 600}, false},
    };
    for (const auto &c : cases) {
        const QString out = sandbox.filePath("one.pdf");
        const long long before = bytesRead();
        ASSERT_EQ(merge(out, {{c.file, c.range}}), 0) << pdf.why();
        if (c.alone) {
            EXPECT_LT(bytesRead() - before, 1 << 20) << c.range << ": the pages hold 4 MB";
        }
        EXPECT_EQ(text(out).trimmed(), c.text) << c.file.toStdString() << " " << c.range;
        EXPECT_EQ(sizes(out), (std::vector<std::pair<double, double>>{c.size})) << c.range;
    }
}

// A join puts each file's bookmarks under one named after the file; bookmarks to pages left
// out lead nowhere, named destinations are written out.
TEST_F(PdfPagesTest, JoinKeepsEachFilesOutline)
{
    std::vector<std::string> bodies = {
        "<< /Type /Catalog /Pages 2 0 R /Outlines 3 0 R /Dests 4 0 R >>",
        "<< /Type /Pages /Kids [7 0 R 9 0 R] /Count 2 >>",
        "<< /Type /Outlines /First 5 0 R /Last 6 0 R /Count 2 >>",
        "<< /second [9 0 R /Fit] >>",
        "<< /Title (One) /Parent 3 0 R /Next 6 0 R /Dest [7 0 R /Fit] >>",
        "<< /Title (Two) /Parent 3 0 R /Prev 5 0 R /Dest /second >>"};
    for (int page : {7, 9}) {
        bodies.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 " +
                         std::to_string(page * 10) + "] /Contents " + std::to_string(page + 1) +
                         " 0 R >>");
        bodies.push_back(pdfStream("", "0 0 10 10 re f"));
    }
    const QString outlined = sandbox.write("outlined.pdf", rawPdf(bodies));
    const QString again = sandbox.write("again.pdf", rawPdf(bodies));
    const QString joined = sandbox.filePath("joined.pdf");
    ASSERT_EQ(merge(joined, {{outlined, ""}, {writeSource("plain.pdf"), ""}, {again, "2"}}), 0);
    EXPECT_TRUE(qpdfChecks(joined));

    if (!hasTools({"qpdf"}))
        GTEST_SKIP() << "qpdf missing";
    const QString json = run("qpdf", {"--json=2", "--json-key=outlines", joined});
    // title -> page (0: none), depth first.
    QStringList found;
    std::function<void(const QJsonArray &, int)> walk = [&](const QJsonArray &items, int depth) {
        for (const QJsonValue &item : items) {
            const QJsonObject o = item.toObject();
            found << QString("%1%2 %3")
                         .arg(QString(depth, '.'), o["title"].toString())
                         .arg(o["destpageposfrom1"].toInt());
            walk(o["kids"].toArray(), depth + 1);
        }
    };
    walk(QJsonDocument::fromJson(json.toUtf8()).object()["outlines"].toArray(), 0);
    EXPECT_EQ(found, (QStringList{"outlined.pdf 1", ".One 1", ".Two 2", "again.pdf 6", ".One 0",
                                  ".Two 6"}));
}

TEST_F(PdfPagesTest, EncryptedFilesOpenWithTheirPassword)
{
    if (!hasTools({"qpdf", "pdftotext"}))
        GTEST_SKIP() << "qpdf or pdftotext missing";
    const QString locked = sandbox.filePath("locked.pdf");
    run("qpdf", {"--encrypt", "secret", "owner", "256", "--", writeSource("plain.pdf"), locked});
    const std::string file = utf8(locked);
    EXPECT_EQ(pdf.count(file.c_str()), -1);
    EXPECT_STREQ(pdf.why(), "needs a password");
    pdf.setPassword("wrong");
    EXPECT_EQ(pdf.count(file.c_str()), -1);
    EXPECT_STREQ(pdf.why(), "the password given does not open it");
    pdf.setPassword("secret");
    EXPECT_EQ(pdf.count(file.c_str()), 3);
    EXPECT_EQ(split(locked, 2, "z", sandbox.filePath("s")), 0) << pdf.why();
    pdf.setPassword("");
    EXPECT_EQ(pdf.count(utf8(sandbox.filePath("s3.pdf")).c_str()), 1) << "written unencrypted";
    EXPECT_TRUE(text(sandbox.filePath("s3.pdf")).contains("Words of page 3"));
}

// On a disk filled to every level, each writer leaves the old file as it was or a whole new
// one, and no temporary file.
TEST_F(PdfPagesTest, AFullDiskNeverCostsAFile)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "mounting a small disk needs root";
    const QString disk = sandbox.mkdir("disk");
    if (QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=160k", "tmpfs", disk}) != 0)
        GTEST_SKIP() << "cannot mount a tmpfs here";
    const std::unique_ptr<const QString, void (*)(const QString *)> unmount(
        &disk, [](const QString *d) { QProcess::execute("umount", {*d}); });
    const QByteArray original = readFile(writeShared("source.pdf", 12, 2000));
    const QString doc = disk + "/doc.pdf", out = disk + "/out.pdf";
    const std::string title(3000, 'T');
    for (qint64 level = 0; level <= 48 * 1024; level += 4096) {
        for (const QString &name : QDir(disk).entryList(QDir::Files | QDir::Hidden))
            QFile::remove(disk + "/" + name);
        sandbox.write("disk/doc.pdf", original);
        sandbox.write("disk/out.pdf", "old");
        QFile filler(disk + "/filler");
        ASSERT_TRUE(filler.open(QIODevice::WriteOnly));
        const qint64 free = QStorageInfo(disk).bytesAvailable();
        filler.write(QByteArray(int(std::max<qint64>(0, free - level)), 'x'));
        filler.close();

        pw_module_error error{};
        if (pdf.setInfo(utf8(doc).c_str(), "Title", title.c_str(), &error) == 0)
            EXPECT_TRUE(qpdfChecks(doc)) << level;
        else
            EXPECT_EQ(readFile(doc), original) << level << ": " << error.text;
        if (merge(out, {{doc, ""}}) == 0)
            EXPECT_TRUE(qpdfChecks(out)) << level;
        else
            EXPECT_EQ(readFile(out), "old") << level;
        split(doc, 1, "", disk + "/p");
        for (const QString &name : QDir(disk).entryList({"p*.pdf"}, QDir::Files))
            EXPECT_TRUE(qpdfChecks(disk + "/" + name)) << level << " " << name.toStdString();
        for (const QString &name : QDir(disk).entryList(QDir::Files | QDir::Hidden))
            EXPECT_FALSE(name.startsWith('.')) << level << " " << name.toStdString();
    }
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
                    << file << ": " << pdf.why();
                pdf.close(handle);
            }
        }
    }
}

} // namespace
