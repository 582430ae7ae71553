#pragma once
// pagewright-batch's PDF and TIFF page commands, on the same classes the windows would use:
//
//   render [--resolution DPI] [--format png|jpeg|tiff|tiff-pages] [--range RANGE]
//          -o DIR FILE.pdf...
//   split [--prefix TEXT] -o DIR FILE.pdf...        one PDF per page, in DIR/<name>/
//   extract --range RANGE [--prefix TEXT] -o DIR FILE.pdf...
//   join -o OUT.pdf FILE.pdf[:RANGE]...
//   info [--title T] [--subject S] [--author A] [--keywords K] FILE.pdf...
//   rotate --angle 90|180|270 [--range RANGE] FILE.pdf...
// (the PDF commands also take --password P)
//   tiff-join -o OUT.tif FILE.tif...
//   tiff-split --page N [--prefix TEXT] -o DIR FILE.tif...
//   tiff-extract [--first N] [--last N] -o DIR FILE.tif...
//   tiff-delete --page N FILE.tif...
//   tiff-append [--at N] TARGET.tif FILE.tif...

#include <QStringList>

#include <functional>

namespace pw {

class UiServices;

bool IsBatchPageCommand(const QString &command);
// Runs the command (args without the program's name) and returns the exit status: 0 when every
// file was done, 1 when any failed (each named on `err`), 2 for a usage error.
int RunBatchPageCommand(UiServices &ui, const QStringList &args,
                        const std::function<void(const QString &)> &out,
                        const std::function<void(const QString &)> &err);
// The commands' lines for the batch tool's help.
QString BatchPageCommandsUsage();

} // namespace pw
