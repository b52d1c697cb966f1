#include "views/subtitles/SubtitleWindow.h"

#include "data/UserDefaults.h"
#include "platform/Platform.h"

#include <QEnterEvent>
#include <QGraphicsOpacityEffect>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QJsonArray>
#include <QLabel>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPropertyAnimation>
#include <QPushButton>
#include <QScreen>
#include <QSizeGrip>
#include <QTimer>
#include <QVBoxLayout>

namespace ombry {
namespace {

constexpr qreal kRadius = 16;

QLabel* label(QWidget* parent, int points, double opacity, bool bold = false) {
    auto* l = new QLabel(parent);
    QFont f = l->font();
    f.setPointSizeF(points * 0.75); // the sizes are in pixels of a 96 dpi screen
    f.setBold(bold);
    l->setFont(f);
    l->setWordWrap(true);
    l->setAlignment(Qt::AlignHCenter | Qt::AlignVCenter);
    l->setStyleSheet(QStringLiteral("color: rgba(255, 255, 255, %1);").arg(int(opacity * 255)));
    l->setAttribute(Qt::WA_TransparentForMouseEvents); // drags go to the panel
    return l;
}

QPushButton* button(QWidget* parent) {
    auto* b = new QPushButton(parent);
    b->setFocusPolicy(Qt::NoFocus);
    b->setCursor(Qt::PointingHandCursor);
    b->setStyleSheet(
        QStringLiteral("QPushButton { color: white; background: rgba(255,255,255,40); border: none;"
                       " border-radius: 9px; padding: 3px 10px; }"
                       "QPushButton:hover { background: rgba(255,255,255,70); }"
                       "QPushButton:disabled { color: rgba(255,255,255,90); }"));
    b->hide();
    return b;
}

} // namespace

Qt::WindowFlags SubtitleView::panelFlags() {
    return Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
           Qt::WindowDoesNotAcceptFocus;
}

QRect SubtitleView::defaultFrame(const QRect& screen) {
    return QRect(screen.center().x() - kWidth / 2, screen.bottom() + 1 - 90 - kHeight, kWidth,
                 kHeight);
}

QRect SubtitleView::restoredFrame(const QRect& saved, const QList<QRect>& screens) {
    if (screens.isEmpty()) return saved;
    QRect screen = screens.first();
    qint64 best = 0;
    for (const QRect& s : screens) {
        const QRect common = s.intersected(saved);
        const qint64 area = qint64(common.width()) * common.height();
        if (area > best) {
            best = area;
            screen = s;
        }
    }
    QRect r(saved.topLeft(), saved.size().boundedTo(screen.size()));
    r.moveLeft(std::max(screen.left(), std::min(r.left(), screen.right() + 1 - r.width())));
    r.moveTop(std::max(screen.top(), std::min(r.top(), screen.bottom() + 1 - r.height())));
    return r;
}

SubtitleView::SubtitleView(CallTranslator& call, QWidget* parent)
    : QWidget(parent, panelFlags()), call_(call) {
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_X11DoNotAcceptFocus);
    setFocusPolicy(Qt::NoFocus);
    setWindowTitle(QStringLiteral("Sous-titres"));
    setMinimumSize(420, 110);
    resize(kWidth, kHeight);
    saving_ = new QTimer(this);
    saving_->setSingleShot(true);
    saving_->setInterval(400);
    connect(saving_, &QTimer::timeout, this, &SubtitleView::saveFrame);
    showEnglish_ =
        UserDefaults::standard().boolValue(QString::fromLatin1(kShowEnglishKey)).value_or(false);

    dot_ = new QLabel(this);
    dot_->setFixedSize(10, 10);
    source_ = label(this, 12, 0.7, true);
    source_->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    source_->setWordWrap(false);
    previous_ = label(this, 15, 0.55);
    main_ = label(this, 24, 1.0, true);
    english_ = label(this, 13, 0.6);
    fade_ = new QGraphicsOpacityEffect(main_);
    fade_->setOpacity(1.0);
    main_->setGraphicsEffect(fade_);
    fadeIn_ = new QPropertyAnimation(fade_, "opacity", this);
    fadeIn_->setDuration(200);
    fadeIn_->setStartValue(0.0);
    fadeIn_->setEndValue(1.0);

    englishButton_ = button(this);
    appButton_ = button(this);
    appButton_->setText(QStringLiteral("Appli…"));
    runButton_ = button(this);
    closeButton_ = button(this);
    closeButton_->setText(QStringLiteral("✕"));
    closeButton_->setToolTip(QStringLiteral("Fermer (les sous-titres continuent)"));
    connect(englishButton_, &QPushButton::clicked, this, [this] { setShowEnglish(!showEnglish_); });
    connect(runButton_, &QPushButton::clicked, this, [this] {
        if (call_.running())
            call_.stop();
        else
            call_.start();
    });
    connect(appButton_, &QPushButton::clicked, this, &SubtitleView::chooseApp);
    connect(closeButton_, &QPushButton::clicked, this, &QWidget::hide);

    auto* top = new QHBoxLayout;
    top->setSpacing(8);
    top->addWidget(dot_);
    top->addWidget(source_, 1);
    for (QPushButton* b : {englishButton_, appButton_, runButton_, closeButton_})
        top->addWidget(b);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(18, 10, 18, 12);
    column->setSpacing(2);
    column->addLayout(top);
    column->addStretch(1);
    column->addWidget(previous_);
    column->addWidget(main_);
    column->addWidget(english_);
    column->addStretch(1);
    auto* grip = new QSizeGrip(this);
    grip->setFixedSize(14, 14);
    column->addWidget(grip, 0, Qt::AlignBottom | Qt::AlignRight);
    column->setStretch(column->count() - 1, 0);

