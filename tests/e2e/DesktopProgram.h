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
// its settings and data files are written before the start, its journal is read while it runs,
// and it is ended by SIGTERM as a session ends it. It uses the display and the sound server of
// this test process, never the user's session bus.
class DesktopProgram {
public:
    DesktopProgram() { process_.setProcessChannelMode(QProcess::MergedChannels); }
    ~DesktopProgram();
    DesktopProgram(const DesktopProgram&) = delete;
    DesktopProgram& operator=(const DesktopProgram&) = delete;

    QString dataFolder() const { return home_.filePath("data/Ombry Voice"); }

    // The user defaults file, written whole, and as the program left it.
    void writeSettings(const QJsonObject& settings);
    QJsonObject readSettings() const;
    // A file of the data folder (snippets.json, history.json…), written whole or read.
    void writeData(const QString& name, const QByteArray& bytes);
    QByteArray readData(const QString& name) const;

    // Environment entries for the next start; an empty value removes the variable.
    void setEnv(const QString& name, const QString& value);
    QProcessEnvironment environment() const;

    // Starts the program and waits until it has written its start lines (the key hook is then
    // installed). False with the journal in error() when it does not come up.
    bool start(int timeoutMs = 20000);
    // SIGTERM, then the exit status; -1 when it had to be killed.
    int stop(int timeoutMs = 10000);
    // Runs the program with one option (`--toggle`, `--retry`) as a desktop shortcut does; the
    // exit status, -1 when it did not end.
    int tell(const QString& option, int timeoutMs = 5000) const;
    bool running() const { return process_.state() == QProcess::Running; }
    qint64 pid() const { return process_.processId(); }
    QString error() const { return error_; }

    // The journal's messages so far, without their time stamps.
    QStringList journal() const;
    // The number of journal lines so far: a mark to look for new lines from.
    int mark() const { return int(journal().size()); }
    // The first message from `from` on that starts with `prefix` (or that `matches`); waits for
    // it while the event loop turns.
    std::optional<QString> waitForLine(const QString& prefix, int from, int timeoutMs = 10000);
    std::optional<QString> waitFor(const std::function<bool(const QString&)>& matches, int from,
                                   int timeoutMs = 10000);
    // Whether a message from `from` on starts with `prefix` (no waiting).
    bool hasLine(const QString& prefix, int from) const;
    // The wall-clock time (ms since the epoch) of the first such message; no waiting.
    std::optional<qint64> stampOf(const QString& prefix, int from) const;
    // The journal from `from` on, for failure messages.
    QString journalFrom(int from) const { return journal().mid(from).join('\n'); }
    // The same, kept until the next call, for QVERIFY2.
    const char* since(int from);

    // The program's standard output and error so far.
    QByteArray output();

private:
    // The journal's lines so far: their time stamps and messages.
    QList<QPair<QByteArray, QString>> lines() const;

    QTemporaryDir home_;
    QProcess process_;
    QProcessEnvironment extra_;
    QStringList removed_;
    QByteArray output_, since_;
    QString error_;
};

} // namespace ombry::test
