#include "net/Endpoints.h"

#include "data/Settings.h"

namespace ombry::Endpoints {

namespace {

QString fromEnvironment(const char* name, const QString& fallback) {
    QString value = qEnvironmentVariable(name).trimmed();
    if (value.isEmpty()) value = fallback;
    while (value.endsWith(QLatin1Char('/')))
        value.chop(1);
    return value;
}

} // namespace

QString site() {
    return fromEnvironment("OMBRY_SITE_URL", QString());
}

// The settings decide their defaults by the same rule, so it lives with them.
bool siteIsValid() {
    return AppSettings::siteURLIsValid();
}

QUrl siteURL(const QString& path) {
    if (!siteIsValid()) return {};
    QString relative = path;
    while (relative.startsWith(QLatin1Char('/')))
        relative.remove(0, 1);
    return QUrl(site() + QLatin1Char('/') + relative);
}

QString openRouter() {
    return fromEnvironment("OMBRY_OPENROUTER_URL", QStringLiteral("https://openrouter.ai"));
}

QString deepgram() {
    return fromEnvironment("OMBRY_DEEPGRAM_URL", QStringLiteral("https://api.deepgram.com"));
}

QString languageTool() {
    return fromEnvironment("OMBRY_LANGUAGETOOL_URL",
                           QStringLiteral("https://api.languagetool.org"));
}

QString localLlm() {
    return fromEnvironment("OMBRY_LOCAL_LLM_URL", QStringLiteral("http://127.0.0.1:8080"));
}

} // namespace ombry::Endpoints
