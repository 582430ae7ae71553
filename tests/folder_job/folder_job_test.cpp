// The folder job's state files, its scan and its loop, on small trees made here, through a
// view that records what the dialog would show.
#include "folder_job/clone_list.h"
#include "folder_job/clone_scan.h"
#include "folder_job/folder_job.h"
#include "folder_job/profile_file.h"

#include "engine/image_to_pdf_library.h"

#include "pdf_probe.h"
#include "sample_images.h"
#include "test_context.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

#include <functional>

using namespace pw;

namespace {

// Stops a run from the bar, as a click arriving during the run would.
class RecordingView final : public PlainCloneJobView {
public:
    void setProgressValue(int value) override
    {
        if (onProgress)
            onProgress(value);
    }
    std::function<void(int)> onProgress;
};

class FolderJobTest : public ::testing::Test {
protected:
    QString ini(const char *key)
    {
        return GetPrivateProfileString("CLONE", key, "?", box.filePath("Clone/Clone.ini"));
    }
    QString png(const QString &relative)
    {
        const QString path = box.filePath("src/" + relative);
        QDir().mkpath(QFileInfo(path).path());
        EXPECT_TRUE(colourPattern(20, 10).save(path));
        return path;
    }
    // A job over src into out, started as the Start button starts it.
    void start()
    {
        view.source = box.filePath("src");
        view.output = box.mkdir("out");
        job.prepare();
        job.cmdOk_Click();
    }

    SandboxDir box;
    TestContext t{box};
    RecordingView view;
    FolderJob job{t.context, view, ImageToPdfLibrary::ours()};
};

} // namespace

TEST(ProfileFile, KeysAreFoundInAnyCaseUpdatedInPlaceAndCutByTheBuffer)
{
    SandboxDir box;
    const QString path =
        box.write("p.ini", "; note\r\n[Other]\r\nKEY=x\r\n[clone]\r\n Key = v \r\n");
    EXPECT_EQ(GetPrivateProfileString("CLONE", "KEY", "d", path), "v");
    EXPECT_EQ(GetPrivateProfileString("CLONE", "MISSING", "0", path), "0");
    ASSERT_TRUE(WritePrivateProfileString("CLONE", "key", "w", path));
    ASSERT_TRUE(WritePrivateProfileString("CLONE", "NEW", "n", path));
    ASSERT_TRUE(WritePrivateProfileString("THIRD", "A", "b", path));
    EXPECT_EQ(readFile(path),
              "; note\r\n[Other]\r\nKEY=x\r\n[clone]\r\nkey=w\r\nNEW=n\r\n[THIRD]\r\nA=b\r\n");
    for (const int length : {4095, 4096}) {
        ASSERT_TRUE(WritePrivateProfileString("CLONE", "LONG", QString(length, 'x'), path));
        EXPECT_EQ(GetPrivateProfileString("CLONE", "LONG", "", path).size(), 4095);
    }
}

TEST(CloneList, OursAndOthersListsReadTheSameAndTakeOutcomes)
{
    SandboxDir box;
    const QString a = box.write("a.tif", "x");
    const QString xml = box.filePath("clone.xml");
    CloneListWriter writer(xml);
    writer.startNewJob({"Jpeg", "", "CCITT-G4"});
    writer.AddCloneXmlFile({"a.tif", box.path(), "a.pdf", "/o"});
    writer.AddCloneXmlFile({"gone.tif", box.path(), "gone.pdf", "/o"}); // no such file: no File
    writer.AddCloneXmlFile({"a.tif", box.path(), "a&<\".pdf", "/o"});
    const QString other = box.write(
        "other.xml", "<?xml version='1.0'?>\n<Clone>\n  <Settings EncodBW='Zip' EncodColor=''"
                     " EncodGraycale='Lzw'/>\n  <Files>\n    <File status='' targetfolder='/o' "
                     "targetfile='b.pdf' path='/p' name='b.tif'/>\n  </Files>\n</Clone>\n");
    for (const QString &path : {xml, other}) {
        CloneList list;
        ASSERT_TRUE(list.load(path));
        bool found = false;
        const CloneEncodings e = list.settings(found);
        EXPECT_TRUE(found);
        EXPECT_EQ(e.EncodBW, path == xml ? "CCITT-G4" : "Zip");
        ASSERT_EQ(list.count(), path == xml ? 2 : 1);
        EXPECT_EQ(list.attribute(list.count() - 1, "targetfile"),
                  path == xml ? "a&<\".pdf" : "b.pdf");
        list.setStatus(0, "Unable to Create Folder");
        list.setStatus(0, "Error");
        CloneList again;
        ASSERT_TRUE(again.load(path));
        EXPECT_EQ(again.attribute(0, "status"), "Error");
        EXPECT_THROW(again.attribute(0, "colour"), RuntimeError);
    }
    // A damaged list is replaced by a skeleton when the next file is found.
    QFile::resize(xml, 40);
    EXPECT_FALSE(CloneList().load(xml));
    CloneListWriter(xml).AddCloneXmlFile({"a.tif", box.path(), "a.pdf", "/o"});
    CloneList rebuilt;
    ASSERT_TRUE(rebuilt.load(xml));
    EXPECT_EQ(rebuilt.count(), 1);
}

