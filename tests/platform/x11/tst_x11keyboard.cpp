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

constexpr uint64_t kNone = ~uint64_t(0); // the flags of an event that never came
constexpr uint64_t LeftOptionDown = 0x20, LeftControlDown = 0x1;
constexpr uint64_t kCtrlAlt = modifier::Control | modifier::Option;
constexpr uint16_t X = 7, A = 0, Q = 12;
// Right Alt by its place on a PC keyboard: AltGr on a French layout, Alt_R on a US one.
constexpr int kRightAlt = 108;

// The events the hook delivered, read in order by the test.
struct Heard {
    QList<KeyEvent> events;
    qsizetype read = 0;

    // The next event of this key within five seconds (events of other keys are passed over);
    // its flags are kNone when none came.
    KeyEvent next(uint16_t code, Type type = Type::KeyDown) {
        KeyEvent found;
        found.flags = kNone;
        DesktopSession::waitUntil([&] {
            for (; read < events.size(); ++read)
                if (events[read].keyCode == code && events[read].type == type) {
                    found = events[read++];
                    return true;
                }
            return false;
        });
        return found;
    }
    int count(uint16_t code, Type type = Type::KeyDown) const {
        return int(std::count_if(events.begin(), events.end(), [&](const KeyEvent& e) {
            return e.keyCode == code && e.type == type;
        }));
    }
};

// Where the hook says an event came from.
const char* source(const KeyEvent& e) {
    if (e.flags == kNone) return "rien";
    if (e.postedBySelf) return e.sourcePid == 0 ? "soi" : "soi, d'un programme";
    return e.sourcePid == 0 ? "clavier" : e.sourcePid == -1 ? "programme" : "autre";
}

