#pragma once

// Failures across a module boundary: the module turns its failure into a pw_module_error, and
// the program turns it back into the ApFailure it would have thrown itself. Callbacks the
// module calls keep their exception until the module has returned.

#include "ap_failure.h"
#include "module_abi.h"

#include <cstdio>
#include <exception>

namespace pw {

// Module side.
inline void report(pw_module_error &error, const ApFailure &failure)
{
    error.number = failure.number;
    std::snprintf(error.text, sizeof error.text, "%s", failure.what());
}

// Program side: the failure as the module reported it.
inline ApFailure reported(const pw_module_error &error)
{
    return ApFailure(error.number, error.text);
}

// Program side: wraps each callback a module calls, so that nothing it throws unwinds through
// the module; once the module has returned PW_MODULE_FAILED, rethrow() raises what a callback
// threw, or else the module's own failure.
class CallbackFence {
public:
    template <typename Call> int32_t run(Call &&call) noexcept
    {
        try {
            call();
            return PW_MODULE_OK;
        } catch (...) {
            caught_ = std::current_exception();
            return PW_MODULE_FAILED;
        }
    }

    [[noreturn]] void rethrow(const pw_module_error &error) const
    {
        if (caught_)
            std::rethrow_exception(caught_);
        throw reported(error);
    }

private:
    std::exception_ptr caught_;
};

} // namespace pw
