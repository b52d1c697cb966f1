// `ombry-voice --correct` run as a process against a local server playing LanguageTool and the
// local model, read line by line as a script would.
#include "ServiceReplies.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

class TstCorrectMode : public QObject {
    Q_OBJECT
    TestHttpServer server;

    // The printed lines, with every time shown as "T s", and the exit status at the end.
    QStringList correct(const QString& text) {
        QProcess p;
        p.start(qEnvironmentVariable("OMBRY_BINARY"), {"--correct", text});
        if (!TestHttpServer::runProcess(p, 60000)) return {"(time-out)"};
        QString out = QString::fromUtf8(p.readAllStandardOutput());
        out.replace(QRegularExpression("\\d+\\.\\d s"), "T s");
        return out.split('\n', Qt::SkipEmptyParts) << QString::number(p.exitCode());
    }

private Q_SLOTS:
    void initTestCase() {
        pointServicesAt(server);
        // The local model reviews corrections; no remote road is open.
        AppSettings::shared().setCorrectorUsesApple(true);
        AppSettings::shared().setPunctuation(PunctuationLevel::Normal);
    }
    void init() { server.reset(); }

    void printsCorrectionExplanationsAndRewrite() {
        const QString text = QStringLiteral("je les est vu hier soir");
        server.on(kLanguageTool,
                  ltReply({ltFinding(text, "est", {"ai"}, "CAT_GRAMMAIRE", "Auxiliaire avoir.")}));
        playLocalModel(server, chatReply("unused"));
        server.enqueue(kLocal, chatReply("Je les ai vus hier soir."));
        server.enqueue(kLocal,
                       chatReply(R"({"items": [{"kind": "typographie", "explanation": "Majuscule."},
                                                       {"kind": "ponctuation", "explanation": "Point."}]})"));
        server.enqueue(kLocal, chatReply("Je les ai vus hier soir, Madame."));
        QCOMPARE(correct(text), (QStringList{
                                    "correction en T s",
                                    "analyse (T s): Je les ai vus hier soir.",
                                    "  [typographie] je → Je : Majuscule.",
                                    "  [grammaire] est vu → ai vus : Auxiliaire avoir.",
                                    "  [ponctuation] soir → soir. : Point.",
                                    "formel: Je les ai vus hier soir, Madame.",
                                    "0",
                                }));
        // The explanation asked only for the two changes that the finding left unexplained.
        const QList<RecordedRequest> chats = server.requests(kLocal);
        QVERIFY(userOf(chats[1]).contains(
            "Corrections :\n1. « je » → « Je »\n2. « soir » → « soir. »"));
        QVERIFY(systemOf(chats[2]).startsWith("Réécris ce texte dans un registre plus formel"));
    }

    void failuresArePrintedAndExitWithZero() {
        // No model anywhere: the correction itself fails, and nothing else is printed.
        server.on(kLanguageTool, Reply::text("", 500));
        QCOMPARE(correct("un texte"),
                 (QStringList{"erreur: IA locale : erreur 0 non disponible sur "
                              "cet ordinateur (modèle local requis)",
                              "0"}));
        // The correction works; the explanation and the rewrite do not.
        playLocalModel(server, Reply::text("surchargé", 503));
        server.enqueue(kLocal, chatReply("Un texte."));
        QCOMPARE(correct("un texte"),
                 (QStringList{"correction en T s", "analyse (T s): Un texte.",
                              "  [orthographe] un texte → Un texte. : ",
                              "erreur: IA locale : erreur 503 surchargé", "0"}));
    }
};

QTEST_GUILESS_MAIN(TstCorrectMode)
#include "tst_correctmode.moc"
