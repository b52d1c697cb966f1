#pragma once

#include "platform/Desktop.h"

#include <QList>
#include <QObject>
#include <cstdint>
#include <functional>
#include <optional>

namespace ombry {

class AppSettings;

// Watches the session's keyboard through the platform's keyboard hook and turns the keys of
// the program into callbacks on the main thread: the dictation key (press and release),
// Escape during a dictation, Ctrl+Alt+V, Ctrl+Alt+R, the Ctrl+C runs and the user's correction
// shortcut. It reports; the dictation controller decides.
//
// The hook takes keys away from the application in front only when they were registered in
// advance, so the monitor keeps that list in step with its state: refresh() recomputes it and
// must be called whenever something it depends on changes (the controller's state, the
// settings of the key or the shortcut, recording()).
class HotkeyMonitor : public QObject {
    Q_OBJECT
public:
    // settings: nullptr means AppSettings::shared().
    explicit HotkeyMonitor(AppSettings* settings = nullptr, QObject* parent = nullptr);
    ~HotkeyMonitor() override;

    std::function<void()> onPress, onRelease, onCorrect, onDoubleCopy, onTripleCopy, onSpeak;
    std::function<void()> onCancel;    // Escape while a dictation records
    std::function<void()> onPasteLast; // Ctrl+Alt+V
    // A key that is not a modifier went down while the dictation key is held (called at once).
    std::function<void()> onKeyDuringHold;
    std::function<bool()> isDictating; // true while the controller records
    // While set, the dictation key is reported here instead of starting a dictation: the test
    // of the key in the settings.
    std::function<void(bool pressed)> keyTest;

    // Starts listening and writes "hotkey: ..." to the journal.
    void start();
    // Takes everything down and starts again; a key held across it gives no release.
    void restart();
    // Recomputes the swallowed keys from the state and the settings and hands them to the hook.
    void refresh();
    // The combinations refresh() registers now.
    QList<KeyCombo> swallowList() const;

    // The settings page is capturing a shortcut: shortcuts are neither acted on nor swallowed.
    void setRecording(bool recording);
    bool recording() const { return recording_; }

    // The dictation key pressed or released where the program sees no key itself: the
    // desktop's shortcut service, or the compositor's bindings calling `--press`/`--release`.
    // source names the road in the journal.
    void keyFromDesktop(bool pressed, const QString& source);
    // `--toggle` (a desktop that runs a command on a press only): a press and its release at
    // once, so the recording goes on hands-free until the next toggle.
    void toggleFromDesktop(const QString& source);
    // The key is taken as up: a recording ended without its release (a release the compositor
    // lost) must not swallow the next press.
    void forgetHeldKey() { down_ = false; }

    // The dictation key is heard: the keyboard hook works, or the desktop's shortcuts reach
    // the program.
    bool running() const;

    // The modifier flags last seen by the hook, process-wide; 0 while it does not run.
    static uint64_t lastModifierFlags();

    // The Ctrl+C run: a double waits this long for a possible third.
    static constexpr int kDoubleCopyDelayMs = 400;
    // Two Ctrl+C closer than this belong to one run.
    static constexpr int kCopyRunWindowMs = 500;

private:
    void onEvent(const KeyEvent& event);
    void handleFlags(const KeyEvent& event);
    void handleKeyDown(const KeyEvent& event);
    void copyRun();
    void bindDesktopShortcuts();
    void setDown(bool isDown);
    bool dictating() const;
    AppSettings& settings() const;

    AppSettings* settings_;
    bool recording_ = false;
    bool down_ = false;
    bool downByHook_ = false; // down_ came from the keyboard hook
    bool started_ = false;
    bool desktopKeys_ = false; // the desktop's shortcuts or bindings bring the dictation key
    int copyCount_ = 0;
    std::optional<int64_t> lastCopyMs_;
    QString lastFailure_; // why the hook did not start, as last written to the journal
};

} // namespace ombry
