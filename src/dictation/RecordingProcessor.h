#pragma once

#include "data/Records.h"
#include "platform/Desktop.h"

#include <QByteArray>
#include <QCoroTask>
#include <QFuture>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>
#include <utility>

namespace ombry {

class DictationController;

// The road of one finished recording to the text at the cursor, in named stages:
// transcribe (with the engines' fallback) → interpret (a voice command on the selection, or a
// voice shortcut) → clean up (dictionary rules, then the rewrite or the light clean-up) →
// translate → record (history) → deliver (activation and paste). A stage that ends the
// dictation (a failure shown, or a command or shortcut pasted) stops the road there.
//
// Nothing is lost when the road fails: before the transcription starts, the recording is
// written to the audio folder (off the main thread) and a record "in progress" is put in the
// history. The end of the road makes it an ordinary dictation, or marks it failed with the
// error shown, to be processed again later (a retry, whose text goes to the clipboard); a
// voice command, a voice shortcut or an empty transcript drops it with its audio.
//
// It reports through its controller (flash, error, sounds, state), which it returns to idle at
// the end, whatever happens. One processor serves one recording; it lives on the frame of
// DictationController::process.
class RecordingProcessor {
public:
    struct Recording {
        QByteArray wav;
        double duration = 0;
        // The window in front at the key press, where the text goes back to.
        std::optional<AppWindow> app;
        // What the chunker already produced (raw, clean); nothing when the engine is to run.
        std::optional<std::pair<QString, QString>> pre;
        // A failed dictation processed again from its kept audio: its record is completed,
        // and the text goes to the clipboard instead of a window.
        std::optional<Dictation> retry;
    };

    RecordingProcessor(DictationController& owner, Recording recording);

    // Runs every stage. Never throws.
    QCoro::Task<void> run();

private:
    // Each returns false when it ended the dictation.
    QCoro::Task<bool> transcribe();
    // True when a voice command or a voice shortcut took the recording (and delivered it).
    QCoro::Task<bool> interpret();
    QCoro::Task<void> cleanUp();
    QCoro::Task<bool> translate();
    void record();
    QCoro::Task<void> deliver();
    // The retry's delivery: the text on the clipboard, with a flash.
    void copy();

    // The recording written to the audio folder on the store's queue, and its record in
    // progress added to the history.
    void keep();
    // A failure that leaves the dictation to be tried again: its audio is on disk before the
    // failure is shown, and its record says why.
    QCoro::Task<void> stopKept(QString failure);
    // The recording that turned out to be no dictation goes with its record.
    void drop();

    // The watchdog frees the controller after 40 s; the road goes on, and a late answer is
    // still delivered.
    void startWatchdog();
    // Shows the failure and ends the dictation.
    void stop(const QString& failure);
    // Back to idle, without a pending voice command.
    void close();
    // Brings the remembered window back to the front before a paste.
    QCoro::Task<void> activate();

    DictationController& owner_;
    Recording in_;
    Dictation record_;      // the history's record of this recording
    QFuture<void> written_; // the write of the recording's audio
    int64_t t0_ = 0;
    QString appName_;
    std::optional<QString> bundle_;
    QStringList words_;
    QString language_;

    QString raw_;       // the transcript
    QString corrected_; // the transcript after the dictionary's rules
    QString text_;      // what is delivered
    bool translate_ = false;
    // The rewrite or its translation failed: the user gets the lightly cleaned text.
    std::optional<QString> rewriteError_;
};

} // namespace ombry
