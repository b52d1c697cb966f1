#include "platform/linux/LinuxPlatform.h"

// Placeholder X11 services until the real ones are written: nothing is heard or posted.
namespace ombry::linux_platform {
namespace {

class NoKeyboard final : public KeyboardHook {
public:
    bool start(Handler) override { return false; }
    void stop() override {}
    bool running() const override { return false; }
    QString reason() const override { return QStringLiteral("clavier global non disponible"); }
    void setSwallowed(const QList<KeyCombo>&) override {}
    void setAcceptPostedKeys(bool) override {}
    uint64_t lastModifierFlags() const override { return 0; }
};
class NoPoster final : public KeyPoster {
public:
    bool post(uint16_t, uint64_t) override { return false; }
};
class NoClipboard final : public Clipboard {
public:
    ClipboardSnapshot snapshot() override { return {}; }
    void restore(const ClipboardSnapshot&) override {}
    void clear() override {}
    void setText(const QString&, bool, std::function<void()>) override {}
    std::optional<QString> text() override { return std::nullopt; }
    uint64_t changeCount() override { return 0; }
    std::optional<QString> selectedText() override { return std::nullopt; }
};
class NoWindows final : public Windows {
public:
    std::optional<AppWindow> frontmost() override { return std::nullopt; }
    bool activate(const AppWindow&) override { return false; }
    QString applicationName(int64_t) override { return {}; }
};

} // namespace

std::unique_ptr<KeyboardHook> makeKeyboardHook() {
    return std::make_unique<NoKeyboard>();
}
std::unique_ptr<KeyPoster> makeKeyPoster() {
    return std::make_unique<NoPoster>();
}
std::unique_ptr<Clipboard> makeClipboard() {
    return std::make_unique<NoClipboard>();
}
std::unique_ptr<Windows> makeWindows() {
    return std::make_unique<NoWindows>();
}

} // namespace ombry::linux_platform
