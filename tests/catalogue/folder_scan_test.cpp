#include "catalogue/folder_scan.h"
#include "core/master_layout.h"
#include "grid/flex_grid_model.h"

#include "pdf_probe.h"
#include "recording_ui.h"
#include "sample_images.h"
#include "sandbox.h"
#include "test_context.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>

#include <cstdio>
#include <functional>

#include <grp.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace pw;

namespace {

class FakeWindow final : public ScanHost {
public:
    QString selectedFolder() override { return folder; }
    void setSearchCaption(const QString &c) override { caption = c; }
    void beginBulkUpdate() override { bulk = true; }
    void endBulkUpdate() override { bulk = false; }
    void EnableSearchControls(bool enabled) override { controlsEnabled = enabled; }
    void setBusyCursor(bool) override {}
    bool searchSubFolders() override { return subFolders; }
    int currentColumn() override { return 0; }
    int filterListIndex() override { return listIndex; }
    QString filterText() override { return filter; }
    AdvanceOptions advanceOptions() override
    {
        ++optionReads;
        return options;
    }
    QDate today() override { return QDate(2026, 3, 31); }
    void showLoading() override { loadingShown = true; }
    void updateLoading(int count) override
    {
        loadingCounts << count;
        if (onHit)
            onHit(count);
    }
    void hideLoading() override { loadingShown = false; }
    void SetStatusText(const QString &text) override { statusTexts << text; }

    QString folder;
    QString caption = "&Search";
    bool controlsEnabled = true;
    bool bulk = false;
    bool subFolders = true;
    int listIndex = 0;
    QString filter = "Image files";
    AdvanceOptions options;
    int optionReads = 0;
    bool loadingShown = false;
    QList<int> loadingCounts;
    QStringList statusTexts;
    std::function<void(int)> onHit;
};

// Runs `body` in a child process whose failed expectations fail the test. Root reads every
// folder, so as root the child first becomes "nobody", who is given the sandbox.
void runUnprivileged(const SandboxDir &box, const std::function<void()> &body)
{
    const passwd *nobody = getpwnam("nobody");
    if (geteuid() == 0 && nobody) {
        ASSERT_EQ(QProcess::execute("chown", {"-R", "nobody:", box.path()}), 0);
    }
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        const bool dropped =
            geteuid() != 0 || (nobody && setgroups(0, nullptr) == 0 &&
                               setgid(nobody->pw_gid) == 0 && setuid(nobody->pw_uid) == 0);
        if (dropped)
            body();
        std::fflush(stdout);
        _exit(!dropped ? 77 : ::testing::Test::HasFailure());
    }
    int status = -1;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77)
        GTEST_SKIP() << "running as root and unable to become another user";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "see the child's failures above";
}

class Scan : public ::testing::Test {
protected:
    void SetUp() override
    {
        window.folder = box.mkdir("disk");
        catalogue.InitFiles();
    }
    QString file(const QString &relative, const QByteArray &bytes = "x")
    {
        return box.write("disk/" + relative, bytes);
    }
    QStringList column(const QString &key)
    {
        QStringList out;
        const int col = context.ColumnList.GetColumnIndexByKey(key);
        for (int row = 1; row < grid.rows(); ++row)
            out << grid.text(row, col);
        return out;
    }

    SandboxDir box;
    TestContext test{box};
    RecordingUi &ui = test.ui;
    AppContext &context = test.context;
    FlexGridModel grid;
    CatalogueGrid catalogue{grid, context};
    FakeWindow window;
    FolderScan scan{catalogue, window};
};

} // namespace

