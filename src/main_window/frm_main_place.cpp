// The main window's place on the screen: restored at start, stored as the user moves and
// sizes it, and stored once more when it closes.
#include "frm_main.h"

#include "core/app_context.h"
#include "core/failure_log.h"
#include "grid/grid_codes.h"
#include "widgets/flex_grid.h"

#include <QApplication>
#include <QCloseEvent>
#include <QKeyEvent>
#include <QScreen>
#include <QWindow>

#include <algorithm>
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

Qt::WindowState qtState(int stored)
{
    switch (stored) {
    case StateMaximised:
        return Qt::WindowMaximized;
    case StateMinimised:
        return Qt::WindowMinimized;
    default:
        return Qt::WindowNoState;
    }
}

// The top edge is where the window is gripped to move it: it has to be on a screen. A stored
// place may be off every screen after a screen was unplugged or its resolution lowered.
bool onSomeScreen(const QRect &place)
{
    const QRect topEdge(place.left(), place.top(), place.width(), 1);
    return std::ranges::any_of(QGuiApplication::screens(), [&](const QScreen *screen) {
        return screen->availableGeometry().intersects(topEdge);
    });
}

} // namespace

int frmMain::dpi() const
{
    return logicalDpiX() > 0 ? logicalDpiX() : 96;
}

void frmMain::SetWindowState()
{
    PW_PROCEDURE("SetWindowState", Unit::form("frmMain"));
    guarded(pwTail, [&] {
        PW_STEP;
        const auto pixels = [this](int twips) { return flexgrid::TwipsToPixels(twips, dpi()); };
        const int left = context_.settings().LastWindowLeft(),
                  top = context_.settings().LastWindowTop();
        const int width = context_.settings().LastWindowWidth(),
                  height = context_.settings().LastWindowHeight();
        // The place is the client area's, as it was stored: the frame is the window
        // manager's and is not known before the window is shown. A place on no screen is
        // left to the window manager to choose.
        const auto moveToStored = [&] {
            const QRect place(pixels(left), pixels(top), pixels(width), pixels(height));
            if (onSomeScreen(place))
                setGeometry(place);
            else
                resize(place.size());
        };
        // A window minimised before it is mapped comes up normal under X11: that state waits
        // for the map.
        const auto enterState = [this](Qt::WindowState state) {
            if (state == Qt::WindowMinimized)
                minimiseWhenMapped_ = true;
            else
                setWindowState(state);
        };
        PW_STEP;
        switch (context_.settings().WindowStateValue()) {
        case 0: // "Maximum"
            moveToStored();
            enterState(Qt::WindowMaximized);
            break;
        case 1: // "Minimum"
            moveToStored();
            enterState(Qt::WindowMinimized);
            break;
        case 2: // "Last Remembered Size"
            if (left == 0 && top == 0 && width == 0 && height == 0) {
                enterState(Qt::WindowMaximized);
                break;
            }
            moveToStored();
            enterState(qtState(context_.settings().LastWindowState()));
            break;
        default:
            break;
        }
    });
}

void frmMain::storePlace(FailureTail &pwTail)
{
    PW_STEP;
    const int state = stateOf(this);
    if (state != StateMinimised)
        context_.settings().setLastWindowState(state);
    if (state != StateNormal)
        return;
    PW_STEP;
    const auto twips = [this](int pixels) { return flexgrid::PixelsToTwips(pixels, dpi()); };
    Settings &settings = context_.settings();
    const QRect place = geometry();
    settings.setLastWindowLeft(twips(place.x()));
    settings.setLastWindowTop(twips(place.y()));
    settings.setLastWindowWidth(twips(place.width()));
    settings.setLastWindowHeight(twips(place.height()));
}

void frmMain::Form_Resize()
{
    if (!WindowReady)
        return;
    PW_PROCEDURE("Form_Resize", Unit::form("frmMain"));
    guarded(pwTail, [&] { storePlace(pwTail); });
}

void frmMain::Form_Unload()
{
    // Every save here may fail, down to the settings' own recovery; the failure ends this
    // step and the close goes on.
    PW_PROCEDURE("Form_Unload", Unit::form("frmMain"));
    guarded(pwTail, [&] {
        storePlace(pwTail);
        PW_STEP;
        catalogue_.StoreColumnWidths();
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

void frmMain::m_c_ExitSizeMove()
{
    PW_PROCEDURE("m_c_ExitSizeMove", Unit::form("frmMain"));
    guarded(pwTail, [&] { storePlace(pwTail); });
}

void frmMain::changeEvent(QEvent *event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isActiveWindow())
        Form_Activate();
    if (event->type() == QEvent::WindowStateChange)
        Form_Resize();
}

void frmMain::moveEvent(QMoveEvent *event)
{
    QMainWindow::moveEvent(event);
    // The end of a burst of moves stands for the end of a drag, and the place is stored then.
    // Until the window is ready the moves are the window manager placing and maximising it,
    // and what they pass through is no place of the user's.
    if (WindowReady)
        sizeMoveEnd_.start();
}

void frmMain::resizeEvent(QResizeEvent *event)
{
    QMainWindow::resizeEvent(event);
    Form_Resize();
    if (WindowReady)
        sizeMoveEnd_.start();
}

void frmMain::closeEvent(QCloseEvent *event)
{
    sizeMoveEnd_.stop();
    Form_Unload();
    QMainWindow::closeEvent(event);
}

void frmMain::minimiseOnceMapped()
{
    if (!minimiseWhenMapped_ || !windowHandle()->isExposed())
        return;
    minimiseWhenMapped_ = false;
    // Not inside the expose event that is mapping the window.
    QTimer::singleShot(0, this, &QWidget::showMinimized);
}

bool frmMain::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Expose && watched == windowHandle())
        minimiseOnceMapped();
    // Ctrl+A and Ctrl+D, with Ctrl alone held, while the grid has the focus; in a text box
    // they stay the box's own keys.
    if (event->type() == QEvent::KeyPress || event->type() == QEvent::ShortcutOverride) {
        auto *key = static_cast<QKeyEvent *>(event);
        auto *widget = qobject_cast<QWidget *>(watched);
        const bool inGrid =
            widget && (widget == grdSearchList || grdSearchList->isAncestorOf(widget));
        if (inGrid && key->modifiers() == Qt::ControlModifier &&
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
