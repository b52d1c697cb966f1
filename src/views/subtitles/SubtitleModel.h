#pragma once

#include "calls/CallTranslator.h"

#include <QList>
#include <QString>
#include <optional>

namespace ombry {

// What the subtitle panel shows, computed from the call translator's state alone, so that the
// widget only draws it.
struct SubtitleContent {
    bool live = false;               // the status dot: red while running, grey otherwise
    QString source;                  // the application listened to, or "Tout l'ordinateur"
    std::optional<QString> previous; // the French of the line before the last, dimmed
    QString main;                    // the last French line, else the error, else the state
    std::optional<int64_t> mainLine; // the line the main text belongs to (the fade's key)
    std::optional<QString> english;  // the last line's English, when asked for
    QString englishButton;           // "Voir l'anglais" / "Masquer l'anglais"
    QString runButton;               // "Démarrer" / "Arrêter"
    bool operator==(const SubtitleContent&) const = default;
};

struct SubtitleState {
    bool running = false;
    QList<CallTranslator::Line> lines;
    std::optional<QString> error;
    std::optional<QString> targetName;
};

SubtitleContent subtitleContent(const SubtitleState& state, bool showEnglish);
SubtitleState subtitleState(const CallTranslator& call);

// One tile of the choice of application to listen to.
struct AppChoice {
    std::optional<QString> id; // none: all the computer's audio
    QString name;
    bool selected = false;
    bool operator==(const AppChoice&) const = default;
};

// The applications usually in a call come first, in this order, when they play; then the
// other applications that play, by name. The first tile is all the computer's audio. The
// chosen application keeps its selection only while it is listed.
QList<AppChoice> appChoices(const QList<PlayingApp>& playing, const std::optional<QString>& target);
// The ids of the applications usually in a call, in the order of the tiles.
const QStringList& knownCallApps();

} // namespace ombry
