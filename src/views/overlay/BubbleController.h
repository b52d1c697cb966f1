#pragma once

#include "views/overlay/BubbleView.h"
#include "views/overlay/SurfaceHost.h"

#include "platform/InputWatch.h"

#include <QPointer>
#include <QString>
#include <memory>

namespace ombry {

// The one result card of the process. show() replaces any card already open; the card stays
// until its close button, close(), the next show(), or, when an input watch is given, a click
// outside it or Escape anywhere (typing goes on without closing it). Where the strip is on the
// compositor's layer shell, so is the card: above the strip, taking clicks, never the keyboard.
class BubbleController {
public:
    static BubbleController& shared();

    // Opens a card near the pointer, on the screen under it.
    void show(const QString& title, const QString& original, const QString& text);
    void close();
    BubbleView* panel() const { return panel_; }

    // The watch of clicks and Escape, running only while a card is open.
    void setInputWatch(std::unique_ptr<InputWatch> watch);

private:
    BubbleController() = default;
    void onInput(bool escape);

    QPointer<BubbleView> panel_;
    std::unique_ptr<SurfaceHost> host_; // the card's surface, where it has one
    std::unique_ptr<InputWatch> watch_;
};

} // namespace ombry
