#pragma once
// pagewright-batch clone and resume: a folder job from the command line, with the same state
// files as the Folder Conversion dialog, so that either can take up a job the other began.
//
//   pagewright-batch clone [--replace] [--color NAME] [--gray NAME] [--bw NAME] [--new]
//                          SOURCE OUTPUT
//   pagewright-batch resume

#include "core/batch_output.h"

#include <QStringList>

namespace pw {

bool IsBatchCloneCommand(const QString &command);
// Runs the command (args without the program's name) and returns the exit status: 0 when
// every file was converted or already there, 1 when a file failed or the run ended through a
// failure, 2 for a usage error or a refusal. The log's lines go to `io.out` as they arrive,
// the count of files done to `io.progress`.
int RunBatchClone(const QStringList &args, const BatchOutput &io);

} // namespace pw
