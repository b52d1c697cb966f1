#include "views/overlay/OverlayController.h"

#include "views/overlay/OverlayView.h"
#include "views/overlay/Placement.h"

#include "platform/Platform.h"

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
    // Where the compositor has a layer shell, a window of ours would be tiled and focused like
    // any other (and a paste would land in it): the strip goes on a layer surface there.
    Platform& platform = Platform::current();
    if (panel && platform.session().roads().strip == StripRoad::LayerShell) {
        if (auto surface = platform.makeOverlaySurface()) panel->setSurface(std::move(surface));
    }
}

void OverlayController::position() {
    if (!panel_) return;
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen) screen = QGuiApplication::primaryScreen();
    if (!screen) return;
    panel_->setAnchor(Placement::overlayAnchor(screen->availableGeometry()));
}

} // namespace ombry
