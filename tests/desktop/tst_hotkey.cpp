// The hotkey monitor on a fake keyboard: the dictation key, posted keys, the keys swallowed in
// each state, the fixed shortcuts and the Ctrl+C runs.
#include "FakePlatform.h"

#include "data/Settings.h"
#include "desktop/HotkeyMonitor.h"
#include "desktop/Log.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

constexpr uint64_t kCtrlAlt = modifier::Control | modifier::Option;
// Right Alt as the hook reports it: the Alt flag and the right-hand device bit.
constexpr uint64_t kRightAltDown = modifier::Option | modifier::RightOptionDown;

KeyEvent flagsEvent(uint16_t code, uint64_t flags, int64_t pid = 0) {
    KeyEvent e;
    e.type = KeyEvent::Type::FlagsChanged;
    e.keyCode = code;
    e.flags = flags;
    e.sourcePid = pid;
    return e;
}

KeyEvent keyDown(uint16_t code, uint64_t flags, bool repeat = false, int64_t pid = 0) {
    KeyEvent e;
    e.keyCode = code;
    e.flags = flags;
    e.autoRepeat = repeat;
    e.sourcePid = pid;
    return e;
}

} // namespace

class TstHotkey : public QObject {
    Q_OBJECT
    FakePlatform platform;
    QTemporaryDir dir;
    std::unique_ptr<HotkeyMonitor> monitor;
    bool dictating = false;
    QMap<QString, int> calls;

    AppSettings& settings() { return AppSettings::shared(); }
    FakeKeyboard& keys() { return platform.keyboard(); }
    void send(std::initializer_list<KeyEvent> events) {
        for (const KeyEvent& e : events)
            keys().send(e);
        QCoreApplication::processEvents(); // callbacks come on a later turn of the loop
    }
    // The callbacks called so far: "cancel=1 press=2".
    QString counts() const {
        QStringList out;
        for (auto it = calls.cbegin(); it != calls.cend(); ++it)
            out << it.key() + QLatin1Char('=') + QString::number(it.value());
        return out.join(QLatin1Char(' '));
    }
    QString journal() {
        Log::sync();
        QFile f(dir.filePath("journal.log"));
        f.open(QIODevice::ReadOnly);
        return QString::fromUtf8(f.readAll());
    }

private Q_SLOTS:
    void initTestCase() { Log::resetForTests(dir.filePath("journal.log")); }
    void cleanupTestCase() { Log::resetForTests(); }

    void init() {
        settings().setKey(DictationKey::RightOption);
        settings().setCorrectionShortcut(true);
        settings().setCorrectionDoubleCopy(true);
        settings().setCorrectionKeyCode(keycode::C);
        settings().setCorrectionModifiers(kCtrlAlt);
        settings().setAcceptPostedKeys(false);
        keys().available = true;
        dictating = false;
        calls.clear();
        monitor = std::make_unique<HotkeyMonitor>();
        monitor->isDictating = [this] { return dictating; };
        auto count = [this](const char* name) { return [this, name] { ++calls[name]; }; };
        monitor->onPress = count("press");
        monitor->onRelease = count("release");
        monitor->onCorrect = count("correct");
        monitor->onDoubleCopy = count("double");
        monitor->onTripleCopy = count("triple");
        monitor->onSpeak = count("speak");
        monitor->onCancel = count("cancel");
        monitor->onPasteLast = count("pasteLast");
        monitor->start();
    }
    void cleanup() { monitor.reset(); }

