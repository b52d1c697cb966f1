#include "SoundServer.h"
#include "Processes.h"
#include "SessionBus.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLocalSocket>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <QtEndian>
#include <algorithm>
#include <csignal>
#include <sys/types.h>

namespace ombry::test {

SoundServer::SoundServer() = default;

SoundServer::~SoundServer() {
    stop();
}

bool SoundServer::pipeWire() {
    return qgetenv("OMBRY_TEST_SOUND_SERVER") == "pipewire";
}

bool SoundServer::installed() {
    QStringList programs{"pactl"};
    if (pipeWire())
        programs << "pipewire"
                 << "pipewire-pulse"
                 << "wireplumber"
                 << "dbus-daemon";
    else
        programs << "pulseaudio";
    return std::all_of(programs.begin(), programs.end(), [](const QString& p) {
        return !QStandardPaths::findExecutable(p).isEmpty();
    });
}

const char* SoundServer::notInstalled() {
    return pipeWire() ? "PipeWire (pipewire, pipewire-pulse, wireplumber) is not installed"
                      : "pulseaudio is not installed";
}

QString SoundServer::runtimeDir() const {
    return dir_ ? dir_->path() : QString();
}

QString SoundServer::serverAddress() const {
    return QString("unix:%1/pulse/native").arg(runtimeDir());
}

QProcessEnvironment SoundServer::environment() const {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_RUNTIME_DIR", runtimeDir());
    env.insert("PULSE_SERVER", serverAddress());
    env.insert("PULSE_STATE_PATH", runtimeDir() + "/state");
    return env;
}

bool SoundServer::run(const QString& program, const QStringList& args, QString* out,
                      int timeoutMs) const {
    QProcess p;
    p.setProcessEnvironment(environment());
    p.start(program, args);
    if (!p.waitForStarted(5000)) return false;
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished(2000);
        return false;
    }
    if (out) *out = QString::fromUtf8(p.readAllStandardOutput());
    return p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

bool SoundServer::start() {
    if (running()) return true;
    error_.clear();
    if (!installed()) {
        error_ = QString::fromLatin1(notInstalled());
        return false;
    }
    // A short path: the server's socket lives under it, and socket paths are limited in length.
    dir_ = std::make_unique<QTemporaryDir>("/tmp/ombry-pulse-XXXXXX");
    if (!dir_->isValid()) {
        error_ = "no temporary folder";
        return false;
    }
    QDir(runtimeDir()).mkpath("state");
    if (!(pipeWire() ? startPipeWire() : startPulseAudio())) {
        stop();
        return false;
    }

    QElapsedTimer sinceMic;
    sinceMic.start();
    const bool ok =
        loadModule("module-null-sink",
                   {"sink_name=mic", "sink_properties=device.description=MicInput"}) >= 0 &&
        loadModule("module-null-sink",
                   {"sink_name=speakers", "sink_properties=device.description=Speakers"}) >= 0;
    if (!ok || !setDefault("sink", "speakers") || !plugTestMic()) {
        error_ = "the test devices could not be set up";
        stop();
        return false;
    }
    if (!pipeWire()) {
        // An idle null sink renders its silence in blocks of two seconds ahead, so a
        // recording that starts would wait up to that long for its first sound, where a real
        // microphone delivers at once. A stream of zeros played into "mic" with a small
        // latency (adding nothing to what the microphone hears) keeps it rendering in short
        // blocks all along.
        keeper_ = std::make_unique<QProcess>();
        keeper_->setProcessEnvironment(environment());
        keeper_->setStandardInputFile("/dev/zero");
        keeper_->setStandardOutputFile(QProcess::nullDevice());
        keeper_->start("pacat", {"--playback", "-d", "mic", "--latency-msec=10", "--raw"});
        bool keeping = keeper_->waitForStarted(5000);
        for (int i = 0; keeping && i < 100; ++i) {
            if (!pactl({"list", "short", "sink-inputs"}).trimmed().isEmpty()) break;
            QThread::msleep(20);
        }
        if (!keeping) {
            error_ = "pacat did not start";
            stop();
            return false;
        }
        // The block rendered when "mic" was made still runs its two seconds: wait them out.
        if (const qint64 left = 2100 - sinceMic.elapsed(); left > 0) QThread::msleep(ulong(left));
    }

    for (const char* name : {"XDG_RUNTIME_DIR", "PULSE_SERVER"})
        saved_.append(
            {name, qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt});
    qputenv("XDG_RUNTIME_DIR", runtimeDir().toUtf8());
    qputenv("PULSE_SERVER", serverAddress().toUtf8());
    return true;
}

bool SoundServer::startPulseAudio() {
    QProcessEnvironment env = environment();
    env.remove("PULSE_SERVER");
    QProcess p;
    p.setProcessEnvironment(env);
    // -n: none of the machine's configuration; -D returns once the daemon is ready.
    p.start("pulseaudio", {"-D", "-n", "--exit-idle-time=-1", "--load=module-native-protocol-unix",
                           QString("--log-target=file:%1/server.log").arg(runtimeDir())});
    if (!p.waitForFinished(20000) || p.exitCode() != 0) {
        error_ = QString("pulseaudio did not start: %1")
                     .arg(QString::fromUtf8(p.readAllStandardError()).trimmed());
        return false;
    }
    QFile pidFile(runtimeDir() + "/pulse/pid");
    if (pidFile.open(QIODevice::ReadOnly)) pid_ = pidFile.readAll().trimmed().toLongLong();
    if (pid_ <= 0) {
        error_ = "pulseaudio left no pid";
        return false;
    }
    return true;
}

bool SoundServer::startPipeWire() {
    const QString dir = runtimeDir();
    // wireplumber does not run without a session bus: one of their own, which starts no
    // service on demand.
    const QString bus = dir + "/bus";
    const QString config = dir + "/bus.conf";
    if (!SessionBus::writeConfig(config, "unix:path=" + bus)) return false;
    // The servers' configuration and saved state (wireplumber keeps the default devices and
    // volumes it saw) in the runtime folder, so that none of the user's comes in; no display.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"PULSE_SERVER", "PIPEWIRE_REMOTE", "DISPLAY", "WAYLAND_DISPLAY"})
        env.remove(QString::fromLatin1(name));
    env.insert("XDG_RUNTIME_DIR", dir);
    env.insert("PIPEWIRE_RUNTIME_DIR", dir);
    env.insert("XDG_CONFIG_HOME", dir + "/config");
    env.insert("XDG_STATE_HOME", dir + "/state");
    env.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + bus);
    const QStringList vars = env.toStringList();
    const QByteArray log = QFile::encodeName(dir + "/server.log");
    auto launch = [&](const QList<QByteArray>& argv) {
        const pid_t pid = spawn(argv, log, vars);
        if (pid > 0) children_ << pid;
        return pid > 0;
    };
    // Each in turn, once the one before takes connections: wireplumber gives up at once on
    // a PipeWire that is not there yet.
    auto listening = [](const QString& path) {
        for (int i = 0; i < 400; ++i) {
            QLocalSocket socket;
            socket.connectToServer(path);
            if (socket.waitForConnected(100)) return true;
            QThread::msleep(25);
        }
        return false;
    };
    const bool up =
        launch({"dbus-daemon", "--nofork", "--config-file=" + QFile::encodeName(config)}) &&
        listening(bus) && launch({"pipewire"}) && listening(dir + "/pipewire-0") &&
        launch({"wireplumber"}) && launch({"pipewire-pulse"}) && listening(dir + "/pulse/native");
    if (!up) error_ = QString("PipeWire did not start (see %1)").arg(QString::fromUtf8(log));
    return up;
}

