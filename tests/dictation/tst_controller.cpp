// The dictation key and the controller's state machine: hold against tap (hands-free), busy
// presses, cancel, refusals, messages and their sounds, the watchdog.
#include "tst_controller_support.h"

#include <QSignalSpy>

using namespace ombry;
using namespace ombry::test;
using State = DictationController::State;

class TstController : public QObject {
    Q_OBJECT
    ControllerFixture f;

    // The dictation key (Right Alt) down or up, as the keyboard hook reports it.
    void rightAlt(bool down) {
        f.platform.keyboard().send({KeyEvent::Type::FlagsChanged, keycode::RightOption,
                                    down ? modifier::Option | modifier::RightOptionDown : 0});
    }

private Q_SLOTS:
    void init() { f.setUp(); }
    void cleanup() { f.tearDown(); }

    // A press shows nothing until the hold reaches 0.6 s, and the release then ends it; a tap
    // of 0.59 s shows the recording and goes on hands-free, the next press within 0.7 s of the
    // first is swallowed with its release, and one at 0.7 s ends it.
    void holdAndTap() {
        AppSettings::shared().setSounds(true);
        QVERIFY(f.press());
        f.advance(599);
        QTest::qWait(20);
        QCOMPARE(f.state(), State::Idle);
        QVERIFY(f.sounds().isEmpty());
        f.advance(1);
        QTRY_COMPARE(f.state(), State::Recording);
        QCOMPARE(f.sounds(), QStringList{"Tink"});
        f.c().handleRelease();
        QTRY_COMPARE(f.state(), State::Idle); // nothing recorded: ends quietly
        AppSettings::shared().setSounds(false);

        QVERIFY(f.press());
        f.advance(590);
        f.c().handleRelease();
        QVERIFY(f.c().handsFree());
        f.advance(100); // 0.69 s after the first press
        f.c().handlePress();
        f.c().handleRelease();
        QCOMPARE(f.state(), State::Recording);
        QVERIFY(f.c().handsFree());
        f.advance(10);
        f.c().handlePress();
        QVERIFY(f.state() != State::Recording);
        f.c().handleRelease(); // the release of the ending press changes nothing
        QTRY_COMPARE(f.state(), State::Idle);
    }

    // Where the desktop brings the key (Wayland): its shortcut service's press and release, a
    // press repeated while held ignored; a release that never comes ends the recording after
    // 10 minutes, and the next press is heard again.
    void keysFromTheDesktop() {
        f.tearDown();
        SessionOffer& o = f.platform.session().offered;
        o.display = SessionOffer::Display::Wayland;
        o.desktop = SessionOffer::Desktop::KDE;
        o.globalShortcutsPortal = true;
        f.setUp();
        FakeShortcuts& desktop = f.platform.shortcuts();
        desktop.onBound(true, {});

        auto hold = [&] {
            desktop.handler(ShortcutAction::Dictate, true);
            QTRY_VERIFY(f.platform.audio().capturing());
            f.platform.audio().feed(tone());
            f.advance(DictationController::kHoldMs + 100);
            QTRY_COMPARE(f.state(), State::Recording);
            desktop.handler(ShortcutAction::Dictate, true); // the desktop repeats it
        };
        hold();
        f.advance(DictationController::kMaxHoldMs - 1000);
        QTest::qWait(20);
        QCOMPARE(f.state(), State::Recording);
        f.advance(1000);
        QTRY_COMPARE(f.pasted, QStringList{"Bonjour tout le monde."});
        QTRY_COMPARE(f.state(), State::Idle);
        hold(); // heard, although its release never came
        desktop.handler(ShortcutAction::Dictate, false);
        QTRY_COMPARE(f.pasted.size(), 2);

        f.tearDown();
        f.platform.session().offered = FakeSession().offered;
        f.setUp();
    }

    // AltGr followed by a key within 0.6 s types a character (@, €, # on French keyboards): a
    // chord, of which nothing shows, sounds, records or is sent (at once: the desktop test).
    // Later in a hold, keys do nothing to the dictation.
    void chords() {
        AppSettings::shared().setSounds(true);
        FakeKeyboard& kb = f.platform.keyboard();
        const int captures = f.platform.audio().captures;
        const int stored = Store::shared().dictations().size();
        rightAlt(true);
        QTRY_VERIFY(f.platform.audio().capturing()); // no first word is lost to the wait
        f.platform.audio().feed(tone(0.5));
        f.advance(590); // a key at 0.59 s
        kb.send(
            {KeyEvent::Type::KeyDown, 19 /* 2 */, modifier::Option | modifier::RightOptionDown});
        QTRY_VERIFY(!f.platform.audio().capturing());
        f.advance(1000);
        rightAlt(false);
        QTest::qWait(50);
        QCOMPARE(f.state(), State::Idle);
        QVERIFY(!f.c().handsFree());
        QVERIFY(f.sounds().isEmpty());
        QCOMPARE(f.platform.audio().captures, captures + 1);
        QCOMPARE(Store::shared().dictations().size(), stored);
        QVERIFY(f.models.calls.isEmpty());

        // A key typed later in a long hold leaves the dictation alone.
        rightAlt(true);
        QTRY_VERIFY(f.platform.audio().capturing());
        f.platform.audio().feed(tone());
        f.advance(700);
        QTRY_COMPARE(f.state(), State::Recording);
        kb.send({KeyEvent::Type::KeyDown, 19, modifier::Option | modifier::RightOptionDown});
        QTest::qWait(20);
        QCOMPARE(f.state(), State::Recording);
        f.advance(500);
        rightAlt(false);
        QTRY_COMPARE(f.pasted, QStringList{"Bonjour tout le monde."});
    }

