#include "folder_scan.h"

#include "column_layout.h"

#include "backends/common/run_time_errors.h"
#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "core/runtime.h"
#include "grid/flex_grid_model.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <filesystem>
#include <system_error>

namespace pw {

namespace {

const Unit mainForm = Unit::form("frmMain");

FileFacts factsOf(const QFileInfo &info)
{
    return {CreatedTime(info), info.lastModified(), info.lastRead(), info.size()};
}

// QDir lists a folder that it cannot open or read as an empty one; opening it here first
// turns that into a failure that reaches the log.
void throwIfUnreadable(const QString &folder)
{
    std::error_code error;
    const std::filesystem::directory_iterator probe(
        std::filesystem::path(QFile::encodeName(folder).toStdString()), error);
    if (!error)
        return;
    throw RuntimeError::fromNumber(
        error == std::errc::permission_denied ? rte::kPermissionDenied : rte::kPathFileAccessError);
}

} // namespace

void FolderScan::cmdSearch_Click()
{
    PW_PROCEDURE("cmdSearch_Click", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        if (!searching_) {
            searching_ = true;
            search_.emplace(host_);
            host_.setSearchCaption("&Cancel");
            catalogue_.PdfPageTotal = 0;
            catalogue_.TiffPageTotal = 0;
            PW_STEP;
            MainLoadFiles(host_.selectedFolder(), true, *search_);
            searching_ = false;
            host_.setSearchCaption("&Search");
        } else {
            search_->cancel();
            host_.endBulkUpdate();
        }
        PW_STEP;
        // A cancelled search passes here twice: in the nested press and when the walk returns.
        catalogue_.SortSearchResult(host_.currentColumn());
        host_.SetStatusText(catalogue_.getSelectedFileinfo());
    });
}

void FolderScan::MainLoadFiles(const QString &path, bool clearFirst, Progress &status)
{
    PW_PROCEDURE("MainLoadFiles", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        FlexGridModel &model = catalogue_.model();
        AppContext &context = catalogue_.context();
        host_.EnableSearchControls(false);
        host_.setBusyCursor(true);
        const QString folder = ResolveDesktop(path);
        entered_.clear();
        catalogue_.columns().refresh(context.ColumnList);
        context.ColumnVisibilityList = Split(context.settings().ColumnVisibility(), ",");
        PW_STEP;
        host_.showLoading();
        if (clearFirst)
            model.setRows(1);
        context.ui.DoEvents();
        PW_STEP;
        host_.beginBulkUpdate();
        LoadFiles(folder, clearFirst, status);
        PW_STEP;
        host_.endBulkUpdate();
        host_.hideLoading();
        if (status.cancelRequested())
            context.ui.MsgBox("Process is terminated.", vbInformation);
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
    return GenerateFilterPatternArray(
        host_.filterListIndex() == 0 ? catalogue_.context().FilterPatterns[0] : host_.filterText());
}

void FolderScan::LoadFiles(const QString &path, bool clearFirst, Progress &status)
{
    PW_PROCEDURE("LoadFiles", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        if (status.cancelRequested())
            return;
        const std::optional<QStringList> filter = patterns();
        FlexGridModel &model = catalogue_.model();
        if (clearFirst)
            model.setRows(1);
        PW_STEP;
        QDir dir(path);
        if (!dir.exists())
            throw RuntimeError::fromNumber(rte::kPathNotFound);
        throwIfUnreadable(path);
        if (FolderIdentity identity;
            IdentifyFolder(path, identity) && !entered_.insert(identity).second)
            return;
        // One listing serves the files and then the subfolders; its facts are the files' facts.
        const QFileInfoList entries = dir.entryInfoList(
            QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System, QDir::Unsorted);
        for (const QFileInfo &file : entries) {
            PW_STEP;
            if (file.isDir())
                continue;
            if (status.cancelRequested())
                return;
            if (IsFileMatchWithFilterPattern(file.fileName(), filter) &&
                passesAdvanceOptions(file) && GetFindData(file)) {
                catalogue_.AddFileToGrid(path, file);
                status.setValue(model.rows() - 1);
            }
            catalogue_.context().ui.DoEvents();
        }
        PW_STEP;
        if (!host_.searchSubFolders())
            return;
        for (const QFileInfo &sub : entries)
            if (sub.isDir())
                LoadFiles(sub.filePath(), false, status);
    });
}

bool FolderScan::GetFindData(const QFileInfo &file)
{
    // A name the file system's encoding can't represent never reaches the libraries.
    const QString name = file.fileName();
    return QFile::decodeName(QFile::encodeName(name)) == name && file.exists();
}

} // namespace pw
