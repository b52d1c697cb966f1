#pragma once

#include <QObject>
#include <QString>
#include <memory>

namespace ombry {

class CaptureStream;
class SerialQueue;

// A short listen to the microphone for the first-launch check: captures from the chosen
// source on a queue of its own (starting and stopping may wait for the sound server) and
// reports the level of each piece on the main thread, 0 to 1 as the strip shows it.
class MicrophoneTest : public QObject {
    Q_OBJECT
public:
    explicit MicrophoneTest(QObject* parent = nullptr);
    ~MicrophoneTest() override; // stops and waits for the capture

    // source: the server's name of the chosen microphone; empty for the default one. As for
    // a recording, a microphone that is not plugged in gives way to the default one, and a
    // default source that is the monitor of an output is no microphone (failed() says so).
    void start(const QString& source);
    void stop();
    bool running() const { return running_; }

Q_SIGNALS:
    void level(double value);
    // The capture could not start, or its source went away: the reason, in French.
    void failed(const QString& reason);

private:
    std::unique_ptr<SerialQueue> queue_;
    std::shared_ptr<std::unique_ptr<CaptureStream>> stream_;
    bool running_ = false;
};

} // namespace ombry
