// The portal clients of a Wayland session on a real headless KDE Plasma 5.27: the dictation key
// through GlobalShortcuts, typed text through RemoteDesktop. The latencies are printed, not
// checked.
#include "KdeSession.h"
#include "platform/wayland/WaylandPlatform.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;

class TestKdePortals : public QObject {
    Q_OBJECT
    test::KdeSession kde_;

private slots:
    void initTestCase() {
        if (!test::KdeSession::installed())
            QSKIP("kwin_wayland ou xdg-desktop-portal-kde n'est pas installé : pas de bureau KDE");
        QVERIFY2(kde_.start(), qPrintable(kde_.error()));
    }

    void probeSeesKdePortals() {
        QElapsedTimer clock;
        clock.start();
        const wayland::PortalOffer offer = wayland::probePortals();
        qInfo("probePortals: %lld ms (portal started on demand), RemoteDesktop version %d",
              clock.elapsed(), offer.remoteDesktopVersion);
        QVERIFY(offer.globalShortcuts);
        QVERIFY(offer.remoteDesktopVersion > 0);
    }

    void dictationKeyPressAndRelease() {
        std::unique_ptr<GlobalShortcuts> shortcuts = wayland::makePortalShortcuts();
        QList<QPair<bool, qint64>> events; // pressed, when (ms)
        std::optional<QString> bound;      // empty when bound, else why not
        shortcuts->bind(
            {{ShortcutAction::Dictate, QStringLiteral("dictate"), QStringLiteral("Dicter"),
              QStringLiteral("CTRL+ALT+D")}},
            [&](ShortcutAction, bool pressed) {
                events.append({pressed, QDateTime::currentMSecsSinceEpoch()});
            },
            [&](bool ok, const QString& m) { bound = ok ? QString() : m; });
        QTRY_VERIFY_WITH_TIMEOUT(bound, 35000);
        QCOMPARE(*bound, QString());
        qInfo("trigger: %s", qPrintable(shortcuts->trigger(QStringLiteral("dictate"))));

        const std::optional<double> down = kde_.keysDown({29, 56, 32}); // Ctrl, Alt, D
        QVERIFY2(down, qPrintable(kde_.error()));
        QTRY_COMPARE_WITH_TIMEOUT(events.size(), 1, 5000);
        QTest::qWait(700); // held: the desktop repeats Activated meanwhile
        const std::optional<double> up = kde_.keysUp({32, 56, 29});
        QVERIFY(up);
        QTRY_COMPARE_WITH_TIMEOUT(events.size(), 2, 5000);
        QTest::qWait(200);
        QCOMPARE(events.size(), 2);
        QVERIFY(events[0].first);
        QVERIFY(!events[1].first);
        qInfo("key press -> Activated: %.1f ms; key release -> Deactivated: %.1f ms",
              double(events[0].second) - *down, double(events[1].second) - *up);
    }

    void typedTextReachesQtField() {
        QVERIFY(kde_.field.open());
        QTemporaryDir dir;
        std::unique_ptr<KeyPoster> poster =
            wayland::makeRemoteDesktopPoster(dir.filePath(QStringLiteral("token")));
        std::optional<QString> ready; // empty when ready, else why not
        poster->prepare([&](bool ok, const QString& m) { ready = ok ? QString() : m; });
        QTRY_VERIFY_WITH_TIMEOUT(ready, 35000);
        QCOMPARE(*ready, QString());

        const qint64 sent = QDateTime::currentMSecsSinceEpoch();
        QVERIFY(poster->typeText(QStringLiteral("déjà vu")));
        const std::optional<qint64> whole = kde_.field.waitForText(QStringLiteral("déjà vu"));
        QVERIFY2(whole, qPrintable(kde_.field.text()));
        qInfo("typeText -> first character: %lld ms, whole text: %lld ms",
              *kde_.field.firstChange() - sent, *whole - sent);

        const qint64 posted = QDateTime::currentMSecsSinceEpoch();
        QVERIFY(poster->post(keycode::R, 0));
        const std::optional<qint64> key = kde_.field.waitForText(QStringLiteral("déjà vur"));
        QVERIFY2(key, qPrintable(kde_.field.text()));
        qInfo("post -> key in the field: %lld ms", *key - posted);
    }
};

QTEST_GUILESS_MAIN(TestKdePortals)
#include "tst_kde_portals.moc"
