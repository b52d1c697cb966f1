// The subtitle panel: what it shows of the call translator's state, the application tiles, the
// focus it never takes and its hover controls.
#include "../PageTesting.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/UserDefaults.h"
#include "desktop/Log.h"
#include "views/subtitles/SubtitleWindow.h"

#include <QApplication>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

class TstSubtitles : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;
    QTemporaryDir dir;

private Q_SLOTS:
    void initTestCase() {
        Log::resetForTests(dir.filePath(QStringLiteral("journal.log")));
        qputenv("OMBRY_OPENROUTER_URL", server.url().toString().toUtf8());
        KeyStore::shared().save(QStringLiteral("sk-or-test"), APIService::OpenRouter);
        AppSettings::shared().setOwnKeyMode(true);
    }
    void cleanupTestCase() { Log::resetForTests(); }

    void theMainTextFollowsTranslatedLinesThenErrorsThenTheState() {
        SubtitleState s;
        QCOMPARE(subtitleContent(s, false).main, QStringLiteral("Sous-titres arrêtés"));
        QCOMPARE(subtitleContent(s, false).source, QStringLiteral("Tout l'ordinateur"));
        s.running = true;
        s.targetName = QStringLiteral("Discord");
        QCOMPARE(subtitleContent(s, false).main, QStringLiteral("J'écoute…"));
        s.error = QStringLiteral("Impossible d'écouter le son de l'appel : x");
        QCOMPARE(subtitleContent(s, false).main, *s.error);
        // A line still waiting and one whose answer had no French are not shown.
        s.lines = {{1, QStringLiteral("Hello"), QStringLiteral("Bonjour"), true},
                   {2, QStringLiteral("Next"), QString(), true},
                   {3, QStringLiteral("Bye"), QStringLiteral("Au revoir"), true},
                   {4, QStringLiteral("wait"), QString(), false}};
        SubtitleContent c = subtitleContent(s, false);
        QCOMPARE(c.main, QStringLiteral("Au revoir")); // the last line wins over the error
        QCOMPARE(c.mainLine, 3);
        QCOMPARE(c.previous, QStringLiteral("Bonjour"));
        QCOMPARE(c.english, std::nullopt);
        c = subtitleContent(s, true);
        QCOMPARE(c.english, QStringLiteral("Bye"));
        s.lines = {{1, QString(), QStringLiteral("Bonjour"), true}};
        QCOMPARE(subtitleContent(s, true).english, std::nullopt);
        QCOMPARE(subtitleContent(s, true).previous, std::nullopt);
    }

    void callProgramsComeFirstThenTheOthersByName() {
        const QList<PlayingApp> playing{{"vlc", "VLC", "vlc"},
                                        {"firefox-esr", "Firefox", "firefox-esr"},
                                        {"audacious", "Audacious", "audacious"},
                                        {"discord", "Discord", "Discord"}};
        QList<AppChoice> tiles = appChoices(playing, std::nullopt);
        QStringList names;
        for (const AppChoice& t : tiles)
            names << t.name;
        QCOMPARE(names,
                 (QStringList{"Tout l'ordinateur", "Discord", "Firefox", "Audacious", "VLC"}));
        QVERIFY(tiles[0].selected);
        tiles = appChoices(playing, QStringLiteral("vlc"));
        QVERIFY(!tiles[0].selected && tiles[4].selected);
        // A chosen application that no longer plays: no tile is selected.
        tiles = appChoices(playing, QStringLiteral("zoom"));
        QVERIFY(std::none_of(tiles.begin(), tiles.end(),
                             [](const AppChoice& t) { return t.selected; }));
    }

    void thePanelNeverTakesTheFocusAndShowsControlsOnHover() {
        CallTranslator call;
        SubtitleView view(call);
        view.setShowEnglish(false);
        QVERIFY(view.windowFlags().testFlags(Qt::WindowDoesNotAcceptFocus | Qt::Tool |
                                             Qt::WindowStaysOnTopHint | Qt::FramelessWindowHint));
        QVERIFY(view.testAttribute(Qt::WA_ShowWithoutActivating));
        QCOMPARE(view.size(), QSize(760, 150));
        for (QPushButton* b : view.findChildren<QPushButton*>()) {
            QCOMPARE(b->focusPolicy(), Qt::NoFocus);
            QVERIFY(b->isHidden()); // controls only under the pointer
        }
        view.show(); // the focus it leaves on the real desktop: the desktop test

        view.setHover(true);
        QAbstractButton* english = buttonWithText(&view, QStringLiteral("Voir l'anglais"));
        QTest::mouseClick(english, Qt::LeftButton);
        QVERIFY(view.showEnglish());
        QCOMPARE(english->text(), QStringLiteral("Masquer l'anglais"));
        // A new panel reads the choice back.
        QVERIFY(SubtitleView(call).showEnglish());
        QTest::mouseClick(english, Qt::LeftButton);
        QVERIFY(!view.showEnglish());

        // Start with a chosen application that plays nothing: the panel says so.
        call.setTargetBundleID(QStringLiteral("org.example.Visio"));
        QTest::mouseClick(buttonWithText(&view, QStringLiteral("Démarrer")), Qt::LeftButton);
        QTRY_COMPARE(view.content().main,
                     QStringLiteral("Ouvre Visio d'abord, puis démarre les sous-titres"));
        call.setTargetBundleID(std::nullopt);
        view.setHover(false);
        for (QPushButton* b : view.findChildren<QPushButton*>())
            QVERIFY(b->isHidden());
    }
};

QTEST_MAIN(TstSubtitles)
#include "tst_subtitles.moc"
