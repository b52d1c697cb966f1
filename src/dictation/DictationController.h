#pragma once

#include "platform/Desktop.h"

#include <QByteArray>
#include <QCoroTask>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <QUuid>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace ombry {

class AudioRecorder;
class Chunker;
class HotkeyMonitor;
class LivePreview;
class SerialQueue;

// The hub of the program. Turns the dictation key into a recording, a finished recording into
// text pasted where the user was (transcription, voice command or shortcut, dictionary rules,
// clean-up or rewrite, translation, history), and runs the actions on the selected text
// (correct, translate, read aloud). One shared instance owns the recorder, the hotkey monitor
// and the live preview, and publishes what the overlay, the menus and the pages show.
//
// Everything here runs on the main thread; the recorder starts and stops on its own serial
// queue ("verlo.audio") so that the main thread never waits for the sound server.
class DictationController : public QObject {
    Q_OBJECT
public:
    enum class State { Idle, Recording, Processing, Correcting };
    Q_ENUM(State)

private:
    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    Q_PROPERTY(std::optional<QString> lastError READ lastError NOTIFY lastErrorChanged)
    Q_PROPERTY(std::optional<QString> flash READ flash NOTIFY flashChanged)
    Q_PROPERTY(bool flashIsError READ flashIsError NOTIFY flashIsErrorChanged)
    Q_PROPERTY(double level READ level NOTIFY levelChanged)
    Q_PROPERTY(QString liveText READ liveText NOTIFY liveTextChanged)
    Q_PROPERTY(std::optional<QString> commandText READ commandText NOTIFY commandTextChanged)
    Q_PROPERTY(bool translating READ translating NOTIFY translatingChanged)
    Q_PROPERTY(bool translateThis READ translateThis NOTIFY translateThisChanged)
    Q_PROPERTY(bool trusted READ trusted NOTIFY trustedChanged)
    Q_PROPERTY(bool handsFree READ handsFree NOTIFY handsFreeChanged)

public:
    static DictationController& shared();
    // A controller of its own; the program uses shared(), tests make one per case.
    explicit DictationController(QObject* parent = nullptr);
    ~DictationController() override;

    // Observable state. Each setter emits its signal on every write.
    State state() const { return state_; }
    std::optional<QString> lastError() const { return lastError_; }
    std::optional<QString> flash() const { return flash_; }
    bool flashIsError() const { return flashIsError_; }
    double level() const { return level_; }
    QString liveText() const { return liveText_; }
    std::optional<QString> commandText() const { return commandText_; }
    bool translating() const { return translating_; }
    bool translateThis() const { return translateThis_; }
    bool trusted() const { return trusted_; }
    bool handsFree() const { return handsFree_; }

    // Called when the user must act in the settings (missing key, permission).
    std::function<void()> onNeedsAttention;
    // Shows a translation next to a selection that cannot be edited (the bubble view).
    std::function<void(const QString& title, const QString& original, const QString& text)>
        onBubble;
    // A recording begins: the overlay positions itself.
    std::function<void()> onRecordingBegins;

    // At launch: starts the hotkey monitor, asks for the settings when the keyboard hook does
    // not work, and polls the hook every 2 s (restarting the monitor when it changes).
    void start();
    // Opens the sound server connection ahead of the first dictation.
    void warmUpAudio();

    // The dictation key went down: starts capturing, shown as a recording once the hold
    // reaches kHoldMs or at an earlier release; or ends a hands-free one (a press within
    // kDoubleTapGuardMs of the one that began it is ignored).
    void handlePress();
    // The dictation key went up: ends a recording held kHoldMs or more; a shorter tap makes it
    // hands-free.
    void handleRelease();
    // A key that is not a modifier went down while the dictation key is held: in the first
    // kHoldMs the press was a chord (AltGr + a key), and nothing of a dictation happens.
    void keyDuringHold();

    // Starts a recording at once when idle (checks, target window, translation, the recorder
    // on the audio queue, then the sound, the strip and the chunker); says "Un instant, je
    // termine…" when busy.
    void begin();
    // Stops the recording and hands it to the pipeline.
    void end();
    // Escape during a recording: drops it, confirmed by a sound whatever the settings say.
    void cancel();
    // A failure the user sees: flash, journal, error sound, settings page for what they can fix.
    void fail(const QString& message);
    // A flash message, cleared 2 s later unless a newer one replaced it.
    void show(const QString& text, bool error);

