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

namespace ombry::test {

namespace {

QList<QPair<QString, QString>> decodePairs(const QByteArray& encoded) {
    QList<QPair<QString, QString>> items;
    for (QByteArray part : encoded.split('&')) {
        if (part.isEmpty()) continue;
        part.replace('+', ' ');
        const int eq = part.indexOf('=');
        const QByteArray key = eq < 0 ? part : part.left(eq),
                         value = eq < 0 ? QByteArray() : part.mid(eq + 1);
        items.append({QString::fromUtf8(QByteArray::fromPercentEncoding(key)),
                      QString::fromUtf8(QByteArray::fromPercentEncoding(value))});
    }
    return items;
}

// The server's side of TLS for "localhost", made once a process; the certificate is added to
// those the process trusts.
QSslConfiguration localhostTls() {
    static const QSslConfiguration server = [] {
        QTemporaryDir dir;
        QProcess openssl;
        openssl.start("openssl",
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

QStringList RecordedRequest::queryValues(const QString& key) const {
    QStringList values;
    for (const auto& [k, v] : queryItems)
        if (k == key) values << v;
    return values;
}

QString RecordedRequest::formValue(const QString& key) const {
    for (const auto& [k, v] : decodePairs(body))
        if (k == key) return v;
    return {};
}

Reply Reply::json(const QJsonObject& object, int status) {
    return json(QJsonDocument(object).toJson(QJsonDocument::Compact), status);
}

Reply Reply::json(const QByteArray& body, int status) {
    return {status, {{"Content-Type", "application/json"}}, body};
}

Reply Reply::text(const QByteArray& body, int status) {
    return {status, {{"Content-Type", "text/plain; charset=utf-8"}}, body};
}

Reply chatCompletion(const QString& content, std::optional<double> cost, const QJsonObject& extra) {
    QJsonObject answer = extra;
    answer.insert("id", "gen-test");
    answer.insert(
        "choices",
        QJsonArray{QJsonObject{
            {"index", 0}, {"message", QJsonObject{{"role", "assistant"}, {"content", content}}}}});
    if (cost) answer.insert("usage", QJsonObject{{"cost", *cost}, {"total_tokens", 42}});
    return Reply::json(answer);
}

// Bytes not yet parsed, and whether a request is being answered (requests on one connection
// are answered in order, one at a time).
struct TestHttpServer::Connection {
    QByteArray buffer;
    bool busy = false;
};

TestHttpServer::TestHttpServer(Scheme scheme, QObject* parent)
    : QObject(parent),
      server_(scheme == Scheme::Https ? new QSslServer(this) : new QTcpServer(this)),
      scheme_(scheme) {
    if (auto* tls = qobject_cast<QSslServer*>(server_)) tls->setSslConfiguration(localhostTls());
    if (!server_->listen(QHostAddress::LocalHost, 0))
        qFatal("TestHttpServer: cannot listen on 127.0.0.1: %s",
               qPrintable(server_->errorString()));
    // Over TLS a connection is handed over once its handshake is done.
    connect(server_, &QTcpServer::pendingConnectionAvailable, this, [this] {
        while (QTcpSocket* socket = server_->nextPendingConnection()) {
            connections_.insert(socket, new Connection);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
                if (Connection* c = connections_.value(socket)) c->buffer += socket->readAll();
                process(socket);
            });
            connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                const Connection* c = connections_.value(socket);
                if (c && c->busy) ++abandoned_;
                delete connections_.take(socket);
                socket->deleteLater();
            });
        }
    });
}

TestHttpServer::~TestHttpServer() {
    for (auto it = connections_.begin(); it != connections_.end(); ++it) {
        it.key()->disconnect(this);
        it.key()->abort();
        delete it.value();
    }
}

QUrl TestHttpServer::url() const {
    return QUrl(QString(scheme_ == Scheme::Https ? "https://localhost:%1" : "http://127.0.0.1:%1")
                    .arg(server_->serverPort()));
}

void TestHttpServer::reset() {
    standing_.clear();
    queued_.clear();
    handler_ = nullptr;
    requests_.clear();
    abandoned_ = 0;
}

QList<RecordedRequest> TestHttpServer::requests(const QString& path) const {
    QList<RecordedRequest> out;
    for (const RecordedRequest& r : requests_)
        if (r.path == path) out << r;
    return out;
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
    return Reply{.status = 404};
}

// Parses the next complete request of the connection's buffer (clients send a Content-Length)
// and answers it; the following one is looked at once that answer is out.
void TestHttpServer::process(QTcpSocket* socket) {
    Connection* c = connections_.value(socket);
    if (!c || c->busy) return;
    const int headEnd = c->buffer.indexOf("\r\n\r\n");
    if (headEnd < 0) return;
    const QList<QByteArray> lines = c->buffer.left(headEnd).split('\n');
    RecordedRequest request;
    const QList<QByteArray> start = lines.value(0).trimmed().split(' ');
    request.method = start.value(0);
    const QByteArray target = start.value(1);
    const int query = target.indexOf('?');
    request.path =
        QString::fromUtf8(QByteArray::fromPercentEncoding(query < 0 ? target : target.left(query)));
    if (query >= 0) request.queryItems = decodePairs(target.mid(query + 1));
    for (const QByteArray& line : lines.mid(1)) {
        const int colon = line.indexOf(':');
        if (colon <= 0) continue;
        const QByteArray name = line.left(colon).trimmed().toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        request.headers[name] += (request.headers.contains(name) ? ", " : "") + value;
    }
    const int length = request.header("content-length").toInt();
    if (c->buffer.size() < headEnd + 4 + length) return; // the rest of the body is to come
    request.body = c->buffer.mid(headEnd + 4, length);
    c->buffer.remove(0, headEnd + 4 + length);

    const bool close = request.header("connection").toLower() == "close";
    requests_.append(request);
    const Reply reply = replyFor(request);
    c->busy = true;
    QPointer<QTcpSocket> guard(socket);
    auto go = [this, guard, reply, close] {
        if (guard && connections_.contains(guard.data())) send(guard.data(), reply, close);
    };
    if (reply.delayMs > 0)
        QTimer::singleShot(reply.delayMs, this, go);
    else
        go();
}

void TestHttpServer::send(QTcpSocket* socket, const Reply& reply, bool close) {
    if (reply.drop) return socket->abort();
    if (!reply.raw.isEmpty()) {
        socket->write(reply.raw);
        if (!reply.keepOpen) socket->disconnectFromHost();
        return;
    }
    // Clients read the status code only, never its reason phrase.
    QByteArray out = "HTTP/1.1 " + QByteArray::number(reply.status) + " Status\r\n";
    bool hasLength = false;
    for (const auto& [name, value] : reply.headers) {
        hasLength = hasLength || name.toLower() == "content-length";
        out += name + ": " + value + "\r\n";
    }
    if (!hasLength) out += "Content-Length: " + QByteArray::number(reply.body.size()) + "\r\n";
    out += close ? "Connection: close\r\n\r\n" : "Connection: keep-alive\r\n\r\n";
    if (reply.trickleMs > 0) {
        socket->write(out);
        return trickle(socket, reply.body, reply.trickleMs, close);
    }
    socket->write(out + reply.body);
    close ? socket->disconnectFromHost() : done(socket);
}

void TestHttpServer::trickle(QTcpSocket* socket, QByteArray rest, int intervalMs, bool close) {
    QPointer<QTcpSocket> guard(socket);
    QTimer::singleShot(intervalMs, this, [this, guard, rest, intervalMs, close] {
        if (!guard || !connections_.contains(guard.data())) return; // the client gave up
        if (!rest.isEmpty()) {
            guard->write(rest.left(1));
            trickle(guard.data(), rest.mid(1), intervalMs, close);
        } else {
            close ? guard->disconnectFromHost() : done(guard.data());
        }
    });
}

// The answer is out: a pipelined request may already be waiting.
void TestHttpServer::done(QTcpSocket* socket) {
    if (Connection* c = connections_.value(socket)) {
        c->busy = false;
        process(socket);
    }
}

} // namespace ombry::test
