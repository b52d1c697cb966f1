// The engines of the user's machine: the offline decoder's model and thread, the local chat
// server's requests and failures.
#include "audio/AudioRecorder.h"
#include "engines/LocalEngine.h"
#include "engines/OfflineSpeech.h"
#include "net/Errors.h"

#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include <QCoroTask>
#include <QJsonArray>
#include <QTest>
#include <QThread>

using namespace ombry;
using namespace ombry::test;

class TstLocalEngine : public QObject {
    Q_OBJECT
    FakePlatform platform_;

private Q_SLOTS:
    void offlineDecoding() {
        const QByteArray wav = AudioRecorder::wav(QByteArray(32000, '\0'));
        if (!OfflineSpeech::modelFor("en", QString()))
            QSKIP("the English pocketsphinx model is not installed");
        // The phonetic model beside the words model sorts first but is never taken.
        QVERIFY(OfflineSpeech::modelFor("en", QString())->languageModel.endsWith("/en-us.lm.bin"));
        QThread* resumedOn = nullptr;
        auto transcribe = [](QByteArray audio, QThread** resumed) -> QCoro::Task<QString> {
            const QString text = co_await LocalSpeech::transcribe(audio, "en", {});
            *resumed = QThread::currentThread();
            co_return text;
        };
        auto task = transcribe(wav, &resumedOn);
        QVERIFY(!task.isReady()); // decoding does not hold the caller's thread
        await(std::move(task));
        QCOMPARE(resumedOn, QThread::currentThread());
    }

    void rewriteThroughLocalServer() {
        TestHttpServer server;
        qputenv("OMBRY_LOCAL_LLM_URL", server.url().toString().toUtf8());
        server.on("/v1/models",
                  Reply::json(QJsonObject{{"data", QJsonArray{QJsonObject{{"id", "qwen"}}}}}));
        server.on("/v1/chat/completions", chatCompletion("  Bonjour.\n"));
        QCOMPARE(await(LocalModel::run("Consigne", "bonjour")), QStringLiteral("Bonjour."));
        QCOMPARE(server.last().json().value("model").toString(), QStringLiteral("qwen"));

        const auto failure = [] {
            return failureOf<Error>([] { await(LocalModel::run("s", "t")); });
        };
        server.on("/v1/chat/completions", Reply::text("surchargé", 503));
        QCOMPARE(failure(), "IA locale : erreur 503 surchargé");
        server.on("/v1/chat/completions", Reply::json(QJsonObject{{"choices", "none"}}));
        QCOMPARE(failure(), "IA locale : réponse illisible");
        // An answer too large for its kind is said so, whether it lists the models or chats.
        const QString tooLarge =
            "IA locale : erreur 0 réponse du serveur trop grande (plus de 8 Mo)";
        server.on("/v1/chat/completions", Reply::text(QByteArray(10 << 20, ' ')));
        QCOMPARE(failure(), tooLarge);
        server.on("/v1/models", Reply::text(QByteArray(10 << 20, ' ')));
        QCOMPARE(failure(), tooLarge);
    }
};

QTEST_GUILESS_MAIN(TstLocalEngine)
#include "tst_localengine.moc"
