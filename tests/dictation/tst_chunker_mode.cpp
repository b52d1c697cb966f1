// `--chunktest` run as a process over a minute of spoken French with pauses, against a local
// server playing the speech and rewriting models: the pauses found in the file become the
// pieces, and the text comes back in the order spoken although the later (shorter) pieces are
// answered first.
#include "SpeechServer.h"
#include "audio/AudioRecorder.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>

using namespace ombry::test;

namespace {

bool run(const QString& program, const QStringList& args) {
    QProcess p;
    p.start(program, args);
    return p.waitForFinished(60000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

} // namespace

class TstChunkerMode : public QObject {
    Q_OBJECT
    TestHttpServer server;
    SpeechServer speech;
    QTemporaryDir dir;
    QString wavPath;
    int phrases = 0;

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
    // Phrases of spoken French, longest first, each followed by 1.2 s of silence.
    void initTestCase() {
        const QStringList texts{
            "bonjour à tous je voulais vous parler de la réunion de demain matin avec toute "
            "l'équipe du projet",
            "nous devrons absolument terminer la présentation avant la fin de la semaine "
            "prochaine",
            "le rapport financier est presque prêt il manque seulement les chiffres du mois",
            "pensez à réserver la grande salle au deuxième étage pour jeudi",
            "le client a confirmé sa venue pour la démonstration de lundi",
            "merci de relire le document et de me renvoyer vos remarques",
            "je serai absent mardi après midi pour un rendez vous",
            "le nouveau stagiaire commence la semaine prochaine",
            "la machine à café du troisième est encore en panne",
            "il faudra aussi prévoir un petit déjeuner",
            "nous en reparlerons vendredi matin",
            "bonne journée à tous et à bientôt",
        };
        QList<QPair<qint64, QString>> parts; // (bytes, file)
        for (int i = 0; i < texts.size(); ++i) {
            const QString raw = dir.filePath(QStringLiteral("raw%1.wav").arg(i));
            const QString part = dir.filePath(QStringLiteral("part%1.wav").arg(i));
            QVERIFY(run("espeak-ng", {"-v", "fr", "-s", "150", texts[i], "-w", raw}));
            QVERIFY(
                run("sox", {raw, "-r", "16000", "-c", "1", "-b", "16", part, "pad", "0", "1.2"}));
            parts << qMakePair(QFileInfo(part).size(), part);
        }
        std::sort(parts.begin(), parts.end(), [](const auto& a, const auto& b) { return a > b; });
        QStringList args;
        for (const auto& p : parts)
            args << p.second;
        wavPath = dir.filePath("dictation.wav");
        QVERIFY(run("sox", args << wavPath));
        const double seconds = double(QFileInfo(wavPath).size() - 44) / 32000.0;
        QVERIFY2(seconds > 50 && seconds < 75, qPrintable(QString::number(seconds)));
        phrases = int(texts.size());

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

    void aFailedPieceSaysFailureAndSilenceIsOnePiece() {
        speech.transcript = [](double s) {
            return s < 4.0 ? Reply::json(QByteArray("{}"), 502)
                           : chatCompletion(QStringLiteral("bien reçu"));
        };
        QCOMPARE(runChunkTest(wavPath).value(1), QStringLiteral("texte: échec"));

        // No block above the speech level: no cut during the walk, the whole file in finish.
        const QString quiet = dir.filePath("quiet.wav");
        QFile f(quiet);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(ombry::AudioRecorder::wav(squareWave(5.0, 900)));
        f.close();
        const QStringList lines = runChunkTest(quiet);
        QVERIFY2(lines.value(0).startsWith(QStringLiteral("morceaux: 1, attente après la fin: ")),
                 qPrintable(lines.join('|')));
        QCOMPARE(lines.value(1), QStringLiteral("texte: "));
    }
};

QTEST_GUILESS_MAIN(TstChunkerMode)
#include "tst_chunker_mode.moc"
