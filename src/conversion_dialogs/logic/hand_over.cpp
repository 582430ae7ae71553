#include "hand_over.h"

#include "conversion_list.h"

#include "catalogue/catalogue_grid.h"
#include "catalogue/search_criteria.h"
#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/runtime.h"
#include "grid/flex_grid_model.h"

#include <vector>

namespace pw {

namespace {

const Unit mainForm = Unit::form("frmMain");

void inform(CatalogueGrid &catalogue, const QString &text)
{
    catalogue.context().ui.MsgBox(text, vbInformation);
}

// Both commands refuse a catalogue without data rows, and count pages before they copy.
bool prepareRows(CatalogueGrid &catalogue)
{
    if (catalogue.model().rows() < 2) {
        inform(catalogue, "Please Select Files.");
        return false;
    }
    catalogue.GetPageCount();
    return true;
}

std::vector<int> checkedRows(CatalogueGrid &catalogue)
{
    std::vector<int> rows;
    const FlexGridModel &model = catalogue.model();
    for (int row = 1; row < model.rows(); ++row)
        if (model.check(row, catalogue.columns().selection) == flexgrid::kChecked)
            rows.push_back(row);
    return rows;
}

std::optional<SelectedData> ShowSetOrderformRows(CatalogueGrid &catalogue)
{
    std::optional<SelectedData> result;
    PW_PROCEDURE("ShowSetOrderform", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        SelectedData rows;
        for (const int row : checkedRows(catalogue)) {
            PW_STEP;
            rows.push_back(RecordFromRow(catalogue.model(), catalogue.columns(), row));
            if (catalogue.model().text(row, catalogue.columns().pages) == "Error") {
                inform(catalogue, "You have selected damaged or corrupted file(s). Please "
                                  "de-select file(s)");
                return;
            }
        }
        PW_STEP;
        if (rows.size() < 2) {
            inform(catalogue, "Please select two or more Files.");
            return;
        }
        result = std::move(rows);
    });
    return result;
}

} // namespace

std::optional<SelectedData> ImageToPdfHandOver(CatalogueGrid &catalogue, int filterListIndex,
                                               const QString &filterText)
{
    std::optional<SelectedData> result;
    PW_PROCEDURE("cmdConImageToPdf_Click", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        if (!prepareRows(catalogue))
            return;
        PW_STEP;
        // "Image files" stands for the first pattern list; any other entry or typed text is
        // taken as it reads.
        const QStringList patterns =
            Split(filterListIndex == 0 ? catalogue.context().FilterPatterns[0] : filterText, ",");
        SelectedData rows;
        for (const int row : checkedRows(catalogue)) {
            PW_STEP;
            clsColSetOrderGrid record = RecordFromRow(catalogue.model(), catalogue.columns(), row);
            if (IsFileMatchWithFilterPattern(record.filename(), patterns))
                rows.push_back(std::move(record));
        }
        PW_STEP;
        if (rows.empty()) {
            inform(catalogue, "Please select image files only.");
            return;
        }
        result = std::move(rows);
    });
    return result;
}

std::optional<SelectedData> MergeHandOver(CatalogueGrid &catalogue)
{
    bool prepared = false;
    PW_PROCEDURE("cmdConverttiffToPdf_Click", mainForm);
    guarded(pwTail, [&] {
        PW_STEP;
        prepared = prepareRows(catalogue);
    });
    return prepared ? ShowSetOrderformRows(catalogue) : std::nullopt;
}

} // namespace pw