TEST_F(Scan, FindsImagesBelowTheFolderAndSortsTheNamesNumerically)
{
    file("10.tif");
    file("2.tif");
    file("notes.txt");
    file("sub/deeper/1.png", QByteArray(1025, 'x'));
    file("sub/3.JPG");
    context.settings().setSortbyNumeric(1);
    scan.cmdSearch_Click();
    EXPECT_EQ(column("Name"), QStringList({"1.png", "2.tif", "3.JPG", "10.tif"}));
    // Each row carries its file's folder, size in whole KB rounded up, type, date and icon.
    EXPECT_EQ(column("Location")[0], box.filePath("disk/sub/deeper"));
    EXPECT_EQ(column("Size (In KB)")[0], "2 KB");
    EXPECT_EQ(column("Type")[0], "png image");
    EXPECT_FALSE(column("Modified Date")[0].isEmpty());
    EXPECT_EQ(grid.check(1, context.ColumnList.GetColumnIndexByKey("Selection")), 2)
        << "unchecked when made";
    EXPECT_EQ(grid.picture(1, 0), "image/png");
    EXPECT_EQ(window.caption, "&Search");
    EXPECT_TRUE(window.controlsEnabled);
    EXPECT_FALSE(window.loadingShown);
    EXPECT_EQ(window.loadingCounts, QList<int>({1, 2, 3, 4}));
    EXPECT_EQ(window.statusTexts.last(),
              "0 file selected; Total Page count of selected Tiff files: 0");
    EXPECT_TRUE(ui.boxes.empty());

    window.subFolders = false;
    scan.cmdSearch_Click();
    EXPECT_EQ(column("Name"), QStringList({"2.tif", "10.tif"})) << "only the folder's own files";
}

TEST_F(Scan, LinkedFoldersAreSearchedOnceAndLoopsOfLinksEnd)
{
    file("a.tif");
    file("sub/b.tif");
    box.write("other/c.tif", "x");
    QFile::link(box.filePath("disk"), box.filePath("disk/sub/up"));
    QFile::link(box.filePath("other"), box.filePath("disk/linked"));
    QFile::link(box.filePath("other"), box.filePath("disk/sub/again"));
    context.settings().setSortbyNumeric(1);
    scan.cmdSearch_Click();
    EXPECT_EQ(column("Name"), QStringList({"a.tif", "b.tif", "c.tif"}));
}

TEST_F(Scan, PageCountsDuringTheSearchFollowTheErrorRules)
{
    writeTiff(file("five.tif"), {.pages = 5});
    WriteQpdfPdf(file("three.pdf"), 3);
    WriteQpdfPdf(file("empty.pdf"), 0);
    file("broken.tif", "II*\0nothing");
    file("photo.jpg");
    window.listIndex = -1;
    window.filter = "*.tif;*.pdf;*.jpg";
    scan.cmdSearch_Click();
    ASSERT_EQ(column("Name"),
              QStringList({"broken.tif", "empty.pdf", "five.tif", "photo.jpg", "three.pdf"}));
    // A PDF without pages is an error too.
    EXPECT_EQ(column("Pages"), QStringList({"Error", "Error", "5", "", "3"}));
    EXPECT_EQ(catalogue.TiffPageTotal, 5);
    EXPECT_EQ(catalogue.PdfPageTotal, 3);

    // The summary counts checked files and sums every non-PDF's pages as TIFF pages.
    const int sel = context.ColumnList.GetColumnIndexByKey("Selection");
    for (int row = 1; row < grid.rows(); ++row)
        grid.setCheck(row, sel, 1);
    EXPECT_EQ(catalogue.getSelectedFileinfo(),
              "5 file selected; Total Page count of selected Tiff files: 5");
}

TEST_F(Scan, HiddenPagesAreCountedOnlyForCheckedRowsBeforeAConversion)
{
    context.settings().setColumnVisibility("1,1,0,1,1,1,1,1");
    catalogue.InitFiles();
    writeTiff(file("a.tif"), {.pages = 2});
    writeTiff(file("b.tif"), {.pages = 3});
    scan.cmdSearch_Click();
    EXPECT_EQ(column("Pages"), QStringList({"", ""}));
    grid.setCheck(2, context.ColumnList.GetColumnIndexByKey("Selection"), 1);
    catalogue.GetPageCount();
    EXPECT_EQ(column("Pages"), QStringList({"", "3"}));
    writeTiff(file("b.tif"), {.pages = 4}); // a later change is seen at the next conversion
    catalogue.GetPageCount();
    EXPECT_EQ(column("Pages"), QStringList({"", "4"}));
}

