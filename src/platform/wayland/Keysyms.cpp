#include "platform/wayland/Keysyms.h"

#include "platform/Desktop.h"

#include <algorithm>

#include <QChar>
#include <X11/keysym.h>
#include <xkbcommon/xkbcommon.h>

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
        } else {
            // The symbol a layout names the character by ("EuroSign", "oe"), which is the one
            // a desktop finds on the user's keys; the Unicode form for the others.
            const xkb_keysym_t named = xkb_utf32_to_keysym(c);
            out << (named != XKB_KEY_NoSymbol ? named : 0x01000000u + c);
        }
    }
    return out;
}

namespace {

// What French typography uses and many layouts lack, with what a keyboard has instead.
QString plainerForm(uint c) {
    switch (c) {
    case 0x2018: // ‘ ’ ‚ ′
    case 0x2019:
    case 0x201A:
    case 0x2032:
        return QStringLiteral("'");
    case 0x201C: // “ ” „ « » ″
    case 0x201D:
    case 0x201E:
    case 0x00AB:
    case 0x00BB:
    case 0x2033:
        return QStringLiteral("\"");
    case 0x00A0: // no-break spaces, thin spaces
    case 0x202F:
    case 0x2009:
    case 0x2007:
        return QStringLiteral(" ");
    case 0x2010: // hyphens and dashes
    case 0x2011:
    case 0x2012:
    case 0x2013:
    case 0x2014:
    case 0x2212:
        return QStringLiteral("-");
    case 0x2026:
        return QStringLiteral("...");
    case 0x0153:
        return QStringLiteral("oe");
    case 0x0152:
        return QStringLiteral("OE");
    case 0x00E6:
        return QStringLiteral("ae");
    case 0x00C6:
        return QStringLiteral("AE");
    default:
        break;
    }
    // An accented letter without its accent (É as E, as French is often typed on AZERTY).
    const char32_t code = char32_t(c);
    const QString decomposed = QString::fromUcs4(&code, 1).normalized(QString::NormalizationForm_D);
    if (decomposed.size() > 1 && decomposed.at(0).unicode() < 0x80) return decomposed.left(1);
    return {};
}

} // namespace

std::optional<QList<uint32_t>> keysymsForLayout(const QString& text,
                                                const std::function<bool(uint32_t)>& onLayout) {
    QList<uint32_t> out;
    const auto fits = [&](const QList<uint32_t>& syms) {
        return std::all_of(syms.begin(), syms.end(), onLayout);
    };
    for (const uint c : text.toUcs4()) {
        const char32_t code = char32_t(c);
        const QString character = QString::fromUcs4(&code, 1);
        const QList<uint32_t> direct = keysymsOfText(character);
        if (fits(direct)) {
            out += direct;
            continue;
        }
        const QList<uint32_t> plainer = keysymsOfText(plainerForm(c));
        if (plainer.isEmpty() || !fits(plainer)) return std::nullopt;
        out += plainer;
    }
    return out;
}

} // namespace ombry::wayland
