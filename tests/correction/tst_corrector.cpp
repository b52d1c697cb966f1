// LanguageTool, the corrector and the analyzer against a server playing LanguageTool, OpenRouter
// and the local model.
#include "FakePlatform.h"
#include "ServiceReplies.h"

#include "correction/Analyzer.h"
#include "correction/Corrector.h"
#include "net/Errors.h"

#include <QTest>

using namespace ombry;
using namespace ombry::test;
using LanguageTool::Match;

Q_DECLARE_METATYPE(LanguageTool::Match)

namespace {

QString summary(const QList<Fix>& fixes) {
    QStringList out;
    for (const Fix& f : fixes)
        out << f.original + " > " + f.correction + " (" + f.kind + ": " + f.explanation + ")";
    return out.join(QStringLiteral(" | "));
}

QList<Fix> unexplained(int n) {
    QList<Fix> fixes;
    for (int i = 0; i < n; ++i)
        fixes << Fix{{}, QStringLiteral("m%1").arg(i), QStringLiteral("n%1").arg(i), "orthographe"};
    return fixes;
}

QString manyWords(int n, const QString& last = QStringLiteral("fin")) {
    return QStringLiteral("mot ").repeated(n - 1) + last;
}

} // namespace

class TstCorrector : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;

    AppSettings& settings() { return AppSettings::shared(); }
    Corrector::Detailed correct(const QString& text, const QStringList& words = {}) {
        return await(Corrector::correctDetailed(text, "français", words));
    }

