#pragma once

#include "platform/Desktop.h"

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <optional>

// The window in front as the compositors' own IPC tells it: sway's (the i3 protocol on
// SWAYSOCK) and Hyprland's (its request socket). The replies are read by plain functions, the
// sockets spoken to with a deadline.
namespace ombry::wayland {

struct FocusedWindow {
    uint64_t id = 0;  // sway's node id, Hyprland's window address
    QString appId;    // the Wayland app_id (Hyprland: class); empty for an X11 window
    QString x11Class; // WM_CLASS class of an XWayland window
    QString x11Instance;
    QString title;
    int64_t pid = 0;
};

// The focused window of sway's GET_TREE reply; nullopt when the focus is on no window (an
// empty workspace) or the reply is not a tree.
std::optional<FocusedWindow> focusedInSwayTree(const QByteArray& json);
// Hyprland's reply to "j/activewindow"; nullopt when no window is active ("{}").
std::optional<FocusedWindow> hyprlandActiveWindow(const QByteArray& json);
// The window as the program remembers it: the desktop file of its application gives the id
// and the name where one matches; else the app_id (an X11 class in lower case) and the title.
AppWindow toAppWindow(const FocusedWindow& window);

// One request of the i3 IPC (a message type and its payload) and its reply's payload.
std::optional<QByteArray> swayRequest(const QString& socketPath, uint32_t type,
                                      const QByteArray& payload, int timeoutMs);
// One request to Hyprland's socket, answered then closed by Hyprland.
std::optional<QByteArray> hyprlandRequest(const QString& socketPath, const QByteArray& request,
                                          int timeoutMs);

} // namespace ombry::wayland
