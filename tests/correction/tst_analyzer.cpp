// The analyzer: the word-level diff of a correction, the labels that LanguageTool's findings
// give its changes, the explanations asked of a model, and the rewriting actions.
#include "FakePlatform.h"
#include "ServiceReplies.h"
#include "TestHttpServer.h"

#include "correction/Analyzer.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "engines/client/Errors.h"

#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

QString summary(const QList<Fix>& fixes) {
    QStringList out;
    for (const Fix& f : fixes)
        out << f.original + " > " + f.correction + " (" + f.kind + ")";
    return out.join(QStringLiteral(" | "));
}

QList<Fix> unexplained(int n) {
    QList<Fix> fixes;
    for (int i = 0; i < n; ++i)
        fixes << Fix{QUuid::createUuid(), QStringLiteral("m%1").arg(i),
                     QStringLiteral("n%1").arg(i), QStringLiteral("orthographe"), QString()};
    return fixes;
}

QString manyWords(int n, const QString& last = QStringLiteral("fin")) {
    QStringList w;
    for (int i = 0; i < n - 1; ++i)
        w << QStringLiteral("mot%1").arg(i % 50);
    w << last;
    return w.join(QLatin1Char(' '));
}

LanguageTool::Match finding(const QString& original, const QString& kind, const QString& message) {
    return LanguageTool::Match{{}, original, {}, message, {}, kind};
}

} // namespace

class TstAnalyzer : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;

    AppSettings& settings() { return AppSettings::shared(); }
    void openRouterOn() {
        KeyStore::shared().save(QStringLiteral("sk-or-test"), APIService::OpenRouter);
        settings().setOwnKeyMode(true);
        settings().setRewriteEngine(RewriteEngine::OpenRouter);
    }

