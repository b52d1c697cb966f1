// Speech through the chat model against servers playing OpenRouter and the product site: the
// audio message, the slices of long recordings on the hosted road, how each reply is read.
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "engines/GeminiSpeech.h"
#include "net/Errors.h"
#include "online/Credits.h"

#include <QJsonArray>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

const QString kChat = QStringLiteral("/api/v1/chat/completions");
const QString kVoice = QStringLiteral("/api/voice");

QJsonObject message(const RecordedRequest& r, int i) {
    return r.json().value("messages").toArray()[i].toObject();
}

QByteArray sentAudio(const RecordedRequest& r) {
    const QJsonObject audio =
        message(r, 1).value("content").toArray()[0].toObject().value("input_audio").toObject();
    return QByteArray::fromBase64(audio.value("data").toString().toLatin1());
}

} // namespace

class TstGeminiSpeech : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer openRouter;
    TestHttpServer site;
    const QByteArray wav = AudioRecorder::wav(QByteArray(16000, '\5'));

    void useOwnKey(bool own) {
        KeyStore::shared().save(own ? "sk-or-test" : QString(), APIService::OpenRouter);
        AppSettings::shared().setOwnKeyMode(own);
    }
    QString transcribe(const QByteArray& audio, const QStringList& words = {}) {
        return await(GeminiSpeech::transcribe(audio, "français", words));
    }
    GeminiSpeech::Translation translate() {
        return await(GeminiSpeech::transcribeAndTranslate(wav, ""));
    }

private Q_SLOTS:
    void initTestCase() {
        qputenv("OMBRY_OPENROUTER_URL", openRouter.url().toString().toUtf8());
        qputenv("OMBRY_SITE_URL", site.url().toString().toUtf8());
        Credits::shared().update(500);
        QTRY_VERIFY(Credits::shared().balance());
    }
    void init() {
        openRouter.reset();
        site.reset();
        useOwnKey(true);
    }

    void transcribeSendsTheAudioMessageAndReadsTheReply() {
        openRouter.on(kChat, chatCompletion("  Bonjour. Je n'ai pas pu entendre l'audio.\n"));
        QCOMPARE(transcribe(wav, {"Ombry", " \t", " Léa ", "\n"}), QStringLiteral("Bonjour."));
        const RecordedRequest r = openRouter.last();
        QCOMPARE(message(r, 1).value("content").toArray().size(), 1); // the audio part only
        QCOMPARE(sentAudio(r), wav);
        // Blank entries (spaces, tabs) are left out, the others kept as typed; a line break is
        // no blank.
        QVERIFY(message(r, 0).value("content").toString().endsWith(
            "\nMots à reconnaître et à écrire ainsi : Ombry,  Léa , \n."));
        openRouter.on(kChat, Reply::json(QByteArray(R"({"choices":[]})")));
        QCOMPARE(transcribe(wav), QString());
    }

    void longRecordingsAreSlicedOnTheHostedRoad_data() {
        QTest::addColumn<bool>("own");
        QTest::addColumn<qsizetype>("pcmBytes");
        QTest::addColumn<QList<qsizetype>>("sentPcm");
        const qsizetype slice = GeminiSpeech::kHostedSliceBytes;
        QTest::newRow("70 s exactly: one") << false << slice << QList<qsizetype>{slice};
        QTest::newRow("one byte more: two") << false << slice + 1 << QList<qsizetype>{slice, 1};
        QTest::newRow("three slices")
            << false << 2 * slice + 6400 << QList<qsizetype>{slice, slice, 6400};
        QTest::newRow("own key: 200 s in one")
            << true << qsizetype(200 * 32000) << QList<qsizetype>{200 * 32000};
    }
    void longRecordingsAreSlicedOnTheHostedRoad() {
        QFETCH(bool, own);
        QFETCH(qsizetype, pcmBytes);
        QFETCH(QList<qsizetype>, sentPcm);
        useOwnKey(own);
        const QByteArray pcm =
            QByteArray("0123456789abc").repeated(pcmBytes / 13 + 1).left(pcmBytes);
        // The second slice says nothing: no double blank in the joined text.
        TestHttpServer& server = own ? openRouter : site;
        QStringList expected;
        for (int i = 0; i < sentPcm.size(); ++i) {
            const QString part = i == 1 ? QString() : QStringLiteral("part%1").arg(i);
            server.enqueue(own ? kChat : kVoice, chatCompletion(part + " "));
            if (!part.isEmpty()) expected << part;
        }
        QCOMPARE(transcribe(AudioRecorder::wav(pcm)), expected.join(' '));
        const QList<RecordedRequest> sent = server.requests();
        QCOMPARE(sent.size(), sentPcm.size());
        qsizetype offset = 0;
        for (int i = 0; i < sent.size(); ++i) {
            QCOMPARE(sentAudio(sent[i]), AudioRecorder::wav(pcm.mid(offset, sentPcm[i])));
            offset += sentPcm[i];
        }
        if (own || sentPcm.size() < 2) return;
        // A failing slice fails the whole.
        server.enqueue(kVoice, chatCompletion("début"));
        server.enqueue(kVoice, Reply::text("panne", 500));
        QCOMPARE(failureOf<EngineError>([&] { transcribe(AudioRecorder::wav(pcm)); }),
                 QStringLiteral("Ombry : erreur 500 "));
    }

    void transcribeAndCleanWantsTheJsonObject() {
        const auto clean = [this] {
            return await(GeminiSpeech::transcribeAndClean(wav, "français", {}, "", "P."));
        };
        openRouter.on(kChat, chatCompletion(R"(Voici : {"raw": " euh oui ", "clean": "Oui."} !)"));
        const auto result = clean();
        QCOMPARE(result.raw, QStringLiteral("euh oui"));
        QCOMPARE(result.clean, QStringLiteral("Oui."));
        // No fallback here: anything but the JSON object is an error.
        openRouter.on(kChat, chatCompletion(R"({"raw": "a", "clean": 3})"));
        QVERIFY_THROWS_EXCEPTION(DecodeError, clean());
    }

    void transcribeAndTranslateFallsBackOnFields() {
        // A cut-off answer is read field by field.
        openRouter.on(
            kChat,
            chatCompletion("{\"en\": \"He said \\\"hi\\\"\\nthen left\", \"fr\": \"Il a dit"));
        const auto t = translate();
        QCOMPARE(t.en, QStringLiteral("He said \"hi\"\nthen left"));
        QCOMPARE(t.fr, QStringLiteral("Il a dit"));
        openRouter.on(kChat, chatCompletion("{\"en\":\u00a0\"Hello"));
        const auto cut = translate();
        QCOMPARE(cut.en, QStringLiteral("Hello")); // a no-break space is a blank
        QCOMPARE(cut.fr, QString());
        openRouter.on(kChat, Reply::text("pas du JSON"));
        QVERIFY_THROWS_EXCEPTION(DecodeError, translate());
    }
};

QTEST_GUILESS_MAIN(TstGeminiSpeech)
#include "tst_geminispeech.moc"
