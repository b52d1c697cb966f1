// Runs the real program as a process and reads what it prints, as a script would.
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

class TstHeadless : public QObject {
    Q_OBJECT

    QString binary() const { return qEnvironmentVariable("OMBRY_BINARY"); }

    QStringList run(const QStringList& args, int* exitCode = nullptr) {
        QProcess p;
        p.start(binary(), args);
        if (!p.waitForFinished(120000)) p.kill();
        if (exitCode) *exitCode = p.exitCode();
        const QString out = QString::fromUtf8(p.readAllStandardOutput());
        return out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

private Q_SLOTS:
    void normalStartSaysSoAndExits() {
        int code = -1;
        const QStringList lines = run({}, &code);
        QCOMPARE(code, 0);
        QCOMPARE(lines.size(), 1);
    }

    void missingArgumentFallsBackToNormalStart() {
        int code = -1;
        const QStringList lines = run({QStringLiteral("--test")}, &code);
        QCOMPARE(code, 0);
        QCOMPARE(lines.size(), 1);
        QVERIFY(!lines.first().startsWith(QLatin1String("erreur: ")));
    }
};

QTEST_GUILESS_MAIN(TstHeadless)
#include "tst_headless.moc"
