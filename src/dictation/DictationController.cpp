#include "dictation/DictationController.h"

#include "audio/AudioRecorder.h"
#include "audio/Sounds.h"
#include "correction/Graphemes.h"
#include "correction/Translator.h"
#include "data/KeyStore.h"
#include "data/Records.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/HotkeyMonitor.h"
#include "desktop/Log.h"
#include "desktop/Paster.h"
#include "dictation/Chunker.h"
#include "dictation/DictationSupport.h"
#include "dictation/RecordingProcessor.h"
#include "engines/Cleanup.h"
#include "engines/LivePreview.h"
#include "net/Net.h"
#include "net/OpenRouter.h"
#include "online/OmbryAI.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "platform/SerialQueue.h"

#include <QCoreApplication>
#include <QFile>
#include <QPointer>
#include <algorithm>
#include <exception>

namespace ombry {

using dictation::afterOnClock;
using dictation::appIdOf;
using dictation::clock;
using dictation::isOwnWindow;
using dictation::trimmed;

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
    hotkey_->onKeyDuringHold = [this] { keyDuringHold(); };
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

// Every 2 s for the life of the program: a keyboard hook that is not running (it failed at
// start, or it stopped) is started again, once a tick, and what it gives is the new state. A
// hook that runs is left alone: a restart forgets the key held.
void DictationController::pollTrust() {
    afterOnClock(this, kTrustPollMs, [this] {
        bool now = hookRunning();
        if (!now) {
            hotkey_->restart();
            now = hookRunning();
        }
        if (now != trusted_) {
            setTrusted(now);
            Log::write(QStringLiteral("accessibilité=%1")
                           .arg(now ? QStringLiteral("true") : QStringLiteral("false")));
        }
        pollTrust();
    });
}

void DictationController::warmUpAudio() {
    audioQueue_->async([this] { recorder_->warmUp(); });
}

// ---- The dictation key -------------------------------------------------------------------

// A press captures at once but shows nothing yet: the press may be a chord (AltGr types
// "@ # € { }" on French keyboards), which a key that is not a modifier, pressed in the first
// 0.6 s of the hold, reveals. The recording shows (sound, strip) when the hold reaches 0.6 s,
// which makes it hold-to-talk, or at a release before that, which makes it hands-free; the
// next press ends a hands-free recording. That press must come 0.7 s or more after the first
// one: the second press of a quick double tap is swallowed instead of ending a recording that
// has only just begun. The audio of the first 0.6 s is in the recording all the same.
void DictationController::handlePress() {
    const int64_t now = clock().elapsedMs();
    if (!handsFree_) {
        pressedAtMs_ = now;
        chordHeld_ = false;
        arm();
        const uint64_t press = pressId_;
        afterOnClock(this, kHoldMs, [this, press] {
            if (press == pressId_ && arming_) showRecording();
        });
        return;
    }
    if (now - pressedAtMs_ < kDoubleTapGuardMs) return;
    setHandsFree(false);
    end();
}

void DictationController::handleRelease() {
    if (chordHeld_) {
        chordHeld_ = false;
        return;
    }
    if (arming_) {
        showRecording();
        if (state_ == State::Recording) {
            setHandsFree(true);
            Log::write(QStringLiteral("dictée sans les mains"));
        }
        return;
    }
    if (state_ != State::Recording || handsFree_) return;
    if (clock().elapsedMs() - pressedAtMs_ < kHoldMs) {
        setHandsFree(true);
        Log::write(QStringLiteral("dictée sans les mains"));
        return;
    }
    end();
}

void DictationController::keyDuringHold() {
    // Later in a long hold, keys do nothing to the dictation.
    if (!arming_) return;
    arming_ = false;
    chordHeld_ = true;
    ++pressId_;
    ++captureId_;
    refusal_.reset();
    if (capturing_) {
        capturing_ = false;
        audioQueue_->async([this] {
            recorder_->stop();
            recorder_->warmUp();
        });
    }
    selectionPending_ = false;
    setCommandText(std::nullopt);
    Log::write(QStringLiteral("touche: accord, dictée ignorée"));
}

void DictationController::begin() {
    arm();
    showRecording();
}

void DictationController::arm() {
    ++pressId_;
    refusal_.reset();
    arming_ = true;
    busyAtPress_ = state_ != State::Idle;
    if (busyAtPress_) return;
    AppSettings& settings = AppSettings::shared();
    if (settings.transcriptionEngine() == TranscriptionEngine::Deepgram &&
        !KeyStore::shared().key(APIService::Deepgram)) {
        refusal_ = QStringLiteral("Clé Deepgram absente");
        return;
    }
    // No sound server running: no microphone to record from (nothing the user can allow in
    // the settings). A server without a microphone is found by the recorder's start, and
    // shown the same way.
    if (!Platform::current().audio().serverAvailable()) {
        refusal_ = QStringLiteral("Micro indisponible");
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
    selectionPending_ = false;
    startedAt_ = clock().now();
    cancelled_ = false;
    capturing_ = true;
    const uint64_t capture = ++captureId_;

    const QString appName =
        targetApp_ && !targetApp_->name.isEmpty() ? targetApp_->name : QStringLiteral("?");
    audioQueue_->async([this, appName, capture] {
        try {
            recorder_->start();
        } catch (const std::exception& e) {
            const QString reason = QString::fromUtf8(e.what());
            QMetaObject::invokeMethod(
                this, [this, reason, capture] { captureFailed(reason, capture); },
                Qt::QueuedConnection);
            return;
        }
        Log::write(QStringLiteral("enregistrement: début (appli %1)").arg(appName));
        QMetaObject::invokeMethod(
            this, [this, capture] { captureStarted(capture); }, Qt::QueuedConnection);
    });
}

void DictationController::captureFailed(const QString& reason, uint64_t capture) {
    if (capture != captureId_) return;
    capturing_ = false;
    Log::write(QStringLiteral("audio: démarrage impossible (%1)").arg(reason));
    if (arming_) {
        // Said when the press turns out to be a dictation; a chord says nothing.
        refusal_ = QStringLiteral("Micro indisponible");
        return;
    }
    if (state_ != State::Recording) return;
    toIdle();
    preview_->stop();
    chunker_.reset();
    fail(QStringLiteral("Micro indisponible"));
}

// The selection that a voice command would act on is read once the microphone records, never
// before: an application that does not answer the question must not delay the recording.
void DictationController::captureStarted(uint64_t capture) {
    if (capture != captureId_ || !capturing_) return;
    if (!AppSettings::shared().voiceCommands() || isOwnWindow(targetApp_)) return;
    selectionPending_ = true;
    [](QPointer<DictationController> self, uint64_t capture) -> QCoro::Task<void> {
        const std::optional<QString> selected = co_await Paster::selectedTextViaAX();
        if (!self || capture != self->captureId_) co_return;
        self->selectionPending_ = false;
        if (trimmed(selected).isEmpty()) co_return;
        self->setCommandText(selected);
        Log::write(QStringLiteral("commande: %1 caractères sélectionnés")
                       .arg(Graphemes::count(*selected)));
        // A command is never cut in pieces.
        if (self->chunker_) {
            self->chunker_->cancelAll();
            self->chunker_.reset();
        }
    }(this, capture);
}

void DictationController::showRecording() {
    if (!arming_) return;
    arming_ = false;
    if (busyAtPress_) {
        if (state_ == State::Processing || state_ == State::Correcting)
            show(QStringLiteral("Un instant, je termine…"), false);
        return;
    }
    if (refusal_) {
        const QString message = *refusal_;
        refusal_.reset();
        fail(message);
        return;
    }
    AppSettings& settings = AppSettings::shared();
    if (settings.sounds()) playSound(Sound::Tink);
    if (onRecordingBegins) onRecordingBegins();
    setState(State::Recording);
    setLiveText(QString());
    // A release lost by the compositor must not leave the microphone open for ever.
    const uint64_t capture = captureId_;
    afterOnClock(this, kMaxHoldMs, [this, capture] {
        if (capture != captureId_ || state_ != State::Recording || handsFree_) return;
        Log::write(QStringLiteral("enregistrement: touche jamais relâchée, fin après 10 min"));
        hotkey_->forgetHeldKey();
        end();
    });
    if (settings.livePreview()) preview_->start(localeCode(settings.language()), false, false);

    // Long dictations are transcribed and cleaned piece by piece while the user speaks, when
    // the remote speech engine and the remote rewrite both serve it. Never for a command.
    chunker_.reset();
    if (settings.transcriptionEngine() == TranscriptionEngine::Gemini &&
        settings.rewriteEngine() == RewriteEngine::OpenRouter && !commandText_ && hasRemote())
        chunker_ = std::make_shared<Chunker>(Tone::hint(appIdOf(targetApp_)));
}

void DictationController::end() {
    if (state_ != State::Recording) return;
    // However the recording ends (a press, the microphone lost), the next press begins anew.
    if (handsFree_) setHandsFree(false);
    capturing_ = false;
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
    // A voice command's selection still being read is waited for (its questions have short
    // deadlines).
    QPointer<DictationController> self(this);
    for (int i = 0; i < kSelectionWaitMs / 10 && self && selectionPending_; ++i)
        co_await dictation::sleepMs(10);
    if (!self) co_return;
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
    capturing_ = false;
    ++captureId_;
    selectionPending_ = false;
    setHandsFree(false);
    if (chunker_) chunker_->cancelAll();
    preview_->stop();
    // Nothing may begin until the recorder has really stopped.
    setState(State::Processing);
    const std::optional<AppWindow> front = Platform::current().windows().frontmost();
    audioQueue_->async([this, front] {
        recorder_->stop();
        QMetaObject::invokeMethod(
            this,
            [this, front] {
                chunker_.reset();
                cancelled_ = false;
                toIdle();
                show(QStringLiteral("Dictée annulée"), false);
                giveFocusBack(front);
            },
            Qt::QueuedConnection);
    });
    // A cancel is always confirmed by ear, whatever the sound setting.
    playSound(Sound::Pop);
    Log::write(QStringLiteral("dictée annulée"));
}

// A window manager may move the focus while the Escape key is held by our grab (openbox does
// when the key map changes under it), so a cancelled dictation could leave the user in another
// window than the one they were typing in. The window in front at the key press comes back,
// but only while the focus is still where the cancel found it: a window the user went to
// since is theirs.
void DictationController::giveFocusBack(const std::optional<AppWindow>& atCancel) {
    if (!targetApp_ || isOwnWindow(targetApp_)) return;
    Windows& windows = Platform::current().windows();
    const std::optional<AppWindow> front = windows.frontmost();
    if (front && front->id == targetApp_->id) return;
    if ((front ? front->id : 0) != (atCancel ? atCancel->id : 0)) return;
    windows.activate(*targetApp_);
}

// ---- From the recording to the text --------------------------------------------------------

QCoro::Task<void> DictationController::process(QByteArray wav, double duration,
                                               std::optional<AppWindow> app,
                                               std::optional<std::pair<QString, QString>> pre) {
    RecordingProcessor processor(
        *this, {std::move(wav), duration, std::move(app), std::move(pre), std::nullopt});
    co_await processor.run();
}

void DictationController::showNotPasted(const QString& text) {
    if (onBubble) onBubble(QStringLiteral("Texte non collé"), QString(), text);
    // The text left on the clipboard (no key could be posted) is one paste away.
    if (Platform::current().clipboard().text() == text)
        show(QStringLiteral("Colle avec Ctrl+V"), false);
}

std::function<void()> DictationController::notPasted(const QString& text) {
    return [self = QPointer<DictationController>(this), text] {
        if (self) self->showNotPasted(text);
    };
}

void DictationController::pasteLast() {
    const QList<Dictation>& history = Store::shared().dictations();
    const auto newest = std::find_if(history.cbegin(), history.cend(),
                                     [](const Dictation& d) { return !d.failed(); });
    if (state_ != State::Idle || newest == history.cend()) return;
    // As stored: the text of the record, before the last hallucination pass.
    const QString text = newest->finalText;
    [](QPointer<DictationController> self, QString text) -> QCoro::Task<void> {
        co_await Paster::modifierWait();
        if (!self) co_return;
        std::function<void()> lost = self->notPasted(text);
        co_await Paster::pasteAndCheck(text, AppSettings::shared().restoreClipboard(), std::nullopt,
                                       std::move(lost));
        self->show(QStringLiteral("Dernière dictée recollée"), false);
    }(this, text);
}

void DictationController::retry(const QUuid& id) {
    if (state_ != State::Idle) {
        show(QStringLiteral("Un instant, je termine…"), false);
        return;
    }
    Store& store = Store::shared();
    const QList<Dictation>& history = store.dictations();
    const auto found = std::find_if(history.cbegin(), history.cend(),
                                    [&id](const Dictation& d) { return d.id == id; });
    if (found == history.cend() || !found->failed() || found->inProgress()) return;
    const Dictation record = *found;
    const std::optional<QString> path = store.audioURL(record);
    QFile file(path.value_or(QString()));
    if (!path || !file.open(QIODevice::ReadOnly)) return;
    QByteArray wav = file.readAll();
    Log::write(
        QStringLiteral("réessai: dictée de %1 s").arg(QString::asprintf("%.2f", record.duration)));
    setCommandText(std::nullopt);
    setTranslateThis(record.bundleID &&
                     AppSettings::shared().translateApps().contains(*record.bundleID));
    setState(State::Processing);
    [](DictationController* self, RecordingProcessor::Recording recording) -> QCoro::Task<void> {
        RecordingProcessor processor(*self, std::move(recording));
        co_await processor.run();
    }(this, RecordingProcessor::Recording{std::move(wav), record.duration, std::nullopt,
                                          std::nullopt, record});
}

} // namespace ombry
