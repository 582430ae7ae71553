#pragma once
// What a folder job shows and reads while it runs. The Folder Conversion dialog implements it
// with its controls; `pagewright-batch clone` and `resume` implement it on standard output. The
// job reads the boxes at the moments it needs them (the replace box for every file), so a front
// end answers from its current state, never from a copy taken at the start.

#include <QString>

namespace pw {

// The recompression name chosen for each image class, or "" where its box is clear.
struct CloneEncodings {
    QString EncodColor;
    QString EncodGraycale;
    QString EncodBW;
    // The language of the PDFs' text layer, "" for none: kept with the job so that a resume
    // makes the rest searchable too.
    QString ocr;
};

class CloneJobView {
public:
    virtual ~CloneJobView() = default;

    // txtCloningFrom and txtoutputFld, as they stand.
    virtual QString sourceText() const = 0;
    virtual void setSourceText(const QString &text) = 0;
    virtual QString outputText() const = 0;
    virtual void setOutputText(const QString &text) = 0;
    virtual void focusOutput() = 0;

    // chkReplace, read anew for every file.
    virtual bool replaceExisting() const = 0;
    virtual void setReplaceExisting(bool on) = 0;
    // ChkOpenFolderCloneDir.
    virtual bool openFolderAfter() const = 0;

    // The three recompression rows: for each class, the combo's text when its box is set.
    virtual CloneEncodings encodings() const = 0;
    // Shows a job's encodings: each non-empty name sets its class's box (enabling its combo)
    // and puts the name in the combo; an empty one leaves the row as it is.
    virtual void restoreEncodings(const CloneEncodings &encodings) = 0;

    // cmdOk's caption: "&Start", or "Sto&p" during a run.
    virtual QString runCaption() const = 0;
    virtual void setRunCaption(const QString &caption) = 0;
    // cmdCancel, disabled during a run.
    virtual void setCloseEnabled(bool enabled) = 0;
    // The hourglass pointer during a run.
    virtual void setBusy(bool busy) = 0;
    // Frame3's caption: the status line of the run.
    virtual void setStatusCaption(const QString &caption) = 0;

    // The log pane: emptied, then only ever appended to. Each append follows the newest text.
    virtual void clearLog() = 0;
    virtual void appendLog(const QString &text) = 0;

    // The progress bar in files. The job itself refuses a value above the maximum before it
    // gets here, as the classic control did.
    virtual void setProgressMaximum(int maximum) = 0;
    virtual void setProgressValue(int value) = 0;
};

// A view without controls: the boxes are fields, the log is kept as text, and nothing is
// shown. pagewright-batch and the measurements build on it.
class PlainCloneJobView : public CloneJobView {
public:
    QString sourceText() const override { return source; }
    void setSourceText(const QString &text) override { source = text; }
    QString outputText() const override { return output; }
    void setOutputText(const QString &text) override { output = text; }
    void focusOutput() override {}
    bool replaceExisting() const override { return replace; }
    void setReplaceExisting(bool on) override { replace = on; }
    bool openFolderAfter() const override { return false; }
    CloneEncodings encodings() const override { return chosen; }
    void restoreEncodings(const CloneEncodings &shown) override { restored = shown; }
    QString runCaption() const override { return caption; }
    void setRunCaption(const QString &text) override { caption = text; }
    void setCloseEnabled(bool) override {}
    void setBusy(bool) override {}
    void setStatusCaption(const QString &text) override { status = text; }
    void clearLog() override { log.clear(); }
    void appendLog(const QString &text) override { log += text; }
    void setProgressMaximum(int) override {}
    void setProgressValue(int) override {}

    QString source, output, caption = "&Start", status, log;
    bool replace = false;
    CloneEncodings chosen, restored;
};

} // namespace pw
