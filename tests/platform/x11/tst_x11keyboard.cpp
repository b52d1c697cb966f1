#include "platform/x11/X11Platform.h"

#include "DesktopSession.h"

#include <QScopeGuard>
#include <QTest>
#include <memory>

#include <X11/Xlib.h>
#include <X11/Xutil.h>

using namespace ombry;
using test::DesktopSession;
using Type = KeyEvent::Type;

namespace {

// The events the hook delivered, read in order by the test.
struct Heard {
    QList<KeyEvent> events;
    qsizetype read = 0;

    KeyboardHook::Handler handler() {
        return [this](const KeyEvent& e) { events << e; };
    }
    // The next event of this key (earlier events of other keys are passed over), or nothing
    // within five seconds.
    std::optional<KeyEvent> next(uint16_t code, Type type) {
        std::optional<KeyEvent> found;
        DesktopSession::waitUntil(
            [&] {
                for (; read < events.size(); ++read) {
                    if (events[read].keyCode == code && events[read].type == type) {
                        found = events[read++];
                        return true;
                    }
                }
                return false;
            },
            5000);
        return found;
    }
    int count(uint16_t code, Type type) const {
        return int(std::count_if(events.begin(), events.end(), [&](const KeyEvent& e) {
            return e.keyCode == code && e.type == type;
        }));
    }
};

constexpr uint64_t LeftOptionDown = 0x20;
constexpr uint64_t LeftControlDown = 0x1;
constexpr uint16_t B = 11, X = 7, A = 0, Q = 12;
// Right Alt by its place on a PC keyboard: AltGr on a French layout, Alt_R on a US one.
constexpr int kRightAlt = 108;

// An application in front: a window of its own connection, active and focused, that counts
// the key presses it receives. A swallowed key never reaches it.
class Witness {
public:
    Witness() {
        display_ = XOpenDisplay(nullptr);
        if (!display_) return;
        window_ =
            XCreateSimpleWindow(display_, DefaultRootWindow(display_), 0, 0, 200, 100, 0, 0, 0);
        XStoreName(display_, window_, "Témoin");
        XWMHints hints{};
        hints.flags = InputHint;
        hints.input = True;
        XSetWMHints(display_, window_, &hints);
        XSelectInput(display_, window_, KeyPressMask);
        XMapWindow(display_, window_);
        XSync(display_, False);
        DesktopSession& desktop = *DesktopSession::current();
        ready_ = desktop.activateWindow(window_) && DesktopSession::waitUntil([this] {
                     Window focus = None;
                     int revert = 0;
                     XGetInputFocus(display_, &focus, &revert);
                     return focus == window_;
                 });
    }
    ~Witness() {
        if (!display_) return;
        XDestroyWindow(display_, window_);
        XCloseDisplay(display_);
    }
    bool ready() const { return ready_; }
    // The presses of this X key code received so far.
    int presses(int keycode) {
        while (XPending(display_)) {
            XEvent event;
            XNextEvent(display_, &event);
            if (event.type == KeyPress) received_ << int(event.xkey.keycode);
        }
        return int(received_.count(keycode));
    }
    // Waits until a press of this key has come: the keys typed before it have come too.
    bool waitFor(int keycode) {
        return DesktopSession::waitUntil([&] { return presses(keycode) > 0; });
    }

private:
    Display* display_ = nullptr;
    Window window_ = 0;
    bool ready_ = false;
    QList<int> received_;
};

// Switches the keyboard layout of the session until the guard ends (back to US).
[[nodiscard]] auto layout(const char* name) {
    DesktopSession& desktop = *DesktopSession::current();
    const auto set = desktop.run(QStringLiteral("setxkbmap"), {QLatin1String(name)});
    if (set.exitCode != 0) qWarning("setxkbmap %s: %s", name, set.err.constData());
    return qScopeGuard([] {
        DesktopSession::current()->run(QStringLiteral("setxkbmap"), {QStringLiteral("us")});
    });
}

} // namespace

class TstX11Keyboard : public QObject {
    Q_OBJECT
    DesktopSession& desktop() { return *DesktopSession::current(); }
    int kc(const char* name) { return desktop().keycode(name); }

protected:
    std::unique_ptr<KeyboardHook> hook = x11::makeKeyboardHook();
    Heard heard;
    bool listen() { return hook->start(heard.handler()); }

private Q_SLOTS:
    void initTestCase() { OMBRY_REQUIRE_DESKTOP(); }
    void cleanup() {
        hook->stop();
        hook = x11::makeKeyboardHook();
        heard = Heard{};
    }

