#pragma once

#include "platform/Clock.h"
#include "platform/Platform.h"

#include <QList>
#include <QMap>
#include <QPair>
#include <mutex>

namespace ombry::test {

class FakeKeychain final : public Keychain {
public:
    QMap<QPair<QString, QString>, QString> items; // (service, account) -> secret
    std::optional<QString> genericPassword(const QString& service, const QString& account) override;
};

class FakeNotifier final : public Notifier {
public:
    struct Posted {
        QString title, body;
    };
    void post(const QString& title, const QString& body) override;
    QList<Posted> posted() const;

private:
    mutable std::mutex mutex_;
    QList<Posted> posted_;
};

class FakeMachine final : public MachineInfo {
public:
    uint64_t memory = 16ull << 30;
    int cores = 8;
    QString brand = QStringLiteral("AMD Ryzen 7 7840U");
    bool lowPower = false;
    int thermal = 0;
    QString identifier = QStringLiteral("0123456789abcdef0123456789abcdef");

    uint64_t physicalMemoryBytes() override { return memory; }
    int activeProcessorCount() override { return cores; }
    QString cpuBrand() override { return brand; }
    bool lowPowerMode() override { return lowPower; }
    int thermalState() override { return thermal; }
    QString machineIdentifier() override { return identifier; }
};

class FakeBrowser final : public Browser {
public:
    QList<QUrl> opened;
    bool open(const QUrl& url) override {
        opened << url;
        return true;
    }
};

// The keyboard: the test sends events with press(); swallowed combos and posted keys are kept.
class FakeKeyboard final : public KeyboardHook {
public:
    bool available = true;
    QList<KeyCombo> swallowed;
    bool acceptPosted = false;
    uint64_t flags = 0;
    std::optional<bool> altGr; // what rightAltIsAltGr() answers

    bool start(Handler handler) override;
    void stop() override { handler_ = {}; }
    bool running() const override { return bool(handler_); }
    QString reason() const override { return QStringLiteral("pas de clavier (test)"); }
    void setSwallowed(const QList<KeyCombo>& combos) override { swallowed = combos; }
    void setAcceptPostedKeys(bool accept) override { acceptPosted = accept; }
    uint64_t lastModifierFlags() const override { return flags; }
    std::optional<bool> rightAltIsAltGr() const override { return altGr; }
    // Delivers an event as the hook would (flags-changed events also set lastModifierFlags).
    void send(const KeyEvent& event);
    // Whether the key with these modifiers is taken (by its combination, or with any).
    bool swallows(uint16_t keyCode, uint64_t modifiers) const;

private:
    Handler handler_;
};

class FakeKeyPoster final : public KeyPoster {
public:
    QList<KeyCombo> posted;
    std::function<void(const KeyCombo&)> onPost; // lets a test play the target application
    bool fails = false;                          // no key reaches anything (a refused road)
    QStringList typed;                           // texts typed by typeText()
    bool post(uint16_t keyCode, uint64_t modifiers) override;
    bool typeText(const QString& text) override;
};

// The display session, as the test describes it (X11 unless told otherwise).
class FakeSession final : public DisplaySession {
public:
    SessionOffer offered = [] {
        SessionOffer o;
        o.display = SessionOffer::Display::X11;
        return o;
    }();
    const SessionOffer& offer() override { return offered; }
    void setChoices(bool evdev, bool uinput) override {
        offered.evdevChosen = evdev;
        offered.uinputChosen = uinput;
    }
};

// The desktop's shortcut service: the test fires the shortcuts and answers the bind.
class FakeShortcuts final : public GlobalShortcuts {
public:
    QList<ShortcutRequest> bound;
    Handler handler;
    BoundHandler onBound;
    QMap<QString, QString> triggers;
    bool available() override { return true; }
    void bind(const QList<ShortcutRequest>& s, Handler h, BoundHandler b) override {
        bound = s;
        handler = std::move(h);
        onBound = std::move(b);
    }
    void unbind() override { handler = {}; }
    QString trigger(const QString& id) const override { return triggers.value(id); }
};

class FakeClipboard final : public Clipboard {
public:
    ClipboardSnapshot content;        // what the clipboard holds now
    std::optional<QString> selection; // PRIMARY
    uint64_t changes = 0;
    uint64_t selectionChanges = 0;
    // The onFetched of the last setText, until the clipboard's content changes.
    std::function<void(const ClipboardFetch&)> onFetched;

