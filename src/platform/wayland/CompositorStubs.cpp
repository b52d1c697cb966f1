// Stand-ins until the compositor's protocols are spoken: nothing is offered.
#include "platform/wayland/WaylandPlatform.h"

namespace ombry::wayland {

std::optional<AppWindow> swayFocused() {
    return std::nullopt;
}
std::optional<AppWindow> hyprlandActive() {
    return std::nullopt;
}

} // namespace ombry::wayland
