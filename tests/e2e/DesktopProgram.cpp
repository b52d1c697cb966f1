#include "DesktopProgram.h"

#include "DesktopSession.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <csignal>

namespace ombry::test {

namespace {
QByteArray readFile(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}
void writeFile(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    if (f.open(QIODevice::WriteOnly | QIODevice::Truncate)) f.write(bytes);
}
} // namespace

DesktopProgram::~DesktopProgram() {
    if (running()) stop(3000);
}

void DesktopProgram::writeSettings(const QJsonObject& settings) {
    writeFile(home_.filePath("config/com.quennard.ombryvoice.json"),
              QJsonDocument(settings).toJson());
}

QJsonObject DesktopProgram::readSettings() const {
    return QJsonDocument::fromJson(readFile(home_.filePath("config/com.quennard.ombryvoice.json")))
        .object();
}

void DesktopProgram::writeData(const QString& name, const QByteArray& bytes) {
    writeFile(dataFolder() + '/' + name, bytes);
}

QByteArray DesktopProgram::readData(const QString& name) const {
    return readFile(dataFolder() + '/' + name);
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
    env.insert("HOME", home_.path());
    for (const char* dir : {"CONFIG", "DATA", "CACHE"})
        env.insert(QString("XDG_%1_HOME").arg(dir), home_.filePath(QString(dir).toLower()));
    // The windows go to the test's X server, notifications to no bus at all.
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.remove("DBUS_SESSION_BUS_ADDRESS");
    env.remove("WAYLAND_DISPLAY");
    for (const QString& name : std::as_const(removed_))
        env.remove(name);
    env.insert(extra_);
    return env;
}

bool DesktopProgram::start(int timeoutMs) {
    error_.clear();
    const int from = mark();
    process_.setProcessEnvironment(environment());
    process_.start(qEnvironmentVariable("OMBRY_BINARY"), {});
    if (!process_.waitForStarted(5000)) {
        error_ = "le programme ne démarre pas: " + process_.errorString();
        return false;
    }
    // The launch line comes after the controller has started its key hook.
    if (!waitForLine("ordinateur:", from, timeoutMs)) {
        error_ = "pas de ligne de démarrage\n" + journalFrom(from) + "\nsortie:\n" +
                 QString::fromLocal8Bit(output());
        return false;
    }
    return true;
}

int DesktopProgram::stop(int timeoutMs) {
    if (process_.state() == QProcess::NotRunning) return process_.exitCode();
    ::kill(pid_t(process_.processId()), SIGTERM);
    if (!DesktopSession::waitUntil([this] { return !running(); }, timeoutMs)) {
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
    const auto r = DesktopSession::waitUntil([&] { return teller.state() == QProcess::NotRunning; },
                                             timeoutMs);
    if (!r) {
        teller.kill();
        teller.waitForFinished(2000);
    }
    return r ? teller.exitCode() : -1;
}

QList<QPair<QByteArray, QString>> DesktopProgram::lines() const {
    QList<QPair<QByteArray, QString>> out;
    for (const QByteArray& line : readFile(dataFolder() + "/journal.log").split('\n')) {
        const qsizetype blank = line.indexOf(' ');
        if (!line.isEmpty())
            out.append({line.left(qMax(blank, 0)), QString::fromUtf8(line.mid(blank + 1))});
    }
    return out;
}

QStringList DesktopProgram::journal() const {
    QStringList messages;
    for (const auto& [stamp, message] : lines())
        messages << message;
    return messages;
}

std::optional<QString> DesktopProgram::waitForLine(const QString& prefix, int from, int timeoutMs) {
    return waitFor([&](const QString& line) { return line.startsWith(prefix); }, from, timeoutMs);
}

std::optional<QString> DesktopProgram::waitFor(const std::function<bool(const QString&)>& matches,
                                               int from, int timeoutMs) {
    std::optional<QString> found;
    DesktopSession::waitUntil(
        [&] {
            const QStringList lines = journal().mid(from);
            for (const QString& line : lines)
                if (matches(line)) return bool(found = line);
            return !running();
        },
        timeoutMs);
    return found;
}

bool DesktopProgram::hasLine(const QString& prefix, int from) const {
    const QStringList lines = journal().mid(from);
    return std::any_of(lines.begin(), lines.end(), [&](auto& l) { return l.startsWith(prefix); });
}

std::optional<qint64> DesktopProgram::stampOf(const QString& prefix, int from) const {
    for (const auto& [stamp, message] : lines().mid(from)) {
        const QDateTime at = QDateTime::fromString(QString::fromLatin1(stamp), Qt::ISODateWithMs);
        if (message.startsWith(prefix) && at.isValid()) return at.toMSecsSinceEpoch();
    }
    return std::nullopt;
}

const char* DesktopProgram::since(int from) {
    since_ = ('\n' + journalFrom(from)).toUtf8();
    return since_.constData();
}

QByteArray DesktopProgram::output() {
    output_ += process_.readAll();
    return output_;
}

} // namespace ombry::test
