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

KeyEvent flagsEvent(uint16_t code, uint64_t flags, int64_t pid = 0) {
    KeyEvent e;
    e.type = KeyEvent::Type::FlagsChanged;
    e.keyCode = code;
    e.flags = flags;
    e.sourcePid = pid;
    return e;
}

KeyEvent keyDown(uint16_t code, uint64_t flags, bool repeat = false) {
    KeyEvent e;
    e.keyCode = code;
    e.flags = flags;
    e.autoRepeat = repeat;
    return e;
}

// Right Alt down and up, as the hook reports them (Alt flag plus the right-hand device bit).
const uint64_t kRightAltDown = modifier::Option | modifier::RightOptionDown;

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
    void send(const KeyEvent& e) {
        keys().send(e);
        QCoreApplication::processEvents(); // callbacks come on a later turn of the loop
    }
    QString journal() {
        Log::sync();
        QFile f(dir.filePath("journal.log"));
        f.open(QIODevice::ReadOnly);
        return QString::fromUtf8(f.readAll());
    }
    bool swallowed(uint16_t code, uint64_t mods) { return keys().swallows(code, mods); }

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
        send(flagsEvent(keycode::LeftOption, modifier::Option)); // the left key of the pair
        QCOMPARE(calls.value("press"), 0);
        send(flagsEvent(keycode::RightOption, kRightAltDown));
        send(flagsEvent(keycode::RightOption, kRightAltDown)); // the same state seen twice
        QCOMPARE(calls.value("press"), 1);
        send(flagsEvent(keycode::RightOption, 0));
        QCOMPARE(calls.value("release"), 1);
        QVERIFY(
            journal().contains("touche: rightOption enfoncée (0x80040, source clavier, état 1)"));
        QVERIFY(journal().contains("touche: rightOption relâchée (0x0, source clavier, état 1)"));

        // Another key chosen: its own code and device bit; recording a shortcut changes nothing.
        settings().setKey(DictationKey::RightControl);
        monitor->setRecording(true);
        send(flagsEvent(keycode::RightOption, kRightAltDown));
        send(flagsEvent(keycode::RightControl, modifier::Control)); // left Ctrl's bit only
        QCOMPARE(calls.value("press"), 1);
        send(flagsEvent(keycode::RightControl, modifier::Control | modifier::RightControlDown));
        QCOMPARE(calls.value("press"), 2);
        QVERIFY(journal().contains("touche: rightControl enfoncée (0x42000"));
    }

    void keysPostedByOtherProgramsAreLoggedAndRefusedUnlessAccepted() {
        QCOMPARE(keys().acceptPosted, false);
        send(flagsEvent(keycode::RightOption, kRightAltDown, -1));
        QCOMPARE(calls.value("press"), 0);
        QVERIFY(journal().contains("source programme (XTEST)"));
        platform.windows().names[4242] = "Remmina";
        send(flagsEvent(keycode::RightOption, kRightAltDown, 4242));
        QCOMPARE(calls.value("press"), 0);
        QVERIFY(journal().contains("source Remmina"));

        settings().setAcceptPostedKeys(true); // a remote desktop
        QCOMPARE(keys().acceptPosted, true);
        send(flagsEvent(keycode::RightOption, kRightAltDown, -1));
        QCOMPARE(calls.value("press"), 1);
    }

    void swallowedKeysFollowStateAndSettings() {
        // Idle: the two fixed shortcuts only; Escape belongs to the application in front.
        QVERIFY(swallowed(keycode::V, kCtrlAlt));
        QVERIFY(swallowed(keycode::R, kCtrlAlt));
        QVERIFY(!swallowed(keycode::Escape, 0));
        // With the double copy on, the correction shortcut is not acted on, so not taken.
        QVERIFY(!swallowed(keycode::C, kCtrlAlt));

        dictating = true;
        monitor->refresh();
        QVERIFY(swallowed(keycode::Escape, 0));
        // Whatever is held: in hold-to-talk the dictation key (AltGr, Right Ctrl, Right Super)
        // is down with it, and Escape must not reach the application (a dialog, vim).
        QVERIFY(swallowed(keycode::Escape, modifier::Option));
        QVERIFY(swallowed(keycode::Escape, modifier::Control));
        QVERIFY(swallowed(keycode::Escape, modifier::Command | modifier::Shift));
        dictating = false;
        monitor->refresh();
        QVERIFY(!swallowed(keycode::Escape, 0));

        // The shortcut replaces the double copy: taken from the moment the setting changes.
        settings().setCorrectionDoubleCopy(false);
        QVERIFY(swallowed(keycode::C, kCtrlAlt));
        settings().setCorrectionModifiers(modifier::Control | modifier::Shift);
        QVERIFY(swallowed(keycode::C, modifier::Control | modifier::Shift));
        QVERIFY(!swallowed(keycode::C, kCtrlAlt));
        settings().setCorrectionShortcut(false);
        QVERIFY(!swallowed(keycode::C, modifier::Control | modifier::Shift));

        // Capturing a shortcut in the settings: nothing but Escape of a running dictation.
        settings().setCorrectionShortcut(true);
        dictating = true;
        monitor->setRecording(true);
        QCOMPARE(keys().swallowed, QList<KeyCombo>{KeyCombo::withAnyModifiers(keycode::Escape)});
        monitor->setRecording(false);
        QVERIFY(swallowed(keycode::V, kCtrlAlt));
    }

    void menuKeyTakenOnlyAsTheDictationKey() {
        // Another key chosen: the Menu key belongs to the application in front.
        QVERIFY(!swallowed(keycode::Fn, 0));
        settings().setKey(DictationKey::Fn);
        QVERIFY(swallowed(keycode::Fn, 0));
        QVERIFY(swallowed(keycode::Fn, modifier::Shift));
        send(flagsEvent(keycode::Fn, modifier::FnDown));
        send(flagsEvent(keycode::Fn, modifier::FnDown));
        send(flagsEvent(keycode::Fn, 0));
        QCOMPARE(calls.value("press"), 1);
        QCOMPARE(calls.value("release"), 1);
        // Capturing a shortcut leaves the dictation key working, so taken.
        monitor->setRecording(true);
        QVERIFY(swallowed(keycode::Fn, 0));
        monitor->setRecording(false);
        settings().setKey(DictationKey::RightControl);
        QVERIFY(!swallowed(keycode::Fn, 0));
    }

    void escapeAndFixedShortcuts() {
        send(keyDown(keycode::Escape, 0));
        QCOMPARE(calls.value("cancel"), 0);
        dictating = true;
        send(keyDown(keycode::Escape, 0));
        QCOMPARE(calls.value("cancel"), 1);
        // With the dictation key held (AltGr reported as Alt), still the cancel.
        send(keyDown(keycode::Escape, kRightAltDown));
        send(keyDown(keycode::Escape, modifier::Control | modifier::RightControlDown));
        QCOMPARE(calls.value("cancel"), 3);
        dictating = false;
        // Ctrl+AltGr+V, as French users type Ctrl+Alt+V.
        send(keyDown(keycode::V, modifier::Control | kRightAltDown));
        QCOMPARE(calls.value("pasteLast"), 1);
        calls.remove("pasteLast");
        dictating = true;

        // Held down: one paste, the repeats give nothing more.
        send(keyDown(keycode::V, kCtrlAlt));
        send(keyDown(keycode::V, kCtrlAlt, true));
        send(keyDown(keycode::V, kCtrlAlt, true));
        QCOMPARE(calls.value("pasteLast"), 1);
        send(keyDown(keycode::R, kCtrlAlt | modifier::Shift)); // other modifiers: not ours
        send(keyDown(keycode::R, kCtrlAlt));
        QCOMPARE(calls.value("speak"), 1);

        monitor->setRecording(true);
        send(keyDown(keycode::V, kCtrlAlt));
        send(keyDown(keycode::R, kCtrlAlt));
        QCOMPARE(calls.value("pasteLast"), 1);
        QCOMPARE(calls.value("speak"), 1);
    }

    void correctionShortcutOnlyWithoutDoubleCopy() {
        send(keyDown(keycode::C, kCtrlAlt));
        QCOMPARE(calls.value("correct"), 0);
        settings().setCorrectionDoubleCopy(false);
        send(keyDown(keycode::C, kCtrlAlt));
        send(keyDown(keycode::C, kCtrlAlt, true));
        QCOMPARE(calls.value("correct"), 1);
        // A plain Ctrl+C counts for nothing now.
        send(keyDown(keycode::C, modifier::Control));
        send(keyDown(keycode::C, modifier::Control));
        QTest::qWait(HotkeyMonitor::kDoubleCopyDelayMs + 100);
        QCOMPARE(calls.value("double"), 0);
    }

    void copyRuns() {
        ManualClock& clock = platform.clock();
        const KeyEvent copy = keyDown(keycode::C, modifier::Control);

        // Twice within half a second: the double comes after the delay, not before.
        send(copy);
        clock.advance(300);
        send(copy);
        QCOMPARE(calls.value("double"), 0);
        QTRY_COMPARE_WITH_TIMEOUT(calls.value("double"), 1, 2000);

        // Three times: the triple at once, and the pending double then does nothing.
        clock.advance(5000);
        send(copy);
        clock.advance(200);
        send(copy);
        clock.advance(200);
        send(copy);
        QCOMPARE(calls.value("triple"), 1);
        QTest::qWait(HotkeyMonitor::kDoubleCopyDelayMs + 100);
        QCOMPARE(calls.value("double"), 1);

        // Half a second apart: each starts a new run.
        clock.advance(5000);
        send(copy);
        clock.advance(500);
        send(copy);
        // Not the copy key: with Shift, repeated, posted by this program or by another.
        clock.advance(5000);
        send(keyDown(keycode::C, modifier::Control | modifier::Shift));
        send(keyDown(keycode::C, modifier::Control | modifier::Shift));
        KeyEvent own = copy;
        own.postedBySelf = true;
        send(copy);
        send(own);
        send(keyDown(keycode::C, modifier::Control, true));
        KeyEvent xtest = copy;
        xtest.sourcePid = -1;
        send(xtest);
        QTest::qWait(HotkeyMonitor::kDoubleCopyDelayMs + 100);
        QCOMPARE(calls.value("double"), 1);

        // Keys of a remote desktop count when the user says so.
        settings().setAcceptPostedKeys(true);
        clock.advance(5000);
        send(xtest);
        send(xtest);
        QTRY_COMPARE_WITH_TIMEOUT(calls.value("double"), 2, 2000);
        QCOMPARE(calls.value("triple"), 1);
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
