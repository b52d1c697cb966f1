// The portal clients of a Wayland session against a mock of the desktop portal on a private
// session bus: the dictation key's press and release, and keys sent through RemoteDesktop.
#include "PortalMock.h"
#include "SessionBus.h"
#include "platform/wayland/WaylandPlatform.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <X11/keysym.h>
#include <sys/stat.h>

using namespace ombry;

namespace {

struct Ready {
    bool called = false, ok = false;
    QString message;
};

KeyPoster::ReadyHandler into(Ready& r) {
    return [&r](bool ok, const QString& message) {
        r.called = true;
        r.ok = ok;
        r.message = message;
    };
}

QList<QPair<int, uint>> pressAndRelease(const QList<int>& keysyms) {
    QList<QPair<int, uint>> out;
    for (const int k : keysyms)
        out << QPair<int, uint>{k, 1u} << QPair<int, uint>{k, 0u};
    return out;
}

} // namespace

class TestPortals : public QObject {
    Q_OBJECT
    test::SessionBus bus_;
    test::PortalMock mock_;
    QTemporaryDir dir_;

    // Prepares a poster of this token file and waits for its answer.
    Ready prepared(KeyPoster& poster) {
        Ready r;
        poster.prepare(into(r));
        if (!QTest::qWaitFor([&] { return r.called; }, 10000))
            r.message = QStringLiteral("no answer");
        return r;
    }
    QString tokenFile() const { return dir_.filePath(QStringLiteral("data/remote-desktop-token")); }

private slots:
    void initTestCase() {
        if (!test::PortalMock::installed())
            QSKIP("python3-dbusmock n'est pas installé : pas de portail simulé");
        QVERIFY(bus_.start(false));
    }
    void init() { QVERIFY(mock_.start()); }
    void cleanup() { mock_.stop(); }

    void probeSeesTheOfferedInterfaces() {
        mock_.configure({{QStringLiteral("rd_version"), 2u}});
        const wayland::PortalOffer offer = wayland::probePortals();
        QVERIFY(offer.globalShortcuts);
        QCOMPARE(offer.remoteDesktopVersion, 2);
        QVERIFY(!offer.clipboard);
    }

    // Plasma 5.27 binds the keys named in CreateSession and answers BindShortcuts with nothing.
    void shortcutsPressOncePerHold_data() {
        QTest::addColumn<bool>("bindAnswersEmpty");
        QTest::newRow("standard portal") << false;
        QTest::newRow("Plasma 5.27") << true;
    }
    void shortcutsPressOncePerHold() {
        QFETCH(bool, bindAnswersEmpty);
        mock_.configure({{QStringLiteral("bind_empty"), bindAnswersEmpty}});
        std::unique_ptr<GlobalShortcuts> shortcuts = wayland::makePortalShortcuts();
        QVERIFY(shortcuts);
        QList<QPair<ShortcutAction, bool>> events;
        Ready bound;
        shortcuts->bind(
            {{ShortcutAction::Dictate, QStringLiteral("dictate"), QStringLiteral("Dicter"),
              QStringLiteral("CTRL+ALT+D")},
             {ShortcutAction::PasteLast, QStringLiteral("paste-last"),
              QStringLiteral("Coller la dernière dictée"), QString()}},
            [&](ShortcutAction a, bool pressed) {
                events.append({a, pressed});
            },
            into(bound));
        QTRY_VERIFY(bound.called);
        QVERIFY2(bound.ok, qPrintable(bound.message));
        QCOMPARE(shortcuts->trigger(QStringLiteral("dictate")), QStringLiteral("Ctrl+Alt+D"));
        // The desktop keeps the user's keys under a session token that stays the same.
        const QVariantMap created =
            mock_.lastOptions(QStringLiteral("GlobalShortcuts.CreateSession"));
        QCOMPARE(created.value(QStringLiteral("session_handle_token")).toString(),
                 QStringLiteral("ombry_voice"));
        QVERIFY(created.contains(QStringLiteral("shortcuts")));

        for (int i = 0; i < 4; ++i)
            mock_.press(QStringLiteral("dictate"), true);
        mock_.press(QStringLiteral("dictate"), false);
        mock_.press(QStringLiteral("paste-last"), true);
        const QList<QPair<ShortcutAction, bool>> expected{{ShortcutAction::Dictate, true},
                                                          {ShortcutAction::Dictate, false},
                                                          {ShortcutAction::PasteLast, true}};
        QTRY_COMPARE(events, expected);
        QTest::qWait(100);
        QCOMPARE(events, expected);

        mock_.changeTrigger(QStringLiteral("dictate"), QStringLiteral("Meta+Space"));
        QTRY_COMPARE(shortcuts->trigger(QStringLiteral("dictate")), QStringLiteral("Meta+Space"));
    }

