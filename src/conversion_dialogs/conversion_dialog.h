#pragma once

#include "engine/ap_img_to_pdf.h"

#include <QDialog>

class QCheckBox;
class QComboBox;
class QGridLayout;
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
    ~ConversionDialog() override;
    // Runs once, when the dialog is first shown: the rows handed over are complete by then.
    virtual void Form_Load() = 0;

protected:
    ConversionDialog(AppContext &context, const QString &caption, QWidget *parent);
    void showEvent(QShowEvent *event) override;

    // The folder prompt with the dialog's own title and flags, into `folder`; a cancelled
    // prompt leaves the folder as it was.
    void browseInto(QLineEdit *folder, const QString &title, int flags);
    // The "..." button beside an output folder.
    static QPushButton *browseButton(QWidget *parent);
    // "Proccessing", a frame around the bar of a run.
    QGroupBox *progressFrame(QProgressBar *&bar);
    // A frame without caption around the two buttons, on its right; the second closes. The
    // first is the default button: Enter in a text box runs the dialog's action, never the
    // first button that happens to come before it.
    QGroupBox *buttonFrame(QPushButton *&run, const QString &runCaption, QPushButton *&cancel,
                           const QString &cancelCaption = "&Cancel");
    // One recompression row, below the rows in `grid`: the check box of the colour class
    // (returned), "Recompress to" and the box of names, made into `names`. The names count only
    // while the check box is ticked.
    static QCheckBox *recompressionRow(QGridLayout *grid, ColourClass colourClass,
                                       QComboBox *&names);
    // A row as a dialog opens: its fourth name chosen, the check box clear, the names disabled.
    static void resetRecompressionRow(QCheckBox *check, QComboBox *names);
    // The chosen name, or "" while the check box is clear.
    static QString ticked(const QCheckBox *check, const QComboBox *names);
    // Idempotent, so that a run can hand the arrow back before its last message and again at
    // its end.
    void setBusyCursor(bool busy);

    AppContext &context_;

private:
    bool loaded_ = false;
    bool busy_ = false;
};

} // namespace pw
