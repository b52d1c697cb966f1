// The whole program on a real desktop: the ombry-voice binary under Xvfb and openbox, its
// microphone a private PulseAudio source fed with espeak-ng speech, its keys typed on the X
// server's own keyboard device, its text read back from a GTK field (zenity) and from xterm,
// the speech and text models and LanguageTool played by a loopback server. One program runs
// through all the cases, as a user's session does: each case leaves the program idle.
#include "ClipboardWatch.h"
#include "DesktopProgram.h"
#include "DesktopSession.h"
#include "Services.h"
#include "SoundServer.h"
#include "XClients.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalSocket>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QtEndian>

using namespace ombry;
using namespace ombry::test;

namespace {

const QByteArray kUserClipboard = "presse-papiers de l'utilisateur";

// Right Alt by its place on the keyboard: AltGr (ISO_Level3_Shift) on a French layout.
constexpr int kRightAlt = 108;

// With `french`, the French layout for the session until the guard ends, then the US one.
[[nodiscard]] auto frenchLayout(bool french = true) {
    if (french) DesktopSession::run("setxkbmap", {"fr"});
    return qScopeGuard([french] {
        if (french) DesktopSession::run("setxkbmap", {"us"});
    });
}

// What plays on the speakers (the program's sounds), recorded from their monitor.
class SpeakerTap {
public:
    explicit SpeakerTap(const SoundServer& sound) {
        process_.setProcessEnvironment(sound.environment());
        process_.start("parec", {"-d", "speakers.monitor", "--raw", "--format=s16le",
                                 "--rate=16000", "--channels=1", "--latency-msec=20"});
        process_.waitForStarted(5000);
    }
    ~SpeakerTap() {
        process_.kill();
        process_.waitForFinished(2000);
    }
    // Waits until a sample louder than the floor has come.
    bool heardSomething(int timeoutMs = 3000) {
        return DesktopSession::waitUntil([this] { return loud(0); }, timeoutMs);
    }
    // Waits until the last `quietMs` of what the speakers played are silent.
    bool quietAgain(int quietMs, int timeoutMs) {
        const qsizetype quiet = qsizetype(quietMs) * 32;
        return DesktopSession::waitUntil(
            [&] { return !loud(pcm_.size() - quiet) && pcm_.size() >= quiet; }, timeoutMs);
    }

private:
    // Whether a sample from byte `from` on is louder than the floor, with what came so far.
    bool loud(qsizetype from) {
        pcm_ += process_.readAllStandardOutput();
        for (qsizetype i = qMax<qsizetype>(from, 0); i + 1 < pcm_.size(); i += 2)
            if (std::abs(qFromLittleEndian<qint16>(pcm_.constData() + i)) > 1000) return true;
        return false;
    }

    QProcess process_;
    QByteArray pcm_;
};

} // namespace

class TstDesktopDictation : public QObject {
    Q_OBJECT
    SoundServer sound;
    Services services;
    DesktopProgram program;
    QTemporaryDir files;
    QString speech; // a French sentence, 16 kHz mono
    double speechSeconds = 0;
    QString lastStored; // the final text of the newest dictation in the history
    int stored = 0;     // dictations the history must hold

    DesktopSession& desktop() { return *DesktopSession::current(); }
    int key(const char* name) { return desktop().keycode(name); }
    bool speak() { return test::speak(sound, speech); }
    // Whether the program heard the dictation key let go since the mark.
    bool heardRelease(int mark) {
        return program
            .waitFor([](auto& l) { return l.startsWith("touche:") && l.contains("relâchée"); },
                     mark)
            .has_value();
    }

    // The dictation key (Right Alt unless told) held on the keyboard device while the
    // sentence is spoken.
    void holdAndSpeak(int mark, int dictationKey = kRightAlt) {
        QVERIFY(desktop().keyboardPress(dictationKey));
        QVERIFY2(program.waitForLine("enregistrement: début", mark), program.since(mark));
        QVERIFY(speak());
        QVERIFY(desktop().keyboardRelease(dictationKey));
    }

