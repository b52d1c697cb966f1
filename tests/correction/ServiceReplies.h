#pragma once

// Answers of the services that correction talks to, in the form the real services use, for
// tests that play them on a TestHttpServer.
#include "TestHttpServer.h"

#include <QCoroTask>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <exception>
#include <optional>

namespace ombry::test {

// One LanguageTool finding, with the keys the service sends (most of them unread).
inline QJsonObject ltMatch(qsizetype offset, qsizetype length, const QStringList& replacements,
                           const QString& categoryId, const QString& categoryName = {},
                           const QString& message = QStringLiteral("Faute possible."),
                           const QString& ruleId = QStringLiteral("RULE"),
                           const QString& checkedText = {}) {
    QJsonArray values;
    for (const QString& r : replacements)
        values.append(QJsonObject{{"value", r}});
    return QJsonObject{
        {"message", message},
        {"shortMessage", QString()},
        {"offset", offset},
        {"length", length},
        {"replacements", values},
        {"context", QJsonObject{{"text", checkedText}, {"offset", offset}, {"length", length}}},
        {"sentence", checkedText},
        {"type", QJsonObject{{"typeName", "Other"}}},
        {"rule",
         QJsonObject{{"id", ruleId},
                     {"description", "Règle"},
                     {"issueType", "misspelling"},
                     {"category",
                      QJsonObject{{"id", categoryId},
                                  {"name", categoryName.isEmpty() ? categoryId : categoryName}}}}},
        {"ignoreForIncompleteSentence", false},
        {"contextForSureMatch", 0},
    };
}

// The finding for the first occurrence of `original` in `text`.
inline QJsonObject ltFinding(const QString& text, const QString& original,
                             const QStringList& replacements, const QString& categoryId,
                             const QString& message = QStringLiteral("Faute possible."),
                             const QString& categoryName = {}) {
    const qsizetype at = text.indexOf(original);
    return ltMatch(at, original.size(), replacements, categoryId, categoryName, message,
                   QStringLiteral("RULE"), text);
}

inline Reply ltReply(const QList<QJsonObject>& matches) {
    QJsonArray list;
    for (const QJsonObject& m : matches)
        list.append(m);
    return Reply::json(QJsonObject{
        {"software", QJsonObject{{"name", "LanguageTool"}, {"version", "6.5"}, {"apiVersion", 1}}},
        {"language", QJsonObject{{"name", "French"}, {"code", "fr"}}},
        {"matches", list},
    });
}

inline Reply chatReply(const QString& content) {
    return Reply::json(QJsonObject{
        {"id", "gen-1"},
        {"object", "chat.completion"},
        {"choices", QJsonArray{QJsonObject{
                        {"index", 0},
                        {"message", QJsonObject{{"role", "assistant"}, {"content", content}}},
                        {"finish_reason", "stop"}}}},
        {"usage", QJsonObject{{"prompt_tokens", 10}, {"completion_tokens", 5}}},
    });
}

// A local OpenAI-compatible server with one model.
inline void playLocalModel(TestHttpServer& server, const Reply& answer) {
    server.on("/v1/models",
              Reply::json(QJsonObject{{"object", "list"},
                                      {"data", QJsonArray{QJsonObject{{"id", "local-model"}}}}}));
    server.on("/v1/chat/completions", answer);
}

inline QString message(const RecordedRequest& r, int index) {
    return r.json().value("messages").toArray().at(index).toObject().value("content").toString();
}
inline QString systemOf(const RecordedRequest& r) {
    return message(r, 0);
}
inline QString userOf(const RecordedRequest& r) {
    return message(r, 1);
}

namespace detail {
template <class T>
QCoro::Task<void> capture(QCoro::Task<T>& task, std::optional<T>& result,
                          std::exception_ptr& error) {
    try {
        result = co_await task;
    } catch (...) {
        error = std::current_exception();
    }
}
} // namespace detail

// Runs a task to its end on a nested event loop and gives its value, or throws what it threw
// (QCoro::waitFor alone never returns from a task that throws).
template <class T> T await(QCoro::Task<T>&& task) {
    std::optional<T> result;
    std::exception_ptr error;
    QCoro::waitFor(detail::capture(task, result, error));
    if (error) std::rethrow_exception(error);
    return std::move(*result);
}

constexpr const char* kLanguageTool = "/v2/check";
constexpr const char* kOpenRouter = "/api/v1/chat/completions";
constexpr const char* kLocal = "/v1/chat/completions";

} // namespace ombry::test
