#include "output_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <string_view>
#include <utility>

namespace pw {

namespace {

// ".NAME.pw-" in the target's folder: the start of every name a file has before it is in place.
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

// What the target's name holds, and so how the output reaches it.
struct Resolved {
    enum Kind { New, Replace, Stream, Refused } kind = New;
    std::string path;            // the name that takes the file
    mode_t mode = 0;             // the permissions of the file replaced
    bool standardOutput = false; // the stream is this process's standard output
    int error = 0;
    std::string reason;
};

Resolved found(Resolved::Kind kind, std::string path, mode_t mode = 0, bool standardOutput = false)
{
    Resolved where;
    where.kind = kind;
    where.path = std::move(path);
    where.mode = mode;
    where.standardOutput = standardOutput;
    return where;
}

Resolved refused(int error, std::string reason)
{
    Resolved where = found(Resolved::Refused, {});
    where.error = error;
    where.reason = std::move(reason);
    return where;
}

// `-o /dev/stdout` names this process's output also where that cannot be opened again by name
// (a socket): it is written through the descriptor the process already has.
bool isStandardOutput(const struct stat &st)
{
    struct stat out {};
    return ::fstat(STDOUT_FILENO, &out) == 0 && out.st_dev == st.st_dev && out.st_ino == st.st_ino;
}

Resolved resolve(const std::string &target)
{
    if (target == "-")
        return found(Resolved::Stream, target, 0, true);
    struct stat st {};
    if (::stat(target.c_str(), &st) != 0) {
        const int error = errno;
        struct stat link {};
        if (error != ENOENT)
            return refused(error, std::strerror(error));
        // A link to nothing would have the output made wherever it points.
        if (::lstat(target.c_str(), &link) == 0)
            return refused(ENOENT, "Is a symbolic link to nothing");
        return found(Resolved::New, target);
    }
    if (S_ISREG(st.st_mode)) {
        // Through links, the file they name is replaced, and the links stay as they are.
        const std::unique_ptr<char, decltype(&std::free)> real(::realpath(target.c_str(), nullptr),
                                                               &std::free);
        if (!real)
            return refused(errno, std::strerror(errno));
        return found(Resolved::Replace, real.get(), mode_t(st.st_mode & 07777));
    }
    if (S_ISCHR(st.st_mode) || S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode))
        return found(Resolved::Stream, target, 0, isStandardOutput(st));
    if (S_ISDIR(st.st_mode))
        return refused(EISDIR, "Is a folder");
    return refused(EINVAL, "Is not a file, device or pipe that can take the output");
}

// A writer holds its stand-in locked until it is in place, so that a cleaner in another process
// passes over it.
void holdWhileWriting(int fd)
{
    if (fd >= 0)
        ::flock(fd, LOCK_EX | LOCK_NB);
}

std::mutex &standInsLock();
int removeLeftovers(const std::string &folder);

} // namespace

