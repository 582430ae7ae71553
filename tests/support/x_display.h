#pragma once
// A private X server managed by openbox, for the few window tests whose fault only a real
// window manager shows (frame against client geometry, its states, minimising). The test main
// makes one for the tests that ask for the xcb platform; they skip when it cannot be made.

#include <QProcess>

class XDisplay {
public:
    // Starts Xvfb on a free display, then openbox on it, and points DISPLAY there.
    XDisplay();
    ~XDisplay();
    QString whyNot; // why the display could not be made; empty when it is ready

private:
    QProcess server_, manager_;
};

// True when this process draws on such a display.
bool underWindowManager();
// A property of the X window `id` as xprop prints it, e.g. "WM_STATE" holds "Iconic" once the
// window is minimised.
QString xProperty(unsigned long id, const QString &name);
