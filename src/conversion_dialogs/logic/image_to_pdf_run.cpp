#include "image_to_pdf_run.h"

#include "conversion_list.h"

#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/file_names.h"
#include "core/path_helpers.h"
#include "core/progress.h"
#include "core/ui_services.h"
#include "engine/ap_img_to_pdf.h"
#include "engine/image_to_pdf_library.h"
#include "grid/flex_grid_model.h"

#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QThread>

#include <cstdio>

#include <algorithm>
#include <chrono>
#include <map>

namespace pw {

// A file converted ahead of its turn, into a hidden file beside its PDF, with the choices the
// dialog showed then. At its turn it takes the PDF's name if the choices are still the same.
struct ImageToPdfRun::InHand {
    ImageToPdfChoices choices;
    QString pdf;
    QString ahead; // "" when nothing was converted ahead
    std::future<bool> made;
};

namespace {

// The PDF of the listed file `name` under `choices`; throws for a name without a dot.
QString pdfFor(const ImageToPdfChoices &choices, const QString &name)
{
    return ValidateDir(choices.outputFolder) + NameBeforeLastDot(name) + ".pdf";
}

// ".NAME.pw-" and six letters: the name a killed writer's file has, which the next run into
// the folder removes.
QString hiddenBeside(const QString &pdf)
{
    static const char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    QString suffix;
    for (int i = 0; i < 6; ++i)
        suffix += QChar(letters[QRandomGenerator::global()->bounded(62)]);
    const QFileInfo info(pdf);
    return info.path() + "/." + info.fileName() + ".pw-" + suffix;
}

bool sameEncodings(const ImageToPdfChoices &a, const ImageToPdfChoices &b)
{
    return a.colour == b.colour && a.grey == b.grey && a.blackWhite == b.blackWhite;
}

} // namespace

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
    // With several workers the files after the current one convert meanwhile; each is still
    // decided at its turn, with the choices the dialog shows then, in list order.
    std::map<int, InHand> ahead;
    const auto dropAhead = [&ahead] {
        for (auto &[row, file] : ahead)
            if (file.made.valid()) {
                file.made.wait();
                QFile::remove(file.ahead);
            }
    };
    int next = 2;
    for (int row = 1; row < list_.rows(); ++row) {
        PW_STEP;
        // The first file's folder fills a blank output folder and is never cleared again, so
        // every later file goes there too, not to its own folder as the prompt promised.
        if (form_.choices().outputFolder.trimmed().isEmpty())
            form_.setOutputFolder(list_.text(row, columns_.location));
        context_.ui.DoEvents();
        if (form_.progress().cancelRequested())
            return dropAhead();
        PW_STEP;
        for (next = std::max(next, row + 1); next < list_.rows() && next < row + workers_; ++next)
            ahead.emplace(next, convertAhead(next));
        const auto early = ahead.find(row);
        bool made = false;
        try {
            made = convertAtTurn(row, early == ahead.end() ? nullptr : &early->second);
        } catch (...) {
            dropAhead();
            throw;
        }
        if (early != ahead.end())
            ahead.erase(early);
        if (!made)
            failures += ValidateDir(list_.text(row, columns_.location)) +
                        list_.text(row, columns_.name) + "\r\n";
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

ImageToPdfRun::InHand ImageToPdfRun::convertAhead(int row)
{
    InHand file;
    file.choices = form_.choices();
    const QString name = list_.text(row, columns_.name);
    const QString source = ValidateDir(list_.text(row, columns_.location)) + name;
    try {
        file.pdf = pdfFor(file.choices, name);
    } catch (...) {
        return file; // its turn says why
    }
    if (!file.choices.replace && FileExists(file.pdf))
        return file;
    tidyFolderOf(file.pdf);
    file.ahead = hiddenBeside(file.pdf);
    file.made = std::async(std::launch::async, [source, to = file.ahead, c = file.choices] {
        QuietUi quiet;
        ApImgToPdf converter(quiet, ImageToPdfLibrary::ours());
        return converter.ConverImageToPdf(source, to, c.colour, c.grey, c.blackWhite);
    });
    return file;
}

bool ImageToPdfRun::convertAtTurn(int row, InHand *early)
{
    const ImageToPdfChoices choices = form_.choices();
    const QString name = list_.text(row, columns_.name);
    const QString source = ValidateDir(list_.text(row, columns_.location)) + name;
    const QString pdf = pdfFor(choices, name);
    const bool keep = !choices.replace && FileExists(pdf);
    tidyFolderOf(pdf);
    if (early && early->made.valid()) {
        while (early->made.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready)
            context_.ui.DoEvents();
        const bool made = early->made.get();
        const bool still = early->pdf == pdf && sameEncodings(early->choices, choices) && !keep;
        if (still && !made)
            return false;
        if (still && ::rename(EncodeFileName(early->ahead).constData(),
                              EncodeFileName(pdf).constData()) == 0)
            return true;
        QFile::remove(early->ahead);
    }
    // An existing PDF counts as done unless the user asked to replace it.
    if (keep)
        return true;
    return binding().ConverImageToPdf(source, pdf, choices.colour, choices.grey,
                                      choices.blackWhite);
}

void ImageToPdfRun::tidyFolderOf(const QString &pdf)
{
    const QString folder = QFileInfo(pdf).path();
    if (tidied_.insert(folder).second)
        ImageToPdfLibrary::ours().removeLeftovers(EncodeFileName(folder).toStdString());
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
