#pragma once

#include "views/settings/SettingsModel.h"
#include "views/settings/ShortcutRecorder.h"

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
    QWidget* desktopCard();
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
