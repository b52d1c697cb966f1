// The call translator on the fake audio system against a local server playing the model: cuts
// by silence, lines in order whatever the answers, the fallback on the preview's words, answers
// of an earlier run ignored, and failures in the user's words.
#include "Await.h"
#include "FakePlatform.h"
#include "SentAudio.h"
#include "TestHttpServer.h"

#include "calls/CallSegmenter.h"
#include "calls/CallTranslator.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/UserDefaults.h"
#include "desktop/Log.h"
#include "engines/LivePreview.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

using namespace ombry;
using namespace ombry::test;

namespace {

QByteArray tone(double seconds, qint16 amplitude = 9000) {
    QByteArray pcm(int(seconds * 16000) * 2, '\0');
    for (int i = 0; i < pcm.size() / 2; ++i)
        qToLittleEndian<qint16>((i / 20) % 2 ? amplitude : qint16(-amplitude), pcm.data() + 2 * i);
    return pcm;
}
QByteArray quiet(double seconds) {
    return QByteArray(int(seconds * 16000) * 2, '\0');
}

// Feeds in capture-sized buffers (64 ms), collecting the sentences that come out.
QList<double> segment(CallSegmenter& s, const QByteArray& pcm) {
    QList<double> out;
    for (qsizetype at = 0; at < pcm.size(); at += 2048)
        if (auto cut = s.add(pcm.mid(at, 2048))) out << cut->size() / 32000.0;
    return out;
}

Reply pair(const QString& en, const QString& fr) {
    return chatCompletion(
        QString::fromUtf8(QJsonDocument(QJsonObject{{"en", en}, {"fr", fr}}).toJson()));
}

} // namespace

class TstCallTranslator : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;
    QTemporaryDir dir;
    FakeAudio& audio() { return platform.audio(); }

    void sentence(double seconds) {
        audio().feedOutput(tone(seconds));
        for (int i = 0; i < 12; ++i)
            audio().feedOutput(quiet(0.064));
    }

