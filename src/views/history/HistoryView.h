#pragma once

#include "views/history/HistoryModel.h"

#include <QElapsedTimer>
#include <QStyledItemDelegate>
#include <QTreeView>
#include <QUuid>
#include <QWidget>
#include <functional>

class QButtonGroup;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QStackedWidget;

namespace ombry {

class Store;

// Plays a kept recording through the platform's audio: what plays stops, the file is read and
// converted off the main thread, then played. A file that cannot be read plays nothing and
// says nothing.
class HistoryPlayer : public QObject {
    Q_OBJECT
public:
    explicit HistoryPlayer(QObject* parent = nullptr);
    void play(const QString& path);
    bool playing() const;

Q_SIGNALS:
    void started(const QString& path);

private:
    QElapsedTimer since_;
    qint64 lengthMs_ = 0;
    quint64 request_ = 0;
};

// Paints the rows of the history: day headers, dictations and corrections as cards with their
// actions ("Copier", "Rejouer", the disclosure of the raw text). A failed dictation shows its
// length and its error, with "Réessayer" while its recording is kept. A closed row shows at most
// three lines of its text, an opened one all of it and the raw text under it. Heights are
// asked only for the rows in sight (see the list in HistoryView.cpp).
class HistoryDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    enum Action { NoAction, Copy, Play, Disclose, Retry };

    explicit HistoryDelegate(QObject* parent = nullptr);

    void setWidth(int width) { width_ = width; }
    // The row whose "Copier" just ran shows "Copié" for a moment.
    void setCopied(const QUuid& id) { copied_ = id; }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;

    // Where an action's button stands in a row drawn in `rowRect`; empty when the row has none.
    QRect actionRect(const QRect& rowRect, const QModelIndex& index, Action action,
                     const QFont& font) const;

Q_SIGNALS:
    void actionTriggered(int row, ombry::HistoryDelegate::Action action);

private:
    struct Button {
        Action action;
        QString symbol;
        QString text;
        QRect rect;
    };
    QList<Button> buttons(const QRect& rowRect, const QModelIndex& index, const QFont& font) const;
    int textWidth() const;

    int width_ = 800;
    QUuid copied_;
};

// The page "Historique": past dictations and corrections, filtered by kind, period,
// application and search, grouped by day, each to copy, open or listen to again.
class HistoryView : public QWidget {
    Q_OBJECT
public:
    explicit HistoryView(Store& store, QWidget* parent = nullptr);

    HistoryListModel& model() { return *model_; }
    HistoryDelegate& delegate() { return *delegate_; }
    QTreeView& list() { return *list_; }
    QLineEdit& searchField() { return *search_; }
    HistoryPlayer& player() { return *player_; }
    // Runs an action on a row, as a click on its button does.
    void trigger(int row, HistoryDelegate::Action action);
    // "Réessayer" on a failed dictation: processes its kept recording again.
    std::function<void(const QUuid& id)> onRetry;

protected:
    void showEvent(QShowEvent* event) override;

private:
    void syncAppMenu();
    void syncEmptyState();
    void askClear(bool ask);

    Store& store_;
    HistoryListModel* model_;
    HistoryDelegate* delegate_;
    HistoryPlayer* player_;
    QTreeView* list_;
    QLineEdit* search_;
    QButtonGroup* kinds_;
    QButtonGroup* ranges_;
    QComboBox* apps_;
    QPushButton* clear_;
    QWidget* confirm_;
    QStackedWidget* stack_;
    QLabel* empty_;
    QTimer* copiedTimer_;
};

} // namespace ombry
