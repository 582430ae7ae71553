#include "page_batch.h"

#include "ap_img_to_pdf.h"
#include "ap_pdf_to_image.h"
#include "tiff_pdf_commands.h"
#include "tiff_pdf_components.h"

#include "backends/pdf_pages/page_range.h"
#include "backends/pdf_pages/pdf_pages.h"
#include "core/command_line.h"
#include "core/path_helpers.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QObject>

#include <algorithm>
#include <cstdio>
#include <map>

namespace pw {

namespace {

using Sink = std::function<void(const QString &)>;

struct Context {
    UiServices &ui;
    CommandLine line;
    const Sink &out;
    const Sink &err;
};

constexpr int16_t PastTheEnd = 32767;

const QStringList InfoKeys = {"Title", "Subject", "Author", "Keywords"};

TiffPdfCommands commandsFor(UiServices &ui)
{
    return TiffPdfCommands(ui, QCoreApplication::applicationDirPath());
}

QString baseName(const QString &file)
{
    return QFileInfo(file).completeBaseName();
}

// Runs `one` for every file; each file it refuses is named on err, with the reason `why` gives
// when there is one.
int eachFile(Context &c, const std::function<bool(const QString &)> &one,
             const std::function<QString()> &why = {})
{
    int failed = 0;
    for (const QString &file : c.line.files) {
        if (one(file))
            continue;
        const QString reason = why ? why() : QString();
        c.err(reason.isEmpty() ? file : file + ": " + reason);
        ++failed;
    }
    return failed ? 1 : 0;
}

// "not written: PATH" for the first of `paths` that is not a file, "" when all are.
QString notWritten(const QStringList &paths)
{
    const auto missing = std::find_if(
        paths.begin(), paths.end(), [](const QString &path) { return !QFileInfo(path).isFile(); });
    return missing == paths.end() ? QString() : "not written: " + *missing;
}

// Why a PDF command left a file undone: the failure it logged, else what the batch found.
std::function<QString()> pdfReason(const TiffPdfCommands &commands, const QString &found)
{
    return [&commands, &found] {
        return commands.LastError().isEmpty() ? found : commands.LastError();
    };
}

int render(Context &c)
{
    static const std::map<QString, std::pair<int32_t, const char *>> formats = {
        {"png", {1, "png"}},
        {"jpeg", {2, "jpg"}},
        {"tiff", {3, "tif"}},
        {"tiff-pages", {7, "tif"}}};
    const auto format = formats.find(c.line.value("--format", "png"));
    if (format == formats.end()) {
        c.err("Unknown format " + c.line.value("--format") +
              "; use png, jpeg, tiff or tiff-pages.");
        return 2;
    }
    const QString resolution = c.line.value("--resolution", "150");
    const auto [number, extension] = format->second;
    TiffPdfCommands commands = commandsFor(c.ui);
    ApPdfToImage binding(c.ui);
    const QString output = c.line.value("-o");
    QString undone;
    const auto one = [&](const QString &file) {
        const int pages = commands.GetNoOfPagesFromPDF(file);
        undone = pages > 0 ? QString() : "no pages";
        if (pages <= 0 || !binding.ConvertPDFToImage(file, output, pages, resolution, number))
            return false;
        QStringList images;
        if (number == ApPdfToImage::StraightIntoFolder)
            images << ValidateDir(output) + baseName(file) + ".tif";
        else
            for (int page = 1; page <= pages; ++page)
                images << ValidateDir(FolderNamedAfter(file, output)) + baseName(file) + "-" +
                              QString::number(page) + "." + extension;
        undone = notWritten(images);
        return undone.isEmpty();
    };
    return eachFile(c, one, pdfReason(commands, undone));
}

int split(Context &c, const QString &range)
{
    TiffPdfCommands commands = commandsFor(c.ui);
    const QString output = c.line.value("-o");
    QString undone;
    const auto one = [&](const QString &file) {
        const int pages = commands.GetNoOfPagesFromPDF(file);
        undone = pages > 0 ? QString() : "no pages";
        const QString prefix = c.line.value("--prefix", baseName(file) + "-");
        if (pages <= 0 || !commands.SplitPDFFiles(file, range, output, prefix))
            return false;
        QStringList parts;
        for (const int page : pages::pagesOfRange(range.toStdString(), pages))
            parts << ValidateDir(FolderNamedAfter(file, output)) + prefix + QString::number(page) +
                         ".pdf";
        undone = parts.isEmpty() ? "no page in the range " + range : notWritten(parts);
        return undone.isEmpty();
    };
    return eachFile(c, one, pdfReason(commands, undone));
}

// "FILE.pdf:1-3" is the pages 1 to 3 of FILE.pdf, unless a file of that whole name exists.
clsColSetOrderGrid joinRow(const QString &arg)
{
    QString file = arg;
    QString range;
    const qsizetype colon = arg.lastIndexOf(':');
    if (colon > 0 && !QFileInfo::exists(arg)) {
        file = arg.left(colon);
        range = arg.mid(colon + 1);
    }
    const QFileInfo info(file);
    clsColSetOrderGrid row;
    row.setFilename(info.fileName());
    row.setFileLocation(info.absolutePath());
    row.setRange(range);
    return row;
}

// The page library as the merge calls it, noting each file it could not add: the merge itself
// goes on without it, and the command must not.
class NotingPages final : public PdfPagesLibrary {
public:
    int32_t apCreateMerge(const std::string &output) override
    {
        return ours().apCreateMerge(output);
    }
    int32_t apOpenSplit(const std::string &source) override { return ours().apOpenSplit(source); }
    int32_t apSetFunction(int32_t handle, int32_t code, int32_t number1, int32_t number2,
                          const std::string &text1, const std::string &text2) override
    {
        const int32_t result = ours().apSetFunction(handle, code, number1, number2, text1, text2);
        if (result != 0)
            refused << QFile::decodeName(text1.c_str()) + ": " + lastError();
        return result;
    }
    int32_t apClose(int32_t handle) override
    {
        const int32_t result = ours().apClose(handle);
        if (result != 0)
            unwritten = lastError();
        return result;
    }

