#include "views/corrector/CorrectorPage.h"

#include "data/Settings.h"
#include "data/Store.h"
#include "views/common/PageLook.h"
#include "views/corrector/CorrectorLogic.h"

#include <QButtonGroup>
#include <QEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextBrowser>
#include <QVBoxLayout>

namespace ombry {

namespace {

// The corrected text as HTML, the changed parts in bold accent colour.
QString highlighted(const QString& text, const QList<Fix>& fixes) {
    QList<QPair<qsizetype, qsizetype>> spans = CorrectorRules::highlights(text, fixes);
    std::sort(spans.begin(), spans.end());
    QString html;
    qsizetype at = 0;
    for (const auto& [start, length] : spans) {
        if (start < at) continue; // overlaps one already marked
        html += text.mid(at, start - at).toHtmlEscaped();
        html += (QStringLiteral("<span style=\"color:") + PageLook::accentColor() +
                 QStringLiteral(";font-weight:600\">")) +
                text.mid(start, length).toHtmlEscaped() + QStringLiteral("</span>");
        at = start + length;
    }
    html += text.mid(at).toHtmlEscaped();
    html.replace(QLatin1Char('\n'), QStringLiteral("<br>"));
    return html;
}

// Gives a text view the height of its text, within bounds, so the card does not stand half empty.
void fitToText(QTextBrowser* view) {
    view->document()->setTextWidth(view->viewport()->width() > 50 ? view->viewport()->width()
                                                                  : 480);
    const int h = int(view->document()->size().height()) + 20;
    view->setFixedHeight(std::clamp(h, 70, 420));
}

// What the list of changes is built from: its ids, refusals and explanations.
QString fixesKey(const CorrectorModel& m) {
    QString key;
    if (!m.analysis()) return key;
    for (const Fix& f : m.analysis()->fixes)
        key += f.id.toString() + (m.ignored().contains(f.id) ? u'-' : u'+') + f.kind +
               f.explanation + u'|';
    return key;
}

} // namespace

CorrectorPage::CorrectorPage(Store& store, QWidget* parent)
    : QWidget(parent), store_(store), model_(new CorrectorModel(store, this)) {
    setObjectName(QStringLiteral("correctorPage"));
    QVBoxLayout* page = PageLook::scrolledPage(this);
    page->addWidget(PageLook::header(Page::Corrector));

    auto* columns = new QHBoxLayout;
    columns->setSpacing(16);
    page->addLayout(columns, 1);
    auto* left = new QVBoxLayout;
    left->setSpacing(16);
    auto* right = new QVBoxLayout;
    right->setSpacing(16);
    columns->addLayout(left, 3);
    columns->addLayout(right, 2);

    // The editor card: modes, tones, text, footer, action.
    QFrame* editorCard = PageLook::card();
    auto* ec = static_cast<QVBoxLayout*>(editorCard->layout());
    auto* modeRow = new QHBoxLayout;
    modes_ = new QButtonGroup(this);
    for (CorrectorMode m :
         {CorrectorMode::Correct, CorrectorMode::Rephrase, CorrectorMode::Summary}) {
        QPushButton* b = PageLook::button(CorrectorRules::label(m), true);
        modes_->addButton(b, int(m));
        modeRow->addWidget(b);
    }
    modes_->button(int(CorrectorMode::Correct))->setChecked(true);
    modeRow->addStretch();
    ec->addLayout(modeRow);

    toneRow_ = new QWidget;
    auto* toneLayout = new QHBoxLayout(toneRow_);
    toneLayout->setContentsMargins(0, 0, 0, 0);
    tones_ = new QButtonGroup(this);
    for (TextAction t : CorrectorRules::tones()) {
        QPushButton* b = PageLook::button(CorrectorRules::label(t), true);
        tones_->addButton(b, int(t));
        toneLayout->addWidget(b);
    }
    tones_->button(int(TextAction::Formal))->setChecked(true);
    toneLayout->addStretch();
    ec->addWidget(toneRow_);

    editor_ = new QPlainTextEdit;
    editor_->setObjectName(QStringLiteral("editor"));
    editor_->setPlaceholderText(QStringLiteral("Colle ou écris ton texte ici"));
    editor_->setMinimumHeight(190);
    ec->addWidget(editor_, 1);

    auto* footer = new QHBoxLayout;
    words_ = PageLook::note(QString());
    words_->setWordWrap(false);
    live_ = new QLabel;
    live_->setObjectName(QStringLiteral("liveCount"));
    clear_ = PageLook::button(QStringLiteral("Effacer"));
    footer->addWidget(words_);
    footer->addWidget(live_);
    footer->addStretch();
    footer->addWidget(clear_);
    ec->addLayout(footer);

    auto* actionRow = new QHBoxLayout;
    punctuation_ = PageLook::note(QString());
    actionRow->addWidget(punctuation_, 1);
    run_ = PageLook::primaryButton(QString());
    run_->setObjectName(QStringLiteral("primary"));
    actionRow->addWidget(run_);
    ec->addLayout(actionRow);
    error_ = new QLabel;
    error_->setObjectName(QStringLiteral("bad"));
    error_->setWordWrap(true);
    ec->addWidget(error_);
    left->addWidget(editorCard);

    // The result card.
    QFrame* resultCard = PageLook::card();
    resultCard_ = resultCard;
    auto* rc = static_cast<QVBoxLayout*>(resultCard->layout());
    auto* resultHead = new QHBoxLayout;
    resultTitle_ = PageLook::sectionTitle(QStringLiteral("Texte corrigé"));
    copy_ = PageLook::button(QStringLiteral("Copier"));
    copy_->setObjectName(QStringLiteral("copy"));
    resultHead->addWidget(resultTitle_);
    resultHead->addStretch();
    resultHead->addWidget(copy_);
    rc->addLayout(resultHead);
    result_ = new QTextBrowser;
    result_->setObjectName(QStringLiteral("result"));
    rc->addWidget(result_);
    auto* countRow = new QHBoxLayout;
    count_ = PageLook::sectionTitle(QString());
    PageLook::mark(count_, "fixCount");
    toggleAll_ = PageLook::button(QString());
    toggleAll_->setObjectName(QStringLiteral("toggleAll"));
    explaining_ = PageLook::note(QStringLiteral("Explications en cours…"));
    countRow->addWidget(count_);
    countRow->addWidget(explaining_);
    countRow->addStretch();
    countRow->addWidget(toggleAll_);
    rc->addLayout(countRow);
    fixList_ = new QWidget;
    fixLayout_ = new QVBoxLayout(fixList_);
    fixLayout_->setContentsMargins(0, 0, 0, 0);
    fixLayout_->setSpacing(6);
    rc->addWidget(fixList_);
    left->addWidget(resultCard);
    left->addStretch();

    // The score and the frequent mistakes.
    QFrame* scoreCard = PageLook::card();
    scoreCard_ = scoreCard;
    auto* sc = static_cast<QVBoxLayout*>(scoreCard->layout());
    sc->addWidget(PageLook::sectionTitle(QStringLiteral("Score")));
    score_ = new QLabel;
    score_->setObjectName(QStringLiteral("bigNumber"));
    scoreNote_ = PageLook::note(QString());
    PageLook::mark(scoreNote_, "scoreNote");
    sc->addWidget(score_);
    sc->addWidget(scoreNote_);
    right->addWidget(scoreCard);

    QFrame* mistakesCard = PageLook::card();
    mistakesCard_ = mistakesCard;
    mistakesLayout_ = static_cast<QVBoxLayout*>(mistakesCard->layout());
    right->addWidget(mistakesCard);
    right->addStretch();

    connect(editor_, &QPlainTextEdit::textChanged, this,
            [this] { model_->setText(editor_->toPlainText()); });
    connect(clear_, &QPushButton::clicked, this, [this] { editor_->clear(); });
    connect(modes_, &QButtonGroup::idClicked, this,
            [this](int id) { model_->setMode(CorrectorMode(id)); });
    connect(tones_, &QButtonGroup::idClicked, this,
            [this](int id) { model_->setTone(TextAction(id)); });
    connect(run_, &QPushButton::clicked, model_, &CorrectorModel::run);
    connect(toggleAll_, &QPushButton::clicked, model_, &CorrectorModel::toggleAll);
    connect(copy_, &QPushButton::clicked, model_, &CorrectorModel::copy);
    connect(model_, &CorrectorModel::changed, this, &CorrectorPage::refresh);
    connect(&store_, &Store::fixesChanged, this, &CorrectorPage::rebuildMistakes);
    connect(&AppSettings::shared(), &AppSettings::punctuationChanged, this,
            &CorrectorPage::refresh);

    setStyleSheet(PageLook::fieldSheet());
    rebuildMistakes();
    refresh();
}

CorrectorPage::~CorrectorPage() = default;

void CorrectorPage::refresh() {
    const CorrectorModel& m = *model_;
    if (editor_->toPlainText() != m.text()) editor_->setPlainText(m.text());
    toneRow_->setVisible(m.mode() == CorrectorMode::Rephrase);
    words_->setText(CorrectorRules::wordsLabel(CorrectorRules::words(m.text())));
    live_->setText(CorrectorRules::liveLabel(m.liveCount()));
    live_->setVisible(m.liveCount().has_value());
    live_->setStyleSheet(m.liveCount().value_or(0) > 0
                             ? (QStringLiteral("color:") + PageLook::dangerColor())
                             : (QStringLiteral("color:") + PageLook::accentColor()));
    clear_->setVisible(!m.text().isEmpty());
    run_->setText(m.working() ? QStringLiteral("…") : CorrectorRules::label(m.mode()));
    run_->setEnabled(!m.working() && !m.text().trimmed().isEmpty());
    punctuation_->setText(CorrectorRules::punctuationNote(AppSettings::shared().punctuation()));
    error_->setText(m.error().value_or(QString()));
    error_->setVisible(m.error().has_value());

    const bool hasAnalysis = m.analysis().has_value();
    const bool hasResult = hasAnalysis || m.rewritten().has_value();
    resultCard_->setVisible(hasResult);
    copy_->setText(m.copied() ? QStringLiteral("Copié") : QStringLiteral("Copier"));
    if (hasAnalysis) {
        resultTitle_->setText(QStringLiteral("Texte corrigé"));
        result_->setHtml(highlighted(m.resultText(), m.analysis()->fixes));
        fitToText(result_);
        const int n = int(m.analysis()->fixes.size());
        count_->setText(CorrectorRules::correctionsLabel(n));
        toggleAll_->setText(m.ignored().isEmpty() ? QStringLiteral("Tout ignorer")
                                                  : QStringLiteral("Tout accepter"));
        toggleAll_->setVisible(n > 0);
        count_->setVisible(true);
        explaining_->setVisible(m.explaining());
        fixList_->setVisible(true);
    } else if (m.rewritten()) {
        resultTitle_->setText(m.mode() == CorrectorMode::Summary
                                  ? QStringLiteral("Résumé")
                                  : QStringLiteral("Texte reformulé"));
        result_->setPlainText(*m.rewritten());
        fitToText(result_);
        count_->setVisible(false);
        toggleAll_->setVisible(false);
        explaining_->setVisible(false);
        fixList_->setVisible(false);
    }
    rebuildFixes();

    scoreCard_->setVisible(hasAnalysis);
    if (hasAnalysis) {
        if (m.analysis()->fixes.isEmpty()) {
            score_->setText(QStringLiteral("100"));
            score_->setStyleSheet(QStringLiteral("color:") + PageLook::accentColor());
            scoreNote_->setText(QStringLiteral("Parfait, rien à corriger"));
        } else {
            const int score = CorrectorRules::score(m.text(), *m.analysis());
            score_->setText(QString::number(score));
            score_->setStyleSheet(QStringLiteral("color:") + (score >= 80 ? PageLook::accentColor()
                                                              : score >= 50
                                                                  ? PageLook::warningColor()
                                                                  : PageLook::dangerColor()));
            scoreNote_->setText(QStringLiteral("100 / 100 après correction"));
        }
    }
}

void CorrectorPage::rebuildFixes() {
    const QString key = fixesKey(*model_);
    if (key == shownFixes_) return;
    shownFixes_ = key;
    while (QLayoutItem* item = fixLayout_->takeAt(0)) {
        // Later: the click that asked for the rebuild may come from inside the old widgets.
        if (QWidget* w = item->widget()) {
            w->hide();
            w->deleteLater();
        }
        delete item;
    }
    if (!model_->analysis()) return;
    for (const Fix& fix : model_->analysis()->fixes) {
        const bool refused = model_->ignored().contains(fix.id);
        auto* row = new QFrame;
        row->setObjectName(QStringLiteral("fixRow"));
        auto* h = new QHBoxLayout(row);
        h->setContentsMargins(0, 4, 0, 4);
        auto* texts = new QVBoxLayout;
        texts->setSpacing(2);
        auto* pair = new QLabel(
            QStringLiteral(
                "<s style=\"color:%1\">%2</s> &nbsp;→&nbsp; <b style=\"color:%3\">%4</b>")
                .arg(refused ? PageLook::secondaryColor() : PageLook::dangerColor(),
                     fix.original.toHtmlEscaped(),
                     refused ? PageLook::secondaryColor() : PageLook::accentColor(),
                     fix.correction.toHtmlEscaped()));
        pair->setObjectName(QStringLiteral("fixPair"));
        texts->addWidget(pair);
        QString detail = fix.kind;
        if (!fix.explanation.isEmpty())
            detail += (detail.isEmpty() ? QString() : QStringLiteral(" · ")) + fix.explanation;
        QLabel* explanation = PageLook::note(detail);
        texts->addWidget(explanation);
        h->addLayout(texts, 1);
        QPushButton* toggle =
            PageLook::button(refused ? QStringLiteral("Rétablir") : QStringLiteral("Ignorer"));
        toggle->setObjectName(QStringLiteral("fixToggle"));
        const QUuid id = fix.id;
        connect(toggle, &QPushButton::clicked, model_, [this, id] { model_->toggleIgnored(id); });
        h->addWidget(toggle, 0, Qt::AlignTop);
        fixLayout_->addWidget(row);
    }
}

void CorrectorPage::rebuildMistakes() {
    while (QLayoutItem* item = mistakesLayout_->takeAt(0)) {
        // Later: the click that asked for the rebuild may come from inside the old widgets.
        if (QWidget* w = item->widget()) {
            w->hide();
            w->deleteLater();
        }
        delete item;
    }
    mistakesLayout_->addWidget(PageLook::sectionTitle(QStringLiteral("Qualité de ton texte")));
    const QList<CorrectorRules::Mistake> list = CorrectorRules::frequentMistakes(store_.fixes());
    if (list.isEmpty()) {
        mistakesLayout_->addWidget(
            PageLook::note(QStringLiteral("Tes fautes les plus fréquentes apparaîtront ici.")));
        return;
    }
    mistakesLayout_->addWidget(PageLook::note(QStringLiteral("Tes fautes les plus fréquentes")));
    for (const CorrectorRules::Mistake& mistake : list) {
        auto* row = new QWidget;
        row->setObjectName(QStringLiteral("mistake"));
        auto* h = new QHBoxLayout(row);
        h->setContentsMargins(0, 2, 0, 2);
        auto* pair = new QLabel(
            QStringLiteral("%1 → <b>%2</b>")
                .arg(mistake.original.toHtmlEscaped(), mistake.correction.toHtmlEscaped()));
        auto* count = new QLabel(QStringLiteral("%1×").arg(mistake.count));
        count->setObjectName(QStringLiteral("secondary"));
        h->addWidget(pair, 1);
        h->addWidget(count);
        mistakesLayout_->addWidget(row);
    }
}

} // namespace ombry
