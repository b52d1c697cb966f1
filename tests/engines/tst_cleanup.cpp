// The text rules between the speech engine and the user: fast-path detection, local clean-up,
// excuse filtering, final hygiene and the rewriting prompt.
#include "engines/Cleanup.h"

#include <QTest>

using namespace ombry;

class TstCleanup : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void alreadyClean_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("clean");
        QTest::newRow("empty") << QString() << true;
        QTest::newRow("filler at start") << QStringLiteral("Euh bonjour") << false;
        QTest::newRow("marker inside a word")
            << QStringLiteral("On en parle à trois heures") << false;
        QTest::newRow("typographic apostrophe") << QStringLiteral("C’est-à-dire que oui") << false;
        QTest::newRow("decomposed accent in marker")
            << QStringLiteral("c'est-a\u0300-dire que oui") << false;
        QTest::newRow("quoi at the very end") << QStringLiteral("Il est parti quoi.") << false;
        QTest::newRow("nous nous") << QStringLiteral("Nous nous voyons") << true;
        QTest::newRow("stammer") << QStringLiteral("très très bien") << false;
        QTest::newRow("one-letter repeat") << QStringLiteral("a a a") << true;
        QTest::newRow("repeat across sentences") << QStringLiteral("Oui. Oui, bien sûr") << false;
        QTest::newRow("apostrophe inside word") << QStringLiteral("l'homme l'homme") << false;
        QTest::newRow("digits separate") << QStringLiteral("Il y a 2 2 pommes") << true;
        QTest::newRow("decomposed one-letter repeat") << QStringLiteral("e\u0301 e\u0301") << true;
        QTest::newRow("decomposed two-letter repeat")
            << QStringLiteral("e\u0301te\u0301 \u00e9t\u00e9") << false;
    }
    void alreadyClean() {
        QFETCH(QString, text);
        QFETCH(bool, clean);
        QCOMPARE(OpenRouter::alreadyClean(text), clean);
    }

    void basicCleanup_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("fillers with comma")
            << QStringLiteral("euh, je pense, ben oui") << QStringLiteral("Je pense, oui");
        QTest::newRow("filler as word start")
            << QStringLiteral("humain") << QStringLiteral("Humain");
        QTest::newRow("ben as word start")
            << QStringLiteral("benoît est là") << QStringLiteral("Benoît est là");
        QTest::newRow("repeated last letter")
            << QStringLiteral("hummm on y va") << QStringLiteral("On y va");
        QTest::newRow("filler with full stop")
            << QStringLiteral("Euhhh. Bonjour") << QStringLiteral("Bonjour");
        QTest::newRow("filler after accent")
            << QStringLiteral("déjà euh fini") << QStringLiteral("Déjà fini");
        QTest::newRow("only blanks") << QStringLiteral("   ") << QString();
        QTest::newRow("three blanks become two")
            << QStringLiteral("a   b") << QStringLiteral("A  b");
        QTest::newRow("newline kept at end")
            << QStringLiteral("\tbonjour \n") << QStringLiteral("Bonjour \n");
        QTest::newRow("longer upper case") << QStringLiteral("ßa") << QStringLiteral("SSa");
    }
    void basicCleanup() {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(OpenRouter::basicCleanup(text), expected);
    }

    void hallucination_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("excuse in the middle")
            << QStringLiteral("Bonjour. Je n'ai pas pu entendre l'audio. Au revoir.")
            << QStringLiteral("Bonjour. Au revoir.");
        QTest::newRow("whole excuse")
            << QStringLiteral("Sorry, I could not hear the recording") << QString();
        QTest::newRow("no single sentence fake") << QStringLiteral(" J'ai entendu. Aucun doute. ")
                                                 << QStringLiteral("J'ai entendu. Aucun doute.");
        QTest::newRow("not fake stays untrimmed")
            << QStringLiteral("  Bonjour à tous  ") << QStringLiteral("  Bonjour à tous  ");
        QTest::newRow("marks in a row")
            << QStringLiteral("Audio vide!!! Fin") << QStringLiteral("!! Fin");
        QTest::newRow("excuse without end mark")
            << QStringLiteral("Merci. Audio inaudible") << QStringLiteral("Merci.");
    }
    void hallucination() {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(Hallucination::clean(text), expected);
    }

    void finish_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("scope");
        QTest::addColumn<QString>("expected");
        QTest::newRow("fast path") << QStringLiteral("bonjour") << 12 << QStringLiteral("Bonjour.");
        QTest::newRow("empty scope") << QStringLiteral("bonjour") << 0 << QStringLiteral("bonjour");
        QTest::newRow("punctuation only")
            << QStringLiteral("bonjour") << 4 << QStringLiteral("bonjour.");
        QTest::newRow("closing bracket")
            << QStringLiteral("(oui)") << 12 << QStringLiteral("(oui)");
        QTest::newRow("ends with digit")
            << QStringLiteral("  été 2024  ") << 12 << QStringLiteral("Été 2024.");
        QTest::newRow("decomposed last letter")
            << QStringLiteral("cafe\u0301") << 4 << QStringLiteral("cafe\u0301.");
        QTest::newRow("blank") << QStringLiteral(" \n ") << 31 << QString();
    }
    void finish() {
        QFETCH(QString, text);
        QFETCH(int, scope);
        QFETCH(QString, expected);
        QCOMPARE(Corrector::finish(text, scope), expected);
    }

    void toneFollowsApplicationAndSetting() {
        AppSettings::shared().setAdaptTone(true);
        const QString mail = Tone::hint(QStringLiteral("com.apple.mail"));
        QVERIFY(mail.startsWith(QLatin1String("C'est un e-mail")));
        QCOMPARE(Tone::hint(QStringLiteral("org.gnome.Evolution")), mail);
        QCOMPARE(Tone::hint(QStringLiteral("thunderbird")), mail);
        QVERIFY(Tone::hint(QStringLiteral("slack")).startsWith(QLatin1String("C'est un message")));
        QVERIFY(Tone::hint(QStringLiteral("org.telegram.desktop"))
                    .startsWith(QLatin1String("C'est un message")));
        QCOMPARE(Tone::hint(QStringLiteral("com.apple.Mail")), QString()); // exact ids only
        QCOMPARE(Tone::hint(std::nullopt), QString());
        AppSettings::shared().setAdaptTone(false);
        QCOMPARE(Tone::hint(QStringLiteral("com.apple.mail")), QString());
    }

    void instructionsAssembly() {
        AppSettings::shared().setPunctuation(PunctuationLevel::Light);
        OpenRouter::setToneHint(QString());
        const QString plain = OpenRouter::instructions(QStringLiteral("français"), {});
        QVERIFY(plain.startsWith(QStringLiteral("Tu reçois la transcription brute d'une dictée "
                                                "vocale. Réécris-la proprement en français :\n")));
        // The punctuation sentence, then an empty line where the tone hint would stand.
        QVERIFY(plain.contains(punctuationSentence(PunctuationLevel::Light) +
                               QStringLiteral("\n\nGarde tous les mots")));
        QVERIFY(plain.endsWith(QLatin1String("Renvoie uniquement le texte final.")));

        OpenRouter::setToneHint(QStringLiteral("TON"));
        AppSettings::shared().setPunctuation(PunctuationLevel::Full);
        const QString withWords = OpenRouter::instructions(
            QStringLiteral("anglais"),
            {QStringLiteral(" Ombry"), QStringLiteral(" \t"), QStringLiteral("Talvo ")});
        QVERIFY(withWords.contains(punctuationSentence(PunctuationLevel::Full) +
                                   QStringLiteral("\nTON\nGarde")));
        QVERIFY(withWords.endsWith(
            QStringLiteral("final.\nOrthographe à respecter pour ces mots :  Ombry, Talvo .")));
        QCOMPARE(OpenRouter::instructions(QStringLiteral("anglais"), {QStringLiteral("  ")}),
                 OpenRouter::instructions(QStringLiteral("anglais"), {}));
        OpenRouter::setToneHint(QString());
    }
};

QTEST_GUILESS_MAIN(TstCleanup)
#include "tst_cleanup.moc"
