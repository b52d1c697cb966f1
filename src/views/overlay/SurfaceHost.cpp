#include "views/overlay/SurfaceHost.h"

#include <QApplication>
#include <QMouseEvent>
#include <QWheelEvent>
#include <QWidget>
#include <cmath>

namespace ombry {

QImage surfacePicture(QWidget& widget) {
    const qreal ratio = std::max<qreal>(1, std::ceil(widget.devicePixelRatioF() - 0.001));
    QImage picture(widget.size() * ratio, QImage::Format_ARGB32_Premultiplied);
    picture.setDevicePixelRatio(ratio);
    picture.fill(Qt::transparent);
    widget.render(&picture, QPoint(), QRegion(), QWidget::DrawChildren);
    return picture;
}

SurfaceHost::SurfaceHost(QWidget& widget, std::unique_ptr<OverlaySurface> surface)
    : widget_(&widget), surface_(std::move(surface)) {
    surface_->setPointerHandler([this](const SurfacePointer& p) { deliver(p); });
}

SurfaceHost::~SurfaceHost() {
    if (shown_) surface_->hide();
}

void SurfaceHost::show(int bottomMargin) {
    margin_ = bottomMargin;
    shown_ = true;
    redrawSoon();
}

void SurfaceHost::hide() {
    if (shown_) surface_->hide();
    shown_ = false;
    grabbed_ = nullptr;
}

void SurfaceHost::deliver(const SurfacePointer& p) {
    if (!widget_ || !shown_) return;
    const QPoint at = p.at.toPoint();
    QWidget* under = widget_->childAt(at);
    if (!under) under = widget_;
    const auto local = [&](QWidget* w) { return QPointF(w->mapFrom(widget_, at)); };
    switch (p.kind) {
    case SurfacePointer::Kind::Press: {
        grabbed_ = under;
        QMouseEvent e(QEvent::MouseButtonPress, local(under), p.at, Qt::LeftButton, Qt::LeftButton,
                      Qt::NoModifier);
        QApplication::sendEvent(under, &e);
        break;
    }
    case SurfacePointer::Kind::Release: {
        QWidget* target = grabbed_ ? grabbed_.data() : under;
        grabbed_ = nullptr;
        QMouseEvent e(QEvent::MouseButtonRelease, local(target), p.at, Qt::LeftButton, Qt::NoButton,
                      Qt::NoModifier);
        QApplication::sendEvent(target, &e);
        break;
    }
    case SurfacePointer::Kind::Move: {
        // Only a held button moves anything here (a selection being drawn).
        if (!grabbed_) return;
        QMouseEvent e(QEvent::MouseMove, local(grabbed_), p.at, Qt::NoButton, Qt::LeftButton,
                      Qt::NoModifier);
        QApplication::sendEvent(grabbed_, &e);
        break;
    }
    case SurfacePointer::Kind::Scroll: {
        // A wheel notch is 10 logical pixels on Wayland and 120 eighths of a degree in Qt.
        const int angle = int(std::lround(-p.scroll * 12));
        QWheelEvent e(local(under), p.at, QPoint(0, int(std::lround(-p.scroll))), QPoint(0, angle),
                      Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(under, &e);
        break;
    }
    case SurfacePointer::Kind::Leave:
        return;
    }
    // A widget that is never shown paints nothing by itself: its picture is drawn again after
    // what may have changed it.
    redrawSoon();
}

void SurfaceHost::redrawSoon() {
    if (queued_) return;
    queued_ = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            queued_ = false;
            if (widget_ && shown_ && !widget_->size().isEmpty())
                surface_->show(surfacePicture(*widget_), margin_);
        },
        Qt::QueuedConnection);
}

} // namespace ombry