    void realKeyboardModifiersCarryTheirDeviceBits() {
        QVERIFY2(listen(), qPrintable(hook->reason()));
        QVERIFY(hook->running());

        const struct {
            bool press;
            const char* keysym;
            uint16_t code;
            uint64_t flags;
        } steps[] = {
            // Right Alt alone: Option and the device bit of the right key.
            {true, "Alt_R", keycode::RightOption, modifier::Option | modifier::RightOptionDown},
            // Left Alt joins; letting Right Alt go keeps Option for the left key, without the
            // right key's bit.
            {true, "Alt_L", keycode::LeftOption,
             modifier::Option | modifier::RightOptionDown | LeftOptionDown},
            {false, "Alt_R", keycode::RightOption, modifier::Option | LeftOptionDown},
            {false, "Alt_L", keycode::LeftOption, 0},
            // The other dictation keys.
            {true, "Super_R", keycode::RightCommand,
             modifier::Command | modifier::RightCommandDown},
            {false, "Super_R", keycode::RightCommand, 0},
            {true, "Control_R", keycode::RightControl,
             modifier::Control | modifier::RightControlDown},
            {false, "Control_R", keycode::RightControl, 0},
            {true, "Menu", keycode::Fn, modifier::FnDown},
            {false, "Menu", keycode::Fn, 0},
        };
        for (const auto& step : steps) {
            QVERIFY(step.press ? desktop().keyboardPress(kc(step.keysym))
                               : desktop().keyboardRelease(kc(step.keysym)));
            const auto e = heard.next(step.code, Type::FlagsChanged);
            QVERIFY2(e, step.keysym);
            QCOMPARE(e->flags, step.flags);
            QVERIFY(!e->postedBySelf && e->sourcePid == 0);
            QCOMPARE(hook->lastModifierFlags(), step.flags);
        }

        hook->stop();
        QVERIFY(!hook->running());
    }

    void copyRunsAndHeldKeys() {
        QVERIFY(listen());
        QVERIFY(desktop().keyboardPress(kc("Control_L")));
        QVERIFY(desktop().keyboardChord({kc("c")}));
        QVERIFY(desktop().keyboardChord({kc("c")}));
        for (int i = 0; i < 2; ++i) {
            const auto e = heard.next(keycode::C, Type::KeyDown);
            QVERIFY(e);
            QCOMPARE(e->flags & modifier::Mask, modifier::Primary);
            QCOMPARE(e->flags, modifier::Control | LeftControlDown);
            QVERIFY(!e->autoRepeat);
            QCOMPARE(e->sourcePid, 0);
        }
        // A key pressed again without being released is a repeat.
        QVERIFY(desktop().keyboardPress(kc("c")));
        QVERIFY(desktop().keyboardPress(kc("c")));
        QVERIFY(desktop().keyboardRelease(kc("c")));
        QVERIFY(desktop().keyboardRelease(kc("Control_L")));
        auto e = heard.next(keycode::C, Type::KeyDown);
        QVERIFY(e && !e->autoRepeat);
        e = heard.next(keycode::C, Type::KeyDown);
        QVERIFY(e && e->autoRepeat);
        // Key releases of ordinary keys are not reported.
        e = heard.next(keycode::LeftControl, Type::FlagsChanged);
        QVERIFY(e);
        QCOMPARE(heard.count(keycode::C, Type::KeyDown), 4);
        hook->stop();
        QCOMPARE(hook->lastModifierFlags(), uint64_t(0));
    }

