#pragma once

#include "platform/Desktop.h"
#include "platform/KeyCodes.h"

#include <X11/Xlib.h>
#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>

// Translation between the X server's key codes and the program's key vocabulary, the modifier
// flags that the keyboard hook keeps from raw key events, and the ledger through which the hook
// recognises the keys that this process posted.
namespace ombry::x11 {

constexpr uint16_t NoKey = 0xFFFF;

// The vocabulary code of a key symbol of the unshifted level (a letter, Return, Alt_R…), or
// NoKey. Letters and named keys go by symbol, so Ctrl+A is Ctrl+A on every layout.
uint16_t codeForKeysym(unsigned long keysym);
// The vocabulary code of a key by its place on a PC keyboard (X key code = Linux evdev code + 8),
// or NoKey: the fallback for the keys whose symbol says nothing (the digits of AZERTY, the
// keypad, an é key), so that every physical key has a code.
uint16_t codeForPosition(int xkeycode);

// Both directions for the keyboard of one display; rebuilt when the server's mapping changes.
class KeyMap {
public:
    void rebuild(Display* display);
    uint16_t code(int xkeycode) const {
        return xkeycode >= 0 && xkeycode < 256 ? codes_[size_t(xkeycode)] : NoKey;
    }
    // Every X key code that gives this vocabulary code (a layout may have two).
    std::vector<int> keycodes(uint16_t code) const;
    // The key code to post for a vocabulary code, 0 when the keyboard has none.
    int keycodeToPost(uint16_t code) const;

private:
    std::array<uint16_t, 256> codes_{};
    std::map<uint16_t, int> post_;
};

using ombry::flagsOfModifierKey;
using ombry::isModifierKey;
using ombry::ModifierState;

// How one key event was posted by this process.
struct PostedKey {
    // Posted to lift a modifier that the user holds for the time of a posted key, or to put it
    // back: the user's keyboard did not change.
    bool transparent = false;
    // The modifier flags the application sees with this key, when they differ from the keys
    // the user holds (held modifiers lifted for it).
    std::optional<uint64_t> flags;
};

enum class KeyClaim {
    Foreign,     // not posted by this process
    Own,         // posted by this process
    Transparent, // posted by this process, with PostedKey::transparent
};
struct ClaimedKey {
    KeyClaim claim = KeyClaim::Foreign;
    std::optional<uint64_t> flags;
};

// The key events this process posted and has not yet seen come back through the hook. The
// poster writes each press and release before sending it; the hook claims the matching event
// when it arrives from the XTEST device. An entry older than the time-out is forgotten, so an
// event that never came back cannot mark a later key of another program.
class OwnKeyLedger {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds timeout{3000};
    static OwnKeyLedger& shared();

    void expect(int xkeycode, bool press, PostedKey how = {}, Clock::time_point now = Clock::now());
    // Claims the event; the entry and the older ones are dropped.
    ClaimedKey claim(int xkeycode, bool press, Clock::time_point now = Clock::now());
    size_t pending() const;

private:
    struct Entry {
        int keycode;
        bool press;
        PostedKey how;
        Clock::time_point at;
    };
    void expire(Clock::time_point now);
    mutable std::mutex mutex_;
    std::deque<Entry> entries_;
};

} // namespace ombry::x11
