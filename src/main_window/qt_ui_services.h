#pragma once

#include "core/ui_services.h"

namespace pw {

// The desktop's own message boxes, folder prompt and shell, on Qt.
class QtUiServices final : public UiServices {
public:
    int MessageBox(const QString &prompt, int flags, const QString &title) override;
    int ShellExecute(const QString &verb, const QString &file, const QString &parameters,
                     const QString &folder) override;
    void OpenWith(const QString &file) override;
    QString BrowseForFolder(const QString &title, const QString &startPath, int flags) override;
    QString AskSaveFileName(const QString &title, const QString &filter, int filterIndex) override;
    void DoEvents() override;
};

} // namespace pw
