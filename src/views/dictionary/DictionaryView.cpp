#include "views/dictionary/DictionaryView.h"

#include "data/Store.h"
#include "views/common/ViewStyle.h"
#include "views/dashboard/DashboardPaint.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QStyle>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace ombry {

namespace {

// Lays its widgets out left to right and wraps to a new line when the width runs out.
class FlowLayout : public QLayout {
public:
    explicit FlowLayout(QWidget* parent, int spacing) : QLayout(parent), gap_(spacing) {
        setContentsMargins(0, 0, 0, 0);
    }
    ~FlowLayout() override {
        while (QLayoutItem* item = takeAt(0))
            delete item;
    }
    void addItem(QLayoutItem* item) override { items_.append(item); }
    int count() const override { return int(items_.size()); }
    QLayoutItem* itemAt(int i) const override { return items_.value(i); }
    QLayoutItem* takeAt(int i) override {
        return i >= 0 && i < items_.size() ? items_.takeAt(i) : nullptr;
    }
    Qt::Orientations expandingDirections() const override { return {}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override { return place(QRect(0, 0, width, 0), false); }
    void setGeometry(const QRect& r) override {
        QLayout::setGeometry(r);
        place(r, true);
    }
    QSize sizeHint() const override { return minimumSize(); }
    QSize minimumSize() const override {
        QSize s;
        for (QLayoutItem* item : items_)
            s = s.expandedTo(item->minimumSize());
        return s;
    }

private:
    int place(const QRect& r, bool apply) const {
        int x = r.x(), y = r.y(), line = 0;
        for (QLayoutItem* item : items_) {
            const QSize s = item->sizeHint();
            if (x + s.width() > r.right() + 1 && line > 0) {
                x = r.x();
                y += line + gap_;
                line = 0;
            }
            if (apply) item->setGeometry(QRect(QPoint(x, y), s));
            x += s.width() + gap_;
            line = std::max(line, s.height());
        }
        return y + line - r.y();
    }
    QList<QLayoutItem*> items_;
    int gap_;
};

// A rounded chip in the control colour.
class Chip : public QWidget {
public:
    using QWidget::QWidget;

protected:
    void paintEvent(QPaintEvent*) override {
        const PageColors c = pageColors(palette());
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(c.border, 1));
        p.setBrush(c.accentSoft);
        p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), height() / 2.0,
                          height() / 2.0);
    }
};

// A field that looks like plain text until it is being edited.
QLineEdit* flatField(const QString& text, const QString& name) {
    auto* f = new QLineEdit(text);
    f->setObjectName(name);
    f->setFrame(false);
    const ViewStyle::Colors c = ViewStyle::colors(ViewStyle::darkNow());
    f->setStyleSheet(QStringLiteral("QLineEdit { background: transparent; padding: 3px 6px; "
                                    "border: 1px solid transparent; border-radius: 6px; }"
                                    "QLineEdit:hover { border-color: %1; }"
                                    "QLineEdit:focus { background: %2; border-color: %3; }")
                         .arg(c.border.name(), c.control.name(), c.accent.name()));
    f->setCursorPosition(0);
    return f;
}

QToolButton* iconButton(const QString& symbol, const QString& name, const QString& tip,
                        const QColor& color) {
    auto* b = new QToolButton;
    b->setObjectName(name);
    b->setIcon(symbolIcon(symbol, color, 16));
    b->setToolTip(tip);
    b->setAutoRaise(true);
    b->setCursor(Qt::PointingHandCursor);
    return b;
}

class ArrowMark : public QWidget {
public:
    ArrowMark() { setFixedSize(18, 18); }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        paintSymbol(p, QStringLiteral("arrow"), QRectF(rect()).adjusted(2, 2, -2, -2),
                    pageColors(palette()).secondary);
    }
};

QLabel* hint(const QString& text) {
    auto* l = new QLabel(text);
    l->setWordWrap(true);
    makeSecondary(l);
    return l;
}

QWidget* cardHead(const QString& symbol, const QString& title, const QString& text) {
    auto* w = new QWidget;
    auto* l = new QHBoxLayout(w);
    l->setContentsMargins(0, 0, 0, 0);
    l->setSpacing(12);
    l->addWidget(new SymbolCircle(symbol, 34), 0, Qt::AlignTop);
    auto* texts = new QVBoxLayout;
    texts->setSpacing(2);
    texts->addWidget(makeCardTitle(title));
    texts->addWidget(hint(text));
    l->addLayout(texts, 1);
    return w;
}

// The rows are replaced once the signal that asked for it has returned: the widget that sent
// it may be one of them.
void clearLater(QLayout* layout) {
    while (QLayoutItem* item = layout->takeAt(0)) {
        if (QWidget* w = item->widget()) {
            w->hide();
            w->deleteLater();
        }
        delete item;
    }
}

