#include "desktop/LoginItem.h"

#include "data/UserDefaults.h"
#include "desktop/Log.h"
#include "platform/Paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace ombry::LoginItem {

QString path() {
    return Paths::configHome() + QStringLiteral("/autostart/ombry-voice.desktop");
}

bool isEnabled() {
    QFile f(path());
    if (!f.open(QIODevice::ReadOnly)) return false;
    const QString text = QString::fromUtf8(f.readAll());
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        const QString l = line.trimmed();
        if (l.compare(QLatin1String("Hidden=true"), Qt::CaseInsensitive) == 0) return false;
        if (l.compare(QLatin1String("X-GNOME-Autostart-enabled=false"), Qt::CaseInsensitive) == 0)
            return false;
    }
    return true;
}

QString entryText(const QString& executable) {
    // Exec takes a quoted path when it holds blanks or other reserved characters.
    QString exec = executable;
    static const QString reserved = QStringLiteral(" \t\n\r\"'\\><~|&;$*?#()`");
    bool quote = false;
    for (QChar c : exec)
        if (reserved.contains(c)) quote = true;
    if (quote) {
        exec.replace(QLatin1String("\\"), QLatin1String("\\\\"))
            .replace(QLatin1String("\""), QLatin1String("\\\""))
            .replace(QLatin1String("`"), QLatin1String("\\`"))
            .replace(QLatin1String("$"), QLatin1String("\\$"));
        exec = QLatin1Char('"') + exec + QLatin1Char('"');
    }
    // The value is a string of the entry, whose own escapes come on top of the quoting: a
    // backslash of the quoting is two in the file (a literal one four), and a line end or a
    // tab is written as an escape, so that the path never breaks the line.
    exec.replace(QLatin1String("\\"), QLatin1String("\\\\"))
        .replace(QLatin1String("\n"), QLatin1String("\\n"))
        .replace(QLatin1String("\r"), QLatin1String("\\r"))
        .replace(QLatin1String("\t"), QLatin1String("\\t"));
    exec.replace(QLatin1String("%"), QLatin1String("%%"));
    return QStringLiteral("[Desktop Entry]\n"
                          "Type=Application\n"
                          "Name=Ombry Voice\n"
                          "Comment=Assistant de dictée : maintiens une touche, parle, relâche\n"
                          "Exec=%1\n"
                          "Icon=ombry-voice\n"
                          "Terminal=false\n"
                          "X-GNOME-Autostart-enabled=true\n")
        .arg(exec);
}

bool set(bool on) {
    const QString file = path();
    QString error;
    if (on) {
        QDir().mkpath(QFileInfo(file).absolutePath());
        const QString exe = QCoreApplication::instance() ? QCoreApplication::applicationFilePath()
                                                         : QStringLiteral("ombry-voice");
        if (!Paths::writeFileAtomically(file, entryText(exe).toUtf8()))
            error = QStringLiteral("impossible d'écrire %1").arg(file);
    } else if (QFile::exists(file) && !QFile::remove(file)) {
        error = QStringLiteral("impossible de supprimer %1").arg(file);
    }
    Log::write(QStringLiteral("démarrage auto: %1")
                   .arg(error.isEmpty() ? (on ? QStringLiteral("true") : QStringLiteral("false"))
                                        : error));
    return error.isEmpty();
}

void applyDefault() {
    UserDefaults& d = UserDefaults::standard();
    if (d.contains(QLatin1String(kAppliedKey))) return;
    d.setValue(QLatin1String(kAppliedKey), true);
    set(true);
}

} // namespace ombry::LoginItem
