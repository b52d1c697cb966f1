// The whole program with no network and no key, in English: the dictation still reaches the
// field, heard by the on-device recogniser (pocketsphinx, its words pinned by a grammar so
// that synthesised speech gives the same text every run). And a second start of the program
// steps aside for the first.
#include "ClipboardWatch.h"
#include "DesktopProgram.h"
#include "DesktopSession.h"
#include "SoundServer.h"
#include "TestHttpServer.h"

#include <QDir>
#include <QFile>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QUuid>
#include <sys/stat.h>

using namespace ombry::test;

class TstDesktopOffline : public QObject {
    Q_OBJECT
    SoundServer sound;
    DesktopProgram program;
    QTemporaryDir files;
    QString speech;

    DesktopSession& desktop() { return *DesktopSession::current(); }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        if (!SoundServer::installed()) QSKIP("pulseaudio n'est pas installé");
        QVERIFY2(sound.start(), qPrintable(sound.error()));
        speech = files.filePath("phrase.wav");
        QVERIFY(SoundServer::makeSpeech("please open the kitchen window", "en", speech));
        const QString grammar = files.filePath("phrases.gram");
        QFile g(grammar);
        QVERIFY(g.open(QIODevice::WriteOnly));
        g.write("#JSGF V1.0;\ngrammar phrases;\npublic <phrase> = ( please open the kitchen "
                "window | close the door | hello world );\n");
        g.close();

        // Settings left as they come but for the language and the microphone; no key
        // anywhere; every service at an address where nothing answers.
        program.writeSettings(QJsonObject{{"microphoneUID", "testmic"}, {"language", "en"}});
        TestHttpServer gone;
        const QString nowhere = gone.url().toString();
        for (const char* service : {"OMBRY_OPENROUTER_URL", "OMBRY_LANGUAGETOOL_URL",
                                    "OMBRY_LOCAL_LLM_URL", "OMBRY_DEEPGRAM_URL"})
            program.setEnv(QString::fromLatin1(service), nowhere);
        program.setEnv("OPENROUTER_API_KEY", {});
        program.setEnv("DEEPGRAM_API_KEY", {});
        program.setEnv("OMBRY_SITE_URL", {});
        program.setEnv("OMBRY_LOCAL_STT_URL", {});
        program.setEnv("OMBRY_POCKETSPHINX_JSGF", grammar);
        QVERIFY2(program.start(), qPrintable(program.error()));
    }

    void cleanupTestCase() {
        if (program.running()) QCOMPARE(program.stop(), 0);
    }

    void englishDictationWithoutNetwork() {
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        QVERIFY(desktop().setClipboard("notes"));
        ClipboardWatch watch;
        const int mark = program.mark();
        const int altR = desktop().keycode("Alt_R");
        QVERIFY(desktop().keyboardPress(altR));
        QVERIFY2(program.waitForLine("enregistrement: début", mark), program.since(mark));
        QVERIFY(sound.play(speech));
        QVERIFY(desktop().keyboardRelease(altR));
        QVERIFY2(program.waitForLine("collé:", mark, 30000), program.since(mark));
        // Without a key the program's own recogniser did the work.
        QVERIFY2(program.hasLine("transcription locale: pocketsphinx", mark), program.since(mark));
        QVERIFY2(watch.waitForChanges(2, desktop().targetWindow()), program.since(mark));
        QCOMPARE(desktop().readClipboard().value_or("?"), QByteArray("notes"));
        QCOMPARE(desktop().closeTarget().value_or("?"), QString("Please open the kitchen window"));
    }

    // A second start finds the first, tells it, and ends without a key hook of its own.
    void secondStartStepsAside() {
        const int mark = program.mark();
        QProcess second;
        second.setProcessEnvironment(program.environment());
        second.start(qEnvironmentVariable("OMBRY_BINARY"), {});
        QVERIFY(second.waitForStarted(5000));
        QVERIFY(DesktopSession::waitUntil([&] { return second.state() == QProcess::NotRunning; },
                                          15000));
        QCOMPARE(second.exitCode(), 0);
        QVERIFY(second.readAll().contains("déjà lancé"));
        QVERIFY2(program.waitForLine("démarrage: déjà lancé", mark), program.since(mark));
        QVERIFY(!program.hasLine("hotkey:", mark));
        QVERIFY(program.running());
    }

    // Meetings left pending whose audio cannot be taken whole: a sparse file of 40 GB (more
    // than memory and than a WAV header holds), a link to /dev/zero and a pipe. The program
    // starts, goes on with the first, leaves the others in place with a journal line, and
    // quits at once at SIGTERM.
    void pendingMeetingsNeverStopTheStart() {
        QCOMPARE(program.stop(), 0);
        const QDir pending(program.dataFolder() + "/PendingMeetings");
        QVERIFY(pending.mkpath("."));
        QStringList audio;
        for (const char* startedAt :
             {"2026-03-01T09:00:00.000Z", "2026-03-02T09:00:00.000Z", "2026-03-03T09:00:00.000Z"}) {
            const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
            QFile json(pending.filePath(id + ".json"));
            QVERIFY(json.open(QIODevice::WriteOnly));
            json.write(QStringLiteral(R"({"id":"%1","startedAt":"%2","recording":false})")
                           .arg(id, QLatin1String(startedAt))
                           .toUtf8());
            audio << pending.filePath(id + ".pcm");
        }
        QVERIFY(QFile::link("/dev/zero", audio[0]));
        QCOMPARE(::mkfifo(QFile::encodeName(audio[1]).constData(), 0600), 0);
        QFile sparse(audio[2]);
        QVERIFY(sparse.open(QIODevice::WriteOnly) && sparse.resize(int64_t(40) << 30));
        QVERIFY(sparse.setFileTime(QDateTime::currentDateTime().addSecs(60),
                                   QFileDevice::FileModificationTime)); // taken last
        sparse.close();

        const int mark = program.mark();
        QVERIFY2(program.start(), qPrintable(program.error()));
        QVERIFY2(program.waitFor(
                     [&](const QString&) {
                         return program.journalFrom(mark).count(
                                    "réunion: audio en attente illisible") == 2;
                     },
                     mark, 20000),
                 program.since(mark));
        QVERIFY2(program.waitForLine("réunion: reprise", mark), program.since(mark));
        QCOMPARE(program.stop(), 0);
        QVERIFY(QFileInfo(audio[0]).isSymLink() && QFileInfo(audio[1]).exists());
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstDesktopOffline)
#include "tst_desktop_offline.moc"
