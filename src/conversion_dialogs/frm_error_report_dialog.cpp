#include "frm_error_report_dialog.h"

#include "logic/error_report.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QPushButton>
#include <QTextEdit>
#include <QVBoxLayout>

namespace pw {

frmErrorReportDialog::frmErrorReportDialog(UiServices &ui, QWidget *parent)
    : QDialog(parent), RtxtError(new QTextEdit(this)), cmdSave(new QPushButton("&Save", this)),
      cmdCancel(new QPushButton("&Cancel", this)), ui_(ui)
{
    setWindowTitle("Reporting Errors");
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    resize(560, 380);
    // The separator lines only line up in a fixed-pitch font.
    RtxtError->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    RtxtError->setLineWrapMode(QTextEdit::NoWrap);
    RtxtError->setAcceptRichText(false);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cmdSave);
    buttons->addWidget(cmdCancel);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(RtxtError);
    layout->addLayout(buttons);
    connect(cmdSave, &QPushButton::clicked, this, &frmErrorReportDialog::cmdSave_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
}

void frmErrorReportDialog::AddError(const QString &title, const QString &heading,
                                    const QString &body)
{
    QString section = ErrorReportSection(title, heading, body);
    // The field keeps its lines the way Qt does, without carriage returns.
    RtxtError->moveCursor(QTextCursor::End);
    RtxtError->insertPlainText(section.replace("\r\n", "\n"));
}

void frmErrorReportDialog::cmdSave_Click()
{
    SaveErrorReport(ui_, RtxtError->toPlainText());
}

} // namespace pw
