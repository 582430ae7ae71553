#pragma once

// Failures across a module boundary: the module turns its failure into a pw_module_error, and
// the program turns it back into the Failure it would have raised itself. Callbacks the module
// calls keep their exception until the module has returned.

#include "failure.h"
#include "module_abi.h"

#include <cstdio>
#include <exception>

namespace pw {

// Module side.
inline void report(pw_module_error &error, const Failure &failure)
{
    error.number = failure.number;
    std::snprintf(error.text, sizeof error.text, "%s", failure.what());
}

// Module side: runs the work of an entry point so that no exception crosses into the program.
// Returns what `work` returns, or `failed` with the failure in `error` (when given): a Failure
// as raised, lack of memory as such, and any other exception as `describe` words it from its
// text (null when it has none).
template <typename Describe, typename Work>
int32_t contain(pw_module_error *error, int32_t failed, Describe &&describe, Work &&work) noexcept
{
    try {
        try {
            return work();
        } catch (const Failure &f) {
            if (error)
                report(*error, f);
        } catch (const std::bad_alloc &) {
            if (error)
                report(*error, outOfMemory());
        } catch (const std::exception &e) {
            if (error)
                report(*error, describe(e.what()));
        } catch (...) {
            if (error)
                report(*error, describe(nullptr));
        }
    } catch (...) {
        // No memory left even for the text.
        if (error) {
            error->number = rte::kOutOfMemory;
            std::snprintf(error->text, sizeof error->text, "%s", "Out of memory");
        }
    }
    return failed;
}

// Program side: the failure as the module reported it.
inline Failure reported(const pw_module_error &error)
{
    return Failure(error.number, error.text);
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
