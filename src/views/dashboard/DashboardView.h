#pragma once

#include "views/dashboard/DashboardModel.h"

#include <QWidget>

class QLabel;
class QTimer;
class QVBoxLayout;
class QPushButton;

namespace ombry {

class AppSettings;
class Credits;
class Store;

// The bar chart of the words dictated each day, oldest day on the left. Empty days keep their
// place with no bar. Hovering a bar tells its day and count.
class WordsChart : public QWidget {
    Q_OBJECT
public:
    explicit WordsChart(QWidget* parent = nullptr);
    void setDays(const QList<DayWords>& days);
    const QList<DayWords>& days() const { return days_; }
    // Where the bar of the day at `i` stands (its full column when the day has no word).
    QRectF barRect(int i) const;

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

private:
    QRectF plotRect() const;
    QList<qint64> scaleLines() const;
    int scaleTop() const;
    QList<DayWords> days_;
};

// The first page of the main window, "Tableau de bord": today's words, the streak, the
// faults corrected, credits or spending, four figures, the chart of the last fourteen days
// and the applications dictated into. Everything is read from the store, the settings and
// the credits, and read again when one of them changes.
class DashboardView : public QWidget {
    Q_OBJECT
public:
    DashboardView(Store& store, AppSettings& settings, QWidget* parent = nullptr);

    const DashboardSnapshot& snapshot() const { return snapshot_; }
    WordsChart& chart() { return *chart_; }
    // Reads everything again now (the page also does it by itself after each change).
    void refresh();

Q_SIGNALS:
    // "Tout voir": the user asks for the history page.
    void showHistory();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void scheduleRefresh();

    Store& store_;
    AppSettings& settings_;
    DashboardSnapshot snapshot_;
    QTimer* pending_;
    QLabel* today_;
    QList<QLabel*> pillValues_;
    QList<QLabel*> pillLabels_;
    QList<QWidget*> pillIcons_;
    QList<QWidget*> pills_;
    QList<QLabel*> cardValues_;
    QList<QLabel*> cardDetails_;
    WordsChart* chart_;
    QWidget* apps_;
    QVBoxLayout* appsLayout_;
    QLabel* appsEmpty_;
};

} // namespace ombry
