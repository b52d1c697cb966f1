#include "views/shell/MainView.h"

#include "data/KeyStore.h"
#include "data/Settings.h"
#include "dictation/DictationController.h"
#include "meetings/MeetingRecorder.h"
#include "online/Credits.h"
#include "online/CreditsConfig.h"
#include "online/OmbryAI.h"
#include "online/Updater.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "views/common/Components.h"
#include "views/common/KeyNames.h"
#include "views/common/Symbols.h"
#include "views/common/ViewStyle.h"
#include "views/settings/SettingsPage.h"
#include "views/shell/OnboardingView.h"
#include "views/shell/Pages.h"
#include "views/shell/ShellModel.h"

#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QResizeEvent>
#include <QVBoxLayout>

namespace ombry {

using namespace Components;

MainView::MainView(Navigation& nav, AppSettings& settings, DictationController& controller,
                   QWidget* parent)
    : QWidget(parent), nav_(nav), settings_(settings), controller_(controller) {
    setObjectName(QStringLiteral("mainView"));
    setMinimumSize(kMinWidth, kMinHeight);
    applyLook();

    auto* h = new QHBoxLayout(this);
    h->setContentsMargins(0, 0, 0, 0);
    h->setSpacing(0);
    h->addWidget(sidebar());

    auto* area = new QWidget;
    area->setObjectName(QStringLiteral("pageArea"));
    auto* v = new QVBoxLayout(area);
    v->setContentsMargins(32, 26, 32, 22);
    v->setSpacing(14);
    creditsBanner_ = makeCreditsBanner();
    keyboardBanner_ = makeKeyboardBanner();
    updateBanner_ = makeUpdateBanner();
    v->addWidget(keyboardBanner_);
    v->addWidget(updateBanner_);
    v->addWidget(creditsBanner_);
    pageSlot_ = new QVBoxLayout;
    pageSlot_->setContentsMargins(0, 0, 0, 0);
    v->addLayout(pageSlot_, 1);
    h->addWidget(area, 1);

    connect(&nav_, &Navigation::pageChanged, this, &MainView::showPage);
    connect(&controller_, &DictationController::stateChanged, this, &MainView::refreshStatus);
    connect(&controller_, &DictationController::translatingChanged, this, &MainView::refreshStatus);
    connect(&MeetingRecorder::shared(), &MeetingRecorder::stateChanged, this,
            &MainView::refreshStatus);
    connect(&controller_, &DictationController::trustedChanged, this, &MainView::refreshBanners);
    Updater& updater = Updater::shared();
    for (auto changed : {&Updater::availableChanged, &Updater::installingChanged,
                         &Updater::errorChanged, &Updater::dismissedChanged})
        connect(&updater, changed, this, &MainView::refreshBanners);
    connect(&settings_, &AppSettings::keyChanged, this, &MainView::refreshStatus);
    connect(&settings_, &AppSettings::themeChanged, this, [this] {
        applyLook();
        remakePage(); // drawn symbols take the colours of the new appearance
    });
    for (auto signal : {&Credits::balanceChanged, &Credits::exhaustedChanged})
        connect(&Credits::shared(), signal, this, &MainView::refreshBanners);
    // Credits pay only while no own key is in use.
    connect(&settings_, &AppSettings::ownKeyModeChanged, this, &MainView::refreshBanners);
    connect(&KeyStore::shared(), &KeyStore::keysChanged, this, &MainView::refreshBanners);

    showPage();
    refreshStatus();
    refreshBanners();

    if (!onboarded()) {
        onboarding_ = new OnboardingView(settings_, controller_, this);
        onboarding_->setGeometry(rect());
        onboarding_->raise();
        connect(onboarding_, &OnboardingView::finished, this, [this] {
            onboarding_->hide();
            onboarding_->deleteLater();
            onboarding_ = nullptr;
        });
    }
}

bool MainView::onboarded() const {
    return settings_.defaults().boolValue(QLatin1String(ShellModel::kOnboardedKey)).value_or(false);
}

void MainView::applyLook() {
    ViewStyle::apply(this, ViewStyle::darkNow());
}

QPushButton* MainView::sidebarRow(Page page) const {
    return rows_.value(int(page));
}

void MainView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (onboarding_) onboarding_->setGeometry(rect());
}

