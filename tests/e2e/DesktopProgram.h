#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <functional>
#include <optional>

namespace ombry::test {

// The real desktop program (OMBRY_BINARY) run as a user would run it, in a home of its own:
// its settings file and data folder are written before the start, its journal is read while it
// runs, and it is ended by SIGTERM as a session ends it. It uses the display and the sound
// server of this test process (DISPLAY, PULSE_SERVER), never the user's session bus.
class DesktopProgram {
public:
    DesktopProgram();
    ~DesktopProgram();
    DesktopProgram(const DesktopProgram&) = delete;
    DesktopProgram& operator=(const DesktopProgram&) = delete;

    QString dataFolder() const;
    QString journalPath() const;

    // The user defaults file, written whole.
    void writeSettings(const QJsonObject& settings);
    // The user defaults file as it is now (the program writes it at each change).
    QJsonObject readSettings() const;
    // A file of the data folder (snippets.json, keys.json…), written whole.
    void writeData(const QString& name, const QByteArray& bytes);
    QByteArray readData(const QString& name) const;

    // Environment entries for the next start; an empty value removes the variable.
    void setEnv(const QString& name, const QString& value);

    // The environment the program starts with.
    QProcessEnvironment environment() const;

    // Starts the program and waits until it has written its start lines (the key hook is then
    // installed). False with the journal in error() when it does not come up.
    bool start(int timeoutMs = 20000);
    // SIGTERM, then the exit status; -1 when it had to be killed.
    int stop(int timeoutMs = 10000);
    // Runs the program with one option (`--toggle`, `--retry`) in this program's environment,
    // as a desktop shortcut does: the running program is told through its socket. The exit
    // status, -1 when it did not end.
    int tell(const QString& option, int timeoutMs = 5000) const;
    bool running() const { return process_.state() == QProcess::Running; }
    qint64 pid() const { return process_.processId(); }
    QString error() const { return error_; }

    // The journal's messages so far, without their time stamps.
    QStringList journal() const;
    // The number of journal lines so far: a mark to look for new lines from.
    int mark() const { return int(journal().size()); }
    // The first message from `from` on that starts with `prefix`; waits for it while the event
    // loop turns.
    std::optional<QString> waitForLine(const QString& prefix, int from, int timeoutMs = 10000);
    // The same for any test on the message.
    std::optional<QString> waitFor(const std::function<bool(const QString&)>& matches, int from,
                                   int timeoutMs = 10000);
    // Whether a message from `from` on starts with `prefix` (no waiting).
    bool hasLine(const QString& prefix, int from) const;
    // The wall-clock time (ms since the epoch) stamped on the first message from `from` on
    // that starts with `prefix`; no waiting.
    std::optional<qint64> stampOf(const QString& prefix, int from) const;
    // The journal from `from` on, for failure messages.
    QString journalFrom(int from) const;

    // The program's standard output and error so far.
    QByteArray output();

private:
    QTemporaryDir home_;
    QProcess process_;
    QProcessEnvironment extra_;
    QStringList removed_;
    QByteArray output_;
    QString error_;
};

} // namespace ombry::test