private Q_SLOTS:
    void initTestCase() {
        Log::resetForTests(dir.filePath(QStringLiteral("journal.log")));
        qputenv("OMBRY_OPENROUTER_URL", server.url().toString().toUtf8());
        KeyStore::shared().save(QStringLiteral("sk-or-test"), APIService::OpenRouter);
        AppSettings::shared().setOwnKeyMode(true);
    }
    void cleanupTestCase() { Log::resetForTests(); }
    void init() {
        server.reset();
        audio().apps = {{"discord", "Discord", "Discord"}};
        audio().outputFails = false;
    }

    void silenceCutsSentences() {
        CallSegmenter s;
        // A click of 200 ms in silence goes out with its pause; cut short by a stop, it is dropped.
        QList<double> cuts = segment(s, quiet(1.0) + tone(0.2) + quiet(1.0));
        QCOMPARE(cuts.size(), 1);
        QVERIFY2(cuts[0] > 1.9 && cuts[0] < 2.1, qPrintable(QString::number(cuts[0])));
        s.reset();
        QVERIFY(segment(s, tone(0.2) + quiet(0.2)).isEmpty());
        QCOMPARE(s.flush(), std::nullopt);
        // A monologue without pauses is cut past 14 s, again and again.
        cuts = segment(s, tone(30));
        QCOMPARE(cuts.size(), 2);
        QVERIFY(cuts[0] > 14.0 && cuts[0] < 14.1);
        QVERIFY(s.flush()); // the last 2 s
        // Silence alone is never kept beyond 3 s and never sent.
        QVERIFY(segment(s, quiet(10)).isEmpty());
        QVERIFY(s.bufferedBytes() <= 3 * 32000);
        QCOMPARE(s.flush(), std::nullopt);
        // A quiet voice under the threshold is silence.
        QVERIFY(segment(s, tone(2, 600) + quiet(1)).isEmpty());
    }

    void linesKeepTheirOrderWhateverTheAnswers() {
        // The long sentence answers last; a sentence in which the model hears nothing goes.
        server.setHandler([](const RecordedRequest& r) {
            const double seconds = audioSeconds(r).value_or(0);
            Reply reply = seconds > 4   ? pair("A long first sentence.", "Une longue phrase.")
                          : seconds > 2 ? pair("", "")
                                        : pair("Short one.", "Une courte.");
            reply.delayMs = int(seconds * 150);
            return reply;
        });
        CallTranslator call;
        bool windowShown = false;
        call.onShowWindow = [&] { windowShown = true; };
        call.setTargetBundleID(std::nullopt);
        call.start();
        QVERIFY(call.running() && windowShown);
        QTRY_VERIFY(audio().capturingOutput());
        QCOMPARE(audio().outputFor, QString());
        QCOMPARE(audio().captures, 0); // never the microphone
        sentence(4.0);
        sentence(1.6);
        sentence(1.0);
        QTRY_COMPARE(call.lines().size(), 3);
        QVERIFY(std::none_of(call.lines().begin(), call.lines().end(),
                             [](const auto& l) { return l.done; }));
        QTRY_COMPARE_WITH_TIMEOUT(call.lines().size(), 2, 5000);
        QTRY_VERIFY(call.lines()[0].done && call.lines()[1].done);
        QCOMPARE(call.lines()[0].fr, QStringLiteral("Une longue phrase."));
        QCOMPARE(call.lines()[1].fr, QStringLiteral("Une courte."));
        QVERIFY(call.lines()[0].id < call.lines()[1].id);
        // The sentence under way at the stop still goes out; then nothing is heard any more.
        audio().feedOutput(tone(1.0));
        call.drainQueue();
        call.stop();
        QVERIFY(!call.running());
        QTRY_COMPARE(call.lines().size(), 3);
        QVERIFY(!audio().capturingOutput());
        audio().feedOutput(tone(1.0) + quiet(1.0));
        call.drainQueue();
        QTest::qWait(50);
        QCOMPARE(call.lines().size(), 3);
    }

    void theModelDownFallsBackOnThePreviewWords() {
        // The speech model refuses; the text translation (the same service) answers.
        server.setHandler([](const RecordedRequest& r) {
            if (audioSeconds(r)) return Reply::json(QByteArray(R"({"error":"down"})"), 503);
            return chatCompletion(QStringLiteral("Bonjour à tous"));
        });
        CallTranslator call;
        call.setTargetBundleID(QStringLiteral("discord"));
        call.start();
        QTRY_VERIFY(audio().capturingOutput());
        QCOMPARE(audio().outputFor, QStringLiteral("discord"));
        // The recogniser's running text, as it would come while the sentence is spoken.
        call.preview().onText(QStringLiteral("hello everybody"));
        QCOMPARE(call.live(), QStringLiteral("hello everybody"));
        sentence(1.5);
        QTRY_COMPARE(call.lines().size(), 1);
        QCOMPARE(call.lines()[0].en, QStringLiteral("hello everybody"));
        QCOMPARE(call.live(), QString());
        QTRY_VERIFY(call.lines()[0].done);
        QCOMPARE(call.lines()[0].fr, QStringLiteral("Bonjour à tous"));
        // Without preview words the line stays as it is.
        sentence(1.5);
        QTRY_COMPARE(call.lines().size(), 2);
        QTest::qWait(300);
        QVERIFY(!call.lines()[1].done);

        // An answer of the last run that comes after a new start is dropped.
        server.setHandler([](const RecordedRequest&) {
            Reply reply = pair("Late.", "En retard.");
            reply.delayMs = 400;
            return reply;
        });
        sentence(1.5);
        QTRY_COMPARE(call.lines().size(), 3);
        call.stop();
        call.start();
        QVERIFY(call.lines().isEmpty());
        QTest::qWait(600);
        QVERIFY(call.lines().isEmpty());
        call.stop();
    }

    void failuresAreToldInWords() {
        {
            // The chosen application is remembered, and named when it plays nothing.
            CallTranslator call;
            call.setTargetBundleID(QStringLiteral("org.example.Visio"));
            QCOMPARE(UserDefaults::standard().stringValue("callApp"),
                     QStringLiteral("org.example.Visio"));
            CallTranslator again;
            QCOMPARE(again.targetName(), QStringLiteral("Visio"));
            again.start();
            QTRY_VERIFY(!again.running());
            QCOMPARE(again.error(),
                     QStringLiteral("Ouvre Visio d'abord, puis démarre les sous-titres"));
            QCOMPARE(audio().capturingOutput(), false);
            call.setTargetBundleID(std::nullopt);
            QVERIFY(!UserDefaults::standard().contains("callApp"));
        }
        {
            CallTranslator call;
            audio().outputFails = true;
            call.start();
            QTRY_VERIFY(!call.running());
            QCOMPARE(call.error(), QStringLiteral("Impossible d'écouter le son de l'appel : son de "
                                                  "l'ordinateur indisponible"));
        }
        {
            // The output goes away under a running capture.
            audio().outputFails = false;
            CallTranslator call;
            call.start();
            QTRY_VERIFY(audio().capturingOutput());
            audio().endOutput(QStringLiteral("Entity killed"));
            QTRY_VERIFY(!call.running());
            QVERIFY(call.error()->contains(QStringLiteral("Entity killed")));
            // A new start clears the error.
            call.start();
            QCOMPARE(call.error(), std::nullopt);
            call.stop();
        }
    }
};

QTEST_GUILESS_MAIN(TstCallTranslator)
#include "tst_calltranslator.moc"
