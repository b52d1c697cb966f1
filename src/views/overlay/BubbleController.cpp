#include "views/overlay/BubbleController.h"

#include "data/Settings.h"
#include "desktop/DeviceProfile.h"
#include "platform/Platform.h"
#include "views/overlay/BubbleView.h"
#include "views/overlay/Placement.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

namespace ombry {

BubbleController& BubbleController::shared() {
    static BubbleController instance;
    return instance;
}

void BubbleController::show(const QString& title, const QString& original, const QString& text) {
    close();
    const bool dark = AppSettings::shared().theme() == Theme::Dark;
    auto* view = new BubbleView(title, original, text, dark, DeviceProfile::lightVisuals());
    view->onClose = [this, view = QPointer<BubbleView>(view)] {
        if (view && view == panel_) close();
    };
    panel_ = view;

    const int height = Placement::bubbleHeight(view->fittingHeight());
    Platform& platform = Platform::current();
    if (platform.session().roads().strip == StripRoad::LayerShell) {
        if (auto surface = platform.makeOverlaySurface(OverlaySurface::Role::Card)) {
            // A window of ours would be tiled and focused there; no client knows where the
            // pointer is, so the card stands above the strip.
            view->resize(Placement::kBubbleWidth, height);
            host_ = std::make_unique<SurfaceHost>(*view, std::move(surface));
            host_->show(Placement::kBubbleLift);
            if (watch_) watch_->start([this](bool escape) { onInput(escape); });
            return;
        }
    }
    const QPoint pointer = QCursor::pos();
    QScreen* screen = QGuiApplication::screenAt(pointer);
    if (!screen) screen = QGuiApplication::primaryScreen();
    const QRect frame = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 800);
    const QRect card = Placement::bubbleRect(pointer, frame, height);
    view->setGeometry(card);
    view->show();
    if (watch_) watch_->start([this](bool escape) { onInput(escape); });
}

void BubbleController::setInputWatch(std::unique_ptr<InputWatch> watch) {
    if (watch_) watch_->stop();
    watch_ = std::move(watch);
}

void BubbleController::onInput(bool escape) {
    if (!panel_) return;
    // A click on the card itself is the card's (its buttons, a selection of the text). A card
    // on a surface gets its own clicks from the compositor: the watch sees only others.
    if (!escape && !host_ && panel_->geometry().contains(QCursor::pos())) return;
    close();
}

void BubbleController::close() {
    if (watch_) watch_->stop();
    if (!panel_) return;
    BubbleView* view = panel_;
    panel_ = nullptr;
    if (host_) {
        // The close button's click arrives from inside the surface's own event: the surface
        // goes once that is over.
        host_->hide();
        host_.release()->deleteLater();
    }
    view->hide();
    view->deleteLater();
}

} // namespace ombry
