// The analyzer: the word-level diff of a correction, the labels that LanguageTool's findings
// give its changes, the explanations asked of a model, and the rewriting actions.
#include "FakePlatform.h"
#include "ServiceReplies.h"

#include "correction/Analyzer.h"
#include "engines/client/Errors.h"

#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

QString summary(const QList<Fix>& fixes, bool withExplanation = false) {
    QStringList out;
    for (const Fix& f : fixes)
        out << f.original + " > " + f.correction + " (" + f.kind +
                   (withExplanation ? ": " + f.explanation : QString()) + ")";
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
    return (w << last).join(QLatin1Char(' '));
}

} // namespace

class TstAnalyzer : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;

    AppSettings& settings() { return AppSettings::shared(); }
    QList<Fix> explain(const QList<Fix>& fixes, const QString& text = QStringLiteral("texte")) {
        return await(Analyzer::explain(fixes, text, QStringLiteral("français")));
    }

private Q_SLOTS:
    void initTestCase() { pointServicesAt(server); }
    void init() {
        server.reset();
        settings().setRewriteEngine(RewriteEngine::Apple);
        settings().setCorrectorUsesApple(true);
        settings().setPunctuation(PunctuationLevel::Normal);
    }

    void wordDiff_data() {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("after");
        QTest::addColumn<QString>("fixes");
        auto row = [](const char* name, const QString& before, const QString& after,
                      const QString& fixes) { QTest::newRow(name) << before << after << fixes; };
        row("equal", "il mange", "il mange", "");
        row("empty", "", " \n ", "");
        row("any whitespace separates", "un\ndeux  trois", "un deux\ttrois", "");
        row("canonically equal", "l'été", "l'e\u0301te\u0301", "");
        row("a point", "il mange", "il mange.", "mange > mange. (ponctuation)");
        row("a case", "bonjour", "Bonjour", "bonjour > Bonjour (orthographe)");
        row("added", "la maison", "la belle maison", "∅ > belle (orthographe)");
        row("removed", "la belle maison", "la maison", "belle > ∅ (orthographe)");
        row("neighbours make one fix", "je les est vu", "je les ai vus",
            "est vu > ai vus (orthographe)");
        row("a common word splits them", "il ont mangé les pomme", "ils ont mangé les pommes",
            "il > ils (orthographe) | pomme > pommes (orthographe)");
        row("a tie takes the added side first", "a b", "b a",
            "∅ > b (orthographe) | b > ∅ (orthographe)");
        row("comma added alone", "oui merci", "oui , merci", "∅ > , (ponctuation)");
    }
    void wordDiff() {
        QFETCH(QString, before);
        QFETCH(QString, after);
        QFETCH(QString, fixes);
        const QList<Fix> found = Analyzer::diff(before, after);
        QCOMPARE(summary(found, true), QString(fixes).replace(")", ": )"));
        if (found.size() == 2) QVERIFY(found[0].id != found[1].id);
    }

    void diffStopsAtFourMillionCells() {
        QVERIFY(Analyzer::diff(manyWords(2000), manyWords(2000, "autre")).isEmpty());
        QCOMPARE(summary(Analyzer::diff(manyWords(2000), manyWords(1999))),
                 QStringLiteral("mot48 > ∅ (orthographe)"));
        QVERIFY(!Analyzer::diff(QStringLiteral("un"), manyWords(3999, "deux")).isEmpty());
    }

    void labelsComeFromTheFindings() {
        QList<Fix> fixes = Analyzer::diff("je les est vu , Hier", "je les ai vus Hier hier");
        auto finding = [](const QString& original, const QString& kind, const QString& message) {
            return LanguageTool::Match{{}, original, {}, message, {}, kind};
        };
        Analyzer::label(fixes, {
                                   finding("je les est vu", "style", "contains it all"),
                                   finding(" Est\t", "grammaire", "one of its words"),
                                   finding("V", "typographie", "contained"),
                                   finding("est vu ,", "accord", "same words"),
                               });
        QCOMPARE(summary(fixes, true), QStringLiteral("est vu , > ai vus (accord: same words) | "
                                                      "∅ > hier (orthographe: )"));
        // One of its words (pass 2) wins over an earlier finding that holds it all (pass 3).
        fixes = Analyzer::diff("il est vu", "il ai vus");
        Analyzer::label(fixes,
                        {finding("il est vu", "style", "whole"), finding("vu", "accord", "word")});
        QCOMPARE(summary(fixes, true), QStringLiteral("est vu > ai vus (accord: word)"));
    }

    void answersOfTheModel_data() {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("fixes"); // empty: unreadable
        auto row = [](const char* name, const QString& answer, const QString& fixes) {
            QTest::newRow(name) << answer << fixes;
        };
        const QString items = R"({"items": [{"kind": "accord", "explanation": "A."},
            {"kind": "lexique", "explanation": "B."}, {"kind": null}, {"kind": "style"}]})";
        const QString applied =
            "m0 > n0 (accord: A.) | m1 > n1 (orthographe: B.) | m2 > n2 (ponctuation: )";
        row("bare", items, applied);
        row("prose and a code fence", "Voici :\n```json\n" + items + "\n```\nBonne journée !",
            applied);
        row("fewer items", R"({"items": [{"explanation": "A."}]})",
            "m0 > n0 (orthographe: A.) | m1 > n1 (orthographe: ) | m2 > n2 (ponctuation: old)");
        row("a brace after it", items + " (format {items})", "");
        row("no items", R"({"elements": []})", "");
        row("mistyped kind", R"({"items": [{"kind": 3}]})", "");
    }
    void answersOfTheModel() {
        QFETCH(QString, answer);
        QFETCH(QString, fixes);
        QList<Fix> before = unexplained(3);
        before[2] = Fix{QUuid::createUuid(), "m2", "n2", "ponctuation", "old"};
        const std::optional<QList<Fix>> out = Analyzer::applyExplanations(before, answer);
        QCOMPARE(out ? summary(*out, true) : QString(), fixes);
    }

    void explainAsksOnlyForWhatIsMissing() {
        openRouterOn(QStringLiteral("mistralai/mistral-nemo"));
        server.on(kOpenRouter,
                  chatReply(R"({"items": [{"kind": "accord", "explanation": "Première."}]})"));
        // 41 fixes without any explanation: too many, nothing is asked.
        const QList<Fix> many = unexplained(41);
        QCOMPARE(explain(many), many);
        QCOMPARE(server.count(), 0);

        // 41 fixes of which 2 lack one: a request for those 2, answered for the first.
        QList<Fix> some = many;
        for (int i = 0; i < 41; ++i)
            if (i != 7 && i != 30) some[i].explanation = QStringLiteral("déjà");
        const QList<Fix> out = explain(some, QStringLiteral("Le texte."));
        QCOMPARE(summary({out[7], out[8], out[30]}, true),
                 QStringLiteral("m7 > n7 (accord: Première.) | m8 > n8 (orthographe: déjà) | "
                                "m30 > n30 (orthographe: )"));
        const RecordedRequest r = server.last();
        QCOMPARE(server.count(), 1);
        QCOMPARE(r.json().value("model").toString(), QStringLiteral("google/gemini-2.5-flash"));
        QCOMPARE(userOf(r), QStringLiteral("Texte d'origine :\nLe texte.\n\nCorrections :\n"
                                           "1. « m7 » → « n7 »\n2. « m30 » → « n30 »"));
        QVERIFY(systemOf(r).endsWith(
            "\nRéponds uniquement en JSON : {\"items\": [{\"kind\": \"orthographe|grammaire|"
            "conjugaison|accord|ponctuation|typographie|style\", \"explanation\": \"...\"}]}"));
    }

    void explainLocallyWithASchema() {
        playLocalModel(server, chatReply(R"({"items": [{"kind": "style", "explanation": "Un."},
                                                      {"kind": "accord", "explanation": "Deux."}]})"));
        QCOMPARE(explain(unexplained(2))[1].explanation, QStringLiteral("Deux."));
        auto field = [](QJsonValue v, const QString& path) {
            for (const QString& key : path.split('.'))
                v = v.toObject().value(key);
            return v;
        };
        const QJsonValue items =
            field(server.last().json(), "response_format.json_schema.schema.properties.items");
        QCOMPARE(field(items, "minItems").toInt(), 2);
        QCOMPARE(field(items, "maxItems").toInt(), 2);
        QCOMPARE(field(items, "items.properties.kind.enum").toArray().size(), 7);

        // A failing model leaves the fixes as they were.
        server.on(kLocal, Reply::text("surchargé", 503));
        const QList<Fix> two = unexplained(2);
        QCOMPARE(explain(two), two);
    }

    void rewriteTakesOneEngineWithoutFallback() {
        openRouterOn(QStringLiteral("openai/gpt-4o-mini"));
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
        QCOMPARE(await(Analyzer::rewrite("salut", TextAction::Translate, "français", {})),
                 QStringLiteral("local"));
        QVERIFY(systemOf(server.last()).startsWith("Traduis ce texte en anglais, "));
        QVERIFY(Analyzer::rewriteInstructions(TextAction::Summary, "anglais", {})
                    .contains(QStringLiteral("l'essentiel. Écris en anglais. Garde le sens.\n")));
    }
};

QTEST_GUILESS_MAIN(TstAnalyzer)
#include "tst_analyzer.moc"
