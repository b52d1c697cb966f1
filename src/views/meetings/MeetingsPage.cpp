#include "views/meetings/MeetingsPage.h"

#include "data/Store.h"
#include "meetings/MeetingRecorder.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "views/common/Components.h"
#include "views/common/PageLook.h"
#include "views/history/HistoryView.h"
#include "views/meetings/MeetingsLogic.h"

#include <QEvent>
#include <QFileInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QHash>
#include <QIcon>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace ombry {

namespace {

const QString kOpen = QStringLiteral("○");
const QString kTicked = QStringLiteral("✔");

} // namespace

MeetingCard::MeetingCard(Store& store, MeetingRecorder& recorder, HistoryPlayer& player,
                         const Meeting& meeting, QWidget* parent)
    : QWidget(parent), store_(store), meeting_(meeting) {
    setObjectName(QStringLiteral("meetingCard"));
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    QFrame* card = PageLook::card();
    outer->addWidget(card);
    auto* layout = static_cast<QVBoxLayout*>(card->layout());

    auto* head = new QHBoxLayout;
    auto* titles = new QVBoxLayout;
    titles->setSpacing(2);
    QLabel* title = PageLook::sectionTitle(meeting.title);
    PageLook::mark(title, "meetingTitle");
    title->setWordWrap(true);
    titles->addWidget(title);
    QLabel* when = PageLook::note(MeetingsRules::dateText(meeting.date) + QStringLiteral(" · ") +
                                  MeetingsRules::durationText(meeting.duration));
    PageLook::mark(when, "meetingDate");
    titles->addWidget(when);
    head->addLayout(titles, 1);
    QPushButton* copy = PageLook::button(QStringLiteral("Copier"));
    copy->setObjectName(QStringLiteral("copyMeeting"));
    QPushButton* trash = PageLook::button(QString());
    trash->setObjectName(QStringLiteral("danger"));
    PageLook::mark(trash, "deleteMeeting");
    trash->setIcon(QIcon::fromTheme(QStringLiteral("user-trash")));
    if (trash->icon().isNull()) trash->setText(QStringLiteral("Supprimer"));
    trash->setToolTip(QStringLiteral("Supprimer"));
    head->addWidget(copy, 0, Qt::AlignTop);
    head->addWidget(trash, 0, Qt::AlignTop);
    layout->addLayout(head);

    if (!meeting.summary.isEmpty()) {
        auto* summary = new QLabel(meeting.summary);
        summary->setObjectName(QStringLiteral("meetingSummary"));
        summary->setWordWrap(true);
        summary->setTextFormat(Qt::PlainText);
        summary->setTextInteractionFlags(Qt::TextSelectableByMouse);
        layout->addWidget(summary);
    }

    if (!meeting.tasks.isEmpty()) {
        layout->addWidget(Components::sectionTitle(QStringLiteral("À faire")));
        for (int i = 0; i < meeting.tasks.size(); ++i) {
            auto* task = new QPushButton(kOpen + QStringLiteral("  ") + meeting.tasks[i]);
            task->setObjectName(QStringLiteral("task"));
            task->setFlat(true);
            task->setCheckable(true);
            task->setCursor(Qt::PointingHandCursor);
            task->setStyleSheet((QStringLiteral("QPushButton { text-align: left; border: none; "
                                                "background: transparent; padding: 3px 0; }"
                                                "QPushButton:checked { color: ") +
                                 PageLook::accentColor() + QStringLiteral("; }")));
            connect(task, &QPushButton::toggled, this, [this, task, i](bool on) {
                if (on)
                    done_.insert(i);
                else
                    done_.remove(i);
                task->setText((on ? kTicked : kOpen) + QStringLiteral("  ") + meeting_.tasks[i]);
            });
            layout->addWidget(task);
        }
    }

    QPushButton* showTranscript = PageLook::button(QStringLiteral("Transcription complète"), true);
    showTranscript->setObjectName(QStringLiteral("showTranscript"));
    auto* transcriptRow = new QHBoxLayout;
    transcriptRow->addWidget(showTranscript);
    // Nothing could be transcribed: the audio is all the meeting has, to play or to try again.
    const QString audio = store.meetingAudioPath(meeting.id);
    if (meeting.transcript.isEmpty() && QFileInfo::exists(audio)) {
        layout->addWidget(PageLook::note(QStringLiteral("La transcription a échoué.")));
        showTranscript->hide();
        QPushButton* play = PageLook::button(QStringLiteral("Écouter"));
        PageLook::mark(play, "playMeeting");
        QPushButton* retry = PageLook::button(QStringLiteral("Réessayer"));
        PageLook::mark(retry, "retryMeeting");
        transcriptRow->addWidget(play);
        transcriptRow->addWidget(retry);
        connect(play, &QPushButton::clicked, this, [&player, audio] { player.play(audio); });
        connect(retry, &QPushButton::clicked, this,
                [this, &recorder] { recorder.retry(meeting_.id); });
    }
    transcriptRow->addStretch();
    layout->addLayout(transcriptRow);
    auto* transcript = new QLabel(meeting.transcript);
    transcript->setObjectName(QStringLiteral("transcript"));
    transcript->setWordWrap(true);
    transcript->setTextFormat(Qt::PlainText);
    transcript->setTextInteractionFlags(Qt::TextSelectableByMouse);
    transcript->setVisible(false);
    layout->addWidget(transcript);

    connect(showTranscript, &QPushButton::toggled, transcript, &QWidget::setVisible);
    connect(copy, &QPushButton::clicked, this, [this] {
        Platform::current().clipboard().setText(MeetingsRules::copyText(meeting_), false);
    });
    connect(trash, &QPushButton::clicked, this, [this] { store_.removeMeeting(meeting_.id); });
}

