#pragma once
// What long work reports to and how it learns that the user wants it to stop. A window shows
// it on its own controls, the batch tool on the terminal, a test records it.

#include <QString>

namespace pw {

class Progress {
public:
    virtual ~Progress() = default;
    // `done` steps are finished; a window's bar was given its range by the caller.
    virtual void setValue(int done) = 0;
    virtual void setStatusText(const QString &) {}
    // Polled between steps; work that has no stop simply never asks.
    virtual bool cancelRequested() { return false; }
};

} // namespace pw
