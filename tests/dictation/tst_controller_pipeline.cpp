// From a finished recording to the text at the cursor, against a server playing the models:
// the calls each dictation costs, failures, commands, shortcuts and the selection actions.
#include "tst_controller_support.h"

#include "data/Records.h"
#include "desktop/Paster.h"
#include "platform/SerialQueue.h"

#include <QDir>
#include <QFile>

using namespace ombry;
using namespace ombry::test;
using State = DictationController::State;

namespace {

const QString kPaper = "presse-papiers";

QByteArray journal() {
    Log::sync();
    QFile f(Log::url());
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

class TstControllerPipeline : public QObject {
    Q_OBJECT
    ControllerFixture f;
    QStringList cards; // the result cards opened: "title | text"

    // A whole dictation by the key, up to its end.
    void dictateToEnd(bool shift = false) {
        QVERIFY(f.dictate(shift));
        QTRY_COMPARE_WITH_TIMEOUT(f.state(), State::Idle, 10000);
    }

private Q_SLOTS:
    void init() {
        f.setUp();
        cards.clear();
        f.c().onBubble = [this](const QString& title, const QString&, const QString& text) {
            cards << title + " | " + text;
        };
    }
    void cleanup() { f.tearDown(); }

    // The whole road: the recording goes to the speech model, a clean transcript skips the
    // rewrite, the record is stored with its audio, the text reaches the window that was in
    // front at the press, and the user's clipboard comes back once the target has read it.
    void fullDictation() {
        AppSettings::shared().setSounds(true);
        const int stored = Store::shared().dictations().size();
        const QDateTime pressed = f.platform.clock().now();
        QVERIFY(f.startRecording());
        QCOMPARE(f.sounds(), QStringList{"Tink"});
        f.platform.windows().front = AppWindow{9, "firefox", "Firefox", "firefox", 9};
        f.platform.audio().feed(tone());
        f.advance(1000);
        f.c().handleRelease();
        QCOMPARE(f.sounds(), (QStringList{"Tink", "Pop"}));
        QTRY_COMPARE(f.state(), State::Idle);
        QCOMPARE(f.models.calls, QStringList{"transcription"});
        QCOMPARE(f.pasted, QStringList{"Bonjour tout le monde."});
        QCOMPARE(*f.c().flash(), QString("4 mots"));
        QCOMPARE(Store::shared().dictations().size(), stored + 1);
        const Dictation d = Store::shared().dictations().first();
        QCOMPARE(d.finalText, QString("Bonjour tout le monde."));
        QCOMPARE(d.rawText, QString("bonjour tout le monde"));
        QCOMPARE(d.bundleID, std::optional<QString>(f.editor.appId));
        QCOMPARE(d.date, pressed); // when the key went down, not when the text came
        QVERIFY(Store::shared().audioURL(d));
        QCOMPARE(f.platform.windows().activated.size(), 1);
        QCOMPARE(f.platform.windows().activated[0].appId, f.editor.appId);
        f.advance(Paster::kMinHoldMs); // the target read at once: the least hold of the text
        QTRY_COMPARE(f.platform.clipboard().text().value_or(""), kPaper);
    }

    void dictationRoads_data() {
        QTest::addColumn<QString>("heard");
        QTest::addColumn<bool>("shift");
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QStringList>("calls");
        QTest::addColumn<QString>("pasted"); // empty: nothing pasted, a hint shown instead
        const QStringList t{"transcription"};
        const QStringList tr{"transcription", "reformulation"};
        const QStringList trt{"transcription", "reformulation", "traduction"};
        const QString hello = "bonjour tout le monde",
                      stammer = "euh bonjour bonjour tout le monde";
        const auto row = [](const char* name, QString heard, bool shift, QString setup,
                            QStringList calls, QString pasted) {
            QTest::newRow(name) << heard << shift << setup << calls << pasted;
        };
        row("three words", "salut les amis", false, "", t, "Salut les amis");
        row("three words, translated", "salut les amis", true, "", trt, "Hello everyone.");
        row("hesitations", stammer, false, "", tr, "Bonjour à tous.");
        row("no rewrite engine", stammer, false, "none", t, "Bonjour bonjour tout le monde");
        row("no rewrite engine, translated", hello, true, "none", trt, "Hello everyone.");
        row("application translated by choice", hello, false, "translateApp", trt,
            "Hello everyone.");
        row("chat application tone", hello, false, "chat", tr, "Bonjour à tous.");
        row("deepgram never skips", hello, false, "deepgram", {"reformulation"}, "Bonjour à tous.");
        row("light punctuation", "bonjour; tout, le monde", false, "light", t,
            "Bonjour tout le monde.");
        // Failed rewrites paste the lightly cleaned text and keep the reason, silently.
        row("both rewrites fail", stammer, false, "rewriteFails", tr,
            "Bonjour bonjour tout le monde");
        row("translation fails", "salut les amis", true, "translationFails", trt, "Salut les amis");
        // A rewrite that leaves nothing worth pasting fails with a hint; the record is kept.
        row("filler alone", stammer, false, "rewrite:Euh.", tr, "");
        row("filler in a sentence", stammer, false, "rewrite:Euh bonjour.", tr, "Euh bonjour.");
        row("model's excuse", stammer, false, "rewrite:Je n'ai pas pu entendre l'audio.", tr, "");
        // Selected text is an instruction only where it is the front window's and commands
        // are on; the front field's own word comes first, PRIMARY where it says nothing.
        row("blank selection", hello, false, "selection: \n\t", t, "Bonjour tout le monde.");
        row("own window", hello, false, "own window", t, "Bonjour tout le monde.");
        row("commands off", hello, false, "commands off", t, "Bonjour tout le monde.");
        row("PRIMARY of another window", hello, false, "other window", t, "Bonjour tout le monde.");
        row("field without selection", hello, false, "empty field", t, "Bonjour tout le monde.");
        row("field with a selection", hello, false, "field selection",
            {"transcription", "commande"}, "Texte rendu poli.");
    }
    // One speech call for a clean speaker; the rewrite when the text needs it, the tone of the
    // application asks for it, or a translation follows; a command where text is selected.
    void dictationRoads() {
        QFETCH(QString, heard);
        QFETCH(bool, shift);
        QFETCH(QString, setup);
        QFETCH(QStringList, calls);
        QFETCH(QString, pasted);
        AppSettings& s = AppSettings::shared();
        FakeClipboard& clipboard = f.platform.clipboard();
        const int stored = Store::shared().dictations().size();
        s.setPunctuation(setup == "light" ? PunctuationLevel::Light : PunctuationLevel::Normal);
        s.setVoiceCommands(setup != "commands off");
        if (setup == "none") s.setRewriteEngine(RewriteEngine::None);
        if (setup == "translateApp") s.setTranslateApps({"firefox", f.editor.appId});
        if (setup == "chat") {
            s.setAdaptTone(true);
            f.platform.windows().front = AppWindow{5, "slack", "Slack", "slack", 5};
        }
        if (setup == "deepgram") {
            s.setTranscriptionEngine(TranscriptionEngine::Deepgram);
            KeyStore::shared().save("dg-test", APIService::Deepgram);
            const QJsonObject alternative{{"transcript", heard}};
            const QJsonObject channel{{"alternatives", QJsonArray{alternative}}};
            f.models.server.on("/v1/listen",
                               Reply::json(QJsonObject{
                                   {"results", QJsonObject{{"channels", QJsonArray{channel}}}}}));
        }
        if (setup == "rewriteFails") f.models.replies["reformulation"] = Reply::text("non", 503);
        if (setup == "translationFails") f.models.replies["traduction"] = Reply::text("non", 500);
        if (setup.startsWith("rewrite:"))
            f.models.replies["reformulation"] = chatCompletion(setup.mid(8));
        if (setup.startsWith("selection:")) clipboard.selection = setup.mid(10);
        if (QStringList{"own window", "commands off", "other window", "empty field"}.contains(
                setup))
            clipboard.selection = "un texte";
        // Not installed: no application id, only its process.
        if (setup == "own window")
            f.platform.windows().front =
                AppWindow{3, "", "Appli", "appli", QCoreApplication::applicationPid()};
        clipboard.primaryInFront = setup != "other window";
        if (setup == "empty field") f.platform.accessibility().focus = f.field("Bonjour");
        if (setup == "field selection")
            f.platform.accessibility().focus =
                f.field("Vous devez rendre le rapport", QString("vous devez rendre le rapport"));
        f.models.replies["transcription"] = chatCompletion(heard);
        dictateToEnd(shift);
        QCOMPARE(f.models.calls, calls);
        QCOMPARE(f.pasted, pasted.isEmpty() ? QStringList() : QStringList{pasted});
        QCOMPARE(f.sounds(), pasted.isEmpty() ? QStringList{"Basso"} : QStringList());
        QCOMPARE(Store::shared().dictations().size(),
                 stored + (calls.contains("commande") ? 0 : 1));
        if (setup.endsWith("Fails")) QVERIFY(f.c().lastError()->startsWith("IA locale : erreur"));
        if (pasted.isEmpty())
            QCOMPARE(*f.c().flash(),
                     QString("Je n'ai rien entendu, parle un peu plus près du micro"));
        if (setup == "field selection")
            QCOMPARE(Store::shared().fixes().first().original,
                     QString("vous devez rendre le rapport"));
    }

    // Gemini failing hands over to the local engine; when that fails too, the dictation ends
    // with its error and "Basso", nothing pasted, and is kept as failed with its audio. A retry
    // on the kept audio makes it an ordinary dictation whose text waits on the clipboard. An
    // empty transcript keeps nothing.
    void speechEngineFails() {
        const int stored = Store::shared().dictations().size();
        const int words = Store::shared().totalWords();
        f.models.replies["transcription"] = Reply::text("panne", 500);
        dictateToEnd();
        const QString error = "Local : erreur 0 langue non disponible";
        QCOMPARE(f.c().flash().value_or(""), error);
        QCOMPARE(f.sounds(), QStringList{"Basso"});
        QVERIFY(f.pasted.isEmpty());
        QCOMPARE(Store::shared().dictations().size(), stored + 1);
        const Dictation failed = Store::shared().dictations().first();
        QCOMPARE(failed.failure, std::optional(error));
        QVERIFY(Store::shared().audioURL(failed));
        QCOMPARE(Store::shared().totalWords(), words);

        f.models.reset();
        f.c().retry(failed.id);
        QTRY_COMPARE(f.state(), State::Idle);
        QCOMPARE(f.platform.clipboard().text().value_or(""), QString("Bonjour tout le monde."));
        QCOMPARE(*f.c().flash(), QString("4 mots copiés"));
        QCOMPARE(Store::shared().dictations().first().date, failed.date);
        QCOMPARE(Store::shared().totalWords(), words + 4);

        const auto files = [] {
            Store::shared().ioQueue().sync([] {});
            return QDir(Store::shared().audioFolder()).entryList(QDir::Files);
        };
        const QStringList kept = files();
        f.models.replies["transcription"] = chatCompletion(" \n ");
        dictateToEnd();
        QCOMPARE(*f.c().flash(), QString("Transcription vide"));
        QCOMPARE(Store::shared().dictations().size(), stored + 1);
        QCOMPARE(files(), kept);
    }

    // Without the keyboard hook at delivery the record is kept and the settings come forward.
    void noKeyboardAtDelivery() {
        const int stored = Store::shared().dictations().size();
        f.platform.keyboard().stop();
        f.process();
        QCOMPARE(*f.c().flash(), QString("Accessibilité non autorisée"));
        QCOMPARE(f.attention, 1);
        QCOMPARE(Store::shared().dictations().size(), stored + 1);
        QVERIFY(f.pasted.isEmpty());
    }

    // What the chunker already produced replaces the speech call.
    void chunkedResults() {
        f.process(std::pair<QString, QString>{"bonjour tout le monde", "Bonjour à vous tous"});
        QVERIFY(f.models.calls.isEmpty());
        QCOMPARE(f.pasted, QStringList{"Bonjour à vous tous."});
        QCOMPARE(Store::shared().dictations().first().rawText, QString("bonjour tout le monde"));

        f.process(std::pair<QString, QString>{"salut les amis", ""}); // as if the engine said it
        QVERIFY(f.models.calls.isEmpty());
        QCOMPARE(f.pasted.last(), QString("Salut les amis"));

        f.process(std::pair<QString, QString>{"", ""}); // every piece was silence
        QCOMPARE(*f.c().flash(), QString("Transcription vide"));
        QCOMPARE(f.pasted.size(), 2);
    }

    // With text selected, the transcript is an instruction on it, even when it is also a
    // shortcut's trigger: the result replaces the selection, a fix is recorded, no dictation.
    void voiceCommand() {
        Store::shared().setSnippets({Snippet{newRecordId(), "bonjour tout le monde", "Salut !"}});
        f.platform.clipboard().selection = "vous devez rendre le rapport";
        const int dictations = Store::shared().dictations().size();
        QVERIFY(f.startRecording());
        QCOMPARE(f.c().commandText().value_or(""), QString("vous devez rendre le rapport"));
        f.platform.audio().feed(tone());
        f.advance(1000);
        f.c().handleRelease();
        QTRY_COMPARE(f.state(), State::Idle);
        QCOMPARE(f.models.calls, (QStringList{"transcription", "commande"}));
        QCOMPARE(f.pasted, QStringList{"Texte rendu poli."});
        QCOMPARE(Store::shared().dictations().size(), dictations);
        const CorrectionRecord fix = Store::shared().fixes().first();
        QCOMPARE(fix.action, QString("Commande : bonjour tout le monde"));
        QCOMPARE(fix.original, QString("vous devez rendre le rapport"));

        // The journal quotes the instruction's first 60 characters, an emoji whole.
        const QString start = QString(59, 'a') + QStringLiteral("👍🏽");
        f.models.replies["transcription"] = chatCompletion(start + QStringLiteral(" et la suite"));
        dictateToEnd();
        QVERIFY(journal().contains(("commande appliquée: « " + start + " »").toUtf8()));
    }

    // A spoken trigger pastes its text as it stands, whatever the dictionary, without record.
    void voiceShortcut() {
        Store::shared().setSnippets({Snippet{newRecordId(), "mon adresse", "12 rue des Lilas"}});
        Store::shared().setCorrections({Correction{newRecordId(), "adresse", "adrèsse"}});
        const int dictations = Store::shared().dictations().size();
        const int fixes = Store::shared().fixes().size();
        f.models.replies["transcription"] = chatCompletion("Mon adresse.");
        dictateToEnd();
        QCOMPARE(f.pasted, QStringList{"12 rue des Lilas"});
        QCOMPARE(Store::shared().dictations().size(), dictations);
        QCOMPARE(Store::shared().fixes().size(), fixes);
    }

    // Where the field in front exposes its text, a paste that did not arrive there opens the
    // card with the text and its copy button; one that arrived, not.
    void pasteThatDidNotLand() {
        f.platform.accessibility().focus = f.field("Cher Paul, ");
        dictateToEnd();
        QCOMPARE(f.platform.accessibility().content, QString("Cher Paul, Bonjour tout le monde."));
        QTest::qWait(500);
        QVERIFY(cards.isEmpty());

        f.pasted.clear();
        f.platform.accessibility().focus = f.field("Cher Paul, ");
        f.fieldTakesPastes = false;
        dictateToEnd();
        QCOMPARE(f.pasted, QStringList{"Bonjour tout le monde."});
        QTRY_COMPARE(cards, QStringList{"Texte non collé | Bonjour tout le monde."});

        // Where nothing tells whether the element takes text, a target that never reads the
        // clipboard took no text: a translation opens in its card.
        cards.clear();
        f.platform.accessibility().focus.reset();
        f.targetReads = false;
        f.platform.clipboard().selection = "Bonjour à tous, je vous écris.";
        f.models.replies["traduction"] = chatCompletion("Hello everyone, I am writing to you.");
        await(f.c().correctSelection(false, true));
        f.advance(Paster::kRestoreTimeoutMs);
        QTRY_COMPARE(cards,
                     QStringList{"Traduit en anglais | Hello everyone, I am writing to you."});
    }

    // Ctrl+Alt+V pastes the newest record as stored, and nothing during a recording.
    void pasteLast() {
        const Dictation d{.finalText = "Je n'ai pas pu entendre l'audio. Texte gardé"};
        Store::shared().add(d);
        QVERIFY(f.startRecording());
        f.c().pasteLast();
        QTest::qWait(150);
        QVERIFY(f.pasted.isEmpty());
        f.c().cancel();
        QTRY_COMPARE(f.state(), State::Idle);

        f.platform.keyboard().send(
            {KeyEvent::Type::KeyDown, keycode::V, modifier::Control | modifier::Option});
        QTRY_COMPARE(f.pasted, QStringList{d.finalText});
        QTRY_COMPARE(*f.c().flash(), QString("Dernière dictée recollée"));
    }

    // Ctrl+C twice corrects what the user copied and pastes it over the selection; the
    // clipboard comes back as the copy left it, whatever the restore setting says.
    void doubleCopyCorrects() {
        AppSettings& s = AppSettings::shared();
        s.setRestoreClipboard(false);
        s.setCorrectionShortcut(true);
        s.setCorrectionDoubleCopy(true);
        f.platform.clipboard().restore({{"text/plain", QByteArray("Il a manger la pomme.")}});
        f.models.replies["reformulation"] = chatCompletion("Il a mangé la pomme.");
        await(f.c().correctSelection(true, false));
        QCOMPARE(f.pasted, QStringList{"Il a mangé la pomme."});
        QCOMPARE(Store::shared().fixes().first().original, QString("Il a manger la pomme."));
        f.advance(Paster::kMinHoldMs);
        QTRY_COMPARE(f.platform.clipboard().text().value_or(""), QString("Il a manger la pomme."));

        // Three Ctrl+C in a row translate, through the hotkey monitor.
        const int fixes = Store::shared().fixes().size();
        const KeyEvent copy{KeyEvent::Type::KeyDown, keycode::C, modifier::Control};
        for (int i = 0; i < 3; ++i)
            f.platform.keyboard().send(copy);
        QTRY_COMPARE(f.pasted.value(1), QString("Hello everyone."));
        QTRY_COMPARE(f.state(), State::Idle);
        QCOMPARE(Store::shared().fixes().size(), fixes + 1);
        QCOMPARE(Store::shared().fixes().first().action, QString("Traduire"));
        s.setRestoreClipboard(true);
    }

    // Failures of a selection action leave the clipboard as it was; a correction that changes
    // nothing is pasted all the same, without a record.
    void selectionFailures() {
        const int fixes = Store::shared().fixes().size();
        // Nothing selected: the copy posted gives nothing.
        await(f.c().correctSelection(false, false));
        QCOMPARE(*f.c().flash(), QString("Aucun texte sélectionné"));
        QCOMPARE(f.sounds(), QStringList{"Basso"});
        QCOMPARE(f.platform.clipboard().text().value_or(""), kPaper);
        QCOMPARE(f.state(), State::Idle);

        // The translation fails remotely and locally.
        f.platform.clipboard().selection = "Bonjour à tous, je vous écris.";
        f.models.replies["traduction"] = Reply::text("panne", 500);
        await(f.c().correctSelection(false, true));
        QVERIFY(f.c().flash()->startsWith("IA locale : erreur"));
        QCOMPARE(f.platform.clipboard().text().value_or(""), kPaper);
        QVERIFY(f.pasted.isEmpty());

        f.platform.clipboard().selection = "Tout va bien.";
        f.models.replies["reformulation"] = chatCompletion("Tout va bien.");
        await(f.c().correctSelection(false, false));
        QCOMPARE(f.pasted, QStringList{"Tout va bien."});
        QCOMPARE(*f.c().flash(), QString("Aucune faute"));
        QCOMPARE(Store::shared().fixes().size(), fixes);

        // Busy: nothing at all.
        f.platform.audio().played.clear();
        QVERIFY(f.startRecording());
        await(f.c().correctSelection(false, false));
        QCOMPARE(f.state(), State::Recording);
        QVERIFY(f.sounds().isEmpty());
        f.c().cancel();
    }

    // Reading aloud in the language of the text; the same key stops it.
    void readAloud() {
        const QString text = "Je vous envoie le rapport demain matin avant la réunion.";
        f.platform.clipboard().selection = text;
        f.c().speakSelection();
        QTRY_COMPARE(f.platform.speech().spoken.size(), 1);
        QCOMPARE(f.platform.speech().spoken[0], qMakePair(text, QString("fr")));
        f.c().speakSelection();
        QVERIFY(!f.platform.speech().speaking());

        f.platform.clipboard().selection.reset();
        f.c().speakSelection();
        QTRY_COMPARE(f.c().flash().value_or(""), QString("Aucun texte sélectionné"));
        QCOMPARE(f.platform.clipboard().text().value_or(""), kPaper);
    }
};

QTEST_GUILESS_MAIN(TstControllerPipeline)
#include "tst_controller_pipeline.moc"
