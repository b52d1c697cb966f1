// LanguageTool: the request on the wire, the decoding of its answer against the text that was
// sent, and the rules that decide what happens to each finding.
#include "FakePlatform.h"
#include "ServiceReplies.h"
#include "TestHttpServer.h"

#include "correction/LanguageTool.h"
#include "engines/client/Errors.h"

#include <QCoroTask>
#include <QTest>

using namespace ombry;
using namespace ombry::test;
using LanguageTool::Match;

Q_DECLARE_METATYPE(LanguageTool::Match)

namespace {

Match finding(const QString& original, const QString& kind, const QStringList& replacements,
              const QString& category = {}) {
    return Match{{0, original.size()}, original, replacements, {}, category, kind};
}

QList<Match> decodeOne(const QJsonObject& match, const QString& text) {
    return LanguageTool::decode(QJsonDocument(QJsonObject{{"matches", QJsonArray{match}}}).toJson(),
                                text);
}

} // namespace

class TstLanguageTool : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;

private Q_SLOTS:
    void initTestCase() { qputenv("OMBRY_LANGUAGETOOL_URL", server.url().toString().toUtf8()); }
    void init() { server.reset(); }

    void formBodyKeepsEveryCharacter() {
        QCOMPARE(
            LanguageTool::requestBody(QStringLiteral("1+1=2 & c'est ça ?/!"), "fr"),
            QByteArray("text=1%2B1%3D2%20%26%20c'est%20%C3%A7a%20?/!&language=fr&level=picky"));

        const QString text = QStringLiteral("a+b = c & d%20 + « é »\nligne 2 👍🏽");
        server.on(kLanguageTool, ltReply({}));
        QVERIFY(await(LanguageTool::check(text, "auto")).isEmpty());
        const RecordedRequest r = server.last();
        QCOMPARE(r.method, QByteArray("POST"));
        QCOMPARE(r.header("content-type"), QByteArray("application/x-www-form-urlencoded"));
        QVERIFY(!r.body.contains('+'));
        QCOMPARE(r.form().size(), 3);
        QCOMPARE(r.formValue("text"), text);
        QCOMPARE(r.formValue("language"), QStringLiteral("auto"));
        QCOMPARE(r.formValue("level"), QStringLiteral("picky"));
    }

    void offsetsCountUtf16UnitsAndMustFallOnCharacters() {
        // Emoji with a skin tone (4 units), a decomposed accent (2 units, one character) and a
        // letter outside the BMP (2 units) stand before the findings.
        const QString text = QStringLiteral("Salut 👋🏽 e\u0301te\u0301 𝒜 ca va a paris");
        const qsizetype wave = text.indexOf(QStringLiteral("👋"));
        const qsizetype accent = text.indexOf(QStringLiteral("e\u0301"));
        const qsizetype script = text.indexOf(QStringLiteral("𝒜"));
        server.on(kLanguageTool,
                  ltReply({
                      ltFinding(text, "ca", {"ça"}, "TYPOS", "Un accent manque."),
                      ltMatch(wave + 1, 2, {"x"}, "TYPOS"), // inside the surrogate pair
                      ltMatch(wave, 2, {"x"}, "TYPOS"),     // leaves the skin tone behind
                      ltMatch(accent, 1, {"é"}, "TYPOS"),   // splits e from its accent
                      ltMatch(script, 1, {"A"}, "TYPOS"),   // half of 𝒜
                      ltFinding(text, "paris", {"Paris", "pari", "paris.", "Pâris", "PARIS"},
                                "CASING", "Majuscule.", "Majuscules"),
                      ltMatch(text.size(), 1, {"."}, "PUNCTUATION"), // past the end
                      ltMatch(text.size(), 0, {"."}, "PUNCTUATION"), // at the very end
                  }));
        const QList<Match> found = await(LanguageTool::check(text, "fr"));
        QCOMPARE(found.size(), 3);
        QCOMPARE(found[0].original, QStringLiteral("ca"));
        QCOMPARE(text.mid(found[0].range.start, found[0].range.length()), QStringLiteral("ca"));
        QCOMPARE(found[0].message, QStringLiteral("Un accent manque."));
        QCOMPARE(found[0].kind, QStringLiteral("orthographe"));
        QCOMPARE(found[1].original, QStringLiteral("paris"));
        QCOMPARE(found[1].replacements, (QStringList{"Paris", "pari", "paris."}));
        QCOMPARE(found[1].category, QStringLiteral("Majuscules"));
        QCOMPARE(found[1].kind, QStringLiteral("typographie"));
        QCOMPARE(found[2].range, (LanguageTool::Range{text.size(), text.size()}));
    }

    void failuresOfTheService() {
        server.on(kLanguageTool, Reply::text("quota dépassé", 429));
        try {
            await(LanguageTool::check("un texte", "fr"));
            QFAIL("a refusal must throw");
        } catch (const EngineError& e) {
            QCOMPARE(e.description(), QStringLiteral("LanguageTool : erreur 429 quota dépassé"));
        }
        server.on(kLanguageTool, Reply::json(QByteArray("{\"matches\": 3}")));
        QVERIFY_THROWS_EXCEPTION(DecodeError, await(LanguageTool::check("un", "fr")));
    }

    void everyRequiredKeyIsRequired_data() {
        QTest::addColumn<QString>("key");
        for (const char* key : {"offset", "length", "message", "replacements", "rule"})
            QTest::newRow(key) << QString::fromLatin1(key);
    }
    void everyRequiredKeyIsRequired() {
        QFETCH(QString, key);
        QJsonObject m = ltMatch(0, 2, {"a"}, "TYPOS");
        QCOMPARE(decodeOne(m, "ab").size(), 1);
        m.remove(key);
        QVERIFY_THROWS_EXCEPTION(DecodeError, decodeOne(m, "ab"));
        // Also inside nested objects, and also for a finding whose offsets are unusable.
        QJsonObject far = ltMatch(99, 2, {"a"}, "TYPOS");
        far.insert("replacements", QJsonArray{QJsonObject{{"valeur", "a"}}});
        QVERIFY_THROWS_EXCEPTION(DecodeError, decodeOne(far, "ab"));
        QJsonObject nameless = ltMatch(0, 2, {"a"}, "TYPOS");
        nameless.insert("rule", QJsonObject{{"category", QJsonObject{{"id", "TYPOS"}}}});
        QVERIFY_THROWS_EXCEPTION(DecodeError, decodeOne(nameless, "ab"));
    }

    void kinds_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("kind");
        QTest::newRow("homonyms") << "CAT_HOMONYMES_PARONYMES"
                                  << "orthographe";
        QTest::newRow("agreement") << "CONCORDANCES"
                                   << "accord";
        QTest::newRow("grammar") << "CAT_GRAMMAIRE"
                                 << "grammaire";
        QTest::newRow("comma") << "PONCTUATION_VIRGULE"
                               << "ponctuation";
        QTest::newRow("casing") << "CASING"
                                << "typographie";
        QTest::newRow("unknown") << "REDUNDANCY"
                                 << "style";
        QTest::newRow("case matters") << "typos"
                                      << "style";
    }
    void kinds() {
        QFETCH(QString, id);
        QFETCH(QString, kind);
        QCOMPARE(LanguageTool::kind(id), kind);
    }

    void scopeAndPunctuationLevel() {
        const Match comma = finding(",", "ponctuation", {","});
        const int all = CorrectionScope::Default | CorrectionScope::Style;
        QVERIFY(!LanguageTool::allowed(comma, all, PunctuationLevel::Light));
        QVERIFY(LanguageTool::allowed(comma, all, PunctuationLevel::Normal));
        QVERIFY(!LanguageTool::allowed(comma, all & ~CorrectionScope::Punctuation,
                                       PunctuationLevel::Full));
        QVERIFY(LanguageTool::allowed(finding("a", "accord", {}), CorrectionScope::Grammar,
                                      PunctuationLevel::Light));
        QVERIFY(!LanguageTool::allowed(finding("a", "style", {}), CorrectionScope::Default,
                                       PunctuationLevel::Full));
        QVERIFY(LanguageTool::allowed(finding("a", "nouveau", {}), 0, PunctuationLevel::Light));
    }

    void safeReplacements_data() {
        QTest::addColumn<Match>("match");
        QTest::addColumn<QString>("replacement");
        QTest::addColumn<bool>("safe");
        QTest::newRow("accent only") << finding("ca", "orthographe", {}) << "ça" << true;
        QTest::newRow("decomposed accent")
            << finding("ete", "orthographe", {}) << QStringLiteral("e\u0301te\u0301") << true;
        QTest::newRow("inner hyphen")
            << finding("peutetre", "orthographe", {}) << "peut-être" << true;
        QTest::newRow("first letter case")
            << finding("Paris", "orthographe", {}) << "paris" << false;
        QTest::newRow("all capitals") << finding("ok", "orthographe", {}) << "OK" << false;
        QTest::newRow("digits only") << finding("1er", "orthographe", {}) << "1" << false;
        QTest::newRow("letters change") << finding("chein", "orthographe", {}) << "chien" << false;
        QTest::newRow("typography, anything") << finding("a", "typographie", {}) << "ZZZ" << true;
        QTest::newRow("homonyms by name")
            << finding("a", "orthographe", {}, "Homonymes") << "à" << true;
        QTest::newRow("homonyms, capital H")
            << finding("sa", "orthographe", {}, "Homonymes") << "ça" << false;
        QTest::newRow("homonyms category")
            << finding("sa", "orthographe", {}, "Confusions et homonymes") << "ça" << true;
        QTest::newRow("grammar never") << finding("ca", "grammaire", {}) << "ça" << false;
    }
    void safeReplacements() {
        QFETCH(Match, match);
        QFETCH(QString, replacement);
        QFETCH(bool, safe);
        QCOMPARE(LanguageTool::isSafe(match, replacement), safe);
    }

    void bestReplacements_data() {
        QTest::addColumn<Match>("match");
        QTest::addColumn<QString>("best"); // null: none
        QTest::newRow("short acronym refused") << finding("ok", "orthographe", {"OK"}) << QString();
        QTest::newRow("long capitals given")
            << finding("unesco", "orthographe", {"UNESCOS"}) << "UNESCOS";
        QTest::newRow("capitals for capitals") << finding("SNCf", "style", {"SNCF"}) << QString();
        QTest::newRow("capitals for capitals") << finding("PARSI", "style", {"PARIS"}) << "PARIS";
        QTest::newRow("empty first") << finding("a", "style", {"", "b"}) << QString();
        QTest::newRow("agreement keeps the head")
            << finding("les enfant", "accord", {"le enfant", "les enfants"}) << "les enfants";
        QTest::newRow("agreement head only in the first three")
            << finding("Les chat", "accord", {"le chat", "la chat", "un chat"}) << "le chat";
        QTest::newRow("agreement skips empty proposals")
            << finding("des pomme", "accord", {"de pomme", "", "Des pommes"}) << "Des pommes";
        QTest::newRow("agreement without a word falls to the rule of capitals")
            << finding("  ", "accord", {"ET"}) << "ET"; // blanks read as all capitals
    }
    void bestReplacements() {
        QFETCH(Match, match);
        QFETCH(QString, best);
        QCOMPARE(LanguageTool::bestReplacement(match).value_or(QString()), best);
        QCOMPARE(LanguageTool::bestReplacement(match).has_value(), !best.isNull());
    }

    void applicationRunsFromTheEndAndKeepsTheServiceOrder() {
        const QString text = QStringLiteral("le chein et le chat");
        QList<Match> found = {
            Match{{3, 8}, "chein", {"chien"}, "a", {}, "orthographe"},
            Match{{15, 19}, "chat", {"chats"}, "b", {}, "accord"},
            Match{{3, 8}, "chein", {"chiens"}, "c", {}, "orthographe"},
        };
        QStringList order;
        QString out = text;
        for (const Match& m : LanguageTool::applicationOrder(found)) {
            order << m.message;
            out = LanguageTool::apply(out, m.range, m.replacements.first());
        }
        QCOMPARE(order, (QStringList{"b", "a", "c"}));
        QCOMPARE(LanguageTool::apply(text, {15, 19}, "chats"),
                 QStringLiteral("le chein et le chats"));
    }
};

QTEST_GUILESS_MAIN(TstLanguageTool)
#include "tst_languagetool.moc"
