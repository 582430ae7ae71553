#include "folder_scan.h"

#include "column_layout.h"

#include "core/failure_log.h"
#include "core/globals.h"
#include "core/path_helpers.h"
#include "core/runtime.h"
#include "core/ui_services.h"
#include "widgets/flex_grid.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace pw {

namespace {

const Unit mainForm = Unit::form("frmMain");

FileFacts factsOf(const QFileInfo &info)
{
    const QDateTime birth = info.birthTime();
    return {birth.isValid() ? birth : info.metadataChangeTime(), info.lastModified(),
            info.lastRead(), info.size()};
}

} // namespace

void FolderScan::cmdSearch_Click()
{
    PW_PROCEDURE("cmdSearch_Click", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        FlexGrid &grid = catalogue_.grid();
        if (host_.searchCaption() == "&Search") {
            SearchCancelled = false;
            host_.setSearchCaption("&Cancel");
            SearchStopped = false;
            catalogue_.PdfPageTotal = 0;
            catalogue_.TiffPageTotal = 0;
            PW_STEP;
            MainLoadFiles(host_.selectedFolder(), true);
            host_.setSearchCaption("&Search");
        } else {
            SearchCancelled = true;
            SearchStopped = true;
            grid.setRedraw(true);
            grid.setVisible(true);
        }
        PW_STEP;
        // A cancelled search passes here twice: in the nested press and when the walk returns.
        grid.setCol(catalogue_.columns().name);
        grid.setSort(AppSettings->SortbyNumeric() != 0 ? SortNumericAscending
                                                       : SortGenericAscending);
        host_.SetStatusText(catalogue_.getSelectedFileinfo());
    });
}

void FolderScan::MainLoadFiles(const QString &path, bool clearFirst)
{
    PW_PROCEDURE("MainLoadFiles", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        FlexGrid &grid = catalogue_.grid();
        SearchCancelled = false;
        SearchStopped = false;
        host_.EnableSearchControls(false);
        host_.setBusyCursor(true);
        const QString folder = path == "Desktop" ? GetSpecialfolder(FolderDesktop) : path;
        catalogue_.columns().refresh();
        ColumnVisibilityList = Split(AppSettings->ColumnVisibility(), ",");
        PW_STEP;
        host_.showLoading();
        if (clearFirst)
            grid.setRows(1);
        DoEvents();
        PW_STEP;
        grid.setRedraw(false);
        grid.setVisible(false);
        LoadFiles(folder, clearFirst);
        PW_STEP;
        grid.setRedraw(true);
        grid.setVisible(true);
        host_.hideLoading();
        if (SearchCancelled)
            MsgBox("Process is terminated.", vbInformation);
        host_.setBusyCursor(false);
        host_.EnableSearchControls(true);
    });
}

bool FolderScan::passesAdvanceOptions(const QFileInfo &file)
{
    // The options are read afresh for every file; the file's dates only when they count.
    const AdvanceOptions options = host_.advanceOptions();
    return !AdvanceOptionsActive(options) ||
           IsFileMatchWithAdvanceOptions(factsOf(file), options, host_.today());
}

std::optional<QStringList> FolderScan::patterns()
{
    return GenerateFilterPatternArray(host_.filterListIndex() == 0 ? FilterPatterns[0]
                                                                   : host_.filterText());
}

void FolderScan::LoadFiles(const QString &path, bool clearFirst)
{
    PW_PROCEDURE("LoadFiles", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        if (SearchCancelled)
            return;
        const std::optional<QStringList> filter = patterns();
        FlexGrid &grid = catalogue_.grid();
        if (clearFirst)
            grid.setRows(1);
        PW_STEP;
        QDir dir(path);
        if (!dir.exists())
            throw RuntimeError::fromNumber(76);
        // One listing serves the files and then the subfolders; its facts are the files' facts.
        const QFileInfoList entries = dir.entryInfoList(
            QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System, QDir::Unsorted);
        for (const QFileInfo &file : entries) {
            PW_STEP;
            if (file.isDir())
                continue;
            if (SearchCancelled)
                return;
            if (IsFileMatchWithFilterPattern(file.fileName(), filter) && passesAdvanceOptions(file) &&
                GetFindData(file) && !SearchStopped) {
                catalogue_.AddFileToGrid(path, file);
                host_.updateLoading(grid.Rows() - 1);
            }
            DoEvents();
        }
        PW_STEP;
        if (!host_.searchSubFolders())
            return;
        for (const QFileInfo &sub : entries)
            // Linked folders are not followed: a link back up the tree would never end.
            if (sub.isDir() && !sub.isSymLink())
                LoadFiles(sub.filePath(), false);
    });
}

bool FolderScan::GetFindData(const QFileInfo &file)
{
    // A name the file system's encoding can't represent never reaches the libraries.
    const QString name = file.fileName();
    return QFile::decodeName(QFile::encodeName(name)) == name && file.exists();
}

} // namespace pw
