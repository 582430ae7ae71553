#include "batch_job.h"

#include "ap_img_to_pdf.h"

#include "backends/page_count/page_rules.h"
#include "core/app_context.h"
#include "core/file_names.h"
#include "core/path_helpers.h"
#include "core/runtime.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace pw {

QString BatchJob::usage(const QString &moreCommands)
{
    return "Usage:\n"
           "  pagewright-batch convert [--color NAME] [--gray NAME] [--bw NAME] [--replace] [--ocr "
           "LANG]"
           " -o DIR FILE...\n"
           "      one PDF per image, named after the image, in DIR\n"
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
           "convert, merge and clone take --max-pixels N: a page of more pixels is refused as"
           " a file that cannot be read (default 1073741824).\n"
           "convert, merge and clone take --ocr LANG (eng, deu+eng ...): each page made from an"
           " image gets an invisible text layer read in LANG, so that the PDF can be searched and"
           " its text copied; the images stay as they would be without.\n"
           "NAME is one of: " +
           RecompressionNames.join(", ") +
           " (for the colour class it"
           " fits: --color and --gray Lzw, Zip, Packbits, Jpeg; --bw Lzw, Zip, CCITT-G3,"
           " CCITT-G4). Without a name each image keeps a lossless encoding.\n"
           "\"--\" ends the options. The exit status is 1 when any file failed; each failure is"
           " named on stderr with its reason.\n";
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
    for (int i = 1; i < args.size(); ++i) {
        const QString &a = args[i];
        const bool takesValue = a == "-o" || a == "--color" || a == "--gray" || a == "--bw";
        if (takesValue && i + 1 >= args.size()) {
            error = "Option " + a + " needs a value.";
            return false;
        }
        if (a == "-o")
            output_ = args[++i];
        else if (a == "--color")
            colour_ = args[++i];
        else if (a == "--gray")
            grey_ = args[++i];
        else if (a == "--bw")
            blackWhite_ = args[++i];
        else if (a == "--replace")
            replace_ = true;
        else if (a == "--") // what follows is files, whatever their names
            return takeFiles(args.mid(i + 1), error);
        else if (a == "--max-pixels") {
            if (error = ApplyMaxPixelsOption(args, i); !error.isEmpty())
                return false;
        } else if (a == "--ocr") {
            if (error = ApplyOcrOption(args, i); !error.isEmpty())
                return false;
        } else if (a.startsWith("--"))
            return error = "Unknown option " + a + ".", false;
        else
            files_ << a;
    }
    return takeFiles({}, error);
}

bool BatchJob::takeFiles(const QStringList &more, QString &error)
{
    files_ << more;
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
    return true;
}

int BatchJob::run(const std::function<void(const QString &)> &out,
                  const std::function<void(const QString &)> &err)
{
    if (command_ == "convert")
        return convert(err);
    if (command_ == "merge")
        return merge(err);
    return pages(out, err);
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
int BatchJob::convert(const std::function<void(const QString &)> &err)
{
    if (!MakeFolderPath(output_)) {
        err("pagewright-batch: " + output_ + ": cannot create the output folder");
        return 1;
    }
    ApImgToPdf binding(context_.ui);
    int failed = 0;
    const auto fail = [&](const QString &file, const QString &reason) {
        err("pagewright-batch: " + file + ": " + reason);
        ++failed;
    };
    for (const QString &file : files_) {
        const QString pdf = PdfPathFor(output_, QFileInfo(file).fileName());
        if (!replace_ && IsRegularFilePath(pdf))
            continue; // counts as done, as in the dialog
        if (!IsRegularFilePath(file))
            fail(file, IsFolderPath(file) ? "Is a folder" : "File not found");
        else if (!binding.ConverImageToPdf(file, pdf, colour_, grey_, blackWhite_))
            fail(file, binding.LastFailureText);
        else if (binding.CreateRefused || !IsRegularFilePath(pdf))
            fail(file, "not written: " + pdf + ": " + whyNotWritable(output_));
    }
    return failed ? 1 : 0;
}

int BatchJob::merge(const std::function<void(const QString &)> &err)
{
    // A terminal has no bar to fill; a merge is quiet until it fails.
    struct Quiet final : Progress {
        void setValue(int) override {}
    } quiet;
    if (IsFolderPath(output_)) {
        err("pagewright-batch: " + output_ + ": Is a folder");
        return 1;
    }
    ApImgToPdf binding(context_.ui);
    binding.setProgress(quiet);
    binding.OutputPdfFile = QDir::current().absoluteFilePath(output_);
    for (const QString &file : files_) {
        const QString absolute = QDir::current().absoluteFilePath(file);
        clsColSetOrderGrid row;
        row.setFilename(QFileInfo(absolute).fileName());
        row.setFileLocation(QFileInfo(absolute).path());
        binding.colSelectedData.push_back(row);
    }
    if (binding.MergeConvert_TiffToPdfx() && IsRegularFilePath(binding.OutputPdfFile))
        return 0;
    const QString why = binding.LastFailureText.isEmpty() ? "not written" : binding.LastFailureText;
    err("pagewright-batch: " + (binding.FailedFile.isEmpty() ? output_ : binding.FailedFile) +
        ": " + why);
    return 1;
}

int BatchJob::pages(const std::function<void(const QString &)> &out,
                    const std::function<void(const QString &)> &err)
{
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
