#pragma once

#include <QList>
#include <QString>
#include <optional>

// The applications installed on the system, as their .desktop files describe them: what lets a
// window class (WM_CLASS) or a process become a desktop-file id and a name for people. GIO's
// index of desktop files (GDesktopAppInfo) reads them: the folders of XDG_DATA_HOME and
// XDG_DATA_DIRS, the quoting of Exec, the names in the languages of LANGUAGE and the locale
// (with its @modifier). The entries are kept until GIO says that the installed applications
// changed.
namespace ombry::linux_platform {

struct DesktopEntry {
    QString id;      // desktop-file id: "org.gnome.TextEditor", "firefox-esr"
    QString name;    // Name, in the user's language when the file has it, else in French
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

private:
    QList<DesktopEntry> entries() const;
};

} // namespace ombry::linux_platform
