#pragma once
// Acts on the modal dialogs that a command opens, in the order they open: each step runs inside
// its dialog's own event loop once the dialog shows. A dialog its step leaves open is closed, so
// a failed expectation cannot hang a test.

#include <gtest/gtest.h>

#include <QApplication>
#include <QDialog>
#include <QEvent>
#include <QTest>
#include <QTimer>

#include <deque>
#include <functional>

// Returns once `dialog` shows and the calls it queued so far have run, such as the checks a
// dialog makes when its window is up: a step then acts on a dialog that is done opening.
inline void settle(QDialog &dialog)
{
    ASSERT_TRUE(QTest::qWaitFor([&dialog] { return dialog.isVisible(); }));
    bool passed = false;
    QMetaObject::invokeMethod(
        &dialog, [&passed] { passed = true; }, Qt::QueuedConnection);
    ASSERT_TRUE(QTest::qWaitFor([&passed] { return passed; }));
}

class ModalScript final : public QObject {
public:
    ModalScript() { qApp->installEventFilter(this); }
    ~ModalScript() override
    {
        qApp->removeEventFilter(this);
        EXPECT_TRUE(steps_.empty()) << steps_.size() << " scripted dialog(s) never opened";
    }

    // The next modal dialog must be a Dialog; `step` acts on it.
    template <typename Dialog> void then(std::function<void(Dialog &)> step)
    {
        steps_.push_back([step](QDialog &shown) {
            auto *dialog = qobject_cast<Dialog *>(&shown);
            ASSERT_NE(dialog, nullptr)
                << "another dialog opened: " << shown.metaObject()->className();
            step(*dialog);
        });
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *dialog = qobject_cast<QDialog *>(watched);
        if (event->type() != QEvent::Show || !dialog || !dialog->isModal() || steps_.empty())
            return false;
        auto step = std::move(steps_.front());
        steps_.pop_front();
        QTimer::singleShot(0, dialog, [dialog, step] {
            step(*dialog);
            if (dialog->isVisible())
                dialog->reject();
        });
        return false;
    }

private:
    std::deque<std::function<void(QDialog &)>> steps_;
};
