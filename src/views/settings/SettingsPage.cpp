#include "views/settings/SettingsPage.h"

#include "audio/Microphones.h"
#include "data/Settings.h"
#include "desktop/HotkeyMonitor.h"
#include "desktop/LoginItem.h"
#include "dictation/DictationController.h"
#include "engines/LocalEngine.h"
#include "views/common/Components.h"
#include "views/common/KeyNames.h"
#include "views/common/PageLook.h"
#include "views/common/Switch.h"
#include "views/settings/SettingsControls.h"
#include "views/shell/Navigation.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPointer>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace ombry {

using namespace settings_controls;

SettingsPage::SettingsPage(AppSettings& settings, DictationController& controller, QWidget* parent)
    : QWidget(parent), settings_(settings), controller_(controller),
      tab_(SM::storedTab(settings.defaults())) {
    setObjectName(QStringLiteral("settingsPage"));
    confirmErase = [](QWidget* parent) {
        QMessageBox box(QMessageBox::Warning,
                        QStringLiteral("Effacer toutes les données de Ombry Voice ?"),
                        QStringLiteral("Effacer toutes les données de Ombry Voice ?"),
                        QMessageBox::NoButton, parent);
        box.setInformativeText(QStringLiteral("Historique, dictionnaire, raccourcis vocaux, "
                                              "réunions, audios et clés seront supprimés de cet "
                                              "ordinateur."));
        QPushButton* erase =
            box.addButton(QStringLiteral("Tout effacer"), QMessageBox::DestructiveRole);
        box.addButton(QStringLiteral("Annuler"), QMessageBox::RejectRole);
        box.exec();
        return box.clickedButton() == erase;
    };
    askLogPath = [](QWidget* parent) {
        return QFileDialog::getSaveFileName(parent, QStringLiteral("Journal pour le support"),
                                            QDir::homePath() + QStringLiteral("/journal.log"));
    };

    auto* v = column(this);
    v->addWidget(
        pageHeader(label(Page::Settings),
                   QStringLiteral("Tout se règle ici, et chaque choix compte tout de suite.")));
    auto* tabs = new QHBoxLayout;
    tabs->setSpacing(4);
    for (SM::Tab t : SM::allTabs()) {
        auto* b = new QPushButton(SM::label(t));
        b->setObjectName(QStringLiteral("tab"));
        b->setProperty("tab", SM::rawValue(t));
        b->setCheckable(true);
        connect(b, &QPushButton::clicked, this, [this, t] { setTab(t); });
        tabs->addWidget(b);
        tabButtons_ << b;
    }
    tabs->addStretch();
    v->addLayout(tabs);

    stack_ = new QStackedWidget;
    stack_->addWidget(general());
    stack_->addWidget(dictation());
    stack_->addWidget(correction());
    stack_->addWidget(account());
    stack_->addWidget(permissions());
    stack_->addWidget(advanced());
    v->addWidget(stack_, 1);
    setTab(tab_);

    // Whether the local model answers decides the label of the local clean-up.
    QPointer<SettingsPage> self(this);
    [](QPointer<SettingsPage> page) -> QCoro::Task<void> {
        const bool ok = co_await LocalModel::available();
        if (!page) co_return;
        page->localModelAvailable_ = ok;
        page->refreshEngines();
    }(self);
}

void SettingsPage::setTab(SM::Tab tab) {
    tab_ = tab;
    if (SM::storedTab(settings_.defaults()) != tab) SM::storeTab(settings_.defaults(), tab);
    stack_->setCurrentIndex(int(tab));
    for (int i = 0; i < tabButtons_.size(); ++i)
        tabButtons_[i]->setChecked(i == int(tab));
}

void SettingsPage::fillMicrophones(QComboBox* box) {
    const QSignalBlocker block(box);
    box->clear();
    box->addItem(QStringLiteral("Micro du système"), QString());
    int current = 0;
    for (const Microphones::Device& d : Microphones::all()) {
        box->addItem(d.name, d.uid);
        if (settings_.microphoneUID() == d.uid) current = box->count() - 1;
    }
    box->setCurrentIndex(current);
}

// The tab "Général".

QWidget* SettingsPage::general() {
    auto* page = new QWidget;
    auto* v = column(page);

    QVBoxLayout* c1 = addCard(v, QStringLiteral("Pour dicter"));
    QComboBox* key = picker("keyPicker", settings_.key(), keyLabel);
    connect(key, &QComboBox::activated, this, [this](int i) {
        settings_.setKey(allCases<DictationKey>().at(i));
        controller_.hotkey().restart();
    });
    c1->addWidget(row(QStringLiteral("Touche"),
                      QStringLiteral("Maintiens-la pour parler, tape une fois pour dicter sans "
                                     "les mains"),
                      key));
    auto* mic = new Picker;
    mic->setObjectName(QStringLiteral("micPicker"));
    mic->setMinimumWidth(220);
    fillMicrophones(mic);
    connect(mic, &QComboBox::activated, this, [this, mic](int i) {
        const QString uid = mic->itemData(i).toString();
        const std::optional<QString> chosen = uid.isEmpty() ? std::nullopt : std::optional(uid);
        if (chosen != settings_.microphoneUID()) settings_.setMicrophoneUID(chosen);
    });
    // Plugged in or out while the page is open: the list follows.
    connect(&Microphones::watcher(), &Microphones::Watcher::changed, mic,
            [this, mic] { fillMicrophones(mic); });
    c1->addWidget(row(QStringLiteral("Micro"), QString(), mic));
    addPicker(c1, "languagePicker", settings_, &AppSettings::language, &AppSettings::setLanguage,
              QStringLiteral("Langue"), QString());

    QVBoxLayout* c2 = addCard(v, QStringLiteral("L'appli"));
    addSwitch(c2, "soundsSwitch", settings_, &AppSettings::sounds, &AppSettings::setSounds,
              QStringLiteral("Sons de début et de fin"), QString());
    addSwitch(c2, "restoreClipboardSwitch", settings_, &AppSettings::restoreClipboard,
              &AppSettings::setRestoreClipboard, QStringLiteral("Remettre mon presse-papiers"),
              QStringLiteral("Ce que tu avais copié revient après chaque dictée"));
    addPicker(c2, "themePicker", settings_, &AppSettings::theme, &AppSettings::setTheme,
              QStringLiteral("Thème"), QString());
    QCheckBox* login = toggle("loginSwitch", LoginItem::isEnabled());
    connect(login, &QCheckBox::toggled, this, [](bool on) { LoginItem::set(on); });
    c2->addWidget(row(QStringLiteral("Lancer à l'ouverture de session"),
                      QStringLiteral("Ombry Voice démarre avec ta session, prêt à dicter"), login));

    auto* quit = new QPushButton(QStringLiteral("Quitter Ombry Voice"));
    quit->setObjectName(QStringLiteral("danger"));
    connect(quit, &QPushButton::clicked, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    v->addWidget(quit, 0, Qt::AlignLeft);
    v->addStretch();
    return PageLook::scrolled(page);
}

} // namespace ombry
