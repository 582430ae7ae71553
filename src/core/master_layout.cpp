#include "master_layout.h"

#include "failure_log.h"
#include "globals.h"
#include "path_helpers.h"
#include "property_bag.h"
#include "ui_services.h"

#include <QFile>

namespace pw {

namespace {

const Unit masterLayout = Unit::module("modMasterLayout");

} // namespace

void MakeColumnList()
{
    ColumnList = std::make_unique<GridColumns>();
    const struct {
        const char *key;
        float width;
        int type;
    } columns[] = {
        {"Name", 1800, DataTypeText},         {"Selection", 250, DataTypeBoolean},
        {"Pages", 700, DataTypeDecimal},      {"Location", 1800, DataTypeText},
        {"Size (In KB)", 1000, DataTypeDecimal}, {"Type", 1400, DataTypeText},
        {"Created Date", 1400, DataTypeDate}, {"Modified Date", 1400, DataTypeDate},
    };
    int index = 0;
    for (const auto &c : columns)
        ColumnList->Add(c.key, c.width, index++, c.key, c.type, c.key);
}

namespace {

void applyStoredWidths()
{
    ColumnWidths = AppSettings->LastGridColWidth().split(',');
    if (ColumnWidths.size() != ColumnList->Count())
        return;
    int i = 0;
    for (GridColumn &column : *ColumnList)
        column.ColumnWidth = CSng(ColumnWidths[i++]);
}

} // namespace

void Main(const QString &commandLine, StartupUi &ui)
{
    PW_PROCEDURE("Main", masterLayout);
    guarded(pwTail, [&] {
        PW_STEP;
        QString cmdLine = commandLine;
        PW_STEP;
        if (!cmdLine.isEmpty())
            ValidateCmdLine(cmdLine);
        PW_STEP;
        if (!EnsureFileStoragePath())
            return;
        PW_STEP;
        FileStoragePathSlash = ValidateDir(FileStoragePath);
        PW_STEP;
        if (IsVista() && !TestFileWrite(FileStoragePathSlash + "Testtemp.sys")) {
            ui.ShowVistaErrDlg();
            return;
        }
        PW_STEP;
        AppSettings = std::make_unique<Settings>();
        if (!AppSettings->LoadSettings()) {
            // The bar runs first; the defaults are applied only once it has closed.
            ui.ShowProgressDialog();
            AppSettings->LoadDefaultSettings();
        }
        PW_STEP;
        MakeColumnList();
        PW_STEP;
        applyStoredWidths();
        PW_STEP;
        FillFilterPatterns();
        PW_STEP;
        PdfPageCounter = std::make_unique<::PdfPageCounter>();
        TiffPageCounter = std::make_unique<::TiffPageCounter>();
        PW_STEP;
        ui.ShowMainWindow();
    });
}

bool ValidateCmdLine(QString &cmdLine)
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
        CommandLineFolder = GetParentFolderName(files.first());
        CommandLineFiles = files;
        result = true;
    });
    return result;
}

bool EnsureFileStoragePath()
{
    const QString appData = GetSpecialfolder(FolderAppData);
    if (appData.isEmpty()) {
        // No per-user data folder to build the path on.
        MsgBox("Unable to get file storage folder path", vbCritical);
        return false;
    }
    FileStoragePath = appData + separator() + PAGEWRIGHT_COMPANY + separator() + AppTitle;
    return CreateFolderPath(FileStoragePath);
}

bool IsVista() { return true; }

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
