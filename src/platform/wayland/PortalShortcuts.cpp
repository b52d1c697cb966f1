// The desktop's global shortcuts through the XDG GlobalShortcuts portal.
#include "platform/wayland/Portal.h"
#include "platform/wayland/WaylandPlatform.h"

#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QPointer>
#include <QSet>

namespace ombry::wayland {
namespace {

using portal::Answer;

// The session's token is the same at every start: the desktop files the user's choice of keys
// under it, so the dialog shows once and a key changed in the desktop's settings stays.
const QString kSessionToken = QStringLiteral("ombry_voice");

QString failureMessage(const Answer& a) {
    switch (a.status) {
    case Answer::Status::Cancelled:
        return QStringLiteral("Raccourcis refusés : la demande a été annulée dans la fenêtre du "
                              "bureau.");
    case Answer::Status::Ended:
        return QStringLiteral("Le bureau a mis fin à la demande de raccourcis sans les lier.");
    case Answer::Status::Timeout:
        return QStringLiteral("Le bureau n'a pas répondu à la demande de raccourcis.");
    case Answer::Status::Error:
        if (a.noPortal())
            return QStringLiteral("Ce bureau n'offre pas le portail des raccourcis globaux.");
        return QStringLiteral("Le portail des raccourcis globaux a répondu par une erreur : %1")
            .arg(a.error.isEmpty() ? a.errorName : a.error);
    case Answer::Status::Ok:
        break;
    }
    return {};
}

class PortalShortcuts final : public QObject, public GlobalShortcuts {
    Q_OBJECT
public:
    PortalShortcuts() { portal::registerTypes(); }
    ~PortalShortcuts() override { closeSession(); }

    bool available() override {
        if (!available_) available_ = probePortals().globalShortcuts;
        return *available_;
    }

    void bind(const QList<ShortcutRequest>& shortcuts, Handler handler,
              BoundHandler onBound) override {
        reportBound(false, QStringLiteral("Raccourcis remplacés avant la réponse du bureau."));
        ++generation_;
        active_ = true;
        requests_ = shortcuts;
        handler_ = std::move(handler);
        onBound_ = std::move(onBound);
        held_.clear();
        listen();
        if (!running_) run();
    }

    void unbind() override {
        reportBound(false, QStringLiteral("Raccourcis retirés avant la réponse du bureau."));
        ++generation_;
        active_ = false;
        if (!running_) closeSession();
        requests_.clear();
        handler_ = nullptr;
        held_.clear();
        triggers_.clear();
    }

    QString trigger(const QString& id) const override { return triggers_.value(id); }

private slots:
    void onActivated(const QDBusMessage& m) { onKey(m, true); }
    void onDeactivated(const QDBusMessage& m) { onKey(m, false); }
    void onShortcutsChanged(const QDBusMessage& m) {
        const QVariantList args = m.arguments();
        if (args.size() < 2 || !ours(args.at(0))) return;
        keepTriggers(portal::shortcutsOf(args.at(1)));
    }

private:
    QDBusConnection bus() const { return QDBusConnection::sessionBus(); }

    // The portal's signals, listened to once, before the first call.
    void listen() {
        if (listening_) return;
        listening_ = true;
        QDBusConnection b = bus();
        b.connect(QString(), portal::kPath, portal::kGlobalShortcuts, QStringLiteral("Activated"),
                  this, SLOT(onActivated(QDBusMessage)));
        b.connect(QString(), portal::kPath, portal::kGlobalShortcuts, QStringLiteral("Deactivated"),
                  this, SLOT(onDeactivated(QDBusMessage)));
        b.connect(QString(), portal::kPath, portal::kGlobalShortcuts,
                  QStringLiteral("ShortcutsChanged"), this, SLOT(onShortcutsChanged(QDBusMessage)));
    }

    bool ours(const QVariant& sessionArgument) const {
        return !session_.isEmpty() && sessionArgument.value<QDBusObjectPath>().path() == session_;
    }

    // A press once per hold: the desktop repeats Activated while the keys stay down.
    void onKey(const QDBusMessage& m, bool pressed) {
        const QVariantList args = m.arguments();
        if (args.size() < 2 || !ours(args.at(0)) || !handler_) return;
        const QString id = args.at(1).toString();
        const auto request = std::find_if(requests_.cbegin(), requests_.cend(),
                                          [&](const ShortcutRequest& r) { return r.id == id; });
        if (request == requests_.cend()) return;
        if (pressed == held_.contains(id)) return;
        if (pressed)
            held_.insert(id);
        else
            held_.remove(id);
        const Handler handler = handler_; // the handler may bind again
        handler(request->action, pressed);
    }

    portal::Shortcuts portalShortcuts() const {
        portal::Shortcuts out;
        for (const ShortcutRequest& r : requests_) {
            QVariantMap properties{{QStringLiteral("description"), r.description}};
            if (!r.preferredTrigger.isEmpty())
                properties.insert(QStringLiteral("preferred_trigger"), r.preferredTrigger);
            out.append({r.id, properties});
        }
        return out;
    }

