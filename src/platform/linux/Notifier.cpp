#include "platform/linux/LinuxPlatform.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QStringList>
#include <QVariantMap>

namespace ombry::linux_platform {
namespace {

// freedesktop notifications on the session bus. The message is built by hand rather than
// through QDBusInterface, which would introspect the service with a blocking call. The call
// is sent without waiting for the reply: a missing bus or notification daemon costs nothing
// and shows nothing. QDBusConnection is thread-safe, so post() may be called from any thread.
// Servers read the body as markup (a subset of XML): "<" and "&" of the text would start a
// tag or an entity and vanish. The three characters are written as entities.
QString markupEscaped(QString body) {
    return body.replace(QLatin1Char('&'), QLatin1String("&amp;"))
        .replace(QLatin1Char('<'), QLatin1String("&lt;"))
        .replace(QLatin1Char('>'), QLatin1String("&gt;"));
}

class DBusNotifier final : public Notifier {
public:
    void post(const QString& title, const QString& body) override {
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (!bus.isConnected()) return;
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.Notifications"),
            QStringLiteral("/org/freedesktop/Notifications"),
            QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
        call << QStringLiteral("Ombry Voice")                 // app_name
             << uint(0)                                       // replaces_id: a new notification
             << QStringLiteral("ombry-voice")                 // app_icon
             << title << markupEscaped(body) << QStringList() // actions
             << QVariantMap()                                 // hints
             << int(-1); // expire_timeout: the server's default
        bus.asyncCall(call);
    }
};

} // namespace

std::unique_ptr<Notifier> makeNotifier() {
    return std::make_unique<DBusNotifier>();
}

} // namespace ombry::linux_platform
