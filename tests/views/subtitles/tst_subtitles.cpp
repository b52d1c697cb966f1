// The subtitle panel: what it shows of the call translator's state, the application tiles, the
// focus it never takes, its hover controls, and a picture with real lines (OMBRY_PICTURES).
#include "../PageTesting.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/UserDefaults.h"
#include "desktop/Log.h"
#include "views/subtitles/SubtitleWindow.h"

#include <QApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

using namespace ombry;
using namespace ombry::test;

namespace {

using Line = CallTranslator::Line;

QByteArray tone(double seconds) {
    QByteArray pcm(int(seconds * 16000) * 2, '\0');
    for (int i = 0; i < pcm.size() / 2; ++i)
        qToLittleEndian<qint16>((i / 20) % 2 ? 9000 : -9000, pcm.data() + 2 * i);
    return pcm;
}

} // namespace

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
        QCOMPARE(c.englishButton, QStringLiteral("Voir l'anglais"));
        c = subtitleContent(s, true);
        QCOMPARE(c.english, QStringLiteral("Bye"));
        QCOMPARE(c.englishButton, QStringLiteral("Masquer l'anglais"));
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
        view.show();
        QTest::qWait(50);
        QVERIFY(!QApplication::focusWidget());

        view.setHover(true);
        QAbstractButton* english = buttonWithText(&view, QStringLiteral("Voir l'anglais"));
        QVERIFY(english && english->isVisible());
        QTest::mouseClick(english, Qt::LeftButton);
        QVERIFY(view.showEnglish());
        QCOMPARE(UserDefaults::standard().boolValue("captionsShowEnglish"), true);
        QCOMPARE(english->text(), QStringLiteral("Masquer l'anglais"));
        QVERIFY(!QApplication::focusWidget());
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

    void aPictureWithRealLines() {
        // Two sentences through the translator, answered by the local model server.
        // Both go out at once; the answers, told apart by the length of the audio, may come
        // back in either order.
        server.setHandler([](const RecordedRequest& r) {
            const QStringList en{"Can everyone hear me?", "Let's start with the roadmap."};
            const QStringList fr{"Tout le monde m'entend ?", "Commençons par la feuille de route."};
            const int i = r.body.size() > 100000 ? 1 : 0;
            return chatCompletion(QString::fromUtf8(
                QJsonDocument(QJsonObject{{"en", en[i]}, {"fr", fr[i]}}).toJson()));
        });
        CallTranslator call;
        platform.audio().apps = {{"discord", "Discord", "Discord"}};
        call.setTargetBundleID(QStringLiteral("discord"));
        SubtitleView view(call);
        view.setShowEnglish(true);
        call.start();
        QTRY_VERIFY(platform.audio().capturingOutput());
        for (int i = 0; i < 2; ++i) {
            platform.audio().feedOutput(tone(i == 0 ? 1.0 : 3.0));
            for (int k = 0; k < 20; ++k)
                platform.audio().feedOutput(QByteArray(2048, '\0'));
        }
        QTRY_VERIFY(call.lines().size() == 2 && call.lines()[0].done && call.lines()[1].done);
        QCOMPARE(view.content().main, QStringLiteral("Commençons par la feuille de route."));
        QCOMPARE(view.content().previous, QStringLiteral("Tout le monde m'entend ?"));
        QCOMPARE(view.content().english, QStringLiteral("Let's start with the roadmap."));
        QCOMPARE(view.content().source, QStringLiteral("Discord"));
        view.setHover(true);
        view.show();
        QTest::qWait(300); // the fade
        const QImage picture = view.grab().toImage();
        QCOMPARE(picture.size(), QSize(760, 150));
        const QString folder = qEnvironmentVariable("OMBRY_PICTURES");
        if (!folder.isEmpty()) QVERIFY(picture.save(folder + QStringLiteral("/subtitles.png")));
        call.stop();
        call.setTargetBundleID(std::nullopt);
        view.setShowEnglish(false);
    }
};

QTEST_MAIN(TstSubtitles)
#include "tst_subtitles.moc"
