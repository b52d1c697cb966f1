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
    QString swayRuntime;

    QString journalSince(int mark) { return QStringLiteral("\n") + program.journalFrom(mark); }
    QString paste(bool primary) {
        const QStringList args = primary ? QStringList{"-p", "-n"} : QStringList{"-n"};
        return QString::fromUtf8(sway.run(QStringLiteral("wl-paste"), args).out);
    }

private Q_SLOTS:
    void initTestCase() {
        if (!SwaySession::installed()) QSKIP("sway, wtype ou wl-clipboard absent");
        if (!SoundServer::installed()) QSKIP("pulseaudio n'est pas installé");
        const QString binary = qEnvironmentVariable("OMBRY_BINARY");
        // The lines of the settings card, as the user pastes them.
        sway.extraConfig = QStringLiteral("bindsym --no-repeat Alt_R exec %1 --press\n"
                                          "bindsym --release Alt_R exec %1 --release\n")
                               .arg(binary)
                               .toUtf8();
        QVERIFY2(sway.start(), qPrintable(sway.error()));
        swayRuntime = qEnvironmentVariable("XDG_RUNTIME_DIR");
        // The sound server takes XDG_RUNTIME_DIR for itself: the compositor by its whole path.
        qputenv(
            "WAYLAND_DISPLAY",
            QFile::encodeName(QDir(swayRuntime).filePath(qEnvironmentVariable("WAYLAND_DISPLAY"))));
        QVERIFY2(sound.start(), qPrintable(sound.error()));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(swayRuntime));
        speech = files.filePath(QStringLiteral("phrase.wav"));
        QVERIFY(SoundServer::makeSpeech(QStringLiteral("Euh, déjà, bonjour à l'équipe."),
                                        QStringLiteral("fr"), speech));
        prepareDictation(program, services);
        // In sway's session: its runtime folder (where `--press` finds the program), its
        // socket, its IPC; no X server.
        for (const char* name : {"WAYLAND_DISPLAY", "SWAYSOCK", "XDG_RUNTIME_DIR"})
            program.setEnv(QLatin1String(name), qEnvironmentVariable(name));
        program.setEnv(QStringLiteral("PULSE_SERVER"), sound.serverAddress());
        program.setEnv(QStringLiteral("XDG_CURRENT_DESKTOP"), QStringLiteral("sway"));
        program.setEnv(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland"));
        program.setEnv(QStringLiteral("DISPLAY"), {});
    }

    void cleanupTestCase() {
        if (program.running()) QCOMPARE(program.stop(), 0);
    }

    void holdRightAltAndSpeak() {
        QVERIFY2(program.start(), qPrintable(program.error()));
        const auto roads = program.waitForLine(QStringLiteral("bureau: "), 0);
        QVERIFY(roads);
        QVERIFY2(roads->contains(QStringLiteral("touche=raccourcis du compositeur")) &&
                     roads->contains(QStringLiteral("collage=clavier virtuel")) &&
                     roads->contains(QStringLiteral("bandeau=layer-shell")),
                 qPrintable(*roads));
        // The user's field, once the program's window is up, and texts of theirs in CLIPBOARD
        // and PRIMARY.
        QTest::qWait(1500);
        QVERIFY(sway.field.open());
        sway.launch(QStringLiteral("wl-copy"), {QStringLiteral("--foreground"),
                                                QStringLiteral("presse-papiers de l'utilisateur")});
        sway.launch(QStringLiteral("wl-copy"),
                    {QStringLiteral("--foreground"), QStringLiteral("-p"),
                     QStringLiteral("sélection de l'utilisateur")});
        QTRY_COMPARE_WITH_TIMEOUT(paste(false), QStringLiteral("presse-papiers de l'utilisateur"),
                                  5000);
        QTRY_COMPARE_WITH_TIMEOUT(paste(true), QStringLiteral("sélection de l'utilisateur"), 5000);

        services.transcript = QStringLiteral("euh déjà bonjour à l'équipe");
        services.textModel = [](const QString&, const QString&) {
            return QStringLiteral("Déjà, bonjour à l'équipe !");
        };
        const int mark = program.mark();
        // Right Alt held 4.5 s by one virtual keyboard: sway runs the press line, then the
        // release line.
        sway.launch(QStringLiteral("wtype"),
                    {QStringLiteral("-P"), QStringLiteral("Alt_R"), QStringLiteral("-s"),
                     QStringLiteral("4500"), QStringLiteral("-p"), QStringLiteral("Alt_R")});
        QVERIFY2(program.waitForLine(QStringLiteral("enregistrement: début"), mark),
                 qPrintable(journalSince(mark)));
        QVERIFY(sound.play(speech));
        QTRY_VERIFY2_WITH_TIMEOUT(sway.field.text() == QStringLiteral("Déjà, bonjour à l'équipe !"),
                                  qPrintable(sway.field.text() + journalSince(mark)), 20000);
        QVERIFY(program.hasLine(QStringLiteral("touche: dictée enfoncée (commande)"), mark));
        QVERIFY(program.hasLine(QStringLiteral("touche: dictée relâchée (commande)"), mark));
        QCOMPARE(services.calls, QStringList({"parole", "texte"}));
        QTRY_COMPARE_WITH_TIMEOUT(paste(false), QStringLiteral("presse-papiers de l'utilisateur"),
                                  5000);
        QCOMPARE(paste(true), QStringLiteral("sélection de l'utilisateur"));
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
        if (QProcess::execute(QStringLiteral("runuser"),
                              {QStringLiteral("-u"), QStringLiteral("ombrytest"),
                               QStringLiteral("--"), QStringLiteral("test"), QStringLiteral("-x"),
                               QString::fromLocal8Bit(argv[0]), QStringLiteral("-a"),
                               QStringLiteral("-x"), binary}) != 0) {
            std::printf("SKIP   : le dossier de construction n'est pas accessible à "
                        "l'utilisateur ombrytest\n");
            return 0;
        }
        QByteArray home = "/tmp/ombry-sway-home-XXXXXX";
        if (!mkdtemp(home.data()) || chown(home.constData(), uid, gid) != 0) return 1;
        QStringList args{QStringLiteral("-u"), QStringLiteral("ombrytest"), QStringLiteral("--"),
                         QString::fromLocal8Bit(argv[0])};
        for (int i = 1; i < argc; ++i)
            args << QString::fromLocal8Bit(argv[i]);
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("OMBRY_TEST_USER_RUN"), QStringLiteral("1"));
        for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"})
            env.insert(QLatin1String(name),
                       QString::fromLocal8Bit(home) + QLatin1Char('/') + QLatin1String(name));
        env.remove(QStringLiteral("XDG_RUNTIME_DIR"));
        child.setProcessEnvironment(env);
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(QStringLiteral("runuser"), args);
        child.waitForFinished(-1);
        QProcess::execute(QStringLiteral("rm"),
                          {QStringLiteral("-rf"), QString::fromLocal8Bit(home)});
        return child.exitStatus() == QProcess::NormalExit ? child.exitCode() : 1;
    }
    QCoreApplication app(argc, argv);
    TstWaylandSway test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_wayland_sway.moc"
