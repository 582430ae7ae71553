#pragma once

#include <QDialog>

class FlexGrid;
class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QTabWidget;

namespace pw {

struct AppContext;

// "Set Preferences": the catalogue's columns (order, visibility, widths), the numeric name
// sort, the window state at start, the startup folder, and the size and resolution of the
// pages that Image to PDF, Merge and Folder Conversion make from images. It edits a grid of its
// own; the settings are written on Save, and the caller refreshes the catalogue when
// IsPreferanceChange says so.
class frmPreferences : public QDialog {
    Q_OBJECT
public:
    explicit frmPreferences(AppContext &context, QWidget *parent = nullptr);

    // Set by Save and by Set Default; a Cancel afterwards does not undo it.
    bool IsPreferanceChange = false;

    QTabWidget *tabPreferences;
    QGroupBox *fraColumnSettings;
    FlexGrid *vsColumnSettings;
    QPushButton *cmdUp;
    QPushButton *cmdDown;
    QPushButton *cmdSelectAll;
    QPushButton *cmdDeselectAll;
    QPushButton *cmdInvertSelection;
    QCheckBox *chkLastGridColWidth;
    QCheckBox *chkSortbyNumeric;
    QGroupBox *fraWindowState;
    QCheckBox *chkDefaultWindowState;
    QComboBox *cmbDefaultWindowState;
    QGroupBox *fraProgram;
    QLineEdit *txtStartUpFolder;
    QPushButton *cmdStartupFolder;
    QLabel *lblExportLocation;
    QLineEdit *txtExportLocation;
    QGroupBox *fraSearchable;
    QCheckBox *chkSearchablePdf;
    QLineEdit *txtOcrLanguage;
    QPushButton *cmdExportLocation;
    // Beside the classic settings: the size and resolution of the pages made from images.
    QGroupBox *fraPages;
    QComboBox *cmbPageSize;
    QSpinBox *spnImageResolution;
    QPushButton *cmdOK;
    QPushButton *cmdCancel;
    QPushButton *cmdSetDefault;

    void chkDefaultWindowState_Click();
    void cmdUp_Click();
    void cmdDown_Click();
    void cmdSelectAll_Click();
    void cmdDeselectAll_Click();
    void cmdInvertSelection_Click();
    void cmdStartupFolder_Click();
    void cmdOk_Click();
    void cmdSetDefault_Click();

private:
    QWidget *buildGridPage();
    QWidget *buildGeneralPage();
    void FillComboBox();
    void loadControls();
    void InitColumnSettings();
    void moveCurrentRow(int step);
    void setAllVisible(int state);
    void vsColumnSettings_MouseDown(int button);

    AppContext &context_;
};

} // namespace pw
