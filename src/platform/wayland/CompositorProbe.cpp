#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandPlatform.h"

namespace ombry::wayland {

std::optional<CompositorGlobals> probeCompositor() {
    if (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) return std::nullopt;
    Connection connection;
    if (!connection.open(1000)) return std::nullopt;
    CompositorGlobals out;
    out.virtualKeyboard = connection.global("zwp_virtual_keyboard_manager_v1") != nullptr;
    // ext data-control has PRIMARY from its first version, the wlr one it renames from version 2.
    const bool ext = connection.global("ext_data_control_manager_v1") != nullptr;
    const Connection::Global* wlr = connection.global("zwlr_data_control_manager_v1");
    out.dataControl = ext || wlr;
    out.dataControlPrimary = ext || (wlr && wlr->version >= 2);
    out.layerShell = connection.global("zwlr_layer_shell_v1") != nullptr;
    return out;
}

} // namespace ombry::wayland