    void postedKeysAreTold() {
        auto poster = x11::makeKeyPoster();
        QVERIFY(listen());

        // xdotool posts through XTEST: a program's key.
        QVERIFY(desktop().xdotool({QStringLiteral("key"), QStringLiteral("x")}));
        auto e = heard.next(X, Type::KeyDown);
        QVERIFY(e);
        QCOMPARE(e->sourcePid, -1);
        QVERIFY(!e->postedBySelf);

        // This process's own Ctrl+C, modifier included, is its own and counts as no program's.
        QVERIFY(poster->post(keycode::C, modifier::Control));
        e = heard.next(keycode::LeftControl, Type::FlagsChanged);
        QVERIFY(e && e->postedBySelf && e->sourcePid == 0);
        QCOMPARE(e->flags & modifier::Mask, modifier::Control);
        e = heard.next(keycode::C, Type::KeyDown);
        QVERIFY(e && e->postedBySelf && e->sourcePid == 0);
        QCOMPARE(e->flags & modifier::Mask, modifier::Control);
        e = heard.next(keycode::LeftControl, Type::FlagsChanged);
        QVERIFY(e && e->postedBySelf);
        QCOMPARE(e->flags, uint64_t(0));

        // The own keys were all claimed: the same keys from xdotool right after are not ours.
        QVERIFY(desktop().xdotool({QStringLiteral("key"), QStringLiteral("ctrl+c")}));
        e = heard.next(keycode::C, Type::KeyDown);
        QVERIFY(e);
        QVERIFY(!e->postedBySelf);
        QCOMPARE(e->sourcePid, -1);

        // Remote desktops post the user's keys: they can be taken as real ones.
        hook->setAcceptPostedKeys(true);
        QVERIFY(desktop().xdotool({QStringLiteral("key"), QStringLiteral("x")}));
        e = heard.next(X, Type::KeyDown);
        QVERIFY(e);
        QCOMPARE(e->sourcePid, 0);
        QVERIFY(!e->postedBySelf);
    }

    void swallowedKeysStayAwayFromTheApplication() {
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        QVERIFY(listen());
        hook->setSwallowed({{keycode::V, modifier::Control | modifier::Option}, {B, 0}});

        QVERIFY(desktop().keyboardType(QStringLiteral("a")));
        QVERIFY(desktop().keyboardChord({kc("Control_L"), kc("Alt_L"), kc("v")}));
        QVERIFY(desktop().keyboardType(QStringLiteral("bc")));
        // With Num Lock on, the grab still holds.
        QVERIFY(desktop().keyboardChord({kc("Num_Lock")}));
        QVERIFY(desktop().keyboardType(QStringLiteral("b")));
        QVERIFY(desktop().keyboardChord({kc("Num_Lock")}));

        // Each swallowed key is still reported, once.
        auto e = heard.next(keycode::V, Type::KeyDown);
        QVERIFY(e);
        QCOMPARE(e->flags & modifier::Mask, modifier::Control | modifier::Option);
        QVERIFY(heard.next(B, Type::KeyDown));
        QVERIFY(heard.next(B, Type::KeyDown));
        QCOMPARE(heard.count(keycode::V, Type::KeyDown), 1);
        QCOMPARE(heard.count(A, Type::KeyDown), 1);

        // A key that left the list reaches the application again.
        hook->setSwallowed({{keycode::V, modifier::Control | modifier::Option}});
        QVERIFY(desktop().keyboardType(QStringLiteral("b")));
        QVERIFY(heard.next(B, Type::KeyDown));
        QCOMPARE(heard.count(B, Type::KeyDown), 3);

        const auto typed = desktop().closeTarget();
        QVERIFY(typed);
        QCOMPARE(*typed, QStringLiteral("acb"));
    }

    void aPasteWhileTheShortcutIsHeld() {
        // Ctrl+Alt+V asks for a paste while the user still holds Ctrl+Alt: the posted Ctrl+V
        // must reach the field as Ctrl+V, and the hook must neither take it for another
        // Ctrl+Alt+V nor see Alt go up.
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        auto poster = x11::makeKeyPoster();
        auto clipboard = x11::makeClipboard();
        QVERIFY(listen());
        const uint64_t shortcut = modifier::Control | modifier::Option;
        hook->setSwallowed({{keycode::V, shortcut}});
        QVERIFY(desktop().keyboardPress(kc("Control_L")));
        QVERIFY(desktop().keyboardPress(kc("Alt_L")));
        QVERIFY(desktop().keyboardChord({kc("v")}));
        auto e = heard.next(keycode::V, Type::KeyDown);
        QVERIFY(e && !e->postedBySelf);
        QCOMPARE(e->flags & modifier::Mask, shortcut);

        const QString text = QStringLiteral("Déjà collé");
        bool fetched = false;
        const AppWindow field{desktop().targetWindow(), {}, {}, {}, 0};
        clipboard->setText(text, false, [&](const ClipboardFetch& fetch) {
            fetched = fetched || fetch.byApplicationOf(field);
        });
        QVERIFY(poster->post(keycode::V, modifier::Primary));
        QTRY_VERIFY(fetched);
        e = heard.next(keycode::V, Type::KeyDown);
        QVERIFY(e && e->postedBySelf);
        QCOMPARE(e->flags & modifier::Mask, modifier::Control);
        QCOMPARE(hook->lastModifierFlags() & modifier::Mask, shortcut);
        QCOMPARE(heard.count(keycode::LeftOption, Type::FlagsChanged), 1);

        QVERIFY(desktop().keyboardRelease(kc("Alt_L")));
        QVERIFY(desktop().keyboardRelease(kc("Control_L")));
        e = heard.next(keycode::LeftControl, Type::FlagsChanged);
        QVERIFY(e);
        QCOMPARE(e->flags, uint64_t(0));
        const auto typed = desktop().closeTarget();
        QVERIFY(typed);
        QCOMPARE(*typed, text);
    }

