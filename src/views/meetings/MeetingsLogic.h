#pragma once

#include "data/Records.h"
#include "meetings/MeetingRecorder.h"

#include <QDateTime>
#include <QString>

namespace ombry {

namespace MeetingsRules {

// "%d:%02d": whole minutes, then seconds on two digits.
QString elapsedText(int64_t seconds);

// What the meeting button shows and whether it can be pressed.
struct RecordButton {
    QString label;
    bool enabled = true;
    bool busy = false; // a progress indicator beside the label
};
RecordButton recordButton(const MeetingRecorder::State& state, const QDateTime& startedAt,
                          const QDateTime& now);

// The meeting as copied: title, blank line, summary, blank line, one "- {task}" per line.
QString copyText(const Meeting& meeting);
// "{n} min", whole minutes.
QString durationText(double seconds);
// The date in French, in local time: "14 mars 2026 à 10:26".
QString dateText(const QDateTime& date);

} // namespace MeetingsRules

} // namespace ombry
