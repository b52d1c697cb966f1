// The whole program on a GNOME 43 desktop (mutter headless, its XWayland, its portals): the key
// is a custom shortcut calling `ombry-voice --toggle`, the consent dialog of the RemoteDesktop
// portal is answered as a user would, and the dictation is typed into a Qt field on Wayland,
// the user's clipboard untouched. mutter alone keeps the US keyboard (GNOME Shell sets the
// user's layout): the portal types only what that layout has, so the sentence has no accent
// here; accents typed through the same portal are shown on KDE with a French layout.
#include "DesktopProgram.h"
#include "GnomeSession.h"
#include "Services.h"
#include "SoundServer.h"

#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

class TstWaylandGnome : public QObject {
    Q_OBJECT
    GnomeSession gnome;
    SoundServer sound;
    Services services;
    DesktopProgram program;
    QTemporaryDir files;
    QString speech;

private Q_SLOTS:
    void initTestCase() {
        if (!GnomeSession::installed()) QSKIP("mutter et xdg-desktop-portal-gnome absents");
        if (!SoundServer::installed()) QSKIP("pulseaudio n'est pas installé");
        QVERIFY2(gnome.start(), qPrintable(gnome.error()));
        QVERIFY2(sound.start(), qPrintable(sound.error()));
        speech = files.filePath("phrase.wav");
        QVERIFY(SoundServer::makeSpeech("Euh, bonjour, chers collègues.", "fr", speech));
        prepareDictation(program, services);
        program.setEnv("QT_QPA_PLATFORM", {});
    }

    void cleanupTestCase() {
        if (program.running()) QCOMPARE(program.stop(), 0);
    }

    void toggleTypesTheDictation() {
        // On the GNOME desktop, over its bus; its windows go through XWayland, as they do on
        // a user's GNOME.
        startOnDesktop(program,
                       {"WAYLAND_DISPLAY", "DISPLAY", "XAUTHORITY", "DBUS_SESSION_BUS_ADDRESS",
                        "XDG_RUNTIME_DIR", "XDG_CURRENT_DESKTOP", "XDG_SESSION_TYPE"},
                       {"touche=raccourci (sans les mains)", "(frappe du texte)"});
        if (QTest::currentTestFailed()) return;
        // The portal asks once a session; the user says yes.
        QVERIFY2(gnome.answerConsentDialog(), program.since(0));
        QVERIFY2(program.waitForLine("collage: envoi des touches prêt", 0, 15000),
                 program.since(0));
        // The user opens the field once the program's window is up (it shows at every start)
        // and copies a text of theirs (at its first key).
        QTest::qWait(1500);
        QVERIFY(gnome.field.open("presse-papiers de l'utilisateur"));
        QVERIFY(gnome.typeKeys({"0xffe1", "0xffe1"}));
        QTRY_COMPARE_WITH_TIMEOUT(gnome.field.clipboard(),
                                  QString("presse-papiers de l'utilisateur"), 5000);

        services.transcript = "euh bonjour chers collegues";
        services.textModel = [](const QString&, const QString&) {
            return "Bonjour, chers collègues ! L'été, ça ira.";
        };
        const int mark = program.mark();
        QCOMPARE(program.tell("--toggle"), 0); // the desktop's shortcut
        QVERIFY2(program.waitForLine("enregistrement: début", mark), program.since(mark));
        QVERIFY(sound.play(speech));
        QTest::qWait(300);
        QCOMPARE(program.tell("--toggle"), 0); // the desktop's shortcut
        QTRY_VERIFY2_WITH_TIMEOUT(gnome.field.text() == "Bonjour, chers collègues ! L'été, ça ira.",
                                  qPrintable(gnome.field.text() + "\n" + program.journalFrom(mark)),
                                  20000);
        QCOMPARE(services.calls, QStringList({"parole", "texte"}));
        QTest::qWait(500);
        QCOMPARE(gnome.field.clipboard(), QString("presse-papiers de l'utilisateur"));
    }
};

QTEST_GUILESS_MAIN(TstWaylandGnome)
#include "tst_wayland_gnome.moc"