MeetingsPage::MeetingsPage(Store& store, MeetingRecorder& recorder, QWidget* parent)
    : QWidget(parent), store_(store), recorder_(recorder) {
    setObjectName(QStringLiteral("meetingsPage"));
    player_ = new HistoryPlayer(this);
    QVBoxLayout* page = PageLook::scrolledPage(this);

    auto* headRow = new QHBoxLayout;
    headRow->addWidget(PageLook::header(Page::Meetings), 1);
    auto* controls = new QVBoxLayout;
    auto* buttonRow = new QHBoxLayout;
    busy_ = new QProgressBar;
    busy_->setRange(0, 0);
    busy_->setTextVisible(false);
    busy_->setFixedSize(60, 6);
    record_ = PageLook::primaryButton(QString());
    PageLook::mark(record_, "record");
    record_->setMinimumWidth(210);
    record_->setMinimumHeight(32);
    buttonRow->addWidget(busy_, 0, Qt::AlignVCenter);
    buttonRow->addWidget(record_);
    controls->addLayout(buttonRow);
    headRow->addLayout(controls);
    page->addLayout(headRow);

    QFrame* emptyCard = PageLook::card();
    empty_ = emptyCard;
    auto* el = static_cast<QVBoxLayout*>(emptyCard->layout());
    el->setContentsMargins(28, 40, 28, 40);
    QLabel* emptyTitle = PageLook::sectionTitle(
        QStringLiteral("Enregistre une réunion, un appel ou une idée à voix haute"));
    emptyTitle->setAlignment(Qt::AlignCenter);
    emptyTitle->setWordWrap(true);
    QLabel* emptyNote = PageLook::note(QStringLiteral(
        "Ombry Voice la transcrit, puis te donne un résumé et la liste des choses à faire."));
    emptyNote->setAlignment(Qt::AlignCenter);
    el->addWidget(emptyTitle);
    el->addWidget(emptyNote);
    page->addWidget(emptyCard);

    auto* listBox = new QWidget;
    list_ = new QVBoxLayout(listBox);
    list_->setContentsMargins(0, 0, 0, 0);
    list_->setSpacing(14);
    page->addWidget(listBox);
    page->addStretch();

    tick_.setInterval(1000);
    connect(&tick_, &QTimer::timeout, this, &MeetingsPage::refreshButton);
    connect(record_, &QPushButton::clicked, this, [this] {
        switch (recorder_.state().kind) {
        case MeetingRecorder::State::Kind::Idle:
            recorder_.start();
            break;
        case MeetingRecorder::State::Kind::Recording:
            recorder_.stop();
            break;
        case MeetingRecorder::State::Kind::Processing:
            break;
        }
    });
    connect(&recorder_, &MeetingRecorder::stateChanged, this, &MeetingsPage::refreshButton);
    connect(&recorder_, &MeetingRecorder::startedAtChanged, this, &MeetingsPage::refreshButton);
    connect(&store_, &Store::meetingsChanged, this, &MeetingsPage::rebuildList);

    refreshButton();
    rebuildList();
}

void MeetingsPage::refreshButton() {
    const MeetingRecorder::State state = recorder_.state();
    const MeetingsRules::RecordButton look = MeetingsRules::recordButton(
        state, recorder_.startedAt(), Platform::current().clock().now());
    record_->setText(look.label);
    record_->setEnabled(look.enabled);
    busy_->setVisible(look.busy);
    const bool recording = state.kind == MeetingRecorder::State::Kind::Recording;
    record_->setStyleSheet(recording ? (QStringLiteral("QPushButton#primary { background: ") +
                                        PageLook::dangerColor() + QStringLiteral("; }"))
                                     : QString());
    if (recording && !tick_.isActive())
        tick_.start();
    else if (!recording)
        tick_.stop();
}

// Cards are kept by meeting: only a meeting that changed gets a new card, so that the others
// keep their ticks and their open transcript.
void MeetingsPage::rebuildList() {
    QHash<QUuid, MeetingCard*> cards;
    while (QLayoutItem* item = list_->takeAt(0)) {
        if (auto* card = qobject_cast<MeetingCard*>(item->widget()))
            cards.insert(card->meeting().id, card);
        delete item;
    }
    const auto retire = [](QWidget* card) {
        // Later: the click that asked for the change may come from inside the card.
        card->hide();
        card->deleteLater();
    };
    const QList<Meeting>& meetings = store_.meetings();
    empty_->setVisible(meetings.isEmpty());
    for (const Meeting& m : meetings) {
        MeetingCard* card = cards.take(m.id);
        if (card && card->meeting() != m) {
            retire(card);
            card = nullptr;
        }
        list_->addWidget(card ? card : new MeetingCard(store_, recorder_, *player_, m));
    }
    for (MeetingCard* card : std::as_const(cards))
        retire(card);
}

} // namespace ombry
