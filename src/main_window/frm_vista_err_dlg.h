#pragma once

#include <QDialog>

class QLabel;
class QPushButton;

namespace pw {

// Shown when the storage folder cannot be written; the program ends once it closes.
class FrmVistaErrDlg : public QDialog {
    Q_OBJECT
public:
    explicit FrmVistaErrDlg(QWidget *parent = nullptr);

    QLabel *Label1;
    QPushButton *cmdOK;
};

} // namespace pw
