#include "frm_clone_directory.h"

#include <QThread>

#include "core/app_context.h"
#include "core/failure_log.h"
#include "engine/image_to_pdf_library.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QVBoxLayout>

namespace pw {

namespace {

const Unit dialog = Unit::form("frmCloneDirectory");
constexpr int FolderPromptFlags = BifReturnOnlyFsDirs | BifDontGoBelowDomain | BifNewDialogStyle;

// Shows a job's choice in a row: the box is ticked (which enables the names) and the name
// chosen. A name the list does not hold leaves the names as they were; the job keeps its own.
void restoreRow(QCheckBox *check, QComboBox *names, const QString &name)
{
    if (name.isEmpty())
        return;
    check->setChecked(true);
    if (const int index = names->findText(name); index >= 0)
        names->setCurrentIndex(index);
}

} // namespace

frmCloneDirectory::frmCloneDirectory(AppContext &context, QWidget *parent)
    : ConversionDialog(context, "Image to PDF conversion with Folder structure cloning", parent),
      job_(context, *this, ImageToPdfLibrary::responsive())
{
    // One file per core; they settle in order, so the log reads as one at a time.
    job_.setWorkers(QThread::idealThreadCount());
    resize(640, 600);
    buildFolders();
    buildOptions();
    buildImageProcess();
    buildProcessing();
    Frame4 = buttonFrame(cmdOk, "&Start", cmdCancel, "&Close");

    auto *folders = new QGridLayout;
    folders->addWidget(Label5, 0, 0);
    folders->addWidget(txtCloningFrom, 0, 1);
    folders->addWidget(cmdBrwCloneFld, 0, 2);
    folders->addWidget(Label7, 1, 0);
    folders->addWidget(txtoutputFld, 1, 1);
    folders->addWidget(cmdBrwOutFld, 1, 2);
    auto *choices = new QHBoxLayout;
    choices->addWidget(Frame1);
    choices->addWidget(Frame2);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(folders);
    layout->addLayout(choices);
    layout->addWidget(Frame3, 1);
    layout->addWidget(Frame4);

    connect(cmdOk, &QPushButton::clicked, this, &frmCloneDirectory::cmdOk_Click);
    connect(cmdBrwCloneFld, &QPushButton::clicked, this, &frmCloneDirectory::cmdBrwCloneFld_Click);
    connect(cmdBrwOutFld, &QPushButton::clicked, this, &frmCloneDirectory::cmdBrwOutFld_Click);
    // The job reads the box for every file: a change during the run counts from the next one.
    connect(chkReplace, &QCheckBox::toggled, this,
            [this](bool on) { job_.setReplaceExisting(on); });
}

void frmCloneDirectory::buildFolders()
{
    Label5 = new QLabel("Input Folder:", this);
    txtCloningFrom = new QLineEdit(this);
    cmdBrwCloneFld = browseButton(this);
    Label7 = new QLabel("Out&put folder:", this);
    txtoutputFld = new QLineEdit(this);
    Label7->setBuddy(txtoutputFld);
    cmdBrwOutFld = browseButton(this);
}

void frmCloneDirectory::buildOptions()
{
    Frame1 = new QGroupBox("Options", this);
    ChkDefaultPathCloneDir = new QCheckBox("Set above folder to defa&ult output folder", Frame1);
    chkReplace = new QCheckBox("Replace e&xisting file", Frame1);
    ChkOpenFolderCloneDir = new QCheckBox("&Open folder after cloning", Frame1);
    auto *column = new QVBoxLayout(Frame1);
    column->addWidget(ChkDefaultPathCloneDir);
    column->addWidget(chkReplace);
    column->addWidget(ChkOpenFolderCloneDir);
    column->addStretch();
}

void frmCloneDirectory::buildImageProcess()
{
    Frame2 = new QGroupBox("Image Process", this);
    auto *grid = new QGridLayout(Frame2);
    chkEncodColor = recompressionRow(grid, ClassColour, cboEncodTrueColor);
    chkEncodGraycale = recompressionRow(grid, ClassGreyscale, cboEncodGraycale);
    chkEncodBW = recompressionRow(grid, ClassBlackWhite, cboEncodBW);
}

void frmCloneDirectory::buildProcessing()
{
    Frame3 = progressFrame(ProgressBar1);
    RtxtProcessingLog = new QPlainTextEdit(Frame3);
    RtxtProcessingLog->setReadOnly(true);
    // A job of ten thousand files appends twenty thousand times: no undo history for that.
    RtxtProcessingLog->setUndoRedoEnabled(false);
    Frame3->layout()->addWidget(RtxtProcessingLog);
}

void frmCloneDirectory::Form_Load()
{
    PW_PROCEDURE("Form_Load", dialog);
    guarded(pwTail, [&] {
        PW_STEP;
        resetRecompressionRow(chkEncodColor, cboEncodTrueColor);
        resetRecompressionRow(chkEncodGraycale, cboEncodGraycale);
        resetRecompressionRow(chkEncodBW, cboEncodBW);
        PW_STEP;
        job_.prepare();
        PW_STEP;
        const Settings &settings = context_.settings();
        ChkDefaultPathCloneDir->setChecked(settings.IsDefaultPathCloneDir() != 0);
        if (ChkDefaultPathCloneDir->isChecked())
            txtoutputFld->setText(settings.DefaultPathCloneDir());
        ChkOpenFolderCloneDir->setChecked(settings.IsOpenFolderCloneDir() != 0);
    });
}

void frmCloneDirectory::showEvent(QShowEvent *event)
{
    ConversionDialog::showEvent(event);
    if (activated_)
        return;
    activated_ = true;
    // After the window is up, so that the prompt and a resumed job show over it.
    QMetaObject::invokeMethod(this, &frmCloneDirectory::Form_Activate, Qt::QueuedConnection);
}

void frmCloneDirectory::Form_Activate()
{
    if (!job_.offerResume())
        return;
    const CloneIniRecord &job = job_.record();
    txtCloningFrom->setText(job.LastClonePath);
    txtoutputFld->setText(job.LastOutputPath);
    chkReplace->setChecked(Val(job.LastReplaceExisting) != 0);
    job_.resume();
}

// One button starts and stops: a click during a run comes through the run's yield points.
void frmCloneDirectory::cmdOk_Click()
{
    if (job_.running())
        return job_.stop();
    job_.start(options());
    if (job_.lastRun().newJobWalked)
        openOutputFolder();
}

FolderJobOptions frmCloneDirectory::options() const
{
    // The job's language is the program's setting, which no control here shows.
    return {txtCloningFrom->text(),
            txtoutputFld->text(),
            chkReplace->isChecked(),
            {ticked(chkEncodColor, cboEncodTrueColor), ticked(chkEncodGraycale, cboEncodGraycale),
             ticked(chkEncodBW, cboEncodBW),
             QString::fromStdString(ImageToPdfLibrary::responsive().ocrLanguage())}};
}

void frmCloneDirectory::openOutputFolder()
{
    const bool open = ChkOpenFolderCloneDir->isChecked();
    context_.settings().setIsOpenFolderCloneDir(open ? 1 : 0);
    if (!open)
        return;
    if (txtoutputFld->text().trimmed().isEmpty())
        txtoutputFld->setText(txtCloningFrom->text());
    context_.ui.ShellOpenFile("Explore", txtoutputFld->text());
}

void frmCloneDirectory::cmdBrwCloneFld_Click()
{
    browseInto(txtCloningFrom, "Please select a folder:", FolderPromptFlags);
}

void frmCloneDirectory::cmdBrwOutFld_Click()
{
    browseInto(txtoutputFld, "Please select a folder:", FolderPromptFlags);
}

void frmCloneDirectory::done(int result)
{
    if (job_.running())
        job_.stop();
    Settings &settings = context_.settings();
    settings.setIsDefaultPathCloneDir(ChkDefaultPathCloneDir->isChecked() ? 1 : 0);
    if (ChkDefaultPathCloneDir->isChecked())
        settings.setDefaultPathCloneDir(txtoutputFld->text());
    settings.setIsOpenFolderCloneDir(ChkOpenFolderCloneDir->isChecked() ? 1 : 0);
    QDialog::done(result);
}

void frmCloneDirectory::encodingsRestored(const CloneEncodings &shown)
{
    restoreRow(chkEncodColor, cboEncodTrueColor, shown.EncodColor);
    restoreRow(chkEncodGraycale, cboEncodGraycale, shown.EncodGraycale);
    restoreRow(chkEncodBW, cboEncodBW, shown.EncodBW);
}

void frmCloneDirectory::stateChanged(FolderJobState state)
{
    // A failed run leaves the window as it stood: "Sto&p" on the button, Close disabled.
    if (state == FolderJobState::Failed)
        return;
    const bool idle = state == FolderJobState::Idle;
    cmdOk->setText(idle ? "&Start" : "Sto&p");
    cmdCancel->setEnabled(idle);
    // The arrow with the hourglass: the window still takes the Stop click.
    if (idle)
        unsetCursor();
    else
        setCursor(Qt::BusyCursor);
}

void frmCloneDirectory::setStatusText(const QString &caption)
{
    Frame3->setTitle(caption);
}

bool frmCloneDirectory::ask(const FolderJobMessage &question)
{
    return context_.ui.MsgBox(question.text, question.flags, question.title) == vbYes;
}

void frmCloneDirectory::tell(const FolderJobMessage &notice)
{
    context_.ui.MsgBox(notice.text, notice.flags, notice.title);
    if (notice.aboutOutput)
        txtoutputFld->setFocus();
}

void frmCloneDirectory::logCleared()
{
    RtxtProcessingLog->clear();
}

void frmCloneDirectory::logAppended(const QString &text)
{
    QScrollBar *scroll = RtxtProcessingLog->verticalScrollBar();
    const bool following = scroll->value() == scroll->maximum();
    QTextCursor end(RtxtProcessingLog->document());
    end.movePosition(QTextCursor::End);
    // The log's lines end in CR LF; the pane breaks lines at LF alone.
    end.insertText(QString(text).replace("\r\n", "\n"));
    // A user who scrolled up to read stays where he is.
    if (following)
        scroll->setValue(scroll->maximum());
}

void frmCloneDirectory::setMaximum(int maximum)
{
    ProgressBar1->setRange(0, maximum);
}

void frmCloneDirectory::setValue(int done)
{
    ProgressBar1->setValue(done);
}

} // namespace pw
