#include "TestHttpServer.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QHostAddress>
#include <QJsonArray>
#include <QPointer>
#include <QProcess>
#include <QSslKey>
#include <QSslServer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>
#include <QUrlQuery>

namespace ombry::test {

namespace {

QList<QPair<QString, QString>> decodePairs(const QByteArray& encoded) {
    QList<QPair<QString, QString>> items;
    if (encoded.isEmpty()) return items;
    for (const QByteArray& part : encoded.split('&')) {
        if (part.isEmpty()) continue;
        const int eq = part.indexOf('=');
        QByteArray key = eq < 0 ? part : part.left(eq);
        QByteArray value = eq < 0 ? QByteArray() : part.mid(eq + 1);
        key.replace('+', ' ');
        value.replace('+', ' ');
        items.append({QString::fromUtf8(QByteArray::fromPercentEncoding(key)),
                      QString::fromUtf8(QByteArray::fromPercentEncoding(value))});
    }
    return items;
}

QByteArray reasonPhrase(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 201:
        return "Created";
    case 204:
        return "No Content";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 402:
        return "Payment Required";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 429:
        return "Too Many Requests";
    case 500:
        return "Internal Server Error";
    case 502:
        return "Bad Gateway";
    case 503:
        return "Service Unavailable";
    default:
        return "Status";
    }
}

} // namespace

// ---- RecordedRequest -------------------------------------------------------------------------

QByteArray RecordedRequest::header(const QByteArray& name) const {
    return headers.value(name.toLower());
}

bool RecordedRequest::hasHeader(const QByteArray& name) const {
    return headers.contains(name.toLower());
}

QStringList RecordedRequest::queryValues(const QString& key) const {
    QStringList values;
    for (const auto& [k, v] : queryItems)
        if (k == key) values << v;
    return values;
}

QList<QPair<QString, QString>> RecordedRequest::form() const {
    return decodePairs(body);
}

QString RecordedRequest::formValue(const QString& key) const {
    for (const auto& [k, v] : form())
        if (k == key) return v;
    return {};
}

QJsonObject RecordedRequest::json() const {
    return QJsonDocument::fromJson(body).object();
}

// ---- Reply ------------------------------------------------------------------------------------

Reply Reply::json(const QJsonObject& object, int status) {
    return json(QJsonDocument(object).toJson(QJsonDocument::Compact), status);
}

Reply Reply::json(const QByteArray& body, int status) {
    Reply r;
    r.status = status;
    r.headers = {{"Content-Type", "application/json"}};
    r.body = body;
    return r;
}

Reply Reply::text(const QByteArray& body, int status) {
    Reply r;
    r.status = status;
    r.headers = {{"Content-Type", "text/plain; charset=utf-8"}};
    r.body = body;
    return r;
}

Reply Reply::dropped(int delayMs) {
    Reply r;
    r.drop = true;
    r.delayMs = delayMs;
    return r;
}

Reply Reply::garbage(const QByteArray& bytes) {
    Reply r;
    r.raw = bytes;
    return r;
}

Reply Reply::stalled(const QByteArray& bytes) {
    Reply r;
    r.raw = bytes;
    r.keepOpen = true;
    return r;
}

Reply chatCompletion(const QString& content, std::optional<double> cost, const QJsonObject& extra) {
    QJsonObject answer = extra;
    answer.insert(QStringLiteral("id"), QStringLiteral("gen-test"));
    answer.insert(
        QStringLiteral("choices"),
        QJsonArray{QJsonObject{{QStringLiteral("index"), 0},
                               {QStringLiteral("message"),
                                QJsonObject{{QStringLiteral("role"), QStringLiteral("assistant")},
                                            {QStringLiteral("content"), content}}}}});
    if (cost)
        answer.insert(QStringLiteral("usage"), QJsonObject{{QStringLiteral("cost"), *cost},
                                                           {QStringLiteral("total_tokens"), 42}});
    return Reply::json(answer);
}

// ---- Server -----------------------------------------------------------------------------------

// Per-connection parser state: bytes not yet consumed, and whether a request is being answered
// (requests on one connection are answered in order, one at a time).
struct TestHttpServer::Connection {
    QByteArray buffer;
    bool busy = false;
};

namespace {
// The server's side of TLS for "localhost", made once a process; the certificate is added to
// those the process trusts.
QSslConfiguration localhostTls() {
    static const QSslConfiguration server = [] {
        QTemporaryDir dir;
        QProcess openssl;
        openssl.start(QStringLiteral("openssl"),
                      {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                       "-nodes", "-days", "2", "-subj", "/CN=localhost", "-addext",
                       "subjectAltName=DNS:localhost", "-keyout", dir.filePath("key.pem"), "-out",
                       dir.filePath("cert.pem")});
        if (!openssl.waitForFinished(30000) || openssl.exitCode() != 0)
            qFatal("TestHttpServer: openssl made no certificate");
        QFile certFile(dir.filePath("cert.pem")), keyFile(dir.filePath("key.pem"));
        certFile.open(QIODevice::ReadOnly);
        keyFile.open(QIODevice::ReadOnly);
        const QSslCertificate cert(&certFile);
        QSslConfiguration config = QSslConfiguration::defaultConfiguration();
        QSslConfiguration trusting = config;
        trusting.addCaCertificate(cert);
        QSslConfiguration::setDefaultConfiguration(trusting);
        config.setLocalCertificate(cert);
        config.setPrivateKey(QSslKey(&keyFile, QSsl::Ec));
        return config;
    }();
    return server;
}
} // namespace

