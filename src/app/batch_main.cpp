#include "allocator_options.h"
#include "conversion_dialogs/logic/batch_rename.h"
#include "core/app_context.h"
#include "core/batch_output.h"
#include "core/command_line.h"
#include "core/file_names.h"
#include "core/master_layout.h"
#include "engine/batch_job.h"
#include "engine/page_batch.h"
#include "folder_job/batch_clone.h"
#include "program_info.h"

#include <QCoreApplication>

#include <unistd.h>

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
    // --quiet and --verbose go with every command, anywhere before "--".
    const auto flag = [&args](const QStringList &spellings) {
        const qsizetype end = args.indexOf("--") < 0 ? args.size() : args.indexOf("--");
        bool given = false;
        for (qsizetype i = end - 1; i >= 0; --i)
            if (spellings.contains(args[i])) {
                args.removeAt(i);
                given = true;
            }
        return given;
    };
    const bool quiet = flag({"--quiet", "-q"}), verbose = flag({"--verbose", "-v"});
    if (quiet && verbose) {
        print(stderr)("pagewright-batch: --quiet and --verbose exclude each other.");
        return 2;
    }
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
    // The progress line is taken away before any other line, so that none shares its line.
    pw::TerminalProgress progress(stderr, !quiet && ::isatty(STDERR_FILENO));
    const pw::Sink err = [&](const QString &line) {
        progress.clear();
        print(stderr)(line);
    };
    const pw::Sink out = [&](const QString &line) {
        if (quiet)
            return;
        progress.clear();
        print(stdout)(line);
    };
    const pw::BatchOutput io{out, err, verbose ? out : [](const QString &) {}, progress};
    if (pw::IsBatchCloneCommand(command))
        return pw::RunBatchClone(args, io);
    pw::QuietUi ui;
    pw::AppContext context(ui);
    pw::BatchJob job(context);
    const bool ownCommand = pw::IsBatchPageCommand(command) || pw::IsBatchRenameCommand(command);
    QString error;
    if (!ownCommand && !job.initializeFromArgs(args, error)) {
        err("pagewright-batch: " + error);
        return 2;
    }
    // Failures are logged where the windows log them.
    if (!pw::EnsureFileStoragePath(context)) {
        err("pagewright-batch: cannot create the folder for the failure log: " +
            (context.FileStoragePath.isEmpty() ? "there is no per-user data folder"
                                               : context.FileStoragePath));
        return 2;
    }
    if (pw::IsBatchPageCommand(command))
        return pw::RunBatchPageCommand(ui, args, io);
    if (pw::IsBatchRenameCommand(command))
        return pw::RunBatchRename(context, args, out, err);
    return job.run(io);
}
