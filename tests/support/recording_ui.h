#pragma once

#include "core/ui_services.h"

#include <QCoreApplication>
#include <QString>
#include <QStringList>

#include <deque>
#include <vector>

// Records every message box and prompt, and answers from queues (first button by default).
class RecordingUi final : public pw::UiServices {
public:
    struct Box {
        QString prompt;
        int flags;
        QString title;
    };

    int MessageBox(const QString &prompt, int flags, const QString &title) override
    {
        boxes.push_back({prompt, flags, title});
        if (!answers.empty()) {
            const int a = answers.front();
            answers.pop_front();
            return a;
        }
        return (flags & pw::vbButtonsMask) == pw::vbYesNo ? pw::vbYes : pw::vbOK;
    }
    int ShellExecute(const QString &verb, const QString &file, const QString &,
                     const QString &) override
    {
        shell.push_back(verb + " " + file);
        return shellResult;
    }
    void OpenWith(const QString &file) override { openWith.push_back(file); }
    QString BrowseForFolder(const QString &, const QString &, bool) override
    {
        return folderAnswer;
    }
    void DoEvents() override
    {
        ++doEvents;
        QCoreApplication::processEvents();
    }

    QStringList prompts() const
    {
        QStringList out;
        for (const Box &b : boxes)
            out << b.prompt;
        return out;
    }

    std::vector<Box> boxes;
    std::deque<int> answers;
    QStringList shell;
    QStringList openWith;
    int shellResult = 42;
    QString folderAnswer;
    int doEvents = 0;
};
