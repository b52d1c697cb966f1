#include "platform/KeyCodes.h"

#include <utility>

namespace ombry {
namespace {

// Linux evdev key codes (X key code minus 8) by place on a PC keyboard.
constexpr std::pair<int, uint16_t> positionCodes[] = {
    {1, keycode::Escape},
    {2, 18},
    {3, 19},
    {4, 20},
    {5, 21},
    {6, 23},
    {7, 22},
    {8, 26},
    {9, 28},
    {10, 25},
    {11, 29},
    {12, 27},
    {13, 24},
    {14, 51},
    {15, 48},
    {16, 12},
    {17, 13},
    {18, 14},
    {19, 15},
    {20, 17},
    {21, 16},
    {22, 32},
    {23, 34},
    {24, 31},
    {25, 35},
    {26, 33},
    {27, 30},
    {28, keycode::Return},
    {29, keycode::LeftControl},
    {30, 0},
    {31, 1},
    {32, 2},
    {33, 3},
    {34, 5},
    {35, 4},
    {36, 38},
    {37, 40},
    {38, 37},
    {39, 41},
    {40, 39},
    {41, 50},
    {42, keycode::LeftShift},
    {43, 42},
    {44, 6},
    {45, 7},
    {46, 8},
    {47, 9},
    {48, 11},
    {49, 45},
    {50, 46},
    {51, 43},
    {52, 47},
    {53, 44},
    {54, keycode::RightShift},
    {55, 67},
    {56, keycode::LeftOption},
    {57, 49},
    {58, 57},
    {59, 122},
    {60, 120},
    {61, 99},
    {62, 118},
    {63, 96},
    {64, 97},
    {65, 98},
    {66, 100},
    {67, 101},
    {68, 109},
    {69, 71},
    {71, 89},
    {72, 91},
    {73, 92},
    {74, 78},
    {75, 86},
    {76, 87},
    {77, 88},
    {78, 69},
    {79, 83},
    {80, 84},
    {81, 85},
    {82, 82},
    {83, 65},
    {86, 10},
    {87, 103},
    {88, 111},
    {96, 76},
    {97, keycode::RightControl},
    {98, 75},
    {100, keycode::RightOption},
    {102, 115},
    {103, 126},
    {104, 116},
    {105, 123},
    {106, 124},
    {107, 119},
    {108, 125},
    {109, 121},
    {110, keycode::Insert},
    {111, 117},
    {113, 74},
    {114, 73},
    {115, 72},
    {117, 81},
    {125, keycode::LeftCommand},
    {126, keycode::RightCommand},
    {127, keycode::Fn},
    {183, 105},
    {184, 107},
    {185, 113},
    {186, 106},
    {187, 64},
    {188, 79},
    {189, 80},
    {190, 90},
};

} // namespace

uint16_t codeForEvdevKey(int evdevCode) {
    for (const auto& [evdev, code] : positionCodes)
        if (evdev == evdevCode) return code;
    return 0xFFFF;
}

namespace {
// Device bits of the left keys, beside the right ones the vocabulary names.
constexpr uint64_t LeftControlDown = 0x1;
constexpr uint64_t LeftShiftDown = 0x2;
constexpr uint64_t RightShiftDown = 0x4;
constexpr uint64_t LeftCommandDown = 0x8;
constexpr uint64_t LeftOptionDown = 0x20;
} // namespace

int evdevKeyFor(uint16_t code) {
    for (const auto& [evdev, c] : positionCodes)
        if (c == code) return evdev;
    return -1;
}

bool isModifierKey(uint16_t code) {
    return code >= keycode::RightCommand && code <= keycode::Fn;
}

uint64_t flagsOfModifierKey(uint16_t code) {
    switch (code) {
    case keycode::LeftShift:
        return modifier::Shift | LeftShiftDown;
    case keycode::RightShift:
        return modifier::Shift | RightShiftDown;
    case keycode::LeftControl:
        return modifier::Control | LeftControlDown;
    case keycode::RightControl:
        return modifier::Control | modifier::RightControlDown;
    case keycode::LeftOption:
        return modifier::Option | LeftOptionDown;
    case keycode::RightOption:
        return modifier::Option | modifier::RightOptionDown;
    case keycode::LeftCommand:
        return modifier::Command | LeftCommandDown;
    case keycode::RightCommand:
        return modifier::Command | modifier::RightCommandDown;
    case keycode::Fn:
        return modifier::FnDown;
    default:
        return 0; // Caps Lock is a lock, not a held modifier
    }
}

void ModifierState::press(int key, uint16_t code) {
    held_[key] = code;
}

void ModifierState::release(int key) {
    held_.erase(key);
}

uint64_t ModifierState::flags() const {
    uint64_t flags = 0;
    for (const auto& [kc, code] : held_)
        flags |= flagsOfModifierKey(code);
    return flags;
}

} // namespace ombry
