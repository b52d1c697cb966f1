// The tab "Dictée": the key, the microphone, the language, the engines and their cost.
#include "views/settings/SettingsPage.h"

#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "online/Credits.h"
#include "online/OmbryAI.h"
#include "views/common/Components.h"
#include "views/common/PageLook.h"
#include "views/common/Switch.h"
#include "views/common/ViewStyle.h"
#include "views/settings/SettingsControls.h"
#include "views/shell/Navigation.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QMenu>
#include <QVBoxLayout>

namespace ombry {

using namespace settings_controls;

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
    addSwitch(c, "livePreviewSwitch", settings_, &AppSettings::livePreview,
              &AppSettings::setLivePreview, QStringLiteral("Mots en direct"),
              QStringLiteral("Affiche ce que tu dis au fur et à mesure"));
    addSwitch(c, "adaptToneSwitch", settings_, &AppSettings::adaptTone, &AppSettings::setAdaptTone,
              QStringLiteral("Ton adapté à l'appli"),
              QStringLiteral("Familier sur Discord, soigné dans Mail"));
    addSwitch(c, "voiceCommandsSwitch", settings_, &AppSettings::voiceCommands,
              &AppSettings::setVoiceCommands, QStringLiteral("Mode commande"),
              QStringLiteral("Sélectionne un texte, puis dicte ce qu'il faut en faire"));
    addPicker(c, "punctuationPicker", settings_, &AppSettings::punctuation,
              &AppSettings::setPunctuation, QStringLiteral("Ponctuation"),
              QStringLiteral("Pour la dictée et pour la correction"));
    c->addWidget(row(QStringLiteral("Lire la sélection à voix haute"), QString(),
                     text(QStringLiteral("Ctrl+Alt+R"), "secondary")));
    v->addStretch();
    return PageLook::scrolled(page);
}

} // namespace ombry
