#pragma once

#include "platform/Desktop.h"
#include "platform/x11/X11Display.h"
#include "platform/x11/X11Keys.h"

#include <QList>
#include <atomic>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <vector>

class QSocketNotifier;

namespace ombry::x11 {

// The global keyboard under X11. It listens to XInput2 raw key events on the root window of
// its own connection (they arrive for every key of the session, also while another client
// holds a grab, and without taking the key from anyone; during its own grabs the keys come as
// core events), keeps the modifiers held from them,
// and swallows the combinations asked for with passive key grabs on the root window. The
// connection's socket is watched by a QSocketNotifier on the thread that started the hook (the
// main thread): nothing is polled, and events reach the handler in the server's order.
class X11KeyboardHook final : public KeyboardHook {
public:
    X11KeyboardHook();
    ~X11KeyboardHook() override;

    bool start(Handler handler) override;
    void stop() override;
    bool running() const override { return bool(connection_); }
    QString reason() const override { return reason_; }
    void setSwallowed(const QList<KeyCombo>& combos) override;
    void setAcceptPostedKeys(bool accept) override { acceptPosted_ = accept; }
    uint64_t lastModifierFlags() const override { return lastFlags_.load(); }
    std::optional<bool> rightAltIsAltGr() const override {
        return connection_ ? rightAltIsAltGr_ : std::nullopt;
    }

private:
    void readEvents();
    void handleRawKey(int evtype, const void* rawEvent);
    // A key pressed or released while our grab held the keyboard (no raw event for it then).
    void handleGrabbedPress(int kc, unsigned long time);
    void handleGrabbedRelease(int kc);
    // A key went down: a modifier gives a flags-changed event, another key a key-down.
    void keyPressed(int kc, KeyEvent event, bool repeat, std::optional<uint64_t> flags);
    void findPostingDevices();
    // The X modifier masks of Alt, Super, Num Lock and AltGr, and what Right Alt is.
    void readModifierMasks();
    void seedHeldModifiers();
    void grab();
    void ungrab();

    x11::Connection connection_;
    std::unique_ptr<QSocketNotifier> notifier_;
    Handler handler_;
    QString reason_;
    int xiOpcode_ = 0;
    uint64_t generation_ = 0;      // goes up at each stop(), so a delivery loop knows to end
    std::deque<KeyEvent> pending_; // read from the server, not yet delivered
    bool delivering_ = false;

    x11::KeyMap keys_;
    x11::ModifierState modifiers_;
    std::set<int> keysDown_;       // non-modifier keys held, for the auto-repeat flag
    std::set<int> postingDevices_; // the XTEST slave keyboards: keys posted by programs
    bool acceptPosted_ = false;
    std::atomic<uint64_t> lastFlags_{0};
    // The last raw press (key code, server time): a grab that it started repeats it as a core
    // press, which is no second press.
    std::pair<int, unsigned long> lastRawPress_{0, 0};

    QList<KeyCombo> swallowed_;
    std::vector<std::pair<int, unsigned>> grabbed_; // (key code, X modifier mask)
    unsigned altMask_ = 0, superMask_ = 0, numLockMask_ = 0;
    unsigned altGrMask_ = 0; // 0 when the layout has no AltGr
    std::optional<bool> rightAltIsAltGr_;
};

// Posts keys through XTest on a connection of its own, recording each press and release in the
// ledger first so that the hook knows them as this process's. XTest keys combine with the keys
// the user holds, so held modifiers that were not asked for are lifted around the key.
class X11KeyPoster final : public KeyPoster {
public:
    bool post(uint16_t keyCode, uint64_t modifiers) override;

private:
    bool ensureConnected();
    void send(int xkeycode, bool press, x11::PostedKey how = {});

    x11::Connection connection_;
    x11::KeyMap keys_;
};

} // namespace ombry::x11
