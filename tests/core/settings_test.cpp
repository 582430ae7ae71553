#include "core/failure_log.h"
#include "core/property_bag.h"
#include "core/runtime.h"
#include "core/settings.h"

#include "test_context.h"

#include <gtest/gtest.h>

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <functional>
#include <iterator>
#include <type_traits>

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace pw;

namespace {

// Every key as the file spells it, in the order it is written, with its type (Text, Byte,
// Integer, Long). Written out by hand, odd spellings included: a key renamed in the code would
// orphan that value in every existing file, and the reader and writer share one key list.
// clang-format off
const struct {
    char type;
    const char *name;
} fileKeys[] = {
    {'T', "ColumnVisibility"},          {'T', "ExportLocation"},
    {'B', "LanguageFile"},              {'T', "StartupFolder"},
    {'B', "WindowStateFlag"},           {'B', "WindowStateValue"},
    {'L', "LastWindowState"},           {'L', "LastWindowLeft"},
    {'L', "LastWindowTop"},             {'L', "LastWindowHeight"},
    {'L', "LastWindowWidth"},           {'I', "LastGridColWidthFlag"},
    {'T', "LastGridColWidth"},          {'T', "ColumnReOrder"},
    {'I', "SortbyNumeric"},             {'B', "IsOpenFileAfterExport"},
    {'B', "IsOpenFolderSplitPDF"},      {'B', "IsDefaultPathSplitPDF"},
    {'T', "DefaultPathSplitPDF"},       {'B', "IsOpenFolderSplitTIFF"},
    {'B', "IsDefaultPathSplitTIFF"},    {'T', "DefaultPathSplitTIFF"},
    {'B', "IsOpenFileAftCombPDF"},      {'B', "IsDefaultPathCombPDF"},
    {'T', "DefaultPathCombPDF"},        {'B', "IsOpenFileAftCombTIFF"},
    {'B', "IsDefaultPathCombTIFF"},     {'T', "DefaultPathCombTIFF"},
    {'B', "IsOpenFileMConvToPDF"},      {'B', "IsDefaultPathMConvToPDF"},
    {'T', "DefaultPathMConvToPDF"},     {'B', "IsOpenFolderAftConvEToPDF"},
    {'B', "IsDefaultPathConvEToPDF"},   {'T', "DefaultPathConvEToPDF"},
    {'B', "IsOpenFolderPdfInfoUpdate"}, {'B', "IsDefaultPathPdfInfoUpdate"},
    {'T', "DefaultPathPdfInfoUpdate"},  {'B', "IsOpenFolderAppPDf"},
    {'B', "IsDefaultPathAppPDf"},       {'T', "DefaultPathAppPDf"},
    {'B', "IsOpenFolderConImgTiff"},    {'B', "IsDefaultPathConImgTiff"},
    {'T', "DefaultPathConImgTiff"},     {'B', "IsOpenFolderConPdfToTiff"},
    {'B', "IsDefaultPathConPdfToTiff"}, {'T', "DefaultPathConPdfToTiff"},
    {'B', "IsOpenFolderCloneDir"},      {'B', "IsDefaultPathCloneDir"},
    {'T', "DefaultPathCloneDir"},
    {'T', "PageSize"},                  {'I', "ImageResolution"},
    {'B', "IsSearchablePdf"},           {'T', "OcrLanguage"}};
// clang-format on
static_assert(std::size(fileKeys) == 53);

// The next value of type T in the stream, as text.
template <typename T> QString readAsText(QDataStream &in)
{
    T value{};
    in >> value;
    if constexpr (std::is_same_v<T, QString>)
        return value;
    else
        return QString::number(value);
}

// The block's entries in order as "name=type:value", read without PropertyBag so that the
// layout on disk is pinned as well.
QStringList blockEntries(const QByteArray &block)
{
    QDataStream in(block);
    in.setVersion(QDataStream::Qt_6_4);
    quint32 length = 0, count = 0;
    in >> length >> count;
    QStringList entries;
    for (quint32 i = 0; i < count && in.status() == QDataStream::Ok; ++i) {
        QString name;
        quint8 tag = 0;
        in >> name >> tag;
        if (tag != 8 && tag != 17 && tag != 2 && tag != 3)
            return entries << name + "=unknown type " + QString::number(tag);
        entries << name + (tag == 8    ? "=T:" + readAsText<QString>(in)
                           : tag == 17 ? "=B:" + readAsText<quint8>(in)
                           : tag == 2  ? "=I:" + readAsText<qint16>(in)
                                       : "=L:" + readAsText<qint32>(in));
    }
    return entries;
}

constexpr uid_t kNobody = 65534;

// Runs `body` in a child process that file permissions apply to: root ignores them, so a root
// child becomes "nobody" first. The child's exit status, 100 when a failure escaped `body`
// (which would have ended the program), or minus the signal that ended the child.
int runUnprivileged(const std::function<int()> &body)
{
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::geteuid() == 0 &&
            (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0))
            ::_exit(101);
        try {
            ::_exit(body());
        } catch (...) {
            ::_exit(100);
        }
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class SettingsStore : public ::testing::Test {
protected:
    // The settings find their file below the storage folder they are made with; failures are
    // logged there too. The user's home, the default start folder, is a folder of the sandbox.
    void SetUp() override
    {
        SetErrorLogFolder(box.path());
        oldHome = qgetenv("HOME");
        qputenv("HOME", home.toUtf8());
    }
    void TearDown() override
    {
        qputenv("HOME", oldHome);
        SetErrorLogFolder({});
    }

    QString file() const { return box.filePath("Settings/settings.ini"); }
    QByteArray bytes() const { return readFile(file()); }
    void writeFile(const QByteArray &data) const { box.write("Settings/settings.ini", data); }
    QString log() const { return QString::fromUtf8(readFile(box.filePath("Errors.Log"))); }

    SandboxDir box;
    const QString home = box.mkdir("home");
    QByteArray oldHome;
    RecordingUi ui;
};

} // namespace

