// Speech through the chat model, against a local server playing OpenRouter and the product
// site: the audio message on the wire, the slicing of long recordings on the hosted road, and
// how each kind of reply is read.
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "desktop/Log.h"
#include "engines/GeminiSpeech.h"
#include "engines/client/Errors.h"
#include "online/Credits.h"

#include <QFile>
#include <QJsonArray>
#include <QTest>
#include <functional>

using namespace ombry;
using namespace ombry::test;

namespace {

const QString kChat = QStringLiteral("/api/v1/chat/completions");
const QString kVoice = QStringLiteral("/api/voice");

// A WAV file holding `pcmBytes` of a 440 Hz tone.
QByteArray tone(qsizetype pcmBytes) {
    QByteArray pcm(pcmBytes, '\0');
    for (qsizetype i = 0; i + 1 < pcmBytes; i += 2) {
        const auto s = qint16(8000.0 * std::sin(double(i / 2) * 2.0 * M_PI * 440.0 / 16000.0));
        pcm[i] = char(s & 0xff);
        pcm[i + 1] = char((s >> 8) & 0xff);
    }
    return AudioRecorder::wav(pcm);
}

QByteArray sentAudio(const RecordedRequest& r) {
    const QJsonArray parts =
        r.json().value("messages").toArray()[1].toObject().value("content").toArray();
    return QByteArray::fromBase64(
        parts[0].toObject().value("input_audio").toObject().value("data").toString().toLatin1());
}

QString sentPrompt(const RecordedRequest& r) {
    return r.json().value("messages").toArray()[0].toObject().value("content").toString();
}

} // namespace

class TstGeminiSpeech : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer openRouter;
    TestHttpServer site;
    const QByteArray wav = tone(16000);

    void ownKey() {
        KeyStore::shared().save("sk-or-test", APIService::OpenRouter);
        AppSettings::shared().setOwnKeyMode(true);
        qputenv("OMBRY_SITE_URL", site.url().toString().toUtf8());
    }
    void hosted() {
        KeyStore::shared().save(QString(), APIService::OpenRouter);
        qputenv("OMBRY_SITE_URL", site.url().toString().toUtf8());
    }
    void answer(const Reply& reply) {
        openRouter.on(kChat, reply);
        site.on(kVoice, reply);
    }
    QString transcribe(const QByteArray& audio, const QStringList& words = {}) {
        return await(GeminiSpeech::transcribe(audio, "français", words));
    }