    void refusedStartIsReported() {
        mock_.configure({{QStringLiteral("start_response"), 1u}});
        std::unique_ptr<KeyPoster> poster = wayland::makeRemoteDesktopPoster(tokenFile());
        QVERIFY(poster);
        const Ready r = prepared(*poster);
        QVERIFY(r.called);
        QVERIFY(!r.ok);
        QVERIFY2(r.message.contains(QStringLiteral("refusé")), qPrintable(r.message));
        QVERIFY(!poster->post(keycode::V, modifier::Control));
        QVERIFY(!poster->typeText(QStringLiteral("a")));
        QVERIFY(mock_.keysyms().isEmpty());
    }

    void restoreTokenIsKeptAndSentBack() {
        QFile::remove(tokenFile());
        mock_.configure({{QStringLiteral("rd_version"), 2u},
                         {QStringLiteral("restore_token"), QStringLiteral("jeton-1")}});
        {
            std::unique_ptr<KeyPoster> poster = wayland::makeRemoteDesktopPoster(tokenFile());
            const Ready r = prepared(*poster);
            QVERIFY2(r.ok, qPrintable(r.message));
            const QVariantMap select =
                mock_.lastOptions(QStringLiteral("RemoteDesktop.SelectDevices"));
            QCOMPARE(select.value(QStringLiteral("types")).toUInt(), 1u);
            QCOMPARE(select.value(QStringLiteral("persist_mode")).toUInt(), 2u);
            QVERIFY(!select.contains(QStringLiteral("restore_token")));
        }
        QFile file(tokenFile());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("jeton-1"));
        struct stat st {};
        QCOMPARE(::stat(QFile::encodeName(tokenFile()).constData(), &st), 0);
        QCOMPARE(st.st_mode & 0777, 0600u);

        // The next start of the program gives it back.
        std::unique_ptr<KeyPoster> again = wayland::makeRemoteDesktopPoster(tokenFile());
        const Ready r = prepared(*again);
        QVERIFY2(r.ok, qPrintable(r.message));
        const QVariantMap select = mock_.lastOptions(QStringLiteral("RemoteDesktop.SelectDevices"));
        QCOMPARE(select.value(QStringLiteral("restore_token")).toString(),
                 QStringLiteral("jeton-1"));
    }

    void keysAndTextGoAsKeysyms() {
        std::unique_ptr<KeyPoster> poster = wayland::makeRemoteDesktopPoster(tokenFile());
        QVERIFY(!poster->post(keycode::V, modifier::Control)); // not started yet
        const Ready r = prepared(*poster);
        QVERIFY2(r.ok, qPrintable(r.message));
        QVERIFY(poster->typeText(QStringLiteral("é à ç œ 😀 \n")));
        QVERIFY(poster->post(keycode::V, modifier::Control | modifier::Shift));

        // A lone Shift first: mutter loses the first key of a session.
        QList<QPair<int, uint>> expected = pressAndRelease({XK_Shift_L});
        expected += pressAndRelease(
            {0xe9, ' ', 0xe0, ' ', 0xe7, ' ', 0x01000153, ' ', 0x0101f600, ' ', XK_Return});
        expected += {{XK_Control_L, 1}, {XK_Shift_L, 1}, {XK_v, 1},
                     {XK_v, 0},         {XK_Shift_L, 0}, {XK_Control_L, 0}};
        QTRY_COMPARE(mock_.keysyms(), expected);
    }

    void closedSessionStartsAgain() {
        std::unique_ptr<KeyPoster> poster = wayland::makeRemoteDesktopPoster(tokenFile());
        QVERIFY(prepared(*poster).ok);
        QVERIFY(poster->post(keycode::Return, 0));
        mock_.closeSessions();
        QTRY_VERIFY(!poster->post(keycode::Return, 0));
        const Ready r = prepared(*poster);
        QVERIFY2(r.ok, qPrintable(r.message));
        QVERIFY(poster->post(keycode::Return, 0));
    }
};

QTEST_GUILESS_MAIN(TestPortals)
#include "tst_portals.moc"
