#include "platform/wayland/Keymap.h"

#include "platform/Desktop.h"
#include "platform/KeyCodes.h"

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <xkbcommon/xkbcommon.h>

namespace ombry::wayland {

namespace {

// Marks the keymaps made for typing a text, in a way that survives the compositor's own
// serialisation of them (section names are kept).
constexpr const char* textSection = "ombry-texte";

std::shared_ptr<xkb_context> newContext() {
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (!context) return nullptr;
    return std::shared_ptr<xkb_context>(context, xkb_context_unref);
}

// The key of the program on a PC keyboard, tried first: a keymap may give the same keysym on
// keys that no keyboard has (AltGr's ISO_Level3_Shift on <LVL3> too). 0 when none.
uint32_t usualKey(uint16_t programKey) {
    for (int evdev = 1; evdev < 256; ++evdev)
        if (codeForEvdevKey(evdev) == programKey) return uint32_t(evdev);
    return 0;
}

// The keysyms that may give a key of the program, best first.
QList<xkb_keysym_t> keysymsOf(uint16_t programKey) {
    switch (programKey) {
    case keycode::C:
        return {XKB_KEY_c};
    case keycode::V:
        return {XKB_KEY_v};
    case keycode::R:
        return {XKB_KEY_r};
    case keycode::Return:
        return {XKB_KEY_Return};
    case keycode::Escape:
        return {XKB_KEY_Escape};
    case keycode::Insert:
        return {XKB_KEY_Insert};
    case keycode::LeftShift:
        return {XKB_KEY_Shift_L};
    case keycode::RightShift:
        return {XKB_KEY_Shift_R};
    case keycode::LeftControl:
        return {XKB_KEY_Control_L};
    case keycode::RightControl:
        return {XKB_KEY_Control_R};
    case keycode::LeftOption:
        return {XKB_KEY_Alt_L};
    case keycode::RightOption:
        return {XKB_KEY_Alt_R, XKB_KEY_ISO_Level3_Shift};
    case keycode::LeftCommand:
        return {XKB_KEY_Super_L};
    case keycode::RightCommand:
        return {XKB_KEY_Super_R};
    case keycode::Fn:
        return {XKB_KEY_Menu};
    default:
        return {};
    }
}

// The keysym of a character to type; NoSymbol for one that is not typed.
xkb_keysym_t keysymForCharacter(char32_t c) {
    if (c == U'\n') return XKB_KEY_Return;
    if (c == U'\t') return XKB_KEY_Tab;
    if (c < 0x20 || c == 0x7f) return XKB_KEY_NoSymbol;
    return xkb_utf32_to_keysym(c);
}

QByteArray textKeymap(const QList<xkb_keysym_t>& keysyms) {
    QByteArray codes, symbols;
    for (int i = 0; i < keysyms.size(); ++i) {
        const int code = 9 + i; // xkb key codes are evdev codes plus 8; 8 is the minimum
        char name[64];
        xkb_keysym_get_name(keysyms[i], name, sizeof name);
        codes += QByteArray("    <I") + QByteArray::number(code) +
                 "> = " + QByteArray::number(code) + ";\n";
        symbols +=
            QByteArray("    key <I") + QByteArray::number(code) + "> { [ " + name + " ] };\n";
    }
    QByteArray out = QByteArray("xkb_keymap {\nxkb_keycodes \"") + textSection +
                     "\" {\n    minimum = 8;\n    maximum = 255;\n" + codes + "};\nxkb_types \"" +
                     textSection + "\" { include \"complete\" };\n" + "xkb_compatibility \"" +
                     textSection + "\" { include \"complete\" };\n" + "xkb_symbols \"" +
                     textSection + "\" {\n" + symbols + "};\n};\n";
    out.append('\0');
    return out;
}

} // namespace

Keymap::~Keymap() {
    if (keymap_) xkb_keymap_unref(keymap_);
}

Keymap::Keymap(Keymap&& other) noexcept
    : context_(std::move(other.context_)), keymap_(std::exchange(other.keymap_, nullptr)) {}

Keymap& Keymap::operator=(Keymap&& other) noexcept {
    if (this != &other) {
        if (keymap_) xkb_keymap_unref(keymap_);
        context_ = std::move(other.context_);
        keymap_ = std::exchange(other.keymap_, nullptr);
    }
    return *this;
}

std::optional<Keymap> Keymap::fromText(const QByteArray& text) {
    Keymap out;
    out.context_ = newContext();
    if (!out.context_ || text.isEmpty()) return std::nullopt;
    // The compositor's text ends with a NUL; xkbcommon wants the length without it.
    const qsizetype length = text.endsWith('\0') ? text.size() - 1 : text.size();
    out.keymap_ =
        xkb_keymap_new_from_buffer(out.context_.get(), text.constData(), size_t(length),
                                   XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!out.keymap_) return std::nullopt;
    return out;
}

std::optional<Keymap> Keymap::fromDefaults() {
    Keymap out;
    out.context_ = newContext();
    if (!out.context_) return std::nullopt;
    out.keymap_ =
        xkb_keymap_new_from_names(out.context_.get(), nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!out.keymap_) return std::nullopt;
    return out;
}

std::optional<Keymap> Keymap::forPosting(const QByteArray& compositorText) {
    if (std::optional<Keymap> user = fromText(compositorText)) {
        if (!user->madeForText() && user->evdevKey(keycode::V) &&
            user->evdevKey(keycode::LeftControl) && user->modifierMask(modifier::Control))
            return user;
    }
    return fromDefaults();
}

std::optional<uint32_t> Keymap::evdevKey(uint16_t programKey) const {
    const auto gives = [this](xkb_keycode_t code, xkb_keysym_t wanted) {
        if (xkb_keymap_num_layouts_for_key(keymap_, code) == 0) return false;
        const xkb_keysym_t* syms = nullptr;
        const int count = xkb_keymap_key_get_syms_by_level(keymap_, code, 0, 0, &syms);
        return std::find(syms, syms + std::max(count, 0), wanted) != syms + std::max(count, 0);
    };
    const xkb_keycode_t min = std::max<xkb_keycode_t>(xkb_keymap_min_keycode(keymap_), 8);
    const xkb_keycode_t max = xkb_keymap_max_keycode(keymap_);
    const xkb_keycode_t usual = usualKey(programKey) + 8;
    for (const xkb_keysym_t wanted : keysymsOf(programKey)) {
        if (usual > 8 && usual >= min && usual <= max && gives(usual, wanted)) return usual - 8;
        for (xkb_keycode_t code = min; code <= max; ++code)
            if (gives(code, wanted)) return code - 8;
    }
    return std::nullopt;
}

bool Keymap::hasKeysym(uint32_t keysym) const {
    const xkb_keycode_t min = xkb_keymap_min_keycode(keymap_);
    const xkb_keycode_t max = xkb_keymap_max_keycode(keymap_);
    for (xkb_keycode_t code = min; code <= max; ++code) {
        const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(keymap_, code);
        for (xkb_layout_index_t layout = 0; layout < layouts; ++layout) {
            const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(keymap_, code, layout);
            for (xkb_level_index_t level = 0; level < levels; ++level) {
                const xkb_keysym_t* syms = nullptr;
                const int count =
                    xkb_keymap_key_get_syms_by_level(keymap_, code, layout, level, &syms);
                if (std::find(syms, syms + std::max(count, 0), keysym) != syms + std::max(count, 0))
                    return true;
            }
        }
    }
    return false;
}

uint32_t Keymap::modifierMask(uint64_t modifiers) const {
    uint32_t mask = 0;
    const auto add = [&](uint64_t flag, const char* name) {
        if (!(modifiers & flag)) return;
        const xkb_mod_index_t index = xkb_keymap_mod_get_index(keymap_, name);
        if (index != XKB_MOD_INVALID && index < 32) mask |= 1u << index;
    };
    add(modifier::Shift, XKB_MOD_NAME_SHIFT);
    add(modifier::Control, XKB_MOD_NAME_CTRL);
    add(modifier::Option, XKB_MOD_NAME_ALT);
    add(modifier::Command, XKB_MOD_NAME_LOGO);
    return mask;
}

QByteArray Keymap::text() const {
    char* text = xkb_keymap_get_as_string(keymap_, XKB_KEYMAP_FORMAT_TEXT_V1);
    if (!text) return {};
    QByteArray out(text);
    free(text);
    out.append('\0');
    return out;
}

bool Keymap::madeForText() const {
    return text().contains(QByteArray("xkb_keycodes \"") + textSection + '"');
}

QList<TextKeymap> keymapsForText(const QString& text, int maxKeys) {
    QList<TextKeymap> out;
    QList<xkb_keysym_t> keysyms;
    QList<uint32_t> keys;
    maxKeys = std::clamp(maxKeys, 1, 255 - 8); // the key codes of a text keymap are 9 to 255
    const auto flush = [&] {
        if (keys.isEmpty()) return;
        out.append({textKeymap(keysyms), keys});
        keysyms.clear();
        keys.clear();
    };
    for (const char32_t c : text.toUcs4()) {
        const xkb_keysym_t keysym = keysymForCharacter(c);
        if (keysym == XKB_KEY_NoSymbol) continue;
        qsizetype index = keysyms.indexOf(keysym);
        if (index < 0) {
            if (keysyms.size() == maxKeys) flush();
            keysyms.append(keysym);
            index = keysyms.size() - 1;
        }
        keys.append(uint32_t(9 + index - 8));
    }
    flush();
    return out;
}

} // namespace ombry::wayland
