#pragma once

#include "platform/Desktop.h"

#include <QByteArray>
#include <QCoroTask>
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
// translate → record (history and audio) → deliver (activation and paste). A stage that ends the
// dictation (a failure shown, or a command or shortcut pasted) stops the road there.
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
