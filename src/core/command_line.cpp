#include "command_line.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QRegularExpression>

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

QString CommandUsage(const QString &usage, const QString &command)
{
    const QString entry = "  pagewright-batch ";
    const QRegularExpression named("(^|[ ,])" + QRegularExpression::escape(command) + "[ ,:]");
    QStringList own, notes;
    bool inEntry = false;
    for (const QString &line : usage.split('\n', Qt::SkipEmptyParts)) {
        if (line.startsWith(entry))
            inEntry = line.mid(entry.size()).section(' ', 0, 0) == command;
        else if (!line.startsWith("      ") && !line.startsWith(QString(18, ' ')))
            inEntry = false;
        if (inEntry)
            own << line;
        else if (!line.startsWith(entry) && !line.startsWith("      ") &&
                 (named.match(line).hasMatch() || line.startsWith("Exit status") ||
                  (line.startsWith("NAME ") && own.join(' ').contains(" NAME]"))))
            notes << line.trimmed();
    }
    return own.isEmpty() ? QString() : "Usage:\n" + (own + notes).join('\n') + "\n";
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
    // Qt's parser gives the GNU forms: "--opt=value", "-oVALUE", "--" before files whose names
    // start with a dash. Options keep their spelling ("-o", "--range") as keys.
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    QMap<QString, QString> spelling;
    const auto declare = [&](const QString &option, const QString &valueName) {
        QString name = option;
        while (name.startsWith('-'))
            name.remove(0, 1);
        spelling[name] = option;
        parser.addOption(QCommandLineOption(name, {}, valueName));
    };
    for (const QString &option : valued)
        declare(option, "value");
    for (const QString &option : flags)
        declare(option, {});
    CommandLine line;
    if (!parser.parse(QStringList{"pagewright-batch"} + args)) {
        const QStringList unknown = parser.unknownOptionNames();
        if (unknown.isEmpty()) {
            // Qt's only other complaint is a value missing after the option it quotes.
            const QString option = parser.errorText().section('\'', 1, 1);
            line.error = option.isEmpty()
                             ? parser.errorText()
                             : "Option " + spelling.value(option, option) + " needs a value.";
            return line;
        }
        // Named as typed: "-x.pdf" is a file the user meant, and must see as typed.
        const QString name = unknown.first();
        const bool single = args.contains("-" + name) && !args.contains("--" + name);
        line.error = "Unknown option " + QString(single ? "-" : "--") + name +
                     (single ? " (a file of that name goes after --)." : ".");
        return line;
    }
    for (const QString &name : parser.optionNames())
        line.options[spelling.value(name)] = parser.value(name);
    line.files = parser.positionalArguments();
    return line;
}

} // namespace pw
