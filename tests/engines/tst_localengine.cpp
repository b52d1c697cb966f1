// The engines of the user's machine: offline transcription of real (synthesised) speech, the
// local chat server's requests and failures, and the running text of the live preview.
#include "engines/LocalEngine.h"
#include "engines/OfflineSpeech.h"
#include "engines/client/Errors.h"

#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include <QCoroTask>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

using namespace ombry;
using ombry::test::Reply;
using ombry::test::TestHttpServer;

namespace {

const char* const kSentence = "open the window and turn on the light";

// Speech as the recorder would hand it over: espeak-ng, then 16 kHz mono 16-bit.
QByteArray speechWav(const QString& folder, const QString& text) {
    const QString raw = folder + QStringLiteral("/raw.wav");
    const QString wav = folder + QStringLiteral("/speech.wav");
    if (QProcess::execute(QStringLiteral("espeak-ng"), {"-v", "en", "-w", raw, text}) != 0)
        return {};
    if (QProcess::execute(QStringLiteral("sox"),
                          {raw, "-r", "16000", "-c", "1", "-b", "16", wav}) != 0)
        return {};
    QFile file(wav);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString writeGrammar(const QString& folder) {
    const QString path = folder + QStringLiteral("/commands.gram");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) return {};
    file.write("#JSGF V1.0;\ngrammar commands;\npublic <command> = ( open the window and turn on "
               "the light | close the door | hello world );\n");
    return path;
}

template <class T> QString errorOf(QCoro::Task<T> task) {
    try {
        test::await(std::move(task));
    } catch (const std::exception& e) {
        return QString::fromUtf8(e.what());
    }
    return QStringLiteral("(no error)");
}

QJsonObject completion(const QString& content) {
    return QJsonObject{
        {"choices", QJsonArray{QJsonObject{{"message", QJsonObject{{"content", content}}}}}}};
}

} // namespace

class TstLocalEngine : public QObject {
    Q_OBJECT

