// The engine client against a local server: what every remote engine relies on (error words,
// the request format of a completion, the HTTP helper's reading of statuses and failures, the
// per-host limit, warm-up and spending).
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "data/Store.h"
#include "engines/client/Endpoints.h"
#include "engines/client/Errors.h"
#include "engines/client/Http.h"
#include "engines/client/Net.h"
#include "engines/client/OpenRouter.h"
#include "engines/client/Spending.h"

#include <QCoroTask>
#include <QJsonArray>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

QUrl at(const TestHttpServer& server, const QString& path) {
    return QUrl(server.url().toString() + path);
}

Http::Reply postNow(const QUrl& url, const QByteArray& body, double timeout) {
    return await(Http::post(url, body, {{"Content-Type", "text/plain"}}, timeout));
}

QCoro::Task<void> postInto(QUrl url, QList<int>* statuses) {
    const Http::Headers none;
    const Http::Reply reply = co_await Http::post(url, "x", none, 10);
    statuses->append(reply.status);
}

QString words(int n) {
    QStringList w;
    for (int i = 0; i < n; ++i)
        w << QStringLiteral("mot");
    return w.join(QLatin1Char(' '));
}

} // namespace

class TstEngineClient : public QObject {
    Q_OBJECT
    FakePlatform platform;

private Q_SLOTS:
    void errorDescriptions_data() {
        QTest::addColumn<QString>("description");
        QTest::addColumn<QString>("expected");
        QTest::newRow("missing key") << EngineError::missingKey("Deepgram").description()
                                     << QStringLiteral("Clé Deepgram absente");
        QTest::newRow("no credits")
            << EngineError::noCredits().description() << QStringLiteral("Plus de crédits Ombry");
        QTest::newRow("empty body keeps the blank")
            << EngineError::http("Gemini", 500, {}).description()
            << QStringLiteral("Gemini : erreur 500 ");
        QTest::newRow("status 0") << EngineError::http("OpenRouter", 0, "x").description()
                                  << QStringLiteral("OpenRouter : erreur 0 x");
        const QString longBody =
            QString(199, QLatin1Char('a')) + QStringLiteral("é") + QString(300, QLatin1Char('b'));
        QTest::newRow("body cut at 200 characters")
            << EngineError::http("Ombry", 503, longBody).description()
            << QStringLiteral("Ombry : erreur 503 ") + longBody.left(200);
        // An emoji is one character of two UTF-16 units: the cut never splits it.
        const QString emoji = QString(199, QLatin1Char('a')) + QStringLiteral("👍🏽") + "zzz";
        QTest::newRow("emoji stays whole")
            << EngineError::http("Ombry", 429, emoji).description()
            << QStringLiteral("Ombry : erreur 429 ") + QString(199, QLatin1Char('a')) +
                   QStringLiteral("👍🏽");
    }
    void errorDescriptions() {
        QFETCH(QString, description);
        QFETCH(QString, expected);
        QCOMPARE(description, expected);
    }

    void errorsKeepTheirDetailsAndTheirUtf8Text() {
        const EngineError e = EngineError::http("Deepgram", 401, QString(500, QLatin1Char('x')));
        QCOMPARE(e.kind(), EngineError::Kind::Http);
        QCOMPARE(e.code(), 401);
        QCOMPARE(e.body().size(), 500); // the whole body stays for whoever wants it
        QCOMPARE(QString::fromUtf8(EngineError::missingKey("OpenRouter").what()),
                 QStringLiteral("Clé OpenRouter absente"));
        QCOMPARE(e.errorDescription(), e.description());
    }

