#include "profile_file.h"

#include "core/file_names.h"

#include <QFile>
#include <QStringList>

namespace pw {

namespace {

// The file in the system's 8-bit encoding, split into lines without their ends.
QStringList readLines(const QString &path, QByteArray *raw = nullptr)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll();
    if (raw)
        *raw = bytes;
    QString text = QString::fromLocal8Bit(bytes);
    text.replace("\r\n", "\n");
    QStringList lines = text.split('\n');
    // Blanks left behind by a shorter rewrite end the file; they are not lines.
    while (!lines.isEmpty() && lines.last().trimmed().isEmpty())
        lines.removeLast();
    return lines;
}

bool isSection(const QString &line, const QString &section)
{
    const QString t = line.trimmed();
    return t.startsWith('[') && t.endsWith(']') &&
           t.mid(1, t.size() - 2).trimmed().compare(section, Qt::CaseInsensitive) == 0;
}

bool isAnySection(const QString &line)
{
    return line.trimmed().startsWith('[');
}

// The key of a "KEY=value" line, or "".
QString keyOf(const QString &line)
{
    const qsizetype eq = line.indexOf('=');
    return eq < 0 ? QString() : line.left(eq).trimmed();
}

// Index of the key's line inside the section, -1 when absent; `end` receives the index after
// the section's last line (-1 when there is no such section).
int findKey(const QStringList &lines, const QString &section, const QString &key, int &end)
{
    end = -1;
    bool inside = false;
    for (int i = 0; i < lines.size(); ++i) {
        if (isAnySection(lines[i])) {
            if (inside)
                return -1;
            inside = isSection(lines[i], section);
            if (inside)
                end = i + 1;
            continue;
        }
        if (!inside)
            continue;
        if (!lines[i].trimmed().isEmpty())
            end = i + 1;
        if (keyOf(lines[i]).compare(key, Qt::CaseInsensitive) == 0)
            return i;
    }
    return -1;
}

} // namespace

QString GetPrivateProfileString(const QString &section, const QString &key, const QString &fallback,
                                const QString &path, int bufferChars)
{
    const QStringList lines = readLines(path);
    int end = 0;
    const int at = findKey(lines, section, key, end);
    QString value = fallback;
    if (at >= 0) {
        const QString &line = lines[at];
        value = line.mid(line.indexOf('=') + 1).trimmed();
        // A value in quotes is given without them, as the classic reader did.
        if (value.size() >= 2 && value.startsWith('"') && value.endsWith('"'))
            value = value.mid(1, value.size() - 2);
        value = DecodeOneLine(value);
    }
    return value.left(std::max(0, bufferChars - 1));
}

bool WritePrivateProfileString(const QString &section, const QString &key, const QString &value,
                               const QString &path)
{
    return WritePrivateProfileStrings(section, {{key, value}}, path);
}

bool WritePrivateProfileStrings(const QString &section,
                                const QList<std::pair<QString, QString>> &values,
                                const QString &path)
{
    QByteArray old;
    QStringList lines = readLines(path, &old);
    for (const auto &[key, value] : values) {
        int end = 0;
        const int at = findKey(lines, section, key, end);
        // A value with a line break would add a line of its own: one key, one line.
        const QString line = key + "=" + EncodeOneLine(value);
        if (at >= 0)
            lines[at] = line;
        else if (end >= 0)
            lines.insert(end, line);
        else
            lines << "[" + section + "]" << line;
    }
    // One write over the old text, in place: a killed program leaves the old file or the new
    // one, never a missing file. A shorter text is followed by blanks, which readers pass
    // over. Neither a rename nor a sync: a job writes this after every file, and the file
    // system would flush each replaced file to the disk at once.
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Unbuffered))
        return false;
    QByteArray bytes = (lines.join("\r\n") + "\r\n").toLocal8Bit();
    if (bytes.size() < file.size())
        bytes.append(QByteArray(file.size() - bytes.size(), ' '));
    if (file.write(bytes) == bytes.size())
        return true;
    // Cut short (a full disk): the old text goes back over what was written, into room the
    // file already had, so that no key is lost.
    file.seek(0);
    file.write(old);
    file.resize(old.size());
    return false;
}

} // namespace pw
