#include "platform/linux/AtSpi.h"

#include "platform/linux/LinuxPlatform.h"

#include <QCoroDBusPendingCall>
#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QElapsedTimer>

namespace ombry::linux_platform {
namespace {

const QString kAccessible = QStringLiteral("org.a11y.atspi.Accessible");
const QString kText = QStringLiteral("org.a11y.atspi.Text");
const QString kProperties = QStringLiteral("org.freedesktop.DBus.Properties");
const QString kGet = QStringLiteral("Get");
const QString kName = QStringLiteral("Name");
const QString kCharacterCount = QStringLiteral("CharacterCount");
const QString kCaretOffset = QStringLiteral("CaretOffset");
const QString kGetChildren = QStringLiteral("GetChildren");
const QString kGetState = QStringLiteral("GetState");
const QString kGetNSelections = QStringLiteral("GetNSelections");
const QString kGetSelection = QStringLiteral("GetSelection");
const QString kGetText = QStringLiteral("GetText");
const AccessibleElement kRoot{QStringLiteral("org.a11y.atspi.Registry"),
                              QStringLiteral("/org/a11y/atspi/accessible/root")};

// Bits of the element's state set (two 32-bit words).
constexpr int kActive = 1;
constexpr int kEditable = 7;
constexpr int kFocused = 12;
constexpr int kShowing = 25;
constexpr int kReadOnly = 43;
// How deep and how wide a window is searched for its focused element.
constexpr int kMaxDepth = 40;
constexpr int kMaxVisited = 3000;

bool has(uint64_t state, int bit) {
    return (state >> bit) & 1;
}

bool ok(const QDBusMessage& reply) {
    return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty();
}

// A property's value out of a Properties.Get reply.
QVariant propertyOf(const QDBusMessage& reply) {
    if (!ok(reply)) return {};
    return reply.arguments().constFirst().value<QDBusVariant>().variant();
}

} // namespace

// One search for the focused element: it stops when its time or its number of visits is spent.
struct AtSpi::Search {
    QElapsedTimer timer;
    int visited = 0;
    bool spent() const { return visited > kMaxVisited || timer.elapsed() > kSearchTimeoutMs; }
};

// Receives the window events of the accessibility bus (QtDBus delivers signals to slots).
class AtSpi::WindowEvents : public QObject {
    Q_OBJECT
public:
    explicit WindowEvents(AtSpi& owner) : owner_(owner) {}
public slots:
    void onEvent(const QDBusMessage& message) { owner_.windowEvent(message); }

private:
    AtSpi& owner_;
};

AtSpi::AtSpi() = default;
AtSpi::~AtSpi() {
    if (bus_) QDBusConnection::disconnectFromBus(bus_->name());
}

QCoro::Task<bool> AtSpi::connect() {
    if (bus_ && bus_->isConnected()) co_return true;
    // A session without the bus is asked again now and then, not at every question.
    if (lastTry_.isValid() && lastTry_.elapsed() < kRetryMs) co_return false;
    lastTry_.start();
    QDBusConnection session = QDBusConnection::sessionBus();
    if (!session.isConnected()) co_return false;
    const QDBusPendingCall pending =
        session.asyncCall(QDBusMessage::createMethodCall(
                              QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                              QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress")),
                          kCallTimeoutMs * 3);
    const QDBusMessage reply = co_await pending;
    if (!ok(reply)) co_return false;
    const QString address = reply.arguments().constFirst().toString();
    if (address.isEmpty()) co_return false;
    // Toolkits that expose their widgets only while the switch is on read it at their start.
    QDBusMessage enable = QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"),
                                                         QStringLiteral("/org/a11y/bus"),
                                                         kProperties, QStringLiteral("Set"));
    enable << QStringLiteral("org.a11y.Status") << QStringLiteral("IsEnabled")
           << QVariant::fromValue(QDBusVariant(true));
    session.asyncCall(enable, kCallTimeoutMs);
    const QString name = QStringLiteral("ombry-a11y");
    bus_ = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(address, name));
    if (!bus_->isConnected()) {
        QDBusConnection::disconnectFromBus(name);
        bus_.reset();
        co_return false;
    }
    co_return true;
}

