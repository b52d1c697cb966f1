#include "views/dashboard/DashboardView.h"

#include "data/Settings.h"
#include "data/Store.h"
#include "online/Credits.h"
#include "online/OmbryAI.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "views/dashboard/DashboardPaint.h"
#include "views/history/HistoryModel.h"

#include <QEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHelpEvent>
#include <QLabel>
#include <QLocale>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QTimer>
#include <QToolTip>
#include <QVBoxLayout>
#include <cmath>

namespace ombry {

namespace {

QDate today() {
    return Platform::current().clock().now().toLocalTime().date();
}

// A label with its own type and colour (the window's style sheet sets those of every widget).
QLabel* styled(QLabel* l, const QString& css) {
    l->setStyleSheet(css);
    return l;
}

// The top card: painted in the product's accent, with white text.
class HeroPanel : public QWidget {
public:
    using QWidget::QWidget;

protected:
    void paintEvent(QPaintEvent*) override {
        const PageColors c = pageColors(palette());
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        QLinearGradient g(rect().topLeft(), rect().bottomRight());
        g.setColorAt(0, c.dark ? QColor(0, 128, 118) : QColor(0, 166, 152));
        g.setColorAt(1, c.dark ? QColor(30, 84, 130) : QColor(44, 120, 200));
        p.setPen(Qt::NoPen);
        p.setBrush(g);
        p.drawRoundedRect(QRectF(rect()), 16, 16);
        // A faint wave across the card, the mark of the product.
        QPainterPath wave;
        const qreal h = height(), w = width();
        wave.moveTo(w * 0.45, h);
        wave.cubicTo(w * 0.6, h * 0.35, w * 0.8, h * 1.05, w, h * 0.25);
        wave.lineTo(w, h);
        wave.closeSubpath();
        p.setBrush(QColor(255, 255, 255, 22));
        p.drawPath(wave);
    }
};

// A small white symbol in a translucent circle, for the pills of the top card.
class PillIcon : public QWidget {
public:
    explicit PillIcon(QWidget* parent = nullptr) : QWidget(parent) { setFixedSize(28, 28); }
    void setSymbol(const QString& s) {
        symbol_ = s;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(255, 255, 255, 46));
        p.drawEllipse(QRectF(rect()));
        paintSymbol(p, symbol_, QRectF(rect()).adjusted(7, 7, -7, -7), Qt::white);
    }

private:
    QString symbol_;
};

// One line of "Où je dicte": badge, name, a bar of the share and the percentage.
class AppLine : public QWidget {
public:
    AppLine(const AppShareLine& line, QWidget* parent) : QWidget(parent), line_(line) {
        setFixedHeight(34);
        setObjectName(QStringLiteral("appLine"));
        setAccessibleName(line.name + QLatin1Char(' ') + line.percent);
    }
    const AppShareLine& line() const { return line_; }

protected:
    void paintEvent(QPaintEvent*) override {
        const PageColors c = pageColors(palette());
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const int h = height();
        paintAppBadge(p, QRectF(0, (h - 22) / 2.0, 22, 22), line_.name);
        const QFontMetrics fm(font());
        const int pctW = fm.horizontalAdvance(QStringLiteral("100 %")) + 4;
        const int nameW = std::min(170, width() / 3);
        p.setPen(c.text);
        p.drawText(QRect(32, 0, nameW, h), Qt::AlignVCenter | Qt::AlignLeft,
                   fm.elidedText(line_.name.isEmpty() ? QStringLiteral("Application inconnue")
                                                      : line_.name,
                                 Qt::ElideRight, nameW));
        const QRectF track(32 + nameW + 8, h / 2.0 - 4, width() - (32 + nameW + 8) - pctW - 10, 8);
        p.setPen(Qt::NoPen);
        p.setBrush(c.control);
        p.drawRoundedRect(track, 4, 4);
        p.setBrush(c.accent);
        p.drawRoundedRect(QRectF(track.left(), track.top(), track.width() * line_.share, 8), 4, 4);
        p.setPen(c.secondary);
        p.drawText(QRect(width() - pctW, 0, pctW, h), Qt::AlignVCenter | Qt::AlignRight,
                   line_.percent);
    }

private:
    AppShareLine line_;
};

} // namespace

// ---------------------------------------------------------------------------------------------
// Chart

WordsChart::WordsChart(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("wordsChart"));
    setFixedHeight(240);
    setMouseTracking(true);
}

