#pragma once

#include "logic/rename_by_pages.h"

#include <QDialog>

class FlexGrid;
class QCheckBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;

namespace pw {

struct AppContext;

// Renames the files handed to it so that each name carries its page count. The rows must be in
// colSelectedData before the window is first shown.
class frmRenameFiles : public QDialog {
    Q_OBJECT
public:
    explicit frmRenameFiles(AppContext &context, QWidget *parent = nullptr);

    SelectedData colSelectedData;

    void Form_Load();
    void OptAtChrPos1_Click();
    void OptPreAsPageCnt_Click();
    void OptSufAsPageCnt_Click();
    void cmdPreview_Click();
    void cmdOk_Click();

    FlexGrid *vsFilesSetOrder;
    QGroupBox *Frame1;
    QLabel *Label1;
    QLineEdit *txtPaddingMask;
    QRadioButton *OptAtChrPos1;
    QLineEdit *txtCharPos;
    QLabel *Label3;
    QLineEdit *txtSepAtCharPos;
    QLabel *Label4;
    QCheckBox *chkPrefix;
    QCheckBox *chkSuffix;
    QRadioButton *OptPreAsPageCnt;
    QLineEdit *txtSepPrefix;
    QRadioButton *OptSufAsPageCnt;
    QLineEdit *txtSepSuffix;
    QPushButton *cmdPreview;
    QPushButton *cmdOk;
    QPushButton *cmdCancel;
    QLabel *Label7, *Label2, *Label5, *Label6;

protected:
    void showEvent(QShowEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildPattern();
    QWidget *buildNote();
    // Enables the fields of one option: at a position, as prefix or as suffix.
    void enableFields(bool atPosition, bool prefix, bool suffix);
    RenamePattern pattern() const;

    AppContext &context_;
    RenameList list_;
    bool loaded_ = false;
};

} // namespace pw
