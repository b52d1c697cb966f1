#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QJsonObject>
#include <QString>
#include <memory>

#include "net/Http.h"

// The one door of every chat request: straight to OpenRouter with the user's own key, or
// through the product site's hosted service, paid in credits.
namespace ombry::OmbryAI {

// True when an OpenRouter key is stored and either the user switched own-key mode on or there
// is no hosted service. A stored key that own-key mode does not switch on stays unused.
bool usesOwnKey();
// True when the own key is not in use and the hosted service exists.
bool usesCredits();
// The open road for a remote call: the own key, or credits not yet run out.
bool canReachRemote();

// Sends a chat-completion body and gives the raw bytes of the 200 answer.
//   Own key: POST {openRouter}/api/v1/chat/completions with `usage` asked for, the key as
//   bearer, `timeoutSeconds`; the cost goes to Spending. Another status (or an answer that is
//   not HTTP, as 0) throws EngineError::http(label, status, body).
//   Hosted: POST {site}/api/voice with the device identity merged in and no `usage`,
//   timeoutSeconds + 5; the balance of the answer goes to Credits. 402 throws noCredits,
//   another status http("Ombry", status, the answer's `error`). With no site, missingKey; with
//   credits run out, noCredits before sending anything.
// Transport errors pass through as TransportError.
// The body may carry a recording as a binary member (Http::JsonBody); a plain object converts.
// `abort`, when given, lets the caller give the request up (Http::Abort).
QCoro::Task<QByteArray> chat(Http::JsonBody body, double timeoutSeconds, QString label,
                             std::shared_ptr<Http::Abort> abort = {});

} // namespace ombry::OmbryAI
