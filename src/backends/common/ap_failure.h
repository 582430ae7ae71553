#pragma once

// The failure the image-to-PDF library raises for a file it cannot read at all, and the
// helpers that give it the standard number and text.

#include "run_time_errors.h"

#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

// Failure of an image that cannot be read at all (missing, zero bytes, damaged, truncated,
// mislabelled, unsupported). Carries a run-time error number (pw::rte) and a text naming the
// cause.
struct ApFailure : std::runtime_error {
    int32_t number;
    ApFailure(int32_t n, const std::string &text) : std::runtime_error(text), number(n) {}
};

namespace pw {

// The failure `number` with its standard text, followed by ": cause" when there is one.
inline ApFailure failure(int number, std::string_view cause = {})
{
    std::string text(rte::errorText(number));
    if (!cause.empty())
        text.append(": ").append(cause);
    return ApFailure(number, text);
}

// A write that failed with `error` (an errno value): a full disk or quota is "Disk full", so that
// a caller can tell it from a file that cannot be written for other reasons.
inline ApFailure writeFailure(int error, std::string_view cause)
{
    return failure(error == ENOSPC || error == EDQUOT ? rte::kDiskFull : rte::kPathFileAccessError,
                   cause);
}

inline ApFailure invalidFormat(std::string_view cause)
{
    return failure(rte::kInvalidFileFormat, cause);
}

inline ApFailure outOfMemory()
{
    return failure(rte::kOutOfMemory);
}

} // namespace pw
