#include "views/overlay/BubbleController.h"

#include "data/Settings.h"
#include "desktop/DeviceProfile.h"
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

    const QPoint pointer = QCursor::pos();
    QScreen* screen = QGuiApplication::screenAt(pointer);
    if (!screen) screen = QGuiApplication::primaryScreen();
    const QRect frame = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 800);
    const int height = Placement::bubbleHeight(view->fittingHeight());
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
    // A click on the card itself is the card's (its buttons, a selection of the text).
    if (!escape && panel_->geometry().contains(QCursor::pos())) return;
    close();
}

void BubbleController::close() {
    if (watch_) watch_->stop();
    if (!panel_) return;
    BubbleView* view = panel_;
    panel_ = nullptr;
    view->hide();
    view->deleteLater();
}

} // namespace ombry
