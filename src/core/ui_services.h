#pragma once
// What the program's logic needs from the desktop: message boxes, prompts and the shell.
// The application builds the real implementation into its AppContext; tests pass a recorder
// that answers.

#include <QString>

namespace pw {

// Message box flags and answers, as the program's code writes them.
enum MsgBoxFlag : int {
    vbOKOnly = 0,
    vbYesNo = 4,
    vbCritical = 16,
    vbQuestion = 32,
    vbExclamation = 48,
    vbInformation = 64,
    vbButtonsMask = 7, // the bits that choose the buttons
};
enum MsgBoxResult : int { vbOK = 1, vbCancel = 2, vbYes = 6, vbNo = 7 };

// Flags of the folder prompt, as the program's callers give them; each dialog passes its own.
enum BrowseFlag : int {
    BifReturnOnlyFsDirs = 1,
    BifDontGoBelowDomain = 2,
    BifStatusText = 4,
    BifNewDialogStyle = 64,
    BifBrowseIncludeFiles = 0x4000,
};
// Flags of the save prompt, as the program's callers give them.
enum SaveFlag : int { OfnOverwritePrompt = 2, OfnHideReadOnly = 4, OfnPathMustExist = 2048 };

class UiServices {
public:
    virtual ~UiServices() = default;
    // A modal message box; returns the button pressed.
    virtual int MessageBox(const QString &prompt, int flags, const QString &title) = 0;
    // Opens `file` with the verb ("open", "explore", "print"); to print, `parameters` names
    // the printer ("" for the default one). Answers as the shell does: above 32 on success,
    // 31 when no program is associated, 0 when out of resources.
    virtual int ShellExecute(const QString &verb, const QString &file, const QString &parameters,
                             const QString &folder) = 0;
    // Lets the user pick a program for `file` when no program is associated with it.
    virtual void OpenWith(const QString &file) = 0;
    // A folder prompt starting at `startPath`, with BrowseFlag bits; "" on cancel.
    virtual QString BrowseForFolder(const QString &title, const QString &startPath, int flags) = 0;
    // A save prompt; "" on cancel. `filter` pairs descriptions and patterns with "|"
    // ("Rich Text Files (*.rtf)|*.rtf"), `filterIndex` counts from 1. It never asks about
    // replacing a file: SaveFilePrompt does, so that every front end asks the same question.
    virtual QString AskSaveFileName(const QString &title, const QString &filter,
                                    int filterIndex) = 0;
    // Lets pending window events run once.
    virtual void DoEvents() = 0;

    // A message box with the program's title unless another is given.
    int MsgBox(const QString &prompt, int flags = vbOKOnly, const QString &title = {});
    // Opens a file through the shell. Only a shell that answers 0 leads to the choice of a
    // program; a file type without association deliberately brings up nothing.
    void ShellOpenFile(const QString &verb, const QString &file, const QString &parameters = {},
                       const QString &folder = {});
    // The folder prompt of the program's windows: file-system folders only, files too when
    // asked; "" on cancel.
    QString ShowFolderSelectionDialog(const QString &startPath, const QString &title,
                                      bool includeFiles = false, bool newStyle = false);
    // The save prompt with SaveFlag bits. With OfnOverwritePrompt an existing file is
    // replaced only after a Yes; a No asks for another name.
    QString SaveFilePrompt(const QString &title, const QString &filter, int filterIndex, int flags);
};

// Services for a run without windows: every box is answered with its first button, nothing
// is opened, and events still run so that queued work finishes.
class QuietUi final : public UiServices {
public:
    int MessageBox(const QString &, int flags, const QString &) override;
    int ShellExecute(const QString &, const QString &, const QString &, const QString &) override;
    void OpenWith(const QString &) override {}
    QString BrowseForFolder(const QString &, const QString &, int) override { return {}; }
    QString AskSaveFileName(const QString &, const QString &, int) override { return {}; }
    void DoEvents() override;
};

} // namespace pw
