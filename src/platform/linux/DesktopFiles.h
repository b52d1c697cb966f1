#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <optional>

// The applications installed on the system, as their .desktop files describe them: what lets a
// window class (WM_CLASS) or a process become a desktop-file id and a name for people.
namespace ombry::linux_platform {

struct DesktopEntry {
    QString id;      // desktop-file id: "org.gnome.TextEditor", "firefox-esr"
    QString name;    // Name, in the user's language when the file has it
    QString wmClass; // StartupWMClass, may be empty
    QString program; // file name of Exec's program, may be empty
};

class DesktopFiles {
public:
    // The entry of the application whose windows have this WM_CLASS (class, then instance):
    // StartupWMClass first, then an id equal to the class or the instance, then the last part
    // of a reverse-domain id ("org.gnome.Zenity" for Zenity), all without regard to case.
    std::optional<DesktopEntry> forWindowClass(const QString& windowClass, const QString& instance);
    std::optional<DesktopEntry> forId(const QString& id);
    // The entry whose program (Exec) or id is this executable's file name.
    std::optional<DesktopEntry> forProgram(const QString& program);
    // The entry of a running process's program (the file name of its command line, then its
    // short name). processName, when given, receives the process's own name for when none fits.
    std::optional<DesktopEntry> forProcess(int64_t pid, QString* processName = nullptr);

    // $XDG_DATA_HOME/applications first, then each of $XDG_DATA_DIRS: the first one of an id wins.
    static QStringList applicationDirs();
    static std::optional<DesktopEntry> read(const QString& path, const QString& id);

private:
    void refresh();

    QList<DesktopEntry> entries_;
    QStringList dirs_;
    QList<QDateTime> stamps_; // of each folder, to read them again when one changed
    QDateTime readAt_;
    bool loaded_ = false;
};

} // namespace ombry::linux_platform
