#include "engines/OfflineSpeech.h"

#include "engines/AudioFile.h"

#include <QDir>
#include <QFileInfo>

#include <mutex>

#include <pocketsphinx.h>
#include <sphinxbase/err.h>

namespace ombry::OfflineSpeech {
namespace {

// The first file matching one of the patterns, by name. Phonetic language models (the
// "-phone" files that ship beside word models) are for phoneme decoding, never for words.
QString firstFile(const QDir& dir, const QStringList& patterns) {
    const QStringList found = dir.entryList(patterns, QDir::Files | QDir::Readable, QDir::Name);
    for (const QString& name : found)
        if (!name.contains(QLatin1String("-phone."))) return dir.filePath(name);
    return {};
}

// The acoustic model: the folder itself when it holds `mdef`, else its first subfolder that does.
QString acousticFolder(const QDir& dir) {
    if (QFileInfo(dir.filePath(QStringLiteral("mdef"))).isFile()) return dir.absolutePath();
    const QStringList subs = dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& sub : subs) {
        const QDir candidate(dir.filePath(sub));
        if (QFileInfo(candidate.filePath(QStringLiteral("mdef"))).isFile())
            return candidate.absolutePath();
    }
    return {};
}

// pocketsphinx writes its log to stderr unless told otherwise; the journal is ours alone.
void silenceLibraryLog() {
    static std::once_flag once;
    std::call_once(once, [] { err_set_logfp(nullptr); });
}

} // namespace

std::optional<Model> readModelFolder(const QString& folder) {
    const QDir dir(folder);
    if (!dir.exists()) return std::nullopt;
    Model model;
    model.acoustic = acousticFolder(dir);
    model.dictionary = firstFile(dir, {QStringLiteral("*.dict")});
    model.languageModel = firstFile(dir, {QStringLiteral("*.lm.bin")});
    if (model.languageModel.isEmpty())
        model.languageModel = firstFile(dir, {QStringLiteral("*.lm"), QStringLiteral("*.lm.DMP")});
    if (model.acoustic.isEmpty() || model.dictionary.isEmpty()) return std::nullopt;
    return model;
}

std::optional<Model> modelFor(const QString& language, const QString& dataFolder) {
    const QString code = language.left(2).toLower();
    if (code.isEmpty()) return std::nullopt;
    if (!dataFolder.isEmpty()) {
        if (auto own = readModelFolder(QDir(dataFolder).filePath(QStringLiteral("models/") + code)))
            return own;
    }
    if (code == QLatin1String("en")) return readModelFolder(QLatin1String(kSystemEnglishFolder));
    return std::nullopt;
}

QString grammarFromEnvironment() {
    return qEnvironmentVariable("OMBRY_POCKETSPHINX_JSGF");
}

struct Decoder::Handles {
    cmd_ln_t* config = nullptr;
    ps_decoder_t* decoder = nullptr;
    ~Handles() {
        if (decoder) ps_free(decoder);
        if (config) cmd_ln_free_r(config);
    }
};

Decoder::Decoder(std::unique_ptr<Handles> handles) : handles_(std::move(handles)) {}

Decoder::~Decoder() {
    if (open_) ps_end_utt(handles_->decoder);
}

std::unique_ptr<Decoder> Decoder::open(const Model& model, const QString& grammar, QString* error,
                                       bool streaming) {
    silenceLibraryLog();
    const auto fail = [&](const char* why) {
        if (error) *error = QString::fromUtf8(why);
        return std::unique_ptr<Decoder>();
    };
    const QByteArray hmm = QFile::encodeName(model.acoustic);
    const QByteArray dict = QFile::encodeName(model.dictionary);
    const QByteArray lm = QFile::encodeName(model.languageModel);
    const QByteArray jsgf = QFile::encodeName(grammar);

    auto handles = std::make_unique<Handles>();
    if (!grammar.isEmpty()) {
        handles->config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.constData(), "-jsgf",
                                      jsgf.constData(), "-dict", dict.constData(), "-logfn",
                                      "/dev/null", nullptr);
    } else if (!model.languageModel.isEmpty()) {
        handles->config =
            cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.constData(), "-lm", lm.constData(),
                        "-dict", dict.constData(), "-logfn", "/dev/null", nullptr);
    } else {
        return fail("modèle de langue absent");
    }
    if (!handles->config) return fail("configuration du modèle refusée");
    if (streaming) {
        cmd_ln_set_int_r(handles->config, "-maxhmmpf", 3000);
        cmd_ln_set_int_r(handles->config, "-maxwpf", 10);
        cmd_ln_set_int_r(handles->config, "-pl_window", 5);
        cmd_ln_set_boolean_r(handles->config, "-fwdflat", false);
        cmd_ln_set_boolean_r(handles->config, "-bestpath", false);
    }
    handles->decoder = ps_init(handles->config);
    if (!handles->decoder) return fail("modèle illisible");
    return std::unique_ptr<Decoder>(new Decoder(std::move(handles)));
}

bool Decoder::startUtterance() {
    if (open_) endUtterance();
    open_ = ps_start_utt(handles_->decoder) >= 0;
    return open_;
}

void Decoder::process(const int16_t* samples, size_t count) {
    if (!open_) return;
    // Fed in slices, as the decoder's own tools do, so memory stays flat on long input.
    constexpr size_t kSlice = 16000;
    for (size_t at = 0; at < count; at += kSlice)
        ps_process_raw(handles_->decoder, samples + at, std::min(kSlice, count - at), FALSE, FALSE);
}

void Decoder::process(const QByteArray& pcm) {
    process(reinterpret_cast<const int16_t*>(pcm.constData()), static_cast<size_t>(pcm.size() / 2));
}

QString Decoder::hypothesis() {
    if (!open_) return {};
    int32 score = 0;
    const char* hyp = ps_get_hyp(handles_->decoder, &score);
    return QString::fromUtf8(hyp ? hyp : "").trimmed();
}

QString Decoder::endUtterance() {
    if (!open_) return {};
    ps_end_utt(handles_->decoder);
    open_ = false;
    int32 score = 0;
    const char* hyp = ps_get_hyp(handles_->decoder, &score);
    return QString::fromUtf8(hyp ? hyp : "").trimmed();
}

bool Decoder::inSpeech() {
    return open_ && ps_get_in_speech(handles_->decoder);
}

Result decode(const QByteArray& pcm, const Model& model, const QString& grammar) {
    Result result;
    const std::unique_ptr<Decoder> decoder = Decoder::open(model, grammar, &result.error);
    if (!decoder) return result;
    if (!decoder->startUtterance()) {
        result.error = QStringLiteral("décodage impossible");
        return result;
    }
    decoder->process(pcm);
    result.text = decoder->endUtterance();
    result.ok = true;
    return result;
}

} // namespace ombry::OfflineSpeech
