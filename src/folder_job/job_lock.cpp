#include "job_lock.h"

#include "core/file_names.h"

#include <QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace pw {

namespace {

QByteArray lockPath(const QString &folder)
{
    return EncodeFileName(folder + "/clone.lock");
}

// The program's name as it was started (the kernel's own name of a process is cut at 15
// characters).
QString processName(long pid)
{
    QFile command("/proc/" + QString::number(pid) + "/cmdline");
    if (!command.open(QIODevice::ReadOnly))
        return {};
    const QByteArray program = command.readAll().split('\0').value(0);
    return DecodeFileName(program.mid(program.lastIndexOf('/') + 1));
}

} // namespace

JobLock::~JobLock()
{
    release();
}

bool JobLock::acquire(const QString &folder)
{
    if (held())
        return true;
    const int fd = ::open(lockPath(folder).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return false;
    }
    // Who holds it, for the refusal another process shows. The lock holds without this note:
    // a full disk must not keep a job from running.
    const std::string who = std::to_string(::getpid()) + "\n";
    [[maybe_unused]] const bool noted =
        ::ftruncate(fd, 0) == 0 && ::pwrite(fd, who.data(), who.size(), 0) == ssize_t(who.size());
    fd_ = fd;
    return true;
}

void JobLock::release()
{
    if (fd_ < 0)
        return;
    ::close(fd_);
    fd_ = -1;
}

QString JobLock::holder(const QString &folder)
{
    const int fd = ::open(lockPath(folder).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return {};
    QString who;
    if (::flock(fd, LOCK_SH | LOCK_NB) != 0) {
        char text[32] = {};
        const ssize_t n = ::pread(fd, text, sizeof text - 1, 0);
        const long pid = n > 0 ? std::strtol(text, nullptr, 10) : 0;
        who = pid > 0 ? "process " + QString::number(pid) : QString("another process");
        if (const QString name = pid > 0 ? processName(pid) : QString(); !name.isEmpty())
            who += " (" + name + ")";
    }
    ::close(fd);
    return who;
}

} // namespace pw
