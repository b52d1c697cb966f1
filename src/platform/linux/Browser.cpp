#include "platform/linux/LinuxPlatform.h"

#include <QDesktopServices>
#include <QGuiApplication>

namespace ombry::linux_platform {
namespace {

// Qt's own road to the user's browser: xdg-open on a plain desktop, the OpenURI portal inside a
// sandbox (Flatpak, Snap), where xdg-open cannot reach the host's browser.
class DesktopBrowser final : public Browser {
public:
    bool open(const QUrl& url) override {
        // Without a GUI application (the command-line modes) Qt has no platform to ask.
        if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance())) return false;
        return QDesktopServices::openUrl(url);
    }
};

} // namespace

std::unique_ptr<Browser> makeBrowser() {
    return std::make_unique<DesktopBrowser>();
}

} // namespace ombry::linux_platform