    void dictationKeyGivesOnePressAndOneRelease() {
        QVERIFY(monitor->running());
        send({flagsEvent(keycode::LeftOption, modifier::Option)}); // the left key of the pair
        QCOMPARE(counts(), "");
        send({flagsEvent(keycode::RightOption, kRightAltDown),
              flagsEvent(keycode::RightOption, kRightAltDown)}); // the same state seen twice
        QCOMPARE(counts(), "press=1");
        send({flagsEvent(keycode::RightOption, 0)});
        QCOMPARE(counts(), "press=1 release=1");

        // Keys posted by other programs are refused (and named in the journal) unless the user
        // accepts them (a remote desktop).
        platform.windows().names[4242] = "Remmina";
        send({flagsEvent(keycode::RightOption, kRightAltDown, -1),
              flagsEvent(keycode::RightOption, kRightAltDown, 4242)});
        QCOMPARE(counts(), "press=1 release=1");
        QVERIFY(journal().contains("source Remmina"));
        settings().setAcceptPostedKeys(true);
        QCOMPARE(keys().acceptPosted, true);
        send({flagsEvent(keycode::RightOption, kRightAltDown, -1),
              flagsEvent(keycode::RightOption, 0, -1)});
        QCOMPARE(counts(), "press=2 release=2");

        // Another key chosen: its own code and device bit; recording a shortcut changes nothing.
        settings().setKey(DictationKey::RightControl);
        monitor->setRecording(true);
        send({flagsEvent(keycode::RightOption, kRightAltDown),
              flagsEvent(keycode::RightControl, modifier::Control)}); // left Ctrl's bit only
        QCOMPARE(counts(), "press=2 release=2");
        send({flagsEvent(keycode::RightControl, modifier::Control | modifier::RightControlDown)});
        QCOMPARE(counts(), "press=3 release=2");
    }

    void swallowedKeysFollowStateAndSettings() {
        using L = QList<KeyCombo>;
        const KeyCombo paste{keycode::V, kCtrlAlt}, speak{keycode::R, kCtrlAlt};
        const KeyCombo escape = KeyCombo::withAnyModifiers(keycode::Escape);
        const KeyCombo menu = KeyCombo::withAnyModifiers(keycode::Fn);
        // Idle: the two fixed shortcuts only; Escape belongs to the application in front. With
        // the double copy on, the correction shortcut is not acted on, so not taken.
        QCOMPARE(keys().swallowed, (L{paste, speak}));
        // Dictating: Escape whatever is held. In hold-to-talk the dictation key (AltGr, Right
        // Ctrl, Right Super) is down with it, and Escape must not reach the application.
        dictating = true;
        monitor->refresh();
        QCOMPARE(keys().swallowed, (L{escape, paste, speak}));
        dictating = false;
        monitor->refresh();
        // The shortcut replaces the double copy: taken from the moment the setting changes.
        settings().setCorrectionDoubleCopy(false);
        QCOMPARE(keys().swallowed, (L{paste, speak, {keycode::C, kCtrlAlt}}));
        const KeyCombo correct{keycode::C, modifier::Control | modifier::Shift};
        settings().setCorrectionModifiers(correct.modifiers);
        QCOMPARE(keys().swallowed, (L{paste, speak, correct}));
        settings().setCorrectionShortcut(false);
        QCOMPARE(keys().swallowed, (L{paste, speak}));
        // The Menu key only as the dictation key.
        settings().setKey(DictationKey::Fn);
        QCOMPARE(keys().swallowed, (L{menu, paste, speak}));
        send({flagsEvent(keycode::Fn, modifier::FnDown), flagsEvent(keycode::Fn, modifier::FnDown),
              flagsEvent(keycode::Fn, 0)});
        QCOMPARE(counts(), "press=1 release=1");

        // Capturing a shortcut in the settings: nothing but Escape of a running dictation, and
        // the dictation key, which still works.
        settings().setCorrectionShortcut(true);
        dictating = true;
        monitor->setRecording(true);
        QCOMPARE(keys().swallowed, (L{escape, menu}));
        monitor->setRecording(false);
        settings().setKey(DictationKey::RightControl);
        QCOMPARE(keys().swallowed, (L{escape, paste, speak, correct}));
    }

