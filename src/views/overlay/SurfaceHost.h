#pragma once

#include "platform/Desktop.h"

#include <QImage>
#include <QObject>
#include <QPointer>
#include <memory>

class QWidget;

namespace ombry {

// The widget drawn for a compositor surface, at the screen's ratio rounded up (the compositor
// scales surfaces by whole numbers), its transparent corners kept.
QImage surfacePicture(QWidget& widget);

// A widget that lives on a compositor surface instead of a window of its own: it is never
// shown, its pictures go to the surface, and the pointer over the surface reaches its children
// as Qt's mouse and wheel events (a button clicks, a text is selected and scrolls). The
// keyboard never reaches it.
class SurfaceHost : public QObject {
public:
    SurfaceHost(QWidget& widget, std::unique_ptr<OverlaySurface> surface);
    ~SurfaceHost() override;

    // Puts the widget on the screen, its bottom edge bottomMargin above the bottom of the
    // output, and keeps its picture up to date after every pointer event.
    void show(int bottomMargin);
    void hide();

    // What the pointer over the surface does to the widget.
    void deliver(const SurfacePointer& pointer);

private:
    void redrawSoon();

    QPointer<QWidget> widget_;
    std::unique_ptr<OverlaySurface> surface_;
    int margin_ = 0;
    bool shown_ = false;
    bool queued_ = false;
    QPointer<QWidget> grabbed_; // the child a press went to, until the release
};

} // namespace ombry
