#include "search_criteria.h"

#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "core/runtime.h"

#include <cmath>

namespace pw {

const QStringList FilterPatternEntries = {
    "Image files", "*.tif,*.tiff", "*.jpg,*.jp2", "*.gif",       "*.png,*.pcd,*.psd,*.tga",
    "*.bmp",       "*.dcx",        "*.emf,*.wmf", "*.pcx,*.ppm", "*.ico",
    "*.pnm",
};
const QStringList DateRangeTypes = {"Files Created", "Files Modified", "Files Last Accessed"};
const QStringList DateInPeriodUnits = {"Day(s)", "Month(s)"};
const QStringList LeastMostWords = {"Least", "Most"};

namespace {

bool sameLetter(QChar a, QChar b)
{
    if (a.unicode() < 128 && b.unicode() < 128) {
        const auto lower = [](char16_t c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; };
        return lower(a.unicode()) == lower(b.unicode());
    }
    return a.toCaseFolded() == b.toCaseFolded();
}

// One mask, up to the end of the text or its ";".
bool matchOne(const QChar *name, const QChar *nameEnd, const QChar *mask, const QChar *maskEnd)
{
    while (mask != maskEnd) {
        if (*mask == '*') {
            while (mask != maskEnd && *mask == '*')
                ++mask;
            if (mask == maskEnd)
                return true;
            for (const QChar *n = name; n != nameEnd; ++n)
                if (matchOne(n, nameEnd, mask, maskEnd))
                    return true;
            // "*." at the end also matches a name without any extension.
            return mask + 1 == maskEnd && *mask == '.';
        }
        if (name == nameEnd)
            return false;
        if (*mask != '?' && !sameLetter(*mask, *name))
            return false;
        ++mask;
        ++name;
    }
    return name == nameEnd;
}

} // namespace

bool PathMatchSpec(const QString &name, const QString &pattern)
{
    if (pattern == "*.*")
        return true;
    const QChar *nameBegin = name.constData();
    const QChar *nameEnd = nameBegin + name.size();
    const QChar *p = pattern.constData();
    const QChar *end = p + pattern.size();
    while (p != end) {
        while (p != end && *p == ' ')
            ++p;
        const QChar *maskEnd = p;
        while (maskEnd != end && *maskEnd != ';')
            ++maskEnd;
        if (maskEnd != p && matchOne(nameBegin, nameEnd, p, maskEnd))
            return true;
        p = maskEnd == end ? end : maskEnd + 1;
    }
    return false;
}

std::optional<QStringList> GenerateFilterPatternArray(const QString &pattern)
{
    // A typed "*.*" deliberately yields no array: nothing matches and each file logs a line.
    if (pattern.trimmed() == "*.*")
        return std::nullopt;
    if (pattern.contains(';'))
        return pattern.split(';');
    if (pattern.contains(','))
        return pattern.split(',');
    return QStringList{pattern};
}

bool IsFileMatchWithFilterPattern(const QString &name, const std::optional<QStringList> &patterns)
{
    bool result = false;
    PW_PROCEDURE("IsFileMatchWithFilterPattern", Unit::form("frmMain"));
    guarded(pwTail, [&] {
        PW_STEP;
        if (!patterns)
            throw RuntimeError::fromNumber(9);
        PW_STEP;
        for (const QString &pattern : *patterns) {
            if (PathMatchSpec(name, pattern)) {
                result = true;
                return;
            }
        }
    });
    return result;
}

namespace {

bool withinDates(const FileFacts &file, const AdvanceOptions &o, const QDate &today)
{
    QDate from = today;
    QDate to = today;
    if (o.inPeriod) {
        const int16_t n = CInt(o.inPeriodText);
        if (n >= 1) {
            const QString interval = o.dateInPeriodText == "Day(s)" ? "d" : "m";
            // The step is the box's text with a minus sign in front, as typed.
            const double back = CLng("-" + o.inPeriodText.trimmed());
            from = DateAdd(interval, back, QDateTime(today, QTime(0, 0))).date();
        }
    } else {
        from = o.dateFrom.date();
        to = o.dateTo.date();
    }
    const QString kind = TrimNull(o.dateRangeTypeText);
    QDateTime chosen;
    if (kind == DateRangeTypes[0])
        chosen = file.created;
    else if (kind == DateRangeTypes[1])
        chosen = file.modified;
    else if (kind == DateRangeTypes[2])
        chosen = file.accessed;
    else
        return true; // a typed text names no date: the date test is skipped
    if (!chosen.isValid())
        throw RuntimeError::fromNumber(5);
    const QDate fileDate = chosen.date();
    return !(fileDate < from) && !(fileDate > to);
}

bool withinSize(const FileFacts &file, const AdvanceOptions &o)
{
    const int32_t kb = RoundUpToWhole(double(file.size) / 1024.0);
    if (o.sizeAt) {
        const int32_t limit = CLng(o.sizeLeastMostText);
        return TrimNull(o.leastMostText) == "Least" ? !(kb < limit) : !(kb > limit);
    }
    const int32_t low = CLng(o.sizeFromText);
    const int32_t high = CLng(o.sizeToText);
    return low <= kb && kb <= high;
}

} // namespace

bool AdvanceOptionsActive(const AdvanceOptions &options)
{
    return options.useAdvOpt && (options.searchByDate == 1 || options.searchBySize == 1);
}

bool IsFileMatchWithAdvanceOptions(const FileFacts &file, const AdvanceOptions &options,
                                   const QDate &today)
{
    if (!AdvanceOptionsActive(options))
        return true;
    try {
        if (options.searchByDate == 1 && !withinDates(file, options, today))
            return false;
        if (options.searchBySize == 1 && !withinSize(file, options))
            return false;
        return true;
    } catch (const std::exception &) {
        return false; // a bad number makes every file no hit, with no word to anyone
    }
}

int32_t RoundUpToWhole(double value)
{
    const double r = std::nearbyint(value);
    return int32_t(value > r ? r + 1 : r);
}

} // namespace pw
