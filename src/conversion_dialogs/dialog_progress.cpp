#include "dialog_progress.h"

#include <QProgressBar>

namespace pw {

void DialogProgress::setValue(int done)
{
    bar_->setValue(done);
}

bool DialogProgress::cancelRequested()
{
    return window_ && !window_->isVisible();
}

} // namespace pw
