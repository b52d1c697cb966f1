#pragma once

#include "platform/Desktop.h"

#include <cstdint>
#include <map>

// The keys of a PC keyboard in the program's vocabulary, whatever reads them: the X server
// (whose key codes are the Linux evdev codes plus 8) or the keyboard devices themselves.
namespace ombry {

// The vocabulary code of a key by its place on a PC keyboard (its Linux evdev code), or 0xFFFF.
uint16_t codeForEvdevKey(int evdevCode);

// The Linux evdev code of the key at the place of a vocabulary code, or -1 (the inverse of
// codeForEvdevKey).
int evdevKeyFor(uint16_t code);

// Whether a vocabulary code is a modifier key (its presses are flags-changed events).
bool isModifierKey(uint16_t code);
// The flags a held modifier key contributes: the modifier and its device bit.
uint64_t flagsOfModifierKey(uint16_t code);

// The modifiers held, kept from presses and releases since raw events carry no state.
class ModifierState {
public:
    void press(int key, uint16_t code);
    void release(int key);
    bool held(int key) const { return held_.count(key) > 0; }
    void clear() { held_.clear(); }
    uint64_t flags() const;

private:
    std::map<int, uint16_t> held_;
};

} // namespace ombry
