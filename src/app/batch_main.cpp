#include "core/app_context.h"
#include "core/master_layout.h"
#include "engine/batch_job.h"
#include "folder_job/batch_clone.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    app.setApplicationName("pagewright-batch");
    const auto print = [](FILE *to) {
        return [to](const QString &line) {
            std::fputs(qPrintable(line + "\n"), to);
            std::fflush(to);
        };
    };
    const QStringList args = app.arguments().mid(1);
    if (!args.isEmpty() && pw::IsBatchCloneCommand(args[0]))
        return pw::RunBatchClone(args, print(stdout), print(stderr));
    pw::QuietUi ui;
    pw::AppContext context(ui);
    pw::BatchJob job(context);
    QString error;
    if (!job.initializeFromArgs(app.arguments().mid(1), error)) {
        const bool help = app.arguments().size() > 1 &&
                          (app.arguments()[1] == "--help" || app.arguments()[1] == "-h");
        std::fputs(qPrintable(error + (error.endsWith('\n') ? "" : "\n")), help ? stdout : stderr);
        return help ? 0 : 2;
    }
    // Failures are logged where the windows log them.
    if (!pw::EnsureFileStoragePath(context))
        return 2;
    return job.run(print(stdout), print(stderr));
}
