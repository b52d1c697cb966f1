#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QList>
#include <QPair>
#include <QPointF>
#include <QString>
#include <QStringList>
#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>

class QImage;

// The desktop services of the operating system: the global keyboard, posted keys, the
// clipboard and the selection, the window in front, audio capture and playback, speech
// output. The logic (controller, hotkey monitor, paster, recorder) only sees these
// interfaces; the X11 + PulseAudio implementation lives in platform/linux/, a Wayland one can
// sit beside it, and the tests install fakes. No X11 or PulseAudio type appears here.
namespace ombry {

// The program's own key vocabulary. Settings files store these values, so they mean the same
// whatever the display system; each keyboard implementation translates its own codes.
namespace keycode {
constexpr uint16_t C = 8;
constexpr uint16_t V = 9;
constexpr uint16_t R = 15;
constexpr uint16_t Return = 36;
constexpr uint16_t Escape = 53;
constexpr uint16_t RightCommand = 54; // Right Super
constexpr uint16_t LeftShift = 56;
constexpr uint16_t LeftOption = 58; // Left Alt
constexpr uint16_t LeftControl = 59;
constexpr uint16_t RightShift = 60;
constexpr uint16_t RightOption = 61;  // Right Alt / AltGr
constexpr uint16_t RightControl = 62; // Right Ctrl
constexpr uint16_t Fn = 63;           // the Menu key (Fn never reaches the display server)
constexpr uint16_t Insert = 114;
constexpr uint16_t LeftCommand = 55; // Left Super
} // namespace keycode

namespace modifier {
constexpr uint64_t Shift = 0x20000;
constexpr uint64_t Control = 0x40000;
constexpr uint64_t Option = 0x80000;   // Alt
constexpr uint64_t Command = 0x100000; // Super
constexpr uint64_t Mask = 0x1E0000;
// Device bits: which key of a pair is down.
constexpr uint64_t RightOptionDown = 0x40;
constexpr uint64_t RightCommandDown = 0x10;
constexpr uint64_t RightControlDown = 0x2000;
constexpr uint64_t FnDown = 0x800000;
// The modifier of copy and paste: Control on Linux (Command on the original platform).
constexpr uint64_t Primary = Control;
} // namespace modifier

// One keyboard event as the hook reports it, already in the program's vocabulary.
struct KeyEvent {
    enum class Type { FlagsChanged, KeyDown };
    Type type = Type::KeyDown;
    uint16_t keyCode = 0;
    uint64_t flags = 0;      // modifier flags after the event, with the device bits
    bool autoRepeat = false; // a key-down repeated by holding the key
    // 0 for a key of a real keyboard (or one this process posted); otherwise the process that
    // posted it when known, or -1 when a program posted it and its process is unknown (XTEST).
    int64_t sourcePid = 0;
    int64_t sourceState = 1;   // an identifier of the event source, for the journal
    bool postedBySelf = false; // this process posted it through KeyPoster
};

// A key and modifiers that the hook takes away from the application in front.
struct KeyCombo {
    uint16_t keyCode = 0;
    uint64_t modifiers = 0; // of modifier::Mask
    // The key taken whatever modifiers are held (modifiers stays 0): Escape while the dictation
    // key, itself a modifier, is held down.
    bool anyModifiers = false;
    bool operator==(const KeyCombo&) const = default;

