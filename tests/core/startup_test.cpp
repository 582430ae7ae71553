#include "core/command_line.h"
#include "core/failure_log.h"
#include "core/master_layout.h"
#include "core/path_helpers.h"

#include "recording_ui.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QStandardPaths>

using namespace pw;

namespace {

// Records the order of start-up's windows and what existed when each was shown.
class RecordingStartup final : public StartupUi {
public:
    explicit RecordingStartup(const AppContext &context) : context_(context) {}
    void ShowVistaErrDlg() override { events << "vista"; }
    void ShowProgressDialog() override
    {
        const QString file = context_.FileStoragePath + "/Settings/settings.ini";
        events << (QFile::exists(file) ? "bar:file" : "bar:nofile");
    }
    void ShowMainWindow(AppContext &) override { events << "main"; }
    QStringList events;

private:
    const AppContext &context_;
};

class Startup : public ::testing::Test {
protected:
    void SetUp() override
    {
        oldHome = qgetenv("HOME");
        qputenv("HOME", box.path().toUtf8());
    }
    void TearDown() override
    {
        qputenv("HOME", oldHome);
        SetErrorLogFolder({});
    }
    QString storage() const
    {
        return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
               "/Pagewright/Pagewright 3.1";
    }
    QStringList start(const QString &cmdLine = {})
    {
        context = std::make_unique<AppContext>(boxes);
        RecordingStartup ui(*context);
        Main(cmdLine, ui, *context);
        return ui.events;
    }

    SandboxDir box;
    QByteArray oldHome;
    RecordingUi boxes;
    std::unique_ptr<AppContext> context;
};

} // namespace

TEST_F(Startup, FirstStartShowsTheBarBeforeWritingDefaultsAndTheSecondDoesNot)
{
    EXPECT_EQ(start(), QStringList({"bar:nofile", "main"}));
    EXPECT_EQ(context->FileStoragePath, storage());
    EXPECT_EQ(context->FileStoragePathSlash, storage() + "/");
    EXPECT_TRUE(QFile::exists(storage() + "/Settings/settings.ini"));
    EXPECT_FALSE(QFile::exists(storage() + "/Testtemp.sys")) << "the probe cleans up";

    EXPECT_EQ(start(), QStringList({"main"}));

    // A damaged file brings the bar and the defaults back.
    QFile f(storage() + "/Settings/settings.ini");
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.close();
    EXPECT_EQ(start(), QStringList({"bar:file", "main"}));
    EXPECT_EQ(context->settings().WindowStateValue(), 2);
}

TEST_F(Startup, StoredWidthsApplyOnlyWithOneEntryPerColumn)
{
    start();
    // The default width string differs from the built-in table on the two date columns.
    EXPECT_EQ(context->ColumnList.Item("Created Date")->ColumnWidth, 2000);
    EXPECT_EQ(context->ColumnList.Item("Type")->ColumnWidth, 1400);
    EXPECT_EQ(context->ColumnList.GetColumnIndexByKey("Location"), 3);
    EXPECT_EQ(context->ColumnList.GetColumnIndexByKey("No such column"), 0);
    for (const QString &widths : {QString("1,2,3,4,5,6,7"), QString("1,2,3,4,5,6,7,8,9")}) {
        context->settings().setLastGridColWidth(widths);
        start();
        EXPECT_EQ(context->ColumnList.Item("Created Date")->ColumnWidth, 1400)
            << widths.toStdString();
        EXPECT_EQ(context->ColumnWidths.size(), widths.count(',') + 1);
    }
    context->settings().setLastGridColWidth("10,20,30,40,50,60,70,80.5");
    start();
    EXPECT_FLOAT_EQ(context->ColumnList.Item("Modified Date")->ColumnWidth, 80.5f);
}

TEST_F(Startup, AnUnwritableStorageFolderShowsTheDialogAndEnds)
{
    QDir().mkpath(storage() + "/Testtemp.sys"); // a folder where the probe must write a file
    EXPECT_EQ(start(), QStringList({"vista"}));
    EXPECT_FALSE(context->AppSettings) << "nothing of the later steps exists";
    EXPECT_FALSE(QFile::exists(storage() + "/Settings/settings.ini"));
}

TEST_F(Startup, CommandLineChoosesTheFolderOfItsFirstPath)
{
    const QString a = box.mkdir("a");
    start(a + "/x.tif|" + box.path() + "/b/y.tif");
    EXPECT_EQ(context->CommandLineFolder, a);
    EXPECT_EQ(context->CommandLineFiles.size(), 2);
    const QString working = QDir::currentPath();
    QDir::setCurrent(box.path());
    start("a/x.tif|b/y.tif");
    QDir::setCurrent(working);
    EXPECT_EQ(context->CommandLineFolder, a) << "the tree finds folders by their full path";

    const QString ignored[] = {
        box.path() + "/missing/x.tif", // parent does not exist
        "\"" + a + "/x.tif\"",         // quotes are not stripped
        "x.tif",                       // no folder at all
    };
    for (const QString &cmdLine : ignored) {
        start(cmdLine);
        EXPECT_TRUE(context->CommandLineFolder.isEmpty()) << cmdLine.toStdString();
        EXPECT_TRUE(context->CommandLineFiles.isEmpty());
    }
    EXPECT_EQ(start(""), QStringList({"main"}));
    EXPECT_TRUE(context->CommandLineFolder.isEmpty());
}

// Files given one an argument, as a shell passes them, reach the window as the "|" line with
// full paths; anything else is joined back at the blanks the shell split it at.
TEST_F(Startup, FilesGivenTheUsualWayAreCheckedToo)
{
    const QString a = box.mkdir("a");
    box.write("a/x.tif", "x");
    box.write("a/y z.jpg", "y");
    const QString working = QDir::currentPath();
    QDir::setCurrent(a);
    EXPECT_EQ(WindowCommandLine({"x.tif", "y z.jpg"}), a + "/x.tif|" + a + "/y z.jpg");
    EXPECT_EQ(WindowCommandLine({"y", "z.jpg"}), "y z.jpg");
    QDir::setCurrent(working);
    EXPECT_EQ(WindowCommandLine({a + "/x.tif|" + a + "/y", "z.jpg"}),
              a + "/x.tif|" + a + "/y z.jpg");
    EXPECT_EQ(WindowCommandLine({}), "");
}
