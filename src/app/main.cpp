#include "allocator_options.h"
#include "core/app_context.h"
#include "core/command_line.h"
#include "core/master_layout.h"
#include "main_window/program_resources.h"
#include "main_window/qt_ui_services.h"
#include "main_window/window_startup.h"
#include "program_info.h"

#include <QApplication>

namespace {

const char *const help =
    "Usage: pagewright [FILE...]\n"
    "       pagewright [FILE[|FILE...]]\n"
    "Finds image, TIFF and PDF files on your disks and turns images into PDF documents.\n"
    "\n"
    "Opens the main window in the start folder of the preferences (your home folder until\n"
    "you choose another). Given files, one an argument or joined by \"|\", it opens in the\n"
    "folder of the first one with each of them checked in the list.\n"
    "\n"
    "Options:\n"
    "  -h, --help     print this help and exit\n"
    "  -V, --version  print the version and exit\n"
    "\n"
    "pagewright-batch does the same conversions without a window.\n";

} // namespace

int main(int argc, char **argv)
{
    pw::SetAllocatorOptions();
    if (pw::AnswerInfoOption(argc, argv, "pagewright", help))
        return 0;
    QApplication app(argc, argv);
    app.setApplicationName("pagewright");
    app.setWindowIcon(pw::ProgramIcon());
    pw::QtUiServices services;
    pw::AppContext context(services);

    pw::WindowStartup startup;
    pw::Main(pw::WindowCommandLine(app.arguments().mid(1)), startup, context);
    if (!startup.mainWindowShown())
        return 0;
    return app.exec();
}
