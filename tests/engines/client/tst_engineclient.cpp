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
    void errorWordsAndTokenCeiling() {
        QCOMPARE(EngineError::http("Gemini", 500, {}).description(),
                 QStringLiteral("Gemini : erreur 500 ")); // the blank stays
        // The body is cut at 200 characters, and a character of two UTF-16 units stays whole.
        const QString a199(199, QLatin1Char('a'));
        QCOMPARE(EngineError::http("Ombry", 503, a199 + "é" + QString(300, 'b')).description(),
                 "Ombry : erreur 503 " + a199 + "é");
        QCOMPARE(EngineError::http("Ombry", 429, a199 + "👍🏽zzz").description(),
                 "Ombry : erreur 429 " + a199 + "👍🏽");

        QCOMPARE(OpenRouter::maxTokens(" \n\t "), 200);
        QCOMPARE(OpenRouter::maxTokens("  un\t\tdeux\n\ntrois  "), 209);
        QCOMPARE(OpenRouter::maxTokens(words(1266)), 3998);
        QCOMPARE(OpenRouter::requestBody("s", words(1267), "m").value("max_tokens").toInt(), 4000);
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
            R"({"choices":[{"message":{}}]})",
            R"({"choices":[{"message":{"content":"a"}}, {"nope":1}]})",
            R"({"choices":[{"message":{"content":3}}]})",
        };
        for (const QByteArray& reply : broken)
            QVERIFY_THROWS_EXCEPTION(DecodeError, OpenRouter::firstContent(reply));
    }

    void siteValidity() {
        const QList<QPair<QByteArray, QString>> cases = {
            {"", ""}, // the default: no hosted service
            {"ftp://ombry.fr", ""},
            {"https://", ""},
            {"https://ombry.fr", "https://ombry.fr/api/voice"},
            {"http://127.0.0.1:8000/app/", "http://127.0.0.1:8000/app/api/voice"},
        };
        for (const auto& [site, voice] : cases) {
            qputenv("OMBRY_SITE_URL", site);
            QCOMPARE(Endpoints::siteIsValid(), !voice.isEmpty());
            QCOMPARE(Endpoints::siteURL("api/voice").toString(), voice);
        }
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
        QVERIFY(failureOf<TransportError>([&] {
                    postNow(at(server, "/drop"), "x", 5);
                }).startsWith(QStringLiteral("réseau : ")));
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

    void spendingRecordsOnlyAPositiveCost() {
        const qsizetype before = Store::shared().costs().size();
        for (const QByteArray& reply :
             {QByteArray(R"({"usage":{"cost":0}})"), QByteArray(R"({"usage":{"cost":-1.5}})"),
              QByteArray(R"({"choices":[]})"), QByteArray("{usage"),
              QByteArray(R"({"usage":{"cost":0.0012,"tokens":9}})")})
            Spending::record(reply);
        QCoreApplication::processEvents();
        QCOMPARE(Store::shared().costs().size(), before + 1);
        QCOMPARE(Store::shared().costs().last().amount, 0.0012);
    }
};

QTEST_GUILESS_MAIN(TstEngineClient)
#include "tst_engineclient.moc"