private Q_SLOTS:
    void initTestCase() { pointServicesAt(server); }
    void init() {
        server.reset();
        settings().setUseLanguageTool(true);
        settings().setCorrectorUsesLocalModel(true);
        settings().setRewriteEngine(RewriteEngine::Local);
        settings().setCorrectionScope(CorrectionScope::Default);
    }

    void formBodyKeepsEveryCharacter() {
        QCOMPARE(
            LanguageTool::requestBody("1+1=2 & c'est ça ?/!", "fr"),
            QByteArray("text=1%2B1%3D2%20%26%20c'est%20%C3%A7a%20?/!&language=fr&level=picky"));
    }

    void offsetsCountUtf16UnitsAndMustFallOnCharacters() {
        // An emoji with a skin tone, a decomposed accent and a letter outside the BMP come first.
        const QString text = QStringLiteral("Salut 👋🏽 e\u0301te\u0301 𝒜 ca va a paris");
        const qsizetype wave = text.indexOf(QStringLiteral("👋"));
        server.on(kLanguageTool,
                  ltReply({
                      ltFinding(text, "ca", {"ça"}, "TYPOS"),
                      ltMatch(wave + 1, 2, {"x"}, "TYPOS"),                // in a surrogate pair
                      ltMatch(wave, 2, {"x"}, "TYPOS"),                    // leaves the skin tone
                      ltMatch(text.indexOf("e\u0301"), 1, {"é"}, "TYPOS"), // splits the accent
                      ltFinding(text, "paris", {"Paris", "pari", "paris.", "Pâris"}, "CASING"),
                      ltMatch(text.size(), 1, {"."}, "PUNCTUATION"), // past the end
                  }));
        const QList<Match> found = await(LanguageTool::check(text, "fr"));
        QCOMPARE(server.last().header("content-type"),
                 QByteArray("application/x-www-form-urlencoded"));
        QCOMPARE(found.size(), 2);
        QCOMPARE(text.mid(found[0].range.start, found[0].range.length()), QStringLiteral("ca"));
        QCOMPARE(found[1].original, QStringLiteral("paris"));
        QCOMPARE(found[1].replacements, (QStringList{"Paris", "pari", "paris."}));
        QCOMPARE(found[1].kind, QStringLiteral("typographie"));
    }

    void safeAndBestReplacements_data() {
        QTest::addColumn<Match>("match");
        QTest::addColumn<bool>("safe"); // of the first replacement
        QTest::addColumn<QString>("best");
        auto row =
            [](const char* name, const QString& original, const QString& kind,
               const QStringList& replacements, bool safe, const QString& best,
               const QString& category = {}) {
                QTest::newRow(name)
                    << Match{{0, original.size()}, original, replacements, {}, category, kind}
                    << safe << best;
            };
        row("accent", "ca", "orthographe", {"ça"}, true, "ça");
        row("decomposed accent, hyphen", "peutetre", "orthographe", {"peut-e\u0301tre"}, true,
            "peut-e\u0301tre");
        row("first letter case", "Paris", "orthographe", {"paris"}, false, "paris");
        row("short capitals", "ok", "orthographe", {"OK"}, false, QString());
        row("six capitals", "unesco", "orthographe", {"UNESCO"}, false, "UNESCO");
        row("capitals for capitals", "PARSI", "style", {"PARIS"}, false, "PARIS");
        row("homonyms", "sa", "orthographe", {"ça"}, true, "ça", "Confusions et homonymes");
        row("homonyms, capital H", "sa", "orthographe", {"ça"}, false, "ça", "Homonymes");
        row("empty first", "a", "typographie", {"", "b"}, true, QString());
        row("agreement keeps the head", "les enfant", "accord", {"le enfant", "les enfants"}, false,
            "les enfants");
        row("agreement, head not among them", "Les chat", "accord", {"le chat", "", "un chat"},
            false, "le chat");
    }
    void safeAndBestReplacements() {
        QFETCH(Match, match);
        QFETCH(bool, safe);
        QFETCH(QString, best);
        QCOMPARE(LanguageTool::isSafe(match, match.replacements.first()), safe);
        const std::optional<QString> chosen = LanguageTool::bestReplacement(match);
        QCOMPARE(chosen.has_value(), !best.isNull());
        QCOMPARE(chosen.value_or(QString()), best);
    }

    void withoutAModelTheBestProposalsAreApplied() {
        settings().setCorrectorUsesLocalModel(false);
        settings().setPunctuation(PunctuationLevel::Light);
        const QString text = QStringLiteral("ca va, les enfant ? ok je vois OMBRY bien bien");
        server.on(kLanguageTool,
                  ltReply({
                      ltFinding(text, "ca", {"ça"}, "TYPOS"),
                      ltFinding(text, "les enfant", {"le enfant", "les enfants"}, "AGREEMENT"),
                      ltFinding(text, "ok", {"OK"}, "TYPOS"),
                      ltFinding(text, "OMBRY", {"OMBRE"}, "TYPOS"),          // in the dictionary
                      ltFinding(text, "bien bien", {"bien"}, "REPETITIONS"), // style: out of scope
                      ltFinding(text, ",", {""}, "PONCTUATION_VIRGULE"),     // light punctuation
                  }));
        const Corrector::Detailed out = correct(text, {"Ombry"});
        QCOMPARE(out.text, QStringLiteral("Ça va, les enfants ? ok je vois OMBRY bien bien."));
        QCOMPARE(out.matches.size(), 3);
        QCOMPARE(server.count(), 1); // no model
    }

    void theModelGetsThePlainTextWhenNothingIsLeft() {
        // Only safe findings: applied before the model, which sees no frame.
        const QString text = QStringLiteral("ca marche");
        server.on(kLanguageTool, ltReply({ltFinding(text, "ca", {"ça"}, "TYPOS")}));
        playLocalModel(server, chatReply("ça marche"));
        QCOMPARE(correct(text).text, QStringLiteral("Ça marche."));
        QCOMPARE(userOf(server.last()), QStringLiteral("ça marche"));
        QVERIFY(!systemOf(server.last()).contains("vérificateur"));
        // No LanguageTool at all: the model gets the text as spoken.
        settings().setUseLanguageTool(false);
        server.clearRequests();
        correct(text);
        QCOMPARE(server.requests(kLanguageTool).size(), 0);
        QCOMPARE(userOf(server.last()), text);
    }

    void leftoversAreFramedForTheRemoteModel() {
        openRouterOn();
        const QString text = QStringLiteral("tkt, je les est vu hier soir");
        server.on(kLanguageTool, ltReply({
                                     ltFinding(text, "les est", {"les ai", "l'ai", "les es"},
                                               "CAT_GRAMMAIRE", "Auxiliaire avoir."),
                                     ltFinding(text, "soir", {}, "GRAMMAR", "Soir ou soirée ?"),
                                 }));
        // The model echoes the frame around its answer and shouts the slang.
        server.on(kOpenRouter,
                  chatReply("Texte à corriger :\n<<<\nTKT, je les ai vus hier soir\n>>>"));
        QCOMPARE(correct(text).text, QStringLiteral("Tkt, je les ai vus hier soir."));
        QCOMPARE(modelOf(server.last()), QStringLiteral("mistralai/mistral-nemo"));
        QVERIFY(systemOf(server.last()).contains("vérificateur"));
        // Lines run from the end of the text to its start.
        QCOMPARE(userOf(server.last()),
                 "Texte à corriger :\n<<<\n" + text +
                     "\n>>>\n\nFautes repérées :\n- « soir » : Soir ou soirée ?\n- « les est » : "
                     "Auxiliaire avoir. (propositions : les ai / l'ai / les es)");
    }

    void remoteFailureFallsBackOnTheLocalModel() {
        openRouterOn();
        server.on(kLanguageTool, Reply::text("indisponible", 503));
        server.on(kOpenRouter, Reply::text("{\"error\":\"rate\"}", 429));
        playLocalModel(server, chatReply("Bonjour à tous."));
        const Corrector::Detailed out = correct("bonjour a tous");
        QCOMPARE(out.text, QStringLiteral("Bonjour à tous."));
        QVERIFY(out.matches.isEmpty());
        const RecordedRequest remote = server.requests(kOpenRouter).first();
        QCOMPARE(userOf(server.last()), userOf(remote));
        QCOMPARE(systemOf(server.last()), systemOf(remote));
        // Without any model, the local model's failure reaches the caller.
        server.on("/v1/models", Reply::text("non", 404));
        QVERIFY_THROWS_EXCEPTION(EngineError, correct("un texte"));
    }

    void guardChanges_data() {
        QTest::addColumn<QString>("original");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("guarded");
        auto row = [](const char* name, const QString& original, const QString& answer,
                      const QString& guarded) {
            QTest::newRow(name) << original << answer << guarded;
        };
        row("slang back", "tkt on verra", "TKT on verra.", "tkt on verra.");
        row("1 and 6 letters stay", "a jsp merci enfant", "A JSP MERCI ENFANT",
            "A jsp merci ENFANT");
        row("no letter touching", "mdr", "MDRR MDR éMDR", "MDRR mdr éMDR");
        row("a capital in the original", "Jsp", "JSP", "JSP");
        row("question lost", "tu viens ?", "Tu viens.", "Tu viens ?");
        row("question invented", "tu viens", "\n Tu viens \t?\n", "Tu viens.");
        row("only points for a question", " ok ? ", "...", " ?");
    }
    void guardChanges() {
        QFETCH(QString, original);
        QFETCH(QString, answer);
        QFETCH(QString, guarded);
        QCOMPARE(Corrector::guardChanges(original, answer), guarded);
    }

    void wordDiff_data() {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("after");
        QTest::addColumn<QString>("fixes");
        auto row = [](const char* name, const QString& before, const QString& after,
                      const QString& fixes) { QTest::newRow(name) << before << after << fixes; };
        row("any whitespace separates", "un\ndeux  trois", "un deux\ttrois", "");
        row("canonically equal", "l'été", "l'e\u0301te\u0301", "");
        row("a point", "il mange", "il mange.", "mange > mange. (ponctuation: )");
        row("a case", "bonjour", "Bonjour", "bonjour > Bonjour (orthographe: )");
        row("neighbours make one fix", "je les est vu", "je les ai vus",
            "est vu > ai vus (orthographe: )");
        row("a common word splits them", "il ont mangé les pomme", "ils ont mangé les pommes",
            "il > ils (orthographe: ) | pomme > pommes (orthographe: )");
        row("a tie takes the added side first", "a b", "b a",
            "∅ > b (orthographe: ) | b > ∅ (orthographe: )");
        row("comma added alone", "oui merci", "oui , merci", "∅ > , (ponctuation: )");
    }
    void wordDiff() {
        QFETCH(QString, before);
        QFETCH(QString, after);
        QFETCH(QString, fixes);
        const QList<Fix> found = Analyzer::diff(before, after);
        QCOMPARE(summary(found), fixes);
        if (found.size() == 2) QVERIFY(found[0].id != found[1].id);
    }

    void diffStopsAtFourMillionCells() {
        QVERIFY(Analyzer::diff(manyWords(2000), manyWords(2000, "autre")).isEmpty());
        QCOMPARE(summary(Analyzer::diff(manyWords(2000), manyWords(1999))),
                 QStringLiteral("mot > ∅ (orthographe: )"));
        QVERIFY(!Analyzer::diff(QStringLiteral("un"), manyWords(3999, "deux")).isEmpty());
    }

    void answersOfTheModel_data() {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("fixes"); // empty: unreadable
        const QString items = R"({"items": [{"kind": "accord", "explanation": "A."},
            {"kind": "lexique", "explanation": "B."}, {"kind": null}, {"kind": "style"}]})";
        const QString applied =
            "m0 > n0 (accord: A.) | m1 > n1 (orthographe: B.) | m2 > n2 (ponctuation: )";
        QTest::newRow("bare") << items << applied;
        QTest::newRow("prose and a code fence")
            << "Voici :\n```json\n" + items + "\n```\nBonne journée !" << applied;
        QTest::newRow("fewer items")
            << R"({"items": [{"explanation": "A."}]})"
            << "m0 > n0 (orthographe: A.) | m1 > n1 (orthographe: ) | m2 > n2 (ponctuation: old)";
        QTest::newRow("a brace after it") << items + " (format {items})"
                                          << "";
        QTest::newRow("mistyped kind") << R"({"items": [{"kind": 3}]})"
                                       << "";
    }
    void answersOfTheModel() {
        QFETCH(QString, answer);
        QFETCH(QString, fixes);
        QList<Fix> before = unexplained(3);
        before[2] = Fix{{}, "m2", "n2", "ponctuation", "old"};
        const std::optional<QList<Fix>> out = Analyzer::applyExplanations(before, answer);
        QCOMPARE(out ? summary(*out) : QString(), fixes);
    }

    void explainAsksOnlyForWhatIsMissing() {
        openRouterOn();
        server.on(kOpenRouter,
                  chatReply(R"({"items": [{"kind": "accord", "explanation": "Première."}]})"));
        auto explain = [](const QList<Fix>& fixes) {
            return await(Analyzer::explain(fixes, "Le texte.", "français"));
        };
        // 41 fixes without any explanation: too many, nothing is asked; 40 are asked for.
        const QList<Fix> many = unexplained(41);
        QCOMPARE(explain(many), many);
        QCOMPARE(server.count(), 0);
        QCOMPARE(explain(unexplained(40))[0].kind, QStringLiteral("accord"));
        server.clearRequests();
        // 41 fixes of which 2 lack one: a request for those 2, answered for the first.
        QList<Fix> some = many;
        for (int i = 0; i < 41; ++i)
            if (i != 7 && i != 30) some[i].explanation = QStringLiteral("déjà");
        const QList<Fix> out = explain(some);
        QCOMPARE(summary({out[7], out[8], out[30]}),
                 QStringLiteral("m7 > n7 (accord: Première.) | m8 > n8 (orthographe: déjà) | "
                                "m30 > n30 (orthographe: )"));
        QCOMPARE(server.count(), 1);
        QCOMPARE(userOf(server.last()),
                 QStringLiteral("Texte d'origine :\nLe texte.\n\nCorrections :\n"
                                "1. « m7 » → « n7 »\n2. « m30 » → « n30 »"));
    }
};

QTEST_GUILESS_MAIN(TstCorrector)
#include "tst_corrector.moc"
