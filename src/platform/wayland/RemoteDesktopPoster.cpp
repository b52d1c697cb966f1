// Keys sent through the XDG RemoteDesktop portal, keyboard only.
#include "platform/Paths.h"
#include "platform/wayland/Keymap.h"
#include "platform/wayland/Keysyms.h"
#include "platform/wayland/Portal.h"
#include "platform/wayland/WaylandPlatform.h"

#include <QCoroDBusPendingCall>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QFileInfo>
#include <QPointer>
#include <X11/keysym.h>

namespace ombry::wayland {
namespace {

using portal::Answer;

constexpr uint kKeyboard = 1; // device types: keyboard
constexpr uint kPersistUntilRevoked = 2;
constexpr qint64 kTokenMaxBytes = 4096;
constexpr int kEventTimeoutMs = 2000;
constexpr int kKeymapMs = 300; // the seat's keymap, asked before each text typed
constexpr int kRequestClipboardMs = 5000;

QString failureMessage(const Answer& a) {
    switch (a.status) {
    case Answer::Status::Cancelled:
        return QStringLiteral("Vous avez refusé qu'Ombry Voice envoie des touches : le texte dicté "
                              "ne peut pas être collé. Acceptez la demande du bureau à la "
                              "prochaine dictée.");
    case Answer::Status::Ended:
        return QStringLiteral("Le bureau a mis fin à la demande d'envoi de touches.");
    case Answer::Status::Timeout:
        return QStringLiteral("Le bureau n'a pas répondu à la demande d'envoi de touches.");
    case Answer::Status::Error:
        if (a.noPortal())
            return QStringLiteral("Ce bureau n'offre pas le portail « bureau à distance » : Ombry "
                                  "Voice ne peut pas y envoyer de touches.");
        return QStringLiteral("Le portail « bureau à distance » a répondu par une erreur : %1")
            .arg(a.error.isEmpty() ? a.errorName : a.error);
    case Answer::Status::Ok:
        break;
    }
    return {};
}

class RemoteDesktopPoster final : public QObject, public KeyPoster {
    Q_OBJECT
public:
    RemoteDesktopPoster(QString tokenFile, std::shared_ptr<RemoteDesktopSession> shared)
        : tokenFile_(std::move(tokenFile)), shared_(std::move(shared)) {}
    ~RemoteDesktopPoster() override { closeSession(); }

    bool post(uint16_t keyCode, uint64_t modifiers) override {
        const std::optional<uint32_t> key = keysymOfKey(keyCode);
        if (!started_ || !key) return false;
        const QList<uint32_t> held = keysymsOfModifiers(modifiers);
        for (const uint32_t m : held)
            send(m, true);
        send(*key, true);
        send(*key, false);
        for (auto m = held.crbegin(); m != held.crend(); ++m)
            send(*m, false);
        return true;
    }

    bool typeText(const QString& text) override {
        if (!started_) return false;
        // The desktop looks each symbol up on the user's layout and drops, unsaid, those it
        // finds no key for: the text goes in the keys the layout has (’ as ' where it lacks
        // one), or not at all, and then the caller shows it to be copied.
        QList<uint32_t> keysyms = keysymsOfText(text);
        if (const std::optional<Keymap> layout = seatKeymap(kKeymapMs)) {
            const std::optional<QList<uint32_t>> fitting =
                keysymsForLayout(text, [&](uint32_t keysym) { return layout->hasKeysym(keysym); });
            if (!fitting) return false;
            keysyms = *fitting;
        }
        for (const uint32_t keysym : keysyms) {
            send(keysym, true);
            send(keysym, false);
        }
        return true;
    }

    void prepare(ReadyHandler onReady) override {
        if (started_) {
            if (onReady) onReady(true, QString());
            return;
        }
        if (onReady) waiting_.append(std::move(onReady));
        if (!starting_) start();
    }

private slots:
    void onClosed(const QDBusMessage&) {
        // The desktop ended the session: the next prepare() asks for a new one.
        unwatchClosed();
        session_.clear();
        started_ = false;
        queue_.clear();
        tellShared();
    }

private:
    QDBusConnection bus() const { return QDBusConnection::sessionBus(); }

