#include "core/app_context.h"
#include "core/master_layout.h"
#include "main_window/qt_ui_services.h"
#include "main_window/window_startup.h"

#include <QApplication>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    app.setApplicationName("pagewright");
    pw::QtUiServices services;
    pw::AppContext context(services);

    // The command line is one string of paths joined by "|"; a shell that split it at
    // blanks gets it joined back as typed.
    QStringList words = app.arguments().mid(1);
    pw::WindowStartup startup;
    pw::Main(words.join(' '), startup, context);
    if (!startup.mainWindowShown())
        return 0;
    return app.exec();
}
