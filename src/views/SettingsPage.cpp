#include "views/SettingsPage.h"

#include "audio/Microphones.h"
#include "correction/Translator.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/DeviceProfile.h"
#include "desktop/HotkeyMonitor.h"
#include "desktop/Log.h"
#include "desktop/LoginItem.h"
#include "dictation/DictationController.h"
#include "engines/LocalEngine.h"
#include "engines/LocalSpeech.h"
#include "online/Credits.h"
#include "online/CreditsConfig.h"
#include "online/OmbryAI.h"
#include "platform/Platform.h"
#include "views/Components.h"
#include "views/Navigation.h"
#include "views/PageLook.h"
#include "views/Switch.h"
#include "views/ViewStyle.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPointer>
#include <QProcess>
#include <QSpinBox>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QTimer>
#include <QVBoxLayout>
#include <functional>

namespace ombry {

using namespace Components;
namespace SM = SettingsModel;

// ---------------------------------------------------------------------------------------------
// Shortcut recorder

ShortcutRecorder::ShortcutRecorder(AppSettings& settings, DictationController& controller,
                                   QWidget* parent)
    : QPushButton(parent), settings_(settings), controller_(controller) {
    setObjectName(QStringLiteral("shortcutRecorder"));
    setFocusPolicy(Qt::StrongFocus);
    showLabel();
    connect(this, &QPushButton::clicked, this, [this] { arm(!armed_); });
    connect(&settings_, &AppSettings::correctionLabelChanged, this, [this] { showLabel(); });
}

ShortcutRecorder::~ShortcutRecorder() {
    if (armed_) controller_.hotkey().setRecording(false);
}

void ShortcutRecorder::showLabel() {
    setText(armed_ ? QStringLiteral("Tape le raccourci…") : settings_.correctionLabel());
}

void ShortcutRecorder::arm(bool on) {
    if (armed_ == on) return;
    armed_ = on;
    controller_.hotkey().setRecording(on);
    if (on) setFocus(Qt::OtherFocusReason);
    showLabel();
}

void ShortcutRecorder::keyPressEvent(QKeyEvent* event) {
    if (!armed_) {
        QPushButton::keyPressEvent(event);
        return;
    }
    if (event->key() == Qt::Key_Escape) {
        arm(false);
        return;
    }
    const std::optional<SM::Shortcut> s = SM::shortcutFromQt(event->key(), event->modifiers());
    if (!s) return; // a lone modifier, or a key that cannot be a shortcut: keep listening
    settings_.setCorrectionKeyCode(s->keyCode);
    settings_.setCorrectionModifiers(s->modifiers);
    settings_.setCorrectionLabel(s->label);
    arm(false);
    controller_.hotkey().refresh();
}

void ShortcutRecorder::focusOutEvent(QFocusEvent* event) {
    arm(false);
    QPushButton::focusOutEvent(event);
}

// ---------------------------------------------------------------------------------------------
// Helpers

namespace {

QCheckBox* toggle(const char* name, bool on) {
    auto* c = new Switch;
    c->setObjectName(QLatin1String(name));
    c->setChecked(on);
    return c;
}

template <class E> QComboBox* picker(const char* name, E current) {
    auto* box = new Picker;
    box->setObjectName(QLatin1String(name));
    for (E v : allCases<E>())
        box->addItem(label(v), rawValue(v));
    box->setCurrentIndex(int(allCases<E>().indexOf(current)));
    return box;
}

QVBoxLayout* column(QWidget* w) {
    auto* v = new QVBoxLayout(w);
    v->setContentsMargins(0, 0, 0, 0);
    v->setSpacing(14);
    return v;
}

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

// ---------------------------------------------------------------------------------------------
// Page

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

// --- Général -------------------------------------------------------------------------------

QWidget* SettingsPage::general() {
    auto* page = new QWidget;
    auto* v = column(page);

    QVBoxLayout* c1 = nullptr;
    v->addWidget(card(&c1));
    c1->addWidget(sectionTitle(QStringLiteral("Pour dicter")));
    QComboBox* key = picker<DictationKey>("keyPicker", settings_.key());
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
    QComboBox* lang = picker<Language>("languagePicker", settings_.language());
    connect(lang, &QComboBox::activated, this,
            [this](int i) { settings_.setLanguage(allCases<Language>().at(i)); });
    c1->addWidget(row(QStringLiteral("Langue"), QString(), lang));

    QVBoxLayout* c2 = nullptr;
    v->addWidget(card(&c2));
    c2->addWidget(sectionTitle(QStringLiteral("L'appli")));
    QCheckBox* sounds = toggle("soundsSwitch", settings_.sounds());
    connect(sounds, &QCheckBox::toggled, &settings_, &AppSettings::setSounds);
    c2->addWidget(row(QStringLiteral("Sons de début et de fin"), QString(), sounds));
    QCheckBox* restore = toggle("restoreClipboardSwitch", settings_.restoreClipboard());
    connect(restore, &QCheckBox::toggled, &settings_, &AppSettings::setRestoreClipboard);
    c2->addWidget(row(QStringLiteral("Remettre mon presse-papiers"),
                      QStringLiteral("Ce que tu avais copié revient après chaque dictée"),
                      restore));
    QComboBox* theme = picker<Theme>("themePicker", settings_.theme());
    connect(theme, &QComboBox::activated, this,
            [this](int i) { settings_.setTheme(allCases<Theme>().at(i)); });
    c2->addWidget(row(QStringLiteral("Thème"), QString(), theme));
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

// --- Dictée --------------------------------------------------------------------------------

void SettingsPage::refreshEngines() {
    if (localReviewNote_) localReviewNote_->setVisible(!localModelAvailable_);
    if (!sttLabel_) return;
    const bool own = OmbryAI::usesOwnKey();
    sttLabel_->setText(
        SM::sttLabel(settings_.transcriptionEngine(), own, settings_.deepgramModel()));
    rewriteLabel_->setText(SM::rewriteLabel(settings_.rewriteEngine(), own, localModelAvailable_,
                                            settings_.openRouterModel()));
    costLabel_->setText(SM::costText(OmbryAI::usesCredits(), settings_.transcriptionEngine(),
                                     settings_.rewriteEngine(), settings_.deepgramModel(),
                                     settings_.openRouterModel()));
}

QWidget* SettingsPage::dictation() {
    auto* page = new QWidget;
    auto* v = column(page);

    // The engine card: what transcribes, what cleans up, and what it costs.
    QVBoxLayout* e = nullptr;
    v->addWidget(card(&e));
    e->addWidget(text(QStringLiteral("Moteurs"), "cardTitle"));
    const ViewStyle::Colors colors = ViewStyle::colors(ViewStyle::darkNow());
    auto engineRow = [&](const QString& icon, const QString& title, QLabel* value,
                         QPushButton* change) {
        auto* w = new QWidget;
        auto* h = new QHBoxLayout(w);
        h->setContentsMargins(0, 0, 0, 0);
        h->addWidget(symbol(icon, colors.accent, 18));
        h->addWidget(text(title), 0);
        h->addStretch();
        value->setObjectName(QStringLiteral("secondary"));
        h->addWidget(value);
        if (change) h->addWidget(change);
        e->addWidget(w);
    };
    sttLabel_ = new QLabel;
    sttLabel_->setProperty("role", QStringLiteral("stt"));
    rewriteLabel_ = new QLabel;
    costLabel_ = new QLabel;
    auto* changeStt = new QPushButton(QStringLiteral("Changer"));
    changeStt->setObjectName(QStringLiteral("changeStt"));
    auto* changeRewrite = new QPushButton(QStringLiteral("Changer"));
    changeRewrite->setObjectName(QStringLiteral("changeRewrite"));
    engineRow(QStringLiteral("waveform"), QStringLiteral("Transcription"), sttLabel_, changeStt);
    engineRow(QStringLiteral("checkmark.seal"), QStringLiteral("Reformulation"), rewriteLabel_,
              changeRewrite);
    engineRow(QStringLiteral("eurosign"), QStringLiteral("Coût estimé"), costLabel_, nullptr);
    connect(changeStt, &QPushButton::clicked, this, [this, changeStt] {
        QMenu menu(this);
        menu.setObjectName(QStringLiteral("sttMenu"));
        for (TranscriptionEngine t : allCases<TranscriptionEngine>()) {
            QAction* a = menu.addAction(SM::speechChoice(t, OmbryAI::usesOwnKey()));
            a->setCheckable(true);
            a->setChecked(t == settings_.transcriptionEngine());
            connect(a, &QAction::triggered, this,
                    [this, t] { settings_.setTranscriptionEngine(t); });
        }
        menu.exec(changeStt->mapToGlobal(QPoint(0, changeStt->height())));
    });
    connect(changeRewrite, &QPushButton::clicked, this, [this, changeRewrite] {
        QMenu menu(this);
        menu.setObjectName(QStringLiteral("rewriteMenu"));
        for (RewriteEngine r : allCases<RewriteEngine>()) {
            QAction* a = menu.addAction(SM::cleanupChoice(r, OmbryAI::usesOwnKey()));
            a->setCheckable(true);
            a->setChecked(r == settings_.rewriteEngine());
            connect(a, &QAction::triggered, this, [this, r] { settings_.setRewriteEngine(r); });
        }
        menu.exec(changeRewrite->mapToGlobal(QPoint(0, changeRewrite->height())));
    });
    for (auto signal : {&AppSettings::transcriptionEngineChanged,
                        &AppSettings::rewriteEngineChanged, &AppSettings::ownKeyModeChanged,
                        &AppSettings::deepgramModelChanged, &AppSettings::openRouterModelChanged})
        connect(&settings_, signal, this, &SettingsPage::refreshEngines);
    connect(&KeyStore::shared(), &KeyStore::keysChanged, this, &SettingsPage::refreshEngines);
    connect(&Credits::shared(), &Credits::exhaustedChanged, this, &SettingsPage::refreshEngines);
    refreshEngines();

    // The models of the own keys: what Deepgram transcribes with, what OpenRouter rewrites with.
    auto modelPicker = [&](const char* name, const QList<Model>& table, const QString& current) {
        auto* box = new Picker;
        box->setObjectName(QLatin1String(name));
        for (const Model& m : table)
            box->addItem(m.note.isEmpty() ? m.name : QStringLiteral("%1 · %2").arg(m.name, m.note),
                         m.id);
        const int at = box->findData(current);
        if (at < 0) box->addItem(current, current); // a model of the user's own, kept
        box->setCurrentIndex(at < 0 ? box->count() - 1 : at);
        return box;
    };
    Picker* deepgram = modelPicker("deepgramModelPicker", AppSettings::deepgramModels(),
                                   settings_.deepgramModel());
    connect(deepgram, &QComboBox::activated, this, [this, deepgram](int i) {
        settings_.setDeepgramModel(deepgram->itemData(i).toString());
    });
    e->addWidget(row(QStringLiteral("Modèle Deepgram"),
                     QStringLiteral("Avec ta propre clé Deepgram"), deepgram));
    Picker* openRouter = modelPicker("openRouterModelPicker", AppSettings::openRouterModels(),
                                     settings_.openRouterModel());
    connect(openRouter, &QComboBox::activated, this, [this, openRouter](int i) {
        settings_.setOpenRouterModel(openRouter->itemData(i).toString());
    });
    e->addWidget(row(QStringLiteral("Modèle OpenRouter"),
                     QStringLiteral("Avec ta propre clé OpenRouter, pour la reformulation"),
                     openRouter));

    QVBoxLayout* c = nullptr;
    v->addWidget(card(&c));
    QCheckBox* live = toggle("livePreviewSwitch", settings_.livePreview());
    connect(live, &QCheckBox::toggled, &settings_, &AppSettings::setLivePreview);
    c->addWidget(row(QStringLiteral("Mots en direct"),
                     QStringLiteral("Affiche ce que tu dis au fur et à mesure"), live));
    QCheckBox* tone = toggle("adaptToneSwitch", settings_.adaptTone());
    connect(tone, &QCheckBox::toggled, &settings_, &AppSettings::setAdaptTone);
    c->addWidget(row(QStringLiteral("Ton adapté à l'appli"),
                     QStringLiteral("Familier sur Discord, soigné dans ton courriel"), tone));
    QCheckBox* commands = toggle("voiceCommandsSwitch", settings_.voiceCommands());
    connect(commands, &QCheckBox::toggled, &settings_, &AppSettings::setVoiceCommands);
    c->addWidget(row(QStringLiteral("Mode commande"),
                     QStringLiteral("Sélectionne un texte, puis dicte ce qu'il faut en faire"),
                     commands));
    QComboBox* punct = picker<PunctuationLevel>("punctuationPicker", settings_.punctuation());
    connect(punct, &QComboBox::activated, this,
            [this](int i) { settings_.setPunctuation(allCases<PunctuationLevel>().at(i)); });
    c->addWidget(row(QStringLiteral("Ponctuation"),
                     QStringLiteral("Pour la dictée et pour la correction"), punct));
    c->addWidget(row(QStringLiteral("Lire la sélection à voix haute"), QString(),
                     text(QStringLiteral("Ctrl+Alt+R"), "secondary")));
    v->addStretch();
    return PageLook::scrolled(page);
}

// --- Correction et traduction --------------------------------------------------------------

QWidget* SettingsPage::correction() {
    auto* page = new QWidget;
    auto* v = column(page);

    QVBoxLayout* c1 = nullptr;
    v->addWidget(card(&c1));
    c1->addWidget(sectionTitle(QStringLiteral("Relecture")));
    QCheckBox* lt = toggle("languageToolSwitch", settings_.useLanguageTool());
    connect(lt, &QCheckBox::toggled, &settings_, &AppSettings::setUseLanguageTool);
    c1->addWidget(row(QStringLiteral("LanguageTool"), QString(), lt));
    QCheckBox* local = toggle("localReviewSwitch", settings_.correctorUsesLocalModel());
    connect(local, &QCheckBox::toggled, &settings_, &AppSettings::setCorrectorUsesLocalModel);
    c1->addWidget(row(QStringLiteral("IA locale"), QString(), local));
    localReviewNote_ =
        text(QStringLiteral("non disponible sur cet ordinateur (modèle local requis)"), "bad");
    localReviewNote_->setVisible(!localModelAvailable_);
    c1->addWidget(localReviewNote_);
    c1->addWidget(text(QStringLiteral("LanguageTool vérifie le texte en ligne, gratuitement. "
                                      "IA locale relit en plus, directement sur ton ordinateur."),
                       "rowDetail"));

    QVBoxLayout* c2 = nullptr;
    v->addWidget(card(&c2));
    c2->addWidget(sectionTitle(QStringLiteral("Correction du texte sélectionné")));
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

    QVBoxLayout* c3 = nullptr;
    v->addWidget(card(&c3));
    c3->addWidget(sectionTitle(QStringLiteral("Ce que la correction peut changer")));
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

    QVBoxLayout* c4 = nullptr;
    v->addWidget(card(&c4));
    c4->addWidget(sectionTitle(QStringLiteral("Traduire")));
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

    QVBoxLayout* c5 = nullptr;
    v->addWidget(card(&c5));
    c5->addWidget(sectionTitle(QStringLiteral("Toujours traduire mes dictées dans ces applis")));
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

// --- Compte --------------------------------------------------------------------------------

QWidget* SettingsPage::account() {
    auto* page = new QWidget;
    auto* v = column(page);
    Credits& credits = Credits::shared();

    QVBoxLayout* c = nullptr;
    v->addWidget(card(&c));
    c->addWidget(text(QStringLiteral("Crédits Ombry"), "cardTitle"));
    QLabel* balance = text(SM::balanceText(credits.balance()), "bigNumber");
    balance->setProperty("role", QStringLiteral("balance"));
    c->addWidget(balance);
    c->addWidget(text(QStringLiteral("1 crédit ≈ 5 min de dictée · partagés avec Ombry Lisse"),
                      "secondary"));
    QLabel* exhausted =
        text(QStringLiteral("Plus de crédits : la dictée continue avec Local, sur l'ordinateur."),
             "bad");
    exhausted->setVisible(credits.exhausted());
    c->addWidget(exhausted);
    auto* packs = new QHBoxLayout;
    for (const CreditsConfig::Pack& pack : CreditsConfig::packs()) {
        auto* b =
            new QPushButton(QStringLiteral("%1 crédits · %2").arg(pack.credits).arg(pack.price));
        b->setObjectName(QStringLiteral("primary"));
        connect(b, &QPushButton::clicked, this, [pack] {
            const QUrl page = CreditsConfig::packURL(pack);
            if (const std::optional<QUrl> url = CreditsConfig::checkoutURL(page.toString()))
                Platform::current().browser().open(*url);
        });
        packs->addWidget(b);
    }
    auto* refresh = new QPushButton(QStringLiteral("Actualiser"));
    connect(refresh, &QPushButton::clicked, this, [] { Credits::shared().refresh(); });
    packs->addWidget(refresh);
    packs->addStretch();
    c->addLayout(packs);

    auto* linkRow = new QHBoxLayout;
    QLabel* linked = text(QString(), "secondary");
    auto* link = new QPushButton(QStringLiteral("Relier à ton compte Ombry"));
    link->setObjectName(QStringLiteral("linkButton"));
    connect(link, &QPushButton::clicked, this, [] { Credits::shared().link(); });
    linkRow->addWidget(linked);
    linkRow->addWidget(link);
    linkRow->addStretch();
    c->addLayout(linkRow);
    auto showCredits = [balance, exhausted, linked, link] {
        Credits& cr = Credits::shared();
        balance->setText(SM::balanceText(cr.balance()));
        exhausted->setVisible(cr.exhausted());
        linked->setVisible(bool(cr.linkedEmail()));
        if (cr.linkedEmail()) linked->setText(QStringLiteral("Relié à %1").arg(*cr.linkedEmail()));
        link->setVisible(!cr.linkedEmail());
        link->setText(cr.linking() ? QStringLiteral("En attente du site…")
                                   : QStringLiteral("Relier à ton compte Ombry"));
        link->setEnabled(!cr.linking());
    };
    for (auto signal : {&Credits::balanceChanged, &Credits::exhaustedChanged,
                        &Credits::linkedEmailChanged, &Credits::linkingChanged})
        connect(&credits, signal, page, showCredits);
    showCredits();
    if (!snapshotMode()) QTimer::singleShot(0, this, [] { Credits::shared().refresh(); });

    QVBoxLayout* k = nullptr;
    v->addWidget(card(&k));
    QCheckBox* own = toggle("ownKeySwitch", settings_.ownKeyMode());
    connect(own, &QCheckBox::toggled, &settings_, &AppSettings::setOwnKeyMode);
    k->addWidget(row(QStringLiteral("Mode avancé"),
                     QStringLiteral("Utiliser mes propres clés OpenRouter et Deepgram"), own));
    auto* keyRows = new QWidget;
    auto* kr = new QVBoxLayout(keyRows);
    kr->setContentsMargins(0, 0, 0, 0);
    for (APIService service : {APIService::OpenRouter, APIService::Deepgram}) {
        const QString name = service == APIService::OpenRouter ? QStringLiteral("OpenRouter")
                                                               : QStringLiteral("Deepgram");
        auto* w = new QWidget;
        w->setProperty("service", rawValue(service));
        auto* h = new QHBoxLayout(w);
        h->setContentsMargins(0, 0, 0, 0);
        h->addWidget(text(name));
        QLabel* state = text(QString(), "secondary");
        state->setProperty("role", QStringLiteral("keyState"));
        h->addWidget(state, 1);
        auto* field = new QLineEdit;
        field->setEchoMode(QLineEdit::Password);
        field->setPlaceholderText(QStringLiteral("Clé %1").arg(name));
        field->setVisible(false);
        field->setMinimumWidth(260);
        auto* save = new QPushButton(QStringLiteral("Enregistrer"));
        save->setObjectName(QStringLiteral("primary"));
        save->setVisible(false);
        auto* edit = new QPushButton(QStringLiteral("Modifier"));
        h->addWidget(field);
        h->addWidget(save);
        h->addWidget(edit);
        auto showKey = [state, service] {
            state->setText(KeyStore::shared().key(service) ? QStringLiteral("••••")
                                                           : QStringLiteral("Absente"));
        };
        showKey();
        connect(&KeyStore::shared(), &KeyStore::keysChanged, state, showKey);
        connect(edit, &QPushButton::clicked, w, [field, save, edit] {
            field->setVisible(true);
            save->setVisible(true);
            edit->setVisible(false);
            field->setFocus();
        });
        auto commit = [field, save, edit, service] {
            KeyStore::shared().save(field->text(), service);
            field->clear();
            field->setVisible(false);
            save->setVisible(false);
            edit->setVisible(true);
        };
        connect(save, &QPushButton::clicked, w, commit);
        connect(field, &QLineEdit::returnPressed, w, commit);
        kr->addWidget(w);
    }
    keyRows->setVisible(settings_.ownKeyMode());
    connect(&settings_, &AppSettings::ownKeyModeChanged, keyRows,
            [this, keyRows] { keyRows->setVisible(settings_.ownKeyMode()); });
    k->addWidget(keyRows);
    v->addStretch();
    return PageLook::scrolled(page);
}

// --- Autorisations -------------------------------------------------------------------------

QWidget* SettingsPage::permissions() {
    auto* page = new QWidget;
    auto* v = column(page);
    QVBoxLayout* c = nullptr;
    v->addWidget(card(&c));
    c->addWidget(text(QStringLiteral("Autorisations"), "cardTitle"));
    c->addWidget(text(QStringLiteral("Ombry Voice entend ta touche de dictée par le serveur X et "
                                     "ton micro par le serveur de son (PulseAudio ou PipeWire)."),
                      "secondary"));
    const bool soundServer = Platform::current().audio().microphoneAvailable();
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

// --- Avancé --------------------------------------------------------------------------------

QWidget* SettingsPage::advanced() {
    auto* page = new QWidget;
    auto* v = column(page);

    QVBoxLayout* c1 = nullptr;
    v->addWidget(card(&c1));
    c1->addWidget(sectionTitle(QStringLiteral("Performances")));
    QComboBox* perf = picker<PerformanceMode>("performancePicker", settings_.performanceMode());
    QLabel* mode = text(QString(), "rowDetail");
    auto showMode = [mode] {
        mode->setText(DeviceProfile::lightVisuals()
                          ? QStringLiteral("Mode léger : toutes les fonctions sont là, avec moins "
                                           "d'effets de verre et d'animations.")
                          : QStringLiteral("Mode complet : effets de verre et animations au "
                                           "maximum."));
    };
    connect(perf, &QComboBox::activated, this, [this, showMode](int i) {
        settings_.setPerformanceMode(allCases<PerformanceMode>().at(i));
        showMode();
    });
    showMode();
    c1->addWidget(row(QStringLiteral("Effets visuels"), QString(), perf));
    c1->addWidget(mode);
    QLabel* machine = text(DeviceProfile::summary(), "secondary");
    machine->setWordWrap(false);
    c1->addWidget(row(QStringLiteral("Ton ordinateur"), QString(), machine));

    QVBoxLayout* c2 = nullptr;
    v->addWidget(card(&c2));
    c2->addWidget(sectionTitle(QStringLiteral("Statistiques")));
    auto* wpm = new QSpinBox;
    wpm->setObjectName(QStringLiteral("typingWPM"));
    wpm->setRange(5, 250);
    wpm->setButtonSymbols(QAbstractSpinBox::NoButtons);
    wpm->setAlignment(Qt::AlignRight);
    wpm->setSuffix(QStringLiteral(" mots/min"));
    wpm->setValue(settings_.typingWPM());
    connect(wpm, &QSpinBox::valueChanged, &settings_, &AppSettings::setTypingWPM);
    c2->addWidget(row(QStringLiteral("Ta vitesse de frappe"),
                      QStringLiteral("Sert à calculer le temps gagné"), wpm));

    QVBoxLayout* c3 = nullptr;
    v->addWidget(card(&c3));
    c3->addWidget(sectionTitle(QStringLiteral("Clavier et moteurs locaux")));
    QCheckBox* posted = toggle("acceptPostedKeysSwitch", settings_.acceptPostedKeys());
    connect(posted, &QCheckBox::toggled, &settings_, &AppSettings::setAcceptPostedKeys);
    c3->addWidget(row(QStringLiteral("Bureau à distance"),
                      QStringLiteral("Compter les touches envoyées par un autre programme (bureau "
                                     "à distance, VNC)"),
                      posted));
    auto server = [&](const char* name, const QString& title, const QString& detail,
                      const QString& value, const std::function<void(const QString&)>& set) {
        auto* field = new QLineEdit(value);
        field->setObjectName(QLatin1String(name));
        field->setMinimumWidth(260);
        connect(field, &QLineEdit::editingFinished, this,
                [field, set] { set(field->text().trimmed()); });
        // "Tester" asks the address in the field whether a server answers there; the answer
        // comes back later, beside the button, and the page stays usable meanwhile.
        auto* test = new QPushButton(QStringLiteral("Tester"));
        test->setObjectName(QLatin1String(name) + QStringLiteral("Test"));
        auto* result = text(QString(), "secondary");
        result->setObjectName(QLatin1String(name) + QStringLiteral("Result"));
        result->setWordWrap(false);
        connect(test, &QPushButton::clicked, this, [field, test, result, set] {
            const QString address = field->text().trimmed();
            set(address);
            if (address.isEmpty()) {
                result->setText(QStringLiteral("Aucune adresse"));
                return;
            }
            test->setEnabled(false);
            result->setText(QStringLiteral("Test…"));
            [](QString address, QPointer<QPushButton> test,
               QPointer<QLabel> result) -> QCoro::Task<void> {
                const bool ok = co_await LocalServers::answers(address);
                if (test) test->setEnabled(true);
                if (result)
                    result->setText(ok ? QStringLiteral("Le serveur répond")
                                       : QStringLiteral("Le serveur ne répond pas"));
            }(address, test, result);
        });
        auto* control = new QWidget;
        auto* h = new QHBoxLayout(control);
        h->setContentsMargins(0, 0, 0, 0);
        h->addWidget(result);
        h->addWidget(field);
        h->addWidget(test);
        c3->addWidget(row(title, detail, control));
    };
    server("localSpeechServer", QStringLiteral("Serveur de transcription local"),
           QStringLiteral("Adresse d'un serveur compatible Whisper ; vide : pocketsphinx"),
           settings_.localSpeechServer(),
           [this](const QString& v) { settings_.setLocalSpeechServer(v); });
    server(
        "localModelServer", QStringLiteral("Serveur de modèle local"),
        QStringLiteral("Adresse d'un serveur de discussion compatible OpenAI (llama.cpp, Ollama)"),
        settings_.localModelServer(),
        [this](const QString& v) { settings_.setLocalModelServer(v); });

    QVBoxLayout* c4 = nullptr;
    v->addWidget(card(&c4));
    c4->addWidget(sectionTitle(QStringLiteral("Aide")));
    auto* exportLog = new QPushButton(QStringLiteral("Exporter…"));
    exportLog->setObjectName(QStringLiteral("exportLog"));
    connect(exportLog, &QPushButton::clicked, this, [this] {
        const QString path = askLogPath ? askLogPath(this) : QString();
        if (path.isEmpty()) return;
        Log::sync();
        QFile::remove(path);
        QFile::copy(Log::url(), path);
    });
    c4->addWidget(row(QStringLiteral("Journal pour le support"),
                      QStringLiteral("Sans aucun texte dicté ni aucune clé"), exportLog));
    auto* erase = new QPushButton(QStringLiteral("Tout effacer…"));
    erase->setObjectName(QStringLiteral("eraseButton"));
    connect(erase, &QPushButton::clicked, this, [this, erase] {
        if (!confirmErase || !confirmErase(this)) return;
        Store::shared().eraseEverything();
        erase->setText(QStringLiteral("Effacé"));
        erase->setEnabled(false);
    });
    c4->addWidget(row(
        QStringLiteral("Effacer mes données"),
        QStringLiteral("Historique, dictionnaire, réunions et audios de cet ordinateur"), erase));

    v->addWidget(
        text(QStringLiteral("Ombry Voice %1").arg(QStringLiteral(OMBRY_VERSION)), "secondary"), 0,
        Qt::AlignHCenter);
    v->addStretch();
    return PageLook::scrolled(page);
}

} // namespace ombry
