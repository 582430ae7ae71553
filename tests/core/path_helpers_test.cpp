#include "core/path_helpers.h"
#include "core/runtime.h"
#include "core/ui_services.h"

#include "recording_ui.h"
#include "sandbox.h"

#include <gtest/gtest.h>

#include <QFileInfo>

using namespace pw;

TEST(PathHelpers, NamesAndSeparators)
{
    const struct {
        QString (*helper)(const QString &);
        QString in;
        const char *out;
    } cases[] = {{GetFileName, "/a/b/c.pdf", "c.pdf"},
                 {GetParentFolderName, "/a/b/c.pdf", "/a/b"},
                 {GetParentFolderName, "/c.pdf", "/"},
                 {GetParentFolderName, "c.pdf", ""},
                 {TrimNull, QString("abc") + QChar(0) + "junk", "abc"},
                 {ValidateDir, "/data", "/data/"},
                 {ValidateDir, "/data/", "/data/"},
                 {ValidateDir, "", "/"}};
    for (const auto &c : cases)
        EXPECT_EQ(c.helper(c.in), c.out) << c.in.toStdString();
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
}

TEST(PathHelpers, TempFileNamesAreCreatedOnlyInAFolderThatExists)
{
    SandboxDir box;
    const QString name = TempFileName("ANI", box.path());
    EXPECT_TRUE(QFileInfo(name).isFile());
    EXPECT_TRUE(QFileInfo(name).fileName().startsWith("ANI"));
    // No folder, no file; the cursor tests check what an unusable temporary folder raises.
    EXPECT_THROW(TempFileName("ANI", box.filePath("missing")), RuntimeError);
}

TEST(PathHelpers, ShellOpenOffersAProgramOnlyWhenTheShellAnswersZero)
{
    RecordingUi ui;
    ui.ShellOpenFile("open", "/x/a.xyz"); // no association: deliberately nothing more
    ui.shellResult = 0;
    ui.ShellOpenFile("open", "/x/b.xyz");
    EXPECT_EQ(ui.openWith, QStringList({"/x/b.xyz"}));
}

TEST(PathHelpers, TheUserGuideIsFoundBesideTheProgramOrInTheInstalledDocumentation)
{
    // A layout as installed: bin/ and share/doc/pagewright/ below one prefix.
    const struct {
        bool beside, installed;
        const char *found; // relative to the prefix, "" for none
    } cases[] = {{true, true, "bin/help.html"},
                 {false, true, "share/doc/pagewright/help.html"},
                 {true, false, "bin/help.html"},
                 {false, false, ""}};
    for (const auto &c : cases) {
        SandboxDir box;
        const QString bin = box.mkdir("bin");
        if (c.beside)
            box.write("bin/help.html", "<html></html>");
        if (c.installed)
            box.write("share/doc/pagewright/help.html", "<html></html>");
        else
            box.mkdir("share/doc/pagewright/help.html"); // a folder of that name is no guide
        const QString expected = *c.found ? box.filePath(c.found) : QString();
        EXPECT_EQ(FindUserGuide(bin), expected) << c.beside << c.installed;
    }
}
