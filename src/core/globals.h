#pragma once
// The process-wide objects that start-up fills once and every part of the program reads.
// They live until the process ends and are never released.

#include "backends/page_count/page_count.h"
#include "grid_columns.h"
#include "settings.h"

#include <QString>
#include <QStringList>

#include <array>
#include <memory>

namespace pw {

inline constexpr const char *AppTitle = "Pagewright 3.1";

extern QString CommandLineFolder;          // parent of the first command-line path, or ""
extern QStringList CommandLineFiles;       // the command-line paths
extern QString FileStoragePath;            // per-user data folder, no trailing separator
extern QString FileStoragePathSlash;       // the same with its trailing separator
extern std::unique_ptr<Settings> AppSettings;
extern std::unique_ptr<GridColumns> ColumnList;
extern QStringList ColumnWidths;           // LastGridColWidth split at ","
extern QStringList ColumnVisibilityList;   // ColumnVisibility split at ","
extern QStringList ColumnOrderList;        // ColumnReOrder split at ","
extern std::array<QString, 12> FilterPatterns;
// The two page counters, made once at start.
extern std::unique_ptr<::PdfPageCounter> PdfPageCounter;
extern std::unique_ptr<::TiffPageCounter> TiffPageCounter;

// The wildcard lists of the pattern box, entry by entry (the last stays empty).
void FillFilterPatterns();

} // namespace pw
