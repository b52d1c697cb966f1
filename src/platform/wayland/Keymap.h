#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <cstdint>
#include <memory>
#include <optional>

struct xkb_context;
struct xkb_keymap;

namespace ombry::wayland {

// An XKB keymap as the compositor hands it out (text), compiled, with what posting the
// program's keys needs: the Linux key code (evdev) that gives each key of the program's
// vocabulary, and the modifier mask of its modifier flags.
class Keymap {
public:
    ~Keymap();
    Keymap(Keymap&&) noexcept;
    Keymap& operator=(Keymap&&) noexcept;

    // Compiles a keymap in the text format; nullopt when it does not compile.
    static std::optional<Keymap> fromText(const QByteArray& text);
    // The keymap of the XKB_DEFAULT_* environment, else the system's default (us).
    static std::optional<Keymap> fromDefaults();
    // The keymap to post with: the compositor's (the user's layout) when it has the keys the
    // program posts, else the default one. A compositor may hand out a keymap made for another
    // program's typing, with none of those keys.
    static std::optional<Keymap> forPosting(const QByteArray& compositorText);

    // The evdev code of the key that gives this key of the program (keycode::) on the first
    // level of the first layout; nullopt when the keymap has none.
    std::optional<uint32_t> evdevKey(uint16_t programKey) const;
    // Whether some key of some layout gives this symbol, at any level.
    bool hasKeysym(uint32_t keysym) const;
    // The depressed-modifiers mask of modifier:: flags (Control, Shift, Option, Command).
    uint32_t modifierMask(uint64_t modifiers) const;
    // The keymap as text, NUL-terminated, as a compositor takes it.
    QByteArray text() const;
    // Whether this keymap was made by keymapsForText() (the compositor hands such a keymap
    // back while it is in use: it is not the user's layout).
    bool madeForText() const;

private:
    Keymap() = default;
    std::shared_ptr<xkb_context> context_;
    xkb_keymap* keymap_ = nullptr;
};

// Keymaps for typing a text: each gives one key to each distinct character of a piece of the
// text (a piece has at most maxKeys of them), and the evdev codes to press in order.
// Line ends are Return, tabs Tab; other control characters are left out.
struct TextKeymap {
    QByteArray text; // NUL-terminated
    QList<uint32_t> keys;
};
QList<TextKeymap> keymapsForText(const QString& text, int maxKeys = 200);

// The keymap of the user's keyboard, as the compositor hands it to any client of the seat;
// nullopt without a compositor or a keyboard, or when it does not answer within timeoutMs.
std::optional<Keymap> seatKeymap(int timeoutMs);

} // namespace ombry::wayland
