#pragma once

#include <QDialog>

class QLabel;
class QProgressBar;
class QTimer;

namespace pw {

// The first-start bar: 50 ticks of its timer, then it closes itself. It shows no real work;
// the defaults are applied after it has gone.
class frmProgressDialog : public QDialog {
    Q_OBJECT
public:
    explicit frmProgressDialog(QWidget *parent = nullptr);

    QLabel *Label1;
    QProgressBar *ProgressBar1;
    QTimer *Timer1;

    void Form_Load();
    void Timer1_Timer();
    // Escape and the window manager's close ask for a cancel, which the bar does not have.
    void reject() override {}

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // A mouse action never cuts the bar short: it closes the window only once it is full.
    void closeIfFull();
};

} // namespace pw
