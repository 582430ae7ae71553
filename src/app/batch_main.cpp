#include "allocator_options.h"
#include "conversion_dialogs/logic/batch_rename.h"
#include "core/app_context.h"
#include "core/command_line.h"
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
    pw::SetAllocatorOptions();
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
    // Without a command the usage is a reminder of a mistake: the same text, on stderr.
    if (command.isEmpty() || command == "--help" || command == "-h") {
        print(command.isEmpty() ? stderr : stdout)(
            pw::BatchJob::usage(pw::BatchPageCommandsUsage() + pw::BatchRenameUsage()));
        return command.isEmpty() ? 2 : 0;
    }
    // "COMMAND --help" (before any "--"): that command's part of the usage.
    const QStringList options = args.mid(1, args.indexOf("--") < 0 ? -1 : args.indexOf("--") - 1);
    if (options.contains("--help") || options.contains("-h")) {
        const QString usage = pw::CommandUsage(
            pw::BatchJob::usage(pw::BatchPageCommandsUsage() + pw::BatchRenameUsage()), command);
        if (!usage.isEmpty()) {
            print(stdout)(usage.chopped(1));
            return 0;
        }
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
