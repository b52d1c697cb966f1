#pragma once

#include "data/Settings.h"
#include "platform/SessionRoads.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <optional>

namespace ombry {

// What the user reads about this desktop in the settings ("Ce bureau"): for each service of
// the program, the road it takes here, whether it works, what the user must do once, and the
// lines to copy where the desktop needs some.
struct GuideRow {
    QString service; // "Touche de dictée", "Envoi des touches", ...
    QString road;    // the road, in plain words
    bool works = true;
    QString todo;      // what to do once; empty: nothing
    QStringList lines; // to paste into the desktop's configuration, ready to copy
};

struct GuideInput {
    SessionOffer offer;
    SessionRoads roads;
    DictationKey key = DictationKey::RightOption;
    QString program;                         // the command that starts this program
    QString portalShortcut;                  // the chord proposed to the desktop
    QString trigger;                         // the chord the desktop reports; empty when unknown
    std::optional<QString> shortcutsProblem; // the desktop refused the shortcuts: why
    std::optional<QString> postProblem;      // posting keys does not work: why
};

QList<GuideRow> sessionGuide(const GuideInput& in);
// What does not work on this desktop, one plain sentence each (empty on X11).
QStringList missingOnDesktop(const GuideInput& in);
// The key's name in the keysym vocabulary of compositors' configurations ("Alt_R").
QString keysymName(DictationKey key);
// The program's path as a shell word, quoted when it needs to be.
QString shellWord(const QString& path);

// What was learnt while running about the roads of this desktop: the desktop's answer to the
// shortcuts and to the posting of keys. Main thread only.
class SessionStatus : public QObject {
    Q_OBJECT
public:
    static SessionStatus& shared();
    std::optional<QString> shortcutsProblem() const { return shortcutsProblem_; }
    std::optional<QString> postProblem() const { return postProblem_; }
    void setShortcutsProblem(const std::optional<QString>& p);
    void setPostProblem(const std::optional<QString>& p);
    // Everything the guide needs, as it stands now.
    GuideInput guideInput() const;

signals:
    void changed();

private:
    std::optional<QString> shortcutsProblem_, postProblem_;
};

} // namespace ombry
