#include "platform/linux/DesktopFiles.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QSet>
#include <algorithm>

namespace ombry::linux_platform {

QStringList DesktopFiles::applicationDirs() {
    QString home = qEnvironmentVariable("XDG_DATA_HOME");
    if (home.isEmpty()) home = QDir::homePath() + QStringLiteral("/.local/share");
    QString system = qEnvironmentVariable("XDG_DATA_DIRS");
    if (system.isEmpty()) system = QStringLiteral("/usr/local/share:/usr/share");
    QStringList dirs{home + QStringLiteral("/applications")};
    for (const QString& dir : system.split(QLatin1Char(':'), Qt::SkipEmptyParts))
        dirs << dir + QStringLiteral("/applications");
    dirs.removeDuplicates();
    return dirs;
}

std::optional<DesktopEntry> DesktopFiles::read(const QString& path, const QString& id) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
    const QString locale = QLocale::system().name(); // fr_FR
    const QString language = locale.section(QLatin1Char('_'), 0, 0);
    // Name keys by preference: the user's locale, the language, French (the program's own
    // language), then the plain Name.
    const QStringList nameKeys{QStringLiteral("Name[%1]").arg(locale),
                               QStringLiteral("Name[%1]").arg(language), QStringLiteral("Name[fr]"),
                               QStringLiteral("Name")};
    QMap<QString, QString> values;
    bool inEntry = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) continue;
        if (line.startsWith(QLatin1Char('['))) {
            if (inEntry) break; // only the [Desktop Entry] group matters
            inEntry = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (!inEntry) continue;
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        if (eq <= 0) continue;
        values.insert(line.left(eq).trimmed(), line.mid(eq + 1).trimmed());
    }
    if (values.value(QStringLiteral("Type")) != QLatin1String("Application")) return std::nullopt;
    if (values.value(QStringLiteral("Hidden")) == QLatin1String("true")) return std::nullopt;
    DesktopEntry entry;
    entry.id = id;
    for (const QString& key : nameKeys) {
        entry.name = values.value(key);
        if (!entry.name.isEmpty()) break;
    }
    entry.wmClass = values.value(QStringLiteral("StartupWMClass"));
    // The program of Exec: its first word, without quotes, path or environment settings.
    const QStringList words =
        values.value(QStringLiteral("Exec")).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (QString word : words) {
        word.remove(QLatin1Char('"'));
        if (word == QLatin1String("env") || word.contains(QLatin1Char('='))) continue;
        entry.program = QFileInfo(word).fileName();
        break;
    }
    return entry;
}

void DesktopFiles::refresh() {
    const QStringList dirs = applicationDirs();
    QList<QDateTime> stamps;
    for (const QString& dir : dirs) {
        const QFileInfo info(dir);
        stamps << (info.exists() ? info.lastModified() : QDateTime());
    }
    // File times have the grain of the kernel's clock tick: a folder changed twice within one
    // tick keeps its time. A folder changed shortly before the last reading is read again.
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const bool settled = std::all_of(stamps.begin(), stamps.end(), [&](const QDateTime& t) {
        return !t.isValid() || t.secsTo(readAt_) > 2;
    });
    if (loaded_ && dirs == dirs_ && stamps == stamps_ && settled) return;
    loaded_ = true;
    readAt_ = now;
    dirs_ = dirs;
    stamps_ = stamps;
    entries_.clear();
    QSet<QString> seen;
    for (const QString& dir : dirs) {
        QDirIterator it(dir, {QStringLiteral("*.desktop")}, QDir::Files,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            // The id of applications/kde/foo.desktop is kde-foo.
            QString id = QDir(dir).relativeFilePath(path);
            id.chop(int(sizeof(".desktop") - 1));
            id.replace(QLatin1Char('/'), QLatin1Char('-'));
            if (seen.contains(id)) continue; // a file of an earlier folder hides this one
            seen.insert(id);
            if (auto entry = read(path, id)) entries_ << *entry;
        }
    }
}

std::optional<DesktopEntry> DesktopFiles::forWindowClass(const QString& windowClass,
                                                         const QString& instance) {
    refresh();
    const QStringList names{windowClass, instance};
    for (const QString& name : names) {
        if (name.isEmpty()) continue;
        for (const DesktopEntry& e : entries_)
            if (e.wmClass.compare(name, Qt::CaseInsensitive) == 0) return e;
    }
    for (const QString& name : names) {
        if (name.isEmpty()) continue;
        for (const DesktopEntry& e : entries_)
            if (e.id.compare(name, Qt::CaseInsensitive) == 0) return e;
    }
    for (const QString& name : names) {
        if (name.isEmpty()) continue;
        for (const DesktopEntry& e : entries_) {
            if (!e.id.contains(QLatin1Char('.'))) continue;
            if (e.id.section(QLatin1Char('.'), -1).compare(name, Qt::CaseInsensitive) == 0)
                return e;
        }
    }
    return std::nullopt;
}

std::optional<DesktopEntry> DesktopFiles::forId(const QString& id) {
    refresh();
    for (const DesktopEntry& e : entries_)
        if (e.id == id) return e;
    return std::nullopt;
}

std::optional<DesktopEntry> DesktopFiles::forProgram(const QString& program) {
    if (program.isEmpty()) return std::nullopt;
    refresh();
    for (const DesktopEntry& e : entries_)
        if (e.program == program) return e;
    for (const DesktopEntry& e : entries_)
        if (e.id.compare(program, Qt::CaseInsensitive) == 0 ||
            e.wmClass.compare(program, Qt::CaseInsensitive) == 0)
            return e;
    return std::nullopt;
}

std::optional<DesktopEntry> DesktopFiles::forProcess(int64_t pid, QString* processName) {
    if (processName) processName->clear();
    if (pid <= 0) return std::nullopt;
    const QString proc = QStringLiteral("/proc/%1/").arg(pid);
    QFile comm(proc + QStringLiteral("comm"));
    if (!comm.open(QIODevice::ReadOnly)) return std::nullopt;
    const QString shortName = QString::fromUtf8(comm.readAll()).trimmed();
    // comm is cut at 15 characters: the program's file name comes from the command line.
    QString program;
    QFile cmdline(proc + QStringLiteral("cmdline"));
    if (cmdline.open(QIODevice::ReadOnly)) {
        const QByteArray first = cmdline.readAll().split('\0').value(0);
        program = QFileInfo(QString::fromLocal8Bit(first)).fileName();
    }
    if (processName) *processName = shortName.isEmpty() ? program : shortName;
    for (const QString& name : {program, shortName}) {
        if (name.isEmpty()) continue;
        if (auto entry = forProgram(name)) return entry;
    }
    return std::nullopt;
}

} // namespace ombry::linux_platform
