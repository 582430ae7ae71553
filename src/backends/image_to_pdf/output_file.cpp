#include "output_file.h"

#include "ap_failure.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <random>
#include <string_view>
#include <utility>

namespace pw::i2p {

namespace {

// ".NAME.pw-" in the target's folder: the start of every name a PDF has before it is in place.
std::string hiddenBeside(const std::string &target)
{
    const auto slash = target.find_last_of('/');
    if (slash == std::string::npos)
        return "./." + target + ".pw-";
    return target.substr(0, slash + 1) + "." + target.substr(slash + 1) + ".pw-";
}

std::string folderOf(const std::string &target)
{
    const auto slash = target.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : target.substr(0, slash);
}

constexpr std::string_view kMark = ".pw-";

bool isLeftoverName(std::string_view name)
{
    const auto mark = name.rfind(kMark);
    if (name.size() < 2 || name[0] != '.' || mark == std::string_view::npos || mark < 2)
        return false;
    const std::string_view tail = name.substr(mark + kMark.size());
    const auto all = [&](auto pred) {
        return std::all_of(tail.begin(), tail.end(), [&](char c) { return pred(c); });
    };
    const auto alnum = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
    const auto hex = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
    return (tail.size() == 6 && all(alnum)) || (tail.size() == 8 && all(hex));
}

// A writer holds its file locked until it is in place, so that a cleaner in another process
// passes over it.
void holdWhileWriting(int fd)
{
    if (fd >= 0)
        ::flock(fd, LOCK_EX | LOCK_NB);
}

std::mutex &standInsLock();
int removeLeftovers(const std::string &folder);

[[noreturn]] void placeFailed()
{
    throw writeFailure(errno, std::string("cannot put the PDF in place: ") + std::strerror(errno));
}

} // namespace

OutputFile::OutputFile(std::string target) : target_(std::move(target))
{
    fd_ = ::open(folderOf(target_).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    if (fd_ >= 0) {
        holdWhileWriting(fd_);
        return;
    }
    // A file system without unnamed files: a hidden name stands in, and the ones a killed
    // writer left here go first. A stand-in is locked the moment it exists, before another
    // writer of this process can take it for a leftover.
    const std::lock_guard hold(standInsLock());
    removeLeftovers(folderOf(target_));
    named_ = hiddenBeside(target_) + "XXXXXX";
    fd_ = ::mkostemp(named_.data(), O_CLOEXEC);
    if (fd_ < 0) {
        named_.clear();
        return;
    }
    holdWhileWriting(fd_);
    // mkstemp makes owner-only files; a finished PDF gets the usual permissions.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd_, 0666 & ~mask);
}

OutputFile::~OutputFile()
{
    if (fd_ >= 0)
        ::close(fd_);
    if (!named_.empty())
        ::unlink(named_.c_str());
}

void OutputFile::commit()
{
    if (named_.empty())
        linkIntoPlace();
    else
        renameIntoPlace();
}

void OutputFile::linkIntoPlace()
{
    // An unnamed file is named through its /proc entry: linkat() on the descriptor itself
    // (AT_EMPTY_PATH) needs a privilege that users lack.
    const std::string self = "/proc/self/fd/" + std::to_string(fd_);
    const auto linkAs = [&](const std::string &name) {
        return ::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
    };
    if (linkAs(target_))
        return;
    // A file of that name is replaced in one step: the PDF is linked under a passing name and
    // renamed over it.
    std::random_device random;
    for (int attempt = 0; attempt < 16 && errno == EEXIST; ++attempt) {
        char suffix[16];
        std::snprintf(suffix, sizeof suffix, "%08x", unsigned(random()));
        const std::string passing = hiddenBeside(target_) + suffix;
        if (!linkAs(passing))
            continue;
        if (::rename(passing.c_str(), target_.c_str()) == 0)
            return;
        const int error = errno;
        ::unlink(passing.c_str());
        errno = error;
        break;
    }
    placeFailed();
}

void OutputFile::renameIntoPlace()
{
    // Closed first: a network file system reports a failed write only then. Closing lets go of
    // the stand-in's lock, so no other writer of this process may tidy the folder until the
    // stand-in has its name.
    const std::lock_guard hold(standInsLock());
    if (::close(std::exchange(fd_, -1)) != 0 || ::rename(named_.c_str(), target_.c_str()) != 0)
        placeFailed();
    named_.clear();
}

namespace {

std::mutex &standInsLock()
{
    static std::mutex lock;
    return lock;
}

int removeLeftovers(const std::string &folder)
{
    DIR *dir = ::opendir(folder.c_str());
    if (!dir)
        return 0;
    int removed = 0;
    while (const dirent *entry = ::readdir(dir)) {
        if (!isLeftoverName(entry->d_name))
            continue;
        const int fd = ::openat(::dirfd(dir), entry->d_name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0)
            continue;
        struct stat st {};
        if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && ::flock(fd, LOCK_EX | LOCK_NB) == 0 &&
            ::unlinkat(::dirfd(dir), entry->d_name, 0) == 0)
            ++removed;
        ::close(fd);
    }
    ::closedir(dir);
    return removed;
}

} // namespace

int RemoveLeftovers(const std::string &folder)
{
    const std::lock_guard hold(standInsLock());
    return removeLeftovers(folder);
}

} // namespace pw::i2p
