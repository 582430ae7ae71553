#include "runtime.h"

#include "backends/common/run_time_errors.h"

#include <QFileInfo>
#include <QLocale>

#include <cerrno>
#include <cmath>
#include <limits>

namespace pw {

namespace {

// Rounds half to even, as the classic integer conversions do.
double bankersRound(double v)
{
    return std::nearbyint(v); // default rounding mode is to nearest, ties to even
}

double toNumber(const QVariant &value)
{
    if (!value.isValid() || value.isNull())
        return 0;
    switch (value.typeId()) {
    case QMetaType::QString: {
        const QString text = value.toString();
        if (text.trimmed().isEmpty() || !IsNumeric(text))
            throw RuntimeError::fromNumber(rte::kTypeMismatch);
        return Val(text.trimmed());
    }
    case QMetaType::Bool:
        return value.toBool() ? -1 : 0;
    default:
        bool ok = false;
        const double d = value.toDouble(&ok);
        if (!ok)
            throw RuntimeError::fromNumber(rte::kTypeMismatch);
        return d;
    }
}

template <typename T> T convertChecked(const QVariant &value)
{
    const double r = bankersRound(toNumber(value));
    if (r < double(std::numeric_limits<T>::min()) || r > double(std::numeric_limits<T>::max()))
        throw RuntimeError::fromNumber(rte::kOverflow);
    return static_cast<T>(r);
}

// The locale's separator of numeric dates; locales whose short date spells the month out
// (the C locale's "d MMM yyyy") have none, and keep "/".
QString dateSeparator(const QLocale &locale)
{
    const QString fmt = locale.dateFormat(QLocale::ShortFormat);
    for (const QChar c : fmt)
        if (c == '/' || c == '.' || c == '-')
            return QString(c);
    return "/";
}

int countRun(const QString &s, int i, QChar c)
{
    int n = 0;
    while (i + n < s.size() && s[i + n].toLower() == c)
        ++n;
    return n;
}

} // namespace

RuntimeError::RuntimeError(int number, const QString &description, const QString &source)
    : std::runtime_error(description.toStdString()), number_(number), description_(description),
      source_(source)
{
}

RuntimeError RuntimeError::fromNumber(int number)
{
    return RuntimeError(number, errorDescription(number));
}

int WriteFailureNumber(int error)
{
    return error == ENOSPC || error == EDQUOT ? 61 : 75;
}

QString errorDescription(int number)
{
    const std::string_view text = rte::errorText(number);
    return text.empty() ? QString() : QString::fromUtf8(text.data(), qsizetype(text.size()));
}

double Val(const QString &text)
{
    // Blanks, tabs and line feeds are skipped anywhere in the number.
    QString s;
    for (const QChar c : text)
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
            s += c;
    if (s.startsWith("&H", Qt::CaseInsensitive) || s.startsWith("&O", Qt::CaseInsensitive)) {
        const int base = s[1].toUpper() == 'H' ? 16 : 8;
        int end = 2;
        while (end < s.size() && QString("0123456789abcdef").left(base).contains(s[end].toLower()))
            ++end;
        bool ok = false;
        const qlonglong v = s.mid(2, end - 2).toLongLong(&ok, base);
        return ok ? double(v) : 0.0;
    }
    int i = 0;
    if (i < s.size() && (s[i] == '+' || s[i] == '-'))
        ++i;
    int digits = 0;
    while (i < s.size() && s[i].isDigit()) {
        ++i;
        ++digits;
    }
    if (i < s.size() && s[i] == '.') {
        ++i;
        while (i < s.size() && s[i].isDigit()) {
            ++i;
            ++digits;
        }
    }
    if (digits == 0)
        return 0;
    int mantissaEnd = i;
    if (i < s.size() && (s[i] == 'e' || s[i] == 'E' || s[i] == 'd' || s[i] == 'D')) {
        int j = i + 1;
        if (j < s.size() && (s[j] == '+' || s[j] == '-'))
            ++j;
        const int expStart = j;
        while (j < s.size() && s[j].isDigit())
            ++j;
        if (j > expStart)
            mantissaEnd = j;
    }
    QString number = s.left(mantissaEnd);
    number.replace(QLatin1Char('d'), QLatin1Char('e'), Qt::CaseInsensitive);
    return number.toDouble();
}

bool IsNumeric(const QString &text)
{
    const QString t = text.trimmed();
    if (t.isEmpty())
        return false;
    bool ok = false;
    QLocale::c().toDouble(t, &ok);
    if (ok)
        return true;
    // The locale's own form, with grouping, counts as numeric too ("1,234").
    QLocale().toDouble(t, &ok);
    return ok;
}

int16_t CInt(const QVariant &value)
{
    return convertChecked<int16_t>(value);
}
int32_t CLng(const QVariant &value)
{
    return convertChecked<int32_t>(value);
}
uint8_t CByte(const QVariant &value)
{
    return convertChecked<uint8_t>(value);
}

float CSng(const QVariant &value)
{
    const double d = toNumber(value);
    if (std::abs(d) > double(std::numeric_limits<float>::max()))
        throw RuntimeError::fromNumber(rte::kOverflow);
    return float(d);
}

QString CStr(const QVariant &value)
{
    if (!value.isValid() || value.isNull())
        return {};
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? "True" : "False";
    return value.toString();
}

QString FormatDate(const QDateTime &when, const QString &pattern)
{
    const QLocale locale;
    const QDate date = when.date();
    const QTime time = when.time();
    const bool twelveHour = pattern.contains("ampm", Qt::CaseInsensitive) ||
                            pattern.contains("am/pm", Qt::CaseInsensitive);
    QString out;
    bool afterHour = false;
    for (int i = 0; i < pattern.size();) {
        const QChar c = pattern[i].toLower();
        if (pattern[i] == '"') {
            const int close = pattern.indexOf('"', i + 1);
            const int end = close < 0 ? pattern.size() : close;
            out += pattern.mid(i + 1, end - i - 1);
            i = end + 1;
            continue;
        }
        if (pattern.mid(i, 4).compare("ampm", Qt::CaseInsensitive) == 0 ||
            pattern.mid(i, 5).compare("am/pm", Qt::CaseInsensitive) == 0) {
            out += time.hour() < 12 ? locale.amText() : locale.pmText();
            i += pattern.mid(i, 4).compare("ampm", Qt::CaseInsensitive) == 0 ? 4 : 5;
            continue;
        }
        const int n = countRun(pattern, i, c);
        switch (c.unicode()) {
        case 'd':
            if (n == 1)
                out += QString::number(date.day());
            else if (n == 2)
                out += QString::number(date.day()).rightJustified(2, '0');
            else
                out += locale.dayName(date.dayOfWeek(),
                                      n == 3 ? QLocale::ShortFormat : QLocale::LongFormat);
            break;
        case 'm':
            if (afterHour && n <= 2)
                out += n == 1 ? QString::number(time.minute())
                              : QString::number(time.minute()).rightJustified(2, '0');
            else if (n <= 2)
                out += n == 1 ? QString::number(date.month())
                              : QString::number(date.month()).rightJustified(2, '0');
            else
                out += locale.monthName(date.month(),
                                        n == 3 ? QLocale::ShortFormat : QLocale::LongFormat);
            break;
        case 'y':
            out += n <= 2 ? QString::number(date.year() % 100).rightJustified(2, '0')
                          : QString::number(date.year());
            break;
        case 'h': {
            int hour = time.hour();
            if (twelveHour)
                hour = hour % 12 == 0 ? 12 : hour % 12;
            out += n == 1 ? QString::number(hour) : QString::number(hour).rightJustified(2, '0');
            break;
        }
        case 'n':
            out += n == 1 ? QString::number(time.minute())
                          : QString::number(time.minute()).rightJustified(2, '0');
            break;
        case 's':
            out += n == 1 ? QString::number(time.second())
                          : QString::number(time.second()).rightJustified(2, '0');
            break;
        case '/':
            out += QString(dateSeparator(locale)).repeated(n);
            break;
        default:
            out += pattern.mid(i, n);
            break;
        }
        if (c == 'h')
            afterHour = true;
        else if (c.isLetter())
            afterHour = false;
        i += n;
    }
    return out;
}

QString FormatNumber(double value, const QString &pattern)
{
    const int point = pattern.indexOf('.');
    const int decimals = point < 0 ? 0 : int(pattern.size() - point - 1);
    const QString integerPart = point < 0 ? pattern : pattern.left(point);
    const int minIntegerDigits = int(integerPart.count('0'));
    QLocale locale;
    locale.setNumberOptions(integerPart.contains(',') ? QLocale::DefaultNumberOptions
                                                      : QLocale::OmitGroupSeparator);
    QString text = locale.toString(value, 'f', decimals);
    if (minIntegerDigits == 0 && std::abs(value) < 1) {
        // "#" drops a leading zero: 0.5 with "#.00" reads ".50", and 0 with "###" reads "".
        const QString zero = locale.toString(0.0, 'f', 0);
        if (text.startsWith(zero))
            text.remove(0, zero.size());
        else if (text.startsWith("-" + zero))
            text.remove(1, zero.size());
    }
    return text;
}

QString GeneralDate(const QDateTime &when)
{
    const QLocale locale;
    QString dateFormat = locale.dateFormat(QLocale::ShortFormat);
    if (!dateFormat.contains("yyyy"))
        dateFormat.replace("yy", "yyyy");
    QString timeFormat = locale.timeFormat(QLocale::LongFormat);
    timeFormat.remove(QLatin1Char('t')).remove(QStringLiteral("()"));
    return when.toString(dateFormat) + " " + when.time().toString(timeFormat.trimmed());
}

QDateTime DateAdd(const QString &interval, double number, const QDateTime &date)
{
    const int n = int(std::trunc(number));
    const QString unit = interval.toLower();
    if (unit == "yyyy")
        return date.addYears(n);
    if (unit == "q")
        return date.addMonths(3 * n);
    if (unit == "m")
        return date.addMonths(n);
    if (unit == "ww")
        return date.addDays(7LL * n);
    if (unit == "d" || unit == "y" || unit == "w")
        return date.addDays(n);
    if (unit == "h")
        return date.addSecs(3600LL * n);
    if (unit == "n")
        return date.addSecs(60LL * n);
    if (unit == "s")
        return date.addSecs(n);
    throw RuntimeError::fromNumber(rte::kInvalidCall);
}

int InStrRev(const QString &text, const QString &find)
{
    if (find.isEmpty())
        return int(text.size());
    return int(text.lastIndexOf(find)) + 1;
}

QStringList Split(const QString &text, const QString &delimiter)
{
    if (text.isEmpty())
        return {};
    if (delimiter.isEmpty())
        return {text};
    return text.split(delimiter, Qt::KeepEmptyParts);
}

QString Dir(const QString &path)
{
    if (path.isEmpty())
        return {};
    const QFileInfo info(path);
    if (!info.exists() || !info.isFile() || info.isHidden())
        return {};
    return info.fileName();
}

} // namespace pw
