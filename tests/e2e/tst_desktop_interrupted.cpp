// A dictation cut off by the end of the program, on a real desktop: the ombry-voice binary is
// waiting for a slow speech model when SIGTERM, SIGHUP or SIGKILL comes, or when its X server
// goes away. Each time its recording is in the audio folder and history.json holds the
// dictation as failed, to be tried again; a lost display also takes the lock and socket away.
#include "DesktopProgram.h"
#include "DesktopSession.h"
#include "Services.h"
#include "SoundServer.h"

#include <QFile>
#include <QTemporaryDir>
#include <csignal>

using namespace ombry;
using namespace ombry::test;

namespace {

const QString kInterrupted = "Ombry Voice s'est arrêté pendant la transcription";

bool ended(const DesktopProgram& program) {
    return DesktopSession::waitUntil([&] { return !program.running(); }, 15000);
}

} // namespace

class TstDesktopInterrupted : public QObject {
    Q_OBJECT
    SoundServer sound;
    Services services;
    QTemporaryDir files;
    QString speech;

    // A hands-free dictation by the desktop's toggle, left waiting for the speech model.
    void dictateSlowly(DesktopProgram& program) {
        services.reset();
        services.transcript = "bonjour";
        services.speechDelayMs = 60000;
        const int mark = program.mark();
        QCOMPARE(program.tell("--toggle"), 0);
        QVERIFY2(program.waitForLine("enregistrement: début", mark), program.since(mark));
        QVERIFY(speak(sound, speech));
        QCOMPARE(program.tell("--toggle"), 0);
        QVERIFY2(
            DesktopSession::waitUntil([&] { return services.calls.contains("parole"); }, 20000),
            program.since(mark));
    }

    // The newest dictation of the history says `failure`, and its audio is what the speech
    // model heard.
    void expectKept(const DesktopProgram& program, const QString& failure) {
        const QList<Dictation> list = history(program);
        QVERIFY(!list.isEmpty());
        QCOMPARE(list.first().failure.value_or("(aucune)"), failure);
        QFile audio(program.dataFolder() + "/Audio/" + list.first().audioFile.value_or("?"));
        QVERIFY(audio.open(QIODevice::ReadOnly));
        QCOMPARE(audio.readAll(), services.wavs.value(0, "?"));
    }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        if (!SoundServer::installed()) QSKIP("pulseaudio n'est pas installé");
        QVERIFY2(sound.start(), qPrintable(sound.error()));
        speech = files.filePath("phrase.wav");
        QVERIFY(SoundServer::makeSpeech("Bonjour, rappelle-moi le pain.", "fr", speech));
    }

    // The session's end (SIGTERM) and a closed terminal (SIGHUP) end the program cleanly in
    // the middle of a transcription. A killed program (SIGKILL) leaves the record in progress
    // beside its audio; the next start makes it failed.
    void endedBySignal_data() {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGTERM") << int(SIGTERM);
        QTest::newRow("SIGHUP") << int(SIGHUP);
        QTest::newRow("SIGKILL") << int(SIGKILL);
    }
    void endedBySignal() {
        QFETCH(int, signal);
        DesktopProgram program;
        prepareDictation(program, services);
        QVERIFY2(program.start(), qPrintable(program.error()));
        dictateSlowly(program);
        if (QTest::currentTestFailed()) return;
        auto newest = [&](bool inProgress) {
            return DesktopSession::waitUntil([&] {
                const QList<Dictation> list = history(program);
                return !list.isEmpty() && list.first().inProgress() == inProgress;
            });
        };
        if (signal == SIGKILL) QVERIFY(newest(true));
        ::kill(pid_t(program.pid()), signal);
        QVERIFY(ended(program));
        if (signal == SIGKILL) {
            expectKept(program, QString());
            QVERIFY2(program.start(), qPrintable(program.error()));
            QVERIFY(newest(false));
        }
        QCOMPARE(program.stop(), 0);
        expectKept(program, kInterrupted);
    }

    // The X server going away ends the program from inside its event loop: the history is
    // written all the same, and the lock and socket are removed. The program has an X server of
    // its own here, since this test's windows live on the other one.
    void displayLost() {
        const QByteArray display = qgetenv("DISPLAY");
        DesktopSession own;
        QVERIFY2(own.start(false), qPrintable(own.error()));
        DesktopProgram program;
        prepareDictation(program, services);
        const bool started = program.start();
        qputenv("DISPLAY", display);
        QVERIFY2(started, qPrintable(program.error()));
        dictateSlowly(program);
        if (QTest::currentTestFailed()) return;
        const QString lock = qEnvironmentVariable("XDG_RUNTIME_DIR") + "/ombry-voice.lock";
        const QString socket = qEnvironmentVariable("XDG_RUNTIME_DIR") + "/ombry-voice.sock";
        QVERIFY(QFile::exists(lock) && QFile::exists(socket));
        own.stop();
        QVERIFY(ended(program));
        QVERIFY2(program.hasLine("affichage: connexion perdue", 0), program.since(0));
        expectKept(program, kInterrupted);
        QVERIFY(!QFile::exists(lock));
        QVERIFY(!QFile::exists(socket));
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstDesktopInterrupted)
#include "tst_desktop_interrupted.moc"
