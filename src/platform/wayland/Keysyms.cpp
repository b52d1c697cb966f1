#include "platform/wayland/Keysyms.h"

#include "platform/Desktop.h"

#include <X11/keysym.h>

namespace ombry::wayland {

std::optional<uint32_t> keysymOfKey(uint16_t programKey) {
    switch (programKey) {
    case keycode::C:
        return XK_c;
    case keycode::V:
        return XK_v;
    case keycode::R:
        return XK_r;
    case keycode::Return:
        return XK_Return;
    case keycode::Escape:
        return XK_Escape;
    case keycode::Insert:
        return XK_Insert;
    case keycode::LeftShift:
        return XK_Shift_L;
    case keycode::RightShift:
        return XK_Shift_R;
    case keycode::LeftControl:
        return XK_Control_L;
    case keycode::RightControl:
        return XK_Control_R;
    case keycode::LeftOption:
        return XK_Alt_L;
    case keycode::RightOption:
        return XK_Alt_R;
    case keycode::LeftCommand:
        return XK_Super_L;
    case keycode::RightCommand:
        return XK_Super_R;
    case keycode::Fn:
        return XK_Menu;
    default:
        return std::nullopt;
    }
}

QList<uint32_t> keysymsOfModifiers(uint64_t modifiers) {
    QList<uint32_t> out;
    if (modifiers & modifier::Control) out << XK_Control_L;
    if (modifiers & modifier::Shift) out << XK_Shift_L;
    if (modifiers & modifier::Option) out << XK_Alt_L;
    if (modifiers & modifier::Command) out << XK_Super_L;
    return out;
}

QList<uint32_t> keysymsOfText(const QString& text) {
    QList<uint32_t> out;
    const QList<uint> codePoints = text.toUcs4();
    for (qsizetype i = 0; i < codePoints.size(); ++i) {
        const uint c = codePoints[i];
        if (c == '\r') {
            if (i + 1 < codePoints.size() && codePoints[i + 1] == '\n') continue;
            out << XK_Return;
        } else if (c == '\n') {
            out << XK_Return;
        } else if (c == '\t') {
            out << XK_Tab;
        } else if (c < 0x20 || (c >= 0x7f && c < 0xa0)) {
            continue;
        } else if (c <= 0xff) {
            out << c;
        } else {
            out << (0x01000000u + c);
        }
    }
    return out;
}

} // namespace ombry::wayland
