#pragma once

#include "data/Records.h"

#include <QSet>
#include <QTimer>
#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;
class QVBoxLayout;

namespace ombry {

class HistoryPlayer;
class MeetingRecorder;
class Store;

// One stored meeting: title, date and length, summary, the tasks to tick, the transcript on
// demand, copy and delete. Ticks live only as long as the card. A meeting none of whose pieces
// could be transcribed offers its kept audio to play and to transcribe again.
class MeetingCard : public QWidget {
    Q_OBJECT
public:
    MeetingCard(Store& store, MeetingRecorder& recorder, HistoryPlayer& player,
                const Meeting& meeting, QWidget* parent = nullptr);
    const QSet<int>& done() const { return done_; }
    const Meeting& meeting() const { return meeting_; }

private:
    Store& store_;
    Meeting meeting_;
    QSet<int> done_;
};

// The meetings page: the button that starts and stops the meeting recorder, and the stored
// meetings, newest first.
class MeetingsPage : public QWidget {
    Q_OBJECT
public:
    MeetingsPage(Store& store, MeetingRecorder& recorder, QWidget* parent = nullptr);

private:
    void refreshButton();
    void rebuildList();

    Store& store_;
    MeetingRecorder& recorder_;
    QPushButton* record_;
    QProgressBar* busy_;
    QWidget* empty_;
    QVBoxLayout* list_;
    QTimer tick_; // runs only while recording, for the elapsed time
    HistoryPlayer* player_;
};

} // namespace ombry