TEST_F(SettingsStore, EveryKeyKeepsItsSpellingTypeOrderAndValueThroughARoundTrip)
{
    // A file made from the list with a distinct value per key, read and written back: a key
    // the reader misspells comes back empty, one the writer misspells comes back renamed, and
    // the numbers need their type's full width (bytes above 127, longs past 16 bits).
    PropertyBag bag;
    QStringList expected;
    int n = 0;
    for (const auto &[type, name] : fileKeys) {
        ++n;
        const QString value = type == 'T' ? QString("/tmp/out ü %1").arg(n)
                                          : QString::number(type == 'B'   ? 256 - n
                                                            : type == 'I' ? -600 * n
                                                                          : -100000 * n);
        if (type == 'T')
            bag.WriteProperty(name, value);
        else if (type == 'B')
            bag.WriteProperty(name, uint8_t(value.toInt()));
        else if (type == 'I')
            bag.WriteProperty(name, int16_t(value.toInt()));
        else
            bag.WriteProperty(name, int32_t(value.toInt()));
        expected << QString(name) + "=" + type + ":" + value;
    }
    writeFile(bag.Contents());
    Settings s(box.path(), ui);
    ASSERT_TRUE(s.LoadSettings());
    s.SaveSettings();
    EXPECT_EQ(blockEntries(bytes()).join('\n'), expected.join('\n'));
}

TEST_F(SettingsStore, DamagedFilesOrKeysFailTheLoadAndAreLogged)
{
    const QByteArray damaged[] = {
        QByteArray(),                                       // left by a failed recovery
        QByteArray("[Settings]\r\nStartupFolder=C:\\\r\n"), // a real INI file
        QByteArray::fromHex("0000ffff00000002"),            // a length past the end
    };
    int expectedLog = 0;
    for (const QByteArray &data : damaged) {
        writeFile(data);
        Settings s(box.path(), ui);
        EXPECT_FALSE(s.LoadSettings()) << data.toHex().toStdString();
        EXPECT_EQ(log().count("\r\n"), ++expectedLog);
    }
    // A valid block with bytes behind it (an older, longer block) still reads.
    Settings good(box.path(), ui);
    good.LoadDefaultSettings();
    writeFile(bytes() + QByteArray(64, 'x'));
    EXPECT_TRUE(Settings(box.path(), ui).LoadSettings());

    // A byte key out of range or not a number fails the load at that key.
    for (const bool asText : {false, true}) {
        PropertyBag bag;
        bag.WriteProperty("ColumnVisibility", QStringLiteral("1,0"));
        if (asText)
            bag.WriteProperty("LanguageFile", QStringLiteral("abc"));
        else
            bag.WriteProperty("LanguageFile", int32_t(300));
        bag.WriteProperty("StartupFolder", QStringLiteral("/never/read"));
        writeFile(bag.Contents());
        Settings s(box.path(), ui);
        EXPECT_FALSE(s.LoadSettings());
        EXPECT_EQ(s.ColumnVisibility(), "1,0") << "read before the bad key";
        EXPECT_EQ(s.StartupFolder(), "") << "not reached";
        const QString last = log().section("\r\n", -2, -2);
        EXPECT_TRUE(last.startsWith(asText ? "Error 13 (Type mismatch) in procedure LoadSettings "
                                           : "Error 6 (Overflow) in procedure LoadSettings "))
            << last.toStdString();
    }
}

