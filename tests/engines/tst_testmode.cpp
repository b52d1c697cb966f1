// `--test {wav}` run as the real program on synthesised English speech: offline transcription
// pinned by a grammar, whether the local model answers, and its rewrite.
#include "engines/OfflineSpeech.h"
#include "platform/Paths.h"

#include "TestHttpServer.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using ombry::test::Reply;
using ombry::test::TestHttpServer;

class TstTestMode : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    QString wav_;
    QString grammar_;

    QStringList run(const QString& wav, const QString& localUrl) {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("OMBRY_LOCAL_LLM_URL", localUrl);
        env.insert("OMBRY_POCKETSPHINX_JSGF", grammar_);
        process.setProcessEnvironment(env);
        process.start(qEnvironmentVariable("OMBRY_BINARY"), {"--test", wav});
        if (!TestHttpServer::runProcess(process, 60000)) return {"(did not finish)"};
        if (process.exitCode() != 0) return {"(exit status not 0)"};
        QString out = QString::fromUtf8(process.readAllStandardOutput());
        // Durations vary from run to run; everything else is compared as printed.
        out.replace(QRegularExpression(QStringLiteral("\\(\\d+\\.\\d s\\)")),
                    QStringLiteral("(t s)"));
        return out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    QString closedPort() {
        TestHttpServer closed;
        return closed.url().toString();
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(dir_.isValid());
        QDir(Paths::dataFolder() + "/models").removeRecursively(); // left by an earlier run
        if (QStandardPaths::findExecutable("espeak-ng").isEmpty() ||
            QStandardPaths::findExecutable("sox").isEmpty())
            QSKIP("espeak-ng and sox are needed to make speech");
        if (!OfflineSpeech::modelFor("en", QString()))
            QSKIP("the English pocketsphinx model is not installed");
        const QString raw = dir_.filePath("raw.wav");
        wav_ = dir_.filePath("speech.wav");
        QCOMPARE(QProcess::execute("espeak-ng", {"-v", "en", "-w", raw, "close the door"}), 0);
        QCOMPARE(QProcess::execute("sox", {raw, "-r", "16000", "-c", "1", "-b", "16", wav_}), 0);
        grammar_ = dir_.filePath("commands.gram");
        QFile grammar(grammar_);
        QVERIFY(grammar.open(QIODevice::WriteOnly));
        grammar.write("#JSGF V1.0;\ngrammar commands;\npublic <command> = ( open the window | "
                      "close the door | hello world );\n");
    }

    void withoutFrenchModel() {
        QCOMPARE(run(wav_, closedPort()),
                 QStringList{"erreur: Local : erreur 0 langue non disponible"});
        QCOMPARE(run(dir_.filePath("missing.wav"), closedPort()).size(), 1);
        QVERIFY(run(dir_.filePath("missing.wav"), closedPort()).first().startsWith("erreur: "));
    }

    void withModelAndLocalServer() {
        // The mode transcribes in French: a French model folder made of the English pieces.
        const QString system = QString::fromLatin1(OfflineSpeech::kSystemEnglishFolder);
        const QDir models(Paths::dataFolder() + "/models/fr");
        QVERIFY(QDir().mkpath(models.path()));
        QFile::link(system + "/en-us", models.filePath("acoustic"));
        QFile::link(system + "/cmudict-en-us.dict", models.filePath("words.dict"));
        QFile::link(system + "/en-us.lm.bin", models.filePath("words.lm.bin"));

        QCOMPARE(run(wav_, closedPort()),
                 QStringList({"transcription (t s): close the door",
                              "apple intelligence disponible: false",
                              "erreur: IA locale : erreur 0 non disponible sur cet ordinateur "
                              "(modèle local requis)"}));

        TestHttpServer local;
        local.on("/v1/models", Reply::json(QJsonObject{{"data", QJsonArray{}}}));
        local.on("/v1/chat/completions",
                 Reply::json(QJsonObject{
                     {"choices", QJsonArray{QJsonObject{
                                     {"message", QJsonObject{{"content", "Ferme la porte."}}}}}}}));
        QCOMPARE(run(wav_, local.url().toString()),
                 QStringList({"transcription (t s): close the door",
                              "apple intelligence disponible: true",
                              "reformulation (t s): Ferme la porte."}));
        const QJsonArray messages =
            local.requests("/v1/chat/completions").last().json().value("messages").toArray();
        QVERIFY(messages[0].toObject().value("content").toString().startsWith(
            "Tu reçois la transcription brute d'une dictée vocale. Réécris-la proprement en "
            "français :\n"));
        QCOMPARE(messages[1].toObject().value("content").toString(),
                 QStringLiteral("close the door"));
    }
};

QTEST_GUILESS_MAIN(TstTestMode)
#include "tst_testmode.moc"
