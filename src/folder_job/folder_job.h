#pragma once
// A folder job: a source tree cloned into a tree of PDFs, one file at a time, as a job that a
// stop, a crash or a kill leaves resumable. The job's state lives in "Clone.ini" and
// "clone.xml" in the job folder below the storage folder. Two front ends drive it, the Folder
// Conversion dialog and pagewright-batch: they start, resume and stop it, and hear from it
// through a FolderJobObserver.

#include "clone_list.h"

#include "core/progress.h"

#include <QString>

#include <atomic>
#include <memory>

namespace pw {

struct AppContext;
struct FailureTail;
class ImageToPdfLibrary;

// The eight values of "Clone.ini" as last read.
struct CloneIniRecord {
    QString LastClonePath;
    QString LastTimeStart;
    QString LastTotalFile;
    QString LastFileCompleted;
    QString LastFilePath;
    QString LastStatus;
    QString LastOutputPath;
    QString LastReplaceExisting;
};

// How the last run ended, for a front end that reports it (pagewright-batch's exit status):
// the outcomes of the whole job, those of earlier runs included.
struct CloneRunSummary {
    int completed = 0;
    int alreadyExisting = 0;
    int errors = 0;         // "Error"
    int folderFailures = 0; // "Unable to Create Folder"
    bool failed = false;    // the run ended through a failure tail
    bool stopped = false;   // a stop was seen
    // A new job (not a resume) walked its list to the end, stopped or not: the window opens
    // the output folder then, if asked to.
    bool newJobWalked = false;
    // Why the run stopped though nobody asked it to, as "PATH: REASON": a full or read-only
    // disk under the output, or the job's own state that could not be written. The job is
    // kept for a resume. Empty otherwise.
    QString interruption;
    // Another process runs a folder job: "process N (name)". Nothing was done.
    QString lockedBy;
    // The job refused to start (no output folder, no images, a missing language): the
    // observer was told why.
    bool refused = false;
};

// What a new job is asked to do. The paths are taken as typed: the folder names of the tree
// are made from the source's text (see CloneTargetFolder).
struct FolderJobOptions {
    QString source;
    QString output; // "Desktop" stands for the desktop folder; blank means the source
    bool replaceExisting = false;
    CloneEncodings encodings; // the language of the text layer included
};

enum class FolderJobState {
    Idle,       // nothing runs; start() and resume() may be called
    Searching,  // a new job scans its source tree
    Processing, // files convert
    // A run ended through a failure (logged): the job takes no new run, and a window keeps
    // the look of the run it had.
    Failed,
};

// A message box's worth: the text, the vb* buttons and icon, a title ("" for the program's).
struct FolderJobMessage {
    QString text;
    int flags = 0;
    QString title;
    bool aboutOutput = false; // the output folder is the trouble: a window puts the focus there
};

// What a front end hears from the job. All calls come from the thread that called start() or
// resume(). Progress carries the bar (setValue, in files), the status line (setStatusText) and
// a stop asked at the job's yield points (cancelRequested), besides stop().
class FolderJobObserver : public Progress {
public:
    virtual void stateChanged(FolderJobState) {}
    // The log: emptied at a run's start, then only appended to. The text holds CR LF line
    // breaks where lines end, and a line may come in several pieces.
    virtual void logCleared() {}
    virtual void logAppended(const QString &text) = 0;
    // A resumed job's recompression choices, to be shown.
    virtual void encodingsRestored(const CloneEncodings &) {}
    // The question whether to take up an unfinished job: true for Yes.
    virtual bool ask(const FolderJobMessage &question) = 0;
    // Why the job refused to start or to go on.
    virtual void tell(const FolderJobMessage &notice) = 0;
};

class FolderJob {
public:
    // `library` converts the files that the job's own thread converts (one at a time); the
    // window passes the responsive one, so that its events run through a long page. Files
    // converted ahead on workers, off that thread already, go to our library directly.
    FolderJob(AppContext &context, FolderJobObserver &observer, ImageToPdfLibrary &library);
    ~FolderJob();

    // Makes the job folder and sets the paths; before anything else.
    void prepare();
    // Reads "Clone.ini" into record().
    void readRecord();
    // After readRecord: STATUS "NOT FINISHED" and a "clone.xml" to take up, while no other
    // process runs a job.
    bool unfinishedJobExists() const;
    // Reads the record and, when an unfinished job exists, asks whether to take it up.
    bool offerResume();
    // Who runs a folder job now, in another process: "process N (name)", or "".
    QString runningElsewhere() const;

    // Runs a new job to its end, stop or failure; the window's events run at its yield
    // points. An unfinished job is offered first; Yes takes it up instead, with this replace
    // choice. Does nothing unless Idle.
    void start(const FolderJobOptions &options);
    // Takes up the unfinished job under its own folders and replace choice, without a
    // question. False when there is none (or the job is not Idle).
    bool resume();
    // Asks a run to stop after the files in hand. Safe in a signal handler: it only sets a
    // flag, which the run reads at its yield points and clears when it ends.
    void stop() { stopRequested_.store(true, std::memory_order_relaxed); }

    FolderJobState state() const;
    // Not Idle: a failed run counts, so that the window's button stays a Stop button.
    bool running() const { return state() != FolderJobState::Idle; }
    // Whether an existing PDF is replaced, read anew for every file: a window's box changes it
    // during the run.
    void setReplaceExisting(bool replace);
    // How many files convert at once (at least 1, the default). Files settle in the list's
    // order all the same: the log, the statuses and the counters read as one worker writes
    // them.
    void setWorkers(int workers);

    const CloneIniRecord &record() const { return record_; }
    const CloneRunSummary &lastRun() const { return summary_; }
    QString CloneFolder() const;
    QString CloneXmlPath() const;

private:
    bool ValidateInput(QString output);
    void WritePvtString();
    void writeKey(const char *key, const QString &value);
    bool refuseUnlessLocked(const class JobLockScope &lock);
    void refuse(const FolderJobMessage &notice);
    bool stopping() const;
    void yield();
    void setState(FolderJobState state);
    void interrupt(const QString &path, int number, const QString &reason, FailureTail &pwTail);
    QString environmentFailure(const QString &folder, int error) const;
    void endRun();
    void afterRun(bool ended);
    void runNewJob(FailureTail &pwTail);
    bool listSource(const QString &output, FailureTail &pwTail);
    void ResumeLastClone();
    void ProcessClone();
    struct InHand;
    void walk(class CloneList &list, FailureTail &pwTail);
    InHand takeInHand(const CloneList &list, int index, FailureTail &pwTail);
    QString settle(InHand &file, FailureTail &pwTail);
    void count(const QString &outcome);
    void setProgressMaximum(int maximum);
    void setProgressValue(int value);
    void reportEnd();
    QString CloneIniPath() const;

    struct State;
    AppContext &context_;
    FolderJobObserver &observer_;
    ImageToPdfLibrary &library_;
    CloneIniRecord record_;
    CloneRunSummary summary_;
    std::atomic<bool> stopRequested_{false};
    static_assert(std::atomic<bool>::is_always_lock_free, "stop() must be signal-safe");
    std::unique_ptr<State> state_;
};

} // namespace pw
