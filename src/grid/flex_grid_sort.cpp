#include "flex_grid_sort.h"

#include <QDateTime>
#include <QLocale>

#include <algorithm>
#include <numeric>

namespace flexsort {

bool IsDescending(int order)
{
    return order == flexgrid::kGenericDescending || order == flexgrid::kNumericDescending ||
           order == flexgrid::kStringNoCaseDescending || order == flexgrid::kStringDescending;
}

double LeadingNumber(const QString &text, int &consumed, QChar group, QChar point)
{
    consumed = 0;
    const int n = text.size();
    int i = 0;
    while (i < n && text[i].isSpace())
        ++i;
    bool negative = false;
    if (i < n && (text[i] == u'-' || text[i] == u'+')) {
        negative = text[i] == u'-';
        ++i;
    }
    if (i >= n || !text[i].isDigit())
        return 0;
    double value = 0;
    while (i < n) {
        if (text[i].isDigit()) {
            value = value * 10 + text[i].digitValue();
            ++i;
        } else if (text[i] == group) {
            // A group separator counts only before exactly three digits: "1,234" is one
            // number, "2,5" and "1,23" stop at the comma.
            int digits = 0;
            while (i + 1 + digits < n && text[i + 1 + digits].isDigit())
                ++digits;
            if (digits != 3)
                break;
            ++i;
        } else {
            break;
        }
    }
    if (i + 1 < n && text[i] == point && text[i + 1].isDigit()) {
        ++i;
        double scale = 0.1;
        while (i < n && text[i].isDigit()) {
            value += scale * text[i].digitValue();
            scale /= 10;
            ++i;
        }
    }
    consumed = i;
    return negative ? -value : value;
}

int NaturalCompare(const QString &a, const QString &b)
{
    const int na = a.size(), nb = b.size();
    int i = 0, j = 0;
    while (i < na && j < nb) {
        if (a[i].isDigit() && b[j].isDigit()) {
            int si = i, sj = j;
            while (si < na && a[si] == u'0')
                ++si;
            while (sj < nb && b[sj] == u'0')
                ++sj;
            int ei = si, ej = sj;
            while (ei < na && a[ei].isDigit())
                ++ei;
            while (ej < nb && b[ej].isDigit())
                ++ej;
            // More significant digits is the larger number; equal lengths compare digit by
            // digit, which also copes with runs too long for any integer type.
            if (ei - si != ej - sj)
                return (ei - si) < (ej - sj) ? -1 : 1;
            for (int k = 0; k < ei - si; ++k) {
                if (a[si + k] != b[sj + k])
                    return a[si + k] < b[sj + k] ? -1 : 1;
            }
            i = ei;
            j = ej;
            continue;
        }
        if (a[i] != b[j])
            return a[i] < b[j] ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < na)
        return 1;
    if (j < nb)
        return -1;
    return 0;
}

namespace {

bool ReadDigits(const QString &text, int &pos, int maxDigits, int &value)
{
    int digits = 0;
    value = 0;
    while (pos < text.size() && digits < maxDigits && text[pos].isDigit()) {
        value = value * 10 + text[pos].digitValue();
        ++pos;
        ++digits;
    }
    return digits > 0;
}

bool MatchWord(const QString &text, int &pos, const QString &word)
{
    if (word.isEmpty() ||
        QStringView(text).mid(pos, word.size()).compare(word, Qt::CaseInsensitive) != 0)
        return false;
    pos += word.size();
    return true;
}

} // namespace

bool ParseDateKey(const QString &text, const QString &format, const QString &amText,
                  const QString &pmText, int64_t &key)
{
    int year = 0, month = 1, day = 1, hour = 0, minute = 0, second = 0;
    int marker = 0; // 0 none, 1 morning, 2 afternoon
    bool lastWasHour = false;
    int pos = 0;
    const QString f = format.toLower();
    int i = 0;
    while (i < f.size()) {
        const QChar c = f[i];
        if (f.mid(i, 5) == u"am/pm" || f.mid(i, 4) == u"ampm" || f.mid(i, 2) == u"ap") {
            i += f.mid(i, 5) == u"am/pm" ? 5 : (f.mid(i, 4) == u"ampm" ? 4 : 2);
            if (MatchWord(text, pos, amText) || MatchWord(text, pos, QStringLiteral("AM")))
                marker = 1;
            else if (MatchWord(text, pos, pmText) || MatchWord(text, pos, QStringLiteral("PM")))
                marker = 2;
            else
                return false;
            continue;
        }
        int run = 1;
        while (i + run < f.size() && f[i + run] == c)
            ++run;
        int value = 0;
        switch (c.unicode()) {
        case 'd':
            if (!ReadDigits(text, pos, 2, day))
                return false;
            lastWasHour = false;
            break;
        case 'm':
            if (!ReadDigits(text, pos, 2, value))
                return false;
            (lastWasHour ? minute : month) = value;
            lastWasHour = false;
            break;
        case 'n':
            if (!ReadDigits(text, pos, 2, minute))
                return false;
            break;
        case 'y':
            if (!ReadDigits(text, pos, run >= 4 ? 4 : 2, year))
                return false;
            if (run < 4)
                year += year < 30 ? 2000 : 1900;
            lastWasHour = false;
            break;
        case 'h':
            if (!ReadDigits(text, pos, 2, hour))
                return false;
            lastWasHour = true;
            break;
        case 's':
            if (!ReadDigits(text, pos, 2, second))
                return false;
            lastWasHour = false;
            break;
        default:
            // A literal: the text must hold it; blanks on either side are forgiven.
            for (int k = 0; k < run; ++k) {
                if (c.isSpace()) {
                    while (pos < text.size() && text[pos].isSpace())
                        ++pos;
                } else {
                    while (pos < text.size() && text[pos].isSpace())
                        ++pos;
                    if (pos >= text.size() || text[pos].toLower() != c)
                        return false;
                    ++pos;
                }
            }
            break;
        }
        i += run;
    }
    if (marker == 2 && hour < 12)
        hour += 12;
    else if (marker == 1 && hour == 12)
        hour = 0;
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 59)
        return false;
    key = ((((int64_t(year) * 12 + month) * 31 + day) * 24 + hour) * 60 + minute) * 60 + second;
    return true;
}

