#include "engines/client/Http.h"

#include "engines/client/Errors.h"
#include "engines/client/Net.h"

#include <QCoreApplication>
#include <QCoroNetworkReply>
#include <QHash>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QStringDecoder>
#include <coroutine>
#include <deque>
#include <memory>

namespace ombry::Http {

namespace {

// Counts the requests running on one host. A request that finds every slot taken waits in a
// queue; a request that ends hands its slot to the first waiting one. Main thread only.
struct HostGate {
    int running = 0;
    std::deque<std::coroutine_handle<>> waiting;

    void release() {
        if (waiting.empty()) {
            --running;
            return;
        }
        const std::coroutine_handle<> next = waiting.front();
        waiting.pop_front();
        // Resumed from the event loop, not from inside the request that is ending.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [next] { next.resume(); }, Qt::QueuedConnection);
    }
};

// co_await Turn{gate}: goes on at once while a slot is free, else when one is handed over.
struct Turn {
    HostGate& gate;
    bool await_ready() const noexcept {
        if (gate.running >= Net::kConnectionsPerHost) return false;
        ++gate.running;
        return true;
    }
    void await_suspend(std::coroutine_handle<> handle) { gate.waiting.push_back(handle); }
    void await_resume() const noexcept {}
};

HostGate& gateFor(const QUrl& url) {
    static QHash<QString, HostGate*> gates;
    const QString key =
        url.scheme() + QLatin1String("://") + url.host() + QLatin1Char(':') +
        QString::number(url.port(url.scheme() == QLatin1String("https") ? 443 : 80));
    HostGate*& gate = gates[key];
    if (!gate) gate = new HostGate;
    return *gate;
}

// Errors where something answered, but not in HTTP.
bool isProtocolError(QNetworkReply::NetworkError e) {
    return e == QNetworkReply::ProtocolFailure || e == QNetworkReply::ProtocolUnknownError ||
           e == QNetworkReply::ProtocolInvalidOperationError;
}

} // namespace

QString Reply::bodyText() const {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(body);
    if (decoder.hasError()) return {};
    return text;
}

QCoro::Task<Reply> send(QByteArray method, QUrl url, QByteArray body, Headers headers,
                        double timeoutSeconds) {
    HostGate& gate = gateFor(url);
    co_await Turn{gate};
    const std::unique_ptr<HostGate, void (*)(HostGate*)> slot(&gate,
                                                              [](HostGate* g) { g->release(); });

    QNetworkRequest request = Net::request(url, timeoutSeconds);
    for (const auto& [name, value] : headers)
        request.setRawHeader(name, value);
    // A HEAD sent as a custom verb would wait for a body that never comes.
    QNetworkReply* const sent = method == "HEAD"
                                    ? Net::session()->head(request)
                                    : Net::session()->sendCustomRequest(request, method, body);
    std::unique_ptr<QNetworkReply, void (*)(QNetworkReply*)> reply(
        sent, [](QNetworkReply* r) { r->deleteLater(); });
    co_await reply.get();

    Reply out;
    if (reply->isOpen()) out.body = reply->readAll();
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid()) {
        out.status = status.toInt();
        co_return out;
    }
    const QNetworkReply::NetworkError error = reply->error();
    if (error == QNetworkReply::NoError || isProtocolError(error)) co_return out; // not HTTP
    // A transfer time-out is reported as a cancel; nothing else here cancels a request.
    throw TransportError(reply->errorString(), error == QNetworkReply::OperationCanceledError);
}

QCoro::Task<Reply> post(QUrl url, QByteArray body, Headers headers, double timeoutSeconds) {
    co_return co_await send("POST", std::move(url), std::move(body), std::move(headers),
                            timeoutSeconds);
}

QCoro::Task<Reply> postJson(QUrl url, QJsonObject body, Headers headers, double timeoutSeconds) {
    headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("application/json")));
    co_return co_await send("POST", std::move(url),
                            QJsonDocument(body).toJson(QJsonDocument::Compact), std::move(headers),
                            timeoutSeconds);
}

} // namespace ombry::Http
