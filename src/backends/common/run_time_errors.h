#pragma once

// The run-time error numbers and their standard texts, shared by the failures the backends
// raise and the ones the program's own procedures raise: a number means the same thing, in the
// same words, wherever the failure log shows it. No Qt here, so the loaded modules can use it.

#include <string_view>

namespace pw::rte {

inline constexpr int kReturnWithoutGoSub = 3;
inline constexpr int kInvalidCall = 5;
inline constexpr int kOverflow = 6;
inline constexpr int kOutOfMemory = 7;
inline constexpr int kSubscriptOutOfRange = 9;
inline constexpr int kDivisionByZero = 11;
inline constexpr int kTypeMismatch = 13;
inline constexpr int kBadFileNameOrNumber = 52;
inline constexpr int kFileNotFound = 53;
inline constexpr int kFileAlreadyOpen = 55;
inline constexpr int kDeviceIoError = 57;
inline constexpr int kFileAlreadyExists = 58;
inline constexpr int kDiskFull = 61;
inline constexpr int kInputPastEndOfFile = 62;
inline constexpr int kTooManyFiles = 67;
inline constexpr int kDeviceUnavailable = 68;
inline constexpr int kPermissionDenied = 70;
inline constexpr int kDiskNotReady = 71;
inline constexpr int kPathFileAccessError = 75;
inline constexpr int kPathNotFound = 76;
inline constexpr int kObjectNotSet = 91;
inline constexpr int kInvalidFileFormat = 321;
inline constexpr int kInvalidPropertyValue = 380;
inline constexpr int kNoSuchPropertyOrMethod = 438;
inline constexpr int kAutomationError = 440;

struct ErrorText {
    int number;
    std::string_view text;
};

inline constexpr ErrorText kErrorTexts[] = {
    {kReturnWithoutGoSub, "Return without GoSub"},
    {kInvalidCall, "Invalid procedure call or argument"},
    {kOverflow, "Overflow"},
    {kOutOfMemory, "Out of memory"},
    {kSubscriptOutOfRange, "Subscript out of range"},
    {kDivisionByZero, "Division by zero"},
    {kTypeMismatch, "Type mismatch"},
    {kBadFileNameOrNumber, "Bad file name or number"},
    {kFileNotFound, "File not found"},
    {kFileAlreadyOpen, "File already open"},
    {kDeviceIoError, "Device I/O error"},
    {kFileAlreadyExists, "File already exists"},
    {kDiskFull, "Disk full"},
    {kInputPastEndOfFile, "Input past end of file"},
    {kTooManyFiles, "Too many files"},
    {kDeviceUnavailable, "Device unavailable"},
    {kPermissionDenied, "Permission denied"},
    {kDiskNotReady, "Disk not ready"},
    {kPathFileAccessError, "Path/File access error"},
    {kPathNotFound, "Path not found"},
    {kObjectNotSet, "Object variable or With block variable not set"},
    {kInvalidFileFormat, "Invalid file format"},
    {kInvalidPropertyValue, "Invalid property value"},
    {kNoSuchPropertyOrMethod, "Object doesn't support this property or method"},
    {kAutomationError, "Automation error"},
};

// The standard text of `number`, empty when the run-time has none.
constexpr std::string_view errorText(int number)
{
    for (const ErrorText &entry : kErrorTexts)
        if (entry.number == number)
            return entry.text;
    return {};
}

} // namespace pw::rte