void SoundServer::stop() {
    if (keeper_) {
        keeper_->kill();
        keeper_->waitForFinished(5000);
        keeper_.reset();
    }
    if (pid_ > 0) {
        ::kill(pid_t(pid_), SIGTERM);
        // The daemon is not our child: watch for it to be gone, a few seconds at most.
        for (int i = 0; i < 100 && ::kill(pid_t(pid_), 0) == 0; ++i)
            QThread::msleep(50);
        if (::kill(pid_t(pid_), 0) == 0) ::kill(pid_t(pid_), SIGKILL);
        pid_ = 0;
    }
    // The clients first, the bus last.
    while (!children_.isEmpty()) {
        pid_t child = children_.takeLast();
        end(child);
    }
    testMicModule_ = -1;
    for (const auto& [name, value] : std::exchange(saved_, {}))
        value ? qputenv(name, *value) : qunsetenv(name);
    dir_.reset();
}

QString SoundServer::pactl(const QStringList& args, bool* ok) const {
    QString out;
    const bool done = run("pactl", args, &out);
    if (ok) *ok = done;
    return out;
}

int SoundServer::loadModule(const QString& name, const QStringList& args) {
    bool ok = false;
    const QString out = pactl(QStringList{"load-module", name} + args, &ok);
    if (!ok) return -1;
    bool number = false;
    const int index = out.trimmed().toInt(&number);
    return number ? index : -1;
}

