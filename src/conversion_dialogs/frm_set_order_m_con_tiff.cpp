#include "frm_set_order_m_con_tiff.h"

#include "logic/conversion_list.h"

#include "core/app_context.h"
#include "core/master_layout.h"
#include "core/path_helpers.h"
#include "widgets/flex_grid.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>
#include <iterator>

namespace pw {

frmSetOrder_MConTiff::frmSetOrder_MConTiff(AppContext &context, QWidget *parent)
    : ConversionDialog(context, "Set File Order", parent),
      fraSetOrder(new QGroupBox("1 Files", this)), vsFilesSetOrder(new FlexGrid(fraSetOrder)),
      run_(context, *vsFilesSetOrder->gridModel(), *this)
{
    resize(760, 520);
    buildFiles();
    buildOutput();
    Frame3 = progressFrame(ProgressBar1);
    progress_.emplace(ProgressBar1);
    Frame2 = buttonFrame(cmdOK, "Con&vert", cmdCancel);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(fraSetOrder, 1);
    layout->addWidget(Frame1);
    layout->addWidget(Frame3);
    layout->addWidget(Frame2);
    connect(cmdOK, &QPushButton::clicked, this, &frmSetOrder_MConTiff::cmdOk_Click);
}

void frmSetOrder_MConTiff::buildFiles()
{
    vsFilesSetOrder->setEditable(FlexGrid::kEditNone);
    vsFilesSetOrder->setFixedCols(0);
    vsFilesSetOrder->setSelectionMode(FlexGrid::kSelectionByRow);
    vsFilesSetOrder->viewport()->installEventFilter(this);
    cmdUp = new QPushButton("&Up", fraSetOrder);
    cmdDown = new QPushButton("Do&wn", fraSetOrder);
    auto *moves = new QVBoxLayout;
    moves->addStretch();
    moves->addWidget(cmdUp);
    moves->addWidget(cmdDown);
    moves->addStretch();
    auto *layout = new QHBoxLayout(fraSetOrder);
    layout->addWidget(vsFilesSetOrder, 1);
    layout->addLayout(moves);
    connect(cmdUp, &QPushButton::clicked, this, &frmSetOrder_MConTiff::cmdUp_Click);
    connect(cmdDown, &QPushButton::clicked, this, &frmSetOrder_MConTiff::cmdDown_Click);
}

void frmSetOrder_MConTiff::buildOutput()
{
    Frame1 = new QGroupBox("2 Output", this);
    txtmanualfilename = new QLineEdit(Frame1);
    txtmanualfilename->installEventFilter(this);
    txtOutputFolder = new QLineEdit(Frame1);
    cmdBrowse = browseButton(Frame1);
    ChkDefaultPathMConvToPDF = new QCheckBox("Set default output &folder name ", Frame1);
    ChkOpenFileMConvToPDF = new QCheckBox("&Open merged file after combining", Frame1);
    auto *nameLabel = new QLabel("File &name", Frame1);
    nameLabel->setBuddy(txtmanualfilename);
    auto *pathLabel = new QLabel("Output &path", Frame1);
    pathLabel->setBuddy(txtOutputFolder);
    auto *grid = new QGridLayout(Frame1);
    grid->addWidget(nameLabel, 0, 0);
    grid->addWidget(txtmanualfilename, 0, 1, 1, 2);
    grid->addWidget(pathLabel, 1, 0);
    grid->addWidget(txtOutputFolder, 1, 1);
    grid->addWidget(cmdBrowse, 1, 2);
    grid->addWidget(ChkDefaultPathMConvToPDF, 2, 1, 1, 2);
    grid->addWidget(ChkOpenFileMConvToPDF, 3, 1, 1, 2);
    connect(cmdBrowse, &QPushButton::clicked, this, &frmSetOrder_MConTiff::cmdBrowse_Click);
}

void frmSetOrder_MConTiff::Form_Load()
{
    ApplyFormLanguage(this);
    FlexGridModel &list = *vsFilesSetOrder->gridModel();
    // Unlike Image to PDF, the modified date stays on view when the catalogue shows it.
    InitFileList(list, context_, {"Selection"});
    ColumnIndices columns;
    columns.refresh(context_.ColumnList);
    FillFileList(list, columns, colSelectedData);
    vsFilesSetOrder->setRow(1);
    const Settings &settings = context_.settings();
    ChkDefaultPathMConvToPDF->setChecked(settings.IsDefaultPathMConvToPDF() != 0);
    if (ChkDefaultPathMConvToPDF->isChecked())
        txtOutputFolder->setText(settings.DefaultPathMConvToPDF());
    ChkOpenFileMConvToPDF->setChecked(settings.IsOpenFileMConvToPDF() != 0);
}

GridBlock frmSetOrder_MConTiff::selectedBlock() const
{
    GridBlock block;
    vsFilesSetOrder->GetSelection(block.firstRow, block.firstCol, block.lastRow, block.lastCol);
    block.row = vsFilesSetOrder->Row();
    return block;
}

void frmSetOrder_MConTiff::select(const GridBlock &block)
{
    // Rows are selected whole here; ending the block in its first column rather than its last
    // keeps the view from scrolling sideways at every move.
    vsFilesSetOrder->Select(block.firstRow, block.firstCol, block.lastRow, block.firstCol);
}

void frmSetOrder_MConTiff::cmdUp_Click()
{
    if (const auto moved = MoveBlockUp(*vsFilesSetOrder->gridModel(), selectedBlock()))
        select(*moved);
}

void frmSetOrder_MConTiff::cmdDown_Click()
{
    if (const auto moved = MoveBlockDown(*vsFilesSetOrder->gridModel(), selectedBlock()))
        select(*moved);
}

bool frmSetOrder_MConTiff::dragRows(QEvent *event)
{
    const auto *mouse = static_cast<QMouseEvent *>(event);
    const int y = mouse->position().toPoint().y();
    const int lastRow = vsFilesSetOrder->Rows() - 1;
    const int viewRow = vsFilesSetOrder->rowAt(y);
    const int row = viewRow >= 0 ? viewRow + 1 : (y < 0 ? 1 : lastRow);
    const GridBlock block = selectedBlock();
    switch (event->type()) {
    case QEvent::MouseButtonPress:
        // A press inside the highlighted block may pick it up; anywhere else selects as usual.
        if (mouse->button() != Qt::LeftButton || mouse->modifiers() != Qt::NoModifier ||
            viewRow < 0 || row < block.firstRow || row > block.lastRow)
            return false;
        pressedRow_ = row;
        dragOffset_ = row - block.firstRow;
        dragging_ = false;
        return true;
    case QEvent::MouseMove:
        if (pressedRow_ < 0)
            return false;
        dragging_ = dragging_ || row != pressedRow_;
        if (dragging_)
            select(DragBlock(*vsFilesSetOrder->gridModel(), block, row - dragOffset_));
        return true;
    case QEvent::MouseButtonRelease:
        if (pressedRow_ < 0)
            return false;
        if (!dragging_)
            vsFilesSetOrder->setRow(pressedRow_);
        pressedRow_ = -1;
        return true;
    default:
        return false;
    }
}

void frmSetOrder_MConTiff::txtmanualfilename_KeyPress(int &keyAscii)
{
    if (!IsReservedFileNameChar(keyAscii))
        return;
    keyAscii = 0;
    // The tool tip's "\n" is a backslash and an n, as users have always seen it.
    txtmanualfilename->setToolTip(
        "A filename can not contain any of the following character.\\n \\/*:''<>|");
}

bool frmSetOrder_MConTiff::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == vsFilesSetOrder->viewport() &&
        (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::MouseMove ||
         event->type() == QEvent::MouseButtonRelease))
        return dragRows(event);
    if (watched == txtmanualfilename && event->type() == QEvent::KeyPress) {
        const QString text = static_cast<QKeyEvent *>(event)->text();
        int keyAscii = text.size() == 1 ? text[0].unicode() : -1;
        txtmanualfilename_KeyPress(keyAscii);
        return keyAscii == 0;
    }
    return QDialog::eventFilter(watched, event);
}

