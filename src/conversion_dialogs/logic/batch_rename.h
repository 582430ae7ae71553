#pragma once
// pagewright-batch rename-by-pages: the rename window's choices as options.
//
//   rename-by-pages [--mask MASK] (--prefix | --suffix | --position N [--before] [--after])
//                   [--separator C] [--dry-run] FILE...

#include <QStringList>

#include <functional>

namespace pw {

struct AppContext;

bool IsBatchRenameCommand(const QString &command);
QString BatchRenameUsage();
// Renames the files (args without the program's name; "rename-by-pages" first) or, with
// --dry-run, prints each old and new name. Returns 0 when every file was renamed, 1 when any
// was not (each named on `err`), 2 for a usage error.
int RunBatchRename(AppContext &context, const QStringList &args,
                   const std::function<void(const QString &)> &out,
                   const std::function<void(const QString &)> &err);

} // namespace pw
