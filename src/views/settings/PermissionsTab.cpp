// The tab "Autorisations": what the program can reach on this desktop.
#include "views/settings/SettingsPage.h"

#include "desktop/HotkeyMonitor.h"
#include "desktop/SessionGuide.h"
#include "dictation/DictationController.h"
#include "platform/Platform.h"
#include "views/common/Components.h"
#include "views/common/PageLook.h"
#include "views/settings/SettingsControls.h"
#include "views/shell/Navigation.h"

#include <QApplication>
#include <QClipboard>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QPointer>
#include <QProcess>
#include <QStandardPaths>
#include <QTimer>
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
    const bool wayland =
        Platform::current().session().offer().display == SessionOffer::Display::Wayland;
    c->addWidget(text(wayland ? QStringLiteral("Ombry Voice entend ta touche de dictée par les "
                                               "raccourcis du bureau et ton micro par le "
                                               "serveur de son (PulseAudio ou PipeWire).")
                              : QStringLiteral("Ombry Voice entend ta touche de dictée par le "
                                               "serveur X et ton micro par le serveur de son "
                                               "(PulseAudio ou PipeWire)."),
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
                  keys && wayland ? QStringLiteral("Raccourcis du bureau (carte « Ce bureau »)")
                  : keys ? QStringLiteral("Clavier global (XInput 2) et touches envoyées (XTest)")
                  : keyboard.reason().isEmpty()
                      ? QStringLiteral("Le clavier global n'est pas disponible : il faut une "
                                       "session X11.")
                      : keyboard.reason(),
                  false);
    const bool output = Platform::current().audio().outputCaptureAvailable();
    permissionRow(QStringLiteral("Audio système (sous-titres d'appel)"), output,
                  output ? QStringLiteral("Le son de tes applis, pris sur la sortie du serveur de "
                                          "son")
                         : QStringLiteral("Le serveur de son n'a pas de sortie dont le son puisse "
                                          "être écouté."),
                  bool(soundSettings));
    v->addWidget(desktopCard());
    v->addStretch();
    return PageLook::scrolled(page);
}

// "Ce bureau": the road of each service on this desktop, what to do once, the lines to copy,
// what does not work here, and a test of the dictation key.
QWidget* SettingsPage::desktopCard() {
    QVBoxLayout* c = nullptr;
    QFrame* frame = card(&c);
    const GuideInput in = SessionStatus::shared().guideInput();
    c->addWidget(text(QStringLiteral("Ce bureau"), "cardTitle"));
    c->addWidget(text(describeForJournal(in.offer, in.roads)
                          .section(QLatin1Char(','), 0, 0)
                          .remove(QStringLiteral("bureau: ")),
                      "secondary"));
    for (const GuideRow& r : sessionGuide(in)) {
        QLabel* state = text(r.road, r.works ? "ok" : "bad");
        c->addWidget(row(r.service, r.todo, state));
        if (r.lines.isEmpty()) continue;
        // The lines as text to select or copy, in the page's own colours.
        const QString block = r.lines.join(QLatin1Char('\n'));
        QLabel* lines = text(block, "secondary");
        lines->setTextInteractionFlags(Qt::TextSelectableByMouse);
        lines->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        auto* copy = new QPushButton(QStringLiteral("Copier"));
        connect(copy, &QPushButton::clicked, this,
                [block] { QApplication::clipboard()->setText(block); });
        auto* h = new QHBoxLayout;
        h->addWidget(lines, 1);
        h->addWidget(copy, 0, Qt::AlignTop);
        c->addLayout(h);
    }
    if (in.offer.display == SessionOffer::Display::Wayland)
        addSwitch(c, "readKeyboardDevices", settings_, &AppSettings::readKeyboardDevices,
                  &AppSettings::setReadKeyboardDevices,
                  QStringLiteral("Lire le clavier directement"),
                  QStringLiteral("Pour maintenir une touche seule (Alt Gr, Ctrl droite). Il faut "
                                 "être membre du groupe input ; attention : tout programme lancé "
                                 "par toi peut alors lire chaque touche tapée."));
    if (in.offer.display == SessionOffer::Display::Wayland)
        addSwitch(c, "uinputKeys", settings_, &AppSettings::uinputKeys, &AppSettings::setUinputKeys,
                  QStringLiteral("Envoyer les touches par uinput"),
                  QStringLiteral("Quand le bureau n'offre aucun autre moyen. Il faut pouvoir "
                                 "écrire dans /dev/uinput (groupe input) ; attention : tout "
                                 "programme lancé par toi peut alors taper à ta place."));
    const QStringList missing = missingOnDesktop(in);
    if (!missing.isEmpty())
        c->addWidget(
            text(QStringLiteral("Ce qui ne marche pas ici : ") + missing.join(QLatin1Char(' ')),
                 "secondary"));
    // The test: the next press of the dictation key is shown here instead of dictating.
    auto* result = text(QString(), "secondary");
    auto* test = new QPushButton(QStringLiteral("Tester la touche"));
    test->setObjectName(QStringLiteral("keyTest"));
    QPointer<QLabel> label(result);
    connect(test, &QPushButton::clicked, this, [this, label] {
        HotkeyMonitor& hotkey = controller_.hotkey();
        label->setText(QStringLiteral("Appuie sur ta touche de dictée…"));
        hotkey.keyTest = [label, &hotkey](bool pressed) {
            if (!pressed) return;
            if (label) label->setText(QStringLiteral("Touche reçue."));
            hotkey.keyTest = nullptr;
        };
        QTimer::singleShot(10000, label, [label, &hotkey] {
            if (!hotkey.keyTest) return;
            hotkey.keyTest = nullptr;
            label->setText(QStringLiteral("Aucune touche reçue en 10 s."));
        });
    });
    c->addWidget(row(QStringLiteral("Essai"), QString(), test));
    c->addWidget(result);
    return frame;
}

} // namespace ombry
