// The real program run as a script runs it, with awkward inputs and answers: each run ends at
// once with its lines, failures as one "erreur: " line.
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"

#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace ombry;
using namespace ombry::test;

class TstModeInputs : public QObject {
    Q_OBJECT
    TestHttpServer server;
    QTemporaryDir home;
    const QString chat = QStringLiteral("/api/v1/chat/completions");

    // What a run printed, line by line, and its exit code; "(failed)" when it did not end
    // normally within 20 s, or with another code than `expectedCode`. No display: a start
    // without a mode says that it needs one instead of running on.
    QStringList run(const QString& program, const QStringList& args, int expectedCode = 0) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_DATA_HOME", home.filePath("data"));
        env.insert("XDG_CONFIG_HOME", home.filePath("config"));
        env.insert("XDG_CACHE_HOME", home.filePath("cache"));
        env.insert("OMBRY_OPENROUTER_URL", server.url().toString());
        env.insert("OPENROUTER_API_KEY", "sk-or-test");
        for (const char* var : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            env.remove(QLatin1String(var));
        QProcess p;
        p.setProcessEnvironment(env);
        p.setWorkingDirectory(home.path());
        p.start(program, args);
        if (!TestHttpServer::runProcess(p, 20000) || p.exitStatus() != QProcess::NormalExit ||
            p.exitCode() != expectedCode)
            return {"(failed)"};
        return QString::fromUtf8(p.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    }
    QStringList ombry(const QStringList& args, int expectedCode = 0) {
        return run(qEnvironmentVariable("OMBRY_BINARY"), args, expectedCode);
    }
    static bool isOneError(const QStringList& lines) {
        return lines.size() == 1 && lines.first().startsWith("erreur: ");
    }

private Q_SLOTS:
    void init() { server.reset(); }

    // Without a display, a normal start (a switch without its argument is one) says so in one
    // line that is no error of a mode, and exits 1.
    void normalStartWithoutADisplay() {
        for (const QStringList& args : {QStringList{}, QStringList{"--test"}}) {
            const QStringList lines = ombry(args, 1);
            QCOMPARE(lines.size(), 1);
            QVERIFY2(!lines.first().startsWith("erreur: "), qPrintable(lines.first()));
        }
    }

    // The icon set in every size, in a new nested folder whose name is taken literally; no
    // folder, or a file in its place, is refused.
    void iconSetOfEverySize() {
        QVERIFY(isOneError(ombry({"--icon", ""})));
        QFile blocker(home.filePath("file"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        QVERIFY(isOneError(ombry({"--icon", blocker.fileName()})));
        QVERIFY(!QFile::exists("/hicolor/16x16/apps/ombry-voice.png"));
        const QString folder = home.filePath("set/a%2b %1");
        QCOMPARE(ombry({"--icon", folder}), QStringList());
        for (int n : {16, 24, 32, 48, 64, 128, 256, 512, 1024}) {
            const QImage image(folder +
                               QStringLiteral("/hicolor/%1x%1/apps/ombry-voice.png").arg(n));
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

    void anErrorPageIsOneLine() {
        server.on(chat,
                  Reply::text("<html>\r\n<head><title>500</title></head>\r\n<body>\n"
                              "<h1>Internal Server Error</h1>\n\n<p>Oups</p>\n</body>\n</html>",
                              500));
        QFile f(home.filePath("ok.wav"));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(AudioRecorder::wav(QByteArray(3200, '\1')));
        f.close();
        const QStringList lines = ombry({"--fasttest", f.fileName()});
        QVERIFY2(isOneError(lines), qPrintable(lines.join(" | ")));
        QVERIFY(lines.first().contains("erreur 500 <html> <head>"));
    }

    void onlyRegularFilesAreRead() {
        // A device without end, a pipe nobody writes to, a folder: refused at once.
        QVERIFY(isOneError(ombry({"--fasttest", "/dev/zero"})));
        const QString fifo = home.filePath("fifo.wav");
        QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
        QVERIFY(isOneError(ombry({"--fasttest", fifo})));
        QVERIFY(isOneError(ombry({"--calltest", home.path()})));
        QCOMPARE(server.count(), 0);
    }

    void aFileNameInAnotherEncodingIsFound() {
        server.on(chat, chatCompletion(R"({"raw": "été", "clean": "Été."})"));
        // "été.wav" in Latin-1: bytes that are not UTF-8, as a shell in such a locale passes them.
        const QByteArray name = "\xe9t\xe9.wav";
        const QByteArray wav = AudioRecorder::wav(QByteArray(3200, '\1'));
        const int fd = ::open((QFile::encodeName(home.path()) + '/' + name).constData(),
                              O_WRONLY | O_CREAT | O_TRUNC, 0600);
        QVERIFY(fd >= 0);
        QCOMPARE(::write(fd, wav.constData(), size_t(wav.size())), ssize_t(wav.size()));
        ::close(fd);
        const QStringList lines =
            run("/bin/sh",
                {"-c", R"sh(exec "$OMBRY_BINARY" --fasttest "$(printf '\351t\351.wav')")sh"});
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.first().contains("clean=[Été.]"), qPrintable(lines.first()));
    }
};

QTEST_GUILESS_MAIN(TstModeInputs)
#include "tst_modeinputs.moc"
