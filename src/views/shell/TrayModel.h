#pragma once

#include "audio/Microphones.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "dictation/DictationController.h"

#include <QList>
#include <QString>
#include <optional>

// The content of the tray icon's menu, rebuilt at each opening, and the icon of each state.
namespace ombry::TrayModel {

// What an item does when chosen.
enum class Action {
    None,
    PasteLast,
    RetryFailed,
    ShowWindow,
    ToggleCall,
    ToggleMeeting,
    Correct,
    ReadAloud,
    PickLanguage,
    PickMic,
    PickKey,
    OpenSettings,
    Quit
};

struct Entry {
    enum class Kind { Item, Separator, Submenu };
    Kind kind = Kind::Item;
    QString title;
    QString icon; // the symbol's name ("waveform", "globe"…), empty for none
    Action action = Action::None;
    bool enabled = true;
    bool checkable = false;
    bool checked = false;
    std::optional<QString> data; // the raw value of a choice; none for "Micro du système"
    QString shortcut;            // shown beside the title: "Ctrl+,"
    QList<Entry> children;
};

struct Input {
    std::optional<QString> lastDictation; // finalText of the newest record that has a text
    std::optional<QString> lastFailed;    // the id of the newest failed one, to retry
    bool callRunning = false;
    bool meetingRecording = false;
    Language language = Language::Fr;
    std::optional<QString> microphoneUID;
    QList<Microphones::Device> microphones;
    DictationKey key = DictationKey::RightOption;
    std::optional<bool> rightAltIsAltGr; // names Right Alt (see label(DictationKey))
};

QList<Entry> build(const Input& input);

// What the menu shows of the history: the newest dictation that gave a text, and the newest
// failed one that can be tried again.
void readHistory(Input& input, const Store& store);

// The newest dictation as the menu shows it: up to 60 characters, longer ones cut with "…".
QString lastDictationTitle(const QString& text);

// The symbol of the icon for the controller's state.
QString iconName(DictationController::State state);

} // namespace ombry::TrayModel