    // A cancel drops what was heard, confirmed by ear even with sounds off. The focus moved
    // away while Escape was held: the editor is brought back, unless the user went to another
    // window before the cancel ended. (Escape itself: the hotkey and desktop tests.)
    void cancelDropsTheRecording() {
        const int stored = Store::shared().dictations().size();
        const AppWindow own{77, "", "Ombry Voice", "ombry-voice",
                            QCoreApplication::applicationPid()};
        for (const bool userMoved : {false, true}) {
            QVERIFY(f.press());
            f.c().handleRelease(); // hands-free, which ends with the cancel
            f.platform.audio().feed(tone());
            f.platform.windows().front = own;
            f.c().cancel();
            QVERIFY(!f.c().handsFree());
            if (userMoved) f.platform.windows().front = AppWindow{88, "firefox", "Firefox", "", 88};
            QTRY_COMPARE(f.state(), State::Idle);
            QCOMPARE(*f.c().flash(), QString("Dictée annulée"));
            QCOMPARE(f.platform.windows().activated.size(), 1);
            QCOMPARE(f.platform.windows().activated.first().id, f.editor.id);
            f.platform.windows().front = f.editor;
        }
        f.c().cancel(); // in idle: nothing at all
        QCOMPARE(f.sounds(), (QStringList{"Pop", "Pop"}));
        QCOMPARE(Store::shared().dictations().size(), stored);
        QVERIFY(f.models.calls.isEmpty());
    }

    // A press while the pipeline works only says so; its release does nothing either.
    void pressWhileProcessing() {
        f.models.replies["transcription"] = chatCompletion("bonjour").after(400);
        const int captures = f.platform.audio().captures;
        QVERIFY(f.dictate());
        f.advance(1000);
        f.c().handlePress();
        f.c().handleRelease();
        QCOMPARE(f.state(), State::Processing);
        QCOMPARE(*f.c().flash(), QString("Un instant, je termine…"));
        QCOMPARE(f.platform.audio().captures, captures + 1);
        QTRY_COMPARE(f.state(), State::Idle);
        QCOMPARE(f.pasted, QStringList{"Bonjour"});
    }

    void beginRefuses_data() {
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("attention");
        QTest::newRow("deepgram without key") << "deepgram"
                                              << "Clé Deepgram absente" << 1;
        QTest::newRow("no sound server") << "mic"
                                         << "Micro indisponible" << 0;
        QTest::newRow("capture refused") << "capture"
                                         << "Micro indisponible" << 0;
        // The server answers but has no input: its default source is the monitor of an output.
        QTest::newRow("no microphone") << "monitor"
                                       << "Micro indisponible" << 0;
    }
    // What begin refuses ends in idle with an error and "Basso", sounds on or off, and opens
    // the settings only for what the user can fix there.
    void beginRefuses() {
        QFETCH(QString, setup);
        QFETCH(QString, message);
        QFETCH(int, attention);
        if (setup == "deepgram")
            AppSettings::shared().setTranscriptionEngine(TranscriptionEngine::Deepgram);
        if (setup == "mic") f.platform.audio().available = false;
        if (setup == "capture") f.platform.audio().captureFails = true;
        if (setup == "monitor") {
            f.platform.audio().mics.clear();
            f.platform.audio().defaultName = "speakers.monitor";
        }
        const int captures = f.platform.audio().captures;
        f.c().handlePress();
        f.advance(DictationController::kHoldMs);
        QTRY_COMPARE(f.c().flash().value_or(""), message);
        QCOMPARE(f.state(), State::Idle);
        QCOMPARE(*f.c().lastError(), message);
        QCOMPARE(f.sounds(), QStringList{"Basso"});
        QCOMPARE(f.attention, attention);
        QCOMPARE(f.platform.audio().captures, captures);
    }

