#include "platform/x11/X11Clipboard.h"

#include "platform/x11/SelectionReader.h"

#include <QAbstractNativeEventFilter>
#include <QClipboard>
#include <QCoroFuture>
#include <QFuture>
#include <QGuiApplication>
#include <QPromise>
#include <QSet>
#include <QThreadPool>
#include <QTimer>
#include <xcb/xcb.h>

// Xlib defines macros (Bool, Status) that Qt's headers must not see.
#include "platform/x11/X11Display.h"
#include <X11/Xatom.h>

namespace ombry::x11 {

namespace {

// Sees each selection request on Qt's connection just before Qt answers it, to know which
// client asks: X resource ids carry their client in the bits above the server's id mask, so
// the requestor window (often a hidden one of the toolkit) tells the application.
class RequestWatcher final : public QAbstractNativeEventFilter {
public:
    static RequestWatcher& shared() {
        static RequestWatcher watcher;
        return watcher;
    }

    void install() {
        if (installed_ || !QGuiApplication::instance()) return;
        auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
        if (!x11) return;
        clientBits_ = ~xcb_get_setup(x11->connection())->resource_id_mask;
        QCoreApplication::instance()->installNativeEventFilter(this);
        installed_ = true;
    }

    bool nativeEventFilter(const QByteArray& type, void* message, qintptr*) override {
        if (type != "xcb_generic_event_t") return false;
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        if ((event->response_type & 0x7f) == XCB_SELECTION_REQUEST) {
            requestor_ = reinterpret_cast<const xcb_selection_request_event_t*>(event)->requestor;
            ++requests_;
        }
        return false;
    }

    // The request being answered now: a number that tells requests apart (0 before any), and
    // whether its client is the one of a window.
    uint64_t request() const { return requests_; }
    ClipboardFetch fetch() const {
        const uint32_t bits = clientBits_;
        const xcb_window_t requestor = requestor_;
        if (!bits || requestor == XCB_NONE) return {};
        return {[bits, requestor](const AppWindow& window) {
            return window.id != 0 && (uint32_t(window.id) & bits) == (requestor & bits);
        }};
    }

private:
    bool installed_ = false;
    uint32_t clientBits_ = 0;
    xcb_window_t requestor_ = XCB_NONE;
    uint64_t requests_ = 0;
};

} // namespace

WatchedText::WatchedText(const QString& text, std::shared_ptr<Watch> watch)
    : watch_(std::move(watch)) {
    setText(text);
}

QVariant WatchedText::retrieveData(const QString& mimeType, QMetaType type) const {
    const RequestWatcher& requests = RequestWatcher::shared();
    if (depth == 0 && watch_ && watch_->onFetched && requests.request() != watch_->lastRequest) {
        watch_->lastRequest = requests.request();
        // Qt is in the middle of answering the request: the callback runs once it is done.
        QTimer::singleShot(
            0, QCoreApplication::instance(),
            [callback = watch_->onFetched, fetch = requests.fetch()] { callback(fetch); });
    }
    return QMimeData::retrieveData(mimeType, type);
}

namespace {

// Targets of the selection protocol itself, not formats of the content.
const QSet<QString>& protocolTargets() {
    static const QSet<QString> targets = {
        QStringLiteral("TARGETS"),         QStringLiteral("MULTIPLE"),
        QStringLiteral("TIMESTAMP"),       QStringLiteral("SAVE_TARGETS"),
        QStringLiteral("DELETE"),          QStringLiteral("INCR"),
        QStringLiteral("INSERT_PROPERTY"), QStringLiteral("INSERT_SELECTION"),
    };
    return targets;
}

// The longest a snapshot waits for the owner of a selection, all its formats together.
constexpr int kSnapshotMs = 1000;

const char* selectionName(int mode) {
    return mode == QClipboard::Selection ? "PRIMARY" : "CLIPBOARD";
}

// Whether the selections are those of an X server (not the private ones of a screenless run).
bool onX11() {
    return QGuiApplication::platformName() == QLatin1String("xcb");
}

} // namespace

X11Clipboard::X11Clipboard() = default;
X11Clipboard::~X11Clipboard() = default;

QClipboard* X11Clipboard::board() {
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance())) return nullptr;
    QClipboard* clipboard = QGuiApplication::clipboard();
    if (clipboard && clipboard != watched_) {
        watched_ = clipboard;
        context_ = std::make_unique<QObject>();
        QObject::connect(clipboard, &QClipboard::changed, context_.get(),
                         [this](QClipboard::Mode mode) {
                             if (mode == QClipboard::Clipboard) ++changes_;
                             if (mode == QClipboard::Selection) ++selectionChanges_;
                         });
    }
    return clipboard;
}

std::optional<ClipboardSnapshot> X11Clipboard::ownSnapshot(int mode) {
    QClipboard* clipboard = board();
    if (!clipboard) return ClipboardSnapshot{};
    const bool owned =
        mode == QClipboard::Selection ? clipboard->ownsSelection() : clipboard->ownsClipboard();
    if (onX11() && !owned) return std::nullopt;
    ClipboardSnapshot out;
    WatchedText::LocalRead local;
    const QMimeData* data = clipboard->mimeData(QClipboard::Mode(mode));
    if (!data) return out;
    // Deep copies: the data objects go away with the next change of content.
    for (const QString& format : data->formats()) {
        if (protocolTargets().contains(format)) continue;
        const QByteArray bytes = data->data(format);
        if (bytes.isEmpty()) continue; // a format that gives no data is passed over
        out.append({format, bytes});
    }
    return out;
}

