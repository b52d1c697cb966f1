// The portal clients of a Wayland session against a mock of the desktop portal on a private
// session bus: the dictation key's press and release, keys sent through RemoteDesktop, and the
// clipboard inside its session.
#include "FakePlatform.h"
#include "PortalMock.h"
#include "SessionBus.h"
#include "platform/wayland/WaylandPlatform.h"

#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusPendingCall>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <X11/keysym.h>
#include <sys/stat.h>

using namespace ombry;

class TestPortals : public QObject {
    Q_OBJECT
    test::SessionBus bus_;
    test::PortalMock mock_;
    QTemporaryDir dir_;
    const QString tokenFile_ = dir_.filePath(QStringLiteral("data/remote-desktop-token"));

    void configure(const QVariantMap& settings) {
        mock_.call(QStringLiteral("Configure"), {settings});
    }
    QVariantMap lastOptions(const QString& method) {
        return qdbus_cast<QVariantMap>(
            mock_.call(QStringLiteral("LastOptions"), {method}).arguments().value(0));
    }
    QList<int> keysyms() {
        return qdbus_cast<QList<int>>(mock_.call(QStringLiteral("Keysyms")).arguments().value(0));
    }
    // An application pasting: what the clipboard's owner gave. The owner may be this process,
    // so the event loop turns meanwhile.
    QByteArray paste(const QString& type) {
        QDBusMessage m = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.portal.Desktop"),
            QStringLiteral("/org/freedesktop/portal/desktop"),
            QStringLiteral("org.ombry.test.PortalMock"), QStringLiteral("Paste"));
        m << type;
        const QDBusPendingCall call = QDBusConnection::sessionBus().asyncCall(m, 5000);
        (void)QTest::qWaitFor([&] { return call.isFinished(); }, 5000);
        return call.reply().arguments().value(0).toByteArray();
    }
    // prepare() and its answer: empty when ready, else the reason.
    std::optional<QString> prepare(KeyPoster& poster) {
        std::optional<QString> answer;
        poster.prepare([&](bool ok, const QString& m) { answer = ok ? QString() : m; });
        (void)QTest::qWaitFor([&] { return answer.has_value(); }, 10000);
        return answer;
    }

