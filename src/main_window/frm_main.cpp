#include "frm_main.h"

#include "folder_tree_model.h"
#include "frm_loading.h"

#include "catalogue/search_criteria.h"
#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/globals.h"
#include "core/master_layout.h"
#include "core/path_helpers.h"
#include "engine/image_to_pdf_library.h"
#include "widgets/flex_grid.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QDockWidget>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QStatusBar>
#include <QTreeView>
#include <QVBoxLayout>

namespace pw {

namespace {

QDockWidget *makePane(QMainWindow *window, const QString &title, QWidget *content)
{
    auto *pane = new QDockWidget(title, window);
    pane->setObjectName(title);
    pane->setWidget(content);
    pane->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    return pane;
}

QSpinBox *numberBox(QWidget *parent)
{
    auto *box = new QSpinBox(parent);
    box->setRange(0, 9999999);
    box->setValue(999);
    return box;
}

} // namespace

frmMain::frmMain(AppContext &context, QWidget *parent)
    : QMainWindow(parent), grdSearchList(new FlexGrid), context_(context),
      catalogue_(*grdSearchList->gridModel(), context), scan_(catalogue_, *this)
{
    resize(1100, 700);
    buildPanes();
    buildMenus();
    connectGrid();
    sbStatusBar = new QLabel("Status");
    statusBar()->addWidget(sbStatusBar, 1);
    sizeMoveEnd_.setSingleShot(true);
    sizeMoveEnd_.setInterval(300);
    connect(&sizeMoveEnd_, &QTimer::timeout, this, &frmMain::m_c_ExitSizeMove);
    qApp->installEventFilter(this);
    // 700 by 403 is the floor; the left column's panes need more height than that, and a
    // window smaller than its panes lays the command buttons over the tabs below them.
    setMinimumSize(layout()->totalMinimumSize().expandedTo(QSize(700, 403)));
    // The conversions of every window make their pages as Preferences say.
    ApplyPageSettings(context_.settings());
}

frmMain::~frmMain()
{
    qApp->removeEventFilter(this);
}

void frmMain::buildPanes()
{
    folderModel = new FolderTreeModel(this);
    ftvFolder = new QTreeView;
    ftvFolder->setModel(folderModel);
    ftvFolder->setHeaderHidden(true);
    connect(ftvFolder, &QTreeView::expanded, folderModel, &FolderTreeModel::populate);
    connect(ftvFolder->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &frmMain::ftvFolder_SelectionChanged);

    buildSearchOptions();
    buildAdvanceOptions();

    paneFolders = makePane(this, "Folders", ftvFolder);
    // The search hides the grid while it fills it. The pane holds it through a host so that
    // it never goes empty: an empty pane gives its width away and comes back as a strip.
    ctlPaneSearchList = new QWidget;
    auto *listLayout = new QVBoxLayout(ctlPaneSearchList);
    listLayout->setContentsMargins({});
    listLayout->addWidget(grdSearchList);
    paneSearchList = makePane(this, "Search List", ctlPaneSearchList);
    auto *options = new QWidget;
    auto *optionsLayout = new QVBoxLayout(options);
    optionsLayout->addWidget(fraTotal);
    optionsLayout->addWidget(fraCommand);
    optionsLayout->addStretch();
    paneOptions = makePane(this, "Options", options);
    paneAdvanceOptions = makePane(this, "Advance Search Options", fraAdvSearch);

    setDockNestingEnabled(true);
    addDockWidget(Qt::LeftDockWidgetArea, paneFolders);
    addDockWidget(Qt::RightDockWidgetArea, paneSearchList);
    splitDockWidget(paneFolders, paneOptions, Qt::Vertical);
    tabifyDockWidget(paneOptions, paneAdvanceOptions);
    paneOptions->raise();
    // A pane that becomes the active one hands the focus to what it holds; the tree only
    // while no search runs.
    connect(paneFolders, &QDockWidget::visibilityChanged, this, [this](bool visible) {
        if (visible && !scan_.isSearching())
            ftvFolder->setFocus();
    });
    connect(paneSearchList, &QDockWidget::visibilityChanged, this, [this](bool visible) {
        if (visible)
            grdSearchList->setFocus();
    });
    resizeDocks({paneFolders, paneSearchList}, {280, 800}, Qt::Horizontal);
    resizeDocks({paneFolders, paneOptions}, {330, 300}, Qt::Vertical);
}

void frmMain::buildSearchOptions()
{
    fraTotal = new QGroupBox("Search Options");
    lblFilter = new QLabel("F&ilter", fraTotal);
    cboFilterPattern = new QComboBox(fraTotal);
    cboFilterPattern->setEditable(true);
    cboFilterPattern->setInsertPolicy(QComboBox::NoInsert);
    // What the user types is the pattern: completing "*" to the first entry that starts with
    // it, "*.tif,*.tiff", would search for something else than was typed.
    cboFilterPattern->setCompleter(nullptr);
    lblFilter->setBuddy(cboFilterPattern);
    chkSearchSubFolder = new QCheckBox("Include S&ubfolder", fraTotal);
    chkSearchSubFolder->setChecked(true);
    ChkUseAdvOpt = new QCheckBox("Use advance search options", fraTotal);
    cmdSearch = new QPushButton("&Search", fraTotal);
    cmdExport = new QPushButton("Exp&ort", fraTotal);
    auto *grid = new QGridLayout(fraTotal);
    grid->addWidget(lblFilter, 0, 0);
    grid->addWidget(cboFilterPattern, 0, 1, 1, 2);
    grid->addWidget(chkSearchSubFolder, 1, 0, 1, 3);
    grid->addWidget(ChkUseAdvOpt, 2, 0, 1, 3);
    grid->addWidget(cmdSearch, 3, 1);
    grid->addWidget(cmdExport, 3, 2);
    connect(cmdSearch, &QPushButton::clicked, this, &frmMain::cmdSearch_Click);
    connect(cboFilterPattern, &QComboBox::activated, this, &frmMain::cboFilterPattern_Click);

    fraCommand = new QGroupBox;
    cmdConImageToPdf = new QPushButton("Image to PDF", fraCommand);
    cmdConverttiffToPdf = new QPushButton("Mer&ge and Convert to PDF", fraCommand);
    cmdCloneDir = new QPushButton("Folder Conversion", fraCommand);
    auto *commands = new QVBoxLayout(fraCommand);
    commands->addWidget(cmdConImageToPdf);
    commands->addWidget(cmdConverttiffToPdf);
    commands->addWidget(cmdCloneDir);
    connect(cmdConImageToPdf, &QPushButton::clicked, this, &frmMain::cmdConImageToPdf_Click);
    connect(cmdConverttiffToPdf, &QPushButton::clicked, this, &frmMain::cmdConverttiffToPdf_Click);
    connect(cmdCloneDir, &QPushButton::clicked, this, &frmMain::cmdCloneDir_Click);
    connect(cmdExport, &QPushButton::clicked, this, &frmMain::cmdExport_Click);
}

void frmMain::buildAdvanceOptions()
{
    fraAdvSearch = new QGroupBox("Search Options");
    chkSearchByDate = new QCheckBox("&Date", fraAdvSearch);
    fraDate = new QGroupBox(fraAdvSearch);
    optInPeriod = new QRadioButton("in the last", fraDate);
    txtInPeriod = numberBox(fraDate);
    cboDateInPeriod = new QComboBox(fraDate);
    cboDateRangeType = new QComboBox(fraDate);
    cboDateRangeType->setEditable(true);
    optBtnPeriod = new QRadioButton("between", fraDate);
    dtpDateFrom = new QDateTimeEdit(fraDate);
    dtpDateTo = new QDateTimeEdit(fraDate);
    for (QDateTimeEdit *picker : {dtpDateFrom, dtpDateTo}) {
        picker->setCalendarPopup(true);
        picker->setDisplayFormat("dd-MMM-yyyy");
    }
    auto *dates = new QGridLayout(fraDate);
    dates->addWidget(cboDateRangeType, 0, 0, 1, 4);
    dates->addWidget(optInPeriod, 1, 0);
    dates->addWidget(txtInPeriod, 1, 1);
    dates->addWidget(cboDateInPeriod, 1, 2, 1, 2);
    dates->addWidget(optBtnPeriod, 2, 0);
    dates->addWidget(dtpDateFrom, 2, 1);
    dates->addWidget(new QLabel("and", fraDate), 2, 2);
    dates->addWidget(dtpDateTo, 2, 3);

    chkSearchBySize = new QCheckBox("Si&ze", fraAdvSearch);
    fraSize = new QGroupBox(fraAdvSearch);
    optSizeAt = new QRadioButton("at", fraSize);
    cboLeastMost = new QComboBox(fraSize);
    txtSizeLeastMost = numberBox(fraSize);
    optSizeBtn = new QRadioButton("between", fraSize);
    txtSizeFrom = numberBox(fraSize);
    txtSizeTo = numberBox(fraSize);
    auto *sizes = new QGridLayout(fraSize);
    sizes->addWidget(optSizeAt, 0, 0);
    sizes->addWidget(cboLeastMost, 0, 1);
    sizes->addWidget(txtSizeLeastMost, 0, 2);
    sizes->addWidget(new QLabel("KB", fraSize), 0, 3);
    sizes->addWidget(optSizeBtn, 1, 0);
    sizes->addWidget(txtSizeFrom, 1, 1);
    sizes->addWidget(new QLabel("and", fraSize), 1, 2);
    sizes->addWidget(txtSizeTo, 1, 3);
    sizes->addWidget(new QLabel("KB", fraSize), 1, 4);

    auto *layout = new QVBoxLayout(fraAdvSearch);
    layout->addWidget(chkSearchByDate);
    layout->addWidget(fraDate);
    layout->addWidget(chkSearchBySize);
    layout->addWidget(fraSize);
    layout->addStretch();
    connect(chkSearchByDate, &QCheckBox::clicked, this, &frmMain::chkSearchByDate_Click);
    connect(chkSearchBySize, &QCheckBox::clicked, this, &frmMain::chkSearchBySize_Click);
}

void frmMain::buildMenus()
{
    QMenu *mnuEdit = menuBar()->addMenu("&Edit");
    mnupreferances = mnuEdit->addAction("&Preferances Ctr+P");
    mnuExport = mnuEdit->addAction("&Export Ctr+E");
    connect(mnupreferances, &QAction::triggered, this, &frmMain::mnupreferances_Click);
    connect(mnuExport, &QAction::triggered, this, &frmMain::cmdExport_Click);
    mnuEdit->addSeparator();
    mnuexit = mnuEdit->addAction("E&xit Ctl+X");
    connect(mnuexit, &QAction::triggered, this, &QWidget::close);
    QMenu *menuOption = menuBar()->addMenu("&Option");
    // The seam of a translation pass: the entry is there and does nothing.
    mnuChangeLanguage = menuOption->addAction("Change Language...");
    QMenu *mnuhelp = menuBar()->addMenu("&Help");
    mnuWebsite = mnuhelp->addAction("Visit Our &website Ctr+W");
    mnuShowHelp = mnuhelp->addAction("&Help Ctr+H");
    mnuhelp->addSeparator();
    mnuAbout = mnuhelp->addAction("&About...");
    connect(mnuWebsite, &QAction::triggered, this, &frmMain::mnuWebsite_Click);
    connect(mnuShowHelp, &QAction::triggered, this, &frmMain::mnuShowHelp_Click);
    connect(mnuAbout, &QAction::triggered, this, &frmMain::mnuAbout_Click);

    mnuCtxMenu = new QMenu("Context Menu", this);
    mnuCtxOpen = mnuCtxMenu->addAction("Open", this, &frmMain::mnuCtxOpen_Click);
    mnuCtxOpenFolder =
        mnuCtxMenu->addAction("Show Contaning Folder", this, &frmMain::mnuCtxOpenFolder_Click);
    mnuCtxPrintFile = mnuCtxMenu->addAction("Print", this, &frmMain::mnuCtxPrintFile_Click);
    mnuCtxMenu->addSeparator();
    mnuCtxSelectAll =
        mnuCtxMenu->addAction("Select All Ctr+A", this, &frmMain::mnuCtxSelectAll_Click);
    mnuCtxInvSelect = mnuCtxMenu->addAction("Invert Selection", this, &frmMain::mnuInvSelect_Click);
    mnuCtxDeSelectAll =
        mnuCtxMenu->addAction("Deselect All Ctr+D", this, &frmMain::mnuCtxDeSelectAll_Click);
    mnuCtxMenu->addSeparator();
    mnuCtxCheckSelection =
        mnuCtxMenu->addAction("Check Selection", this, &frmMain::mnuCtxCheckSelection_Click);
    mnuCtxUnCheckSelection =
        mnuCtxMenu->addAction("UnCheck Selection", this, &frmMain::mnuCtxUnCheckSelection_Click);
    mnuCtxCheckInvertSelection = mnuCtxMenu->addAction("Invert Check Selection", this,
                                                       &frmMain::mnuCtxCheckInvertSelection_Click);
}

void frmMain::FillComboBoxes()
{
    cboFilterPattern->clear();
    cboFilterPattern->addItems(FilterPatternEntries);
    cboDateRangeType->clear();
    cboDateRangeType->addItems(DateRangeTypes);
    cboDateInPeriod->clear();
    cboDateInPeriod->addItems(DateInPeriodUnits);
    cboLeastMost->clear();
    cboLeastMost->addItems(LeastMostWords);
    for (QComboBox *box : {cboFilterPattern, cboDateRangeType, cboDateInPeriod, cboLeastMost})
        box->setCurrentIndex(0);
}

void frmMain::Form_Load()
{
    PW_PROCEDURE("Form_Load", Unit::form("frmMain"));
    guarded(pwTail, [&] {
        PW_STEP;
        setWindowTitle(AppTitle);
        ApplyFormLanguage(this);
        PW_STEP;
        FillComboBoxes();
        PW_STEP;
        catalogue_.InitFiles();
        PW_STEP;
        optBtnPeriod->setChecked(true);
        optSizeAt->setChecked(true);
        chkSearchByDate->setChecked(false);
        chkSearchByDate_Click();
        chkSearchBySize->setChecked(false);
        chkSearchBySize_Click();
        dtpDateFrom->setDateTime(QDateTime::currentDateTime());
        dtpDateTo->setDateTime(QDateTime::currentDateTime());
        PW_STEP;
        loaded_ = true;
        if (context_.CommandLineFolder.trimmed().isEmpty()) {
            setTreeFolder(context_.settings().StartupFolder());
        } else {
            setTreeFolder(context_.CommandLineFolder);
            applyCommandLineFiles();
            context_.CommandLineFolder.clear();
            // The tree's search summed up the rows before these checks.
            refreshStatus();
        }
        PW_STEP;
        if (context_.settings().WindowStateFlag() == 1)
            SetWindowState();
    });
}

void frmMain::applyCommandLineFiles()
{
    const int nameCol = catalogue_.columns().name;
    const int selCol = catalogue_.columns().selection;
    for (int row = 1; row < grdSearchList->Rows(); ++row)
        for (const QString &file : context_.CommandLineFiles)
            if (grdSearchList->TextMatrix(row, nameCol).toUpper() == GetFileName(file).toUpper())
                grdSearchList->setCellChecked(row, selCol, flexgrid::kChecked);
}

void frmMain::SetStatusText(const QString &text)
{
    sbStatusBar->setText(text.isEmpty() ? QStringLiteral("Status") : text);
}

void frmMain::refreshStatus()
{
    SetStatusText(catalogue_.getSelectedFileinfo());
}

} // namespace pw
