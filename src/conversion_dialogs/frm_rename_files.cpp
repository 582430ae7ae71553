#include "frm_rename_files.h"

#include "core/app_context.h"
#include "core/globals.h"
#include "core/path_helpers.h"
#include "frm_error_report_dialog.h"
#include "widgets/flex_grid.h"

#include <QApplication>
#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

#include <functional>

namespace pw {

namespace {

QLineEdit *field(QWidget *parent, int maxLength)
{
    auto *edit = new QLineEdit(parent);
    edit->setMaxLength(maxLength);
    edit->setMaximumWidth(maxLength > 1 ? 90 : 30);
    return edit;
}

QLabel *redLabel(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setStyleSheet("color: red");
    return label;
}

} // namespace

frmRenameFiles::frmRenameFiles(AppContext &context, QWidget *parent)
    : QDialog(parent), vsFilesSetOrder(new FlexGrid(this)), context_(context),
      list_(*vsFilesSetOrder->gridModel(), context.ColumnList)
{
    setWindowTitle("Rename files using page counter");
    setAttribute(Qt::WA_DeleteOnClose, false);
    resize(620, 520);
    vsFilesSetOrder->setEditable(FlexGrid::kEditNone);
    vsFilesSetOrder->setFixedCols(0);
    vsFilesSetOrder->setSelectionMode(FlexGrid::kSelectionByRow);
    buildPattern();
    cmdPreview = new QPushButton("Pre&view", this);
    cmdOk = new QPushButton("&Apply", this);
    cmdCancel = new QPushButton("&Cancel", this);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cmdPreview);
    buttons->addWidget(cmdOk);
    buttons->addWidget(cmdCancel);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(vsFilesSetOrder, 1);
    layout->addWidget(buildNote());
    layout->addWidget(Frame1);
    layout->addLayout(buttons);

    connect(OptAtChrPos1, &QRadioButton::clicked, this, &frmRenameFiles::OptAtChrPos1_Click);
    connect(OptPreAsPageCnt, &QRadioButton::clicked, this, &frmRenameFiles::OptPreAsPageCnt_Click);
    connect(OptSufAsPageCnt, &QRadioButton::clicked, this, &frmRenameFiles::OptSufAsPageCnt_Click);
    connect(cmdPreview, &QPushButton::clicked, this, &frmRenameFiles::cmdPreview_Click);
    connect(cmdOk, &QPushButton::clicked, this, &frmRenameFiles::cmdOk_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
}

void frmRenameFiles::buildPattern()
{
    Frame1 = new QGroupBox("2 Name pattern", this);
    Label1 = new QLabel("Insert Page count with padding &mask", Frame1);
    txtPaddingMask = field(Frame1, 10);
    Label1->setBuddy(txtPaddingMask);
    OptAtChrPos1 = new QRadioButton("A&t character position", Frame1);
    txtCharPos = field(Frame1, 3);
    Label3 = new QLabel("With se&parator", Frame1);
    txtSepAtCharPos = field(Frame1, 1);
    Label3->setBuddy(txtSepAtCharPos);
    Label4 = new QLabel("As", Frame1);
    chkPrefix = new QCheckBox("P&refix", Frame1);
    chkSuffix = new QCheckBox("S&uffix", Frame1);
    OptPreAsPageCnt = new QRadioButton("P&refix as page count with Seperator", Frame1);
    txtSepPrefix = field(Frame1, 1);
    OptSufAsPageCnt = new QRadioButton("S&uffix as page count with Seperator", Frame1);
    txtSepSuffix = field(Frame1, 1);
    for (QLineEdit *edit :
         {txtPaddingMask, txtCharPos, txtSepAtCharPos, txtSepPrefix, txtSepSuffix})
        edit->installEventFilter(this);

    auto *grid = new QGridLayout(Frame1);
    grid->addWidget(Label1, 0, 0, 1, 2);
    grid->addWidget(txtPaddingMask, 0, 2);
    grid->addWidget(OptAtChrPos1, 1, 0);
    grid->addWidget(txtCharPos, 1, 1);
    auto *separator = new QHBoxLayout;
    separator->addWidget(Label3);
    separator->addWidget(txtSepAtCharPos);
    separator->addSpacing(12);
    separator->addWidget(Label4);
    separator->addWidget(chkPrefix);
    separator->addWidget(chkSuffix);
    separator->addStretch();
    grid->addLayout(separator, 2, 0, 1, 4);
    grid->addWidget(OptPreAsPageCnt, 3, 0);
    grid->addWidget(txtSepPrefix, 3, 1);
    grid->addWidget(OptSufAsPageCnt, 4, 0);
    grid->addWidget(txtSepSuffix, 4, 1);
    grid->setColumnStretch(3, 1);
}

QWidget *frmRenameFiles::buildNote()
{
    auto *note = new QWidget(this);
    Label7 = redLabel("*", note);
    Label2 = new QLabel("New file names marked with ", note);
    Label5 = redLabel("red ", note);
    Label6 = new QLabel("color are alredy exists in that folder.", note);
    auto *layout = new QHBoxLayout(note);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    for (QLabel *label : {Label7, Label2, Label5, Label6})
        layout->addWidget(label);
    layout->addStretch();
    return note;
}

void frmRenameFiles::showEvent(QShowEvent *event)
{
    if (!loaded_) {
        loaded_ = true;
        Form_Load();
    }
    QDialog::showEvent(event);
}

void frmRenameFiles::Form_Load()
{
    list_.InitFiles();
    list_.FillGrid(colSelectedData);
}

bool frmRenameFiles::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress)
        return QDialog::eventFilter(watched, event);
    const QString text = static_cast<QKeyEvent *>(event)->text();
    if (text.size() != 1)
        return false; // keys that type nothing: arrows, Home, Delete
    const QChar typed = text[0];
    if (typed == '\b')
        return false;
    if (watched == txtPaddingMask)
        return !typed.isDigit();
    if (watched == txtCharPos)
        return typed < '1' || typed > '9'; // so a position such as 10 can't be typed
    return IsReservedFileNameChar(typed.unicode());
}

