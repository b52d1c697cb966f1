// The whole program on a KDE Plasma 5.27 desktop (kwin_wayland headless, its XWayland and its
// portals): the dictation key is the desktop's global shortcut, held through the desktop's own
// input road; the cleaned text is pasted into a Qt field on Wayland by the RemoteDesktop
// portal, and the clipboard, taken over data-control, holds the user's text again afterwards.
#include "DesktopProgram.h"
#include "KdeSession.h"
#include "Services.h"
#include "SoundServer.h"

#include <QDir>
#include <QJsonObject>
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
    QProcessEnvironment desktopEnv; // this process's environment on the desktop

    QString journalSince(int mark) { return QStringLiteral("\n") + program.journalFrom(mark); }

    QString run(const QString& tool, const QStringList& args) {
        QProcess p;
        p.setProcessEnvironment(desktopEnv);
        p.start(tool, args);
        if (!p.waitForFinished(5000)) return QStringLiteral("(bloqué)");
        return QString::fromUtf8(p.readAllStandardOutput());
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
        desktopEnv = QProcessEnvironment::systemEnvironment();
        speech = files.filePath(QStringLiteral("phrase.wav"));
        QVERIFY(SoundServer::makeSpeech(QStringLiteral("Euh, déjà, bonjour à l'équipe."),
                                        QStringLiteral("fr"), speech));
        prepareDictation(program, services);
        for (const char* name :
             {"WAYLAND_DISPLAY", "DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR",
              "XDG_CURRENT_DESKTOP", "XDG_SESSION_TYPE", "KDE_SESSION_VERSION", "KDE_FULL_SESSION"})
            program.setEnv(QLatin1String(name), qEnvironmentVariable(name));
        program.setEnv(QStringLiteral("QT_QPA_PLATFORM"), {});
    }

    void cleanupTestCase() {
        if (program.running()) QCOMPARE(program.stop(), 0);
    }

    void holdTheShortcutAndSpeak() {
        QVERIFY2(program.start(), qPrintable(program.error()));
        const auto roads = program.waitForLine(QStringLiteral("bureau: "), 0);
        QVERIFY(roads);
        QVERIFY2(roads->contains(QStringLiteral("touche=portail")) &&
                     roads->contains(QStringLiteral("presse-papiers=data-control")),
                 qPrintable(*roads));
        QVERIFY2(program.waitForLine(QStringLiteral("hotkey: raccourci du bureau actif"), 0, 40000),
                 qPrintable(journalSince(0)));
        QVERIFY2(program.waitForLine(QStringLiteral("collage: envoi des touches prêt"), 0, 20000),
                 qPrintable(journalSince(0)));
        // The user's field, once the program's window is up, and a text of theirs copied.
        QTest::qWait(1500);
        QVERIFY(kde.field.open());
        run(QStringLiteral("wl-copy"), {QStringLiteral("presse-papiers de l'utilisateur")});
        QCOMPARE(run(QStringLiteral("wl-paste"), {QStringLiteral("-n")}),
                 QStringLiteral("presse-papiers de l'utilisateur"));

        services.transcript = QStringLiteral("euh déjà bonjour à l'équipe");
        services.textModel = [](const QString&, const QString&) {
            return QStringLiteral("Déjà, bonjour à l'équipe !");
        };
        const int mark = program.mark();
        QVERIFY(kde.keysDown({29, 56, 32})); // Ctrl, Alt, D
        QVERIFY2(program.waitForLine(QStringLiteral("enregistrement: début"), mark),
                 qPrintable(journalSince(mark)));
        QVERIFY(sound.play(speech));
        QVERIFY(kde.keysUp({32, 56, 29}));
        QVERIFY2(kde.field.waitForText(QStringLiteral("Déjà, bonjour à l'équipe !"), 20000),
                 qPrintable(kde.field.text() + journalSince(mark)));
        QCOMPARE(services.calls, QStringList({"parole", "texte"}));
        QVERIFY(program.hasLine(QStringLiteral("touche: dictée enfoncée (portail)"), mark));
        // The user's clipboard is back once the field has read the text.
        QTRY_COMPARE_WITH_TIMEOUT(run(QStringLiteral("wl-paste"), {QStringLiteral("-n")}),
                                  QStringLiteral("presse-papiers de l'utilisateur"), 5000);
    }
};

QTEST_GUILESS_MAIN(TstWaylandKde)
#include "tst_wayland_kde.moc"