bool SoundServer::unloadModule(int index) {
    bool ok = false;
    pactl({"unload-module", QString::number(index)}, &ok);
    return ok;
}

bool SoundServer::unplugTestMic() {
    if (testMicModule_ < 0 || !unloadModule(testMicModule_)) return false;
    testMicModule_ = -1;
    return true;
}

bool SoundServer::plugTestMic() {
    if (testMicModule_ >= 0) return false;
    testMicModule_ =
        loadModule("module-remap-source", {"master=mic.monitor", "source_name=testmic",
                                           "source_properties=device.description=TestMic"});
    return testMicModule_ >= 0 && setDefaultSource("testmic");
}

bool SoundServer::setDefaultSource(const QString& name) {
    return setDefault("source", name);
}

bool SoundServer::setDefault(const QString& kind, const QString& name) {
    // PipeWire's server takes no default before its session manager is up, and the manager
    // applies a choice a moment after it is made: until then clients are told the former one.
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < 10000) {
        if (run("pactl", {"set-default-" + kind, name}) &&
            pactl({"get-default-" + kind}).trimmed() == name)
            return true;
        QThread::msleep(20);
    }
    return false;
}

int SoundServer::addSource(const QString& name, int rate, int channels) {
    const QStringList format{QString("rate=%1").arg(rate), QString("channels=%1").arg(channels)};
    // PipeWire's server has no null source: its null sink, made a source, instead.
    if (pipeWire())
        return loadModule("module-null-sink",
                          QStringList{"media.class=Audio/Source/Virtual", "sink_name=" + name} +
                              format);
    return loadModule("module-null-source", QStringList{"source_name=" + name} + format);
}

bool SoundServer::play(const QString& wavPath, const QString& sink) {
    return run("paplay", {"-d", sink, wavPath});
}

bool SoundServer::makeSpeech(const QString& text, const QString& voice, const QString& wavPath) {
    const QString raw = wavPath + ".raw.wav";
    QProcess espeak;
    espeak.start("espeak-ng", {"-v", voice, "-w", raw, text});
    if (!espeak.waitForFinished(30000) || espeak.exitCode() != 0) return false;
    QProcess sox;
    sox.start("sox", {raw, "-r", "16000", "-c", "1", "-b", "16", wavPath});
    const bool ok = sox.waitForFinished(30000) && sox.exitCode() == 0;
    QFile::remove(raw);
    return ok;
}

QByteArray SoundServer::wavData(const QString& wavPath) {
    QFile f(wavPath);
    if (!f.open(QIODevice::ReadOnly)) return {};
    const QByteArray all = f.readAll();
    if (all.size() < 12 || !all.startsWith("RIFF") || all.mid(8, 4) != "WAVE") return {};
    qsizetype at = 12;
    while (at + 8 <= all.size()) {
        const QByteArray id = all.mid(at, 4);
        const auto size = qsizetype(qFromLittleEndian<quint32>(all.constData() + at + 4));
        if (id == "data") return all.mid(at + 8, size);
        at += 8 + size + (size & 1);
    }
    return {};
}

} // namespace ombry::test
