// GIO's headers use the word "signals", which Qt makes a keyword: they come first.
#include <gio/gdesktopappinfo.h>

#include "platform/linux/DesktopFiles.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QThread>
#include <atomic>

namespace ombry::linux_platform {
namespace {

QString text(const char* s) {
    return s ? QString::fromUtf8(s) : QString();
}

// The program speaks French: a name GIO found in none of the user's languages (the plain
// Name) gives way to the French one where the file has it.
QString frenchName(GDesktopAppInfo* info, const QString& plain) {
    const char* path = g_desktop_app_info_get_filename(info);
    GKeyFile* file = g_key_file_new();
    QString name = plain;
    if (path && g_key_file_load_from_file(file, path, G_KEY_FILE_KEEP_TRANSLATIONS, nullptr)) {
        gchar* french = g_key_file_get_locale_string(file, G_KEY_FILE_DESKTOP_GROUP,
                                                     G_KEY_FILE_DESKTOP_KEY_NAME, "fr", nullptr);
        if (french && *french) name = text(french);
        g_free(french);
    }
    g_key_file_free(file);
    return name;
}

// The file name of the program an Exec line runs. Its words are unquoted as the desktop-entry
// rules say (the shell's double quotes and backslashes): "/opt/My App/app" %U runs "app".
// An `env VAR=value` in front is skipped.
QString programOf(const QString& exec) {
    gchar** argv = nullptr;
    if (exec.isEmpty() || !g_shell_parse_argv(exec.toUtf8().constData(), nullptr, &argv, nullptr))
        return {};
    QString program;
    for (gchar** word = argv; *word; ++word) {
        const QString w = text(*word);
        if (w == QLatin1String("env") || w.contains(QLatin1Char('='))) continue;
        program = QFileInfo(w).fileName();
        break;
    }
    g_strfreev(argv);
    return program;
}

// The entries of every installed application. GIO keeps its own index of the folders up to
// date; the entries made from it are kept here until its monitor says that the applications
// changed. The monitor speaks through the GLib main loop of the thread that made it, which is
// the program's main loop: made there, once. Without it (no application object) the entries
// are made afresh at each lookup.
class Index {
public:
    static Index& shared() {
        static Index index;
        return index;
    }

    QList<DesktopEntry> entries() {
        watch();
        QMutexLocker lock(&mutex_);
        if (valid_ && watched_) return entries_;
        entries_ = load();
        valid_ = true;
        return entries_;
    }

private:
    void watch() {
        QCoreApplication* app = QCoreApplication::instance();
        if (watched_ || !app || QThread::currentThread() != app->thread()) return;
        GAppInfoMonitor* monitor = g_app_info_monitor_get(); // kept for the program's life
        g_signal_connect(monitor, "changed", G_CALLBACK(+[](GAppInfoMonitor*, gpointer index) {
                             auto* self = static_cast<Index*>(index);
                             QMutexLocker lock(&self->mutex_);
                             self->valid_ = false;
                         }),
                         this);
        QMutexLocker lock(&mutex_);
        valid_ = false; // entries made before the watch may already be old
        watched_ = true;
    }

    static QList<DesktopEntry> load() {
        QList<DesktopEntry> out;
        GList* all = g_app_info_get_all();
        for (GList* it = all; it; it = it->next) {
            if (!G_IS_DESKTOP_APP_INFO(it->data)) continue;
            auto* info = G_DESKTOP_APP_INFO(it->data);
            DesktopEntry e;
            e.id = text(g_app_info_get_id(G_APP_INFO(info)));
            if (e.id.endsWith(QLatin1String(".desktop"))) e.id.chop(8);
            e.name = text(g_app_info_get_name(G_APP_INFO(info)));
            gchar* plain = g_desktop_app_info_get_string(info, "Name");
            if (plain && e.name == text(plain)) e.name = frenchName(info, e.name);
            g_free(plain);
            e.wmClass = text(g_desktop_app_info_get_startup_wm_class(info));
            e.program = programOf(text(g_app_info_get_commandline(G_APP_INFO(info))));
            out << e;
        }
        g_list_free_full(all, g_object_unref);
        return out;
    }

    QMutex mutex_;
    QList<DesktopEntry> entries_;
    bool valid_ = false;
    std::atomic<bool> watched_ = false;
};

} // namespace

QList<DesktopEntry> DesktopFiles::entries() const {
    return Index::shared().entries();
}

std::optional<DesktopEntry> DesktopFiles::forWindowClass(const QString& windowClass,
                                                         const QString& instance) {
    const QList<DesktopEntry> all = entries();
    const QStringList names{windowClass, instance};
    for (const QString& name : names) {
        if (name.isEmpty()) continue;
        for (const DesktopEntry& e : all)
            if (e.wmClass.compare(name, Qt::CaseInsensitive) == 0) return e;
    }
    for (const QString& name : names) {
        if (name.isEmpty()) continue;
        for (const DesktopEntry& e : all)
            if (e.id.compare(name, Qt::CaseInsensitive) == 0) return e;
    }
    for (const QString& name : names) {
        if (name.isEmpty()) continue;
        for (const DesktopEntry& e : all) {
            if (!e.id.contains(QLatin1Char('.'))) continue;
            if (e.id.section(QLatin1Char('.'), -1).compare(name, Qt::CaseInsensitive) == 0)
                return e;
        }
    }
    return std::nullopt;
}

std::optional<DesktopEntry> DesktopFiles::forId(const QString& id) {
    for (const DesktopEntry& e : entries())
        if (e.id == id) return e;
    return std::nullopt;
}

std::optional<DesktopEntry> DesktopFiles::forProgram(const QString& program) {
    if (program.isEmpty()) return std::nullopt;
    const QList<DesktopEntry> all = entries();
    for (const DesktopEntry& e : all)
        if (e.program == program) return e;
    for (const DesktopEntry& e : all)
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
