#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QUrl>
#include <functional>
#include <optional>

class QProcess;
class QTcpServer;
class QTcpSocket;

namespace ombry::test {

// One request as the server received it.
struct RecordedRequest {
    QByteArray method;                         // "POST", "HEAD", ...
    QString path;                              // percent-decoded, without the query
    QString query;                             // raw query string, without '?' (still encoded)
    QList<QPair<QString, QString>> queryItems; // decoded, in the order sent, repeats kept
    QHash<QByteArray, QByteArray> headers;     // names in lower case; repeats joined by ", "
    QByteArray body;                           // de-chunked when sent chunked

    // A header by name, case-insensitively; empty when absent.
    QByteArray header(const QByteArray& name) const;
    bool hasHeader(const QByteArray& name) const;
    // Every value of a query key, in order.
    QStringList queryValues(const QString& key) const;
    // The body read as application/x-www-form-urlencoded, decoded, in order.
    QList<QPair<QString, QString>> form() const;
    // The first form value of a key; empty when absent.
    QString formValue(const QString& key) const;
    // The body parsed as a JSON object; empty when it is not one.
    QJsonObject json() const;
};

// What the server answers to one request.
struct Reply {
    int status = 200;
    QList<QPair<QByteArray, QByteArray>> headers; // Content-Length is added unless given
    QByteArray body;
    int delayMs = 0;       // wait this long (on the event loop) before answering or dropping
    bool drop = false;     // close the connection without answering
    bool close = false;    // answer with "Connection: close" and close afterwards
    QByteArray raw;        // when set, written as is instead of an HTTP response, then closed
    bool keepOpen = false; // with raw: the connection then stays open, silent (a stalled answer)
    int trickleMs = 0;     // the body goes out one byte at a time, one every trickleMs

    static Reply json(const QJsonObject& object, int status = 200);
    static Reply json(const QByteArray& body, int status = 200); // body sent as JSON as is
    static Reply text(const QByteArray& body, int status = 200);
    static Reply dropped(int delayMs = 0);
    static Reply garbage(const QByteArray& bytes); // a reply that is not HTTP
    // Writes these bytes (a status line, headers, part of a body) and then says nothing more.
    static Reply stalled(const QByteArray& bytes);
    Reply& after(int ms) {
        delayMs = ms;
        return *this;
    }
};

// A chat-completion answer as OpenRouter gives it: one choice whose message holds `content`,
// and `usage.cost` when a cost is given. `extra` members are added at the top level (for
// instance the hosted service's "ombry": {"credits": n}).
Reply chatCompletion(const QString& content, std::optional<double> cost = std::nullopt,
                     const QJsonObject& extra = {});

// A loopback-only (127.0.0.1) HTTP/1.1 server on a free port, for tests that drive real HTTP
// clients. It lives on the thread that creates it and answers from that thread's event loop,
// so the test must keep the loop turning while a request runs: test::await(task) (Await.h),
// QTRY_VERIFY, QSignalSpy::wait or waitForRequests() do; QProcess::waitForFinished does not
// (use TestHttpServer::runProcess for a child process that talks to the server).
//
// Answers, for a request on path P (exact match, query ignored):
//   1. the next reply queued for P with enqueue(), if any (each is used once);
//   2. else the reply set for P with on();
//   3. else the handler set with setHandler(), if any;
//   4. else 404 with an empty body.
// Every request is recorded, answered or not. Bodies may come with Content-Length or chunked;
// connections are kept alive unless the client or the reply asks to close.
//
//     TestHttpServer server;
//     qputenv("OMBRY_OPENROUTER_URL", server.url().toString().toUtf8());
//     server.on("/api/v1/chat/completions", Reply::json(QJsonObject{{"choices", ...}}));
//     ... run the client ...
//     QCOMPARE(server.requests().size(), 1);
//     QCOMPARE(server.last().header("authorization"), "Bearer k");
class TestHttpServer : public QObject {
    Q_OBJECT
public:
    // Https: over TLS, as https://localhost:PORT, with a certificate made for the run (by the
    // openssl tool) that this process's default TLS configuration then trusts.
    enum class Scheme { Http, Https };
    explicit TestHttpServer(QObject* parent = nullptr) : TestHttpServer(Scheme::Http, parent) {}
    explicit TestHttpServer(Scheme scheme, QObject* parent = nullptr);
    ~TestHttpServer() override;

    // http://127.0.0.1:PORT (https://localhost:PORT), without a trailing slash.
    QUrl url() const;
    quint16 port() const;

    // The standing answer for a path.
    void on(const QString& path, const Reply& reply);
    // A one-shot answer for a path; several are used in the order queued.
    void enqueue(const QString& path, const Reply& reply);
    // The answer for paths without a scripted reply.
    void setHandler(std::function<Reply(const RecordedRequest&)> handler);
    // Forgets the script and the recorded requests.
    void reset();

    QList<RecordedRequest> requests() const { return requests_; }
    QList<RecordedRequest> requests(const QString& path) const;
    // The last request; an empty one when there is none.
    RecordedRequest last() const;
    int count() const { return int(requests_.size()); }
    void clearRequests() { requests_.clear(); }

    // Turns the event loop until at least n requests have come, or the time is out.
    bool waitForRequests(int n, int timeoutMs = 5000);

    // Runs a program to its end while this thread's event loop keeps turning (so the server can
    // answer it). Returns false if it did not finish within the time; it is then killed.
    static bool runProcess(QProcess& process, int timeoutMs = 30000);

Q_SIGNALS:
    void requestReceived(const ombry::test::RecordedRequest& request);

private:
    struct Connection;
    void onNewConnection();
    void onReadyRead(QTcpSocket* socket);
    void process(QTcpSocket* socket);
    void answer(QTcpSocket* socket, const RecordedRequest& request, bool clientWantsClose);
    void send(QTcpSocket* socket, const Reply& reply, bool close);
    void trickle(QTcpSocket* socket, QByteArray rest, int intervalMs, bool close);
    Reply replyFor(const RecordedRequest& request);

    QTcpServer* server_;
    Scheme scheme_;
    QHash<QTcpSocket*, Connection*> connections_;
    QHash<QString, Reply> standing_;
    QHash<QString, QList<Reply>> queued_;
    std::function<Reply(const RecordedRequest&)> handler_;
    QList<RecordedRequest> requests_;
};

} // namespace ombry::test
