// The whole program on sway (headless, run by an unprivileged user, as sway demands): the
// user's configuration binds Right Alt to `ombry-voice --press` and `--release`, a virtual
// keyboard holds the key while the sentence is spoken, and the cleaned text is pasted into a Qt
// field on Wayland through the compositor's virtual keyboard; CLIPBOARD and PRIMARY hold the
// user's texts again afterwards.
#include "DesktopProgram.h"
#include "Services.h"
#include "SoundServer.h"
#include "SwaySession.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <cstdio>
#include <unistd.h>

using namespace ombry;
using namespace ombry::test;

class TstWaylandSway : public QObject {
    Q_OBJECT
    SwaySession sway;
    SoundServer sound;
    Services services;
    DesktopProgram program;
    QTemporaryDir files;
    QString speech;

    static QString paste(bool primary) {
        return QString::fromUtf8(SwaySession::run("wl-paste", {primary ? "-p" : "-n", "-n"}).out);
    }

private Q_SLOTS:
    void initTestCase() {
        if (!SwaySession::installed()) QSKIP("sway, wtype ou wl-clipboard absent");
        if (!SoundServer::installed()) QSKIP("pulseaudio n'est pas installé");
        const QString binary = qEnvironmentVariable("OMBRY_BINARY");
        // The lines of the settings card, as the user pastes them.
        sway.extraConfig = QString("bindsym --no-repeat Alt_R exec %1 --press\n"
                                   "bindsym --release Alt_R exec %1 --release\n")
                               .arg(binary)
                               .toUtf8();
        QVERIFY2(sway.start(), qPrintable(sway.error()));
        const QString swayRuntime = qEnvironmentVariable("XDG_RUNTIME_DIR");
        // The sound server takes XDG_RUNTIME_DIR for itself: the compositor by its whole path.
        qputenv(
            "WAYLAND_DISPLAY",
            QFile::encodeName(QDir(swayRuntime).filePath(qEnvironmentVariable("WAYLAND_DISPLAY"))));
        QVERIFY2(sound.start(), qPrintable(sound.error()));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(swayRuntime));
        speech = files.filePath("phrase.wav");
        QVERIFY(SoundServer::makeSpeech("Euh, déjà, bonjour à l'équipe.", "fr", speech));
        prepareDictation(program, services);
        program.setEnv("PULSE_SERVER", sound.serverAddress());
        program.setEnv("XDG_CURRENT_DESKTOP", "sway");
        program.setEnv("QT_QPA_PLATFORM", "wayland");
        program.setEnv("DISPLAY", {});
    }

    void cleanupTestCase() {
        if (program.running()) QCOMPARE(program.stop(), 0);
    }

    void holdRightAltAndSpeak() {
        // In sway's session: its runtime folder (where `--press` finds the program), its
        // socket, its IPC; no X server.
        startOnDesktop(
            program, {"WAYLAND_DISPLAY", "SWAYSOCK", "XDG_RUNTIME_DIR"},
            {"touche=raccourcis du compositeur", "collage=clavier virtuel", "bandeau=layer-shell"});
        if (QTest::currentTestFailed()) return;
        // The user's field, once the program's window is up, and texts of theirs in CLIPBOARD
        // and PRIMARY.
        QTest::qWait(1500);
        QVERIFY(sway.field.open());
        sway.launch("wl-copy", {"--foreground", "presse-papiers de l'utilisateur"});
        sway.launch("wl-copy", {"--foreground", "-p", "sélection de l'utilisateur"});
        QTRY_COMPARE_WITH_TIMEOUT(paste(false), QString("presse-papiers de l'utilisateur"), 5000);
        QTRY_COMPARE_WITH_TIMEOUT(paste(true), QString("sélection de l'utilisateur"), 5000);

        services.transcript = "euh déjà bonjour à l'équipe";
        services.textModel = [](const QString&, const QString&) {
            return "Déjà, bonjour à l'équipe !";
        };
        const int mark = program.mark();
        // Right Alt held 4.5 s by one virtual keyboard: sway runs the press line, then the
        // release line.
        sway.launch("wtype", {"-P", "Alt_R", "-s", "4500", "-p", "Alt_R"});
        QVERIFY2(program.waitForLine("enregistrement: début", mark), program.since(mark));
        QVERIFY(sound.play(speech));
        QTRY_VERIFY2_WITH_TIMEOUT(sway.field.text() == "Déjà, bonjour à l'équipe !",
                                  qPrintable(sway.field.text() + "\n" + program.journalFrom(mark)),
                                  20000);
        QVERIFY(program.hasLine("touche: dictée enfoncée (commande)", mark));
        QVERIFY(program.hasLine("touche: dictée relâchée (commande)", mark));
        QCOMPARE(services.calls, QStringList({"parole", "texte"}));
        QTRY_COMPARE_WITH_TIMEOUT(paste(false), QString("presse-papiers de l'utilisateur"), 5000);
        QCOMPARE(paste(true), QString("sélection de l'utilisateur"));
    }
};

// sway refuses to run as root: a root test runs itself again as the unprivileged test user,
// in a home of that user's.
int main(int argc, char** argv) {
    if (::getuid() == 0 && qEnvironmentVariableIsEmpty("OMBRY_TEST_USER_RUN")) {
        uid_t uid = 0;
        gid_t gid = 0;
        if (!SwaySession::testUser(uid, gid)) return 1;
        // A build in a folder that user cannot enter (a root home) cannot be run as that user:
        // the test is skipped, as on a machine without sway.
        const QString binary = qEnvironmentVariable("OMBRY_BINARY");
        if (QProcess::execute("runuser", {"-u", "ombrytest", "--", "test", "-x",
                                          QString::fromLocal8Bit(argv[0]), "-a", "-x", binary}) !=
            0) {
            std::printf("SKIP   : le dossier de construction n'est pas accessible à "
                        "l'utilisateur ombrytest\n");
            return 0;
        }
        QByteArray home = "/tmp/ombry-sway-home-XXXXXX";
        if (!mkdtemp(home.data()) || chown(home.constData(), uid, gid) != 0) return 1;
        QStringList args{"-u", "ombrytest", "--", QString::fromLocal8Bit(argv[0])};
        for (int i = 1; i < argc; ++i)
            args << QString::fromLocal8Bit(argv[i]);
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("OMBRY_TEST_USER_RUN", "1");
        for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"})
            env.insert(QLatin1String(name),
                       QString::fromLocal8Bit(home) + QLatin1Char('/') + QLatin1String(name));
        env.remove("XDG_RUNTIME_DIR");
        child.setProcessEnvironment(env);
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start("runuser", args);
        child.waitForFinished(-1);
        QProcess::execute("rm", {"-rf", QString::fromLocal8Bit(home)});
        return child.exitStatus() == QProcess::NormalExit ? child.exitCode() : 1;
    }
    QCoreApplication app(argc, argv);
    TstWaylandSway test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_wayland_sway.moc"
