#pragma once

#include "grid_codes.h"

#include <QString>

#include <cstdint>
#include <vector>

// Sort keys and comparisons of FlexGrid. Kept free of widgets so the ordering rules, which
// users notice at once when they are wrong ("10.tif" before "2.tif"), can be checked alone.
namespace flexsort {

bool IsDescending(int order);

// A leading number of `text`: optional blanks and sign, digits with optional group
// separators (each followed by exactly three digits), an optional decimal part. `consumed`
// receives the characters read; 0 means the text doesn't begin with a number.
double LeadingNumber(const QString &text, int &consumed, QChar group = u',', QChar point = u'.');

// Texts compared with runs of digits taken as numbers: "page2" before "page10". Characters
// outside digit runs compare as they are, so fold the case beforehand if it shouldn't count.
int NaturalCompare(const QString &a, const QString &b);

// Parses dates written by a format of the program's kind ("dd/mm/yyyy hh:mm ampm"; tokens
// are not case-sensitive, "m" after an hour token is minutes, "nn" is minutes too, "ampm",
// "am/pm" and "ap" stand for the morning/afternoon marker) into a number that sorts like the
// date. Returns false when the text doesn't fit the format.
bool ParseDateKey(const QString &text, const QString &format, const QString &amText,
                  const QString &pmText, int64_t &key);

enum class KeyKind : uint8_t { Empty, Number, Text };

struct SortKey {
    KeyKind kind = KeyKind::Empty;
    double number = 0;
    QString folded;   // compared first for text
    QString original; // breaks ties, so equal-looking texts still order deterministically
};

struct ColumnSortInfo {
    bool isDate = false;
    QString dateFormat;
    QChar group = u',';
    QChar point = u'.';
    QString amText = QStringLiteral("AM");
    QString pmText = QStringLiteral("PM");
};

// The key of one cell for `order`. Computed once per row before sorting.
SortKey MakeKey(const QString &text, int order, const ColumnSortInfo &info);

// Ascending comparison of two keys made for the same order (negative, 0, positive).
int CompareKeys(const SortKey &a, const SortKey &b, int order);

// Stable permutation of `rowCount` rows that sorts them by `keys`, laid out row by row with
// `keysPerRow` keys each (the columns of a multi-column sort, left to right).
std::vector<int> SortPermutation(const std::vector<SortKey> &keys, int rowCount, int keysPerRow,
                                 int order);

} // namespace flexsort
