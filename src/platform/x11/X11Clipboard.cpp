#include "platform/x11/X11Clipboard.h"

#include <QAbstractNativeEventFilter>
#include <QClipboard>
#include <QGuiApplication>
#include <QSet>
#include <QTimer>
#include <cstring>
#include <xcb/xcb.h>

// Xlib defines macros (Bool, Status) that Qt's headers must not see.
#include "platform/x11/X11Display.h"
#include <X11/Xatom.h>

namespace ombry::x11 {

WatchedText::WatchedText(const QString& text, std::shared_ptr<Watch> watch)
    : watch_(std::move(watch)) {
    setText(text);
}

QVariant WatchedText::retrieveData(const QString& mimeType, QMetaType type) const {
    if (depth == 0 && watch_ && !watch_->fetched && !(watch_->ignore && watch_->ignore())) {
        watch_->fetched = true;
        if (watch_->onFetched) {
            // Qt is in the middle of answering the request: the callback runs once it is done.
            QTimer::singleShot(0, QCoreApplication::instance(),
                               [callback = watch_->onFetched] { callback(); });
        }
    }
    return QMimeData::retrieveData(mimeType, type);
}

namespace {

// Sees each selection request on Qt's connection just before Qt answers it, to know who asks.
// A clipboard manager owns the CLIPBOARD_MANAGER selection; its requests come from a window of
// the same client (X resource ids carry their client in the bits above the id mask).
class RequestWatcher final : public QAbstractNativeEventFilter {
public:
    static RequestWatcher& shared() {
        static RequestWatcher watcher;
        return watcher;
    }

    void install() {
        if (installed_ || !QGuiApplication::instance()) return;
        if (!qGuiApp->nativeInterface<QNativeInterface::QX11Application>()) return;
        QCoreApplication::instance()->installNativeEventFilter(this);
        installed_ = true;
    }

    bool nativeEventFilter(const QByteArray& type, void* message, qintptr*) override {
        if (type != "xcb_generic_event_t") return false;
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        if ((event->response_type & 0x7f) == XCB_SELECTION_REQUEST)
            requestor_ = reinterpret_cast<const xcb_selection_request_event_t*>(event)->requestor;
        return false;
    }

    bool requestFromClipboardManager() {
        auto* x11 =
            qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
        if (!x11 || !requestor_) return false;
        xcb_connection_t* c = x11->connection();
        if (!managerAtom_) {
            const char* name = "CLIPBOARD_MANAGER";
            xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
                c, xcb_intern_atom(c, 0, uint16_t(std::strlen(name)), name), nullptr);
            if (!reply) return false;
            managerAtom_ = reply->atom;
            free(reply);
        }
        xcb_get_selection_owner_reply_t* reply =
            xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, managerAtom_), nullptr);
        if (!reply) return false;
        const xcb_window_t manager = reply->owner;
        free(reply);
        if (manager == XCB_NONE) return false;
        const uint32_t clientBits = ~xcb_get_setup(c)->resource_id_mask;
        return (manager & clientBits) == (requestor_ & clientBits);
    }

private:
    bool installed_ = false;
    xcb_window_t requestor_ = XCB_NONE;
    xcb_atom_t managerAtom_ = XCB_NONE;
};

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
                         });
    }
    return clipboard;
}

ClipboardSnapshot X11Clipboard::snapshot() {
    ClipboardSnapshot out;
    QClipboard* clipboard = board();
    if (!clipboard) return out;
    WatchedText::LocalRead local;
    const QMimeData* data = clipboard->mimeData(QClipboard::Clipboard);
    if (!data) return out;
    // Deep copies: the owner's data objects go away with the next change of content.
    for (const QString& format : data->formats()) {
        if (protocolTargets().contains(format)) continue;
        const QByteArray bytes = data->data(format);
        if (bytes.isEmpty()) continue; // a format that gives no data is passed over
        out.append({format, bytes});
    }
    return out;
}

void X11Clipboard::restore(const ClipboardSnapshot& snapshot) {
    QClipboard* clipboard = board();
    if (!clipboard) return;
    if (snapshot.isEmpty()) {
        clipboard->clear(QClipboard::Clipboard);
        return;
    }
    auto* data = new QMimeData;
    for (const auto& [format, bytes] : snapshot)
        data->setData(format, bytes);
    clipboard->setMimeData(data, QClipboard::Clipboard);
}

void X11Clipboard::clear() {
    if (QClipboard* clipboard = board()) clipboard->clear(QClipboard::Clipboard);
}

void X11Clipboard::setText(const QString& text, bool alsoPrimary, std::function<void()> onFetched) {
    QClipboard* clipboard = board();
    if (!clipboard) return;
    auto watch = std::make_shared<WatchedText::Watch>();
    watch->onFetched = std::move(onFetched);
    RequestWatcher::shared().install();
    watch->ignore = [] { return RequestWatcher::shared().requestFromClipboardManager(); };
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
    // PRIMARY held by this program is the text of its last paste into a terminal, which stays
    // there until someone selects something else: never a selection in the window in front.
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

} // namespace ombry::x11
