// CLIPBOARD through the XDG Clipboard portal (GNOME 48 and later), inside the RemoteDesktop
// session that the key poster opened: another application's content is read through
// SelectionRead, ours is offered with SetSelection and written on each SelectionTransfer. All on
// the main thread, with the deadlines of the data-control clipboard; there is no PRIMARY here.
#include "platform/wayland/Pipes.h"
#include "platform/wayland/Portal.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandPlatform.h"

#include <QCoroDBusPendingCall>
#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusUnixFileDescriptor>
#include <QPointer>
#include <QTimer>
#include <fcntl.h>

namespace ombry::wayland {
namespace {

const QString kOwnerChanged = QStringLiteral("SelectionOwnerChanged");
const QString kTransfer = QStringLiteral("SelectionTransfer");

class PortalClipboard final : public QObject, public Clipboard {
    Q_OBJECT
public:
    explicit PortalClipboard(std::shared_ptr<RemoteDesktopSession> shared)
        : shared_(std::move(shared)) {
        bus().connect(QString(), portal::kPath, portal::kClipboard, kOwnerChanged, this,
                      SLOT(onOwnerChanged(QDBusMessage)));
        bus().connect(QString(), portal::kPath, portal::kClipboard, kTransfer, this,
                      SLOT(onTransfer(QDBusMessage)));
    }
    ~PortalClipboard() override {
        bus().disconnect(QString(), portal::kPath, portal::kClipboard, kOwnerChanged, this,
                         SLOT(onOwnerChanged(QDBusMessage)));
        bus().disconnect(QString(), portal::kPath, portal::kClipboard, kTransfer, this,
                         SLOT(onTransfer(QDBusMessage)));
    }

    ClipboardSnapshot snapshot() override {
        if (!usable()) return {};
        if (own_) return own_->formats; // ours: no need to ask ourselves
        const Deadline deadline(kClipboardAnswerMs);
        const QStringList types = contentTypes();
        QList<QDBusPendingCall> calls = askReads(types);
        for (QDBusPendingCall& call : calls)
            call.waitForFinished();
        return collect(types, calls, deadline).formats;
    }
    // The owner's formats with one deadline for all (kClipboardAnswerMs), the main loop turning
    // while the portal answers; the formats not given by then are named.
    QCoro::Task<ClipboardRead> readSnapshot(bool primary) override {
        if (primary || !usable()) co_return ClipboardRead{};
        if (own_) co_return ClipboardRead{own_->formats, {}};
        QPointer<PortalClipboard> self(this);
        const Deadline deadline(kClipboardAnswerMs);
        const QStringList types = contentTypes();
        QList<QDBusPendingCall> calls = askReads(types);
        for (const QDBusPendingCall& call : calls) {
            const QDBusMessage reply = co_await call;
            (void)reply;
        }
        if (!self) co_return ClipboardRead{};
        co_return collect(types, calls, deadline);
    }
    void restore(const ClipboardSnapshot& snapshot) override { offer(snapshot, {}); }
    void clear() override { offer({}, {}); }
    void setText(const QString& text, bool,
                 std::function<void(const ClipboardFetch&)> onFetched) override {
        ClipboardSnapshot formats;
        const QByteArray bytes = text.toUtf8();
        for (const QString& type : textTypes())
            formats.append({type, bytes});
        offer(formats, std::move(onFetched));
    }
    std::optional<QString> text() override {
        if (!usable()) return std::nullopt;
        for (const QString& type : textTypes()) {
            if (own_) {
                for (const auto& [format, bytes] : own_->formats)
                    if (format == type) return QString::fromUtf8(bytes);
            } else if (types_.contains(type)) {
                const Deadline deadline(kClipboardAnswerMs);
                QList<QDBusPendingCall> calls = askReads({type});
                calls.first().waitForFinished();
                const ClipboardSnapshot got = collect({type}, calls, deadline).formats;
                if (got.isEmpty()) return std::nullopt;
                return QString::fromUtf8(got.first().second);
            }
        }
        return std::nullopt;
    }
    uint64_t changeCount() override {
        usable();
        return changes_;
    }

