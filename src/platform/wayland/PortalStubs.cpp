// Stand-ins until the portals are spoken: nothing is offered.
#include "platform/wayland/WaylandPlatform.h"

namespace ombry::wayland {

PortalOffer probePortals() {
    return {};
}
std::unique_ptr<GlobalShortcuts> makePortalShortcuts() {
    return nullptr;
}
std::unique_ptr<KeyPoster> makeRemoteDesktopPoster(const QString&) {
    return nullptr;
}

} // namespace ombry::wayland
