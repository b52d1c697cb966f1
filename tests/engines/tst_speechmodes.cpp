// The headless modes run as the real program against a local server playing OpenRouter, the
// local speech server and the local model: --fasttest, --calltest, --test.
#include "OfflineTools.h"
#include "SoundServer.h"

#include "audio/AudioRecorder.h"
#include "data/Settings.h"
#include "engines/AudioFile.h"
#include "engines/Cleanup.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

class TstSpeechModes : public QObject {
    Q_OBJECT
    const QString chat = QStringLiteral("/api/v1/chat/completions");
    TestHttpServer server;
    QTemporaryDir home;

    QStringList run(const QStringList& args, const QString& key = {},
                    const QString& speechServer = {}) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_DATA_HOME", home.filePath("data"));
        env.insert("XDG_CONFIG_HOME", home.filePath("config"));
        env.insert("OMBRY_OPENROUTER_URL", server.url().toString());
        env.insert("OMBRY_LOCAL_LLM_URL", server.url().toString());
        env.insert("OMBRY_POCKETSPHINX_JSGF", home.filePath("commands.gram"));
        env.insert("OPENROUTER_API_KEY", key);
        env.remove("OMBRY_LOCAL_STT_URL");
        if (!speechServer.isNull()) env.insert("OMBRY_LOCAL_STT_URL", speechServer);
        return runProgram(args, env);
    }
    void write(const QString& name, const QByteArray& bytes) {
        QVERIFY(writeFile(home.filePath(name), bytes));
    }
    QString sentPrompt(int message = 0) {
        const QJsonArray messages = server.last().json().value("messages").toArray();
        return messages[message].toObject().value("content").toString();
    }

private Q_SLOTS:
    void init() { server.reset(); }

    void fastTestPrintsRawAndClean() {
        // The key comes from the environment; the user's punctuation setting goes in the prompt.
        write("config/com.quennard.ombryvoice.json",
              "{\"punctuation\":\"" + rawValue(PunctuationLevel::Light).toUtf8() + "\"}");
        write("phrase.wav", AudioRecorder::wav(QByteArray(16000, '\3')));
        server.on(chat, chatCompletion(R"({"raw": "euh bonjour", "clean": "Bonjour."})"));
        QCOMPARE(run({"--fasttest", home.filePath("phrase.wav")}, "sk-env"),
                 QStringList{"rapide (t s): raw=[euh bonjour] clean=[Bonjour.]"});
        QCOMPARE(server.last().header("authorization"), QByteArray("Bearer sk-env"));
        QVERIFY(sentPrompt().contains(punctuationSentence(PunctuationLevel::Light) + " \nGarde"));
    }

    void callTestPrintsBothLanguages() {
        // The key may come from keys.json in the data folder as well.
        write("data/Ombry Voice/keys.json", R"({"openRouter":"sk-file"})");
        server.on(chat, chatCompletion(R"({"en": "Fancy a cuppa?", "fr": "Un thé ?"})"));
        QCOMPARE(run({"--calltest", home.filePath("phrase.wav")}),
                 QStringList{"appel (t s): Fancy a cuppa? → Un thé ?"});
        QCOMPARE(server.last().header("authorization"), QByteArray("Bearer sk-file"));
        QVERIFY(sentPrompt().contains("comprendre : aucun\n"));

        // A failure is one printed line and status 0; without a key nothing is sent.
        QFile::remove(home.filePath("data/Ombry Voice/keys.json"));
        QCOMPARE(run({"--calltest", home.filePath("phrase.wav")}),
                 QStringList{"erreur: Clé OpenRouter absente"});
        QCOMPARE(server.count(), 1);
    }

    // --test: the speech server of the settings file, the environment's above it, pocketsphinx
    // where there is none; the transcript then rewritten by the local model.
    void testTranscribesThenRewrites() {
        if (!offlineToolsInstalled())
            QSKIP("espeak-ng, sox and the English pocketsphinx model are needed");
        const QString door = home.filePath("door.wav"), bonjour = home.filePath("bonjour.wav");
        QVERIFY(test::SoundServer::makeSpeech("close the door", "en", door));
        // French as espeak-ng makes it (22,050 Hz): the server gets the engines' format.
        QCOMPARE(QProcess::execute("espeak-ng", {"-v", "fr", "-w", bonjour, "bonjour à tous"}), 0);
        QVERIFY(writeGrammar(home.filePath("commands.gram")));
        QCOMPARE(run({"--test", door}),
                 QStringList{"erreur: Local : erreur 0 langue non disponible"});

        const QString speech = QStringLiteral("/v1/audio/transcriptions");
        write("config/com.quennard.ombryvoice.json",
              "{\"localSpeechServer\": \"" + server.url().toString().toUtf8() + "\"}");
        server.on(speech, Reply::json(QJsonObject{{"text", " Bonjour à tous."}}));
        server.on("/v1/models", Reply::json(QJsonObject{{"data", QJsonArray{}}}));
        server.on("/v1/chat/completions", chatCompletion("Bonjour à toutes et à tous."));
        QCOMPARE(run({"--test", bonjour}), QStringList({"transcription (t s): Bonjour à tous.",
                                                        "apple intelligence disponible: true",
                                                        "reformulation (t s): Bonjour à toutes "
                                                        "et à tous."}));
        QVERIFY(sentPrompt(0).contains("Réécris-la proprement en français :\n"));
        QCOMPARE(sentPrompt(1), "Bonjour à tous.");
        const QByteArray sent = server.requests(speech).first().body;
        QVERIFY(sent.contains(AudioRecorder::wav(*AudioFile::speechPcm(bonjour))));
        QVERIFY(sent.contains("name=\"language\"\r\n\r\nfr\r\n") && !sent.contains("\"prompt\""));

        TestHttpServer other;
        other.on(speech, Reply::text("modèle absent", 500));
        QCOMPARE(run({"--test", bonjour}, {}, other.url().toString()),
                 QStringList{"erreur: Local : erreur 500 modèle absent"});

        // No speech server: pocketsphinx, in French with the English pieces.
        QVERIFY(linkFrenchModel(home.filePath("data")));
        server.on("/v1/chat/completions", chatCompletion("Ferme la porte."));
        QCOMPARE(run({"--test", door}, {}, ""),
                 QStringList({"transcription (t s): close the door",
                              "apple intelligence disponible: true",
                              "reformulation (t s): Ferme la porte."}));
        QCOMPARE(sentPrompt(1), "close the door");
    }
};

QTEST_GUILESS_MAIN(TstSpeechModes)
#include "tst_speechmodes.moc"
