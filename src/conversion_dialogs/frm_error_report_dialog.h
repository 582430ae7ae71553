#pragma once

#include <QDialog>

class QPushButton;
class QTextEdit;

namespace pw {

class UiServices;

// The per-file failures of a batch run, shown once at its end. The report lives only in the
// text field; Save keeps a copy as rich text.
class frmErrorReportDialog : public QDialog {
    Q_OBJECT
public:
    explicit frmErrorReportDialog(UiServices &ui, QWidget *parent = nullptr);

    // Appends one section: the title and the heading framed by separator lines, then `body`.
    void AddError(const QString &title, const QString &heading, const QString &body);
    void cmdSave_Click();

    QTextEdit *RtxtError;
    QPushButton *cmdSave;
    QPushButton *cmdCancel;

private:
    UiServices &ui_;
};

} // namespace pw
