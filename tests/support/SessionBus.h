#pragma once

#include <QProcess>
#include <QTemporaryDir>

namespace ombry::test {

// A private D-Bus session bus for a test, in a runtime folder of its own (0700), so that the
// accessibility bus that at-spi2-core launches on demand is the test's, never the user's.
// start() points this process's environment at it (DBUS_SESSION_BUS_ADDRESS, XDG_RUNTIME_DIR)
// and lets GTK join the accessibility bus (NO_AT_BRIDGE unset); programs started afterwards
// inherit both. Call it before the application object is made.
class SessionBus {
public:
    SessionBus() = default;
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    // With activation off the bus starts no service on demand: a name nobody owns stays
    // unowned (a mock of a desktop service is never raced by the real one).
    bool start(bool activation = true);
    // Writes the configuration of a session bus that listens at `listen` and starts no service.
    static bool writeConfig(const QString& path, const QString& listen);
    // Whether a name is owned on this process's session bus.
    static bool owned(const QString& name);

private:
    QTemporaryDir runtime_;
    QProcess daemon_;
};

} // namespace ombry::test
