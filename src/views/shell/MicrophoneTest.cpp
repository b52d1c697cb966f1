#include "views/shell/MicrophoneTest.h"

#include "audio/AudioRecorder.h"
#include "audio/Microphones.h"
#include "platform/Platform.h"
#include "platform/SerialQueue.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <algorithm>
#include <stdexcept>

namespace ombry {

MicrophoneTest::MicrophoneTest(QObject* parent)
    : QObject(parent), queue_(std::make_unique<SerialQueue>(QStringLiteral("verlo.mictest"))),
      stream_(std::make_shared<std::unique_ptr<CaptureStream>>()) {}

MicrophoneTest::~MicrophoneTest() {
    stop();
    queue_.reset(); // joins: nothing of this object runs after this line
}

void MicrophoneTest::start(const QString& source) {
    if (running_) return;
    running_ = true;
    QPointer<MicrophoneTest> self(this);
    auto stream = stream_;
    queue_->async([self, stream, source] {
        AudioSystem& audio = Platform::current().audio();
        auto onPcm = [self](const QByteArray& pcm) {
            const double value =
                std::min(double(AudioRecorder::peak(pcm)) / AudioRecorder::kLevelFullScale, 1.0);
            QMetaObject::invokeMethod(
                qApp,
                [self, value] {
                    if (self && self->running_) Q_EMIT self->level(value);
                },
                Qt::QueuedConnection);
        };
        auto onEnd = [self](const QString& reason) {
            QMetaObject::invokeMethod(
                qApp,
                [self, reason] {
                    if (self) Q_EMIT self->failed(reason);
                },
                Qt::QueuedConnection);
        };
        try {
            // The microphone the recorder would take: never the monitor of an output.
            const std::optional<QString> mic = Microphones::source(
                source.isEmpty() ? std::nullopt : std::optional<QString>(source));
            if (!mic) throw std::runtime_error("aucun micro");
            *stream = audio.capture(*mic, onPcm, onEnd);
        } catch (const std::exception& e) {
            onEnd(QString::fromUtf8(e.what()));
        }
    });
}

void MicrophoneTest::stop() {
    if (!running_) return;
    running_ = false;
    auto stream = stream_;
    queue_->async([stream] {
        if (*stream) {
            (*stream)->stop();
            stream->reset();
        }
    });
}

} // namespace ombry
