#pragma once

#include <QCoroTask>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QVariantMap>
#include <chrono>

// The plumbing shared by the clients of the XDG desktop portals: the portal's names, the
// Request objects through which every call answers, the tokens that name requests and
// sessions, and the shortcut lists of the GlobalShortcuts interface.
namespace ombry::wayland::portal {

inline const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
inline const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
inline const QString kGlobalShortcuts = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
inline const QString kRemoteDesktop = QStringLiteral("org.freedesktop.portal.RemoteDesktop");
inline const QString kClipboard = QStringLiteral("org.freedesktop.portal.Clipboard");
inline const QString kRequest = QStringLiteral("org.freedesktop.portal.Request");
inline const QString kSession = QStringLiteral("org.freedesktop.portal.Session");

// How long the desktop may keep a request open: it may show a dialog to the user.
inline constexpr std::chrono::milliseconds kDialogTimeout{30000};

// The answer of one portal request.
struct Answer {
    enum class Status {
        Ok,        // response 0
        Cancelled, // response 1: the user said no
        Ended,     // response 2: the desktop ended the request otherwise
        Error,     // the call itself failed (no portal, a D-Bus error)
        Timeout,   // no response in time
    };
    Status status = Status::Error;
    QVariantMap results;
    QString errorName; // the D-Bus error's name, for Error
    QString error;     // the D-Bus error's text, for Error
    bool ok() const { return status == Status::Ok; }
    // The desktop has no portal at all (no service, or no such interface).
    bool noPortal() const;
};

// A token for a request or a session, valid as an object path element: the prefix and a
// number that is new in this process.
QString newToken(const QString& prefix);

// The object path the portal gives a request or a session that this connection names with
// token: /org/freedesktop/portal/desktop/{request,session}/SENDER/TOKEN, SENDER being the
// connection's unique name without its colon and with its dots made underscores.
QString requestPath(const QDBusConnection& bus, const QString& token);
QString sessionPath(const QDBusConnection& bus, const QString& token);

// Calls a method of the portal that answers through a Request object. The last argument is
// the options map, whose "handle_token" names the request (one is added when missing). The
// Response signal is listened to before the call goes out, so that a quick answer is not
// missed, and at the path the portal returns when that differs from the expected one.
QCoro::Task<Answer> request(QDBusConnection bus, QString interface, QString method,
                            QVariantList args, std::chrono::milliseconds timeout = kDialogTimeout);

// A session handle out of a results map: the portals give it as a string or an object path.
QString sessionHandleOf(const QVariantMap& results);

// One shortcut as the GlobalShortcuts interface carries it: (sa{sv}).
struct Shortcut {
    QString id;
    QVariantMap properties; // description, preferred_trigger; trigger_description in answers
};
using Shortcuts = QList<Shortcut>;
// Registers the D-Bus type of Shortcuts; safe to call more than once.
void registerTypes();
// The shortcuts of a results map or a signal argument (a(sa{sv})); empty when it has none.
Shortcuts shortcutsOf(const QVariant& value);

} // namespace ombry::wayland::portal

Q_DECLARE_METATYPE(ombry::wayland::portal::Shortcut)