TestHttpServer::TestHttpServer(Scheme scheme, QObject* parent)
    : QObject(parent),
      server_(scheme == Scheme::Https ? new QSslServer(this) : new QTcpServer(this)),
      scheme_(scheme) {
    if (auto* tls = qobject_cast<QSslServer*>(server_)) tls->setSslConfiguration(localhostTls());
    if (!server_->listen(QHostAddress::LocalHost, 0))
        qFatal("TestHttpServer: cannot listen on 127.0.0.1: %s",
               qPrintable(server_->errorString()));
    // Over TLS a connection is handed over once its handshake is done.
    connect(server_, &QTcpServer::pendingConnectionAvailable, this,
            &TestHttpServer::onNewConnection);
}

TestHttpServer::~TestHttpServer() {
    for (auto it = connections_.begin(); it != connections_.end(); ++it) {
        it.key()->disconnect(this);
        it.key()->abort();
        delete it.value();
    }
    connections_.clear();
}

QUrl TestHttpServer::url() const {
    return QUrl((scheme_ == Scheme::Https ? QStringLiteral("https://localhost:%1")
                                          : QStringLiteral("http://127.0.0.1:%1"))
                    .arg(server_->serverPort()));
}

quint16 TestHttpServer::port() const {
    return server_->serverPort();
}

void TestHttpServer::on(const QString& path, const Reply& reply) {
    standing_.insert(path, reply);
}

void TestHttpServer::enqueue(const QString& path, const Reply& reply) {
    queued_[path].append(reply);
}

void TestHttpServer::setHandler(std::function<Reply(const RecordedRequest&)> handler) {
    handler_ = std::move(handler);
}

void TestHttpServer::reset() {
    standing_.clear();
    queued_.clear();
    handler_ = nullptr;
    requests_.clear();
}

QList<RecordedRequest> TestHttpServer::requests(const QString& path) const {
    QList<RecordedRequest> out;
    for (const RecordedRequest& r : requests_)
        if (r.path == path) out << r;
    return out;
}

RecordedRequest TestHttpServer::last() const {
    return requests_.isEmpty() ? RecordedRequest() : requests_.last();
}

bool TestHttpServer::waitForRequests(int n, int timeoutMs) {
    QElapsedTimer timer;
    timer.start();
    while (count() < n && timer.elapsed() < timeoutMs) {
        QEventLoop loop;
        QTimer::singleShot(10, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return count() >= n;
}

bool TestHttpServer::runProcess(QProcess& process, int timeoutMs) {
    if (process.state() == QProcess::NotRunning && !process.waitForStarted(10000)) return false;
    QEventLoop loop;
    QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    if (process.state() != QProcess::NotRunning) loop.exec();
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(5000);
        return false;
    }
    return true;
}

Reply TestHttpServer::replyFor(const RecordedRequest& request) {
    auto q = queued_.find(request.path);
    if (q != queued_.end() && !q->isEmpty()) return q->takeFirst();
    auto s = standing_.constFind(request.path);
    if (s != standing_.constEnd()) return *s;
    if (handler_) return handler_(request);
    Reply notFound;
    notFound.status = 404;
    return notFound;
}

void TestHttpServer::onNewConnection() {
    while (QTcpSocket* socket = server_->nextPendingConnection()) {
        connections_.insert(socket, new Connection);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            delete connections_.take(socket);
            socket->deleteLater();
        });
    }
}

void TestHttpServer::onReadyRead(QTcpSocket* socket) {
    Connection* c = connections_.value(socket);
    if (!c) return;
    c->buffer += socket->readAll();
    process(socket);
}

