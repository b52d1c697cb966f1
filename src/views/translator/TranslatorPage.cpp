#include "views/translator/TranslatorPage.h"

#include "calls/CallTranslator.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "data/UserDefaults.h"
#include "views/common/PageLook.h"
#include "views/subtitles/SubtitleModel.h"
#include "views/translator/TranslatorLogic.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTextBrowser>
#include <QVBoxLayout>

namespace ombry {

CallSubtitlesTab::CallSubtitlesTab(CallTranslator& call, QWidget* parent)
    : QWidget(parent), call_(call) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(16);

    QFrame* controls = PageLook::card();
    auto* cl = static_cast<QVBoxLayout*>(controls->layout());
    auto* row = new QHBoxLayout;
    auto* titles = new QVBoxLayout;
    titles->addWidget(PageLook::sectionTitle(QStringLiteral("Sous-titres d'appel")));
    source_ = PageLook::note(QString());
    titles->addWidget(source_);
    row->addLayout(titles, 1);
    floating_ = PageLook::button(QStringLiteral("Fenêtre flottante"));
    floating_->setObjectName(QStringLiteral("floating"));
    toggle_ = PageLook::primaryButton(QString());
    PageLook::mark(toggle_, "callToggle");
    row->addWidget(floating_);
    row->addWidget(toggle_);
    cl->addLayout(row);
    auto* appRow = new QHBoxLayout;
    appRow->addWidget(new QLabel(QStringLiteral("Quelle appli traduire ?")));
    apps_ = new QComboBox;
    PageLook::mark(apps_, "callApps");
    apps_->setMinimumWidth(260);
    appRow->addWidget(apps_);
    appRow->addStretch();
    cl->addLayout(appRow);
    locked_ = PageLook::note(QStringLiteral("Arrête les sous-titres pour changer d'appli."));
    cl->addWidget(locked_);
    error_ = new QLabel;
    error_->setObjectName(QStringLiteral("bad"));
    error_->setWordWrap(true);
    cl->addWidget(error_);
    layout->addWidget(controls);

    QFrame* talk = PageLook::card();
    auto* tl = static_cast<QVBoxLayout*>(talk->layout());
    head_ = PageLook::sectionTitle(QString());
    PageLook::mark(head_, "conversationHead");
    tl->addWidget(head_);
    conversation_ = new QTextBrowser;
    conversation_->setObjectName(QStringLiteral("conversation"));
    conversation_->setMinimumHeight(320);
    tl->addWidget(conversation_, 1);
    layout->addWidget(talk, 1);

    connect(toggle_, &QPushButton::clicked, this, [this] {
        if (call_.running())
            call_.stop();
        else
            call_.start();
    });
    connect(floating_, &QPushButton::clicked, this, [this] {
        if (call_.onShowWindow) call_.onShowWindow();
    });
    appsTimer_.setInterval(3000);
    connect(&appsTimer_, &QTimer::timeout, this, &CallSubtitlesTab::refreshApps);
    connect(apps_, &QComboBox::activated, this, [this](int index) {
        const QString id = apps_->itemData(index).toString();
        call_.setTargetBundleID(id.isEmpty() ? std::nullopt : std::optional<QString>(id));
    });
    for (auto signal : {&CallTranslator::runningChanged, &CallTranslator::linesChanged,
                        &CallTranslator::liveChanged, &CallTranslator::errorChanged,
                        &CallTranslator::targetChanged})
        connect(&call_, signal, this, &CallSubtitlesTab::refresh);
    refresh();
}

void CallSubtitlesTab::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    refreshApps();
    appsTimer_.start();
}

void CallSubtitlesTab::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    appsTimer_.stop();
}

void CallSubtitlesTab::refreshApps() {
    // Asked before the list is emptied: a name seen for the first time announces a change of
    // the target, whose refresh fills the list once more (and would double it).
    const QList<PlayingApp> playing = call_.playingApps();
    const QSignalBlocker block(apps_);
    apps_->clear();
    // The usual call programs first, then the others that play, as the subtitle panel orders
    // them; the first choice is all the computer's audio.
    const std::optional<QString> target = call_.targetBundleID();
    int selected = -1;
    for (const AppChoice& choice : appChoices(playing, target)) {
        apps_->addItem(choice.name, choice.id.value_or(QString()));
        if (choice.selected) selected = apps_->count() - 1;
    }
    // A chosen application that plays nothing now stays the choice, shown by its name.
    if (target && selected < 0) {
        apps_->addItem(call_.targetName().value_or(*target), *target);
        selected = apps_->count() - 1;
    }
    apps_->setCurrentIndex(std::max(selected, 0));
}

