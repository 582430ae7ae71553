// The conversion commands: the two on rows hand copies of the chosen rows to their dialog and
// show it modally, leaving the catalogue as it was; Folder Conversion takes the tree's folder.
#include "frm_main.h"

#include "conversion_dialogs/frm_con_image_to_pdf.h"
#include "conversion_dialogs/frm_set_order_m_con_tiff.h"
#include "conversion_dialogs/logic/hand_over.h"
#include "core/path_helpers.h"
#include "folder_job/dialog/frm_clone_directory.h"

#include <QLineEdit>

namespace pw {

namespace {

constexpr int MergeAndConvert = 3;

} // namespace

void frmMain::cmdConImageToPdf_Click()
{
    std::optional<SelectedData> rows =
        ImageToPdfHandOver(catalogue_, filterListIndex(), filterText());
    if (!rows)
        return;
    frmConImageToPdf dialog(context_, this);
    dialog.colSelectedData = std::move(*rows);
    dialog.exec();
}

void frmMain::cmdConverttiffToPdf_Click()
{
    if (std::optional<SelectedData> rows = MergeHandOver(catalogue_))
        ShowSetOrderform(std::move(*rows), MergeAndConvert);
}

void frmMain::cmdCloneDir_Click()
{
    frmCloneDirectory dialog(context_, this);
    dialog.txtCloningFrom->setText(ResolveDesktop(selectedFolder()));
    dialog.exec();
}

void frmMain::ShowSetOrderform(SelectedData rows, int action)
{
    if (action != MergeAndConvert)
        return;
    frmSetOrder_MConTiff dialog(context_, this);
    dialog.colSelectedData = std::move(rows);
    dialog.CommandAction = action;
    dialog.exec();
}

} // namespace pw
