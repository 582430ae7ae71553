// The folder job's state files, its scan and its loop, on small trees made here, through a
// view that records what the dialog would show.
#include "folder_job/clone_list.h"
#include "folder_job/clone_scan.h"
#include "folder_job/folder_job.h"
#include "folder_job/job_lock.h"
#include "folder_job/profile_file.h"

#include "core/file_names.h"
#include "engine/image_to_pdf_library.h"

#include "pdf_probe.h"
#include "sample_images.h"
#include "small_disk.h"
#include "test_context.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>

#include <sys/file.h>
#include <unistd.h>

#include <cstdio>

#include <functional>
#include <vector>

using namespace pw;

namespace {

// What the dialog would show, with its questions and notices put to the recording services;
// `onProgress` can stop a run from the bar, as a click arriving during the run would.
class RecordingObserver final : public FolderJobObserver {
public:
    explicit RecordingObserver(UiServices &ui) : ui_(ui) {}
    void setValue(int done) override
    {
        if (onProgress)
            onProgress(done);
    }
    void stateChanged(FolderJobState state) override { states.push_back(state); }
    void setStatusText(const QString &text) override { status = text; }
    void logCleared() override { log.clear(); }
    void logAppended(const QString &text) override { log += text; }
    bool ask(const FolderJobMessage &question) override
    {
        return ui_.MsgBox(question.text, question.flags, question.title) == vbYes;
    }
    void tell(const FolderJobMessage &notice) override
    {
        ui_.MsgBox(notice.text, notice.flags, notice.title);
    }

    QString status, log;
    std::vector<FolderJobState> states;
    std::function<void(int)> onProgress;

private:
    UiServices &ui_;
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
    // A job over `names` in src that the Stop button ends once its first file has settled.
    void startAndStopAfterTheFirstFile(std::initializer_list<const char *> names)
    {
        for (const char *name : names)
            png(name);
        view.onProgress = [&](int done) {
            if (done == 1)
                job.stop(); // the Stop button, pressed during the run
        };
        start();
        view.onProgress = nullptr;
    }
    // A job over src into out, started as the Start button starts it.
    void start() { startWith(box.filePath("src"), box.mkdir("out")); }
    void startWith(const QString &source, const QString &output)
    {
        options.source = source;
        options.output = output;
        job.prepare();
        job.start(options);
    }
    // What opening the dialog does: an unfinished job is offered, and Yes takes it up.
    static void open(FolderJob &job)
    {
        if (job.offerResume())
            job.resume();
    }

    SandboxDir box;
    TestContext t{box};
    RecordingObserver view{t.ui};
    FolderJobOptions options;
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
    writer.startNewJob({"Jpeg", "", "CCITT-G4", "deu+eng"});
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
        EXPECT_EQ(e.ocr, path == xml ? "deu+eng" : "");
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
    EXPECT_EQ(job.state(), FolderJobState::Idle);
    EXPECT_EQ(view.status, "completed....");
    const QStringList lines = view.log.split("\r\n");
    ASSERT_EQ(lines.size(), 8) << view.log.toStdString();
    EXPECT_EQ(lines.mid(0, 3), QStringList({"Total Files=4", "Clonning_Path : " + options.source,
                                            "Processing....."}));
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
    options.replaceExisting = true;
    view.states.clear();
    start();
    EXPECT_EQ(view.log.count(".....Completed"), 3);
    EXPECT_EQ(view.states,
              (std::vector<FolderJobState>{FolderJobState::Searching, FolderJobState::Processing,
                                           FolderJobState::Idle}));

