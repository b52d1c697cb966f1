#include "online/OpenRouterComplete.h"

#include "net/Errors.h"
#include "net/OpenRouter.h"
#include "online/OmbryAI.h"

namespace ombry::OpenRouter {

QCoro::Task<QString> complete(QString system, QString text, QString model,
                              std::shared_ptr<Http::Abort> abort) {
    if (!OmbryAI::canReachRemote()) throw EngineError::missingKey(QStringLiteral("OpenRouter"));
    const QByteArray reply = co_await OmbryAI::chat(requestBody(system, text, model), 60.0,
                                                    QStringLiteral("OpenRouter"), std::move(abort));
    const std::optional<QString> content = firstContent(reply);
    if (!content) co_return text;
    co_return content->trimmed();
}

} // namespace ombry::OpenRouter
