#pragma once

// A file that shows up under its name only once it is complete. It is written without a name
// in the target's folder (O_TMPFILE) and linked into place at the end, so that neither a
// failure nor a killed process leaves anything behind. Where the file system has no unnamed
// files, a hidden named one beside the target stands in, removed when this object goes; one that
// a killed writer left is removed by the next writer into that folder.

#include <string>

namespace pw::i2p {

class OutputFile {
public:
    // Opens the file for `target`; fd() is negative when its folder takes no new file.
    explicit OutputFile(std::string target);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    int fd() const { return fd_; }
    // Puts the complete file in place of the target; a file of that name is replaced in one
    // step. Throws ApFailure when it cannot, and the target is then as it was.
    void commit();

private:
    void linkIntoPlace();
    void renameIntoPlace();

    std::string target_;
    std::string named_; // the stand-in's path; empty while the file has no name
    int fd_ = -1;
};

// Removes the hidden files that killed writers left in `folder` (".NAME.pw-" and six letters or
// digits, or eight hexadecimal digits), recognised by that exact pattern. A file that a running
// writer still holds is left alone. Returns how many were removed.
int RemoveLeftovers(const std::string &folder);

} // namespace pw::i2p
