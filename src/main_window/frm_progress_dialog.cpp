#include "frm_progress_dialog.h"

#include "core/failure_log.h"

#include <QEvent>
#include <QLabel>
#include <QProgressBar>
#include <QTimer>
#include <QVBoxLayout>

namespace pw {

frmProgressDialog::frmProgressDialog(QWidget *parent)
    : QDialog(parent), Label1(new QLabel("Loading With Default Settings", this)),
      ProgressBar1(new QProgressBar(this)), Timer1(new QTimer(this))
{
    // No title bar: the window has no title text (an empty one would show the program's name
    // under X11) and no close box, as there is nothing to cancel.
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint);
    QFont font("MS Sans Serif");
    font.setStyleHint(QFont::SansSerif);
    Label1->setFont(font);
    // The design-time range; the load step narrows it to 50 ticks.
    ProgressBar1->setRange(0, 100);
    ProgressBar1->setValue(0);
    ProgressBar1->setTextVisible(false);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(Label1);
    layout->addWidget(ProgressBar1);
    setFixedSize(360, 90);
    Label1->installEventFilter(this);
    ProgressBar1->installEventFilter(this);
    Timer1->setInterval(10);
    connect(Timer1, &QTimer::timeout, this, &frmProgressDialog::Timer1_Timer);
    Form_Load();
    Timer1->start();
}

void frmProgressDialog::Form_Load()
{
    PW_PROCEDURE("Form_Load", Unit::form("frmProgressDialog"));
    guarded(pwTail, [&] {
        PW_STEP;
        ProgressBar1->setMinimum(0);
        ProgressBar1->setMaximum(50);
    });
}

void frmProgressDialog::Timer1_Timer()
{
    PW_PROCEDURE("Timer1_Timer", Unit::form("frmProgressDialog"));
    guarded(pwTail, [&] {
        PW_STEP;
        if (!(ProgressBar1->maximum() > ProgressBar1->value())) {
            ProgressBar1->setValue(ProgressBar1->maximum());
            Timer1->stop();
            accept();
            return;
        }
        PW_STEP;
        ProgressBar1->setValue(ProgressBar1->value() + 1);
    });
}

void frmProgressDialog::closeIfFull()
{
    if (!(ProgressBar1->maximum() > ProgressBar1->value()))
        accept();
}

void frmProgressDialog::mousePressEvent(QMouseEvent *)
{
    closeIfFull();
}
void frmProgressDialog::mouseMoveEvent(QMouseEvent *)
{
    closeIfFull();
}

bool frmProgressDialog::eventFilter(QObject *watched, QEvent *event)
{
    if ((watched == Label1 && event->type() == QEvent::MouseButtonPress) ||
        (watched == ProgressBar1 && event->type() == QEvent::MouseButtonPress))
        closeIfFull();
    return QDialog::eventFilter(watched, event);
}

} // namespace pw
