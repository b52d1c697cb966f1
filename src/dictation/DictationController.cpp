#include "dictation/DictationController.h"

#include "audio/AudioRecorder.h"
#include "audio/Sounds.h"
#include "correction/Corrector.h"
#include "correction/Graphemes.h"
#include "correction/Translator.h"
#include "correction/VoiceCommand.h"
#include "data/KeyStore.h"
#include "data/Records.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/HotkeyMonitor.h"
#include "desktop/Log.h"
#include "desktop/Paster.h"
#include "dictation/Chunker.h"
#include "engines/Cleanup.h"
#include "engines/Deepgram.h"
#include "engines/GeminiSpeech.h"
#include "engines/LivePreview.h"
#include "engines/LocalEngine.h"
#include "engines/LocalSpeech.h"
#include "engines/client/Errors.h"
#include "engines/client/Net.h"
#include "engines/client/OpenRouter.h"
#include "online/OmbryAI.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Platform.h"
#include "platform/SerialQueue.h"

#include <QCoreApplication>
#include <QCoroTimer>
#include <QDir>
#include <QPointer>
#include <QTimer>
#include <chrono>
#include <exception>

namespace ombry {

namespace {

// The application id of this program's own windows: a selection there is no voice command
// target, and a text is never sent back to them by activation.
const QString kOwnAppId = QStringLiteral("ombry-voice");

// Fillers that, alone, mean nothing was really said.
const QStringList kFillers{QStringLiteral("euh"), QStringLiteral("heu"), QStringLiteral("hum"),
                           QStringLiteral("bah"), QStringLiteral("ben")};

// The correction scope of the last hygiene pass of dictated text: punctuation and typography.
constexpr int kFinishScope = CorrectionScope::Punctuation | CorrectionScope::Typography;

constexpr int kCopySettleMs = 150;

Clock& clock() {
    return Platform::current().clock();
}

QCoro::Task<void> sleepMs(int ms) {
    co_await QCoro::sleepFor(std::chrono::milliseconds(ms));
}

// Runs `fn` once `ms` of the platform clock have passed, unless `owner` is gone by then. On
// the system clock this is one timer; a manual clock (tests) is looked at every millisecond
// until a test has moved it far enough.
QCoro::Task<void> afterOnClock(QPointer<QObject> owner, int64_t ms, std::function<void()> fn) {
    const int64_t deadline = clock().elapsedMs() + ms;
    for (int64_t left = ms; left > 0; left = deadline - clock().elapsedMs()) {
        if (!owner) co_return;
        QTimer timer;
        timer.setSingleShot(true);
        timer.setTimerType(Qt::PreciseTimer);
        timer.start(int(std::max<int64_t>(1, clock().maxSleepMs(left))));
        co_await timer;
    }
    if (owner) fn();
}

// What the user reads of an error.
QString describe(const std::exception& e) {
    if (const auto* error = dynamic_cast<const Error*>(&e)) return error->description();
    return QString::fromUtf8(e.what());
}

QString seconds(int64_t ms) {
    return QString::asprintf("%.2f", double(ms) / 1000.0);
}

QString trimmed(const std::optional<QString>& text) {
    return text ? text->trimmed() : QString();
}

std::optional<QString> appIdOf(const std::optional<AppWindow>& app) {
    if (!app || app->appId.isEmpty()) return std::nullopt;
    return app->appId;
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

// Reading aloud in the language of the text: the detected language's code, or the voice's
// default when the text's language cannot be told.
void readAloud(const QString& text) {
    SpeechOutput& speech = Platform::current().speech();
    speech.stop();
    QString code;
    if (const std::optional<QString> name = Translator::detect(text)) {
        for (const auto& [language, iso] : Translator::codes())
            if (language == *name) code = iso;
    }
    speech.speak(text, code);
}

} // namespace

DictationController& DictationController::shared() {
    static DictationController* instance = [] {
        auto* controller = new DictationController;
        if (QCoreApplication* app = QCoreApplication::instance())
            controller->moveToThread(app->thread());
        return controller;
    }();
    return *instance;
}

DictationController::DictationController(QObject* parent)
    : QObject(parent), audioQueue_(std::make_unique<SerialQueue>(QStringLiteral("verlo.audio"))),
      recorder_(std::make_unique<AudioRecorder>()),
      hotkey_(std::make_unique<HotkeyMonitor>(nullptr, this)),
      preview_(std::make_unique<LivePreview>(this)) {
    startedAt_ = clock().now();
    pressedAtMs_ = clock().elapsedMs();
    trusted_ = Platform::current().keyboard().running();

    // Every callback below is owned by a member of this object, so `this` outlives it; those
    // that come from other threads hop to the main thread through this object's event queue,
    // which drops them once the controller is gone.
    hotkey_->onPress = [this] { handlePress(); };
    hotkey_->onRelease = [this] { handleRelease(); };
    hotkey_->onCorrect = [this] { correctSelection(false, false); };
    hotkey_->onDoubleCopy = [this] { correctSelection(true, false); };
    hotkey_->onTripleCopy = [this] { correctSelection(true, true); };
    hotkey_->onSpeak = [this] { speakSelection(); };
    hotkey_->onCancel = [this] { cancel(); };
    hotkey_->onPasteLast = [this] { pasteLast(); };
    hotkey_->isDictating = [this] { return state_ == State::Recording; };

    recorder_->onLevel = [this](double value) {
        if (value != level_) setLevel(value);
    };
    recorder_->onPause = [this](int64_t offset) {
        QMetaObject::invokeMethod(
            this,
            [this, offset] {
                if (state_ == State::Recording && chunker_) chunker_->cut(offset, *recorder_);
            },
            Qt::QueuedConnection);
    };
    // The preview takes its audio straight on the capture thread; it is thread-safe.
    recorder_->onBuffer = [this](const QByteArray& pcm) { preview_->feed(pcm); };
    // The microphone went away mid-recording: what was heard so far is still delivered.
    recorder_->onSourceLost = [this](const QString&) {
        if (state_ == State::Recording) end();
    };
    preview_->onText = [this](const QString& text) { setLiveText(text); };
}

DictationController::~DictationController() {
    // Let a start or stop already queued finish, then make sure the microphone is released.
    audioQueue_.reset();
    if (recorder_->isRecording()) recorder_->stopRaw();
    recorder_->onLevel = {};
    recorder_->onPause = {};
    recorder_->onBuffer = {};
    recorder_->onSourceLost = {};
    preview_->onText = {};
}

HotkeyMonitor& DictationController::hotkey() {
    return *hotkey_;
}
AudioRecorder& DictationController::recorder() {
    return *recorder_;
}
LivePreview& DictationController::preview() {
    return *preview_;
}

bool DictationController::hookRunning() {
    return hotkey_->running();
}

// ---- Observable state ---------------------------------------------------------------------

void DictationController::setState(State s) {
    state_ = s;
    emit stateChanged();
    // Escape is taken from the application in front only while a dictation records.
    hotkey_->refresh();
}
void DictationController::setLastError(const std::optional<QString>& e) {
    lastError_ = e;
    emit lastErrorChanged();
}
void DictationController::setFlash(const std::optional<QString>& f) {
    flash_ = f;
    emit flashChanged();
}
void DictationController::setFlashIsError(bool e) {
    flashIsError_ = e;
    emit flashIsErrorChanged();
}
void DictationController::setLevel(double l) {
    level_ = l;
    emit levelChanged();
}
void DictationController::setLiveText(const QString& t) {
    liveText_ = t;
    emit liveTextChanged();
}
void DictationController::setCommandText(const std::optional<QString>& t) {
    commandText_ = t;
    emit commandTextChanged();
}
void DictationController::setTranslating(bool t) {
    translating_ = t;
    emit translatingChanged();
}
void DictationController::setTranslateThis(bool t) {
    translateThis_ = t;
    emit translateThisChanged();
}
void DictationController::setTrusted(bool t) {
    trusted_ = t;
    emit trustedChanged();
}
void DictationController::setHandsFree(bool h) {
    handsFree_ = h;
    emit handsFreeChanged();
}
void DictationController::toIdle() {
    if (state_ != State::Idle) setState(State::Idle);
}

// ---- Messages -----------------------------------------------------------------------------

void DictationController::show(const QString& text, bool error) {
    setFlash(text);
    setFlashIsError(error);
    // Only this message is wiped: a newer one keeps its own 2 s.
    afterOnClock(this, kFlashMs, [this, text] {
        if (flash_ == text) setFlash(std::nullopt);
    });
}

void DictationController::fail(const QString& message) {
    setLastError(message);
    Log::write(QStringLiteral("erreur: ") + message);
    show(message, true);
    playSound(Sound::Basso);
    // What the user can fix in the settings brings the settings forward.
    const QString lower = message.toLower();
    for (const char* word : {"clé", "autoris", "accessibilité", "micro non"}) {
        if (lower.contains(QString::fromUtf8(word))) {
            if (onNeedsAttention) onNeedsAttention();
            break;
        }
    }
}

// ---- Start-up -----------------------------------------------------------------------------

void DictationController::start() {
    // On this desktop the keyboard "permission" is the hook itself: it is known once started.
    hotkey_->start();
    setTrusted(hookRunning());
    const bool mic = Platform::current().audio().microphoneAvailable();
    const QString ai = OmbryAI::usesCredits()  ? QStringLiteral("crédits")
                       : OmbryAI::usesOwnKey() ? QStringLiteral("clé perso")
                                               : QStringLiteral("aucune");
    auto flag = [](bool b) { return b ? QStringLiteral("true") : QStringLiteral("false"); };
    Log::write(QStringLiteral("démarrage: micro=%1 accessibilité=%2 deepgram=%3 ia=%4")
                   .arg(flag(mic), flag(trusted_),
                        flag(KeyStore::shared().key(APIService::Deepgram).has_value()), ai));
    if (!trusted_ && onNeedsAttention) onNeedsAttention();

    if (trustPolling_) return;
    trustPolling_ = true;
    pollTrust();
}

// Every 2 s for the life of the program: a keyboard hook that stops (or comes back) is
// noticed, and the monitor is started again.
void DictationController::pollTrust() {
    afterOnClock(this, kTrustPollMs, [this] {
        const bool now = hookRunning();
        if (now != trusted_) {
            setTrusted(now);
            Log::write(QStringLiteral("accessibilité=%1")
                           .arg(now ? QStringLiteral("true") : QStringLiteral("false")));
            hotkey_->restart();
        }
        pollTrust();
    });
}

void DictationController::warmUpAudio() {
    audioQueue_->async([this] { recorder_->warmUp(); });
}

// ---- The dictation key -------------------------------------------------------------------

// A hold of 0.6 s or more is hold-to-talk: the release ends the recording. A shorter tap
// starts a hands-free recording that the next press ends. That press must come 0.7 s or more
// after the first one: the second press of a quick double tap is swallowed instead of ending
// a recording that has only just begun.
void DictationController::handlePress() {
    const int64_t now = clock().elapsedMs();
    if (!handsFree_) {
        pressedAtMs_ = now;
        begin();
        return;
    }
    if (now - pressedAtMs_ < kDoubleTapGuardMs) return;
    setHandsFree(false);
    end();
}

void DictationController::handleRelease() {
    if (state_ != State::Recording || handsFree_) return;
    if (clock().elapsedMs() - pressedAtMs_ < kHoldMs) {
        setHandsFree(true);
        Log::write(QStringLiteral("dictée sans les mains"));
        return;
    }
    end();
}

void DictationController::begin() {
    if (state_ != State::Idle) {
        if (state_ == State::Processing || state_ == State::Correcting)
            show(QStringLiteral("Un instant, je termine…"), false);
        return;
    }
    AppSettings& settings = AppSettings::shared();
    if (settings.transcriptionEngine() == TranscriptionEngine::Deepgram &&
        !KeyStore::shared().key(APIService::Deepgram)) {
        fail(QStringLiteral("Clé Deepgram absente"));
        return;
    }
    if (!Platform::current().audio().microphoneAvailable()) {
        fail(QStringLiteral("Micro non autorisé"));
        return;
    }
    // The text goes back to the window in front at the key press, wherever the user is when
    // it is ready.
    targetApp_ = Platform::current().windows().frontmost();
    const std::optional<QString> appId = appIdOf(targetApp_);
    Net::warmUp();

    if (HotkeyMonitor::lastModifierFlags() & modifier::Shift)
        setTranslateThis(true);
    else
        setTranslateThis(appId && settings.translateApps().contains(*appId));

    setCommandText(std::nullopt);
    if (settings.voiceCommands() && appId != kOwnAppId) {
        const std::optional<QString> selected = Paster::selectedTextViaAX();
        if (!trimmed(selected).isEmpty()) {
            setCommandText(selected);
            Log::write(QStringLiteral("commande: %1 caractères sélectionnés")
                           .arg(Graphemes::count(*selected)));
        }
    }

    if (settings.sounds()) playSound(Sound::Tink);
    if (onRecordingBegins) onRecordingBegins();
    setState(State::Recording);
    startedAt_ = clock().now();
    setLiveText(QString());
    if (settings.livePreview()) preview_->start(localeCode(settings.language()), false, false);
    cancelled_ = false;

    // Long dictations are transcribed and cleaned piece by piece while the user speaks, when
    // the remote speech engine and the remote rewrite both serve it. Never for a command.
    chunker_.reset();
    if (settings.transcriptionEngine() == TranscriptionEngine::Gemini &&
        settings.rewriteEngine() == RewriteEngine::OpenRouter && !commandText_ && hasRemote())
        chunker_ = std::make_shared<Chunker>(Tone::hint(appId));

    const QString appName =
        targetApp_ && !targetApp_->name.isEmpty() ? targetApp_->name : QStringLiteral("?");
    audioQueue_->async([this, appName] {
        try {
            recorder_->start();
        } catch (const std::exception& e) {
            const QString reason = QString::fromUtf8(e.what());
            QMetaObject::invokeMethod(
                this,
                [this, reason] {
                    Log::write(QStringLiteral("audio: démarrage impossible (%1)").arg(reason));
                    toIdle();
                    preview_->stop();
                    chunker_.reset();
                    fail(QStringLiteral("Micro indisponible"));
                },
                Qt::QueuedConnection);
            return;
        }
        Log::write(QStringLiteral("enregistrement: début (appli %1)").arg(appName));
    });
}

void DictationController::end() {
    if (state_ != State::Recording) return;
    if (AppSettings::shared().sounds()) playSound(Sound::Pop);
    preview_->stop();
    setState(State::Processing);
    const std::optional<AppWindow> app = targetApp_;
    audioQueue_->async([this, app] {
        const AudioRecorder::Stopped stopped = recorder_->stop();
        const QByteArray pcm = recorder_->lastPCM();
        // Ready for the next dictation before the user presses again.
        recorder_->warmUp();
        Log::write(QStringLiteral("enregistrement: fin, %1 s, niveau max %2")
                       .arg(QString::asprintf("%.2f", stopped.duration))
                       .arg(recorder_->lastPeak()));
        QMetaObject::invokeMethod(
            this,
            [this, wav = stopped.wav, duration = stopped.duration, pcm, app] {
                afterStop(wav, duration, pcm, app);
            },
            Qt::QueuedConnection);
    });
}

void DictationController::afterStop(QByteArray wav, double duration, QByteArray pcm,
                                    std::optional<AppWindow> app) {
    std::shared_ptr<Chunker> chunker = std::move(chunker_);
    chunker_.reset();
    if (cancelled_) {
        cancelled_ = false;
        toIdle();
        return;
    }
    // A mere touch of the key: no error, no sound beyond the one already played.
    if (duration <= 0.3) {
        toIdle();
        return;
    }
    finishAndProcess(std::move(chunker), std::move(wav), duration, std::move(pcm), std::move(app));
}

QCoro::Task<void> DictationController::finishAndProcess(std::shared_ptr<Chunker> chunker,
                                                        QByteArray wav, double duration,
                                                        QByteArray pcm,
                                                        std::optional<AppWindow> app) {
    std::optional<std::pair<QString, QString>> pre;
    if (chunker && chunker->taskCount() > 0) {
        // Pieces that failed are not patched: without a result the whole recording goes to
        // the engine.
        pre = co_await chunker->finish(pcm);
        if (pre)
            Log::write(
                QStringLiteral("morceaux: %1 traités pendant la dictée").arg(chunker->taskCount()));
    }
    co_await process(std::move(wav), duration, std::move(app), std::move(pre));
}

void DictationController::cancel() {
    if (state_ != State::Recording) return;
    cancelled_ = true;
    setHandsFree(false);
    if (chunker_) chunker_->cancelAll();
    preview_->stop();
    // Nothing may begin until the recorder has really stopped.
    setState(State::Processing);
    audioQueue_->async([this] {
        recorder_->stop();
        QMetaObject::invokeMethod(
            this,
            [this] {
                chunker_.reset();
                cancelled_ = false;
                toIdle();
                show(QStringLiteral("Dictée annulée"), false);
                giveFocusBack();
            },
            Qt::QueuedConnection);
    });
    // A cancel is always confirmed by ear, whatever the sound setting.
    playSound(Sound::Pop);
    Log::write(QStringLiteral("dictée annulée"));
}

// A window manager may move the focus while the Escape key is held by our grab (openbox does
// when the key map changes under it), so a cancelled dictation could leave the user in another
// window than the one they were typing in. The window in front at the key press comes back.
void DictationController::giveFocusBack() {
    if (!targetApp_ || targetApp_->appId == kOwnAppId) return;
    Windows& windows = Platform::current().windows();
    const std::optional<AppWindow> front = windows.frontmost();
    if (front && front->id == targetApp_->id) return;
    windows.activate(*targetApp_);
}

// ---- From the recording to the text --------------------------------------------------------

QCoro::Task<void> DictationController::activate(const std::optional<AppWindow>& app) {
    if (app && app->appId != kOwnAppId) Platform::current().windows().activate(*app);
    // Gives the window manager time to bring the window forward before the keys go out.
    co_await sleepMs(kActivationSleepMs);
}

QCoro::Task<void> DictationController::process(QByteArray wav, double duration,
                                               std::optional<AppWindow> app,
                                               std::optional<std::pair<QString, QString>> pre) {
    AppSettings& settings = AppSettings::shared();
    Store& store = Store::shared();
    const int64_t t0 = clock().elapsedMs();
    const QString name = app && !app->name.isEmpty() ? app->name : QStringLiteral("Inconnue");
    const std::optional<QString> bundle = appIdOf(app);

    // The watchdog frees the state after 40 s; the pipeline's own await goes on, and a late
    // answer is still delivered.
    afterOnClock(this, kWatchdogMs, [this, t0] {
        if (state_ == State::Processing && clock().elapsedMs() - t0 >= kWatchdogMs) {
            toIdle();
            fail(QStringLiteral("Le réseau ne répond pas, réessaie"));
        }
    });

    auto close = [this] {
        toIdle();
        setCommandText(std::nullopt);
    };
    std::optional<QString> failure; // the words of a failure that ends the dictation

    // Transcription.
    QString raw;
    QString preClean;
    const QStringList words = store.words();
    const QString language = promptName(settings.language());
    if (pre) {
        raw = pre->first;
        preClean = pre->second;
    } else {
        const TranscriptionEngine engine = settings.transcriptionEngine();
        bool local = engine == TranscriptionEngine::Local;
        if (engine == TranscriptionEngine::Gemini) {
            std::optional<QString> geminiError;
            try {
                raw = co_await GeminiSpeech::transcribe(wav, language, words);
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
                raw = co_await LocalSpeech::transcribe(wav, localeCode(settings.language()), words);
            else if (engine == TranscriptionEngine::Deepgram)
                raw = co_await Deepgram::transcribe(wav, settings.deepgramModel(),
                                                    deepgramCode(settings.language()), words);
        } catch (const std::exception& e) {
            failure = describe(e);
        }
    }
    if (failure) {
        fail(*failure);
        close();
        co_return;
    }
    Log::write(QStringLiteral("transcription: %1 caractères en %2 s")
                   .arg(Graphemes::count(raw))
                   .arg(seconds(clock().elapsedMs() - t0)));
    if (trimBlanks(raw).isEmpty()) {
        fail(QStringLiteral("Transcription vide"));
        close();
        co_return;
    }

    // A spoken instruction on the selection comes first, then a voice shortcut; both look at
    // the raw transcript, before any dictionary rule.
    if (commandText_) {
        const QString selected = *commandText_;
        QString result;
        try {
            result = co_await VoiceCommand::apply(raw, selected);
        } catch (const std::exception& e) {
            failure = describe(e);
        }
        if (failure) {
            fail(*failure);
            close();
            co_return;
        }
        setCommandText(std::nullopt);
        CorrectionRecord record;
        record.date = clock().now();
        record.appName = name;
        record.bundleID = bundle;
        record.action = QStringLiteral("Commande : ") + raw;
        record.original = selected;
        record.result = result;
        store.addFix(record);
        co_await activate(app);
        co_await Paster::paste(result, settings.restoreClipboard());
        Log::write(QStringLiteral("commande appliquée: « %1 »").arg(raw.left(60)));
        show(QStringLiteral("Commande appliquée"), false);
        close();
        co_return;
    }
    if (const std::optional<Snippet> snippet = store.snippet(raw)) {
        co_await activate(app);
        co_await Paster::paste(snippet->text, settings.restoreClipboard());
        Log::write(QStringLiteral("raccourci vocal: « %1 »").arg(snippet->trigger));
        show(QStringLiteral("Raccourci « %1 »").arg(snippet->trigger), false);
        close();
        co_return;
    }

    OpenRouter::setToneHint(Tone::hint(bundle));
    const QString corrected = store.applyCorrections(raw);
    const bool translate = translateThis_;
    QString text;

    if (!preClean.isEmpty()) {
        // The pieces were cleaned while the user spoke; a failed translation here ends it.
        text = Corrector::finish(store.applyCorrections(preClean), kFinishScope);
        if (translate) {
            try {
                text = co_await Translator::translate(text, settings.translateTarget(), false);
            } catch (const std::exception& e) {
                failure = describe(e);
            }
            if (failure) {
                fail(*failure);
                close();
                co_return;
            }
        }
    } else {
        const int w = wordCount(corrected);
        if ((w < 4 || settings.rewriteEngine() == RewriteEngine::None) && !translate) {
            text = OpenRouter::basicCleanup(corrected);
        } else if (!translate && OpenRouter::toneHint().isEmpty() &&
                   settings.transcriptionEngine() == TranscriptionEngine::Gemini &&
                   OpenRouter::alreadyClean(corrected)) {
            // A clean speaker costs one speech call and no rewrite.
            text = OpenRouter::basicCleanup(corrected);
            if (settings.punctuation() == PunctuationLevel::Light) {
                text.replace(QStringLiteral(";"), QStringLiteral(","));
                text.replace(QStringLiteral(", "), QStringLiteral(" "));
                text.replace(QStringLiteral(","), QString());
                text.replace(QStringLiteral("  "), QStringLiteral(" "));
            }
            text = Corrector::finish(text, kFinishScope);
            Log::write(QStringLiteral("reformulation évitée : transcription déjà propre"));
        } else {
            const QString system = OpenRouter::instructions(language, words);
            std::optional<QString> rewriteError;
            if (settings.rewriteEngine() == RewriteEngine::Local) {
                try {
                    text = co_await LocalModel::run(system, corrected);
                } catch (const std::exception& e) {
                    rewriteError = describe(e);
                }
            } else {
                // Also with the engine "none": a translation still needs the rewrite first.
                bool remoteFailed = false;
                try {
                    text = co_await OpenRouter::complete(system, corrected,
                                                         settings.openRouterModel());
                } catch (const std::exception&) {
                    remoteFailed = true;
                }
                if (remoteFailed) {
                    Log::write(QStringLiteral(
                        "reformulation: OpenRouter indisponible, Local prend le relais"));
                    try {
                        text = co_await LocalModel::run(system, corrected);
                    } catch (const std::exception& e) {
                        rewriteError = describe(e);
                    }
                }
            }
            if (!rewriteError && translate) {
                try {
                    text = co_await Translator::translate(text, settings.translateTarget(), false);
                } catch (const std::exception& e) {
                    rewriteError = describe(e);
                }
            }
            if (rewriteError) {
                // The user gets the lightly cleaned text rather than nothing.
                setLastError(*rewriteError);
                Log::write(QStringLiteral("reformulation: ") + *rewriteError);
                text = OpenRouter::basicCleanup(corrected);
            }
        }
    }

    // The record is kept, with its audio, before the delivery, which may still refuse.
    Dictation dictation;
    const QString file = uuidText(dictation.id) + QStringLiteral(".wav");
    Paths::writeFileAtomically(QDir(store.audioFolder()).filePath(file), wav);
    dictation.date = startedAt_;
    dictation.appName = name;
    dictation.bundleID = bundle;
    dictation.finalText = text;
    dictation.rawText = raw;
    dictation.duration = duration;
    dictation.audioFile = file;
    store.add(dictation);

    co_await activate(app);
    if (!hookRunning()) {
        fail(QStringLiteral("Accessibilité non autorisée"));
        close();
        co_return;
    }
    const QString final = Hallucination::clean(text);
    if (isOnlyFiller(final)) {
        fail(QStringLiteral("Je n'ai rien entendu, parle un peu plus près du micro"));
        close();
        co_return;
    }
    co_await Paster::paste(final, settings.restoreClipboard());
    Log::write(QStringLiteral("collé: %1 caractères dans %2, %3 s après la touche")
                   .arg(Graphemes::count(final))
                   .arg(app && !app->name.isEmpty() ? app->name : QStringLiteral("?"))
                   .arg(seconds(clock().elapsedMs() - t0)));
    show(QStringLiteral("%1 mots").arg(wordCount(final)), false);
    close();
}

void DictationController::pasteLast() {
    if (state_ != State::Idle || Store::shared().dictations().isEmpty()) return;
    // As stored: the text of the record, before the last hallucination pass.
    const QString text = Store::shared().dictations().first().finalText;
    [](QPointer<DictationController> self, QString text) -> QCoro::Task<void> {
        co_await Paster::modifierWait();
        if (!self) co_return;
        co_await Paster::paste(text, AppSettings::shared().restoreClipboard());
        self->show(QStringLiteral("Dernière dictée recollée"), false);
    }(this, text);
}

// ---- The selection -------------------------------------------------------------------------

QCoro::Task<void> DictationController::correctSelection(bool alreadyCopied, bool translate) {
    if (state_ != State::Idle) co_return;
    if (!hookRunning()) {
        fail(QStringLiteral("Accessibilité non autorisée"));
        co_return;
    }
    setTranslating(translate);
    setState(State::Correcting);
    AppSettings& settings = AppSettings::shared();
    Clipboard& clipboard = Platform::current().clipboard();

    // After a double Ctrl+C this already holds the selection, which the user asked to copy.
    const ClipboardSnapshot saved = Paster::snapshot();
    std::optional<QString> original;
    if (alreadyCopied) {
        co_await sleepMs(kCopySettleMs); // the application finishes its own copy
        co_await Paster::modifierWait();
        original = clipboard.text();
        Log::write(QStringLiteral("sélection: Ctrl+C deux fois (%1 caractères)")
                       .arg(original ? Graphemes::count(*original) : 0));
    } else {
        original = co_await Paster::copySelection();
    }
    if (trimmed(original).isEmpty()) {
        clipboard.restore(saved);
        toIdle();
        fail(QStringLiteral("Aucun texte sélectionné"));
        co_return;
    }

    QString result;
    std::optional<QString> failure;
    try {
        if (translate)
            result = co_await Translator::translate(*original, settings.translateTarget(), true);
        else
            result = (co_await Corrector::correctDetailed(
                          *original, promptName(settings.language()), Store::shared().words()))
                         .text;
    } catch (const std::exception& e) {
        failure = describe(e);
    }
    if (failure) {
        clipboard.restore(saved);
        toIdle();
        fail(*failure);
        co_return;
    }

    const std::optional<AppWindow> front = Platform::current().windows().frontmost();
    const bool changed = Graphemes::canonical(result) != Graphemes::canonical(*original);
    if (changed) {
        CorrectionRecord record;
        record.date = clock().now();
        record.appName = front && !front->name.isEmpty() ? front->name : QStringLiteral("Inconnue");
        record.bundleID = appIdOf(front);
        record.action = translate ? QStringLiteral("Traduire") : QStringLiteral("Corriger");
        record.original = *original;
        record.result = result;
        Store::shared().addFix(record);
    }
    Log::write(QStringLiteral("%1: %2 → %3 caractères")
                   .arg(translate ? QStringLiteral("traduction") : QStringLiteral("correction"))
                   .arg(Graphemes::count(*original))
                   .arg(Graphemes::count(result)));

    // A translation of text that cannot be edited (a web page's body) opens beside it and
    // leaves the page alone. An unknown element counts as editable.
    if (translate && Paster::focusedIsEditable() == std::optional<bool>(false)) {
        clipboard.restore(saved);
        toIdle();
        QString target = settings.translateTarget();
        if (Translator::detect(*original) == target)
            target = target == QStringLiteral("français") ? QStringLiteral("anglais")
                                                          : QStringLiteral("français");
        if (onBubble) onBubble(QStringLiteral("Traduit en ") + target, *original, result);
        co_return;
    }
    // The selection still there is replaced; the user's clipboard always comes back.
    co_await Paster::paste(result, true, saved);
    toIdle();
    show(translate ? QStringLiteral("Texte traduit")
         : changed ? QStringLiteral("Texte corrigé")
                   : QStringLiteral("Aucune faute"),
         false);
}

void DictationController::speakSelection() {
    // The same key starts and stops the reading.
    SpeechOutput& speech = Platform::current().speech();
    if (speech.speaking()) {
        speech.stop();
        return;
    }
    [](QPointer<DictationController> self) -> QCoro::Task<void> {
        co_await Paster::modifierWait();
        if (!self) co_return;
        std::optional<QString> selected = Paster::selectedTextViaAX();
        if (trimmed(selected).isEmpty()) {
            Clipboard& clipboard = Platform::current().clipboard();
            const ClipboardSnapshot saved = Paster::snapshot();
            selected = co_await Paster::copySelection();
            clipboard.restore(saved);
            if (!self) co_return;
        }
        if (trimmed(selected).isEmpty()) {
            self->fail(QStringLiteral("Aucun texte sélectionné"));
            co_return;
        }
        readAloud(*selected);
        self->show(QStringLiteral("Lecture à voix haute"), false);
    }(this);
}

} // namespace ombry
