#pragma once
// pagewright-batch: conversions from the command line on the same code as the windows.
//
//   pagewright-batch convert [--color NAME] [--gray NAME] [--bw NAME] [--replace] [--jobs N]
//                            -o DIR FILE...
//   pagewright-batch merge -o OUT.pdf FILE...
//   pagewright-batch pages FILE...

#include "backends/image_to_pdf/page_layout.h"
#include "core/batch_output.h"

#include <QString>
#include <QStringList>

namespace pw {

struct AppContext;

class BatchJob {
public:
    explicit BatchJob(AppContext &context);

    // Reads the arguments (without the program name). False with `error` set when they are off.
    bool initializeFromArgs(const QStringList &args, QString &error);
    // Runs the command. Every failed file gets one line on `io.err`; the result is the
    // process's exit status: 0 when every file succeeded.
    int run(const BatchOutput &io);

    // The help, with the lines of the commands other parts of the tool run after this job's.
    static QString usage(const QString &moreCommands = {});

private:
    // Checks the options and files read.
    bool checkArguments(QString &error);
    int convert(const BatchOutput &io);
    int merge(const BatchOutput &io);
    int pages(const BatchOutput &io);

    AppContext &context_;
    QString command_;
    QString output_;
    QString colour_, grey_, blackWhite_;
    bool replace_ = false;
    int workers_; // files converted at once
    i2p::PageLayout layout_;
    QStringList files_;
};

// The PDF an image converts to, in `folder`: the file's name up to its last dot, then ".pdf".
QString PdfPathFor(const QString &folder, const QString &fileName);

} // namespace pw
