#pragma once

#include "conversion_dialog.h"
#include "dialog_progress.h"
#include "logic/image_to_pdf_run.h"

#include "engine/conversion_row.h"

#include <optional>

class FlexGrid;
class QCheckBox;
class QComboBox;
class QGroupBox;
class QLineEdit;
class QProgressBar;
class QPushButton;

namespace pw {

// "Convert image to pdf": one PDF for each file the main window handed over, in list order,
// with a recompression per colour class. It stays open after a run, which can be repeated.
class frmConImageToPdf : public ConversionDialog, private ImageToPdfForm {
    Q_OBJECT
public:
    explicit frmConImageToPdf(AppContext &context, QWidget *parent = nullptr);

    // The files to convert; filled before the dialog is shown, read once when it loads.
    SelectedData colSelectedData;

    QGroupBox *fraSetOrder;
    FlexGrid *vsFilesSetOrder;
    QGroupBox *Frame1;
    QCheckBox *chkEncodColor;
    QComboBox *cboEncodTrueColor;
    QCheckBox *chkEncodGraycale;
    QComboBox *cboEncodGraycale;
    QCheckBox *chkEncodBW;
    QComboBox *cboEncodBW;
    QGroupBox *FraFileopen;
    QLineEdit *txtOutputFolder;
    QPushButton *cmdBrowseFolder;
    QCheckBox *chkReplace;
    QCheckBox *ChkDefaultPathConImgTiff;
    QCheckBox *ChkOpenFolderConImgTiff;
    QGroupBox *Frame3;
    QProgressBar *ProgressBar1;
    QGroupBox *Frame4;
    QPushButton *cmdConvert;
    QPushButton *cmdCancel;

    void Form_Load() override;
    void cmdBrowseFolder_Click();
    void cmdconvert_Click();
    // Every way of closing ends here: Form_Unload stores the settings, even in mid-run.
    void done(int result) override;

private:
    void buildFileList();
    void buildImageProcess();
    void buildOutput();
    ImageToPdfChoices choices() const override;
    void setOutputFolder(const QString &folder) override;
    void focusOutputFolder() override;
    void setRunning(bool running) override;
    void setProgressMaximum(int maximum) override;
    Progress &progress() override { return *progress_; }
    void showErrorReport(const QString &title, const QString &heading,
                         const QString &body) override;

    ImageToPdfRun run_;
    // The bar, and the one way to stop a run: closing the dialog.
    std::optional<DialogProgress> progress_;
};

} // namespace pw
