// Deepgram's listen request against a local server: the query items in their order, the
// dictionary words per model family, the raw WAV body, and how replies are read.
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"
#include "data/KeyStore.h"
#include "engines/Deepgram.h"
#include "net/Errors.h"

#include <QTest>

using namespace ombry;
using namespace ombry::test;

using Items = QList<QPair<QString, QString>>;

class TstDeepgram : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;
    const QByteArray wav = AudioRecorder::wav(QByteArray(3200, '\x11'));
    const QString listen = QStringLiteral("/v1/listen");

    QString transcribe(const QString& model = "nova-3", const QStringList& words = {}) {
        return await(Deepgram::transcribe(wav, model, "multi", words));
    }

private Q_SLOTS:
    void initTestCase() { qputenv("OMBRY_DEEPGRAM_URL", server.url().toString().toUtf8()); }
    void init() {
        server.reset();
        KeyStore::shared().save("dg-secret", APIService::Deepgram);
    }

    void listenRequest_data() {
        QTest::addColumn<QString>("model");
        QTest::addColumn<Items>("extra");
        QTest::newRow("nova-3: keyterm, trimmed, blanks dropped")
            << "nova-3" << Items{{"keyterm", "Ombry"}, {"keyterm", "Léa & co"}};
        QTest::newRow("a nova-3 variant counts as nova-3")
            << "nova-3-medical" << Items{{"keyterm", "Ombry"}, {"keyterm", "Léa & co"}};
        QTest::newRow("older models: boosted keywords")
            << "nova-2" << Items{{"keywords", "Ombry:2"}, {"keywords", "Léa & co:2"}};
    }
    void listenRequest() {
        QFETCH(QString, model);
        QFETCH(Items, extra);
        server.on(listen, Reply::json(QByteArray(R"({"results":{"channels":[{"alternatives":[
            {"transcript":"  Bonjour. "},{"transcript":"autre"}]},
            {"alternatives":[{"transcript":"canal 2"}]}]}})")));
        QCOMPARE(transcribe(model, {" Ombry ", "  ", "Léa & co"}), QStringLiteral("  Bonjour. "));

        const RecordedRequest r = server.last();
        QCOMPARE(r.path, listen);
        QCOMPARE(r.queryItems, Items({{"model", model},
                                      {"language", "multi"},
                                      {"punctuate", "true"},
                                      {"smart_format", "true"}}) +
                                   extra);
        QCOMPARE(r.header("authorization"), QByteArray("Token dg-secret"));
        QCOMPARE(r.header("content-type"), QByteArray("audio/wav"));
        QCOMPARE(r.body, wav); // the file as it is, no JSON around it
    }

    void failuresAndMissingKey() {
        server.on(listen, Reply::json(QByteArray(R"({"results":{}})")));
        QVERIFY_THROWS_EXCEPTION(DecodeError, transcribe());
        server.on(listen, Reply::json(QByteArray("{}"), 201)); // only 200 is success
        QCOMPARE(failureOf<EngineError>([this] { transcribe(); }), "Deepgram : erreur 201 {}");

        KeyStore::shared().save(QString(), APIService::Deepgram);
        server.clearRequests();
        QCOMPARE(failureOf<EngineError>([this] { transcribe(); }), "Clé Deepgram absente");
        QCOMPARE(server.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TstDeepgram)
#include "tst_deepgram.moc"
