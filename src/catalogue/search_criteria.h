#pragma once
// What makes a file a hit: its name against the filter patterns, then its date and size
// against the advance search options.

#include <QDate>
#include <QDateTime>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

namespace pw {

// The word lists of the search boxes, in their order.
extern const QStringList FilterPatternEntries; // "Image files", "*.tif,*.tiff", ...
extern const QStringList DateRangeTypes;       // "Files Created", "Files Modified", ...
extern const QStringList DateInPeriodUnits;    // "Day(s)", "Month(s)"
extern const QStringList LeastMostWords;       // "Least", "Most"

// The case-insensitive "*" / "?" wildcard match of file names. Leading blanks of the pattern
// are skipped, ";" ends a pattern and starts the next, "*.*" matches every name.
bool PathMatchSpec(const QString &name, const QString &pattern);

// Splits a typed pattern text: at ";" when it has one, else at ",". "*.*" gives no array
// (std::nullopt), on which every match fails.
std::optional<QStringList> GenerateFilterPatternArray(const QString &pattern);

// True at the first pattern that matches `name` (a name without its folder). Matching
// against no array fails and logs, once per file.
bool IsFileMatchWithFilterPattern(const QString &name, const std::optional<QStringList> &patterns);

// The values of the advance search controls, as the window holds them at one moment.
struct AdvanceOptions {
    bool useAdvOpt = false;    // ChkUseAdvOpt
    int searchByDate = 0;      // chkSearchByDate, 1 when checked
    int searchBySize = 0;      // chkSearchBySize, 1 when checked
    bool inPeriod = false;     // optInPeriod, else optBtnPeriod
    QString inPeriodText;      // txtInPeriod
    QString dateInPeriodText;  // cboDateInPeriod
    QDateTime dateFrom;        // dtpDateFrom
    QDateTime dateTo;          // dtpDateTo
    QString dateRangeTypeText; // cboDateRangeType
    bool sizeAt = true;        // optSizeAt, else optSizeBtn
    QString leastMostText;     // cboLeastMost
    QString sizeLeastMostText; // txtSizeLeastMost
    QString sizeFromText;      // txtSizeFrom
    QString sizeToText;        // txtSizeTo
};

// What the advance test reads of a file; dates are local times.
struct FileFacts {
    QDateTime created;
    QDateTime modified;
    QDateTime accessed;
    qint64 size = 0;
};

// True when the options test anything at all: only then are a file's dates and size read.
bool AdvanceOptionsActive(const AdvanceOptions &options);

// The date and size test. Any failure inside (a number box that reads as no number or
// overflows) makes the file no hit, silently.
bool IsFileMatchWithAdvanceOptions(const FileFacts &file, const AdvanceOptions &options,
                                   const QDate &today);

// Rounds half to even, then up when that fell short: the ceiling for the sizes that occur.
int32_t RoundUpToWhole(double value);

} // namespace pw