    // A stop that came before the run (an interrupt while the command line set up) is kept
    // for it, and no further.
    job.stop();
    start();
    EXPECT_EQ(view.status, "Cloning Terminated");
    EXPECT_TRUE(job.lastRun().stopped);
    start();
    EXPECT_EQ(view.status, "completed....");
}

TEST_F(FolderJobTest, SeveralWorkersSettleFilesInTheOrderOneWorkerDoes)
{
    for (int i = 0; i < 12; ++i)
        png(QString("d%1/p%2.png").arg(i % 3).arg(i));
    box.write("src/d1/bad.png", "\x89PNG damaged");
    box.write("out/src/d2/p2.pdf", "there before");
    QStringList logs, states;
    for (const int workers : {1, 4}) {
        job.setWorkers(workers);
        start();
        logs << view.log;
        states << ini("FILE_COMPLETED") + " " + ini("LAST_FILEPATH") + " " + ini("STATUS");
        for (const QString &pdf : QDir(box.filePath("out/src/d0")).entryList({"*.pdf"}))
            EXPECT_TRUE(qpdfChecks(box.filePath("out/src/d0/" + pdf))) << pdf.toStdString();
        QDir(box.filePath("out/src")).removeRecursively();
        box.write("out/src/d2/p2.pdf", "there before");
    }
    EXPECT_EQ(logs[0], logs[1]);
    EXPECT_EQ(states[0], states[1]);
    EXPECT_EQ(logs[1].count(".....Completed"), 11);
    EXPECT_EQ(logs[1].count(".....Already Exists"), 1);
    EXPECT_EQ(logs[1].count(".....Error"), 1);

    // A stop lets the files in hand end and settle; the rest waits for a resume. At most four
    // files a worker are in hand when the stop comes, fewer than the 13 of the tree.
    job.setWorkers(2);
    view.onProgress = [&](int done) {
        if (done == 1)
            job.stop();
    };
    start();
    view.onProgress = nullptr;
    EXPECT_EQ(view.status, "terminated....");
    const int settled = ini("FILE_COMPLETED").toInt();
    EXPECT_GE(settled, 1);
    EXPECT_LE(settled, 1 + 4 * 2);
    ASSERT_TRUE(job.resume());
    EXPECT_EQ(view.log.count(".....Completed"), 11) << view.log.toStdString();
}

TEST_F(FolderJobTest, AStoppedJobIsOfferedAndResumedWhereItStopped)
{
    startAndStopAfterTheFirstFile({"a.png", "b.png", "c.png"});
    EXPECT_EQ(view.status, "terminated....");
    EXPECT_EQ(ini("STATUS"), "NOT FINISHED");
    EXPECT_EQ(ini("FILE_COMPLETED"), "1");

    // Opening the dialog again: No keeps the job, Yes takes it up under its own folders.
    RecordingObserver other{t.ui};
    FolderJob reopened(t.context, other, ImageToPdfLibrary::ours());
    reopened.prepare();
    t.ui.answers = {vbNo, vbYes};
    open(reopened);
    EXPECT_TRUE(other.log.isEmpty());
    open(reopened);
    EXPECT_EQ(reopened.record().LastClonePath, options.source);
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
    open(reopened);
    EXPECT_EQ(reopened.state(), FolderJobState::Failed) << "a failed resume keeps the run's state";
    const size_t asked = t.ui.boxes.size();
    reopened.start(options);
    EXPECT_EQ(t.ui.boxes.size(), asked) << "a failed job takes no new run";
    EXPECT_TRUE(readFile(box.filePath("Errors.Log")).contains("ResumeLastClone"));
}

// A job started searchable resumes searchable, whatever the process is set to, and leaves
// that setting as it found it.
TEST_F(FolderJobTest, AResumeReadsTheJobsOwnOcrLanguage)
{
    ImageToPdfLibrary &library = ImageToPdfLibrary::ours();
    if (!library.setOcrLanguage("eng").empty())
        GTEST_SKIP() << "no English text recognition data";
    library.setOcrLanguage("");
    options.encodings.ocr = "eng";
    startAndStopAfterTheFirstFile({"a.png", "b.png", "c.png"});
    ASSERT_EQ(ini("STATUS"), "NOT FINISHED");
    EXPECT_EQ(library.ocrLanguage(), "") << "the run's language is the job's alone";

    RecordingObserver other{t.ui};
    QStringList seen;
    other.onProgress = [&](int done) {
        if (done > 0) // a file settled
            seen << QString::fromStdString(library.ocrLanguage());
    };
    FolderJob reopened(t.context, other, library);
    reopened.prepare();
    t.ui.answers = {vbYes};
    open(reopened);
    EXPECT_EQ(other.status, "completed....");
    ASSERT_FALSE(seen.isEmpty());
    EXPECT_EQ(seen.filter("eng").size(), seen.size()) << seen.join(',').toStdString();
    EXPECT_EQ(library.ocrLanguage(), "");
}

// The job where the file system, the user or a second process does something unexpected:
// nothing is lost, nothing is written outside the output, and every failure is said.
class FolderJobEdges : public FolderJobTest {
protected:
    QString logText() { return QString::fromUtf8(readFile(box.filePath("Errors.Log"))); }
    QStringList pdfsBelow(const QString &folder)
    {
        QStringList found;
        QDirIterator it(folder, {"*.pdf"}, QDir::Files | QDir::Hidden,
                        QDirIterator::Subdirectories);
        while (it.hasNext())
            found << it.next();
        return found;
    }
};

TEST_F(FolderJobEdges, LinkLoopsAreWalkedOnceAndFilesBehindLinksAreListed)
{
    png("a.png");
    png("deep/b.png");
    const QString elsewhere = box.mkdir("elsewhere");
    ASSERT_TRUE(colourPattern(8, 8).save(elsewhere + "/c.png"));
    QFile::link(box.filePath("src"), box.filePath("src/deep/up"));         // a loop back to the top
    QFile::link(elsewhere, box.filePath("src/linked"));                    // a folder behind a link
    QFile::link(box.filePath("src/a.png"), box.filePath("src/alias.png")); // a file behind one
    start();
    EXPECT_EQ(view.log.section("\r\n", 0, 0), "Total Files=4") << view.log.toStdString();
    EXPECT_EQ(view.log.count(".....Completed"), 4);
    EXPECT_TRUE(QFile::exists(box.filePath("out/src/linked/c.pdf")));
}

TEST_F(FolderJobEdges, NamesWithLineBreaksAndStrayBytesConvertAndKeepTheStateFilesWhole)
{
    const QString forged = "a05\nREPLACE_EXISTING=1\r\nx.png";
    png(forged);
    const QByteArray stray = QFile::encodeName(box.filePath("src")) + "/b\xff\xfe.png";
    {
        QFile source(box.filePath("src/" + forged));
        ASSERT_TRUE(source.open(QIODevice::ReadOnly));
        const QByteArray bytes = source.readAll();
        FILE *out = std::fopen(stray.constData(), "wb");
        ASSERT_NE(out, nullptr);
        std::fwrite(bytes.constData(), 1, size_t(bytes.size()), out);
        std::fclose(out);
    }
    start();
    EXPECT_EQ(view.log.count(".....Completed"), 2) << view.log.toStdString();
    const QByteArray iniBytes = readFile(box.filePath("Clone/Clone.ini"));
    EXPECT_EQ(iniBytes.count("\nREPLACE_EXISTING="), 1) << iniBytes.toStdString();
    EXPECT_EQ(ini("REPLACE_EXISTING"), "0");
    const QString last = ini("LAST_FILEPATH");
    EXPECT_TRUE(last == box.filePath("src/" + forged) || EncodeFileName(last) == stray)
        << last.toStdString();
    // The PDFs are there under their own bytes.
    EXPECT_TRUE(QFile::exists(box.filePath("out/src/a05\nREPLACE_EXISTING=1\r\nx.pdf")));
    const QByteArray strayPdf = QFile::encodeName(box.filePath("out/src")) + "/b\xff\xfe.pdf";
    EXPECT_TRUE(IsRegularFilePath(DecodeFileName(strayPdf)));

    // A failure naming such a file stays one line of the log.
    WriteErrorLog("Error 53 (File not found) in procedure X at Line No. 1 " + forged);
    EXPECT_EQ(readFile(box.filePath("Errors.Log")).count('\n'), 1);
    // The sandbox is removed through Qt, which does not see such names.
    ::unlink(stray.constData());
    ::unlink(strayPdf.constData());
}

TEST_F(FolderJobEdges, TargetsOutsideTheOutputAreNeverWritten)
{
    // Folders named ".in." under a source typed as "in" become ".." when the source's text is
    // taken out of their path.
    const QString before = QDir::currentPath();
    QDir::setCurrent(box.path());
    QString deep = "in";
    for (int i = 0; i < 8; ++i)
        deep += "/.in.";
    png(deep.mid(3) + "/evil.png");
    QFile::rename(box.filePath("src"), box.filePath("in"));
    startWith("in", box.mkdir("out"));
    EXPECT_TRUE(view.log.contains("evil.png.....Unable to Create Folder"))
        << view.log.toStdString();
    // Where the name alone would have put it, outside the output and the sandbox.
    const QString climbed = QDir::cleanPath(
        CloneTargetFolder(box.filePath(deep), options.output, "in", options.output) + "/evil.pdf");
    EXPECT_FALSE(climbed.startsWith(box.path())) << climbed.toStdString();
    EXPECT_FALSE(QFile::exists(climbed));
    EXPECT_TRUE(pdfsBelow(box.path()).filter("evil.pdf").isEmpty());
    QDir::setCurrent(before);
    EXPECT_TRUE(logText().contains("evil.pdf is outside " + box.filePath("out")));

    // A list edited to point elsewhere is refused the same way on a resume.
    png("a.png");
    const QString xml = job.CloneXmlPath();
    CloneListWriter writer(xml);
    writer.startNewJob({});
    writer.AddCloneXmlFile({"a.png", box.filePath("src"), "a.pdf", box.mkdir("victim")});
    WritePrivateProfileString("CLONE", "STATUS", "NOT FINISHED", box.filePath("Clone/Clone.ini"));
    ASSERT_TRUE(job.resume());
    EXPECT_TRUE(view.log.contains("a.png.....Unable to Create Folder"));
    EXPECT_FALSE(QFile::exists(box.filePath("victim/a.pdf")));
}

TEST_F(FolderJobEdges, AFileIsNoOutputFolderAndOurLeftoversAreTidiedAway)
{
    png("a.png");
    startWith(box.filePath("src"), box.write("file-not-folder", "x"));
    EXPECT_TRUE(job.lastRun().refused);
    ASSERT_FALSE(t.ui.boxes.empty());
    EXPECT_EQ(t.ui.boxes.back().prompt, "Specified output path is not valid.");

    // Hidden part files a killed writer left are removed; the user's look-alikes and a part
    // file that a running writer holds stay.
    const QStringList ours = {".a.pdf.pw-Ab3x9Q", ".a.pdf.pw-0badf00d"};
    const QStringList theirs = {".a.pdf.pw-1", "a.pdf.pw-Ab3x9Q", ".notes.pw-Ab3x9Qz", "keep.txt"};
    for (const QString &name : ours + theirs)
        box.write("out/src/" + name, "x");
    const QString held = box.write("out/src/.b.pdf.pw-Zz9Zz9", "x");
    QFile holder(held);
    ASSERT_TRUE(holder.open(QIODevice::ReadOnly));
    ASSERT_EQ(::flock(holder.handle(), LOCK_EX), 0);
    start();
    const QStringList left = QDir(box.filePath("out/src")).entryList(QDir::Files | QDir::Hidden);
    for (const QString &name : ours)
        EXPECT_FALSE(left.contains(name)) << name.toStdString();
    for (const QString &name : theirs + QStringList{".b.pdf.pw-Zz9Zz9", "a.pdf"})
        EXPECT_TRUE(left.contains(name)) << name.toStdString();
}

TEST_F(FolderJobEdges, AJobRunningElsewhereIsNeitherOfferedNorJoined)
{
    for (const char *name : {"a.png", "b.png"})
        png(name);
    view.onProgress = [&](int done) {
        if (done == 1)
            job.stop();
    };
    start();
    ASSERT_EQ(ini("STATUS"), "NOT FINISHED");
    // Another process holds the job folder: a lock of our own on a second opening stands in.
    JobLock other;
    ASSERT_TRUE(other.acquire(job.CloneFolder()));
    RecordingObserver second{t.ui};
    FolderJob reopened(t.context, second, ImageToPdfLibrary::ours());
    reopened.prepare();
    const size_t boxesBefore = t.ui.boxes.size();
    open(reopened);
    EXPECT_EQ(t.ui.boxes.size(), boxesBefore) << "no offer to resume a running job";
    EXPECT_TRUE(reopened.runningElsewhere().startsWith("process " + QString::number(getpid())));
    reopened.start(options);
    ASSERT_EQ(t.ui.boxes.size(), boxesBefore + 1);
    EXPECT_TRUE(t.ui.boxes.back().prompt.startsWith("A folder job is running in process "));
    EXPECT_TRUE(QFile::exists(job.CloneXmlPath())) << "the running job's list stays";
    // Once the other ends, the job is offered again.
    other.release();
    t.ui.answers = {vbYes};
    open(reopened);
    EXPECT_EQ(second.status, "completed....");
}

TEST_F(FolderJobEdges, AFullOutputDiskStopsTheRunAndAResumeFinishesIt)
{
    SmallDisk disk(box.filePath("out"), 2048);
    if (!disk.mounted())
        GTEST_SKIP() << "no tmpfs can be mounted here";
    for (int i = 0; i < 6; ++i)
        png(QString("f%1.png").arg(i));
    box.write("src/bad.png", "\x89PNG damaged");
    job.prepare();
    disk.fill(0);
    startWith(box.filePath("src"), disk.path());
    EXPECT_EQ(view.status, "terminated....");
    EXPECT_EQ(ini("STATUS"), "NOT FINISHED");
    EXPECT_FALSE(job.lastRun().interruption.isEmpty());
    EXPECT_TRUE(view.log.contains("No space left on device")) << view.log.toStdString();
    EXPECT_EQ(view.log.count(".....Error"), 0) << "a full disk is not the image's fault";

    disk.free();
    ASSERT_TRUE(job.resume());
    EXPECT_EQ(view.status, "completed....");
    EXPECT_EQ(view.log.count(".....Completed"), 6) << view.log.toStdString();
    EXPECT_EQ(view.log.count(".....Error"), 1);
    const QStringList pdfs = pdfsBelow(disk.path());
    EXPECT_EQ(pdfs.size(), 6) << pdfs.join(" ").toStdString();
    for (const QString &pdf : pdfs)
        EXPECT_TRUE(qpdfChecks(pdf)) << pdf.toStdString();
}

TEST_F(FolderJobEdges, AFullStorageDiskStopsTheJobAndNeverShrinksItsState)
{
    for (int i = 0; i < 30; ++i)
        png(QString("d%1/with-a-rather-long-name-that-fills-the-list-%2.png").arg(i % 3).arg(i));
    // The job folder on a disk of its own with little room left: the list outgrows it midway.
    SmallDisk disk(box.filePath("Clone"), 256);
    if (!disk.mounted())
        GTEST_SKIP() << "no tmpfs can be mounted here";
    job.prepare();
    job.readRecord();
    disk.fill(8192); // a page for the lock's note, one for the list
    start();
    EXPECT_EQ(view.status, "Cloning Terminated");
    EXPECT_TRUE(job.lastRun().interruption.startsWith(job.CloneXmlPath() + ": Disk full"))
        << job.lastRun().interruption.toStdString();
    EXPECT_TRUE(logText().contains("Error 61 (Disk full"));
    EXPECT_FALSE(QFile::exists(box.filePath("out/src"))) << "nothing converted from a cut list";
    disk.free();
    start();
    EXPECT_EQ(view.log.count(".....Completed"), 30);

    // A key that no longer fits leaves the file as it was, every other key included.
    const QString path = disk.path() + "/Clone.ini";
    ASSERT_TRUE(WritePrivateProfileString("CLONE", "LAST_FILEPATH", QString(3900, 'p'), path));
    const QByteArray before = readFile(path);
    disk.fill(0);
    EXPECT_FALSE(WritePrivateProfileString("CLONE", "LAST_FILEPATH", QString(4095, 'q'), path));
    EXPECT_EQ(readFile(path), before);
}