// A row whose record changed elsewhere shows the new values, but for a field being typed in.
void refreshRow(QWidget* row, const QString& left, const QString& right) {
    if (!row) return;
    for (const auto& [name, text] : {std::pair{QStringLiteral("rowLeft"), left},
                                     std::pair{QStringLiteral("rowRight"), right}}) {
        auto* field = row->findChild<QLineEdit*>(name);
        if (field && !field->hasFocus() && field->text() != text) field->setText(text);
    }
}

} // namespace

DictionaryView::DictionaryView(Store& store, QWidget* parent)
    : QWidget(parent), store_(store), editor_(store) {
    setObjectName(QStringLiteral("dictionaryPage"));
    QVBoxLayout* root = makeScrolledPage(this);
    root->addWidget(makePageHeader(Page::Dictionary));

    // My words.
    {
        auto* card = new PageCard;
        card->setObjectName(QStringLiteral("wordsCard"));
        auto* l = new QVBoxLayout(card);
        l->setContentsMargins(20, 18, 20, 18);
        l->setSpacing(12);
        l->addWidget(cardHead(QStringLiteral("book"), QStringLiteral("Mes mots"),
                              QStringLiteral("Noms, termes et sigles que la transcription doit "
                                             "reconnaître. Double-clique sur un mot pour le "
                                             "modifier.")));
        auto* entry = new QHBoxLayout;
        newWord_ = new QLineEdit;
        newWord_->setObjectName(QStringLiteral("newWord"));
        newWord_->setPlaceholderText(QStringLiteral("Nouveau mot"));
        addWord_ = new QPushButton(QStringLiteral("Ajouter"));
        addWord_->setObjectName(QStringLiteral("addWord"));
        entry->addWidget(newWord_, 1);
        entry->addWidget(addWord_);
        l->addLayout(entry);
        chipsBox_ = new QWidget;
        chipsBox_->setObjectName(QStringLiteral("wordChips"));
        chips_ = new FlowLayout(chipsBox_, 8);
        l->addWidget(chipsBox_);
        noWords_ = hint(QStringLiteral("Aucun mot pour l'instant."));
        l->addWidget(noWords_);
        root->addWidget(card);
        connect(newWord_, &QLineEdit::returnPressed, this, &DictionaryView::addWord);
        connect(addWord_, &QPushButton::clicked, this, &DictionaryView::addWord);
    }

    const auto pairCard =
        [&](const QString& name, const QString& symbol, const QString& title, const QString& text,
            const QString& leftHint, const QString& rightHint, QLineEdit*& left, QLineEdit*& right,
            QPushButton*& add, QVBoxLayout*& rows, QLabel*& none, const QString& emptyText) {
            auto* card = new PageCard;
            card->setObjectName(name);
            auto* l = new QVBoxLayout(card);
            l->setContentsMargins(20, 18, 20, 18);
            l->setSpacing(12);
            l->addWidget(cardHead(symbol, title, text));
            auto* entry = new QHBoxLayout;
            left = new QLineEdit;
            left->setPlaceholderText(leftHint);
            right = new QLineEdit;
            right->setPlaceholderText(rightHint);
            add = new QPushButton(QStringLiteral("Ajouter"));
            entry->addWidget(left, 2);
            entry->addWidget(new ArrowMark);
            entry->addWidget(right, 3);
            entry->addWidget(add);
            l->addLayout(entry);
            rows = new QVBoxLayout;
            rows->setSpacing(0);
            l->addLayout(rows);
            none = hint(emptyText);
            l->addWidget(none);
            root->addWidget(card);
        };

    pairCard(
        QStringLiteral("snippetsCard"), QStringLiteral("bolt"), QStringLiteral("Raccourcis vocaux"),
        QStringLiteral("Dis la phrase seule : Ombry Voice écrit le texte à la place. Par "
                       "exemple « mon adresse »."),
        QStringLiteral("Quand je dis"), QStringLiteral("Ombry Voice écrit"), trigger_, snippetText_,
        addSnippet_, snippetRows_, noSnippets_, QStringLiteral("Aucun raccourci pour l'instant."));
    trigger_->setObjectName(QStringLiteral("snippetTrigger"));
    snippetText_->setObjectName(QStringLiteral("snippetText"));
    addSnippet_->setObjectName(QStringLiteral("addSnippet"));
    trigger_->setToolTip(QStringLiteral("Par exemple « mon adresse »"));

    pairCard(QStringLiteral("correctionsCard"), QStringLiteral("wand"),
             QStringLiteral("Corrections automatiques"),
             QStringLiteral("Ce que la transcription entend mal, remplacé à chaque dictée, dans "
                            "l'ordre de la liste."),
             QStringLiteral("Ce qui est entendu"), QStringLiteral("Ce qui doit s'écrire"), heard_,
             written_, addCorrection_, correctionRows_, noCorrections_,
             QStringLiteral("Aucune correction pour l'instant."));
    heard_->setObjectName(QStringLiteral("correctionHeard"));
    written_->setObjectName(QStringLiteral("correctionWritten"));
    addCorrection_->setObjectName(QStringLiteral("addCorrection"));
    root->addStretch();

    for (QLineEdit* f : {trigger_, snippetText_}) {
        connect(f, &QLineEdit::returnPressed, this, &DictionaryView::addSnippet);
        connect(f, &QLineEdit::textChanged, this, &DictionaryView::updateButtons);
    }
    for (QLineEdit* f : {heard_, written_}) {
        connect(f, &QLineEdit::returnPressed, this, &DictionaryView::addCorrection);
        connect(f, &QLineEdit::textChanged, this, &DictionaryView::updateButtons);
    }
    connect(newWord_, &QLineEdit::textChanged, this, &DictionaryView::updateButtons);
    connect(addSnippet_, &QPushButton::clicked, this, &DictionaryView::addSnippet);
    connect(addCorrection_, &QPushButton::clicked, this, &DictionaryView::addCorrection);

    connect(&store_, &Store::wordsChanged, this, &DictionaryView::syncWords);
    connect(&store_, &Store::snippetsChanged, this, &DictionaryView::syncSnippets);
    connect(&store_, &Store::correctionsChanged, this, &DictionaryView::syncCorrections);
    syncWords();
    syncSnippets();
    syncCorrections();
    updateButtons();
}

