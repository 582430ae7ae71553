#pragma once
// The run-time conversions and helpers the program's procedures rely on, with the classic
// semantics (numbers, names and texts of failures included) so that every caller agrees.

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <cstdint>
#include <stdexcept>

namespace pw {

// A run-time failure: number, description and source, as the failure log records them.
class RuntimeError : public std::runtime_error {
public:
    RuntimeError(int number, const QString &description, const QString &source = {});
    // A failure with the run-time's standard description for `number` ("" when it has none).
    static RuntimeError fromNumber(int number);

    int number() const { return number_; }
    const QString &description() const { return description_; }
    const QString &source() const { return source_; }

private:
    int number_;
    QString description_;
    QString source_;
};

// The standard description of a run-time error number, e.g. 6 -> "Overflow".
QString errorDescription(int number);
// The number of a write that failed with the system's `error`: 61 "Disk full" when there is no
// room or quota left, else 75 "Path/File access error".
int WriteFailureNumber(int error);

// Leading numeric value of a text: blanks are skipped, parsing stops at the first character
// that cannot continue a number, "&H"/"&O" prefixes read hex and octal. Never fails.
double Val(const QString &text);

// True when the text reads completely as a number (blanks around it allowed).
bool IsNumeric(const QString &text);

// Conversions with banker's rounding; a number out of range raises 6 "Overflow",
// a text that is no number raises 13 "Type mismatch". An invalid QVariant reads as 0.
int16_t CInt(const QVariant &value);
int32_t CLng(const QVariant &value);
uint8_t CByte(const QVariant &value);
float CSng(const QVariant &value);
// A text form of any value; an invalid QVariant reads as "".
QString CStr(const QVariant &value);

// Formats a date by a classic pattern: d dd ddd dddd, m mm (minutes after an hour token),
// mmm mmmm, yy yyyy, h hh, n nn, s ss, ampm (12-hour clock with the locale's markers).
// "/" is the locale's date separator; text in double quotes is copied.
QString FormatDate(const QDateTime &when, const QString &pattern);
// Formats a number by a pattern of "#", "0", "," (grouping) and "." (decimals).
QString FormatNumber(double value, const QString &pattern);
// A date and time in the user's locale, as a date converted to text reads: short date with a
// four-digit year, then the time with seconds.
QString GeneralDate(const QDateTime &when);

// Calendar arithmetic: interval "yyyy", "q", "m", "ww", "w", "d", "y", "h", "n", "s".
// A month step keeps the day where the month has it, else lands on the month's last day.
QDateTime DateAdd(const QString &interval, double number, const QDateTime &date);

// 1-based position of the last `find` in `text`, 0 when absent; "" is found at the end.
int InStrRev(const QString &text, const QString &find);

// Splits at every delimiter, keeping empty pieces; an empty text gives no element at all.
QStringList Split(const QString &text, const QString &delimiter);

// The file name when `path` names an existing file with normal attributes, else "".
QString Dir(const QString &path);

} // namespace pw
