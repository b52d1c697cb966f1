// Runs `ombry-voice --icon <folder>` as a process and checks the icon set it leaves behind.
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

class TstIcon : public QObject {
    Q_OBJECT

    struct Run {
        int code = -1;
        QStringList lines;
    };

    Run run(const QStringList& args) {
        QProcess p;
        p.start(qEnvironmentVariable("OMBRY_BINARY"), args);
        if (!p.waitForFinished(120000)) p.kill();
        return {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput())
                                  .split(QLatin1Char('\n'), Qt::SkipEmptyParts)};
    }

private Q_SLOTS:
    void writesEverySize() {
        QTemporaryDir dir;
        const QString folder = dir.filePath(QStringLiteral("set/nested"));
        const Run r = run({QStringLiteral("--icon"), folder});
        QCOMPARE(r.code, 0);
        QVERIFY2(r.lines.isEmpty(), qPrintable(r.lines.join(QLatin1Char('\n'))));

        for (int n : {16, 24, 32, 48, 64, 128, 256, 512, 1024}) {
            const QString path =
                QStringLiteral("%1/hicolor/%2x%2/apps/ombry-voice.png").arg(folder).arg(n);
            QImage image(path);
            QVERIFY2(!image.isNull(), qPrintable(path));
            QCOMPARE(image.size(), QSize(n, n));
            QVERIFY(image.hasAlphaChannel());

            // Not blank: the centre is opaque, the corners see through, and the glyph is
            // white on an accent tile, so both colours are present.
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
            QVERIFY2(white > n * n / 40,
                     qPrintable(QStringLiteral("%1 px: too little glyph").arg(n)));
            QVERIFY2(accent > n * n / 3,
                     qPrintable(QStringLiteral("%1 px: too little tile").arg(n)));
        }
    }

    void unwritableFolderSaysSo() {
        QTemporaryDir dir;
        // A plain file where a folder must go.
        const QString blocker = dir.filePath(QStringLiteral("file"));
        QFile f(blocker);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.close();
        const Run r = run({QStringLiteral("--icon"), blocker});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.lines.size(), 1);
        QVERIFY(r.lines.first().startsWith(QLatin1String("erreur: ")));
    }
};

QTEST_GUILESS_MAIN(TstIcon)
#include "tst_icon.moc"
