#pragma once
// The numbers the grid and its callers share: column data types, check states, sort orders
// and the twips that widths are kept in. Settings files and the program's column table store
// these values, so they never change.

#include <cmath>

namespace flexgrid {

// Column data types.
enum DataType : int { kDate = 7, kText = 8, kBoolean = 11, kDecimal = 14 };

// Check states of a cell.
enum Check : int { kNoCheck = 0, kChecked = 1, kUnchecked = 2 };

// Sort order codes.
enum SortOrder : int {
    kSortNone = 0,
    kGenericAscending = 1,
    kGenericDescending = 2,
    kNumericAscending = 3,
    kNumericDescending = 4,
    kStringNoCaseAscending = 5,
    kStringNoCaseDescending = 6,
    kStringAscending = 7,
    kStringDescending = 8,
};

// Twips are 1440 to the inch; widths and window places are stored in them so that they mean
// the same size on screens of another resolution.
inline int TwipsToPixels(int twips, int dpi)
{
    return int(std::lround(twips * double(dpi) / 1440.0));
}
inline int PixelsToTwips(int pixels, int dpi)
{
    return int(std::lround(pixels * 1440.0 / dpi));
}

} // namespace flexgrid
