#include "module_failure.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>

namespace {

pw::Failure describe(const char *what)
{
    return pw::invalidFormat(what ? std::string("X: ") + what : "X: unreadable");
}

// Whatever an entry point's work throws reaches the program as a number and a text, and nothing
// unwinds out of the module.
TEST(ModuleFailure, EveryExceptionBecomesTheReportedFailure)
{
    const struct {
        const char *name;
        std::function<int32_t()> work;
        int32_t result;
        int32_t number;
        const char *text;
    } cases[] = {
        {"done", [] { return 42; }, 42, 0, ""},
        {"failure", []() -> int32_t { throw pw::failure(pw::rte::kFileNotFound, "a.pdf"); },
         PW_MODULE_FAILED, pw::rte::kFileNotFound, "File not found: a.pdf"},
        {"no memory", []() -> int32_t { throw std::bad_alloc(); }, PW_MODULE_FAILED,
         pw::rte::kOutOfMemory, "Out of memory"},
        {"library", []() -> int32_t { throw std::runtime_error("bad xref"); }, PW_MODULE_FAILED,
         pw::rte::kInvalidFileFormat, "Invalid file format: X: bad xref"},
        {"anything", []() -> int32_t { throw 3; }, PW_MODULE_FAILED, pw::rte::kInvalidFileFormat,
         "Invalid file format: X: unreadable"},
    };
    for (const auto &c : cases) {
        pw_module_error error{};
        EXPECT_EQ(pw::contain(&error, PW_MODULE_FAILED, describe, c.work), c.result) << c.name;
        EXPECT_EQ(error.number, c.number) << c.name;
        EXPECT_STREQ(error.text, c.text) << c.name;
        // A caller that does not ask why still gets the status.
        EXPECT_EQ(pw::contain(nullptr, 0, describe, c.work), c.result == 42 ? 42 : 0) << c.name;
    }
}

// The program raises what a module reported, or what its own callback threw.
TEST(ModuleFailure, TheProgramGetsBackWhatWasReported)
{
    pw_module_error error{};
    pw::report(error, pw::failure(pw::rte::kDiskFull, std::string(10000, 'x')));
    EXPECT_EQ(std::string(error.text).size(), sizeof error.text - 1) << "cut, never overrun";
    EXPECT_EQ(pw::reported(error).number, pw::rte::kDiskFull);

    pw::CallbackFence fence;
    EXPECT_EQ(fence.run([] {}), PW_MODULE_OK);
    EXPECT_THROW(fence.rethrow(error), pw::Failure);
    EXPECT_EQ(fence.run([] { throw std::logic_error("callback"); }), PW_MODULE_FAILED);
    EXPECT_THROW(fence.rethrow(error), std::logic_error);
}

} // namespace
