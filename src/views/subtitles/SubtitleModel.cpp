#include "views/subtitles/SubtitleModel.h"

#include <algorithm>

namespace ombry {

SubtitleState subtitleState(const CallTranslator& call) {
    return {call.running(), call.lines(), call.error(), call.targetName()};
}

SubtitleContent subtitleContent(const SubtitleState& state, bool showEnglish) {
    SubtitleContent c;
    c.live = state.running;
    c.source = state.targetName.value_or(QStringLiteral("Tout l'ordinateur"));
    // Lines still waiting for their French are not shown here.
    QList<const CallTranslator::Line*> done;
    for (const CallTranslator::Line& line : state.lines)
        if (!line.fr.isEmpty()) done << &line;
    if (done.size() >= 2) c.previous = done[done.size() - 2]->fr;
    if (!done.isEmpty()) {
        c.main = done.last()->fr;
        c.mainLine = done.last()->id;
        if (showEnglish && !done.last()->en.isEmpty()) c.english = done.last()->en;
    } else if (state.error) {
        c.main = *state.error;
    } else {
        c.main =
            state.running ? QStringLiteral("J'écoute…") : QStringLiteral("Sous-titres arrêtés");
    }
    c.englishButton =
        showEnglish ? QStringLiteral("Masquer l'anglais") : QStringLiteral("Voir l'anglais");
    c.runButton = state.running ? QStringLiteral("Arrêter") : QStringLiteral("Démarrer");
    return c;
}

const QStringList& knownCallApps() {
    // The usual call programs, in the order of their tiles: each one's identifier on the
    // original platform, then its desktop-file ids on Linux (native, Flatpak).
    static const QStringList ids{QStringLiteral("com.hnc.Discord"),
                                 QStringLiteral("discord"),
                                 QStringLiteral("com.discordapp.Discord"),
                                 QStringLiteral("us.zoom.xos"),
                                 QStringLiteral("zoom"),
                                 QStringLiteral("us.zoom.Zoom"),
                                 QStringLiteral("com.microsoft.teams2"),
                                 QStringLiteral("teams-for-linux"),
                                 QStringLiteral("com.github.IsmaelMartinez.teams_for_linux"),
                                 QStringLiteral("com.apple.FaceTime"),
                                 QStringLiteral("com.tinyspeck.slackmacgap"),
                                 QStringLiteral("slack"),
                                 QStringLiteral("com.slack.Slack"),
                                 QStringLiteral("net.whatsapp.WhatsApp"),
                                 QStringLiteral("whatsapp-for-linux"),
                                 QStringLiteral("com.github.eneshecan.WhatsAppForLinux"),
                                 QStringLiteral("com.google.Chrome"),
                                 QStringLiteral("google-chrome"),
                                 QStringLiteral("chromium"),
                                 QStringLiteral("org.chromium.Chromium"),
                                 QStringLiteral("com.apple.Safari"),
                                 QStringLiteral("firefox-esr"),
                                 QStringLiteral("firefox"),
                                 QStringLiteral("org.mozilla.firefox"),
                                 QStringLiteral("company.thebrowser.Browser")};
    return ids;
}

QList<AppChoice> appChoices(const QList<PlayingApp>& playing,
                            const std::optional<QString>& target) {
    QList<AppChoice> out{{std::nullopt, QStringLiteral("Tout l'ordinateur"), !target}};
    QList<PlayingApp> known, others;
    for (const PlayingApp& app : playing)
        (knownCallApps().contains(app.id) ? known : others) << app;
    std::sort(known.begin(), known.end(), [](const PlayingApp& a, const PlayingApp& b) {
        return knownCallApps().indexOf(a.id) < knownCallApps().indexOf(b.id);
    });
    std::sort(others.begin(), others.end(),
              [](const PlayingApp& a, const PlayingApp& b) { return a.name < b.name; });
    for (const QList<PlayingApp>* group : {&known, &others})
        for (const PlayingApp& app : *group)
            out << AppChoice{app.id, app.name, target == app.id};
    return out;
}

} // namespace ombry
