#include "master_layout.h"

#include "failure_log.h"
#include "globals.h"
#include "grid/grid_codes.h"
#include "path_helpers.h"
#include "property_bag.h"
#include "ui_services.h"

#include <QDir>
#include <QFile>

namespace pw {

namespace {

const Unit masterLayout = Unit::module("modMasterLayout");

} // namespace

GridColumns MakeColumnList()
{
    GridColumns list;
    const struct {
        const char *key;
        float width;
        int type;
    } columns[] = {
        {"Name", 1800, flexgrid::kText},
        {"Selection", 250, flexgrid::kBoolean},
        {"Pages", 700, flexgrid::kDecimal},
        {"Location", 1800, flexgrid::kText},
        {"Size (In KB)", 1000, flexgrid::kDecimal},
        {"Type", 1400, flexgrid::kText},
        {"Created Date", 1400, flexgrid::kDate},
        {"Modified Date", 1400, flexgrid::kDate},
    };
    int index = 0;
    for (const auto &c : columns)
        list.Add(c.key, c.width, index++, c.key, c.type, c.key);
    return list;
}

namespace {

void applyStoredWidths(AppContext &context)
{
    context.ColumnWidths = context.settings().LastGridColWidth().split(',');
    if (context.ColumnWidths.size() != context.ColumnList.Count())
        return;
    int i = 0;
    for (GridColumn &column : context.ColumnList)
        column.ColumnWidth = CSng(context.ColumnWidths[i++]);
}

} // namespace

void Main(const QString &commandLine, StartupUi &ui, AppContext &context)
{
    PW_PROCEDURE("Main", masterLayout);
    guarded(pwTail, [&] {
        PW_STEP;
        QString cmdLine = commandLine;
        PW_STEP;
        if (!cmdLine.isEmpty())
            ValidateCmdLine(cmdLine, context);
        PW_STEP;
        if (!EnsureFileStoragePath(context))
            return;
        PW_STEP;
        if (IsVista() && !TestFileWrite(context.FileStoragePathSlash + "Testtemp.sys")) {
            ui.ShowVistaErrDlg();
            return;
        }
        PW_STEP;
        context.AppSettings = std::make_unique<Settings>(context.FileStoragePath, context.ui);
        if (!context.settings().LoadSettings()) {
            // The bar runs first; the defaults are applied only once it has closed.
            ui.ShowProgressDialog();
            context.settings().LoadDefaultSettings();
        }
        PW_STEP;
        context.ColumnList = MakeColumnList();
        PW_STEP;
        applyStoredWidths(context);
        PW_STEP;
        context.FilterPatterns = FillFilterPatterns();
        PW_STEP;
        ui.ShowMainWindow(context);
    });
}

bool ValidateCmdLine(QString &cmdLine, AppContext &context)
{
    bool result = false;
    PW_PROCEDURE("ValidateCmdLine", Unit::module("modMasterLayout"));
    guarded(pwTail, [&] {
        PW_STEP;
        const QStringList files = cmdLine.split('|');
        // Quotation marks are not stripped: a quoted path names no folder and the command
        // line is ignored without a word.
        PW_STEP;
        QString folder = GetParentFolderName(files.first());
        PW_STEP;
        if (folder.isEmpty() || !FolderExists(folder))
            return;
        PW_STEP;
        // The folder tree knows folders by their full path; a relative one passed the test
        // above against the working folder and is made full against it.
        context.CommandLineFolder = QDir(folder).absolutePath();
        context.CommandLineFiles = files;
        result = true;
    });
    return result;
}

bool EnsureFileStoragePath(AppContext &context)
{
    const QString appData = GetSpecialfolder(FolderAppData);
    if (appData.isEmpty()) {
        // No per-user data folder to build the path on.
        context.ui.MsgBox("Unable to get file storage folder path", vbCritical);
        return false;
    }
    context.FileStoragePath = appData + separator() + PAGEWRIGHT_COMPANY + separator() + AppTitle;
    context.FileStoragePathSlash = ValidateDir(context.FileStoragePath);
    SetErrorLogFolder(context.FileStoragePath);
    return CreateFolderPath(context.FileStoragePath);
}

bool IsVista()
{
    return true;
}

bool TestFileWrite(const QString &path)
{
    PropertyBag bag;
    bag.WriteProperty("ID", QStringLiteral("test"));
    const QByteArray bytes = bag.Contents();
    QFile probe(path);
    if (!probe.open(QIODevice::WriteOnly) || probe.write(bytes) != bytes.size())
        return false;
    probe.close();
    return probe.remove();
}

void ApplyFormLanguage(QObject *) {}

} // namespace pw
