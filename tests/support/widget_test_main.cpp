// Window tests run under a QApplication on the offscreen platform; a test that asks for xcb gets
// a private X server, never the developer's own display, or offscreen when none starts.
#include "test_environment.h"
#include "x_display.h"

#include <QApplication>

#include <iostream>
#include <optional>

int main(int argc, char **argv)
{
    std::optional<XDisplay> display;
    if (qgetenv("QT_QPA_PLATFORM") == "xcb" && !display.emplace().whyNot.isEmpty()) {
        std::cerr << "No X display: " << display->whyNot.toStdString() << '\n';
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    return RunTests<QApplication>(argc, argv);
}
