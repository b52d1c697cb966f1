// --fasttest and --calltest run as processes against a local server playing OpenRouter, and
// their printed lines are read as a script reads them.
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"
#include "data/Settings.h"
#include "engines/Cleanup.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

const QString kChat = QStringLiteral("/api/v1/chat/completions");

struct Run {
    QStringList lines;
    int exitCode = -1;
};

} // namespace

class TstSpeechModes : public QObject {
    Q_OBJECT
    TestHttpServer server;
    QTemporaryDir home;
    QString wavPath;

    QProcessEnvironment environment(const QByteArray& key) const {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", home.path());
        env.insert("XDG_DATA_HOME", home.filePath("data"));
        env.insert("XDG_CONFIG_HOME", home.filePath("config"));
        env.insert("XDG_CACHE_HOME", home.filePath("cache"));
        env.insert("QT_QPA_PLATFORM", "offscreen");
        env.insert("OMBRY_SITE_URL", "");
        env.insert("OMBRY_OPENROUTER_URL", server.url().toString());
        env.insert("OPENROUTER_API_KEY", QString::fromUtf8(key));
        return env;
    }

    Run run(const QStringList& args, const QByteArray& key = "sk-env") {
        QProcess p;
        p.setProcessEnvironment(environment(key));
        p.start(qEnvironmentVariable("OMBRY_BINARY"), args);
        Run r;
        if (!TestHttpServer::runProcess(p, 60000)) return r;
        r.exitCode = p.exitCode();
        r.lines = QString::fromUtf8(p.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        return r;
    }

    static void writeFile(const QString& path, const QByteArray& bytes) {
        QDir().mkpath(QFileInfo(path).path());
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(bytes);
    }

    // The one printed line, checked against a pattern in which "{t}" stands for the time.
    static void expectLine(const Run& r, const QString& pattern) {
        QCOMPARE(r.exitCode, 0);
        QCOMPARE(r.lines.size(), 1);
        QString regex = QRegularExpression::escape(pattern);
        regex.replace(QStringLiteral("\\{t\\}"), QStringLiteral("\\d+\\.\\d"));
        QVERIFY2(QRegularExpression("^" + regex + "$").match(r.lines.first()).hasMatch(),
                 qPrintable(r.lines.first()));
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(home.isValid());
        QVERIFY(QFile::exists(qEnvironmentVariable("OMBRY_BINARY")));
        QByteArray pcm(16000, '\0');
        for (int i = 0; i < pcm.size(); i += 2)
            pcm[i] = char(i % 200);
        wavPath = home.filePath("phrase.wav");
        writeFile(wavPath, AudioRecorder::wav(pcm));
    }
    void init() {
        server.reset();
        QFile::remove(home.filePath("data/Ombry Voice/keys.json"));
        QFile::remove(home.filePath("config/com.quennard.ombryvoice.json"));
    }

    void fastTestPrintsRawAndClean() {
        // The punctuation setting of the user goes into the prompt.
        writeFile(home.filePath("config/com.quennard.ombryvoice.json"),
                  "{\"punctuation\":\"" + rawValue(PunctuationLevel::Light).toUtf8() + "\"}");
        server.on(kChat, chatCompletion(
                             "{\"raw\": \"euh bonjour à tous\", \"clean\": \"Bonjour à tous.\"}"));
        expectLine(run({"--fasttest", wavPath}),
                   "rapide ({t} s): raw=[euh bonjour à tous] clean=[Bonjour à tous.]");

        const RecordedRequest r = server.last();
        QCOMPARE(r.header("authorization"), QByteArray("Bearer sk-env"));
        const QString prompt =
            r.json().value("messages").toArray()[0].toObject().value("content").toString();
        QVERIFY(prompt.startsWith("Tu entends une dictée vocale en français."));
        QVERIFY(prompt.contains(punctuationSentence(PunctuationLevel::Light) + " \nGarde"));
    }

    void callTestPrintsBothLanguages() {
        // The key may come from keys.json in the data folder as well.
        writeFile(home.filePath("data/Ombry Voice/keys.json"), "{\"openRouter\":\"sk-file\"}");
        server.on(kChat, chatCompletion("{\"en\": \"Fancy a cuppa?\", \"fr\": \"Un thé ?\"}"));
        expectLine(run({"--calltest", wavPath}, ""), "appel ({t} s): Fancy a cuppa? → Un thé ?");
        QCOMPARE(server.last().header("authorization"), QByteArray("Bearer sk-file"));
        QVERIFY(server.last()
                    .json()
                    .value("messages")
                    .toArray()[0]
                    .toObject()
                    .value("content")
                    .toString()
                    .contains("comprendre : aucun\n"));
    }

    void failuresArePrintedAndExitWithZero_data() {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<bool>("fileExists");
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QString>("expected");
        QTest::newRow("no file") << "--fasttest" << false << QByteArray("k")
                                 << "erreur: impossible de lire le fichier ";
        QTest::newRow("no key") << "--calltest" << true << QByteArray()
                                << "erreur: Clé OpenRouter absente";
        QTest::newRow("refused") << "--fasttest" << true << QByteArray("k")
                                 << "erreur: Gemini : erreur 500 panne";
    }
    void failuresArePrintedAndExitWithZero() {
        QFETCH(QString, mode);
        QFETCH(bool, fileExists);
        QFETCH(QByteArray, key);
        QFETCH(QString, expected);
        server.on(kChat, Reply::text("panne", 500));
        const Run r = run({mode, fileExists ? wavPath : home.filePath("absent.wav")}, key);
        QCOMPARE(r.exitCode, 0);
        QCOMPARE(r.lines.size(), 1);
        QVERIFY2(r.lines.first().startsWith(expected), qPrintable(r.lines.first()));
        if (key.isEmpty() || !fileExists) QCOMPARE(server.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TstSpeechModes)
#include "tst_speechmodes.moc"
