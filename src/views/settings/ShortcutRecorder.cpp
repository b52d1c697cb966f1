#include "views/settings/ShortcutRecorder.h"

#include "data/Settings.h"
#include "desktop/HotkeyMonitor.h"
#include "dictation/DictationController.h"
#include "views/settings/SettingsModel.h"

#include <QKeyEvent>

namespace ombry {

namespace SM = SettingsModel;

ShortcutRecorder::ShortcutRecorder(AppSettings& settings, DictationController& controller,
                                   QWidget* parent)
    : QPushButton(parent), settings_(settings), controller_(controller) {
    setObjectName(QStringLiteral("shortcutRecorder"));
    setFocusPolicy(Qt::StrongFocus);
    showLabel();
    connect(this, &QPushButton::clicked, this, [this] { arm(!armed_); });
    connect(&settings_, &AppSettings::correctionLabelChanged, this, [this] { showLabel(); });
}

ShortcutRecorder::~ShortcutRecorder() {
    if (armed_) controller_.hotkey().setRecording(false);
}

void ShortcutRecorder::showLabel() {
    setText(armed_ ? QStringLiteral("Tape le raccourci…") : settings_.correctionLabel());
}

void ShortcutRecorder::arm(bool on) {
    if (armed_ == on) return;
    armed_ = on;
    controller_.hotkey().setRecording(on);
    if (on) setFocus(Qt::OtherFocusReason);
    showLabel();
}

void ShortcutRecorder::keyPressEvent(QKeyEvent* event) {
    if (!armed_) {
        QPushButton::keyPressEvent(event);
        return;
    }
    if (event->key() == Qt::Key_Escape) {
        arm(false);
        return;
    }
    const std::optional<SM::Shortcut> s = SM::shortcutFromQt(event->key(), event->modifiers());
    if (!s) return; // a lone modifier, or a key that cannot be a shortcut: keep listening
    settings_.setCorrectionKeyCode(s->keyCode);
    settings_.setCorrectionModifiers(s->modifiers);
    settings_.setCorrectionLabel(s->label);
    arm(false);
    controller_.hotkey().refresh();
}

void ShortcutRecorder::focusOutEvent(QFocusEvent* event) {
    arm(false);
    QPushButton::focusOutEvent(event);
}

} // namespace ombry
