#pragma once

#include "views/overlay/OverlayModel.h"

#include <QElapsedTimer>
#include <QIcon>
#include <QTimer>
#include <QVariantAnimation>
#include <QWidget>
#include <memory>
#include <optional>

namespace ombry {

class OverlaySurface;

// The dictation strip: a floating window near the bottom of the screen that never takes the
// focus and lets every click through. It draws the OverlayInput it is given (the binding to
// the controller feeds it) and sizes itself to what it shows; it is hidden while it has
// nothing to show. Its animation timer runs only while it records or works.
class OverlayView : public QWidget {
    Q_OBJECT
public:
    explicit OverlayView(QWidget* parent = nullptr);

    // A top-level tool window above the others, frameless, that neither takes the focus nor
    // receives the pointer, and that the window manager leaves alone.
    static Qt::WindowFlags surfaceFlags();

    void setInput(const OverlayInput& input);
    const OverlayInput& input() const { return input_; }

    // Shows the strip on this surface of the compositor from now on, drawn offscreen, and never
    // as a window of its own (a window would be given the focus there). Null: a window again.
    void setSurface(std::unique_ptr<OverlaySurface> surface);
    bool onSurface() const { return surface_ != nullptr; }
    // On screen, as a window or on the surface.
    bool shown() const;

    // The appearance: dark strip or light strip; `lightVisuals` makes it opaque.
    void setAppearance(bool dark, bool lightVisuals);

    // The bottom-centre point on which the window stands (see Placement::overlayAnchor).
    void setAnchor(const QPoint& anchor);
    QPoint anchor() const { return anchor_; }

    // Freezes the animations at `t` seconds (pictures of the strip); nullopt lets them run.
    void setAnimationTime(std::optional<double> t);
    bool animating() const { return frame_.isActive(); }

    // The size of the window for the present input.
    QSize sizeHint() const override;
    ~OverlayView() override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    struct Metrics;
    void refresh();
    double animationTime() const;
    QIcon appIcon() const;
    QSize stripSize() const;
    void applySize(const QSize& size);
    // What changed is drawn again: the window repaints, or the surface gets a new picture
    // (once per turn of the event loop, however many changes came).
    void redraw();
    void appear();
    void disappear();
    void pushPicture();
    static qreal radius(const QSize& size);

    OverlayInput input_;
    QPoint anchor_;
    QSize maskSize_;
    bool dark_ = true;
    bool lightVisuals_ = false;
    QString phase_;
    QVariantAnimation resize_;
    QTimer frame_;
    QElapsedTimer clock_;
    std::optional<double> frozenAt_;
    std::unique_ptr<OverlaySurface> surface_;
    bool surfaceShown_ = false;
    bool pictureQueued_ = false;
};

} // namespace ombry
