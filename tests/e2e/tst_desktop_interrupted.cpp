// A dictation cut off by the end of the program, on a real desktop: the ombry-voice binary is
// waiting for a slow speech model when SIGTERM, SIGHUP or SIGKILL comes, or when its X server
// goes away. Each time its recording is in the audio folder and history.json holds the
// dictation as failed, to be tried again; a lost display also takes the lock and socket away.
#include "DesktopProgram.h"
#include "DesktopSession.h"
#include "Services.h"
#include "SoundServer.h"

#include "data/Records.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <csignal>

using namespace ombry;
using namespace ombry::test;

namespace {

const QString kInterrupted = QStringLiteral("Ombry Voice s'est arrêté pendant la transcription");

QList<Dictation> history(const DesktopProgram& program) {
    QList<Dictation> out;
    const QJsonArray list = QJsonDocument::fromJson(program.readData("history.json")).array();
    for (const QJsonValue& v : list)
        if (const auto d = Dictation::fromJson(v)) out << *d;
    return out;
}

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

    bool speak() {
        QProcess player;
        player.setProcessEnvironment(sound.environment());
        player.start(QStringLiteral("paplay"),
                     {QStringLiteral("-d"), QStringLiteral("mic"), speech});
        return player.waitForStarted(5000) &&
               DesktopSession::waitUntil([&] { return player.state() == QProcess::NotRunning; },
                                         20000) &&
               player.exitCode() == 0;
    }

    // A hands-free dictation by the desktop's toggle, left waiting for the speech model.
    void dictateSlowly(DesktopProgram& program) {
        services.reset();
        services.transcript = QStringLiteral("bonjour");
        services.speechDelayMs = 60000;
        const int mark = program.mark();
        QCOMPARE(program.tell(QStringLiteral("--toggle")), 0);
        QVERIFY2(program.waitForLine(QStringLiteral("enregistrement: début"), mark),
                 qPrintable(program.journalFrom(mark)));
        QVERIFY(speak());
        QCOMPARE(program.tell(QStringLiteral("--toggle")), 0);
        QVERIFY2(
            DesktopSession::waitUntil([&] { return services.calls.contains("parole"); }, 20000),
            qPrintable(program.journalFrom(mark)));
    }

    // The newest dictation of the history says `failure`, and its audio is what the speech
    // model heard.
    void expectKept(const DesktopProgram& program, const QString& failure) {
        const QList<Dictation> list = history(program);
        QVERIFY(!list.isEmpty());
        QCOMPARE(list.first().failure.value_or(QStringLiteral("(aucune)")), failure);
        QFile audio(program.dataFolder() + QStringLiteral("/Audio/") +
                    list.first().audioFile.value_or("?"));
        QVERIFY(audio.open(QIODevice::ReadOnly));
        QCOMPARE(audio.readAll(), services.wavs.value(0, "?"));
    }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        if (!SoundServer::installed()) QSKIP("pulseaudio n'est pas installé");
        QVERIFY2(sound.start(), qPrintable(sound.error()));
        speech = files.filePath(QStringLiteral("phrase.wav"));
        QVERIFY(SoundServer::makeSpeech(QStringLiteral("Bonjour, rappelle-moi le pain."),
                                        QStringLiteral("fr"), speech));
    }

    // The session's end (SIGTERM) and a closed terminal (SIGHUP) end the program cleanly in
    // the middle of a transcription.
    void endedBySignal_data() {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGTERM") << int(SIGTERM);
        QTest::newRow("SIGHUP") << int(SIGHUP);
    }
    void endedBySignal() {
        QFETCH(int, signal);
        DesktopProgram program;
        prepareDictation(program, services);
        QVERIFY2(program.start(), qPrintable(program.error()));
        dictateSlowly(program);
        if (QTest::currentTestFailed()) return;
        ::kill(pid_t(program.pid()), signal);
        QVERIFY(ended(program));
        QCOMPARE(program.stop(), 0);
        expectKept(program, kInterrupted);
    }

    // A killed program leaves the record in progress beside its audio; the next start makes it
    // failed.
    void killed() {
        DesktopProgram program;
        prepareDictation(program, services);
        QVERIFY2(program.start(), qPrintable(program.error()));
        dictateSlowly(program);
        if (QTest::currentTestFailed()) return;
        QVERIFY(DesktopSession::waitUntil([&] {
            const QList<Dictation> list = history(program);
            return !list.isEmpty() && list.first().inProgress();
        }));
        ::kill(pid_t(program.pid()), SIGKILL);
        QVERIFY(ended(program));
        expectKept(program, QString());
        QVERIFY2(program.start(), qPrintable(program.error()));
        QVERIFY(DesktopSession::waitUntil([&] {
            const QList<Dictation> list = history(program);
            return !list.isEmpty() && !list.first().inProgress();
        }));
        expectKept(program, kInterrupted);
        QCOMPARE(program.stop(), 0);
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
        QVERIFY2(program.hasLine(QStringLiteral("affichage: connexion perdue"), 0),
                 qPrintable(program.journalFrom(0)));
        expectKept(program, kInterrupted);
        QVERIFY(!QFile::exists(lock));
        QVERIFY(!QFile::exists(socket));
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstDesktopInterrupted)
#include "tst_desktop_interrupted.moc"