void WordsChart::setDays(const QList<DayWords>& days) {
    days_ = days;
    update();
}

QRectF WordsChart::plotRect() const {
    const QFontMetrics fm(font());
    const int left = fm.horizontalAdvance(Dashboard::number(scaleTop())) + 12;
    return QRectF(left, 10, width() - left - 4, height() - 10 - fm.height() - 10);
}

QList<qint64> WordsChart::scaleLines() const {
    int most = 0;
    for (const DayWords& d : days_)
        most = std::max(most, d.words);
    return Dashboard::chartLines(most);
}

int WordsChart::scaleTop() const {
    return int(scaleLines().last());
}

QRectF WordsChart::barRect(int i) const {
    if (i < 0 || i >= days_.size()) return {};
    const QRectF plot = plotRect();
    const qreal slot = plot.width() / days_.size();
    const qreal barW = std::min<qreal>(36, slot * 0.62);
    const qreal h = plot.height() * days_.at(i).words / scaleTop();
    const qreal x = plot.left() + slot * i + (slot - barW) / 2;
    return QRectF(x, plot.bottom() - h, barW, h);
}

void WordsChart::paintEvent(QPaintEvent*) {
    const PageColors c = pageColors(palette());
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF plot = plotRect();
    const QList<qint64> lines = scaleLines();
    const QFont small = scaledFont(font(), 0.88);
    p.setFont(small);
    const QFontMetrics fm(small);

    // The lines of the scale, labelled on the left with their values.
    for (const qint64 value : lines) {
        const qreal y = plot.bottom() - plot.height() * value / lines.last();
        p.setPen(QPen(value == 0 ? c.border.darker(120) : c.border, 1,
                      value == 0 ? Qt::SolidLine : Qt::DashLine));
        p.drawLine(QPointF(plot.left(), y), QPointF(plot.right(), y));
        p.setPen(c.secondary);
        p.drawText(QRectF(0, y - fm.height() / 2.0, plot.left() - 8, fm.height()),
                   Qt::AlignRight | Qt::AlignVCenter, Dashboard::number(value));
    }

    const QDate now = today();
    const qreal slot = days_.isEmpty() ? 0 : plot.width() / days_.size();
    for (int i = 0; i < days_.size(); ++i) {
        const QRectF bar = barRect(i);
        const QDate day = days_.at(i).day.date();
        if (bar.height() > 0.5) {
            QLinearGradient g(bar.topLeft(), bar.bottomLeft());
            g.setColorAt(0, c.accent.lighter(day == now ? 100 : 115));
            g.setColorAt(1, c.accent.darker(day == now ? 115 : 100));
            QPainterPath path;
            const qreal r = std::min<qreal>(6, std::min(bar.width() / 2, bar.height()));
            path.addRoundedRect(bar.adjusted(0, 0, 0, r), r, r);
            p.save();
            p.setClipRect(QRectF(bar.left() - 1, bar.top() - 1, bar.width() + 2, bar.height() + 1));
            p.setPen(Qt::NoPen);
            p.setBrush(g);
            if (day != now) p.setOpacity(0.75);
            p.drawPath(path);
            p.restore();
        }
        // Day of the month under each bar (with its month on the first of a month); today's
        // in the text colour.
        p.setPen(day == now ? c.text : c.secondary);
        p.drawText(
            QRectF(plot.left() + slot * i - slot / 2, plot.bottom() + 6, slot * 2, fm.height()),
            Qt::AlignHCenter | Qt::AlignTop,
            day.day() == 1
                ? QLocale(QLocale::French, QLocale::France).toString(day, QStringLiteral("d MMM"))
                : QString::number(day.day()));
    }
}

bool WordsChart::event(QEvent* e) {
    if (e->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(e);
        const QRectF plot = plotRect();
        if (!days_.isEmpty() && plot.contains(help->pos())) {
            const int i = int((help->pos().x() - plot.left()) / (plot.width() / days_.size()));
            if (i >= 0 && i < days_.size()) {
                QToolTip::showText(help->globalPos(),
                                   historyDayTitle(days_.at(i).day.date()) + QStringLiteral(" : ") +
                                       Dashboard::counted(days_.at(i).words, QStringLiteral("mot"),
                                                          QStringLiteral("mots")),
                                   this);
                return true;
            }
        }
        QToolTip::hideText();
        e->ignore();
        return true;
    }
    return QWidget::event(e);
}

