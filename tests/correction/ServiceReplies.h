#pragma once

// The services that correction talks to, played on a TestHttpServer.
#include "Await.h"
#include "TestHttpServer.h"

#include "data/KeyStore.h"
#include "data/Settings.h"

#include <QJsonArray>

namespace ombry::test {

constexpr const char* kLanguageTool = "/v2/check";
constexpr const char* kOpenRouter = "/api/v1/chat/completions";
constexpr const char* kLocal = "/v1/chat/completions";

// One LanguageTool finding in the service's form (the category's name is its id).
inline QJsonObject ltMatch(qsizetype offset, qsizetype length, const QStringList& replacements,
                           const QString& category, const QString& message = "Faute.") {
    QJsonArray values;
    for (const QString& r : replacements)
        values.append(QJsonObject{{"value", r}});
    return QJsonObject{
        {"message", message},
        {"offset", offset},
        {"length", length},
        {"replacements", values},
        {"rule", QJsonObject{{"category", QJsonObject{{"id", category}, {"name", category}}}}}};
}

// The finding on the first occurrence of `original` in `text`.
inline QJsonObject ltFinding(const QString& text, const QString& original,
                             const QStringList& replacements, const QString& category,
                             const QString& message = "Faute.") {
    return ltMatch(text.indexOf(original), original.size(), replacements, category, message);
}

inline Reply ltReply(const QList<QJsonObject>& matches) {
    QJsonArray list;
    for (const QJsonObject& m : matches)
        list.append(m);
    return Reply::json(QJsonObject{{"matches", list}});
}

inline Reply chatReply(const QString& content) {
    return chatCompletion(content);
}

// A local OpenAI-compatible server with one model.
inline void playLocalModel(TestHttpServer& server, const Reply& answer) {
    server.on("/v1/models",
              Reply::json(QJsonObject{{"data", QJsonArray{QJsonObject{{"id", "m"}}}}}));
    server.on(kLocal, answer);
}

inline QString systemOf(const RecordedRequest& r) {
    return r.json()["messages"][0]["content"].toString();
}
inline QString userOf(const RecordedRequest& r) {
    return r.json()["messages"][1]["content"].toString();
}
inline QString modelOf(const RecordedRequest& r) {
    return r.json()["model"].toString();
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
