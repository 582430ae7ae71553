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

// Reads `args`: `valued` options take the next argument as their value, `flags` take none;
// anything else starting with "--" is an error, the rest are files.
CommandLine ParseCommandLine(const QStringList &args, const QStringList &valued,
                             const QStringList &flags);

// The window's command line from its arguments. Files given the usual way (every argument an
// existing file: `pagewright a.tif b.jpg`) are made full paths and joined by "|"; anything
// else is one line of paths joined by "|" that a shell split at blanks, joined back as typed.
QString WindowCommandLine(const QStringList &words);

} // namespace pw
