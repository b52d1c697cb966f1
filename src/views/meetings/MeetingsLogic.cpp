#include "views/meetings/MeetingsLogic.h"

#include <QLocale>

namespace ombry::MeetingsRules {

QString elapsedText(int64_t seconds) {
    seconds = std::max<int64_t>(seconds, 0);
    return QString::asprintf("%d:%02d", int(seconds / 60), int(seconds % 60));
}

RecordButton recordButton(const MeetingRecorder::State& state, const QDateTime& startedAt,
                          const QDateTime& now) {
    switch (state.kind) {
    case MeetingRecorder::State::Kind::Idle:
        return {QStringLiteral("Démarrer une réunion"), true, false};
    case MeetingRecorder::State::Kind::Recording: {
        const int64_t seconds = startedAt.isValid() ? startedAt.secsTo(now) : 0;
        return {QStringLiteral("Arrêter · ") + elapsedText(seconds), true, false};
    }
    case MeetingRecorder::State::Kind::Processing:
        return {state.text, false, true};
    }
    return {};
}

QString copyText(const Meeting& meeting) {
    QString text =
        meeting.title + QStringLiteral("\n\n") + meeting.summary + QStringLiteral("\n\n");
    QStringList tasks;
    for (const QString& task : meeting.tasks)
        tasks << QStringLiteral("- ") + task;
    return text + tasks.join(QLatin1Char('\n'));
}

QString durationText(double seconds) {
    return QStringLiteral("%1 min").arg(int(std::max(seconds, 0.0) / 60.0));
}

QString dateText(const QDateTime& date) {
    static const QLocale french(QLocale::French, QLocale::France);
    return french.toString(date.toLocalTime(), QStringLiteral("d MMMM yyyy 'à' HH:mm"));
}

} // namespace ombry::MeetingsRules
