#pragma once
// A folder job: a source tree cloned into a tree of PDFs, one file at a time, as a job that a
// stop, a crash or a kill leaves resumable. The job's state lives in "Clone.ini" and
// "clone.xml" in the job folder below the storage folder; the front end (the Folder Conversion
// dialog, or pagewright-batch) shows and steers it through a CloneJobView.

#include "clone_job_view.h"

#include <QString>

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
    bool stopped = false;   // StopRequested was seen
    // Why the run stopped though nobody asked it to, as "PATH: REASON": a full or read-only
    // disk under the output, or the job's own state that could not be written. The job is
    // kept for a resume. Empty otherwise.
    QString interruption;
    // Another process runs a folder job: "process N (name)". Nothing was done.
    QString lockedBy;
};

class FolderJob {
public:
    FolderJob(AppContext &context, CloneJobView &view, ImageToPdfLibrary &library);
    ~FolderJob();

    // The job folder is made and the paths set (the part of the dialog's Form_Load that is the
    // job's).
    void prepare();
    // ReadPvtString, then the test for an unfinished job and its prompt; on Yes the boxes take
    // the job's folders and replace choice, and the job is resumed.
    void Form_Activate();
    // The Start/Stop button. Re-entrant: a click during a run only sets StopRequested.
    void cmdOk_Click();
    // Takes up the unfinished job as it stands, without a question, under the boxes as they are.
    void ResumeLastClone();
    // What Yes to the prompt does: the boxes take the job's folders and replace choice, and
    // the job is resumed.
    void resumeAsRecorded();
    // After ReadPvtString: STATUS "NOT FINISHED" and a "clone.xml" to take up, while no other
    // process runs a job.
    bool unfinishedJobExists() const;
    // Who runs a folder job now, in another process: "process N (name)", or "".
    QString runningElsewhere() const;
    void ReadPvtString();

    // Asks a running job to stop after the files in hand (what the Stop button does).
    void requestStop() { StopRequested = true; }
    // How many files convert at once (at least 1, the default). Files settle in the list's
    // order all the same: the log, the statuses and the counters read as one worker writes
    // them. With more than one, the library takes calls from that many threads.
    void setWorkers(int workers);
    bool running() const;

    const CloneIniRecord &record() const { return record_; }
    const CloneRunSummary &lastRun() const { return summary_; }
    QString CloneFolder() const;
    QString CloneXmlPath() const;

private:
    bool ValidateInput();
    void WritePvtString();
    void writeKey(const char *key, const QString &value);
    bool askToResume();
    bool refuseUnlessLocked(const class JobLockScope &lock);
    void interrupt(const QString &path, int number, const QString &reason, FailureTail &pwTail);
    QString environmentFailure(const QString &folder, int error) const;
    void startRun();
    void endRun();
    void ProcessClone();
    struct InHand;
    void walk(class CloneList &list, FailureTail &pwTail);
    InHand takeInHand(const CloneList &list, int index, FailureTail &pwTail);
    QString settle(InHand &file, FailureTail &pwTail);
    void count(const QString &outcome);
    void setProgressValue(int value);
    void reportEnd();
    QString CloneIniPath() const;

    struct State;
    AppContext &context_;
    CloneJobView &view_;
    ImageToPdfLibrary &library_;
    CloneIniRecord record_;
    CloneRunSummary summary_;
    bool StopRequested = false;
    std::unique_ptr<State> state_;
};

} // namespace pw
