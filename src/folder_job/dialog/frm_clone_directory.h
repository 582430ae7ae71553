#pragma once

#include "conversion_dialogs/conversion_dialog.h"
#include "folder_job/folder_job.h"

class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;

namespace pw {

// "Folder Conversion": a source tree cloned into a tree of PDFs as a resumable job. One button
// starts and stops the job; the log pane and the bar follow it file by file. The job itself
// is the FolderJob's: the dialog starts and stops it and shows what it hears from it.
class frmCloneDirectory : public ConversionDialog, private FolderJobObserver {
    Q_OBJECT
public:
    explicit frmCloneDirectory(AppContext &context, QWidget *parent = nullptr);
    // How many files convert at once; one per core unless set.
    void setWorkers(int workers) { job_.setWorkers(workers); }

    QLabel *Label5;
    QLineEdit *txtCloningFrom;
    QPushButton *cmdBrwCloneFld;
    QLabel *Label7;
    QLineEdit *txtoutputFld;
    QPushButton *cmdBrwOutFld;
    QGroupBox *Frame1;
    QCheckBox *ChkDefaultPathCloneDir;
    QCheckBox *chkReplace;
    QCheckBox *ChkOpenFolderCloneDir;
    QGroupBox *Frame2;
    QCheckBox *chkEncodColor;
    QComboBox *cboEncodTrueColor;
    QCheckBox *chkEncodGraycale;
    QComboBox *cboEncodGraycale;
    QCheckBox *chkEncodBW;
    QComboBox *cboEncodBW;
    QGroupBox *Frame3;
    QProgressBar *ProgressBar1;
    QPlainTextEdit *RtxtProcessingLog;
    QGroupBox *Frame4;
    QPushButton *cmdOk;
    QPushButton *cmdCancel;

    void Form_Load() override;
    // Once the dialog is on screen: an unfinished job is offered for resuming.
    void Form_Activate();
    void cmdOk_Click();
    void cmdBrwCloneFld_Click();
    void cmdBrwOutFld_Click();
    // Every way of closing ends here (Form_Unload). Closing during a run is not refused: the
    // job stops after the file in hand and stays resumable.
    void done(int result) override;

    const FolderJob &job() const { return job_; }

protected:
    void showEvent(QShowEvent *event) override;

private:
    void buildFolders();
    void buildOptions();
    void buildImageProcess();
    void buildProcessing();

    FolderJobOptions options() const;
    void openOutputFolder();

    void stateChanged(FolderJobState state) override;
    void setMaximum(int maximum) override;
    void setValue(int done) override;
    void setStatusText(const QString &caption) override;
    void logCleared() override;
    void logAppended(const QString &text) override;
    void encodingsRestored(const CloneEncodings &shown) override;
    bool ask(const FolderJobMessage &question) override;
    void tell(const FolderJobMessage &notice) override;

    FolderJob job_;
    bool activated_ = false;
};

} // namespace pw