TEST_F(Scan, CancelKeepsTheRowsSortedAndSaysSoOnce)
{
    for (int i = 0; i < 30; ++i)
        file(QString("d%1/f%2.png").arg(i % 3).arg(i));
    window.onHit = [&](int count) {
        if (count == 7)
            scan.cmdSearch_Click(); // the nested press while the caption reads "&Cancel"
    };
    scan.cmdSearch_Click();
    EXPECT_EQ(grid.rows() - 1, 7);
    ASSERT_EQ(ui.boxes.size(), 1u);
    EXPECT_EQ(ui.boxes[0].prompt, "Process is terminated.");
    EXPECT_EQ(ui.boxes[0].flags, vbInformation);
    EXPECT_EQ(window.caption, "&Search");
    EXPECT_FALSE(window.bulk) << "the views show the rows again";
    QStringList names = column("Name");
    QStringList sorted = names;
    sorted.sort();
    EXPECT_EQ(names, sorted);

    // Searching again starts from scratch.
    window.onHit = nullptr;
    ui.boxes.clear();
    scan.cmdSearch_Click();
    EXPECT_EQ(grid.rows() - 1, 30);
    EXPECT_TRUE(ui.boxes.empty());
}

TEST_F(Scan, AdvanceOptionsAreReadForEveryFileAndStarDotStarFindsNothing)
{
    file("a.png", QByteArray(10, 'x'));
    file("b.png", QByteArray(5000, 'x'));
    file("c.txt");
    window.options.useAdvOpt = true;
    window.options.searchBySize = 1;
    window.options.sizeAt = true;
    window.options.leastMostText = "Most";
    window.options.sizeLeastMostText = "1";
    scan.cmdSearch_Click();
    EXPECT_EQ(column("Name"), QStringList({"a.png"}));
    EXPECT_EQ(window.optionReads, 2) << "once per file that passed the name test";

    window.listIndex = -1;
    window.filter = "*.*";
    window.options.useAdvOpt = false;
    scan.cmdSearch_Click();
    EXPECT_EQ(grid.rows(), 1);
}

TEST_F(Scan, AnUnreadableFolderIsLoggedAndItsNeighboursAreStillSearched)
{
    file("a/1.png");
    file("locked/2.png");
    file("z/3.png");
    const QString locked = box.filePath("disk/locked");
    runUnprivileged(box, [&] {
        QFile::setPermissions(locked, {});
        scan.cmdSearch_Click();
        EXPECT_EQ(column("Name"), QStringList({"1.png", "3.png"}));
        const QString log = QString::fromUtf8(readFile(box.filePath("Errors.Log")));
        EXPECT_EQ(log.section(" at Line", 0, 0),
                  "Error 70 (Permission denied) in procedure LoadFiles");
        EXPECT_EQ(log.count("\n"), 1);
    });
    QFile::setPermissions(locked, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

TEST_F(Scan, TypeNamesDependOnlyOnTheirOwnFile)
{
    // Whole names decide some types, whatever files of the same extension came first.
    QStringList types;
    for (const char *name : {"CMakeLists.txt", "notes.txt", "Makefile", "README"})
        types << FileTypeOf(QFileInfo(file(name))).name;
    // A program is told by its content (an ELF header here), and only when it may run.
    const QString tool = file("tool", QByteArray("\177ELF\2\1\1", 7).leftJustified(16, '\0') +
                                          QByteArray("\2\0", 2));
    types << FileTypeOf(QFileInfo(tool)).name;
    QFile::setPermissions(tool, QFile::permissions(tool) | QFile::ExeOwner);
    types << FileTypeOf(QFileInfo(tool)).name;
    EXPECT_EQ(types, QStringList({"cmake source code", "plain text document", "makefile build file",
                                  "readme document", "unknown", "application"}));
}
