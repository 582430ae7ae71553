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
      job_(context, *this, ImageToPdfLibrary::ours())
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
    job_.Form_Activate();
}

void frmCloneDirectory::cmdOk_Click()
{
    job_.cmdOk_Click();
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
    job_.requestStop();
    Settings &settings = context_.settings();
    settings.setIsDefaultPathCloneDir(ChkDefaultPathCloneDir->isChecked() ? 1 : 0);
    if (ChkDefaultPathCloneDir->isChecked())
        settings.setDefaultPathCloneDir(txtoutputFld->text());
    settings.setIsOpenFolderCloneDir(ChkOpenFolderCloneDir->isChecked() ? 1 : 0);
    QDialog::done(result);
}

QString frmCloneDirectory::sourceText() const
{
    return txtCloningFrom->text();
}

void frmCloneDirectory::setSourceText(const QString &text)
{
    txtCloningFrom->setText(text);
}

QString frmCloneDirectory::outputText() const
{
    return txtoutputFld->text();
}

void frmCloneDirectory::setOutputText(const QString &text)
{
    txtoutputFld->setText(text);
}

void frmCloneDirectory::focusOutput()
{
    txtoutputFld->setFocus();
}

bool frmCloneDirectory::replaceExisting() const
{
    return chkReplace->isChecked();
}

void frmCloneDirectory::setReplaceExisting(bool on)
{
    chkReplace->setChecked(on);
}

bool frmCloneDirectory::openFolderAfter() const
{
    return ChkOpenFolderCloneDir->isChecked();
}

CloneEncodings frmCloneDirectory::encodings() const
{
    // The job takes its language from the program's setting, which no control here shows.
    return {ticked(chkEncodColor, cboEncodTrueColor),
            ticked(chkEncodGraycale, cboEncodGraycale),
            ticked(chkEncodBW, cboEncodBW),
            {}};
}

void frmCloneDirectory::restoreEncodings(const CloneEncodings &shown)
{
    restoreRow(chkEncodColor, cboEncodTrueColor, shown.EncodColor);
    restoreRow(chkEncodGraycale, cboEncodGraycale, shown.EncodGraycale);
    restoreRow(chkEncodBW, cboEncodBW, shown.EncodBW);
}

QString frmCloneDirectory::runCaption() const
{
    return cmdOk->text();
}

void frmCloneDirectory::setRunCaption(const QString &caption)
{
    cmdOk->setText(caption);
}

void frmCloneDirectory::setCloseEnabled(bool enabled)
{
    cmdCancel->setEnabled(enabled);
}

void frmCloneDirectory::setBusy(bool busy)
{
    // The arrow with the hourglass: the window still takes the Stop click.
    if (busy)
        setCursor(Qt::BusyCursor);
    else
        unsetCursor();
}

void frmCloneDirectory::setStatusCaption(const QString &caption)
{
    Frame3->setTitle(caption);
}

void frmCloneDirectory::clearLog()
{
    RtxtProcessingLog->clear();
}

void frmCloneDirectory::appendLog(const QString &text)
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

void frmCloneDirectory::setProgressMaximum(int maximum)
{
    ProgressBar1->setRange(0, maximum);
}

void frmCloneDirectory::setProgressValue(int value)
{
    ProgressBar1->setValue(value);
}

} // namespace pw
