// Keys posted through the compositor's virtual-keyboard protocol (wlroots compositors: sway,
// Hyprland, labwc...). The keyboard made here carries the user's keymap, as the seat hands it
// to every client, so that the application in front reads the keys in the user's layout.
#include "platform/wayland/Keymap.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandPlatform.h"

#include "virtual-keyboard-unstable-v1-client-protocol.h"

#include <chrono>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

namespace ombry::wayland {

namespace {

// The longest the compositor may take to take the keys; no key is lost past it, but post()
// then says it failed.
constexpr int answerMs = 1000;
// Requests sent before waiting for the compositor: the connection's buffer (4 KiB) must never
// fill, or libwayland drops the connection.
constexpr int keysPerRoundtrip = 40;

constexpr uint32_t pressed = WL_KEYBOARD_KEY_STATE_PRESSED;
constexpr uint32_t released = WL_KEYBOARD_KEY_STATE_RELEASED;

uint32_t timestamp() {
    using namespace std::chrono;
    return uint32_t(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

// A file holding these bytes, for the compositor to map; -1 on failure.
int sharedFile(const QByteArray& bytes) {
    const int fd = memfd_create("ombry-keymap", MFD_CLOEXEC);
    if (fd < 0) return -1;
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t n = write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        if (n <= 0) {
            close(fd);
            return -1;
        }
        written += n;
    }
    return fd;
}

class VirtualKeyboard final : public KeyPoster {
public:
    ~VirtualKeyboard() override { reset(); }

    bool post(uint16_t keyCode, uint64_t modifiers) override {
        if (!ready()) return false;
        const std::optional<uint32_t> key = keymap_->evdevKey(keyCode);
        if (!key) return false;
        const uint32_t time = timestamp();
        zwp_virtual_keyboard_v1_modifiers(keyboard_, keymap_->modifierMask(modifiers), 0, 0, 0);
        zwp_virtual_keyboard_v1_key(keyboard_, time, *key, pressed);
        zwp_virtual_keyboard_v1_key(keyboard_, time, *key, released);
        zwp_virtual_keyboard_v1_modifiers(keyboard_, 0, 0, 0, 0);
        return answered();
    }

    // A keymap made for the text's characters is put on the keyboard, its keys pressed, then
    // the user's keymap put back: the text comes out the same whatever the user's layout.
    bool typeText(const QString& text) override {
        if (!ready()) return false;
        const QList<TextKeymap> pieces = keymapsForText(text);
        bool ok = true;
        for (const TextKeymap& piece : pieces) {
            if (!upload(piece.text)) break;
            zwp_virtual_keyboard_v1_modifiers(keyboard_, 0, 0, 0, 0);
            int sent = 0;
            for (const uint32_t key : piece.keys) {
                const uint32_t time = timestamp();
                zwp_virtual_keyboard_v1_key(keyboard_, time, key, pressed);
                zwp_virtual_keyboard_v1_key(keyboard_, time, key, released);
                if (++sent % keysPerRoundtrip == 0 && !(ok = answered())) break;
            }
            if (!ok) break;
        }
        // The user's keys come out in the user's layout again.
        if (!connection_.failed()) ok = upload(keymap_->text()) && ok;
        return answered() && ok;
    }

private:
    // Connected, with a keyboard carrying the user's current keymap.
    bool ready() {
        if (connection_.isOpen() && connection_.failed()) reset();
        if (!connection_.isOpen() && !connect()) return false;
        connection_.dispatch(0); // a keymap sent since: the user changed layout
        if (!keymap_ || seatKeymapChanged_) {
            seatKeymapChanged_ = false;
            keymap_ = Keymap::forPosting(seatKeymap_);
            if (!keymap_ || !upload(keymap_->text())) {
                keymap_.reset();
                return false;
            }
        }
        return true;
    }

    bool connect() {
        if (!connection_.open(answerMs)) return false;
        manager_ = static_cast<zwp_virtual_keyboard_manager_v1*>(
            connection_.bind(&zwp_virtual_keyboard_manager_v1_interface, 1));
        seat_ = static_cast<wl_seat*>(connection_.bind(&wl_seat_interface, 5));
        if (!manager_ || !seat_) {
            reset();
            return false;
        }
        seatKeyboard_ = wl_seat_get_keyboard(seat_);
        wl_keyboard_add_listener(seatKeyboard_, &seatKeyboardListener, this);
        keyboard_ = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(manager_, seat_);
        // The seat's keymap comes at once, when it has a keyboard.
        if (!connection_.roundtrip(answerMs)) {
            reset();
            return false;
        }
        return true;
    }

    void reset() {
        if (keyboard_) zwp_virtual_keyboard_v1_destroy(keyboard_);
        if (seatKeyboard_) wl_keyboard_destroy(seatKeyboard_);
        if (seat_) wl_seat_destroy(seat_);
        if (manager_) zwp_virtual_keyboard_manager_v1_destroy(manager_);
        keyboard_ = nullptr;
        seatKeyboard_ = nullptr;
        seat_ = nullptr;
        manager_ = nullptr;
        connection_.close();
        keymap_.reset();
        uploaded_.clear();
        seatKeymap_.clear();
        seatKeymapChanged_ = false;
    }

    bool upload(const QByteArray& text) {
        const int fd = sharedFile(text);
        if (fd < 0) return false;
        zwp_virtual_keyboard_v1_keymap(keyboard_, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd,
                                       uint32_t(text.size()));
        close(fd); // libwayland sent a duplicate
        uploaded_ = text;
        return true;
    }

    // Waits until the compositor has the keys; a compositor gone is forgotten (the next
    // post connects again).
    bool answered() {
        const bool ok = connection_.roundtrip(answerMs);
        if (connection_.failed()) reset();
        return ok;
    }

    void seatKeymap(uint32_t format, int fd, uint32_t size) {
        const QByteArray text = format == WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1 && size > 0
                                    ? readShared(fd, size)
                                    : QByteArray();
        close(fd);
        // The seat hands out the keymap of the keyboard last used: ours too, with what it
        // was given here. Only another keyboard's keymap is the user's layout.
        if (text.isEmpty() || text == uploaded_) return;
        if (const std::optional<Keymap> map = Keymap::fromText(text); map && map->madeForText())
            return;
        if (text == seatKeymap_) return;
        seatKeymap_ = text;
        seatKeymapChanged_ = true;
    }

    static void onKeymap(void* self, wl_keyboard*, uint32_t format, int32_t fd, uint32_t size) {
        static_cast<VirtualKeyboard*>(self)->seatKeymap(format, fd, size);
    }
    static void onEnter(void*, wl_keyboard*, uint32_t, wl_surface*, wl_array*) {}
    static void onLeave(void*, wl_keyboard*, uint32_t, wl_surface*) {}
    static void onKey(void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t) {}
    static void onModifiers(void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
    }
    static void onRepeat(void*, wl_keyboard*, int32_t, int32_t) {}
    static constexpr wl_keyboard_listener seatKeyboardListener = {onKeymap, onEnter,     onLeave,
                                                                  onKey,    onModifiers, onRepeat};

    Connection connection_;
    zwp_virtual_keyboard_manager_v1* manager_ = nullptr;
    wl_seat* seat_ = nullptr;
    wl_keyboard* seatKeyboard_ = nullptr;         // tells the user's keymap
    zwp_virtual_keyboard_v1* keyboard_ = nullptr; // posts the keys
    QByteArray seatKeymap_;                       // the user's keymap as the seat last gave it
    bool seatKeymapChanged_ = false;
    QByteArray uploaded_; // the keymap our keyboard has now
    std::optional<Keymap> keymap_;
};

} // namespace

std::unique_ptr<KeyPoster> makeVirtualKeyboard() {
    return std::make_unique<VirtualKeyboard>();
}

} // namespace ombry::wayland
