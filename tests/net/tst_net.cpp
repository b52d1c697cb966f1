// The engine client against a local server: error words, the completion's token ceiling and
// reply reading, the HTTP helper's statuses and failures, the per-host limit and spending.
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "data/Store.h"
#include "net/Errors.h"
#include "net/Http.h"
#include "net/Net.h"
#include "net/OpenRouter.h"
#include "net/Spending.h"

#include <QCoroTask>
#include <QJsonDocument>
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

class TstNet : public QObject {
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

    // A status is an answer; a silence, a dropped connection, a body cut before its
    // Content-Length or stalled in the middle are transport failures.
    void httpStatusesAndTransportFailures() {
        TestHttpServer server;
        server.on("/a", Reply::text("refusé", 500));
        server.on("/slow", Reply::text("trop tard").after(3000));
        server.on("/drop", Reply::dropped());
        server.on("/cut", Reply::garbage("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n"
                                         R"({"choices":[],"usage":{"cost":0.5}})"));
        server.on("/stall",
                  Reply::stalled("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{\"a\""));
        const Http::Reply refused = postNow(server, "/a");
        QCOMPARE(refused.status, 500);
        QCOMPARE(refused.bodyText(), QStringLiteral("refusé"));
        const QString timedOut = QStringLiteral("réseau : délai d'attente dépassé");
        QCOMPARE(failureOf<TransportError>([&] { postNow(server, "/slow", 0.2); }), timedOut);
        QCOMPARE(failureOf<TransportError>([&] { postNow(server, "/stall", 0.3); }), timedOut);
        for (const char* path : {"/drop", "/cut"})
            QVERIFY(
                failureOf<TransportError>([&] { postNow(server, path); }).startsWith("réseau : "));
    }

    void redirectsStayWithinTheOrigin() {
        TestHttpServer service, elsewhere;
        elsewhere.on("/steal", Reply::text("merci"));
        service.on("/ok", Reply::text("arrivé"));
        for (const int code : {301, 302, 307, 308}) {
            Reply away = Reply::text("", code);
            away.headers.append(
                qMakePair(QByteArray("Location"), elsewhere.url().toEncoded() + "/steal"));
            service.on("/away", away);
            const QUrl url(service.url().toString() + "/away");
            const QString error = failureOf<TransportError>([&] {
                await(Http::post(url, "audio", {{"Authorization", "Bearer sk-secret"}}, 5));
            });
            QVERIFY2(error.contains("redirection vers " + elsewhere.url().toString()),
                     qPrintable(error));
        }
        QCOMPARE(elsewhere.count(), 0); // neither the key nor the body went there
        // Within the origin a redirect is followed.
        Reply here = Reply::text("", 302);
        here.headers.append(qMakePair(QByteArray("Location"), QByteArray("/ok")));
        service.on("/here", here);
        QCOMPARE(postNow(service, "/here").bodyText(), QStringLiteral("arrivé"));
    }

    void headerWithALineBreakIsNeverSent() {
        TestHttpServer server;
        server.on("/a", Reply::text("ok"));
        const QUrl url(server.url().toString() + "/a");
        for (const QByteArray& value :
             {QByteArray("sk\r\nX-Injected: yes"), QByteArray("sk\n"), QByteArray("s\0k", 3)}) {
            const QString error = failureOf<TransportError>([&] {
                await(Http::post(url, "x", {{"Authorization", "Bearer " + value}}, 5));
            });
            QVERIFY2(error.contains("caractère de contrôle"), qPrintable(error));
        }
        QCOMPARE(server.count(), 0);
    }

    void answersAreBoundedInSizeAndTime() {
        TestHttpServer server;
        server.on("/big", Reply::text(QByteArray(3 << 20, 'a')));
        // Announced as a gigabyte: refused at once, not read until the silence time-out.
        server.on("/huge",
                  Reply::stalled("HTTP/1.1 200 OK\r\nContent-Length: 1000000000\r\n\r\nab"));
        Reply slow = Reply::text(QByteArray(200, 'a'));
        slow.trickleMs = 20; // never silent for long, never done
        server.on("/trickle", slow);
        const auto post = [&](const QString& path, Http::Limits limits) {
            return await(Http::post(QUrl(server.url().toString() + path), "x", {}, 30, limits));
        };
        const QString big =
            failureOf<TransportError>([&] { post("/big", {.maxReplyBytes = 1 << 20}); });
        QVERIFY2(big.contains("trop grande"), qPrintable(big));
        QCOMPARE(post("/big", {}).body.size(), 3 << 20); // under the usual cap
        const QString huge = failureOf<TransportError>([&] { post("/huge", {}); });
        QVERIFY2(huge.contains("trop grande"), qPrintable(huge));
        QCOMPARE(failureOf<TransportError>([&] { post("/trickle", {.deadlineSeconds = 0.5}); }),
                 QStringLiteral("réseau : délai d'attente dépassé"));
    }

    void bodyWrittenAroundTheRecording() {
        // The direct writing gives what a JSON document holding the base64 would give.
        for (const int n : {0, 1, 2, 3, 4, 1000, 1001}) {
            QByteArray audio(n, Qt::Uninitialized);
            for (int i = 0; i < n; ++i)
                audio[i] = char(i * 37 + 11);
            const Http::JsonBody body(
                QJsonObject{{"a", "x\"y"}, {"data", Http::JsonBody::binaryPlaceholder()}, {"z", 1}},
                audio);
            const QJsonObject read = QJsonDocument::fromJson(body.serialized()).object();
            QCOMPARE(QByteArray::fromBase64(read.value("data").toString().toLatin1()), audio);
            QCOMPARE(read.value("data").toString().toLatin1(), audio.toBase64());
            QCOMPARE(read.value("a").toString(), QStringLiteral("x\"y"));
        }
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

QTEST_GUILESS_MAIN(TstNet)
#include "tst_net.moc"
