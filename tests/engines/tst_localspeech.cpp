// Transcription on the user's machine: the local speech server's request, answers and failures,
// pocketsphinx when it is down, and the addresses the settings and environment give.
#include "audio/AudioRecorder.h"
#include "data/Settings.h"
#include "desktop/Log.h"
#include "engines/LocalSpeech.h"
#include "engines/OfflineSpeech.h"
#include "net/Errors.h"

#include "Await.h"
#include "FakePlatform.h"
#include "OfflineTools.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

// The parts of a multipart/form-data request by name: their header lines and their bodies.
QMap<QString, std::pair<QString, QByteArray>> partsOf(const RecordedRequest& request) {
    const QByteArray type = request.header("content-type");
    const QString delimiter =
        "--" + QRegularExpression::escape(QString::fromLatin1(type.mid(type.indexOf("=") + 1)));
    const QRegularExpression part(
        delimiter + "\r\n([^\r]*; name=\"([^\"]*)\"[^\r]*(?:\r\n[^\r]+)*)\r\n\r\n(.*?)\r\n(?=" +
            delimiter + ")",
        QRegularExpression::DotMatchesEverythingOption);
    QMap<QString, std::pair<QString, QByteArray>> parts;
    for (const auto& m : part.globalMatch(QString::fromLatin1(request.body)))
        parts.insert(m.captured(2), {m.captured(1), m.captured(3).toLatin1()});
    return parts;
}

QString valueOf(const QMap<QString, std::pair<QString, QByteArray>>& parts, const QString& name) {
    return QString::fromUtf8(parts.value(name).second);
}

} // namespace

class TstLocalSpeech : public QObject {
    Q_OBJECT
    FakePlatform platform_;
    QTemporaryDir home_;
    TestHttpServer server_;
    const QString path_ = QStringLiteral("/v1/audio/transcriptions");

    QString file(const QString& name) const { return home_.filePath(name); }
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

        const auto parts = partsOf(server_.last());
        QCOMPARE(parts.keys(),
                 QStringList({"file", "language", "model", "prompt", "response_format"}));
        QCOMPARE(parts.value("file").second, wav);
        QVERIFY(parts.value("file").first.contains(
            "filename=\"audio.wav\"\r\nContent-Type: audio/wav"));
        QCOMPARE(valueOf(parts, "model"), QStringLiteral("large-v3-turbo"));
        QCOMPARE(valueOf(parts, "language"), QStringLiteral("fr"));
        QCOMPARE(valueOf(parts, "response_format"), QStringLiteral("json"));
        // Blank words are left out; the others go as the user wrote them.
        QCOMPARE(valueOf(parts, "prompt"), QStringLiteral("Quennard,  Ombry "));

        // Without words there is no prompt at all.
        await(LocalSpeech::transcribe(wav, "en", {" "}));
        QVERIFY(!partsOf(server_.last()).contains("prompt"));

        Log::sync();
        QVERIFY(read("journal.log")
                    .contains("transcription locale: serveur " + server_.url().toString().toUtf8() +
                              "\n"));
    }

    void serverFailuresInTheirOwnWords() {
        // French has no pocketsphinx model here: a fallback would fail with other words.
        const QByteArray wav = AudioRecorder::wav(QByteArray(3200, '\0'));
        const QList<std::pair<Reply, QString>> cases{
            {Reply::json(QJsonObject{{"error", QJsonObject{{"message", "model not loaded"}}}}, 500),
             "erreur 500 model not loaded"},
            {Reply::json(QJsonObject{{"error", "failed to read WAV"}}, 400),
             "erreur 400 failed to read WAV"},
            {Reply::text("occupé\n", 503), "erreur 503 occupé"},
            {Reply::text("Bonjour"), "réponse illisible"},
            // An answer beyond any transcript's size is the server's fault, not its absence.
            {Reply::text(QByteArray(10 << 20, ' ')),
             "erreur 0 réponse du serveur trop grande (plus de 8 Mo)"}};
        for (const auto& [reply, error] : cases) {
            server_.on(path_, reply);
            QCOMPARE(failure(wav, "fr"), "Local : " + error);
        }
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
        QCOMPARE(
            QProcess::execute("espeak-ng", {"-v", "en", "-w", file("door.wav"), "close the door"}),
            0);
        QCOMPARE(await(LocalSpeech::transcribe(read("door.wav"), "en", {"Ombry"},
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
};

QTEST_GUILESS_MAIN(TstLocalSpeech)
#include "tst_localspeech.moc"
