// The hotkey monitor and the paster on a real X desktop (Xvfb, openbox, a GTK field): keys of
// the real keyboard reach the callbacks and the shortcut never reaches the field, keys of
// another program are refused, and a paste lands in the field with the user's clipboard back
// once the field has read it.
#include "DesktopSession.h"

#include "data/Settings.h"
#include "desktop/HotkeyMonitor.h"
#include "desktop/Paster.h"
#include "platform/Platform.h"

#include <QTest>

using namespace ombry;
using test::DesktopSession;

class TstPasterX11 : public QObject {
    Q_OBJECT
    DesktopSession& desktop() { return *DesktopSession::current(); }
    int kc(const char* name) { return desktop().keycode(name); }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        AppSettings::shared().setKey(DictationKey::RightOption);
        AppSettings::shared().setAcceptPostedKeys(false);
    }

    // The program's X11 services close their connections while the server still runs.
    void cleanupTestCase() {
        Platform& p = Platform::current();
        p.setKeyboard(nullptr);
        p.setKeyPoster(nullptr);
        p.setClipboard(nullptr);
        p.setWindows(nullptr);
    }

    void dictationKeyAndShortcutsThroughTheRealHook() {
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        HotkeyMonitor monitor;
        int presses = 0, releases = 0, pastes = 0;
        monitor.onPress = [&] { ++presses; };
        monitor.onRelease = [&] { ++releases; };
        monitor.onPasteLast = [&] { ++pastes; };
        monitor.isDictating = [] { return false; };
        monitor.start();
        QVERIFY(monitor.running());

        QVERIFY(desktop().keyboardPress(kc("Alt_R")));
        QTRY_COMPARE(presses, 1);
        QVERIFY(desktop().keyboardRelease(kc("Alt_R")));
        QTRY_COMPARE(releases, 1);
        // The same key typed by a program: heard, refused.
        QVERIFY(desktop().xdotool({"keydown", "108"}));
        QVERIFY(desktop().xdotool({"keyup", "108"}));
        QTest::qWait(300);
        QCOMPARE(presses, 1);

        // Ctrl+Alt+V is taken from the field; plain letters go through.
        QVERIFY(desktop().keyboardChord({kc("Control_L"), kc("Alt_L"), kc("v")}));
        QTRY_COMPARE(pastes, 1);
        QVERIFY(desktop().keyboardType("ok"));
        QTest::qWait(300);
        QCOMPARE(desktop().closeTarget().value_or("?"), QStringLiteral("ok"));
    }

    void pasteLandsAndTheUserClipboardComesBackAfterTheFieldReadIt() {
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        HotkeyMonitor monitor; // the hook gives the paster the modifiers held
        monitor.start();
        QVERIFY(desktop().setClipboard("<b>notes</b>", QStringLiteral("text/html")));
        Clipboard& clipboard = Platform::current().clipboard();
        QTRY_VERIFY(!clipboard.snapshot().isEmpty());
        const QString text = QStringLiteral("Voilà l'été : « ça déménage » — 10 €");
        bool posted = false;
        auto run = [](QString t, bool* done) -> QCoro::Task<void> {
            co_await Paster::paste(t, true);
            *done = true;
        };
        auto task = run(text, &posted);
        QTRY_VERIFY(posted);
        // Back well before the time-out: the field read the text.
        QTRY_VERIFY_WITH_TIMEOUT(
            desktop().readClipboard(QStringLiteral("text/html")).value_or("") ==
                QByteArray("<b>notes</b>"),
            Paster::kRestoreTimeoutMs - 500);
        QCOMPARE(desktop().closeTarget().value_or("?"), text);
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstPasterX11)
#include "tst_paster_x11.moc"
