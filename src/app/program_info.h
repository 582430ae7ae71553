#pragma once
// `--help` and `--version`, answered from the raw arguments before anything starts: no
// window, no display, no per-user folder. The manual pages are made from these answers.

#include <cstdio>
#include <cstring>

namespace pw {

// Prints the version, or `help` when it is given and asked for, and returns true when the
// program should end there. Only the first argument is looked at.
inline bool AnswerInfoOption(int argc, char **argv, const char *program, const char *help)
{
    if (argc < 2)
        return false;
    const char *first = argv[1];
    if (!std::strcmp(first, "--version") || !std::strcmp(first, "-V")) {
        std::printf("%s %s\n", program, PAGEWRIGHT_VERSION);
        return true;
    }
    if (help && (!std::strcmp(first, "--help") || !std::strcmp(first, "-h"))) {
        std::fputs(help, stdout);
        return true;
    }
    return false;
}

} // namespace pw