    static KeyCombo withAnyModifiers(uint16_t keyCode) { return {keyCode, 0, true}; }
};

// The global keyboard. Sees every key of the session without taking it, and swallows only the
// combinations named by setSwallowed(). Events are delivered on the main thread, in order.
class KeyboardHook {
public:
    virtual ~KeyboardHook() = default;
    using Handler = std::function<void(const KeyEvent&)>;
    // Starts listening; false when the session offers no global keyboard (no X display, a
    // Wayland session). reason() then says why, in French, for the journal and the user.
    virtual bool start(Handler handler) = 0;
    virtual void stop() = 0;
    virtual bool running() const = 0;
    virtual QString reason() const = 0;
    // The combinations swallowed from now on, replacing the former list. A swallowed key is
    // still reported to the handler exactly once. The hook reports AltGr as Alt (Option), so a
    // combination with Option is also taken with AltGr in its place.
    virtual void setSwallowed(const QList<KeyCombo>& combos) = 0;
    // Keys posted by other programs (XTEST) count as real keys when true: remote desktops
    // deliver the user's keys that way.
    virtual void setAcceptPostedKeys(bool accept) = 0;
    // The modifier flags last seen, written only by the hook (0 while it is not running).
    virtual uint64_t lastModifierFlags() const = 0;
    // Whether the Right Alt key is AltGr (the third level of the keys, as on French layouts) or
    // a plain Alt on the current keyboard layout; nullopt when the hook cannot tell (not
    // running, no such key). Its name for the user follows.
    virtual std::optional<bool> rightAltIsAltGr() const = 0;
};

// Posts keys as if typed. Keys posted here are recognised by the hook as this process's own.
class KeyPoster {
public:
    virtual ~KeyPoster() = default;
    // Presses the modifiers, the key down then up, and releases the modifiers.
    virtual bool post(uint16_t keyCode, uint64_t modifiers) = 0;
    // Types a text character by character, as the keyboard would (accents included); false
    // where this road cannot.
    virtual bool typeText(const QString& text) {
        (void)text;
        return false;
    }
    // Opens the road ahead of the first key (a desktop may ask the user once); onReady is called
    // on the main thread with the answer: ok, or why not (French). With ok, the message says
    // what the desktop left out of what was asked, if anything.
    using ReadyHandler = std::function<void(bool ok, const QString& message)>;
    virtual void prepare(ReadyHandler onReady) {
        if (onReady) onReady(true, QString());
    }
};

// An application window, as remembered at a key press.
struct AppWindow {
    uint64_t id = 0;     // the window system's handle
    QString appId;       // desktop-file id, or the lower-case window class
    QString name;        // the application's name for people
    QString windowClass; // WM_CLASS class, for recognising terminal emulators
    int64_t pid = 0;
};

// What a clipboard held: every format (MIME type) with its bytes, in the owner's order.
using ClipboardSnapshot = QList<QPair<QString, QByteArray>>;

// A snapshot read from another application with one deadline for all its formats: those it
// did not give in time are named in `late` and left out.
struct ClipboardRead {
    ClipboardSnapshot formats;
    QStringList late;
};

// One read, by another application, of a text that Clipboard::setText() put on the clipboard.
struct ClipboardFetch {
    // Whether the reader is the application of the window: the same client of the display
    // server (on X11 the requesting window and this one share their resource-id base, whatever
    // hidden window the toolkit reads with). False when that cannot be told.
    std::function<bool(const AppWindow&)> readerOwns;
    bool byApplicationOf(const AppWindow& window) const { return readerOwns && readerOwns(window); }
};

// The clipboard (CLIPBOARD) and the selection (PRIMARY). Main thread only.
class Clipboard {
public:
    virtual ~Clipboard() = default;
    virtual ClipboardSnapshot snapshot() = 0;
    // The snapshot (or, with `primary`, selectionSnapshot()) without holding up the main
    // thread: an owner that is slow to give its formats, or frozen, costs about a second at
    // most, the main loop turning meanwhile.
    virtual QCoro::Task<ClipboardRead> readSnapshot(bool primary) {
        co_return ClipboardRead{primary ? selectionSnapshot() : snapshot(), {}};
    }
    // Puts the snapshot back (an empty snapshot clears the clipboard).
    virtual void restore(const ClipboardSnapshot& snapshot) = 0;
    virtual void clear() = 0;
    // Owns the clipboard with a plain text (and the PRIMARY selection too when asked).
    // onFetched is called on the main thread for each read of it by another application
    // (reads by this process do not count), until the content changes.
    virtual void setText(const QString& text, bool alsoPrimary,
                         std::function<void(const ClipboardFetch&)> onFetched = {}) = 0;
    virtual std::optional<QString> text() = 0;
    // Goes up each time the clipboard's content changes, whoever changed it.
    virtual uint64_t changeCount() = 0;
    // The text of the PRIMARY selection, whoever owns it; nullopt when none.
    virtual std::optional<QString> selectedText() = 0;
    // Whether the PRIMARY selection belongs to this window's application (the same display
    // client or the same process): a selection left in another window is not the user's now.
    virtual bool primaryOwnedBy(const AppWindow& window) = 0;
    // PRIMARY saved and put back as the clipboard is: a deep copy of what it holds, putting it
    // back (an empty snapshot leaves no selection), and a count of its changes.
    virtual ClipboardSnapshot selectionSnapshot() = 0;
    virtual void restoreSelection(const ClipboardSnapshot& snapshot) = 0;
    virtual uint64_t selectionChangeCount() = 0;
};

class Windows {
public:
    virtual ~Windows() = default;
    virtual std::optional<AppWindow> frontmost() = 0;
    virtual bool activate(const AppWindow& window) = 0;
    // The name of the application of a process, empty when unknown.
    virtual QString applicationName(int64_t pid) = 0;
    // Asks that a window of this program, about to be shown, stay on every workspace. Nothing
    // where the desktop has no such wish for a client to make.
    virtual void keepOnAllWorkspaces(uint64_t window) { (void)window; }
};

// One capture source (a microphone or a monitor of an output).
struct AudioSource {
    QString name;        // the server's name, kept as microphoneUID
    QString description; // for people
    bool operator==(const AudioSource&) const = default;
};

// An application that plays sound, as the sound server knows it.
struct PlayingApp {
    QString id;     // desktop-file id when one is found, else the server's application name in
                    // lower case (the same kind of id as AppWindow::appId)
    QString name;   // for people: the desktop file's name, else the server's application name
    QString binary; // the executable's file name; may be empty
    bool operator==(const PlayingApp&) const = default;
};

// The format a source delivers, before the server converts it for a capture.
struct SampleFormat {
    int rate = 0;     // frames a second
    int channels = 0; // 0 and 0: unknown
    bool operator==(const SampleFormat&) const = default;
};

// One running capture of PCM (S16LE mono 16 kHz).
class CaptureStream {
public:
    virtual ~CaptureStream() = default;
    // Stops and waits until no callback runs any more. May block: call it off the main thread.
    virtual void stop() = 0;
    // The source's own rate and channels (the capture is converted from them); unknown where
    // the system does not say.
    virtual SampleFormat sourceFormat() const { return {}; }
};

class AudioSystem {
public:
    virtual ~AudioSystem() = default;
    // Called on the capture thread with each piece of PCM, in order.
    using PcmHandler = std::function<void(const QByteArray& pcm)>;
    // Called once, on the capture thread, when the source goes away or the server fails.
    using EndHandler = std::function<void(const QString& reason)>;
    // Starts capturing from a source by name, whatever it is (empty: the server's default
    // source, which may be a monitor: Microphones::source() is the choice of a microphone).
    // Throws std::runtime_error when the capture cannot start. May block: off the main thread.
    virtual std::unique_ptr<CaptureStream> capture(const QString& source, PcmHandler onPcm,
                                                   EndHandler onEnd) = 0;
    // The microphones: sources that are not monitors.
    virtual QList<AudioSource> microphones() = 0;
    // The name of the server's default source. Without any input the servers make it the
    // monitor of an output; empty when there is no server. May block briefly.
    virtual QString defaultSource() = 0;
    // handler is called on the main thread whenever the list of microphones changes.
    virtual void watchMicrophones(std::function<void()> handler) = 0;
    // Whether the server answers, and so accepts a record stream: the microphone permission of
    // this desktop. A live connection answers at once.
    virtual bool serverAvailable() = 0;
    // Whether there is a microphone by default: the server answers and its default source is
    // a microphone, not the monitor of an output. May block briefly.
    virtual bool microphoneAvailable() = 0;
    // Stops every sound that play() started and that is still playing (a recording played
    // again is cut when another is asked for). Does nothing where nothing can play.
    virtual void stopPlaying() {}
    // Plays PCM (S16LE mono, the given rate) without waiting; a new call does not cut the last.
    virtual void play(const QByteArray& pcm, int sampleRate) = 0;

