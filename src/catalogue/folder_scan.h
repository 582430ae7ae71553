#pragma once
// The folder search: walks the chosen folder (and, if asked, everything below it) into the
// catalogue grid on the window's own thread, pumping events after every file so that the
// window stays alive and a second press of the button can cancel.

#include "catalogue_grid.h"
#include "search_criteria.h"

#include <QDate>
#include <QFileInfo>
#include <QString>

namespace pw {

// What the search needs of the main window. Values are read when the search needs them:
// the advance options afresh for every file.
class ScanHost {
public:
    virtual ~ScanHost() = default;
    virtual QString selectedFolder() = 0;          // the tree's selection ("Desktop" at its root)
    virtual QString searchCaption() = 0;           // cmdSearch
    virtual void setSearchCaption(const QString &caption) = 0;
    virtual void EnableSearchControls(bool enabled) = 0;
    virtual void setBusyCursor(bool busy) = 0;
    virtual bool searchSubFolders() = 0;           // chkSearchSubFolder
    virtual int filterListIndex() = 0;             // cboFilterPattern, -1 when typed
    virtual QString filterText() = 0;
    virtual AdvanceOptions advanceOptions() = 0;
    virtual QDate today() = 0;
    virtual void showLoading() = 0;                // frmLoading
    virtual void updateLoading(int count) = 0;
    virtual void hideLoading() = 0;
    virtual void SetStatusText(const QString &text) = 0;
};

class FolderScan {
public:
    FolderScan(CatalogueGrid &catalogue, ScanHost &host) : catalogue_(catalogue), host_(host) {}

    // The Search/Cancel button. "&Search" runs a whole search; any other caption (a press
    // that arrives nested inside a running search) asks it to stop.
    void cmdSearch_Click();
    void MainLoadFiles(const QString &path, bool clearFirst);
    void LoadFiles(const QString &path, bool clearFirst);
    // The existence test of a hit; false for a name the file system's encoding can't hold.
    static bool GetFindData(const QFileInfo &file);

    bool SearchCancelled = false;
    bool SearchStopped = false;

private:
    std::optional<QStringList> patterns();
    bool passesAdvanceOptions(const QFileInfo &file);

    CatalogueGrid &catalogue_;
    ScanHost &host_;
};

} // namespace pw
