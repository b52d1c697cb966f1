#pragma once

#include <QPushButton>

namespace ombry {

class AppSettings;
class DictationController;

// The button that captures the correction shortcut: a click arms it, the next key with Ctrl,
// Alt or Super becomes the shortcut, Escape or leaving it gives up. While armed, the hotkey
// monitor neither acts on nor swallows shortcuts, so the keys reach this window.
class ShortcutRecorder : public QPushButton {
    Q_OBJECT
public:
    ShortcutRecorder(AppSettings& settings, DictationController& controller,
                     QWidget* parent = nullptr);
    ~ShortcutRecorder() override;
    bool armed() const { return armed_; }

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    void arm(bool on);
    void showLabel();
    AppSettings& settings_;
    DictationController& controller_;
    bool armed_ = false;
};

} // namespace ombry
