#pragma once
// A classic profile file: "[SECTION]" lines and "KEY=value" lines, CR LF line ends. Sections and
// keys are found without regard to case; a write replaces the key's line in place or appends
// it, with its section, so that a hand-edited file keeps everything else as it was. Values are
// kept on one line: line breaks, backslashes and bytes of names that are not UTF-8 are written
// escaped and read back whole.

#include <QList>
#include <QString>

#include <utility>

namespace pw {

// The value of `key` in `section` of `path`, or `fallback`; cut to `bufferChars` - 1 characters,
// the room a caller's buffer leaves beside its terminating zero.
QString GetPrivateProfileString(const QString &section, const QString &key, const QString &fallback,
                                const QString &path, int bufferChars = 4096);
// False when the file cannot be written; a write cut short leaves the file as it was.
bool WritePrivateProfileString(const QString &section, const QString &key, const QString &value,
                               const QString &path);
// Several keys in one replacement of the file: a crash leaves all of them written or none.
bool WritePrivateProfileStrings(const QString &section,
                                const QList<std::pair<QString, QString>> &values,
                                const QString &path);

} // namespace pw