    void aSwallowedShortcutAgainAndAgain() {
        // While a grab of the hook holds the keyboard, the releases reach it only as core
        // events: a shortcut pressed again is no repeat, and modifiers let go before the key
        // are up for the hook too.
        QVERIFY(listen());
        const uint64_t shortcut = modifier::Control | modifier::Option;
        hook->setSwallowed({{keycode::V, shortcut}});
        for (int i = 0; i < 2; ++i) {
            QVERIFY(desktop().keyboardChord({kc("Control_L"), kc("Alt_L"), kc("v")}));
            const auto e = heard.next(keycode::V, Type::KeyDown);
            QVERIFY(e);
            QVERIFY(!e->autoRepeat);
        }
        QVERIFY(desktop().keyboardPress(kc("Control_L")));
        QVERIFY(desktop().keyboardPress(kc("Alt_L")));
        QVERIFY(desktop().keyboardPress(kc("v")));
        QVERIFY(desktop().keyboardRelease(kc("Alt_L")));
        QVERIFY(desktop().keyboardRelease(kc("Control_L")));
        QVERIFY(desktop().keyboardRelease(kc("v")));
        QVERIFY(
            DesktopSession::waitUntil([&] { return heard.count(keycode::V, Type::KeyDown) == 3; }));
        QVERIFY(DesktopSession::waitUntil([&] { return hook->lastModifierFlags() == 0; }, 2000));

        // Keys typed right after a switch of keyboard (a program's keys, then the user's) are
        // all heard at once, not when the next key comes.
        QVERIFY(desktop().xdotool({"key", "x"}));
        QVERIFY(desktop().keyboardChord({kc("Control_L"), kc("c")}));
        QVERIFY(desktop().keyboardChord({kc("Control_L"), kc("c")}));
        QVERIFY(DesktopSession::waitUntil(
            [&] { return heard.count(keycode::C, Type::KeyDown) == 2; }, 2000));
    }

    void theHandlerMayChangeTheHook() {
        // Swallowing again and stopping from inside the handler, as the hotkey monitor does on
        // a change of state: the events keep their order, and none comes after the stop.
        QList<uint16_t> codes;
        int calls = 0;
        QVERIFY(hook->start([&](const KeyEvent& e) {
            if (e.type != Type::KeyDown) return;
            codes << e.keyCode;
            hook->setSwallowed(++calls % 2 ? QList<KeyCombo>{{keycode::Escape, 0}}
                                           : QList<KeyCombo>{});
            if (e.keyCode == keycode::Escape) hook->stop();
        }));
        QVERIFY(desktop().keyboardType(QStringLiteral("asdf")));
        QVERIFY(desktop().keyboardChord({kc("Escape")}));
        QVERIFY(desktop().keyboardType(QStringLiteral("zx")));
        QVERIFY(DesktopSession::waitUntil([&] { return !hook->running(); }, 2000));
        QTest::qWait(100);
        QCOMPARE(codes, (QList<uint16_t>{A, 1, 2, 3, keycode::Escape}));
    }