// An application in front: a window of its own connection, active and focused, that counts
// the key presses it receives. A swallowed key never reaches it.
class Witness {
public:
    Witness() : display_(XOpenDisplay(nullptr)) {
        if (!display_) return;
        window_ =
            XCreateSimpleWindow(display_, DefaultRootWindow(display_), 0, 0, 200, 100, 0, 0, 0);
        XWMHints hints{};
        hints.flags = InputHint;
        hints.input = True;
        XSetWMHints(display_, window_, &hints);
        XSelectInput(display_, window_, KeyPressMask);
        XMapWindow(display_, window_);
        XSync(display_, False);
        ready_ =
            DesktopSession::current()->activateWindow(window_) && DesktopSession::waitUntil([this] {
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
    const auto set = DesktopSession::current()->run("setxkbmap", {QLatin1String(name)});
    if (set.exitCode != 0) qWarning("setxkbmap %s: %s", name, set.err.constData());
    return qScopeGuard([] { DesktopSession::current()->run("setxkbmap", {"us"}); });
}

} // namespace

class TstX11Keyboard : public QObject {
    Q_OBJECT
    DesktopSession& desktop() { return *DesktopSession::current(); }
    int kc(const char* name) { return desktop().keycode(name); }

protected:
    std::unique_ptr<KeyboardHook> hook = x11::makeKeyboardHook();
    Heard heard;
    bool listen() {
        return hook->start([this](const KeyEvent& e) { heard.events << e; });
    }

private Q_SLOTS:
    void initTestCase() { OMBRY_REQUIRE_DESKTOP(); }
    void cleanup() {
        hook->stop();
        hook = x11::makeKeyboardHook();
        heard = Heard{};
    }

    void copyRunsAndHeldKeys() {
        QVERIFY2(listen(), qPrintable(hook->reason()));
        QVERIFY(desktop().keyboardPress(kc("Control_L")));
        QVERIFY(desktop().keyboardChord({kc("c")}));
        QVERIFY(desktop().keyboardChord({kc("c")}));
        // A key pressed again without being released is a repeat.
        QVERIFY(desktop().keyboardPress(kc("c")));
        QVERIFY(desktop().keyboardPress(kc("c")));
        QVERIFY(desktop().keyboardRelease(kc("c")));
        QVERIFY(desktop().keyboardRelease(kc("Control_L")));
        for (const bool repeat : {false, false, false, true}) {
            const KeyEvent e = heard.next(keycode::C);
            QCOMPARE(e.flags, modifier::Control | LeftControlDown);
            QCOMPARE(e.autoRepeat, repeat);
            QCOMPARE(source(e), "clavier");
        }
        // Key releases of ordinary keys are not reported.
        QCOMPARE(heard.next(keycode::LeftControl, Type::FlagsChanged).flags, uint64_t(0));
        QCOMPARE(heard.count(keycode::C), 4);
        hook->stop();
        QCOMPARE(hook->lastModifierFlags(), uint64_t(0));
        QVERIFY(!hook->running());
    }

    void postedKeysAreTold() {
        auto poster = x11::makeKeyPoster();
        QVERIFY(listen());
        // xdotool posts through XTEST: a program's key.
        QVERIFY(desktop().xdotool({"key", "x"}));
        QCOMPARE(source(heard.next(X)), "programme");

        // This process's own Ctrl+C, modifier included, is its own and counts as no program's.
        QVERIFY(poster->post(keycode::C, modifier::Control));
        KeyEvent e = heard.next(keycode::LeftControl, Type::FlagsChanged);
        QVERIFY(!strcmp(source(e), "soi") && (e.flags & modifier::Mask) == modifier::Control);
        e = heard.next(keycode::C);
        QVERIFY(!strcmp(source(e), "soi") && (e.flags & modifier::Mask) == modifier::Control);
        e = heard.next(keycode::LeftControl, Type::FlagsChanged);
        QVERIFY(!strcmp(source(e), "soi") && e.flags == 0);

        // The own keys were all claimed: the same keys from xdotool right after are not ours.
        QVERIFY(desktop().xdotool({"key", "ctrl+c"}));
        QCOMPARE(source(heard.next(keycode::C)), "programme");
        // Remote desktops post the user's keys: they can be taken as real ones.
        hook->setAcceptPostedKeys(true);
        QVERIFY(desktop().xdotool({"key", "x"}));
        QCOMPARE(source(heard.next(X)), "clavier");
    }

    void aPasteWhileTheShortcutIsHeld() {
        // Ctrl+Alt+V asks for a paste while the user still holds Ctrl+Alt: the posted Ctrl+V
        // must reach the field as Ctrl+V, and the hook must neither take it for another
        // Ctrl+Alt+V nor see Alt go up.
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        auto poster = x11::makeKeyPoster();
        auto clipboard = x11::makeClipboard();
        QVERIFY(listen());
        hook->setSwallowed({{keycode::V, kCtrlAlt}});
        QVERIFY(desktop().keyboardPress(kc("Control_L")));
        QVERIFY(desktop().keyboardPress(kc("Alt_L")));
        QVERIFY(desktop().keyboardChord({kc("v")}));
        KeyEvent e = heard.next(keycode::V);
        QVERIFY(!strcmp(source(e), "clavier") && (e.flags & modifier::Mask) == kCtrlAlt);

        const QString text = QStringLiteral("Déjà collé");
        bool fetched = false;
        const AppWindow field{desktop().targetWindow(), {}, {}, {}, 0};
        clipboard->setText(text, false, [&](const ClipboardFetch& fetch) {
            fetched = fetched || fetch.byApplicationOf(field);
        });
        QVERIFY(poster->post(keycode::V, modifier::Primary));
        QTRY_VERIFY(fetched);
        e = heard.next(keycode::V);
        QVERIFY(!strcmp(source(e), "soi") && (e.flags & modifier::Mask) == modifier::Control);
        QCOMPARE(hook->lastModifierFlags() & modifier::Mask, kCtrlAlt);
        QCOMPARE(heard.count(keycode::LeftOption, Type::FlagsChanged), 1);

        QVERIFY(desktop().keyboardRelease(kc("Alt_L")));
        QVERIFY(desktop().keyboardRelease(kc("Control_L")));
        QCOMPARE(heard.next(keycode::LeftControl, Type::FlagsChanged).flags, uint64_t(0));
        QCOMPARE(desktop().closeTarget().value_or("?"), text);
    }

    void aSwallowedShortcutAgainAndAgain() {
        // While a grab of the hook holds the keyboard, the releases reach it only as core
        // events: a shortcut pressed again is no repeat, and modifiers let go before the key
        // are up for the hook too.
        QVERIFY(listen());
        hook->setSwallowed({{keycode::V, kCtrlAlt}});
        for (int i = 0; i < 2; ++i) {
            QVERIFY(desktop().keyboardChord({kc("Control_L"), kc("Alt_L"), kc("v")}));
            const KeyEvent e = heard.next(keycode::V);
            QVERIFY(e.flags != kNone && !e.autoRepeat);
        }
        for (const char* key : {"Control_L", "Alt_L", "v"})
            QVERIFY(desktop().keyboardPress(kc(key)));
        for (const char* key : {"Alt_L", "Control_L", "v"})
            QVERIFY(desktop().keyboardRelease(kc(key)));
        QVERIFY(DesktopSession::waitUntil([&] { return heard.count(keycode::V) == 3; }));
        QVERIFY(DesktopSession::waitUntil([&] { return hook->lastModifierFlags() == 0; }, 2000));

        // Keys typed right after a switch of keyboard (a program's keys, then the user's) are
        // all heard at once, not when the next key comes.
        QVERIFY(desktop().xdotool({"key", "x"}));
        QVERIFY(desktop().keyboardChord({kc("Control_L"), kc("c")}));
        QVERIFY(desktop().keyboardChord({kc("Control_L"), kc("c")}));
        QVERIFY(DesktopSession::waitUntil([&] { return heard.count(keycode::C) == 2; }, 2000));
    }

    void theHandlerMayChangeTheHook() {
        // Swallowing again and stopping from inside the handler, as the hotkey monitor does on
        // a change of state: the events keep their order, and none comes after the stop.
        QList<uint16_t> codes;
        QVERIFY(hook->start([&](const KeyEvent& e) {
            if (e.type != Type::KeyDown) return;
            codes << e.keyCode;
            hook->setSwallowed(codes.size() % 2 ? QList<KeyCombo>{{keycode::Escape, 0}}
                                                : QList<KeyCombo>{});
            if (e.keyCode == keycode::Escape) hook->stop();
        }));
        QVERIFY(desktop().keyboardType("asdf"));
        QVERIFY(desktop().keyboardChord({kc("Escape")}));
        QVERIFY(desktop().keyboardType("zx"));
        QVERIFY(DesktopSession::waitUntil([&] { return !hook->running(); }, 2000));
        QTest::qWait(100);
        QCOMPARE(codes, (QList<uint16_t>{A, 1, 2, 3, keycode::Escape}));
    }

    void aChangeOfLayoutIsFollowed() {
        // Letters go by their symbol, keys without a letter by their place; the hook and the
        // poster both follow a layout changed while they run, and so does the name of Right
        // Alt: Alt_R on the US layout of Xvfb, ISO_Level3_Shift (AltGr) on the French one.
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        auto poster = x11::makeKeyPoster();
        QCOMPARE(hook->rightAltIsAltGr(), std::nullopt); // not running: unknown
        QVERIFY(listen());
        QCOMPARE(hook->rightAltIsAltGr(), std::optional(false));
        QVERIFY(poster->post(Q, 0));
        QVERIFY(desktop().keyboardChord({24})); // the key right of Tab: Q in QWERTY
        QCOMPARE(source(heard.next(Q)), "soi");
        QCOMPARE(source(heard.next(Q)), "clavier");
        {
            const auto restore = layout("fr");
            QTRY_COMPARE(hook->rightAltIsAltGr(), std::optional(true));
            QVERIFY(desktop().keyboardChord({24})); // A in AZERTY
            QCOMPARE(source(heard.next(A)), "clavier");
            QVERIFY(desktop().keyboardChord({10})); // "&" in AZERTY, 1 in QWERTY: by place
            QVERIFY(heard.next(18).flags != kNone);
            QVERIFY(desktop().keyboardChord({kc("ISO_Level3_Shift")})); // AltGr
            QCOMPARE(heard.next(keycode::RightOption, Type::FlagsChanged).flags,
                     modifier::Option | modifier::RightOptionDown);
            QVERIFY(poster->post(Q, 0));
            QVERIFY(poster->post(A, 0));
            QVERIFY(heard.next(A).flags != kNone);
            QCOMPARE(desktop().closeTarget().value_or("?"), QStringLiteral("qqa&qa"));
        }
        QTRY_COMPARE(hook->rightAltIsAltGr(), std::optional(false));
        hook->stop();
        QCOMPARE(hook->rightAltIsAltGr(), std::nullopt);
    }

    // Keys taken from the application in front, and heard with the flags of what is held:
    // Escape whatever is held (in hold-to-talk the dictation key is down: AltGr on a French
    // layout, a modifier of its own, not Alt's; Right Ctrl; Right Super); Ctrl+AltGr+V, which
    // many French users press for Ctrl+Alt+V (the X state has Mod5, not Alt's modifier); and
    // the Menu key as the dictation key (the application's context menu would take the
    // keyboard and the paste), whose auto-repeat gives no further press or release.
    void keysTakenFromTheApplication() {
        const auto restore = layout("fr");
        Witness app;
        QVERIFY(app.ready());
        QVERIFY(listen());
        hook->setSwallowed({KeyCombo::withAnyModifiers(keycode::Escape),
                            {keycode::V, kCtrlAlt},
                            {keycode::R, kCtrlAlt},
                            KeyCombo::withAnyModifiers(keycode::Fn)});
        const int escape = kc("Escape"), v = kc("v"), r = kc("r"), menu = kc("Menu");
        const uint64_t altGr = modifier::Option | modifier::RightOptionDown;
        const uint64_t leftCtrl = modifier::Control | LeftControlDown;
        const struct {
            QList<int> keys;
            uint16_t code;
            uint64_t flags;
        } chords[] = {
            {{escape}, keycode::Escape, 0},
            {{kRightAlt, escape}, keycode::Escape, altGr},
            {{kc("Control_R"), escape},
             keycode::Escape,
             modifier::Control | modifier::RightControlDown},
            {{kc("Super_R"), escape},
             keycode::Escape,
             modifier::Command | modifier::RightCommandDown},
            {{kc("Shift_L"), escape}, keycode::Escape, modifier::Shift | 0x2},
            {{kc("Control_L"), kRightAlt, v}, keycode::V, leftCtrl | altGr},
            {{kc("Control_R"), kRightAlt, r},
             keycode::R,
             modifier::Control | modifier::RightControlDown | altGr},
            {{kc("Control_L"), kc("Alt_L"), v},
             keycode::V,
             leftCtrl | modifier::Option | LeftOptionDown},
        };
        for (const auto& c : chords) {
            QVERIFY(desktop().keyboardChord(c.keys));
            const KeyEvent e = heard.next(c.code);
            QCOMPARE(e.flags, c.flags);
            QVERIFY(!e.autoRepeat);
        }
        // With Num Lock on, the grab still holds.
        QVERIFY(desktop().keyboardChord({kc("Num_Lock")}));
        QVERIFY(desktop().keyboardChord({kc("Control_L"), kc("Alt_L"), v}));
        QVERIFY(desktop().keyboardChord({kc("Num_Lock")}));
        QVERIFY(heard.next(keycode::V).flags != kNone);

        QVERIFY(desktop().keyboardPress(menu));
        QCOMPARE(heard.next(keycode::Fn, Type::FlagsChanged).flags, modifier::FnDown);
        QTest::qWait(1200); // the server repeats a held key from 660 ms on
        QCOMPARE(hook->lastModifierFlags(), modifier::FnDown);
        QVERIFY(desktop().keyboardChord({escape})); // heard while Menu is held: a cancel
        QCOMPARE(heard.next(keycode::Escape).flags, modifier::FnDown);
        QVERIFY(desktop().keyboardRelease(menu));
        QCOMPARE(heard.next(keycode::Fn, Type::FlagsChanged).flags, uint64_t(0));
        // With a modifier held, as a tap.
        QVERIFY(desktop().keyboardChord({kc("Shift_L"), menu}));
        QCOMPARE(heard.next(keycode::Fn, Type::FlagsChanged).flags & modifier::FnDown,
                 modifier::FnDown);
        QVERIFY(heard.next(keycode::Fn, Type::FlagsChanged).flags != kNone);

        QVERIFY(desktop().keyboardChord({kc("x")}));
        QVERIFY(app.waitFor(kc("x")));
        for (const int key : {escape, v, r, menu})
            QCOMPARE(app.presses(key), 0);
        QCOMPARE(heard.count(keycode::Escape), 6);
        QCOMPARE(heard.count(keycode::Fn, Type::FlagsChanged), 4);
        QVERIFY(DesktopSession::waitUntil([&] { return hook->lastModifierFlags() == 0; }, 2000));

        // Not in the list: the application has it.
        hook->setSwallowed({});
        QVERIFY(desktop().keyboardChord({menu}));
        QVERIFY(DesktopSession::waitUntil([&] { return app.presses(menu) == 1; }));
    }

    void startFailsWithAReason() {
        const QByteArray display = qgetenv("DISPLAY");
        const auto reasonOfFailure = [&] {
            return hook->start([](const KeyEvent&) {}) ? QStringLiteral("démarré") : hook->reason();
        };
        qputenv("WAYLAND_DISPLAY", "wayland-0");
        QVERIFY2(reasonOfFailure().contains("Wayland"), qPrintable(hook->reason()));
        qunsetenv("WAYLAND_DISPLAY");
        qputenv("DISPLAY", ":4095");
        QVERIFY2(reasonOfFailure().contains(":4095"), qPrintable(hook->reason()));
        qunsetenv("DISPLAY");
        QVERIFY2(reasonOfFailure().contains("DISPLAY"), qPrintable(hook->reason()));
        QVERIFY(!hook->running());
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
        hook.setSwallowed({{keycode::R, kCtrlAlt}});
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstX11KeyboardEnd)
#include "tst_x11keyboard.moc"
