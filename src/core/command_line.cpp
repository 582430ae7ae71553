#include "command_line.h"

#include <QFileInfo>

#include <algorithm>

namespace pw {

int CommandLine::number(const QString &option, int fallback)
{
    if (!has(option))
        return fallback;
    bool ok = false;
    const int value = options[option].toInt(&ok);
    if (!ok && error.isEmpty())
        error = "Option " + option + " needs a whole number, not \"" + options[option] + "\".";
    return ok ? value : fallback;
}

QString WindowCommandLine(const QStringList &words)
{
    const bool files =
        !words.isEmpty() && std::all_of(words.begin(), words.end(), [](const QString &w) {
            return !w.contains('|') && QFileInfo(w).isFile();
        });
    if (!files)
        return words.join(' ');
    QStringList paths;
    for (const QString &word : words)
        paths << QFileInfo(word).absoluteFilePath();
    return paths.join('|');
}

CommandLine ParseCommandLine(const QStringList &args, const QStringList &valued,
                             const QStringList &flags)
{
    CommandLine line;
    for (qsizetype i = 0; i < args.size() && line.error.isEmpty(); ++i) {
        const QString &arg = args[i];
        if (valued.contains(arg)) {
            if (i + 1 >= args.size())
                line.error = "Option " + arg + " needs a value.";
            else
                line.options[arg] = args[++i];
        } else if (flags.contains(arg)) {
            line.options[arg] = QString();
        } else if (arg.startsWith("--")) {
            line.error = "Unknown option " + arg + ".";
        } else {
            line.files << arg;
        }
    }
    return line;
}

} // namespace pw
