#pragma once
// A small file system of its own (tmpfs) mounted on a folder, to fill up on purpose: what a
// program does when its disk is full is tried for real, not faked. Mounting needs root; where
// it is refused, `mounted()` is false and the test skips.

#include <QString>

class SmallDisk {
public:
    SmallDisk(const QString &folder, int kilobytes);
    ~SmallDisk();
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

    bool mounted() const { return mounted_; }
    const QString &path() const { return folder_; }
    // Fills the disk up to its last byte with a file of its own, leaving `spareBytes` free.
    void fill(qint64 spareBytes = 0);
    // Gives the room of the filling back.
    void free();

private:
    QString folder_;
    bool mounted_ = false;
};
