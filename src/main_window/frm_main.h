#pragma once
// The main window: four panes around the catalogue. Its handlers stay short and call the
// catalogue's logic; the frame, the search, and the check commands live in separate files.

#include "catalogue/catalogue_grid.h"
#include "catalogue/folder_scan.h"
#include "catalogue/selection_commands.h"
#include "engine/conversion_row.h"

#include <QMainWindow>
#include <QTimer>

#include <memory>

class FlexGrid;
class QAction;
class QCheckBox;
class QComboBox;
class QDateTimeEdit;
class QDockWidget;
class QGroupBox;
class QLabel;
class QMenu;
class QPushButton;
class QRadioButton;
class QSpinBox;
class QTreeView;

namespace pw {

struct FailureTail;
class FolderTreeModel;
class frmLoading;

class frmMain : public QMainWindow, public ScanHost {
    Q_OBJECT
public:
    explicit frmMain(AppContext &context, QWidget *parent = nullptr);
    ~frmMain() override;

    // The load step, in its fixed order; the first search runs here, before the window shows.
    void Form_Load();
    void SetWindowState();
    void SetStatusText(const QString &text) override;

    // Panes and their contents.
    QDockWidget *paneFolders;
    QDockWidget *paneSearchList;
    QDockWidget *paneOptions;
    QDockWidget *paneAdvanceOptions;
    QTreeView *ftvFolder;
    FolderTreeModel *folderModel;
    QWidget *ctlPaneSearchList;
    FlexGrid *grdSearchList;
    QGroupBox *fraTotal;
    QLabel *lblFilter;
    QComboBox *cboFilterPattern;
    QCheckBox *chkSearchSubFolder;
    QCheckBox *ChkUseAdvOpt;
    QPushButton *cmdSearch;
    QPushButton *cmdExport;
    QGroupBox *fraCommand;
    QPushButton *cmdConImageToPdf;
    QPushButton *cmdConverttiffToPdf;
    QPushButton *cmdCloneDir;
    QGroupBox *fraAdvSearch;
    QCheckBox *chkSearchByDate;
    QGroupBox *fraDate;
    QRadioButton *optInPeriod;
    QSpinBox *txtInPeriod;
    QComboBox *cboDateInPeriod;
    QComboBox *cboDateRangeType;
    QRadioButton *optBtnPeriod;
    QDateTimeEdit *dtpDateFrom;
    QDateTimeEdit *dtpDateTo;
    QCheckBox *chkSearchBySize;
    QGroupBox *fraSize;
    QRadioButton *optSizeAt;
    QComboBox *cboLeastMost;
    QSpinBox *txtSizeLeastMost;
    QRadioButton *optSizeBtn;
    QSpinBox *txtSizeFrom;
    QSpinBox *txtSizeTo;
    QLabel *sbStatusBar;
    QMenu *mnuCtxMenu;

    // Menu entries, by name.
    QAction *mnupreferances, *mnuExport, *mnuexit, *mnuChangeLanguage, *mnuWebsite, *mnuShowHelp,
        *mnuAbout;
    QAction *mnuCtxOpen, *mnuCtxOpenFolder, *mnuCtxPrintFile, *mnuCtxSelectAll, *mnuCtxInvSelect,
        *mnuCtxDeSelectAll, *mnuCtxCheckSelection, *mnuCtxUnCheckSelection,
        *mnuCtxCheckInvertSelection;

    CatalogueGrid &catalogue() { return catalogue_; }
    FolderScan &scan() { return scan_; }
    bool windowReady() const { return WindowReady; }
    AppContext &context() { return context_; }

    // ScanHost: what the search reads of the window.
    QString selectedFolder() override;
    void setSearchCaption(const QString &caption) override;
    void beginBulkUpdate() override;
    void endBulkUpdate() override;
    void EnableSearchControls(bool enabled) override;
    void setBusyCursor(bool busy) override;
    bool searchSubFolders() override;
    int currentColumn() override;
    int filterListIndex() override;
    QString filterText() override;
    AdvanceOptions advanceOptions() override;
    QDate today() override;
    void showLoading() override;
    void updateLoading(int count) override;
    void hideLoading() override;

    // Points the tree at `path`, which raises the tree's selection event.
    void setTreeFolder(const QString &path);

    // Handlers.
    void cmdSearch_Click();
    void ftvFolder_SelectionChanged();
    void cboFilterPattern_Click();
    void chkSearchByDate_Click();
    void chkSearchBySize_Click();
    void cmdConImageToPdf_Click();
    void cmdConverttiffToPdf_Click();
    void cmdCloneDir_Click();
    void mnupreferances_Click();
    void cmdExport_Click();
    void mnuShowHelp_Click();
    void mnuWebsite_Click();
    void mnuAbout_Click();
    // Opens the merge dialog over `rows` for `action`; 3, merge and convert, is the only
    // action that opens anything.
    void ShowSetOrderform(SelectedData rows, int action);
    void mnuCtxOpen_Click();
    void mnuCtxOpenFolder_Click();
    void mnuCtxPrintFile_Click();
    void mnuCtxSelectAll_Click();
    void mnuCtxDeSelectAll_Click();
    void mnuInvSelect_Click();
    void mnuCtxCheckSelection_Click();
    void mnuCtxUnCheckSelection_Click();
    void mnuCtxCheckInvertSelection_Click();
    void grdSearchList_MouseDown(int button, int shift, int x, int y);
    void grdSearchList_MouseUp();
    void grdSearchList_KeyDown(int &keyCode, int shift);
    void Form_Activate();
    void Form_Resize();
    void Form_Unload();
    void m_c_ExitSizeMove();

protected:
    void closeEvent(QCloseEvent *event) override;
    void changeEvent(QEvent *event) override;
    void moveEvent(QMoveEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildPanes();
    void buildSearchOptions();
    void buildAdvanceOptions();
    void buildMenus();
    void connectGrid();
    void FillComboBoxes();
    void applyCommandLineFiles();
    void refreshStatus();
    // Stores the window's state and, when normal, its place (twips); a failed save raises.
    void storePlace(FailureTail &pwTail);
    // Minimises the window once it is mapped, when the start state asked for it.
    void minimiseOnceMapped();
    int dpi() const;
    // The highlighted rows of the grid, where the block commands act.
    RowBlock selectedBlock() const;

    AppContext &context_;
    CatalogueGrid catalogue_;
    FolderScan scan_;
    std::unique_ptr<frmLoading> loading_;
    QTimer sizeMoveEnd_;
    int activateCount_ = 0;
    bool WindowReady = false;
    bool minimiseWhenMapped_ = false;
    bool loaded_ = false;
};

} // namespace pw
