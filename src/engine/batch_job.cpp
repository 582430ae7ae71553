#include "batch_job.h"

#include "ap_img_to_pdf.h"
#include "image_to_pdf_library.h"

#include "backends/common/output_file.h"
#include "backends/page_count/page_rules.h"
#include "core/app_context.h"
#include "core/command_line.h"
#include "core/file_names.h"
#include "core/path_helpers.h"
#include "core/runtime.h"
#include "core/ui_services.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <future>

namespace pw {

QString BatchJob::usage(const QString &moreCommands)
{
    return "Usage:\n"
           "  pagewright-batch convert [--color NAME] [--gray NAME] [--bw NAME] [--replace]"
           " [--ocr LANG] [--jobs N] -o DIR FILE...\n"
           "      one PDF per image, named after the image, in DIR (--jobs converts N files at\n"
           "      once, one per core unless given)\n"
           "  pagewright-batch merge [--ocr LANG] -o OUT.pdf FILE...\n"
           "      one PDF of all files (images and PDFs), in the order given\n"
           "  pagewright-batch pages FILE...\n"
           "      the page count of each TIFF and PDF file\n"
           "  pagewright-batch clone [--replace] [--color NAME] [--gray NAME] [--bw NAME] [--ocr "
           "LANG] [--new]"
           " [--jobs N] SOURCE OUTPUT\n"
           "      the tree below SOURCE as PDFs below OUTPUT, as a job that a stop or a crash\n"
           "      leaves resumable (--new discards an unfinished job; --jobs converts N files at\n"
           "      once, one per core unless given)\n"
           "  pagewright-batch resume [--jobs N]\n"
           "      takes up the unfinished folder job\n" +
           moreCommands +
           "convert, merge, clone and resume take --max-pixels N: a page of more pixels is"
           " refused as a file that cannot be read (default 1073741824), and shape the pages"
           " made from images (a PDF's pages stay as they are) with:\n"
           "  --page-size SIZE   A4, Letter, Legal, A3, A5, or WxH with mm, in or pt (points"
           " when none); without it each page is its image at its resolution\n"
           "  --fit HOW          into (default: all of the image, as large as fits), fill (the"
           " whole page, the overhang cut off), exact (stretched), shrink (into, but never"
           " enlarged)\n"
           "  --margin LENGTH    blank border on every side, with mm, in or pt\n"
           "  --orientation WAY  auto (default: as the image), portrait or landscape\n"
           "  --dpi N            resolution of images whose file states none (default 72)\n"
           "  --force-dpi N      resolution of every image, whatever its file states\n"
           "Photos are shown the right way up as their orientation says, their data kept as"
           " it is.\n"
           "merge, join and tiff-join write to standard output with -o -. An output is written"
           " whole before it replaces a file (through a link, the file it names) or goes into a"
           " device or pipe; a folder is refused.\n"
           "convert, merge and clone take --ocr LANG (eng, deu+eng ...): each page made from an"
           " image gets an invisible text layer read in LANG, so that the PDF can be searched and"
           " its text copied; the images stay as they would be without.\n"
           "NAME is one of: " +
           RecompressionNames.join(", ") +
           " (for the colour class it"
           " fits: --color and --gray Lzw, Zip, Packbits, Jpeg; --bw Lzw, Zip, CCITT-G3,"
           " CCITT-G4). Without a name each image keeps a lossless encoding.\n"
           "Every command takes --quiet (-q: nothing but errors) and --verbose (-v: each file"
           " as it is done); on a terminal convert, merge, clone, resume, render, split,"
           " extract and join show one line of progress on stderr.\n"
           "\"--\" ends the options. pagewright-batch COMMAND --help shows one command.\n"
           "Exit status: 0 when all was done; 1 when a file failed, each named on stderr with"
           " its reason; 2 for a usage error or a refusal before any file was touched; 130 when"
           " interrupted (clone and resume keep the job).\n";
}

bool BatchJob::initializeFromArgs(const QStringList &args, QString &error)
{
    if (args.isEmpty() || args[0] == "--help" || args[0] == "-h") {
        error = usage();
        return false;
    }
    command_ = args[0];
    if (command_ != "convert" && command_ != "merge" && command_ != "pages") {
        error = "Unknown command \"" + command_ + "\"; pagewright-batch --help lists the commands.";
        return false;
    }
    const CommandLine line = ParseCommandLine(
        args.mid(1),
        QStringList{"-o", "--color", "--gray", "--bw", "--jobs", "--ocr"} + PageOptionNames(),
        {"--replace"});
    if (!line.error.isEmpty())
        return error = line.error, false;
    output_ = line.value("-o");
    colour_ = line.value("--color");
    grey_ = line.value("--gray");
    blackWhite_ = line.value("--bw");
    replace_ = line.has("--replace");
    if (line.has("--jobs")) {
        bool number = false;
        workers_ = line.value("--jobs").toInt(&number);
        if (!number || workers_ < 1)
            return error = "Option --jobs needs a number of files to convert at once, 1 or more.",
                   false;
    }
    for (const QString &option : PageOptionNames())
        if (line.has(option))
            if (error = TakePageOption(option, line.value(option), layout_); !error.isEmpty())
                return false;
    if (line.has("--ocr"))
        if (error = ApplyOcrOption(line.value("--ocr")); !error.isEmpty())
            return false;
    files_ = line.files;
    return checkArguments(error);
}

bool BatchJob::checkArguments(QString &error)
{
    for (const QString &name : {colour_, grey_, blackWhite_}) {
        if (!name.isEmpty() && !RecompressionNames.contains(name)) {
            error = "Unknown recompression \"" + name + "\"; use one of " +
                    RecompressionNames.join(", ") + ".";
            return false;
        }
    }
    if (files_.isEmpty()) {
        error = "No files given.";
        return false;
    }
    if (command_ != "pages" && output_.isEmpty()) {
        error = "The " + command_ + " command needs -o.";
        return false;
    }
    error = ApplyPageLayout(layout_);
    return error.isEmpty();
}

BatchJob::BatchJob(AppContext &context)
    : context_(context), workers_(std::max(1, QThread::idealThreadCount()))
{
}

int BatchJob::run(const BatchOutput &io)
{
    if (command_ == "convert")
        return convert(io);
    if (command_ == "merge")
        return merge(io);
    return pages(io);
}

namespace {

// Why nothing can be created in `folder`, in the system's words.
QString whyNotWritable(const QString &folder)
{
    if (::access(EncodeFileName(folder).constData(), W_OK) != 0)
        return QString::fromLocal8Bit(std::strerror(errno));
    return "the file could not be created";
}

} // namespace

// The windows read a create that the library refused as success; the command line checks that
// this run wrote each PDF and says why not.
int BatchJob::convert(const BatchOutput &io)
{
    const Sink &err = io.err;
    if (!MakeFolderPath(output_)) {
        err("pagewright-batch: " + output_ + ": cannot create the output folder");
        return 1;
    }
    // Up to one file per worker converts at once; outcomes are told in the order given. A file
    // waits while another in hand goes to the same PDF, so that the first one given is there
    // when the second is decided, as in a one-worker run.
    struct InHand {
        QString file, pdf;
        std::future<QString> failure; // "" when the PDF was written or kept
    };
    std::deque<InHand> inHand;
    const auto take = [&](const QString &file) {
        InHand hand{file, PdfPathFor(output_, QFileInfo(file).fileName()), {}};
        std::promise<QString> now;
        if (!replace_ && IsRegularFilePath(hand.pdf))
            now.set_value({}); // counts as done, as in the dialog
        else if (!IsRegularFilePath(file))
            now.set_value(IsFolderPath(file) ? "Is a folder" : "File not found");
        else {
            hand.failure = std::async(std::launch::async, [this, file, pdf = hand.pdf] {
                QuietUi quiet;
                ApImgToPdf binding(quiet);
                if (!binding.ConverImageToPdf(file, pdf, colour_, grey_, blackWhite_))
                    return binding.LastFailureText;
                if (binding.CreateRefused || !binding.Written)
                    return "not written: " + pdf + ": " +
                           (binding.NotWrittenWhy.isEmpty() ? whyNotWritable(output_)
                                                            : binding.NotWrittenWhy);
                return QString();
            });
            return inHand.push_back(std::move(hand));
        }
        hand.failure = now.get_future();
        inHand.push_back(std::move(hand));
    };
    const auto clashes = [&](const QString &file) {
        const QString pdf = PdfPathFor(output_, QFileInfo(file).fileName());
        return std::any_of(inHand.begin(), inHand.end(),
                           [&](const InHand &hand) { return hand.pdf == pdf; });
    };
    // A file that ended before the one ahead of it waits without holding its worker.
    const auto room = [&] {
        const auto converting = std::count_if(inHand.begin(), inHand.end(), [](const InHand &h) {
            return h.failure.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
        });
        return converting < workers_ && int(inHand.size()) < 4 * workers_;
    };
    int failed = 0, done = 0;
    io.progress.setMaximum(int(files_.size()));
    for (qsizetype next = 0; next < files_.size() || !inHand.empty();) {
        do {
            while (next < files_.size() && room() && !clashes(files_[next]))
                take(files_[next++]);
        } while (inHand.front().failure.wait_for(std::chrono::milliseconds(2)) !=
                 std::future_status::ready);
        InHand &hand = inHand.front();
        if (const QString why = hand.failure.get(); !why.isEmpty()) {
            err("pagewright-batch: " + hand.file + ": " + why);
            ++failed;
        } else {
            io.verbose(hand.file + " -> " + hand.pdf);
        }
        inHand.pop_front();
        io.progress.setStatusText(inHand.empty() ? QString() : inHand.front().file);
        io.progress.setValue(++done);
    }
    return failed ? 1 : 0;
}

int BatchJob::merge(const BatchOutput &io)
{
    const Sink &err = io.err;
    const std::string refusal = OutputRefusal(EncodeFileName(output_).toStdString());
    if (!refusal.empty()) {
        err("pagewright-batch: " + output_ + ": " + QString::fromStdString(refusal));
        return 1;
    }
    ApImgToPdf binding(context_.ui);
    // "-" is standard output, which has no path.
    binding.OutputPdfFile = output_ == "-" ? output_ : QDir::current().absoluteFilePath(output_);
    for (const QString &file : files_) {
        const QString absolute = QDir::current().absoluteFilePath(file);
        clsColSetOrderGrid row;
        row.setFilename(QFileInfo(absolute).fileName());
        row.setFileLocation(QFileInfo(absolute).path());
        binding.colSelectedData.push_back(row);
    }
    io.progress.setMaximum(int(files_.size()));
    if (binding.MergeConvert_TiffToPdfx(io.progress) && binding.Written) {
        io.verbose(output_);
        return 0;
    }
    const QString why = !binding.LastFailureText.isEmpty() ? binding.LastFailureText
                        : !binding.NotWrittenWhy.isEmpty() ? binding.NotWrittenWhy
                                                           : "not written";
    err("pagewright-batch: " + (binding.FailedFile.isEmpty() ? output_ : binding.FailedFile) +
        ": " + why);
    return 1;
}

int BatchJob::pages(const BatchOutput &io)
{
    const Sink &out = io.out;
    const Sink &err = io.err;
    int failed = 0;
    for (const QString &file : files_) {
        const PageKind kind = PageKindOf(QFileInfo(file).fileName().toStdString());
        if (kind == PageKind::None) {
            out(file + "\t");
            continue;
        }
        const QString cell = QString::fromStdString(PagesCellText(
            kind, context_.pageCounters.CountPages(kind, QFile::encodeName(file).toStdString())));
        out(file + "\t" + cell);
        if (cell == "Error") {
            err(file);
            ++failed;
        }
    }
    return failed ? 1 : 0;
}

QString PdfPathFor(const QString &folder, const QString &fileName)
{
    const int dot = InStrRev(fileName, ".");
    const QString base = dot > 0 ? fileName.left(dot - 1) : fileName;
    return ValidateDir(folder) + base + ".pdf";
}

} // namespace pw
