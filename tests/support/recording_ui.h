#pragma once

#include "core/ui_services.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QString>
#include <QStringList>

#include <deque>
#include <functional>
#include <vector>

// Records every message box, prompt and shell request. A Yes/No box takes the next of
// `answers` (Yes once they are used up), any other box its first button; the folder prompt
// answers `folderAnswer`, the save prompt the next of `saveAnswers` ("" once used up).
class RecordingUi final : public pw::UiServices {
public:
    struct Box {
        QString prompt;
        int flags;
        bool busy; // shown under an application-wide (busy) cursor
    };

    int MessageBox(const QString &prompt, int flags, const QString &) override
    {
        boxes.push_back({prompt, flags, busyCursor()});
        if ((flags & pw::vbButtonsMask) != pw::vbYesNo)
            return pw::vbOK;
        if (answers.empty())
            return pw::vbYes;
        const int answer = answers.front();
        answers.pop_front();
        return answer;
    }
    int ShellExecute(const QString &verb, const QString &file, const QString &,
                     const QString &) override
    {
        shell.push_back(verb + " " + file);
        return shellResult;
    }
    void OpenWith(const QString &file) override { openWith.push_back(file); }
    QString BrowseForFolder(const QString &title, const QString &, int flags) override
    {
        prompts << QString("%1 %2").arg(title).arg(flags);
        return folderAnswer;
    }
    QString AskSaveFileName(const QString &title, const QString &filter, int index) override
    {
        prompts << QString("%1 %2 %3").arg(title, filter).arg(index);
        return saveAnswers.isEmpty() ? QString() : saveAnswers.takeFirst();
    }
    void DoEvents() override
    {
        if (onDoEvents)
            onDoEvents();
        QCoreApplication::processEvents();
    }

    std::vector<Box> boxes;
    QStringList shell;
    QStringList openWith;
    QStringList prompts; // "title flags" of folder prompts, "title filter index" of save prompts
    int shellResult = 42;
    std::deque<int> answers;
    QString folderAnswer;
    QStringList saveAnswers;
    std::function<void()> onDoEvents; // what a test looks at whenever events may run

private:
    // Logic tests run under a plain QCoreApplication, which has no cursor to ask about.
    static bool busyCursor()
    {
        return qobject_cast<QGuiApplication *>(QCoreApplication::instance()) &&
               QGuiApplication::overrideCursor();
    }
};
