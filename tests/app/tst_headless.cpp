// Runs the real program as a process and reads what it prints, as a script would.
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

class TstHeadless : public QObject {
    Q_OBJECT

    QString binary() const { return qEnvironmentVariable("OMBRY_BINARY"); }

    QTemporaryDir home_;

    QStringList run(const QStringList& args, int* exitCode = nullptr) {
        QProcess p;
        // The program's settings, data and caches go to a folder of the test's own.
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char* var : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"})
            env.insert(QLatin1String(var), home_.filePath(QLatin1String(var)));
        // No display: a start without a mode says that it needs one instead of running on.
        for (const char* var : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            env.remove(QLatin1String(var));
        p.setProcessEnvironment(env);
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
        QCOMPARE(code, 1);
        QCOMPARE(lines.size(), 1);
    }

    void missingArgumentFallsBackToNormalStart() {
        int code = -1;
        const QStringList lines = run({QStringLiteral("--test")}, &code);
        QCOMPARE(code, 1);
        QCOMPARE(lines.size(), 1);
        QVERIFY(!lines.first().startsWith(QLatin1String("erreur: ")));
    }
};

QTEST_GUILESS_MAIN(TstHeadless)
#include "tst_headless.moc"
