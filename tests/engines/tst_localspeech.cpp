// Transcription on the user's machine: the local speech server played by the loopback test
// server (its multipart request, its answers and failures, the fallback to pocketsphinx when it
// is down), the addresses the settings and environment give, and --test run as the real
// program on synthesised speech.
#include "audio/AudioRecorder.h"
#include "data/Settings.h"
#include "desktop/Log.h"
#include "engines/LocalSpeech.h"
#include "engines/OfflineSpeech.h"
#include "net/Errors.h"
#include <QtEndian>

#include "Await.h"
#include "FakePlatform.h"
#include "OfflineTools.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

struct Part {
    QByteArray headers; // the part's header lines, as sent
    QByteArray body;
};

// The parts of a multipart/form-data request by name, read as a server reads them.
QMap<QString, Part> partsOf(const RecordedRequest& request) {
    const QByteArray type = request.header("content-type");
    const qsizetype at = type.indexOf("boundary=");
    if (!type.startsWith("multipart/form-data") || at < 0) return {};
    const QByteArray delimiter = "--" + type.mid(at + 9);
    QMap<QString, Part> parts;
    const QByteArray& body = request.body;
    qsizetype from = body.indexOf(delimiter);
    while (from >= 0) {
        from += delimiter.size();
        if (body.mid(from, 2) == "--") break; // the closing delimiter
        const qsizetype headersEnd = body.indexOf("\r\n\r\n", from);
        const qsizetype next = body.indexOf("\r\n" + delimiter, headersEnd);
        if (headersEnd < 0 || next < 0) return {};
        const QByteArray headers = body.mid(from + 2, headersEnd - from - 2);
        static const QRegularExpression name(R"(name="([^"]*)\")");
        const QString key = name.match(QString::fromUtf8(headers)).captured(1);
        parts.insert(key, {headers, body.mid(headersEnd + 4, next - headersEnd - 4)});
        from = next + 2;
    }
    return parts;
}

QString valueOf(const QMap<QString, Part>& parts, const QString& name) {
    return QString::fromUtf8(parts.value(name).body);
}

} // namespace

class TstLocalSpeech : public QObject {
    Q_OBJECT
    FakePlatform platform_;
    QTemporaryDir home_;
    TestHttpServer server_;
    const QString path_ = QStringLiteral("/v1/audio/transcriptions");

    QString file(const QString& name) const { return home_.filePath(name); }
    void write(const QString& name, const QByteArray& bytes) {
        QVERIFY(writeFile(file(name), bytes));
    }
    QByteArray read(const QString& name) const {
        QFile f(file(name));
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
    QString failure(const QByteArray& wav, const QString& language) {
        return failureOf<Error>(
            [&] { await(LocalSpeech::transcribe(wav, language, {}, file("commands.gram"))); });
    }
    // An address where nothing listens: a server's port, once the server is gone.
    static QString deadAddress() {
        TestHttpServer gone;
        return gone.url().toString();
    }
    // Speech by espeak-ng: its own file (22,050 Hz mono) and, with sox options, a converted one.
    QString speak(const QString& words, const QString& name, const QStringList& sox = {}) {
        const QString raw = file(name + ".espeak.wav");
        if (QProcess::execute("espeak-ng", {"-v", "en", "-w", raw, words}) != 0) return {};
        if (sox.isEmpty()) return raw;
        const QString out = file(name + ".wav");
        if (QProcess::execute("sox", QStringList{raw} + sox + QStringList{out}) != 0) return {};
        return out;
    }

    QStringList run(const QStringList& args, const QMap<QString, QString>& extraEnv = {}) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_DATA_HOME", file("data"));
        env.insert("XDG_CONFIG_HOME", file("config"));
        env.insert("OMBRY_LOCAL_LLM_URL", deadAddress());
        env.insert("OMBRY_POCKETSPHINX_JSGF", file("commands.gram"));
        env.remove("OMBRY_LOCAL_STT_URL");
        for (auto it = extraEnv.begin(); it != extraEnv.end(); ++it)
            env.insert(it.key(), it.value());
        return runProgram(args, env);
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(writeGrammar(file("commands.gram")));
        Log::resetForTests(file("journal.log"));
    }
    void init() {
        server_.reset();
        qputenv("OMBRY_LOCAL_STT_URL", server_.url().toString().toUtf8() + "/");
        AppSettings::shared().setLocalSpeechModel(QStringLiteral("whisper-1"));
    }

    void serverRequestAndTranscript() {
        const QByteArray wav = AudioRecorder::wav(QByteArray(3200, '\1'));
        server_.on(path_, Reply::json(QJsonObject{{"text", "  Bonjour Quennard.\n"}}));
        AppSettings::shared().setLocalSpeechModel(QStringLiteral("large-v3-turbo"));
        QCOMPARE(await(LocalSpeech::transcribe(wav, "fr-FR", {"Quennard", "  ", " Ombry "})),
                 QStringLiteral("Bonjour Quennard."));

        QCOMPARE(server_.count(), 1);
        const RecordedRequest sent = server_.last();
        QCOMPARE(sent.method, QByteArray("POST"));
        const auto parts = partsOf(sent);
        QCOMPARE(parts.keys(),
                 QStringList({"file", "language", "model", "prompt", "response_format"}));
        QCOMPARE(parts.value("file").body, wav);
        QVERIFY(parts.value("file").headers.contains("filename=\"audio.wav\""));
        QVERIFY(parts.value("file").headers.contains("Content-Type: audio/wav"));
        QCOMPARE(valueOf(parts, "model"), QStringLiteral("large-v3-turbo"));
        QCOMPARE(valueOf(parts, "language"), QStringLiteral("fr"));
        QCOMPARE(valueOf(parts, "response_format"), QStringLiteral("json"));
        // Blank words are left out; the others go as the user wrote them.
        QCOMPARE(valueOf(parts, "prompt"), QStringLiteral("Quennard,  Ombry "));

        // Without words there is no prompt at all.
        await(LocalSpeech::transcribe(wav, "en", {" "}));
        QVERIFY(!partsOf(server_.last()).contains("prompt"));
        QCOMPARE(valueOf(partsOf(server_.last()), "language"), QStringLiteral("en"));

        Log::sync();
        QVERIFY(read("journal.log")
                    .contains("transcription locale: serveur " + server_.url().toString().toUtf8() +
                              "\n"));
    }

    void serverFailuresInTheirOwnWords() {
        // French has no pocketsphinx model here: a fallback would fail with other words.
        const QByteArray wav = AudioRecorder::wav(QByteArray(3200, '\0'));
        server_.on(
            path_,
            Reply::json(QJsonObject{{"error", QJsonObject{{"message", "model not loaded"}}}}, 500));
        QCOMPARE(failure(wav, "fr"), "Local : erreur 500 model not loaded");
        server_.on(path_, Reply::json(QJsonObject{{"error", "failed to read WAV"}}, 400));
        QCOMPARE(failure(wav, "fr"), "Local : erreur 400 failed to read WAV");
        server_.on(path_, Reply::text("occupé\n", 503));
        QCOMPARE(failure(wav, "fr"), "Local : erreur 503 occupé");
        server_.on(path_, Reply::text("Bonjour"));
        QCOMPARE(failure(wav, "fr"), "Local : réponse illisible");
        // An answer beyond any transcript's size is the server's fault, not its absence.
        server_.on(path_, Reply::text(QByteArray(10 << 20, ' ')));
        QCOMPARE(failure(wav, "fr"),
                 "Local : erreur 0 réponse du serveur trop grande (plus de 8 Mo)");
        QCOMPARE(server_.count(), 5);
        // A server that never falls silent (a byte a second) is given up after a few minutes
        // for a dictation, not twenty; a long recording gets its time.
        QVERIFY(LocalSpeech::serverDeadline(wav.size() + 30 * 32000) <= 240);
        QVERIFY(LocalSpeech::serverDeadline(20 * 60 * 32000) >= 20 * 60);
    }

    void pocketsphinxWhenTheServerIsDown() {
        const QByteArray silence = AudioRecorder::wav(QByteArray(3200, '\0'));
        const QString dead = deadAddress();
        qputenv("OMBRY_LOCAL_STT_URL", dead.toUtf8());
        QCOMPARE(failure(silence, "fr"),
                 "Local : erreur 0 serveur de transcription injoignable (" + dead + ")");
        Log::sync();
        QVERIFY(read("journal.log")
                    .contains("transcription locale: serveur " + dead.toUtf8() + " injoignable"));

        if (!offlineToolsInstalled()) QSKIP("espeak-ng, sox and the English pocketsphinx model");
        // espeak-ng's own file (22,050 Hz) is converted on the way.
        QFile speech(speak("close the door", "door"));
        QVERIFY(speech.open(QIODevice::ReadOnly));
        QCOMPARE(await(LocalSpeech::transcribe(speech.readAll(), "en", {"Ombry"},
                                               file("commands.gram"))),
                 QStringLiteral("close the door"));
        Log::sync();
        QVERIFY(read("journal.log").endsWith("transcription locale: pocketsphinx\n"));

        // With no server set, no request is tried.
        qputenv("OMBRY_LOCAL_STT_URL", "");
        QCOMPARE(failure(silence, "fr"), "Local : erreur 0 langue non disponible");
        QCOMPARE(server_.count(), 0);
    }

    void addressesFromSettingsAndEnvironment() {
        AppSettings& settings = AppSettings::shared();
        settings.setLocalSpeechServer(QStringLiteral(" http://127.0.0.1:8081/ "));
        settings.setLocalModelServer(QStringLiteral("http://127.0.0.1:11434/"));
        qunsetenv("OMBRY_LOCAL_STT_URL");
        qunsetenv("OMBRY_LOCAL_LLM_URL");
        QCOMPARE(LocalServers::speech(), QStringLiteral("http://127.0.0.1:8081"));
        QCOMPARE(LocalServers::model(), QStringLiteral("http://127.0.0.1:11434"));
        qputenv("OMBRY_LOCAL_STT_URL", ""); // set but empty: no speech server
        qputenv("OMBRY_LOCAL_LLM_URL", "http://127.0.0.1:9999");
        QCOMPARE(LocalServers::speech(), QString());
        QCOMPARE(LocalServers::model(), QStringLiteral("http://127.0.0.1:9999"));
        settings.setLocalModelServer(QString());
        qunsetenv("OMBRY_LOCAL_LLM_URL");
        QCOMPARE(LocalServers::model(), QStringLiteral("http://127.0.0.1:8080"));
        settings.setLocalSpeechServer(QString());

        // Any HTTP answer means the server is there, a 404 at its root too.
        QVERIFY(await(LocalServers::answers(server_.url().toString())));
        QVERIFY(!await(LocalServers::answers(deadAddress())));
        QVERIFY(!await(LocalServers::answers(QStringLiteral("pas une adresse"))));
    }

    void testModeUsesTheServerThenPocketsphinx() {
        if (!offlineToolsInstalled()) QSKIP("espeak-ng, sox and the English pocketsphinx model");
        // A French recording as espeak-ng makes it (22,050 Hz), read by a server set in the
        // settings file.
        const QString raw = file("bonjour.wav");
        QCOMPARE(QProcess::execute("espeak-ng", {"-v", "fr", "-w", raw, "bonjour tout le monde"}),
                 0);
        write("config/com.quennard.ombryvoice.json",
              "{\"localSpeechServer\": \"" + server_.url().toString().toUtf8() + "\"}");
        server_.on(path_, Reply::json(QJsonObject{{"text", " Bonjour tout le monde."}}));
        QCOMPARE(run({"--test", raw}),
                 QStringList({"transcription (t s): Bonjour tout le monde.",
                              "apple intelligence disponible: false",
                              "erreur: IA locale : erreur 0 non disponible sur cet ordinateur "
                              "(modèle local requis)"}));
        const auto parts = partsOf(server_.last());
        QCOMPARE(valueOf(parts, "language"), QStringLiteral("fr"));
        QVERIFY(!parts.contains("prompt"));
        // The server gets the engines' format whatever the file was.
        const QByteArray sent = parts.value("file").body;
        QVERIFY(sent.startsWith("RIFF") && sent.size() > 44);
        QCOMPARE(qFromLittleEndian<quint16>(sent.constData() + 22), 1);      // channels
        QCOMPARE(qFromLittleEndian<quint32>(sent.constData() + 24), 16000u); // rate
        QCOMPARE(qFromLittleEndian<quint16>(sent.constData() + 34), 16);     // bits

        // The environment's server wins over the settings; its error is the mode's error line.
        TestHttpServer other;
        other.on(path_, Reply::text("modèle absent", 500));
        QCOMPARE(run({"--test", raw}, {{"OMBRY_LOCAL_STT_URL", other.url().toString()}}),
                 QStringList{"erreur: Local : erreur 500 modèle absent"});
        QCOMPARE(other.count(), 1);

        // Server down: pocketsphinx decodes a 44.1 kHz stereo 24-bit file, through a French
        // model folder made of the English pieces.
        QVERIFY(linkFrenchModel(file("data")));
        const QString stereo =
            speak("open the window", "stereo", {"-r", "44100", "-c", "2", "-b", "24"});
        QCOMPARE(run({"--test", stereo}, {{"OMBRY_LOCAL_STT_URL", deadAddress()}}).first(),
                 QStringLiteral("transcription (t s): open the window"));
        QVERIFY(
            read("data/Ombry Voice/journal.log").contains("transcription locale: pocketsphinx"));
    }
};

QTEST_GUILESS_MAIN(TstLocalSpeech)
#include "tst_localspeech.moc"
