#include "desktop/SessionGuide.h"

#include "platform/Platform.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>

namespace ombry {
namespace {

using Desktop = SessionOffer::Desktop;

GuideRow keyRow(const GuideInput& in) {
    GuideRow r;
    r.service = QStringLiteral("Touche de dictée");
    const QString press = in.program + QStringLiteral(" --press");
    const QString release = in.program + QStringLiteral(" --release");
    const QString toggle = in.program + QStringLiteral(" --toggle");
    const QString sym = keysymName(in.key);
    switch (in.roads.key) {
    case KeyRoad::X11:
        r.road = QStringLiteral("Clavier global du serveur X");
        break;
    case KeyRoad::Portal: {
        const QString chord = in.trigger.isEmpty() ? in.portalShortcut : in.trigger;
        r.road = QStringLiteral("Raccourci du bureau : %1").arg(chord);
        if (in.shortcutsProblem) {
            r.works = false;
            r.todo = QStringLiteral("Le bureau n'a pas accepté le raccourci (%1). Redémarre "
                                    "Ombry Voice pour qu'il le propose à nouveau.")
                         .arg(*in.shortcutsProblem);
        } else {
            r.todo = QStringLiteral("Accepte le raccourci quand le bureau le propose. Une touche "
                                    "seule ne peut pas être un raccourci : maintiens %1 pour "
                                    "dicter ; tu peux le changer dans les réglages de raccourcis "
                                    "du bureau.")
                         .arg(chord);
        }
        break;
    }
    case KeyRoad::Bindings:
        if (in.offer.desktop == Desktop::Hyprland) {
            r.road = QStringLiteral("Raccourcis de Hyprland");
            r.todo = QStringLiteral("Colle ces deux lignes dans ~/.config/hypr/hyprland.conf.");
            r.lines = {QStringLiteral("bind = , %1, exec, %2").arg(sym, press),
                       QStringLiteral("bindr = , %1, exec, %2").arg(sym, release)};
        } else {
            r.road = QStringLiteral("Raccourcis du compositeur");
            r.todo = QStringLiteral("Colle ces deux lignes dans ~/.config/sway/config, puis "
                                    "recharge la configuration (Super+Maj+C).");
            r.lines = {QStringLiteral("bindsym --no-repeat %1 exec %2").arg(sym, press),
                       QStringLiteral("bindsym --release %1 exec %2").arg(sym, release)};
        }
        break;
    case KeyRoad::Toggle:
        r.road = QStringLiteral("Raccourci personnalisé, sans les mains");
        r.todo = in.offer.desktop == Desktop::KDE
                     ? QStringLiteral("Dans Configuration du système › Raccourcis, ajoute une "
                                      "commande qui lance la ligne ci-dessous. Un appui commence "
                                      "la dictée, le suivant la termine.")
                     : QStringLiteral("Dans Paramètres › Clavier › Raccourcis personnalisés, "
                                      "ajoute un raccourci qui lance la ligne ci-dessous. Un "
                                      "appui commence la dictée, le suivant la termine.");
        r.lines = {toggle};
        break;
    case KeyRoad::Evdev:
        r.road = QStringLiteral("Clavier lu directement (groupe input)");
        r.todo = QStringLiteral("Attention : tout programme lancé par toi peut alors lire "
                                "chaque touche tapée.");
        break;
    case KeyRoad::None:
        r.road = QStringLiteral("Aucune");
        r.works = false;
        r.todo = QStringLiteral("Ce bureau ne transmet pas la touche de dictée. Le correcteur, "
                                "le traducteur et les réunions restent utilisables.");
        break;
    }
    return r;
}

GuideRow postRow(const GuideInput& in) {
    GuideRow r;
    r.service = QStringLiteral("Envoi des touches (collage)");
    switch (in.roads.post) {
    case PostRoad::X11:
        r.road = QStringLiteral("XTest du serveur X");
        break;
    case PostRoad::VirtualKeyboard:
        r.road = QStringLiteral("Clavier virtuel du compositeur");
        break;
    case PostRoad::RemoteDesktop:
        r.road = QStringLiteral("Portail « Bureau à distance », clavier seulement");
        r.todo = in.offer.remoteDesktopPortalVersion >= 2
                     ? QStringLiteral("Accepte la demande du bureau une fois : elle est retenue.")
                     : QStringLiteral("Accepte la demande du bureau à chaque démarrage "
                                      "d'Ombry Voice.");
        break;
    case PostRoad::Uinput:
        r.road = QStringLiteral("uinput");
        break;
    case PostRoad::None:
        r.road = QStringLiteral("Aucune");
        r.works = false;
        r.todo = QStringLiteral("Le texte dicté reste au presse-papiers : colle-le avec Ctrl+V.");
        break;
    }
    if (in.postProblem && in.roads.post != PostRoad::None) {
        r.works = false;
        r.todo = QStringLiteral("%1. Le texte dicté reste au presse-papiers : colle-le avec "
                                "Ctrl+V. Redémarre Ombry Voice pour que le bureau redemande.")
                     .arg(*in.postProblem);
    }
    return r;
}

GuideRow clipboardRow(const GuideInput& in) {
    GuideRow r;
    r.service = QStringLiteral("Presse-papiers");
    switch (in.roads.clipboard) {
    case ClipboardRoad::X11:
        r.road = QStringLiteral("Serveur X");
        break;
    case ClipboardRoad::DataControl:
        r.road = in.offer.dataControlPrimary
                     ? QStringLiteral("data-control du compositeur (avec la sélection)")
                     : QStringLiteral("data-control du compositeur");
        break;
    case ClipboardRoad::Portal:
        r.road = QStringLiteral("Portail presse-papiers, dans la session « bureau à distance »");
        r.todo = QStringLiteral("La fenêtre du bureau qui demande l'envoi des touches doit aussi "
                                "autoriser le presse-papiers : laisse-le coché, sinon le texte "
                                "est tapé touche par touche.");
        break;
    case ClipboardRoad::None:
        if (in.roads.typeInsteadOfPaste) {
            r.road = QStringLiteral("Aucun : le texte est tapé touche par touche");
            r.todo = QStringLiteral("Ton presse-papiers n'est jamais touché.");
        } else {
            r.road = QStringLiteral("Aucun");
            r.works = false;
        }
        break;
    }
    return r;
}

GuideRow frontRow(const GuideInput& in) {
    GuideRow r;
    r.service = QStringLiteral("Fenêtre au premier plan");
    switch (in.roads.front) {
    case FrontRoad::X11:
        r.road = QStringLiteral("Serveur X");
        break;
    case FrontRoad::AccessibilityBus:
        r.road = in.offer.swayIpc ? QStringLiteral("Bus d'accessibilité, puis IPC de sway")
                                  : QStringLiteral("Bus d'accessibilité");
        break;
    case FrontRoad::SwayIpc:
        r.road = QStringLiteral("IPC de sway");
        break;
    case FrontRoad::Hyprland:
        r.road = QStringLiteral("Socket de Hyprland");
        break;
    case FrontRoad::None:
        r.road = QStringLiteral("Inconnue");
        r.works = false;
        r.todo = QStringLiteral("Le ton et la traduction par appli ne s'appliquent pas.");
        break;
    }
    return r;
}

GuideRow stripRow(const GuideInput& in) {
    GuideRow r;
    r.service = QStringLiteral("Bandeau");
    switch (in.roads.strip) {
    case StripRoad::X11:
        r.road = QStringLiteral("Fenêtre X11 sans focus");
        break;
    case StripRoad::LayerShell:
        r.road = QStringLiteral("Couche du compositeur (layer-shell)");
        break;
    case StripRoad::Window:
        r.road = QStringLiteral("Fenêtre sans focus");
        break;
    }
    return r;
}

} // namespace

QString keysymName(DictationKey key) {
    switch (key) {
    case DictationKey::RightOption:
        return QStringLiteral("Alt_R");
    case DictationKey::RightCommand:
        return QStringLiteral("Super_R");
    case DictationKey::RightControl:
        return QStringLiteral("Control_R");
    case DictationKey::Fn:
        return QStringLiteral("Menu");
    }
    return QStringLiteral("Alt_R");
}

QString shellWord(const QString& path) {
    static const QString plain =
        QStringLiteral("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+:@%,");
    bool quote = path.isEmpty();
    for (const QChar c : path)
        if (!plain.contains(c)) quote = true;
    if (!quote) return path;
    QString out = path;
    out.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return QLatin1Char('\'') + out + QLatin1Char('\'');
}

QList<GuideRow> sessionGuide(const GuideInput& in) {
    return {keyRow(in), postRow(in), clipboardRow(in), frontRow(in), stripRow(in)};
}

QStringList missingOnDesktop(const GuideInput& in) {
    QStringList out;
    switch (in.roads.key) {
    case KeyRoad::X11:
    case KeyRoad::Evdev:
        break;
    case KeyRoad::None:
        out << QStringLiteral("La touche de dictée n'est pas entendue.");
        [[fallthrough]];
    case KeyRoad::Portal:
    case KeyRoad::Bindings:
    case KeyRoad::Toggle:
        out << QStringLiteral("Échap n'annule pas la dictée : relâche la touche puis supprime "
                              "le texte.")
            << QStringLiteral("Le double Ctrl+C ne lance pas la correction : seul le raccourci "
                              "de correction le fait.");
        if (in.roads.key != KeyRoad::Portal)
            out << QStringLiteral("Ctrl+Alt+V et Ctrl+Alt+R ne sont pas entendus.");
        break;
    }
    if (in.offer.display == SessionOffer::Display::Wayland)
        out << QStringLiteral("La fenêtre de départ n'est pas ramenée au premier plan : le "
                              "texte va dans la fenêtre active.");
    return out;
}

SessionStatus& SessionStatus::shared() {
    static SessionStatus status;
    return status;
}

void SessionStatus::setShortcutsProblem(const std::optional<QString>& p) {
    if (shortcutsProblem_ == p) return;
    shortcutsProblem_ = p;
    emit changed();
}

void SessionStatus::setPostProblem(const std::optional<QString>& p) {
    if (postProblem_ == p) return;
    postProblem_ = p;
    emit changed();
}

GuideInput SessionStatus::guideInput() const {
    Platform& p = Platform::current();
    GuideInput in;
    in.offer = p.session().offer();
    in.roads = p.session().roads();
    const AppSettings& s = AppSettings::shared();
    in.key = s.key();
    in.portalShortcut = s.portalShortcut();
    in.trigger = p.shortcuts().trigger(QStringLiteral("dictate"));
    // An installed program is called by its name; a build anywhere else by its path.
    const QString path = QCoreApplication::applicationFilePath();
    const QString name = QFileInfo(path).fileName();
    in.program =
        !name.isEmpty() && QStandardPaths::findExecutable(name) == path ? name : shellWord(path);
    in.shortcutsProblem = shortcutsProblem_;
    in.postProblem = postProblem_;
    return in;
}

} // namespace ombry
