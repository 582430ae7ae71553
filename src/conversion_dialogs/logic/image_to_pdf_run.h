#pragma once
// The Image to PDF dialog's work, apart from its widgets: the check of the output folder, one
// PDF for each listed file in list order, the settings it keeps and what the user is told.

#include "catalogue/catalogue_grid.h"

#include <QString>

#include <future>
#include <memory>
#include <set>

class FlexGridModel;

namespace pw {

struct AppContext;
class ApImgToPdf;
struct FailureTail;
class Progress;

// The dialog's choices as its controls hold them at one moment.
struct ImageToPdfChoices {
    QString outputFolder; // txtOutputFolder, as typed
    bool replace = false; // chkReplace
    // The recompression of each colour class: its box's text while its check box is ticked,
    // else "", which leaves the library's own encoding.
    QString colour, grey, blackWhite;
    bool defaultPath = false; // ChkDefaultPathConImgTiff
    bool openFolder = false;  // ChkOpenFolderConImgTiff
};

// What a run reads and drives on its dialog. Every control but cmdConvert stays live during
// a run, so the run asks for the choices again at every file.
class ImageToPdfForm {
public:
    virtual ~ImageToPdfForm() = default;
    virtual ImageToPdfChoices choices() const = 0;
    virtual void setOutputFolder(const QString &folder) = 0;
    virtual void focusOutputFolder() = 0;
    // cmdConvert off and the busy cursor while running; both back afterwards. Ending twice is
    // harmless: a run ends before it tells its outcome, and again on its way out.
    virtual void setRunning(bool running) = 0;
    // ProgressBar1 gets its maximum, then one step per file. Closing the dialog is the only
    // way to stop a run; the progress's cancelRequested() tells it.
    virtual void setProgressMaximum(int maximum) = 0;
    virtual Progress &progress() = 0;
    // A modal error report with one section.
    virtual void showErrorReport(const QString &title, const QString &heading,
                                 const QString &body) = 0;
};

class ImageToPdfRun {
public:
    // `list` is the dialog's file list, laid out by InitFileList.
    ImageToPdfRun(AppContext &context, const FlexGridModel &list, ImageToPdfForm &form);
    ~ImageToPdfRun();

    // An output folder that exists, or none after the user agreed to go on without one.
    bool ValidateInput();
    // Converts every listed file, then stores the settings and reports. A failure ends the
    // run at once, logged, without a word to the user and without storing anything.
    void cmdconvert_Click();
    // The three settings kept at the end of a run and when the dialog closes.
    void StoreSettings();
    // Files converted at once (one per core unless set); 1 converts each on the dialog's
    // worker thread, as a run always did.
    void setWorkers(int workers) { workers_ = workers < 1 ? 1 : workers; }

private:
    struct InHand;
    void convertAll(FailureTail &pwTail);
    // Starts converting `row` ahead of its turn, unless its PDF is there and is to be kept.
    InHand convertAhead(int row);
    // Whether `row` was converted, decided at its turn: what was converted `early` takes the
    // PDF's name if the choices still lead there, else the file is converted now.
    bool convertAtTurn(int row, InHand *early);
    // What a killed run converted ahead lies hidden in its output folder; the first file of a
    // run into a folder takes it away.
    void tidyFolderOf(const QString &pdf);
    // The binding is made at the first file and serves every later file and run.
    ApImgToPdf &binding();

    AppContext &context_;
    const FlexGridModel &list_;
    ImageToPdfForm &form_;
    ColumnIndices columns_;
    std::unique_ptr<ApImgToPdf> binding_;
    int workers_;
    std::set<QString> tidied_; // folders cleared of what a killed run converted ahead
};

} // namespace pw
