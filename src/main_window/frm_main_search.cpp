// The main window's side of the folder search: what the search reads of the window's
// controls, and the three ways a search starts.
#include "frm_main.h"

#include "folder_tree_model.h"
#include "frm_loading.h"

#include "core/path_helpers.h"
#include "widgets/flex_grid.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QGroupBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QTreeView>

namespace pw {

void frmMain::setTreeFolder(const QString &path)
{
    const QModelIndex index = folderModel->indexForPath(path);
    if (!index.isValid())
        return;
    ftvFolder->setCurrentIndex(index);
    ftvFolder->scrollTo(index);
    ftvFolder->expand(index);
}

QString frmMain::selectedFolder()
{
    return folderModel->pathOf(ftvFolder->currentIndex());
}

void frmMain::setSearchCaption(const QString &caption)
{
    cmdSearch->setText(caption);
}

void frmMain::beginBulkUpdate()
{
    grdSearchList->setRedraw(false);
    grdSearchList->setVisible(false);
}

void frmMain::endBulkUpdate()
{
    grdSearchList->setRedraw(true);
    grdSearchList->setVisible(true);
}

void frmMain::EnableSearchControls(bool enabled)
{
    ftvFolder->setEnabled(enabled);
    ctlPaneSearchList->setEnabled(enabled);
    chkSearchSubFolder->setEnabled(enabled);
}

void frmMain::setBusyCursor(bool busy)
{
    if (busy)
        QApplication::setOverrideCursor(Qt::BusyCursor);
    else
        QApplication::restoreOverrideCursor();
}

bool frmMain::searchSubFolders()
{
    return chkSearchSubFolder->isChecked();
}

int frmMain::currentColumn()
{
    return grdSearchList->Col();
}

int frmMain::filterListIndex()
{
    // A typed text that is not exactly an entry of the list counts as typed.
    const int index = cboFilterPattern->currentIndex();
    return index >= 0 && cboFilterPattern->itemText(index) == cboFilterPattern->currentText()
               ? index
               : -1;
}

QString frmMain::filterText()
{
    return cboFilterPattern->currentText();
}

AdvanceOptions frmMain::advanceOptions()
{
    AdvanceOptions o;
    o.useAdvOpt = ChkUseAdvOpt->isChecked();
    o.searchByDate = chkSearchByDate->isChecked() ? 1 : 0;
    o.searchBySize = chkSearchBySize->isChecked() ? 1 : 0;
    o.inPeriod = optInPeriod->isChecked();
    o.inPeriodText = txtInPeriod->text();
    o.dateInPeriodText = cboDateInPeriod->currentText();
    o.dateFrom = dtpDateFrom->dateTime();
    o.dateTo = dtpDateTo->dateTime();
    o.dateRangeTypeText = cboDateRangeType->currentText();
    o.sizeAt = optSizeAt->isChecked();
    o.leastMostText = cboLeastMost->currentText();
    o.sizeLeastMostText = txtSizeLeastMost->text();
    o.sizeFromText = txtSizeFrom->text();
    o.sizeToText = txtSizeTo->text();
    return o;
}

QDate frmMain::today()
{
    return QDate::currentDate();
}

void frmMain::showLoading()
{
    loading_ = std::make_unique<frmLoading>(this);
    loading_->show();
}

void frmMain::updateLoading(int count)
{
    if (loading_)
        loading_->UpdateStatus(count);
}

void frmMain::hideLoading()
{
    loading_.reset();
}

void frmMain::cmdSearch_Click()
{
    scan_.cmdSearch_Click();
}

void frmMain::ftvFolder_SelectionChanged()
{
    if (!loaded_)
        return;
    if (!scan_.isSearching())
        cmdSearch_Click();
    refreshStatus();
}

void frmMain::cboFilterPattern_Click()
{
    if (!scan_.isSearching())
        cmdSearch_Click();
}

void frmMain::chkSearchByDate_Click()
{
    const bool on = chkSearchByDate->isChecked();
    for (QWidget *w : std::initializer_list<QWidget *>{fraDate, optInPeriod, optBtnPeriod})
        w->setEnabled(on);
}

void frmMain::chkSearchBySize_Click()
{
    const bool on = chkSearchBySize->isChecked();
    for (QWidget *w : std::initializer_list<QWidget *>{fraSize, optSizeAt, optSizeBtn})
        w->setEnabled(on);
}

} // namespace pw