    ClipboardSnapshot snapshot() override { return content; }
    void restore(const ClipboardSnapshot& s) override;
    void clear() override;
    void setText(const QString& text, bool alsoPrimary,
                 std::function<void(const ClipboardFetch&)> onFetched) override;
    std::optional<QString> text() override;
    uint64_t changeCount() override { return changes; }
    std::optional<QString> selectedText() override { return selection; }
    bool primaryInFront = true; // PRIMARY belongs to the window in front
    bool primaryOwnedBy(const AppWindow&) override { return primaryInFront; }
    ClipboardSnapshot selectionSnapshot() override;
    void restoreSelection(const ClipboardSnapshot& s) override;
    uint64_t selectionChangeCount() override { return selectionChanges; }
    // The application of a window reads the clipboard: returns its text and tells onFetched.
    // Without a window, the reader is the application of any window (the target's paste).
    std::optional<QString> fetch(std::optional<uint64_t> readerWindow = std::nullopt);
    // Another application, which owns no window a test names (a clipboard manager), reads it.
    std::optional<QString> fetchByAnotherApplication() { return fetch(uint64_t(0)); }
    // Sets PRIMARY as another application selecting text does.
    void select(const std::optional<QString>& text);
};

// The accessibility bus as the application in front would answer it.
class FakeAccessibility final : public Accessibility {
public:
    std::optional<FocusedElement> focus; // none: the application in front exposes nothing
    QString content;                     // the focused element's whole text
    int asked = 0;                       // calls to focused()
    QCoro::Task<std::optional<FocusedElement>> focused(int64_t pid) override;
    QCoro::Task<std::optional<FocusedElement>> reread(AccessibleElement element) override;
    QCoro::Task<std::optional<QString>> text(AccessibleElement element, int start,
                                             int end) override;
};

class FakeWindows final : public Windows {
public:
    std::optional<AppWindow> front;
    QList<AppWindow> activated;
    QMap<int64_t, QString> names;
    std::optional<AppWindow> frontmost() override { return front; }
    bool activate(const AppWindow& w) override {
        activated << w;
        front = w;
        return true;
    }
    QString applicationName(int64_t pid) override { return names.value(pid); }
};

// Capture plays the PCM a test gives it; stop() returns at once.
class FakeAudio final : public AudioSystem {
public:
    bool available = true;     // the sound server answers
    bool captureFails = false; // the server is reachable but refuses the record stream
    QList<AudioSource> mics{{QStringLiteral("test-mic"), QStringLiteral("Micro de test")}};
    // The outputs' monitors, which a capture by name reaches but which are no microphones.
    QList<AudioSource> monitors{{QStringLiteral("speakers.monitor"), QStringLiteral("Speakers")}};
    QString defaultName = QStringLiteral("test-mic"); // the server's default source
    SampleFormat format{48000, 2};                    // what every source delivers
    QList<QPair<QByteArray, int>> played;             // (pcm, rate) of every sound played
    QString capturedFrom;                             // the source of the last capture, as asked
    int captures = 0;