    // The portal carries no PRIMARY selection.
    std::optional<QString> selectedText() override { return std::nullopt; }
    bool primaryOwnedBy(const AppWindow&) override { return false; }
    ClipboardSnapshot selectionSnapshot() override { return {}; }
    void restoreSelection(const ClipboardSnapshot&) override {}
    uint64_t selectionChangeCount() override { return 0; }

private slots:
    // Another owner took the clipboard (counted), or the portal confirms ours (not counted).
    void onOwnerChanged(const QDBusMessage& message) {
        const QVariantList args = message.arguments();
        if (args.size() < 2 || !ofOurSession(args[0]) || !usable()) return;
        const QVariantMap options = qdbus_cast<QVariantMap>(args[1]);
        if (options.value(QStringLiteral("session_is_owner")).toBool()) return;
        ++changes_;
        own_.reset();
        types_ = options.value(QStringLiteral("mime_types")).toStringList();
        typesKnown_ = true;
    }

    // An application pastes what we offer: the bytes of that type go into the descriptor the
    // portal gives, written from the event loop.
    void onTransfer(const QDBusMessage& message) {
        const QVariantList args = message.arguments();
        if (args.size() < 3 || !ofOurSession(args[0])) return;
        const QString type = args[1].toString();
        const uint serial = args[2].toUInt();
        std::optional<QByteArray> bytes;
        if (usable() && own_) {
            for (const auto& [format, content] : own_->formats)
                if (format == type) bytes = content;
        }
        if (!bytes) {
            writeDone(shared_->handle, serial, false);
            return;
        }
        // Which application reads, the portal does not tell: every read counts.
        if (own_->onFetched)
            QTimer::singleShot(0, this,
                               [callback = own_->onFetched] { callback(ClipboardFetch{}); });
        write(shared_->handle, serial, *bytes);
    }

private:
    struct Offered {
        ClipboardSnapshot formats;
        std::function<void(const ClipboardFetch&)> onFetched;
    };

    static QDBusConnection bus() { return QDBusConnection::sessionBus(); }

    // Whether the shared session has the clipboard; a new session forgets what the former
    // held.
    bool usable() {
        if (shared_->handle != session_) {
            session_ = shared_->handle;
            own_.reset();
            types_.clear();
            typesKnown_ = false;
        }
        return shared_->clipboardUsable();
    }
    bool ofOurSession(const QVariant& session) const {
        return !shared_->handle.isEmpty() &&
               session.value<QDBusObjectPath>().path() == shared_->handle;
    }

    // The types worth reading of the current selection. Before the portal has named any owner
    // in this session, the text types are asked for: most copies have one.
    QStringList contentTypes() const {
        QStringList types;
        for (const QString& type : typesKnown_ ? types_ : textTypes().mid(0, 2))
            if (!isProtocolTarget(type) && !types.contains(type)) types.append(type);
        return types;
    }

    QList<QDBusPendingCall> askReads(const QStringList& types) const {
        QList<QDBusPendingCall> calls;
        for (const QString& type : types) {
            QDBusMessage m =
                QDBusMessage::createMethodCall(portal::kService, portal::kPath, portal::kClipboard,
                                               QStringLiteral("SelectionRead"));
            m << QVariant::fromValue(QDBusObjectPath(session_)) << type;
            calls.append(bus().asyncCall(m, kClipboardAnswerMs));
        }
        return calls;
    }