    // The road from a finished recording to the text at the cursor (RecordingProcessor). Never
    // throws. pre: what the chunker already produced (raw, clean), nothing when the engine is
    // to run.
    QCoro::Task<void> process(QByteArray wav, double duration, std::optional<AppWindow> app,
                              std::optional<std::pair<QString, QString>> pre);
    // A text that was pasted but did not arrive: the result card shows it with its copy button.
    void showNotPasted(const QString& text);
    // What to call when a paste of `text` did not arrive, as long as this controller lives.
    std::function<void()> notPasted(const QString& text);
    // Pastes the newest dictation that gave a text again (Ctrl+Alt+V).
    void pasteLast();
    // Processes a failed dictation again from its kept recording, with the engines, dictionary
    // and settings of now; its text goes to the clipboard and its record becomes an ordinary
    // dictation. Says "Un instant, je termine…" when busy; nothing for a record that is not
    // failed or has lost its audio.
    void retry(const QUuid& id);

    // The actions on the selection (SelectionActions.cpp).
    // Corrects (or translates) the selected text in place; a translation of text that cannot
    // be edited goes to onBubble instead. alreadyCopied: the user's Ctrl+C run put it on the
    // clipboard.
    QCoro::Task<void> correctSelection(bool alreadyCopied, bool translate);
    // Reads the selection aloud; a second call while speaking stops the reading.
    void speakSelection();

    HotkeyMonitor& hotkey();
    AudioRecorder& recorder();
    LivePreview& preview();

    // The seconds that tell hold-to-talk from a tap, and the guard after a hands-free start.
    static constexpr int64_t kHoldMs = 600;
    static constexpr int64_t kDoubleTapGuardMs = 700;
    // A held recording whose release never comes ends by itself after this long.
    static constexpr int64_t kMaxHoldMs = 10 * 60 * 1000;
    static constexpr int kFlashMs = 2000;
    static constexpr int kWatchdogMs = 40000;
    static constexpr int kTrustPollMs = 2000;
    static constexpr int kActivationSleepMs = 80;
    // The longest wait of a finished recording for the selection of its voice command.
    static constexpr int kSelectionWaitMs = 3000;

Q_SIGNALS:
    void stateChanged();
    void lastErrorChanged();
    void flashChanged();
    void flashIsErrorChanged();
    void levelChanged();
    void liveTextChanged();
    void commandTextChanged();
    void translatingChanged();
    void translateThisChanged();
    void trustedChanged();
    void handsFreeChanged();

private:
    // The processing of a recording reports through the controller's state and messages.
    friend class RecordingProcessor;

    void setState(State s);
    void setLastError(const std::optional<QString>& e);
    void setFlash(const std::optional<QString>& f);
    void setFlashIsError(bool e);
    void setLevel(double l);
    void setLiveText(const QString& t);
    void setCommandText(const std::optional<QString>& t);
    void setTranslating(bool t);
    void setTranslateThis(bool t);
    void setTrusted(bool t);
    void setHandsFree(bool h);
    void toIdle();

    // The silent part of a press: checks, target window, the capture on the audio queue.
    void arm();
    // The visible part: the sound, the strip, the live preview and the chunker; or what
    // refused the press.
    void showRecording();
    void captureStarted(uint64_t capture);
    void captureFailed(const QString& reason, uint64_t capture);

    // What follows the recorder's stop, back on the main thread.
    void afterStop(QByteArray wav, double duration, QByteArray pcm, std::optional<AppWindow> app);
    QCoro::Task<void> finishAndProcess(std::shared_ptr<Chunker> chunker, QByteArray wav,
                                       double duration, QByteArray pcm,
                                       std::optional<AppWindow> app);
    // Brings the window in front at the key press back after a cancel; atCancel: the window
    // in front when the cancel came.
    void giveFocusBack(const std::optional<AppWindow>& atCancel);
    bool hookRunning();
    void pollTrust();

    std::unique_ptr<SerialQueue> audioQueue_;
    std::unique_ptr<AudioRecorder> recorder_;
    std::unique_ptr<HotkeyMonitor> hotkey_;
    std::unique_ptr<LivePreview> preview_;
    std::shared_ptr<Chunker> chunker_;
    bool trustPolling_ = false;

    State state_ = State::Idle;
    std::optional<QString> lastError_;
    std::optional<QString> flash_;
    bool flashIsError_ = false;
    double level_ = 0;
    QString liveText_;
    std::optional<QString> commandText_;
    bool translating_ = false;
    bool translateThis_ = false;
    bool trusted_ = false;
    bool handsFree_ = false;
    bool cancelled_ = false;
    std::optional<AppWindow> targetApp_;
    QDateTime startedAt_;
    int64_t pressedAtMs_ = 0;
    // The press not shown yet, which a chord may still cancel.
    bool arming_ = false;
    bool busyAtPress_ = false;
    std::optional<QString> refusal_; // what the press will say instead of recording
    bool chordHeld_ = false;         // the key of a chord is still down: its release is nothing
    bool capturing_ = false;
    bool selectionPending_ = false;
    uint64_t pressId_ = 0;   // each press; a timer or answer of an older one is dropped
    uint64_t captureId_ = 0; // each capture started
};

} // namespace ombry
