#pragma once

// What the controller tests share: a fresh controller on the fake desktop, a server playing the
// models, a target application that reads each paste, the sounds played by name.
#include "Await.h"
#include "FakePlatform.h"
#include "SpeechServer.h"

#include "audio/AudioRecorder.h"
#include "audio/Sounds.h"
#include "correction/VoiceCommand.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/HotkeyMonitor.h"
#include "desktop/Log.h"
#include "dictation/DictationController.h"

#include <QJsonArray>
#include <QTest>
#include <memory>

namespace ombry::test {

constexpr const char* kChat = "/api/v1/chat/completions";

// The model calls the server answers, by what they ask for.
struct Models {
    TestHttpServer server;
    QStringList calls; // "transcription", "reformulation", "traduction", "commande", in order
    QHash<QString, Reply> replies;

    Models() {
        server.setHandler([this](const RecordedRequest& r) { return answer(r); });
        for (const char* name : {"OMBRY_OPENROUTER_URL", "OMBRY_LANGUAGETOOL_URL",
                                 "OMBRY_LOCAL_LLM_URL", "OMBRY_DEEPGRAM_URL"})
            qputenv(name, server.url().toString().toUtf8());
        reset();
    }

    void reset() {
        calls.clear();
        server.clearRequests();
        replies = {{"transcription", chatCompletion("bonjour tout le monde")},
                   {"reformulation", chatCompletion("Bonjour à tous.")},
                   {"traduction", chatCompletion("Hello everyone.")},
                   {"commande", chatCompletion("Texte rendu poli.")}};
    }

    static QString kindOf(const RecordedRequest& r) {
        const QJsonArray messages = r.json()["messages"].toArray();
        if (messages.size() > 1 && messages[1]["content"].isArray()) return "transcription";
        const QString system = messages.isEmpty() ? QString() : messages[0]["content"].toString();
        if (system.startsWith("Traduis ce texte en")) return "traduction";
        if (system == VoiceCommand::systemPrompt()) return "commande";
        return "reformulation";
    }

    Reply answer(const RecordedRequest& r) {
        if (r.path == "/v2/check") return Reply::json(QJsonObject{{"matches", QJsonArray()}});
        if (r.path != kChat || r.method != "POST") return Reply::text("", 404);
        const QString kind = kindOf(r);
        calls << kind;
        return replies.value(kind);
    }
};

// One second of a loud tone: speech as far as the recorder is concerned.
inline QByteArray tone(double seconds = 1.0) {
    return squareWave(seconds, 8000);
}

// The fake desktop with a fresh controller for each test, the user's own OpenRouter key, and
// a text field in front that takes each paste.
class ControllerFixture {
public:
    FakePlatform platform;
    Models models;
    std::unique_ptr<DictationController> controller;
    QStringList pasted; // what the target read at each posted paste
    int attention = 0;  // onNeedsAttention calls
    const AppWindow editor{42, "org.gnome.TextEditor", "Éditeur de texte", "gnome-text-editor", 7};

