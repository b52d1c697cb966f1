#include "Processes.h"

#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace ombry::test {

pid_t spawn(const QList<QByteArray>& argv, const QByteArray& output,
            const QStringList& environment) {
    std::vector<char*> args;
    for (const QByteArray& a : argv)
        args.push_back(const_cast<char*>(a.constData()));
    args.push_back(nullptr);
    // Made before the fork: the child may only call what is safe after it.
    QList<QByteArray> vars;
    for (const QString& v : environment)
        vars << v.toLocal8Bit();
    std::vector<char*> env;
    for (const QByteArray& v : vars)
        env.push_back(const_cast<char*>(v.constData()));
    env.push_back(nullptr);
    const QByteArray out = output.isEmpty() ? QByteArray("/dev/null") : output;
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) return 0;
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        const int null = open("/dev/null", O_RDWR);
        const int log = open(out.constData(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        dup2(null, 0);
        dup2(log >= 0 ? log : null, 1);
        dup2(log >= 0 ? log : null, 2);
        if (environment.isEmpty())
            execvp(args[0], args.data());
        else
            execvpe(args[0], args.data(), env.data());
        _exit(127);
    }
    return pid;
}

void end(pid_t& pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    for (int i = 0; i < 100; ++i) {
        if (waitpid(pid, nullptr, WNOHANG) == pid) {
            pid = 0;
            return;
        }
        usleep(10000);
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    pid = 0;
}

} // namespace ombry::test
