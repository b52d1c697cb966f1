#include "views/overlay/OverlayView.h"

#include "views/overlay/SurfaceHost.h"

#include "platform/Clock.h"
#include "platform/Platform.h"
#include "views/common/Glyphs.h"
#include "views/common/SurfaceStyle.h"
#include "views/overlay/Placement.h"

#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

namespace ombry {

using OverlayModel::Look;

namespace {

constexpr int kPadX = 18;      // inside the strip, left and right
constexpr int kRowHeight = 44; // a strip of one row
constexpr int kTextRow = 22;   // the live words under the waveform
constexpr int kMaxText = 520;  // the widest text the strip shows
constexpr int kIcon = 22;      // the target application's icon
constexpr int kBarWidth = 3;   // waveform bars
constexpr int kBarGap = 3;
constexpr int kWaveWidth = 7 * kBarWidth + 6 * kBarGap;
constexpr int kGlyph = 18; // the flash's symbol
constexpr int kDot = 5;    // the working dots
constexpr int kDotGap = 4;
constexpr int kDotsWidth = 3 * kDot + 2 * kDotGap;
constexpr int kGap = 10;

QFont mainFont() {
    QFont f;
    f.setPixelSize(14);
    f.setWeight(QFont::DemiBold);
    return f;
}

QFont timerFont() {
    QFont f;
    f.setPixelSize(13);
    f.setWeight(QFont::Medium);
    f.setStyleHint(QFont::SansSerif);
    return f;
}

QFont liveFont() {
    QFont f;
    f.setPixelSize(13);
    return f;
}

} // namespace

OverlayView::OverlayView(QWidget* parent) : QWidget(parent, surfaceFlags()) {
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAttribute(Qt::WA_X11DoNotAcceptFocus);
    setFocusPolicy(Qt::NoFocus);
    setWindowTitle(QStringLiteral("Ombry Voice"));
    resize_.setDuration(260);
    resize_.setEasingCurve(QEasingCurve(QEasingCurve::OutBack));
    connect(&resize_, &QVariantAnimation::valueChanged, this,
            [this](const QVariant& v) { applySize(v.toSize()); });
    frame_.setInterval(33);
    frame_.setTimerType(Qt::CoarseTimer);
    connect(&frame_, &QTimer::timeout, this, &OverlayView::redraw);
    clock_.start();
}

OverlayView::~OverlayView() = default;

void OverlayView::setSurface(std::unique_ptr<OverlaySurface> surface) {
    if (surface_ && surfaceShown_) surface_->hide();
    surfaceShown_ = false;
    surface_ = std::move(surface);
    if (surface_ && isVisible()) QWidget::hide();
    refresh();
}

bool OverlayView::shown() const {
    return surface_ ? surfaceShown_ : isVisible();
}

void OverlayView::appear() {
    if (surface_) {
        surfaceShown_ = true;
        redraw();
    } else if (!isVisible()) {
        show();
    }
}

void OverlayView::disappear() {
    if (surface_) {
        if (surfaceShown_) surface_->hide();
        surfaceShown_ = false;
    } else {
        hide();
    }
}

void OverlayView::redraw() {
    if (!surface_) {
        update();
        return;
    }
    if (pictureQueued_ || !surfaceShown_) return;
    pictureQueued_ = true;
    QMetaObject::invokeMethod(this, &OverlayView::pushPicture, Qt::QueuedConnection);
}

void OverlayView::pushPicture() {
    pictureQueued_ = false;
    if (!surface_ || !surfaceShown_ || size().isEmpty()) return;
    // The compositor places the surface at the bottom of the output's usable area, as the
    // anchor of a window would be.
    surface_->show(surfacePicture(*this), Placement::kOverlayLift);
}

Qt::WindowFlags OverlayView::surfaceFlags() {
    return Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
           Qt::WindowDoesNotAcceptFocus | Qt::WindowTransparentForInput |
           Qt::X11BypassWindowManagerHint | Qt::NoDropShadowWindowHint;
}

void OverlayView::setInput(const OverlayInput& input) {
    input_ = input;
    refresh();
}

void OverlayView::setAppearance(bool dark, bool lightVisuals) {
    dark_ = dark;
    lightVisuals_ = lightVisuals;
    redraw();
}

void OverlayView::setAnchor(const QPoint& anchor) {
    anchor_ = anchor;
    refresh();
}

void OverlayView::setAnimationTime(std::optional<double> t) {
    frozenAt_ = t;
    refresh();
}

double OverlayView::animationTime() const {
    return frozenAt_ ? *frozenAt_ : clock_.elapsed() / 1000.0;
}

QSize OverlayView::stripSize() const {
    const QFontMetrics main(mainFont());
    switch (OverlayModel::look(input_)) {
    case Look::Empty:
        return {0, 0};
    case Look::Flash: {
        const int text = std::min(main.horizontalAdvance(*input_.flash), kMaxText);
        return {kPadX + kGlyph + kGap - 2 + text + 2 + kPadX, kRowHeight};
    }
    case Look::Working: {
        const int text = main.horizontalAdvance(OverlayModel::workingText(input_));
        return {kPadX + text + kGap + kDotsWidth + kPadX, kRowHeight};
    }
    case Look::Recording: {
        // "10:00" is the widest time a dictation reaches in practice; the strip does not
        // grow each second.
        const int timer = QFontMetrics(timerFont()).horizontalAdvance(QStringLiteral("00:00"));
        int width = kPadX + kIcon + kGap + kWaveWidth + kGap + 2 + timer + kPadX;
        if (input_.liveText.isEmpty()) return {width, kRowHeight};
        const int text = QFontMetrics(liveFont()).horizontalAdvance(input_.liveText);
        width = std::max(width, std::min(text, kMaxText) + 2 * kPadX);
        return {width, kRowHeight + kTextRow - 4};
    }
    }
    return {0, 0};
}

QSize OverlayView::sizeHint() const {
    const QSize strip = stripSize();
    if (strip.isEmpty()) return {1, 1};
    return strip;
}

void OverlayView::refresh() {
    const Look look = OverlayModel::look(input_);
    const bool moving = !frozenAt_ && (look == Look::Recording || look == Look::Working);
    if (moving && !frame_.isActive()) frame_.start();
    if (!moving) frame_.stop();
    const QString phase = OverlayModel::phase(input_);
    const bool newFace = phase != phase_;
    phase_ = phase;
    if (look == Look::Empty) {
        resize_.stop();
        disappear();
        return;
    }
    const QSize target = sizeHint();
    if (newFace && shown() && !frozenAt_ && size() != target) {
        // From one face to the next the strip springs to its new size.
        resize_.stop();
        resize_.setStartValue(size());
        resize_.setEndValue(target);
        resize_.start();
    } else if (resize_.state() == QAbstractAnimation::Running) {
        resize_.setEndValue(target); // the words grew while it springs
    } else {
        applySize(target);
    }
    appear();
    redraw();
}

void OverlayView::applySize(const QSize& size) {
    // The level changes many times a second while recording: the window and its shape are
    // touched only when they change.
    const QRect target =
        anchor_.isNull() ? QRect(pos(), size) : Placement::overlayRect(anchor_, size);
    if (target != geometry()) setGeometry(target);
    if (size != maskSize_) {
        setMask(roundedRegion(QRect(QPoint(0, 0), size), radius(size)));
        maskSize_ = size;
    }
    if (surface_) redraw();
}

qreal OverlayView::radius(const QSize& size) {
    // A pill of one row; a taller strip keeps the same corners.
    return std::min<qreal>(size.height() / 2.0, kRowHeight / 2.0);
}

QIcon OverlayView::appIcon() const {
    if (input_.appId.isEmpty()) return {};
    QIcon icon = QIcon::fromTheme(input_.appId);
    if (icon.isNull()) {
        // Reverse-domain ids (org.gnome.TextEditor) are often installed under their last word.
        const QString last = input_.appId.section(QLatin1Char('.'), -1).toLower();
        if (last != input_.appId) icon = QIcon::fromTheme(last);
    }
    return icon;
}

void OverlayView::paintEvent(QPaintEvent*) {
    const Look look = OverlayModel::look(input_);
    if (look == Look::Empty) return;
    const SurfaceStyle style = lightVisuals_ ? opaque(surfaceStyle(dark_)) : surfaceStyle(dark_);
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);

