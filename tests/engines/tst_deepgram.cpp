// Deepgram's listen request against a local server: the query items in their order, the
// dictionary words per model family, the raw WAV body, and how replies are read.
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"
#include "data/KeyStore.h"
#include "engines/Deepgram.h"
#include "engines/client/Errors.h"

#include <QTest>
#include <functional>

using namespace ombry;
using namespace ombry::test;

namespace {

using Items = QList<QPair<QString, QString>>;

const QString kListen = QStringLiteral("/v1/listen");

QByteArray listenReply(const QString& transcript) {
    return QStringLiteral("{\"metadata\":{\"duration\":1.2},\"results\":{\"channels\":[{"
                          "\"alternatives\":[{\"transcript\":\"%1\",\"confidence\":0.9},"
                          "{\"transcript\":\"autre\"}]},{\"alternatives\":[{\"transcript\":"
                          "\"canal 2\"}]}]}}")
        .arg(transcript)
        .toUtf8();
}

} // namespace

class TstDeepgram : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;
    const QByteArray wav = AudioRecorder::wav(QByteArray(3200, '\x11'));

    QString transcribe(const QString& model = "nova-3", const QStringList& words = {}) {
        return await(Deepgram::transcribe(wav, model, "fr", words));
    }

private Q_SLOTS:
    void initTestCase() { qputenv("OMBRY_DEEPGRAM_URL", server.url().toString().toUtf8()); }
    void init() {
        server.reset();
        KeyStore::shared().save("dg-secret", APIService::Deepgram);
    }

    void listenRequest_data() {
        QTest::addColumn<QString>("model");
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<Items>("extra");
        const QStringList words = {" Ombry ", "  ", "C++", "Léa & co"};
        QTest::newRow("nova-3: keyterm, trimmed, blanks dropped")
            << "nova-3" << words
            << Items{{"keyterm", "Ombry"}, {"keyterm", "C++"}, {"keyterm", "Léa & co"}};
        QTest::newRow("a nova-3 variant counts as nova-3")
            << "nova-3-medical" << QStringList{"Ombry"} << Items{{"keyterm", "Ombry"}};
        QTest::newRow("older models: boosted keywords")
            << "nova-2" << words
            << Items{{"keywords", "Ombry:2"}, {"keywords", "C++:2"}, {"keywords", "Léa & co:2"}};
        QTest::newRow("no words: four items") << "whisper-large" << QStringList() << Items{};
    }
    void listenRequest() {
        QFETCH(QString, model);
        QFETCH(QStringList, words);
        QFETCH(Items, extra);
        server.on(kListen, Reply::json(listenReply("bonjour")));
        QCOMPARE(await(Deepgram::transcribe(wav, model, "multi", words)),
                 QStringLiteral("bonjour"));

        const RecordedRequest r = server.last();
        QCOMPARE(r.path, kListen);
        const Items expected = Items{{"model", model},
                                     {"language", "multi"},
                                     {"punctuate", "true"},
                                     {"smart_format", "true"}} +
                               extra;
        QCOMPARE(r.queryItems, expected);
        QCOMPARE(r.header("authorization"), QByteArray("Token dg-secret"));
        QCOMPARE(r.header("content-type"), QByteArray("audio/wav"));
        QCOMPARE(r.body, wav); // the file as it is, no JSON around it
    }

    void readingTheReply() {
        const QList<QPair<QByteArray, QString>> cases = {
            {listenReply("  Bonjour, Léa. "), "  Bonjour, Léa. "}, // untouched
            {R"({"results":{"channels":[]}})", ""},
            {R"({"results":{"channels":[{"alternatives":[]},{"alternatives":[{"transcript":"b"}]}]}})",
             ""},
        };
        for (const auto& [reply, expected] : cases) {
            server.on(kListen, Reply::json(reply));
            QCOMPARE(transcribe(), expected);
        }
        for (const QByteArray& broken :
             {QByteArray("pas du JSON"), QByteArray(R"({"results":{}})"),
              QByteArray(R"({"results":{"channels":[{"alternatives":[{"confidence":1}]}]}})")}) {
            server.on(kListen, Reply::json(broken));
            QVERIFY_THROWS_EXCEPTION(DecodeError, transcribe());
        }
        server.on(kListen, Reply::json(listenReply("créé"), 201)); // only 200 is success
        QVERIFY(
            failureOf<EngineError>([this] { transcribe(); }).startsWith("Deepgram : erreur 201 {"));
        server.on(kListen, Reply::dropped());
        QVERIFY_THROWS_EXCEPTION(TransportError, transcribe());
    }

    void noKeyNoRequest() {
        KeyStore::shared().save(QString(), APIService::Deepgram);
        QCOMPARE(failureOf<EngineError>([this] { transcribe(); }),
                 QStringLiteral("Clé Deepgram absente"));
        QCOMPARE(server.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TstDeepgram)
#include "tst_deepgram.moc"