    // CreateSession, SelectDevices (the keyboard; kept until revoked where the interface has
    // restore tokens, with the token of the last time), Start; then the token given back is
    // kept for the next start.
    QCoro::Task<void> start() {
        QPointer<RemoteDesktopPoster> self(this);
        starting_ = true;
        QDBusMessage get = QDBusMessage::createMethodCall(
            portal::kService, portal::kPath, QStringLiteral("org.freedesktop.DBus.Properties"),
            QStringLiteral("Get"));
        get << portal::kRemoteDesktop << QStringLiteral("version");
        const QDBusPendingCall pending = bus().asyncCall(get, 5000);
        const QDBusMessage versionReply = co_await pending;
        if (!self) co_return;
        if (versionReply.type() != QDBusMessage::ReplyMessage) {
            // A portal that does not tell the interface's version has no RemoteDesktop.
            Answer failed;
            if (versionReply.errorName() == QLatin1String("org.freedesktop.DBus.Error.NoReply"))
                failed.status = Answer::Status::Timeout;
            failed.errorName = QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown");
            finish(false, failureMessage(failed));
            co_return;
        }
        const uint version =
            versionReply.arguments().value(0).value<QDBusVariant>().variant().toUInt();

        const QString sessionToken = portal::newToken(QStringLiteral("ombry_rd"));
        watchClosed(portal::sessionPath(bus(), sessionToken));
        QVariantList createArgs{QVariantMap{
            {QStringLiteral("handle_token"), portal::newToken(QStringLiteral("ombry_rd"))},
            {QStringLiteral("session_handle_token"), sessionToken}}};
        // Locals, not temporaries: GCC 12 destroys a temporary argument of an awaited
        // coroutine twice (a reference of the bus connection, here).
        const QDBusConnection connectionCreateSession = bus();
        const QString methodCreateSession = QStringLiteral("CreateSession");
        const Answer created = co_await portal::request(
            connectionCreateSession, portal::kRemoteDesktop, methodCreateSession, createArgs);
        if (!self) co_return;
        if (!created.ok()) {
            unwatchClosed();
            finish(false, failureMessage(created));
            co_return;
        }
        session_ = portal::sessionHandleOf(created.results);
        if (session_ != closedPath_) watchClosed(session_);

        QVariantMap devices{{QStringLiteral("types"), kKeyboard}};
        if (version >= 2) {
            devices.insert(QStringLiteral("persist_mode"), kPersistUntilRevoked);
            if (restoreToken_.isEmpty()) restoreToken_ = readToken();
            if (!restoreToken_.isEmpty())
                devices.insert(QStringLiteral("restore_token"), restoreToken_);
        }
        QVariantList selectArgs{QVariant::fromValue(QDBusObjectPath(session_)), devices};
        // Locals, not temporaries: GCC 12 destroys a temporary argument of an awaited
        // coroutine twice (a reference of the bus connection, here).
        const QDBusConnection connectionSelectDevices = bus();
        const QString methodSelectDevices = QStringLiteral("SelectDevices");
        const Answer selected = co_await portal::request(
            connectionSelectDevices, portal::kRemoteDesktop, methodSelectDevices, selectArgs);
        if (!self) co_return;
        if (!selected.ok()) {
            fail(failureMessage(selected));
            co_return;
        }

        // The clipboard is asked for inside this session, before its start; the dialog of the
        // start then offers it to the user.
        const bool askClipboard = shared_ && shared_->askClipboard;
        if (askClipboard) {
            QDBusMessage ask =
                QDBusMessage::createMethodCall(portal::kService, portal::kPath, portal::kClipboard,
                                               QStringLiteral("RequestClipboard"));
            ask << QVariant::fromValue(QDBusObjectPath(session_)) << QVariantMap();
            const QDBusPendingCall asking = bus().asyncCall(ask, kRequestClipboardMs);
            const QDBusMessage asked = co_await asking;
            if (!self) co_return;
            (void)asked; // a refusal shows in Start's answer
        }

        QVariantList startArgs{QVariant::fromValue(QDBusObjectPath(session_)), QString(),
                               QVariantMap()};
        // Locals, not temporaries: GCC 12 destroys a temporary argument of an awaited
        // coroutine twice (a reference of the bus connection, here).
        const QDBusConnection connectionStart = bus();
        const QString methodStart = QStringLiteral("Start");
        const Answer started = co_await portal::request(connectionStart, portal::kRemoteDesktop,
                                                        methodStart, startArgs);
        if (!self) co_return;
        if (!started.ok()) {
            fail(failureMessage(started));
            co_return;
        }
        if (session_.isEmpty()) { // closed by the desktop meanwhile
            finish(false, QStringLiteral("Le bureau a fermé la session d'envoi de touches."));
            co_return;
        }
        if (!(started.results.value(QStringLiteral("devices")).toUInt() & kKeyboard)) {
            fail(QStringLiteral("Le bureau n'a pas accordé le clavier à Ombry Voice."));
            co_return;
        }
        const QString token = started.results.value(QStringLiteral("restore_token")).toString();
        if (!token.isEmpty() && token != restoreToken_) {
            restoreToken_ = token;
            writeToken(token);
        }
        started_ = true;
        clipboardEnabled_ = std::nullopt;
        if (askClipboard)
            clipboardEnabled_ = started.results.value(QStringLiteral("clipboard_enabled")).toBool();
        tellShared();
        // mutter drops the first key of a session: a Shift alone changes nothing anywhere.
        send(XK_Shift_L, true);
        send(XK_Shift_L, false);
        finish(true, clipboardEnabled_ == false
                         ? QStringLiteral("le bureau n'a pas accordé le presse-papiers : le texte "
                                          "sera tapé touche par touche")
                         : QString());
    }

