// Runs `ombry-voice --icon <folder>` as a process and checks the icon set it leaves behind.
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

class TstIcon : public QObject {
    Q_OBJECT

    // The exit status and what was printed.
    std::pair<int, QString> run(const QString& folder) {
        QProcess p;
        p.start(qEnvironmentVariable("OMBRY_BINARY"), {QStringLiteral("--icon"), folder});
        if (!p.waitForFinished(120000)) p.kill();
        return {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput())};
    }

private Q_SLOTS:
    void writesEverySize() {
        QTemporaryDir dir;
        const QString folder = dir.filePath(QStringLiteral("set/nested"));
        QCOMPARE(run(folder), std::make_pair(0, QString()));

        for (int n : {16, 24, 32, 48, 64, 128, 256, 512, 1024}) {
            const QImage image(
                QStringLiteral("%1/hicolor/%2x%2/apps/ombry-voice.png").arg(folder).arg(n));
            QCOMPARE(image.size(), QSize(n, n));
            // Not blank: opaque inside, see-through corners, a white glyph on an accent tile.
            QCOMPARE(qAlpha(image.pixel(n / 2, n * 3 / 4)), 255);
            QVERIFY(qAlpha(image.pixel(0, 0)) < 32);
            int white = 0, accent = 0;
            for (int y = 0; y < n; ++y) {
                for (int x = 0; x < n; ++x) {
                    const QRgb c = image.pixel(x, y);
                    if (qAlpha(c) < 255) continue;
                    if (qRed(c) > 230 && qGreen(c) > 230 && qBlue(c) > 230)
                        ++white;
                    else if (qRed(c) < 90 && qGreen(c) > 120 && qBlue(c) > 110)
                        ++accent;
                }
            }
            QVERIFY2(white > n * n / 40 && accent > n * n / 3, qPrintable(QString::number(n)));
        }
    }

    void unwritableFolderSaysSo() {
        QTemporaryDir dir;
        const QString blocker = dir.filePath(QStringLiteral("file")); // a file, not a folder
        QFile f(blocker);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.close();
        const auto [code, out] = run(blocker);
        QCOMPARE(code, 0);
        QVERIFY(out.startsWith(QLatin1String("erreur: ")));
        QCOMPARE(out.count(QLatin1Char('\n')), 1);
    }
};

QTEST_GUILESS_MAIN(TstIcon)
#include "tst_icon.moc"
