#include "net/Http.h"

#include "net/Errors.h"
#include "net/Net.h"

#include <QCoreApplication>
#include <QCoroNetworkReply>
#include <QHash>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QStringDecoder>
#include <QTimer>
#include <QUuid>
#include <algorithm>
#include <coroutine>
#include <cstring>
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

// Errors where no complete answer came, whatever came before: the connection failed, closed
// early or went silent, or a proxy failed. (Codes from 201 up stand for HTTP statuses.)
bool isTransportError(QNetworkReply::NetworkError e) {
    return (e > QNetworkReply::NoError && e < QNetworkReply::ContentAccessDenied) ||
           e == QNetworkReply::UnknownNetworkError || e == QNetworkReply::UnknownProxyError;
}

bool hasControlCharacter(const QByteArray& value) {
    for (const char c : value)
        if ((static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f) return true;
    return false;
}

QString origin(const QUrl& url) {
    return url
        .adjusted(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment |
                  QUrl::RemoveUserInfo)
        .toString();
}

// What stopped a request from this side.
struct Stop {
    bool tooLarge = false;
    bool deadline = false;
};

// Watches one reply: aborts it when its announced or received size passes the cap, or when
// the deadline comes. Everything is owned by the reply.
void bound(QNetworkReply* reply, const std::shared_ptr<Stop>& stop, qint64 maxBytes,
           double deadlineSeconds) {
    const auto tooLarge = [reply, stop] {
        stop->tooLarge = true;
        reply->abort();
    };
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, [reply, maxBytes, tooLarge] {
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid() && length.toLongLong() > maxBytes) tooLarge();
    });
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply,
                     [maxBytes, tooLarge](qint64 received, qint64) {
                         if (received > maxBytes) tooLarge();
                     });
    auto* timer = new QTimer(reply);
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, reply, [reply, stop] {
        stop->deadline = true;
        reply->abort();
    });
    timer->start(int(std::min(deadlineSeconds * 1000.0, 2.0e9)));
}

char* base64Into(char* out, const char* in, qsizetype n) {
    static constexpr char kTable[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto* p = reinterpret_cast<const unsigned char*>(in);
    qsizetype i = 0;
    for (; i + 3 <= n; i += 3) {
        const uint32_t v = (uint32_t(p[i]) << 16) | (uint32_t(p[i + 1]) << 8) | p[i + 2];
        *out++ = kTable[v >> 18];
        *out++ = kTable[(v >> 12) & 63];
        *out++ = kTable[(v >> 6) & 63];
        *out++ = kTable[v & 63];
    }
    if (i < n) {
        const uint32_t v = (uint32_t(p[i]) << 16) | (i + 1 < n ? uint32_t(p[i + 1]) << 8 : 0);
        *out++ = kTable[v >> 18];
        *out++ = kTable[(v >> 12) & 63];
        *out++ = i + 1 < n ? kTable[(v >> 6) & 63] : '=';
        *out++ = '=';
    }
    return out;
}

} // namespace

double Limits::deadlineFor(double timeoutSeconds, qint64 uploadBytes) const {
    if (deadlineSeconds > 0) return deadlineSeconds;
    // A long recording on a slow line takes its time to go up: a second more per 125 kB.
    return std::max(60.0, 4.0 * timeoutSeconds) + double(uploadBytes) / 125000.0;
}

QString JsonBody::binaryPlaceholder() {
    static const QString placeholder =
        QStringLiteral("binary-") + QUuid::createUuid().toString(QUuid::WithoutBraces);
    return placeholder;
}

QByteArray JsonBody::serialized() const {
    const QByteArray json = QJsonDocument(object).toJson(QJsonDocument::Compact);
    const QByteArray marker = '"' + binaryPlaceholder().toLatin1() + '"';
    const qsizetype at = json.indexOf(marker);
    if (at < 0) return json;
    const qsizetype encoded = (binary.size() + 2) / 3 * 4;
    const qsizetype rest = json.size() - at - marker.size();
    QByteArray out(at + 2 + encoded + rest, Qt::Uninitialized);
    char* p = out.data();
    std::memcpy(p, json.constData(), size_t(at));
    p += at;
    *p++ = '"';
    p = base64Into(p, binary.constData(), binary.size());
    *p++ = '"';
    std::memcpy(p, json.constData() + at + marker.size(), size_t(rest));
    return out;
}

QString Reply::bodyText() const {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(body);
    if (decoder.hasError()) return {};
    return text;
}

QCoro::Task<Reply> send(QByteArray method, QUrl url, QByteArray body, Headers headers,
                        double timeoutSeconds, Limits limits) {
    for (const auto& [name, value] : headers)
        if (hasControlCharacter(name) || hasControlCharacter(value))
            throw TransportError(QStringLiteral("en-tête %1 refusé : il contient un caractère de "
                                                "contrôle")
                                     .arg(QString::fromLatin1(name)),
                                 false);

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
    const auto stop = std::make_shared<Stop>();
    bound(sent, stop, limits.maxReplyBytes, limits.deadlineFor(timeoutSeconds, body.size()));
    co_await reply.get();

    if (stop->tooLarge)
        throw TransportError(QStringLiteral("réponse trop grande (plus de %1 Mo)")
                                 .arg(double(limits.maxReplyBytes) / (1 << 20), 0, 'f', 1),
                             false, true);
    if (stop->deadline) throw TransportError(QString(), true);
    const QNetworkReply::NetworkError error = reply->error();
    if (error == QNetworkReply::InsecureRedirectError ||
        error == QNetworkReply::TooManyRedirectsError) {
        const QUrl target = url.resolved(QUrl::fromEncoded(reply->rawHeader("Location")));
        throw TransportError(
            QStringLiteral("redirection vers %1 refusée (la clé et les données ne quittent pas %2)")
                .arg(origin(target), origin(url)),
            false);
    }
    // A transfer time-out is reported as a cancel; nothing else here cancels a request.
    if (isTransportError(error))
        throw TransportError(reply->errorString(), error == QNetworkReply::OperationCanceledError);

    Reply out;
    if (reply->isOpen()) out.body = reply->readAll();
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid()) out.status = status.toInt();
    // Without a status: an answer that is not HTTP (status 0).
    co_return out;
}

QCoro::Task<Reply> post(QUrl url, QByteArray body, Headers headers, double timeoutSeconds,
                        Limits limits) {
    co_return co_await send("POST", std::move(url), std::move(body), std::move(headers),
                            timeoutSeconds, limits);
}

QCoro::Task<Reply> postJson(QUrl url, JsonBody body, Headers headers, double timeoutSeconds,
                            Limits limits) {
    headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("application/json")));
    QByteArray bytes = body.serialized();
    body = JsonBody(); // the recording is no longer needed twice
    co_return co_await send("POST", std::move(url), std::move(bytes), std::move(headers),
                            timeoutSeconds, limits);
}

} // namespace ombry::Http
