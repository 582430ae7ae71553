// The folder job's own costs, on the program's code:
//
//   folder_job_bench scan SOURCE LIST.xml
//       the scan of SOURCE into a job list; prints files and seconds
//   folder_job_bench job real|books SOURCE OUTPUT STORE
//       a whole job as the Start button runs it, with the real converter or with one that
//       writes nothing ("books": what is left is the job's bookkeeping: the list, Clone.ini,
//       the log, the target folders); prints seconds, files, and the mean milliseconds per
//       file of the first and of the last thousand files
#include "folder_job/clone_list.h"
#include "folder_job/clone_scan.h"
#include "folder_job/folder_job.h"

#include "core/app_context.h"
#include "core/ui_services.h"
#include "engine/image_to_pdf_library.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>
#include <vector>

using namespace pw;

namespace {

// Answers every call as a library that made the PDF would, and writes nothing.
class NoPdfs final : public ImageToPdfLibrary {
public:
    int32_t ApCreate(const std::string &) override { return 1; }
    int32_t ApAddImage(int32_t, const std::string &) override { return 0; }
    int32_t ApSetFunction(int32_t, int32_t, int32_t, int32_t, const std::string &, int32_t) override
    {
        return 0;
    }
    int32_t ApGetFunction(int32_t, int32_t, int32_t, int32_t, const std::string &, int32_t) override
    {
        return 8;
    }
    int32_t ApClose(int32_t) override { return 0; }
};

// A clock at every step of the bar; nothing shown.
class TimedObserver final : public FolderJobObserver {
public:
    void setValue(int done) override
    {
        if (done > 0)
            steps.push_back(clock.nsecsElapsed());
    }
    void logAppended(const QString &) override {}
    bool ask(const FolderJobMessage &) override { return false; }
    void tell(const FolderJobMessage &) override {}
    QElapsedTimer clock;
    std::vector<qint64> steps;
};

double meanMs(const std::vector<qint64> &steps, size_t from, size_t to)
{
    return to <= from || to > steps.size() || from == 0
               ? 0
               : double(steps[to - 1] - steps[from - 1]) / double(to - from) / 1e6;
}

int scan(const QString &source, const QString &xml)
{
    QElapsedTimer clock;
    clock.start();
    CloneListWriter list(xml);
    list.startNewJob({});
    CloneScan walk{FillFilterPatterns()[0],
                   source,
                   "/nowhere",
                   &list,
                   [] { return false; },
                   [] { QCoreApplication::processEvents(); }};
    const int files = walk.SearchCloneFiles(source, "/nowhere");
    std::printf("files %d seconds %.3f\n", files, double(clock.nsecsElapsed()) / 1e9);
    return 0;
}

int job(bool real, const QString &source, const QString &output, const QString &store)
{
    QuietUi ui;
    AppContext context(ui);
    context.FileStoragePath = store;
    TimedObserver view;
    NoPdfs none;
    FolderJob folderJob(context, view, real ? ImageToPdfLibrary::ours() : none);
    folderJob.prepare();
    view.clock.start();
    folderJob.start({source, output, false, {}});
    const size_t n = view.steps.size();
    std::printf("seconds %.3f files %zu first_thousand_ms %.3f last_thousand_ms %.3f\n",
                double(view.clock.nsecsElapsed()) / 1e9, n, meanMs(view.steps, 1, 1001),
                meanMs(view.steps, n > 1000 ? n - 999 : 1, n));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList a = app.arguments().mid(1);
    if (a.size() == 3 && a[0] == "scan")
        return scan(a[1], a[2]);
    if (a.size() == 5 && a[0] == "job" && (a[1] == "real" || a[1] == "books"))
        return job(a[1] == "real", a[2], a[3], a[4]);
    std::fputs("usage: folder_job_bench scan SOURCE LIST.xml | job real|books SOURCE OUTPUT "
               "STORE\n",
               stderr);
    return 2;
}
