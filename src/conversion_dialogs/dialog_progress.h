#pragma once
// The one place where long work reaches the controls a dialog shows it on: the work knows only
// its status, and the dialog hands it this one.

#include "core/progress.h"

class QProgressBar;
class QWidget;

namespace pw {

// A run's status on its dialog's bar; the dialog gave the bar its range. With `stopsWhenHidden`
// closing that window stops the run; without it the run cannot be stopped.
class DialogProgress final : public Progress {
public:
    explicit DialogProgress(QProgressBar *bar, const QWidget *stopsWhenHidden = nullptr)
        : bar_(bar), window_(stopsWhenHidden)
    {
    }
    void setValue(int done) override;
    bool cancelRequested() override;

private:
    QProgressBar *bar_;
    const QWidget *window_;
};

} // namespace pw
