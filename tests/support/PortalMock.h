#pragma once

#include <QDBusMessage>
#include <QProcess>
#include <QVariantList>

namespace ombry::test {

// The desktop portal played by python-dbusmock (portal_mock.py) on this process's session bus,
// a SessionBus started without activation (the real portal never takes the name between two
// mocks): GlobalShortcuts and RemoteDesktop answering at once, steered and read back through
// call().
class PortalMock {
public:
    ~PortalMock() { stop(); }
    // Whether Debian's python3 has dbusmock (python3-dbusmock).
    static bool installed();
    // Starts the mock and waits until it owns the portal's name.
    bool start();
    void stop();
    // A method of the mock's steering interface (see portal_mock.py); the reply.
    QDBusMessage call(const QString& method, const QVariantList& args = {});

private:
    QProcess process_;
};

} // namespace ombry::test
