#pragma once

#include "platform/Platform.h"

#include <QString>
#include <memory>
#include <optional>

// The services of a Wayland session. No client may see other clients' keys or windows there,
// so each service goes through what the compositor or the desktop offers: protocols of the
// compositor (virtual keyboard, data-control, layer-shell), the XDG desktop portals on the
// session bus, and the compositors' own IPC. Making one is cheap and connects to nothing: each
// connects when it is first used.
namespace ombry::wayland {

// The compositor's globals the program can use; nullopt when no compositor answers.
struct CompositorGlobals {
    bool virtualKeyboard = false;    // zwp_virtual_keyboard_manager_v1
    bool dataControl = false;        // zwlr_data_control_manager_v1 or ext_data_control_manager_v1
    bool dataControlPrimary = false; // ... at a version that carries PRIMARY
    bool layerShell = false;         // zwlr_layer_shell_v1
};
std::optional<CompositorGlobals> probeCompositor();

// Keys posted through the compositor's virtual-keyboard protocol, with the user's keymap.
std::unique_ptr<KeyPoster> makeVirtualKeyboard();
// CLIPBOARD (and PRIMARY where offered) through data-control, without focus.
std::unique_ptr<Clipboard> makeDataControlClipboard();
// The dictation strip or the result card on a layer-shell surface of its own connection (above
// the windows, no keyboard); null when the compositor has no layer shell.
std::unique_ptr<OverlaySurface>
makeLayerSurface(OverlaySurface::Role role = OverlaySurface::Role::Strip);
// The focused window as sway's IPC (SWAYSOCK) or Hyprland's socket says; nullopt when neither
// answers.
std::optional<AppWindow> swayFocused();
std::optional<AppWindow> hyprlandActive();

// The desktop portals on the session bus.
struct PortalOffer {
    bool globalShortcuts = false;
    int remoteDesktopVersion = 0; // 0: none
    bool clipboard = false;
};
PortalOffer probePortals();
// The GlobalShortcuts portal.
std::unique_ptr<GlobalShortcuts> makePortalShortcuts();
// The program's one RemoteDesktop session, shared by the poster that opens it and the clipboard
// that works inside it: the Clipboard portal has no session of its own, and its access is asked
// for (RequestClipboard) before the session starts.
struct RemoteDesktopSession {
    bool askClipboard = false;            // set before the start: ask for the clipboard too
    QString handle;                       // the started session; empty while there is none
    std::optional<bool> clipboardEnabled; // Start's answer, where the clipboard was asked for
    bool clipboardUsable() const { return !handle.isEmpty() && clipboardEnabled == true; }
};
// Keys posted through the RemoteDesktop portal, keyboard only. The restore token is kept in
// tokenFile (mode 0600) where the portal gives one, so the desktop asks only once. The session
// is told in shared, where given.
std::unique_ptr<KeyPoster>
makeRemoteDesktopPoster(const QString& tokenFile,
                        std::shared_ptr<RemoteDesktopSession> shared = nullptr);
// CLIPBOARD through the Clipboard portal, inside the shared RemoteDesktop session (no PRIMARY):
// empty, and setting nothing, until that session has started with the clipboard granted.
std::unique_ptr<Clipboard> makePortalClipboard(std::shared_ptr<RemoteDesktopSession> shared);

// The services of the session as Platform installs them: each takes the road the session
// offers (SessionRoads), found at its first use.
// The keyboard hook: no Wayland client sees the keys of others; the key comes from the desktop,
// or from the keyboard devices where the user chose it.
std::unique_ptr<KeyboardHook> makeKeyboardHook(DisplaySession& session);
// The poster and the clipboard share the RemoteDesktop session where both take the portal; the
// poster tells the session's roads whether the desktop granted the clipboard.
std::unique_ptr<KeyPoster> makeKeyPoster(DisplaySession& session,
                                         std::shared_ptr<RemoteDesktopSession> remote);
std::unique_ptr<Clipboard> makeClipboard(DisplaySession& session,
                                         std::shared_ptr<RemoteDesktopSession> remote);
// The window in front: the accessibility bus, then sway's or Hyprland's IPC.
std::unique_ptr<Windows> makeWindows(Accessibility& accessibility);

} // namespace ombry::wayland