    void escapeAndFixedShortcuts() {
        send({keyDown(keycode::Escape, 0)}); // idle: the application's
        dictating = true;
        // With the dictation key held (AltGr reported as Alt), still the cancel.
        send({keyDown(keycode::Escape, 0), keyDown(keycode::Escape, kRightAltDown),
              keyDown(keycode::Escape, modifier::Control | modifier::RightControlDown)});
        QCOMPARE(counts(), "cancel=3");
        // Ctrl+AltGr+V, as French users type Ctrl+Alt+V; held down, one paste.
        dictating = false;
        send({keyDown(keycode::V, modifier::Control | kRightAltDown)});
        dictating = true;
        send({keyDown(keycode::V, kCtrlAlt), keyDown(keycode::V, kCtrlAlt, true),
              keyDown(keycode::V, kCtrlAlt, true)});
        QCOMPARE(counts(), "cancel=3 pasteLast=2");
        // Other modifiers: not ours.
        send({keyDown(keycode::R, kCtrlAlt | modifier::Shift), keyDown(keycode::R, kCtrlAlt)});
        QCOMPARE(counts(), "cancel=3 pasteLast=2 speak=1");
        monitor->setRecording(true);
        send({keyDown(keycode::V, kCtrlAlt), keyDown(keycode::R, kCtrlAlt)});
        QCOMPARE(counts(), "cancel=3 pasteLast=2 speak=1");
    }

    void copyRuns() {
        ManualClock& clock = platform.clock();
        const KeyEvent copy = keyDown(keycode::C, modifier::Control);
        // Twice within half a second: the double comes after the delay, not before.
        send({copy});
        clock.advance(300);
        send({copy});
        QCOMPARE(counts(), "");
        QTRY_COMPARE_WITH_TIMEOUT(counts(), "double=1", 2000);

        // Three times: the triple at once, and the pending double then does nothing.
        clock.advance(5000);
        send({copy});
        clock.advance(200);
        send({copy});
        clock.advance(200);
        send({copy});
        QCOMPARE(counts(), "double=1 triple=1");

        // Half a second apart: each starts a new run.
        clock.advance(5000);
        send({copy});
        clock.advance(500);
        send({copy});
        // Not the copy key: with Shift, repeated, posted by this program or by another.
        clock.advance(5000);
        KeyEvent own = copy;
        own.postedBySelf = true;
        send({keyDown(keycode::C, modifier::Control | modifier::Shift),
              keyDown(keycode::C, modifier::Control | modifier::Shift), copy, own,
              keyDown(keycode::C, modifier::Control, true),
              keyDown(keycode::C, modifier::Control, false, -1)});
        // The correction shortcut counts only without the double copy.
        send({keyDown(keycode::C, kCtrlAlt)});
        QTest::qWait(HotkeyMonitor::kDoubleCopyDelayMs + 100);
        QCOMPARE(counts(), "double=1 triple=1");

        // Keys of a remote desktop count when the user says so.
        settings().setAcceptPostedKeys(true);
        clock.advance(5000);
        send({keyDown(keycode::C, modifier::Control, false, -1),
              keyDown(keycode::C, modifier::Control, false, -1)});
        QTRY_COMPARE_WITH_TIMEOUT(counts(), "double=2 triple=1", 2000);

        // The shortcut instead of the double copy: a plain Ctrl+C counts for nothing then.
        settings().setCorrectionDoubleCopy(false);
        clock.advance(5000);
        send({keyDown(keycode::C, kCtrlAlt), keyDown(keycode::C, kCtrlAlt, true), copy, copy});
        QTest::qWait(HotkeyMonitor::kDoubleCopyDelayMs + 100);
        QCOMPARE(counts(), "correct=1 double=2 triple=1");
    }

    void keyboardMissingIsLogged() {
        monitor.reset();
        keys().stop();
        keys().available = false;
        HotkeyMonitor m;
        m.start();
        QVERIFY(!m.running());
        QVERIFY(journal().contains("hotkey: clavier global indisponible (pas de clavier (test))"));
        // A key the desktop brings (`--press`) is not the hook's: held across a restart, it
        // still gets its release.
        int released = 0;
        m.onRelease = [&released] { ++released; };
        m.keyFromDesktop(true, "test");
        m.restart();
        m.keyFromDesktop(false, "test");
        QCOMPARE(released, 1);
    }
};

QTEST_GUILESS_MAIN(TstHotkey)
#include "tst_hotkey.moc"
