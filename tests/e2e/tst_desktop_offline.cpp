// The whole program with no network and no key, in English: the dictation still reaches the
// field, heard by the on-device recogniser (pocketsphinx, its words pinned by a grammar so
// that synthesised speech gives the same text every run). And a second start of the program
// steps aside for the first.
#include "ClipboardWatch.h"
#include "DesktopProgram.h"
#include "DesktopSession.h"
#include "SoundServer.h"
#include "TestHttpServer.h"

#include <QFile>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

using namespace ombry::test;

class TstDesktopOffline : public QObject {
    Q_OBJECT
    SoundServer sound;
    DesktopProgram program;
    QTemporaryDir files;
    QString speech;

    DesktopSession& desktop() { return *DesktopSession::current(); }
    QString journalSince(int mark) { return QStringLiteral("\n") + program.journalFrom(mark); }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        if (!SoundServer::installed()) QSKIP("pulseaudio n'est pas installé");
        QVERIFY2(sound.start(), qPrintable(sound.error()));
        speech = files.filePath(QStringLiteral("phrase.wav"));
        QVERIFY(SoundServer::makeSpeech(QStringLiteral("please open the kitchen window"),
                                        QStringLiteral("en"), speech));
        const QString grammar = files.filePath(QStringLiteral("phrases.gram"));
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
        program.setEnv(QStringLiteral("OPENROUTER_API_KEY"), {});
        program.setEnv(QStringLiteral("DEEPGRAM_API_KEY"), {});
        program.setEnv(QStringLiteral("OMBRY_SITE_URL"), {});
        program.setEnv(QStringLiteral("OMBRY_LOCAL_STT_URL"), {});
        program.setEnv(QStringLiteral("OMBRY_POCKETSPHINX_JSGF"), grammar);
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
        QVERIFY2(program.waitForLine(QStringLiteral("enregistrement: début"), mark),
                 qPrintable(journalSince(mark)));
        QVERIFY(sound.play(speech));
        QVERIFY(desktop().keyboardRelease(altR));
        QVERIFY2(program.waitForLine(QStringLiteral("collé:"), mark, 30000),
                 qPrintable(journalSince(mark)));
        // Without a key the program's own recogniser did the work.
        QVERIFY2(program.hasLine(QStringLiteral("transcription locale: pocketsphinx"), mark),
                 qPrintable(journalSince(mark)));
        QVERIFY2(watch.waitForChanges(2, desktop().targetWindow()), qPrintable(journalSince(mark)));
        QCOMPARE(desktop().readClipboard().value_or("?"), QByteArray("notes"));
        QCOMPARE(desktop().closeTarget().value_or("?"),
                 QStringLiteral("Please open the kitchen window"));
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
        QVERIFY2(program.waitForLine(QStringLiteral("démarrage: déjà lancé"), mark),
                 qPrintable(journalSince(mark)));
        QVERIFY(!program.hasLine(QStringLiteral("hotkey:"), mark));
        QVERIFY(program.running());
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstDesktopOffline)
#include "tst_desktop_offline.moc"
