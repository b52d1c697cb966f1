#pragma once

#include <QString>
#include <QUrl>

// The addresses of the remote services. Each is a constant that the environment may override
// (self-hosting, tests); all are read at each call and returned without a trailing slash.
// Paths are appended to them: Endpoints::openRouter() + "/api/v1/chat/completions".
namespace ombry::Endpoints {

// The product site of the hosted service (OMBRY_SITE_URL). Empty by default: no hosted service.
QString site();
// True when site() is an http or https address with a host; otherwise the hosted path and
// everything on the site do not exist.
bool siteIsValid();
// site() joined with a relative path ("api/voice"); an empty URL when the site is not valid.
QUrl siteURL(const QString& path);

QString openRouter();   // OMBRY_OPENROUTER_URL, default https://openrouter.ai
QString deepgram();     // OMBRY_DEEPGRAM_URL, default https://api.deepgram.com
QString languageTool(); // OMBRY_LANGUAGETOOL_URL, default https://api.languagetool.org
QString localLlm();     // OMBRY_LOCAL_LLM_URL, default http://127.0.0.1:8080

} // namespace ombry::Endpoints
