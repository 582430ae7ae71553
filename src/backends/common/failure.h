#pragma once

// The one failure of the backends: a run-time error number (pw::rte) and a text naming the
// cause. Code inside a backend may raise it; what a backend hands back is a Result, and what
// crosses a module boundary is a pw_module_error (module_failure.h).

#include "run_time_errors.h"

#include <cerrno>
#include <cstdint>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace pw {

struct Failure : std::runtime_error {
    int32_t number;
    Failure(int32_t n, const std::string &text) : std::runtime_error(text), number(n) {}
};

// A value, or the failure that kept it from being made.
template <typename T> class [[nodiscard]] Result {
public:
    Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
    Result(Failure failure) : state_(std::in_place_index<1>, std::move(failure)) {}

    explicit operator bool() const { return state_.index() == 0; }
    const T &operator*() const { return std::get<0>(state_); }
    const T *operator->() const { return &std::get<0>(state_); }
    const Failure &failure() const { return std::get<1>(state_); }
    // For callers that report by raising.
    const T &value() const
    {
        if (!*this)
            throw failure();
        return **this;
    }
    // A failure equals no value.
    friend bool operator==(const Result &result, const T &value)
    {
        return result && *result == value;
    }

private:
    std::variant<T, Failure> state_;
};

template <> class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(Failure failure) : failure_(std::move(failure)) {}

    explicit operator bool() const { return !failure_; }
    const Failure &failure() const { return *failure_; }
    void value() const
    {
        if (failure_)
            throw *failure_;
    }

private:
    std::optional<Failure> failure_;
};

// The failure `number` with its standard text, followed by ": cause" when there is one.
inline Failure failure(int number, std::string_view cause = {})
{
    std::string text(rte::errorText(number));
    if (!cause.empty())
        text.append(": ").append(cause);
    return Failure(number, text);
}

// A write that failed with `error` (an errno value): a full disk or quota is "Disk full", so that
// a caller can tell it from a file that cannot be written for other reasons.
inline Failure writeFailure(int error, std::string_view cause)
{
    return failure(error == ENOSPC || error == EDQUOT ? rte::kDiskFull : rte::kPathFileAccessError,
                   cause);
}

inline Failure invalidFormat(std::string_view cause)
{
    return failure(rte::kInvalidFileFormat, cause);
}

inline Failure outOfMemory()
{
    return failure(rte::kOutOfMemory);
}

// Runs `work`, handing back its value or the failure it raised (lack of memory included); any
// other exception passes.
template <typename Work> auto attempt(Work &&work) -> Result<decltype(work())>
{
    try {
        if constexpr (std::is_void_v<decltype(work())>) {
            work();
            return {};
        } else {
            return work();
        }
    } catch (const Failure &f) {
        return f;
    } catch (const std::bad_alloc &) {
        return outOfMemory();
    }
}

} // namespace pw
