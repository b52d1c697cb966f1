#pragma once

#include "views/shell/Navigation.h"

class QWidget;

namespace ombry {

class AppSettings;
class DictationController;

// The widget of a page, made afresh each time the page is chosen. Pages that are not built
// yet stand as a clean page with their header and a word of what comes there.
QWidget* makePage(Page page, AppSettings& settings, DictationController& controller);

// What a page is for, the line under its title.
QString pageSubtitle(Page page);

} // namespace ombry