private Q_SLOTS:
    void initTestCase() {
        qputenv("OMBRY_OPENROUTER_URL", openRouter.url().toString().toUtf8());
        Credits::shared().update(500);
        QTRY_VERIFY(Credits::shared().balance());
    }
    void init() {
        openRouter.reset();
        site.reset();
        ownKey();
    }

    void transcribeSendsTheAudioMessage() {
        answer(chatCompletion("  Bonjour à tous.\n"));
        QCOMPARE(transcribe(wav, {"Ombry", " ", " Léa "}), QStringLiteral("Bonjour à tous."));
        const RecordedRequest r = openRouter.last();
        const QJsonObject body = r.json();
        QCOMPARE(body.value("model").toString(), QStringLiteral("google/gemini-2.5-flash-lite"));
        QVERIFY(r.body.contains("\"temperature\":0,") || r.body.contains("\"temperature\":0}"));
        QVERIFY(!body.contains("response_format"));
        const QJsonArray parts =
            body.value("messages").toArray()[1].toObject().value("content").toArray();
        QCOMPARE(parts.size(), 1); // no text part: the instructions are all in the system prompt
        QCOMPARE(parts[0].toObject().value("input_audio").toObject().value("format").toString(),
                 QStringLiteral("wav"));
        QCOMPARE(sentAudio(r), wav);

        const QString prompt = sentPrompt(r);
        QVERIFY(prompt.startsWith(
            "Transcris exactement cet enregistrement en français, mot pour mot, avec la "
            "ponctuation.\nN'invente rien ; si l'audio est vide ou inaudible"));
        // Blank entries are left out, the others kept as typed.
        QVERIFY(prompt.endsWith("Renvoie uniquement la transcription.\nMots à reconnaître et à "
                                "écrire ainsi : Ombry,  Léa ."));
        answer(chatCompletion("x"));
        transcribe(wav, {" ", ""});
        QVERIFY(sentPrompt(openRouter.last()).endsWith("Renvoie uniquement la transcription."));
    }

    void transcribeReadsWhatTheModelSaid() {
        answer(chatCompletion("Bonjour. Je n'ai pas pu entendre l'audio. Au revoir."));
        QCOMPARE(transcribe(wav), QStringLiteral("Bonjour. Au revoir."));
        Log::sync();
        QFile journal(Log::url());
        QVERIFY(journal.open(QIODevice::ReadOnly));
        QVERIFY(journal.readAll().contains("transcription: phrase inventée retirée\n"));

        answer(Reply::json(QJsonObject{{"choices", QJsonArray()}}));
        QCOMPARE(transcribe(wav), QString());
        answer(Reply::json(QByteArray("{\"choices\":[{\"message\":{\"role\":\"assistant\"}}]}")));
        QCOMPARE(transcribe(wav), QString());
        answer(Reply::text("surcharge", 503));
        QCOMPARE(failureOf<EngineError>([&] { transcribe(wav); }),
                 QStringLiteral("Gemini : erreur 503 surcharge"));
    }

    void noRoadSendsNothing() {
        KeyStore::shared().save(QString(), APIService::OpenRouter);
        qputenv("OMBRY_SITE_URL", "");
        const QString expected = QStringLiteral("Clé OpenRouter absente");
        QCOMPARE(
            failureOf<EngineError>([&] { await(GeminiSpeech::transcribeAndTranslate(wav, "")); }),
            expected);
        // Credits run out: the same refusal, before anything is sent.
        hosted();
        Credits::shared().update(0);
        QTRY_VERIFY(Credits::shared().exhausted());
        QCOMPARE(failureOf<EngineError>([&] { transcribe(wav); }), expected);
        Credits::shared().update(500);
        QTRY_VERIFY(!Credits::shared().exhausted());
        QCOMPARE(openRouter.count() + site.count(), 0);
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
        if (!own) hosted();
        QByteArray pcm(pcmBytes, '\0');
        for (qsizetype i = 0; i < pcmBytes; ++i)
            pcm[i] = char(i * 7);
        const QByteArray file = AudioRecorder::wav(pcm);
        // The second slice says nothing: no double blank in the joined text.
        TestHttpServer& server = own ? openRouter : site;
        QStringList expected;
        for (int i = 0; i < sentPcm.size(); ++i) {
            const QString part = i == 1 ? QString() : QStringLiteral("part%1").arg(i);
            server.enqueue(own ? kChat : kVoice, chatCompletion(part + " "));
            if (!part.isEmpty()) expected << part;
        }
        QCOMPARE(transcribe(file), expected.join(' '));
        const QList<RecordedRequest> sent = server.requests();
        QCOMPARE(sent.size(), sentPcm.size());
        qsizetype offset = 0;
        for (int i = 0; i < sent.size(); ++i) {
            const QByteArray audio = sentAudio(sent[i]);
            QCOMPARE(audio.size(), 44 + sentPcm[i]);
            QCOMPARE(audio, AudioRecorder::wav(pcm.mid(offset, sentPcm[i])));
            offset += sentPcm[i];
        }
    }

    void aFailingSliceFailsTheWhole() {
        hosted();
        site.enqueue(kVoice, chatCompletion("début"));
        site.enqueue(kVoice, Reply::text("panne", 500));
        const QByteArray file =
            AudioRecorder::wav(QByteArray(GeminiSpeech::kHostedSliceBytes + 2, '\1'));
        QCOMPARE(failureOf<EngineError>([&] { transcribe(file); }),
                 QStringLiteral("Ombry : erreur 500 "));
    }

    void transcribeAndCleanReadsTheJsonAnswer() {
        answer(chatCompletion("Voici : {\"raw\": \" euh bonjour \", \"clean\": \"Bonjour.\"} "
                              "Bonne journée !"));
        const auto result = await(GeminiSpeech::transcribeAndClean(wav, "français", {" ", "Ombry"},
                                                                   "", "Ponctuation normale."));
        QCOMPARE(result.raw, QStringLiteral("euh bonjour"));
        QCOMPARE(result.clean, QStringLiteral("Bonjour."));
        const RecordedRequest r = openRouter.last();
        QCOMPARE(r.json().value("response_format").toObject(),
                 (QJsonObject{{"type", "json_object"}}));
        const QString prompt = sentPrompt(r);
        QVERIFY(prompt.startsWith("Tu entends une dictée vocale en français.\n1) \"raw\""));
        QVERIFY(prompt.contains("écrite proprement en français : sans"));
        // An empty tone leaves the blank behind the punctuation sentence.
        QVERIFY(prompt.contains("majuscules justes. Ponctuation normale. \nGarde tous"));
        QVERIFY(
            prompt.endsWith("\"clean\": \"...\"}\nMots à reconnaître et à écrire ainsi : Ombry."));

        answer(chatCompletion("{\"clean\": \"Oui.\"}"));
        const auto partial =
            await(GeminiSpeech::transcribeAndClean(wav, "anglais", {}, "Ton.", "P."));
        QCOMPARE(partial.raw, QString());
        QCOMPARE(partial.clean, QStringLiteral("Oui."));
        QVERIFY(sentPrompt(openRouter.last()).contains("justes. P. Ton.\nGarde"));

        // This operation has no fallback: anything but the JSON object is an error.
        for (const Reply& bad : {chatCompletion("Je n'ai rien entendu."),
                                 Reply::json(QJsonObject{{"choices", QJsonArray()}}),
                                 chatCompletion("{\"raw\": \"a\", \"clean\": 3}")}) {
            answer(bad);
            QVERIFY_THROWS_EXCEPTION(
                DecodeError, await(GeminiSpeech::transcribeAndClean(wav, "français", {}, "", "")));
        }
    }

    void transcribeAndTranslateFallsBackOnFields() {
        answer(chatCompletion(
            "```json\n{\"en\": \" Cheers, mate \", \"fr\": \"Merci, mon pote\"}\n```"));
        auto t = await(GeminiSpeech::transcribeAndTranslate(wav, ""));
        QCOMPARE(t.en, QStringLiteral("Cheers, mate"));
        QCOMPARE(t.fr, QStringLiteral("Merci, mon pote"));
        const QString prompt = sentPrompt(openRouter.last());
        QVERIFY(prompt.contains("pour t'aider à comprendre : aucun\nSi l'extrait"));
        QVERIFY(prompt.endsWith("Réponds uniquement en JSON : {\"en\": \"...\", \"fr\": \"...\"}"));
        QVERIFY(openRouter.last().json().contains("response_format"));

        // A cut-off answer is read field by field.
        answer(chatCompletion("{\"en\": \"He said \\\"hi\\\"\\nthen left\", \"fr\": \"Il a dit"));
        t = await(GeminiSpeech::transcribeAndTranslate(wav, "  "));
        QCOMPARE(t.en, QStringLiteral("He said \"hi\"\nthen left"));
        QCOMPARE(t.fr, QStringLiteral("Il a dit"));
        QVERIFY(sentPrompt(openRouter.last()).contains("comprendre :   \nSi")); // blank stays

        answer(chatCompletion("{\"en\": \"Hello"));
        t = await(GeminiSpeech::transcribeAndTranslate(wav, ""));
        QCOMPARE(t.en, QStringLiteral("Hello"));
        QCOMPARE(t.fr, QString());

        answer(Reply::json(QJsonObject{{"choices", QJsonArray()}}));
        t = await(GeminiSpeech::transcribeAndTranslate(wav, ""));
        QCOMPARE(t.en, QString());
        QCOMPARE(t.fr, QString());
        answer(Reply::text("pas du JSON"));
        QVERIFY_THROWS_EXCEPTION(DecodeError, await(GeminiSpeech::transcribeAndTranslate(wav, "")));
    }

    void fieldReaderAndJsonCut() {
        struct Case {
            QString name, text, expected;
        };
        const Case cases[] = {
            {"fr", "{\"en\": \"a\", \"fr\" :  \"b c\"}", "b c"},
            {"en", "\"en\":\"un\" \"en\":\"deux\"", "un"}, // the first match wins
            {"en", "\"en\": \"a\\\"b\\\\c\\nd\\te\\u00e9\"", "a\"b\\c\ndteu00e9"},
            {"en", "\"en\": \"abc\\", "abc"}, // a backslash at the very end ends the value
            {"en", "\"en\":\"  \\n x \\n \"", "x"},
            {"en", "{\"en\": 3}", ""},
            {"e.", "{\"en\": \"a\"}", "a"}, // the name goes into the pattern as it is
        };
        for (const Case& c : cases)
            QCOMPARE(GeminiSpeech::field(c.name, c.text), c.expected);
        QCOMPARE(GeminiSpeech::jsonCut("} {"), QStringLiteral("} {"));
        QCOMPARE(GeminiSpeech::jsonCut("x}"), QStringLiteral("x}"));
    }
};

QTEST_GUILESS_MAIN(TstGeminiSpeech)
#include "tst_geminispeech.moc"
