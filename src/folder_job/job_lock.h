#pragma once
// One folder job at a time: while a job runs, from a window or from the command line, its
// process holds a lock on "clone.lock" in the job folder. A second one refuses to start and is
// offered nothing to resume. The lock is the kernel's (flock), so a process that dies, even by
// kill -9, leaves it free.

#include <QString>

namespace pw {

class JobLock {
public:
    JobLock() = default;
    ~JobLock();
    JobLock(const JobLock &) = delete;
    JobLock &operator=(const JobLock &) = delete;

    // Takes the lock of the job folder `folder`; true when this object holds it (already, or
    // now), false when another process does.
    bool acquire(const QString &folder);
    void release();
    bool held() const { return fd_ >= 0; }

    // Who holds the lock of `folder` while this process does not: "process N (name)", or "" when
    // nobody does.
    static QString holder(const QString &folder);

private:
    int fd_ = -1;
};

// Releases at the end of a scope the lock that the scope took, and only that.
class JobLockScope {
public:
    JobLockScope(JobLock &lock, const QString &folder)
        : lock_(lock), wasHeld_(lock.held()), acquired_(lock.acquire(folder))
    {
    }
    ~JobLockScope()
    {
        if (acquired_ && !wasHeld_)
            lock_.release();
    }
    JobLockScope(const JobLockScope &) = delete;
    JobLockScope &operator=(const JobLockScope &) = delete;
    bool acquired() const { return acquired_; }

private:
    JobLock &lock_;
    bool wasHeld_;
    bool acquired_;
};

} // namespace pw
