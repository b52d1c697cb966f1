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

    // The printed lines, or a note when the run did not end with status 0.
    QStringList run(const QStringList& args, const QString& key, const QString& localUrl = {}) {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("OMBRY_OPENROUTER_URL", openRouter_.url().toString());
        env.insert("OMBRY_LOCAL_LLM_URL", localUrl.isEmpty() ? local_.url().toString() : localUrl);
        env.insert("OPENROUTER_API_KEY", key);
        process.setProcessEnvironment(env);
        process.start(qEnvironmentVariable("OMBRY_BINARY"), args);
        if (!TestHttpServer::runProcess(process, 60000)) return {"(did not finish)"};
        if (process.exitCode() != 0) return {"(exit status not 0)"};
        return QString::fromUtf8(process.readAllStandardOutput())
            .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
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
        QCOMPARE(run({"--translate", "I will send you the report tomorrow morning before the "
                                     "meeting with the whole team."},
                     "k"),
                 QStringList{"traduit: Je t'envoie le rapport demain matin."});
        QCOMPARE(openRouter_.count(), 1);
        QVERIFY(systemOf(openRouter_.last()).startsWith("Traduis ce texte en français.\n"));
        QCOMPARE(openRouter_.last().header("authorization"), QByteArray("Bearer k"));
    }

    void commandFallsBackOnLocalModel() {
        openRouter_.on("/api/v1/chat/completions", Reply::text("bad gateway", 502));
        QCOMPARE(run({"--command", "rends-le plus poli", "donne moi ça"}, "k"),
                 QStringList{"commande: réponse locale"});
        QCOMPARE(openRouter_.count(), 1);
        QCOMPARE(local_.requests("/v1/chat/completions").size(), 1);
    }

    void nothingToAnswerPrintsTheError() {
        const QString closed = [] { return TestHttpServer().url().toString(); }();
        QCOMPARE(run({"--translate", "Bonjour à tous"}, QString(), closed),
                 QStringList{"erreur: IA locale : erreur 0 non disponible sur cet ordinateur "
                             "(modèle local requis)"});
        QCOMPARE(openRouter_.count(), 0); // no key, no hosted service: nothing sent
    }
};

QTEST_GUILESS_MAIN(TstTranslateModes)
#include "tst_translatemodes.moc"