// Parses as many complete requests from the connection's buffer as it holds, answering each
// before the next is looked at.
void TestHttpServer::process(QTcpSocket* socket) {
    Connection* c = connections_.value(socket);
    if (!c || c->busy) return;
    const int headEnd = c->buffer.indexOf("\r\n\r\n");
    if (headEnd < 0) return;

    const QList<QByteArray> lines = c->buffer.left(headEnd).split('\n');
    RecordedRequest request;
    const QList<QByteArray> start = lines.value(0).trimmed().split(' ');
    request.method = start.value(0);
    QByteArray target = start.value(1);
    if (target.startsWith("http://") || target.startsWith("https://"))
        target = QUrl::fromEncoded(target).path(QUrl::FullyEncoded).toUtf8() +
                 (QUrl::fromEncoded(target).hasQuery()
                      ? "?" + QUrl::fromEncoded(target).query(QUrl::FullyEncoded).toUtf8()
                      : QByteArray());
    const int qmark = target.indexOf('?');
    const QByteArray rawPath = qmark < 0 ? target : target.left(qmark);
    request.path = QString::fromUtf8(QByteArray::fromPercentEncoding(rawPath));
    if (qmark >= 0) {
        const QByteArray rawQuery = target.mid(qmark + 1);
        request.query = QString::fromLatin1(rawQuery);
        request.queryItems = decodePairs(rawQuery);
    }
    for (int i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines[i].trimmed();
        const int colon = line.indexOf(':');
        if (colon <= 0) continue;
        const QByteArray name = line.left(colon).trimmed().toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        if (request.headers.contains(name))
            request.headers[name] += ", " + value;
        else
            request.headers.insert(name, value);
    }

    int consumed = headEnd + 4;
    if (request.header("transfer-encoding").toLower().contains("chunked")) {
        int pos = consumed;
        QByteArray body;
        for (;;) {
            const int lineEnd = c->buffer.indexOf("\r\n", pos);
            if (lineEnd < 0) return; // wait for more
            bool ok = false;
            const int size =
                c->buffer.mid(pos, lineEnd - pos).split(';').value(0).trimmed().toInt(&ok, 16);
            if (!ok) {
                socket->abort();
                return;
            }
            pos = lineEnd + 2;
            if (size == 0) {
                // Trailers end with an empty line.
                const int trailerEnd = c->buffer.indexOf("\r\n\r\n", pos - 2);
                if (trailerEnd < 0) return;
                pos = trailerEnd + 4;
                break;
            }
            if (c->buffer.size() < pos + size + 2) return;
            body += c->buffer.mid(pos, size);
            pos += size + 2;
        }
        request.body = body;
        consumed = pos;
    } else {
        const int length = request.header("content-length").toInt();
        if (c->buffer.size() < consumed + length) return; // wait for the rest of the body
        request.body = c->buffer.mid(consumed, length);
        consumed += length;
    }
    c->buffer.remove(0, consumed);

    const bool clientWantsClose = request.header("connection").toLower() == "close";
    requests_.append(request);
    Q_EMIT requestReceived(request);
    answer(socket, request, clientWantsClose);
}

void TestHttpServer::answer(QTcpSocket* socket, const RecordedRequest& request,
                            bool clientWantsClose) {
    const Reply reply = replyFor(request);
    Connection* c = connections_.value(socket);
    if (!c) return;
    c->busy = true;
    QPointer<QTcpSocket> guard(socket);
    auto go = [this, guard, reply, clientWantsClose] {
        if (!guard || !connections_.contains(guard.data())) return; // the client gave up
        send(guard.data(), reply, clientWantsClose || reply.close);
    };
    if (reply.delayMs > 0)
        QTimer::singleShot(reply.delayMs, this, go);
    else
        go();
}

void TestHttpServer::send(QTcpSocket* socket, const Reply& reply, bool close) {
    if (reply.drop) {
        socket->abort();
        return;
    }
    if (!reply.raw.isEmpty()) {
        socket->write(reply.raw);
        if (!reply.keepOpen) socket->disconnectFromHost();
        return;
    }
    QByteArray out =
        "HTTP/1.1 " + QByteArray::number(reply.status) + ' ' + reasonPhrase(reply.status) + "\r\n";
    bool hasLength = false;
    for (const auto& [name, value] : reply.headers) {
        if (name.toLower() == "content-length") hasLength = true;
        out += name + ": " + value + "\r\n";
    }
    if (!hasLength) out += "Content-Length: " + QByteArray::number(reply.body.size()) + "\r\n";
    out += close ? "Connection: close\r\n" : "Connection: keep-alive\r\n";
    out += "\r\n";
    if (reply.trickleMs > 0) {
        socket->write(out);
        trickle(socket, reply.body, reply.trickleMs, close);
        return;
    }
    out += reply.body;
    socket->write(out);
    if (close) {
        socket->disconnectFromHost();
        return;
    }
    if (Connection* c = connections_.value(socket)) {
        c->busy = false;
        process(socket); // a pipelined request may already be waiting
    }
}

void TestHttpServer::trickle(QTcpSocket* socket, QByteArray rest, int intervalMs, bool close) {
    QPointer<QTcpSocket> guard(socket);
    QTimer::singleShot(intervalMs, this, [this, guard, rest, intervalMs, close] {
        if (!guard || !connections_.contains(guard.data())) return; // the client gave up
        if (!rest.isEmpty()) {
            guard->write(rest.left(1));
            trickle(guard.data(), rest.mid(1), intervalMs, close);
            return;
        }
        if (close) {
            guard->disconnectFromHost();
            return;
        }
        if (Connection* c = connections_.value(guard.data())) {
            c->busy = false;
            process(guard.data());
        }
    });
}

} // namespace ombry::test
