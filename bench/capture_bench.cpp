// How long from a key press to the first recorded sound: start() as the press triggers it on
// the audio queue, until the first PCM arrives from the microphone. Runs against a private
// PulseAudio server (its test microphone), so it needs pulseaudio installed and no desktop.
//
// Prints, median and worst over the runs: the time until start() returned (the stream runs)
// and until the first buffer arrived, and when the first sample of that buffer was captured
// (its arrival minus its own length), which is the moment from which nothing said is lost.
#include "SoundServer.h"
#include "audio/AudioRecorder.h"
#include "data/Settings.h"
#include "platform/Platform.h"
#include "platform/SerialQueue.h"
#include "platform/linux/LinuxPlatform.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <vector>

using namespace ombry;
using Steady = std::chrono::steady_clock;

namespace {

double ms(Steady::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

struct Run {
    double started = 0, firstBuffer = 0, firstSample = 0;
};

struct Waiter {
    std::mutex mutex;
    std::condition_variable cv;
    bool got = false;
    Steady::time_point at;
    int bytes = 0;
};

void report(const char* what, std::vector<double> v) {
    std::sort(v.begin(), v.end());
    std::printf("  %-34s median %6.1f ms   worst %6.1f ms\n", what, v[v.size() / 2], v.back());
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", home.path().toUtf8());
    qputenv("XDG_DATA_HOME", home.path().toUtf8());
    test::SoundServer server;
    if (!server.start()) {
        std::fprintf(stderr, "no sound server: %s\n", qPrintable(server.error()));
        return 1;
    }
    Platform::current().setAudio(linux_platform::makeAudioSystem());
    AppSettings::shared().setMicrophoneUID(std::nullopt);

    AudioRecorder recorder;
    Waiter waiter;
    recorder.onBuffer = [&](const QByteArray& pcm) {
        std::lock_guard guard(waiter.mutex);
        if (waiter.got) return;
        waiter.got = true;
        waiter.at = Steady::now();
        waiter.bytes = int(pcm.size());
        waiter.cv.notify_all();
    };
    SerialQueue audioQueue(QStringLiteral("verlo.audio"));

    auto once = [&]() -> Run {
        {
            std::lock_guard guard(waiter.mutex);
            waiter.got = false;
        }
        Steady::time_point started;
        const Steady::time_point press = Steady::now();
        audioQueue.async([&] {
            recorder.start();
            started = Steady::now();
        });
        Run run;
        {
            std::unique_lock lock(waiter.mutex);
            if (!waiter.cv.wait_for(lock, std::chrono::seconds(5), [&] { return waiter.got; })) {
                std::fprintf(stderr, "no audio within 5 s\n");
                std::exit(1);
            }
            run.firstBuffer = ms(waiter.at - press);
            const double length = 1000.0 * waiter.bytes / AudioRecorder::kBytesPerSecond;
            run.firstSample = std::max(0.0, run.firstBuffer - length);
        }
        audioQueue.sync([&] { recorder.stopRaw(); });
        run.started = ms(started - press);
        return run;
    };

    // The very first start pays for the connection to the server, unless warmed up.
    const Run cold = once();
    std::printf("capture latency (private PulseAudio, test microphone)\n");
    std::printf("  cold first start: started %.1f ms, first buffer %.1f ms\n", cold.started,
                cold.firstBuffer);

    const int runs = 21;
    std::vector<double> started, firstBuffer, firstSample;
    for (int i = 0; i < runs; ++i) {
        const Run r = once();
        started.push_back(r.started);
        firstBuffer.push_back(r.firstBuffer);
        firstSample.push_back(r.firstSample);
    }
    std::printf("warm, %d runs:\n", runs);
    report("start() returned", started);
    report("first buffer delivered", firstBuffer);
    report("first sample captured", firstSample);
    const bool ok = *std::max_element(firstBuffer.begin(), firstBuffer.end()) < 100.0;
    std::printf("target: first sound within 100 ms of the press: %s\n", ok ? "met" : "MISSED");
    return 0;
}
