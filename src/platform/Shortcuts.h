#pragma once

#include <QList>
#include <QString>
#include <functional>

namespace ombry {

// The program's actions that a desktop's own shortcut service can trigger, where no keyboard
// hook sees the keys (a Wayland session).
enum class ShortcutAction { Dictate, PasteLast, Speak, Correct };

struct ShortcutRequest {
    ShortcutAction action = ShortcutAction::Dictate;
    QString id;               // stable id given to the desktop: "dictate", "paste-last", ...
    QString description;      // for people, shown in the desktop's own settings
    QString preferredTrigger; // in the shortcuts format of the desktop's portal: "CTRL+ALT+D"
};

// A desktop's global shortcuts (the XDG GlobalShortcuts portal): each shortcut reports its press
// and its release. Everything runs on the main thread; nothing here blocks on the desktop.
class GlobalShortcuts {
public:
    virtual ~GlobalShortcuts() = default;
    // A press (once per hold: the repeats of a held key are removed) or a release.
    using Handler = std::function<void(ShortcutAction action, bool pressed)>;
    // Called once the desktop has answered a bind(): ok, or why not (French, for the journal
    // and the user).
    using BoundHandler = std::function<void(bool ok, const QString& message)>;

    // Whether the session offers the service at all. May ask the session bus once, briefly.
    virtual bool available() = 0;
    // Binds the shortcuts, asking the desktop (which may show its dialog, once: the session's
    // token is stable, so the user's choice survives restarts). A new bind replaces the last.
    virtual void bind(const QList<ShortcutRequest>& shortcuts, Handler handler,
                      BoundHandler onBound) = 0;
    virtual void unbind() = 0;
    // The trigger of a shortcut as the desktop describes it now ("Ctrl+Alt+D"); empty when the
    // desktop bound nothing to it.
    virtual QString trigger(const QString& id) const = 0;
};

} // namespace ombry
