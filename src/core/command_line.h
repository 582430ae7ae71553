#pragma once
// The batch tool's arguments after the command's name: options, some with a value, and the
// files in the order given.

#include <QMap>
#include <QString>
#include <QStringList>

namespace pw {

struct CommandLine {
    QMap<QString, QString> options; // a flag maps to ""
    QStringList files;
    QString error; // the first problem, "" when none

    bool has(const QString &option) const { return options.contains(option); }
    QString value(const QString &option, const QString &fallback = {}) const
    {
        return options.value(option, fallback);
    }
    // The option's whole number, `fallback` when absent; sets `error` when it is not one.
    int number(const QString &option, int fallback);
};

// Reads `args` the GNU way: `valued` options take a value ("--range 1-3", "--range=1-3",
// "-o DIR"), `flags` take none; "--" ends the options; any other option is an error; the rest
// are files, in the order given.
CommandLine ParseCommandLine(const QStringList &args, const QStringList &valued,
                             const QStringList &flags);

// The lines of `usage` (the batch tool's whole usage text) that concern `command`: its own
// entry and the notes that name it, under "Usage:". "" for a command it does not list.
QString CommandUsage(const QString &usage, const QString &command);

// The window's command line from its arguments. Files given the usual way (every argument an
// existing file: `pagewright a.tif b.jpg`) are made full paths and joined by "|"; anything
// else is one line of paths joined by "|" that a shell split at blanks, joined back as typed.
QString WindowCommandLine(const QStringList &words);

} // namespace pw