QCoro::Task<QDBusMessage> AtSpi::call(AccessibleElement element, const QString& interface,
                                      const QString& method, QVariantList args) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(element.bus, element.path, interface, method);
    message.setArguments(args);
    const QDBusPendingCall pending = bus_->asyncCall(message, kCallTimeoutMs);
    const QDBusMessage reply = co_await pending;
    co_return reply;
}

QCoro::Task<QVariant> AtSpi::property(AccessibleElement element, QString interface, QString name) {
    QVariantList args;
    args << interface << name;
    const QDBusMessage reply = co_await call(element, kProperties, kGet, args);
    co_return propertyOf(reply);
}

QCoro::Task<QList<AccessibleElement>> AtSpi::children(AccessibleElement element) {
    const QDBusMessage reply = co_await call(element, kAccessible, kGetChildren);
    QList<AccessibleElement> out;
    if (!ok(reply)) co_return out;
    const QDBusArgument arg = reply.arguments().constFirst().value<QDBusArgument>();
    if (arg.currentType() != QDBusArgument::ArrayType) co_return out;
    arg.beginArray();
    while (!arg.atEnd()) {
        AccessibleElement child;
        QDBusObjectPath path;
        arg.beginStructure();
        arg >> child.bus >> path;
        arg.endStructure();
        child.path = path.path();
        out << child;
    }
    arg.endArray();
    co_return out;
}

QCoro::Task<uint64_t> AtSpi::state(AccessibleElement element) {
    const QDBusMessage reply = co_await call(element, kAccessible, kGetState);
    if (!ok(reply)) co_return uint64_t(0);
    const QList<uint> words = qdbus_cast<QList<uint>>(reply.arguments().constFirst());
    if (words.size() != 2) co_return uint64_t(0);
    co_return (uint64_t(words[1]) << 32) | words[0];
}

QCoro::Task<std::optional<AccessibleElement>> AtSpi::findFocused(AccessibleElement node, int depth,
                                                                 std::shared_ptr<Search> search) {
    ++search->visited;
    const uint64_t s = co_await state(node);
    if (has(s, kFocused)) co_return node;
    if (depth > kMaxDepth || search->spent()) co_return std::nullopt;
    const QList<AccessibleElement> kids = co_await children(node);
    for (const AccessibleElement& child : kids) {
        if (search->spent()) break;
        // Hidden parts of the window (other tabs, closed menus) cannot hold the focus.
        if (depth > 0) {
            ++search->visited;
            const uint64_t cs = co_await state(child);
            if (has(cs, kFocused)) co_return child;
            if (!has(cs, kShowing)) continue;
        }
        const std::optional<AccessibleElement> found =
            co_await findFocused(child, depth + 1, search);
        if (found) co_return found;
    }
    co_return std::nullopt;
}

QCoro::Task<void> AtSpi::describe(FocusedElement& out) {
    const uint64_t s = co_await state(out.element);
    // Toolkits mark a read-only field as editable and read-only at once.
    out.editable = has(s, kEditable) && !has(s, kReadOnly);
    const QVariant n = co_await property(out.element, kText, kCharacterCount);
    out.hasText = n.isValid();
    out.characterCount = n.isValid() ? n.toInt() : -1;
    out.selection.reset();
    out.caretOffset = -1;
    if (!out.hasText) co_return;
    const QVariant c = co_await property(out.element, kText, kCaretOffset);
    if (c.isValid()) out.caretOffset = c.toInt();
    const QDBusMessage selections = co_await call(out.element, kText, kGetNSelections);
    if (!ok(selections) || selections.arguments().constFirst().toInt() <= 0) co_return;
    QVariantList first;
    first << 0;
    const QDBusMessage range = co_await call(out.element, kText, kGetSelection, first);
    if (range.type() != QDBusMessage::ReplyMessage || range.arguments().size() < 2) co_return;
    const int start = range.arguments().at(0).toInt();
    const int end = range.arguments().at(1).toInt();
    if (end <= start) co_return;
    out.selection = co_await text(out.element, start, end);
}