    p.setPen(QPen(style.border, 1));
    p.setBrush(style.background);
    const qreal r = radius(size());
    p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), r, r);
    // The content of the present face, centred and standing on the bottom edge while the
    // window springs to its size.
    const QSize size = stripSize();
    const QRectF strip((width() - size.width()) / 2.0, height() - size.height(), size.width(),
                       size.height());

    const QRectF row(strip.left() + kPadX, strip.top(), strip.width() - 2 * kPadX, kRowHeight);
    const double t = animationTime();

    if (look == Look::Flash) {
        const QRectF glyph(row.left() - 2, row.center().y() - kGlyph / 2.0, kGlyph, kGlyph);
        if (input_.flashIsError)
            Glyphs::exclamationCircle(p, glyph, style.error, style.onAccent);
        else
            Glyphs::checkCircle(p, glyph, style.accent, style.onAccent);
        p.setFont(mainFont());
        p.setPen(style.text);
        const QRectF text(glyph.right() + kGap, row.top(), row.right() - glyph.right() - kGap,
                          row.height());
        const QString shown =
            QFontMetrics(mainFont()).elidedText(*input_.flash, Qt::ElideRight, int(text.width()));
        p.drawText(text, Qt::AlignVCenter | Qt::AlignLeft, shown);
        return;
    }

    if (look == Look::Working) {
        const QString words = OverlayModel::workingText(input_);
        p.setFont(mainFont());
        p.setPen(style.text);
        const int textWidth = QFontMetrics(mainFont()).horizontalAdvance(words);
        p.drawText(QRectF(row.left(), row.top(), textWidth + 1, row.height()),
                   Qt::AlignVCenter | Qt::AlignLeft, words);
        qreal x = row.left() + textWidth + kGap;
        p.setPen(Qt::NoPen);
        for (int i = 0; i < 3; ++i) {
            QColor c = style.accent;
            c.setAlphaF(float(OverlayModel::dotOpacity(i, t)));
            p.setBrush(c);
            p.drawEllipse(QRectF(x, row.center().y() - kDot / 2.0 + 1, kDot, kDot));
            x += kDot + kDotGap;
        }
        return;
    }

    // Recording: icon, waveform and time on the first row, the live words under them. The
    // row's content is centred in the strip, which may be wider because of the words.
    const int timerWidth = QFontMetrics(timerFont()).horizontalAdvance(QStringLiteral("00:00"));
    const qreal content = kIcon + kGap + kWaveWidth + kGap + 2 + timerWidth;
    qreal x = strip.center().x() - content / 2.0;
    const qreal mid = row.center().y();
    const QRectF iconRect(x, mid - kIcon / 2.0, kIcon, kIcon);
    const QIcon icon = appIcon();
    if (!icon.isNull()) {
        icon.paint(&p, iconRect.toRect());
    } else {
        QColor tint = style.accent;
        tint.setAlpha(dark_ ? 60 : 40);
        p.setPen(Qt::NoPen);
        p.setBrush(tint);
        p.drawRoundedRect(iconRect, 6, 6);
        Glyphs::microphone(p, iconRect.adjusted(3, 3, -3, -3), style.accent);
    }
    x = iconRect.right() + kGap;

    const auto heights = OverlayModel::barHeights(input_.level, t);
    p.setPen(Qt::NoPen);
    p.setBrush(style.accent);
    for (double h : heights) {
        const qreal bar = std::min<qreal>(h, kRowHeight - 14);
        p.drawRoundedRect(QRectF(x, mid - bar / 2, kBarWidth, bar), kBarWidth / 2.0,
                          kBarWidth / 2.0);
        x += kBarWidth + kBarGap;
    }
    x += kGap - kBarGap + 2;

    const QDateTime now = Platform::current().clock().now();
    p.setFont(timerFont());
    p.setPen(style.text);
    p.drawText(QRectF(x, row.top(), timerWidth + 2, row.height()), Qt::AlignVCenter | Qt::AlignLeft,
               OverlayModel::elapsedText(input_.startedAt, now));

    if (!input_.liveText.isEmpty()) {
        const QRectF line(strip.left() + kPadX, row.bottom() - 8, strip.width() - 2 * kPadX,
                          kTextRow);
        // The newest words matter: a long text loses its beginning.
        const QString shown =
            QFontMetrics(liveFont()).elidedText(input_.liveText, Qt::ElideLeft, int(line.width()));
        p.setFont(liveFont());
        p.setPen(style.secondary);
        p.drawText(line, Qt::AlignTop | Qt::AlignHCenter, shown);
    }
}

} // namespace ombry
