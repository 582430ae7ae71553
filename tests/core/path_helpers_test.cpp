#include "core/path_helpers.h"
#include "core/runtime.h"
#include "core/ui_services.h"

#include "recording_ui.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QFileInfo>

using namespace pw;

TEST(PathHelpers, NamesExtensionsAndSeparators)
{
    const struct {
        QString (*helper)(const QString &);
        QString in;
        const char *out;
    } cases[] = {{GetFileExt, "a.b.tif", "tif"},
                 {GetFileExt, "README", "README"}, // no dot gives the whole name
                 {GetFileName, "/a/b/c.pdf", "c.pdf"},
                 {GetParentFolderName, "/a/b/c.pdf", "/a/b"},
                 {GetParentFolderName, "/c.pdf", "/"},
                 {GetParentFolderName, "c.pdf", ""},
                 {TrimNull, QString("abc") + QChar(0) + "junk", "abc"},
                 {ValidateDir, "/data", "/data/"},
                 {ValidateDir, "/data/", "/data/"},
                 {ValidateDir, "/", "/"}, // a root keeps its one separator
                 {ValidateDir, "", "/"}};
    for (const auto &c : cases)
        EXPECT_EQ(c.helper(c.in), c.out) << c.in.toStdString();

    // Divides by 65535, not 65536, toward zero and then one lower for a negative value.
    const int32_t words[][2] = {{65535, 1}, {131071, 2}, {-1, -1},
                                {0, 0},     {65534, 0},  {-65535, -2}};
    for (const auto &[in, out] : words)
        EXPECT_EQ(HiWord(in), out) << in;
}

TEST(PathHelpers, FileAndFolderTests)
{
    SandboxDir box;
    const QString file = box.write("f.tif", "x");
    QString folder = box.mkdir("sub") + "/";
    EXPECT_TRUE(FileExists(file));
    EXPECT_FALSE(FileExists(box.filePath("sub")));
    EXPECT_FALSE(FileExists("   "));
    EXPECT_TRUE(FolderExists(folder));
    EXPECT_FALSE(folder.endsWith('/')) << "the caller's own variable loses its separator";
    QString fileAsFolder = file;
    EXPECT_TRUE(FolderExists(fileAsFolder)) << "a file of that name also answers yes";
    QString blank = " ";
    EXPECT_FALSE(FolderExists(blank));

    EXPECT_TRUE(DeleteFileIfExists(file));
    EXPECT_FALSE(DeleteFileIfExists(file));
    EXPECT_TRUE(CreateFolderPath(box.filePath("x/y/z")));
    EXPECT_TRUE(QFileInfo(box.filePath("x/y/z")).isDir());
}

TEST(PathHelpers, TempFileNamesAreCreatedOnlyInAFolderThatExists)
{
    SandboxDir box;
    const QString name = TempFileName("ANI", box.path());
    EXPECT_TRUE(QFileInfo(name).isFile());
    EXPECT_TRUE(QFileInfo(name).fileName().startsWith("ANI"));
    EXPECT_NE(TempFileName("ANI", box.path()), name);
    // No folder, no file; the cursor tests check what the failure carries.
    EXPECT_THROW(TempFileName("ANI", box.filePath("missing")), RuntimeError);
    // A temporary folder that does not exist is a failure, never the file system's root.
    const QByteArray oldTmp = qgetenv("TMPDIR");
    qputenv("TMPDIR", box.filePath("gone").toUtf8());
    EXPECT_THROW(TempFileName("ANI"), RuntimeError);
    qputenv("TMPDIR", oldTmp);
}

TEST(PathHelpers, ShellOpenOffersAProgramOnlyWhenTheShellAnswersZero)
{
    RecordingUi ui;
    ui.shellResult = 31; // no association: deliberately nothing more
    ui.ShellOpenFile("open", "/x/a.xyz");
    EXPECT_TRUE(ui.openWith.isEmpty());
    ui.shellResult = 0;
    ui.ShellOpenFile("open", "/x/a.xyz");
    EXPECT_EQ(ui.openWith, QStringList({"/x/a.xyz"}));
    EXPECT_EQ(ui.shell.size(), 2);
}
