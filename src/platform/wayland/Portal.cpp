#include "platform/wayland/Portal.h"

#include "platform/wayland/WaylandPlatform.h"

#include <QCoroDBusPendingCall>
#include <QCoroSignal>
#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QElapsedTimer>
#include <atomic>

namespace ombry::wayland::portal {

QDBusArgument& operator<<(QDBusArgument& arg, const Shortcut& s) {
    arg.beginStructure();
    arg << s.id << s.properties;
    arg.endStructure();
    return arg;
}

const QDBusArgument& operator>>(const QDBusArgument& arg, Shortcut& s) {
    arg.beginStructure();
    arg >> s.id >> s.properties;
    arg.endStructure();
    return arg;
}

namespace {

const QString kProperties = QStringLiteral("org.freedesktop.DBus.Properties");

// Listens to the Response signal of one request object and keeps the first answer.
class ResponseWatch : public QObject {
    Q_OBJECT
public:
    explicit ResponseWatch(QDBusConnection bus) : bus_(std::move(bus)) {}
    ~ResponseWatch() override { unwatch(); }

    void watch(const QString& path) {
        unwatch();
        path_ = path;
        bus_.connect(QString(), path_, kRequest, QStringLiteral("Response"), this,
                     SLOT(onResponse(QDBusMessage)));
    }
    const QString& path() const { return path_; }
    bool answered() const { return answered_; }
    uint code() const { return code_; }
    const QVariantMap& results() const { return results_; }

signals:
    void answeredNow();

private slots:
    void onResponse(const QDBusMessage& message) {
        const QVariantList args = message.arguments();
        if (answered_ || args.size() < 2) return;
        answered_ = true;
        code_ = args.at(0).toUInt();
        results_ = qdbus_cast<QVariantMap>(args.at(1));
        emit answeredNow();
    }

private:
    void unwatch() {
        if (path_.isEmpty()) return;
        bus_.disconnect(QString(), path_, kRequest, QStringLiteral("Response"), this,
                        SLOT(onResponse(QDBusMessage)));
        path_.clear();
    }

    QDBusConnection bus_;
    QString path_;
    bool answered_ = false;
    uint code_ = 2;
    QVariantMap results_;
};

QString senderElement(const QDBusConnection& bus) {
    QString sender = bus.baseService();
    if (sender.startsWith(QLatin1Char(':'))) sender.remove(0, 1);
    return sender.replace(QLatin1Char('.'), QLatin1Char('_'));
}

Answer errorAnswer(const QDBusMessage& reply) {
    Answer a;
    a.status = Answer::Status::Error;
    a.errorName = reply.errorName();
    a.error = reply.errorMessage();
    return a;
}

} // namespace

bool Answer::noPortal() const {
    if (status != Status::Error) return false;
    static const QStringList absent = {
        QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown"),
        QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner"),
        QStringLiteral("org.freedesktop.DBus.Error.UnknownInterface"),
        QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"),
        QStringLiteral("org.freedesktop.DBus.Error.UnknownObject"),
        QStringLiteral("org.freedesktop.DBus.Error.Disconnected"),
    };
    return absent.contains(errorName);
}

QString newToken(const QString& prefix) {
    static std::atomic<int> counter{0};
    return prefix + QLatin1Char('_') + QString::number(++counter);
}

QString requestPath(const QDBusConnection& bus, const QString& token) {
    return kPath + QStringLiteral("/request/") + senderElement(bus) + QLatin1Char('/') + token;
}

QString sessionPath(const QDBusConnection& bus, const QString& token) {
    return kPath + QStringLiteral("/session/") + senderElement(bus) + QLatin1Char('/') + token;
}

QCoro::Task<Answer> request(QDBusConnection bus, QString interface, QString method,
                            QVariantList args, std::chrono::milliseconds timeout) {
    QVariantMap options = args.isEmpty() ? QVariantMap() : args.takeLast().toMap();
    QString token = options.value(QStringLiteral("handle_token")).toString();
    if (token.isEmpty()) {
        token = newToken(QStringLiteral("ombry"));
        options.insert(QStringLiteral("handle_token"), token);
    }
    args << options;

    ResponseWatch watch(bus);
    watch.watch(requestPath(bus, token));
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, interface, method);
    call.setArguments(args);
    const QDBusPendingCall pending = bus.asyncCall(call, int(timeout.count()));
    const QDBusMessage reply = co_await pending;
    if (reply.type() != QDBusMessage::ReplyMessage) co_return errorAnswer(reply);
    // Portals older than the predictable paths answer on a path of their own choosing.
    const QString path = reply.arguments().value(0).value<QDBusObjectPath>().path();
    if (!path.isEmpty() && path != watch.path() && !watch.answered()) watch.watch(path);
    if (!watch.answered()) co_await qCoro(&watch, &ResponseWatch::answeredNow, timeout);

