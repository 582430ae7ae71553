#pragma once

#include "conversion_dialog.h"
#include "dialog_progress.h"
#include "logic/merge_run.h"
#include "logic/row_order.h"

#include "engine/conversion_row.h"

#include <optional>

class FlexGrid;
class QCheckBox;
class QGroupBox;
class QLineEdit;
class QProgressBar;
class QPushButton;

namespace pw {

// "Set File Order": the files the main window handed over, put in order by the user and
// merged into one PDF. The dialog closes itself after a run, whatever its outcome.
class frmSetOrder_MConTiff : public ConversionDialog, private SetOrderForm {
    Q_OBJECT
public:
    explicit frmSetOrder_MConTiff(AppContext &context, QWidget *parent = nullptr);

    // Set before the dialog is shown; the rows are read once, when it loads. CommandAction is
    // kept and read by nothing: the dialog serves one command.
    SelectedData colSelectedData;
    int CommandAction = 0;

    QGroupBox *fraSetOrder;
    FlexGrid *vsFilesSetOrder;
    QPushButton *cmdUp;
    QPushButton *cmdDown;
    QGroupBox *Frame1;
    QLineEdit *txtmanualfilename;
    QLineEdit *txtOutputFolder;
    QPushButton *cmdBrowse;
    QCheckBox *ChkDefaultPathMConvToPDF;
    QCheckBox *ChkOpenFileMConvToPDF;
    QGroupBox *Frame3;
    QProgressBar *ProgressBar1;
    QGroupBox *Frame2;
    QPushButton *cmdOK;
    QPushButton *cmdCancel;

    void Form_Load() override;
    void cmdUp_Click();
    void cmdDown_Click();
    void cmdBrowse_Click();
    void cmdOk_Click();
    // The file name's key filter: a character no file name may hold is swallowed (keyAscii
    // set to 0) and the tool tip says why. A pasted name is not filtered.
    void txtmanualfilename_KeyPress(int &keyAscii);
    // Every way of closing ends here: Form_Unload stores the settings. A merge cannot be
    // stopped, so while one runs the dialog stays up: it closes itself at the end.
    void done(int result) override;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildFiles();
    void buildOutput();
    GridBlock selectedBlock() const;
    void select(const GridBlock &block);
    // Rows dragged by the mouse move as the same number of Up or Down presses would.
    bool dragRows(QEvent *event);
    SetOrderChoices choices() const override;
    void setRunning(bool running) override;
    void setProgressMaximum(int maximum) override;
    Progress &progress() override { return *progress_; }
    void unload() override;

    MergeRun run_;
    std::optional<DialogProgress> progress_; // a merge cannot be stopped
    bool running_ = false;
    // From a press inside the highlighted block: the pressed row, and its distance from the
    // block's top. The block moves once the mouse reaches another row; a release before that
    // selects the pressed row alone, as a click anywhere else would.
    int pressedRow_ = -1;
    int dragOffset_ = -1;
    bool dragging_ = false;
};

} // namespace pw
