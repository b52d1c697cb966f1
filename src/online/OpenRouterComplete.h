#pragma once

#include <QCoroTask>
#include <QString>
#include <memory>

#include "net/Http.h"

namespace ombry::OpenRouter {

// Sends `text` with the `system` prompt to `model` through OmbryAI::chat (own key or hosted
// service) and gives the answer trimmed at both ends. An answer without choices gives `text`
// back unchanged. Fails with missingKey("OpenRouter") without sending anything when no path is
// open; passes on the errors of the call and of decoding. No retry. The request and reply
// formats are those of net/OpenRouter.h; the route through the hosted service is this layer's.
// `abort`, when given, lets the caller give the request up (Http::Abort).
QCoro::Task<QString> complete(QString system, QString text, QString model,
                              std::shared_ptr<Http::Abort> abort = {});

} // namespace ombry::OpenRouter
