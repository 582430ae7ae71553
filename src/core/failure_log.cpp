#include "failure_log.h"

#include <QDateTime>
#include <QFile>

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
    // Opened and closed for every line so that two running copies interleave their lines.
    QFile log(logFolder() + "/Errors.Log");
    if (!log.open(QIODevice::WriteOnly | QIODevice::Append))
        return;
    log.write((message + "- " + GeneralDate(QDateTime::currentDateTime()) + "\r\n").toUtf8());
}

} // namespace pw
