// --snapshot as a process: every page drawn at 1200 × 900 in both appearances, settings kept.
#include <QDir>
#include <QImage>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

namespace {

const QStringList kPages = {"dashboard", "corrector",  "translator", "meetings",
                            "history",   "dictionary", "settings"};

// The mean lightness of a part of the picture and the number of distinct colours in it.
std::pair<double, int> measure(const QImage& image, const QRect& part) {
    QSet<QRgb> colours;
    double sum = 0;
    int n = 0;
    for (int y = part.top(); y <= part.bottom(); y += 3)
        for (int x = part.left(); x <= part.right(); x += 3) {
            const QRgb c = image.pixel(x, y);
            colours.insert(c);
            sum += qGray(c);
            ++n;
        }
    return {sum / n, int(colours.size())};
}

} // namespace

class TstSnapshot : public QObject {
    Q_OBJECT

    // Runs the program with its own folders, for an onboarded user.
    QString run(const QString& theme) {
        const QString home = dir_.filePath(theme + "-on");
        QDir().mkpath(home + "/config");
        QFile f(home + "/config/com.quennard.ombryvoice.json");
        f.open(QIODevice::WriteOnly);
        f.write(R"({"onboarded": true, "settingsTab": "dictation"})");
        f.close();
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", home);
        env.insert("XDG_CONFIG_HOME", home + "/config");
        env.insert("XDG_DATA_HOME", home + "/data");
        env.insert("XDG_CACHE_HOME", home + "/cache");
        env.remove("DISPLAY");
        if (theme == QLatin1String("dark"))
            env.insert("TALVO_THEME", "dark");
        else
            env.remove("TALVO_THEME");
        p.setProcessEnvironment(env);
        const QString out = home + "/pictures";
        p.start(qEnvironmentVariable("OMBRY_BINARY"), {"--snapshot", out});
        if (!p.waitForFinished(60000)) return {};
        if (p.exitCode() != 0 || !p.readAllStandardOutput().isEmpty()) return {};
        return out;
    }

    QTemporaryDir dir_;

private Q_SLOTS:
    void everyPageInBothAppearances() {
        const QString light = run("light"), dark = run("dark");
        QVERIFY(!light.isEmpty() && !dark.isEmpty());
        for (const QString& page : kPages) {
            for (const QString& folder : {light, dark}) {
                const QImage image(folder + "/" + page + ".png");
                const QString what = folder + "/" + page;
                QCOMPARE(image.size(), QSize(1200, 900));
                const auto [lightness, colours] = measure(image, image.rect());
                // Drawn: text and symbols give many colours, in the page's header right of the
                // sidebar too; the appearances are far apart.
                QVERIFY2(measure(image, QRect(260, 10, 900, 120)).second > 10, qPrintable(what));
                QVERIFY2(colours > 40, qPrintable(what));
                QVERIFY2(folder == light ? lightness > 180 : lightness < 70,
                         qPrintable(what + " " + QString::number(lightness)));
            }
        }
        // Pages differ from one another (each its own content, not one picture seven times).
        QVERIFY(QImage(light + "/settings.png") != QImage(light + "/history.png"));
        QVERIFY(QImage(light + "/history.png") != QImage(light + "/dictionary.png"));
        // The settings file keeps what it had: pictures write nothing.
        QFile settings(dir_.filePath("light-on/config/com.quennard.ombryvoice.json"));
        QVERIFY(settings.open(QIODevice::ReadOnly));
        QVERIFY(settings.readAll().contains("\"dictation\""));
    }
};

QTEST_GUILESS_MAIN(TstSnapshot)
#include "tst_snapshot.moc"
