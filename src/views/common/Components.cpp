#include "views/common/Components.h"

#include "views/common/Symbols.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

namespace ombry::Components {

QLabel* text(const QString& t, const char* role, QWidget* parent) {
    auto* l = new QLabel(t, parent);
    if (role) l->setObjectName(QLatin1String(role));
    l->setWordWrap(true);
    l->setTextInteractionFlags(Qt::NoTextInteraction);
    return l;
}

QFrame* card(QVBoxLayout** layout, QWidget* parent) {
    auto* f = new QFrame(parent);
    f->setObjectName(QStringLiteral("card"));
    auto* v = new QVBoxLayout(f);
    v->setContentsMargins(18, 16, 18, 16);
    v->setSpacing(12);
    if (layout) *layout = v;
    return f;
}

QWidget* pageHeader(const QString& title, const QString& subtitle, QWidget* parent) {
    auto* w = new QWidget(parent);
    auto* v = new QVBoxLayout(w);
    v->setContentsMargins(0, 0, 0, 6);
    v->setSpacing(4);
    v->addWidget(text(title, "pageTitle"));
    if (!subtitle.isEmpty()) v->addWidget(text(subtitle, "pageSubtitle"));
    return w;
}

QLabel* sectionTitle(const QString& title, QWidget* parent) {
    auto* l = text(title, "sectionTitle", parent);
    return l;
}

QWidget* row(const QString& title, const QString& detail, QWidget* control, QWidget* parent) {
    auto* w = new QWidget(parent);
    auto* h = new QHBoxLayout(w);
    h->setContentsMargins(0, 0, 0, 0);
    h->setSpacing(16);
    auto* left = new QVBoxLayout;
    left->setSpacing(2);
    left->addWidget(text(title));
    if (!detail.isEmpty()) left->addWidget(text(detail, "rowDetail"));
    h->addLayout(left, 1);
    if (control) h->addWidget(control, 0, Qt::AlignRight | Qt::AlignVCenter);
    return w;
}

QLabel* symbol(const QString& name, const QColor& color, int size, QWidget* parent) {
    auto* l = new QLabel(parent);
    l->setPixmap(Symbols::icon(name, color, size).pixmap(size, size));
    l->setFixedSize(size, size);
    return l;
}

} // namespace ombry::Components
