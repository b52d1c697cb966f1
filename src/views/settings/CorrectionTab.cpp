// The tab "Correction et traduction".
#include "views/settings/SettingsPage.h"

#include "correction/Translator.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/HotkeyMonitor.h"
#include "dictation/DictationController.h"
#include "engines/LocalEngine.h"
#include "views/common/Components.h"
#include "views/common/PageLook.h"
#include "views/common/Switch.h"
#include "views/settings/SettingsControls.h"
#include "views/shell/Navigation.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QMenu>
#include <QVBoxLayout>

namespace ombry {

using namespace settings_controls;

QWidget* SettingsPage::correction() {
    auto* page = new QWidget;
    auto* v = column(page);

    QVBoxLayout* c1 = addCard(v, QStringLiteral("Relecture"));
    addSwitch(c1, "languageToolSwitch", settings_, &AppSettings::useLanguageTool,
              &AppSettings::setUseLanguageTool, QStringLiteral("LanguageTool"), QString());
    addSwitch(c1, "localReviewSwitch", settings_, &AppSettings::correctorUsesLocalModel,
              &AppSettings::setCorrectorUsesLocalModel, QStringLiteral("IA locale"), QString());
    localReviewNote_ =
        text(QStringLiteral("non disponible sur cet ordinateur (modèle local requis)"), "bad");
    localReviewNote_->setVisible(!localModelAvailable_);
    c1->addWidget(localReviewNote_);
    c1->addWidget(text(QStringLiteral("LanguageTool vérifie le texte en ligne, gratuitement. "
                                      "IA locale relit en plus, directement sur ton ordinateur."),
                       "rowDetail"));

    QVBoxLayout* c2 = addCard(v, QStringLiteral("Correction du texte sélectionné"));
    QCheckBox* shortcut = toggle("correctionShortcutSwitch", settings_.correctionShortcut());
    connect(shortcut, &QCheckBox::toggled, this, [this](bool on) {
        settings_.setCorrectionShortcut(on);
        controller_.hotkey().refresh();
    });
    auto* recorderBox = new QWidget;
    auto* rh = new QHBoxLayout(recorderBox);
    rh->setContentsMargins(0, 0, 0, 0);
    rh->addWidget(new ShortcutRecorder(settings_, controller_));
    rh->addWidget(shortcut);
    c2->addWidget(row(QStringLiteral("Raccourci"), QString(), recorderBox));
    QCheckBox* twice = toggle("doubleCopySwitch", settings_.correctionDoubleCopy());
    connect(twice, &QCheckBox::toggled, this, [this](bool on) {
        settings_.setCorrectionDoubleCopy(on);
        controller_.hotkey().refresh(); // the shortcut is taken from others only without it
    });
    c2->addWidget(row(QStringLiteral("Ctrl+C deux fois"), QString(), twice));

    QVBoxLayout* c3 = addCard(v, QStringLiteral("Ce que la correction peut changer"));
    auto* chips = new QHBoxLayout;
    chips->setSpacing(8);
    for (int option : CorrectionScope::options()) {
        auto* chip = new QPushButton(CorrectionScope::label(option));
        chip->setObjectName(QStringLiteral("chip"));
        chip->setProperty("option", option);
        chip->setCheckable(true);
        chip->setChecked(settings_.correctionScope() & option);
        connect(chip, &QPushButton::toggled, this, [this, option](bool on) {
            const int scope = settings_.correctionScope();
            settings_.setCorrectionScope(on ? (scope | option) : (scope & ~option));
        });
        chips->addWidget(chip);
    }
    chips->addStretch();
    c3->addLayout(chips);

    QVBoxLayout* c4 = addCard(v, QStringLiteral("Traduire"));
    c4->addWidget(row(QStringLiteral("Traduire la sélection"),
                      QStringLiteral("Appuie trois fois sur Ctrl+C"), nullptr));
    c4->addWidget(row(QStringLiteral("Traduire une dictée"),
                      QStringLiteral("Tiens Maj en appuyant sur ta touche de dictée"), nullptr));
    auto* target = new QPushButton(SM::translateMenuTitle(settings_.translateTarget()));
    target->setObjectName(QStringLiteral("translateTarget"));
    auto* targetMenu = new QMenu(target);
    for (const auto& [name, code] : Translator::codes()) {
        Q_UNUSED(code);
        QAction* a = targetMenu->addAction(name);
        connect(a, &QAction::triggered, this,
                [this, n = name] { settings_.setTranslateTarget(n); });
    }
    target->setMenu(targetMenu);
    connect(&settings_, &AppSettings::translateTargetChanged, target, [this, target] {
        target->setText(SM::translateMenuTitle(settings_.translateTarget()));
    });
    c4->addWidget(row(QStringLiteral("Langue de traduction"), QString(), target));

    QVBoxLayout* c5 = addCard(v, QStringLiteral("Toujours traduire mes dictées dans ces applis"));
    const QList<SM::AppEntry> apps = SM::dictatedApps(Store::shared().dictations());
    if (apps.isEmpty())
        c5->addWidget(
            text(QStringLiteral("Dicte une première fois dans une appli pour la voir ici."),
                 "secondary"));
    for (const SM::AppEntry& app : apps) {
        QCheckBox* on =
            toggle("translateAppSwitch", settings_.translateApps().contains(app.bundleID));
        on->setProperty("bundleID", app.bundleID);
        connect(on, &QCheckBox::toggled, this, [this, id = app.bundleID](bool checked) {
            settings_.setTranslateApps(SM::toggledApps(settings_.translateApps(), id, checked));
        });
        c5->addWidget(row(app.name, app.bundleID, on));
    }
    v->addStretch();
    return PageLook::scrolled(page);
}

} // namespace ombry
