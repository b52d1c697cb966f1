#pragma once

#include <QCoroTask>
#include <QString>

namespace ombry::OpenRouter {

// Sends `text` with the `system` prompt to `model` through OmbryAI::chat (own key or hosted
// service) and gives the answer trimmed at both ends. An answer without choices gives `text`
// back unchanged. Fails with missingKey("OpenRouter") without sending anything when no path is
// open; passes on the errors of the call and of decoding. No retry. The request and reply
// formats are those of net/OpenRouter.h; the route through the hosted service is this layer's.
QCoro::Task<QString> complete(QString system, QString text, QString model);

} // namespace ombry::OpenRouter
