#include "output_file.h"

#include "sandbox.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>

namespace fs = std::filesystem;

namespace {

std::string contents(const fs::path &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

void put(const fs::path &path, const std::string &bytes, mode_t mode = 0644)
{
    std::ofstream(path, std::ios::binary) << bytes;
    ::chmod(path.c_str(), mode);
}

std::set<std::string> names(const fs::path &folder)
{
    std::set<std::string> found;
    for (const auto &entry : fs::directory_iterator(folder))
        found.insert(entry.path().filename().string());
    return found;
}

mode_t modeOf(const fs::path &path)
{
    struct stat st {};
    ::stat(path.c_str(), &st);
    return st.st_mode & 07777;
}

bool write(pw::OutputFile &file, const std::string &bytes)
{
    return ::write(file.fd(), bytes.data(), bytes.size()) == ssize_t(bytes.size());
}

struct Case {
    const char *name;
    // Makes what is at "out" before the output is written; returns the file that must end up
    // holding the output, empty when the output is refused.
    std::function<fs::path(const fs::path &folder)> prepare;
    mode_t mode; // the permissions the written file must have
};

TEST(OutputFile, WhatIsAtTheNameDecidesHowTheOutputGetsThere)
{
    ::umask(022);
    const Case cases[] = {
        {"nothing yet", [](const fs::path &d) { return d / "out"; }, 0644},
        {"a file, replaced with its permissions",
         [](const fs::path &d) {
             put(d / "out", "old", 0600);
             return d / "out";
         },
         0600},
        {"a chain of links, whose file is replaced and the links stay",
         [](const fs::path &d) {
             fs::create_directory(d / "real");
             put(d / "real/file", "old", 0640);
             fs::create_symlink("real/file", d / "middle");
             fs::create_symlink("middle", d / "out");
             return d / "real/file";
         },
         0640},
        {"a folder, refused",
         [](const fs::path &d) {
             fs::create_directory(d / "out");
             return fs::path();
         },
         0},
        {"a link to nothing, refused",
         [](const fs::path &d) {
             fs::create_symlink("elsewhere", d / "out");
             return fs::path();
         },
         0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        SandboxDir sandbox;
        const fs::path folder = sandbox.path().toStdString();
        const fs::path receiver = c.prepare(folder);
        const auto before = names(folder);
        const bool wasLink = fs::is_symlink(folder / "out");
        const std::string old = receiver.empty() ? "" : contents(receiver);
        {
            // Dropped unfinished: nothing changes, nothing is left.
            pw::OutputFile abandoned((folder / "out").string());
            EXPECT_EQ(abandoned.fd() >= 0, !receiver.empty()) << abandoned.reason();
            if (abandoned.fd() >= 0) {
                EXPECT_TRUE(write(abandoned, "half"));
            }
        }
        EXPECT_EQ(names(folder), before);
        pw::OutputFile file((folder / "out").string());
        if (receiver.empty()) {
            EXPECT_LT(file.fd(), 0);
            EXPECT_FALSE(file.reason().empty());
            EXPECT_FALSE(file.commit());
            EXPECT_FALSE(fs::exists(folder / "elsewhere"));
            continue;
        }
        ASSERT_TRUE(write(file, "whole"));
        EXPECT_EQ(contents(receiver), old) << "visible before it is complete";
        ASSERT_TRUE(file.commit(true)) << file.reason();
        EXPECT_EQ(contents(receiver), "whole");
        EXPECT_EQ(modeOf(receiver), c.mode);
        EXPECT_EQ(fs::is_symlink(folder / "out"), wasLink);
        EXPECT_EQ(names(folder), before.empty() ? std::set<std::string>{"out"} : before);
    }
}

TEST(OutputFile, APipeReceivesTheOutputOnlyWhenItIsComplete)
{
    SandboxDir sandbox;
    const fs::path pipe = sandbox.filePath("pipe").toStdString();
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    pw::OutputFile file(pipe.string());
    ASSERT_GE(file.fd(), 0) << file.reason();
    std::FILE *stream = file.stream();
    ASSERT_NE(stream, nullptr);
    std::fputs("through a stream", stream);
    char buffer[64] = {};
    EXPECT_LE(::read(reader, buffer, sizeof buffer), 0);
    ASSERT_TRUE(file.commit()) << file.reason();
    EXPECT_EQ(::read(reader, buffer, sizeof buffer), ssize_t(16));
    EXPECT_STREQ(buffer, "through a stream");
    EXPECT_TRUE(fs::is_fifo(pipe));
    ::close(reader);

    pw::OutputFile device("/dev/null");
    EXPECT_TRUE(write(device, "nothing") && device.commit()) << device.reason();
}

TEST(OutputFile, LeftoversOfKilledWritersGoAndNothingElse)
{
    SandboxDir sandbox;
    const fs::path folder = sandbox.path().toStdString();
    for (const char *name : {".a.pdf.pw-Ab12Cd", ".a.pdf.pw-0123abcd", ".a.pdf.pw-toolong1",
                             "a.pdf", ".a.pdf.pw-held00", "a.pdf.pw-Ab12Cd"})
        put(folder / name, "x");
    fs::create_symlink("a.pdf", folder / ".b.pdf.pw-Link00");
    // A writer still at work holds its file locked.
    const int held = ::open((folder / ".a.pdf.pw-held00").c_str(), O_RDONLY);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);
    EXPECT_EQ(pw::RemoveLeftovers(folder.string()), 2);
    ::close(held);
    EXPECT_EQ(names(folder),
              (std::set<std::string>{".a.pdf.pw-toolong1", "a.pdf", ".a.pdf.pw-held00",
                                     "a.pdf.pw-Ab12Cd", ".b.pdf.pw-Link00"}));
}

} // namespace
