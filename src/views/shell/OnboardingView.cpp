#include "views/shell/OnboardingView.h"

#include "data/Settings.h"
#include "desktop/HotkeyMonitor.h"
#include "dictation/DictationController.h"
#include "online/Credits.h"
#include "platform/Platform.h"
#include "views/common/Components.h"
#include "views/common/KeyNames.h"
#include "views/common/Switch.h"
#include "views/common/ViewStyle.h"
#include "views/shell/MicrophoneTest.h"
#include "views/shell/Navigation.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QStyle>
#include <QVBoxLayout>

namespace ombry {

using namespace Components;

namespace {
QVBoxLayout* stepLayout(QWidget* w, const QString& title, const QString& intro) {
    auto* v = new QVBoxLayout(w);
    v->setContentsMargins(0, 0, 0, 0);
    v->setSpacing(14);
    v->addWidget(text(title, "onboardingTitle"));
    v->addWidget(text(intro, "secondary"));
    v->addSpacing(6);
    return v;
}

QWidget* rightRow(const QString& icon, const QString& title, const QString& detail, QWidget* right,
                  QLabel** detailOut = nullptr) {
    auto* w = new QWidget;
    auto* h = new QHBoxLayout(w);
    h->setContentsMargins(0, 0, 0, 0);
    h->setSpacing(12);
    h->addWidget(symbol(icon, ViewStyle::colors(ViewStyle::darkNow()).accent, 26), 0, Qt::AlignTop);
    auto* texts = new QVBoxLayout;
    texts->setSpacing(2);
    texts->addWidget(text(title, "cardTitle"));
    QLabel* d = text(detail, "rowDetail");
    texts->addWidget(d);
    if (detailOut) *detailOut = d;
    h->addLayout(texts, 1);
    h->addWidget(right, 0, Qt::AlignVCenter);
    return w;
}
} // namespace

OnboardingView::OnboardingView(AppSettings& settings, DictationController& controller,
                               QWidget* parent)
    : QWidget(parent), settings_(settings), controller_(controller) {
    setObjectName(QStringLiteral("scrim"));
    setAttribute(Qt::WA_StyledBackground);
    auto* outer = new QVBoxLayout(this);
    outer->setAlignment(Qt::AlignCenter);
    auto* card = new QFrame;
    card->setObjectName(QStringLiteral("onboardingCard"));
    card->setFixedWidth(600);
    outer->addWidget(card, 0, Qt::AlignCenter);
    auto* v = new QVBoxLayout(card);
    v->setContentsMargins(32, 28, 32, 24);
    v->setSpacing(18);
    counter_ = text(QString(), "stepCounter");
    v->addWidget(counter_);

    steps_ = new QStackedWidget;
    steps_->addWidget(permissionsStep());
    steps_->addWidget(keyStep());
    steps_->addWidget(creditsStep());
    v->addWidget(steps_);

    auto* buttons = new QHBoxLayout;
    back_ = new QPushButton(QStringLiteral("Retour"));
    back_->setObjectName(QStringLiteral("backButton"));
    next_ = new QPushButton;
    next_->setObjectName(QStringLiteral("primary"));
    next_->setDefault(true);
    buttons->addWidget(back_);
    buttons->addStretch();
    buttons->addWidget(next_);
    v->addLayout(buttons);

    connect(back_, &QPushButton::clicked, this, [this] {
        model_.back();
        showStep();
    });
    connect(next_, &QPushButton::clicked, this, [this] {
        if (model_.next()) {
            settings_.defaults().setValue(QLatin1String(ShellModel::kOnboardedKey), true);
            if (micTest_) micTest_->stop();
            rights_.stop();
            Q_EMIT finished();
            return;
        }
        showStep();
    });

    // The rights are read again every second, so the step follows a sound server that comes
    // back or a display that becomes reachable while the user looks at it.
    rights_.setInterval(1000);
    connect(&rights_, &QTimer::timeout, this, &OnboardingView::readRights);
    showStep();
}

OnboardingView::~OnboardingView() = default;

QWidget* OnboardingView::permissionsStep() {
    auto* w = new QWidget;
    QVBoxLayout* v = stepLayout(w, QStringLiteral("Bienvenue dans Ombry Voice"),
                                QStringLiteral("Deux autorisations, et tu peux dicter dans toutes "
                                               "tes applis."));
    auto* micRight = new QWidget;
    auto* mh = new QVBoxLayout(micRight);
    mh->setContentsMargins(0, 0, 0, 0);
    micState_ = text(QString(), "ok");
    micState_->setAlignment(Qt::AlignRight);
    micRetry_ = new QPushButton(QStringLiteral("Autoriser"));
    micRetry_->setObjectName(QStringLiteral("micRetry"));
    connect(micRetry_, &QPushButton::clicked, this, [this] {
        micAsked_ = true;
        readRights();
    });
    mh->addWidget(micState_);
    mh->addWidget(micRetry_);
    v->addWidget(rightRow(QStringLiteral("mic"), QStringLiteral("Micro"),
                          QStringLiteral("Pour t'entendre quand tu dictes"), micRight,
                          &micDetail_));
    meter_ = new QProgressBar;
    meter_->setObjectName(QStringLiteral("micLevel"));
    meter_->setRange(0, 100);
    meter_->setValue(0);
    meter_->setTextVisible(false);
    v->addWidget(meter_);
    v->addWidget(
        text(QStringLiteral("Parle : la barre bouge quand le micro t'entend."), "rowDetail"));

    keysState_ = text(QString(), "ok");
    v->addWidget(rightRow(QStringLiteral("keyboard"), QStringLiteral("Accessibilité"),
                          QStringLiteral("Pour écrire le texte là où se trouve ton curseur"),
                          keysState_, &keysDetail_));
    v->addStretch();

    micTest_ = new MicrophoneTest(this);
    connect(micTest_, &MicrophoneTest::level, this,
            [this](double value) { meter_->setValue(int(value * 100)); });
    connect(micTest_, &MicrophoneTest::failed, this, [this](const QString&) {
        micTest_->stop();
        meter_->setValue(0);
    });
    return w;
}

QWidget* OnboardingView::keyStep() {
    auto* w = new QWidget;
    QVBoxLayout* v =
        stepLayout(w, QStringLiteral("Ta touche de dictée"),
                   QStringLiteral("Maintiens-la, parle, relâche : le texte s'écrit tout "
                                  "seul, propre et ponctué. Une simple pression lance "
                                  "la dictée sans les mains."));
    auto* key = new Picker;
    key->setObjectName(QStringLiteral("onboardingKey"));
    for (DictationKey k : allCases<DictationKey>())
        key->addItem(keyLabel(k), rawValue(k));
    key->setCurrentIndex(int(allCases<DictationKey>().indexOf(settings_.key())));
    connect(key, &QComboBox::activated, this, [this](int i) {
        settings_.setKey(allCases<DictationKey>().at(i));
        controller_.hotkey().restart();
        keyHeard_ = false;
        keyCheck_->setObjectName(QStringLiteral("secondary"));
        keyCheck_->setText(
            QStringLiteral("Essaie-la maintenant : maintiens %1.").arg(keyLabel(settings_.key())));
        keyCheck_->style()->polish(keyCheck_);
    });
    v->addWidget(row(QStringLiteral("Touche"), QString(), key));
    auto* lang = new Picker;
    lang->setObjectName(QStringLiteral("onboardingLanguage"));
    for (Language l : allCases<Language>())
        lang->addItem(label(l), rawValue(l));
    lang->setCurrentIndex(int(allCases<Language>().indexOf(settings_.language())));
    connect(lang, &QComboBox::activated, this,
            [this](int i) { settings_.setLanguage(allCases<Language>().at(i)); });
    v->addWidget(row(QStringLiteral("Langue"), QString(), lang));
    v->addWidget(row(QStringLiteral("Corriger un texte sélectionné"), QString(),
                     text(QStringLiteral("Ctrl+C ×2"), "secondary")));

    // The live check: the controller starts recording when it hears the key.
    keyCheck_ =
        text(QStringLiteral("Essaie-la maintenant : maintiens %1.").arg(keyLabel(settings_.key())),
             "secondary");
    keyCheck_->setProperty("role", QStringLiteral("keyCheck"));
    v->addWidget(keyCheck_);
    connect(&controller_, &DictationController::stateChanged, this, [this] {
        if (model_.step() != 1 || keyHeard_) return;
        if (controller_.state() != DictationController::State::Recording) return;
        keyHeard_ = true;
        keyCheck_->setObjectName(QStringLiteral("ok"));
        keyCheck_->setText(
            QStringLiteral("C'est bon : ta touche est entendue. Parle, puis relâche."));
        keyCheck_->style()->polish(keyCheck_);
    });
    v->addStretch();
    return w;
}

QWidget* OnboardingView::creditsStep() {
    auto* w = new QWidget;
    QVBoxLayout* v = stepLayout(
        w, QStringLiteral("Tes crédits Ombry"),
        QStringLiteral("La transcription et la mise au propre utilisent Ombry IA. Un crédit couvre "
                       "environ %1 minutes de dictée, et tes crédits sont partagés avec Ombry "
                       "Lisse. Sans crédits, la dictée continue avec Local, sur ton ordinateur.")
            .arg(ShellModel::kMinutesPerCredit));
    QLabel* balance = text(QString(), "bigNumber");
    v->addWidget(balance);
    auto* link = new QPushButton(QStringLiteral("Relier"));
    link->setObjectName(QStringLiteral("linkButton"));
    connect(link, &QPushButton::clicked, this, [] { Credits::shared().link(); });
    QLabel* linkDetail = nullptr;
    v->addWidget(rightRow(QStringLiteral("person.crop.circle"),
                          QStringLiteral("Relier à ton compte Ombry"), QString(), link,
                          &linkDetail));
    auto show = [balance, link, linkDetail] {
        Credits& c = Credits::shared();
        balance->setVisible(bool(c.balance()));
        if (c.balance()) balance->setText(QStringLiteral("%1 crédits").arg(*c.balance()));
        link->setVisible(!c.linkedEmail());
        link->setEnabled(!c.linking());
        link->setText(c.linking() ? QStringLiteral("En attente du site…")
                                  : QStringLiteral("Relier"));
        linkDetail->setText(c.linkedEmail() ? QStringLiteral("Relié à %1").arg(*c.linkedEmail())
                                            : QString());
        linkDetail->setVisible(bool(c.linkedEmail()));
    };
    for (auto signal :
         {&Credits::balanceChanged, &Credits::linkedEmailChanged, &Credits::linkingChanged})
        connect(&Credits::shared(), signal, w, show);
    show();
    v->addStretch();
    return w;
}

void OnboardingView::readRights() {
    AudioSystem& audio = Platform::current().audio();
    const bool mic = audio.microphoneAvailable();
    micState_->setText(mic ? QStringLiteral("Autorisé") : QString());
    micState_->setVisible(mic);
    micRetry_->setVisible(!mic);
    // Once the user asked, a microphone still missing says what to check.
    const std::optional<QString> advice =
        micAsked_ ? ShellModel::microphoneAdvice(audio.serverAvailable(), mic) : std::nullopt;
    micDetail_->setText(advice.value_or(QStringLiteral("Pour t'entendre quand tu dictes")));
    KeyboardHook& keyboard = Platform::current().keyboard();
    const bool keys = controller_.trusted() || keyboard.running();
    keysState_->setObjectName(keys ? QStringLiteral("ok") : QStringLiteral("bad"));
    keysState_->setText(keys ? QStringLiteral("Autorisé") : QStringLiteral("Non disponible"));
    keysState_->style()->polish(keysState_);
    keysDetail_->setText(keys || keyboard.reason().isEmpty()
                             ? QStringLiteral("Pour écrire le texte là où se trouve ton curseur")
                             : keyboard.reason());
    if (mic && !micTest_->running() && model_.step() == 0 && !snapshotMode() && isVisible())
        micTest_->start(settings_.microphoneUID().value_or(QString()));
}

void OnboardingView::showStep() {
    steps_->setCurrentIndex(model_.step());
    counter_->setText(model_.counter());
    back_->setVisible(model_.canGoBack());
    next_->setText(model_.nextTitle());
    if (model_.step() == 0) {
        readRights();
        if (!snapshotMode()) rights_.start();
        // The level meter starts once the card is on screen (readRights runs every second).
    } else {
        rights_.stop();
        micTest_->stop();
        meter_->setValue(0);
    }
    if (model_.step() == 2 && !snapshotMode()) Credits::shared().refresh();
}

} // namespace ombry
