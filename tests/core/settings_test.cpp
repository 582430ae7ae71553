#include "core/globals.h"
#include "core/property_bag.h"
#include "core/runtime.h"
#include "core/settings.h"

#include "recording_ui.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QDir>
#include <QFileInfo>

using namespace pw;

namespace {

class SettingsStore : public ::testing::Test {
protected:
    void SetUp() override { FileStoragePath = box.path(); }
    void TearDown() override { FileStoragePath.clear(); }

    QString file() const { return box.filePath("Settings/settings.ini"); }
    QByteArray bytes() const
    {
        QFile f(file());
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
    void writeFile(const QByteArray &data) const { box.write("Settings/settings.ini", data); }
    int logLines() const
    {
        QFile f(box.filePath("Errors.Log"));
        return f.open(QIODevice::ReadOnly) ? int(f.readAll().count("\r\n")) : 0;
    }

    SandboxDir box;
    RecordingUi ui;
};

// Fails the first `failures` writes of the settings block.
class FailingWriteSettings : public Settings {
public:
    int failures = 1;
    int writes = 0;

protected:
    void writeBlock(const QString &path, const QByteArray &block) override
    {
        ++writes;
        if (failures-- > 0)
            throw RuntimeError::fromNumber(57);
        Settings::writeBlock(path, block);
    }
};

} // namespace

TEST_F(SettingsStore, MissingFileLoadsNothingButCreatesTheFolder)
{
    Settings s;
    EXPECT_FALSE(s.LoadSettings());
    EXPECT_TRUE(QFileInfo(box.filePath("Settings")).isDir());
    EXPECT_EQ(s.StartupFolder(), "") << "fields keep what they had";
}

TEST_F(SettingsStore, EveryKeySurvivesARoundTrip)
{
    Settings a;
    a.LoadDefaultSettings();
    a.setStartupFolder("/home/user/scans");
    a.setLastWindowLeft(-120);
    a.setLastWindowWidth(2000000);
    a.setSortbyNumeric(1);
    a.setLanguageFile(255);
    a.setDefaultPathCloneDir("/tmp/out ü");
    a.setIsDefaultPathSplitTIFF(1);

    Settings b;
    ASSERT_TRUE(b.LoadSettings());
#define PW_SAME(type, key, def) EXPECT_EQ(a.key(), b.key()) << #key;
    PW_SETTINGS_KEYS(PW_SAME)
#undef PW_SAME
    EXPECT_EQ(b.ColumnReOrder(),
              "Name,Selection,Pages,Location,Size (In KB),Type,Created Date,Modified Date");
    EXPECT_EQ(b.LastGridColWidth(), "1800,250,700,1800,1000,1400,2000,2000");
    EXPECT_EQ(b.WindowStateValue(), 2);
}

TEST_F(SettingsStore, EveryAssignmentRewritesTheFileEvenWithTheSameValue)
{
    Settings s;
    s.LoadDefaultSettings();
    QFile::remove(file());
    s.setSortbyNumeric(s.SortbyNumeric());
    EXPECT_TRUE(QFile::exists(file()));
}

TEST_F(SettingsStore, DamagedEmptyOrForeignFilesFailTheLoadAndAreLogged)
{
    const QByteArray damaged[] = {
        QByteArray(),                                  // left by a failed recovery
        QByteArray("[Settings]\r\nStartupFolder=C:\\\r\n"), // a real INI file
        QByteArray::fromHex("0000ffff00000002"),       // a length past the end
    };
    int expectedLog = 0;
    for (const QByteArray &data : damaged) {
        writeFile(data);
        Settings s;
        EXPECT_FALSE(s.LoadSettings()) << data.toHex().toStdString();
        EXPECT_EQ(logLines(), ++expectedLog);
    }
    // A valid block with bytes behind it (an older, longer block) still reads.
    Settings good;
    good.LoadDefaultSettings();
    writeFile(bytes() + QByteArray(64, 'x'));
    EXPECT_TRUE(Settings().LoadSettings());
}

TEST_F(SettingsStore, AbsentKeysReadEmptyNotDefault)
{
    PropertyBag bag;
    bag.WriteProperty("StartupFolder", QStringLiteral("/data"));
    writeFile(bag.Contents());
    Settings s;
    ASSERT_TRUE(s.LoadSettings());
    EXPECT_EQ(s.StartupFolder(), "/data");
    EXPECT_EQ(s.ColumnReOrder(), "");
    EXPECT_EQ(s.WindowStateFlag(), 0);
    EXPECT_EQ(s.LastGridColWidthFlag(), 0);
}

TEST_F(SettingsStore, ByteKeyOutOfRangeFailsAtThatKeyAfterEarlierKeysWereRead)
{
    const struct {
        QVariant languageFile;
    } cases[] = {{QVariant(300)}, {QVariant(QStringLiteral("abc"))}};
    for (const auto &c : cases) {
        PropertyBag bag;
        bag.WriteProperty("ColumnVisibility", QStringLiteral("1,0"));
        if (c.languageFile.typeId() == QMetaType::Int)
            bag.WriteProperty("LanguageFile", int32_t(c.languageFile.toInt()));
        else
            bag.WriteProperty("LanguageFile", c.languageFile.toString());
        bag.WriteProperty("StartupFolder", QStringLiteral("/never/read"));
        writeFile(bag.Contents());
        Settings s;
        EXPECT_FALSE(s.LoadSettings());
        EXPECT_EQ(s.ColumnVisibility(), "1,0") << "read before the bad key";
        EXPECT_EQ(s.StartupFolder(), "") << "not reached";
    }
}

TEST_F(SettingsStore, DefaultsKeepIsDefaultPathCloneDir)
{
    Settings s;
    s.LoadDefaultSettings();
    s.setIsDefaultPathCloneDir(1);
    s.setIsOpenFolderCloneDir(1);
    s.setStartupFolder("/x");
    s.LoadDefaultSettings();
    ASSERT_TRUE(s.LoadSettings());
    EXPECT_EQ(s.IsDefaultPathCloneDir(), 1);
    EXPECT_EQ(s.IsOpenFolderCloneDir(), 0);
    EXPECT_EQ(s.StartupFolder(), "/");
}

TEST_F(SettingsStore, FailedWriteThrowsEverythingAwayAndStartsFromDefaults)
{
    FailingWriteSettings s;
    s.failures = 0;
    s.LoadDefaultSettings();
    s.setStartupFolder("/kept/before");
    s.failures = 1;
    s.setSortbyNumeric(1);
    EXPECT_EQ(s.SortbyNumeric(), 0) << "the new value is gone too";
    EXPECT_EQ(s.StartupFolder(), "/");
    Settings reread;
    ASSERT_TRUE(reread.LoadSettings());
    EXPECT_EQ(reread.StartupFolder(), "/");
    EXPECT_TRUE(ui.boxes.empty());

    // When the recovery's own save fails as well, the failure reaches the assignment's caller.
    s.failures = 2;
    EXPECT_THROW(s.setSortbyNumeric(1), RuntimeError);
}

TEST_F(SettingsStore, FailureBeforeTheWriteShowsItsTextAndKeepsTheValueInMemory)
{
    Settings s;
    s.LoadDefaultSettings();
    const QByteArray before = bytes();
    // A file where the settings folder should be.
    QFile::remove(file());
    QDir(box.filePath("Settings")).removeRecursively();
    box.write("Settings", "not a folder");
    s.setStartupFolder("/new");
    ASSERT_EQ(ui.boxes.size(), 1u);
    EXPECT_EQ(ui.boxes[0].prompt, "Path not found");
    EXPECT_EQ(ui.boxes[0].flags, vbInformation);
    EXPECT_EQ(ui.boxes[0].title, "Pagewright 3.1");
    EXPECT_EQ(s.StartupFolder(), "/new");
}