void DictionaryView::updateButtons() {
    addWord_->setEnabled(!DictionaryEditor::isBlank(newWord_->text()));
    addSnippet_->setEnabled(!DictionaryEditor::isBlank(trigger_->text()) &&
                            !DictionaryEditor::isBlank(snippetText_->text()));
    addCorrection_->setEnabled(!DictionaryEditor::isBlank(heard_->text()) &&
                               !DictionaryEditor::isBlank(written_->text()));
}

void DictionaryView::addWord() {
    QString text = newWord_->text();
    if (editor_.addWord(text)) newWord_->clear();
}

void DictionaryView::addSnippet() {
    QString trigger = trigger_->text(), text = snippetText_->text();
    if (!editor_.addSnippet(trigger, text)) return;
    trigger_->clear();
    snippetText_->clear();
    trigger_->setFocus();
}

void DictionaryView::addCorrection() {
    QString heard = heard_->text(), written = written_->text();
    if (!editor_.addCorrection(heard, written)) return;
    heard_->clear();
    written_->clear();
    heard_->setFocus();
}

QWidget* DictionaryView::makeWordChip(int index, const QString& word) {
    auto* chip = new Chip;
    chip->setObjectName(QStringLiteral("wordChip"));
    chip->setProperty("word", word);
    auto* l = new QHBoxLayout(chip);
    l->setContentsMargins(12, 2, 4, 2);
    l->setSpacing(2);
    auto* label = new QLabel(word);
    label->setObjectName(QStringLiteral("wordLabel"));
    auto* edit = new QLineEdit(word);
    edit->setObjectName(QStringLiteral("wordEdit"));
    edit->setFrame(false);
    edit->hide();
    auto* remove =
        iconButton(QStringLiteral("cross"), QStringLiteral("removeWord"),
                   QStringLiteral("Retirer « %1 »").arg(word), pageColors(palette()).secondary);
    remove->setIconSize(QSize(12, 12));
    l->addWidget(label);
    l->addWidget(edit);
    l->addWidget(remove);
    connect(remove, &QToolButton::clicked, this, [this, word] { editor_.removeWord(word); });

    // A double click turns the chip into a field; Enter or leaving it saves, Escape cancels.
    struct Editing : QObject {
        QLabel* label;
        QLineEdit* edit;
        std::function<void()> begin;
        bool eventFilter(QObject* o, QEvent* e) override {
            if (o == label && e->type() == QEvent::MouseButtonDblClick) {
                begin();
                return true;
            }
            if (o == edit && e->type() == QEvent::KeyPress &&
                static_cast<QKeyEvent*>(e)->key() == Qt::Key_Escape) {
                edit->setText(label->text());
                edit->hide();
                label->show();
                return true;
            }
            return false;
        }
    };
    auto* editing = new Editing;
    editing->setParent(chip);
    editing->label = label;
    editing->edit = edit;
    editing->begin = [label, edit] {
        label->hide();
        edit->setText(label->text());
        edit->setMinimumWidth(std::max(80, label->width() + 30));
        edit->show();
        edit->setFocus();
        edit->selectAll();
    };
    label->installEventFilter(editing);
    edit->installEventFilter(editing);
    connect(edit, &QLineEdit::editingFinished, this, [this, index, label, edit] {
        if (!edit->isVisible()) return;
        const QString text = edit->text();
        edit->hide();
        label->show();
        editor_.editWord(index, text);
    });
    return chip;
}