    void aChangeOfLayoutIsFollowed() {
        // Letters go by their symbol, keys without a letter by their place; the hook and the
        // poster both follow a layout changed while they run.
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        auto poster = x11::makeKeyPoster();
        QVERIFY(listen());
        QVERIFY(poster->post(Q, 0));
        QVERIFY(desktop().keyboardChord({24})); // the key right of Tab: Q in QWERTY
        auto e = heard.next(Q, Type::KeyDown);
        QVERIFY(e && e->postedBySelf);
        e = heard.next(Q, Type::KeyDown);
        QVERIFY(e && !e->postedBySelf);

        const auto restore = layout("fr");
        QTest::qWait(200);
        QVERIFY(desktop().keyboardChord({24})); // A in AZERTY
        e = heard.next(A, Type::KeyDown);
        QVERIFY(e && !e->postedBySelf);
        QVERIFY(desktop().keyboardChord({10})); // "&" in AZERTY, 1 in QWERTY: by place
        QVERIFY(heard.next(18, Type::KeyDown));
        QVERIFY(desktop().keyboardPress(kc("ISO_Level3_Shift"))); // AltGr
        e = heard.next(keycode::RightOption, Type::FlagsChanged);
        QVERIFY(e);
        QCOMPARE(e->flags, modifier::Option | modifier::RightOptionDown);
        QVERIFY(desktop().keyboardRelease(kc("ISO_Level3_Shift")));
        QVERIFY(poster->post(Q, 0));
        QVERIFY(poster->post(A, 0));
        QVERIFY(heard.next(A, Type::KeyDown));

        const auto typed = desktop().closeTarget();
        QVERIFY(typed);
        QCOMPARE(*typed, QStringLiteral("qqa&qa"));
    }

    void escapeTakenWhateverIsHeld() {
        // In hold-to-talk the dictation key is down when Escape comes: AltGr on a French
        // layout (a modifier of its own, not Alt's), Right Ctrl, Right Super.
        const auto restore = layout("fr");
        Witness app;
        QVERIFY(app.ready());
        QVERIFY(listen());
        hook->setSwallowed({KeyCombo::withAnyModifiers(keycode::Escape)});
        const int escape = kc("Escape");
        const struct {
            int held;
            uint64_t flags;
        } cases[] = {
            {0, 0},
            {kRightAlt, modifier::Option | modifier::RightOptionDown},
            {kc("Control_R"), modifier::Control | modifier::RightControlDown},
            {kc("Super_R"), modifier::Command | modifier::RightCommandDown},
            {kc("Shift_L"), modifier::Shift | 0x2},
        };
        for (const auto& c : cases) {
            QVERIFY(
                desktop().keyboardChord(c.held ? QList<int>{c.held, escape} : QList<int>{escape}));
            const auto e = heard.next(keycode::Escape, Type::KeyDown);
            QVERIFY(e);
            QCOMPARE(e->flags, c.flags);
            QVERIFY(!e->autoRepeat);
        }
        QVERIFY(desktop().keyboardChord({kc("x")}));
        QVERIFY(app.waitFor(kc("x")));
        QCOMPARE(app.presses(escape), 0);
        QCOMPARE(heard.count(keycode::Escape, Type::KeyDown), 5);
        QVERIFY(DesktopSession::waitUntil([&] { return hook->lastModifierFlags() == 0; }, 2000));
    }

    void menuKeyTakenAsTheDictationKey() {
        // The Menu key held as the dictation key: the application never sees it (its context
        // menu would take the keyboard and the paste), its auto-repeat gives no further press
        // or release, and a key typed meanwhile is heard (Escape cancels).
        Witness app;
        QVERIFY(app.ready());
        QVERIFY(listen());
        hook->setSwallowed({KeyCombo::withAnyModifiers(keycode::Fn)});
        const int menu = kc("Menu");
        QVERIFY(desktop().keyboardPress(menu));
        auto e = heard.next(keycode::Fn, Type::FlagsChanged);
        QVERIFY(e);
        QCOMPARE(e->flags, modifier::FnDown);
        QTest::qWait(1200); // the server repeats a held key from 660 ms on
        QCOMPARE(hook->lastModifierFlags(), modifier::FnDown);
        QVERIFY(desktop().keyboardChord({kc("Escape")}));
        e = heard.next(keycode::Escape, Type::KeyDown);
        QVERIFY(e);
        QCOMPARE(e->flags, modifier::FnDown);
        QVERIFY(!e->autoRepeat);
        QVERIFY(desktop().keyboardRelease(menu));
        e = heard.next(keycode::Fn, Type::FlagsChanged);
        QVERIFY(e);
        QCOMPARE(e->flags, uint64_t(0));
        // With a modifier held, as a tap.
        QVERIFY(desktop().keyboardChord({kc("Shift_L"), menu}));
        e = heard.next(keycode::Fn, Type::FlagsChanged);
        QVERIFY(e);
        QCOMPARE(e->flags & modifier::FnDown, modifier::FnDown);
        QVERIFY(heard.next(keycode::Fn, Type::FlagsChanged));
        QVERIFY(desktop().keyboardChord({kc("x")}));
        QVERIFY(app.waitFor(kc("x")));
        QCOMPARE(app.presses(menu), 0);
        QCOMPARE(heard.count(keycode::Fn, Type::FlagsChanged), 4);
        QCOMPARE(hook->lastModifierFlags(), uint64_t(0));

        // Not in the list: the application has it.
        hook->setSwallowed({});
        QVERIFY(desktop().keyboardChord({menu}));
        QVERIFY(DesktopSession::waitUntil([&] { return app.presses(menu) == 1; }));
    }

