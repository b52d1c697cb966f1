#pragma once

#include "views/SettingsModel.h"

#include <QPushButton>
#include <QWidget>
#include <functional>

class QComboBox;
class QLabel;
class QStackedWidget;
class QVBoxLayout;

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

// The page "Réglages": six tabs of settings, each control written through to its setting at
// once. The chosen tab is kept under "settingsTab".
class SettingsPage : public QWidget {
    Q_OBJECT
public:
    SettingsPage(AppSettings& settings, DictationController& controller, QWidget* parent = nullptr);

    SettingsModel::Tab tab() const { return tab_; }
    void setTab(SettingsModel::Tab tab);

    // Asks before erasing everything; replaced by tests, which answer for the user.
    std::function<bool(QWidget* parent)> confirmErase;
    // Where the journal is exported; empty: given up. Replaced by tests.
    std::function<QString(QWidget* parent)> askLogPath;

private:
    QWidget* general();
    QWidget* dictation();
    QWidget* correction();
    QWidget* account();
    QWidget* permissions();
    QWidget* advanced();
    void fillMicrophones(QComboBox* box);
    void refreshEngines();

    AppSettings& settings_;
    DictationController& controller_;
    SettingsModel::Tab tab_;
    QList<QPushButton*> tabButtons_;
    QStackedWidget* stack_ = nullptr;
    QLabel* sttLabel_ = nullptr;
    QLabel* rewriteLabel_ = nullptr;
    QLabel* costLabel_ = nullptr;
    QLabel* localReviewNote_ = nullptr;
    bool localModelAvailable_ = false;
};

} // namespace ombry
