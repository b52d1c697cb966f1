#pragma once

#include "data/Settings.h"

#include <QString>

namespace ombry {

// The dictation key as the user's keyboard names it now: Right Alt is "Alt Gr" or "Alt droite"
// as the keyboard hook finds it on the current layout. Every view that names the key uses it.
QString keyLabel(DictationKey key);

} // namespace ombry
