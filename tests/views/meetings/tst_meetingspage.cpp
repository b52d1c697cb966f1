// The meetings page's rules, then the page used as a user would against a server playing the
// models: cards, tasks, transcript, copy, delete, a meeting recorded and one tried again.
#include "../../correction/ServiceReplies.h"
#include "../PageTesting.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"
#include "data/Store.h"
#include "meetings/MeetingRecorder.h"
#include "views/meetings/MeetingsLogic.h"
#include "views/meetings/MeetingsPage.h"

#include <QFile>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QtMath>

using namespace ombry;
using namespace ombry::test;

namespace {

using Kind = MeetingRecorder::State::Kind;

Meeting meeting(const QString& title, const QStringList& tasks, int minutesAgo) {
    Meeting m;
    m.title = title;
    m.date = QDateTime::fromSecsSinceEpoch(1773480413 - minutesAgo * 60, Qt::UTC);
    m.duration = 1865;
    m.summary = QStringLiteral("Point d'avancement sur la refonte du site.");
    m.transcript = QStringLiteral("Bonjour à tous, on commence par le planning.");
    m.tasks = tasks;
    return m;
}

// A tone loud enough not to be cut as silence.
QByteArray tone(double seconds) {
    QByteArray pcm;
    const int n = int(seconds * 16000);
    pcm.resize(n * 2);
    auto* s = reinterpret_cast<int16_t*>(pcm.data());
    for (int i = 0; i < n; ++i)
        s[i] = int16_t(8000 * qSin(2 * M_PI * 220 * i / 16000.0));
    return pcm;
}

} // namespace

class TstMeetingsPage : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;
    std::unique_ptr<MeetingsPage> page;

    Store& store() { return Store::shared(); }
    QPushButton* record() { return named<QPushButton>(page.get(), "record"); }
    QList<QWidget*> cards() {
        QList<QWidget*> out;
        for (QWidget* w : page->findChildren<QWidget*>(QStringLiteral("meetingCard")))
            if (w->isVisibleTo(page.get())) out << w;
        return out;
    }
    // The speech model hears the budget; the summary model files it.
    void serveModels() {
        server.setHandler([](const RecordedRequest& r) {
            if (systemOf(r).contains(QStringLiteral("Tu reçois la transcription")))
                return chatReply(QStringLiteral(
                    R"({"title":"Budget 2026","summary":"On valide le budget.","tasks":["Envoyer le budget"]})"));
            return chatReply(QStringLiteral("On valide le budget et on l'envoie demain."))
                .after(300);
        });
    }
    void openPage() {
        page = std::make_unique<MeetingsPage>(store(), MeetingRecorder::shared());
        page->resize(1000, 800);
        page->show();
        QVERIFY(QTest::qWaitForWindowExposed(page.get()));
    }