ClipboardSnapshot X11Clipboard::snapshotOf(int mode) {
    if (std::optional<ClipboardSnapshot> own = ownSnapshot(mode)) return *own;
    return readSelection(selectionName(mode), kSnapshotMs).formats;
}

QCoro::Task<ClipboardRead> X11Clipboard::readSnapshot(bool primary) {
    const int mode = primary ? QClipboard::Selection : QClipboard::Clipboard;
    if (primary && (!board() || !board()->supportsSelection())) co_return ClipboardRead{};
    if (std::optional<ClipboardSnapshot> own = ownSnapshot(mode)) co_return ClipboardRead{*own, {}};
    // Another client owns it: its answers are awaited on a worker thread, the main loop turning.
    auto promise = std::make_shared<QPromise<ClipboardRead>>();
    QFuture<ClipboardRead> future = promise->future();
    promise->start();
    QThreadPool::globalInstance()->start([promise, name = selectionName(mode)] {
        promise->addResult(readSelection(name, kSnapshotMs));
        promise->finish();
    });
    const ClipboardRead read = co_await future;
    co_return read;
}

void X11Clipboard::restoreOf(int mode, const ClipboardSnapshot& snapshot) {
    QClipboard* clipboard = board();
    if (!clipboard) return;
    if (snapshot.isEmpty()) {
        clipboard->clear(QClipboard::Mode(mode));
        return;
    }
    auto* data = new QMimeData;
    for (const auto& [format, bytes] : snapshot)
        data->setData(format, bytes);
    clipboard->setMimeData(data, QClipboard::Mode(mode));
}

ClipboardSnapshot X11Clipboard::snapshot() {
    return snapshotOf(QClipboard::Clipboard);
}

void X11Clipboard::restore(const ClipboardSnapshot& snapshot) {
    restoreOf(QClipboard::Clipboard, snapshot);
}

void X11Clipboard::clear() {
    if (QClipboard* clipboard = board()) clipboard->clear(QClipboard::Clipboard);
}

void X11Clipboard::setText(const QString& text, bool alsoPrimary,
                           std::function<void(const ClipboardFetch&)> onFetched) {
    QClipboard* clipboard = board();
    if (!clipboard) return;
    auto watch = std::make_shared<WatchedText::Watch>();
    watch->onFetched = std::move(onFetched);
    RequestWatcher::shared().install();
    watch->lastRequest = RequestWatcher::shared().request();
    clipboard->setMimeData(new WatchedText(text, watch), QClipboard::Clipboard);
    if (alsoPrimary && clipboard->supportsSelection())
        clipboard->setMimeData(new WatchedText(text, watch), QClipboard::Selection);
}

std::optional<QString> X11Clipboard::textOf(int mode) {
    QClipboard* clipboard = board();
    if (!clipboard) return std::nullopt;
    WatchedText::LocalRead local;
    const QMimeData* data = clipboard->mimeData(QClipboard::Mode(mode));
    if (!data || !data->hasText()) return std::nullopt;
    return data->text();
}

std::optional<QString> X11Clipboard::text() {
    return textOf(QClipboard::Clipboard);
}

uint64_t X11Clipboard::changeCount() {
    board();
    return changes_;
}

std::optional<QString> X11Clipboard::selectedText() {
    QClipboard* clipboard = board();
    if (!clipboard || !clipboard->supportsSelection()) return std::nullopt;
    // PRIMARY held by this program is the text of its last paste into a terminal, or the
    // selection it put back after that paste: never a selection in the window in front.
    if (clipboard->ownsSelection()) return std::nullopt;
    return textOf(QClipboard::Selection);
}

bool X11Clipboard::primaryOwnedBy(const AppWindow& window) {
    if (window.id == 0) return false;
    if (!connection_) connection_ = std::make_unique<Connection>();
    if (!*connection_ && !connection_->open()) return false;
    Display* display = connection_->get();
    ErrorTrap trap(display);
    const Window owner = XGetSelectionOwner(display, XA_PRIMARY);
    if (owner == None) return false;
    // Toolkits own selections with hidden windows of their own connection; some put the
    // process id on them.
    if (sameClient(display, owner, Window(window.id))) return true;
    const std::optional<uint32_t> pid =
        cardinalProperty(display, owner, connection_->atom("_NET_WM_PID"));
    return pid && window.pid > 0 && int64_t(*pid) == window.pid;
}

ClipboardSnapshot X11Clipboard::selectionSnapshot() {
    QClipboard* clipboard = board();
    if (!clipboard || !clipboard->supportsSelection()) return {};
    return snapshotOf(QClipboard::Selection);
}

void X11Clipboard::restoreSelection(const ClipboardSnapshot& snapshot) {
    QClipboard* clipboard = board();
    if (clipboard && clipboard->supportsSelection()) restoreOf(QClipboard::Selection, snapshot);
}

uint64_t X11Clipboard::selectionChangeCount() {
    board();
    return selectionChanges_;
}

} // namespace ombry::x11
