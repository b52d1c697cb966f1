#pragma once

#include "views/BubbleView.h"

#include <QPointer>
#include <QString>

namespace ombry {

// The one result card of the process. show() replaces any card already open; the card stays
// until its close button, close(), or the next show().
class BubbleController {
public:
    static BubbleController& shared();

    // Opens a card near the pointer, on the screen under it.
    void show(const QString& title, const QString& original, const QString& text);
    void close();
    BubbleView* panel() const { return panel_; }

private:
    BubbleController() = default;
    QPointer<BubbleView> panel_;
};

} // namespace ombry
