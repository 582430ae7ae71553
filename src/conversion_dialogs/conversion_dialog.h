#pragma once

#include <QDialog>

class QGroupBox;
class QLineEdit;
class QProgressBar;
class QPushButton;

namespace pw {

struct AppContext;

// What the two conversion dialogs share: the load when first shown, the busy cursor of a run,
// the folder prompt into the output box, and the frames of the bar and of the two buttons.
class ConversionDialog : public QDialog {
    Q_OBJECT
public:
    // Runs once, when the dialog is first shown: the rows handed over are complete by then.
    virtual void Form_Load() = 0;

protected:
    ConversionDialog(AppContext &context, const QString &caption, QWidget *parent);
    void showEvent(QShowEvent *event) override;

    // The "Set Folder" prompt with the dialog's own flags, into `folder`; a cancelled prompt
    // leaves the folder as it was.
    void browseInto(QLineEdit *folder, int flags);
    // The "..." button beside an output folder.
    static QPushButton *browseButton(QWidget *parent);
    // "Proccessing", a frame around the bar of a run.
    QGroupBox *progressFrame(QProgressBar *&bar);
    // A frame without caption around the two buttons, on its right.
    QGroupBox *buttonFrame(QPushButton *&run, const QString &runCaption, QPushButton *&cancel);
    static void setBusyCursor(bool busy);

    AppContext &context_;

private:
    bool loaded_ = false;
};

} // namespace pw
