#pragma once
// The classic virtual-key numbers that the grid's KeyDown hands to the program's handlers.
// Letters and digits are their upper-case character codes.

namespace vk {

enum KeyCode : int {
    kBack = 8,
    kTab = 9,
    kReturn = 13,
    kShift = 16,
    kControl = 17,
    kMenu = 18, // Alt
    kEscape = 27,
    kSpace = 32,
    kPageUp = 33,
    kPageDown = 34,
    kEnd = 35,
    kHome = 36,
    kLeft = 37,
    kUp = 38,
    kRight = 39,
    kDown = 40,
    kInsert = 45,
    kDelete = 46,
    kA = 65,
    kD = 68,
    kF1 = 112,
    // Keys without a classic number of their own.
    kUnknown = 0xff,
};

} // namespace vk
