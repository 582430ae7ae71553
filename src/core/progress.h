#pragma once
// What long work reports to and how it learns that the user wants it to stop. A window shows
// it on its own controls, the batch tool on the terminal, a test records it.

#include <QString>

#include <atomic>

namespace pw {

class Progress {
public:
    virtual ~Progress() = default;
    // How many steps the work has, before the first value; a window's bar may have been given
    // its range by the caller instead.
    virtual void setMaximum(int) {}
    // `done` steps are finished.
    virtual void setValue(int done) = 0;
    virtual void setStatusText(const QString &) {}
    // Polled between steps; work that has no stop simply never asks.
    virtual bool cancelRequested() { return false; }
};

// What work reports to when nobody watches it: a terminal command, a caller that wants the
// result alone. It never asks for a stop.
class NoProgress final : public Progress {
public:
    void setValue(int) override {}
};

// A status whose stop is asked for from outside the work it was handed to: a second press of
// the button that started it, Ctrl+C. cancel() may come from another thread or a signal
// handler; once asked, the stop stays asked.
class StoppableProgress : public Progress {
public:
    void setValue(int) override {}
    bool cancelRequested() override { return cancelled_.load(); }
    void cancel() { cancelled_.store(true); }

private:
    std::atomic<bool> cancelled_{false};
};

} // namespace pw
