#include "platform/SessionProbe.h"

#include "platform/wayland/WaylandPlatform.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>
#include <optional>
#include <unistd.h>

namespace ombry {
namespace {

bool accessibilityBusThere() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return false;
    QDBusConnectionInterface* iface = bus.interface();
    if (!iface) return false;
    const QString name = QStringLiteral("org.a11y.Bus");
    if (iface->isServiceRegistered(name)) return true;
    const QDBusReply<QStringList> activatable =
        bus.call(QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                                QStringLiteral("/org/freedesktop/DBus"),
                                                QStringLiteral("org.freedesktop.DBus"),
                                                QStringLiteral("ListActivatableNames")),
                 QDBus::Block, 500);
    return activatable.isValid() && activatable.value().contains(name);
}

bool canReadKeyboards() {
    const QStringList events =
        QDir(QStringLiteral("/dev/input")).entryList({QStringLiteral("event*")}, QDir::System);
    for (const QString& e : events) {
        const QByteArray path = QFile::encodeName(QStringLiteral("/dev/input/") + e);
        if (::access(path.constData(), R_OK) == 0) return true;
    }
    return false;
}

class ProbedSession : public DisplaySession {
public:
    const SessionOffer& offer() override {
        if (!probed_) probe();
        return offer_;
    }
    void setChoices(bool evdev, bool uinput) override {
        offer();
        offer_.evdevChosen = evdev;
        offer_.uinputChosen = uinput;
    }

private:
    void probe() {
        probed_ = true;
        offer_.display = displayFromEnvironment();
        if (offer_.display != SessionOffer::Display::Wayland) return;
        offer_.desktop = desktopFromEnvironment();
        if (offer_.desktop == SessionOffer::Desktop::KDE)
            offer_.desktopVersion = qEnvironmentVariableIntValue("KDE_SESSION_VERSION");
        if (const std::optional<wayland::CompositorGlobals> g = wayland::probeCompositor()) {
            offer_.virtualKeyboard = g->virtualKeyboard;
            offer_.dataControl = g->dataControl;
            offer_.dataControlPrimary = g->dataControlPrimary;
            offer_.layerShell = g->layerShell;
        }
        const wayland::PortalOffer portals = wayland::probePortals();
        offer_.globalShortcutsPortal = portals.globalShortcuts;
        offer_.remoteDesktopPortalVersion = portals.remoteDesktopVersion;
        offer_.clipboardPortal = portals.clipboard;
        offer_.swayIpc = !qEnvironmentVariableIsEmpty("SWAYSOCK") &&
                         QFile::exists(qEnvironmentVariable("SWAYSOCK"));
        offer_.hyprlandIpc = !qEnvironmentVariableIsEmpty("HYPRLAND_INSTANCE_SIGNATURE");
        offer_.accessibilityBus = accessibilityBusThere();
        offer_.canReadInput = canReadKeyboards();
        offer_.canWriteUinput = ::access("/dev/uinput", W_OK) == 0;
    }

    bool probed_ = false;
    SessionOffer offer_;
};

class NoShortcuts : public GlobalShortcuts {
public:
    bool available() override { return false; }
    void bind(const QList<ShortcutRequest>&, Handler, BoundHandler onBound) override {
        if (onBound) onBound(false, QStringLiteral("raccourcis globaux indisponibles"));
    }
    void unbind() override {}
    QString trigger(const QString&) const override { return {}; }
};

} // namespace

std::unique_ptr<DisplaySession> makeDisplaySession() {
    return std::make_unique<ProbedSession>();
}

std::unique_ptr<GlobalShortcuts> makeNoShortcuts() {
    return std::make_unique<NoShortcuts>();
}

} // namespace ombry
