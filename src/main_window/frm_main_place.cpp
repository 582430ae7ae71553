// The main window's place on the screen: restored at start, stored as the user moves and
// sizes it, and stored once more when it closes.
#include "frm_main.h"

#include "core/failure_log.h"
#include "core/globals.h"

#include <QApplication>
#include <QCloseEvent>
#include <QKeyEvent>
#include <QScreen>

#include <cmath>

namespace pw {

namespace {

enum WindowStateValue : int { StateNormal = 0, StateMinimised = 1, StateMaximised = 2 };

int stateOf(const QWidget *w)
{
    if (w->isMinimized())
        return StateMinimised;
    if (w->isMaximized())
        return StateMaximised;
    return StateNormal;
}

} // namespace

int frmMain::twipsPerPixel() const
{
    const int dpi = logicalDpiX() > 0 ? logicalDpiX() : 96;
    return std::max(1, 1440 / dpi);
}

void frmMain::SetWindowState()
{
    PW_PROCEDURE("SetWindowState", Unit::form("frmMain"));
    guarded(pwTail, [&] {
        PW_STEP;
        const int tpp = twipsPerPixel();
        const int left = AppSettings->LastWindowLeft(), top = AppSettings->LastWindowTop();
        const int width = AppSettings->LastWindowWidth(),
                  height = AppSettings->LastWindowHeight();
        const auto moveToStored = [&] {
            move(left / tpp, top / tpp);
            resize(width / tpp, height / tpp);
        };
        PW_STEP;
        switch (AppSettings->WindowStateValue()) {
        case 0: // "Maximum"
            moveToStored();
            setWindowState(Qt::WindowMaximized);
            break;
        case 1: // "Minimum"
            moveToStored();
            setWindowState(Qt::WindowMinimized);
            break;
        case 2: // "Last Remembered Size"
            if (left == 0 && top == 0 && width == 0 && height == 0) {
                setWindowState(Qt::WindowMaximized);
                break;
            }
            moveToStored();
            setWindowState(AppSettings->LastWindowState() == StateMaximised
                               ? Qt::WindowMaximized
                               : AppSettings->LastWindowState() == StateMinimised
                                     ? Qt::WindowMinimized
                                     : Qt::WindowNoState);
            break;
        default:
            break;
        }
    });
}

void frmMain::storePlace(bool gated)
{
    if (gated && !WindowReady)
        return;
    FailureTail pwTail{gated ? "Form_Resize" : "Form_Unload", Unit::form("frmMain")};
    guarded(pwTail, [&] {
        PW_STEP;
        const int state = stateOf(this);
        if (state != StateMinimised)
            AppSettings->setLastWindowState(state);
        if (state != StateNormal)
            return;
        PW_STEP;
        const int tpp = twipsPerPixel();
        AppSettings->setLastWindowLeft(pos().x() * tpp);
        AppSettings->setLastWindowTop(pos().y() * tpp);
        AppSettings->setLastWindowWidth(width() * tpp);
        AppSettings->setLastWindowHeight(height() * tpp);
    });
}

void frmMain::Form_Activate()
{
    // The load step's placement and the first activation must not overwrite the stored
    // place with passing values: resizes are stored only from the second activation on.
    ++activateCount_;
    if (!WindowReady && activateCount_ == 2)
        WindowReady = true;
}

void frmMain::m_c_ExitSizeMove() { storePlace(false); }

void frmMain::changeEvent(QEvent *event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isActiveWindow())
        Form_Activate();
    if (event->type() == QEvent::WindowStateChange)
        storePlace(true);
}

void frmMain::moveEvent(QMoveEvent *event)
{
    QMainWindow::moveEvent(event);
    // The end of a burst of moves is the end of a drag: the place is stored then.
    if (loaded_ && isVisible())
        sizeMoveEnd_.start();
}

void frmMain::resizeEvent(QResizeEvent *event)
{
    QMainWindow::resizeEvent(event);
    storePlace(true);
    if (loaded_ && isVisible())
        sizeMoveEnd_.start();
}

void frmMain::closeEvent(QCloseEvent *event)
{
    sizeMoveEnd_.stop();
    storePlace(false);
    catalogue_.StoreColumnWidths();
    QMainWindow::closeEvent(event);
}

bool frmMain::eventFilter(QObject *watched, QEvent *event)
{
    // Ctrl+A and Ctrl+D, with Ctrl alone held, anywhere in this window.
    if (event->type() == QEvent::KeyPress || event->type() == QEvent::ShortcutOverride) {
        auto *key = static_cast<QKeyEvent *>(event);
        auto *widget = qobject_cast<QWidget *>(watched);
        const bool mine = widget && widget->window() == this;
        if (mine && key->modifiers() == Qt::ControlModifier &&
            (key->key() == Qt::Key_A || key->key() == Qt::Key_D)) {
            if (event->type() == QEvent::ShortcutOverride) {
                event->accept();
                return false;
            }
            if (key->key() == Qt::Key_A)
                mnuCtxSelectAll_Click();
            else
                mnuCtxDeSelectAll_Click();
            return true;
        }
    }
    return QMainWindow::eventFilter(watched, event);
}

} // namespace pw