    // The descriptors the portal gave, read to their end until the deadline. A type the portal
    // did not answer for in time, or whose owner did not finish writing, is named late; one it
    // refused or that came empty is passed over.
    ClipboardRead collect(const QStringList& types, const QList<QDBusPendingCall>& calls,
                          const Deadline& deadline) const {
        ClipboardRead out;
        QList<QDBusUnixFileDescriptor> held; // open while read
        QStringList asked;
        for (qsizetype i = 0; i < calls.size(); ++i) {
            const QDBusMessage reply = calls[i].reply();
            const auto fd = reply.arguments().value(0).value<QDBusUnixFileDescriptor>();
            if (reply.type() == QDBusMessage::ReplyMessage && fd.isValid()) {
                held.append(fd);
                asked.append(types[i]);
            } else if (!calls[i].isFinished() ||
                       reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.NoReply")) {
                out.late.append(types[i]);
            }
        }
        QList<int> fds;
        for (const QDBusUnixFileDescriptor& fd : held)
            fds.append(fd.fileDescriptor());
        const QList<PipeRead> reads = readPipes(fds, deadline.remaining());
        for (qsizetype i = 0; i < asked.size(); ++i) {
            if (!reads[i].complete)
                out.late.append(asked[i]);
            else if (!reads[i].bytes.isEmpty())
                out.formats.append({asked[i], reads[i].bytes});
        }
        return out;
    }

    // Makes the session the clipboard's owner with these formats (none: an empty clipboard),
    // waiting for the portal's reply within the deadline, so that the keys of a paste sent
    // right after find them.
    void offer(const ClipboardSnapshot& formats,
               std::function<void(const ClipboardFetch&)> onFetched) {
        if (!usable()) return;
        own_ = Offered{formats, std::move(onFetched)};
        QStringList types;
        for (const auto& [type, bytes] : formats)
            if (!types.contains(type)) types.append(type);
        QDBusMessage m = QDBusMessage::createMethodCall(
            portal::kService, portal::kPath, portal::kClipboard, QStringLiteral("SetSelection"));
        m << QVariant::fromValue(QDBusObjectPath(session_))
          << QVariantMap{{QStringLiteral("mime_types"), types}};
        bus().call(m, QDBus::Block, kClipboardAnswerMs);
    }

    static QCoro::Task<void> write(QString session, uint serial, QByteArray bytes) {
        QDBusMessage m = QDBusMessage::createMethodCall(
            portal::kService, portal::kPath, portal::kClipboard, QStringLiteral("SelectionWrite"));
        m << QVariant::fromValue(QDBusObjectPath(session)) << serial;
        const QDBusPendingCall pending = bus().asyncCall(m, kClipboardAnswerMs);
        const QDBusMessage reply = co_await pending;
        const auto fd = reply.arguments().value(0).value<QDBusUnixFileDescriptor>();
        const int own = fd.isValid() ? fcntl(fd.fileDescriptor(), F_DUPFD_CLOEXEC, 0) : -1;
        if (reply.type() != QDBusMessage::ReplyMessage || own < 0) {
            writeDone(session, serial, false);
            co_return;
        }
        writeToPipe(own, std::move(bytes),
                    [session, serial](bool complete) { writeDone(session, serial, complete); });
    }

    static void writeDone(const QString& session, uint serial, bool success) {
        QDBusMessage m =
            QDBusMessage::createMethodCall(portal::kService, portal::kPath, portal::kClipboard,
                                           QStringLiteral("SelectionWriteDone"));
        m << QVariant::fromValue(QDBusObjectPath(session)) << serial << success;
        bus().send(m);
    }

    std::shared_ptr<RemoteDesktopSession> shared_;
    QString session_;            // the session the state below belongs to
    std::optional<Offered> own_; // ours, while no one took the clipboard since
    QStringList types_;          // the current owner's types, in its order
    bool typesKnown_ = false;    // the portal has named an owner in this session
    uint64_t changes_ = 0;
};

} // namespace

std::unique_ptr<Clipboard> makePortalClipboard(std::shared_ptr<RemoteDesktopSession> shared) {
    return std::make_unique<PortalClipboard>(std::move(shared));
}

} // namespace ombry::wayland

#include "PortalClipboard.moc"
