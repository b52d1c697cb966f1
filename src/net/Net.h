#pragma once

#include <QNetworkRequest>
#include <QUrl>

class QNetworkAccessManager;

// The one HTTP session of the program and its warm-up.
namespace ombry::Net {

// At most this many requests run at once on one host (scheme, host and port). Qt's HTTP/1
// client opens up to six connections a host and offers no setting for it, so Http::send holds
// the extra requests back in a queue of its own; the session's connections follow from that.
inline constexpr int kConnectionsPerHost = 4;
// The time-out of a request that does not give its own.
inline constexpr double kDefaultTimeoutSeconds = 30.0;

// The shared session: made at first use, on (and owned by) the application's main thread. It
// keeps no cache. Use it from the main thread only.
QNetworkAccessManager* session();

// A request with the session's rules: nothing read from or written to a cache, redirects
// followed only within the request's origin, and a time-out for the transfer (an answer that
// stays silent this long fails the request).
QNetworkRequest request(const QUrl& url, double timeoutSeconds = kDefaultTimeoutSeconds);

// Opens the connections the next dictation will need, so its first request does not pay for
// name resolution and TLS: a HEAD to the product site (or, with no site, to OpenRouter's model
// list) and a HEAD to LanguageTool. Nobody waits for them or reads their answers.
void warmUp();

} // namespace ombry::Net
