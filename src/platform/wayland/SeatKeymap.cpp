#include "platform/wayland/Keymap.h"
#include "platform/wayland/WaylandConnection.h"

#include <unistd.h>
#include <wayland-client.h>

namespace ombry::wayland {
namespace {

// What a keyboard of the seat says first: its keymap.
struct KeymapListener {
    QByteArray text;

    static void onKeymap(void* self, wl_keyboard*, uint32_t format, int32_t fd, uint32_t size) {
        if (format == WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1 && size > 0)
            static_cast<KeymapListener*>(self)->text = readShared(fd, size);
        close(fd);
    }
    static void onEnter(void*, wl_keyboard*, uint32_t, wl_surface*, wl_array*) {}
    static void onLeave(void*, wl_keyboard*, uint32_t, wl_surface*) {}
    static void onKey(void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t) {}
    static void onModifiers(void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
    }
    static void onRepeat(void*, wl_keyboard*, int32_t, int32_t) {}
    static constexpr wl_keyboard_listener listener = {onKeymap, onEnter,     onLeave,
                                                      onKey,    onModifiers, onRepeat};
};

} // namespace

std::optional<Keymap> seatKeymap(int timeoutMs) {
    Connection connection;
    const Deadline deadline(timeoutMs);
    if (!connection.open(deadline.remaining())) return std::nullopt;
    auto* seat = static_cast<wl_seat*>(connection.bind(&wl_seat_interface, 5));
    if (!seat) return std::nullopt;
    KeymapListener listener;
    wl_keyboard* keyboard = wl_seat_get_keyboard(seat);
    wl_keyboard_add_listener(keyboard, &KeymapListener::listener, &listener);
    connection.roundtrip(deadline.remaining());
    wl_keyboard_destroy(keyboard);
    wl_seat_destroy(seat);
    connection.close();
    if (listener.text.isEmpty()) return std::nullopt;
    return Keymap::fromText(listener.text);
}

} // namespace ombry::wayland
