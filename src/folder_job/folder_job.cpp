#include "folder_job.h"

#include "clone_list.h"
#include "clone_scan.h"
#include "job_lock.h"
#include "profile_file.h"

#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/file_names.h"
#include "core/globals.h"
#include "core/path_helpers.h"
#include "core/runtime.h"
#include "core/ui_services.h"
#include "engine/ap_img_to_pdf.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTime>

#include <sys/statvfs.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <future>
#include <map>
#include <optional>
#include <set>

namespace pw {

namespace {

const Unit dialog = Unit::form("frmCloneDirectory");
const Unit dialogWithoutTime = Unit::formWithoutTime("frmCloneDirectory");
const QString Start = "&Start";
const QString Stop = "Sto&p";
const QString Unfinished = "NOT FINISHED";
const QString Finished = "FINISHED";

// `path` made absolute, with ".", ".." and links resolved wherever it exists; a part that does
// not exist yet, which a conversion would create as a plain folder, is taken as it reads.
QString resolvedPath(const QString &path)
{
    QString resolved = "/";
    for (const QString &part :
         QDir::current().absoluteFilePath(path).split('/', Qt::SkipEmptyParts)) {
        if (part == ".")
            continue;
        const QString next =
            part == ".." ? QDir::cleanPath(resolved + "/..") : ValidateDir(resolved) + part;
        char real[PATH_MAX];
        resolved = ::realpath(EncodeFileName(next).constData(), real) ? DecodeFileName(real) : next;
    }
    return resolved;
}

bool isInside(const QString &path, const QString &root)
{
    return path == root || path.startsWith(ValidateDir(root));
}

} // namespace

struct FolderJob::State {
    QString CloneFolder;
    QString CloneXmlPath;
    QString FilterPattern;
    int TotalFiles = 0;
    int FilesCompleted = 0;
    int progressMaximum = 0;
    int progressValue = 0;
    FolderJobOptions options; // the new job's, as started
    CloneEncodings encodings;
    bool replace = false;
    std::optional<ApImgToPdf> converter;
    FolderJobState state = FolderJobState::Idle;
    JobLock lock;
    // The job's output folder with links and dots resolved: nothing is written outside it.
    QString outputRoot;
    std::set<QString> tidiedFolders; // target folders rid of killed writers' part files
    int workers = 1;
};

// What became of one conversion, as a worker hands it back.
struct Conversion {
    bool made = false;
    bool createRefused = false;
    int failureNumber = 0;
};

// A file taken in hand: decided at once, failed for want of disk, or converting.
struct FolderJob::InHand {
    QString folder, target;
    QString outcome;     // decided without a conversion
    QString diskFailure; // the disk failed before the conversion; the run stops at this file
    int failureNumber = 0;
    std::future<Conversion> conversion;
};

void FolderJob::setWorkers(int workers)
{
    state_->workers = std::max(1, workers);
}

void FolderJob::setReplaceExisting(bool replace)
{
    state_->replace = replace;
}

FolderJob::FolderJob(AppContext &context, FolderJobObserver &observer, ImageToPdfLibrary &library)
    : context_(context), observer_(observer), library_(library), state_(std::make_unique<State>())
{
}

FolderJob::~FolderJob() = default;

QString FolderJob::CloneFolder() const
{
    return state_->CloneFolder;
}

QString FolderJob::CloneXmlPath() const
{
    return state_->CloneXmlPath;
}

QString FolderJob::CloneIniPath() const
{
    return state_->CloneFolder + separator() + "Clone.ini";
}

FolderJobState FolderJob::state() const
{
    return state_->state;
}

void FolderJob::setState(FolderJobState state)
{
    state_->state = state;
    observer_.stateChanged(state);
}

bool FolderJob::stopping() const
{
    return stopRequested_.load(std::memory_order_relaxed);
}

// Lets the window's events run; a stop asked through the observer is taken here.
void FolderJob::yield()
{
    context_.ui.DoEvents();
    if (observer_.cancelRequested())
        stop();
}

void FolderJob::prepare()
{
    state_->CloneFolder = context_.FileStoragePath + separator() + "Clone";
    CreateFolderPath(state_->CloneFolder);
    state_->CloneXmlPath = state_->CloneFolder + separator() + "clone.xml";
    state_->FilterPattern = FillFilterPatterns()[0];
}

void FolderJob::readRecord()
{
    PW_PROCEDURE("ReadPvtString", dialog);
    guarded(pwTail, [&] {
        PW_STEP;
        QDir().mkdir(state_->CloneFolder);
        PW_STEP;
        // Reading leaves an empty file behind at the least, as the classic reader did.
        if (!QFile::exists(CloneIniPath())) {
            QFile file(CloneIniPath());
            if (!file.open(QIODevice::WriteOnly))
                throw RuntimeError::fromNumber(75);
        }
        PW_STEP;
        const auto read = [&](const char *key, const QString &fallback = {}) {
            return GetPrivateProfileString("CLONE", key, fallback, CloneIniPath()).trimmed();
        };
        record_.LastClonePath = read("CLONE_PATH");
        record_.LastTimeStart = read("TIME_START");
        record_.LastTotalFile = read("TOTAL_FILE");
        record_.LastFileCompleted = read("FILE_COMPLETED");
        record_.LastFilePath = read("LAST_FILEPATH");
        record_.LastStatus = read("STATUS");
        record_.LastOutputPath = read("OUTPUT_PATH");
        record_.LastReplaceExisting = read("REPLACE_EXISTING", "0");
    });
}

void FolderJob::writeKey(const char *key, const QString &value)
{
    WritePrivateProfileString("CLONE", key, value, CloneIniPath());
}

void FolderJob::WritePvtString()
{
    PW_PROCEDURE("WritePvtString", dialog);
    guarded(pwTail, [&] {
        PW_STEP;
        QDir().mkdir(state_->CloneFolder);
        if (!QFile::exists(CloneIniPath()))
            QFile(CloneIniPath()).open(QIODevice::WriteOnly);
        PW_STEP;
        writeKey("CLONE_PATH", state_->options.source);
        writeKey("OUTPUT_PATH", ResolveDesktop(state_->options.output));
        yield();
        writeKey("TIME_START", QTime::currentTime().toString("HH:mm:ss"));
        writeKey("TOTAL_FILE", QString::number(state_->TotalFiles));
        yield();
        writeKey("FILE_COMPLETED", QString::number(state_->FilesCompleted));
        writeKey("LAST_FILEPATH", "");
        yield();
        writeKey("STATUS", Unfinished);
        yield();
        writeKey("REPLACE_EXISTING", state_->replace ? "1" : "0");
    });
}

bool FolderJob::unfinishedJobExists() const
{
    return !record_.LastStatus.isEmpty() && FileExists(state_->CloneXmlPath) &&
           record_.LastStatus == Unfinished && runningElsewhere().isEmpty();
}

QString FolderJob::runningElsewhere() const
{
    return state_->lock.held() ? QString() : JobLock::holder(state_->CloneFolder);
}

void FolderJob::refuse(const FolderJobMessage &notice)
{
    summary_.refused = true;
    observer_.tell(notice);
}

// A job runs only while this process holds the job folder's lock; another process's job is
// neither joined nor replaced.
bool FolderJob::refuseUnlessLocked(const JobLockScope &lock)
{
    if (lock.acquired())
        return true;
    summary_.lockedBy = JobLock::holder(state_->CloneFolder);
    if (summary_.lockedBy.isEmpty())
        summary_.lockedBy = "another process";
    refuse({"A folder job is running in " + summary_.lockedBy +
                ". Wait for it to end, or stop it, before you start another.",
            vbExclamation, AppTitle});
    return false;
}

bool FolderJob::offerResume()
{
    readRecord();
    return unfinishedJobExists() &&
           observer_.ask({"Last Cloning Job was not completed successfully.\r\nDo you wants to "
                          "start that again?",
                          vbYesNo, AppTitle});
}

bool FolderJob::ValidateInput(QString output)
{
    bool result = false;
    PW_PROCEDURE("ValidateInput", dialog);
    guarded(pwTail, [&] {
        PW_STEP;
        const QString refusal = output.isEmpty() ? "Please select output folder to clone."
                                : !FolderExists(output) || !IsFolderPath(output)
                                    ? "Specified output path is not valid."
                                    : QString();
        if (!refusal.isEmpty()) {
            refuse({refusal, vbInformation, AppTitle, true});
            return;
        }
        result = true;
    });
    return result;
}

// The stop flag is cleared here and not at the start, so that a stop that came before the run
// (an interrupt while the command line was still setting up) is not lost.
void FolderJob::endRun()
{
    setProgressValue(0);
    state_->converter.reset();
    stopRequested_.store(false, std::memory_order_relaxed);
    setState(FolderJobState::Idle);
}

// A run that ended through its failure tail keeps its state: no new run starts, and a window
// keeps the look of the run.
void FolderJob::afterRun(bool ended)
{
    if (ended)
        return;
    summary_.failed = true;
    if (running())
        setState(FolderJobState::Failed);
}

void FolderJob::reportEnd()
{
    summary_.stopped = stopping();
    const QString word = summary_.stopped ? "terminated...." : "completed....";
    observer_.logAppended("\r\n" + word);
    observer_.setStatusText(word);
    writeKey("STATUS", summary_.stopped ? Unfinished : Finished);
}

void FolderJob::start(const FolderJobOptions &options)
{
    if (running())
        return;
    summary_ = {};
    PW_PROCEDURE("cmdOk_Click", dialog);
    const bool ended = guarded(pwTail, [&] {
        PW_STEP;
        if (!ValidateInput(options.output))
            return;
        JobLockScope lock(state_->lock, state_->CloneFolder);
        if (!refuseUnlessLocked(lock))
            return;
        PW_STEP;
        // Yes takes up the old job under its own folders, with the replace choice of now.
        state_->replace = options.replaceExisting;
        if (offerResume())
            return ResumeLastClone();
        PW_STEP;
        state_->options = options;
        runNewJob(pwTail);
    });
    afterRun(ended);
}

void FolderJob::runNewJob(FailureTail &pwTail)
{
    const FolderJobOptions &options = state_->options;
    observer_.logCleared();
    setState(FolderJobState::Searching);
    QString output = ResolveDesktop(options.output);
    if (output.trimmed().isEmpty())
        output = options.source;
    state_->encodings = options.encodings;
    state_->outputRoot = resolvedPath(output);
    PW_STEP;
    if (!listSource(output, pwTail))
        return endRun();
    PW_STEP;
    observer_.setStatusText("Processing file(s)...");
    if (state_->TotalFiles <= 0) {
        refuse({"There is no supported image files in the source folder!", vbExclamation, {}});
        return endRun();
    }
    PW_STEP;
    setState(FolderJobState::Processing);
    setProgressMaximum(state_->TotalFiles);
    setProgressValue(0);
    state_->FilesCompleted = 0;
    observer_.logAppended("Total Files=" + QString::number(state_->TotalFiles) +
                          "\r\nClonning_Path : " + options.source + "\r\nProcessing.....");
    PW_STEP;
    WritePvtString();
    ProcessClone();
    PW_STEP;
    reportEnd();
    summary_.newJobWalked = true;
    PW_STEP;
    endRun();
}

// The scan of the source into a new list, which replaces the last job's. False when it was
// stopped: a partial list is not kept.
bool FolderJob::listSource(const QString &output, FailureTail &pwTail)
{
    const FolderJobOptions &options = state_->options;
    CloneListWriter writer(state_->CloneXmlPath);
    CloneScan scan{.filterPattern = state_->FilterPattern,
                   .sourceBox = options.source,
                   .outputBox = options.output,
                   .list = &writer,
                   .stopRequested = [this] { return stopping(); },
                   .yield = [this] { yield(); }};
    try {
        writer.startNewJob(state_->encodings);
        PW_STEP;
        observer_.setStatusText("Searching file(s)...");
        yield();
        PW_STEP;
        state_->TotalFiles = scan.SearchCloneFiles(options.source, output);
    } catch (const RuntimeError &e) {
        // A list that cannot be written ends the scan as a stop does: no job is started
        // from a list that lost files.
        interrupt(state_->CloneXmlPath, e.number(), e.description(), pwTail);
    }
    yield();
    PW_STEP;
    if (!stopping())
        return true;
    observer_.setStatusText("Cloning Terminated");
    summary_.stopped = true;
    DeleteFileIfExists(state_->CloneXmlPath);
    return false;
}

bool FolderJob::resume()
{
    if (running())
        return false;
    summary_ = {};
    readRecord();
    if (!unfinishedJobExists())
        return false;
    state_->replace = Val(record_.LastReplaceExisting) != 0;
    ResumeLastClone();
    return true;
}

void FolderJob::ResumeLastClone()
{
    PW_PROCEDURE("ResumeLastClone", dialogWithoutTime);
    const bool ended = guarded(pwTail, [&] {
        PW_STEP;
        JobLockScope lock(state_->lock, state_->CloneFolder);
        if (!refuseUnlessLocked(lock))
            return;
        state_->outputRoot = resolvedPath(
            record_.LastOutputPath.isEmpty() ? record_.LastClonePath : record_.LastOutputPath);
        setState(FolderJobState::Processing);
        PW_STEP;
        observer_.logCleared();
        setProgressMaximum(CInt(record_.LastTotalFile));
        setProgressValue(0);
        state_->FilesCompleted = 0;
        PW_STEP;
        observer_.logAppended("Total Files=" + record_.LastTotalFile + "\r\n");
        observer_.logAppended("Clonning_Path : " + record_.LastClonePath);
        observer_.logAppended("\r\nProcessing.....");
        PW_STEP;
        ProcessClone();
        PW_STEP;
        reportEnd();
        endRun();
    });
    afterRun(ended);
}

void FolderJob::setProgressMaximum(int maximum)
{
    state_->progressMaximum = maximum;
    observer_.setMaximum(maximum);
}

void FolderJob::setProgressValue(int value)
{
    // The classic progress control refused a value beyond its maximum with a run-time error.
    if (value > state_->progressMaximum || value < 0)
        throw RuntimeError::fromNumber(380);
    state_->progressValue = value;
    observer_.setValue(value);
}

void FolderJob::ProcessClone()
{
    PW_PROCEDURE("ProcessClone", dialogWithoutTime);
    const bool ended = guarded(pwTail, [&] {
        PW_STEP;
        if (!FileExists(state_->CloneXmlPath))
            return;
        PW_STEP;
        CloneList list;
        if (!list.load(state_->CloneXmlPath) || !list.hasFiles())
            throw RuntimeError::fromNumber(91);
        PW_STEP;
        bool found = false;
        const CloneEncodings encodings = list.settings(found);
        if (found) {
            state_->encodings = encodings;
            observer_.encodingsRestored(encodings);
        }
        // The rest is made as the start made its files: a language since removed stops the run
        // with the job kept for when it is back. The window's own choice holds again after.
        const auto restored =
            qScopeGuard([&, chosen = library_.ocrLanguage()] { library_.setOcrLanguage(chosen); });
        if (const std::string why = library_.setOcrLanguage(encodings.ocr.toStdString());
            !why.empty()) {
            refuse({"The job's PDFs are made searchable, but " + QString::fromStdString(why) + ".",
                    vbExclamation, AppTitle});
            return;
        }
        walk(list, pwTail);
        PW_STEP;
        if (state_->FilesCompleted >= list.count())
            DeleteFileIfExists(state_->CloneXmlPath);
    });
    summary_.failed = summary_.failed || !ended;
}

void FolderJob::walk(CloneList &list, FailureTail &pwTail)
{
    // Files ahead of the one that settles convert meanwhile, one per worker; a stop lets the
    // files in hand end and settle. A file that ended before those ahead of it waits to settle
    // without holding its worker, so a slow page does not leave the other cores idle; a few
    // such files a worker may wait.
    std::map<int, InHand> inHand;
    int nextToTake = 0;
    const int parallel = state_->workers > 1 ? state_->workers : 0;
    const auto converting = [&] {
        return std::count_if(inHand.begin(), inHand.end(), [](const auto &hand) {
            return hand.second.conversion.valid() &&
                   hand.second.conversion.wait_for(std::chrono::seconds(0)) !=
                       std::future_status::ready;
        });
    };
    const auto takeMore = [&](int from) {
        const auto room = [&] {
            return parallel ? converting() < parallel && int(inHand.size()) < 4 * parallel
                            : inHand.empty();
        };
        for (nextToTake = std::max(nextToTake, from);
             nextToTake < list.count() && room() && !stopping(); ++nextToTake)
            if (list.attribute(nextToTake, "status").trimmed().isEmpty())
                inHand.emplace(nextToTake, takeInHand(list, nextToTake, pwTail));
    };
    // Waits for file `i`, starting the next files as workers come free.
    const auto awaitFile = [&](int i) {
        const auto hand = inHand.find(i);
        while (parallel && hand != inHand.end() && hand->second.conversion.valid() &&
               hand->second.conversion.wait_for(std::chrono::milliseconds(2)) !=
                   std::future_status::ready) {
            takeMore(i + 1);
            yield();
        }
    };
    for (int i = 0; i < list.count(); ++i) {
        PW_STEP;
        if (stopping() && inHand.empty())
            break;
        const QString source = list.attribute(i, "path") + separator() + list.attribute(i, "name");
        observer_.logAppended("\r\n" + source + ".....");
        PW_STEP;
        takeMore(i);
        awaitFile(i);
        const QString settled = list.attribute(i, "status");
        const bool toDo = settled.trimmed().isEmpty();
        const QString outcome = toDo ? settle(inHand.at(i), pwTail) : "";
        inHand.erase(i);
        // The worker that just finished starts on the next file while this one's state is
        // written: the writing would otherwise leave a core idle on every file.
        if (parallel && !(toDo && outcome.isEmpty()))
            takeMore(i + 1);
        if (toDo && outcome.isEmpty())
            break; // the disk, not the file, failed: it stays to do for a resume
        observer_.logAppended(outcome.isEmpty() ? settled : outcome);
        count(outcome.isEmpty() ? settled.trimmed() : outcome);
        PW_STEP;
        ++state_->FilesCompleted;
        setProgressValue(state_->progressValue + 1);
        const bool noted =
            WritePrivateProfileStrings("CLONE",
                                       {{"FILE_COMPLETED", QString::number(state_->FilesCompleted)},
                                        {"LAST_FILEPATH", source}},
                                       CloneIniPath());
        const int notedError = errno;
        yield();
        PW_STEP;
        try {
            if (!outcome.isEmpty())
                list.setStatus(i, outcome);
        } catch (const RuntimeError &e) {
            interrupt(state_->CloneXmlPath, e.number(), e.description(), pwTail);
        }
        if (!noted)
            interrupt(CloneIniPath(), WriteFailureNumber(notedError),
                      errorDescription(WriteFailureNumber(notedError)), pwTail);
        if (stopping() && inHand.empty())
            break;
    }
}

// Ends the run as a stop does, for a reason nobody asked for: the failure log and the log pane
// say why, and the job stays for a resume.
void FolderJob::interrupt(const QString &path, int number, const QString &reason,
                          FailureTail &pwTail)
{
    pwTail.log(number, reason + ": " + path);
    if (summary_.interruption.isEmpty()) {
        summary_.interruption = path + ": " + reason;
        observer_.logAppended(reason);
    }
    stop();
}

// Why writing into `folder` failed when the cause is the disk and not the file: out of room or
// quota, or a file system that is read-only. "" otherwise. `error` is the system's error of the
// failed write, 0 when unknown.
QString FolderJob::environmentFailure(const QString &folder, int error) const
{
    if (error == ENOSPC || error == EDQUOT || error == EROFS)
        return QString::fromLocal8Bit(std::strerror(error));
    QString existing = folder;
    for (QString up; !IsFolderPath(existing) && (up = QFileInfo(existing).path()) != existing;)
        existing = up;
    struct statvfs disk {};
    if (::statvfs(EncodeFileName(existing).constData(), &disk) != 0)
        return {};
    if (disk.f_flag & ST_RDONLY)
        return QString::fromLocal8Bit(std::strerror(EROFS));
    return disk.f_bavail == 0 ? QString::fromLocal8Bit(std::strerror(ENOSPC)) : QString();
}

// Makes the target folder and starts the conversion of list entry `index`: on a worker of its
// own when there are several, else here, between the window's events, as it always was.
FolderJob::InHand FolderJob::takeInHand(const CloneList &list, int index, FailureTail &pwTail)
{
    InHand file;
    const QString source =
        list.attribute(index, "path") + separator() + list.attribute(index, "name");
    file.folder = list.attribute(index, "targetfolder");
    file.target = file.folder + separator() + list.attribute(index, "targetfile");
    // A folder name of the tree can climb out of the output ("a/../.."), and a list can be
    // edited: a target outside the output is never written.
    if (!isInside(resolvedPath(file.folder), state_->outputRoot)) {
        pwTail.log(75,
                   errorDescription(75) + ": " + file.target + " is outside " + state_->outputRoot);
        file.outcome = "Unable to Create Folder";
        return file;
    }
    // Most files go where the one before went: one look settles that.
    if (!IsFolderPath(file.folder) && !MakeFolderPath(file.folder)) {
        const int error = errno;
        file.diskFailure = environmentFailure(file.folder, error);
        file.failureNumber = WriteFailureNumber(error);
        if (file.diskFailure.isEmpty())
            file.outcome = "Unable to Create Folder";
        return file;
    }
    if (state_->tidiedFolders.insert(file.folder).second)
        library_.removeLeftovers(EncodeFileName(file.folder).toStdString());
    if (!state_->replace && IsRegularFilePath(file.target)) {
        file.outcome = "Already Exists";
        return file;
    }
    const CloneEncodings e = state_->encodings;
    const auto convert = [source, target = file.target, e](ApImgToPdf &converter) {
        // The binding takes a PDF it could not finish (the disk filled up as it was written
        // out) for one made: the job asks whether it was, and a full disk then stops the run
        // with the file still to do.
        const bool made =
            converter.ConverImageToPdf(source, target, e.EncodColor, e.EncodGraycale, e.EncodBW) &&
            (converter.CreateRefused || converter.Written);
        return Conversion{made, converter.CreateRefused, converter.LastFailureNumber};
    };
    if (state_->workers > 1) {
        file.conversion = std::async(std::launch::async, [convert] {
            QuietUi quiet;
            ApImgToPdf converter(quiet, ImageToPdfLibrary::ours());
            return convert(converter);
        });
        return file;
    }
    if (!state_->converter)
        state_->converter.emplace(context_.ui, library_);
    std::promise<Conversion> done;
    done.set_value(convert(*state_->converter));
    file.conversion = done.get_future();
    return file;
}

// The outcome of a file in hand, once its conversion ended (the window's events run
// meanwhile); "" when the disk failed and the run was stopped with the file still to do.
QString FolderJob::settle(InHand &file, FailureTail &pwTail)
{
    if (!file.diskFailure.isEmpty()) {
        interrupt(file.target, file.failureNumber, file.diskFailure, pwTail);
        return {};
    }
    if (!file.outcome.isEmpty())
        return file.outcome;
    while (file.conversion.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready)
        yield();
    const Conversion c = file.conversion.get();
    if (!c.made || c.createRefused) {
        const QString why = environmentFailure(file.folder, c.failureNumber == 61 ? ENOSPC : 0);
        if (!why.isEmpty()) {
            interrupt(file.target, c.failureNumber == 61 ? 61 : 75, why, pwTail);
            return {};
        }
    }
    return c.made ? "Completed" : "Error";
}

// Outcomes settled by an earlier run count as well: a resumed job reports the whole job.
void FolderJob::count(const QString &outcome)
{
    if (outcome == "Completed")
        ++summary_.completed;
    else if (outcome == "Already Exists")
        ++summary_.alreadyExisting;
    else if (outcome == "Error")
        ++summary_.errors;
    else if (outcome == "Unable to Create Folder")
        ++summary_.folderFailures;
}

} // namespace pw
