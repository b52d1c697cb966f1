#pragma once

// The engines that run on the user's own machine: offline transcription of a recording
// (AppleSpeech, pocketsphinx), rewriting with a local language model (AppleRewrite, an
// OpenAI-compatible chat server such as llama.cpp or Ollama at Endpoints::localLlm()), and the
// running text shown while the user speaks (LivePreview). They cost nothing and need no key;
// the pipeline falls back on them when a remote engine can't be used.

#include <QByteArray>
#include <QCoroTask>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <mutex>

namespace ombry {

namespace AppleSpeech {

// The service word of its errors, as the user reads it: "Local : erreur 0 langue non disponible".
inline constexpr const char* kService = "Local";

// Transcribes a WAV file (16-bit mono 16 kHz) offline. `language` is a locale code ("fr", "en");
// its model comes from models/<code>/ in the data folder, or from the system for English.
// `grammar`, a JSGF file, pins the words the recognition may give (tests); empty means the
// OMBRY_POCKETSPHINX_JSGF environment variable, or none. `contextualWords` are accepted for
// the callers' sake; this recogniser has no way to favour them.
// Decoding runs on a worker thread; the result comes back on the awaiting thread.
// Throws EngineError::http("Local", 0, "langue non disponible") when no model serves the
// language, and the same error kind with the decoder's words when the model can't be used.
QCoro::Task<QString> transcribe(QByteArray wav, QString language, QStringList contextualWords,
                                QString grammar = QString());

// The two entry points the pipeline knows; there is one recogniser on this platform.
inline QCoro::Task<QString> transcribeNative(QByteArray wav, QString language,
                                             QStringList contextualWords) {
    return transcribe(std::move(wav), std::move(language), std::move(contextualWords));
}
inline QCoro::Task<QString> transcribeLegacy(QByteArray wav, QString language,
                                             QStringList contextualWords) {
    return transcribe(std::move(wav), std::move(language), std::move(contextualWords));
}

} // namespace AppleSpeech

namespace AppleRewrite {

// The service word and body of the "no local model" error.
inline constexpr const char* kService = "IA locale";
inline constexpr const char* kUnavailable =
    "non disponible sur cet ordinateur (modèle local requis)";

// True when a local model server answers its model list (GET /v1/models) within a few seconds.
QCoro::Task<bool> available();

// One chat turn with the local model: `system` as instructions, `text` as the prompt, default
// generation options. The reply's content, trimmed. Throws EngineError::http("IA locale", 0,
// "non disponible …") when no server answers, EngineError::http("IA locale", status, body) when
// it refuses, DecodeError when its answer is not a chat completion.
QCoro::Task<QString> run(QString system, QString text);

// The same with guided output: the reply must be JSON following `schema` (a JSON Schema object,
// sent as the request's response_format and shown in the prompt). Returns the JSON text.
QCoro::Task<QString> runStructured(QString system, QString text, QJsonObject schema);

} // namespace AppleRewrite

// How a stream of recognition results becomes one running text: final pieces accumulate, and
// the latest partial piece stands after them until the next result replaces it. Pieces are
// joined as they come (the recogniser's text carries its own blanks).
class PreviewText {
public:
    // Takes one result and returns the whole running text.
    QString add(const QString& text, bool isFinal);
    void reset() { finalized_.clear(); }

private:
    QString finalized_;
};

// A streaming recogniser behind the live preview. Implementations report each result through
// the callback given to start, from any thread; they never report errors (the preview is an
// extra). start returns at once; feed in the idle state drops the audio.
class LivePreviewEngine {
public:
    using Report = std::function<void(const QString& text, bool isFinal)>;
    virtual ~LivePreviewEngine() = default;
    virtual void start(const QString& language, bool longForm, bool download, Report report) = 0;
    virtual void feed(const QByteArray& pcm) = 0; // PCM: 16-bit mono 16 kHz
    virtual void stop() = 0;
};

// The running text while the user speaks. Without an engine (none is installed on this
// platform yet) start does nothing and feed drops everything. `onText` receives the whole
// running text at each update, possibly from another thread: the owner hops to its own thread.
class LivePreview {
public:
    LivePreview();
    ~LivePreview();
    LivePreview(const LivePreview&) = delete;
    LivePreview& operator=(const LivePreview&) = delete;

    void setOnText(std::function<void(const QString&)> onText);
    void setEngine(std::shared_ptr<LivePreviewEngine> engine);
    bool hasEngine() const;

    void start(const QString& language, bool longForm, bool download);
    void feed(const QByteArray& pcm);
    void stop();

private:
    struct State {
        std::mutex mutex;
        std::function<void(const QString&)> onText = [](const QString&) {};
        PreviewText text;
    };
    std::shared_ptr<State> state_;
    std::shared_ptr<LivePreviewEngine> engine_;
};

} // namespace ombry
