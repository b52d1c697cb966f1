// From a finished recording to the text at the cursor, against a server playing the models:
// which calls each dictation costs, the fallbacks and what each failure leaves behind, voice
// commands and shortcuts, pasting the last dictation again, and the actions on a selection.
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

std::optional<QString> clipboardText(FakePlatform& p) {
    return p.clipboard().text();
}

// The audio of the last speech request.
QByteArray sentAudio(const Models& models) {
    const QList<RecordedRequest> chats = models.server.requests(kChat);
    QByteArray wav;
    for (const RecordedRequest& r : chats)
        for (const QJsonValue part : r.json()["messages"][1]["content"].toArray())
            if (const QString data = part["input_audio"]["data"].toString(); !data.isEmpty())
                wav = QByteArray::fromBase64(data.toLatin1());
    return wav;
}

} // namespace

class TstControllerPipeline : public QObject {
    Q_OBJECT
    ControllerFixture f;

    // A whole dictation by the key, up to its end.
    void dictateToEnd(bool shift = false) {
        QVERIFY(f.dictate(shift));
        QTRY_COMPARE_WITH_TIMEOUT(f.state(), State::Idle, 10000);
    }

private Q_SLOTS:
    void init() { f.setUp(); }
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
        QCOMPARE(f.platform.keyPoster().posted.last(), (KeyCombo{keycode::V, modifier::Control}));
        QCOMPARE(*f.c().flash(), QString("4 mots"));
        QVERIFY(!f.c().commandText());

