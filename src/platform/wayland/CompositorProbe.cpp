#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandPlatform.h"

namespace ombry::wayland {

std::optional<CompositorGlobals> probeCompositor() {
    if (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) return std::nullopt;
    Connection connection;
    if (!connection.open(1000)) return std::nullopt;
    CompositorGlobals out;
    out.virtualKeyboard = connection.global("zwp_virtual_keyboard_manager_v1") != nullptr;
    // Only the wlr protocol is spoken (ext_data_control_manager_v1 is the same one renamed, in
    // wayland-protocols newer than this system's): a compositor that offers ext alone is told
    // as having none. PRIMARY came with version 2.
    const Connection::Global* wlr = connection.global("zwlr_data_control_manager_v1");
    out.dataControl = wlr != nullptr;
    out.dataControlPrimary = wlr && wlr->version >= 2;
    out.layerShell = connection.global("zwlr_layer_shell_v1") != nullptr;
    return out;
}

} // namespace ombry::wayland
