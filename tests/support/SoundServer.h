#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>
#include <optional>
#include <sys/types.h>

class QProcess;

namespace ombry::test {

// A private sound server for tests, in its own runtime folder, with no configuration of the
// machine: PulseAudio, or with OMBRY_TEST_SOUND_SERVER=pipewire PipeWire with its PulseAudio
// server (pipewire-pulse) and its session manager (wireplumber) on a bus of their own. Both
// have the same devices: two null outputs, "speakers" (the default output, where the
// program's sounds go) and "mic", and a source "testmic" remapped over mic.monitor, which the
// server lists as a plain microphone and which is the default input. Sound played into "mic"
// is what the program hears; the program's own sounds never reach it.
//
// start() points this process at the server (XDG_RUNTIME_DIR and PULSE_SERVER), so libpulse
// connects to it; environment() gives the same to child processes (the program under test).
// The destructor stops the server's processes.
class SoundServer {
public:
    SoundServer();
    ~SoundServer();
    SoundServer(const SoundServer&) = delete;
    SoundServer& operator=(const SoundServer&) = delete;

    // Whether the programs of the chosen server are installed (tests skip without them), and
    // what the test says when they are not.
    static bool installed();
    static const char* notInstalled();
    // Whether OMBRY_TEST_SOUND_SERVER chooses PipeWire.
    static bool pipeWire();

    // Starts the server and sets it up; false with error() on failure.
    bool start();
    void stop();
    bool running() const { return pid_ > 0 || !children_.isEmpty(); }
    // The process that speaks the PulseAudio protocol: pulseaudio, or pipewire-pulse (the last
    // of PipeWire's servers to start).
    qint64 pid() const { return pid_ > 0 ? pid_ : (children_.isEmpty() ? 0 : children_.last()); }
    QString error() const { return error_; }

    QString runtimeDir() const;
    QString serverAddress() const; // "unix:/…/pulse/native"
    QProcessEnvironment environment() const;

    // Runs pactl with the arguments against this server; its standard output, or nullopt-like
    // empty with ok false on failure.
    QString pactl(const QStringList& args, bool* ok = nullptr) const;
    // Loads a module; its index, or -1.
    int loadModule(const QString& name, const QStringList& args);
    bool unloadModule(int index);

    // Takes "testmic" away, as a microphone unplugged: the server is left with the monitors of
    // its outputs, and makes one of them the default source.
    bool unplugTestMic();
    // Brings "testmic" back (after unplugTestMic) as the default source.
    bool plugTestMic();
    // Makes a source the server's default, and waits until the server names it so.
    bool setDefaultSource(const QString& name);
    // Adds a source of the given format that is no monitor (a microphone that delivers it, and
    // nothing but silence); its module's index, or -1.
    int addSource(const QString& name, int rate, int channels);

    // Plays a WAV file into a sink (paplay -d) and waits until it has been played.
    bool play(const QString& wavPath, const QString& sink = "mic");

    // Speech made with espeak-ng, converted by sox to 16 kHz mono 16-bit WAV at wavPath.
    // False when a tool is missing or fails.
    static bool makeSpeech(const QString& text, const QString& voice, const QString& wavPath);
    // The PCM bytes of a 16-bit WAV file (its data chunk); empty when unreadable.
    static QByteArray wavData(const QString& wavPath);

private:
    bool startPulseAudio();
    bool startPipeWire();
    bool setDefault(const QString& kind, const QString& name); // kind: "sink" or "source"
    bool run(const QString& program, const QStringList& args, QString* out = nullptr,
             int timeoutMs = 30000) const;

    std::unique_ptr<QTemporaryDir> dir_;
    std::unique_ptr<QProcess> keeper_; // keeps the test microphone running like a real one
    qint64 pid_ = 0;                   // the PulseAudio daemon's
    QList<pid_t> children_;            // PipeWire's bus and servers, in the order they started
    int testMicModule_ = -1;
    QString error_;
    // This process's environment before it named the server.
    QList<QPair<const char*, std::optional<QByteArray>>> saved_;
};

} // namespace ombry::test
