// `--chunktest` run over a minute of spoken French: the pauses of the file make the pieces, and
// the text keeps the spoken order although the later (shorter) pieces are answered first.
#include "SoundServer.h"
#include "SpeechServer.h"
#include "audio/AudioRecorder.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>

using namespace ombry::test;

class TstChunkerMode : public QObject {
    Q_OBJECT
    TestHttpServer server;
    SpeechServer speech;
    QTemporaryDir dir;
    QString wavPath;
    int phrases = 0;

    QString writeWav(const QString& name, const QByteArray& pcm) {
        QFile f(dir.filePath(name));
        return f.open(QIODevice::WriteOnly) && f.write(ombry::AudioRecorder::wav(pcm)) > 0
                   ? f.fileName()
                   : QString();
    }

    QStringList runChunkTest(const QString& path) {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("OMBRY_OPENROUTER_URL", server.url().toString());
        env.insert("OPENROUTER_API_KEY", "sk-or-test");
        for (const char* var : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"})
            env.insert(QLatin1String(var), dir.filePath(QLatin1String(var)));
        p.setProcessEnvironment(env);
        p.start(qEnvironmentVariable("OMBRY_BINARY"), {"--chunktest", path});
        if (!TestHttpServer::runProcess(p, 120000)) return {};
        if (p.exitStatus() != QProcess::NormalExit) qWarning() << p.readAllStandardError();
        return QString::fromUtf8(p.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    }

private Q_SLOTS:
    // Phrases of spoken French, longest first (18 words down to 7), each followed by 1.2 s of
    // silence.
    void initTestCase() {
        const QStringList words =
            QStringLiteral("bonjour à tous je voulais vous parler de la réunion de demain matin "
                           "avec toute l'équipe du projet")
                .split(' ');
        QByteArray pcm;
        for (qsizetype n = words.size(); n >= 7; --n, ++phrases) {
            const QString part = dir.filePath(QStringLiteral("part.wav"));
            QVERIFY(SoundServer::makeSpeech(words.first(n).join(' '), "fr", part));
            pcm += SoundServer::wavData(part) + silence(1.2);
        }
        wavPath = writeWav("dictation.wav", pcm);

        // Each piece is answered with its length in tenths of a second.
        speech.transcript = [](double s) {
            return chatCompletion(QStringLiteral("morceau de %1 dixièmes").arg(qRound(s * 10)));
        };
        speech.install(server);
    }

    void eachPauseMakesAPieceAndTheTextKeepsTheSpokenOrder() {
        const QStringList lines = runChunkTest(wavPath);
        QCOMPARE(lines.size(), 2);
        const QRegularExpression head(
            QStringLiteral("^morceaux: (\\d+), attente après la fin: \\d+\\.\\d\\d s$"));
        const auto m = head.match(lines[0]);
        QVERIFY2(m.hasMatch(), qPrintable(lines[0]));
        // One piece per phrase, and the silent tail after the last cut.
        QCOMPARE(m.captured(1).toInt(), phrases + 1);
        QCOMPARE(int(speech.heard.size()), phrases);

        QVERIFY2(lines[1].startsWith(QStringLiteral("texte: morceau de ")), qPrintable(lines[1]));
        QList<int> tenths;
        auto it = QRegularExpression(QStringLiteral("morceau de (\\d+) dixièmes \\(réécrit\\)"))
                      .globalMatch(lines[1]);
        while (it.hasNext())
            tenths << it.next().captured(1).toInt();
        QCOMPARE(int(tenths.size()), phrases);
        QVERIFY2(std::is_sorted(tenths.rbegin(), tenths.rend()), qPrintable(lines[1]));
        QVERIFY(tenths.first() > tenths.last());
    }

    void silenceIsOnePiece() {
        // No block above the speech level: no cut during the walk, the whole file in finish.
        const QStringList lines = runChunkTest(writeWav("quiet.wav", squareWave(5.0, 900)));
        QVERIFY2(lines.value(0).startsWith(QStringLiteral("morceaux: 1, attente après la fin: ")),
                 qPrintable(lines.join('|')));
        QCOMPARE(lines.value(1), QStringLiteral("texte: "));
    }
};

QTEST_GUILESS_MAIN(TstChunkerMode)
#include "tst_chunker_mode.moc"
