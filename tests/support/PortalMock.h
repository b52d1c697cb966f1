#pragma once

#include <QList>
#include <QPair>
#include <QProcess>
#include <QString>
#include <QVariantMap>

namespace ombry::test {

// The desktop portal played by python-dbusmock (portal_mock.py) on this process's session bus,
// which a SessionBus of the test started: GlobalShortcuts and RemoteDesktop answering at once,
// steered and read back by the test. The bus should start no service on demand, so that the
// real portal never takes the name between two mocks.
class PortalMock {
public:
    PortalMock() = default;
    ~PortalMock();
    PortalMock(const PortalMock&) = delete;
    PortalMock& operator=(const PortalMock&) = delete;

    // Whether Debian's python3 has dbusmock (python3-dbusmock).
    static bool installed();
    // Starts the mock with these settings (see portal_mock.py) and waits until it owns the
    // portal's name.
    bool start(const QVariantMap& settings = {});
    void stop();

    void configure(const QVariantMap& settings);
    // The shortcut's key goes down (Activated) or up (Deactivated).
    void press(const QString& id, bool down);
    void changeTrigger(const QString& id, const QString& trigger);
    // The desktop closes every RemoteDesktop session.
    void closeSessions();
    // Every NotifyKeyboardKeysym received: (keysym, state).
    QList<QPair<int, uint>> keysyms();
    // The options of the last call of a method ("RemoteDesktop.SelectDevices").
    QVariantMap lastOptions(const QString& method);

private:
    QProcess process_;
};

} // namespace ombry::test
