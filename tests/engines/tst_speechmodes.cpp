// The headless modes run as the real program, their lines read as a script reads them:
// --fasttest and --calltest against a local server playing OpenRouter, and --test on
// synthesised English speech, transcribed offline with a grammar, then rewritten by a local
// model served from the same local server.
#include "OfflineTools.h"
#include "SoundServer.h"

#include "audio/AudioRecorder.h"
#include "data/Settings.h"
#include "engines/Cleanup.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

#include <sndfile.h>

using namespace ombry;
using namespace ombry::test;

class TstSpeechModes : public QObject {
    Q_OBJECT
    const QString chat = QStringLiteral("/api/v1/chat/completions");
    TestHttpServer server;
    QTemporaryDir home;

    QStringList run(const QStringList& args, const QString& key = {}) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_DATA_HOME", home.filePath("data"));
        env.insert("XDG_CONFIG_HOME", home.filePath("config"));
        env.insert("OMBRY_OPENROUTER_URL", server.url().toString());
        env.insert("OMBRY_LOCAL_LLM_URL", server.url().toString());
        env.insert("OMBRY_POCKETSPHINX_JSGF", home.filePath("commands.gram"));
        env.insert("OPENROUTER_API_KEY", key);
        return runProgram(args, env);
    }
    void write(const QString& name, const QByteArray& bytes) {
        QVERIFY(writeFile(home.filePath(name), bytes));
    }
    // The audio of a file written again by libsndfile in another kind of file.
    static bool reencode(const QString& from, const QString& to, int format) {
        SF_INFO in{};
        SNDFILE* source = sf_open(QFile::encodeName(from).constData(), SFM_READ, &in);
        if (!source) return false;
        SF_INFO out = in;
        out.format = format;
        SNDFILE* target = sf_open(QFile::encodeName(to).constData(), SFM_WRITE, &out);
        std::vector<float> frames(size_t(in.frames * in.channels));
        const bool ok = target && sf_readf_float(source, frames.data(), in.frames) == in.frames &&
                        sf_writef_float(target, frames.data(), in.frames) == in.frames;
        sf_close(source);
        if (target) sf_close(target);
        return ok;
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

    void testTranscribesOfflineThenRewrites() {
        if (!offlineToolsInstalled())
            QSKIP("espeak-ng, sox and the English pocketsphinx model are needed");
        const QString wav = home.filePath("speech.wav");
        QVERIFY(test::SoundServer::makeSpeech("close the door", "en", wav));
        QVERIFY(writeGrammar(home.filePath("commands.gram")));
        QCOMPARE(run({"--test", wav}),
                 QStringList{"erreur: Local : erreur 0 langue non disponible"});

        // The mode transcribes in French.
        QVERIFY(linkFrenchModel(home.filePath("data")));
        // With a local model server, the transcript is rewritten through it.
        server.on("/v1/models", Reply::json(QJsonObject{{"data", QJsonArray{}}}));
        server.on("/v1/chat/completions", chatCompletion("Ferme la porte."));
        QCOMPARE(run({"--test", wav}), QStringList({"transcription (t s): close the door",
                                                    "apple intelligence disponible: true",
                                                    "reformulation (t s): Ferme la porte."}));
        QVERIFY(sentPrompt(0).contains("Réécris-la proprement en français :\n"));
        QCOMPARE(sentPrompt(1), "close the door");

        // The same speech in the files a user has: 44.1 kHz stereo WAV, FLAC, Ogg, MP3.
        const QString cd = home.filePath("cd.wav");
        QCOMPARE(QProcess::execute("sox", {wav, "-r", "44100", "-c", "2", cd}), 0);
        for (const auto& [name, format] :
             {std::pair{"speech.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
              std::pair{"speech.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
              std::pair{"speech.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III},
              std::pair{"cd.wav", 0}}) {
            const QString file = home.filePath(QLatin1String(name));
            if (format) QVERIFY(reencode(cd, file, format));
            QCOMPARE(run({"--test", file}).value(0),
                     QStringLiteral("transcription (t s): close the door"));
        }
        // A file cut inside its header, or no audio at all: one error line.
        QFile flac(home.filePath("speech.flac"));
        QVERIFY(flac.open(QIODevice::ReadOnly));
        write("cut.flac", flac.read(40));
        write("notes.txt", "close the door");
        for (const char* name : {"cut.flac", "notes.txt"}) {
            const QStringList lines = run({"--test", home.filePath(QLatin1String(name))});
            QVERIFY2(lines.size() == 1 && lines[0].startsWith("erreur: "),
                     qPrintable(lines.join('|')));
        }
    }
};

QTEST_GUILESS_MAIN(TstSpeechModes)
#include "tst_speechmodes.moc"
