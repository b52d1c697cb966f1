#include "platform/linux/LinuxPlatform.h"

#include <stdexcept>

// Placeholder audio services until the PulseAudio and espeak-ng ones are written.
namespace ombry::linux_platform {
namespace {

class NoAudio final : public AudioSystem {
public:
    std::unique_ptr<CaptureStream> capture(const QString&, PcmHandler, EndHandler) override {
        throw std::runtime_error("pas de serveur de son");
    }
    QList<AudioSource> microphones() override { return {}; }
    void watchMicrophones(std::function<void()>) override {}
    bool microphoneAvailable() override { return false; }
    void play(const QByteArray&, int) override {}
};
class NoSpeech final : public SpeechOutput {
public:
    void speak(const QString&, const QString&) override {}
    void stop() override {}
    bool speaking() const override { return false; }
};

} // namespace

std::unique_ptr<AudioSystem> makeAudioSystem() {
    return std::make_unique<NoAudio>();
}
std::unique_ptr<SpeechOutput> makeSpeechOutput() {
    return std::make_unique<NoSpeech>();
}

} // namespace ombry::linux_platform
