#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QJsonObject>
#include <QString>
#include <optional>

// The one chat-completion call that all text work goes through, and the format of its request
// and reply, which the own-key path and the hosted proxy share.
namespace ombry::OpenRouter {

// Where chat completions go, under Endpoints::openRouter().
inline constexpr const char* kChatPath = "/api/v1/chat/completions";

// The smaller of 4,000 and three tokens a word plus 200.
int maxTokens(const QString& text);

// The request body of a completion: model, temperature 0.2, max_tokens and the system and user
// messages.
QJsonObject requestBody(const QString& system, const QString& text, const QString& model);

// Decodes a chat-completion reply ({"choices": [{"message": {"content": "..."}}]}) and gives the
// content of its first choice, untouched; nothing when `choices` is empty. With
// `contentOptional`, a message without content (or with null) gives the empty text; otherwise
// it is a decoding failure. Throws DecodeError for a reply of another shape, naming `service`.
std::optional<QString> firstContent(const QByteArray& reply, bool contentOptional = false,
                                    const QString& service = QStringLiteral("OpenRouter"));

} // namespace ombry::OpenRouter
