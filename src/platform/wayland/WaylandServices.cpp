#include "platform/Paths.h"
#include "platform/linux/DesktopFiles.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/wayland/WaylandPlatform.h"

#include <QDir>

namespace ombry::wayland {
namespace {

// No Wayland client sees the keys typed into another: the dictation key reaches the program
// through the desktop (its shortcut service, or its bindings calling `--press`), or, where the
// user chose it, from the keyboard devices themselves.
class RoadKeyboardHook final : public KeyboardHook {
public:
    explicit RoadKeyboardHook(DisplaySession& session) : session_(session) {}

    bool start(Handler handler) override {
        stop();
        if (session_.roads().key != KeyRoad::Evdev) return false;
        devices_ = linux_platform::makeEvdevKeyboard();
        return devices_->start(std::move(handler));
    }
    void stop() override {
        if (devices_) devices_->stop();
    }
    bool running() const override { return devices_ && devices_->running(); }
    QString reason() const override {
        if (devices_ && !devices_->reason().isEmpty()) return devices_->reason();
        return QStringLiteral("Session Wayland : la touche de dictée passe par les raccourcis du "
                              "bureau (Réglages, carte « Ce bureau »).");
    }
    void setSwallowed(const QList<KeyCombo>&) override {}
    void setAcceptPostedKeys(bool) override {}
    uint64_t lastModifierFlags() const override {
        return devices_ ? devices_->lastModifierFlags() : 0;
    }
    std::optional<bool> rightAltIsAltGr() const override { return std::nullopt; }

private:
    DisplaySession& session_;
    std::unique_ptr<KeyboardHook> devices_;
};

// Whether the clipboard takes the Clipboard portal where the desktop grants it.
bool portalClipboardOffered(DisplaySession& session) {
    return chooseRoads(session.offer()).clipboard == ClipboardRoad::Portal;
}

// Posts keys by the road the session offers, chosen at the first use.
class RoadKeyPoster final : public KeyPoster {
public:
    RoadKeyPoster(DisplaySession& session, std::shared_ptr<RemoteDesktopSession> remote)
        : session_(session), remote_(std::move(remote)) {}

    bool post(uint16_t keyCode, uint64_t modifiers) override {
        KeyPoster* p = poster();
        return p && p->post(keyCode, modifiers);
    }
    bool typeText(const QString& text) override {
        KeyPoster* p = poster();
        return p && p->typeText(text);
    }
    void prepare(ReadyHandler onReady) override {
        if (KeyPoster* p = poster()) {
            p->prepare([this, onReady = std::move(onReady)](bool ok, const QString& message) {
                // The clipboard's road follows what the desktop granted in its session.
                session_.setClipboardPortalRefused(remote_->clipboardEnabled == false);
                if (onReady) onReady(ok, message);
            });
            return;
        }
        if (onReady)
            onReady(false, QStringLiteral("ce bureau n'offre aucun moyen d'envoyer des touches"));
    }

private:
    // The poster of the session's road, made again when the road changes (the user's choice
    // of uinput).
    KeyPoster* poster() {
        const PostRoad road = session_.roads().post;
        if (chosen_ && road == road_) return poster_.get();
        chosen_ = true;
        road_ = road;
        poster_.reset();
        switch (road) {
        case PostRoad::VirtualKeyboard:
            poster_ = makeVirtualKeyboard();
            break;
        case PostRoad::RemoteDesktop:
            remote_->askClipboard = portalClipboardOffered(session_);
            poster_ = makeRemoteDesktopPoster(
                QDir(Paths::dataFolder()).filePath(QStringLiteral("remote-desktop-token")),
                remote_);
            break;
        case PostRoad::Uinput:
            poster_ = linux_platform::makeUinputKeyboard();
            break;
        default:
            break;
        }
        return poster_.get();
    }

