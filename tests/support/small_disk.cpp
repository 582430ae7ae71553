#include "small_disk.h"

#include <QDir>
#include <QFile>

#include <sys/mount.h>
#include <sys/statvfs.h>

#include <vector>

namespace {

const char *const kFilling = "/.filling";

qint64 freeBytes(const QString &folder)
{
    struct statvfs disk {};
    return ::statvfs(QFile::encodeName(folder).constData(), &disk) == 0
               ? qint64(disk.f_bavail) * qint64(disk.f_frsize)
               : 0;
}

} // namespace

SmallDisk::SmallDisk(const QString &folder, int kilobytes) : folder_(folder)
{
    QDir().mkpath(folder);
    const QByteArray options = "size=" + QByteArray::number(kilobytes) + "k";
    mounted_ = ::mount("tmpfs", QFile::encodeName(folder).constData(), "tmpfs", 0,
                       options.constData()) == 0;
}

SmallDisk::~SmallDisk()
{
    if (mounted_)
        ::umount2(QFile::encodeName(folder_).constData(), MNT_DETACH);
}

void SmallDisk::fill(qint64 spareBytes)
{
    QFile filling(folder_ + kFilling);
    filling.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered);
    const std::vector<char> block(4096, 'f');
    while (freeBytes(folder_) > spareBytes &&
           filling.write(block.data(), qint64(block.size())) == qint64(block.size())) {
    }
}

void SmallDisk::free()
{
    QFile::remove(folder_ + kFilling);
}
