#pragma once

// Offline speech recognition with pocketsphinx: where the model of a language is found, and a
// blocking decode of a whole recording. The asynchronous face of it is LocalSpeech
// (LocalEngine.h); this part is synchronous so that it runs on any thread.

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>

namespace ombry::OfflineSpeech {

// The three pieces pocketsphinx needs: the acoustic model folder, the language model (absent
// when a grammar stands in its place) and the pronunciation dictionary.
struct Model {
    QString acoustic;
    QString languageModel;
    QString dictionary;
};

// The English model of the system package.
inline constexpr const char* kSystemEnglishFolder = "/usr/share/pocketsphinx/model/en-us";

// The model for a language code ("fr", "en", "en-US"...): the folder models/<code>/ of the data
// folder if it holds a usable model, else the system's English model for English, else none.
// A model folder holds the acoustic model (a folder with `mdef`, or the files themselves), one
// `*.dict` and, unless a grammar is used, one `*.lm.bin`, `*.lm` or `*.lm.DMP`.
std::optional<Model> modelFor(const QString& language, const QString& dataFolder);

// Reads a model folder as above; none when a piece is missing.
std::optional<Model> readModelFolder(const QString& folder);

// The JSGF grammar to decode with instead of the language model: the environment variable
// OMBRY_POCKETSPHINX_JSGF (a file path), empty when unset. A grammar pins the words a
// recognition may give, which tests need to get the same text every run.
QString grammarFromEnvironment();

// One pocketsphinx decoder, loaded once and used for any number of utterances. Not
// thread-safe: one thread at a time uses it.
class Decoder {
public:
    // Loads the model (about a second for the English one). With a non-empty `grammar` (a JSGF
    // file) the grammar replaces the language model. None, with the reason in `error`, when the
    // model can't be used.
    // `streaming` trades a little accuracy for speed, as a running text that must keep up
    // with the voice wants: a narrower search and no second pass at the end of an utterance.
    static std::unique_ptr<Decoder> open(const Model& model, const QString& grammar,
                                         QString* error = nullptr, bool streaming = false);
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    bool startUtterance();
    // Decodes more samples of the open utterance (16-bit mono 16 kHz).
    void process(const int16_t* samples, size_t count);
    void process(const QByteArray& pcm);
    // The best hypothesis so far of the open utterance, trimmed.
    QString hypothesis();
    // Closes the utterance and returns its final hypothesis, trimmed.
    QString endUtterance();
    bool inUtterance() const { return open_; }
    // True while the voice activity detector hears speech in the open utterance.
    bool inSpeech();

private:
    struct Handles;
    explicit Decoder(std::unique_ptr<Handles> handles);
    std::unique_ptr<Handles> handles_;
    bool open_ = false;
};

struct Result {
    bool ok = false;
    QString text;  // the recognised words, trimmed, when ok
    QString error; // why the decoder could not run, when not ok
};

// Decodes the whole PCM (signed 16-bit little-endian mono, 16 kHz) in one utterance. With a
// non-empty `grammar` (a JSGF file) the grammar replaces the language model. Blocking; safe to
// call from several threads at once (each call has its own decoder).
Result decode(const QByteArray& pcm, const Model& model, const QString& grammar = QString());

} // namespace ombry::OfflineSpeech
