#pragma once
// The failure tail every fallible procedure ends in: an unexpected failure becomes one line
// in "Errors.Log" and the procedure returns its zero value. No message box, no retry.
//
//   bool Settings::LoadSettings() {
//       bool result = false;
//       PW_PROCEDURE("LoadSettings", Unit::classModule("Settings"));
//       pw::guarded(pwTail, [&] {
//           PW_STEP; ...        // the number reported is that of the last step reached
//           result = true;
//       });
//       return result;
//   }

#include "runtime.h"

#include <QString>

#include <exception>
#include <utility>

namespace pw {

// The source unit a procedure belongs to; it gives the fixed suffix of its log lines.
class Unit {
public:
    static Unit module(const QString &name) { return Unit(" of Module " + name + " at time"); }
    static Unit classModule(const QString &name)
    {
        return Unit(" of Class Module " + name + " at time");
    }
    static Unit form(const QString &name) { return Unit(" of Form " + name + " at time"); }
    // The few units whose lines lack the closing " at time"; the log's readers expect the
    // mixed wording, so it is kept.
    static Unit formWithoutTime(const QString &name) { return Unit(" of Form " + name); }

    const QString &suffix() const { return suffix_; }

private:
    explicit Unit(QString suffix) : suffix_(std::move(suffix)) {}
    QString suffix_;
};

// Where a procedure is: its name, its unit and the last statement reached.
struct FailureTail {
    QString procedure;
    Unit unit;
    int line = 0;
    // The number and description of the failure `guarded` logged, for callers that show it
    // as well or act on its kind.
    int failureNumber = 0;
    QString failure{};

    // Pieces 1 to 7 of a log line for `error`.
    QString message(int number, const QString &description) const;
    void log(int number, const QString &description) const;
};

// Appends `message`, "- " and the present date and time as one line to the failure log, line
// breaks in the message escaped. Past 1 MiB the log is renamed "Errors.Log.1" (replacing the
// one before) and starts afresh. A log that cannot be written loses the line silently.
void WriteErrorLog(const QString &message);
// Where "Errors.Log" lives: the storage folder, set once it is known. Failures can arise in
// any procedure, before and outside of anything that holds the program's context, so this one
// place is process-wide; before it is set, lines are lost.
void SetErrorLogFolder(const QString &folder);

// Runs `body`; any failure it raises is logged through `tail` and swallowed.
// Returns true when the body ran to its end.
template <typename Body> bool guarded(FailureTail &tail, Body &&body)
{
    int number = 5;
    try {
        std::forward<Body>(body)();
        return true;
    } catch (const RuntimeError &e) {
        number = e.number();
        tail.failure = e.description();
    } catch (const std::bad_alloc &) {
        number = 7;
        tail.failure = errorDescription(7);
    } catch (const std::exception &e) {
        tail.failure = QString::fromLocal8Bit(e.what());
    } catch (...) {
        tail.failure = errorDescription(5);
    }
    tail.failureNumber = number;
    tail.log(number, tail.failure);
    return false;
}

} // namespace pw

#define PW_PROCEDURE(name, unit)                                                                   \
    ::pw::FailureTail pwTail                                                                       \
    {                                                                                              \
        QStringLiteral(name), (unit)                                                               \
    }
#define PW_STEP (pwTail.line = __LINE__)