    // Ends the program and starts it again with another dictation key (its settings value).
    void restartWithKey(const QString& raw) {
        QCOMPARE(program.stop(), 0);
        QJsonObject settings = program.readSettings();
        settings.insert("key", raw);
        program.writeSettings(settings);
        QVERIFY2(program.start(), qPrintable(program.error()));
    }

    // The field in front, holding nothing yet, with the user's own text on the clipboard.
    void openFieldWithClipboard() {
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        QVERIFY(desktop().setClipboard(kUserClipboard));
    }

    // After a paste with the clipboard's restore: the program took the clipboard for its text
    // and then gave the user's back (two changes of owner), and the user's text is there.
    void expectClipboardBack(ClipboardWatch& watch, int mark) {
        QVERIFY2(watch.waitForChanges(2, desktop().targetWindow()), program.since(mark));
        QCOMPARE(desktop().readClipboard().value_or("?"), kUserClipboard);
    }

    // The audio the speech model received is the sentence: neither cut short nor padded with
    // the time the key was held before and after it.
    void expectSentenceHeard() {
        QCOMPARE(services.wavs.size(), 1);
        const double heard = Services::seconds(services.wavs.first());
        QVERIFY2(
            heard > speechSeconds * 0.7 && heard < speechSeconds + 1.0,
            qPrintable(QString("%1 s entendues pour %2 s dites").arg(heard).arg(speechSeconds)));
        QVERIFY(services.wavs.first().startsWith("RIFF"));
    }

    // The model hears `heard` and the rewrite gives `written` from now on.
    void answer(const QString& heard, const QString& written) {
        services.transcript = heard;
        services.textModel = [written](const QString&, const QString&) { return written; };
    }

    // A plain dictation into a fresh field: the model hears `heard`, the rewrite gives
    // `written`, which must reach the field with the user's clipboard back afterwards.
    void dictateInto(const QString& heard, const QString& written, bool handsFree = false,
                     int dictationKey = kRightAlt) {
        openFieldWithClipboard();
        if (QTest::currentTestFailed()) return;
        answer(heard, written);
        ClipboardWatch watch;
        const int mark = program.mark();
        if (handsFree) {
            // A tap starts, the sentence is spoken with no key held, a second tap ends.
            QVERIFY(desktop().keyboardChord({kRightAlt}));
            QVERIFY2(program.waitForLine("dictée sans les mains", mark), program.since(mark));
            QVERIFY(program.waitForLine("enregistrement: début", mark));
            QVERIFY(speak());
            QVERIFY(desktop().keyboardChord({kRightAlt}));
        } else {
            holdAndSpeak(mark, dictationKey);
            if (QTest::currentTestFailed()) return;
        }
        QVERIFY2(program.waitForLine("collé:", mark, 20000), program.since(mark));
        expectClipboardBack(watch, mark);
        if (QTest::currentTestFailed()) return;
        QCOMPARE(desktop().closeTarget().value_or("?"), written);
        QCOMPARE(services.calls, QStringList({"parole", "texte"}));
        QCOMPARE(services.texts, QStringList{heard});
        expectSentenceHeard();
        ++stored;
        lastStored = written;
    }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        if (!SoundServer::installed()) QSKIP(SoundServer::notInstalled());
        QVERIFY2(sound.start(), qPrintable(sound.error()));
        speech = files.filePath("phrase.wav");
        QVERIFY(SoundServer::makeSpeech(
            "Euh, bonjour, je voudrais réserver une table pour ce soir.", "fr", speech));
        speechSeconds = double(SoundServer::wavData(speech).size()) / 32000.0;