TEST(CloneScan, TargetNamesAndFoldersFollowTheBoxesAsTyped)
{
    EXPECT_EQ(CloneTargetFile("tiff.tiff"), "pdf.pdf");
    EXPECT_EQ(CloneTargetFile("fig.tiffs.tif"), "fig.pdffs.pdf");
    EXPECT_EQ(CloneTargetFile("a.TIF"), "a.pdf");
    EXPECT_EQ(CloneTargetFile("TIF.tif"), "TIF.pdf");
    const QString out = "/e/Out";
    EXPECT_EQ(CloneTargetFolder("/d/Scans", out, "/d/Scans", out), "/e/Out/Scans");
    EXPECT_EQ(CloneTargetFolder("/d/Scans/x/y", out, "/d/Scans", out), "/e/Out/Scans/x/y");
    EXPECT_EQ(CloneTargetFolder("/d/Scans.2009/x", out, "/d/Scans.2009", out), "/e/Out/Scans/x");
    // A trailing separator: the root's files take its whole path, deeper names are glued on.
    EXPECT_EQ(CloneTargetFolder("/d/Scans", out, "/d/Scans/", out), "/e/Out/Scans/d/Scans");
    EXPECT_EQ(CloneTargetFolder("/d/Scans/x", out, "/d/Scans/", out), "/e/Out/Scansx");
    EXPECT_EQ(CloneTargetFolder("/d/Scans/x", out, "/D/scans", out), "/e/Out/scans/d/Scans/x");
    EXPECT_EQ(CloneTargetFolder("/d/Scans/x", out, "/d/Scans", " /D/SCANS "), "/d/Scans/x");
}

TEST_F(FolderJobTest, ANewJobSettlesEveryFileAndEndsFinished)
{
    png("a.png");
    writeTiff(box.filePath("src/a.tif"), {});
    box.write("src/bad.jpg", "\xFF\xD8 damaged");
    png("deep/c.png");
    box.write("src/notes.txt", "not an image");
    // The folder for "deep" cannot be made: a file stands where it would go.
    box.mkdir("out");
    box.write("out/src", "");
    start();
    EXPECT_EQ(view.caption, "&Start");
    EXPECT_EQ(view.status, "completed....");
    const QStringList lines = view.log.split("\r\n");
    ASSERT_EQ(lines.size(), 8) << view.log.toStdString();
    EXPECT_EQ(lines.mid(0, 3),
              QStringList({"Total Files=4", "Clonning_Path : " + view.source, "Processing....."}));
    EXPECT_EQ(lines.last(), "completed....");
    EXPECT_EQ(lines.filter(".....Unable to Create Folder").size(), 4);
    EXPECT_EQ(ini("STATUS"), "FINISHED");
    EXPECT_EQ(ini("TOTAL_FILE"), "4");
    EXPECT_FALSE(QFile::exists(job.CloneXmlPath())) << "a walked list is deleted";
    EXPECT_EQ(job.lastRun().folderFailures, 4);

    // The same job again beside a writable output: a.tif and a.png meet at a.pdf.
    QFile::remove(box.filePath("out/src"));
    start();
    EXPECT_EQ(view.log.count(".....Completed"), 2) << view.log.toStdString();
    EXPECT_EQ(view.log.count(".....Already Exists"), 1);
    EXPECT_TRUE(view.log.contains("bad.jpg.....Error"));
    for (const char *pdf : {"out/src/a.pdf", "out/src/deep/c.pdf"})
        EXPECT_TRUE(qpdfChecks(box.filePath(pdf))) << pdf;
    view.replace = true;
    start();
    EXPECT_EQ(view.log.count(".....Completed"), 3);
}

TEST_F(FolderJobTest, AStoppedJobIsOfferedAndResumedWhereItStopped)
{
    for (const char *name : {"a.png", "b.png", "c.png"})
        png(name);
    view.onProgress = [&](int done) {
        if (done == 1)
            job.cmdOk_Click(); // the Stop button, pressed during the run
    };
    start();
    EXPECT_EQ(view.status, "terminated....");
    EXPECT_EQ(ini("STATUS"), "NOT FINISHED");
    EXPECT_EQ(ini("FILE_COMPLETED"), "1");
    view.onProgress = nullptr;

    // Opening the dialog again: No keeps the job, Yes takes it up under its own folders.
    RecordingView other;
    FolderJob reopened(t.context, other, ImageToPdfLibrary::ours());
    reopened.prepare();
    t.ui.answers = {vbNo, vbYes};
    reopened.Form_Activate();
    EXPECT_TRUE(other.log.isEmpty());
    reopened.Form_Activate();
    EXPECT_EQ(other.source, view.source);
    EXPECT_EQ(other.log.count(".....Completed"), 3) << other.log.toStdString();
    EXPECT_EQ(other.status, "completed....");
    EXPECT_EQ(ini("STATUS"), "FINISHED");
    EXPECT_EQ(QDir(box.filePath("out/src")).entryList(QDir::Files).size(), 3);

    // A job too long for the bar's 16-bit scale is offered but cannot be resumed.
    start();
    WritePrivateProfileString("CLONE", "STATUS", "NOT FINISHED", box.filePath("Clone/Clone.ini"));
    WritePrivateProfileString("CLONE", "TOTAL_FILE", "40000", box.filePath("Clone/Clone.ini"));
    CloneListWriter(job.CloneXmlPath()).startNewJob({});
    t.ui.answers = {vbYes};
    reopened.Form_Activate();
    EXPECT_EQ(other.caption, "Sto&p") << "a failed resume leaves the run's state";
    EXPECT_TRUE(readFile(box.filePath("Errors.Log")).contains("ResumeLastClone"));
}
