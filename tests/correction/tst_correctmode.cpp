// `ombry-voice --correct` run as a process against a local server playing LanguageTool and the
// local model, read line by line as a script would.
#include "ServiceReplies.h"
#include "TestHttpServer.h"

#include "data/Settings.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

class TstCorrectMode : public QObject {
    Q_OBJECT
    TestHttpServer server;

    QStringList correct(const QString& text, int* exitCode) {
        QProcess p;
        p.start(qEnvironmentVariable("OMBRY_BINARY"), {QStringLiteral("--correct"), text});
        if (!TestHttpServer::runProcess(p, 60000)) return {QStringLiteral("(time-out)")};
        *exitCode = p.exitCode();
        return QString::fromUtf8(p.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    }

    static QString untimed(QString line) {
        static const QRegularExpression seconds(QStringLiteral("\\d+\\.\\d s"));
        return line.replace(seconds, QStringLiteral("T s"));
    }

private Q_SLOTS:
    void initTestCase() {
        const QByteArray url = server.url().toString().toUtf8();
        qputenv("OMBRY_LANGUAGETOOL_URL", url);
        qputenv("OMBRY_LOCAL_LLM_URL", url);
        qputenv("OMBRY_OPENROUTER_URL", url);
        // The local model reviews corrections; no remote road is open.
        AppSettings::shared().setCorrectorUsesApple(true);
        AppSettings::shared().setRewriteEngine(RewriteEngine::Apple);
        AppSettings::shared().setPunctuation(PunctuationLevel::Normal);
    }
    void init() { server.reset(); }

    void printsCorrectionExplanationsAndRewrite() {
        const QString text = QStringLiteral("je les est vu hier soir");
        server.on(kLanguageTool,
                  ltReply({ltFinding(text, "est", {"ai"}, "CAT_GRAMMAIRE", "Auxiliaire avoir.")}));
        playLocalModel(server, chatReply("unused"));
        server.enqueue(kLocal, chatReply(QStringLiteral("Je les ai vus hier soir.")));
        server.enqueue(kLocal,
                       chatReply(QStringLiteral(
                           R"({"items": [{"kind": "typographie", "explanation": "Majuscule."},
                                      {"kind": "ponctuation", "explanation": "Point final."}]})")));
        server.enqueue(kLocal, chatReply(QStringLiteral("Je les ai vus hier soir, Madame.")));

        int code = -1;
        const QStringList lines = correct(text, &code);
        QCOMPARE(code, 0);
        QStringList shown;
        for (const QString& l : lines)
            shown << untimed(l);
        QCOMPARE(shown, (QStringList{
                            "correction en T s",
                            "analyse (T s): Je les ai vus hier soir.",
                            "  [typographie] je → Je : Majuscule.",
                            "  [grammaire] est vu → ai vus : Auxiliaire avoir.",
                            "  [ponctuation] soir → soir. : Point final.",
                            "formel: Je les ai vus hier soir, Madame.",
                        }));
        // The explanation asked only for the two changes that the finding left unexplained.
        const QList<RecordedRequest> chats = server.requests(kLocal);
        QCOMPARE(chats.size(), 3);
        QVERIFY(userOf(chats[1]).contains(
            QStringLiteral("Corrections :\n1. « je » → « Je »\n2. « soir » → « soir. »")));
        QVERIFY(systemOf(chats[2]).startsWith(
            QStringLiteral("Réécris ce texte dans un registre plus formel et professionnel")));
    }

    void failuresArePrintedAndExitWithZero() {
        // No model anywhere: the correction itself fails, and nothing else is printed.
        server.on(kLanguageTool, Reply::text("", 500));
        int code = -1;
        QCOMPARE(correct(QStringLiteral("un texte"), &code),
                 (QStringList{"erreur: IA locale : erreur 0 non disponible sur cet ordinateur "
                              "(modèle local requis)"}));
        QCOMPARE(code, 0);

        // The correction works, the explanation and the rewrite do not.
        playLocalModel(server, Reply::text("surchargé", 503));
        server.enqueue(kLocal, chatReply(QStringLiteral("Un texte.")));
        const QStringList lines = correct(QStringLiteral("un texte"), &code);
        QCOMPARE(code, 0);
        QCOMPARE(lines.size(), 4);
        QCOMPARE(untimed(lines[1]), QStringLiteral("analyse (T s): Un texte."));
        QCOMPARE(lines[2], QStringLiteral("  [orthographe] un texte → Un texte. : "));
        QCOMPARE(lines[3], QStringLiteral("erreur: IA locale : erreur 503 surchargé"));
    }
};

QTEST_GUILESS_MAIN(TstCorrectMode)
#include "tst_correctmode.moc"
