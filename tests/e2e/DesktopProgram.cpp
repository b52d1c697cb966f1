#include "DesktopProgram.h"

#include "DesktopSession.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <csignal>

namespace ombry::test {

DesktopProgram::DesktopProgram() {
    process_.setProcessChannelMode(QProcess::MergedChannels);
}

DesktopProgram::~DesktopProgram() {
    if (running()) stop(3000);
}

QString DesktopProgram::dataFolder() const {
    return home_.filePath(QStringLiteral("data/Ombry Voice"));
}

QString DesktopProgram::journalPath() const {
    return dataFolder() + QStringLiteral("/journal.log");
}

void DesktopProgram::writeSettings(const QJsonObject& settings) {
    QDir().mkpath(home_.filePath(QStringLiteral("config")));
    QFile f(home_.filePath(QStringLiteral("config/com.quennard.ombryvoice.json")));
    if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        f.write(QJsonDocument(settings).toJson());
}

QJsonObject DesktopProgram::readSettings() const {
    QFile f(home_.filePath(QStringLiteral("config/com.quennard.ombryvoice.json")));
    return f.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(f.readAll()).object()
                                       : QJsonObject();
}

void DesktopProgram::writeData(const QString& name, const QByteArray& bytes) {
    QDir().mkpath(dataFolder());
    QFile f(dataFolder() + QLatin1Char('/') + name);
    if (f.open(QIODevice::WriteOnly | QIODevice::Truncate)) f.write(bytes);
}

QByteArray DesktopProgram::readData(const QString& name) const {
    QFile f(dataFolder() + QLatin1Char('/') + name);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void DesktopProgram::setEnv(const QString& name, const QString& value) {
    removed_.removeAll(name);
    extra_.remove(name);
    if (value.isEmpty())
        removed_ << name;
    else
        extra_.insert(name, value);
}

QProcessEnvironment DesktopProgram::environment() const {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home_.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home_.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("XDG_DATA_HOME"), home_.filePath(QStringLiteral("data")));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), home_.filePath(QStringLiteral("cache")));
    // The windows go to the test's X server, notifications to no bus at all.
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    for (const QString& name : std::as_const(removed_))
        env.remove(name);
    for (const QString& name : extra_.keys())
        env.insert(name, extra_.value(name));
    return env;
}

bool DesktopProgram::start(int timeoutMs) {
    error_.clear();
    const int from = mark();
    process_.setProcessEnvironment(environment());
    process_.start(qEnvironmentVariable("OMBRY_BINARY"), {});
    if (!process_.waitForStarted(5000)) {
        error_ = QStringLiteral("le programme ne démarre pas: ") + process_.errorString();
        return false;
    }
    // The launch line comes after the controller has started its key hook.
    if (!waitForLine(QStringLiteral("ordinateur:"), from, timeoutMs)) {
        error_ = QStringLiteral("pas de ligne de démarrage\n") + journalFrom(from) +
                 QStringLiteral("\nsortie:\n") + QString::fromLocal8Bit(output());
        return false;
    }
    return true;
}

int DesktopProgram::stop(int timeoutMs) {
    if (process_.state() == QProcess::NotRunning) return process_.exitCode();
    ::kill(pid_t(process_.processId()), SIGTERM);
    const bool ended = DesktopSession::waitUntil(
        [this] { return process_.state() == QProcess::NotRunning; }, timeoutMs);
    if (!ended) {
        process_.kill();
        process_.waitForFinished(3000);
        return -1;
    }
    output();
    return process_.exitStatus() == QProcess::NormalExit ? process_.exitCode() : -1;
}

int DesktopProgram::tell(const QString& option, int timeoutMs) const {
    QProcess teller;
    teller.setProcessEnvironment(environment());
    teller.start(qEnvironmentVariable("OMBRY_BINARY"), {option});
    // The event loop turns meanwhile: the test's servers go on answering.
    if (!DesktopSession::waitUntil([&] { return teller.state() == QProcess::NotRunning; },
                                   timeoutMs)) {
        teller.kill();
        teller.waitForFinished(2000);
        return -1;
    }
    return teller.exitCode();
}

QStringList DesktopProgram::journal() const {
    QFile f(journalPath());
    if (!f.open(QIODevice::ReadOnly)) return {};
    QStringList messages;
    for (const QByteArray& line : f.readAll().split('\n')) {
        if (line.isEmpty()) continue;
        const qsizetype blank = line.indexOf(' ');
        messages << QString::fromUtf8(blank < 0 ? line : line.mid(blank + 1));
    }
    return messages;
}

bool DesktopProgram::hasLine(const QString& prefix, int from) const {
    const QStringList lines = journal();
    for (int i = from; i < lines.size(); ++i)
        if (lines[i].startsWith(prefix)) return true;
    return false;
}

std::optional<QString> DesktopProgram::waitForLine(const QString& prefix, int from, int timeoutMs) {
    return waitFor([&](const QString& line) { return line.startsWith(prefix); }, from, timeoutMs);
}

std::optional<QString> DesktopProgram::waitFor(const std::function<bool(const QString&)>& matches,
                                               int from, int timeoutMs) {
    std::optional<QString> found;
    DesktopSession::waitUntil(
        [&] {
            const QStringList lines = journal();
            for (int i = from; i < lines.size(); ++i) {
                if (matches(lines[i])) {
                    found = lines[i];
                    return true;
                }
            }
            return process_.state() == QProcess::NotRunning;
        },
        timeoutMs);
    return found;
}

std::optional<qint64> DesktopProgram::stampOf(const QString& prefix, int from) const {
    QFile f(journalPath());
    if (!f.open(QIODevice::ReadOnly)) return std::nullopt;
    int index = 0;
    for (const QByteArray& line : f.readAll().split('\n')) {
        if (line.isEmpty()) continue;
        if (index++ < from) continue;
        const qsizetype blank = line.indexOf(' ');
        if (blank < 0 || !QString::fromUtf8(line.mid(blank + 1)).startsWith(prefix)) continue;
        const QDateTime at =
            QDateTime::fromString(QString::fromLatin1(line.left(blank)), Qt::ISODateWithMs);
        if (at.isValid()) return at.toMSecsSinceEpoch();
    }
    return std::nullopt;
}

QString DesktopProgram::journalFrom(int from) const {
    return journal().mid(from).join(QLatin1Char('\n'));
}

QByteArray DesktopProgram::output() {
    output_ += process_.readAll();
    return output_;
}

} // namespace ombry::test
