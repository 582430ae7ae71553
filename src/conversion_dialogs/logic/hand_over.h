#pragma once
// How the main window's two conversion commands choose the rows they hand to their dialogs.
// They differ on purpose: Image to PDF takes the checked rows whose names fit the search's
// pattern, whatever their "Pages" cell says; the merge takes any checked file, but refuses the
// whole choice at the first checked row whose page count failed.

#include "engine/conversion_row.h"

#include <QString>

#include <optional>

namespace pw {

class CatalogueGrid;

// cmdConImageToPdf_Click's rows in catalogue order, after counting the checked rows' pages.
// Nothing when the command refused (its message shown) or failed (logged).
std::optional<SelectedData> ImageToPdfHandOver(CatalogueGrid &catalogue, int filterListIndex,
                                               const QString &filterText);

// cmdConverttiffToPdf_Click's and ShowSetOrderform's rows in catalogue order, at least two.
// Nothing when the command refused (its message shown) or failed (logged).
std::optional<SelectedData> MergeHandOver(CatalogueGrid &catalogue);

} // namespace pw