    // What the computer plays, never a microphone: with an empty appId every application's
    // streams but this program's own, otherwise only the streams of that application (an id
    // as PlayingApp gives it), all of them mixed. The capture follows the streams: one that
    // begins (a new call, a second tab) is heard from then on, one that moves to another
    // output (the default output changed) is heard there; while nothing plays, nothing comes.
    // onEnd is called only when the sound server goes away. Throws
    // std::runtime_error (French) when the capture cannot start. May block: off the main thread.
    virtual std::unique_ptr<CaptureStream> captureOutput(const QString& appId, PcmHandler onPcm,
                                                         EndHandler onEnd) {
        (void)appId, (void)onPcm, (void)onEnd;
        throw std::runtime_error("son de l'ordinateur indisponible");
    }
    // The applications that play sound now (this program left out), one entry per
    // application, sorted by name. Empty without a sound server.
    virtual QList<PlayingApp> playingApps() { return {}; }
    // Whether what the computer plays can be captured: the server answers and its default
    // output has a monitor. May block briefly.
    virtual bool outputCaptureAvailable() { return false; }
    // Whether the application (an id as PlayingApp gives it) runs, playing or not: where the
    // system cannot tell more, whether it plays. May block briefly: off the main thread.
    virtual bool applicationRunning(const QString& appId) {
        const QList<PlayingApp> apps = playingApps();
        return std::any_of(apps.begin(), apps.end(),
                           [&](const PlayingApp& a) { return a.id == appId; });
    }
};

// Reading text aloud.
class SpeechOutput {
public:
    virtual ~SpeechOutput() = default;
    // Starts speaking in the language (two-letter code); stops what was being said.
    virtual void speak(const QString& text, const QString& language) = 0;
    virtual void stop() = 0;
    virtual bool speaking() const = 0;
};

// The pointer over a surface that takes it, in the picture's logical pixels.
struct SurfacePointer {
    enum class Kind { Move, Press, Release, Leave, Scroll };
    Kind kind = Kind::Move;
    QPointF at;
    double scroll = 0; // Scroll: logical pixels, down when positive
};

// A surface of the compositor for the dictation strip or the result card, outside every window
// list: the compositor never gives it the keyboard, and it moves no other window. It shows a
// picture made by the caller, centred at the bottom of the output. The pointer passes through
// it unless a handler takes it.
class OverlaySurface {
public:
    enum class Role { Strip, Card };
    virtual ~OverlaySurface() = default;
    // Shows `image` (its device pixel ratio is the scale it was drawn at), its bottom edge
    // `bottomMargin` logical pixels above the bottom of the output's usable area. A picture
    // equal to the one shown costs a comparison. False once the compositor is gone.
    virtual bool show(const QImage& image, int bottomMargin) = 0;
    // Takes the surface off the screen; the next show() brings it back.
    virtual void hide() = 0;
    // Makes the surface take the pointer over its picture (before the first show()), and tells
    // the handler of it.
    virtual void setPointerHandler(std::function<void(const SurfacePointer&)> handler) {
        (void)handler;
    }
};

} // namespace ombry