// ---------------------------------------------------------------------------------------------
// Page

DashboardView::DashboardView(Store& store, AppSettings& settings, QWidget* parent)
    : QWidget(parent), store_(store), settings_(settings) {
    setObjectName(QStringLiteral("dashboardPage"));
    QVBoxLayout* root = makeScrolledPage(this);

    root->addWidget(makePageHeader(Page::Dashboard));

    // Top card.
    auto* hero = new HeroPanel;
    hero->setObjectName(QStringLiteral("heroCard"));
    {
        auto* l = new QVBoxLayout(hero);
        l->setContentsMargins(24, 18, 24, 18);
        l->setSpacing(4);
        auto* caption = styled(new QLabel(QStringLiteral("Aujourd'hui")),
                               QStringLiteral("font-size: 14px; font-weight: 600; "
                                              "color: rgba(255,255,255,215);"));
        today_ =
            styled(new QLabel, QStringLiteral("font-size: 36px; font-weight: 800; color: white;"));
        today_->setObjectName(QStringLiteral("todayWords"));
        l->addWidget(caption);
        l->addWidget(today_);
        l->addSpacing(6);
        auto* row = new QHBoxLayout;
        row->setSpacing(10);
        for (int i = 0; i < 3; ++i) {
            auto* pill = new QWidget;
            pill->setObjectName(QStringLiteral("pill%1").arg(i));
            pill->setAttribute(Qt::WA_StyledBackground);
            pill->setStyleSheet(QStringLiteral("#pill%1 { background: rgba(255,255,255,36); "
                                               "border-radius: 17px; }")
                                    .arg(i));
            auto* pl = new QHBoxLayout(pill);
            pl->setContentsMargins(4, 3, 14, 3);
            pl->setSpacing(8);
            auto* icon = new PillIcon;
            auto* value = styled(
                new QLabel, QStringLiteral("font-size: 14px; font-weight: 700; color: white;"));
            auto* text = styled(new QLabel, QStringLiteral("color: rgba(255,255,255,225);"));
            value->setObjectName(QStringLiteral("pillValue%1").arg(i));
            text->setObjectName(QStringLiteral("pillLabel%1").arg(i));
            pl->addWidget(icon);
            pl->addWidget(value);
            pl->addWidget(text);
            row->addWidget(pill);
            pills_ << pill;
            pillValues_ << value;
            pillLabels_ << text;
            pillIcons_ << icon;
        }
        row->addStretch();
        l->addLayout(row);
    }
    root->addWidget(hero);

    // Four figures.
    auto* cards = new QHBoxLayout;
    cards->setSpacing(12);
    const QStringList symbols{QStringLiteral("words"), QStringLiteral("sun"),
                              QStringLiteral("speed"), QStringLiteral("hourglass")};
    const QStringList titles{QStringLiteral("Mots dictés"), QStringLiteral("Aujourd'hui"),
                             QStringLiteral("Vitesse"), QStringLiteral("Temps gagné")};
    for (int i = 0; i < 4; ++i) {
        auto* card = new PageCard;
        card->setObjectName(QStringLiteral("statCard%1").arg(i));
        auto* l = new QVBoxLayout(card);
        l->setContentsMargins(16, 14, 16, 14);
        l->setSpacing(4);
        auto* head = new QHBoxLayout;
        head->setSpacing(8);
        head->addWidget(new SymbolCircle(symbols.at(i), 28));
        auto* title = new QLabel(titles.at(i));
        makeSecondary(title);
        head->addWidget(title);
        head->addStretch();
        l->addLayout(head);
        auto* value = styled(new QLabel, QStringLiteral("font-size: 24px; font-weight: 700;"));
        value->setObjectName(QStringLiteral("statValue%1").arg(i));
        auto* detail = new QLabel;
        detail->setObjectName(QStringLiteral("statDetail%1").arg(i));
        makeSecondary(detail);
        l->addWidget(value);
        l->addWidget(detail);
        cards->addWidget(card, 1);
        cardValues_ << value;
        cardDetails_ << detail;
    }
    root->addLayout(cards);

    // Chart and applications side by side.
    auto* lower = new QHBoxLayout;
    lower->setSpacing(12);
    auto* chartCard = new PageCard;
    {
        auto* l = new QVBoxLayout(chartCard);
        l->setContentsMargins(18, 16, 18, 12);
        l->setSpacing(10);
        l->addWidget(makeCardTitle(QStringLiteral("Mots dictés par jour")));
        chart_ = new WordsChart;
        l->addWidget(chart_);
    }
    lower->addWidget(chartCard, 3);

    auto* appsCard = new PageCard;
    {
        auto* l = new QVBoxLayout(appsCard);
        l->setContentsMargins(18, 16, 18, 12);
        l->setSpacing(10);
        l->addWidget(makeCardTitle(QStringLiteral("Où je dicte")));
        apps_ = new QWidget;
        apps_->setObjectName(QStringLiteral("appShares"));
        appsLayout_ = new QVBoxLayout(apps_);
        appsLayout_->setContentsMargins(0, 0, 0, 0);
        appsLayout_->setSpacing(2);
        l->addWidget(apps_);
        appsEmpty_ = new QLabel(QStringLiteral("Tes applications apparaîtront ici après tes "
                                               "premières dictées."));
        appsEmpty_->setWordWrap(true);
        makeSecondary(appsEmpty_);
        l->addWidget(appsEmpty_);
        l->addStretch();
        auto* all = new QPushButton(QStringLiteral("Tout voir"));
        all->setObjectName(QStringLiteral("showHistory"));
        all->setCursor(Qt::PointingHandCursor);
        connect(all, &QPushButton::clicked, this, &DashboardView::showHistory);
        auto* foot = new QHBoxLayout;
        foot->addStretch();
        foot->addWidget(all);
        l->addLayout(foot);
    }
    lower->addWidget(appsCard, 2);
    root->addLayout(lower);
    root->addStretch();

    // Changes arrive in bursts (a dictation changes the list and the statistics): one read
    // after the burst.
    pending_ = new QTimer(this);
    pending_->setSingleShot(true);
    pending_->setInterval(0);
    connect(pending_, &QTimer::timeout, this, &DashboardView::refresh);
    connect(&store_, &Store::statsChanged, this, &DashboardView::scheduleRefresh);
    connect(&store_, &Store::dictationsChanged, this, &DashboardView::scheduleRefresh);
    connect(&store_, &Store::fixesChanged, this, &DashboardView::scheduleRefresh);
    connect(&store_, &Store::costsChanged, this, &DashboardView::scheduleRefresh);
    connect(&settings_, &AppSettings::typingWPMChanged, this, &DashboardView::scheduleRefresh);
    connect(&settings_, &AppSettings::ownKeyModeChanged, this, &DashboardView::scheduleRefresh);
    connect(&Credits::shared(), &Credits::balanceChanged, this, &DashboardView::scheduleRefresh);
    refresh();
}