QCoro::Task<std::optional<FocusedElement>> AtSpi::focused(int64_t pid) {
    const bool connected = co_await connect();
    if (!connected) co_return std::nullopt;
    auto search = std::make_shared<Search>();
    search->timer.start();
    QDBusConnectionInterface* daemon = bus_->interface();
    const QList<AccessibleElement> applications = co_await children(kRoot);
    for (const AccessibleElement& application : applications) {
        if (search->spent()) break;
        // The bus daemon knows each application's process without asking the application,
        // so one that hangs is never asked when it is not the one in front.
        const QDBusReply<uint> owner = daemon->servicePid(application.bus);
        const int64_t appPid = owner.isValid() ? int64_t(owner.value()) : 0;
        if (pid > 0 && appPid != pid) continue;
        const QList<AccessibleElement> windows = co_await children(application);
        for (const AccessibleElement& window : windows) {
            if (search->spent()) break;
            const uint64_t s = co_await state(window);
            if (!has(s, kActive)) continue;
            const std::optional<AccessibleElement> focus = co_await findFocused(window, 0, search);
            if (!focus) co_return std::nullopt;
            FocusedElement out;
            out.element = *focus;
            out.pid = appPid;
            const QVariant name = co_await property(application, kAccessible, kName);
            out.applicationName = name.toString();
            co_await describe(out);
            co_return out;
        }
    }
    co_return std::nullopt;
}

QCoro::Task<std::optional<FocusedElement>> AtSpi::reread(AccessibleElement element) {
    const bool connected = co_await connect();
    if (!connected) co_return std::nullopt;
    FocusedElement out;
    out.element = element;
    const QDBusReply<uint> owner = bus_->interface()->servicePid(element.bus);
    out.pid = owner.isValid() ? int64_t(owner.value()) : 0;
    co_await describe(out);
    if (!out.hasText && !out.editable) co_return std::nullopt;
    co_return out;
}

QCoro::Task<std::optional<QString>> AtSpi::text(AccessibleElement element, int start, int end) {
    const bool connected = co_await connect();
    if (!connected) co_return std::nullopt;
    QVariantList range;
    range << start << end;
    const QDBusMessage reply = co_await call(element, kText, kGetText, range);
    if (!ok(reply)) co_return std::nullopt;
    co_return reply.arguments().constFirst().toString();
}

std::unique_ptr<Accessibility> makeAccessibility() {
    return std::make_unique<AtSpi>();
}

void AtSpi::followActiveWindow() {
    if (following_) return;
    following_ = true;
    follow();
}

QCoro::Task<void> AtSpi::follow() {
    const bool connected = co_await connect();
    if (!connected) {
        following_ = false; // asked again at the next call
        co_return;
    }
    windowEvents_ = std::make_unique<WindowEvents>(*this);
    const QString iface = QStringLiteral("org.a11y.atspi.Event.Window");
    for (const QString& member : {QStringLiteral("Activate"), QStringLiteral("Deactivate")})
        bus_->connect(QString(), QString(), iface, member, windowEvents_.get(),
                      SLOT(onEvent(QDBusMessage)));
    // Toolkits send their events only once someone registered for them.
    for (const QString& event :
         {QStringLiteral("window:activate"), QStringLiteral("window:deactivate")}) {
        QDBusMessage reg = QDBusMessage::createMethodCall(
            QStringLiteral("org.a11y.atspi.Registry"), QStringLiteral("/org/a11y/atspi/registry"),
            QStringLiteral("org.a11y.atspi.Registry"), QStringLiteral("RegisterEvent"));
        reg << event << QStringList() << QString();
        bus_->asyncCall(reg, kCallTimeoutMs);
    }
}

void AtSpi::windowEvent(const QDBusMessage& message) {
    const QString sender = message.service();
    if (message.member() == QLatin1String("Deactivate")) {
        if (active_ && active_->bus == sender) active_.reset();
        return;
    }
    ActiveApplication app;
    app.bus = sender;
    if (bus_ && bus_->interface()) {
        // Answered by the bus itself, even when the application hangs.
        const QDBusReply<uint> pid = bus_->interface()->servicePid(sender);
        if (pid.isValid()) app.pid = pid.value();
    }
    active_ = app;
    // The name comes a moment later; the window stays the same meanwhile.
    [](AtSpi* self, QString sender) -> QCoro::Task<void> {
        // A local, not a temporary: GCC 12 destroys a temporary argument of an awaited
        // coroutine twice.
        const AccessibleElement root{sender, QStringLiteral("/org/a11y/atspi/accessible/root")};
        const QVariant name = co_await self->property(root, kAccessible, kName);
        if (self->active_ && self->active_->bus == sender) self->active_->name = name.toString();
    }(this, sender);
}

} // namespace ombry::linux_platform

#include "AtSpi.moc"
