#pragma once
// The folder search: walks the chosen folder (and, if asked, everything below it) into the
// catalogue grid on the window's own thread, pumping events after every file so that the
// window stays alive and a second press of the button can cancel.

#include "catalogue_grid.h"
#include "search_criteria.h"

#include "core/file_names.h"
#include "core/progress.h"

#include <optional>
#include <set>

#include <QDate>
#include <QFileInfo>
#include <QString>

namespace pw {

// What the search needs of the main window. Values are read when the search needs them:
// the advance options afresh for every file.
class ScanHost {
public:
    virtual ~ScanHost() = default;
    virtual QString selectedFolder() = 0; // the tree's selection ("Desktop" at its root)
    virtual void setSearchCaption(const QString &caption) = 0; // cmdSearch
    // Around a walk that adds many rows: views of the catalogue stop showing each change and
    // show the whole result at the end. Both may come twice for one search (a cancel ends it
    // early); the second call does nothing.
    virtual void beginBulkUpdate() = 0;
    virtual void endBulkUpdate() = 0;
    virtual void EnableSearchControls(bool enabled) = 0;
    virtual void setBusyCursor(bool busy) = 0;
    virtual bool searchSubFolders() = 0; // chkSearchSubFolder
    virtual int currentColumn() = 0;     // the grid's Col, where the result is sorted
    virtual int filterListIndex() = 0;   // cboFilterPattern, -1 when typed
    virtual QString filterText() = 0;
    virtual AdvanceOptions advanceOptions() = 0;
    virtual QDate today() = 0;
    virtual void showLoading() = 0; // frmLoading
    virtual void updateLoading(int count) = 0;
    virtual void hideLoading() = 0;
    virtual void SetStatusText(const QString &text) = 0;
};

class FolderScan {
public:
    FolderScan(CatalogueGrid &catalogue, ScanHost &host) : catalogue_(catalogue), host_(host) {}

    // The Search/Cancel button: runs a whole search, or, pressed again inside a running one
    // (the walk lets events run), asks it to stop.
    void cmdSearch_Click();
    bool isSearching() const { return searching_; }
    // The walk counts its hits on `status` and ends early once the status asks for a stop.
    void MainLoadFiles(const QString &path, bool clearFirst, Progress &status);
    void LoadFiles(const QString &path, bool clearFirst, Progress &status);
    // The existence test of a hit; false for a name the file system's encoding can't hold.
    static bool GetFindData(const QFileInfo &file);

private:
    // A search's status: its count goes to the loading window, and the nested press stops it.
    class SearchStatus final : public StoppableProgress {
    public:
        explicit SearchStatus(ScanHost &host) : host_(host) {}
        void setValue(int hits) override { host_.updateLoading(hits); }

    private:
        ScanHost &host_;
    };

    std::optional<QStringList> patterns();
    bool passesAdvanceOptions(const QFileInfo &file);

    CatalogueGrid &catalogue_;
    ScanHost &host_;
    bool searching_ = false;
    std::optional<SearchStatus> search_; // the running search's, or the last one's
    // The real folders this search has entered: links are followed, but a folder reached
    // again (a loop of links among them) is not walked twice.
    std::set<FolderIdentity> entered_;
};

} // namespace pw
