// Folder Conversion driven from the main window through its real dialog, with every message
// box answered by the recorder.
#include "folder_job/dialog/frm_clone_directory.h"
#include "main_window/frm_main.h"

#include "folder_job/profile_file.h"

#include "modal_script.h"
#include "pdf_probe.h"
#include "sample_images.h"
#include "test_context.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QGroupBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>

using namespace pw;

namespace {

const QString ResumePrompt =
    "Last Cloning Job was not completed successfully.\r\nDo you wants to start that again?";

class FolderConversion : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const char *name : {"a.png", "b.png", "deep/c.png"}) {
            const QString path = box.filePath(QString("disk/scans/") + name);
            QDir().mkpath(QFileInfo(path).path());
            ASSERT_TRUE(colourPattern(20, 10).save(path));
        }
        t.context.settings().setStartupFolder(disk);
        t.context.settings().setWindowStateFlag(0);
        w = std::make_unique<frmMain>(t.context);
        w->Form_Load();
        w->setTreeFolder(disk + "/scans");
    }
    // Opens the dialog from the main window; `step` acts on it while it is open.
    void open(std::function<void(frmCloneDirectory &)> step)
    {
        script.then<frmCloneDirectory>([step](frmCloneDirectory &d) {
            // The prompt, and a job resumed, are queued when the window shows.
            settle(d);
            step(d);
        });
        w->cmdCloneDir->click();
    }
    QStringList boxes()
    {
        QStringList prompts;
        for (const RecordingUi::Box &shown : t.ui.boxes)
            prompts << shown.prompt;
        t.ui.boxes.clear();
        return prompts;
    }
    QString ini(const char *key)
    {
        return GetPrivateProfileString("CLONE", key, "?", box.filePath("Clone/Clone.ini"));
    }
    QStringList pdfs()
    {
        QStringList found;
        for (const char *name : {"a.pdf", "b.pdf", "deep/c.pdf"})
            if (qpdfChecks(out + "/scans/" + name))
                found << name;
        return found;
    }
    // Presses Stop once the bar shows `done` files, through the event loop as a click would.
    static void stopAt(frmCloneDirectory &d, int done)
    {
        QObject::connect(d.ProgressBar1, &QProgressBar::valueChanged, d.cmdOk, [&d, done](int v) {
            if (v == done)
                QTimer::singleShot(0, d.cmdOk, &QPushButton::click);
        });
    }

    SandboxDir box;
    TestContext t{box};
    QString disk = box.mkdir("disk");
    QString out = box.mkdir("out");
    ModalScript script;
    std::unique_ptr<frmMain> w;
};

} // namespace

TEST_F(FolderConversion, ANewJobRunsToTheEndAndItsChoicesAreKept)
{
    open([&](frmCloneDirectory &d) {
        EXPECT_EQ(d.windowTitle(), "Image to PDF conversion with Folder structure cloning");
        EXPECT_EQ(d.txtCloningFrom->text(), disk + "/scans");
        EXPECT_EQ(d.cboEncodTrueColor->currentText(), "Jpeg");
        EXPECT_EQ(d.cboEncodBW->currentText(), "CCITT-G4");
        EXPECT_FALSE(d.cboEncodGraycale->isEnabled());
        d.chkEncodColor->click();
        EXPECT_TRUE(d.cboEncodTrueColor->isEnabled());
        d.cboEncodTrueColor->setCurrentText("Zip");

        d.txtoutputFld->setText("  ");
        d.cmdOk->click();
        EXPECT_EQ(boxes(), QStringList{"Specified output path is not valid."});
        d.txtoutputFld->setText(out);
        d.ChkDefaultPathCloneDir->setChecked(true);
        d.ChkOpenFolderCloneDir->setChecked(true);
        d.cmdOk->click();
        EXPECT_EQ(d.cmdOk->text(), "&Start");
        EXPECT_EQ(d.Frame3->title(), "completed....");
        EXPECT_EQ(d.ProgressBar1->value(), 0);
        const QStringList log = d.RtxtProcessingLog->toPlainText().split('\n');
        EXPECT_EQ(log.mid(0, 3), QStringList({"Total Files=3", "Clonning_Path : " + disk + "/scans",
                                              "Processing....."}));
        EXPECT_EQ(log.filter(".....Completed").size(), 3);
        EXPECT_EQ(log.last(), "completed....");
        EXPECT_EQ(t.ui.shell, QStringList{"Explore " + out});
    });
    EXPECT_EQ(pdfs(), QStringList({"a.pdf", "b.pdf", "deep/c.pdf"}));
    EXPECT_EQ(firstImageFilter(out + "/scans/a.pdf"), "/FlateDecode");
    EXPECT_EQ(ini("STATUS"), "FINISHED");

    // The output folder and the open box come back; the job's recompression does not.
    open([&](frmCloneDirectory &d) {
        EXPECT_EQ(d.txtoutputFld->text(), out);
        EXPECT_TRUE(d.ChkOpenFolderCloneDir->isChecked());
        EXPECT_FALSE(d.chkEncodColor->isChecked());
    });
    EXPECT_TRUE(boxes().isEmpty()) << "a finished job is not offered";
}

