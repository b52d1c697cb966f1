#include "views/overlay/OverlayController.h"

#include "views/overlay/OverlayView.h"
#include "views/overlay/Placement.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

namespace ombry {

OverlayController& OverlayController::shared() {
    static OverlayController instance;
    return instance;
}

void OverlayController::setPanel(OverlayView* panel) {
    panel_ = panel;
}

void OverlayController::position() {
    if (!panel_) return;
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen) screen = QGuiApplication::primaryScreen();
    if (!screen) return;
    panel_->setAnchor(Placement::overlayAnchor(screen->availableGeometry()));
}

} // namespace ombry
