#include "frm_con_image_to_pdf.h"

#include "frm_error_report_dialog.h"
#include "logic/conversion_list.h"

#include "core/app_context.h"
#include "engine/ap_img_to_pdf.h"
#include "widgets/flex_grid.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace pw {

frmConImageToPdf::frmConImageToPdf(AppContext &context, QWidget *parent)
    : ConversionDialog(context, "Convert image to pdf", parent),
      fraSetOrder(new QGroupBox("1 Selected files", this)),
      vsFilesSetOrder(new FlexGrid(fraSetOrder)),
      run_(context, *vsFilesSetOrder->gridModel(), *this)
{
    resize(760, 560);
    buildFileList();
    buildImageProcess();
    buildOutput();
    Frame3 = progressFrame(ProgressBar1);
    progress_.emplace(ProgressBar1, this);
    Frame4 = buttonFrame(cmdConvert, "&Convert", cmdCancel);

    auto *middle = new QHBoxLayout;
    middle->addWidget(Frame1);
    middle->addWidget(FraFileopen, 1);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(fraSetOrder, 1);
    layout->addLayout(middle);
    layout->addWidget(Frame3);
    layout->addWidget(Frame4);
    connect(cmdConvert, &QPushButton::clicked, this, &frmConImageToPdf::cmdconvert_Click);
    connect(cmdBrowseFolder, &QPushButton::clicked, this, &frmConImageToPdf::cmdBrowseFolder_Click);
}

void frmConImageToPdf::buildFileList()
{
    vsFilesSetOrder->setEditable(FlexGrid::kEditNone);
    vsFilesSetOrder->setFixedCols(0);
    (new QVBoxLayout(fraSetOrder))->addWidget(vsFilesSetOrder);
}

void frmConImageToPdf::buildImageProcess()
{
    Frame1 = new QGroupBox("2 Image Process", this);
    auto *grid = new QGridLayout(Frame1);
    chkEncodColor = recompressionRow(grid, ClassColour, cboEncodTrueColor);
    chkEncodGraycale = recompressionRow(grid, ClassGreyscale, cboEncodGraycale);
    chkEncodBW = recompressionRow(grid, ClassBlackWhite, cboEncodBW);
}

void frmConImageToPdf::buildOutput()
{
    FraFileopen = new QGroupBox("3 Output", this);
    txtOutputFolder = new QLineEdit(FraFileopen);
    cmdBrowseFolder = browseButton(FraFileopen);
    chkReplace = new QCheckBox("Replace e&xisting file", FraFileopen);
    ChkDefaultPathConImgTiff = new QCheckBox("Set default o&utput folder name ", FraFileopen);
    ChkOpenFolderConImgTiff = new QCheckBox("&Open folder after conversion", FraFileopen);
    auto *grid = new QGridLayout(FraFileopen);
    grid->addWidget(txtOutputFolder, 0, 0);
    grid->addWidget(cmdBrowseFolder, 0, 1);
    grid->addWidget(chkReplace, 1, 0, 1, 2);
    grid->addWidget(ChkDefaultPathConImgTiff, 2, 0, 1, 2);
    grid->addWidget(ChkOpenFolderConImgTiff, 3, 0, 1, 2);
    grid->setRowStretch(4, 1);
}

void frmConImageToPdf::Form_Load()
{
    FlexGridModel &list = *vsFilesSetOrder->gridModel();
    InitFileList(list, context_, {"Selection", "Modified Date"});
    ColumnIndices columns;
    columns.refresh(context_.ColumnList);
    FillFileList(list, columns, colSelectedData);
    vsFilesSetOrder->setRow(1);
    resetRecompressionRow(chkEncodColor, cboEncodTrueColor);
    resetRecompressionRow(chkEncodGraycale, cboEncodGraycale);
    resetRecompressionRow(chkEncodBW, cboEncodBW);
    const Settings &settings = context_.settings();
    ChkDefaultPathConImgTiff->setChecked(settings.IsDefaultPathConImgTiff() != 0);
    if (ChkDefaultPathConImgTiff->isChecked())
        txtOutputFolder->setText(settings.DefaultPathConImgTiff());
    ChkOpenFolderConImgTiff->setChecked(settings.IsOpenFolderConImgTiff() != 0);
}

void frmConImageToPdf::cmdBrowseFolder_Click()
{
    browseInto(txtOutputFolder, "Set Folder", BifReturnOnlyFsDirs | BifDontGoBelowDomain);
}

void frmConImageToPdf::cmdconvert_Click()
{
    run_.cmdconvert_Click();
}

void frmConImageToPdf::done(int result)
{
    run_.StoreSettings();
    QDialog::done(result);
}

ImageToPdfChoices frmConImageToPdf::choices() const
{
    return {txtOutputFolder->text(),
            chkReplace->isChecked(),
            ticked(chkEncodColor, cboEncodTrueColor),
            ticked(chkEncodGraycale, cboEncodGraycale),
            ticked(chkEncodBW, cboEncodBW),
            ChkDefaultPathConImgTiff->isChecked(),
            ChkOpenFolderConImgTiff->isChecked()};
}

void frmConImageToPdf::setOutputFolder(const QString &folder)
{
    txtOutputFolder->setText(folder);
}

void frmConImageToPdf::focusOutputFolder()
{
    txtOutputFolder->setFocus();
}

void frmConImageToPdf::setRunning(bool running)
{
    cmdConvert->setEnabled(!running);
    setBusyCursor(running);
}

void frmConImageToPdf::setProgressMaximum(int maximum)
{
    ProgressBar1->setRange(0, maximum);
}

void frmConImageToPdf::showErrorReport(const QString &title, const QString &heading,
                                       const QString &body)
{
    frmErrorReportDialog report(context_.ui, this);
    report.AddError(title, heading, body);
    report.exec();
}

} // namespace pw
