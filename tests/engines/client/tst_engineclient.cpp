// The engine client against a local server: error words, the completion's token ceiling and
// reply reading, the HTTP helper's statuses and failures, the per-host limit and spending.
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "data/Store.h"
#include "engines/client/Errors.h"
#include "engines/client/Http.h"
#include "engines/client/Net.h"
#include "engines/client/OpenRouter.h"
#include "engines/client/Spending.h"

#include <QCoroTask>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

Http::Reply postNow(const TestHttpServer& server, const QString& path, double timeout = 5) {
    return await(Http::post(QUrl(server.url().toString() + path), "x", {}, timeout));
}

QCoro::Task<void> postInto(QUrl url, QList<int>* statuses) {
    const Http::Reply reply = co_await Http::post(url, "x", {}, 10);
    statuses->append(reply.status);
}

} // namespace

class TstEngineClient : public QObject {
    Q_OBJECT
    FakePlatform platform;

private Q_SLOTS:
    void errorWordsAndTokenCeiling() {
        // The body is cut at 200 characters, and a character of two UTF-16 units stays whole.
        const QString a199(199, QLatin1Char('a'));
        QCOMPARE(EngineError::http("Ombry", 503, a199 + "é" + QString(300, 'b')).description(),
                 "Ombry : erreur 503 " + a199 + "é");
        QCOMPARE(EngineError::http("Ombry", 429, a199 + "👍🏽zzz").description(),
                 "Ombry : erreur 429 " + a199 + "👍🏽");

        const auto words = [](int n) { return QStringList(n, QStringLiteral("mot")).join(' '); };
        QCOMPARE(OpenRouter::maxTokens(" \n\t "), 200);
        QCOMPARE(OpenRouter::maxTokens(words(1266)), 3998);
        QCOMPARE(OpenRouter::requestBody("s", words(1267), "m").value("max_tokens").toInt(), 4000);
    }

    void readingTheFirstChoice() {
        QCOMPARE(OpenRouter::firstContent(R"({"choices":[{"message":{"content":"  a \n"}},
                                           {"message":{"content":"b"}}]})"),
                 std::optional<QString>(QStringLiteral("  a \n")));
        QCOMPARE(OpenRouter::firstContent(R"({"choices":[]})"), std::nullopt);
        for (const char* reply : {"pas du JSON", R"({"choices":[{"message":{}}]})",
                                  R"({"choices":[{"message":{"content":3}}]})"})
            QVERIFY_THROWS_EXCEPTION(DecodeError, OpenRouter::firstContent(reply));
    }

    void httpStatusesAndTransportFailures() {
        TestHttpServer server;
        server.on("/a", Reply::text("refusé", 500));
        server.on("/slow", Reply::text("trop tard").after(3000));
        server.on("/drop", Reply::dropped());
        const Http::Reply refused = postNow(server, "/a");
        QCOMPARE(refused.status, 500);
        QCOMPARE(refused.bodyText(), QStringLiteral("refusé"));

        try {
            postNow(server, "/slow", 0.2);
            QFAIL("a silent server must time out");
        } catch (const TransportError& e) {
            QVERIFY(e.timedOut());
            QCOMPARE(e.description(), QStringLiteral("réseau : délai d'attente dépassé"));
        }
        QVERIFY(failureOf<TransportError>([&] {
                    postNow(server, "/drop");
                }).startsWith(QStringLiteral("réseau : ")));
    }

    void atMostFourRequestsAtOnceOnAHost() {
        TestHttpServer server;
        server.on("/slow", Reply::text("ok").after(300));
        QList<int> statuses;
        std::vector<QCoro::Task<void>> tasks;
        for (int i = 0; i < 7; ++i)
            tasks.push_back(postInto(QUrl(server.url().toString() + "/slow"), &statuses));
        QVERIFY(server.waitForRequests(4));
        // The warm-up's HEADs (site, LanguageTool) queue for a slot like any other request.
        qputenv("OMBRY_SITE_URL", server.url().toString().toUtf8());
        qputenv("OMBRY_LANGUAGETOOL_URL", server.url().toString().toUtf8());
        Net::warmUp();
        QTest::qWait(100);
        QCOMPARE(server.count(), 4); // the others wait for a free slot
        QTRY_COMPARE_WITH_TIMEOUT(statuses.size(), 7, 10000);
        QCOMPARE(statuses, QList<int>(7, 200));
        QTRY_COMPARE(server.count(), 9);
        QCOMPARE(server.requests("/api/credits").first().method, QByteArray("HEAD"));
    }

    void spendingRecordsOnlyAPositiveCost() {
        const qsizetype before = Store::shared().costs().size();
        for (const char* reply : {R"({"usage":{"cost":0}})", R"({"usage":{"cost":-1.5}})", "{usage",
                                  R"({"usage":{"cost":0.0012,"tokens":9}})"})
            Spending::record(reply);
        QCoreApplication::processEvents();
        QCOMPARE(Store::shared().costs().size(), before + 1);
        QCOMPARE(Store::shared().costs().last().amount, 0.0012);
    }
};

QTEST_GUILESS_MAIN(TstEngineClient)
#include "tst_engineclient.moc"