void DashboardView::scheduleRefresh() {
    pending_->start();
}

void DashboardView::showEvent(QShowEvent* event) {
    // The day may have changed since the page was last on show.
    refresh();
    QWidget::showEvent(event);
}

void DashboardView::refresh() {
    pending_->stop();
    snapshot_ = Dashboard::compute(store_, settings_.typingWPM(), OmbryAI::usesCredits(),
                                   Credits::shared().balance(), today());
    today_->setText(snapshot_.todayText);
    for (int i = 0; i < pills_.size(); ++i) {
        const bool shown = i < snapshot_.pills.size();
        pills_.at(i)->setVisible(shown);
        if (!shown) continue;
        const HeroPill& pill = snapshot_.pills.at(i);
        static_cast<PillIcon*>(pillIcons_.at(i))->setSymbol(pill.icon);
        pillValues_.at(i)->setText(pill.value);
        pillLabels_.at(i)->setText(pill.label);
    }
    for (int i = 0; i < cardValues_.size() && i < snapshot_.cards.size(); ++i) {
        cardValues_.at(i)->setText(snapshot_.cards.at(i).value);
        cardDetails_.at(i)->setText(snapshot_.cards.at(i).detail.isEmpty()
                                        ? QStringLiteral(" ")
                                        : snapshot_.cards.at(i).detail);
    }
    chart_->setDays(snapshot_.days);

    while (QLayoutItem* item = appsLayout_->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    for (const AppShareLine& line : snapshot_.apps)
        appsLayout_->addWidget(new AppLine(line, apps_));
    appsEmpty_->setVisible(snapshot_.apps.isEmpty());
}

} // namespace ombry