TEST_F(SettingsStore, AbsentFilesAndKeysReadEmptyNotDefault)
{
    Settings s(box.path(), ui);
    EXPECT_FALSE(s.LoadSettings());
    EXPECT_TRUE(QFileInfo(box.filePath("Settings")).isDir()) << "the folder is made for a save";
    EXPECT_EQ(s.StartupFolder(), "") << "fields keep what they had";

    PropertyBag bag;
    bag.WriteProperty("StartupFolder", QStringLiteral("/data"));
    writeFile(bag.Contents());
    ASSERT_TRUE(s.LoadSettings());
    EXPECT_EQ(s.StartupFolder(), "/data");
    EXPECT_EQ(s.ColumnReOrder(), "");
    EXPECT_EQ(s.WindowStateFlag(), 0);
    EXPECT_EQ(s.LastGridColWidthFlag(), 0);
}

TEST_F(SettingsStore, DefaultsStartInTheHomeFolderAndKeepIsDefaultPathCloneDir)
{
    Settings s(box.path(), ui);
    s.LoadDefaultSettings();
    s.setIsDefaultPathCloneDir(1);
    s.setIsOpenFolderCloneDir(1);
    s.setStartupFolder("/x");
    s.LoadDefaultSettings();
    ASSERT_TRUE(s.LoadSettings());
    EXPECT_EQ(s.IsDefaultPathCloneDir(), 1);
    EXPECT_EQ(s.IsOpenFolderCloneDir(), 0);
    EXPECT_EQ(s.StartupFolder(), home);
}

TEST_F(SettingsStore, FailedWriteThrowsEverythingAwayAndStartsFromDefaults)
{
    FailingWriteSettings s(box.path(), ui);
    s.failures = 0;
    s.LoadDefaultSettings();
    s.setStartupFolder("/kept/before");
    s.failures = 1;
    s.setSortbyNumeric(1);
    EXPECT_EQ(s.SortbyNumeric(), 0) << "the new value is gone too";
    EXPECT_EQ(s.StartupFolder(), home);
    Settings reread(box.path(), ui);
    ASSERT_TRUE(reread.LoadSettings());
    EXPECT_EQ(reread.StartupFolder(), home);
    EXPECT_TRUE(ui.boxes.empty());

    // When the recovery's own save fails as well, the failure reaches the assignment's caller.
    s.failures = 2;
    EXPECT_THROW(s.setSortbyNumeric(1), RuntimeError);
}

TEST_F(SettingsStore, EveryAssignmentWritesAndAFailureBeforeTheWriteKeepsTheValueInMemory)
{
    Settings s(box.path(), ui);
    s.LoadDefaultSettings();
    QFile::remove(file());
    s.setSortbyNumeric(s.SortbyNumeric());
    EXPECT_TRUE(QFile::exists(file())) << "rewritten even with the same value";

    // A file where the settings folder should be: the failure's text is shown.
    QFile::remove(file());
    QDir(box.filePath("Settings")).removeRecursively();
    box.write("Settings", "not a folder");
    s.setStartupFolder("/new");
    ASSERT_EQ(ui.boxes.size(), 1u);
    EXPECT_EQ(ui.boxes[0].prompt, "Path not found");
    EXPECT_EQ(ui.boxes[0].flags, vbInformation);
    EXPECT_EQ(s.StartupFolder(), "/new");
}

TEST_F(SettingsStore, AFolderThatTakesNoNewFileStillTakesSavesAndNeverLosesTheFile)
{
    Settings first(box.path(), ui);
    first.LoadDefaultSettings();
    first.setStartupFolder("/kept");
    // The user may write the file but not the folder around it.
    const QString folder = box.filePath("Settings");
    ::chmod(QFile::encodeName(box.path()), 0711);
    ::chmod(QFile::encodeName(folder), 0555);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(QFile::encodeName(file()), kNobody, kNobody), 0);
    }
    const int status = runUnprivileged([&] {
        Settings s(box.path(), ui);
        FailingWriteSettings failing(box.path(), ui);
        if (!s.LoadSettings() || !failing.LoadSettings())
            return 1;
        s.setSortbyNumeric(1);
        // A write that fails in place as well (a full disk): the recovery can't delete the file
        // here, so the failure reaches the assignment's caller and the file keeps its settings.
        try {
            failing.setSortbyNumeric(2);
            return 2;
        } catch (const RuntimeError &) {
        }
        return ui.boxes.empty() ? 0 : 3;
    });
    ::chmod(QFile::encodeName(folder), 0755);
    EXPECT_EQ(status, 0);
    Settings reread(box.path(), ui);
    ASSERT_TRUE(reread.LoadSettings());
    EXPECT_EQ(reread.SortbyNumeric(), 1);
    EXPECT_EQ(reread.StartupFolder(), "/kept");
    EXPECT_EQ(QDir(folder).entryList(QDir::Files | QDir::Hidden), QStringList{"settings.ini"});
}
