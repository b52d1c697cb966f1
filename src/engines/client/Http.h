#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QString>
#include <QUrl>

// One HTTP exchange through the shared session, awaited: the helper every remote engine uses.
//
//     const Http::Reply r = co_await Http::postJson(url, body, {{"Authorization", auth}}, 60.0);
//     if (r.status != 200) throw EngineError::http("Service", r.status, r.bodyText());
//
// Any status is a reply: the caller decides what counts as success. A request that gets no
// answer (network failure, refused connection, time-out) throws TransportError. An answer that
// is not HTTP comes back with status 0 and whatever bytes came. At most
// Net::kConnectionsPerHost requests run at once on one host; the others wait their turn.
//
// The time-out is the longest silence allowed while the answer is awaited (in seconds). Must be
// awaited on the main thread, where the session lives.
namespace ombry::Http {

using Headers = QList<QPair<QByteArray, QByteArray>>;

struct Reply {
    int status = 0; // the HTTP status; 0 for an answer that is not HTTP
    QByteArray body;
    // The body as UTF-8 text; empty when it is not valid UTF-8.
    QString bodyText() const;
};

QCoro::Task<Reply> send(QByteArray method, QUrl url, QByteArray body, Headers headers,
                        double timeoutSeconds);
QCoro::Task<Reply> post(QUrl url, QByteArray body, Headers headers, double timeoutSeconds);
// POSTs the object as compact JSON, with Content-Type application/json added to the headers.
QCoro::Task<Reply> postJson(QUrl url, QJsonObject body, Headers headers, double timeoutSeconds);

} // namespace ombry::Http
