#include "batch_rename.h"

#include "rename_by_pages.h"

#include "backends/page_count/page_rules.h"
#include "core/app_context.h"
#include "core/command_line.h"
#include "core/master_layout.h"
#include "core/path_helpers.h"
#include "grid/flex_grid_model.h"

#include <QFile>
#include <QFileInfo>

namespace pw {

namespace {

// The pattern the options choose; `error` names a choice that cannot be made.
RenamePattern patternOf(CommandLine &line)
{
    RenamePattern pattern;
    pattern.paddingMask = line.value("--mask");
    const QString separator = line.value("--separator");
    const int chosen =
        int(line.has("--prefix")) + int(line.has("--suffix")) + int(line.has("--position"));
    if (line.error.isEmpty() && chosen != 1)
        line.error = "Choose one of --prefix, --suffix and --position.";
    if (line.error.isEmpty() &&
        (separator.size() > 1 ||
         (separator.size() == 1 && IsReservedFileNameChar(separator[0].unicode()))))
        line.error = "The separator is one character that a file name can hold.";
    if (line.has("--prefix")) {
        pattern.option = RenamePattern::PrefixAsPageCount;
        pattern.sepPrefix = separator;
    } else if (line.has("--suffix")) {
        pattern.option = RenamePattern::SuffixAsPageCount;
        pattern.sepSuffix = separator;
    } else {
        pattern.option = RenamePattern::AtCharPos;
        pattern.charPos = line.value("--position");
        pattern.sepAtCharPos = separator;
        pattern.prefix = line.has("--before");
        pattern.suffix = line.has("--after");
    }
    return pattern;
}

} // namespace

bool IsBatchRenameCommand(const QString &command)
{
    return command == "rename-by-pages";
}

QString BatchRenameUsage()
{
    return "  pagewright-batch rename-by-pages [--mask MASK] (--prefix | --suffix | --position N"
           " [--before] [--after])\n"
           "                  [--separator C] [--dry-run] FILE...\n"
           "      puts each file's page count into its name, padded with zeros to the length\n"
           "      of MASK (\"000\" gives 007): in front, at the end, or at character N with\n"
           "      the separator before and/or after it; --dry-run prints the new names\n";
}

int RunBatchRename(AppContext &context, const QStringList &args,
                   const std::function<void(const QString &)> &out,
                   const std::function<void(const QString &)> &err)
{
    CommandLine line =
        ParseCommandLine(args.mid(1), {"--mask", "--position", "--separator"},
                         {"--prefix", "--suffix", "--before", "--after", "--dry-run"});
    RenamePattern pattern = patternOf(line);
    if (line.error.isEmpty() && line.files.isEmpty())
        line.error = "No files given.";
    if (!line.error.isEmpty()) {
        err(line.error);
        return 2;
    }
    SelectedData rows;
    for (const QString &file : line.files) {
        const QFileInfo info(file);
        const PageKind kind = PageKindOf(info.fileName().toStdString());
        clsColSetOrderGrid row;
        row.setFilename(info.fileName());
        row.setFileLocation(info.absolutePath());
        row.setPageCount(kind == PageKind::None ? 0
                                                : context.pageCounters.CountPages(
                                                      kind, QFile::encodeName(file).toStdString()));
        rows.push_back(row);
    }
    const GridColumns columns = MakeColumnList();
    FlexGridModel grid;
    RenameList list(grid, columns);
    list.InitFiles();
    list.FillGrid(rows);
    list.Preview(pattern);
    const auto complain = [&err](const QString &file, const QString &why) {
        err("pagewright-batch: " + file + ": " + why);
    };
    int failed = 0;
    for (int row = 1; row < grid.rows(); ++row) {
        const QString &file = line.files[row - 1];
        const QString name = grid.text(row, list.newNameColumn());
        const bool counted = rows[size_t(row - 1)].PageCount() > 0;
        if (!counted || name.isEmpty()) {
            complain(file, !counted && PageKindOf(QFileInfo(file).fileName().toStdString()) ==
                                           PageKind::None
                               ? "not a PDF or TIFF file"
                           : !counted ? "its pages cannot be counted"
                                      : "the pattern gives it no new name");
            ++failed;
        } else if (line.has("--dry-run")) {
            out(file + "\t" + name);
        }
    }
    if (failed || line.has("--dry-run"))
        return failed ? 1 : 0;
    const std::optional<RenameOutcome> outcome = list.Apply();
    if (!outcome) {
        err("pagewright-batch: the files could not be renamed; the failure log says why");
        return 1;
    }
    const auto each = [](const QString &lines) { return lines.split("\r\n", Qt::SkipEmptyParts); };
    for (const QString &file : each(outcome->notFound))
        complain(file, "File not found");
    for (const QString &target : each(outcome->alreadyExists))
        complain(target, "exists already, so the file that would take its name keeps its own");
    for (const QString &pair : each(outcome->failed))
        complain(pair.section("  To  ", 0, 0), "cannot be renamed to " + pair.section("  To  ", 1) +
                                                   "; the failure log says why");
    return outcome->clean() ? 0 : 1;
}

} // namespace pw
