// The chunker against a server playing the models: which pauses cut, which pieces cost a call,
// the text in cut order whatever the answers' order, a failed or cancelled piece failing all.
#include "Await.h"
#include "FakePlatform.h"
#include "SpeechServer.h"

#include "data/KeyStore.h"
#include "data/Settings.h"
#include "dictation/Chunker.h"
#include "engines/Cleanup.h"

#include <QTest>

using namespace ombry;
using namespace ombry::test;

class TstChunker : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;
    SpeechServer speech;

    static constexpr int64_t kSecond = 32000;

    int transcriptions() const { return int(speech.heard.size()); }

private Q_SLOTS:
    void initTestCase() {
        qputenv("OMBRY_OPENROUTER_URL", server.url().toString().toUtf8());
        KeyStore::shared().save(QStringLiteral("sk-or-test"), APIService::OpenRouter);
        AppSettings::shared().setOwnKeyMode(true);
    }
    void init() {
        server.reset();
        speech = SpeechServer();
        speech.install(server);
    }

    void piecesComeBackInCutOrderWithTheRightCleanUp() {
        // 2 s of speech and a pause at 2.9 s: too short to cut. Speech again and a pause at
        // 5 s: one piece of all 5 s. The rest, 1.5 s, goes at the end.
        const QByteArray pcm = squareWave(2.0, 9000) + silence(0.9) + squareWave(1.5, 9000) +
                               silence(0.6) + squareWave(1.0, 9000) + silence(0.5);
        QList<QPair<int64_t, int64_t>> sliced;
        auto slice = [&](int64_t from, int64_t to) {
            sliced << qMakePair(from, to);
            return pcm.mid(from, to - from);
        };
        // The long first piece answers last (answer time grows with length); the short one
        // has three words, the long one more.
        speech.transcript = [](double seconds) {
            return chatCompletion(seconds > 3 ? QStringLiteral("euh alors je voulais dire")
                                              : QStringLiteral("merci à tous"));
        };
        speech.transcribeMsPerSecond = 150;
        Chunker chunker(QStringLiteral("ton amical"));
        chunker.cut(int64_t(2.9 * kSecond), slice);
        QCOMPARE(chunker.taskCount(), 0);
        chunker.cut(5 * kSecond, slice);
        QCOMPARE(chunker.taskCount(), 1);
        QCOMPARE(sliced, (QList<QPair<int64_t, int64_t>>{{0, 5 * kSecond}}));

        const auto result = await(chunker.finish(pcm));
        QCOMPARE(chunker.taskCount(), 2);
        QVERIFY(result);
        QCOMPARE(result->first, QStringLiteral("euh alors je voulais dire merci à tous"));
        QCOMPARE(result->second, QStringLiteral("euh alors je voulais dire (réécrit) ") +
                                     OpenRouter::basicCleanup(QStringLiteral("merci à tous")));
        // Only the piece of more than three words went to the rewriting model, with the tone.
        QCOMPARE(speech.rewritten, QStringList{QStringLiteral("euh alors je voulais dire")});
        QCOMPARE(OpenRouter::toneHint(), QStringLiteral("ton amical"));
        // Trimmed audio: the first piece lost its tail of silence but for a quarter second.
        QCOMPARE(transcriptions(), 2);
        const double longest = std::max(speech.heard[0], speech.heard[1]);
        QVERIFY2(qAbs(longest - 4.65) < 0.05, qPrintable(QString::number(longest)));
    }

    void silentPiecesAndBreathCostNothing() {
        speech.transcript = [](double) { return chatCompletion(QStringLiteral("oui")); };
        // Peak 1,500 is silence; 1,501 is heard. A last breath of 0.2 s is no speech.
        const QByteArray pcm =
            squareWave(4.0, 1500) + squareWave(3.5, 1501) + squareWave(0.2, 9000);
        auto slice = [&](int64_t from, int64_t to) { return pcm.mid(from, to - from); };
        Chunker chunker{QString()};
        chunker.cut(4 * kSecond, slice);
        chunker.cut(int64_t(7.5 * kSecond), slice);
        const auto result = await(chunker.finish(pcm));
        QCOMPARE(chunker.taskCount(), 3);
        QCOMPARE(transcriptions(), 1);
        QVERIFY(qAbs(speech.heard[0] - 3.5) < 0.05);
        QCOMPARE(result, (Chunker::Result{{QStringLiteral("oui"), QStringLiteral("Oui")}}));

        // Nothing after the last cut: no further piece; nothing said at all: two empty texts.
        Chunker quiet{QString()};
        const QByteArray still = silence(4.0);
        quiet.cut(still.size(), [&](int64_t f, int64_t t) { return still.mid(f, t - f); });
        QCOMPARE(await(quiet.finish(still)), (Chunker::Result{{QString(), QString()}}));
        QCOMPARE(quiet.taskCount(), 1);
    }

    void oneFailedOrCancelledPieceFailsTheWhole() {
        // The first piece succeeds, the second (the short one) fails.
        speech.transcript = [](double seconds) {
            return seconds > 3 ? chatCompletion(QStringLiteral("une phrase réussie ici"))
                               : Reply::json(QByteArray("{\"error\":\"boom\"}"), 500);
        };
        const QByteArray pcm = squareWave(4.0, 9000) + silence(0.7) + squareWave(1.0, 9000);
        auto slice = [&](int64_t from, int64_t to) { return pcm.mid(from, to - from); };
        Chunker chunker{QString()};
        chunker.cut(int64_t(4.7 * kSecond), slice);
        QCOMPARE(await(chunker.finish(pcm)), Chunker::Result());

        // A cancel while the speech model works: its request is given up at once, and nothing
        // more is sent, neither the rewrite of that piece nor the rest of the recording.
        speech.transcribeBaseMs = 60000;
        Chunker cancelled{QString()};
        cancelled.cut(int64_t(4.7 * kSecond), slice);
        QVERIFY(server.waitForRequests(server.count() + 1));
        const int sent = server.count();
        cancelled.cancelAll();
        QCOMPARE(await(cancelled.finish(pcm), 5000), Chunker::Result());
        QCOMPARE(server.count(), sent);
        QTRY_COMPARE(server.abandoned(), 1);
    }
};

QTEST_GUILESS_MAIN(TstChunker)
#include "tst_chunker.moc"