private slots:
    void initTestCase() {
        if (!test::PortalMock::installed())
            QSKIP("python3-dbusmock n'est pas installé : pas de portail simulé");
        QVERIFY(bus_.start(false));
    }
    void init() { QVERIFY(mock_.start()); }
    void cleanup() { mock_.stop(); }

    void probeSeesTheOfferedInterfaces() {
        configure({{QStringLiteral("rd_version"), 2u}});
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
        configure({{QStringLiteral("bind_empty"), bindAnswersEmpty}});
        std::unique_ptr<GlobalShortcuts> shortcuts = wayland::makePortalShortcuts();
        QVERIFY(shortcuts);
        QList<QPair<ShortcutAction, bool>> events;
        std::optional<bool> bound;
        shortcuts->bind(
            {{ShortcutAction::Dictate, QStringLiteral("dictate"), QStringLiteral("Dicter"),
              QStringLiteral("CTRL+ALT+D")},
             {ShortcutAction::PasteLast, QStringLiteral("paste-last"),
              QStringLiteral("Coller la dernière dictée"), QString()}},
            [&](ShortcutAction a, bool pressed) {
                events.append({a, pressed});
            },
            [&](bool ok, const QString&) { bound = ok; });
        QTRY_COMPARE(bound, std::optional<bool>(true));
        QCOMPARE(shortcuts->trigger(QStringLiteral("dictate")), QStringLiteral("Ctrl+Alt+D"));
        // The desktop keeps the user's keys under a session token that stays the same.
        const QVariantMap created = lastOptions(QStringLiteral("GlobalShortcuts.CreateSession"));
        QCOMPARE(created.value(QStringLiteral("session_handle_token")),
                 QVariant(QStringLiteral("ombry_voice")));
        QVERIFY(created.contains(QStringLiteral("shortcuts")));

        for (const auto& [id, down] : {std::pair{"dictate", true},
                                       {"dictate", true},
                                       {"dictate", true},
                                       {"dictate", false},
                                       {"paste-last", true}})
            mock_.call(QStringLiteral("Press"), {QString::fromLatin1(id), down});
        const QList<QPair<ShortcutAction, bool>> expected{{ShortcutAction::Dictate, true},
                                                          {ShortcutAction::Dictate, false},
                                                          {ShortcutAction::PasteLast, true}};
        QTRY_COMPARE(events, expected);
        QTest::qWait(100);
        QCOMPARE(events, expected);

        mock_.call(QStringLiteral("ChangeTrigger"),
                   {QStringLiteral("dictate"), QStringLiteral("Meta+Space")});
        QTRY_COMPARE(shortcuts->trigger(QStringLiteral("dictate")), QStringLiteral("Meta+Space"));
    }

    void refusedStartIsReported() {
        configure({{QStringLiteral("start_response"), 1u}});
        std::unique_ptr<KeyPoster> poster = wayland::makeRemoteDesktopPoster(tokenFile_);
        QVERIFY(poster);
        const std::optional<QString> refusal = prepare(*poster);
        QVERIFY(refusal);
        QVERIFY2(refusal->contains(QStringLiteral("refusé")), qPrintable(*refusal));
        QVERIFY(!poster->post(keycode::V, modifier::Control));
        QVERIFY(!poster->typeText(QStringLiteral("a")));
        QVERIFY(keysyms().isEmpty());
    }

    void restoreTokenIsKeptAndSentBack() {
        configure({{QStringLiteral("rd_version"), 2u},
                   {QStringLiteral("restore_token"), QStringLiteral("jeton-1")}});
        QCOMPARE(prepare(*wayland::makeRemoteDesktopPoster(tokenFile_)), QString());
        QVariantMap select = lastOptions(QStringLiteral("RemoteDesktop.SelectDevices"));
        QCOMPARE(select.value(QStringLiteral("types")).toUInt(), 1u);
        QCOMPARE(select.value(QStringLiteral("persist_mode")).toUInt(), 2u);
        QVERIFY(!select.contains(QStringLiteral("restore_token")));
        QFile file(tokenFile_);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("jeton-1"));
        struct stat st {};
        QCOMPARE(::stat(QFile::encodeName(tokenFile_).constData(), &st), 0);
        QCOMPARE(st.st_mode & 0777, 0600u);

        // The next start of the program gives it back.
        QCOMPARE(prepare(*wayland::makeRemoteDesktopPoster(tokenFile_)), QString());
        select = lastOptions(QStringLiteral("RemoteDesktop.SelectDevices"));
        QCOMPARE(select.value(QStringLiteral("restore_token")),
                 QVariant(QStringLiteral("jeton-1")));
    }

    void keysAndTextGoAsKeysyms() {
        std::unique_ptr<KeyPoster> poster = wayland::makeRemoteDesktopPoster(tokenFile_);
        QVERIFY(!poster->post(keycode::V, modifier::Control)); // not started yet
        QCOMPARE(prepare(*poster), QString());
        QVERIFY(poster->typeText(QStringLiteral("é à ç œ 😀 \n")));
        QVERIFY(poster->post(keycode::V, modifier::Control | modifier::Shift));

        QList<int> expected{XK_Shift_L, 1, XK_Shift_L, 0}; // mutter loses a session's first key
        for (const int k :
             {0xe9, 0x20, 0xe0, 0x20, 0xe7, 0x20, XK_oe, 0x20, 0x0101f600, 0x20, XK_Return})
            expected << k << 1 << k << 0;
        expected << XK_Control_L << 1 << XK_Shift_L << 1 << XK_v << 1 << XK_v << 0 << XK_Shift_L
                 << 0 << XK_Control_L << 0;
        QTRY_COMPARE(keysyms(), expected);
    }

    // The clipboard rides the poster's one RemoteDesktop session, asked for before its start;
    // where the user unticks it in the desktop's dialog, the text is typed instead.
    void clipboardInsideTheRemoteDesktopSession_data() {
        QTest::addColumn<bool>("granted");
        QTest::newRow("granted") << true;
        QTest::newRow("unticked") << false;
    }
    void clipboardInsideTheRemoteDesktopSession() {
        QFETCH(bool, granted);
        configure({{QStringLiteral("rd_version"), 2u},
                   {QStringLiteral("clipboard"), true},
                   {QStringLiteral("clipboard_enabled"), granted}});
        test::FakeSession session;
        session.offered.display = SessionOffer::Display::Wayland;
        session.offered.remoteDesktopPortalVersion = 2;
        session.offered.clipboardPortal = wayland::probePortals().clipboard;
        const auto remote = std::make_shared<wayland::RemoteDesktopSession>();
        const std::unique_ptr<KeyPoster> poster = wayland::makeKeyPoster(session, remote);
        const std::unique_ptr<Clipboard> board = wayland::makeClipboard(session, remote);
        QCOMPARE(prepare(*poster), QString());
        const QStringList calls =
            mock_.call(QStringLiteral("Calls")).arguments().value(0).toStringList();
        QCOMPARE(calls.filter(QStringLiteral("CreateSession")).size(), 1);
        const qsizetype asked = calls.indexOf("RequestClipboard " + remote->handle);
        QVERIFY2(asked >= 0 && asked < calls.indexOf("Start " + remote->handle),
                 qPrintable(calls.join(", ")));
        QCOMPARE(session.roads().clipboard, granted ? ClipboardRoad::Portal : ClipboardRoad::None);
        QCOMPARE(session.roads().typeInsteadOfPaste, !granted);
        if (!granted) {
            board->setText(QStringLiteral("tapé"), false);
            QVERIFY(lastOptions(QStringLiteral("Clipboard.SetSelection")).isEmpty());
            return;
        }

        int fetched = 0;
        board->setText(QStringLiteral("Déjà vu"), false, [&](const ClipboardFetch&) { ++fetched; });
        QCOMPARE(paste(QStringLiteral("text/plain;charset=utf-8")),
                 QStringLiteral("Déjà vu").toUtf8());
        QTRY_COMPARE(fetched, 1);

        // Another application copies: its formats are saved, and given back after a paste.
        const uint64_t before = board->changeCount();
        mock_.call(QStringLiteral("Copy"), {QVariantMap{{"text/html", QByteArray("<b>x</b>")},
                                                        {"text/plain", QByteArray("x")}}});
        QTRY_COMPARE(board->changeCount(), before + 1);
        const ClipboardSnapshot saved = board->snapshot();
        QCOMPARE(saved, ClipboardSnapshot({{"text/html", "<b>x</b>"}, {"text/plain", "x"}}));
        board->setText(QStringLiteral("dictée"), false);
        QCOMPARE(paste(QStringLiteral("text/plain")), QStringLiteral("dictée").toUtf8());
        board->restore(saved);
        QCOMPARE(paste(QStringLiteral("text/html")), QByteArray("<b>x</b>"));
        QCOMPARE(board->changeCount(), before + 1); // our own offers are no change
    }

    void closedSessionStartsAgain() {
        std::unique_ptr<KeyPoster> poster = wayland::makeRemoteDesktopPoster(tokenFile_);
        QCOMPARE(prepare(*poster), QString());
        QVERIFY(poster->post(keycode::Return, 0));
        mock_.call(QStringLiteral("CloseSessions"));
        QTRY_VERIFY(!poster->post(keycode::Return, 0));
        QCOMPARE(prepare(*poster), QString());
        QVERIFY(poster->post(keycode::Return, 0));
    }
};

QTEST_GUILESS_MAIN(TestPortals)
#include "tst_portals.moc"
