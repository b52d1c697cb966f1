// The loopback server that plays the remote services in the other tests: it must record what a
// real Qt client sends and answer as scripted, or every service test downstream lies.
#include "TestHttpServer.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTest>

using namespace ombry::test;

class TstTestHttpServer : public QObject {
    Q_OBJECT

    QNetworkAccessManager nam;

    // Sends and waits on the event loop; returns the reply (owned by the caller).
    QNetworkReply* send(const QByteArray& method, const QUrl& url, const QByteArray& body = {},
                        QList<QPair<QByteArray, QByteArray>> headers = {}) {
        QNetworkRequest req(url);
        for (const auto& [k, v] : headers)
            req.setRawHeader(k, v);
        QNetworkReply* reply = nam.sendCustomRequest(req, method, body);
        QSignalSpy done(reply, &QNetworkReply::finished);
        if (!reply->isFinished()) done.wait(10000);
        return reply;
    }

private Q_SLOTS:
    void recordsTheRequestAndAnswersFromTheScript() {
        TestHttpServer server;
        QCOMPARE(server.url().host(), QStringLiteral("127.0.0.1"));
        server.on(QStringLiteral("/v1/listen"), Reply::json(QJsonObject{{"ok", true}}, 201));
        QUrl url = server.url();
        url.setPath(QStringLiteral("/v1/listen"));
        url.setQuery(QStringLiteral("model=nova-3&keyterm=a%20b&keyterm=%C3%A9t%C3%A9"));
        std::unique_ptr<QNetworkReply> reply(
            send("POST", url, "RIFF\0\1",
                 {{"Authorization", "Token k"}, {"Content-Type", "audio/wav"}}));
        QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 201);
        QCOMPARE(reply->readAll(), QByteArray(R"({"ok":true})"));

        const RecordedRequest r = server.last();
        QCOMPARE(r.method, QByteArray("POST"));
        QCOMPARE(r.path, QStringLiteral("/v1/listen"));
        QCOMPARE(r.queryValues(QStringLiteral("keyterm")),
                 QStringList({QStringLiteral("a b"), QStringLiteral("été")}));
        QCOMPARE(r.queryItems.first().first, QStringLiteral("model"));
        QCOMPARE(r.header("AUTHORIZATION"), QByteArray("Token k"));
        QCOMPARE(r.body, QByteArray("RIFF\0\1"));
    }

    void queuedRepliesComeFirstThenTheStandingOneThen404() {
        TestHttpServer server;
        QUrl url = server.url();
        url.setPath(QStringLiteral("/p"));
        server.on(QStringLiteral("/p"), Reply::text("standing"));
        server.enqueue(QStringLiteral("/p"), Reply::text("one"));
        server.enqueue(QStringLiteral("/p"), Reply::text("two", 500));
        QStringList seen;
        for (int i = 0; i < 3; ++i) {
            std::unique_ptr<QNetworkReply> r(send("GET", url));
            seen << QString::fromUtf8(r->readAll());
        }
        QCOMPARE(seen, QStringList({"one", "two", "standing"}));
        QUrl other = server.url();
        other.setPath(QStringLiteral("/nothing"));
        std::unique_ptr<QNetworkReply> r(send("GET", other));
        QCOMPARE(r->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 404);
        QCOMPARE(server.count(), 4);
    }

    void formBodiesAndLargeBodiesArriveWhole() {
        TestHttpServer server;
        QUrl url = server.url();
        url.setPath(QStringLiteral("/v2/check"));
        std::unique_ptr<QNetworkReply> r(
            send("POST", url, "text=l%27%C3%A9t%C3%A9+vient&language=fr",
                 {{"Content-Type", "application/x-www-form-urlencoded"}}));
        QCOMPARE(server.last().formValue(QStringLiteral("text")), QStringLiteral("l'été vient"));
        QCOMPARE(server.last().formValue(QStringLiteral("language")), QStringLiteral("fr"));

        const QByteArray big(3 * 1024 * 1024, 'x');
        std::unique_ptr<QNetworkReply> r2(send("POST", url, big));
        QCOMPARE(server.last().body.size(), big.size());
    }

    void delayedAndDroppedAnswers() {
        TestHttpServer server;
        QUrl url = server.url();
        url.setPath(QStringLiteral("/slow"));
        server.on(QStringLiteral("/slow"), Reply::text("late").after(2000));
        QNetworkRequest req(url);
        req.setTransferTimeout(200);
        std::unique_ptr<QNetworkReply> slow(nam.get(req));
        QSignalSpy done(slow.get(), &QNetworkReply::finished);
        QVERIFY(done.wait(5000));
        QCOMPARE(slow->error(), QNetworkReply::OperationCanceledError);

        url.setPath(QStringLiteral("/drop"));
        server.on(QStringLiteral("/drop"), Reply::dropped());
        std::unique_ptr<QNetworkReply> dropped(send("POST", url, "{}"));
        QVERIFY(dropped->error() != QNetworkReply::NoError);
        QCOMPARE(dropped->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 0);
    }
};

QTEST_GUILESS_MAIN(TstTestHttpServer)
#include "tst_testhttpserver.moc"
