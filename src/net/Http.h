#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QPointer>
#include <QString>
#include <QUrl>
#include <memory>

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
// The time-out is the longest silence allowed while the answer is awaited (in seconds); see
// Limits for the size and overall time bounds. Must be awaited on the main thread, where the
// session lives.
namespace ombry::Http {

using Headers = QList<QPair<QByteArray, QByteArray>>;

// The largest answer read from a service that does not say otherwise: chat completions,
// LanguageTool matches and credits are far below it. A larger answer (announced or received)
// ends the request with a TransportError.
inline constexpr qint64 kDefaultMaxReplyBytes = qint64(8) << 20;

// A caller's way to give up the requests of one piece of work: abort() ends those in flight at
// once and makes every later one fail before anything is sent, each with a TransportError
// ("requête abandonnée"). Shared by the requests it covers; main thread only.
class Abort {
public:
    void abort();
    bool aborted() const { return aborted_; }
    // The reply is aborted with the others (send() calls this).
    void watch(QObject* reply);

private:
    bool aborted_ = false;
    QList<QPointer<QObject>> replies_;
};

// What bounds one request besides the silence time-out: the size of its answer, the time it
// may take as a whole (an answer trickling in one byte at a time is never silent for long), and
// the caller's abort. A deadline of 0 means four times the silence time-out, at least 60
// seconds, plus one second for every 125 kB sent (1 Mbit/s).
struct Limits {
    qint64 maxReplyBytes = kDefaultMaxReplyBytes;
    double deadlineSeconds = 0;
    std::shared_ptr<Abort> abort = nullptr;
    double deadlineFor(double timeoutSeconds, qint64 uploadBytes) const;
};

struct Reply {
    int status = 0; // the HTTP status; 0 for an answer that is not HTTP
    QByteArray body;
    // The body as UTF-8 text; empty when it is not valid UTF-8.
    QString bodyText() const;
};

// A JSON request body that may carry one large binary member (a recording) as base64. The
// object holds binaryPlaceholder() where the base64 text goes; serialized() writes the JSON text
// around the base64 stream directly, in one pass over the bytes, instead of building a
// document that holds the base64 as a string. Implicitly made from a plain object.
struct JsonBody {
    QJsonObject object;
    QByteArray binary;
    bool binaryIsBase64 = false; // encodeBinary() has run

    JsonBody(QJsonObject o = {}, QByteArray b = {}) : object(std::move(o)), binary(std::move(b)) {}
    // The string value that stands for `binary` in `object` (unique to the process).
    static QString binaryPlaceholder();
    // Turns `binary` into its base64 text now, on whatever thread holds the body, so that
    // serialized() only copies it.
    void encodeBinary();
    // Compact JSON; the placeholder, if present, replaced by the base64 of `binary`.
    QByteArray serialized() const;
};

// Redirects are followed only within the origin of the request (scheme, host and port): the
// headers (a key) and the body never go to another host. A redirect elsewhere fails the request
// with a TransportError that says so. A header value holding a control character is never sent
// (TransportError). A transport failure after the status line (a connection closed before the
// whole body came, a stall) is a TransportError like one before it.
QCoro::Task<Reply> send(QByteArray method, QUrl url, QByteArray body, Headers headers,
                        double timeoutSeconds, Limits limits = {});
QCoro::Task<Reply> post(QUrl url, QByteArray body, Headers headers, double timeoutSeconds,
                        Limits limits = {});
// POSTs the body as compact JSON, with Content-Type application/json added to the headers.
QCoro::Task<Reply> postJson(QUrl url, JsonBody body, Headers headers, double timeoutSeconds,
                            Limits limits = {});

} // namespace ombry::Http
