#include "core/app_context.h"
#include "core/master_layout.h"
#include "engine/batch_job.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    app.setApplicationName("pagewright-batch");
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
    const auto print = [](FILE *to) {
        return [to](const QString &line) { std::fputs(qPrintable(line + "\n"), to); };
    };
    return job.run(print(stdout), print(stderr));
}