    void maxTokensFollowsTheWordCount_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("expected");
        QTest::newRow("empty") << QString() << 200;
        QTest::newRow("blanks only") << QStringLiteral(" \n\t ") << 200;
        QTest::newRow("runs of whitespace") << QStringLiteral("  un\t\tdeux\n\ntrois  ") << 209;
        QTest::newRow("1266 words") << words(1266) << 3998;
        QTest::newRow("1267 words") << words(1267) << 4000;
        QTest::newRow("far above") << words(3000) << 4000;
    }
    void maxTokensFollowsTheWordCount() {
        QFETCH(QString, text);
        QFETCH(int, expected);
        QCOMPARE(OpenRouter::maxTokens(text), expected);
        QCOMPARE(OpenRouter::requestBody("s", text, "m").value("max_tokens").toInt(), expected);
    }

    void requestBodyOfACompletion() {
        const QJsonObject body = OpenRouter::requestBody("Consigne", "Texte dicté", "a/b");
        QCOMPARE(body.value("model").toString(), QStringLiteral("a/b"));
        QCOMPARE(body.value("temperature").toDouble(), 0.2);
        const QJsonArray messages = body.value("messages").toArray();
        QCOMPARE(messages.size(), 2);
        QCOMPARE(messages[0].toObject(),
                 (QJsonObject{{"role", "system"}, {"content", "Consigne"}}));
        QCOMPARE(messages[1].toObject(),
                 (QJsonObject{{"role", "user"}, {"content", "Texte dicté"}}));
        QCOMPARE(body.keys().size(), 4);
    }

    void readingTheFirstChoice() {
        QCOMPARE(OpenRouter::firstContent(R"({"choices":[{"message":{"content":"  a \n"}},
                                           {"message":{"content":"b"}}],"x":1})"),
                 std::optional<QString>(QStringLiteral("  a \n")));
        QCOMPARE(OpenRouter::firstContent(R"({"choices":[]})"), std::nullopt);
        // Content that may be missing, as the speech replies allow.
        QCOMPARE(OpenRouter::firstContent(R"({"choices":[{"message":{"content":null}}]})", true),
                 std::optional<QString>(QString()));

        const QList<QByteArray> broken = {
            "pas du JSON",
            "[]",
            R"({"choix":[]})",
            R"({"choices":[{"message":{}}]})",
            R"({"choices":[{"message":{"content":"a"}}, {"nope":1}]})",
            R"({"choices":[{"message":{"content":3}}]})",
        };
        for (const QByteArray& reply : broken)
            QVERIFY_THROWS_EXCEPTION(DecodeError, OpenRouter::firstContent(reply));
        QVERIFY_THROWS_EXCEPTION(
            DecodeError, OpenRouter::firstContent(R"({"choices":[{"message":{}}]})", false));
    }

    void endpointsFromTheEnvironment() {
        qputenv("OMBRY_DEEPGRAM_URL", "");
        QCOMPARE(Endpoints::deepgram(), QStringLiteral("https://api.deepgram.com"));
        QCOMPARE(Endpoints::openRouter(), QStringLiteral("https://openrouter.ai"));
        QCOMPARE(Endpoints::languageTool(), QStringLiteral("https://api.languagetool.org"));
        QCOMPARE(Endpoints::localLlm(), QStringLiteral("http://127.0.0.1:8080"));
        qputenv("OMBRY_DEEPGRAM_URL", "http://127.0.0.1:9/base/");
        QCOMPARE(Endpoints::deepgram(), QStringLiteral("http://127.0.0.1:9/base"));
        qunsetenv("OMBRY_DEEPGRAM_URL");
    }

    void siteValidity_data() {
        QTest::addColumn<QByteArray>("site");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QString>("voice");
        QTest::newRow("empty, the default") << QByteArray() << false << QString();
        QTest::newRow("no scheme") << QByteArray("ombry.fr") << false << QString();
        QTest::newRow("other scheme") << QByteArray("ftp://ombry.fr") << false << QString();
        QTest::newRow("no host") << QByteArray("https://") << false << QString();
        QTest::newRow("https") << QByteArray("https://ombry.fr") << true
                               << QStringLiteral("https://ombry.fr/api/voice");
        QTest::newRow("below a folder") << QByteArray("http://127.0.0.1:8000/app/") << true
                                        << QStringLiteral("http://127.0.0.1:8000/app/api/voice");
    }
    void siteValidity() {
        QFETCH(QByteArray, site);
        QFETCH(bool, valid);
        QFETCH(QString, voice);
        qputenv("OMBRY_SITE_URL", site);
        QCOMPARE(Endpoints::siteIsValid(), valid);
        QCOMPARE(Endpoints::siteURL("api/voice").toString(), voice);
        qputenv("OMBRY_SITE_URL", "");
    }

    void httpGivesEveryStatusToTheCaller() {
        TestHttpServer server;
        server.on("/a", Reply::text("refusé", 500));
        server.on("/latin1", Reply::text(QByteArray("caf\xe9"), 400));
        const Http::Reply refused = postNow(at(server, "/a"), "x", 5);
        QCOMPARE(refused.status, 500);
        QCOMPARE(refused.bodyText(), QStringLiteral("refusé"));
        const Http::Reply latin1 = postNow(at(server, "/latin1"), "x", 5);
        QCOMPARE(latin1.status, 400);
        QCOMPARE(latin1.bodyText(), QString()); // not UTF-8: no text at all
        // An answer that is not HTTP at all has no status.
        const Http::Reply data =
            await(Http::send("GET", QUrl("data:text/plain,bonjour"), {}, {}, 5));
        QCOMPARE(data.status, 0);

        const RecordedRequest r = server.requests("/a").first();
        QCOMPARE(r.method, QByteArray("POST"));
        QCOMPARE(r.header("content-type"), QByteArray("text/plain"));
        QCOMPARE(r.body, QByteArray("x"));
    }

    void httpWithoutAnAnswerIsATransportError() {
        TestHttpServer server;
        server.on("/slow", Reply::text("trop tard").after(3000));
        server.on("/drop", Reply::dropped());
        try {
            postNow(at(server, "/slow"), "x", 0.2);
            QFAIL("a silent server must time out");
        } catch (const TransportError& e) {
            QVERIFY(e.timedOut());
            QCOMPARE(e.description(), QStringLiteral("réseau : délai d'attente dépassé"));
        }
        try {
            postNow(at(server, "/drop"), "x", 5);
            QFAIL("a dropped connection must fail");
        } catch (const TransportError& e) {
            QVERIFY(!e.timedOut());
            QVERIFY(e.description().startsWith(QStringLiteral("réseau : ")));
        }
        // Bytes that are not HTTP read as a closed connection.
        server.on("/raw", Reply::garbage("BONJOUR\r\n\r\n"));
        QVERIFY_THROWS_EXCEPTION(TransportError, postNow(at(server, "/raw"), "x", 5));
        // Nobody listens on the port of a closed server.
        QUrl closed;
        {
            TestHttpServer gone;
            closed = at(gone, "/x");
        }
        QVERIFY_THROWS_EXCEPTION(TransportError, postNow(closed, "x", 5));
    }

    void atMostFourRequestsAtOnceOnAHost() {
        TestHttpServer server;
        server.on("/slow", Reply::text("ok").after(300));
        QList<int> statuses;
        std::vector<QCoro::Task<void>> tasks;
        for (int i = 0; i < 7; ++i)
            tasks.push_back(postInto(at(server, "/slow"), &statuses));
        QVERIFY(server.waitForRequests(4));
        QTest::qWait(100);
        QCOMPARE(server.count(), 4); // the others wait for a free slot
        QTRY_COMPARE_WITH_TIMEOUT(statuses.size(), 7, 10000);
        QCOMPARE(server.count(), 7);
        QCOMPARE(statuses, QList<int>(7, 200));
    }

    void warmUpGoesToTheSiteOrToOpenRouter() {
        TestHttpServer site, openRouter, languageTool;
        qputenv("OMBRY_OPENROUTER_URL", openRouter.url().toString().toUtf8());
        qputenv("OMBRY_LANGUAGETOOL_URL", languageTool.url().toString().toUtf8());

        qputenv("OMBRY_SITE_URL", site.url().toString().toUtf8());
        Net::warmUp();
        QVERIFY(site.waitForRequests(1));
        QVERIFY(languageTool.waitForRequests(1));
        QCOMPARE(site.last().method, QByteArray("HEAD"));
        QCOMPARE(site.last().path, QStringLiteral("/api/credits"));
        QCOMPARE(languageTool.last().method, QByteArray("HEAD"));
        QCOMPARE(languageTool.last().path, QStringLiteral("/v2/languages"));

        qputenv("OMBRY_SITE_URL", "");
        Net::warmUp();
        QVERIFY(openRouter.waitForRequests(1));
        QCOMPARE(openRouter.last().method, QByteArray("HEAD"));
        QCOMPARE(openRouter.last().path, QStringLiteral("/api/v1/models"));
        QCOMPARE(openRouter.last().query, QStringLiteral("limit=1"));
        QVERIFY(languageTool.waitForRequests(2));
        QCOMPARE(site.count(), 1);
        qunsetenv("OMBRY_OPENROUTER_URL");
        qunsetenv("OMBRY_LANGUAGETOOL_URL");
    }

    void spendingRecordsOnlyAPositiveCost_data() {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<double>("recorded");
        QTest::newRow("cost") << QByteArray(R"({"usage":{"cost":0.0012,"tokens":9}})") << 0.0012;
        QTest::newRow("whole number") << QByteArray(R"({"usage":{"cost":2}})") << 2.0;
        QTest::newRow("zero") << QByteArray(R"({"usage":{"cost":0}})") << 0.0;
        QTest::newRow("negative") << QByteArray(R"({"usage":{"cost":-1.5}})") << 0.0;
        QTest::newRow("no usage") << QByteArray(R"({"choices":[]})") << 0.0;
        QTest::newRow("no cost") << QByteArray(R"({"usage":{"total_tokens":3}})") << 0.0;
        QTest::newRow("cost as text") << QByteArray(R"({"usage":{"cost":"0.1"}})") << 0.0;
        QTest::newRow("not JSON") << QByteArray("{usage") << 0.0;
    }
    void spendingRecordsOnlyAPositiveCost() {
        QFETCH(QByteArray, reply);
        QFETCH(double, recorded);
        const qsizetype before = Store::shared().costs().size();
        Spending::record(reply);
        QCoreApplication::processEvents();
        const QList<CostEntry>& costs = Store::shared().costs();
        if (recorded > 0) {
            QCOMPARE(costs.size(), before + 1);
            QCOMPARE(costs.last().amount, recorded);
        } else {
            QCOMPARE(costs.size(), before);
        }
    }
};

QTEST_GUILESS_MAIN(TstEngineClient)
#include "tst_engineclient.moc"