    test::FakePlatform platform_;
    QTemporaryDir dir_;
    QByteArray wav_;
    QString grammar_;

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(dir_.isValid());
        if (QStandardPaths::findExecutable(QStringLiteral("espeak-ng")).isEmpty() ||
            QStandardPaths::findExecutable(QStringLiteral("sox")).isEmpty())
            QSKIP("espeak-ng and sox are needed to make speech");
        wav_ = speechWav(dir_.path(), QString::fromLatin1(kSentence));
        grammar_ = writeGrammar(dir_.path());
        QVERIFY(!wav_.isEmpty());
    }

    void transcribesEnglishOffThread() {
        if (!OfflineSpeech::modelFor(QStringLiteral("en"), QString()))
            QSKIP("the English pocketsphinx model is not installed");
        QThread* resumedOn = nullptr;
        auto transcribe = [](QByteArray wav, QString grammar,
                             QThread** resumed) -> QCoro::Task<QString> {
            const QString text = co_await AppleSpeech::transcribe(wav, "en", {}, grammar);
            *resumed = QThread::currentThread();
            co_return text;
        };
        auto task = transcribe(wav_, grammar_, &resumedOn);
        // Decoding takes the model's loading time at least: had it run on this thread, the task
        // would be finished already.
        QVERIFY(!task.isReady());
        QCOMPARE(test::await(std::move(task)), QString::fromLatin1(kSentence));
        QCOMPARE(resumedOn, QThread::currentThread());
    }

    void modelFolders() {
        // A model folder made of the English model's pieces, beside its phonetic model.
        const QString system = QString::fromLatin1(OfflineSpeech::kSystemEnglishFolder);
        const QDir models(dir_.filePath("models/fr"));
        QVERIFY(QDir().mkpath(models.path()));
        QFile::link(system + "/en-us", models.filePath("acoustic"));
        QFile::link(system + "/cmudict-en-us.dict", models.filePath("words.dict"));
        QFile::link(system + "/en-us-phone.lm.bin", models.filePath("a-phone.lm.bin"));
        QFile::link(system + "/en-us.lm.bin", models.filePath("words.lm.bin"));
        const auto model = OfflineSpeech::modelFor(QStringLiteral("fr-FR"), dir_.path());
        QVERIFY(model);
        QCOMPARE(model->acoustic, models.filePath("acoustic"));
        QCOMPARE(model->languageModel, models.filePath("words.lm.bin")); // never the phone model
        QVERIFY(!OfflineSpeech::modelFor(QStringLiteral("de"), dir_.path()));
    }

    void wavLayouts() {
        // A header with another rate is refused rather than decoded into noise.
        QByteArray stereo = wav_;
        stereo[22] = 2;
        QVERIFY(!OfflineSpeech::pcmOfWav(stereo));
        QVERIFY(!OfflineSpeech::pcmOfWav(QByteArray(43, '\0')));
        // Extra chunks before the samples are skipped.
        QByteArray withList = wav_.left(36) + QByteArray("LIST\x04\0\0\0abcd", 12) + wav_.mid(36);
        QCOMPARE(*OfflineSpeech::pcmOfWav(withList), wav_.mid(44));
        // Bare PCM behind a header of zeros: everything after the 44 bytes.
        QCOMPARE(*OfflineSpeech::pcmOfWav(QByteArray(44, '\0') + "abcd"), QByteArray("abcd"));
    }

    void rewriteThroughLocalServer() {
        TestHttpServer server;
        qputenv("OMBRY_LOCAL_LLM_URL", server.url().toString().toUtf8());
        server.on("/v1/models",
                  Reply::json(QJsonObject{{"data", QJsonArray{QJsonObject{{"id", "qwen"}}}}}));
        server.on("/v1/chat/completions", Reply::json(completion("  Bonjour.\n")));

        QVERIFY(test::await(AppleRewrite::available()));
        QCOMPARE(test::await(AppleRewrite::run("Consigne", "bonjour")), QStringLiteral("Bonjour."));
        const QJsonObject body = server.requests("/v1/chat/completions").last().json();
        QCOMPARE(body.value("model").toString(), QStringLiteral("qwen"));
        QVERIFY(!body.contains("temperature") && !body.contains("max_tokens"));
        QCOMPARE(body.value("messages").toArray(),
                 QJsonArray({QJsonObject{{"role", "system"}, {"content", "Consigne"}},
                             QJsonObject{{"role", "user"}, {"content", "bonjour"}}}));

        const QJsonObject schema{{"type", "object"}};
        test::await(AppleRewrite::runStructured("Consigne", "texte", schema));
        const QJsonObject guided = server.last().json();
        QCOMPARE(guided.value("response_format")
                     .toObject()
                     .value("json_schema")
                     .toObject()
                     .value("schema")
                     .toObject(),
                 schema);

        server.on("/v1/chat/completions", Reply::text("surchargé", 503));
        QCOMPARE(errorOf(AppleRewrite::run("s", "t")),
                 QStringLiteral("IA locale : erreur 503 surchargé"));
        server.on("/v1/chat/completions", Reply::json(QJsonObject{{"choices", "none"}}));
        QCOMPARE(errorOf(AppleRewrite::run("s", "t")),
                 QStringLiteral("IA locale : réponse illisible"));
    }

    void previewForwardsUntilDestroyed() {
        struct Engine : LivePreviewEngine {
            Report report;
            void start(const QString&, bool, bool, Report r) override { report = std::move(r); }
            void feed(const QByteArray&) override {}
            void stop() override {}
        };
        auto engine = std::make_shared<Engine>();
        QStringList seen;
        {
            LivePreview preview;
            preview.setOnText([&](const QString& text) { seen << text; });
            preview.setEngine(engine);
            preview.start(QStringLiteral("fr"), false, false);
            engine->report(QStringLiteral("Salut"), true);
            engine->report(QStringLiteral(" toi"), false);
            engine->report(QStringLiteral(" toi et moi"), false); // replaces the partial
            // A new start begins a new text.
            preview.start(QStringLiteral("fr"), false, false);
            engine->report(QStringLiteral("Encore"), false);
        }
        engine->report(QStringLiteral(" trop tard"), true); // the preview is gone: dropped
        QCOMPARE(seen, QStringList({"Salut", "Salut toi", "Salut toi et moi", "Encore"}));
    }
};

QTEST_GUILESS_MAIN(TstLocalEngine)
#include "tst_localengine.moc"
