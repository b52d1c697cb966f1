// The text rules between the speech engine and the user: fast-path detection, local clean-up,
// excuse filtering, final hygiene and the rewriting prompt. Each table row is one edge case.
#include "engines/Cleanup.h"

#include <QTest>

using namespace ombry;

using Cases = QList<QPair<QString, QString>>;

class TstCleanup : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void alreadyClean() {
        const QStringList raw = {
            "Euh bonjour",
            "On en parle à trois heures", // a marker inside a word still counts
            "C’est-à-dire que oui",       // typographic apostrophe
            "Il est parti quoi.",
            "Oui. Oui, bien sûr",            // a stammer across sentences
            "e\u0301te\u0301 \u00e9t\u00e9", // the same word, decomposed then composed
        };
        for (const QString& text : raw)
            QVERIFY2(!OpenRouter::alreadyClean(text), qPrintable(text));
        for (const char* text : {"Nous nous voyons", "a a a", "Il y a 2 2 pommes"})
            QVERIFY2(OpenRouter::alreadyClean(text), qPrintable(text));
    }

    void basicCleanup() {
        const Cases cases = {
            {"euh, je pense, ben oui", "Je pense, oui"},
            {"humain", "Humain"}, // a filler at the start of a word stays
            {"hummm on y va", "On y va"},
            {"   ", ""},
            {"\tbonjour \n", "Bonjour \n"}, // line breaks are not blanks
            {"ßa", "SSa"},                  // an upper case longer than the letter
        };
        for (const auto& [text, expected] : cases)
            QCOMPARE(OpenRouter::basicCleanup(text), expected);
    }

    void hallucination() {
        const Cases cases = {
            {"Bonjour. Je n'ai pas pu entendre l'audio. Au revoir.", "Bonjour. Au revoir."},
            {"Sorry, I could not hear the recording", ""},
            {" J'ai entendu. Aucun doute. ", "J'ai entendu. Aucun doute."}, // no sentence alone
            {"Audio vide!!! Fin", "!! Fin"},
            {"Merci. Audio inaudible", "Merci."},                // an excuse without an end mark
            {"Oui. De\u0301sole\u0301, l'audio coupe.", "Oui."}, // decomposed accents
        };
        for (const auto& [text, expected] : cases)
            QCOMPARE(Hallucination::clean(text), expected);
    }

    void finish() {
        const QList<std::tuple<QString, int, QString>> cases = {
            {"bonjour", 12, "Bonjour."},      {"bonjour", 0, "bonjour"},
            {"bonjour", 4, "bonjour."},       {"(oui)", 12, "(oui)"},
            {"cafe\u0301", 4, "cafe\u0301."}, {" \n ", 31, ""},
        };
        for (const auto& [text, scope, expected] : cases)
            QCOMPARE(Corrector::finish(text, scope), expected);
    }

    void prompt() {
        // The tone hint stands between the punctuation sentence and the rest; blank dictionary
        // words are left out, the others go in as typed.
        OpenRouter::setToneHint(QStringLiteral("TON"));
        AppSettings::shared().setPunctuation(PunctuationLevel::Full);
        const QString prompt = OpenRouter::instructions("anglais", {" Ombry", " \t", "Talvo "});
        QVERIFY(prompt.contains(punctuationSentence(PunctuationLevel::Full) + "\nTON\nGarde"));
        QVERIFY(prompt.endsWith("final.\nOrthographe à respecter pour ces mots :  Ombry, Talvo ."));
        QVERIFY(OpenRouter::instructions("anglais", {"  "}).endsWith("le texte final."));
        OpenRouter::setToneHint(QString());
    }
};

QTEST_GUILESS_MAIN(TstCleanup)
#include "tst_cleanup.moc"