SortKey MakeKey(const QString &text, int order, const ColumnSortInfo &info)
{
    SortKey key;
    if (text.isEmpty())
        return key;
    key.original = text;
    const bool stringOrder = order >= flexgrid::kStringNoCaseAscending;
    if (info.isDate && !stringOrder) {
        int64_t dateKey = 0;
        bool ok = false;
        if (!info.dateFormat.isEmpty()) {
            ok = ParseDateKey(text, info.dateFormat, info.amText, info.pmText, dateKey);
        } else {
            const QDateTime parsed = QDateTime::fromString(text, Qt::ISODate);
            ok = parsed.isValid();
            dateKey = ok ? parsed.toSecsSinceEpoch() : 0;
        }
        if (ok) {
            key.kind = KeyKind::Number;
            key.number = double(dateKey);
            return key;
        }
    }
    key.kind = KeyKind::Text;
    if (order == flexgrid::kStringAscending || order == flexgrid::kStringDescending)
        key.folded = text;
    else
        key.folded = text.toCaseFolded();
    if (stringOrder || info.isDate)
        return key;
    int consumed = 0;
    const double number = LeadingNumber(text, consumed, info.group, info.point);
    if (consumed == 0)
        return key;
    const bool whole = QStringView(text).mid(consumed).trimmed().isEmpty();
    // Generic order takes a cell as a number only when it is one; numeric order takes its
    // leading number and lets the rest break ties, which is what puts 2.tif before 10.tif.
    if (whole || order == flexgrid::kNumericAscending || order == flexgrid::kNumericDescending) {
        key.kind = KeyKind::Number;
        key.number = number;
    }
    return key;
}

int CompareKeys(const SortKey &a, const SortKey &b, int order)
{
    if (a.kind != b.kind)
        return a.kind < b.kind ? -1 : 1;
    if (a.kind == KeyKind::Empty)
        return 0;
    const bool numeric =
        order == flexgrid::kNumericAscending || order == flexgrid::kNumericDescending;
    if (a.kind == KeyKind::Number) {
        if (a.number != b.number)
            return a.number < b.number ? -1 : 1;
        if (!numeric)
            return 0;
    }
    const int byFolded = numeric ? NaturalCompare(a.folded, b.folded) : a.folded.compare(b.folded);
    if (byFolded != 0)
        return byFolded;
    return a.original.compare(b.original);
}

std::vector<int> SortPermutation(const std::vector<SortKey> &keys, int rowCount, int keysPerRow,
                                 int order)
{
    std::vector<int> permutation(rowCount);
    std::iota(permutation.begin(), permutation.end(), 0);
    if (order == flexgrid::kSortNone || keysPerRow < 1)
        return permutation;
    const bool descending = IsDescending(order);
    std::stable_sort(permutation.begin(), permutation.end(), [&](int x, int y) {
        for (int k = 0; k < keysPerRow; ++k) {
            const int c = CompareKeys(keys[size_t(x) * keysPerRow + k],
                                      keys[size_t(y) * keysPerRow + k], order);
            if (c != 0)
                return descending ? c > 0 : c < 0;
        }
        return false;
    });
    return permutation;
}

} // namespace flexsort
