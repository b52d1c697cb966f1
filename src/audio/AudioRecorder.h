#pragma once

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace ombry {

// The microphone recorder and the pure functions that hold the program's notion of speech,
// silence and level. All audio is PCM: signed 16-bit little-endian mono at 16,000 Hz, raw
// bytes, 32,000 bytes a second. A trailing odd byte is not a sample and is ignored by the
// analysis.
//
// The static functions touch no state and may run on any thread.
//
// The capture side records from the platform's audio system (Platform::current().audio()) into
// one growing buffer. start(), stop() and stopRaw() may block on the sound server: call them on
// a serial queue of the owner, never on the main thread. pcm() may be called from any thread.
// onBuffer and onPause run on the capture thread and must be set before start(); onLevel and
// onSourceLost run on the main thread. A recorder that is destroyed while its capture runs ends
// the capture first; callbacks already posted to the main thread are then dropped.
class AudioRecorder {
public:
    static constexpr int kSampleRate = 16000;
    static constexpr int kBytesPerSecond = 32000;
    static constexpr int kFrameSamples = 320;        // 20 ms
    static constexpr int kLoudSample = 500;          // trimming: magnitude above this is loud
    static constexpr double kSpeechFrameRms = 600.0; // speech frame: RMS strictly above this
    static constexpr int kTrimMarginSamples = 4000;  // a quarter second kept on each side

    // Seconds of voiced frames (RMS above 600 over 20 ms frames; the last frame may be short).
    static double speechSeconds(const QByteArray& pcm);
    // Cuts leading and trailing silence, keeping a quarter-second margin. A buffer with no
    // loud sample comes back whole.
    static QByteArray trimSilence(const QByteArray& pcm);
    // Brings a quiet recording up (gain 20,000 / peak, at most 8) when peak is 201..11,999;
    // returns the input unchanged otherwise.
    static QByteArray normalize(const QByteArray& pcm, int64_t peak);
    // A complete WAV file: the 44-byte header over the PCM bytes.
    static QByteArray wav(const QByteArray& pcm);
    // The header of a WAV file over that many bytes of PCM: 44 bytes, or, for more than a
    // 32-bit size holds (37 hours), the 80 bytes of an RF64 file.
    static QByteArray wavHeader(int64_t pcmBytes);
    // The largest sample magnitude (-32768 gives 32768); 0 for an empty buffer.
    static int64_t peak(const QByteArray& pcm);

    // Pause detection: a buffer whose largest positive sample reaches this is voice, and
    // 0.6 s of output samples without voice after voice is a pause.
    static constexpr int kPauseVoicePeak = 901;
    static constexpr int kPauseSamples = 9600;
    static constexpr double kLevelFullScale = 12000.0;

    AudioRecorder();
    ~AudioRecorder();
    AudioRecorder(const AudioRecorder&) = delete;
    AudioRecorder& operator=(const AudioRecorder&) = delete;

    // Starts recording from the microphone chosen in the settings (microphoneUID; none, or
    // one that is not plugged in, means the server's default when that is a microphone: see
    // Microphones::choose). Does nothing while recording. Throws std::runtime_error when there
    // is no microphone (never recording the monitor of an output instead) or the capture
    // cannot start; the recorder then stays idle.
    void start();

    struct Stopped {
        QByteArray wav;        // trimmed, normalised WAV; empty when nothing was recording
        double duration = 0.0; // seconds of the untrimmed recording
    };
    // Ends the recording: the WAV of it and its duration. Sets lastPCM and lastPeak. Also
    // valid after the source vanished mid-recording: what was captured until then comes back.
    Stopped stop();
    // Ends the recording and returns its raw PCM, untouched; lastPCM and lastPeak stay.
    QByteArray stopRaw();
    // The bytes [from, min(to, size)) of the recording so far (or the last one); thread-safe.
    QByteArray pcm(int64_t from, int64_t to) const;
    // Bytes recorded so far; thread-safe.
    int64_t size() const;

    bool isRecording() const;
    int64_t lastPeak() const;
    QByteArray lastPCM() const;
    // The source recorded from last (none: the server's default).
    std::optional<QString> currentUID() const;

    // Opens the connection to the sound server ahead of the first dictation, so that the first
    // key press does not pay for it. Blocking: call it on the audio queue.
    void warmUp();

    std::function<void(double)> onLevel;              // 0..1, main thread
    std::function<void(int64_t)> onPause;             // byte offset, capture thread
    std::function<void(const QByteArray&)> onBuffer;  // each PCM buffer, capture thread
    std::function<void(const QString&)> onSourceLost; // reason; main thread
    // After onSourceLost the recorder still counts as recording, with nothing more coming in,
    // until its owner calls stop() (on its queue) and gets what was captured before the loss.
    // onBuffer and onPause must be quick: the capture waits for them.

    struct Shared; // the state that the capture thread and posted callbacks share

private:
    void receive(const QByteArray& pcm); // one piece of PCM, on the capture thread
    QByteArray halt();                   // ends the capture, returns the recording
    std::shared_ptr<Shared> shared_;
};

} // namespace ombry
