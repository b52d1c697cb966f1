#include "SwaySession.h"

#include "Processes.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ombry::test {

namespace {

constexpr const char* kTestUser = "ombrytest";

} // namespace

bool SwaySession::testUser(uid_t& uid, gid_t& gid) {
    if (!getpwnam(kTestUser)) {
        QProcess::execute("useradd", {"--system", "--no-create-home", "--shell",
                                      "/usr/sbin/nologin", QString::fromLatin1(kTestUser)});
    }
    const passwd* user = getpwnam(kTestUser);
    if (!user) return false;
    uid = user->pw_uid;
    gid = user->pw_gid;
    return true;
}

SwaySession::~SwaySession() {
    stop();
}

bool SwaySession::installed() {
    for (const char* program : {"sway", "wtype", "wl-copy", "wl-paste"})
        if (QStandardPaths::findExecutable(QString::fromLatin1(program)).isEmpty()) return false;
    return true;
}

bool SwaySession::start() {
    stop();
    uid_t uid = getuid();
    gid_t gid = getgid();
    if (uid == 0 && !testUser(uid, gid)) {
        error_ = QString("utilisateur %1 impossible à créer").arg(kTestUser);
        return false;
    }
    QByteArray dir = QDir::tempPath().toLocal8Bit() + "/ombry-sway-XXXXXX";
    if (!mkdtemp(dir.data()) || chown(dir.constData(), uid, gid) != 0 ||
        chmod(dir.constData(), 0700) != 0) {
        error_ = "dossier d'exécution impossible à créer";
        return false;
    }
    runtimeDir_ = QString::fromLocal8Bit(dir);
    const QByteArray config = dir + "/config";
    QFile file(QString::fromLocal8Bit(config));
    file.open(QIODevice::WriteOnly);
    file.write("default_border none\nxwayland disable\nfocus_follows_mouse no\n" + extraConfig);
    file.close();
    chown(config.constData(), uid, gid);
    const QByteArray log = dir + "/sway.log";

    const pid_t parent = getpid();
    sway_ = fork();
    if (sway_ == 0) {
        if (setgroups(0, nullptr) != 0 && getuid() == 0) _exit(126);
        if (setgid(gid) != 0 || setuid(uid) != 0) _exit(126);
        // Set after the change of user, which clears it: sway ends with this process.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        const int out = open(log.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(out, 1);
        dup2(out, 2);
        if (chdir(dir.constData()) != 0) _exit(126);
        clearenv();
        setenv("PATH", "/usr/local/bin:/usr/bin:/bin", 1);
        setenv("HOME", dir.constData(), 1);
        setenv("XDG_RUNTIME_DIR", dir.constData(), 1);
        setenv("WLR_BACKENDS", "headless", 1);
        setenv("WLR_LIBINPUT_NO_DEVICES", "1", 1);
        setenv("WLR_RENDERER", "pixman", 1);
        execlp("sway", "sway", "-c", config.constData(), static_cast<char*>(nullptr));
        _exit(127);
    }
    if (sway_ < 0) {
        sway_ = 0;
        error_ = "fork impossible";
        return false;
    }

    // The sockets appear once sway is ready.
    QString display, ipc;
    for (int i = 0; i < 500 && (display.isEmpty() || ipc.isEmpty()); ++i) {
        if (waitpid(sway_, nullptr, WNOHANG) == sway_) {
            sway_ = 0;
            break;
        }
        QThread::msleep(10);
        const QDir runtime(runtimeDir_);
        for (const QString& name : runtime.entryList(QDir::System)) {
            if (name.startsWith(QLatin1String("wayland-")) &&
                !name.endsWith(QLatin1String(".lock")))
                display = name;
            if (name.startsWith(QLatin1String("sway-ipc."))) ipc = runtime.filePath(name);
        }
    }
    if (display.isEmpty() || ipc.isEmpty()) {
        QFile logFile(QString::fromLocal8Bit(log));
        logFile.open(QIODevice::ReadOnly);
        error_ = "sway n'a pas démarré : " + QString::fromLocal8Bit(logFile.readAll().right(600));
        stop();
        return false;
    }
    qputenv("XDG_RUNTIME_DIR", dir);
    qputenv("WAYLAND_DISPLAY", display.toLocal8Bit());
    qputenv("SWAYSOCK", ipc.toLocal8Bit());
    launch("wtype", {"-s", "600000"});
    return true;
}

void SwaySession::stop() {
    field.close();
    for (QProcess* child : children_) {
        child->kill();
        child->waitForFinished(2000);
        delete child;
    }
    children_.clear();
    end(sway_);
    if (!runtimeDir_.isEmpty()) QDir(runtimeDir_).removeRecursively();
    runtimeDir_.clear();
}

QProcess* SwaySession::launch(const QString& program, const QStringList& args) {
    auto* process = new QProcess;
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(program, args);
    process->closeWriteChannel();
    children_.append(process);
    return process;
}

} // namespace ombry::test
