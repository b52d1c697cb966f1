#pragma once

#include "views/overlay/OverlayView.h"

#include <QPointer>

namespace ombry {

// The one dictation strip of the process. The start-up builds the strip and hands it over;
// position() is called then and at the start of each dictation, so that the strip follows
// the user from screen to screen.
class OverlayController {
public:
    static OverlayController& shared();

    void setPanel(OverlayView* panel);
    OverlayView* panel() const { return panel_; }

    // Places the strip at the bottom centre of the usable area of the screen under the pointer
    // (the primary screen when the pointer is on none). Does nothing without a strip.
    void position();

private:
    OverlayController() = default;
    QPointer<OverlayView> panel_;
};

} // namespace ombry