OutputFile::OutputFile(const std::string &target)
{
    const Resolved where = resolve(target);
    if (where.kind == Resolved::Refused) {
        fail(where.error, where.reason);
        return;
    }
    target_ = where.path;
    if (where.kind == Resolved::Stream) {
        openStream(where.standardOutput ? ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                                        : ::open(target_.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
        return;
    }
    openBeside(folderOf(target_));
    if (fd_ >= 0 && where.kind == Resolved::Replace)
        ::fchmod(fd_, where.mode);
}

OutputFile::~OutputFile()
{
    stream_.reset();
    if (fd_ >= 0)
        ::close(fd_);
    if (destination_ >= 0)
        ::close(destination_);
    if (!named_.empty())
        ::unlink(named_.c_str());
}

bool OutputFile::fail(int error, std::string reason)
{
    error_ = error ? error : EIO;
    reason_ = std::move(reason);
    return false;
}

void OutputFile::openBeside(const std::string &folder)
{
    fd_ = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    if (fd_ >= 0)
        return;
    // A file system without unnamed files: a hidden name stands in, and the ones a killed
    // writer left here go first. A stand-in is locked the moment it exists, before another
    // writer of this process can take it for a leftover.
    const std::lock_guard hold(standInsLock());
    removeLeftovers(folder);
    named_ = hiddenBeside(target_) + "XXXXXX";
    fd_ = ::mkostemp(named_.data(), O_CLOEXEC);
    if (fd_ < 0) {
        named_.clear();
        fail(errno, std::strerror(errno));
        return;
    }
    holdWhileWriting(fd_);
    // mkstemp makes owner-only files; a finished file gets the usual permissions.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd_, 0666 & ~mask);
}

void OutputFile::openStream(int destination)
{
    if (destination < 0) {
        fail(errno, std::strerror(errno));
        return;
    }
    destination_ = destination;
    // Made whole before anything reaches the device or pipe, in a file that has no name.
    const char *temporary = std::getenv("TMPDIR");
    fd_ =
        ::open(temporary && *temporary ? temporary : "/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd_ < 0)
        fd_ = ::memfd_create("pagewright-output", MFD_CLOEXEC);
    if (fd_ < 0)
        fail(errno, std::strerror(errno));
}

int OutputFile::share() const
{
    return fd_ < 0 ? -1 : ::fcntl(fd_, F_DUPFD_CLOEXEC, 0);
}

std::FILE *OutputFile::stream()
{
    if (stream_ || fd_ < 0)
        return stream_.get();
    const int fd = share();
    std::FILE *file = fd < 0 ? nullptr : ::fdopen(fd, "wb");
    if (!file && fd >= 0)
        ::close(fd);
    stream_.reset(file);
    return file;
}

bool OutputFile::flushStream()
{
    if (!stream_)
        return true;
    // A write that failed inside the stream's buffer (a full disk) shows only in its error flag:
    // a library goes on writing, and a later flush may well succeed.
    errno = 0;
    bool ok = std::fflush(stream_.get()) == 0 && !std::ferror(stream_.get());
    int error = errno;
    ok = std::fclose(stream_.release()) == 0 && ok;
    error = error ? error : errno;
    return ok || fail(error, std::strerror(error ? error : EIO));
}

bool OutputFile::commit(bool durable)
{
    if (fd_ < 0 || !flushStream())
        return false;
    if (durable && ::fsync(fd_) != 0)
        return fail(errno, std::strerror(errno));
    if (destination_ >= 0)
        return copyIntoStream();
    return named_.empty() ? linkIntoPlace() : renameIntoPlace();
}

bool OutputFile::linkIntoPlace()
{
    // An unnamed file is named through its /proc entry: linkat() on the descriptor itself
    // (AT_EMPTY_PATH) needs a privilege that users lack.
    const std::string self = "/proc/self/fd/" + std::to_string(fd_);
    const auto linkAs = [&](const std::string &name) {
        return ::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
    };
    if (linkAs(target_))
        return true;
    // A file of that name is replaced in one step: the file is linked under a passing name and
    // renamed over it.
    std::random_device random;
    for (int attempt = 0; attempt < 16 && errno == EEXIST; ++attempt) {
        char suffix[16];
        std::snprintf(suffix, sizeof suffix, "%08x", unsigned(random()));
        const std::string passing = hiddenBeside(target_) + suffix;
        if (!linkAs(passing))
            continue;
        if (::rename(passing.c_str(), target_.c_str()) == 0)
            return true;
        const int error = errno;
        ::unlink(passing.c_str());
        errno = error;
        break;
    }
    return fail(errno, std::string("cannot put the file in place: ") + std::strerror(errno));
}

bool OutputFile::renameIntoPlace()
{
    // Closed first: a network file system reports a failed write only then. Closing lets go of
    // the stand-in's lock, so no other writer of this process may tidy the folder until the
    // stand-in has its name.
    const std::lock_guard hold(standInsLock());
    if (::close(std::exchange(fd_, -1)) != 0 || ::rename(named_.c_str(), target_.c_str()) != 0)
        return fail(errno, std::string("cannot put the file in place: ") + std::strerror(errno));
    named_.clear();
    return true;
}

bool OutputFile::copyIntoStream()
{
    if (::lseek(fd_, 0, SEEK_SET) != 0)
        return fail(errno, std::strerror(errno));
    char buffer[1 << 16];
    for (;;) {
        const ssize_t got = ::read(fd_, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return fail(errno, std::strerror(errno));
        if (got == 0)
            break;
        for (ssize_t done = 0; done < got;) {
            const ssize_t put = ::write(destination_, buffer + done, size_t(got - done));
            if (put < 0 && errno != EINTR)
                return fail(errno, std::strerror(errno));
            done += std::max<ssize_t>(put, 0);
        }
    }
    if (::close(std::exchange(destination_, -1)) != 0)
        return fail(errno, std::strerror(errno));
    return true;
}

std::string OutputRefusal(const std::string &target)
{
    return resolve(target).reason;
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

} // namespace pw