    void keepTriggers(const portal::Shortcuts& shortcuts) {
        for (const portal::Shortcut& s : shortcuts)
            triggers_.insert(s.id,
                             s.properties.value(QStringLiteral("trigger_description")).toString());
    }

    // CreateSession (once), BindShortcuts, and ListShortcuts where the answer named no
    // shortcut. Plasma 5.27 binds the shortcuts named in CreateSession's own "shortcuts"
    // option and answers BindShortcuts with an empty list: they go in both. One run at a time:
    // a bind() made meanwhile is taken up when the desktop has answered the former.
    QCoro::Task<void> run() {
        QPointer<PortalShortcuts> self(this);
        running_ = true;
        int generation = -1;
        while (active_ && generation != generation_) {
            generation = generation_;
            const QVariant shortcuts = QVariant::fromValue(portalShortcuts());
            if (session_.isEmpty()) {
                QVariantList args{QVariantMap{
                    {QStringLiteral("handle_token"), portal::newToken(QStringLiteral("ombry_gs"))},
                    {QStringLiteral("session_handle_token"), kSessionToken},
                    {QStringLiteral("shortcuts"), shortcuts}}};
                // Locals, not temporaries: GCC 12 destroys a temporary argument of an awaited
                // coroutine twice (a reference of the bus connection, here).
                const QDBusConnection connectionCreateSession = bus();
                const QString methodCreateSession = QStringLiteral("CreateSession");
                const Answer created = co_await portal::request(
                    connectionCreateSession, portal::kGlobalShortcuts, methodCreateSession, args);
                if (!self) co_return;
                if (created.ok()) session_ = portal::sessionHandleOf(created.results);
                if (generation != generation_) continue;
                if (!created.ok()) {
                    reportBound(false, failureMessage(created));
                    break;
                }
            }
            QVariantList bindArgs{QVariant::fromValue(QDBusObjectPath(session_)), shortcuts,
                                  QString(), QVariantMap()};
            // Locals, not temporaries: GCC 12 destroys a temporary argument of an awaited
            // coroutine twice (a reference of the bus connection, here).
            const QDBusConnection connectionBindShortcuts = bus();
            const QString methodBindShortcuts = QStringLiteral("BindShortcuts");
            const Answer bound = co_await portal::request(
                connectionBindShortcuts, portal::kGlobalShortcuts, methodBindShortcuts, bindArgs);
            if (!self) co_return;
            if (generation != generation_) continue;
            if (!bound.ok()) {
                reportBound(false, failureMessage(bound));
                break;
            }
            portal::Shortcuts given =
                portal::shortcutsOf(bound.results.value(QStringLiteral("shortcuts")));
            if (given.isEmpty()) {
                QVariantList listArgs{QVariant::fromValue(QDBusObjectPath(session_)),
                                      QVariantMap()};
                // Locals, not temporaries: GCC 12 destroys a temporary argument of an awaited
                // coroutine twice (a reference of the bus connection, here).
                const QDBusConnection connectionListShortcuts = bus();
                const QString methodListShortcuts = QStringLiteral("ListShortcuts");
                const Answer listed =
                    co_await portal::request(connectionListShortcuts, portal::kGlobalShortcuts,
                                             methodListShortcuts, listArgs);
                if (!self) co_return;
                if (generation != generation_) continue;
                given = portal::shortcutsOf(listed.results.value(QStringLiteral("shortcuts")));
            }
            triggers_.clear();
            keepTriggers(given);
            reportBound(true, QString());
        }
        running_ = false;
        if (!active_) closeSession();
    }

    void reportBound(bool ok, const QString& message) {
        if (!onBound_) return;
        const BoundHandler onBound = std::move(onBound_);
        onBound_ = nullptr;
        onBound(ok, message);
    }

    void closeSession() {
        if (session_.isEmpty()) return;
        bus().asyncCall(QDBusMessage::createMethodCall(portal::kService, session_, portal::kSession,
                                                       QStringLiteral("Close")));
        session_.clear();
    }

    std::optional<bool> available_;
    bool listening_ = false;
    bool active_ = false;  // bound, or binding: unbind() ends it
    bool running_ = false; // a run() talks to the desktop
    int generation_ = 0;   // one more at each bind() and unbind()
    QList<ShortcutRequest> requests_;
    Handler handler_;
    BoundHandler onBound_;
    QString session_;
    QSet<QString> held_;
    QHash<QString, QString> triggers_;
};

} // namespace

std::unique_ptr<GlobalShortcuts> makePortalShortcuts() {
    return std::make_unique<PortalShortcuts>();
}

} // namespace ombry::wayland

#include "PortalShortcuts.moc"