    // Only what the user can fix in the settings brings them forward; fail leaves the state
    // to its caller.
    void failOpensSettings() {
        for (const auto& [message, opens] : QList<std::pair<QString, int>>{
                 {"Clé OpenRouter absente", 1},
                 {"Accessibilité non autorisée", 1},
                 {"Ombry : erreur 401 Non AUTORISÉ", 1}, // authorisation, in any case
                 {"Micro indisponible", 0}}) {
            f.attention = 0;
            f.c().fail(message);
            QCOMPARE(f.attention, opens);
            QCOMPARE(f.state(), State::Idle);
        }
    }

    // A flash lasts 2 s; the older timer wipes a repeated text at 2 s after the first, but
    // never a different newer one.
    void flashClearing() {
        f.c().show("un", false);
        f.advance(1000);
        f.c().show("un", true);
        f.advance(1000);
        QTRY_VERIFY(!f.c().flash());
        QVERIFY(f.c().flashIsError()); // left as it was

        f.c().show("deux", false);
        f.advance(1500);
        f.c().show("trois", false);
        f.advance(600);
        QTest::qWait(20);
        QCOMPARE(*f.c().flash(), QString("trois"));
        f.advance(1400);
        QTRY_VERIFY(!f.c().flash());
    }

    // After 40 s without an answer the state is freed with a message and the dictation is
    // failed; the late answer is still pasted, and makes it an ordinary dictation.
    void watchdog() {
        f.models.replies["transcription"] = chatCompletion("bonjour").after(800);
        QVERIFY(f.dictate());
        QTRY_VERIFY(f.models.calls.contains("transcription"));
        f.advance(39999);
        QTest::qWait(30);
        QCOMPARE(f.state(), State::Processing);
        f.advance(1);
        QTRY_COMPARE(f.state(), State::Idle);
        QCOMPARE(*f.c().flash(), QString("Le réseau ne répond pas, réessaie"));
        QCOMPARE(f.sounds(), QStringList{"Basso"});
        QVERIFY(f.pasted.isEmpty());
        QCOMPARE(Store::shared().dictations().first().failure,
                 std::optional<QString>("Le réseau ne répond pas, réessaie"));
        QTRY_COMPARE(f.pasted, QStringList{"Bonjour"});
        QVERIFY(!Store::shared().dictations().first().failed());
    }

    // The keyboard hook is the permission. The 2 s poll starts a hook that stopped again,
    // once: a key held across the next tick still gets its release. A hook that failed at
    // start asks for the settings and is tried again at each tick until it runs.
    void hookPoll() {
        QVERIFY(f.c().trusted());
        QSignalSpy trusted(&f.c(), &DictationController::trustedChanged);
        FakeKeyboard& kb = f.platform.keyboard();
        kb.stop();
        f.advance(DictationController::kTrustPollMs);
        QTRY_VERIFY(kb.running());
        QVERIFY(f.c().trusted());
        rightAlt(true);
        QTRY_VERIFY(f.platform.audio().capturing());
        f.advance(DictationController::kHoldMs);
        QTRY_COMPARE(f.state(), State::Recording);
        f.platform.audio().feed(tone());
        f.advance(DictationController::kTrustPollMs);
        QTest::qWait(20);
        rightAlt(false);
        QCOMPARE(f.state(), State::Processing);
        QTRY_COMPARE(f.pasted, QStringList{"Bonjour tout le monde."});
        QCOMPARE(trusted.count(), 0);

        f.controller.reset();
        kb.available = false;
        f.controller = std::make_unique<DictationController>();
        f.controller->onNeedsAttention = [this] { ++f.attention; };
        f.controller->start();
        QCOMPARE(f.attention, 1);
        QVERIFY(!f.c().trusted());
        kb.available = true;
        f.advance(DictationController::kTrustPollMs);
        QTRY_VERIFY(f.c().trusted());
        QVERIFY(kb.running());
    }

    // A microphone unplugged mid-recording ends the dictation with what it heard. When it was
    // the only one, the server's default source becomes the monitor of an output: the next
    // press says the microphone is missing instead of dictating what the computer plays.
    void sourceLost() {
        AppSettings::shared().setMicrophoneUID("test-mic");
        QVERIFY(f.press());
        f.c().handleRelease(); // hands-free: the loss ends it, and the next press is heard
        QCOMPARE(f.platform.audio().capturedFrom, QString("test-mic"));
        f.platform.audio().feed(tone());
        f.platform.audio().mics.clear();
        f.platform.audio().defaultName = "speakers.monitor";
        f.platform.audio().end("source débranchée");
        QTRY_COMPARE(f.state(), State::Idle);
        QCOMPARE(f.pasted, QStringList{"Bonjour tout le monde."});
        QVERIFY(!f.c().handsFree());

        f.c().handlePress();
        f.advance(DictationController::kHoldMs);
        QTRY_COMPARE(f.c().flash().value_or(""), QString("Micro indisponible"));
        f.c().handleRelease();
        QCOMPARE(f.state(), State::Idle);
    }
};

QTEST_GUILESS_MAIN(TstController)
#include "tst_controller.moc"
