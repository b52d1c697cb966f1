#include "views/dashboard/DashboardModel.h"

#include <QLocale>
#include <cmath>

namespace ombry::Dashboard {

int streak(const Store& store, const QDate& today) {
    QDate day = today;
    if (store.words(today) == 0) day = today.addDays(-1);
    const QMap<QDate, int>& byDay = store.wordsByDay();
    int count = 0;
    for (;;) {
        const auto it = byDay.constFind(day);
        if (it == byDay.constEnd() || *it < 1) break;
        ++count;
        day = day.addDays(-1);
    }
    return count;
}

std::optional<QString> deltaText(int today, int yesterday) {
    if (yesterday < 1) return std::nullopt;
    const long change = std::lround(double(today - yesterday) / yesterday * 100.0);
    const QString sign = change >= 0 ? QStringLiteral("+") : QString();
    return sign + QString::number(change) + QStringLiteral(" % par rapport à hier");
}

QString savedText(double minutes) {
    const long total = std::lround(std::max(0.0, minutes));
    return QStringLiteral("%1 h %2 min").arg(total / 60).arg(total % 60, 2, 10, QLatin1Char('0'));
}

int fixesCount(const QList<CorrectionRecord>& records) {
    int n = 0;
    for (const CorrectionRecord& r : records)
        n += r.fixes.isEmpty() ? 1 : int(r.fixes.size());
    return n;
}

QString number(qint64 n) {
    static const QLocale french(QLocale::French, QLocale::France);
    return french.toString(n);
}

QList<qint64> chartLines(qint64 most) {
    if (most <= 0) most = 100; // an empty chart keeps a scale of its own
    const qint64 step = [most] {
        for (qint64 magnitude = 1;; magnitude *= 10)
            for (const qint64 k : {1, 2, 5})
                if ((most + k * magnitude - 1) / (k * magnitude) <= 5) return k * magnitude;
    }();
    QList<qint64> lines;
    for (qint64 value = 0; value < most + step; value += step)
        lines.append(value);
    return lines;
}

QString counted(qint64 n, const QString& singular, const QString& plural) {
    return number(n) + QLatin1Char(' ') + (n == 1 ? singular : plural);
}

DashboardSnapshot compute(const Store& store, int typingWPM, bool usesCredits,
                          std::optional<int> balance, const QDate& today) {
    DashboardSnapshot s;
    s.hero.todayWords = store.words(today);
    s.hero.streak = streak(store, today);
    s.hero.fixes = fixesCount(store.fixes());
    s.hero.spent = store.spentThisMonth();
    s.todayText = counted(s.hero.todayWords, QStringLiteral("mot"), QStringLiteral("mots"));

    s.pills.append(
        {QStringLiteral("flame"), number(s.hero.streak),
         s.hero.streak == 1 ? QStringLiteral("jour de suite") : QStringLiteral("jours de suite")});
    s.pills.append({QStringLiteral("seal"), number(s.hero.fixes),
                    s.hero.fixes == 1 ? QStringLiteral("faute corrigée")
                                      : QStringLiteral("fautes corrigées")});
    if (usesCredits) {
        if (balance) {
            s.pills.append({QStringLiteral("sparkles"), number(*balance),
                            *balance == 1 ? QStringLiteral("crédit restant")
                                          : QStringLiteral("crédits restants")});
        }
    } else {
        s.pills.append({QStringLiteral("card"), QString::asprintf("%.2f $", s.hero.spent),
                        QStringLiteral("API ce mois")});
    }

    const int yesterday = store.words(today.addDays(-1));
    s.cards.append(
        {QStringLiteral("words"), QStringLiteral("Mots dictés"), number(store.totalWords()),
         counted(store.dictationCount(), QStringLiteral("dictée"), QStringLiteral("dictées"))});
    s.cards.append({QStringLiteral("sun"), QStringLiteral("Aujourd'hui"), number(s.hero.todayWords),
                    deltaText(s.hero.todayWords, yesterday).value_or(QString())});
    s.cards.append({QStringLiteral("speed"), QStringLiteral("Vitesse"), number(store.averageWPM()),
                    QStringLiteral("mots/min")});
    s.cards.append({QStringLiteral("hourglass"), QStringLiteral("Temps gagné"),
                    savedText(store.minutesSaved(typingWPM)), QString()});

    s.days = store.lastDays(kChartDays);

    const QList<AppShare> shares = store.appShares();
    for (qsizetype i = 0; i < shares.size() && i < kAppLines; ++i) {
        const AppShare& a = shares.at(i);
        s.apps.append({a.name, a.bundleID, a.share,
                       QString::number(std::lround(a.share * 100)) + QStringLiteral(" %")});
    }
    return s;
}

} // namespace ombry::Dashboard