    QStringList refused;
    QString unwritten;

private:
    static QString lastError()
    {
        return QString::fromUtf8(
            moduleEntry<decltype(&::apLastError)>(pages::kModule, "apLastError")());
    }
};

int join(Context &c)
{
    NotingPages pages;
    TiffPdfCommands commands(c.ui, QCoreApplication::applicationDirPath(), pages);
    for (const QString &arg : c.line.files)
        commands.colSelectedData.push_back(joinRow(arg));
    // The merge counts its files on the bar of the window that started it; a terminal has none,
    // so it gets a stand-in that nobody sees.
    QObject window;
    (new QObject(&window))->setObjectName("ProgressBar1");
    gfrmSetOrder = &window;
    // The merge goes into a file that takes the output's name only when every input was whole.
    const QFileInfo output(c.line.value("-o"));
    commands.OutputFile = output.absolutePath() + "/." + output.fileName() + ".part";
    const bool merged = commands.CombineOrderPdf() && QFileInfo(commands.OutputFile).isFile();
    gfrmSetOrder = nullptr;
    for (const QString &file : pages.refused)
        c.err(file);
    if (merged && pages.refused.isEmpty() &&
        std::rename(QFile::encodeName(commands.OutputFile).constData(),
                    QFile::encodeName(output.absoluteFilePath()).constData()) == 0)
        return 0;
    QFile::remove(commands.OutputFile);
    if (pages.refused.isEmpty())
        c.err(c.line.value("-o") + ": " +
              (pages.unwritten.isEmpty() ? "no page of the inputs is in their ranges"
                                         : pages.unwritten));
    return 1;
}

int info(Context &c)
{
    TiffPdfCommands commands = commandsFor(c.ui);
    QStringList changes;
    for (const QString &key : InfoKeys) {
        if (c.line.has("--" + key.toLower()))
            changes << key;
    }
    return eachFile(
        c,
        [&](const QString &file) {
            for (const QString &key : changes) {
                if (!commands.UpdatePdfMetaData(file, key, c.line.value("--" + key.toLower()), {}))
                    return false;
            }
            if (!changes.isEmpty())
                return true;
            QStringList lines{file};
            for (const QString &key : InfoKeys) {
                const QString value = commands.GetPdfMetaData(file, key);
                if (value == "False")
                    return false;
                lines << "  " + key + ": " + value;
            }
            for (const QString &line : lines)
                c.out(line);
            return true;
        },
        [&] { return commands.LastError(); });
}

int tiffJoin(Context &c)
{
    TiffMergeSplit component;
    if (component.MergeTIFFs(c.line.files, c.line.value("-o")))
        return 0;
    c.err(component.lastError());
    return 1;
}

int tiffCommand(Context &c, const QString &command)
{
    TiffPdfCommands commands = commandsFor(c.ui);
    const QString output = c.line.value("-o");
    const auto page = [&](const QString &option, int fallback) {
        return static_cast<int16_t>(std::clamp(c.line.number(option, fallback), 0, 32767));
    };
    const auto reason = [&] { return commands.LastError(); };
    if (command == "tiff-split") {
        return eachFile(
            c,
            [&](const QString &file) {
                return commands.SplitTiffFiles(file, page("--page", 1), output,
                                               c.line.value("--prefix", baseName(file) + "-"));
            },
            reason);
    }
    if (command == "tiff-extract") {
        const bool ranged = c.line.has("--first") || c.line.has("--last");
        const int16_t first = page("--first", 1);
        return eachFile(
            c,
            [&](const QString &file) {
                if (!ranged)
                    return commands.ExtractAllTIFFpages(file, output);
                // Pages past the end are skipped, as in a PDF page range.
                const int pages = TiffMergeSplit().PageCount(file);
                const int16_t last = static_cast<int16_t>(
                    std::min(pages, int(page("--last", c.line.has("--first") ? first : pages))));
                return commands.ExtractTIFFpagesbyRange(file, first, last, output);
            },
            reason);
    }
    if (command == "tiff-delete") {
        return eachFile(
            c,
            [&](const QString &file) { return commands.DeleteTiffPage(file, page("--page", 0)); },
            reason);
    }
    // tiff-append: the first file takes the others, in the order given.
    const QString target = c.line.files.takeFirst();
    int16_t at = page("--at", PastTheEnd);
    return eachFile(
        c,
        [&](const QString &file) {
            if (!commands.AppendFileTiffFile(target, file, at))
                return false;
            if (at != PastTheEnd)
                at = static_cast<int16_t>(
                    std::min<int>(PastTheEnd, at + TiffMergeSplit().PageCount(file)));
            return true;
        },
        reason);
}

struct Command {
    QStringList valued;
    QStringList required;
    int minimumFiles = 1;
};

const std::map<QString, Command> &commandTable()
{
    static const std::map<QString, Command> table = {
        {"render", {{"-o", "--resolution", "--format"}, {"-o"}}},
        {"split", {{"-o", "--prefix"}, {"-o"}}},
        {"extract", {{"-o", "--prefix", "--range"}, {"-o", "--range"}}},
        {"join", {{"-o"}, {"-o"}}},
        {"info", {{"--title", "--subject", "--author", "--keywords"}, {}}},
        {"tiff-join", {{"-o"}, {"-o"}}},
        {"tiff-split", {{"-o", "--page", "--prefix"}, {"-o", "--page"}}},
        {"tiff-extract", {{"-o", "--first", "--last"}, {"-o"}}},
        {"tiff-delete", {{"--page"}, {"--page"}}},
        {"tiff-append", {{"--at"}, {}, 2}},
    };
    return table;
}

} // namespace

bool IsBatchPageCommand(const QString &command)
{
    return commandTable().count(command) > 0;
}

QString BatchPageCommandsUsage()
{
    return "  pagewright-batch render [--resolution DPI] [--format png|jpeg|tiff|tiff-pages]"
           " -o DIR FILE.pdf...\n"
           "      each page as an image in DIR/NAME/ (150 dpi, PNG); tiff-pages writes one\n"
           "      multi-page TIFF per PDF straight into DIR\n"
           "  pagewright-batch split [--prefix TEXT] -o DIR FILE.pdf...\n"
           "      one PDF per page, DIR/NAME/NAME-1.pdf and so on (TEXT replaces \"NAME-\")\n"
           "  pagewright-batch extract --range RANGE [--prefix TEXT] -o DIR FILE.pdf...\n"
           "      the pages of RANGE (\"1-3,7\", \"10-\"), one PDF each, as split does\n"
           "  pagewright-batch join -o OUT.pdf FILE.pdf[:RANGE]...\n"
           "      the files, or their RANGEs, into one PDF in the order given\n"
           "  pagewright-batch info [--title T] [--subject S] [--author A] [--keywords K]"
           " FILE.pdf...\n"
           "      prints the document information, or sets the entries given\n"
           "  pagewright-batch tiff-join -o OUT.tif FILE.tif...\n"
           "      the pages of the files into one TIFF, each page copied as stored\n"
           "  pagewright-batch tiff-split --page N [--prefix TEXT] -o DIR FILE.tif...\n"
           "      pages 1 to N into DIR/NAME/NAME-1.tif, the rest into DIR/NAME/NAME-2.tif\n"
           "  pagewright-batch tiff-extract [--first N] [--last M] -o DIR FILE.tif...\n"
           "      each page (of N to M) into its own TIFF in DIR/NAME/\n"
           "  pagewright-batch tiff-delete --page N FILE.tif...\n"
           "      removes page N\n"
           "  pagewright-batch tiff-append [--at N] TARGET.tif FILE.tif...\n"
           "      puts the pages of the files into TARGET.tif after its page N (default: at"
           " its end)\n";
}

int RunBatchPageCommand(UiServices &ui, const QStringList &args, const Sink &out, const Sink &err)
{
    const QString name = args.value(0);
    const Command &command = commandTable().at(name);
    Context c{ui, ParseCommandLine(args.mid(1), command.valued, {}), out, err};
    for (const QString &option : command.required) {
        if (c.line.error.isEmpty() && !c.line.has(option))
            c.line.error = "The " + name + " command needs " + option + ".";
    }
    for (const char *numeric : {"--page", "--first", "--last", "--at", "--resolution"})
        c.line.number(numeric, 0);
    if (c.line.error.isEmpty() && c.line.files.size() < command.minimumFiles)
        c.line.error = "The " + name + " command needs " + QString::number(command.minimumFiles) +
                       (command.minimumFiles > 1 ? " files." : " file.");
    if (c.line.error.isEmpty() && c.line.has("-o") && name != "join" && name != "tiff-join" &&
        !QDir().mkpath(c.line.value("-o")))
        c.line.error = "Cannot create the output folder " + c.line.value("-o");
    if (!c.line.error.isEmpty()) {
        err(c.line.error);
        return 2;
    }
    if (name == "render")
        return render(c);
    if (name == "split" || name == "extract")
        return split(c, c.line.value("--range"));
    if (name == "join")
        return join(c);
    if (name == "info")
        return info(c);
    if (name == "tiff-join")
        return tiffJoin(c);
    return tiffCommand(c, name);
}

} // namespace pw
