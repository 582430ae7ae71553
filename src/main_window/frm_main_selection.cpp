// Check marks and the grid's context commands: handlers that call the catalogue's logic
// and refresh the status line where the user expects it.
#include "frm_main.h"

#include "catalogue/column_layout.h"
#include "catalogue/selection_commands.h"
#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "core/ui_services.h"
#include "widgets/flex_grid.h"

#include <QMenu>
#include <QPrintDialog>
#include <QPrinter>

namespace pw {

void frmMain::connectGrid()
{
    connect(grdSearchList, &FlexGrid::MouseDown, this, &frmMain::grdSearchList_MouseDown);
    connect(grdSearchList, &FlexGrid::MouseUp, this, &frmMain::grdSearchList_MouseUp);
    connect(grdSearchList, &FlexGrid::KeyDown, this, &frmMain::grdSearchList_KeyDown);
    connect(grdSearchList, &FlexGrid::BeforeSort, this,
            [](int col, int &order) { order = SortOrderForColumn(col, order); });
    connect(grdSearchList, &FlexGrid::AfterMoveColumn, this, [this](int col, int &position) {
        QStringList headers;
        for (int c = 0; c < grdSearchList->Cols(); ++c)
            headers << grdSearchList->TextMatrix(0, c);
        StoreColumnMove(headers, col, position);
        catalogue_.columns().refresh();
    });
}

void frmMain::mnuCtxOpen_Click()
{
    if (grdSearchList->Row() >= 1)
        ShellOpenFile("open", RowFullPath(catalogue_, grdSearchList->Row()));
}

void frmMain::mnuCtxOpenFolder_Click()
{
    if (grdSearchList->Row() < 1)
        return;
    QString location = grdSearchList->TextMatrix(grdSearchList->Row(), catalogue_.columns().location);
    ShellOpenFile("Open", location.replace(separator() + separator(), separator()));
}

void frmMain::mnuCtxPrintFile_Click()
{
    if (grdSearchList->Row() < 1)
        return;
    const QString file = RowFullPath(catalogue_, grdSearchList->Row());
    if (!FileExists(file))
        return;
    QPrinter printer;
    QPrintDialog dialog(&printer, this);
    if (dialog.exec() != QDialog::Accepted)
        return; // a cancelled printer choice prints nothing and says nothing
    ShellOpenFile("Print", file, printer.printerName());
}

void frmMain::mnuCtxSelectAll_Click()
{
    CheckAllRows(catalogue_);
    refreshStatus();
}

void frmMain::mnuCtxDeSelectAll_Click()
{
    UncheckAllRows(catalogue_);
    refreshStatus();
}

void frmMain::mnuInvSelect_Click()
{
    InvertAllChecks(catalogue_);
    refreshStatus();
}

void frmMain::mnuCtxCheckSelection_Click()
{
    CheckSelectedBlock(catalogue_);
    refreshStatus();
}

void frmMain::mnuCtxUnCheckSelection_Click()
{
    UncheckSelectedBlock(catalogue_);
    refreshStatus();
}

void frmMain::mnuCtxCheckInvertSelection_Click()
{
    InvertSelectedBlock(catalogue_);
    refreshStatus();
}

void frmMain::grdSearchList_MouseDown(int button, int, int x, int y)
{
    PW_PROCEDURE("grdSearchList_MouseDown", Unit::form("frmMain"));
    guarded(pwTail, [&] {
        PW_STEP;
        // Only a left click in the check column may toggle; every other cell stays read-only.
        const bool checkClick = grdSearchList->Col() == catalogue_.columns().selection && button == 1;
        grdSearchList->setEditable(checkClick ? 2 : 0);
        PW_STEP;
        if (button == 2 && grdSearchList->MouseRow() >= 1 && grdSearchList->MouseCol() >= 0)
            mnuCtxMenu->popup(grdSearchList->viewport()->mapToGlobal(QPoint(x, y)));
    });
}

void frmMain::grdSearchList_MouseUp() { refreshStatus(); }

void frmMain::grdSearchList_KeyDown(int &keyCode, int)
{
    if (keyCode != 32)
        return;
    // The status line is deliberately not refreshed here; the next click or command does it.
    ToggleSelectedBlock(catalogue_);
    keyCode = 0;
}

} // namespace pw
