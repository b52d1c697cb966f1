#pragma once

#include "platform/Desktop.h"
#include "platform/linux/DesktopFiles.h"
#include "platform/x11/X11Display.h"

namespace ombry::x11 {

// The window in front and its application, from the window manager's EWMH properties on a
// connection of its own: _NET_ACTIVE_WINDOW, WM_CLASS, _NET_WM_PID, _GTK_APPLICATION_ID, and the
// desktop files for the application's id and name.
class X11Windows final : public Windows {
public:
    std::optional<AppWindow> frontmost() override;
    bool activate(const AppWindow& window) override;
    QString applicationName(int64_t pid) override;
    void keepOnAllWorkspaces(uint64_t window) override;

private:
    bool ensureConnected();

    x11::Connection connection_;
    linux_platform::DesktopFiles desktopFiles_;
};

} // namespace ombry::x11