    void ctrlAltShortcutsWithAltGr() {
        // Ctrl+AltGr+V is what many French users press for Ctrl+Alt+V: the X state then has
        // AltGr's modifier (Mod5), not Alt's. Both are taken, and heard as Ctrl+Alt.
        const auto restore = layout("fr");
        Witness app;
        QVERIFY(app.ready());
        QVERIFY(listen());
        const uint64_t shortcut = modifier::Control | modifier::Option;
        hook->setSwallowed({{keycode::V, shortcut}, {keycode::R, shortcut}});
        const int v = kc("v"), r = kc("r");
        QVERIFY(desktop().keyboardChord({kc("Control_L"), kRightAlt, v}));
        QVERIFY(desktop().keyboardChord({kc("Control_R"), kRightAlt, r}));
        QVERIFY(desktop().keyboardChord({kc("Control_L"), kc("Alt_L"), v}));
        for (const uint16_t code : {keycode::V, keycode::R, keycode::V}) {
            const auto e = heard.next(code, Type::KeyDown);
            QVERIFY(e);
            QCOMPARE(e->flags & modifier::Mask, shortcut);
        }
        QVERIFY(desktop().keyboardChord({kc("x")}));
        QVERIFY(app.waitFor(kc("x")));
        QCOMPARE(app.presses(v), 0);
        QCOMPARE(app.presses(r), 0);
    }

    void rightAltNamedAsTheLayoutHasIt() {
        QCOMPARE(hook->rightAltIsAltGr(), std::nullopt); // not running: unknown
        QVERIFY(hook->start([](const KeyEvent&) {}));
        // The US layout of Xvfb maps Right Alt to Alt_R, the French one to ISO_Level3_Shift;
        // the hook follows a change made while it runs.
        QCOMPARE(hook->rightAltIsAltGr(), std::optional(false));
        {
            const auto restore = layout("fr");
            QTRY_COMPARE(hook->rightAltIsAltGr(), std::optional(true));
        }
        QTRY_COMPARE(hook->rightAltIsAltGr(), std::optional(false));
        hook->stop();
        QCOMPARE(hook->rightAltIsAltGr(), std::nullopt);
    }

    void startFailsWithAReason() {
        const QByteArray display = qgetenv("DISPLAY");

        qputenv("WAYLAND_DISPLAY", "wayland-0");
        QVERIFY(!hook->start([](const KeyEvent&) {}));
        QVERIFY(!hook->running());
        QVERIFY2(hook->reason().contains(QStringLiteral("Wayland")), qPrintable(hook->reason()));
        qunsetenv("WAYLAND_DISPLAY");

        qputenv("DISPLAY", ":4095");
        QVERIFY(!hook->start([](const KeyEvent&) {}));
        QVERIFY2(hook->reason().contains(QStringLiteral(":4095")), qPrintable(hook->reason()));
        qunsetenv("DISPLAY");
        QVERIFY(!hook->start([](const KeyEvent&) {}));
        QVERIFY2(hook->reason().contains(QStringLiteral("DISPLAY")), qPrintable(hook->reason()));
        QCOMPARE(hook->lastModifierFlags(), uint64_t(0));

        qputenv("DISPLAY", display);
        QVERIFY(hook->start([](const KeyEvent&) {}));
        QVERIFY(hook->reason().isEmpty());
    }
};

// The platform's hook still running when the process ends, after the application is gone:
// its stop must neither crash nor lose the connection (the platform lives to the end).
class TstX11KeyboardEnd : public TstX11Keyboard {
    Q_OBJECT
private Q_SLOTS:
    void aHookLivesToTheEnd() {
        KeyboardHook& hook = Platform::current().keyboard();
        QVERIFY(hook.start([](const KeyEvent&) {}));
        hook.setSwallowed({{keycode::R, modifier::Control | modifier::Option}});
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstX11KeyboardEnd)
#include "tst_x11keyboard.moc"
