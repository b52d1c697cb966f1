// The whole program on a KDE Plasma 5.27 desktop (kwin_wayland headless, its XWayland and its
// portals): the dictation key is the desktop's global shortcut, held through the desktop's own
// input road; the cleaned text is pasted into a Qt field on Wayland by the RemoteDesktop
// portal, and the clipboard, taken over data-control, holds the user's text again afterwards.
#include "DesktopProgram.h"
#include "KdeSession.h"
#include "Services.h"
#include "SoundServer.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

class TstWaylandKde : public QObject {
    Q_OBJECT
    KdeSession kde;
    SoundServer sound;
    Services services;
    DesktopProgram program;
    QTemporaryDir files;
    QString speech;

    static QString paste() {
        return QString::fromUtf8(DesktopSession::run("wl-paste", {"-n"}).out);
    }

private Q_SLOTS:
    void initTestCase() {
        if (!KdeSession::installed()) QSKIP("kwin_wayland ou xdg-desktop-portal-kde absent");
        if (!SoundServer::installed()) QSKIP("pulseaudio n'est pas installé");
        QVERIFY2(kde.start(), qPrintable(kde.error()));
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "XWayland n'a pas démarré");
        // The sound server takes XDG_RUNTIME_DIR for itself: the compositor by its whole path.
        qputenv("WAYLAND_DISPLAY",
                QFile::encodeName(QDir(qEnvironmentVariable("XDG_RUNTIME_DIR"))
                                      .filePath(qEnvironmentVariable("WAYLAND_DISPLAY"))));
        QVERIFY2(sound.start(), qPrintable(sound.error()));
        speech = files.filePath("phrase.wav");
        QVERIFY(SoundServer::makeSpeech("Euh, déjà, bonjour à l'équipe.", "fr", speech));
        prepareDictation(program, services);
        program.setEnv("QT_QPA_PLATFORM", {});
    }

    void cleanupTestCase() {
        if (program.running()) QCOMPARE(program.stop(), 0);
    }

    void holdTheShortcutAndSpeak() {
        startOnDesktop(program,
                       {"WAYLAND_DISPLAY", "DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR",
                        "XDG_CURRENT_DESKTOP", "XDG_SESSION_TYPE", "KDE_SESSION_VERSION",
                        "KDE_FULL_SESSION"},
                       {"touche=portail", "presse-papiers=data-control"});
        if (QTest::currentTestFailed()) return;
        QVERIFY2(program.waitForLine("hotkey: raccourci du bureau actif", 0, 40000),
                 program.since(0));
        QVERIFY2(program.waitForLine("collage: envoi des touches prêt", 0, 20000),
                 program.since(0));
        // The user's field, once the program's window is up, and a text of theirs copied.
        QTest::qWait(1500);
        QVERIFY(kde.field.open());
        DesktopSession::run("wl-copy", {"presse-papiers de l'utilisateur"});
        QCOMPARE(paste(), QString("presse-papiers de l'utilisateur"));

        services.transcript = "euh déjà bonjour à l'équipe";
        services.textModel = [](const QString&, const QString&) {
            return "Déjà, bonjour à l'équipe !";
        };
        const int mark = program.mark();
        QVERIFY(kde.keysDown({29, 56, 32})); // Ctrl, Alt, D
        QVERIFY2(program.waitForLine("enregistrement: début", mark), program.since(mark));
        QVERIFY(sound.play(speech));
        QVERIFY(kde.keysUp({32, 56, 29}));
        QVERIFY2(kde.field.waitForText("Déjà, bonjour à l'équipe !", 20000),
                 qPrintable(kde.field.text() + program.since(mark)));
        QCOMPARE(services.calls, QStringList({"parole", "texte"}));
        QVERIFY(program.hasLine("touche: dictée enfoncée (portail)", mark));
        // The user's clipboard is back once the field has read the text.
        QTRY_COMPARE_WITH_TIMEOUT(paste(), QString("presse-papiers de l'utilisateur"), 5000);
    }
};

QTEST_GUILESS_MAIN(TstWaylandKde)
#include "tst_wayland_kde.moc"
