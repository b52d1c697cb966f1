#pragma once

#include "data/Records.h"
#include "data/Store.h"

#include <QDate>
#include <QList>
#include <QString>
#include <optional>

// What the dashboard shows, computed from the store, the settings and the credits. The page
// holds no data of its own: it asks for a fresh DashboardSnapshot whenever one of them changes.
namespace ombry {

// The top card: today's words and three small figures.
struct HeroCard {
    int todayWords = 0;
    int streak = 0;
    int fixes = 0;
    double spent = 0;
};

// One small figure of the top card: which symbol, the figure and its label.
struct HeroPill {
    QString icon; // "flame", "seal", "sparkles", "card"
    QString value;
    QString label;
    bool operator==(const HeroPill&) const = default;
};

// One of the cards in the row under the top card.
struct StatCard {
    QString icon; // "words", "sun", "speed", "hourglass"
    QString title;
    QString value;
    QString detail; // may be empty
    bool operator==(const StatCard&) const = default;
};

struct AppShareLine {
    QString name;
    std::optional<QString> bundleID;
    double share = 0;
    QString percent; // "42 %"
};

struct DashboardSnapshot {
    HeroCard hero;
    QString todayText; // "{n} mot" / "{n} mots"
    QList<HeroPill> pills;
    QList<StatCard> cards;
    QList<DayWords> days; // 14 entries, oldest first
    QList<AppShareLine> apps;
};

namespace Dashboard {

inline constexpr int kChartDays = 14;
inline constexpr int kAppLines = 6;

// Days in a row with dictation, counted back from today, or from yesterday while nothing has
// been dictated today (so that a streak does not break in the morning).
int streak(const Store& store, const QDate& today);
// "+50 % par rapport à hier", "-50 % …"; nothing when yesterday had no word.
std::optional<QString> deltaText(int today, int yesterday);
// Whole minutes written as "1 h 20 min", "0 h 07 min".
QString savedText(double minutes);
// The faults corrected: the fixes of every record, a record without any counting as one.
int fixesCount(const QList<CorrectionRecord>& records);
// An integer with the French thousands separator.
QString number(qint64 n);
// "{n} {singular}" for 1, "{n} {plural}" otherwise; n with the thousands separator.
QString counted(qint64 n, const QString& singular, const QString& plural);

// The values of the chart's lines for a tallest bar of `most` words, from 0 up: a round step
// (1, 2 or 5 times a power of ten) at most five times, the last line at or above the bar.
// Each line is labelled with its exact value, so a bar ends on the line of its value.
QList<qint64> chartLines(qint64 most);

// Everything the page shows. usesCredits and balance are those of the hosted service.
DashboardSnapshot compute(const Store& store, int typingWPM, bool usesCredits,
                          std::optional<int> balance, const QDate& today);

} // namespace Dashboard
} // namespace ombry