        // The user's choices, without sounds (so that the error sound alone can be heard on
        // the speakers). Keys posted by programs keep their default: refused.
        prepareDictation(program, services);
        const Snippet signature{QUuid::createUuid(), "ma signature",
                                "Jean Dupont, 12 rue des Lilas"};
        program.writeData("snippets.json", QJsonDocument(QJsonArray{signature.toJson()}).toJson());
        // No local engines: the on-device fallback is pocketsphinx alone.
        TestHttpServer gone;
        program.setEnv("OMBRY_LOCAL_LLM_URL", gone.url().toString());
        program.setEnv("OMBRY_LOCAL_STT_URL", {});
        program.setEnv("OMBRY_POCKETSPHINX_JSGF", {});
        QVERIFY2(program.start(), qPrintable(program.error()));
        QVERIFY2(!program.hasLine("hotkey: clavier global indisponible", 0), program.since(0));
    }

    void init() { services.reset(); }

    // The program writes its lists when it is ended, and ends cleanly.
    void cleanupTestCase() {
        if (!program.running()) return;
        QCOMPARE(program.stop(), 0);
        const QList<Dictation> list = history(program);
        QCOMPARE(list.size(), stored);
        if (!list.isEmpty()) QCOMPARE(list.first().finalText, lastStored);
        // Each record keeps its audio; nothing else is kept.
        const QStringList kept =
            QDir(program.dataFolder() + "/Audio").entryList({"*.wav"}, QDir::Files);
        QCOMPARE(kept.size(), stored);
        for (const Dictation& d : list)
            QVERIFY(kept.contains(d.audioFile.value_or("?")));
    }

    // Keys typed by another program (xdotool goes through the XTEST device) are heard and
    // refused: the dictation key from there records nothing.
    void keysOfProgramsAreRefused() {
        openFieldWithClipboard();
        if (QTest::currentTestFailed()) return;
        const int mark = program.mark();
        QVERIFY(desktop().xdotool({"keydown", "108"})); // Right Alt, as a bare key code
        QVERIFY(speak());
        QVERIFY(desktop().xdotool({"keyup", "108"}));
        QVERIFY2(heardRelease(mark), program.since(mark));
        QTest::qWait(200);
        QVERIFY2(!program.hasLine("enregistrement", mark), program.since(mark));
        QVERIFY(services.calls.isEmpty());
        QCOMPARE(desktop().closeTarget().value_or("?"), QString());
    }

    // Hold the key, speak, release: the cleaned text is in the field, the clipboard is the
    // user's again, and the model heard the whole sentence. Text selected earlier in another
    // window (PRIMARY owned by another client) is no selection of the field in front: the
    // dictation is no command on it.
    void holdSpeakRelease() {
        QVERIFY(desktop().setClipboard("un vieux texte d'une page web", {}, "primary"));
        dictateInto("euh bonjour je voudrais réserver une table pour ce soir",
                    "Bonjour, je voudrais réserver une table pour ce soir.");
    }

    // xterm pastes the PRIMARY selection with Shift+Insert: the text reaches the shell's read.
    void pasteIntoTerminal() {
        const QString out = files.filePath("terminal.txt");
        QProcess xterm;
        xterm.start("xterm", {"-T", "Terminal", "-e", "sh", "-c",
                              QString("IFS= read -r line; printf '%s' \"$line\" > '%1'").arg(out)});
        QVERIFY(xterm.waitForStarted(5000));
        const auto found =
            desktop().run("xdotool", {"search", "--sync", "--name", "^Terminal$"}, 10000);
        const qulonglong window = found.out.split('\n').value(0).trimmed().toULongLong();
        QVERIFY2(window, found.err.constData());
        QVERIFY(desktop().activateWindow(window));
        QVERIFY(desktop().setClipboard(kUserClipboard));

        const QString written = "Rendez-vous à 14 h devant la gare.";
        answer("euh rendez-vous à 14 h devant la gare", written);
        ClipboardWatch watch;
        const int mark = program.mark();
        holdAndSpeak(mark);
        if (QTest::currentTestFailed()) return;
        QVERIFY2(program.waitForLine("collé:", mark, 20000), program.since(mark));
        QVERIFY2(watch.waitForChanges(2), program.since(mark));
        QCOMPARE(desktop().readClipboard().value_or("?"), kUserClipboard);
        QVERIFY(desktop().xdotool({"key", "Return"}));
        QVERIFY(DesktopSession::waitUntil([&] { return xterm.state() == QProcess::NotRunning; }));
        QFile typed(out);
        QVERIFY(typed.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(typed.readAll()), written);
        ++stored;
        lastStored = written;
    }

    // A tap starts, a second tap ends: the same text arrives.
    void handsFree() {
        dictateInto("euh le rendez-vous est confirmé pour jeudi",
                    "Le rendez-vous est confirmé pour jeudi.", true);
    }

    // Escape during a recording ends it: the key is taken from the field (the dialog stays
    // open, even on a French layout where the dictation key is AltGr, whose modifier is not
    // Alt's), nothing is sent, pasted or stored; with sounds off the cancel sound still plays.
    // In a long dictation whose first piece is with the speech model, that request is given up
    // at once, and nothing more leaves (neither its rewrite nor the rest).
    void escapeCancels_data() {
        QTest::addColumn<bool>("french");
        QTest::addColumn<bool>("piece");
        QTest::newRow("plain") << false << false;
        QTest::newRow("altGr") << true << false;
        QTest::newRow("piece") << false << true;
    }
    void escapeCancels() {
        QFETCH(bool, french);
        QFETCH(bool, piece);
        const auto restore = frenchLayout(french);
        openFieldWithClipboard();
        if (QTest::currentTestFailed()) return;
        services.transcript = "euh bonjour je voudrais réserver une table";
        services.speechDelayMs = 60000;
        const int abandoned = services.server.abandoned();
        SpeakerTap speakers(sound);
        ClipboardWatch watch;
        const int mark = program.mark();
        QElapsedTimer held;
        held.start();
        QVERIFY(desktop().keyboardPress(kRightAlt));
        QVERIFY2(program.waitForLine("enregistrement: début", mark), program.since(mark));
        if (piece) { // the pause after the sentence ends a piece of more than 3 s
            QVERIFY(speak());
            QVERIFY2(DesktopSession::waitUntil([&] { return !services.calls.isEmpty(); }, 10000),
                     program.since(mark));
        }
        // Well past the start of the hold, where another key would make a chord of it.
        QTest::qWait(int(std::max<qint64>(0, 1100 - held.elapsed())));
        QVERIFY(desktop().keyboardChord({key("Escape")}));
        QVERIFY2(program.waitForLine("dictée annulée", mark), program.since(mark));
        if (!french && !piece) QVERIFY(speakers.heardSomething());
        QVERIFY2(DesktopSession::waitUntil(
                     [&] { return services.server.abandoned() == abandoned + int(piece); }),
                 program.since(mark));
        QVERIFY(desktop().keyboardRelease(kRightAlt));
        QVERIFY(heardRelease(mark));
        QTest::qWait(300);
        QVERIFY2(desktop().targetRunning(), "Escape a fermé la fenêtre de devant");
        QCOMPARE(services.calls, piece ? QStringList{"parole"} : QStringList());
        QVERIFY(!program.hasLine("morceau:", mark));
        QCOMPARE(watch.changes(desktop().targetWindow()), 0);
        QVERIFY(!program.hasLine("collé:", mark));
        // Right Alt is a plain Alt on the US layout, and openbox holds Alt+Escape (no other
        // client can take it): it lowered the dialog and may have focused another window.
        QVERIFY(desktop().activateWindow(desktop().targetWindow()));
        QCOMPARE(desktop().closeTarget().value_or("?"), QString());
        QCOMPARE(history(program).size(), stored);
    }

    // A spoken trigger pastes its shortcut's text, and is not a dictation of the history.
    void voiceShortcut() {
        openFieldWithClipboard();
        if (QTest::currentTestFailed()) return;
        services.transcript = "Ma signature.";
        ClipboardWatch watch;
        const int mark = program.mark();
        holdAndSpeak(mark);
        if (QTest::currentTestFailed()) return;
        QVERIFY2(program.waitForLine("raccourci vocal: « ma signature »", mark, 20000),
                 program.since(mark));
        expectClipboardBack(watch, mark);
        if (QTest::currentTestFailed()) return;
        QCOMPARE(desktop().closeTarget().value_or("?"), QString("Jean Dupont, 12 rue des Lilas"));
        QCOMPARE(services.calls, QStringList{"parole"});
    }

    // Ctrl+Alt+V pastes the newest dictation again; the shortcut itself never reaches the field.
    void pasteLastAgain() {
        QVERIFY(!lastStored.isEmpty());
        openFieldWithClipboard();
        if (QTest::currentTestFailed()) return;
        ClipboardWatch watch;
        QVERIFY(desktop().keyboardChord({key("Control_L"), key("Alt_L"), key("v")}));
        expectClipboardBack(watch, program.mark());
        if (QTest::currentTestFailed()) return;
        QCOMPARE(keysHeldDown(), QList<int>());
        QCOMPARE(desktop().closeTarget().value_or("?"), lastStored);
        QVERIFY(services.calls.isEmpty());
    }

    // Ctrl+C twice on a selection: LanguageTool and the model correct it, and the corrected
    // text replaces the selection; the clipboard holds what the user copied.
    void doubleCopyCorrects() {
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        const QString typed = "il a manger une pome";
        // Typed and selected by xdotool: keys of a program, which the program leaves alone.
        QVERIFY(desktop().xdotool({"type", "--delay", "20", typed}));
        QVERIFY(desktop().xdotool({"key", "ctrl+a"}));
        services.grammarMatches = QJsonArray{QJsonObject{
            {"message", "Faute d'accord."},
            {"offset", 5},
            {"length", 6},
            {"replacements", QJsonArray{QJsonObject{{"value", "mangé"}}}},
            {"rule",
             QJsonObject{{"category", QJsonObject{{"id", "GRAMMAR"}, {"name", "Grammaire"}}}}}}};
        answer({}, "Il a mangé une pomme.");
        ClipboardWatch watch;
        const int mark = program.mark();
        const QList<int> copy{key("Control_L"), key("c")};
        QVERIFY(desktop().keyboardChord(copy));
        QVERIFY(desktop().keyboardChord(copy));
        QVERIFY2(program.waitForLine("correction: 20 → 21 caractères", mark), program.since(mark));
        QVERIFY2(watch.waitForChanges(2, desktop().targetWindow()), program.since(mark));
        QCOMPARE(desktop().readClipboard().value_or("?"), typed.toUtf8());
        QCOMPARE(desktop().closeTarget().value_or("?"), QString("Il a mangé une pomme."));
        QCOMPARE(services.checked, QStringList{typed});
        QCOMPARE(services.calls, QStringList({"grammaire", "texte"}));
    }

    // Ctrl+Alt+R reads the selection aloud on the speakers, and pressed again stops the
    // reading; the shortcut never reaches the field.
    void readAloudAndStop() {
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        // Letters of the keyboard's map only: xdotool types the others by remapping a key.
        const QString text = "il etait une fois un petit chat gris qui dormait au soleil tout le "
                             "long de la journee et qui revait de poissons et de souris";
        QVERIFY(desktop().xdotool({"type", "--delay", "5", text}));
        QVERIFY(desktop().xdotool({"key", "ctrl+a"}));
        SpeakerTap speakers(sound);
        const QList<int> readKeys{key("Control_L"), key("Alt_L"), key("r")};
        QVERIFY(desktop().keyboardChord(readKeys));
        QVERIFY(speakers.heardSomething(5000));
        QVERIFY(desktop().keyboardChord(readKeys));
        // The reading lasts several seconds: silence this soon means it was stopped.
        QVERIFY(speakers.quietAgain(800, 2500));
        QCOMPARE(desktop().closeTarget().value_or("?"), text);
        QVERIFY(services.calls.isEmpty());
    }

    // The speech model failing: the local engine has no French, so the dictation ends with
    // the error in the journal and the error sound; nothing is pasted, but the recording is
    // kept whole with a failed record. `--retry` against the healthy model makes it an
    // ordinary dictation whose text waits on the clipboard.
    void speechEngineFails() {
        openFieldWithClipboard();
        if (QTest::currentTestFailed()) return;
        services.speechStatus = 500;
        SpeakerTap speakers(sound);
        ClipboardWatch watch;
        const int mark = program.mark();
        holdAndSpeak(mark);
        if (QTest::currentTestFailed()) return;
        const auto error = program.waitForLine("erreur:", mark, 20000);
        QVERIFY2(error, program.since(mark));
        QVERIFY2(program.hasLine("transcription: Gemini indisponible", mark), program.since(mark));
        QVERIFY(speakers.heardSomething());
        QCOMPARE(services.calls, QStringList{"parole"});
        expectSentenceHeard();
        QTest::qWait(300);
        QCOMPARE(watch.changes(desktop().targetWindow()), 0);
        QVERIFY(!program.hasLine("collé:", mark));
        QCOMPARE(desktop().closeTarget().value_or("?"), QString());
        QVERIFY(DesktopSession::waitUntil([&] { return history(program).size() == stored + 1; }));
        const Dictation failed = history(program).first();
        QCOMPARE(failed.failure.value_or("?"), error->mid(QString("erreur: ").size()));
        QFile audio(program.dataFolder() + "/Audio/" + failed.audioFile.value_or("?"));
        QVERIFY(audio.open(QIODevice::ReadOnly));
        QCOMPARE(audio.readAll(), services.wavs.first());

        services.reset();
        const QString written = "Rappelle-moi d'acheter du pain.";
        answer("euh rappelle-moi d'acheter du pain", written);
        const int retried = program.mark();
        QCOMPARE(program.tell("--retry"), 0);
        QVERIFY2(program.waitFor(
                     [](auto& l) { return l.startsWith("réessai:") && l.contains("copiés"); },
                     retried, 20000),
                 program.since(retried));
        QCOMPARE(desktop().readClipboard().value_or("?"), written.toUtf8());
        QCOMPARE(services.calls, QStringList({"parole", "texte"}));
        QVERIFY(DesktopSession::waitUntil([&] { return !history(program).first().failed(); }));
        QCOMPARE(history(program).first().finalText, written);
        QCOMPARE(history(program).first().id, failed.id);
        ++stored;
        lastStored = written;
    }

    // On a French keyboard AltGr types characters: each chord types its character into the
    // field and starts no dictation (nothing shown, recorded or sent).
    void altGrChordsTypeCharacters() {
        const auto restore = frenchLayout();
        openFieldWithClipboard();
        if (QTest::currentTestFailed()) return;
        const int mark = program.mark();
        // AltGr (the key right of the space bar) with E, À/0 and "/3: € @ #.
        for (const int k : {26, 19, 12}) {
            QVERIFY(desktop().keyboardChord({kRightAlt, k}));
            QTest::qWait(100);
        }
        QVERIFY2(
            program.waitFor([](auto& l) { return l.contains("accord, dictée ignorée"); }, mark),
            program.since(mark));
        QTest::qWait(800);
        QCOMPARE(desktop().closeTarget().value_or("?"), QString("€@#"));
        QVERIFY(services.calls.isEmpty());
        QVERIFY2(!program.hasLine("enregistrement: fin", mark) &&
                     !program.hasLine("dictée sans les mains", mark),
                 program.since(mark));
        QCOMPARE(history(program).size(), stored);

        // The same key held alone is still a dictation, with none of its first words lost.
        dictateInto("euh je serai là demain matin", "Je serai là demain matin.");
    }

    // A clipboard owner that lists twenty formats and gives none (a frozen application): the
    // snapshot waits about a second for all of them, not five seconds each, and the journal
    // names the formats left out; the text arrives.
    void frozenClipboardOwner() {
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        FrozenClipboardOwner frozen(20);
        QVERIFY(frozen.valid());
        const QString written = "Le colis arrive demain.";
        answer("euh le colis arrive demain", written);
        const int mark = program.mark();
        holdAndSpeak(mark);
        if (QTest::currentTestFailed()) return;
        QVERIFY2(program.waitForLine("collé:", mark, 20000), program.since(mark));
        QVERIFY2(program.hasLine("presse-papiers: le propriétaire n'a pas donné à temps "
                                 "text/plain, application/x-gel-1",
                                 mark),
                 program.since(mark));
        QCOMPARE(desktop().closeTarget().value_or("?"), written);
        ++stored;
        lastStored = written;
    }

    // Other local clients on the program's socket: a thousand idle connections and one that
    // sends 64 MB without a line end. The program holds few descriptors for them and none of
    // what was sent, drops them within seconds, and the next dictation comes through.
    void socketStrangersCostNothing() {
        const QString socket =
            QDir(program.environment().value("XDG_RUNTIME_DIR")).filePath("ombry-voice.sock");
        const QString proc = QString("/proc/%1/").arg(program.pid());
        auto descriptors = [&] { return QDir(proc + "fd").count(); };
        auto residentKb = [&] {
            QFile status(proc + "status");
            status.open(QIODevice::ReadOnly);
            for (const QByteArray& line : status.readAll().split('\n'))
                if (line.startsWith("VmRSS:"))
                    return line.simplified().split(' ').value(1).toLongLong();
            return qint64(0);
        };
        const qsizetype before = descriptors();
        const qint64 residentBefore = residentKb();
        std::vector<std::unique_ptr<QLocalSocket>> idle;
        for (int i = 0; i < 1100; ++i) {
            idle.push_back(std::make_unique<QLocalSocket>());
            idle.back()->connectToServer(socket);
            QVERIFY(idle.back()->waitForConnected(2000));
        }
        QTest::qWait(300);
        QVERIFY2(descriptors() < before + 40,
                 qPrintable(QString("%1 descripteurs, %2 avant").arg(descriptors()).arg(before)));
        QLocalSocket flood;
        flood.connectToServer(socket);
        QVERIFY(flood.waitForConnected(2000));
        flood.write(QByteArray(64 << 20, 'x'));
        auto closed = [](const QLocalSocket& s) {
            return s.state() != QLocalSocket::ConnectedState;
        };
        QVERIFY(DesktopSession::waitUntil(
            [&] {
                return closed(flood) &&
                       std::all_of(idle.begin(), idle.end(), [&](auto& s) { return closed(*s); });
            },
            10000));
        QVERIFY2(residentKb() < residentBefore + 16 * 1024,
                 qPrintable(QString("%1 Ko, %2 avant").arg(residentKb()).arg(residentBefore)));
        dictateInto("euh la porte est ouverte", "La porte est ouverte.");
    }

    // The Menu key as dictation key, held while the sentence is spoken: the text reaches the
    // field, as the field's context menu never opened to take the keyboard and the paste,
    // and the key held (which the server repeats) is one press and one release.
    void menuKeyDictates() {
        const auto restore = frenchLayout();
        restartWithKey("fn");
        if (QTest::currentTestFailed()) return;
        const int mark = program.mark();
        dictateInto("euh la réunion est déplacée à demain", "La réunion est déplacée à demain.",
                    false, key("Menu"));
        if (QTest::currentTestFailed()) return;
        const QStringList lines = program.journal().mid(mark);
        QCOMPARE(lines.filter("touche: fn enfoncée").size(), 1);
        QCOMPARE(lines.filter("touche: fn relâchée").size(), 1);
        restartWithKey("rightOption");
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstDesktopDictation)
#include "tst_desktop_dictation.moc"
