#include "batch_clone.h"

#include "folder_job.h"

#include "core/app_context.h"
#include "core/command_line.h"
#include "core/master_layout.h"
#include "core/ui_services.h"
#include "engine/ap_img_to_pdf.h"
#include "engine/image_to_pdf_library.h"

#include <QDir>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <csignal>

namespace pw {

namespace {

// The job that an interrupt stops; set while RunBatchClone runs one.
std::atomic<FolderJob *> interruptible{nullptr};
volatile std::sig_atomic_t interrupted = 0;
static_assert(std::atomic<FolderJob *>::is_always_lock_free, "read in a signal handler");

extern "C" void onInterrupt(int)
{
    interrupted = 1;
    if (FolderJob *job = interruptible.load())
        job->stop();
}

// The job's log goes out line by line; a question about the last job is answered No (the
// command decides that itself), and a notice is the job refusing to start (no output folder,
// no images): the window shows it in a box, the command line says it.
class CommandLineObserver final : public FolderJobObserver {
public:
    explicit CommandLineObserver(const BatchOutput &io) : io_(io) {}
    ~CommandLineObserver() override { flush(); }

    void setMaximum(int total) override { io_.progress.setMaximum(total); }
    void setValue(int done) override { io_.progress.setValue(done); }
    void logCleared() override { flush(); }
    void logAppended(const QString &text) override
    {
        pending_ += text;
        for (qsizetype end; (end = pending_.indexOf("\r\n")) >= 0; pending_.remove(0, end + 2))
            io_.out(pending_.left(end));
    }
    bool ask(const FolderJobMessage &) override { return false; }
    void tell(const FolderJobMessage &notice) override
    {
        io_.err("pagewright-batch: " + notice.text);
    }