void frmSetOrder_MConTiff::cmdBrowse_Click()
{
    browseInto(txtOutputFolder, "Set Folder", 0);
}

void frmSetOrder_MConTiff::cmdOk_Click()
{
    run_.cmdOk_Click();
}

void frmSetOrder_MConTiff::done(int result)
{
    if (running_)
        return;
    run_.StoreSettings();
    QDialog::done(result);
}

SetOrderChoices frmSetOrder_MConTiff::choices() const
{
    return {txtmanualfilename->text(), txtOutputFolder->text(),
            ChkDefaultPathMConvToPDF->isChecked(), ChkOpenFileMConvToPDF->isChecked()};
}

void frmSetOrder_MConTiff::setRunning(bool running)
{
    running_ = running;
    // Cancel stays pressable, but a merge cannot be stopped: the window closes when it ends,
    // and the button's tip says so.
    for (QPushButton *button : {cmdOK, cmdUp, cmdDown})
        button->setEnabled(!running);
    cmdCancel->setToolTip(running ? "A merge runs to its end; this window closes then." : "");
    setBusyCursor(running);
}

void frmSetOrder_MConTiff::setProgressMaximum(int maximum)
{
    ProgressBar1->setRange(0, maximum);
    ProgressBar1->setValue(0);
}

void frmSetOrder_MConTiff::unload()
{
    accept();
}

} // namespace pw
