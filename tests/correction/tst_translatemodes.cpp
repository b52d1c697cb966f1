// `--translate` and `--command` run as the real program, as a script would, against a loopback
// server playing OpenRouter and another playing the local model.
#include "ServiceReplies.h"

#include <QJsonArray>
#include <QProcess>
#include <QTest>

using ombry::test::chatReply;
using ombry::test::Reply;
using ombry::test::systemOf;
using ombry::test::TestHttpServer;

class TstTranslateModes : public QObject {
    Q_OBJECT

    TestHttpServer openRouter_;
    TestHttpServer local_;

    struct Run {
        QStringList lines;
        int exitCode = -1;
    };

    Run run(const QStringList& args, const QString& key) {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("OMBRY_OPENROUTER_URL", openRouter_.url().toString());
        env.insert("OMBRY_LOCAL_LLM_URL", local_.url().toString());
        env.insert("OPENROUTER_API_KEY", key);
        process.setProcessEnvironment(env);
        process.setProgram(qEnvironmentVariable("OMBRY_BINARY"));
        process.setArguments(args);
        Run result;
        process.start();
        if (!TestHttpServer::runProcess(process, 60000)) return result;
        result.exitCode = process.exitCode();
        result.lines = QString::fromUtf8(process.readAllStandardOutput())
                           .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        return result;
    }

private Q_SLOTS:
    void init() {
        openRouter_.reset();
        local_.reset();
        ombry::test::playLocalModel(local_, chatReply("réponse locale"));
    }

    void translateTurnsEnglishIntoFrench() {
        openRouter_.on("/api/v1/chat/completions",
                       chatReply("Je t'envoie le rapport demain matin."));
        const Run r = run({"--translate", "I will send you the report tomorrow morning before "
                                          "the meeting with the whole team."},
                          "k");
        QCOMPARE(r.exitCode, 0);
        QCOMPARE(r.lines, QStringList{"traduit: Je t'envoie le rapport demain matin."});
        QCOMPARE(openRouter_.count(), 1);
        QVERIFY(systemOf(openRouter_.last()).startsWith("Traduis ce texte en français.\n"));
        QCOMPARE(openRouter_.last().header("authorization"), QByteArray("Bearer k"));
    }

    void commandFallsBackOnLocalModel() {
        openRouter_.on("/api/v1/chat/completions", Reply::text("bad gateway", 502));
        const Run r = run({"--command", "rends-le plus poli", "donne moi ça"}, "k");
        QCOMPARE(r.exitCode, 0);
        QCOMPARE(r.lines, QStringList{"commande: réponse locale"});
        QCOMPARE(openRouter_.count(), 1);
        QCOMPARE(local_.requests("/v1/chat/completions").size(), 1);
    }

    void nothingToAnswerPrintsTheError() {
        quint16 port;
        {
            TestHttpServer closed;
            port = closed.port();
        }
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("OMBRY_OPENROUTER_URL", openRouter_.url().toString());
        env.insert("OMBRY_LOCAL_LLM_URL", QStringLiteral("http://127.0.0.1:%1").arg(port));
        process.setProcessEnvironment(env);
        process.setProgram(qEnvironmentVariable("OMBRY_BINARY"));
        process.setArguments({"--translate", "Bonjour à tous"});
        process.start();
        QVERIFY(TestHttpServer::runProcess(process, 60000));
        QCOMPARE(process.exitCode(), 0);
        QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()),
                 QStringLiteral("erreur: IA locale : erreur 0 non disponible sur cet ordinateur "
                                "(modèle local requis)\n"));
        QCOMPARE(openRouter_.count(), 0); // no key, no hosted service: nothing sent
    }
};

QTEST_GUILESS_MAIN(TstTranslateModes)
#include "tst_translatemodes.moc"
