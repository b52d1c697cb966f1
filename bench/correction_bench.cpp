// The costs of correction that belong to this program rather than to the services: the word
// diff at its size limit, and a whole correction of a long text with many findings while the
// services (a local server in this process) answer at once.
#include "TestHttpServer.h"

#include "correction/Analyzer.h"
#include "correction/Corrector.h"
#include "data/Settings.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

using namespace ombry;
using namespace ombry::test;

namespace {

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

QString words(int n, int seed) {
    static const QStringList vocabulary = {"le",   "chat",        "mange",   "une",     "souris",
                                           "dans", "la",          "cuisine", "puis",    "il",
                                           "dort", "sur",         "canapé",  "pendant", "que",
                                           "nous", "travaillons", "au",      "bureau",  "demain"};
    QStringList out;
    for (int i = 0; i < n; ++i)
        out << vocabulary.at((i * 7 + seed) % vocabulary.size());
    return out.join(QLatin1Char(' '));
}

QCoro::Task<void> correctOnce(QString text, Corrector::Detailed* out) {
    *out = co_await Corrector::correctDetailed(text, QStringLiteral("français"), {});
}

} // namespace

int main(int argc, char** argv) {
    // Settings, keys and the journal go to a folder of this run, never the user's.
    QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", home.filePath("config").toUtf8());
    qputenv("XDG_DATA_HOME", home.filePath("data").toUtf8());
    qputenv("OMBRY_SITE_URL", "");
    QCoreApplication app(argc, argv);

    // 1. The diff of 2,000 words against 1,999 (just under four million cells).
    const QString before = words(2000, 0);
    QString after = words(1999, 0);
    after.replace(QStringLiteral("souris"), QStringLiteral("souriS"));
    std::vector<double> diffMs;
    qsizetype fixes = 0;
    for (int i = 0; i < 15; ++i) {
        QElapsedTimer t;
        t.start();
        fixes = Analyzer::diff(before, after).size();
        diffMs.push_back(double(t.nsecsElapsed()) / 1e6);
    }
    std::printf("diff 2000 x 1999 words: median %.1f ms, best %.1f ms (%lld fixes)\n",
                median(diffMs), *std::min_element(diffMs.begin(), diffMs.end()),
                static_cast<long long>(fixes));

    // 2. A whole correction: 1,000 words, 200 findings, LanguageTool and the local model
    //    answering at once.
    TestHttpServer server;
    const QByteArray url = server.url().toString().toUtf8();
    qputenv("OMBRY_LANGUAGETOOL_URL", url);
    qputenv("OMBRY_LOCAL_LLM_URL", url);
    AppSettings::shared().setUseLanguageTool(true);
    AppSettings::shared().setCorrectorUsesLocalModel(true);
    AppSettings::shared().setRewriteEngine(RewriteEngine::Local);
    AppSettings::shared().setPunctuation(PunctuationLevel::Normal);

    const QString text = QStringLiteral("Bonjour 👋🏽 ") + words(998, 3);
    QJsonArray matches;
    qsizetype at = text.indexOf(QLatin1Char(' ')) + 1;
    for (int w = 0; w < 1000 && matches.size() < 200; ++w) {
        const qsizetype end = text.indexOf(QLatin1Char(' '), at);
        const QString word = text.mid(at, end < 0 ? -1 : end - at);
        if (w % 5 == 0) {
            const bool safe = matches.size() % 2 == 0;
            matches.append(QJsonObject{
                {"message", "Faute possible."},
                {"shortMessage", ""},
                {"offset", at},
                {"length", word.size()},
                {"replacements",
                 QJsonArray{QJsonObject{{"value",
                                         safe ? word.toUpper().left(1) + word.mid(1) : word + "s"}},
                            QJsonObject{{"value", word + "x"}}, QJsonObject{{"value", word}}}},
                {"rule", QJsonObject{{"id", "R"},
                                     {"issueType", "misspelling"},
                                     {"category", QJsonObject{{"id", safe ? "CASING" : "AGREEMENT"},
                                                              {"name", "Catégorie"}}}}},
                {"context", QJsonObject{{"text", word}, {"offset", 0}, {"length", word.size()}}}});
        }
        if (end < 0) break;
        at = end + 1;
    }
    server.on("/v2/check", Reply::json(QJsonObject{{"matches", matches}}));
    server.on("/v1/models",
              Reply::json(QJsonObject{{"data", QJsonArray{QJsonObject{{"id", "m"}}}}}));
    server.on(
        "/v1/chat/completions",
        Reply::json(QJsonObject{
            {"choices", QJsonArray{QJsonObject{{"message", QJsonObject{{"role", "assistant"},
                                                                       {"content", text}}}}}}}));

    std::vector<double> correctMs;
    Corrector::Detailed corrected;
    for (int i = 0; i < 10; ++i) {
        QElapsedTimer t;
        t.start();
        QCoro::waitFor(correctOnce(text, &corrected));
        correctMs.push_back(double(t.nsecsElapsed()) / 1e6);
    }
    std::printf("correctDetailed, 1000 words, %lld findings, services answering at once: "
                "median %.1f ms, best %.1f ms (%lld findings kept, %lld requests)\n",
                static_cast<long long>(matches.size()), median(correctMs),
                *std::min_element(correctMs.begin(), correctMs.end()),
                static_cast<long long>(corrected.matches.size()),
                static_cast<long long>(server.count()));
    return 0;
}
