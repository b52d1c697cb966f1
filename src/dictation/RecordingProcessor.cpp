#include "dictation/RecordingProcessor.h"

#include "correction/Corrector.h"
#include "correction/Graphemes.h"
#include "correction/Translator.h"
#include "correction/VoiceCommand.h"
#include "data/Records.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/Log.h"
#include "desktop/Paster.h"
#include "dictation/DictationController.h"
#include "dictation/DictationSupport.h"
#include "engines/Cleanup.h"
#include "engines/Deepgram.h"
#include "engines/GeminiSpeech.h"
#include "engines/LocalEngine.h"
#include "engines/LocalSpeech.h"
#include "net/Errors.h"
#include "net/OpenRouter.h"
#include "online/OpenRouterComplete.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Platform.h"
#include "platform/SerialQueue.h"

#include <QCoroFuture>
#include <QDir>
#include <QPromise>
#include <exception>

namespace ombry {

using dictation::clock;

namespace {

// Fillers that, alone, mean nothing was really said.
const QStringList kFillers{QStringLiteral("euh"), QStringLiteral("heu"), QStringLiteral("hum"),
                           QStringLiteral("bah"), QStringLiteral("ben")};

// The correction scope of the last hygiene pass of dictated text: punctuation and typography.
constexpr int kFinishScope = CorrectionScope::Punctuation | CorrectionScope::Typography;

QString seconds(int64_t ms) {
    return QString::asprintf("%.2f", double(ms) / 1000.0);
}

// The text stripped of punctuation and blanks at both ends, in lower case.
QString bareWord(const QString& text) {
    qsizetype from = 0, to = text.size();
    auto skip = [](QChar c) { return c.isSpace() || c.isPunct(); };
    while (from < to && skip(text[from]))
        ++from;
    while (to > from && skip(text[to - 1]))
        --to;
    return text.mid(from, to - from).toLower();
}

bool isOnlyFiller(const QString& text) {
    return text.trimmed().isEmpty() || kFillers.contains(bareWord(text));
}

// The record of a dictation whose processing failed says why, unless it has become an ordinary
// dictation meanwhile (or is gone).
void markFailed(const QUuid& id, const QString& reason) {
    Store& store = Store::shared();
    for (const Dictation& d : store.dictations()) {
        if (d.id != id) continue;
        if (!d.failed()) return;
        Dictation failed = d;
        failed.failure = reason;
        store.update(failed);
        return;
    }
}

} // namespace

RecordingProcessor::RecordingProcessor(DictationController& owner, Recording recording)
    : owner_(owner), in_(std::move(recording)) {}

QCoro::Task<void> RecordingProcessor::run() {
    t0_ = clock().elapsedMs();
    if (in_.retry) {
        record_ = *in_.retry;
        appName_ = record_.appName;
        bundle_ = record_.bundleID;
    } else {
        appName_ = in_.app && !in_.app->name.isEmpty() ? in_.app->name : QStringLiteral("Inconnue");
        bundle_ = dictation::appIdOf(in_.app);
        keep();
    }
    startWatchdog();
    // The dictionary's words and the language hold for the whole road, as they were at its start.
    words_ = Store::shared().words();
    language_ = promptName(AppSettings::shared().language());

    // Each result is awaited into a local first: GCC 12 resumes a frame that is gone when a
    // member coroutine is awaited inside an if condition.
    const bool transcribed = co_await transcribe();
    if (!transcribed) co_return;
    // A retry is a dictation: the selection and the shortcuts of its time are not known.
    bool interpreted = false;
    if (!in_.retry) interpreted = co_await interpret();
    if (interpreted) co_return;
    co_await cleanUp();
    const bool translated = co_await translate();
    if (!translated) co_return;
    record();
    co_await deliver();
}

void RecordingProcessor::startWatchdog() {
    DictationController* owner = &owner_;
    const int64_t t0 = t0_;
    const QUuid id = record_.id;
    dictation::afterOnClock(owner, DictationController::kWatchdogMs, [owner, t0, id] {
        if (owner->state() == DictationController::State::Processing &&
            clock().elapsedMs() - t0 >= DictationController::kWatchdogMs) {
            owner->toIdle();
            const QString message = QStringLiteral("Le réseau ne répond pas, réessaie");
            // Its audio was written long ago; a late answer still makes it a dictation.
            markFailed(id, message);
            owner->fail(message);
        }
    });
}

void RecordingProcessor::close() {
    owner_.toIdle();
    owner_.setCommandText(std::nullopt);
}

void RecordingProcessor::stop(const QString& failure) {
    owner_.fail(failure);
    close();
}

void RecordingProcessor::keep() {
    Store& store = Store::shared();
    record_.date = owner_.startedAt_;
    record_.appName = appName_;
    record_.bundleID = bundle_;
    record_.duration = in_.duration;
    record_.audioFile = uuidText(record_.id) + QStringLiteral(".wav");
    record_.failure = QString(); // in progress
    // The disk is not the paste's business: the file is written (and synced) on the store's
    // queue, ahead of the history's save, which names it.
    auto promise = std::make_shared<QPromise<void>>();
    written_ = promise->future();
    promise->start();
    store.ioQueue().async(
        [promise, path = QDir(store.audioFolder()).filePath(*record_.audioFile), wav = in_.wav] {
            Paths::writeFileAtomically(path, wav);
            promise->finish();
        });
    store.add(record_);
}

QCoro::Task<void> RecordingProcessor::stopKept(QString failure) {
    if (!in_.retry) co_await written_;
    record_.failure = failure;
    Store::shared().update(record_);
    stop(failure);
}

void RecordingProcessor::drop() {
    if (!in_.retry) Store::shared().remove(record_.id);
}

QCoro::Task<void> RecordingProcessor::activate() {
    if (in_.app && !dictation::isOwnWindow(in_.app))
        Platform::current().windows().activate(*in_.app);
    // Gives the window manager time to bring the window forward before the keys go out.
    co_await dictation::sleepMs(DictationController::kActivationSleepMs);
}

// ---- Transcribe ------------------------------------------------------------------------------

QCoro::Task<bool> RecordingProcessor::transcribe() {
    AppSettings& settings = AppSettings::shared();
    if (in_.pre) {
        raw_ = in_.pre->first;
    } else {
        std::optional<QString> failure;
        const TranscriptionEngine engine = settings.transcriptionEngine();
        bool local = engine == TranscriptionEngine::Local;
        if (engine == TranscriptionEngine::Gemini) {
            std::optional<QString> geminiError;
            try {
                raw_ = co_await GeminiSpeech::transcribe(in_.wav, language_, words_);
            } catch (const std::exception& e) {
                geminiError = describe(e);
            }
            if (geminiError) {
                Log::write(
                    QStringLiteral("transcription: Gemini indisponible, Local prend le relais (%1)")
                        .arg(*geminiError));
                local = true;
            }
        }
        try {
            if (local)
                raw_ = co_await LocalSpeech::transcribe(in_.wav, localeCode(settings.language()),
                                                        words_);
            else if (engine == TranscriptionEngine::Deepgram)
                raw_ = co_await Deepgram::transcribe(in_.wav, settings.deepgramModel(),
                                                     deepgramCode(settings.language()), words_);
        } catch (const std::exception& e) {
            failure = describe(e);
        }
        if (failure) {
            co_await stopKept(*failure);
            co_return false;
        }
    }
    Log::write(QStringLiteral("transcription: %1 caractères en %2 s")
                   .arg(Graphemes::count(raw_))
                   .arg(seconds(clock().elapsedMs() - t0_)));
    if (trimBlanks(raw_).isEmpty()) {
        // Nothing was said: no dictation to keep, unless it is one kept already.
        if (in_.retry) {
            co_await stopKept(QStringLiteral("Transcription vide"));
            co_return false;
        }
        drop();
        stop(QStringLiteral("Transcription vide"));
        co_return false;
    }
    co_return true;
}

// ---- Interpret: a voice command or a voice shortcut ------------------------------------------

// A spoken instruction on the selection comes first, then a voice shortcut; both look at the raw
// transcript, before any dictionary rule.
QCoro::Task<bool> RecordingProcessor::interpret() {
    AppSettings& settings = AppSettings::shared();
    Store& store = Store::shared();
    if (const std::optional<QString> command = owner_.commandText()) {
        // A command on the selection is no dictation: no record, no audio.
        drop();
        const QString selected = *command;
        QString result;
        std::optional<QString> failure;
        try {
            result = co_await VoiceCommand::apply(raw_, selected);
        } catch (const std::exception& e) {
            failure = describe(e);
        }
        if (failure) {
            stop(*failure);
            co_return true;
        }
        owner_.setCommandText(std::nullopt);
        CorrectionRecord record;
        record.date = clock().now();
        record.appName = appName_;
        record.bundleID = bundle_;
        record.action = QStringLiteral("Commande : ") + raw_;
        record.original = selected;
        record.result = result;
        store.addFix(record);
        co_await activate();
        std::function<void()> lost = owner_.notPasted(result);
        co_await Paster::pasteAndCheck(result, settings.restoreClipboard(), std::nullopt,
                                       std::move(lost));
        Log::write(QStringLiteral("commande appliquée: « %1 »").arg(Graphemes::left(raw_, 60)));
        owner_.show(QStringLiteral("Commande appliquée"), false);
        close();
        co_return true;
    }
    if (const std::optional<Snippet> snippet = store.snippet(raw_)) {
        drop();
        co_await activate();
        std::function<void()> lost = owner_.notPasted(snippet->text);
        co_await Paster::pasteAndCheck(snippet->text, settings.restoreClipboard(), std::nullopt,
                                       std::move(lost));
        Log::write(QStringLiteral("raccourci vocal: « %1 »").arg(snippet->trigger));
        owner_.show(QStringLiteral("Raccourci « %1 »").arg(snippet->trigger), false);
        close();
        co_return true;
    }
    co_return false;
}

// ---- Clean up --------------------------------------------------------------------------------

QCoro::Task<void> RecordingProcessor::cleanUp() {
    AppSettings& settings = AppSettings::shared();
    Store& store = Store::shared();
    OpenRouter::setToneHint(Tone::hint(bundle_));
    corrected_ = store.applyCorrections(raw_);
    translate_ = owner_.translateThis();

    if (in_.pre && !in_.pre->second.isEmpty()) {
        // The pieces were cleaned while the user spoke.
        text_ = Corrector::finish(store.applyCorrections(in_.pre->second), kFinishScope);
        co_return;
    }
    const int w = wordCount(corrected_);
    if ((w < 4 || settings.rewriteEngine() == RewriteEngine::None) && !translate_) {
        text_ = OpenRouter::basicCleanup(corrected_);
        co_return;
    }
    if (!translate_ && OpenRouter::toneHint().isEmpty() &&
        settings.transcriptionEngine() == TranscriptionEngine::Gemini &&
        OpenRouter::alreadyClean(corrected_)) {
        // A clean speaker costs one speech call and no rewrite.
        text_ = OpenRouter::basicCleanup(corrected_);
        if (settings.punctuation() == PunctuationLevel::Light) {
            text_.replace(QStringLiteral(";"), QStringLiteral(","));
            text_.replace(QStringLiteral(", "), QStringLiteral(" "));
            text_.replace(QStringLiteral(","), QString());
            text_.replace(QStringLiteral("  "), QStringLiteral(" "));
        }
        text_ = Corrector::finish(text_, kFinishScope);
        Log::write(QStringLiteral("reformulation évitée : transcription déjà propre"));
        co_return;
    }
    const QString system = OpenRouter::instructions(language_, words_);
    if (settings.rewriteEngine() == RewriteEngine::Local) {
        try {
            text_ = co_await LocalModel::run(system, corrected_);
        } catch (const std::exception& e) {
            rewriteError_ = describe(e);
        }
        co_return;
    }
    // Also with the engine "none": a translation still needs the rewrite first.
    bool remoteFailed = false;
    try {
        text_ = co_await OpenRouter::complete(system, corrected_, settings.openRouterModel());
    } catch (const std::exception&) {
        remoteFailed = true;
    }
    if (remoteFailed) {
        Log::write(QStringLiteral("reformulation: OpenRouter indisponible, Local prend le relais"));
        try {
            text_ = co_await LocalModel::run(system, corrected_);
        } catch (const std::exception& e) {
            rewriteError_ = describe(e);
        }
    }
}

// ---- Translate -------------------------------------------------------------------------------

QCoro::Task<bool> RecordingProcessor::translate() {
    const bool pieces = in_.pre && !in_.pre->second.isEmpty();
    if (translate_ && !rewriteError_) {
        std::optional<QString> failure;
        try {
            text_ = co_await Translator::translate(text_, AppSettings::shared().translateTarget(),
                                                   false);
        } catch (const std::exception& e) {
            failure = describe(e);
        }
        if (failure) {
            // Text cleaned piece by piece has no rewrite to fall back on: the dictation ends.
            if (pieces) {
                co_await stopKept(*failure);
                co_return false;
            }
            rewriteError_ = failure;
        }
    }
    if (rewriteError_) {
        // The user gets the lightly cleaned text rather than nothing.
        owner_.setLastError(*rewriteError_);
        Log::write(QStringLiteral("reformulation: ") + *rewriteError_);
        text_ = OpenRouter::basicCleanup(corrected_);
    }
    co_return true;
}

// ---- Record ----------------------------------------------------------------------------------

// The record becomes an ordinary dictation before the delivery, which may still refuse.
void RecordingProcessor::record() {
    Store& store = Store::shared();
    record_.finalText = text_;
    record_.rawText = raw_;
    record_.failure.reset();
    // A history cleared during the processing gets the dictation back.
    if (!store.update(record_)) store.add(record_);
}

// ---- Deliver ---------------------------------------------------------------------------------

QCoro::Task<void> RecordingProcessor::deliver() {
    if (in_.retry) {
        copy();
        co_return;
    }
    co_await activate();
    if (!owner_.hookRunning()) {
        stop(QStringLiteral("Accessibilité non autorisée"));
        co_return;
    }
    const QString final = Hallucination::clean(text_);
    if (isOnlyFiller(final)) {
        stop(QStringLiteral("Je n'ai rien entendu, parle un peu plus près du micro"));
        co_return;
    }
    std::function<void()> lost = owner_.notPasted(final);
    co_await Paster::pasteAndCheck(final, AppSettings::shared().restoreClipboard(), std::nullopt,
                                   std::move(lost));
    Log::write(QStringLiteral("collé: %1 caractères dans %2, %3 s après la touche")
                   .arg(Graphemes::count(final))
                   .arg(in_.app && !in_.app->name.isEmpty() ? in_.app->name : QStringLiteral("?"))
                   .arg(seconds(clock().elapsedMs() - t0_)));
    owner_.show(QStringLiteral("%1 mots").arg(wordCount(final)), false);
    close();
}

// The window in front when the user spoke is long gone, and the one in front now did not ask
// for the text: it waits on the clipboard.
void RecordingProcessor::copy() {
    const QString final = Hallucination::clean(text_);
    if (isOnlyFiller(final)) {
        stop(QStringLiteral("Je n'ai rien entendu, parle un peu plus près du micro"));
        return;
    }
    Platform::current().clipboard().setText(final, false);
    Log::write(QStringLiteral("réessai: %1 caractères copiés, %2 s après la demande")
                   .arg(Graphemes::count(final))
                   .arg(seconds(clock().elapsedMs() - t0_)));
    owner_.show(QStringLiteral("%1 mots copiés").arg(wordCount(final)), false);
    close();
}

} // namespace ombry