    void flush()
    {
        if (!pending_.isEmpty())
            io_.out(pending_);
        pending_.clear();
    }

private:
    const BatchOutput &io_;
    QString pending_;
};

// Sets and clears the job that an interrupt reaches.
class InterruptScope {
public:
    explicit InterruptScope(FolderJob &job)
    {
        interruptible = &job;
        std::signal(SIGINT, onInterrupt);
        std::signal(SIGTERM, onInterrupt);
    }
    ~InterruptScope() { interruptible = nullptr; }
    InterruptScope(const InterruptScope &) = delete;
    InterruptScope &operator=(const InterruptScope &) = delete;
};

QString usage()
{
    return "Usage: pagewright-batch clone [--replace] [--color NAME] [--gray NAME] [--bw NAME] "
           "[--ocr LANG] [--new] [--jobs N] [PAGE OPTIONS] SOURCE OUTPUT\n"
           "       pagewright-batch resume [--jobs N] [PAGE OPTIONS]\n"
           "PAGE OPTIONS, as pagewright-batch --help lists them: --page-size, --fit, --margin,"
           " --orientation, --dpi, --force-dpi, --max-pixels.";
}

// Reads the options of clone or resume into `options`; "" when they are right, else what is wrong.
QString readOptions(const QStringList &args, FolderJobOptions &options, bool &fresh, int &workers)
{
    const bool clone = args[0] == "clone";
    const QStringList cloneOnly = {"--color", "--gray", "--bw", "--ocr", "--replace", "--new"};
    const CommandLine line = ParseCommandLine(
        args.mid(1),
        QStringList{"--jobs", "--color", "--gray", "--bw", "--ocr"} + PageOptionNames(),
        {"--replace", "--new"});
    if (!line.error.isEmpty())
        return line.error;
    if (!clone && std::any_of(cloneOnly.begin(), cloneOnly.end(),
                              [&](const QString &option) { return line.has(option); }))
        return "The resume command takes only --jobs and the page options.";
    if (line.has("--jobs")) {
        bool number = false;
        workers = line.value("--jobs").toInt(&number);
        if (!number || workers < 1)
            return "Option --jobs needs a number of files to convert at once, 1 or more.";
    }
    i2p::PageLayout layout;
    for (const QString &option : PageOptionNames())
        if (line.has(option))
            if (QString wrong = TakePageOption(option, line.value(option), layout);
                !wrong.isEmpty())
                return wrong;
    const std::pair<const char *, QString *> names[] = {
        {"--color", &options.encodings.EncodColor},
        {"--gray", &options.encodings.EncodGraycale},
        {"--bw", &options.encodings.EncodBW}};
    for (const auto &[option, name] : names) {
        if (!line.has(option))
            continue;
        *name = line.value(option);
        if (!RecompressionNames.contains(*name))
            return "Option " + QString(option) + " needs one of " + RecompressionNames.join(", ") +
                   ".";
    }
    options.replaceExisting = line.has("--replace");
    fresh = line.has("--new");
    if (line.has("--ocr"))
        if (QString error = ApplyOcrOption(line.value("--ocr")); !error.isEmpty())
            return error;
    const QStringList &folders = line.files;
    if (QString wrong = ApplyPageLayout(layout); !wrong.isEmpty())
        return wrong;
    if (!clone)
        return folders.isEmpty() ? QString() : "The resume command takes no folders.";
    if (folders.size() != 2)
        return "The clone command needs a source folder and an output folder.";
    // Absolute and without a trailing separator: the folder names of the tree are made from
    // the source's text, and a resume from another working folder must find the same places.
    options.source = QDir::cleanPath(QDir::current().absoluteFilePath(folders[0]));
    options.output = QDir::cleanPath(QDir::current().absoluteFilePath(folders[1]));
    options.encodings.ocr = QString::fromStdString(ImageToPdfLibrary::ours().ocrLanguage());
    return {};
}

int exitStatus(const CloneRunSummary &run)
{
    return run.failed || run.errors > 0 || run.folderFailures > 0 || !run.interruption.isEmpty() ||
                   !run.lockedBy.isEmpty()
               ? 1
               : 0;
}

// What the user must hear after a run: why it stopped when nobody asked it to.
void reportInterruption(const CloneRunSummary &run, const Sink &err)
{
    if (!run.interruption.isEmpty())
        err("pagewright-batch: " + run.interruption +
            "; the job is kept: run \"pagewright-batch resume\" once this is mended.");
}

} // namespace

bool IsBatchCloneCommand(const QString &command)
{
    return command == "clone" || command == "resume";
}

int RunBatchClone(const QStringList &args, const BatchOutput &io)
{
    const Sink &err = io.err;
    FolderJobOptions options;
    bool fresh = false;
    int workers = std::max(1, QThread::idealThreadCount());
    if (const QString wrong = readOptions(args, options, fresh, workers); !wrong.isEmpty()) {
        err("pagewright-batch: " + wrong + "\n" + usage());
        return 2;
    }
    QuietUi ui;
    AppContext context(ui);
    if (!EnsureFileStoragePath(context))
        return 2;
    CommandLineObserver observer(io);
    FolderJob job(context, observer, ImageToPdfLibrary::ours());
    job.setWorkers(workers);
    const InterruptScope interrupts(job);
    job.prepare();
    job.readRecord();
    if (const QString holder = job.runningElsewhere(); !holder.isEmpty()) {
        err("pagewright-batch: a folder job is running in " + holder +
            "; wait for it to end, or stop it, before you start another.");
        return 2;
    }
    if (args[0] == "resume") {
        if (!job.resume()) {
            err("pagewright-batch: there is no unfinished folder job to resume.");
            return 2;
        }
    } else {
        if (job.unfinishedJobExists() && !fresh) {
            err("pagewright-batch: an unfinished folder job exists (from " +
                job.record().LastClonePath +
                "): run \"pagewright-batch resume\", or clone --new to discard it.");
            return 2;
        }
        job.start(options);
    }
    observer.flush();
    reportInterruption(job.lastRun(), err);
    if (job.lastRun().refused)
        return 2;
    if (interrupted && job.lastRun().stopped) {
        err("pagewright-batch: interrupted; the job is kept: run \"pagewright-batch resume\" to "
            "take it up.");
        return 130;
    }
    return exitStatus(job.lastRun());
}

} // namespace pw
