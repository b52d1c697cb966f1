// `--correct` and `--translate` run as the real program, read line by line as a script would,
// against a loopback server playing LanguageTool, OpenRouter and the local model.
#include "ServiceReplies.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

class TstModes : public QObject {
    Q_OBJECT
    TestHttpServer server;

    // The printed lines, with every time shown as "T s", and the exit status at the end.
    QStringList run(const QStringList& args, const QString& key = {}) {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("OPENROUTER_API_KEY", key);
        p.setProcessEnvironment(env);
        p.start(qEnvironmentVariable("OMBRY_BINARY"), args);
        if (!TestHttpServer::runProcess(p, 60000)) return {"(time-out)"};
        QString out = QString::fromUtf8(p.readAllStandardOutput());
        out.replace(QRegularExpression("\\d+\\.\\d s"), "T s");
        return out.split('\n', Qt::SkipEmptyParts) << QString::number(p.exitCode());
    }

private Q_SLOTS:
    void initTestCase() {
        pointServicesAt(server);
        AppSettings::shared().setCorrectorUsesLocalModel(true);
        AppSettings::shared().setPunctuation(PunctuationLevel::Normal);
    }
    void init() { server.reset(); }

    void correctPrintsCorrectionExplanationsAndRewrite() {
        const QString text = QStringLiteral("je les est vu hier soir");
        server.on(kLanguageTool,
                  ltReply({ltFinding(text, "est", {"ai"}, "CAT_GRAMMAIRE", "Auxiliaire avoir.")}));
        playLocalModel(server, chatReply("unused"));
        server.enqueue(kLocal, chatReply("Je les ai vus hier soir."));
        server.enqueue(kLocal,
                       chatReply(R"({"items": [{"kind": "typographie", "explanation": "Majuscule."},
                                               {"kind": "ponctuation", "explanation": "Point."}]})"));
        server.enqueue(kLocal, Reply::text("surchargé", 503));
        QCOMPARE(run({"--correct", text}), (QStringList{
                                               "correction en T s",
                                               "analyse (T s): Je les ai vus hier soir.",
                                               "  [typographie] je → Je : Majuscule.",
                                               "  [grammaire] est vu → ai vus : Auxiliaire avoir.",
                                               "  [ponctuation] soir → soir. : Point.",
                                               "erreur: IA locale : erreur 503 surchargé",
                                               "0",
                                           }));
    }

    void translateTurnsEnglishIntoFrench() {
        server.on(kOpenRouter, chatReply("Je t'envoie le rapport demain matin."));
        QCOMPARE(run({"--translate", "I will send you the report tomorrow morning before the "
                                     "meeting with the whole team."},
                     "k"),
                 (QStringList{"traduit: Je t'envoie le rapport demain matin.", "0"}));
        QVERIFY(systemOf(server.last()).startsWith("Traduis ce texte en français.\n"));
        QCOMPARE(server.last().header("authorization"), QByteArray("Bearer k"));
    }
};

QTEST_GUILESS_MAIN(TstModes)
#include "tst_modes.moc"
