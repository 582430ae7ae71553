#pragma once
// What start-up builds once and hands, by reference, to the windows, the search, the
// conversion bindings and the batch job: the settings, the column list, the pattern table,
// the storage folder, the page counters and the desktop services. It lives as long as the
// program runs; nothing reaches these through globals.

#include "grid_columns.h"
#include "settings.h"
#include "ui_services.h"

#include "backends/page_count/page_rules.h"

#include <QString>
#include <QStringList>

#include <array>
#include <memory>

namespace pw {

// The wildcard lists of the pattern box, entry by entry (the last stays empty).
using FilterPatternTable = std::array<QString, 12>;
FilterPatternTable FillFilterPatterns();

struct AppContext {
    explicit AppContext(UiServices &services) : ui(services) {}
    AppContext(const AppContext &) = delete;
    AppContext &operator=(const AppContext &) = delete;

    Settings &settings() { return *AppSettings; }

    UiServices &ui;
    QString CommandLineFolder;    // parent of the first command-line path, or ""
    QStringList CommandLineFiles; // the command-line paths
    QString FileStoragePath;      // per-user data folder, no trailing separator
    QString FileStoragePathSlash; // the same with its trailing separator
    std::unique_ptr<Settings> AppSettings;
    GridColumns ColumnList;
    QStringList ColumnWidths;          // LastGridColWidth split at ","
    QStringList ColumnVisibilityList;  // ColumnVisibility split at ","
    QStringList ColumnOrderList;       // ColumnReOrder split at ","
    FilterPatternTable FilterPatterns; // filled by start-up
    PageCounters pageCounters;
};

} // namespace pw
