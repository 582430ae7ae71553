#pragma once

// Catches what a piece of code writes to stderr, for the tests that insist on silence.

#include <unistd.h>

#include <cstdio>
#include <string>

// Collects what the code under test writes to stderr.
class StderrCapture {
public:
    StderrCapture() : file_(std::tmpfile())
    {
        std::fflush(stderr);
        saved_ = ::dup(2);
        ::dup2(::fileno(file_), 2);
    }
    ~StderrCapture()
    {
        restore();
        std::fclose(file_);
    }
    std::string text()
    {
        restore();
        std::string out;
        std::rewind(file_);
        char buf[512];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, file_)) > 0)
            out.append(buf, n);
        return out;
    }

private:
    void restore()
    {
        if (saved_ >= 0) {
            std::fflush(stderr);
            ::dup2(saved_, 2);
            ::close(saved_);
            saved_ = -1;
        }
    }
    std::FILE *file_;
    int saved_ = -1;
};

// Runs `body` and returns what it wrote to stderr.
template <typename Body> std::string stderrOf(Body body)
{
    StderrCapture capture;
    body();
    return capture.text();
}
