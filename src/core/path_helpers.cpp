#include "path_helpers.h"

#include "failure_log.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace pw {

QString TrimNull(const QString &text)
{
    const qsizetype nul = text.indexOf(QChar(0));
    return nul < 0 ? text : text.left(nul);
}

QString ValidateDir(const QString &path)
{
    return path.endsWith(separator()) ? path : path + separator();
}

QString GetSpecialfolder(int32_t folderId)
{
    QStandardPaths::StandardLocation location;
    switch (folderId) {
    case FolderDesktop:
        location = QStandardPaths::DesktopLocation;
        break;
    case FolderAppData:
        location = QStandardPaths::GenericDataLocation;
        break;
    default:
        return {};
    }
    return QStandardPaths::writableLocation(location);
}

QString FindUserGuide(const QString &programFolder)
{
    for (const QString &folder : {programFolder, programFolder + "/" PW_GUIDE_FROM_PROGRAM}) {
        const QString guide = QDir::cleanPath(folder + "/help.html");
        if (QFileInfo(guide).isFile())
            return guide;
    }
    return {};
}

QString ResolveDesktop(const QString &folder)
{
    return folder == QLatin1String("Desktop") ? GetSpecialfolder(FolderDesktop) : folder;
}

bool FileExists(const QString &path)
{
    if (path.trimmed().isEmpty())
        return false;
    const QFileInfo info(path);
    return info.exists() && !info.isDir();
}

bool FolderExists(QString &path)
{
    if (path.trimmed().isEmpty())
        return false;
    if (path.endsWith(separator()) && path.size() > 1)
        path.chop(1);
    return QFileInfo::exists(path);
}

bool DeleteFileIfExists(const QString &path)
{
    return FileExists(path) && QFile::remove(path);
}

bool CreateFolderPath(const QString &path)
{
    return QDir().mkpath(ValidateDir(path));
}

QDateTime CreatedTime(const QFileInfo &file)
{
    const QDateTime birth = file.birthTime();
    return birth.isValid() ? birth : file.metadataChangeTime();
}

QString GetFileExt(const QString &name)
{
    const qsizetype dot = name.lastIndexOf('.');
    return dot < 0 ? name : name.mid(dot + 1);
}

int16_t HiWord(int32_t value)
{
    // The divisor is 65535 on purpose: callers were tuned to its slightly-off results.
    int32_t result = value / 65535;
    if (value < 0)
        result -= 1;
    return int16_t(result);
}

bool IsReservedFileNameChar(int keyAscii)
{
    return keyAscii > 0 && QByteArrayView("\"*/:<>?\\|").contains(char(keyAscii));
}

QString NameBeforeLastDot(const QString &name)
{
    const int dot = InStrRev(name, ".");
    if (dot == 0)
        throw RuntimeError::fromNumber(5);
    return name.left(dot - 1);
}

QString FolderNamedAfter(const QString &file, const QString &outputFolder)
{
    return ValidateDir(outputFolder) + NameBeforeLastDot(GetFileName(file.trimmed()));
}

QString GetFileName(const QString &path)
{
    QString p = path;
    while (p.size() > 1 && p.endsWith(separator()))
        p.chop(1);
    return p.mid(p.lastIndexOf(separator()) + 1);
}

QString GetParentFolderName(const QString &path)
{
    QString p = path;
    while (p.size() > 1 && p.endsWith(separator()))
        p.chop(1);
    const qsizetype cut = p.lastIndexOf(separator());
    if (cut < 0)
        return {};
    return cut == 0 ? separator() : p.left(cut);
}

namespace {

[[noreturn]] void raiseTempFailure(int err)
{
    throw RuntimeError(10000 | err, SystemErrorText(err),
                       QCoreApplication::applicationName() + ".cAniCursor");
}

} // namespace

QString TempFolder()
{
    // A temporary folder that names nothing must not fall back to the file system's root.
    const QString temp = QDir::tempPath();
    if (temp.isEmpty() || !QFileInfo(temp).isDir())
        raiseTempFailure(ENOENT);
    return ValidateDir(temp);
}

QString TempFileName(const QString &prefix, const QString &folder)
{
    const QString dir = folder.isEmpty() ? TempFolder() : ValidateDir(folder);
    QByteArray pattern = QFile::encodeName(dir + prefix + "XXXXXX.tmp");
    const int fd = mkstemps(pattern.data(), 4);
    if (fd < 0)
        raiseTempFailure(errno);
    ::close(fd);
    return QFile::decodeName(pattern);
}

QString SystemErrorText(int code)
{
    return code == 0 ? QString() : QString::fromLocal8Bit(std::strerror(code));
}

} // namespace pw