QWidget* MainView::sidebar() {
    const ViewStyle::Colors colors = ViewStyle::colors(ViewStyle::darkNow());
    auto* side = new QWidget;
    side->setObjectName(QStringLiteral("sidebar"));
    side->setAttribute(Qt::WA_StyledBackground);
    side->setFixedWidth(240);
    auto* v = new QVBoxLayout(side);
    v->setContentsMargins(14, 18, 14, 16);
    v->setSpacing(4);

    auto* welcome = new QFrame;
    welcome->setObjectName(QStringLiteral("welcome"));
    auto* wv = new QVBoxLayout(welcome);
    wv->setContentsMargins(14, 12, 14, 12);
    wv->setSpacing(2);
    QLabel* hello = text(ShellModel::greeting(ShellModel::fullUserName()), "greeting");
    wv->addWidget(hello);
    greetingKey_ = text(QString(), "rowDetail");
    wv->addWidget(greetingKey_);
    v->addWidget(welcome);
    v->addSpacing(12);

    for (Page p : allPages()) {
        auto* const row = new QPushButton(label(p));
        row->setObjectName(QStringLiteral("sidebarRow"));
        row->setProperty("page", rawValue(p));
        row->setIcon(Symbols::icon(iconName(p), colors.accent, 18));
        row->setIconSize(QSize(18, 18));
        row->setCheckable(true);
        row->setCursor(Qt::PointingHandCursor);
        connect(row, &QPushButton::clicked, this, [this, p, row] {
            if (nav_.page() != p)
                nav_.setPage(p);
            else
                row->setChecked(true); // a click on a checked row unchecks it
        });
        rows_ << row;
        v->addWidget(row);
    }
    v->addStretch();

    auto* status = new QFrame;
    status->setObjectName(QStringLiteral("statusCard"));
    auto* sh = new QHBoxLayout(status);
    sh->setContentsMargins(12, 10, 12, 10);
    sh->addWidget(symbol(QStringLiteral("waveform"), colors.accent, 22));
    auto* sv = new QVBoxLayout;
    sv->setSpacing(0);
    statusTitle_ = text(QString(), "statusTitle");
    statusKey_ = text(QString(), "rowDetail");
    sv->addWidget(statusTitle_);
    sv->addWidget(statusKey_);
    sh->addLayout(sv, 1);
    v->addWidget(status);
    return side;
}

QFrame* MainView::makeCreditsBanner() {
    auto* banner = new QFrame;
    banner->setObjectName(QStringLiteral("banner"));
    banner->setProperty("tone", QStringLiteral("warning"));
    auto* h = new QHBoxLayout(banner);
    h->setContentsMargins(16, 12, 12, 12);
    auto* texts = new QVBoxLayout;
    creditsTitle_ = text(QString(), "bannerTitle");
    creditsText_ = text(QString(), "secondary");
    texts->addWidget(creditsTitle_);
    texts->addWidget(creditsText_);
    h->addLayout(texts, 1);
    creditsBuy_ = new QPushButton;
    creditsBuy_->setObjectName(QStringLiteral("primary"));
    connect(creditsBuy_, &QPushButton::clicked, this, [] {
        const CreditsConfig::Pack& pack = CreditsConfig::packs().first();
        if (const std::optional<QUrl> url =
                CreditsConfig::checkoutURL(CreditsConfig::packURL(pack).toString()))
            Platform::current().browser().open(*url);
    });
    h->addWidget(creditsBuy_);
    auto* close = new QPushButton;
    close->setObjectName(QStringLiteral("flat"));
    close->setProperty("role", QStringLiteral("dismissCredits"));
    close->setIcon(Symbols::icon(QStringLiteral("xmark"),
                                 ViewStyle::colors(ViewStyle::darkNow()).secondary, 14));
    connect(close, &QPushButton::clicked, this, [this] {
        const double now = Platform::current().clock().now().toMSecsSinceEpoch() / 1000.0;
        settings_.defaults().setValue(QLatin1String(ShellModel::kLowCreditsDismissedKey), now);
        refreshBanners();
    });
    h->addWidget(close, 0, Qt::AlignTop);
    return banner;
}

QFrame* MainView::makeKeyboardBanner() {
    auto* banner = new QFrame;
    banner->setObjectName(QStringLiteral("banner"));
    banner->setProperty("tone", QStringLiteral("warning"));
    auto* h = new QHBoxLayout(banner);
    h->setContentsMargins(16, 12, 12, 12);
    h->addWidget(symbol(QStringLiteral("exclamationmark.triangle"),
                        ViewStyle::colors(ViewStyle::darkNow()).warning, 22));
    auto* texts = new QVBoxLayout;
    texts->addWidget(text(QStringLiteral("Ta touche de dictée n'est pas entendue"), "bannerTitle"));
    keyboardText_ = text(QString(), "secondary");
    texts->addWidget(keyboardText_);
    h->addLayout(texts, 1);
    auto* open = new QPushButton(QStringLiteral("Voir les autorisations"));
    connect(open, &QPushButton::clicked, this, [this] {
        settings_.defaults().setValue(QLatin1String(SettingsModel::kTabKey),
                                      SettingsModel::rawValue(SettingsModel::Tab::Permissions));
        nav_.setPage(Page::Settings);
    });
    h->addWidget(open);
    return banner;
}

