#pragma once

// The one way every command writes an output file. What is at the target's name decides how:
// - nothing: a new file, which shows up under its name only once complete. It is written
//   without a name in the target's folder (O_TMPFILE) and linked into place at the end, so that
//   neither a failure nor a killed process leaves anything behind. Where the file system has no
//   unnamed files, a hidden named one beside the target stands in, removed when this object
//   goes; one that a killed writer left is removed by the next writer into that folder;
// - a regular file, or a symbolic link (or a chain of them) to one: the file is replaced in one
//   step and keeps its permissions; the links stay as they are;
// - a character device, a pipe or a socket, and "-" (standard output): written straight into,
//   never replaced. The output is made in an unnamed file first and copied in when complete,
//   so a failed run writes nothing there;
// - a folder, a link to nothing or anything else: refused, and nothing is written.
// A new file gets 0666 less the umask, as any file the user makes.

#include <cstdio>
#include <memory>
#include <string>

namespace pw {

class OutputFile {
public:
    // Prepares the output for `target`; fd() is negative when it cannot be made, and error()
    // and reason() say why.
    explicit OutputFile(const std::string &target);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    // Where the output is written: seekable and readable, whatever the target is.
    int fd() const { return fd_; }
    // A descriptor of its own on the same file, for a library that closes what it is given;
    // negative when there is none.
    int share() const;
    // A stdio stream on the file, owned by this object; null when it cannot be had. commit()
    // flushes and checks it.
    std::FILE *stream();

    // Puts the complete output in place of the target; `durable` waits for the disk first, which
    // a file rewritten in place deserves. False when it cannot, and the target is then as it
    // was (a device or pipe may have taken part of it).
    bool commit(bool durable = false);

    // The errno value of the last failure, and the failure in words (without the target's name).
    int error() const { return error_; }
    const std::string &reason() const { return reason_; }

private:
    enum class Kind { New, Replace, Stream };

    bool fail(int error, std::string reason);
    void openBeside(const std::string &folder);
    void openStream(int destination);
    bool flushStream();
    bool linkIntoPlace();
    bool renameIntoPlace();
    bool copyIntoStream();

    struct StreamCloser {
        void operator()(std::FILE *file) const { std::fclose(file); }
    };

    Kind kind_ = Kind::New;
    std::string target_; // the name that takes the file: the end of any chain of links
    std::string named_;  // the stand-in's path; empty while the file has no name
    int fd_ = -1;
    int destination_ = -1; // the device or pipe written into
    std::unique_ptr<std::FILE, StreamCloser> stream_;
    int error_ = 0;
    std::string reason_;
};

// Why nothing can be written to `target`, or "" when something may: what the constructor of
// OutputFile would refuse, said before any work is done.
std::string OutputRefusal(const std::string &target);

// Removes the hidden files that killed writers left in `folder` (".NAME.pw-" and six letters or
// digits, or eight hexadecimal digits), recognised by that exact pattern. A file that a running
// writer still holds is left alone. Returns how many were removed.
int RemoveLeftovers(const std::string &folder);

} // namespace pw
