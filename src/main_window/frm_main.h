#pragma once

#include <QMainWindow>

namespace pw {

// The main window.
class frmMain : public QMainWindow {
    Q_OBJECT
public:
    explicit frmMain(QWidget *parent = nullptr);
};

} // namespace pw
