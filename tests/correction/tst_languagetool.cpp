// LanguageTool: the request on the wire, the decoding of its answer against the text that was
// sent, and the rules that decide what happens to each finding.
#include "FakePlatform.h"
#include "ServiceReplies.h"

#include "correction/LanguageTool.h"
#include "engines/client/Errors.h"

#include <QTest>

using namespace ombry;
using namespace ombry::test;
using LanguageTool::Match;

Q_DECLARE_METATYPE(LanguageTool::Match)

class TstLanguageTool : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;

    QList<Match> check(const QString& text) { return await(LanguageTool::check(text, "fr")); }

private Q_SLOTS:
    void initTestCase() { qputenv("OMBRY_LANGUAGETOOL_URL", server.url().toString().toUtf8()); }
    void init() { server.reset(); }

    void formBodyKeepsEveryCharacter() {
        QCOMPARE(
            LanguageTool::requestBody("1+1=2 & c'est ça ?/!", "fr"),
            QByteArray("text=1%2B1%3D2%20%26%20c'est%20%C3%A7a%20?/!&language=fr&level=picky"));
        const QString text = QStringLiteral("a+b = c & d%20 + « é »\nligne 2 👍🏽");
        server.on(kLanguageTool, ltReply({}));
        QVERIFY(check(text).isEmpty());
        const RecordedRequest r = server.last();
        QCOMPARE(r.header("content-type"), QByteArray("application/x-www-form-urlencoded"));
        QCOMPARE(r.form(), (QList<QPair<QString, QString>>{
                               {"text", text}, {"language", "fr"}, {"level", "picky"}}));
    }

    void offsetsCountUtf16UnitsAndMustFallOnCharacters() {
        // An emoji with a skin tone, a decomposed accent and a letter outside the BMP come first.
        const QString text = QStringLiteral("Salut 👋🏽 e\u0301te\u0301 𝒜 ca va a paris");
        const qsizetype wave = text.indexOf(QStringLiteral("👋"));
        const qsizetype accent = text.indexOf(QStringLiteral("e\u0301"));
        server.on(kLanguageTool,
                  ltReply({
                      ltFinding(text, "ca", {"ça"}, "TYPOS", "Un accent manque."),
                      ltMatch(wave + 1, 2, {"x"}, "TYPOS"), // inside the surrogate pair
                      ltMatch(wave, 2, {"x"}, "TYPOS"),     // leaves the skin tone behind
                      ltMatch(accent, 1, {"é"}, "TYPOS"),   // splits e from its accent
                      ltFinding(text, "paris", {"Paris", "pari", "paris.", "Pâris"}, "CASING",
                                "Majuscule.", "Majuscules"),
                      ltMatch(text.size(), 1, {"."}, "PUNCTUATION"), // past the end
                  }));
        const QList<Match> found = check(text);
        QCOMPARE(found.size(), 2);
        QCOMPARE(found[0].original, QStringLiteral("ca"));
        QCOMPARE(text.mid(found[0].range.start, found[0].range.length()), QStringLiteral("ca"));
        QCOMPARE(found[0].message, QStringLiteral("Un accent manque."));
        QCOMPARE(found[0].kind, QStringLiteral("orthographe"));
        QCOMPARE(found[1].original, QStringLiteral("paris"));
        QCOMPARE(found[1].replacements, (QStringList{"Paris", "pari", "paris."}));
        QCOMPARE(found[1].category, QStringLiteral("Majuscules"));
        QCOMPARE(found[1].kind, QStringLiteral("typographie"));
    }

    void failures() {
        server.on(kLanguageTool, Reply::text("quota dépassé", 429));
        try {
            check("un texte");
            QFAIL("a refusal must throw");
        } catch (const EngineError& e) {
            QCOMPARE(e.description(), QStringLiteral("LanguageTool : erreur 429 quota dépassé"));
        }
        // Every element must decode, also one whose offsets are unusable.
        QJsonObject nameless = ltMatch(99, 2, {"a"}, "TYPOS");
        nameless.insert("rule", QJsonObject{{"category", QJsonObject{{"id", "TYPOS"}}}});
        server.on(kLanguageTool, ltReply({nameless}));
        QVERIFY_THROWS_EXCEPTION(DecodeError, check("ab"));
        server.on(kLanguageTool, Reply::json(QByteArray("{\"matches\": [{\"offset\": 0}]}")));
        QVERIFY_THROWS_EXCEPTION(DecodeError, check("ab"));
    }

    void whatTheSettingsWant() {
        const Match comma{{}, ",", {","}, {}, {}, LanguageTool::kind("PONCTUATION_VIRGULE")};
        const int all = CorrectionScope::Default | CorrectionScope::Style;
        QVERIFY(!LanguageTool::allowed(comma, all, PunctuationLevel::Light));
        QVERIFY(LanguageTool::allowed(comma, all, PunctuationLevel::Normal));
        const Match other{{}, "a", {}, {}, {}, LanguageTool::kind("typos")}; // ids are exact
        QCOMPARE(other.kind, QStringLiteral("style"));
        QVERIFY(!LanguageTool::allowed(other, CorrectionScope::Default, PunctuationLevel::Full));
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
        row("long capitals", "unesco", "orthographe", {"UNESCOS"}, false, "UNESCOS");
        row("capitals for capitals", "PARSI", "style", {"PARIS"}, false, "PARIS");
        row("digits only", "1er", "orthographe", {"1"}, false, QString());
        row("letters change", "chein", "orthographe", {"chien"}, false, "chien");
        row("typography, anything", "a", "typographie", {"A"}, true, QString());
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
        const Match& m = match;
        QCOMPARE(LanguageTool::isSafe(m, m.replacements.first()), safe);
        QCOMPARE(LanguageTool::bestReplacement(m).value_or(QString()), best);
        QCOMPARE(LanguageTool::bestReplacement(m).has_value(), !best.isNull());
    }
};

QTEST_GUILESS_MAIN(TstLanguageTool)
#include "tst_languagetool.moc"
