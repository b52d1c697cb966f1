#include "views/history/HistoryView.h"

#include "data/Store.h"
#include "engines/AudioFile.h"
#include "platform/Platform.h"
#include "views/common/ViewStyle.h"
#include "views/dashboard/DashboardPaint.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QCoreApplication>
#include <QFile>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QTextLayout>
#include <QThreadPool>
#include <QTimer>
#include <QTreeView>
#include <QVBoxLayout>

namespace ombry {

namespace {

constexpr int kPad = 14;     // inside a card
constexpr int kCardGap = 4;  // above and below a card
constexpr int kTopLine = 24; // time, badge, application, figures, buttons
constexpr int kTextGap = 8;  // between the top line and the text
constexpr int kHeader = 42;  // a day's title
constexpr int kMaxLines = 3; // lines of text of a closed row
constexpr int kButtonH = 24;
constexpr int kSampleRate = 16000;

QFont smallFont(const QFont& f) {
    return scaledFont(f, 0.92);
}

// The lines a closed row gives its text: as many as it takes, up to kMaxLines (the painting
// elides the rest). The list asks only for the rows in sight, so measuring stays cheap.
int closedLines(const QString& text, int width, const QFontMetrics& fm) {
    // A text far longer than three lines needs no measuring.
    if (text.size() > qsizetype(kMaxLines) * 4 * width / std::max(1, fm.averageCharWidth()))
        return kMaxLines;
    const int h =
        fm.boundingRect(QRect(0, 0, width, 1 << 20), Qt::TextWordWrap | Qt::TextWrapAnywhere, text)
            .height();
    return std::clamp((h + fm.lineSpacing() / 2) / fm.lineSpacing(), 1, kMaxLines);
}

// Draws `text` wrapped in `r`, at most `maxLines` lines, the last elided when more remains.
void drawWrapped(QPainter& p, const QRect& r, const QString& text, int maxLines) {
    const QFontMetrics fm(p.font());
    QString flat = text;
    flat.replace(u'\n', QChar::LineSeparator);
    QTextLayout layout(flat, p.font());
    QTextOption opt;
    opt.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(opt);
    layout.beginLayout();
    int y = 0;
    for (int n = 0; n < maxLines; ++n) {
        QTextLine line = layout.createLine();
        if (!line.isValid()) break;
        line.setLineWidth(r.width());
        const bool last = n == maxLines - 1;
        const int end = line.textStart() + line.textLength();
        if (last && end < flat.size()) {
            const QString rest = flat.mid(line.textStart()).replace(QChar::LineSeparator, u' ');
            p.drawText(QPoint(r.left(), r.top() + y + fm.ascent()),
                       fm.elidedText(rest, Qt::ElideRight, r.width()));
            break;
        }
        p.drawText(QPoint(r.left(), r.top() + y + fm.ascent()),
                   flat.mid(line.textStart(), line.textLength())
                       .replace(QChar::LineSeparator, u' ')
                       .trimmed());
        y += fm.lineSpacing();
    }
    layout.endLayout();
}

int measuredHeight(const QString& text, int width, const QFont& font) {
    if (text.isEmpty()) return QFontMetrics(font).lineSpacing();
    return QFontMetrics(font)
        .boundingRect(QRect(0, 0, width, 1 << 24), Qt::TextWordWrap | Qt::TextWrapAnywhere, text)
        .height();
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Player

HistoryPlayer::HistoryPlayer(QObject* parent) : QObject(parent) {}

bool HistoryPlayer::playing() const {
    return since_.isValid() && since_.elapsed() < lengthMs_;
}

void HistoryPlayer::play(const QString& path) {
    // What plays stops at once; the new recording follows when it has been read.
    Platform::current().audio().stopPlaying();
    lengthMs_ = 0;
    const quint64 request = ++request_;
    QPointer<HistoryPlayer> self(this);
    QThreadPool::globalInstance()->start([self, path, request] {
        std::optional<QByteArray> read = AudioFile::speechPcm(path);
        if (!read) return;
        QByteArray pcm = std::move(*read);
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, path, request, pcm = std::move(pcm)] {
                // A later press wins over a recording still being read.
                if (!self || self->request_ != request) return;
                self->since_.start();
                self->lengthMs_ = pcm.size() * 1000 / (2 * kSampleRate);
                Platform::current().audio().play(pcm, kSampleRate);
                Q_EMIT self->started(path);
            },
            Qt::QueuedConnection);
    });
}

// ---------------------------------------------------------------------------------------------
// Delegate

HistoryDelegate::HistoryDelegate(QObject* parent) : QStyledItemDelegate(parent) {}

int HistoryDelegate::textWidth() const {
    return std::max(100, width_ - 2 * kPad - 2);
}

QSize HistoryDelegate::sizeHint(const QStyleOptionViewItem& option,
                                const QModelIndex& index) const {
    const int kind = index.data(HistoryListModel::KindRole).toInt();
    if (kind == HistoryListModel::HeaderRow) return {width_, kHeader};
    const QFontMetrics fm(option.font);
    const QString text = index.data(HistoryListModel::TextRole).toString();
    int h = 2 * kCardGap + 2 * kPad + kTopLine + kTextGap;
    if (index.data(HistoryListModel::ExpandedRole).toBool()) {
        h += measuredHeight(text, textWidth(), option.font);
        h += 12 + QFontMetrics(smallFont(option.font)).lineSpacing() + 4;
        h += measuredHeight(index.data(HistoryListModel::SecondTextRole).toString(), textWidth(),
                            option.font);
    } else {
        h += closedLines(text, textWidth(), fm) * fm.lineSpacing();
    }
    return {width_, h};
}

QList<HistoryDelegate::Button>
HistoryDelegate::buttons(const QRect& rowRect, const QModelIndex& index, const QFont& font) const {
    QList<Button> list;
    const int kind = index.data(HistoryListModel::KindRole).toInt();
    if (kind == HistoryListModel::HeaderRow) return list;
    const bool open = index.data(HistoryListModel::ExpandedRole).toBool();
    const bool copied =
        !copied_.isNull() && index.data(HistoryListModel::IdRole).toUuid() == copied_;
    // A failed dictation has no text to copy or open: it is tried again or listened to.
    const bool failed = !index.data(HistoryListModel::StatusRole).toString().isEmpty();
    if (index.data(HistoryListModel::RetryRole).toBool())
        list.append({Retry, QStringLiteral("retry"), QStringLiteral("Réessayer"), {}});
    if (!failed)
        list.append({Copy,
                     QStringLiteral("copy"),
                     copied ? QStringLiteral("Copié") : QStringLiteral("Copier"),
                     {}});
    if (kind == HistoryListModel::DictationRow &&
        index.data(HistoryListModel::HasAudioRole).toBool())
        list.append({Play, QStringLiteral("play"), QStringLiteral("Rejouer"), {}});
    if (!failed)
        list.append({Disclose,
                     open ? QStringLiteral("chevron-up") : QStringLiteral("chevron-down"),
                     kind == HistoryListModel::DictationRow ? QStringLiteral("Brut")
                                                            : QStringLiteral("Original"),
                     {}});
    const QFontMetrics fm(smallFont(font));
    const QRect card = rowRect.adjusted(0, kCardGap, 0, -kCardGap);
    int right = card.right() - kPad + 1;
    const int top = card.top() + kPad + (kTopLine - kButtonH) / 2;
    // Laid out from the right edge: Copier stands rightmost.
    for (Button& b : list) {
        const int w = 10 + 12 + 5 + fm.horizontalAdvance(b.text) + 10;
        b.rect = QRect(right - w, top, w, kButtonH);
        right -= w + 6;
    }
    return list;
}

QRect HistoryDelegate::actionRect(const QRect& rowRect, const QModelIndex& index, Action action,
                                  const QFont& font) const {
    for (const Button& b : buttons(rowRect, index, font))
        if (b.action == action) return b.rect;
    return {};
}

void HistoryDelegate::paint(QPainter* p, const QStyleOptionViewItem& option,
                            const QModelIndex& index) const {
    const PageColors c = pageColors(option.palette);
    const int kind = index.data(HistoryListModel::KindRole).toInt();
    p->save();
    p->setRenderHint(QPainter::Antialiasing);
    if (kind == HistoryListModel::HeaderRow) {
        QFont f = option.font;
        f.setBold(true);
        p->setFont(f);
        p->setPen(c.secondary);
        QString title = index.data(HistoryListModel::TitleRole).toString();
        p->drawText(option.rect.adjusted(4, 0, 0, -6), Qt::AlignLeft | Qt::AlignBottom, title);
        p->restore();
        return;
    }

    const QRect card = option.rect.adjusted(0, kCardGap, 0, -kCardGap);
    const bool selected = option.state & QStyle::State_Selected;
    p->setPen(QPen(selected ? c.accent : c.border, selected ? 1.5 : 1));
    p->setBrush(c.card);
    p->drawRoundedRect(QRectF(card).adjusted(0.5, 0.5, -0.5, -0.5), 10, 10);

    const QFont small = smallFont(option.font);
    const QFontMetrics sfm(small);
    int x = card.left() + kPad;
    const int top = card.top() + kPad;
    const QRect line(x, top, card.width() - 2 * kPad, kTopLine);

    p->setFont(small);
    p->setPen(c.secondary);
    const QString time = index.data(HistoryListModel::TimeRole).toString();
    p->drawText(QRect(x, top, 40, kTopLine), Qt::AlignVCenter | Qt::AlignLeft, time);
    x += sfm.horizontalAdvance(time) + 10;

    const QString app = index.data(HistoryListModel::AppRole).toString();
    paintAppBadge(*p, QRectF(x, top + (kTopLine - 18) / 2.0, 18, 18), app);
    x += 18 + 7;
    QFont bold = small;
    bold.setBold(true);
    p->setFont(bold);
    p->setPen(c.text);
    const QString appText = app.isEmpty() ? QStringLiteral("Application inconnue") : app;
    p->drawText(QRect(x, top, 400, kTopLine), Qt::AlignVCenter | Qt::AlignLeft, appText);
    x += QFontMetrics(bold).horizontalAdvance(appText) + 10;

    p->setFont(small);
    QStringList figures;
    const QString status = index.data(HistoryListModel::StatusRole).toString();
    const bool failed = !status.isEmpty();
    if (failed) {
        // "Échec" (or "En cours" while it is processed) as a tag, then the recording's length.
        const QColor ink = status == u"Échec" ? ViewStyle::colors(c.dark).danger : c.accent;
        const int w = sfm.horizontalAdvance(status) + 16;
        const QRect tag(x, top + (kTopLine - 20) / 2, w, 20);
        p->setPen(Qt::NoPen);
        QColor soft = ink;
        soft.setAlpha(40);
        p->setBrush(soft);
        p->drawRoundedRect(tag, 10, 10);
        p->setPen(ink);
        p->drawText(tag, Qt::AlignCenter, status);
        x += w + 10;
    }
    if (kind == HistoryListModel::DictationRow) {
        figures << index.data(HistoryListModel::WordsRole).toString();
        const QString speed = index.data(HistoryListModel::SpeedRole).toString();
        if (!speed.isEmpty()) figures << speed;
    } else {
        const QString action = index.data(HistoryListModel::ActionRole).toString();
        if (!action.isEmpty()) {
            const int w = sfm.horizontalAdvance(action) + 16;
            const QRect tag(x, top + (kTopLine - 20) / 2, w, 20);
            p->setPen(Qt::NoPen);
            p->setBrush(c.accentSoft);
            p->drawRoundedRect(tag, 10, 10);
            p->setPen(c.accent);
            p->drawText(tag, Qt::AlignCenter, action);
            x += w + 10;
        }
        const QString fixes = index.data(HistoryListModel::FixesRole).toString();
        if (!fixes.isEmpty()) figures << fixes;
    }
    const QList<Button> bs = buttons(option.rect, index, option.font);
    const int figuresRight = bs.isEmpty() ? line.right() : bs.last().rect.left() - 10;
    p->setPen(c.secondary);
    p->drawText(QRect(x, top, std::max(0, figuresRight - x), kTopLine),
                Qt::AlignVCenter | Qt::AlignLeft,
                sfm.elidedText(figures.join(QStringLiteral("  ·  ")), Qt::ElideRight,
                               std::max(0, figuresRight - x)));

    for (const Button& b : bs) {
        p->setPen(Qt::NoPen);
        p->setBrush(b.action == Retry ? c.accentSoft : c.control);
        p->drawRoundedRect(b.rect, kButtonH / 2.0, kButtonH / 2.0);
        const QColor ink =
            (b.action == Copy && b.text == u"Copié") || b.action == Retry ? c.accent : c.text;
        paintSymbol(*p, b.symbol, QRectF(b.rect.left() + 10, b.rect.top() + 6, 12, 12), ink);
        p->setPen(ink);
        p->drawText(b.rect.adjusted(10 + 12 + 5, 0, 0, 0), Qt::AlignVCenter | Qt::AlignLeft,
                    b.text);
    }

    p->setFont(option.font);
    p->setPen(failed ? c.secondary : c.text);
    const QFontMetrics fm(option.font);
    const QString text = index.data(HistoryListModel::TextRole).toString();
    const int textTop = top + kTopLine + kTextGap;
    const int width = card.width() - 2 * kPad;
    if (index.data(HistoryListModel::ExpandedRole).toBool()) {
        const int h = measuredHeight(text, width, option.font);
        p->drawText(QRect(x = card.left() + kPad, textTop, width, h),
                    Qt::TextWordWrap | Qt::TextWrapAnywhere, text);
        int y = textTop + h + 6;
        p->setPen(QPen(c.border, 1));
        p->drawLine(card.left() + kPad, y, card.right() - kPad, y);
        y += 6;
        QFont label = small;
        label.setBold(true);
        p->setFont(label);
        p->setPen(c.secondary);
        p->drawText(QRect(card.left() + kPad, y, width, sfm.lineSpacing()), Qt::AlignLeft,
                    kind == HistoryListModel::DictationRow ? QStringLiteral("Transcription brute")
                                                           : QStringLiteral("Texte d'origine"));
        y += sfm.lineSpacing() + 4;
        p->setFont(option.font);
        const QString second = index.data(HistoryListModel::SecondTextRole).toString();
        p->drawText(QRect(card.left() + kPad, y, width, measuredHeight(second, width, option.font)),
                    Qt::TextWordWrap | Qt::TextWrapAnywhere, second);
    } else {
        const int lines = closedLines(text, textWidth(), fm);
        drawWrapped(*p, QRect(card.left() + kPad, textTop, width, lines * fm.lineSpacing()), text,
                    lines);
    }
    p->restore();
}

bool HistoryDelegate::editorEvent(QEvent* event, QAbstractItemModel* model,
                                  const QStyleOptionViewItem& option, const QModelIndex& index) {
    if (event->type() == QEvent::MouseButtonRelease) {
        auto* me = static_cast<QMouseEvent*>(event);
        if (me->button() == Qt::LeftButton) {
            for (const Button& b : buttons(option.rect, index, option.font)) {
                if (b.rect.contains(me->position().toPoint())) {
                    Q_EMIT actionTriggered(index.row(), b.action);
                    return true;
                }
            }
        }
    }
    return QStyledItemDelegate::editorEvent(event, model, option, index);
}

// ---------------------------------------------------------------------------------------------
// The list view: gives the delegate its width, so heights follow the window.

namespace {

// A tree view used as a list: unlike a list view, it asks for the height of a row only when
// the row comes into sight, so a history of any length opens at once. It scrolls by rows.
class HistoryList : public QTreeView {
public:
    HistoryList(HistoryDelegate* delegate, QWidget* parent) : QTreeView(parent), d_(delegate) {
        setHeaderHidden(true);
        setRootIsDecorated(false);
        setIndentation(0);
        setUniformRowHeights(false);
        setItemsExpandable(false);
        setAllColumnsShowFocus(true);
        setVerticalScrollMode(QAbstractItemView::ScrollPerItem);
    }

protected:
    void resizeEvent(QResizeEvent* e) override {
        const int w = viewport()->width();
        QTreeView::resizeEvent(e);
        if (viewport()->width() != w || w != lastWidth_) {
            lastWidth_ = viewport()->width();
            d_->setWidth(lastWidth_);
            scheduleDelayedItemsLayout();
        }
    }
    void drawRow(QPainter* p, const QStyleOptionViewItem& option,
                 const QModelIndex& index) const override {
        // The delegate paints the whole row, selection included.
        d_->paint(p, option, index);
    }

private:
    HistoryDelegate* d_;
    int lastWidth_ = -1;
};

QPushButton* segment(const QString& text, const QString& name) {
    auto* b = new QPushButton(text);
    b->setObjectName(QStringLiteral("tab")); // the window's look of a segmented choice
    b->setProperty("choice", name);
    b->setCheckable(true);
    b->setCursor(Qt::PointingHandCursor);
    return b;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Page

HistoryView::HistoryView(Store& store, QWidget* parent) : QWidget(parent), store_(store) {
    setObjectName(QStringLiteral("historyPage"));
    model_ = new HistoryListModel(store_, this);
    delegate_ = new HistoryDelegate(this);
    player_ = new HistoryPlayer(this);

    auto* root = new QVBoxLayout(this);
    root->setContentsMargins(0, 0, 0, 0);
    root->setSpacing(14);

    auto* head = new QHBoxLayout;
    head->addWidget(makePageHeader(Page::History), 1);
    clear_ = new QPushButton(QStringLiteral("Tout effacer"));
    clear_->setObjectName(QStringLiteral("danger"));
    head->addWidget(clear_);
    root->addLayout(head);

    // Kind, search, period and application.
    auto* bar = new QHBoxLayout;
    bar->setSpacing(8);
    kinds_ = new QButtonGroup(this);
    auto* dictations = segment(QStringLiteral("Dictées"), QStringLiteral("kindDictations"));
    auto* corrections = segment(QStringLiteral("Corrections"), QStringLiteral("kindCorrections"));
    kinds_->addButton(dictations, 0);
    kinds_->addButton(corrections, 1);
    dictations->setChecked(true);
    bar->addWidget(dictations);
    bar->addWidget(corrections);
    bar->addSpacing(8);

    search_ = new QLineEdit;
    search_->setObjectName(QStringLiteral("historySearch"));
    search_->setPlaceholderText(QStringLiteral("Rechercher"));
    search_->setClearButtonEnabled(true);
    {
        QPixmap glass(32, 32);
        glass.fill(Qt::transparent);
        QPainter p(&glass);
        paintSymbol(p, QStringLiteral("search"), QRectF(6, 6, 20, 20), QColor(128, 128, 136));
        p.end();
        search_->addAction(QIcon(glass), QLineEdit::LeadingPosition);
    }
    bar->addWidget(search_, 1);

    ranges_ = new QButtonGroup(this);
    for (HistoryRange r : {HistoryRange::Today, HistoryRange::Week, HistoryRange::All}) {
        auto* b = segment(label(r), QStringLiteral("range_") + rawValue(r));
        ranges_->addButton(b, int(r));
        bar->addWidget(b);
        if (r == HistoryRange::All) b->setChecked(true);
    }

    apps_ = new QComboBox;
    apps_->setObjectName(QStringLiteral("historyApps"));
    apps_->setMinimumContentsLength(14);
    apps_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    bar->addWidget(apps_);
    root->addLayout(bar);

    // The question asked before everything is erased.
    confirm_ = new PageCard;
    confirm_->setObjectName(QStringLiteral("confirmClear"));
    {
        auto* l = new QHBoxLayout(confirm_);
        l->setContentsMargins(16, 10, 10, 10);
        auto* text = new QLabel(QStringLiteral(
            "Effacer tout l'historique ? Les dictées, les corrections et les enregistrements "
            "seront supprimés."));
        text->setWordWrap(true);
        l->addWidget(text, 1);
        auto* cancel = new QPushButton(QStringLiteral("Annuler"));
        auto* erase = new QPushButton(QStringLiteral("Effacer"));
        erase->setObjectName(QStringLiteral("danger"));
        l->addWidget(cancel);
        l->addWidget(erase);
        connect(cancel, &QPushButton::clicked, this, [this] { askClear(false); });
        connect(erase, &QPushButton::clicked, this, [this] {
            askClear(false);
            store_.clearHistory();
        });
    }
    confirm_->hide();
    root->addWidget(confirm_);

    list_ = new HistoryList(delegate_, this);
    list_->setObjectName(QStringLiteral("historyList"));
    list_->setModel(model_);
    list_->setItemDelegate(delegate_);
    list_->setFrameShape(QFrame::NoFrame);
    list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    list_->setSelectionMode(QAbstractItemView::SingleSelection);
    list_->setMouseTracking(true);
    list_->viewport()->setAutoFillBackground(false);
    list_->setAttribute(Qt::WA_TranslucentBackground);
    {
        const ViewStyle::Colors c = ViewStyle::colors(ViewStyle::darkNow());
        list_->setStyleSheet(
            QStringLiteral(
                "QTreeView { background: transparent; border: none; }"
                "QScrollBar:vertical { background: transparent; width: 10px; margin: 0; }"
                "QScrollBar::handle:vertical { background: %1; border-radius: 4px; "
                "min-height: 40px; margin: 0 2px; }"
                "QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0; }"
                "QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: none; "
                "}")
                .arg(c.border.name()));
    }

    empty_ = new QLabel;
    empty_->setObjectName(QStringLiteral("historyEmpty"));
    empty_->setAlignment(Qt::AlignCenter);
    empty_->setWordWrap(true);
    makeSecondary(empty_);

    stack_ = new QStackedWidget;
    stack_->addWidget(list_);
    stack_->addWidget(empty_);
    root->addWidget(stack_, 1);

    copiedTimer_ = new QTimer(this);
    copiedTimer_->setSingleShot(true);
    copiedTimer_->setInterval(1500);
    connect(copiedTimer_, &QTimer::timeout, this, [this] {
        delegate_->setCopied({});
        list_->viewport()->update();
    });

    connect(search_, &QLineEdit::textChanged, model_, &HistoryListModel::setSearch);
    connect(kinds_, &QButtonGroup::idClicked, model_, &HistoryListModel::setKind);
    connect(ranges_, &QButtonGroup::idClicked, this,
            [this](int id) { model_->setRange(HistoryRange(id)); });
    connect(apps_, &QComboBox::activated, this, [this](int i) {
        model_->setApp(i <= 0 ? std::nullopt : std::optional<QString>(apps_->itemText(i)));
    });
    connect(clear_, &QPushButton::clicked, this, [this] { askClear(true); });
    connect(delegate_, &HistoryDelegate::actionTriggered, this, &HistoryView::trigger);
    connect(model_, &HistoryListModel::appNamesChanged, this, &HistoryView::syncAppMenu);
    connect(model_, &QAbstractItemModel::modelReset, this, &HistoryView::syncEmptyState);
    // "Tout effacer" follows both lists, whichever kind is on show.
    connect(&store_, &Store::dictationsChanged, this, &HistoryView::syncEmptyState);
    connect(&store_, &Store::fixesChanged, this, &HistoryView::syncEmptyState);

    // Keyboard: Ctrl+C copies the chosen row, Return opens or closes it, Space plays it.
    auto* copy = new QShortcut(QKeySequence::Copy, list_, nullptr, nullptr, Qt::WidgetShortcut);
    connect(copy, &QShortcut::activated, this, [this] {
        if (list_->currentIndex().isValid())
            trigger(list_->currentIndex().row(), HistoryDelegate::Copy);
    });
    auto* open =
        new QShortcut(QKeySequence(Qt::Key_Return), list_, nullptr, nullptr, Qt::WidgetShortcut);
    connect(open, &QShortcut::activated, this, [this] {
        if (list_->currentIndex().isValid())
            trigger(list_->currentIndex().row(), HistoryDelegate::Disclose);
    });
    auto* play =
        new QShortcut(QKeySequence(Qt::Key_Space), list_, nullptr, nullptr, Qt::WidgetShortcut);
    connect(play, &QShortcut::activated, this, [this] {
        if (list_->currentIndex().isValid())
            trigger(list_->currentIndex().row(), HistoryDelegate::Play);
    });

    syncAppMenu();
    syncEmptyState();
}

void HistoryView::showEvent(QShowEvent* event) {
    // "Aujourd'hui" and "7 jours" move with the clock: the page reads them again when shown.
    if (model_->filter().range != HistoryRange::All) model_->refresh();
    QWidget::showEvent(event);
}

void HistoryView::trigger(int row, HistoryDelegate::Action action) {
    switch (action) {
    case HistoryDelegate::Retry:
        if (const Dictation* d = model_->dictationAt(row); d && onRetry) onRetry(d->id);
        break;
    case HistoryDelegate::Copy: {
        const Dictation* d = model_->dictationAt(row);
        if ((!d || d->failed()) && !model_->correctionAt(row)) return;
        Platform::current().clipboard().setText(model_->copyText(row), false);
        delegate_->setCopied(model_->index(row).data(HistoryListModel::IdRole).toUuid());
        copiedTimer_->start();
        list_->viewport()->update();
        break;
    }
    case HistoryDelegate::Play:
        if (const std::optional<QString> path = model_->audioPath(row)) player_->play(*path);
        break;
    case HistoryDelegate::Disclose: {
        model_->toggleExpanded(row);
        // The row changes height: the view measures it again.
        Q_EMIT delegate_->sizeHintChanged(model_->index(row));
        break;
    }
    case HistoryDelegate::NoAction:
        break;
    }
}

void HistoryView::syncAppMenu() {
    const QString current = apps_->currentIndex() > 0 ? apps_->currentText() : QString();
    const QStringList names = model_->appNames();
    apps_->clear();
    apps_->addItem(QStringLiteral("Toutes les applis"));
    apps_->addItems(names);
    const int at = current.isEmpty() ? -1 : int(names.indexOf(current));
    apps_->setCurrentIndex(at < 0 ? 0 : at + 1);
    if (at < 0 && model_->filter().app) model_->setApp(std::nullopt);
}

void HistoryView::syncEmptyState() {
    const bool none = model_->rowCount() == 0;
    if (none) {
        if (model_->kindIsEmpty()) {
            empty_->setText(model_->filter().kind == 0
                                ? QStringLiteral("Aucune dictée pour l'instant.\nMaintiens la "
                                                 "touche de dictée, parle, relâche : le texte "
                                                 "apparaîtra ici.")
                                : QStringLiteral("Aucune correction pour l'instant."));
        } else {
            empty_->setText(QStringLiteral("Aucun résultat."));
        }
    }
    stack_->setCurrentWidget(none ? static_cast<QWidget*>(empty_) : list_);
    clear_->setEnabled(!store_.dictations().isEmpty() || !store_.fixes().isEmpty());
}

void HistoryView::askClear(bool ask) {
    confirm_->setVisible(ask);
}

} // namespace ombry