    void setUp() {
        models.reset();
        AppSettings& s = AppSettings::shared();
        KeyStore::shared().save("sk-or-test", APIService::OpenRouter);
        KeyStore::shared().save("", APIService::Deepgram);
        s.setOwnKeyMode(true);
        s.setTranscriptionEngine(TranscriptionEngine::Gemini);
        s.setRewriteEngine(RewriteEngine::OpenRouter);
        s.setLanguage(Language::Fr);
        s.setSounds(false);
        s.setLivePreview(false);
        s.setVoiceCommands(true);
        s.setAdaptTone(false);
        s.setRestoreClipboard(true);
        s.setTranslateApps({});
        s.setTranslateTarget("anglais");
        Store::shared().setSnippets({});
        Store::shared().setCorrections({});
        platform.keyboard().flags = 0;
        platform.keyboard().available = true;
        platform.audio().available = true;
        platform.audio().captureFails = false;
        platform.audio().mics = {{"test-mic", "Micro de test"}};
        platform.audio().defaultName = "test-mic";
        s.setMicrophoneUID(std::nullopt);
        platform.audio().played.clear();
        // Through restore(), so that a paste of an earlier test no longer puts its clipboard back.
        platform.clipboard().restore({{"text/plain", QByteArray("presse-papiers")}});
        platform.clipboard().selection.reset();
        platform.clipboard().primaryInFront = true;
        platform.accessibility().focus.reset();
        platform.accessibility().content.clear();
        fieldTakesPastes = true;
        targetReads = true;
        platform.windows().front = editor;
        platform.windows().activated.clear();
        platform.keyPoster().posted.clear();
        platform.speech().spoken.clear();
        platform.speech().isSpeaking = false;
        pasted.clear();
        attention = 0;
        platform.keyPoster().onPost = [this](const KeyCombo& k) {
            if (k.keyCode != keycode::V || !targetReads) return;
            const QString text = platform.clipboard().fetch().value_or("");
            pasted << text;
            // A focused field that exposes its text takes the paste at its caret (texts of
            // one UTF-16 unit a character here).
            std::optional<FocusedElement>& field = platform.accessibility().focus;
            if (!field || !fieldTakesPastes) return;
            platform.accessibility().content.insert(field->caretOffset, text);
            field->characterCount = int(platform.accessibility().content.size());
            field->caretOffset += int(text.size());
        };
        controller = std::make_unique<DictationController>();
        controller->onNeedsAttention = [this] { ++attention; };
        controller->start();
    }

    void tearDown() {
        // Nothing may still run on the controller when it goes.
        QTRY_VERIFY_WITH_TIMEOUT(controller->state() == DictationController::State::Idle ||
                                     controller->state() == DictationController::State::Recording,
                                 10000);
        controller.reset();
    }

    DictationController& c() { return *controller; }
    DictationController::State state() const { return controller->state(); }

    // The sounds played, by name.
    QStringList sounds() {
        QStringList names;
        for (const auto& [pcm, rate] : platform.audio().played) {
            Q_UNUSED(rate);
            if (pcm == soundPcm(Sound::Tink)) names << "Tink";
            if (pcm == soundPcm(Sound::Pop)) names << "Pop";
            if (pcm == soundPcm(Sound::Basso)) names << "Basso";
        }
        return names;
    }

    // Runs the pipeline on a second of tone, as if the recording had just ended.
    void process(std::optional<std::pair<QString, QString>> pre = std::nullopt) {
        await(controller->process(AudioRecorder::wav(tone()), 1.0, editor, std::move(pre)));
    }

    // Presses the dictation key and waits until the microphone captures: nothing shows yet.
    bool press() {
        controller->handlePress();
        return QTest::qWaitFor([this] { return platform.audio().capturing(); }, 5000);
    }

    // Starts a recording with the dictation key held until it shows (0.6 s).
    bool startRecording() {
        if (!press()) return false;
        advance(DictationController::kHoldMs);
        return QTest::qWaitFor([this] { return state() == DictationController::State::Recording; },
                               5000);
    }

    // A whole dictation by the key: a second of speech, held, released; Shift held at the
    // press when asked.
    bool dictate(bool shift = false) {
        if (shift) platform.keyboard().flags = modifier::Shift;
        const bool started = startRecording();
        platform.keyboard().flags = 0;
        if (!started) return false;
        platform.audio().feed(tone());
        advance(1000);
        controller->handleRelease();
        return state() == DictationController::State::Processing;
    }

    void advance(int64_t ms) { platform.clock().advance(ms); }

    // A focused text field of the editor, as its application describes it on the
    // accessibility bus.
    FocusedElement field(const QString& content, std::optional<QString> selection = {}) {
        FocusedElement e;
        e.element = {":1.42", "/org/a11y/atspi/accessible/7"};
        e.pid = editor.pid;
        e.applicationName = editor.name;
        e.editable = true;
        e.hasText = true;
        e.selection = std::move(selection);
        e.characterCount = int(content.toUcs4().size());
        e.caretOffset = e.characterCount;
        platform.accessibility().content = content;
        return e;
    }
    bool fieldTakesPastes = true;
    bool targetReads = true; // the window in front reads the clipboard at a paste
};

} // namespace ombry::test
