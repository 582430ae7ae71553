#pragma once
// The merge dialog's work, apart from its widgets: the checks before a merge, the merged
// file's name, the merge of the listed files in the order shown, and the settings it keeps.

#include "catalogue/catalogue_grid.h"
#include "engine/ap_img_to_pdf.h"

#include <QString>

class FlexGridModel;

namespace pw {

struct AppContext;
struct FailureTail;

// The dialog's choices as its controls hold them at one moment.
struct SetOrderChoices {
    QString fileName;         // txtmanualfilename
    QString outputFolder;     // txtOutputFolder
    bool defaultPath = false; // ChkDefaultPathMConvToPDF
    bool openFile = false;    // ChkOpenFileMConvToPDF
};

// What the merge reads and drives on its dialog.
class SetOrderForm {
public:
    virtual ~SetOrderForm() = default;
    virtual SetOrderChoices choices() const = 0;
    // While running: the busy cursor, and every button but Cancel off; a merge cannot be
    // stopped, so the dialog stays up until it ends. All back afterwards; ending twice is
    // harmless.
    virtual void setRunning(bool running) = 0;
    // ProgressBar1 from 0 to `maximum`, at 0; the merge then counts the files added on
    // progress(), which it never asks to stop.
    virtual void setProgressMaximum(int maximum) = 0;
    virtual Progress &progress() = 0;
    // Closes the dialog, which stores its settings on the way.
    virtual void unload() = 0;
};

// The merged PDF: the typed name up to its last dot, if it has one, then ".pdf", in `folder`.
// A typed extension is always replaced: "report.tif" gives "report.pdf", "a.b" gives "a.pdf".
QString MergeOutputPath(const QString &folder, const QString &fileName);

class MergeRun {
public:
    // `list` is the dialog's file list, laid out by InitFileList.
    MergeRun(AppContext &context, const FlexGridModel &list, SetOrderForm &form);

    // A file name, then the replace question for an existing output (whose answer decides
    // alone), then an output folder that exists.
    bool ValidateInput();
    // Merges the ticked rows in the order shown, tells the result and closes the dialog. A
    // failure leaves the dialog open, and the rows taken so far stay with the binding, so that
    // the next press adds them again.
    void cmdOk_Click();
    // What closing the dialog stores.
    void StoreSettings();

private:
    void merge(FailureTail &pwTail);
    void storeDefaultPath(const SetOrderChoices &choices);

    AppContext &context_;
    const FlexGridModel &list_;
    SetOrderForm &form_;
    ColumnIndices columns_;
    ApImgToPdf binding_; // one for the dialog's life
};

} // namespace pw