        QCOMPARE(Store::shared().dictations().size(), stored + 1);
        const Dictation d = Store::shared().dictations().first();
        QCOMPARE(d.finalText, QString("Bonjour tout le monde."));
        QCOMPARE(d.rawText, QString("bonjour tout le monde"));
        QCOMPARE(d.appName, f.editor.name);
        QCOMPARE(d.bundleID, std::optional<QString>(f.editor.appId));
        QCOMPARE(d.duration, 1.0);
        QCOMPARE(d.date, pressed); // when the key went down, not when the text came
        QFile audio(QDir(Store::shared().audioFolder()).filePath(*d.audioFile));
        QVERIFY(audio.open(QIODevice::ReadOnly));
        QVERIFY(audio.read(4) == "RIFF");
        QCOMPARE(f.platform.windows().activated.size(), 1);
        QCOMPARE(f.platform.windows().activated[0].appId, f.editor.appId);
        f.advance(Paster::kMinHoldMs); // the target read at once: the least hold of the text
        QTRY_COMPARE(clipboardText(f.platform).value_or(""), kPaper);
    }

    void rewriteDecision_data() {
        QTest::addColumn<QString>("heard");
        QTest::addColumn<bool>("shift");
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QStringList>("calls");
        QTest::addColumn<QString>("pasted");
        const QStringList t{"transcription"};
        const QStringList tr{"transcription", "reformulation"};
        const QStringList trt{"transcription", "reformulation", "traduction"};
        QTest::newRow("three words") << "salut les amis" << false << "" << t << "Salut les amis";
        QTest::newRow("three words, translated")
            << "salut les amis" << true << "" << trt << "Hello everyone.";
        QTest::newRow("hesitations")
            << "euh bonjour bonjour tout le monde" << false << "" << tr << "Bonjour à tous.";
        QTest::newRow("no rewrite engine") << "euh bonjour bonjour tout le monde" << false << "none"
                                           << t << "Bonjour bonjour tout le monde";
        QTest::newRow("no rewrite engine, translated")
            << "bonjour tout le monde" << true << "none" << trt << "Hello everyone.";
        QTest::newRow("application translated by choice")
            << "bonjour tout le monde" << false << "translateApp" << trt << "Hello everyone.";
        QTest::newRow("chat application tone")
            << "bonjour tout le monde" << false << "chat" << tr << "Bonjour à tous.";
        QTest::newRow("deepgram never skips") << "bonjour tout le monde" << false << "deepgram"
                                              << QStringList{"reformulation"} << "Bonjour à tous.";
        QTest::newRow("light punctuation")
            << "bonjour; tout, le monde" << false << "light" << t << "Bonjour tout le monde.";
    }
    // One speech call for a clean speaker; the rewrite when the text needs it, the tone of the
    // application asks for it, or a translation follows.
    void rewriteDecision() {
        QFETCH(QString, heard);
        QFETCH(bool, shift);
        QFETCH(QString, setup);
        QFETCH(QStringList, calls);
        QFETCH(QString, pasted);
        AppSettings& s = AppSettings::shared();
        s.setPunctuation(setup == "light" ? PunctuationLevel::Light : PunctuationLevel::Normal);
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
        f.models.replies["transcription"] = chatCompletion(heard);
        dictateToEnd(shift);
        QCOMPARE(f.models.calls, calls);
        QCOMPARE(f.pasted, QStringList{pasted});
        s.setPunctuation(PunctuationLevel::Normal);
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
        QVERIFY(f.c().flashIsError());
        QCOMPARE(f.sounds(), QStringList{"Basso"});
        QVERIFY(f.pasted.isEmpty());
        QCOMPARE(Store::shared().dictations().size(), stored + 1);
        const Dictation failed = Store::shared().dictations().first();
        QCOMPARE(failed.failure, std::optional(error));
        QCOMPARE(failed.duration, 1.0);
        QFile audio(Store::shared().audioURL(failed).value_or(""));
        QVERIFY(audio.open(QIODevice::ReadOnly));
        QCOMPARE(audio.readAll(), sentAudio(f.models)); // what the engine heard, whole
        QCOMPARE(Store::shared().totalWords(), words);

        f.models.reset();
        f.c().retry(failed.id);
        QCOMPARE(f.state(), State::Processing);
        QTRY_COMPARE(f.state(), State::Idle);
        QCOMPARE(f.models.calls, QStringList{"transcription"});
        QCOMPARE(clipboardText(f.platform).value_or(""), QString("Bonjour tout le monde."));
        QCOMPARE(*f.c().flash(), QString("4 mots copiés"));
        QVERIFY(f.pasted.isEmpty());
        QCOMPARE(Store::shared().dictations().size(), stored + 1);
        const Dictation done = Store::shared().dictations().first();
        QVERIFY(!done.failed());
        QCOMPARE(done.finalText, QString("Bonjour tout le monde."));
        QCOMPARE(done.date, failed.date);
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

    // Both rewrites failing, or the translation after a rewrite failing, paste the lightly
    // cleaned text and keep the reason; no error is shown.
    void rewriteFailsSoftly() {
        f.models.replies["reformulation"] = Reply::text("surchargé", 503);
        f.models.replies["transcription"] = chatCompletion("euh bonjour bonjour tout le monde");
        dictateToEnd();
        QCOMPARE(f.pasted, QStringList{"Bonjour bonjour tout le monde"});
        QVERIFY(f.c().lastError()->startsWith("IA locale : erreur"));
        QCOMPARE(*f.c().flash(), QString("5 mots"));
        QVERIFY(f.sounds().isEmpty());

        f.models.reset();
        f.pasted.clear();
        f.models.replies["traduction"] = Reply::text("non", 500);
        f.models.replies["transcription"] = chatCompletion("salut les amis");
        dictateToEnd(true);
        QCOMPARE(f.pasted, QStringList{"Salut les amis"});
        QVERIFY(f.c().lastError()->startsWith("IA locale : erreur"));
    }

    void nothingHeard_data() {
        QTest::addColumn<QString>("rewritten");
        QTest::addColumn<bool>("pastes");
        QTest::newRow("filler alone") << "Euh." << false;
        QTest::newRow("filler in a sentence") << "Euh bonjour." << true;
        QTest::newRow("model's excuse") << "Je n'ai pas pu entendre l'audio." << false;
    }
    // A rewrite that leaves nothing worth pasting fails with a hint; the record is kept.
    void nothingHeard() {
        QFETCH(QString, rewritten);
        QFETCH(bool, pastes);
        const int stored = Store::shared().dictations().size();
        f.models.replies["transcription"] = chatCompletion("euh euh hum bonjour bonjour");
        f.models.replies["reformulation"] = chatCompletion(rewritten);
        dictateToEnd();
        QCOMPARE(Store::shared().dictations().size(), stored + 1);
        QCOMPARE(f.pasted.size(), pastes ? 1 : 0);
        if (!pastes)
            QCOMPARE(*f.c().flash(),
                     QString("Je n'ai rien entendu, parle un peu plus près du micro"));
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
        QCOMPARE(*f.c().flash(), QString("Commande appliquée"));
        QVERIFY(!f.c().commandText());
        QCOMPARE(Store::shared().dictations().size(), dictations);
        const CorrectionRecord fix = Store::shared().fixes().first();
        QCOMPARE(fix.action, QString("Commande : bonjour tout le monde"));
        QCOMPARE(fix.original, QString("vous devez rendre le rapport"));
        QCOMPARE(fix.result, QString("Texte rendu poli."));

        // The journal quotes the instruction's first 60 characters, an emoji whole.
        const QString start = QString(59, 'a') + QStringLiteral("👍🏽");
        f.models.replies["transcription"] = chatCompletion(start + QStringLiteral(" et la suite"));
        dictateToEnd();
        Log::sync();
        QFile journal(Log::url());
        QVERIFY(journal.open(QIODevice::ReadOnly));
        QVERIFY(journal.readAll().contains(("commande appliquée: « " + start + " »").toUtf8()));
    }

    void notACommand_data() {
        QTest::addColumn<QString>("selection");
        QTest::addColumn<QString>("app");
        QTest::addColumn<bool>("commands");
        QTest::newRow("blank selection") << " \n\t"
                                         << "org.gnome.TextEditor" << true;
        // Not installed: no application id, only its process.
        QTest::newRow("own window") << "un texte"
                                    << "" << true;
        QTest::newRow("commands off") << "un texte"
                                      << "org.gnome.TextEditor" << false;
    }
    void notACommand() {
        QFETCH(QString, selection);
        QFETCH(QString, app);
        QFETCH(bool, commands);
        AppSettings::shared().setVoiceCommands(commands);
        f.platform.clipboard().selection = selection;
        const int64_t pid = app.isEmpty() ? QCoreApplication::applicationPid() : 3;
        f.platform.windows().front = AppWindow{3, app, "Appli", "appli", pid};
        dictateToEnd();
        QCOMPARE(f.models.calls, QStringList{"transcription"});
        QCOMPARE(f.pasted, QStringList{"Bonjour tout le monde."});
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
        QCOMPARE(*f.c().flash(), QString("Raccourci « mon adresse »"));
        QCOMPARE(Store::shared().dictations().size(), dictations);
        QCOMPARE(Store::shared().fixes().size(), fixes);
        QCOMPARE(f.models.calls, QStringList{"transcription"});
    }

    // The selected text is that of the focused element of the window in front: what its
    // application says first; where it says nothing, PRIMARY only when that window owns it.
    void selectionOfTheWindowInFront() {
        // Text selected earlier in another window: the dictation stays a dictation.
        f.platform.clipboard().selection = "un texte d'une autre fenêtre";
        f.platform.clipboard().primaryInFront = false;
        dictateToEnd();
        QCOMPARE(f.models.calls, QStringList{"transcription"});
        QCOMPARE(f.pasted, QStringList{"Bonjour tout le monde."});

        // The field in front has a selection: the dictation is an instruction on it.
        f.models.calls.clear();
        f.pasted.clear();
        f.platform.accessibility().focus =
            f.field("Vous devez rendre le rapport", QString("vous devez rendre le rapport"));
        dictateToEnd();
        QCOMPARE(f.models.calls, (QStringList{"transcription", "commande"}));
        QCOMPARE(Store::shared().fixes().first().original, QString("vous devez rendre le rapport"));

        // The field in front has nothing selected: PRIMARY, even its own, is not asked.
        f.models.calls.clear();
        f.pasted.clear();
        f.platform.accessibility().focus = f.field("Bonjour");
        f.platform.clipboard().primaryInFront = true;
        dictateToEnd();
        QCOMPARE(f.models.calls, QStringList{"transcription"});
        QCOMPARE(f.pasted, QStringList{"Bonjour tout le monde."});
        QVERIFY(f.platform.accessibility().asked > 0);
    }

    // Where the field in front exposes its text, a paste that did not arrive there opens the
    // card with the text and its copy button, and the journal says so; one that arrived, not.
    void pasteThatDidNotLand() {
        QStringList cards;
        f.c().onBubble = [&cards](const QString& title, const QString&, const QString& text) {
            cards << title + " | " + text;
        };
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
        Log::sync();
        QFile journal(Log::url());
        QVERIFY(journal.open(QIODevice::ReadOnly));
        QVERIFY(journal.readAll().contains("collage: non arrivé (Éditeur de texte)"));
    }

    // Where nothing tells whether the element takes text, a target that never reads the
    // clipboard took no text: a translation opens in its card, a correction in the card of a
    // text not pasted.
    void targetThatTakesNoText() {
        QStringList cards;
        f.c().onBubble = [&cards](const QString& title, const QString&, const QString& text) {
            cards << title + " | " + text;
        };
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
        Dictation d;
        d.finalText = "Je n'ai pas pu entendre l'audio. Texte gardé";
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
        QCOMPARE(f.state(), State::Idle);
        QCOMPARE(f.pasted, QStringList{"Il a mangé la pomme."});
        QCOMPARE(*f.c().flash(), QString("Texte corrigé"));
        QVERIFY(!f.c().translating());
        const CorrectionRecord fix = Store::shared().fixes().first();
        QCOMPARE(fix.action, QString("Corriger"));
        QCOMPARE(fix.original, QString("Il a manger la pomme."));
        QCOMPARE(fix.appName, f.editor.name);
        f.advance(Paster::kMinHoldMs);
        QTRY_COMPARE(clipboardText(f.platform).value_or(""), QString("Il a manger la pomme."));

        // Three Ctrl+C in a row translate, through the hotkey monitor.
        const int fixes = Store::shared().fixes().size();
        const KeyEvent copy{KeyEvent::Type::KeyDown, keycode::C, modifier::Control};
        for (int i = 0; i < 3; ++i)
            f.platform.keyboard().send(copy);
        QTRY_COMPARE(f.pasted.size(), 2);
        QCOMPARE(f.pasted.last(), QString("Hello everyone."));
        QVERIFY(f.c().translating());
        QTRY_COMPARE(f.state(), State::Idle);
        QCOMPARE(*f.c().flash(), QString("Texte traduit"));
        QCOMPARE(Store::shared().fixes().size(), fixes + 1);
        QCOMPARE(Store::shared().fixes().first().action, QString("Traduire"));
        s.setRestoreClipboard(true);
    }

    // A correction that changes nothing is pasted all the same, without a record.
    void correctionFindsNothing() {
        const int fixes = Store::shared().fixes().size();
        f.platform.clipboard().selection = "Tout va bien.";
        f.models.replies["reformulation"] = chatCompletion("Tout va bien.");
        await(f.c().correctSelection(false, false));
        QCOMPARE(f.pasted, QStringList{"Tout va bien."});
        QCOMPARE(*f.c().flash(), QString("Aucune faute"));
        QCOMPARE(Store::shared().fixes().size(), fixes);
    }

    // Failures of a selection action leave the clipboard as it was.
    void selectionFailures() {
        // Nothing selected: the copy posted gives nothing.
        await(f.c().correctSelection(false, false));
        QCOMPARE(*f.c().flash(), QString("Aucun texte sélectionné"));
        QCOMPARE(f.sounds(), QStringList{"Basso"});
        QCOMPARE(clipboardText(f.platform).value_or(""), kPaper);
        QCOMPARE(f.state(), State::Idle);

        // The translation fails remotely and locally.
        f.platform.clipboard().selection = "Bonjour à tous, je vous écris.";
        f.models.replies["traduction"] = Reply::text("panne", 500);
        await(f.c().correctSelection(false, true));
        QVERIFY(f.c().flash()->startsWith("IA locale : erreur"));
        QCOMPARE(clipboardText(f.platform).value_or(""), kPaper);
        QVERIFY(f.pasted.isEmpty());

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
        QCOMPARE(*f.c().flash(), QString("Lecture à voix haute"));
        f.c().speakSelection();
        QVERIFY(!f.platform.speech().speaking());
        QTest::qWait(150);
        QCOMPARE(f.platform.speech().spoken.size(), 1);

        f.platform.clipboard().selection.reset();
        f.c().speakSelection();
        QTRY_COMPARE(f.c().flash().value_or(""), QString("Aucun texte sélectionné"));
        QCOMPARE(clipboardText(f.platform).value_or(""), kPaper);
    }
};

QTEST_GUILESS_MAIN(TstControllerPipeline)
#include "tst_controller_pipeline.moc"