void frmRenameFiles::enableFields(bool atPosition, bool prefix, bool suffix)
{
    for (QWidget *widget :
         std::initializer_list<QWidget *>{txtSepAtCharPos, txtCharPos, chkPrefix, chkSuffix})
        widget->setEnabled(atPosition);
    txtSepPrefix->setEnabled(prefix);
    txtSepSuffix->setEnabled(suffix);
}

void frmRenameFiles::OptAtChrPos1_Click()
{
    enableFields(true, false, false);
}

void frmRenameFiles::OptPreAsPageCnt_Click()
{
    enableFields(false, true, false);
}

void frmRenameFiles::OptSufAsPageCnt_Click()
{
    enableFields(false, false, true);
}

RenamePattern frmRenameFiles::pattern() const
{
    RenamePattern p;
    p.option = OptAtChrPos1->isChecked()      ? RenamePattern::AtCharPos
               : OptPreAsPageCnt->isChecked() ? RenamePattern::PrefixAsPageCount
               : OptSufAsPageCnt->isChecked() ? RenamePattern::SuffixAsPageCount
                                              : RenamePattern::NoOption;
    p.paddingMask = txtPaddingMask->text();
    p.charPos = txtCharPos->text();
    p.sepAtCharPos = txtSepAtCharPos->text();
    p.prefix = chkPrefix->isChecked();
    p.suffix = chkSuffix->isChecked();
    p.sepPrefix = txtSepPrefix->text();
    p.sepSuffix = txtSepSuffix->text();
    return p;
}

void frmRenameFiles::cmdPreview_Click()
{
    RenamePattern chosen = pattern();
    list_.Preview(chosen);
    txtCharPos->setText(chosen.charPos);
}

void frmRenameFiles::cmdOk_Click()
{
    if (!list_.validateFilenames()) {
        context_.ui.MsgBox("Some files have bade names.", vbInformation, AppTitle);
        return;
    }
    cmdOk->setEnabled(false);
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const std::optional<RenameOutcome> outcome = list_.Apply();
    if (!outcome)
        return; // the failure is logged; the button stays disabled
    if (outcome->clean()) {
        context_.ui.MsgBox("Successfully Renamed Files.", vbInformation, AppTitle);
    } else {
        frmErrorReportDialog report(context_.ui, this);
        const std::pair<const char *, const QString &> sections[] = {
            {"FOLLOWING SOURCE FILES NOT FOUND", outcome->notFound},
            {"FOLLOWING FILES ALREADY EXISTS", outcome->alreadyExists},
            {"FOLLOWING FILES GET ERROR WHILE RENAMING", outcome->failed}};
        for (const auto &[heading, body] : sections) {
            if (!body.isEmpty())
                report.AddError("RENAMING FILES", heading, body);
        }
        report.exec();
    }
    cmdOk->setEnabled(true);
    QApplication::restoreOverrideCursor();
}

} // namespace pw