    for (auto signal : {&CallTranslator::runningChanged, &CallTranslator::linesChanged,
                        &CallTranslator::errorChanged, &CallTranslator::targetChanged})
        connect(&call_, signal, this, &SubtitleView::refresh);
    refresh();
}

void SubtitleView::setShowEnglish(bool on) {
    showEnglish_ = on;
    UserDefaults::standard().setValue(QString::fromLatin1(kShowEnglishKey), on);
    refresh();
}

void SubtitleView::setHover(bool on) {
    hover_ = on;
    for (QPushButton* b : {englishButton_, appButton_, runButton_, closeButton_})
        b->setVisible(on);
}

void SubtitleView::refresh() {
    const SubtitleContent next = subtitleContent(subtitleState(call_), showEnglish_);
    const bool newLine = next.mainLine != content_.mainLine || next.main != content_.main;
    content_ = next;
    dot_->setStyleSheet(
        QStringLiteral("background: %1; border-radius: 5px;")
            .arg(content_.live ? QStringLiteral("#ff453a") : QStringLiteral("#8e8e93")));
    source_->setText(content_.source);
    previous_->setText(content_.previous.value_or(QString()));
    previous_->setVisible(content_.previous.has_value());
    main_->setText(content_.main);
    english_->setText(content_.english.value_or(QString()));
    english_->setVisible(content_.english.has_value());
    englishButton_->setText(content_.englishButton);
    runButton_->setText(content_.runButton);
    // The application is chosen before starting, not in the middle of a call.
    appButton_->setEnabled(!content_.live);
    if (newLine && isVisible()) fadeIn_->start();
}

void SubtitleView::chooseApp() {
    QMenu menu(this);
    for (const AppChoice& choice : appChoices(call_.playingApps(), call_.targetBundleID())) {
        QAction* action = menu.addAction(choice.name);
        action->setCheckable(true);
        action->setChecked(choice.selected);
        connect(action, &QAction::triggered, this,
                [this, id = choice.id] { call_.setTargetBundleID(id); });
    }
    menu.exec(appButton_->mapToGlobal(QPoint(0, appButton_->height())));
}

void SubtitleView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.addRoundedRect(QRectF(rect()), kRadius, kRadius);
    p.fillPath(path, QColor(20, 20, 24, 235));
}

void SubtitleView::resizeEvent(QResizeEvent* event) {
    // The rounded shape is the window's own, so no compositor is needed for its corners.
    QPainterPath path;
    path.addRoundedRect(QRectF(rect()), kRadius, kRadius);
    setMask(QRegion(path.toFillPolygon().toPolygon()));
    QWidget::resizeEvent(event);
    // From the corner's grip or from the window manager.
    if (isVisible()) saving_->start();
}

void SubtitleView::moveEvent(QMoveEvent* event) {
    QWidget::moveEvent(event);
    // By the window manager (a drag of the panel's own saves at the release).
    if (isVisible() && !drag_) saving_->start();
}

void SubtitleView::enterEvent(QEnterEvent* event) {
    setHover(true);
    QWidget::enterEvent(event);
}

void SubtitleView::leaveEvent(QEvent* event) {
    setHover(false);
    QWidget::leaveEvent(event);
}

void SubtitleView::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) drag_ = event->position().toPoint();
}

void SubtitleView::mouseMoveEvent(QMouseEvent* event) {
    if (drag_) move(event->globalPosition().toPoint() - *drag_);
}

void SubtitleView::mouseReleaseEvent(QMouseEvent*) {
    if (!drag_) return;
    drag_.reset();
    saveFrame();
}

void SubtitleView::saveFrame() {
    const QRect g = geometry();
    UserDefaults::standard().setValue(QString::fromLatin1(kFrameKey),
                                      QJsonArray{g.x(), g.y(), g.width(), g.height()});
}

SubtitleWindow& SubtitleWindow::shared() {
    static SubtitleWindow instance;
    return instance;
}

void SubtitleWindow::show() {
    if (!panel_) {
        panel_ = new SubtitleView(CallTranslator::shared());
        const QJsonArray saved =
            UserDefaults::standard().value(QString::fromLatin1(SubtitleView::kFrameKey)).toArray();
        QScreen* screen = QGuiApplication::primaryScreen();
        const QRect area = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 800);
        QList<QRect> screens;
        for (QScreen* s : QGuiApplication::screens())
            (s == screen ? screens.prepend(s->availableGeometry())
                         : screens.append(s->availableGeometry()));
        if (saved.size() == 4)
            panel_->setGeometry(SubtitleView::restoredFrame(
                QRect(saved[0].toInt(), saved[1].toInt(), saved[2].toInt(), saved[3].toInt()),
                screens));
        else
            panel_->setGeometry(SubtitleView::defaultFrame(area));
    }
    // Above the call whichever workspace it is on; asked again at each showing, since the
    // window manager forgets it when the panel is closed.
    if (!panel_->isVisible()) Platform::current().windows().keepOnAllWorkspaces(panel_->winId());
    panel_->show();
    panel_->raise();
}

} // namespace ombry