    DisplaySession& session_;
    std::shared_ptr<RemoteDesktopSession> remote_;
    std::unique_ptr<KeyPoster> poster_;
    PostRoad road_ = PostRoad::None;
    bool chosen_ = false;
};

// A session without any clipboard road: nothing is read, nothing is kept.
class NoClipboard final : public Clipboard {
public:
    ClipboardSnapshot snapshot() override { return {}; }
    void restore(const ClipboardSnapshot&) override {}
    void clear() override {}
    void setText(const QString&, bool, std::function<void(const ClipboardFetch&)>) override {}
    std::optional<QString> text() override { return std::nullopt; }
    uint64_t changeCount() override { return 0; }
    std::optional<QString> selectedText() override { return std::nullopt; }
    bool primaryOwnedBy(const AppWindow&) override { return false; }
    ClipboardSnapshot selectionSnapshot() override { return {}; }
    void restoreSelection(const ClipboardSnapshot&) override {}
    uint64_t selectionChangeCount() override { return 0; }
};

// The clipboard through the session's road, chosen at the first use.
class RoadClipboard final : public Clipboard {
public:
    RoadClipboard(DisplaySession& session, std::shared_ptr<RemoteDesktopSession> remote)
        : session_(session), remote_(std::move(remote)) {}

    ClipboardSnapshot snapshot() override { return board().snapshot(); }
    void restore(const ClipboardSnapshot& s) override { board().restore(s); }
    void clear() override { board().clear(); }
    void setText(const QString& text, bool alsoPrimary,
                 std::function<void(const ClipboardFetch&)> onFetched) override {
        board().setText(text, alsoPrimary, std::move(onFetched));
    }
    std::optional<QString> text() override { return board().text(); }
    uint64_t changeCount() override { return board().changeCount(); }
    std::optional<QString> selectedText() override { return board().selectedText(); }
    bool primaryOwnedBy(const AppWindow& w) override { return board().primaryOwnedBy(w); }
    ClipboardSnapshot selectionSnapshot() override { return board().selectionSnapshot(); }
    void restoreSelection(const ClipboardSnapshot& s) override { board().restoreSelection(s); }
    uint64_t selectionChangeCount() override { return board().selectionChangeCount(); }

private:
    Clipboard& board() {
        if (!board_) {
            if (session_.roads().clipboard == ClipboardRoad::DataControl)
                board_ = makeDataControlClipboard();
            else if (portalClipboardOffered(session_))
                board_ = makePortalClipboard(remote_);
            if (!board_) board_ = std::make_unique<NoClipboard>();
        }
        return *board_;
    }

    DisplaySession& session_;
    std::shared_ptr<RemoteDesktopSession> remote_;
    std::unique_ptr<Clipboard> board_;
};

// The window in front, as far as a Wayland client can know it.
class WaylandWindows final : public Windows {
public:
    explicit WaylandWindows(Accessibility& a11y) : a11y_(a11y) {}

    std::optional<AppWindow> frontmost() override {
        a11y_.followActiveWindow();
        if (const std::optional<ActiveApplication> app = a11y_.activeApplication();
            app && app->pid > 0) {
            AppWindow w;
            // No window handle is given to clients: the process stands for its window.
            w.id = uint64_t(app->pid);
            w.pid = app->pid;
            QString processName;
            const auto entry = desktopFiles_.forProcess(app->pid, &processName);
            w.appId = entry ? entry->id : processName.toLower();
            w.name = entry && !entry->name.isEmpty() ? entry->name
                     : !app->name.isEmpty()          ? app->name
                                                     : processName;
            w.windowClass = w.appId;
            return w;
        }
        if (std::optional<AppWindow> w = swayFocused()) return w;
        return hyprlandActive();
    }
    // No client may raise another's window on Wayland.
    bool activate(const AppWindow&) override { return false; }
    QString applicationName(int64_t pid) override {
        QString processName;
        const auto entry = desktopFiles_.forProcess(pid, &processName);
        return entry && !entry->name.isEmpty() ? entry->name : processName;
    }

private:
    Accessibility& a11y_;
    linux_platform::DesktopFiles desktopFiles_;
};

} // namespace

std::unique_ptr<KeyboardHook> makeKeyboardHook(DisplaySession& session) {
    return std::make_unique<RoadKeyboardHook>(session);
}
std::unique_ptr<KeyPoster> makeKeyPoster(DisplaySession& session,
                                         std::shared_ptr<RemoteDesktopSession> remote) {
    return std::make_unique<RoadKeyPoster>(session, std::move(remote));
}
std::unique_ptr<Clipboard> makeClipboard(DisplaySession& session,
                                         std::shared_ptr<RemoteDesktopSession> remote) {
    return std::make_unique<RoadClipboard>(session, std::move(remote));
}
std::unique_ptr<Windows> makeWindows(Accessibility& accessibility) {
    return std::make_unique<WaylandWindows>(accessibility);
}

} // namespace ombry::wayland
