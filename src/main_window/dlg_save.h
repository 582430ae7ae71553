#pragma once

#include "catalogue/list_export.h"

#include <QDialog>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTreeView;

namespace pw {

struct AppContext;
class FolderTreeModel;

// "Export": where the checked rows go, under which name and type, and with which column
// separator for the types that ask for one.
class dlgSave : public QDialog {
    Q_OBJECT
public:
    explicit dlgSave(AppContext &context, QWidget *parent = nullptr);

    // Read by the caller once the dialog has closed.
    QString filename;
    bool OpenFile = false;
    QString ColumnSaperator;
    ExportTarget target() const { return {filename, OpenFile, ColumnSaperator}; }

    QTreeView *ftvFolder;
    QLineEdit *txtFileName;
    QComboBox *cboFileType;
    QLabel *lblDelimeter;
    QLineEdit *txtColSaperator;
    QCheckBox *ChkOpenFile;
    QPushButton *cmdSave;
    QPushButton *cmdCancel;

    void cboFileType_Click();
    bool Validate();
    void cmdSave_Click();
    void cmdCancel_Click();
    // Every way of closing ends here (Form_Unload): a close without Save is a cancel.
    void done(int result) override;

    // The characters a file name may not hold, refused as they are typed.
    static bool IsReservedChar(int keyAscii);
    // "Text Document (*.txt)" gives "txt".
    static QString extensionOf(const QString &entry);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void Form_Load();

    AppContext &context_;
    FolderTreeModel *folders_;
};

} // namespace pw
