#pragma once

#include <QList>
#include <QString>
#include <cstdint>
#include <functional>
#include <optional>

// The X key symbols that name keys and characters to the desktop where keys are sent by
// symbol (the RemoteDesktop portal's NotifyKeyboardKeysym): the desktop finds the key that
// gives the symbol on the user's layout.
namespace ombry::wayland {

// The symbol of a key of the program's vocabulary (keycode::) that the program posts: the
// letters of copy, paste and redo, Return, Escape, Insert and the modifier keys; nullopt for
// any other key.
std::optional<uint32_t> keysymOfKey(uint16_t programKey);
// The symbols of the left modifier keys held for modifier:: flags, in the order they are
// pressed: Control, Shift, Alt, Super.
QList<uint32_t> keysymsOfModifiers(uint64_t modifiers);
// The symbol of each character of a text: the one layouts name it by (Latin-1 by its own
// code, "EuroSign", "oe"…), else 0x01000000 + its code point; a line end is Return (CR LF
// once), a tab Tab; other control characters are left out.
QList<uint32_t> keysymsOfText(const QString& text);

// The symbols that type the text on a layout that gives the symbols onLayout() accepts. A
// character the layout lacks goes in its plainer form (’ as ', « » as ", a no-break space as
// a space, œ as oe, ô or É without the accent). Dead keys are not used: on GNOME what they
// compose reaches the application by another road than the keys, and out of order. Nullopt
// when a character has no form the layout gives: such a text cannot be typed without losing
// some of it.
std::optional<QList<uint32_t>> keysymsForLayout(const QString& text,
                                                const std::function<bool(uint32_t)>& onLayout);

} // namespace ombry::wayland
