#include "merge_run.h"

#include "conversion_list.h"

#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "grid/flex_grid_model.h"

namespace pw {

namespace {

const Unit setOrderForm = Unit::form("frmSetOrder_MConTiff");

} // namespace

QString MergeOutputPath(const QString &folder, const QString &fileName)
{
    const QString name = fileName.contains('.') ? NameBeforeLastDot(fileName) : fileName;
    return ValidateDir(folder) + name + ".pdf";
}

MergeRun::MergeRun(AppContext &context, const FlexGridModel &list, SetOrderForm &form)
    : context_(context), list_(list), form_(form),
      binding_(context.ui, ImageToPdfLibrary::responsive())
{
}

bool MergeRun::ValidateInput()
{
    bool result = false;
    PW_PROCEDURE("ValidateInput", setOrderForm);
    guarded(pwTail, [&] {
        PW_STEP;
        const SetOrderChoices choices = form_.choices();
        // No trimming: a name of blanks passes.
        if (choices.fileName.isEmpty()) {
            context_.ui.MsgBox("Please provide valid file name.", vbInformation);
            return;
        }
        PW_STEP;
        // The answer about an existing file decides alone; its folder evidently exists.
        const QString output = MergeOutputPath(choices.outputFolder, choices.fileName);
        if (FileExists(output)) {
            result = context_.ui.MsgBox(output + " Already exists. Do you Wants to Replace it?",
                                        vbYesNo) == vbYes;
            return;
        }
        PW_STEP;
        if (choices.outputFolder.isEmpty()) {
            context_.ui.MsgBox("Invalid Output Folder Path", vbInformation);
            return;
        }
        QString folder = choices.outputFolder;
        if (!FolderExists(folder)) {
            context_.ui.MsgBox("Please enter Valid folder Name", vbInformation);
            return;
        }
        result = true;
    });
    return result;
}

void MergeRun::cmdOk_Click()
{
    if (!ValidateInput())
        return;
    bool running = false;
    PW_PROCEDURE("cmdOk_Click", setOrderForm);
    const bool finished = guarded(pwTail, [&] {
        PW_STEP;
        running = true;
        form_.setRunning(true);
        merge(pwTail);
    });
    if (running && !finished)
        form_.setRunning(false);
}

void MergeRun::merge(FailureTail &pwTail)
{
    PW_STEP;
    columns_.refresh(context_.ColumnList);
    for (int row = 1; row < list_.rows(); ++row) {
        PW_STEP;
        if (list_.check(row, columns_.selection) == flexgrid::kChecked)
            binding_.colSelectedData.push_back(RecordFromRow(list_, columns_, row));
    }
    PW_STEP;
    const SetOrderChoices choices = form_.choices();
    const QString output = MergeOutputPath(choices.outputFolder, choices.fileName);
    binding_.OutputPdfFile = output;
    form_.setProgressMaximum(int(binding_.colSelectedData.size()));
    context_.ui.DoEvents();
    PW_STEP;
    const bool merged = binding_.MergeConvert_TiffToPdfx(form_.progress());
    // The outcome is read with the ordinary pointer.
    form_.setRunning(false);
    if (merged) {
        context_.ui.MsgBox("Successfully Converted tiff files to pdf.", vbInformation);
        const bool openFile = form_.choices().openFile;
        context_.settings().setIsOpenFileMConvToPDF(openFile ? 1 : 0);
        if (openFile && FileExists(output))
            context_.ui.ShellOpenFile("Open", output);
    } else {
        context_.ui.MsgBox("Error: in Converting files", vbInformation);
    }
    PW_STEP;
    storeDefaultPath(form_.choices());
    form_.unload();
}

void MergeRun::storeDefaultPath(const SetOrderChoices &choices)
{
    context_.settings().setIsDefaultPathMConvToPDF(choices.defaultPath ? 1 : 0);
    if (choices.defaultPath)
        context_.settings().setDefaultPathMConvToPDF(choices.outputFolder);
}

void MergeRun::StoreSettings()
{
    const SetOrderChoices choices = form_.choices();
    storeDefaultPath(choices);
    context_.settings().setIsOpenFileMConvToPDF(choices.openFile ? 1 : 0);
}

} // namespace pw
