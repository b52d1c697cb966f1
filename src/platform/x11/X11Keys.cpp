#include "platform/x11/X11Keys.h"

#include <X11/XF86keysym.h>
#include <X11/XKBlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <algorithm>

namespace ombry::x11 {

namespace {

struct SymbolCode {
    unsigned long keysym;
    uint16_t code;
};

// Named keys of the unshifted level. Letter codes follow the program's vocabulary (A 0, S 1…).
constexpr SymbolCode symbolCodes[] = {
    {XK_a, 0},
    {XK_s, 1},
    {XK_d, 2},
    {XK_f, 3},
    {XK_h, 4},
    {XK_g, 5},
    {XK_z, 6},
    {XK_x, 7},
    {XK_c, 8},
    {XK_v, 9},
    {XK_b, 11},
    {XK_q, 12},
    {XK_w, 13},
    {XK_e, 14},
    {XK_r, 15},
    {XK_y, 16},
    {XK_t, 17},
    {XK_1, 18},
    {XK_2, 19},
    {XK_3, 20},
    {XK_4, 21},
    {XK_6, 22},
    {XK_5, 23},
    {XK_equal, 24},
    {XK_9, 25},
    {XK_7, 26},
    {XK_minus, 27},
    {XK_8, 28},
    {XK_0, 29},
    {XK_bracketright, 30},
    {XK_o, 31},
    {XK_u, 32},
    {XK_bracketleft, 33},
    {XK_i, 34},
    {XK_p, 35},
    {XK_Return, keycode::Return},
    {XK_l, 37},
    {XK_j, 38},
    {XK_apostrophe, 39},
    {XK_k, 40},
    {XK_semicolon, 41},
    {XK_backslash, 42},
    {XK_comma, 43},
    {XK_slash, 44},
    {XK_n, 45},
    {XK_m, 46},
    {XK_period, 47},
    {XK_Tab, 48},
    {XK_ISO_Left_Tab, 48},
    {XK_space, 49},
    {XK_grave, 50},
    {XK_BackSpace, 51},
    {XK_Escape, keycode::Escape},
    {XK_Super_R, keycode::RightCommand},
    {XK_Super_L, keycode::LeftCommand},
    {XK_Shift_L, keycode::LeftShift},
    {XK_Caps_Lock, 57},
    {XK_Alt_L, keycode::LeftOption},
    {XK_Meta_L, keycode::LeftOption},
    {XK_Control_L, keycode::LeftControl},
    {XK_Shift_R, keycode::RightShift},
    {XK_Alt_R, keycode::RightOption},
    {XK_Meta_R, keycode::RightOption},
    {XK_ISO_Level3_Shift, keycode::RightOption}, // AltGr
    {XK_Control_R, keycode::RightControl},
    {XK_Menu, keycode::Fn},
    {XK_F1, 122},
    {XK_F2, 120},
    {XK_F3, 99},
    {XK_F4, 118},
    {XK_F5, 96},
    {XK_F6, 97},
    {XK_F7, 98},
    {XK_F8, 100},
    {XK_F9, 101},
    {XK_F10, 109},
    {XK_F11, 103},
    {XK_F12, 111},
    {XK_F13, 105},
    {XK_F14, 107},
    {XK_F15, 113},
    {XK_F16, 106},
    {XK_F17, 64},
    {XK_F18, 79},
    {XK_F19, 80},
    {XK_F20, 90},
    {XK_Insert, keycode::Insert},
    {XK_Help, keycode::Insert},
    {XK_Home, 115},
    {XK_Prior, 116},
    {XK_Delete, 117},
    {XK_End, 119},
    {XK_Next, 121},
    {XK_Left, 123},
    {XK_Right, 124},
    {XK_Down, 125},
    {XK_Up, 126},
    {XF86XK_AudioRaiseVolume, 72},
    {XF86XK_AudioLowerVolume, 73},
    {XF86XK_AudioMute, 74},
};

} // namespace

uint16_t codeForKeysym(unsigned long keysym) {
    for (const auto& entry : symbolCodes)
        if (entry.keysym == keysym) return entry.code;
    return NoKey;
}

uint16_t codeForPosition(int xkeycode) {
    return codeForEvdevKey(xkeycode - 8);
}

void KeyMap::rebuild(Display* display) {
    codes_.fill(NoKey);
    post_.clear();
    int minCode = 8, maxCode = 255;
    XDisplayKeycodes(display, &minCode, &maxCode);
    std::map<uint16_t, int> byPosition;
    for (int kc = std::max(minCode, 0); kc <= std::min(maxCode, 255); ++kc) {
        KeySym sym = XkbKeycodeToKeysym(display, KeyCode(kc), 0, 0);
        KeySym lower = sym, upper = sym;
        if (sym != NoSymbol) XConvertCase(sym, &lower, &upper);
        uint16_t code = lower != NoSymbol ? codeForKeysym(lower) : NoKey;
        if (code != NoKey) {
            // The first (lowest) key code carrying the symbol is the one to post.
            post_.try_emplace(code, kc);
        } else {
            code = codeForPosition(kc);
            if (code != NoKey) byPosition.try_emplace(code, kc);
        }
        codes_[size_t(kc)] = code;
    }
    for (const auto& [code, kc] : byPosition)
        post_.try_emplace(code, kc);
}

std::vector<int> KeyMap::keycodes(uint16_t code) const {
    std::vector<int> out;
    for (size_t kc = 0; kc < codes_.size(); ++kc)
        if (codes_[kc] == code) out.push_back(int(kc));
    return out;
}

int KeyMap::keycodeToPost(uint16_t code) const {
    const auto it = post_.find(code);
    return it == post_.end() ? 0 : it->second;
}

OwnKeyLedger& OwnKeyLedger::shared() {
    static OwnKeyLedger ledger;
    return ledger;
}

void OwnKeyLedger::expire(Clock::time_point now) {
    while (!entries_.empty() && now - entries_.front().at > timeout)
        entries_.pop_front();
}

void OwnKeyLedger::expect(int xkeycode, bool press, PostedKey how, Clock::time_point now) {
    std::lock_guard lock(mutex_);
    expire(now);
    entries_.push_back({xkeycode, press, how, now});
}

ClaimedKey OwnKeyLedger::claim(int xkeycode, bool press, Clock::time_point now) {
    std::lock_guard lock(mutex_);
    expire(now);
    const auto it = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& e) {
        return e.keycode == xkeycode && e.press == press;
    });
    if (it == entries_.end()) return {};
    const ClaimedKey claimed{it->how.transparent ? KeyClaim::Transparent : KeyClaim::Own,
                             it->how.flags};
    // The server delivers one connection's events in order: entries before this one will not
    // come any more (the hook was not listening yet).
    entries_.erase(entries_.begin(), it + 1);
    return claimed;
}

size_t OwnKeyLedger::pending() const {
    std::lock_guard lock(mutex_);
    return entries_.size();
}

} // namespace ombry::x11
