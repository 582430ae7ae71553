#pragma once
// How a batch command speaks: its results, its complaints, each file as it is done when the
// user asked for --verbose, and how far it is as one line on a terminal.

#include "progress.h"

#include <QElapsedTimer>
#include <QString>

#include <cstdio>
#include <functional>

namespace pw {

using Sink = std::function<void(const QString &)>;

struct BatchOutput {
    Sink out;     // results (nothing under --quiet)
    Sink err;     // complaints, always
    Sink verbose; // a line per file done, a no-op unless --verbose
    Progress &progress;
};

// The progress of a long command as one line on a terminal's stderr: "12 of 40 files, 0:35
// left  NAME", redrawn at most five times a second and taken away before any other line is
// printed, so that results and complaints never share a line with it. A line that is not
// shown (off a terminal, or --quiet) draws nothing at all.
class TerminalProgress final : public Progress {
public:
    TerminalProgress(std::FILE *to, bool shown);
    ~TerminalProgress() override;
    TerminalProgress(const TerminalProgress &) = delete;
    TerminalProgress &operator=(const TerminalProgress &) = delete;

    void setMaximum(int total) override;
    void setValue(int done) override;
    // The file at hand, shown after the count.
    void setStatusText(const QString &text) override;
    // Takes the line away; the next step draws it again.
    void clear();

    // The line for `done` of `total` after `elapsedMs`, cut to `columns`.
    static QString line(int done, int total, qint64 elapsedMs, const QString &text, int columns);

private:
    void draw(bool force);

    std::FILE *to_;
    bool shown_;
    bool drawn_ = false;
    int total_ = 0, done_ = 0;
    QString text_;
    QElapsedTimer started_, drawnAt_;
};

} // namespace pw
