#pragma once

#include "views/overlay/OverlayModel.h"

#include <QObject>
#include <QPointer>

namespace ombry {

class DictationController;
class OverlayView;

// Keeps a strip in step with a controller: every change of the observable fields that the
// strip shows hands it a fresh OverlayInput, and a change of theme or performance setting its
// appearance. Lives as a child of the view.
class OverlayBinding : public QObject {
    Q_OBJECT
public:
    OverlayBinding(DictationController& controller, OverlayView& view);

    // The controller's fields as the strip reads them now.
    OverlayInput read() const;

private:
    void update();
    void updateAppearance();

    DictationController& controller_;
    OverlayView& view_;
    // The moment the present recording began and the window it goes to, noted when the
    // controller enters the recording state.
    bool wasRecording_ = false;
    QDateTime startedAt_;
    QString appId_, appName_;
};

} // namespace ombry
