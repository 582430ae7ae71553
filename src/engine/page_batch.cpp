#include "page_batch.h"

#include "ap_pdf_to_image.h"
#include "text_layers.h"
#include "tiff_pdf_commands.h"
#include "tiff_pdf_components.h"

#include "backends/common/output_file.h"
#include "backends/pdf_pages/page_range.h"
#include "backends/pdf_pages/pdf_pages.h"
#include "backends/pdf_render/pdf_render.h"
#include "core/command_line.h"
#include "core/path_helpers.h"
#include "core/progress.h"
#include "core/runtime.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>

namespace pw {

namespace {

struct Context {
    UiServices &ui;
    CommandLine line;
    const Sink &out;
    const Sink &err;
    const BatchOutput &io; // each file done, and how far the command is
};

constexpr int16_t PastTheEnd = 32767;

const QStringList InfoKeys = {"Title", "Subject", "Author", "Keywords"};

QString baseName(const QString &file)
{
    return QFileInfo(file).completeBaseName();
}

// Runs `one` for every file; each file it refuses is named on err, with the reason `why` gives
// when there is one.
int eachFile(Context &c, const std::function<bool(const QString &)> &one,
             const std::function<QString()> &why = {})
{
    int failed = 0, done = 0;
    c.io.progress.setMaximum(int(c.line.files.size()));
    for (const QString &file : c.line.files) {
        c.io.progress.setStatusText(file);
        const bool ok = one(file);
        c.io.progress.setValue(++done);
        if (ok) {
            c.io.verbose(file);
            continue;
        }
        const QString reason = why ? why() : QString();
        c.err(file + ": " + (reason.isEmpty() ? "not done" : reason));
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

// Encrypted PDFs open with --password in every command that reads them.
void usePassword(const Context &c)
{
    moduleEntry<decltype(&::pw_pages_set_password)>(pages::kModule, "pw_pages_set_password")(
        c.line.value("--password").toUtf8().constData());
}

// Pages of `file` in full width (a PDF may have more than 32,767), or 0 with `why` set. `sound`
// tells whether the page tree's root claims as many pages as it has.
int pageCount(const QString &file, QString &why, bool *sound = nullptr)
{
    int32_t declared = 0;
    pw_module_error error{};
    const int32_t pages =
        moduleEntry<decltype(&::pw_pages_count_checked)>(pages::kModule, "pw_pages_count_checked")(
            QFile::encodeName(file).constData(), &declared, &error);
    why = pages > 0 ? QString() : pages == 0 ? "no pages" : QString::fromUtf8(error.text);
    if (sound)
        *sound = declared == pages;
    return std::max(pages, 0);
}

// A copy of `file` in `folder`, under its name, with the page tree rebuilt from its real
// pages: poppler believes a tree's count, and pdftoppm renders wrong pages or none of a file
// whose count is wrong. "" with `why` set when it cannot be made.
QString soundCopy(const QString &file, const QTemporaryDir &folder, QString &why)
{
    const QString copy = folder.filePath(QFileInfo(file).fileName());
    PdfPagesModule library;
    const int32_t handle = library.apCreateMerge(QFile::encodeName(copy).toStdString());
    // A file without pages adds nothing, and nothing is written.
    const bool added =
        library.apSetFunction(handle, PW_PAGES_ADD, 0, 0, QFile::encodeName(file).toStdString(),
                              "") != PW_MODULE_FAILED;
    why = added ? QString() : QString::fromStdString(library.failure());
    if (library.apClose(handle) != 0 && added)
        why = QString::fromStdString(library.failure());
    return why.isEmpty() ? copy : QString();
}

// The pages of the command's --range in a document of `count` pages, or none with `why` set.
std::vector<int> pagesAsked(const Context &c, int count, QString &why)
{
    const QString range = c.line.value("--range");
    const std::vector<int> pages = pages::pagesOfRange(range.toStdString(), count);
    if (pages.empty())
        why = "no page in the range " + range;
    return pages;
}

// Why the pages of `file` cannot have a folder named after it, "" when they can: the folder
// takes the name before the last dot, and a name without one, or with nothing before it but
// dots, would name none or reach out of the folder the user chose.
QString folderNameProblem(const QString &file)
{
    const QString name = GetFileName(file.trimmed());
    const qsizetype dot = name.lastIndexOf('.');
    if (dot < 0)
        return "no extension (such as .pdf) to cut from the name of its output folder";
    const QString stem = name.left(dot);
    if (stem.isEmpty() || stem == "." || stem == "..")
        return "the name before its extension cannot name an output folder";
    return {};
}

int renderPages(Context &c)
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
    if (const int dpi = resolution.toInt(); dpi < 1 || dpi > 2400) {
        c.err("--resolution takes 1 to 2400 dots per inch.");
        return 2;
    }
    const auto [number, extension] = format->second;
    PdfRenderModule renderer;
    ApPdfToImage binding(c.ui, renderer);
    binding.setPassword(c.line.value("--password"));
    const QString output = c.line.value("-o");
    // The render module's reason for its last failure.
    const auto renderFailure = [&renderer] { return QString::fromStdString(renderer.failure()); };
    QString undone;
    const auto one = [&](const QString &file) {
        if (number != ApPdfToImage::StraightIntoFolder &&
            !(undone = folderNameProblem(file)).isEmpty())
            return false;
        bool sound = true;
        const int count = pageCount(file, undone, &sound);
        const std::vector<int> pages =
            count > 0 ? pagesAsked(c, count, undone) : std::vector<int>{};
        if (pages.empty())
            return false;
        // Inside the output folder: nothing is written outside the folder the user chose.
        std::optional<QTemporaryDir> repaired;
        if (!sound)
            repaired.emplace(ValidateDir(output) + ".pw-repaired-XXXXXX");
        const QString source = sound ? file : soundCopy(file, *repaired, undone);
        if (source.isEmpty())
            return false;
        // A terminal has no bar to fill: the render is quiet until it fails.
        NoProgress quiet;
        if (!binding.ConvertPages(source, output, pages, resolution, number, quiet)) {
            undone = renderFailure();
            return false;
        }
        QStringList images;
        if (number == ApPdfToImage::StraightIntoFolder)
            images << ValidateDir(output) + baseName(file) + ".tif";
        else
            for (const int page : pages)
                images << ValidateDir(FolderNamedAfter(file, output)) + baseName(file) + "-" +
                              QString::fromStdString(pages::pageLabel(page, count)) + "." +
                              extension;
        undone = notWritten(images);
        if (!undone.isEmpty() && !renderFailure().isEmpty())
            undone = renderFailure();
        return undone.isEmpty();
    };
    return eachFile(c, one, [&] { return undone; });
}

// The page library as the merge and the split call it, noting each call it refused: the merge
// itself goes on without the file, the split reports success all the same, and the command must
// do neither.
class NotingPages final : public PdfPagesLibrary {
public:
    int32_t apCreateMerge(const std::string &output) override
    {
        return module_.apCreateMerge(output);
    }
    int32_t apOpenSplit(const std::string &source) override
    {
        const int32_t handle = module_.apOpenSplit(source);
        if (handle <= 0)
            why = lastError();
        splitPages = handle > 0 ? module_.splitPages(handle) : 0;
        return handle;
    }
    int32_t apSetFunction(int32_t handle, int32_t code, int32_t number1, int32_t number2,
                          const std::string &text1, const std::string &text2) override
    {
        // A range that selects no page adds nothing and is no failure of the merge; a user
        // who named that range made a mistake all the same.
        const int32_t result = module_.apSetFunction(handle, code, number1, number2, text1, text2);
        if (result != 0) {
            why = lastError();
            refused << QFile::decodeName(text1.c_str()) + ": " + why;
        }
        return result;
    }
    int32_t apClose(int32_t handle) override
    {
        // What was refused is not left out quietly: nothing is written.
        if (!refused.isEmpty())
            return module_.abandon(handle);
        const int32_t result = module_.apClose(handle);
        if (result != 0)
            unwritten = lastError();
        return result;
    }

    int32_t splitPages = 0; // pages of the last PDF opened for a split
    QStringList refused;    // "FILE: REASON" of each refused call
    QString why;            // the reason of the last
    QString unwritten;

private:
    QString lastError() const { return QString::fromStdString(module_.failure()); }
    PdfPagesModule module_;
};

int split(Context &c, const QString &range)
{
    NotingPages library;
    TiffPdfCommands commands(c.ui, library);
    const QString output = c.line.value("-o");
    QString undone;
    const auto one = [&](const QString &file) {
        library.why.clear();
        if (!(undone = folderNameProblem(file)).isEmpty())
            return false;
        // The split counts the pages as it opens the file: a count of our own beforehand would
        // read the page tree of a long document twice.
        const QString prefix = c.line.value("--prefix", baseName(file) + "-");
        if (!commands.SplitPDFFiles(file, range, output, prefix) || !library.why.isEmpty()) {
            undone = library.why.isEmpty() ? commands.LastError() : library.why;
            return false;
        }
        const int count = library.splitPages;
        undone = "no pages";
        const std::vector<int> pages =
            count > 0 ? pagesAsked(c, count, undone) : std::vector<int>{};
        if (pages.empty())
            return false;
        QStringList parts;
        for (const int page : pages)
            parts << ValidateDir(FolderNamedAfter(file, output)) + prefix +
                         QString::fromStdString(pages::pageLabel(page, count)) + ".pdf";
        undone = notWritten(parts);
        return undone.isEmpty();
    };
    return eachFile(c, one, [&] { return undone; });
}

// "FILE.pdf:1-3" is the pages 1 to 3 of FILE.pdf, unless a file of that whole name exists;
// the range may hold a colon of its own ("FILE.pdf:1-9:odd"), and so may the file's name.
clsColSetOrderGrid joinRow(const QString &arg)
{
    QString file = arg;
    QString range;
    for (qsizetype colon = arg.indexOf(':', 1); colon > 0 && !QFileInfo::exists(arg);
         colon = arg.indexOf(':', colon + 1)) {
        if (QFileInfo::exists(arg.left(colon)) || arg.indexOf(':', colon + 1) < 0) {
            file = arg.left(colon);
            range = arg.mid(colon + 1);
            break;
        }
    }
    const QFileInfo info(file);
    clsColSetOrderGrid row;
    row.setFilename(info.fileName());
    row.setFileLocation(info.absolutePath());
    row.setRange(range);
    return row;
}

// Why `output` (a file, or "-" for standard output) cannot take a one-file command's result,
// "" when it can.
QString outputProblem(const QString &output)
{
    const QFileInfo target(output);
    if (output != "-" && !QFileInfo(target.absolutePath()).isDir())
        return "the folder " + target.absolutePath() + " does not exist";
    return QString::fromStdString(OutputRefusal(QFile::encodeName(output).toStdString()));
}

int join(Context &c)
{
    const QString output = c.line.value("-o");
    if (const QString why = outputProblem(output); !why.isEmpty()) {
        c.err(output + ": " + why);
        return 1;
    }
    NotingPages pages;
    TiffPdfCommands commands(c.ui, pages);
    for (const QString &arg : c.line.files)
        commands.colSelectedData.push_back(joinRow(arg));
    // A merge that lost an input is dropped unwritten (see NotingPages::apClose).
    commands.OutputFile = output == "-" ? output : QFileInfo(output).absoluteFilePath();
    c.io.progress.setMaximum(int(commands.colSelectedData.size()));
    const bool merged = commands.CombineOrderPdf(c.io.progress);
    for (const QString &file : pages.refused)
        c.err(file);
    if (merged && pages.refused.isEmpty() && pages.unwritten.isEmpty()) {
        c.io.verbose(output);
        return 0;
    }
    if (pages.refused.isEmpty())
        c.err(output + ": " +
              (pages.unwritten.isEmpty() ? "no page of the inputs is in their ranges"
                                         : pages.unwritten));
    return 1;
}

// The page count and the standard entries of `file`, as "Key: value" lines.
QStringList describe(const QString &file)
{
    const auto entry =
        moduleEntry<decltype(&::pw_pages_describe)>(pages::kModule, "pw_pages_describe");
    const QByteArray path = QFile::encodeName(file);
    pw_module_error error{};
    const int32_t length = entry(path.constData(), nullptr, 0, &error);
    if (length < 0)
        throw RuntimeError(321, QString::fromUtf8(error.text));
    QByteArray text(length + 1, '\0');
    entry(path.constData(), text.data(), size_t(text.size()), &error);
    text.chop(1);
    QStringList lines;
    for (const QString &line : QString::fromUtf8(text).split('\n', Qt::SkipEmptyParts))
        lines << "  " + line.section('\t', 0, 0) + ": " + line.section('\t', 1);
    return lines;
}

int info(Context &c)
{
    TiffPdfCommands commands(c.ui);
    QStringList changes;
    for (const QString &key : InfoKeys) {
        if (c.line.has("--" + key.toLower()))
            changes << key;
    }
    QString why;
    return eachFile(
        c,
        [&](const QString &file) {
            try {
                for (const QString &key : changes) {
                    const QString value = c.line.value("--" + key.toLower());
                    // The command set refuses an empty value; here it removes the entry.
                    if (value.isEmpty())
                        PdfStamper().UpdatePDFInfo(file, key, value, {});
                    else if (!commands.UpdatePdfMetaData(file, key, value, {}))
                        throw RuntimeError(75, commands.LastError());
                }
                if (changes.isEmpty()) {
                    const QStringList lines = describe(file);
                    c.out(file);
                    for (const QString &line : lines)
                        c.out(line);
                }
            } catch (const RuntimeError &e) {
                why = e.description();
                return false;
            }
            return true;
        },
        [&] { return why; });
}

int rotate(Context &c)
{
    const int angle = c.line.number("--angle", 0);
    if (angle != 90 && angle != 180 && angle != 270) {
        c.err("The rotate command turns by --angle 90, 180 or 270.");
        return 2;
    }
    const auto turn = moduleEntry<decltype(&::pw_pages_rotate)>(pages::kModule, "pw_pages_rotate");
    const std::string range = c.line.value("--range").toStdString();
    pw_module_error error{};
    return eachFile(
        c,
        [&](const QString &file) {
            return turn(QFile::encodeName(file).constData(), angle, range.c_str(), &error) ==
                   PW_MODULE_OK;
        },
        [&] { return QString::fromUtf8(error.text); });
}

int addTextLayers(Context &c)
{
    const QString language = c.line.value("--language", "eng");
    if (const QString why = CheckOcrLanguage(language); !why.isEmpty()) {
        c.err("--language " + language + ": " + why);
        return 2;
    }
    int failed = 0;
    AddTextLayers(c.line.files, language, c.line.value("--password"), c.io.progress,
                  [&](const TextLayerOutcome &file) {
                      if (!file.failure.isEmpty()) {
                          c.err(file.file + ": " + file.failure);
                          ++failed;
                      } else if (!file.sameAs.isEmpty()) {
                          c.io.verbose(file.file + ": the same file as " + file.sameAs);
                      } else if (file.pagesRead == 0 && file.pagesShown > 0) {
                          c.out(file.file + ": every page shows text already; left as it was");
                      } else {
                          c.io.verbose(file.file + ": " + QString::number(file.pagesRead) +
                                       " pages made searchable");
                      }
                  });
    return failed ? 1 : 0;
}

int tiffJoin(Context &c)
{
    const QString output = c.line.value("-o");
    if (const QString why = outputProblem(output); !why.isEmpty()) {
        c.err(output + ": " + why);
        return 1;
    }
    TiffMergeSplit component;
    if (component.MergeTIFFs(c.line.files, output))
        return 0;
    c.err(component.lastError());
    return 1;
}

// tiff-append: the first file takes the others, in the order given, all of them or none. Every
// input and the position are checked before anything is written; several inputs are joined
// first, so that the target is replaced once.
int tiffAppend(Context &c, TiffPdfCommands &commands, int16_t at)
{
    const QString target = c.line.files.takeFirst();
    TiffMergeSplit tiff;
    const auto refuse = [&](const QString &file, const QString &why) {
        c.err(file + ": " + why);
        return 1;
    };
    const int pages = tiff.PageCount(target);
    if (pages <= 0)
        return refuse(target, tiff.lastError().isEmpty() ? "not a TIFF file" : tiff.lastError());
    if (at != PastTheEnd && at > pages)
        return refuse(target, QString("has %1 pages; --at takes 0 to %1").arg(pages));
    for (const QString &file : c.line.files)
        if (tiff.PageCount(file) <= 0)
            return refuse(file, tiff.lastError().isEmpty() ? "not a TIFF file" : tiff.lastError());
    QString joined = c.line.files.first();
    QTemporaryDir scratch;
    if (c.line.files.size() > 1) {
        joined = scratch.filePath("joined.tif");
        if (!scratch.isValid() || !tiff.MergeTIFFs(c.line.files, joined))
            return refuse(target, tiff.lastError());
    }
    if (commands.AppendFileTiffFile(target, joined, at))
        return 0;
    return refuse(target, commands.LastError());
}

// The TIFF an image becomes in `folder`: its name up to the last dot, then ".tif".
QString tiffFor(const QString &image, const QString &folder)
{
    return ValidateDir(folder) + QFileInfo(image).completeBaseName() + ".tif";
}

int imageToTiff(Context &c)
{
    static const std::map<QString, int32_t> compressions = {
        {"auto", 0}, {"none", 1}, {"g4", 4}, {"lzw", 5}, {"jpeg", 7}, {"deflate", 8}};
    const auto compression = compressions.find(c.line.value("--compression", "auto"));
    if (compression == compressions.end()) {
        c.err("Unknown compression " + c.line.value("--compression") +
              "; use auto, none, g4, lzw, jpeg or deflate.");
        return 2;
    }
    TiffPdfCommands commands(c.ui);
    QString why;
    const auto one = [&](const QString &file) {
        const QString target = tiffFor(file, c.line.value("-o"));
        // The image is read whole before its TIFF replaces anything, but a TIFF converted onto
        // itself would lose what it was.
        if (QFileInfo(target) == QFileInfo(file)) {
            why = "it would replace itself; choose another output folder";
            return false;
        }
        const bool done = commands.ConverImageToTiff(file, target, compression->second);
        why = commands.LastError();
        return done;
    };
    return eachFile(c, one, [&] { return why; });
}

int tiffCommand(Context &c, const QString &command)
{
    TiffPdfCommands commands(c.ui);
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
                // Pages past the end are skipped, as in a PDF page range; --first alone runs
                // to the last page.
                const int pages = TiffMergeSplit().PageCount(file);
                const int16_t last =
                    static_cast<int16_t>(std::min(pages, int(page("--last", pages))));
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
    return tiffAppend(c, commands, page("--at", PastTheEnd));
}

struct Command {
    QStringList valued;
    QStringList required;
    int minimumFiles = 1;
};

const std::map<QString, Command> &commandTable()
{
    static const std::map<QString, Command> table = {
        {"render", {{"-o", "--resolution", "--format", "--range", "--password"}, {"-o"}}},
        {"split", {{"-o", "--prefix", "--password"}, {"-o"}}},
        {"extract", {{"-o", "--prefix", "--range", "--password"}, {"-o", "--range"}}},
        {"join", {{"-o", "--password"}, {"-o"}}},
        {"info", {{"--title", "--subject", "--author", "--keywords", "--password"}, {}}},
        {"rotate", {{"--angle", "--range", "--password"}, {"--angle"}}},
        {"ocr", {{"--language", "--password"}, {}}},
        {"tiff-join", {{"-o"}, {"-o"}}},
        {"tiff-split", {{"-o", "--page", "--prefix"}, {"-o", "--page"}}},
        {"tiff-extract", {{"-o", "--first", "--last"}, {"-o"}}},
        {"tiff-delete", {{"--page"}, {"--page"}}},
        {"tiff-append", {{"--at"}, {}, 2}},
        {"image-to-tiff", {{"-o", "--compression"}, {"-o"}}},
    };
    return table;
}

// Why the inputs cannot share one output folder, "" when they can: the commands that put each
// file's pages under its name would mix the pages of two files of one name (a/report.pdf and
// b/report.pdf), and the second would overwrite the first's.
QString sharedOutputFolder(const Context &c, const QString &command)
{
    static const QStringList perInput = {"render",     "split",        "extract",
                                         "tiff-split", "tiff-extract", "image-to-tiff"};
    if (!perInput.contains(command))
        return {};
    const bool oneFile = command == "image-to-tiff";
    std::map<QString, QString> taken; // output -> the input whose pages go there
    for (const QString &file : c.line.files) {
        // A name that cannot name a folder is refused on its own, later.
        if (!oneFile && !folderNameProblem(file).isEmpty())
            continue;
        const QString folder = oneFile ? tiffFor(file, c.line.value("-o"))
                                       : FolderNamedAfter(file, c.line.value("-o"));
        const QString real = QFileInfo(file).absoluteFilePath();
        const auto [first, added] = taken.emplace(folder, real);
        if (!added && first->second != real)
            return file + ": its pages would go to " + folder + " with those of " + first->second +
                   "; give them separate runs or output folders";
    }
    return {};
}

} // namespace

bool IsBatchPageCommand(const QString &command)
{
    return commandTable().count(command) > 0;
}

QString BatchPageCommandsUsage()
{
    return "  pagewright-batch render [--resolution DPI] [--format png|jpeg|tiff|tiff-pages]"
           " [--range RANGE] -o DIR FILE.pdf...\n"
           "      each page (of RANGE) as an image in DIR/NAME/ (150 dpi, PNG); tiff-pages\n"
           "      writes one multi-page TIFF per PDF straight into DIR\n"
           "  pagewright-batch split [--prefix TEXT] -o DIR FILE.pdf...\n"
           "      one PDF per page, DIR/NAME/NAME-1.pdf and so on (TEXT replaces \"NAME-\";\n"
           "      page numbers padded to the width of the page count: NAME-01.pdf of 12)\n"
           "  pagewright-batch extract --range RANGE [--prefix TEXT] -o DIR FILE.pdf...\n"
           "      the pages of RANGE (\"1-3,7\", \"10-\", \"z-1\", \"r3-z\", \"1-9:odd\"), one\n"
           "      PDF each, as split does\n"
           "  pagewright-batch join -o OUT.pdf FILE.pdf[:RANGE]...\n"
           "      the files, or their RANGEs, into one PDF in the order given; each file's\n"
           "      bookmarks go under a bookmark named after it\n"
           "  pagewright-batch info [--title T] [--subject S] [--author A] [--keywords K]"
           " FILE.pdf...\n"
           "      prints the page count and document information, or sets the entries given\n"
           "      (an empty value removes the entry)\n"
           "  pagewright-batch rotate --angle 90|180|270 [--range RANGE] FILE.pdf...\n"
           "      turns the pages (of RANGE) clockwise, rewriting each file in place\n"
           "  pagewright-batch ocr [--language LANG] FILE.pdf...\n"
           "      lays an invisible text layer, read by text recognition in LANG (default eng;\n"
           "      deu+eng reads both), over the pages that show no text, rewriting each file\n"
           "      in place; the pages' images stay as they are\n"
           "  render, split, extract, join, info, rotate and ocr take --password P for"
           " encrypted PDFs\n"
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
           " its end)\n"
           "  pagewright-batch image-to-tiff [--compression auto|none|g4|lzw|jpeg|deflate]"
           " -o DIR IMAGE...\n"
           "      each image as a one-page TIFF, DIR/NAME.tif (auto: G4 for black and white,\n"
           "      else LZW; black and white stays 1 bit, grey 8 bits, the rest becomes RGB)\n";
}

int RunBatchPageCommand(UiServices &ui, const QStringList &args, const BatchOutput &io)
{
    const QString name = args.value(0);
    const Command &command = commandTable().at(name);
    // Every complaint starts with the program's name, as its neighbours' do.
    const Sink complain = [&io](const QString &line) { io.err("pagewright-batch: " + line); };
    Context c{ui, ParseCommandLine(args.mid(1), command.valued, {}), io.out, complain, io};
    for (const QString &option : command.required) {
        if (c.line.error.isEmpty() && !c.line.has(option))
            c.line.error = "The " + name + " command needs " + option + ".";
    }
    for (const char *numeric : {"--page", "--first", "--last", "--at", "--resolution", "--angle"})
        c.line.number(numeric, 0);
    // Pages count from 1: a 0 or a negative number would be clamped into a page nobody asked
    // for.
    for (const char *page : {"--page", "--first", "--last"})
        if (c.line.error.isEmpty() && c.line.has(page) && c.line.number(page, 1) < 1)
            c.line.error = QString("%1 takes a page number from 1.").arg(page);
    // The TIFF page commands number pages as the TIFF page-number tag does, in 16 bits.
    for (const char *page : {"--page", "--first", "--last", "--at"})
        if (c.line.error.isEmpty() && name.startsWith("tiff-") && c.line.number(page, 0) > 32767)
            c.line.error = QString("%1 takes a TIFF page number up to 32767.").arg(page);
    if (c.line.error.isEmpty() && c.line.files.size() < command.minimumFiles)
        c.line.error = "The " + name + " command needs " + QString::number(command.minimumFiles) +
                       (command.minimumFiles > 1 ? " files." : " file.");
    if (c.line.error.isEmpty())
        c.line.error = sharedOutputFolder(c, name);
    if (c.line.error.isEmpty() && c.line.has("-o") && name != "join" && name != "tiff-join" &&
        !QDir().mkpath(c.line.value("-o")))
        c.line.error = "Cannot create the output folder " + c.line.value("-o");
    if (!c.line.error.isEmpty()) {
        c.err(c.line.error);
        return 2;
    }
    if (name == "tiff-join")
        return tiffJoin(c);
    if (name == "image-to-tiff")
        return imageToTiff(c);
    if (name.startsWith("tiff-"))
        return tiffCommand(c, name);
    usePassword(c);
    if (name == "render")
        return renderPages(c);
    if (name == "split" || name == "extract")
        return split(c, c.line.value("--range"));
    if (name == "join")
        return join(c);
    if (name == "info")
        return info(c);
    if (name == "ocr")
        return addTextLayers(c);
    return rotate(c);
}

} // namespace pw