QWidget* DictionaryView::makePairRow(const QString& kind, const QUuid& id, const QString& left,
                                     const QString& right) {
    auto* row = new QWidget;
    row->setObjectName(kind + QStringLiteral("Row"));
    row->setProperty("recordId", id);
    auto* l = new QHBoxLayout(row);
    l->setContentsMargins(0, 2, 0, 2);
    l->setSpacing(8);
    QLineEdit* a = flatField(left, QStringLiteral("rowLeft"));
    QLineEdit* b = flatField(right, QStringLiteral("rowRight"));
    QFont f = a->font();
    f.setBold(true);
    a->setFont(f);
    auto* remove = iconButton(QStringLiteral("trash"), QStringLiteral("removeRow"),
                              QStringLiteral("Supprimer"), pageColors(palette()).secondary);
    l->addWidget(a, 2);
    l->addWidget(new ArrowMark);
    l->addWidget(b, 3);
    l->addWidget(remove);
    const bool snippet = kind == u"snippet";
    const auto save = [this, id, a, b, snippet] {
        const bool saved = snippet ? editor_.editSnippet(id, a->text(), b->text())
                                   : editor_.editCorrection(id, a->text(), b->text());
        if (saved) return;
        // A blank field is not kept: the row shows the stored values again.
        if (snippet) {
            for (const Snippet& s : store_.snippets())
                if (s.id == id) a->setText(s.trigger), b->setText(s.text);
        } else {
            for (const Correction& c : store_.corrections())
                if (c.id == id) a->setText(c.heard), b->setText(c.written);
        }
    };
    connect(a, &QLineEdit::editingFinished, this, save);
    connect(b, &QLineEdit::editingFinished, this, save);
    connect(remove, &QToolButton::clicked, this, [this, id, snippet] {
        snippet ? editor_.removeSnippet(id) : editor_.removeCorrection(id);
    });
    return row;
}

void DictionaryView::syncWords() {
    if (store_.words() == shownWords_ && chips_->count() == shownWords_.size()) return;
    shownWords_ = store_.words();
    clearLater(chips_);
    for (int i = 0; i < shownWords_.size(); ++i)
        chips_->addWidget(makeWordChip(i, shownWords_.at(i)));
    noWords_->setVisible(shownWords_.isEmpty());
    chipsBox_->setVisible(!shownWords_.isEmpty());
}

void DictionaryView::syncSnippets() {
    const QList<Snippet>& list = store_.snippets();
    // An edit made in a row is already on show: the row (and the field being typed in) stays.
    const bool sameRows =
        list.size() == shownSnippets_.size() &&
        std::equal(list.begin(), list.end(), shownSnippets_.begin(),
                   [](const Snippet& x, const Snippet& y) { return x.id == y.id; });
    shownSnippets_ = list;
    if (!sameRows || snippetRows_->count() != list.size()) {
        clearLater(snippetRows_);
        for (const Snippet& s : list)
            snippetRows_->addWidget(
                makePairRow(QStringLiteral("snippet"), s.id, s.trigger, s.text));
    } else {
        for (int i = 0; i < list.size(); ++i)
            refreshRow(snippetRows_->itemAt(i)->widget(), list.at(i).trigger, list.at(i).text);
    }
    noSnippets_->setVisible(list.isEmpty());
}

void DictionaryView::syncCorrections() {
    const QList<Correction>& list = store_.corrections();
    const bool sameRows =
        list.size() == shownCorrections_.size() &&
        std::equal(list.begin(), list.end(), shownCorrections_.begin(),
                   [](const Correction& x, const Correction& y) { return x.id == y.id; });
    shownCorrections_ = list;
    if (!sameRows || correctionRows_->count() != list.size()) {
        clearLater(correctionRows_);
        for (const Correction& c : list)
            correctionRows_->addWidget(
                makePairRow(QStringLiteral("correction"), c.id, c.heard, c.written));
    } else {
        for (int i = 0; i < list.size(); ++i)
            refreshRow(correctionRows_->itemAt(i)->widget(), list.at(i).heard, list.at(i).written);
    }
    noCorrections_->setVisible(list.isEmpty());
}

} // namespace ombry