    // The session, and whether the clipboard works in it, for the clipboard that shares it.
    void tellShared() {
        if (!shared_) return;
        shared_->handle = started_ ? session_ : QString();
        shared_->clipboardEnabled = started_ ? clipboardEnabled_ : std::nullopt;
    }

    void fail(const QString& message) {
        closeSession();
        finish(false, message);
    }

    void finish(bool ok, const QString& message) {
        starting_ = false;
        const QList<ReadyHandler> waiting = std::move(waiting_);
        waiting_.clear();
        for (const ReadyHandler& onReady : waiting)
            onReady(ok, message);
    }

    // One event at a time, each after the portal's reply to the last: the portal handles its
    // calls on several threads, and events sent together reach the desktop out of order
    // (Plasma typed "djà véu" for "déjà vu"). Nothing blocks meanwhile.
    void send(uint32_t keysym, bool down) {
        queue_.append({session_, keysym, down});
        if (!sending_) pump();
    }

    QCoro::Task<void> pump() {
        QPointer<RemoteDesktopPoster> self(this);
        sending_ = true;
        while (!queue_.isEmpty()) {
            const Event e = queue_.takeFirst();
            QDBusMessage m = QDBusMessage::createMethodCall(portal::kService, portal::kPath,
                                                            portal::kRemoteDesktop,
                                                            QStringLiteral("NotifyKeyboardKeysym"));
            m << QVariant::fromValue(QDBusObjectPath(e.session)) << QVariantMap() << int(e.keysym)
              << uint(e.down ? 1 : 0);
            const QDBusPendingCall pending = bus().asyncCall(m, kEventTimeoutMs);
            const QDBusMessage reply = co_await pending;
            (void)reply;
            if (!self) co_return;
        }
        sending_ = false;
    }

    QString readToken() const {
        if (tokenFile_.isEmpty()) return {};
        const Paths::ReadResult r = Paths::readRegularFile(tokenFile_, kTokenMaxBytes);
        return r.ok() ? QString::fromUtf8(r.bytes).trimmed() : QString();
    }

    void writeToken(const QString& token) const {
        if (tokenFile_.isEmpty()) return;
        Paths::makePrivateFolder(QFileInfo(tokenFile_).absolutePath());
        Paths::writeFileAtomically(tokenFile_, token.toUtf8(), Paths::kPrivateFileMode);
    }

    void watchClosed(const QString& path) {
        unwatchClosed();
        closedPath_ = path;
        bus().connect(QString(), closedPath_, portal::kSession, QStringLiteral("Closed"), this,
                      SLOT(onClosed(QDBusMessage)));
    }

    void unwatchClosed() {
        if (closedPath_.isEmpty()) return;
        bus().disconnect(QString(), closedPath_, portal::kSession, QStringLiteral("Closed"), this,
                         SLOT(onClosed(QDBusMessage)));
        closedPath_.clear();
    }

    void closeSession() {
        unwatchClosed();
        started_ = false;
        queue_.clear();
        tellShared();
        if (session_.isEmpty()) return;
        bus().send(QDBusMessage::createMethodCall(portal::kService, session_, portal::kSession,
                                                  QStringLiteral("Close")));
        session_.clear();
    }

    QString tokenFile_;
    std::shared_ptr<RemoteDesktopSession> shared_;
    std::optional<bool> clipboardEnabled_; // Start's answer, where the clipboard was asked for
    QString restoreToken_;
    QString session_;
    QString closedPath_;
    bool starting_ = false;
    bool started_ = false;
    QList<ReadyHandler> waiting_;
    struct Event {
        QString session;
        uint32_t keysym = 0;
        bool down = false;
    };
    QList<Event> queue_;
    bool sending_ = false;
};

} // namespace

std::unique_ptr<KeyPoster> makeRemoteDesktopPoster(const QString& tokenFile,
                                                   std::shared_ptr<RemoteDesktopSession> shared) {
    return std::make_unique<RemoteDesktopPoster>(tokenFile, std::move(shared));
}

} // namespace ombry::wayland

#include "RemoteDesktopPoster.moc"
