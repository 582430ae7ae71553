#pragma once

#include "core/ui_services.h"

#include <QCoreApplication>
#include <QString>
#include <QStringList>

#include <vector>

// Records every message box and shell request; a box is answered with its first button.
class RecordingUi final : public pw::UiServices {
public:
    struct Box {
        QString prompt;
        int flags;
    };

    int MessageBox(const QString &prompt, int flags, const QString &) override
    {
        boxes.push_back({prompt, flags});
        return (flags & pw::vbButtonsMask) == pw::vbYesNo ? pw::vbYes : pw::vbOK;
    }
    int ShellExecute(const QString &verb, const QString &file, const QString &,
                     const QString &) override
    {
        shell.push_back(verb + " " + file);
        return shellResult;
    }
    void OpenWith(const QString &file) override { openWith.push_back(file); }
    QString BrowseForFolder(const QString &, const QString &, bool) override { return {}; }
    void DoEvents() override { QCoreApplication::processEvents(); }

    std::vector<Box> boxes;
    QStringList shell;
    QStringList openWith;
    int shellResult = 42;
};
