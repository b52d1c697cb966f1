#pragma once

#include <QByteArray>
#include <cstdint>
#include <optional>

namespace ombry {

// Cuts the sound of a call into sentences by its silences. PCM goes in buffer by buffer; a
// sentence comes out when 0.7 s of silence follows voice, or when it passes 14 s without a
// pause. Silence before any voice is not kept beyond 3 s. Not thread-safe: one owner thread
// (the call's audio queue).
class CallSegmenter {
public:
    static constexpr int kSampleRate = 16000;
    static constexpr int kVoicePeak = 656;             // above 0.02 of full scale
    static constexpr double kPauseSeconds = 0.7;       // silence that ends a sentence
    static constexpr double kLongestSeconds = 14.0;    // forced cut of a monologue
    static constexpr double kSilenceKeptSeconds = 3.0; // silence alone is dropped past this
    static constexpr int64_t kShortestBytes = 16000;   // half a second: shorter is dropped

    // Appends one buffer (silent ones too, so a sentence keeps its pauses) and returns the
    // PCM of a finished sentence, if this buffer finished one.
    std::optional<QByteArray> add(const QByteArray& pcm);
    // Ends the sentence under way: its PCM if it holds voice and more than half a second.
    std::optional<QByteArray> flush();
    void reset();

    int64_t bufferedBytes() const { return segment_.size(); }
    bool voiced() const { return voiced_; }

private:
    QByteArray segment_;
    int64_t silentSamples_ = 0;
    bool voiced_ = false;
};

} // namespace ombry