void CallSubtitlesTab::refresh() {
    const bool running = call_.running();
    apps_->setEnabled(!running);
    locked_->setVisible(running);
    if (apps_->currentData().toString() != call_.targetBundleID().value_or(QString()))
        refreshApps();
    const std::optional<QString> name = call_.targetName();
    toggle_->setText(running ? QStringLiteral("Arrêter") : QStringLiteral("Démarrer"));
    source_->setText(QStringLiteral("Anglais → français · ") +
                     name.value_or(QStringLiteral("Tout l'ordinateur")));
    head_->setText(running ? QStringLiteral("En direct · ") +
                                 name.value_or(QStringLiteral("tout l'ordinateur"))
                           : QStringLiteral("Sous-titres"));
    error_->setText(call_.error().value_or(QString()));
    error_->setVisible(call_.error().has_value());

    const QList<CallTranslator::Line>& lines = call_.lines();
    if (lines.isEmpty() && call_.live().isEmpty()) {
        conversation_->setPlainText(
            running ? QStringLiteral("J'écoute… les phrases traduites apparaîtront ici.")
                    : QStringLiteral("Choisis l'appli de ton appel, puis Démarrer. Les "
                                     "sous-titres apparaissent aussi dans une fenêtre flottante."));
        return;
    }
    QString html;
    for (const CallTranslator::Line& line : lines) {
        html +=
            QStringLiteral("<p style=\"margin:0 0 10px 0\"><span style=\"color:gray\">%1</span><br>"
                           "<span style=\"font-size:13pt\">%2</span></p>")
                .arg(line.en.toHtmlEscaped(),
                     line.done ? line.fr.toHtmlEscaped() : QStringLiteral("…"));
    }
    if (!call_.live().isEmpty())
        html += QStringLiteral("<p style=\"color:gray\"><i>%1</i></p>")
                    .arg(call_.live().toHtmlEscaped());
    conversation_->setHtml(html);
}

TranslatorPage::TranslatorPage(Store& store, CallTranslator& call, QWidget* parent)
    : QWidget(parent), store_(store), model_(new TranslatorModel(store, this)) {
    setObjectName(QStringLiteral("translatorPage"));
    QVBoxLayout* page = PageLook::scrolledPage(this);

    page->addWidget(PageLook::header(Page::Translator));
    auto* headRow = new QHBoxLayout;
    headRow->setSpacing(4);
    tabs_ = new QButtonGroup(this);
    QPushButton* textTab = PageLook::tab(QStringLiteral("Traduction"));
    QPushButton* callsTab = PageLook::tab(QStringLiteral("Sous-titres"));
    PageLook::mark(textTab, "tabText");
    PageLook::mark(callsTab, "tabCalls");
    tabs_->addButton(textTab, int(TranslationTab::Text));
    tabs_->addButton(callsTab, int(TranslationTab::Calls));
    headRow->addWidget(textTab);
    headRow->addWidget(callsTab);
    headRow->addStretch();
    page->addLayout(headRow);

    stack_ = new QStackedWidget;
    page->addWidget(stack_, 1);

    // The text translator.
    auto* textPage = new QWidget;
    auto* tp = new QVBoxLayout(textPage);
    tp->setContentsMargins(0, 0, 0, 0);
    tp->setSpacing(16);
    QFrame* card = PageLook::card();
    auto* cl = static_cast<QVBoxLayout*>(card->layout());
    auto* languages = new QHBoxLayout;
    detected_ = PageLook::note(QString());
    PageLook::mark(detected_, "detected");
    detected_->setWordWrap(false);
    swap_ = PageLook::button(QStringLiteral("Inverser"));
    swap_->setObjectName(QStringLiteral("swap"));
    target_ = new QComboBox;
    target_->setObjectName(QStringLiteral("target"));
    target_->addItems(TranslatorRules::targets());
    target_->setMinimumWidth(150);
    languages->addWidget(detected_, 1);
    languages->addWidget(swap_);
    languages->addWidget(new QLabel(QStringLiteral("Vers")));
    languages->addWidget(target_);
    cl->addLayout(languages);

    auto* panes = new QHBoxLayout;
    panes->setSpacing(12);
    auto* leftPane = new QVBoxLayout;
    source_ = new QPlainTextEdit;
    source_->setObjectName(QStringLiteral("source"));
    source_->setPlaceholderText(
        QStringLiteral("Écris ou colle ton texte, dans n'importe quelle langue"));
    source_->setMinimumHeight(220);
    source_->setMaximumHeight(320);
    leftPane->addWidget(source_, 1);
    auto* leftFoot = new QHBoxLayout;
    characters_ = PageLook::note(QString());
    PageLook::mark(characters_, "characters");
    speakSource_ = PageLook::button(QStringLiteral("Lire à voix haute"));
    speakSource_->setObjectName(QStringLiteral("speakSource"));
    leftFoot->addWidget(characters_, 1);
    leftFoot->addWidget(speakSource_);
    leftPane->addLayout(leftFoot);
    auto* rightPane = new QVBoxLayout;
    result_ = new QPlainTextEdit;
    result_->setObjectName(QStringLiteral("result"));
    result_->setReadOnly(true);
    result_->setMaximumHeight(320);
    result_->setPlaceholderText(QStringLiteral("Traduction"));
    rightPane->addWidget(result_, 1);
    auto* rightFoot = new QHBoxLayout;
    status_ = PageLook::note(QString());
    PageLook::mark(status_, "status");
    speakResult_ = PageLook::button(QStringLiteral("Lire à voix haute"));
    speakResult_->setObjectName(QStringLiteral("speakResult"));
    copy_ = PageLook::button(QStringLiteral("Copier"));
    copy_->setObjectName(QStringLiteral("copy"));
    rightFoot->addWidget(status_, 1);
    rightFoot->addWidget(speakResult_);
    rightFoot->addWidget(copy_);
    rightPane->addLayout(rightFoot);
    panes->addLayout(leftPane, 1);
    panes->addLayout(rightPane, 1);
    cl->addLayout(panes, 1);
    error_ = new QLabel;
    error_->setObjectName(QStringLiteral("bad"));
    error_->setWordWrap(true);
    cl->addWidget(error_);
    tp->addWidget(card);

    QFrame* recent = PageLook::card();
    recentCard_ = recent;
    recentLayout_ = static_cast<QVBoxLayout*>(recent->layout());
    tp->addWidget(recent);
    tp->addStretch();
    stack_->addWidget(textPage);
    stack_->addWidget(new CallSubtitlesTab(call));

    connect(source_, &QPlainTextEdit::textChanged, this,
            [this] { model_->setSource(source_->toPlainText()); });
    connect(target_, &QComboBox::currentTextChanged, model_, &TranslatorModel::setTarget);
    connect(swap_, &QPushButton::clicked, model_, &TranslatorModel::swap);
    connect(copy_, &QPushButton::clicked, model_, &TranslatorModel::copy);
    connect(speakSource_, &QPushButton::clicked, this, [this] { model_->speak(model_->source()); });
    connect(speakResult_, &QPushButton::clicked, this, [this] { model_->speak(model_->result()); });
    connect(tabs_, &QButtonGroup::idClicked, this, [this](int id) {
        TranslatorRules::setTab(AppSettings::shared().defaults(), TranslationTab(id));
        showTab(id);
    });
    connect(model_, &TranslatorModel::changed, this, &TranslatorPage::refresh);
    connect(&store_, &Store::fixesChanged, this, &TranslatorPage::rebuildRecent);

    setStyleSheet(PageLook::fieldSheet());
    showTab(int(TranslatorRules::tab(AppSettings::shared().defaults())));
    rebuildRecent();
    refresh();
}

