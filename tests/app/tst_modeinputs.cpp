// The real program given awkward inputs and awkward answers: each run ends at once with its
// lines, failures as one "erreur: " line.
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"

#include <QDir>
#include <QFile>
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

    // What a run printed, line by line; "(failed)" when it did not end well within 20 s.
    QStringList run(const QString& program, const QStringList& args) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_DATA_HOME", home.filePath("data"));
        env.insert("XDG_CONFIG_HOME", home.filePath("config"));
        env.insert("OMBRY_OPENROUTER_URL", server.url().toString());
        env.insert("OPENROUTER_API_KEY", "sk-or-test");
        QProcess p;
        p.setProcessEnvironment(env);
        p.setWorkingDirectory(home.path());
        p.start(program, args);
        if (!TestHttpServer::runProcess(p, 20000) || p.exitStatus() != QProcess::NormalExit ||
            p.exitCode() != 0)
            return {"(failed)"};
        return QString::fromUtf8(p.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    }
    QStringList ombry(const QStringList& args) {
        return run(qEnvironmentVariable("OMBRY_BINARY"), args);
    }
    static bool isOneError(const QStringList& lines) {
        return lines.size() == 1 && lines.first().startsWith("erreur: ");
    }

private Q_SLOTS:
    void init() { server.reset(); }

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

    void iconFolderIsTakenLiterally() {
        QVERIFY(isOneError(ombry({"--icon", ""})));
        QVERIFY(!QFile::exists("/hicolor/16x16/apps/ombry-voice.png"));
        const QString odd = home.filePath("a%2b %1");
        QCOMPARE(ombry({"--icon", odd}), QStringList());
        QVERIFY(QFile::exists(odd + "/hicolor/16x16/apps/ombry-voice.png"));
    }
};

QTEST_GUILESS_MAIN(TstModeInputs)
#include "tst_modeinputs.moc"