TEST_F(FolderConversion, StopsInTheScanAndInTheRunAndTheRunIsResumedOnReopening)
{
    open([&](frmCloneDirectory &d) {
        d.txtoutputFld->setText(out);
        d.ChkOpenFolderCloneDir->setChecked(true);
        QTimer::singleShot(0, d.cmdOk, &QPushButton::click);
        d.cmdOk->click();
        EXPECT_EQ(d.Frame3->title(), "Cloning Terminated");
        EXPECT_EQ(d.cmdOk->text(), "&Start");
        EXPECT_TRUE(t.ui.shell.isEmpty());
        EXPECT_FALSE(QFile::exists(box.filePath("Clone/clone.xml")));

        d.ChkOpenFolderCloneDir->setChecked(false);
        d.setWorkers(1); // with one file in hand, a stop after the first leaves two
        stopAt(d, 1);
        d.cmdOk->click();
        EXPECT_EQ(d.Frame3->title(), "terminated....");
        EXPECT_TRUE(d.RtxtProcessingLog->toPlainText().endsWith("\nterminated...."));
        d.cmdCancel->click();
    });
    EXPECT_EQ(ini("STATUS"), "NOT FINISHED");
    EXPECT_EQ(ini("FILE_COMPLETED"), "1");
    EXPECT_EQ(pdfs().size(), 1);

    // Reopened from another folder, Yes takes the job up under its own folders.
    w->setTreeFolder(disk);
    t.ui.answers = {vbYes};
    open([&](frmCloneDirectory &d) {
        EXPECT_EQ(d.txtCloningFrom->text(), disk + "/scans");
        EXPECT_EQ(d.txtoutputFld->text(), out);
        EXPECT_EQ(d.Frame3->title(), "completed....");
        EXPECT_EQ(d.RtxtProcessingLog->toPlainText().count(".....Completed"), 3);
    });
    EXPECT_EQ(boxes(), QStringList{ResumePrompt});
    EXPECT_EQ(pdfs().size(), 3);
    EXPECT_EQ(ini("STATUS"), "FINISHED");
}

TEST_F(FolderConversion, NoAtOpeningAndAtStartDiscardsTheStoppedJob)
{
    open([&](frmCloneDirectory &d) {
        d.txtoutputFld->setText(out);
        d.setWorkers(1);
        stopAt(d, 2);
        d.cmdOk->click();
    });
    ASSERT_EQ(ini("STATUS"), "NOT FINISHED");

    const QString other = box.mkdir("other");
    t.ui.answers = {vbNo, vbNo};
    open([&](frmCloneDirectory &d) {
        EXPECT_TRUE(d.RtxtProcessingLog->toPlainText().isEmpty());
        d.txtoutputFld->setText(other);
        d.cmdOk->click();
        EXPECT_EQ(d.Frame3->title(), "completed....");
    });
    EXPECT_EQ(boxes(), QStringList({ResumePrompt, ResumePrompt}));
    EXPECT_EQ(QDir(other + "/scans").entryList(QDir::Files).size(), 2);
    EXPECT_EQ(pdfs().size(), 2) << "the old job's output stays as it was";
    EXPECT_EQ(ini("OUTPUT_PATH"), other);
    EXPECT_EQ(ini("STATUS"), "FINISHED");
}
