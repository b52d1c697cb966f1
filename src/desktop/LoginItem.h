#pragma once

#include <QString>

// Starting with the session: an XDG autostart entry, ~/.config/autostart/ombry-voice.desktop
// (under $XDG_CONFIG_HOME), that starts this program when the user logs in.
namespace ombry::LoginItem {

// The entry's path.
QString path();
// Whether the entry is there and not switched off (Hidden=true or X-GNOME-Autostart-enabled=false).
bool isEnabled();

// Writes the entry (on) or removes it (off); journal line "démarrage auto: true|false", or
// "démarrage auto: {error}" when the file cannot be written or removed. Nothing is shown.
bool set(bool on);

// At the first start (no "loginItemSetOmbry" in the user defaults): stores true under that key
// and writes the entry. Later starts leave the user's choice alone.
void applyDefault();

// The entry's text for the program at `executable`.
QString entryText(const QString& executable);

inline constexpr const char* kAppliedKey = "loginItemSetOmbry";

} // namespace ombry::LoginItem
