#include "failure_log.h"

#include "file_names.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

namespace pw {

QString FailureTail::message(int number, const QString &description) const
{
    return "Error " + QString::number(number) + " (" + description + ") in procedure " + procedure +
           " at Line No. " + QString::number(line) + unit.suffix();
}

void FailureTail::log(int number, const QString &description) const
{
    WriteErrorLog(message(number, description));
}

namespace {

constexpr qint64 kLogRotateBytes = 1024 * 1024;

QString &logFolder()
{
    static QString folder;
    return folder;
}

} // namespace

void SetErrorLogFolder(const QString &folder)
{
    logFolder() = folder;
}

void WriteErrorLog(const QString &message)
{
    if (logFolder().isEmpty())
        return;
    const QString path = logFolder() + "/Errors.Log";
    // Past its size the log starts afresh, the last one kept beside it: a log that only grows
    // fills a disk over months of batches.
    if (QFileInfo(path).size() > kLogRotateBytes) {
        QFile::remove(path + ".1");
        QFile::rename(path, path + ".1");
    }
    // Opened and closed for every line so that two running copies interleave their lines. A
    // name with a line break stays inside its line.
    QFile log(path);
    if (!log.open(QIODevice::WriteOnly | QIODevice::Append))
        return;
    log.write((EncodeOneLine(message) + "- " + GeneralDate(QDateTime::currentDateTime()) + "\r\n")
                  .toUtf8());
}

} // namespace pw