TranslatorPage::~TranslatorPage() = default;

void TranslatorPage::showTab(int tab) {
    tabs_->button(tab)->setChecked(true);
    stack_->setCurrentIndex(tab);
}

void TranslatorPage::refresh() {
    const TranslatorModel& m = *model_;
    if (source_->toPlainText() != m.source()) source_->setPlainText(m.source());
    if (result_->toPlainText() != m.result()) result_->setPlainText(m.result());
    if (target_->currentText() != m.target()) {
        const QSignalBlocker block(target_);
        target_->setCurrentText(m.target());
    }
    detected_->setText(m.detected() ? QStringLiteral("Détecté : ") + *m.detected() : QString());
    characters_->setText(TranslatorRules::charactersLabel(m.source()));
    status_->setText(m.working() ? QStringLiteral("Traduction…") : QString());
    error_->setText(m.error().value_or(QString()));
    error_->setVisible(m.error().has_value());
    copy_->setText(m.copied() ? QStringLiteral("Copié") : QStringLiteral("Copier"));
    copy_->setEnabled(!m.result().isEmpty());
    swap_->setEnabled(!m.result().isEmpty());
    speakResult_->setEnabled(!m.result().isEmpty());
}

void TranslatorPage::rebuildRecent() {
    while (QLayoutItem* item = recentLayout_->takeAt(0)) {
        // Later: the click that asked for the rebuild may come from inside the old widgets.
        if (QWidget* w = item->widget()) {
            w->hide();
            w->deleteLater();
        }
        delete item;
    }
    const QList<CorrectionRecord> list = TranslatorRules::recent(store_.fixes());
    recentCard_->setVisible(!list.isEmpty());
    if (list.isEmpty()) return;
    recentLayout_->addWidget(PageLook::sectionTitle(QStringLiteral("Dernières traductions")));
    for (const CorrectionRecord& r : list) {
        auto* row = new QWidget;
        row->setObjectName(QStringLiteral("recent"));
        auto* v = new QVBoxLayout(row);
        v->setContentsMargins(0, 4, 0, 4);
        v->setSpacing(2);
        QLabel* original = PageLook::note(r.original);
        original->setTextFormat(Qt::PlainText);
        auto* result = new QLabel(r.result);
        result->setTextFormat(Qt::PlainText);
        result->setWordWrap(true);
        result->setTextInteractionFlags(Qt::TextSelectableByMouse);
        QLabel* action = PageLook::note(r.action);
        v->addWidget(action);
        v->addWidget(original);
        v->addWidget(result);
        recentLayout_->addWidget(row);
    }
}

} // namespace ombry