private Q_SLOTS:
    void initTestCase() {
        const QByteArray url = server.url().toString().toUtf8();
        qputenv("OMBRY_LANGUAGETOOL_URL", url);
        qputenv("OMBRY_OPENROUTER_URL", url);
        qputenv("OMBRY_LOCAL_LLM_URL", url);
    }
    void init() {
        server.reset();
        settings().setRewriteEngine(RewriteEngine::Apple);
        settings().setUseLanguageTool(true);
        settings().setCorrectorUsesApple(true);
        settings().setCorrectionScope(CorrectionScope::Default);
        settings().setPunctuation(PunctuationLevel::Normal);
    }

    void wordDiff_data() {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("after");
        QTest::addColumn<QString>("fixes");
        QTest::newRow("equal") << "il mange"
                               << "il mange"
                               << "";
        QTest::newRow("empty") << ""
                               << " \n "
                               << "";
        QTest::newRow("any whitespace separates") << "un\ndeux  trois"
                                                  << "un deux\ttrois"
                                                  << "";
        QTest::newRow("canonically equal")
            << QStringLiteral("l'été") << QStringLiteral("l'e\u0301te\u0301") << "";
        QTest::newRow("a point") << "il mange"
                                 << "il mange."
                                 << "mange > mange. (ponctuation)";
        QTest::newRow("a case") << "bonjour"
                                << "Bonjour"
                                << "bonjour > Bonjour (orthographe)";
        QTest::newRow("added") << "la maison"
                               << "la belle maison"
                               << "∅ > belle (orthographe)";
        QTest::newRow("removed") << "la belle maison"
                                 << "la maison"
                                 << "belle > ∅ (orthographe)";
        QTest::newRow("neighbours make one fix") << "je les est vu"
                                                 << "je les ai vus"
                                                 << "est vu > ai vus (orthographe)";
        QTest::newRow("a common word splits them")
            << "il ont mangé hier les pomme"
            << "ils ont mangé hier les pommes"
            << "il > ils (orthographe) | pomme > pommes (orthographe)";
        QTest::newRow("a tie takes the added side first")
            << "a b"
            << "b a"
            << "∅ > b (orthographe) | b > ∅ (orthographe)";
        QTest::newRow("comma added alone") << "oui merci"
                                           << "oui , merci"
                                           << "∅ > , (ponctuation)";
    }
    void wordDiff() {
        QFETCH(QString, before);
        QFETCH(QString, after);
        QFETCH(QString, fixes);
        const QList<Fix> found = Analyzer::diff(before, after);
        QCOMPARE(summary(found), fixes);
        for (const Fix& f : found)
            QVERIFY(f.explanation.isEmpty());
        if (found.size() == 2) QVERIFY(found[0].id != found[1].id);
    }

    void diffStopsAtFourMillionCells() {
        QVERIFY(Analyzer::diff(manyWords(2000), manyWords(2000, "autre")).isEmpty());
        const QList<Fix> full = Analyzer::diff(manyWords(2000), manyWords(1999));
        QCOMPARE(full.size(), 1);
        QCOMPARE(full[0].correction, QStringLiteral("∅"));
        QVERIFY(!Analyzer::diff(QStringLiteral("un"), manyWords(3999, "deux")).isEmpty());
    }

    void labelsComeFromTheFindings() {
        QList<Fix> fixes = {
            Fix{QUuid::createUuid(), "les est", "les ai", "orthographe", {}},
            Fix{QUuid::createUuid(), "vu", "vus", "orthographe", {}},
            Fix{QUuid::createUuid(), "∅", ",", "ponctuation", {}},
            Fix{QUuid::createUuid(), "Hier", "hier", "orthographe", {}},
        };
        Analyzer::label(fixes, {
                                   finding("je les est vu", "style", "contains it all"),
                                   finding(" Est\t", "grammaire", "one of its words"),
                                   finding("vu", "accord", "same words"),
                                   finding("V", "typographie", "contained"),
                                   finding("hier", "typographie", "case folded"),
                               });
        QCOMPARE(fixes[0].explanation, QStringLiteral("one of its words"));
        QCOMPARE(fixes[0].kind, QStringLiteral("grammaire"));
        QCOMPARE(fixes[1].explanation, QStringLiteral("same words"));
        QCOMPARE(fixes[1].kind, QStringLiteral("accord"));
        QCOMPARE(fixes[2].explanation, QString()); // nothing covers an addition
        QCOMPARE(fixes[2].kind, QStringLiteral("ponctuation"));
        QCOMPARE(fixes[3].explanation, QStringLiteral("case folded"));
    }

    void answersOfTheModel_data() {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<bool>("readable");
        QTest::addColumn<QStringList>("kinds");
        QTest::addColumn<QStringList>("explanations");
        const QString items = QStringLiteral(R"({"items": [{"kind": "accord", "explanation": "A."},
            {"kind": "grammaire", "explanation": "B."}, {"kind": "style", "explanation": "C."}]})");
        QTest::newRow("bare") << items << true << QStringList{"accord", "grammaire", "style"}
                              << QStringList{"A.", "B.", "C."};
        QTest::newRow("prose and a code fence")
            << QStringLiteral("Voici :\n```json\n%1\n```\nBonne journée !").arg(items) << true
            << QStringList{"accord", "grammaire", "style"} << QStringList{"A.", "B.", "C."};
        QTest::newRow("a brace in the prose after it")
            << QStringLiteral("%1 (le format {items} demandé)").arg(items) << false << QStringList{}
            << QStringList{};
        QTest::newRow("fewer items, unknown kind, no explanation")
            << R"(Réponse : {"items": [{"kind": "lexique", "explanation": "X."}, {"kind": null}]})"
            << true << QStringList{"orthographe", "orthographe", "ponctuation"}
            << QStringList{"X.", "", "old"};
        QTest::newRow("more items than fixes")
            << R"({"items": [{}, {}, {}, {"kind": "accord"}]})" << true
            << QStringList{"orthographe", "orthographe", "ponctuation"} << QStringList{"", "", ""};
        QTest::newRow("no items") << R"({"elements": []})" << false << QStringList{}
                                  << QStringList{};
        QTest::newRow("mistyped kind")
            << R"({"items": [{"kind": 3}]})" << false << QStringList{} << QStringList{};
        QTest::newRow("not JSON") << "Désolé, je ne peux pas." << false << QStringList{}
                                  << QStringList{};
    }
    void answersOfTheModel() {
        QFETCH(QString, answer);
        QFETCH(bool, readable);
        QFETCH(QStringList, kinds);
        QFETCH(QStringList, explanations);
        QList<Fix> fixes = unexplained(3);
        fixes[2].kind = QStringLiteral("ponctuation");
        fixes[2].explanation = QStringLiteral("old");
        const std::optional<QList<Fix>> out = Analyzer::applyExplanations(fixes, answer);
        QCOMPARE(out.has_value(), readable);
        if (!out) return;
        QStringList gotKinds, gotExplanations;
        for (const Fix& f : *out) {
            gotKinds << f.kind;
            gotExplanations << f.explanation;
        }
        QCOMPARE(gotKinds, kinds);
        QCOMPARE(gotExplanations, explanations);
    }

    void explainAsksOnlyForWhatIsMissing() {
        openRouterOn();
        settings().setOpenRouterModel(QStringLiteral("mistralai/mistral-nemo"));
        server.on(kOpenRouter,
                  chatReply(R"({"items": [{"kind": "accord", "explanation": "Première."}]})"));

        // 41 fixes without any explanation: too many, nothing is asked.
        const QList<Fix> many = unexplained(41);
        QCOMPARE(await(Analyzer::explain(many, "texte", "français")), many);
        QCOMPARE(server.count(), 0);

        // 41 fixes of which 2 lack one: a request for those 2, answered for the first.
        QList<Fix> some = many;
        for (int i = 0; i < 41; ++i)
            if (i != 7 && i != 30) some[i].explanation = QStringLiteral("déjà");
        const QList<Fix> out = await(Analyzer::explain(some, "Le texte.", "français"));
        QCOMPARE(server.count(), 1);
        QCOMPARE(out[7].explanation, QStringLiteral("Première."));
        QCOMPARE(out[7].kind, QStringLiteral("accord"));
        QCOMPARE(out[30], some[30]);
        QCOMPARE(out[8], some[8]);

        const RecordedRequest r = server.last();
        QCOMPARE(r.json().value("model").toString(), QStringLiteral("google/gemini-2.5-flash"));
        QCOMPARE(userOf(r), QStringLiteral("Texte d'origine :\nLe texte.\n\nCorrections :\n"
                                           "1. « m7 » → « n7 »\n2. « m30 » → « n30 »"));
        QVERIFY(systemOf(r).startsWith(QStringLiteral("Tu es professeur de français. ")));
        QVERIFY(systemOf(r).endsWith(QStringLiteral(
            "\nRéponds uniquement en JSON : {\"items\": [{\"kind\": \"orthographe|grammaire|"
            "conjugaison|accord|ponctuation|typographie|style\", \"explanation\": \"...\"}]}")));
    }

    void explainLocallyWithASchema() {
        playLocalModel(server, chatReply(R"({"items": [{"kind": "style", "explanation": "Un."},
                                                      {"kind": "accord", "explanation": "Deux."}]})"));
        const QList<Fix> out = await(Analyzer::explain(unexplained(2), "texte", "français"));
        QCOMPARE(out[1].explanation, QStringLiteral("Deux."));
        const QJsonObject schema = server.requests(kLocal)
                                       .first()
                                       .json()
                                       .value("response_format")
                                       .toObject()
                                       .value("json_schema")
                                       .toObject()
                                       .value("schema")
                                       .toObject();
        const QJsonObject items = schema.value("properties").toObject().value("items").toObject();
        QCOMPARE(items.value("minItems").toInt(), 2);
        QCOMPARE(items.value("maxItems").toInt(), 2);
        const QJsonObject kind =
            items.value("items").toObject().value("properties").toObject().value("kind").toObject();
        QCOMPARE(kind.value("enum").toArray().size(), 7);
        QVERIFY(!systemOf(server.requests(kLocal).first()).contains(QStringLiteral("JSON")));

        // A failing model leaves the fixes as they were.
        server.on(kLocal, Reply::text("surchargé", 503));
        QCOMPARE(await(Analyzer::explain(unexplained(2), "texte", "français")).size(), 2);
        QCOMPARE(await(Analyzer::explain(unexplained(1), "texte", "français"))[0].explanation,
                 QString());
    }

    void analyzeLabelsTheModelsChanges() {
        settings().setCorrectorUsesApple(false);
        const QString text = QStringLiteral("il sont parti");
        server.on(kLanguageTool, ltReply({ltFinding(text, "sont", {"est"}, "AGREEMENT",
                                                    "Accord du verbe avec le sujet.")}));
        const Analysis a = await(Analyzer::analyze(text, "français", {}));
        QCOMPARE(a.corrected, QStringLiteral("Il est parti."));
        QCOMPARE(summary(a.fixes), QStringLiteral("il sont parti > Il est parti. (accord)"));
        QCOMPARE(a.fixes[0].explanation, QStringLiteral("Accord du verbe avec le sujet."));
    }

    void rewriteInstructions() {
        const QString correct = Analyzer::rewriteInstructions(TextAction::Correct, "français", {});
        QCOMPARE(correct, QStringLiteral(" Écris en français. Garde le sens et toutes les "
                                         "informations.\nRenvoie uniquement le texte, sans "
                                         "guillemets ni commentaire."));
        QVERIFY(Analyzer::rewriteInstructions(TextAction::Summary, "anglais", {})
                    .contains(QStringLiteral("l'essentiel. Écris en anglais. Garde le sens.\n")));
        QVERIFY(Analyzer::rewriteInstructions(TextAction::Translate, "français", {})
                    .startsWith(QStringLiteral("Traduis ce texte en anglais, ")));
        QVERIFY(Analyzer::rewriteInstructions(TextAction::Translate, "français", "italien")
                    .startsWith(QStringLiteral("Traduis ce texte en italien, ")));
        for (TextAction a : allCases<TextAction>()) {
            QCOMPARE(fromRaw<TextAction>(rawValue(a)), std::optional<TextAction>(a));
            QVERIFY(Analyzer::rewriteInstructions(a, "français", {})
                        .endsWith(QStringLiteral("sans guillemets ni commentaire.")));
        }
    }

    void rewriteHasNoFallback() {
        openRouterOn();
        settings().setOpenRouterModel(QStringLiteral("openai/gpt-4o-mini"));
        server.on(kOpenRouter, chatReply(QStringLiteral("  Madame, Monsieur.  ")));
        playLocalModel(server, chatReply(QStringLiteral("local")));
        QCOMPARE(await(Analyzer::rewrite("salut", TextAction::Formal, "français", {})),
                 QStringLiteral("Madame, Monsieur."));
        QCOMPARE(server.last().json().value("model").toString(),
                 QStringLiteral("openai/gpt-4o-mini"));

        server.on(kOpenRouter, Reply::text("panne", 500));
        QVERIFY_THROWS_EXCEPTION(
            EngineError, await(Analyzer::rewrite("salut", TextAction::Email, "français", {})));
        QCOMPARE(server.requests(kLocal).size(), 0);

        settings().setRewriteEngine(RewriteEngine::None);
        QCOMPARE(await(Analyzer::rewrite("salut", TextAction::Concise, "français", {})),
                 QStringLiteral("local"));
    }
};

QTEST_GUILESS_MAIN(TstAnalyzer)
#include "tst_analyzer.moc"
