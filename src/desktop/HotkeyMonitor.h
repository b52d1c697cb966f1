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

    // The keyboard hook works.
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
    bool dictating() const;
    AppSettings& settings() const;

    AppSettings* settings_;
    bool recording_ = false;
    bool down_ = false;
    bool started_ = false;
    int copyCount_ = 0;
    std::optional<int64_t> lastCopyMs_;
};

} // namespace ombry