    Answer answer;
    if (!watch.answered()) {
        // Closes the desktop's dialog, if it still shows one.
        bus.asyncCall(QDBusMessage::createMethodCall(kService, watch.path(), kRequest,
                                                     QStringLiteral("Close")));
        answer.status = Answer::Status::Timeout;
        co_return answer;
    }
    answer.status = watch.code() == 0   ? Answer::Status::Ok
                    : watch.code() == 1 ? Answer::Status::Cancelled
                                        : Answer::Status::Ended;
    answer.results = watch.results();
    co_return answer;
}

QString sessionHandleOf(const QVariantMap& results) {
    const QVariant v = results.value(QStringLiteral("session_handle"));
    if (v.canConvert<QDBusObjectPath>()) {
        const QString path = v.value<QDBusObjectPath>().path();
        if (!path.isEmpty()) return path;
    }
    return v.toString();
}

void registerTypes() {
    static const bool registered = [] {
        qDBusRegisterMetaType<Shortcut>();
        qDBusRegisterMetaType<Shortcuts>();
        return true;
    }();
    (void)registered;
}

Shortcuts shortcutsOf(const QVariant& value) {
    registerTypes();
    if (value.canConvert<QDBusArgument>()) return qdbus_cast<Shortcuts>(value);
    return value.value<Shortcuts>();
}

} // namespace ombry::wayland::portal

namespace ombry::wayland {

// Which portal interfaces the desktop offers: one Properties.Get of "version" for each, sent
// together. No bus or no portal give an empty offer. A portal started on demand at the
// session's start, on a busy machine, can take seconds to answer: when it has answered none of
// the three within the first second, it gets four more before the offer counts as empty.
PortalOffer probePortals() {
    using namespace portal;
    PortalOffer offer;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return offer;
    const auto ask = [&](int deadlineMs) {
        auto version = [&](const QString& interface) {
            QDBusMessage get =
                QDBusMessage::createMethodCall(kService, kPath, kProperties, QStringLiteral("Get"));
            get << interface << QStringLiteral("version");
            return bus.asyncCall(get, deadlineMs);
        };
        QList<QDBusPendingCall> calls{version(kGlobalShortcuts), version(kRemoteDesktop),
                                      version(kClipboard)};
        bool answered = false;
        QList<std::optional<uint>> values;
        for (QDBusPendingCall& call : calls) {
            call.waitForFinished();
            const QDBusMessage reply = call.reply();
            answered = answered ||
                       reply.errorName() != QLatin1String("org.freedesktop.DBus.Error.NoReply");
            if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
                values << std::nullopt;
            else
                values << reply.arguments().constFirst().value<QDBusVariant>().variant().toUInt();
        }
        offer.globalShortcuts = values[0].has_value();
        offer.remoteDesktopVersion = int(values[1].value_or(0));
        offer.clipboard = values[2].has_value();
        return answered;
    };
    if (!ask(900)) ask(4000);
    return offer;
}

} // namespace ombry::wayland

#include "Portal.moc"