    // Any listed source by name (empty: the default source); throws when the server is away,
    // refuses, or the source is not there.
    std::unique_ptr<CaptureStream> capture(const QString& source, PcmHandler onPcm,
                                           EndHandler onEnd) override;
    QList<AudioSource> microphones() override { return available ? mics : QList<AudioSource>{}; }
    QString defaultSource() override { return available ? defaultName : QString(); }
    void watchMicrophones(std::function<void()> handler) override { micsChanged = handler; }
    bool serverAvailable() override { return available; }
    bool microphoneAvailable() override;
    void play(const QByteArray& pcm, int rate) override;
    int stops = 0; // calls of stopPlaying
    void stopPlaying() override { ++stops; }
    // Feeds PCM to the running capture, as the capture thread would.
    void feed(const QByteArray& pcm) { feed(mic_, pcm); }
    // Ends the running capture as a vanished source would.
    void end(const QString& reason) { end(mic_, reason); }
    bool capturing() const { return capturing(mic_); }

    std::function<void()> micsChanged;

    // What the computer plays: the applications listed, and one capture of the output at a
    // time, beside the microphone's.
    QList<PlayingApp> apps;
    bool outputFails = false;
    QString outputFor; // the application of the last output capture (empty: all of it)
    std::unique_ptr<CaptureStream> captureOutput(const QString& appId, PcmHandler onPcm,
                                                 EndHandler onEnd) override;
    QList<PlayingApp> playingApps() override { return apps; }
    bool outputAvailable = true; // the default output has a monitor
    bool outputCaptureAvailable() override { return available && outputAvailable; }
    void feedOutput(const QByteArray& pcm) { feed(output_, pcm); }
    void endOutput(const QString& reason) { end(output_, reason); }
    bool capturingOutput() const { return capturing(output_); }

    // The handlers of a running capture (none when stopped).
    struct Stream {
        PcmHandler onPcm;
        EndHandler onEnd;
    };

private:
    std::unique_ptr<CaptureStream> open(Stream& stream, PcmHandler onPcm, EndHandler onEnd);
    void feed(Stream& stream, const QByteArray& pcm);
    void end(Stream& stream, const QString& reason);
    bool capturing(const Stream& stream) const;

    mutable std::mutex mutex_;
    Stream mic_, output_;
    friend class FakeCapture;
};

class FakeSpeech final : public SpeechOutput {
public:
    QList<QPair<QString, QString>> spoken; // (text, language)
    bool isSpeaking = false;
    void speak(const QString& text, const QString& language) override {
        spoken << qMakePair(text, language);
        isSpeaking = true;
    }
    void stop() override { isSpeaking = false; }
    bool speaking() const override { return isSpeaking; }
};

// Installs fakes for every platform service for the life of the object, and gives the test
// direct access to them. The clock starts at 2026-03-14T09:26:53Z and moves only by advance().
class FakePlatform {
public:
    FakePlatform();
    ~FakePlatform();
    FakePlatform(const FakePlatform&) = delete;
    FakePlatform& operator=(const FakePlatform&) = delete;

    ManualClock& clock() { return *clock_; }
    FakeKeychain& keychain() { return *keychain_; }
    FakeNotifier& notifier() { return *notifier_; }
    FakeMachine& machine() { return *machine_; }
    FakeBrowser& browser() { return *browser_; }
    FakeKeyboard& keyboard() { return *keyboard_; }
    FakeKeyPoster& keyPoster() { return *keyPoster_; }
    FakeClipboard& clipboard() { return *clipboard_; }
    FakeWindows& windows() { return *windows_; }
    FakeAudio& audio() { return *audio_; }
    FakeSpeech& speech() { return *speech_; }
    FakeAccessibility& accessibility() { return *accessibility_; }
    FakeSession& session() { return *session_; }
    FakeShortcuts& shortcuts() { return *shortcuts_; }

private:
    ManualClock* clock_;
    FakeKeychain* keychain_;
    FakeNotifier* notifier_;
    FakeMachine* machine_;
    FakeBrowser* browser_;
    FakeKeyboard* keyboard_;
    FakeKeyPoster* keyPoster_;
    FakeClipboard* clipboard_;
    FakeWindows* windows_;
    FakeAudio* audio_;
    FakeSpeech* speech_;
    FakeAccessibility* accessibility_;
    FakeSession* session_;
    FakeShortcuts* shortcuts_;
};

} // namespace ombry::test
