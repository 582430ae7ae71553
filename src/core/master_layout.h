#pragma once
// Process start: from the command line to the shown main window.

#include "app_context.h"

#include <QObject>
#include <QString>

namespace pw {

// The windows start-up shows; the application provides them, tests record them.
class StartupUi {
public:
    virtual ~StartupUi() = default;
    virtual void ShowVistaErrDlg() = 0;    // modal: the storage folder cannot be written
    virtual void ShowProgressDialog() = 0; // modal: first start, defaults about to be applied
    virtual void ShowMainWindow(AppContext &context) = 0; // modeless
};

// The start-up steps in their fixed order, filling `context`. Returns when the main window is
// shown, or earlier, silently, when a step fails.
void Main(const QString &commandLine, StartupUi &ui, AppContext &context);

// The catalogue's eight columns at their built-in widths.
GridColumns MakeColumnList();

// Parses "path|path|..."; true when the first path's parent folder exists, and only then
// are CommandLineFolder and CommandLineFiles set.
bool ValidateCmdLine(QString &cmdLine, AppContext &context);
// Builds FileStoragePath and FileStoragePathSlash, creates the folder and sends the failure
// log there; false ends the start.
bool EnsureFileStoragePath(AppContext &context);
// The storage probe runs on every start here; there is no older system to spare it.
bool IsVista();
// Writes a small block to `path` and deletes it again; false on any failure, silently.
bool TestFileWrite(const QString &path);
// The seam where a translation pass would run over a window's controls. Does nothing.
void ApplyFormLanguage(QObject *form);

} // namespace pw
