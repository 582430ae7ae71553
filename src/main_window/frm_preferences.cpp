#include "frm_preferences.h"

#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/runtime.h"
#include "core/ui_services.h"
#include "engine/image_to_pdf_library.h"
#include "widgets/flex_grid.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

namespace pw {

namespace {

const Unit preferences = Unit::form("frmPreferences");
enum SettingsColumn { ColNumber = 0, ColName = 1, ColVisible = 2, ColWidth = 3 };
constexpr int LeftButton = 1;
constexpr int CentreCentre = 4;

} // namespace

frmPreferences::frmPreferences(AppContext &context, QWidget *parent)
    : QDialog(parent), tabPreferences(new QTabWidget(this)), cmdOK(new QPushButton("&Save", this)),
      cmdCancel(new QPushButton("&Cancel", this)),
      cmdSetDefault(new QPushButton("Set De&fault", this)), context_(context)
{
    setWindowTitle("Set Preferences");
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    tabPreferences->addTab(buildGridPage(), "Grid");
    tabPreferences->addTab(buildGeneralPage(), "General");
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(cmdSetDefault);
    buttons->addStretch();
    buttons->addWidget(cmdOK);
    buttons->addWidget(cmdCancel);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(tabPreferences, 1);
    layout->addLayout(buttons);

    connect(cmdUp, &QPushButton::clicked, this, &frmPreferences::cmdUp_Click);
    connect(cmdDown, &QPushButton::clicked, this, &frmPreferences::cmdDown_Click);
    connect(cmdSelectAll, &QPushButton::clicked, this, &frmPreferences::cmdSelectAll_Click);
    connect(cmdDeselectAll, &QPushButton::clicked, this, &frmPreferences::cmdDeselectAll_Click);
    connect(cmdInvertSelection, &QPushButton::clicked, this,
            &frmPreferences::cmdInvertSelection_Click);
    connect(chkDefaultWindowState, &QCheckBox::clicked, this,
            &frmPreferences::chkDefaultWindowState_Click);
    connect(cmdStartupFolder, &QPushButton::clicked, this, &frmPreferences::cmdStartupFolder_Click);
    connect(cmdOK, &QPushButton::clicked, this, &frmPreferences::cmdOk_Click);
    connect(cmdSetDefault, &QPushButton::clicked, this, &frmPreferences::cmdSetDefault_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(vsColumnSettings, &FlexGrid::MouseDown, this,
            [this](int button, int, int, int) { vsColumnSettings_MouseDown(button); });
    // The number follows the row and the name is what Save stores as the column order: a
    // typed name would be a column that does not exist. Only visibility and width change.
    connect(vsColumnSettings, &FlexGrid::BeforeEdit, this,
            [](int, int col, bool &cancel) { cancel = col != ColVisible && col != ColWidth; });

    FillComboBox();
    loadControls();
    InitColumnSettings();
}

QWidget *frmPreferences::buildGridPage()
{
    auto *page = new QWidget;
    fraColumnSettings = new QGroupBox("Column Settings", page);
    vsColumnSettings = new FlexGrid(fraColumnSettings);
    cmdUp = new QPushButton("UP", fraColumnSettings);
    cmdDown = new QPushButton("DOWN", fraColumnSettings);
    cmdSelectAll = new QPushButton("Select A&ll", fraColumnSettings);
    cmdDeselectAll = new QPushButton("&Deselect All", fraColumnSettings);
    cmdInvertSelection = new QPushButton("&Invert Selection", fraColumnSettings);
    chkLastGridColWidth = new QCheckBox("Apply last columns widt&h", page);
    chkSortbyNumeric = new QCheckBox("Allow &numeric sorting in filename", page);
    auto *side = new QVBoxLayout;
    for (QPushButton *button : {cmdUp, cmdDown, cmdSelectAll, cmdDeselectAll, cmdInvertSelection})
        side->addWidget(button);
    side->addStretch();
    auto *frame = new QHBoxLayout(fraColumnSettings);
    frame->addWidget(vsColumnSettings, 1);
    frame->addLayout(side);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(fraColumnSettings, 1);
    layout->addWidget(chkLastGridColWidth);
    layout->addWidget(chkSortbyNumeric);
    return page;
}

QWidget *frmPreferences::buildGeneralPage()
{
    auto *page = new QWidget;
    fraProgram = new QGroupBox("General Settings", page);
    auto *startupLabel = new QLabel("Sta&rtup Folder", fraProgram);
    txtStartUpFolder = new QLineEdit(fraProgram);
    startupLabel->setBuddy(txtStartUpFolder);
    cmdStartupFolder = new QPushButton("...", fraProgram);
    // Present without behaviour: the export keeps the location the settings file holds.
    lblExportLocation = new QLabel("Export Location", fraProgram);
    txtExportLocation = new QLineEdit(fraProgram);
    cmdExportLocation = new QPushButton("...", fraProgram);
    auto *program = new QGridLayout(fraProgram);
    program->addWidget(startupLabel, 0, 0);
    program->addWidget(txtStartUpFolder, 0, 1);
    program->addWidget(cmdStartupFolder, 0, 2);
    program->addWidget(lblExportLocation, 1, 0);
    program->addWidget(txtExportLocation, 1, 1);
    program->addWidget(cmdExportLocation, 1, 2);

    fraWindowState = new QGroupBox("Window State", page);
    chkDefaultWindowState = new QCheckBox("Default &Window State", fraWindowState);
    cmbDefaultWindowState = new QComboBox(fraWindowState);
    auto *state = new QHBoxLayout(fraWindowState);
    state->addWidget(chkDefaultWindowState);
    state->addWidget(cmbDefaultWindowState, 1);

    fraPages = new QGroupBox("Pages from Images", page);
    auto *sizeLabel = new QLabel("&Page size", fraPages);
    cmbPageSize = new QComboBox(fraPages);
    sizeLabel->setBuddy(cmbPageSize);
    auto *resolutionLabel = new QLabel("R&esolution for images without one", fraPages);
    spnImageResolution = new QSpinBox(fraPages);
    spnImageResolution->setRange(1, 9600);
    spnImageResolution->setSuffix(" dpi");
    resolutionLabel->setBuddy(spnImageResolution);
    auto *pages = new QGridLayout(fraPages);
    pages->addWidget(sizeLabel, 0, 0);
    pages->addWidget(cmbPageSize, 0, 1);
    pages->addWidget(resolutionLabel, 1, 0);
    pages->addWidget(spnImageResolution, 1, 1);
    fraSearchable = new QGroupBox("Searchable PDFs", page);
    chkSearchablePdf = new QCheckBox("Make PDFs searchable (&OCR)", fraSearchable);
    auto *languageLabel = new QLabel("Lan&guage", fraSearchable);
    txtOcrLanguage = new QLineEdit(fraSearchable);
    txtOcrLanguage->setToolTip("A tesseract language, or several joined by +: eng, deu+eng");
    languageLabel->setBuddy(txtOcrLanguage);
    auto *searchable = new QHBoxLayout(fraSearchable);
    searchable->addWidget(chkSearchablePdf);
    searchable->addWidget(languageLabel);
    searchable->addWidget(txtOcrLanguage, 1);

    auto *layout = new QVBoxLayout(page);
    layout->addWidget(fraProgram);
    layout->addWidget(fraWindowState);
    layout->addWidget(fraPages);
    layout->addWidget(fraSearchable);
    layout->addStretch();
    return page;
}

void frmPreferences::FillComboBox()
{
    cmbDefaultWindowState->addItem("Maximum", 1);
    cmbDefaultWindowState->addItem("Minimum", 2);
    cmbDefaultWindowState->addItem("Last Remembered Size", 3);
    // The item's data is what the settings keep.
    cmbPageSize->addItem("As the image", QString());
    for (const char *paper : {"A4", "Letter", "Legal", "A3", "A5"})
        cmbPageSize->addItem(paper, QString(paper));
}

void frmPreferences::loadControls()
{
    const Settings &settings = context_.settings();
    chkDefaultWindowState->setChecked(settings.WindowStateFlag() != 0);
    chkDefaultWindowState_Click();
    cmbDefaultWindowState->setCurrentIndex(settings.WindowStateValue());
    chkLastGridColWidth->setChecked(settings.LastGridColWidthFlag() != 0);
    chkSortbyNumeric->setChecked(settings.SortbyNumeric() != 0);
    txtStartUpFolder->setText(settings.StartupFolder());
    cmbPageSize->setCurrentIndex(std::max(0, cmbPageSize->findData(settings.PageSize())));
    spnImageResolution->setValue(settings.ImageResolution() > 0 ? settings.ImageResolution() : 72);
    chkSearchablePdf->setChecked(settings.IsSearchablePdf() != 0);
    txtOcrLanguage->setText(settings.OcrLanguage());
}

void frmPreferences::chkDefaultWindowState_Click()
{
    const bool on = chkDefaultWindowState->isChecked();
    cmbDefaultWindowState->setEnabled(on);
    QPalette palette = cmbDefaultWindowState->palette();
    palette.setColor(QPalette::Base, on ? QColor(0xFFFFFF) : QColor(0xE0E0E0));
    palette.setColor(QPalette::Button, on ? QColor(0xFFFFFF) : QColor(0xE0E0E0));
    cmbDefaultWindowState->setPalette(palette);
}

void frmPreferences::InitColumnSettings()
{
    PW_PROCEDURE("InitColumnSettings", preferences);
    guarded(pwTail, [&] {
        PW_STEP;
        FlexGrid &grid = *vsColumnSettings;
        grid.setCols(4);
        grid.setFixedCols(1);
        grid.setRows(1);
        const int widths[] = {500, 1500, 700, 700};
        const char *headers[] = {"Sr#", "Column Name", "Visible", "WIDTH"};
        for (int col = 0; col < 4; ++col) {
            grid.setTextMatrix(0, col, headers[col]);
            grid.setColWidth(col, widths[col]);
        }
        grid.setColAlignment(ColNumber, CentreCentre);
        grid.setColAlignment(ColVisible, CentreCentre);
        grid.setColDataType(ColVisible, flexgrid::kBoolean);
        grid.setEditable(FlexGrid::kEditKeyboard);
        grid.setSelectionMode(1); // whole rows
        PW_STEP;
        const Settings &settings = context_.settings();
        context_.ColumnWidths = Split(settings.LastGridColWidth(), ",");
        context_.ColumnVisibilityList = Split(settings.ColumnVisibility(), ",");
        context_.ColumnOrderList = Split(settings.ColumnReOrder(), ",");
        int i = 0;
        for (GridColumn &column : context_.ColumnList)
            if (i < context_.ColumnWidths.size())
                column.ColumnWidth = CSng(context_.ColumnWidths[i++]);
        PW_STEP;
        const QStringList &visible = context_.ColumnVisibilityList;
        int row = 0;
        for (const GridColumn &column : context_.ColumnList) {
            grid.setRows(++row + 1);
            grid.setTextMatrix(row, ColNumber, QString::number(row));
            grid.setTextMatrix(row, ColName, column.ColumnName);
            grid.setTextMatrix(row, ColWidth, CStr(column.ColumnWidth));
            if (visible.size() > 1)
                grid.setCellChecked(row, ColVisible,
                                    visible.value(row - 1) == "1" ? flexgrid::kChecked
                                                                  : flexgrid::kUnchecked);
        }
    });
}

void frmPreferences::moveCurrentRow(int step)
{
    FlexGrid &grid = *vsColumnSettings;
    const int to = grid.Row() + step;
    grid.setRowPosition(grid.Row(), to);
    grid.setRow(to);
    grid.ShowCell(to, ColName);
    for (int row = 1; row < grid.Rows(); ++row)
        grid.setTextMatrix(row, ColNumber, QString::number(row));
}

void frmPreferences::cmdUp_Click()
{
    if (vsColumnSettings->Row() >= 2)
        moveCurrentRow(-1);
}

void frmPreferences::cmdDown_Click()
{
    const int row = vsColumnSettings->Row();
    if (row != vsColumnSettings->Rows() - 1 && row >= 1)
        moveCurrentRow(1);
}

void frmPreferences::setAllVisible(int state)
{
    if (vsColumnSettings->Rows() >= 2)
        vsColumnSettings->setCellChecked(1, ColVisible, vsColumnSettings->Rows() - 1, ColVisible,
                                         state);
}

void frmPreferences::cmdSelectAll_Click()
{
    setAllVisible(flexgrid::kChecked);
}

void frmPreferences::cmdDeselectAll_Click()
{
    setAllVisible(flexgrid::kUnchecked);
}

void frmPreferences::cmdInvertSelection_Click()
{
    FlexGrid &grid = *vsColumnSettings;
    for (int row = 1; row < grid.Rows(); ++row)
        grid.setCellChecked(row, ColVisible,
                            grid.cellChecked(row, ColVisible) == flexgrid::kChecked
                                ? flexgrid::kUnchecked
                                : flexgrid::kChecked);
}

void frmPreferences::vsColumnSettings_MouseDown(int button)
{
    // Typing into the widths is open until the first press; a press on "Visible" opens the
    // grid to clicks and typing, any other press closes it.
    const bool onVisible = vsColumnSettings->MouseCol() == ColVisible && button == LeftButton;
    vsColumnSettings->setEditable(onVisible ? FlexGrid::kEditKeyboardAndChecks
                                            : FlexGrid::kEditNone);
}

void frmPreferences::cmdStartupFolder_Click()
{
    const QString chosen =
        context_.ui.BrowseForFolder("Please select a folder:", txtStartUpFolder->text(), 0);
    if (!chosen.isEmpty())
        txtStartUpFolder->setText(chosen);
}

void frmPreferences::cmdOk_Click()
{
    PW_PROCEDURE("cmdOk_Click", preferences);
    guarded(pwTail, [&] {
        PW_STEP;
        QStringList visibility, names, widths;
        const FlexGrid &grid = *vsColumnSettings;
        for (int row = 1; row < grid.Rows(); ++row) {
            visibility << (grid.cellChecked(row, ColVisible) == flexgrid::kChecked ? "1" : "0");
            names << grid.TextMatrix(row, ColName);
            widths << grid.TextMatrix(row, ColWidth);
        }
        PW_STEP;
        Settings &settings = context_.settings();
        settings.setColumnVisibility(visibility.join(","));
        settings.setColumnReOrder(names.join(","));
        settings.setLastGridColWidth(widths.join(","));
        context_.ColumnVisibilityList = Split(settings.ColumnVisibility(), ",");
        context_.ColumnOrderList = Split(settings.ColumnReOrder(), ",");
        context_.ColumnWidths = Split(settings.LastGridColWidth(), ",");
        PW_STEP;
        settings.setStartupFolder(txtStartUpFolder->text());
        const bool fixedState = chkDefaultWindowState->isChecked();
        settings.setWindowStateFlag(fixedState ? 1 : 0);
        settings.setWindowStateValue(fixedState ? cmbDefaultWindowState->currentIndex() : 0);
        settings.setLastGridColWidthFlag(chkLastGridColWidth->isChecked() ? 1 : 0);
        settings.setSortbyNumeric(chkSortbyNumeric->isChecked() ? 1 : 0);
        settings.setPageSize(cmbPageSize->currentData().toString());
        settings.setImageResolution(int16_t(spnImageResolution->value()));
        ApplyPageSettings(settings);
        settings.setIsSearchablePdf(chkSearchablePdf->isChecked() ? 1 : 0);
        settings.setOcrLanguage(txtOcrLanguage->text().trimmed());
        if (const QString why = ApplySearchablePdfSetting(settings); !why.isEmpty()) {
            // Kept as typed, so that installing the package is all it takes.
            context_.ui.MsgBox("The PDFs cannot be made searchable: " + why + ".", vbExclamation,
                               "Set Preferences");
            tabPreferences->setCurrentWidget(fraSearchable->parentWidget());
            txtOcrLanguage->setFocus();
            return;
        }
        IsPreferanceChange = true;
        accept();
    });
}

void frmPreferences::cmdSetDefault_Click()
{
    PW_PROCEDURE("cmdSetDefault_Click", preferences);
    guarded(pwTail, [&] {
        PW_STEP;
        context_.settings().LoadDefaultSettings();
        context_.settings().LoadSettings();
        ApplyPageSettings(context_.settings());
        loadControls();
        InitColumnSettings();
        IsPreferanceChange = true;
    });
}

} // namespace pw
