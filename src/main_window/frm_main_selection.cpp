// Check marks and the grid's context commands: handlers that call the catalogue's logic
// and refresh the status line where the user expects it.
#include "frm_main.h"

#include "file_icons.h"

#include "catalogue/column_layout.h"
#include "catalogue/selection_commands.h"
#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "engine/ap_img_to_pdf.h"
#include "widgets/flex_grid.h"
#include "widgets/key_codes.h"

#include <QFile>
#include <QFileInfo>
#include <QMenu>
#include <QPrintDialog>
#include <QPrinter>

namespace pw {

void frmMain::connectGrid()
{
    grdSearchList->setExplorerBar(FlexGrid::kExplorerSort | FlexGrid::kExplorerMove);
    grdSearchList->setEditable(FlexGrid::kEditNone);
    grdSearchList->setFixedCols(0);
    grdSearchList->setPictureResolver(FileIcons());
    connect(grdSearchList, &FlexGrid::MouseDown, this, &frmMain::grdSearchList_MouseDown);
    connect(grdSearchList, &FlexGrid::MouseUp, this, &frmMain::grdSearchList_MouseUp);
    connect(grdSearchList, &FlexGrid::KeyDown, this, &frmMain::grdSearchList_KeyDown);
    connect(grdSearchList, &FlexGrid::BeforeSort, this,
            [this](int col, int &order) { order = SortOrderForColumn(context_, col, order); });
    connect(grdSearchList, &FlexGrid::AfterMoveColumn, this, [this](int col, int &position) {
        QStringList headers;
        for (int c = 0; c < grdSearchList->Cols(); ++c)
            headers << grdSearchList->TextMatrix(0, c);
        StoreColumnMove(context_, headers, col, position);
        catalogue_.columns().refresh(context_.ColumnList);
    });
    // The cells are the catalogue's only store: a typed name would be the name that a
    // conversion or an export uses. Only the check box may change.
    connect(grdSearchList, &FlexGrid::BeforeEdit, this,
            [this](int, int col, bool &cancel) { cancel = col != catalogue_.columns().selection; });
}

void frmMain::mnuCtxOpen_Click()
{
    if (grdSearchList->Row() >= 1)
        context_.ui.ShellOpenFile("open", RowFullPath(catalogue_, grdSearchList->Row()));
}

void frmMain::mnuCtxOpenFolder_Click()
{
    if (grdSearchList->Row() < 1)
        return;
    QString location =
        grdSearchList->TextMatrix(grdSearchList->Row(), catalogue_.columns().location);
    context_.ui.ShellOpenFile("Open", location.replace(separator() + separator(), separator()));
}

namespace {

bool printToPdf(UiServices &ui, const QString &file, const QString &pdf)
{
    if (QFileInfo(file).suffix().compare("pdf", Qt::CaseInsensitive) != 0)
        return ApImgToPdf(ui).Convert_EachTiffToPDFbyOne(file, pdf);
    if (QFileInfo(file) == QFileInfo(pdf))
        return true;
    QFile::remove(pdf);
    return QFile::copy(file, pdf);
}

} // namespace

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
    if (printer.outputFormat() != QPrinter::PdfFormat) {
        context_.ui.ShellOpenFile("Print", file, printer.printerName());
        return;
    }
    // "Print to File (PDF)" is no printer that lp knows: the program writes that PDF itself,
    // and a PDF is already what was asked for.
    const QString pdf = printer.outputFileName();
    if (!printToPdf(context_.ui, file, pdf))
        context_.ui.MsgBox("Unable to print " + file + " to " + pdf, vbExclamation);
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
    CheckSelectedBlock(catalogue_, selectedBlock());
    refreshStatus();
}

void frmMain::mnuCtxUnCheckSelection_Click()
{
    UncheckSelectedBlock(catalogue_, selectedBlock());
    refreshStatus();
}

void frmMain::mnuCtxCheckInvertSelection_Click()
{
    InvertSelectedBlock(catalogue_, selectedBlock());
    refreshStatus();
}

void frmMain::grdSearchList_MouseDown(int button, int, int x, int y)
{
    PW_PROCEDURE("grdSearchList_MouseDown", Unit::form("frmMain"));
    guarded(pwTail, [&] {
        PW_STEP;
        // Only a left click in the check column may toggle; every other cell stays read-only.
        const bool checkClick = grdSearchList->Col() == catalogue_.columns().selection &&
                                button == FlexGrid::kLeftButton;
        grdSearchList->setEditable(checkClick ? FlexGrid::kEditKeyboardAndChecks
                                              : FlexGrid::kEditNone);
        PW_STEP;
        if (button == FlexGrid::kRightButton && grdSearchList->MouseRow() >= 1 &&
            grdSearchList->MouseCol() >= 0)
            mnuCtxMenu->popup(grdSearchList->viewport()->mapToGlobal(QPoint(x, y)));
    });
}

void frmMain::grdSearchList_MouseUp()
{
    refreshStatus();
}

void frmMain::grdSearchList_KeyDown(int &keyCode, int)
{
    if (keyCode != vk::kSpace)
        return;
    // The status line is deliberately not refreshed here; the next click or command does it.
    ToggleSelectedBlock(catalogue_, selectedBlock());
    keyCode = 0;
}

RowBlock frmMain::selectedBlock() const
{
    int row1 = 0, col1 = 0, row2 = 0, col2 = 0;
    grdSearchList->GetSelection(row1, col1, row2, col2);
    return {row1, row2};
}

} // namespace pw