QFrame* MainView::makeUpdateBanner() {
    auto* banner = new QFrame;
    banner->setObjectName(QStringLiteral("banner"));
    banner->setProperty("tone", QStringLiteral("accent"));
    auto* h = new QHBoxLayout(banner);
    h->setContentsMargins(16, 12, 12, 12);
    h->addWidget(symbol(QStringLiteral("arrow.down.circle.fill"),
                        ViewStyle::colors(ViewStyle::darkNow()).accent, 22));
    auto* texts = new QVBoxLayout;
    updateTitle_ = text(QString(), "bannerTitle");
    updateError_ = text(QString(), "secondary");
    updateError_->setWordWrap(true);
    texts->addWidget(updateTitle_);
    texts->addWidget(updateError_);
    h->addLayout(texts, 1);
    updateNotes_ = new QPushButton(QStringLiteral("Nouveautés"));
    connect(updateNotes_, &QPushButton::clicked, this, &MainView::showReleaseNotes);
    h->addWidget(updateNotes_);
    updateInstall_ = new QPushButton;
    updateInstall_->setObjectName(QStringLiteral("primary"));
    // The installation runs on its own; the banner follows the updater's state.
    connect(updateInstall_, &QPushButton::clicked, this, [] { Updater::shared().install(); });
    h->addWidget(updateInstall_);
    auto* close = new QPushButton;
    close->setObjectName(QStringLiteral("flat"));
    close->setProperty("role", QStringLiteral("dismissUpdate"));
    close->setIcon(Symbols::icon(QStringLiteral("xmark"),
                                 ViewStyle::colors(ViewStyle::darkNow()).secondary, 14));
    connect(close, &QPushButton::clicked, this, [] { Updater::shared().setDismissed(true); });
    h->addWidget(close, 0, Qt::AlignTop);
    return banner;
}

void MainView::showReleaseNotes() {
    const Updater& updater = Updater::shared();
    const std::optional<ShellModel::UpdateBanner> b = ShellModel::updateBanner(
        updater.available(), updater.installing(), updater.error(), updater.dismissed());
    if (!b) return;
    // A menu under the button: one line per note, then the release's page.
    auto* menu = new QMenu(updateNotes_);
    menu->setObjectName(QStringLiteral("releaseNotes"));
    menu->setAttribute(Qt::WA_DeleteOnClose);
    for (const QString& note : b->notes)
        menu->addAction(QStringLiteral("• ") + note)->setEnabled(false);
    const QUrl page(b->page);
    if (page.isValid() && !b->page.isEmpty()) {
        menu->addSeparator();
        connect(menu->addAction(QStringLiteral("Voir la page de la version")), &QAction::triggered,
                this, [page] { Platform::current().browser().open(page); });
    }
    menu->popup(updateNotes_->mapToGlobal(QPoint(0, updateNotes_->height())));
}

void MainView::showPage() {
    // The page on show keeps what the user typed or chose in it while the choice stays.
    if (page_ && shownPage_ == nav_.page()) return;
    remakePage();
}

void MainView::remakePage() {
    for (int i = 0; i < rows_.size(); ++i)
        rows_[i]->setChecked(i == int(nav_.page()));
    shownPage_ = nav_.page();
    if (page_) {
        pageSlot_->removeWidget(page_);
        page_->deleteLater();
    }
    page_ = makePage(nav_.page(), settings_, controller_);
    pageSlot_->addWidget(page_);
    if (isVisible()) page_->show(); // at once, not on the next turn of the loop
    if (onboarding_) onboarding_->raise();
}

void MainView::refreshStatus() {
    // A meeting being recorded outranks the dictation on the card.
    const bool meeting =
        MeetingRecorder::shared().state().kind == MeetingRecorder::State::Kind::Recording;
    statusTitle_->setText(
        ShellModel::statusTitle(controller_.state(), controller_.translating(), meeting));
    const QString key = keyLabel(settings_.key());
    statusKey_->setText(key);
    greetingKey_->setText(ShellModel::holdKey(key));
}

void MainView::refreshBanners() {
    const double dismissed = settings_.defaults()
                                 .doubleValue(QLatin1String(ShellModel::kLowCreditsDismissedKey))
                                 .value_or(0);
    const double now = Platform::current().clock().now().toMSecsSinceEpoch() / 1000.0;
    const std::optional<ShellModel::CreditsBanner> b = ShellModel::creditsBanner(
        OmbryAI::usesCredits(), Credits::shared().balance(), dismissed, now);
    creditsBanner_->setVisible(bool(b));
    if (b) {
        creditsTitle_->setText(b->title);
        creditsText_->setText(b->text);
        creditsBuy_->setText(b->button);
    }
    const Updater& updater = Updater::shared();
    const std::optional<ShellModel::UpdateBanner> u =
        ShellModel::updateBanner(updater.available(), updater.installing(), updater.error(),
                                 updater.dismissed(), updater.manualUpdate());
    updateBanner_->setVisible(bool(u));
    if (u) {
        updateTitle_->setText(u->title);
        const std::optional<QString> line = u->manual ? u->manual : u->error;
        updateError_->setText(line.value_or(QString()));
        updateError_->setVisible(bool(line));
        updateInstall_->setText(u->install);
        updateInstall_->setEnabled(u->installEnabled);
        updateInstall_->setVisible(!u->manual);
    }
    // Pictures of the pages show the window as it stands, not the state of this process.
    const bool keyboardMissing =
        !snapshotMode() && !controller_.trusted() && !Platform::current().keyboard().running();
    keyboardBanner_->setVisible(keyboardMissing);
    if (keyboardMissing) keyboardText_->setText(Platform::current().keyboard().reason());
}

} // namespace ombry
