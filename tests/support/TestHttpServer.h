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
    QList<QPair<QString, QString>> queryItems; // decoded, in the order sent, repeats kept
    QHash<QByteArray, QByteArray> headers;     // names in lower case; repeats joined by ", "
    QByteArray body;

    // A header by name, case-insensitively; empty when absent.
    QByteArray header(const QByteArray& name) const { return headers.value(name.toLower()); }
    bool hasHeader(const QByteArray& name) const { return headers.contains(name.toLower()); }
    QStringList queryValues(const QString& key) const;
    // The first value of a key of the body read as a form; empty when absent.
    QString formValue(const QString& key) const;
    QJsonObject json() const { return QJsonDocument::fromJson(body).object(); }
};

// What the server answers to one request.
struct Reply {
    int status = 200;
    QList<QPair<QByteArray, QByteArray>> headers{}; // Content-Length is added unless given
    QByteArray body{};
    int delayMs = 0;       // wait this long (on the event loop) before answering or dropping
    bool drop = false;     // close the connection without answering
    QByteArray raw{};      // when set, written as is instead of an HTTP response, then closed
    bool keepOpen = false; // with raw: the connection then stays open, silent (a stalled answer)
    int trickleMs = 0;     // the body goes out one byte at a time, one every trickleMs

    static Reply json(const QJsonObject& object, int status = 200);
    static Reply json(const QByteArray& body, int status = 200); // body sent as JSON as is
    static Reply text(const QByteArray& body, int status = 200);
    static Reply dropped(int delayMs = 0) { return {.delayMs = delayMs, .drop = true}; }
    static Reply garbage(const QByteArray& bytes) { return {.raw = bytes}; } // not HTTP
    // Writes these bytes (a status line, headers, part of a body) and then says nothing more.
    static Reply stalled(const QByteArray& bytes) { return {.raw = bytes, .keepOpen = true}; }
    Reply& after(int ms) {
        delayMs = ms;
        return *this;
    }
};

// A chat-completion answer as OpenRouter gives it: one choice whose message holds `content`,
// and `usage.cost` when a cost is given; `extra` members are added at the top level.
Reply chatCompletion(const QString& content, std::optional<double> cost = std::nullopt,
                     const QJsonObject& extra = {});

// A loopback HTTP/1.1 server on a free port, answering from the event loop of the thread that
// made it: the test keeps the loop turning while a request runs (test::await, QTRY_*,
// waitForRequests; runProcess for a child process that talks to it). A request on path P gets
// the next reply enqueued for P, else the reply set with on(P), else the handler's, else 404.
// Every request is recorded; connections are kept alive.
class TestHttpServer : public QObject {
    Q_OBJECT
public:
    // Https: as https://localhost:PORT, with a certificate made for the run (by openssl) that
    // this process's default TLS configuration then trusts.
    enum class Scheme { Http, Https };
    explicit TestHttpServer(Scheme scheme = Scheme::Http, QObject* parent = nullptr);
    ~TestHttpServer() override;

    // http://127.0.0.1:PORT (https://localhost:PORT), without a trailing slash.
    QUrl url() const;

    void on(const QString& path, const Reply& reply) { standing_.insert(path, reply); }
    void enqueue(const QString& path, const Reply& reply) { queued_[path].append(reply); }
    void setHandler(std::function<Reply(const RecordedRequest&)> handler) {
        handler_ = std::move(handler);
    }
    // Forgets the script and the recorded requests.
    void reset();

    QList<RecordedRequest> requests() const { return requests_; }
    QList<RecordedRequest> requests(const QString& path) const;
    // The last request; an empty one when there is none.
    RecordedRequest last() const { return requests_.value(requests_.size() - 1); }
    int count() const { return int(requests_.size()); }
    void clearRequests() { requests_.clear(); }
    // Requests whose client closed the connection before their answer went out.
    int abandoned() const { return abandoned_; }

    // Turns the event loop until at least n requests have come, or the time is out.
    bool waitForRequests(int n, int timeoutMs = 5000);
    // Runs a program to its end while the event loop turns; false (and killed) on time-out.
    static bool runProcess(QProcess& process, int timeoutMs = 30000);

private:
    struct Connection;
    void process(QTcpSocket* socket);
    void send(QTcpSocket* socket, const Reply& reply, bool close);
    void trickle(QTcpSocket* socket, QByteArray rest, int intervalMs, bool close);
    void done(QTcpSocket* socket);
    Reply replyFor(const RecordedRequest& request);

    QTcpServer* server_;
    Scheme scheme_;
    QHash<QTcpSocket*, Connection*> connections_;
    QHash<QString, Reply> standing_;
    QHash<QString, QList<Reply>> queued_;
    std::function<Reply(const RecordedRequest&)> handler_;
    QList<RecordedRequest> requests_;
    int abandoned_ = 0;
};

} // namespace ombry::test
