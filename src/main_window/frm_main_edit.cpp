// The Edit menu's commands: Preferences, and the export of the checked rows (also the Export
// button).
#include "frm_main.h"

#include "dlg_save.h"
#include "frm_preferences.h"

#include "catalogue/column_layout.h"
#include "catalogue/list_export.h"
#include "core/app_context.h"

namespace pw {

void frmMain::mnupreferances_Click()
{
    LoadGridColumns(context_);
    frmPreferences dialog(context_, this);
    dialog.exec();
    if (!dialog.IsPreferanceChange)
        return;
    // Every saved change ends with a fresh search of the startup folder.
    catalogue_.RefreshGrid();
    setTreeFolder(context_.settings().StartupFolder());
    cmdSearch_Click();
}

void frmMain::cmdExport_Click()
{
    pw::cmdExport_Click(catalogue_, [this] {
        dlgSave dialog(context_, this);
        dialog.exec();
        return dialog.target();
    });
}

} // namespace pw
