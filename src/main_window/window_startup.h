#pragma once

#include "core/master_layout.h"

#include <memory>

namespace pw {

class frmMain;

// Start-up's windows, shown for real.
class WindowStartup final : public StartupUi {
public:
    WindowStartup();
    ~WindowStartup() override;
    void ShowVistaErrDlg() override;
    void ShowProgressDialog() override;
    void ShowMainWindow(AppContext &context) override;
    bool mainWindowShown() const { return mainWindow_ != nullptr; }
    frmMain *mainWindow() const { return mainWindow_.get(); }

private:
    std::unique_ptr<frmMain> mainWindow_;
};

} // namespace pw
