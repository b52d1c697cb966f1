#pragma once

// The services that correction talks to, played on a TestHttpServer with the answers the real
// services give.
#include "Await.h"
#include "TestHttpServer.h"

#include "data/KeyStore.h"
#include "data/Settings.h"

#include <QJsonArray>

namespace ombry::test {

constexpr const char* kLanguageTool = "/v2/check";
constexpr const char* kOpenRouter = "/api/v1/chat/completions";
constexpr const char* kLocal = "/v1/chat/completions";

// One LanguageTool finding in the service's documented form (most keys are not read).
inline QJsonObject ltMatch(qsizetype offset, qsizetype length, const QStringList& replacements,
                           const QString& categoryId, const QString& message = "Faute possible.",
                           const QString& categoryName = {}) {
    QJsonArray values;
    for (const QString& r : replacements)
        values.append(QJsonObject{{"value", r}});
    const QJsonObject category{{"id", categoryId},
                               {"name", categoryName.isEmpty() ? categoryId : categoryName}};
    return QJsonObject{
        {"message", message},
        {"shortMessage", ""},
        {"offset", offset},
        {"length", length},
        {"replacements", values},
        {"context", QJsonObject{{"text", "…"}, {"offset", 0}, {"length", length}}},
        {"rule", QJsonObject{{"id", "R"}, {"issueType", "misspelling"}, {"category", category}}},
    };
}

// The finding on the first occurrence of `original` in `text`.
inline QJsonObject ltFinding(const QString& text, const QString& original,
                             const QStringList& replacements, const QString& categoryId,
                             const QString& message = "Faute possible.",
                             const QString& categoryName = {}) {
    return ltMatch(text.indexOf(original), original.size(), replacements, categoryId, message,
                   categoryName);
}

inline Reply ltReply(const QList<QJsonObject>& matches) {
    QJsonArray list;
    for (const QJsonObject& m : matches)
        list.append(m);
    return Reply::json(QJsonObject{{"software", QJsonObject{{"name", "LanguageTool"}}},
                                   {"language", QJsonObject{{"code", "fr"}}},
                                   {"matches", list}});
}

inline Reply chatReply(const QString& content) {
    const QJsonObject message{{"role", "assistant"}, {"content", content}};
    return Reply::json(QJsonObject{
        {"choices", QJsonArray{QJsonObject{{"message", message}, {"finish_reason", "stop"}}}},
        {"usage", QJsonObject{{"prompt_tokens", 10}}}});
}

// A local OpenAI-compatible server with one model.
inline void playLocalModel(TestHttpServer& server, const Reply& answer) {
    server.on("/v1/models",
              Reply::json(QJsonObject{{"data", QJsonArray{QJsonObject{{"id", "m"}}}}}));
    server.on(kLocal, answer);
}

inline QString messageOf(const RecordedRequest& r, int index) {
    return r.json()["messages"].toArray().at(index)["content"].toString();
}
inline QString systemOf(const RecordedRequest& r) {
    return messageOf(r, 0);
}
inline QString userOf(const RecordedRequest& r) {
    return messageOf(r, 1);
}

inline void pointServicesAt(const TestHttpServer& server) {
    for (const char* name :
         {"OMBRY_LANGUAGETOOL_URL", "OMBRY_OPENROUTER_URL", "OMBRY_LOCAL_LLM_URL"})
        qputenv(name, server.url().toString().toUtf8());
}

// The remote model is open: an own key, own-key mode, and OpenRouter as the rewrite engine.
inline void openRouterOn(const QString& model = "mistralai/mistral-nemo") {
    KeyStore::shared().save("sk-or-test", APIService::OpenRouter);
    AppSettings::shared().setOwnKeyMode(true);
    AppSettings::shared().setRewriteEngine(RewriteEngine::OpenRouter);
    AppSettings::shared().setOpenRouterModel(model);
}

} // namespace ombry::test
