#include "conversion_dialogs/logic/batch_rename.h"
#include "core/app_context.h"
#include "core/file_names.h"
#include "core/master_layout.h"
#include "engine/batch_job.h"
#include "engine/page_batch.h"
#include "folder_job/batch_clone.h"
#include "program_info.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    // --help needs the commands' usage texts, printed below.
    if (pw::AnswerInfoOption(argc, argv, "pagewright-batch", nullptr))
        return 0;
    QCoreApplication app(argc, argv);
    app.setApplicationName("pagewright-batch");
    const auto print = [](FILE *to) {
        return [to](const QString &line) {
            std::fputs(qPrintable(line + "\n"), to);
            std::fflush(to);
        };
    };
    // File names are taken by their bytes, also those that are not UTF-8.
    QStringList args;
    for (int i = 1; i < argc; ++i)
        args << pw::DecodeFileName(argv[i]);
    const QString command = args.value(0);
    if (command == "--help" || command == "-h") {
        print(stdout)(pw::BatchJob::usage(pw::BatchPageCommandsUsage() + pw::BatchRenameUsage()));
        return 0;
    }
    if (pw::IsBatchCloneCommand(command))
        return pw::RunBatchClone(args, print(stdout), print(stderr));
    pw::QuietUi ui;
    pw::AppContext context(ui);
    pw::BatchJob job(context);
    const bool ownCommand = pw::IsBatchPageCommand(command) || pw::IsBatchRenameCommand(command);
    QString error;
    if (!ownCommand && !job.initializeFromArgs(args, error)) {
        print(stderr)(error.endsWith('\n') ? error.chopped(1) : error);
        return 2;
    }
    // Failures are logged where the windows log them.
    if (!pw::EnsureFileStoragePath(context)) {
        print(stderr)("Cannot create the folder for the failure log: " +
                      (context.FileStoragePath.isEmpty() ? "there is no per-user data folder"
                                                         : context.FileStoragePath));
        return 2;
    }
    if (pw::IsBatchPageCommand(command))
        return pw::RunBatchPageCommand(ui, args, print(stdout), print(stderr));
    if (pw::IsBatchRenameCommand(command))
        return pw::RunBatchRename(context, args, print(stdout), print(stderr));
    return job.run(print(stdout), print(stderr));
}