private Q_SLOTS:
    void initTestCase() {
        pointServicesAt(server);
        openRouterOn();
    }
    void init() {
        server.reset();
        store().setMeetings({});
        openPage();
    }
    void cleanup() { page.reset(); }

    void rules() {
        QCOMPARE(MeetingsRules::elapsedText(3725), QStringLiteral("62:05"));
        const QDateTime t0 = QDateTime::fromSecsSinceEpoch(1000, Qt::UTC);
        const auto look =
            MeetingsRules::recordButton({Kind::Processing, QStringLiteral("Résumé…")}, t0, t0);
        QVERIFY(look.label == QStringLiteral("Résumé…") && !look.enabled && look.busy);

        Meeting m =
            meeting(QStringLiteral("Point hebdo"),
                    {QStringLiteral("Envoyer le devis"), QStringLiteral("Relire la maquette")}, 0);
        QCOMPARE(MeetingsRules::copyText(m),
                 QStringLiteral("Point hebdo\n\nPoint d'avancement sur la refonte du site.\n\n"
                                "- Envoyer le devis\n- Relire la maquette"));
        m.tasks.clear();
        QCOMPARE(MeetingsRules::copyText(m),
                 QStringLiteral("Point hebdo\n\nPoint d'avancement sur la refonte du site.\n\n"));
        QCOMPARE(MeetingsRules::durationText(59), QStringLiteral("0 min"));
        QVERIFY(MeetingsRules::dateText(m.date).contains(QStringLiteral("mars 2026")));
    }

    void cardsTasksTranscriptCopyDelete() {
        QVERIFY(showsLabel(
            page.get(),
            QStringLiteral("Enregistre une réunion, un appel ou une idée à voix haute")));
        store().setMeetings(
            {meeting(QStringLiteral("Point hebdo"),
                     {QStringLiteral("Envoyer le devis"), QStringLiteral("Relire la maquette")}, 0),
             meeting(QStringLiteral("Appel client"), {}, 60 * 24)});
        QTRY_COMPARE(cards().size(), 2);
        const QPointer<MeetingCard> first = static_cast<MeetingCard*>(cards().first());
        QCOMPARE(named<QLabel>(first, "meetingTitle")->text(), QStringLiteral("Point hebdo"));
        QVERIFY(named<QLabel>(first, "meetingDate")->text().endsWith(QStringLiteral(" · 31 min")));

        // Ticks live in the card.
        QList<QPushButton*> tasks = first->findChildren<QPushButton*>(QStringLiteral("task"));
        QCOMPARE(tasks.size(), 2);
        QTest::mouseClick(tasks[1], Qt::LeftButton);
        QCOMPARE(first->done(), QSet<int>{1});
        QVERIFY(tasks[1]->text().startsWith(QStringLiteral("✔")));
        QTest::mouseClick(tasks[1], Qt::LeftButton);
        QVERIFY(first->done().isEmpty());
        QTest::mouseClick(tasks[0], Qt::LeftButton);

        const QPointer<QLabel> transcript = named<QLabel>(first, "transcript");
        QVERIFY(!transcript->isVisible());
        QTest::mouseClick(named<QPushButton>(first, "showTranscript"), Qt::LeftButton);
        QVERIFY(transcript->isVisible());
        QCOMPARE(transcript->text(),
                 QStringLiteral("Bonjour à tous, on commence par le planning."));

        QTest::mouseClick(named<QPushButton>(first, "copyMeeting"), Qt::LeftButton);
        QCOMPARE(platform.clipboard().text(),
                 std::optional<QString>(MeetingsRules::copyText(store().meetings().first())));

        // Deleting the second card removes it from the file, and its audio with it.
        const QString audio = MeetingRecorder::audioPath(store().meetings().last());
        QFile wav(audio);
        QVERIFY(wav.open(QIODevice::WriteOnly) && wav.write("RIFF"));
        wav.close();
        QTest::mouseClick(named<QPushButton>(cards().last(), "deleteMeeting"), Qt::LeftButton);
        QTRY_COMPARE(cards().size(), 1);
        QTRY_VERIFY(!QFile::exists(audio));
        store().flush();
        QFile file(store().folder() + QStringLiteral("/meetings.json"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray json = file.readAll();
        QVERIFY(json.contains("Point hebdo") && !json.contains("Appel client"));
        // The card that did not change is the same: its tick and open transcript stay.
        QCOMPARE(cards().first(), static_cast<QWidget*>(first));
        QCOMPARE(first->done(), QSet<int>{0});
        QVERIFY(transcript->isVisible());
    }

    // The button starts the recorder, counts the time, stops it, cannot be pressed while the
    // meeting is transcribed and summarised, and the filed meeting shows up in the list.
    void recordFromTheButton() {
        serveModels();
        QCOMPARE(record()->text(), QStringLiteral("Démarrer une réunion"));
        QTest::mouseClick(record(), Qt::LeftButton);
        QTRY_COMPARE(record()->text(), QStringLiteral("Arrêter · 0:00"));
        platform.audio().feed(tone(5));
        platform.clock().advance(65000);
        QTRY_COMPARE_WITH_TIMEOUT(record()->text(), QStringLiteral("Arrêter · 1:05"), 3000);

        QTest::mouseClick(record(), Qt::LeftButton);
        QTRY_VERIFY(!record()->isEnabled() && record()->text().endsWith(QStringLiteral("…")));
        QTest::mouseClick(record(), Qt::LeftButton); // does nothing while processing
        QTRY_COMPARE_WITH_TIMEOUT(record()->text(), QStringLiteral("Démarrer une réunion"), 10000);
        QVERIFY(record()->isEnabled());
        QTRY_COMPARE(cards().size(), 1);
        QCOMPARE(named<QLabel>(cards().first(), "meetingTitle")->text(),
                 QStringLiteral("Budget 2026"));
        QCOMPARE(store().meetings().first().tasks,
                 QStringList{QStringLiteral("Envoyer le budget")});
    }

    // A meeting none of whose pieces could be transcribed is played from its kept audio and
    // transcribed and summarised again in place.
    void aMeetingNeverHeardIsPlayedAndTriedAgain() {
        serveModels();
        Meeting m = meeting(QStringLiteral("Réunion"), {}, 0);
        m.transcript.clear();
        m.summary.clear();
        QFile wav(MeetingRecorder::audioPath(m));
        QVERIFY(wav.open(QIODevice::WriteOnly) && wav.write(AudioRecorder::wav(tone(5))));
        wav.close();
        store().setMeetings({m});
        QTRY_COMPARE(cards().size(), 1);
        const qsizetype played = platform.audio().played.size();
        QTest::mouseClick(named<QPushButton>(cards().first(), "playMeeting"), Qt::LeftButton);
        QTRY_COMPARE(platform.audio().played.size(), played + 1);
        QCOMPARE(platform.audio().played.last().first, tone(5));

        QTest::mouseClick(named<QPushButton>(cards().first(), "retryMeeting"), Qt::LeftButton);
        QTRY_COMPARE_WITH_TIMEOUT(store().meetings().first().title, QStringLiteral("Budget 2026"),
                                  10000);
        QCOMPARE(store().meetings().size(), 1);
        QCOMPARE(store().meetings().first().id, m.id);
        QCOMPARE(store().meetings().first().transcript,
                 QStringLiteral("On valide le budget et on l'envoie demain."));
        // The new card is shown on the next turn of the event loop, the old one hidden at once.
        const auto shownTitle = [&] {
            const QList<QWidget*> shown = cards();
            return shown.size() == 1 ? named<QLabel>(shown[0], "meetingTitle")->text() : QString();
        };
        QTRY_COMPARE(shownTitle(), QStringLiteral("Budget 2026"));
        QVERIFY(!named<QPushButton>(cards().first(), "retryMeeting"));
        QVERIFY(QFile::exists(MeetingRecorder::audioPath(m)));
    }
};

QTEST_MAIN(TstMeetingsPage)
#include "tst_meetingspage.moc"
