// The tab "Autorisations": what the program can reach on this desktop.
#include "views/settings/SettingsPage.h"

#include "dictation/DictationController.h"
#include "platform/Platform.h"
#include "views/common/Components.h"
#include "views/common/PageLook.h"
#include "views/settings/SettingsControls.h"
#include "views/shell/Navigation.h"

#include <QHBoxLayout>
#include <QProcess>
#include <QStandardPaths>
#include <QVBoxLayout>

namespace ombry {

using namespace settings_controls;

namespace {

// A program of the desktop that shows the sound settings, if one is installed.
std::optional<QStringList> soundSettingsCommand() {
    const QList<QStringList> candidates = {
        {QStringLiteral("pavucontrol")},
        {QStringLiteral("gnome-control-center"), QStringLiteral("sound")},
        {QStringLiteral("systemsettings"), QStringLiteral("kcm_pulseaudio")},
    };
    for (const QStringList& c : candidates)
        if (!QStandardPaths::findExecutable(c.first()).isEmpty()) return c;
    return std::nullopt;
}

} // namespace

QWidget* SettingsPage::permissions() {
    auto* page = new QWidget;
    auto* v = column(page);
    QVBoxLayout* c = nullptr;
    v->addWidget(card(&c));
    c->addWidget(text(QStringLiteral("Autorisations"), "cardTitle"));
    c->addWidget(text(QStringLiteral("Ombry Voice entend ta touche de dictée par le serveur X et "
                                     "ton micro par le serveur de son (PulseAudio ou PipeWire)."),
                      "secondary"));
    const bool soundServer = Platform::current().audio().serverAvailable();
    const std::optional<QStringList> soundSettings = soundSettingsCommand();
    auto permissionRow = [&](const QString& title, bool granted, const QString& detail,
                             bool canOpen) {
        auto* right = new QWidget;
        auto* h = new QHBoxLayout(right);
        h->setContentsMargins(0, 0, 0, 0);
        QLabel* state = text(granted ? QStringLiteral("Autorisé") : QStringLiteral("Non autorisé"),
                             granted ? "ok" : "bad");
        h->addWidget(state);
        if (canOpen) {
            auto* open = new QPushButton(QStringLiteral("Ouvrir le réglage"));
            connect(open, &QPushButton::clicked, this, [soundSettings] {
                if (soundSettings)
                    QProcess::startDetached(soundSettings->first(), soundSettings->mid(1));
            });
            h->addWidget(open);
        }
        c->addWidget(row(title, detail, right));
    };
    permissionRow(QStringLiteral("Micro"), soundServer,
                  soundServer ? QString()
                              : QStringLiteral("Le serveur de son ne répond pas ou refuse "
                                               "l'enregistrement."),
                  bool(soundSettings));
    KeyboardHook& keyboard = Platform::current().keyboard();
    const bool keys = controller_.trusted() || keyboard.running();
    permissionRow(QStringLiteral("Accessibilité"), keys,
                  keys ? QStringLiteral("Clavier global (XInput 2) et touches envoyées (XTest)")
                  : keyboard.reason().isEmpty()
                      ? QStringLiteral("Le clavier global n'est pas disponible : il faut une "
                                       "session X11.")
                      : keyboard.reason(),
                  false);
    permissionRow(QStringLiteral("Audio système (sous-titres d'appel)"), soundServer,
                  QStringLiteral("Le son de tes applis, pris sur la sortie du serveur de son"),
                  bool(soundSettings));
    v->addStretch();
    return PageLook::scrolled(page);
}

} // namespace ombry
