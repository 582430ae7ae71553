#include "image_to_pdf_run.h"

#include "conversion_list.h"

#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/path_helpers.h"
#include "core/progress.h"
#include "core/ui_services.h"
#include "engine/ap_img_to_pdf.h"
#include "engine/image_to_pdf_library.h"
#include "grid/flex_grid_model.h"

#include <QThread>

#include <algorithm>
#include <chrono>
#include <map>

namespace pw {

// A file whose conversion runs; `made` is ready at once for one that needs none.
struct ImageToPdfRun::InHand {
    QString source;
    std::future<bool> made;
};

ImageToPdfRun::ImageToPdfRun(AppContext &context, const FlexGridModel &list, ImageToPdfForm &form)
    : context_(context), list_(list), form_(form),
      workers_(std::max(1, QThread::idealThreadCount()))
{
}

ImageToPdfRun::~ImageToPdfRun() = default;

ApImgToPdf &ImageToPdfRun::binding()
{
    if (!binding_)
        binding_ = std::make_unique<ApImgToPdf>(context_.ui, ImageToPdfLibrary::responsive());
    return *binding_;
}

bool ImageToPdfRun::ValidateInput()
{
    QString folder = form_.choices().outputFolder;
    if (!folder.trimmed().isEmpty()) {
        if (FolderExists(folder))
            return true;
        context_.ui.MsgBox("Please enter Valid folder Name", vbInformation);
        form_.focusOutputFolder();
        return false;
    }
    return context_.ui.MsgBox("There is no output folder selected so application will store "
                              "files in source file folder.\nDo you want to continue without "
                              "output folder?",
                              vbYesNo | vbInformation) != vbNo;
}

void ImageToPdfRun::cmdconvert_Click()
{
    bool running = false;
    PW_PROCEDURE("cmdconvert_Click", Unit::form("frmConImageToPdf"));
    guarded(pwTail, [&] {
        PW_STEP;
        if (!ValidateInput())
            return;
        PW_STEP;
        running = true;
        form_.setRunning(true);
        convertAll(pwTail);
    });
    if (!running)
        return;
    form_.progress().setValue(0);
    form_.setRunning(false);
}

void ImageToPdfRun::convertAll(FailureTail &pwTail)
{
    PW_STEP;
    columns_.refresh(context_.ColumnList);
    form_.setProgressMaximum(list_.rows() - 1);
    form_.progress().setValue(0);
    QString failures;
    // Files ahead of the one being reported convert meanwhile, one per worker; outcomes are
    // taken in list order, so the report reads as a one-worker run's. A file's choices are
    // read when it is taken in hand.
    std::map<int, InHand> inHand;
    int next = 1;
    for (int row = 1; row < list_.rows(); ++row) {
        PW_STEP;
        for (next = std::max(next, row); next < list_.rows() && int(inHand.size()) < workers_;
             ++next) {
            // The first file's folder fills a blank output folder and is never cleared again,
            // so every later file goes there too, not to its own folder as the prompt
            // promised.
            if (form_.choices().outputFolder.trimmed().isEmpty())
                form_.setOutputFolder(list_.text(next, columns_.location));
            inHand.emplace(next, takeInHand(next));
        }
        InHand &file = inHand.at(row);
        while (file.made.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready)
            context_.ui.DoEvents();
        context_.ui.DoEvents();
        PW_STEP;
        if (!file.made.get())
            failures += file.source + "\r\n";
        inHand.erase(row);
        // Closing the dialog stops the run once the files in hand have ended.
        if (form_.progress().cancelRequested()) {
            for (auto &[later, unfinished] : inHand)
                unfinished.made.wait();
            return;
        }
        form_.progress().setValue(row);
    }
    PW_STEP;
    StoreSettings();
    // The user reads the outcome, and saves the report, with the ordinary pointer.
    form_.setRunning(false);
    if (failures.isEmpty())
        context_.ui.MsgBox("Successfully Converted all file(s).", vbInformation);
    else
        form_.showErrorReport("Image To Pdf Converesion error",
                              "Following file(s) couldn't Converted", failures);
    PW_STEP;
    const ImageToPdfChoices choices = form_.choices();
    if (choices.openFolder)
        context_.ui.ShellOpenFile("Explore", choices.outputFolder);
}

ImageToPdfRun::InHand ImageToPdfRun::takeInHand(int row)
{
    InHand file;
    const QString name = list_.text(row, columns_.name);
    file.source = ValidateDir(list_.text(row, columns_.location)) + name;
    const ImageToPdfChoices choices = form_.choices();
    const QString pdf = ValidateDir(choices.outputFolder) + NameBeforeLastDot(name) + ".pdf";
    const auto convert = [source = file.source, pdf, choices](ApImgToPdf &converter) {
        return converter.ConverImageToPdf(source, pdf, choices.colour, choices.grey,
                                          choices.blackWhite);
    };
    // An existing PDF counts as done unless the user asked to replace it.
    if (!choices.replace && FileExists(pdf)) {
        std::promise<bool> kept;
        kept.set_value(true);
        file.made = kept.get_future();
    } else if (workers_ > 1) {
        file.made = std::async(std::launch::async, [convert] {
            QuietUi quiet;
            ApImgToPdf converter(quiet, ImageToPdfLibrary::ours());
            return convert(converter);
        });
    } else {
        std::promise<bool> done;
        done.set_value(convert(binding()));
        file.made = done.get_future();
    }
    return file;
}

void ImageToPdfRun::StoreSettings()
{
    const ImageToPdfChoices choices = form_.choices();
    Settings &settings = context_.settings();
    settings.setIsDefaultPathConImgTiff(choices.defaultPath ? 1 : 0);
    if (choices.defaultPath)
        settings.setDefaultPathConImgTiff(choices.outputFolder);
    settings.setIsOpenFolderConImgTiff(choices.openFolder ? 1 : 0);
}

} // namespace pw
